// Watchers of what the state machines of aggregates write that end them, or raise; and what comes
// while they are not initialized.

#include "tests/harness/Sabotage.h"
#include "Qon/include/lag/QonEthPhyLagConfigAggregatorSm.h"
#include "Qon/include/lag/QonLagConfigMapCreatorSm.h"
#include "Qon/include/lag/QonLagCreatorSm.h"
#include "Qon/include/lag/QonLagStateAggregatorSm.h"
#include "platform/Kiv/Generic.h"
#include "platform/Kiv/Listener.h"
#include "tests/lag/LagWorld.h"

namespace {

using namespace LagTests;
using Tests::Saboteur;

struct QuietDriver : Qon::LagPacketDriver {
   QuietDriver() : LagPacketDriver( "driver" ) {}
   int getLagInfo( U32, char *, U32 ) override { return 0; }
};

/** Everything that the second family works on. */
struct SecondFamily : LagWorld {
   SecondFamily() {
      guard.reset();
      hardwarePorts( 1, 9 );
      for ( U32 n = 1; n <= 9; ++n ) {
         phy->intfStatusIs( eth( n ) );
         memberStatus->memberStatusIs( eth( n ), { true, true } );
      }
   }
   void list( U32 n, std::initializer_list< U32 > ports ) {
      Qon::QonLagPortList l;
      for ( U32 port : ports ) {
         l.portIs( eth( port ), { true, true } );
      }
      acsd->lagToPortIs( po( n ), l );
      for ( U32 port : ports ) {
         acsd->portToLagIs( eth( port ), po( n ) );
      }
   }
   Ptr< Interface::EthPhyIntfStatusDir > phy =
         Velto::make< Interface::EthPhyIntfStatusDir >( "phy" );
   Ptr< Hardware::Lag::MemberStatusDir > memberStatus =
         Velto::make< Hardware::Lag::MemberStatusDir >( "member" );
   Ptr< Interface::EthLagIntfConfigDir > intfConfig =
         Velto::make< Interface::EthLagIntfConfigDir >( "intfs" );
   Ptr< Hardware::Lag::AggregatedLagConfigDir > aggregated =
         Velto::make< Hardware::Lag::AggregatedLagConfigDir >( "aggregated" );
};

TEST( LagSabotage, OfLagSm ) {
   Tests::sabotage( []( Saboteur & saboteur ) {
      LagWorld w;
      w.guard.reset();
      w.hardwarePorts( 1, 9 );
      w.join( 1, 1 );
      w.join( 1, 2 );
      w.join( 2, 3 );
      w.lag( 2 )->lacpFallbackEnabledIs( 2 );
      w.config->lagIs( po( 7 ), 7 )->memberIs( eth( 7 ), Hardware::Lag::Member() );
      saboteur.watches( { w.acsd.ptr(), w.deviceNames.ptr(), w.config.ptr() } );
      saboteur.drops( w.lagSm, w.prog );
      saboteur.does( [&] { w.start(); } );
      if ( w.lagSm ) {
         saboteur.does( [&] { w.lagSm->sharePeerLinkWithLagIs( po( 1 ), true ); } );
      }
      saboteur.does( [&] { w.mlagUp( po( 2 ) ); } );
      saboteur.does( [&] { w.join( 2, 1 ); } ); // moves, and is lent back
      saboteur.does( [&] { w.lag( 1 )->deviceNameIs( "po1" ); } );
      saboteur.does( [&] { w.acsd->intfIs( eth( 1 ), true ); } );
      saboteur.does( [&] { w.acsd->intfDel( eth( 1 ) ); } );
      saboteur.does( [&] { w.fapIdPorts->fapIdPortDel( eth( 3 ) ); } );
      saboteur.does( [&] { w.dir->intfStatusDel( po( 2 ) ); } );
      saboteur.ends( [&] { return w.lagSm->checkInvariants(); } );
   } );
}

TEST( LagSabotage, OfLagProgSm ) {
   Tests::sabotage( []( Saboteur & saboteur ) {
      LagWorld w;
      w.guard.reset();
      w.hardwarePorts( 1, 3 );
      w.config->lagIs( po( 7 ), 7 )->memberIs( eth( 7 ), Hardware::Lag::Member() );
      w.prog = Qon::LagProgSmIs( w.config, w.status, w.fapIdPorts );
      saboteur.watches( { w.config.ptr() } );
      saboteur.drops( w.prog );
      auto step = [&]( auto && act ) {
         saboteur.does( [&] {
            if ( w.prog ) {
               act( *Velto::Ptr( w.prog.ptr() ) ); // whoever calls it holds it
            }
         } );
      };
      const Qon::QonLagPort both( true, true );
      step( []( Qon::LagProgSm & sm ) { sm.initializedIs( true ); } );
      step( [&]( Qon::LagProgSm & sm ) { sm.memberIs( po( 1 ), eth( 1 ), both, false ); } );
      step( [&]( Qon::LagProgSm & sm ) { sm.memberIs( po( 2 ), eth( 1 ), both, true ); } );
      step( [&]( Qon::LagProgSm & sm ) { sm.memberIs( po( 1 ), eth( 4 ), both, false ); } );
      step( []( Qon::LagProgSm & sm ) { sm.inputsReadIs( true ); } );
      step( []( Qon::LagProgSm & sm ) { sm.removeStale(); } );
      // From here on it is called by what it watches.
      saboteur.does( [&] { w.hardwarePorts( 4, 4 ); } );
      saboteur.does( [&] { w.fapIdPorts->fapIdPortDel( eth( 1 ) ); } );
      saboteur.does( [&] { w.hardwarePorts( 1, 1 ); } );
      step( [&]( Qon::LagProgSm & sm ) { sm.memberDel( po( 1 ), eth( 1 ) ); } );
      saboteur.ends( [&] {
         w.prog->initializedIs( false ); // what a change that raised left over is made good
         w.prog->initializedIs( true );
         return w.prog->checkInvariants();
      } );
   } );
}

TEST( LagSabotage, OfQonLagCreatorSm ) {
   Tests::sabotage( []( Saboteur & saboteur ) {
      SecondFamily w;
      w.list( 1, { 1, 2 } );
      w.config->lagIs( po( 7 ), 7 )->memberIs( eth( 7 ), Hardware::Lag::Member() );
      auto sm = Qon::QonLagCreatorSmIs(
            { w.acsd, w.phy, w.fapIdPorts, Velto::make< QuietDriver >() }, w.config );
      saboteur.watches( { w.config.ptr() } );
      saboteur.drops( sm );
      saboteur.does( [&] { sm->initializedIs( true ); } );
      saboteur.does( [&] { w.list( 2, { 3 } ); } );
      saboteur.does( [&] { w.list( 2, { 3, 2 } ); } );
      saboteur.does( [&] { w.phy->intfStatusDel( eth( 1 ) ); } );
      saboteur.does( [&] { w.acsd->lagToPortDel( po( 2 ) ); } );
      saboteur.ends( [&] {
         return w.hardware( 1 ).empty() && w.hardware( 2 ).empty() && w.hardware( 7 ).empty()
                      ? String()
                      : "members are left";
      } );
   } );
}

TEST( LagSabotage, OfLagConfigMapCreatorSm ) {
   Tests::sabotage( []( Saboteur & saboteur ) {
      SecondFamily w;
      w.list( 1, {} );
      w.list( 2, {} );
      auto po1 = w.aggregated->lagToPortIs( po( 1 ) ), po2 = w.aggregated->lagToPortIs( po( 2 ) );
      po1->memberIs( eth( 1 ), Interface::LagMode::on );
      po1->memberIs( eth( 2 ), Interface::LagMode::on );
      w.config->lagIs( po( 7 ), 7 )->memberIs( eth( 7 ), Hardware::Lag::Member() );
      auto sm = Qon::LagConfigMapCreatorSmIs(
            { w.acsd, w.aggregated, w.memberStatus, w.phy, w.fapIdPorts }, w.config );
      saboteur.watches( { w.config.ptr() } );
      saboteur.drops( sm );
      saboteur.does( [&] { sm->initializedIs( true ); } );
      saboteur.does( [&] { po2->memberIs( eth( 2 ), Interface::LagMode::on ); } );
      saboteur.does( [&] { w.acsd->lagToPortDel( po( 1 ) ); } );
      saboteur.does( [&] { w.aggregated->lagToPortDel( po( 2 ) ); } );
      saboteur.ends( [&] { return sm->checkInvariants(); } );
   } );
}

TEST( LagSabotage, OfLagConfigAggregatorSm ) {
   Tests::sabotage( []( Saboteur & saboteur ) {
      SecondFamily w;
      w.intfConfig->intfConfigIs( eth( 1 ) )->lagIs( po( 1 ) );
      w.intfConfig->intfConfigIs( eth( 2 ) )->lagIs( po( 1 ) );
      w.aggregated->lagToPortIs( po( 7 ) )->memberIs( eth( 7 ), Interface::LagMode::on );
      auto sm = Qon::LagConfigAggregatorSmIs( w.intfConfig, w.aggregated, &w.scheduler );
      sm->initializedIs( true );
      saboteur.watches( { w.aggregated.ptr() } );
      saboteur.drops( sm );
      saboteur.does( [&] { w.scheduler.settle(); } );
      w.scheduler.settle(); // the scan goes on after an exception
      saboteur.does( [&] { w.intfConfig->intfConfig( eth( 2 ) )->lagIs( po( 2 ) ); } );
      saboteur.does( [&] { w.intfConfig->intfConfigDel( eth( 1 ) ); } );
      saboteur.ends( [&] { return sm->scanDone() ? sm->checkInvariants() : "the scan hangs"; } );
   } );
}

TEST( LagSabotage, OfLagStateAggregatorSm ) {
   Tests::sabotage( []( Saboteur & saboteur ) {
      SecondFamily w;
      auto merged = Velto::make< Hardware::Lag::Status >( "merged" );
      merged->lagIs( po( 7 ) );
      w.status->lagIs( po( 1 ) )->memberIs( eth( 1 ), Hardware::Lag::MemberStatus() );
      auto sm = Qon::LagStateAggregatorSmIs( { w.status }, merged );
      saboteur.watches( { merged.ptr() } );
      saboteur.drops( sm );
      saboteur.does( [&] { sm->initializedIs( true ); } );
      saboteur.does(
            [&] { w.status->lag( po( 1 ) )->resultIs( Hardware::Lag::Result::pending ); } );
      saboteur.does( [&] { w.status->lagIs( po( 2 ) )->indexIs( 2 ); } );
      saboteur.does( [&] { w.status->lagDel( po( 1 ) ); } );
      saboteur.ends( [&] {
         return merged->lags() == 1 && merged->lagHas( po( 2 ) ) ? String() : "wrong aggregates";
      } );
   } );
}

TEST( LagRest, NothingIsHeardAndEverythingMadeGood ) {
   LagWorld w;
   w.hardwarePorts( 1, 9 );
   w.start();
   w.join( 1, 1 );
   w.join( 1, 2 );
   w.join( 2, 3 );
   w.mlagUp( eth( 9 ) );
   w.lagSm->initializedIs( false );
   const U32 changes = w.guard->changes, hardwareChanges = w.guard->hardwareChanges;
   w.join( 1, 2, false, true ); // of an entity that stays
   w.leave( 1, 1 );
   w.join( 2, 1 );
   w.lag( 2 )->lacpFallbackEnabledIs( 2 );
   w.lag( 2 )->deviceNameIs( "po2" );
   w.join( 4, 4 );
   w.lagSm->sharePeerLinkWithLagIs( po( 2 ), true );
   EXPECT_EQ( std::pair( changes, hardwareChanges ),
              std::pair( w.guard->changes, w.guard->hardwareChanges ) );
   EXPECT_EQ( w.members( 1 ), ( Ports{ eth( 1 ), eth( 2 ) } ) );
   w.lagSm->initializedIs( true );
   EXPECT_EQ( w.members( 2 ), ( Ports{ eth( 3 ), eth( 1 ) } ) );
   EXPECT_EQ( w.hardware( 1 ), Ports{ eth( 2 ) } );
   EXPECT_EQ( w.hardware( 2, true ), Ports{ eth( 9 ) } );
   EXPECT_EQ( w.hardware( 4 ), Ports{ eth( 4 ) } );
   EXPECT_FALSE( w.acsd->lagToPort( po( 1 ) ).port( eth( 2 ) ).collecting() );
   EXPECT_TRUE( w.acsd->lagInLacpFallbackIndividualMode( po( 2 ) ) );
   EXPECT_EQ( w.deviceNames->intfDeviceName( po( 2 ) ), "po2" );
   w.checkAll();
   w.lagSm->initializedIs( false );
   w.dir->intfStatusDel( po( 1 ) );
   w.lagSm->initializedIs( true );
   w.leave( 4, 4 ); // and it hears again
   EXPECT_EQ( w.members( 4 ), Ports{} );
   w.checkAll();
}

TEST( LagRest, OfTheSecondFamily ) {
   SecondFamily w;
   auto map = Qon::LagConfigMapCreatorSmIs(
         { w.acsd, w.aggregated, w.memberStatus, w.phy, w.fapIdPorts }, w.config );
   auto aggregator = Qon::LagConfigAggregatorSmIs( w.intfConfig, w.aggregated, &w.scheduler );
   w.list( 1, {} );
   w.list( 2, {} );
   w.intfConfig->intfConfigIs( eth( 1 ) )->lagIs( po( 1 ) );
   w.intfConfig->intfConfigIs( eth( 2 ) )->lagIs( po( 1 ) );
   map->initializedIs( true );
   aggregator->initializedIs( true );
   w.scheduler.settle();
   EXPECT_EQ( w.hardware( 1 ), ( Ports{ eth( 1 ), eth( 2 ) } ) );
   aggregator->initializedIs( false );
   w.intfConfig->intfConfig( eth( 1 ) )->lagIs( po( 2 ) );
   w.intfConfig->intfConfigDel( eth( 2 ) );
   w.intfConfig->intfConfigIs( eth( 3 ) )->lagIs( po( 2 ) );
   w.scheduler.settle();
   EXPECT_EQ( w.hardware( 2 ), Ports{} );
   map->initializedIs( false );
   aggregator->initializedIs( true );
   w.scheduler.settle();
   EXPECT_EQ( w.hardware( 2 ), Ports{} );
   map->initializedIs( true );
   EXPECT_EQ( w.hardware( 1 ), Ports{} );
   EXPECT_EQ( w.hardware( 2 ), ( Ports{ eth( 1 ), eth( 3 ) } ) );
   EXPECT_EQ( map->checkInvariants() + aggregator->checkInvariants(), "" );
}

/** Manages what the test says, aggregates too. */
struct PickyLagSm : Qon::LagSm {
   using LagSm::LagSm;
   bool isIntfManaged( IntfId intf ) const override {
      return acsd()->intfs() == 0 || acsd()->intfHas( intf );
   }
};

TEST( LagLaws, FallbackFollowsWhetherTheAggregateIsManaged ) {
   LagWorld w;
   auto sm = Qon::smIs< PickyLagSm >(
         Qon::LagSm::Inputs{ w.acsd, w.dir, nullptr, nullptr, nullptr, nullptr } );
   sm->initializedIs( true );
   w.lag( 1 )->lacpFallbackEnabledIs( 2 );
   auto individual = [&] { return w.acsd->lagInLacpFallbackIndividualMode( po( 1 ) ); };
   w.acsd->intfIs( eth( 1 ), true ); // the first entry: nobody manages the aggregate
   EXPECT_FALSE( individual() );
   w.join( 1, 1 );
   EXPECT_EQ( w.members( 1 ), Ports() );
   w.acsd->intfIs( po( 1 ), true );
   EXPECT_TRUE( individual() );
   EXPECT_EQ( w.members( 1 ), Ports{ eth( 1 ) } ); // its port is looked at with it
   w.acsd->intfDel( po( 1 ) );
   EXPECT_FALSE( individual() );
   w.acsd->intfDel( eth( 1 ) ); // the last one: everything is managed
   EXPECT_TRUE( individual() );
}

TEST( LagLaws, AnAggregateThatCameBackAfterARestartFlagClaimsOnlyWhatItLists ) {
   LagWorld w;
   w.start();
   w.join( 1, 1 );
   w.join( 1, 2 );
   Kiv::agentRestartingIs( true );
   w.dir->intfStatusDel( po( 1 ) );
   EXPECT_EQ( w.members( 1 ), ( Ports{ eth( 1 ), eth( 2 ) } ) );
   Kiv::agentRestartingIs( false );
   w.join( 1, 2 );
   EXPECT_EQ( w.members( 1 ), Ports{ eth( 2 ) } );
   w.join( 2, 1 );
   w.leave( 2, 1 );
   EXPECT_FALSE( w.acsd->inLag( eth( 1 ) ) );
   w.checkAll();
}

TEST( LagLaws, AGroupGoesOnToForwardUntilTheHardwarePortsHaveBeenRead ) {
   LagWorld w;
   w.hardwarePorts( 1, 2 );
   w.join( 1, 1 );
   w.join( 1, 2 );
   w.start();
   w.join( 2, 3 );
   w.stop();
   w.fapIdPorts->fapIdPortDelAll(); // the next incarnation reads them anew
   w.leave( 1, 2 );
   w.inputsRead = false;
   const U32 before = w.guard->hardwareChanges;
   w.start();
   EXPECT_EQ( w.hardware( 1 ).count( eth( 1 ) ), 1u );
   EXPECT_LE( w.guard->hardwareChanges, before + 1 ); // what left may go
   w.hardwarePorts( 1, 1 );
   EXPECT_EQ( w.hardware( 1 ).count( eth( 1 ) ), 1u );
   w.prog->inputsReadIs( true );
   EXPECT_EQ( w.hardware( 1 ), Ports{ eth( 1 ) } );
   w.checkAll();
}

/** What one watcher of the hardware's groups raises costs none of the other groups its write. */
TEST( LagLaws, AGroupWhoseWatcherRaisesKeepsNoOtherFromItsMembers ) {
   LagWorld w;
   w.guard.reset();
   for ( U32 stale : { 7, 8 } ) {
      w.config->lagIs( po( stale ), stale )->memberIs( eth( stale ), Hardware::Lag::Member() );
   }
   w.prog = Qon::LagProgSmIs( w.config, w.status, w.fapIdPorts );
   w.prog->initializedIs( true );
   w.prog->inputsReadIs( true );
   const Qon::QonLagPort both( true, true );
   for ( U32 n : { 1, 2, 3 } ) {
      w.prog->memberIs( po( n ), eth( 1 ), both, n != 1 );
   }
   U32 raises = 1;
   Kiv::Listener< Hardware::Lag::Config::lagAttr > watcher( w.config.ptr(), [&]( IntfId lag ) {
      if ( lag == po( raises ) ) {
         throw Velto::RangeError( "watcher" );
      }
   } );
   EXPECT_THROW( w.hardwarePorts( 1, 1 ), Velto::RangeError );
   for ( U32 n : { 1, 2, 3 } ) {
      EXPECT_EQ( w.hardware( n, n != 1 ), Ports{ eth( 1 ) } ) << n;
   }
   EXPECT_THROW( w.prog->memberIs( po( 4 ), eth( 1 ), both, false ), Velto::RangeError ); // moves
   EXPECT_EQ( w.hardware( 4 ), Ports{ eth( 1 ) } );
   raises = 7;
   EXPECT_THROW( w.prog->removeStale(), Velto::RangeError );
   EXPECT_TRUE( w.hardware( 7 ).empty() && w.hardware( 8 ).empty() );
}

TEST( LagLaws, AllThatWasLentGoesWhoeverRaises ) {
   LagWorld w;
   w.guard.reset();
   w.hardwarePorts( 1, 4 );
   w.join( 1, 1 );
   for ( U32 port : { 2, 3, 4 } ) {
      w.join( 2, port );
   }
   w.start();
   w.lagSm->sharePeerLinkWithLagIs( po( 1 ), true );
   w.mlagUp( po( 2 ) );
   EXPECT_EQ( w.hardware( 1, true ).size(), 3u );
   Kiv::Listener< Hardware::Lag::LagConfig::memberAttr > watcher(
         w.config->lag( po( 1 ) ), []( IntfId ) { throw Velto::RangeError( "watcher" ); } );
   EXPECT_THROW( w.lagSm->sharePeerLinkWithLagIs( po( 1 ), false ), Velto::RangeError );
   EXPECT_EQ( w.hardware( 1, true ), Ports() );
   EXPECT_EQ( w.hardware( 1 ), Ports{ eth( 1 ) } );
}

TEST( LagLaws, ReadByName ) {
   LagWorld w;
   w.start();
   w.lagSm->sharePeerLinkWithLagIs( po( 3 ), false );
   EXPECT_TRUE( w.lagSm->sharePeerLinkWithLagHas( po( 3 ) ) );
   Kiv::GenericIf::set( *w.lagSm, "sharePeerLinkWithLag[Port-Channel4]", "True" );
   EXPECT_TRUE( w.lagSm->sharePeerLinkWithLag( po( 4 ) ) );
   w.mlagUp( po( 2 ) );
   EXPECT_EQ( Kiv::GenericIf::get( *w.lagSm, "mlagStatus/peerLinkIntf" ), "Port-Channel2" );
   w.join( 1, 1 );
   auto get = [&]( const String & path ) { return Kiv::GenericIf::get( *w.lagSm, path ); };
   EXPECT_EQ( get( "acsd/portToLag[Ethernet1]" ), "Port-Channel1" );
   EXPECT_NE( get( "localMember[Port-Channel1]" ).find( "Ethernet1" ), String::npos );
   EXPECT_EQ( get( "localMember" ), get( "acsd/lagToPort" ) );
   EXPECT_EQ( get( "localMember[Port-Channel9]" ), "None" );
   EXPECT_NE( get( "status[Port-Channel1]" ), "None" );
   EXPECT_EQ( get( "status[Port-Channel9]" ), "None" );
   EXPECT_NE( get( "ethLagIntfStatusDir/intfStatus[Port-Channel1]" ), "None" );
   for ( auto change :
         { +[]( Qon::LagSm & sm ) { Kiv::GenericIf::insert( sm, "status[Port-Channel9]" ); },
           +[]( Qon::LagSm & sm ) {
              Kiv::GenericIf::set( sm, "localMember[Port-Channel1]", "{}" );
           },
           +[]( Qon::LagSm & sm ) { Kiv::GenericIf::del( sm, "localMember[Port-Channel1]" ); } } ) {
      EXPECT_THROW( change( *w.lagSm ), Velto::RangeError );
   }
   bool listed = false;
   Kiv::GenericIf::Dump dump( *w.lagSm );
   for ( Kiv::GenericIf::Line line; dump.next( line ); ) {
      listed = listed || line.path == "status[Port-Channel1]";
   }
   EXPECT_TRUE( listed );
}

} // namespace
