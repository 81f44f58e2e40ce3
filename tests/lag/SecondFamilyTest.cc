// The creators of hardware groups and the aggregators of configuration and state.

#include <functional>

#include "Qon/include/lag/QonEthPhyLagConfigAggregatorSm.h"
#include "Qon/include/lag/QonLagConfigMapCreatorSm.h"
#include "Qon/include/lag/QonLagCreatorSm.h"
#include "Qon/include/lag/QonLagStateAggregatorSm.h"
#include "platform/Kiv/Listener.h"
#include "tests/lag/LagWorld.h"

namespace {

using namespace LagTests;
using Hardware::Lag::MemberStatus;
using Hardware::Lag::Result;

class AskedDriver : public Qon::LagPacketDriver {
 public:
   AskedDriver() : LagPacketDriver( "driver" ) {}
   int getLagInfo( U32 lagIndex, char * buffer, U32 size ) override {
      asked.emplace_back( lagIndex, size );
      buffer[size - 1] = 0;
      return 0;
   }
   std::vector< std::pair< U32, U32 > > asked;
};

class CreatorFlow : public ::testing::Test, public LagWorld {
 protected:
   void create() {
      creator = Qon::QonLagCreatorSmIs( { acsd, phy, fapIdPorts, driver }, config );
      creator->initializedIs( true );
   }
   /** Port 1 becomes a member of aggregate 1 in the maps. */
   void joined() {
      Qon::QonLagPortList list;
      list.portIs( eth( 1 ), Qon::QonLagPort( true, true ) );
      acsd->lagToPortIs( po( 1 ), list );
      acsd->portToLagIs( eth( 1 ), po( 1 ) );
   }
   Ptr< Interface::EthPhyIntfStatusDir > phy =
         Velto::make< Interface::EthPhyIntfStatusDir >( "phy" );
   Ptr< AskedDriver > driver = Velto::make< AskedDriver >();
   Ptr< Qon::QonLagCreatorSm > creator;
};

TEST_F( CreatorFlow, TheDriverIsAskedOnceTheMemberIsComplete ) {
   create();
   joined();
   phy->intfStatusIs( eth( 1 ) );
   EXPECT_TRUE( driver->asked.empty() );
   hardwarePorts( 1, 1 );
   EXPECT_EQ( driver->asked.front(), std::make_pair( 1u, 512u ) );
   EXPECT_EQ( hardware( 1 ), Ports{ eth( 1 ) } );

   // One that was complete before it joined; a group that nobody lists is none.
   hardwarePorts( 2, 3 );
   phy->intfStatusIs( eth( 2 ) );
   phy->intfStatusIs( eth( 3 ) );
   guard.reset();
   acsd->portToLagIs( eth( 2 ), po( 2 ) );
   acsd->portToLagIs( eth( 3 ), po( 2 ) );
   driver->asked.clear();
   Qon::QonLagPortList list;
   list.portIs( eth( 2 ), Qon::QonLagPort( true, true ) );
   acsd->lagToPortIs( po( 2 ), list );
   EXPECT_EQ( driver->asked.size(), 1u );
   acsd->portToLagIs( eth( 2 ), IntfId() );
   driver->asked.clear();
   acsd->portToLagIs( eth( 2 ), po( 2 ) );
   EXPECT_EQ( driver->asked.size(), 1u );
   EXPECT_EQ( hardware( 2 ), Ports{ eth( 2 ) } );
}

/** A port goes from the group that another incarnation left it in to its own, and is never in both. */
TEST_F( CreatorFlow, AStartTakesAPortOutOfItsFormerGroupFirst ) {
   hardwarePorts( 1, 1 );
   phy->intfStatusIs( eth( 1 ) );
   config->lagIs( po( 2 ), 2 )->memberIs( eth( 1 ), Hardware::Lag::Member() );
   config->lagIs( po( 7 ), 7 ); // nobody's
   guard.emplace( acsd.ptr(), config.ptr() );
   joined();
   acsd->lagToPortIs( po( 2 ), {} );
   create();
   EXPECT_EQ( hardware( 1 ), Ports{ eth( 1 ) } );
   EXPECT_TRUE( hardware( 2 ).empty() );
   EXPECT_FALSE( config->lagHas( po( 7 ) ) );
}

TEST_F( CreatorFlow, WhatAnotherIncarnationLeftIsTidiedUp ) {
   hardwarePorts( 1, 3 );
   phy->intfStatusIs( eth( 1 ) );
   for ( U32 lag : { 1, 2 } ) {
      config->lagIs( po( lag ), lag )->memberIs( eth( lag + 1 ), Hardware::Lag::Member() );
   }
   joined();
   create();
   EXPECT_EQ( hardware( 1 ), Ports{ eth( 1 ) } );
   EXPECT_FALSE( config->lagHas( po( 2 ) ) );
}

TEST_F( CreatorFlow, AtRestNothingIsHeardAndThenAllOfIt ) {
   hardwarePorts( 1, 2 );
   phy->intfStatusIs( eth( 1 ) );
   create();
   joined();
   creator->initializedIs( false );
   driver->asked.clear();
   guard.reset(); // the maps change one after the other
   Qon::QonLagPortList list;
   list.portIs( eth( 2 ), Qon::QonLagPort( true, true ) );
   acsd->lagToPortIs( po( 1 ), list );
   acsd->portToLagDel( eth( 1 ) );
   acsd->portToLagIs( eth( 2 ), po( 1 ) );
   phy->intfStatusIs( eth( 2 ) );
   EXPECT_EQ( hardware( 1 ), Ports{ eth( 1 ) } );
   EXPECT_TRUE( driver->asked.empty() );
   creator->initializedIs( true );
   EXPECT_EQ( hardware( 1 ), Ports{ eth( 2 ) } );
}

TEST_F( CreatorFlow, WhatAMemberMayDoIsProgrammedAsItIs ) {
   hardwarePorts( 1, 2 );
   phy->intfStatusIs( eth( 1 ) );
   phy->intfStatusIs( eth( 2 ) );
   create();
   joined();
   Qon::QonLagPortList list;
   list.portIs( eth( 1 ), Qon::QonLagPort( true, false ) );
   acsd->lagToPortIs( po( 1 ), list );
   EXPECT_EQ( config->lag( po( 1 ) )->member( eth( 1 ) ),
              Hardware::Lag::Member( Qon::FapIdPort( 0, 1 ), true, false, false ) );

   // The same by configuration; a port that is configured twice is left in the other one.
   auto aggregated = Velto::make< Hardware::Lag::AggregatedLagConfigDir >( "aggregated" );
   auto states = Velto::make< Hardware::Lag::MemberStatusDir >( "member" );
   auto groups = Velto::make< Hardware::Lag::Config >( "groups" );
   auto map = Qon::LagConfigMapCreatorSmIs( { acsd, aggregated, states, phy, fapIdPorts }, groups );
   map->initializedIs( true );
   acsd->lagToPortIs( po( 2 ), {} );
   states->memberStatusIs( eth( 2 ), { true, false } );
   for ( U32 lag : { 1, 2 } ) {
      aggregated->lagToPortIs( po( lag ) )->memberIs( eth( 2 ), Interface::LagMode::on );
   }
   const Hardware::Lag::Member member( Qon::FapIdPort( 0, 2 ), true, false, false );
   EXPECT_EQ( groups->lag( po( 2 ) )->member( eth( 2 ) ), member );
   aggregated->lagToPort( po( 2 ) )->memberDel( eth( 2 ) );
   ASSERT_TRUE( groups->lagHas( po( 1 ) ) );
   EXPECT_EQ( groups->lag( po( 1 ) )->member( eth( 2 ) ), member );
}

/** Groups by configuration: port 1 of aggregate 1, with all that its member takes. */
class ConfigMapFlow : public ::testing::Test, public LagWorld {
 protected:
   ConfigMapFlow() {
      complete( 1 );
      acsd->lagToPortIs( po( 1 ), {} );
      map->initializedIs( true );
      listed->memberIs( eth( 1 ), Interface::LagMode::on );
   }
   void complete( U32 port ) {
      hardwarePorts( port, port );
      phy->intfStatusIs( eth( port ) );
      states->memberStatusIs( eth( port ), { true, true } );
   }
   Ptr< Hardware::Lag::AggregatedLagConfigDir > aggregated =
         Velto::make< Hardware::Lag::AggregatedLagConfigDir >( "aggregated" );
   Ptr< Hardware::Lag::AggregatedLagConfig > listed = aggregated->lagToPortIs( po( 1 ) );
   Ptr< Hardware::Lag::MemberStatusDir > states =
         Velto::make< Hardware::Lag::MemberStatusDir >( "states" );
   Ptr< Interface::EthPhyIntfStatusDir > phy =
         Velto::make< Interface::EthPhyIntfStatusDir >( "phy" );
   Ptr< Qon::LagConfigMapCreatorSm > map =
         Qon::LagConfigMapCreatorSmIs( { acsd, aggregated, states, phy, fapIdPorts }, config );
   const Ports both{ eth( 1 ), eth( 2 ) }, first{ eth( 1 ) }, none;
};

TEST_F( ConfigMapFlow, AMemberIsProgrammedWhileAllThatItTakesIsThere ) {
   struct {
      const char * what;
      std::function< void() > takes, gives;
   } const pieces[] = {
         { "state", [&] { states->memberStatusDel( eth( 1 ) ); },
           [&] {
              states->memberStatusIs( eth( 1 ), { true, true } );
           } },
         { "hardware port", [&] { fapIdPorts->fapIdPortDel( eth( 1 ) ); },
           [&] { hardwarePorts( 1, 1 ); } },
         { "interface", [&] { phy->intfStatusDel( eth( 1 ) ); },
           [&] { phy->intfStatusIs( eth( 1 ) ); } },
         { "aggregate", [&] { acsd->lagToPortDel( po( 1 ) ); },
           [&] { acsd->lagToPortIs( po( 1 ), {} ); } },
   };
   for ( auto & piece : pieces ) {
      EXPECT_EQ( hardware( 1 ), first ) << piece.what;
      piece.takes();
      EXPECT_EQ( hardware( 1 ), none ) << piece.what;
      EXPECT_EQ( map->checkInvariants(), "" );
      piece.gives();
   }
   EXPECT_EQ( hardware( 1 ), first );
   aggregated->lagToPortIs( intf( "Recirc-Channel1" ) )
         ->memberIs( eth( 1 ), Interface::LagMode::on ); // without an index
   acsd->lagToPortIs( intf( "Recirc-Channel1" ), {} );
   EXPECT_FALSE( config->lagHas( intf( "Recirc-Channel1" ) ) );
}

TEST_F( ConfigMapFlow, AListThatWentIsHeardNoMoreNotEvenOnItsWay ) {
   complete( 2 );
   Kiv::Listener< Hardware::Lag::LagConfig::memberAttr > meddler(
         config->lag( po( 1 ) ), [&]( const IntfId & ) {
            listed->memberIs( eth( 2 ), Interface::LagMode::on ); // of the one that goes
         } );
   aggregated->lagToPortDel( po( 1 ) );
   EXPECT_EQ( hardware( 1 ), none );
   EXPECT_EQ( map->checkInvariants(), "" );
   complete( 2 );
   states->memberStatusIs( eth( 2 ), { true, false } );
   EXPECT_EQ( hardware( 1 ), none );
}

TEST_F( ConfigMapFlow, ARestEndsWithWhatHappenedMeanwhile ) {
   complete( 2 );
   map->initializedIs( false );
   listed->memberIs( eth( 2 ), Interface::LagMode::on );
   listed->memberDel( eth( 1 ) );
   EXPECT_EQ( hardware( 1 ), first );
   map->initializedIs( true );
   EXPECT_EQ( hardware( 1 ), Ports{ eth( 2 ) } );
}

TEST_F( ConfigMapFlow, WhatDiffersFromTheConfigurationIsFound ) {
   EXPECT_EQ( map->checkInvariants(), "" );
   const auto member = config->lag( po( 1 ) )->member( eth( 1 ) );
   for ( bool collecting : { true, false } ) {
      const Hardware::Lag::Member other( member.port(), collecting, false, false );
      config->lag( po( 1 ) )->memberIs( eth( 1 ), other );
      EXPECT_NE( map->checkInvariants(), "" );
   }
   config->lag( po( 1 ) )->memberIs( eth( 1 ), member );
   EXPECT_EQ( map->checkInvariants(), "" );
   config->lagDel( po( 1 ) );
   EXPECT_NE( map->checkInvariants(), "" );
}

/** What an earlier incarnation left and is still wanted is not touched by the start; the rest goes. */
TEST_F( ConfigMapFlow, AStartOverGroupsThatAreThere ) {
   complete( 2 );
   complete( 3 );
   acsd->lagToPortIs( po( 2 ), {} );
   listed->memberIs( eth( 2 ), Interface::LagMode::on );
   aggregated->lagToPortIs( po( 2 ) )->memberIs( eth( 3 ), Interface::LagMode::on );
   EXPECT_EQ( hardware( 1 ), both );
   map = nullptr;
   listed->memberDel( eth( 2 ) ); // has moved meanwhile
   aggregated->lagToPort( po( 2 ) )->memberIs( eth( 2 ), Interface::LagMode::on );
   config->lagIs( po( 7 ), 7 )->memberIs( eth( 9 ), Hardware::Lag::Member() );
   std::vector< IntfId > touched;
   Kiv::Listener< Hardware::Lag::LagConfig::memberAttr > former, now;
   auto touch = [&]( const IntfId & port ) { touched.push_back( port ); };
   former.attach( config->lag( po( 1 ) ), touch );
   now.attach( config->lag( po( 2 ) ), touch );
   map = Qon::LagConfigMapCreatorSmIs( { acsd, aggregated, states, phy, fapIdPorts }, config );
   map->initializedIs( true );
   EXPECT_EQ( touched, ( std::vector< IntfId >{ eth( 2 ), eth( 2 ) } ) ); // out, then in
   EXPECT_EQ( hardware( 1 ), first );
   EXPECT_EQ( hardware( 2 ), ( Ports{ eth( 2 ), eth( 3 ) } ) );
   EXPECT_FALSE( config->lagHas( po( 7 ) ) );
   EXPECT_EQ( map->checkInvariants(), "" );
}

class ConfigAggregatorFlow : public ::testing::Test, public Tests::World {
 protected:
   ConfigAggregatorFlow() { scheduler.budgetIs( { 1.0, ~U32( 0 ), 16 } ); }
   void create() {
      aggregator = Qon::LagConfigAggregatorSmIs( input, output, &scheduler );
      aggregator->initializedIs( true );
   }
   void configure( U32 port, U32 lag ) {
      input->intfConfigIs( eth( port ) )->lagIs( lag ? po( lag ) : IntfId() );
   }
   Ports members( U32 lag ) const {
      Ports ports;
      if ( auto entry = output->lagToPort( po( lag ) ) ) {
         for ( auto && [port, mode] : entry->memberIteratorConst() ) {
            ports.insert( port );
         }
      }
      return ports;
   }
   Ptr< Interface::EthLagIntfConfigDir > input =
         Velto::make< Interface::EthLagIntfConfigDir >( "input" );
   Ptr< Hardware::Lag::AggregatedLagConfigDir > output =
         Velto::make< Hardware::Lag::AggregatedLagConfigDir >( "output" );
   Ptr< Qon::LagConfigAggregatorSm > aggregator;
};

TEST_F( ConfigAggregatorFlow, ScansInSlicesReplaysEventsThenDeletesWhatIsStale ) {
   const U32 batch = Qon::LagConfigAggregatorSm::batch;
   output->lagToPortIs( po( 9 ) )->memberIs( eth( 1 ), Interface::LagMode::on );   // moved since
   output->lagToPortIs( po( 8 ) )->memberIs( eth( 999 ), Interface::LagMode::on ); // gone since
   output->lagToPortIs( po( 7 ) );                                                 // empty
   for ( U32 port = 1; port <= 3 * batch; ++port ) {
      configure( port, 1 + port % 2 );
   }
   create();
   EXPECT_EQ( members( 1 ).size() + members( 2 ).size(), 0u ); // not before the task runs
   scheduler.turn();
   EXPECT_EQ( members( 1 ).size() + members( 2 ).size(), batch );
   configure( 1, 3 ); // scanned already: a move
   input->intfConfigDel( eth( 2 ) );
   configure( 3 * batch, 4 );        // not scanned yet
   configure( 3 * batch + 1, 5 );    // new
   input->intfConfigDel( eth( 3 ) ); // deleted and created in one burst
   configure( 3, 6 );
   EXPECT_EQ( members( 2 ).count( eth( 1 ) ), 1u ); // events wait for the scan
   scheduler.turn();
   scheduler.turn();
   EXPECT_EQ( members( 9 ), Ports{ eth( 1 ) } ); // nothing stale is deleted before its end
   EXPECT_FALSE( aggregator->scanDone() );
   scheduler.settle();
   EXPECT_TRUE( aggregator->scanDone() );
   EXPECT_EQ( members( 3 ), Ports{ eth( 1 ) } );
   EXPECT_EQ( members( 4 ), Ports{ eth( 3 * batch ) } );
   EXPECT_EQ( members( 5 ), Ports{ eth( 3 * batch + 1 ) } );
   EXPECT_EQ( members( 6 ), Ports{ eth( 3 ) } );
   EXPECT_EQ( members( 1 ).size() + members( 2 ).size(), 3 * batch - 4 );
   for ( U32 stale : { 7, 8, 9 } ) {
      EXPECT_FALSE( output->lagToPortHas( po( stale ) ) );
   }
   EXPECT_EQ( aggregator->checkInvariants(), "" );
}

TEST_F( ConfigAggregatorFlow, AfterTheScanEventsHaveTheirEffectAtOnce ) {
   create();
   scheduler.settle();
   configure( 1, 1 );
   configure( 2, 1 );
   input->intfConfig( eth( 2 ) )->modeIs( Interface::LagMode::passive );
   EXPECT_EQ( output->lagToPort( po( 1 ) )->member( eth( 2 ) ), Interface::LagMode::passive );
   configure( 1, 2 );
   EXPECT_EQ( members( 1 ), Ports{ eth( 2 ) } );
   EXPECT_EQ( members( 2 ), Ports{ eth( 1 ) } );
   configure( 1, 0 );
   input->intfConfigDel( eth( 2 ) );
   EXPECT_EQ( output->lagToPorts(), 0u ); // an entry goes with its last member
}

TEST_F( ConfigAggregatorFlow, AnEntryThatComesAnewWhileItsLastMemberGoesStays ) {
   create();
   scheduler.settle();
   configure( 1, 1 );
   bool once = false;
   Kiv::Listener< Hardware::Lag::AggregatedLagConfig::memberAttr > meddler(
         output->lagToPort( po( 1 ) ), [&]( const IntfId & ) {
            if ( !std::exchange( once, true ) ) {
               configure( 2, 1 );
               configure( 2, 0 ); // the entry goes
               configure( 3, 1 );
            }
         } );
   configure( 1, 0 );
   EXPECT_EQ( members( 1 ), Ports{ eth( 3 ) } );
   EXPECT_EQ( aggregator->checkInvariants(), "" );
}

/** What is replayed, and what is said again, stays where it is. */
TEST_F( ConfigAggregatorFlow, WhatStaysInItsGroupIsNotTakenOut ) {
   configure( 1, 1 );
   configure( 2, 1 );
   create();
   scheduler.turn();
   std::vector< IntfId > touched;
   Kiv::Listener< Hardware::Lag::AggregatedLagConfig::memberAttr > members;
   members.attach( output->lagToPort( po( 1 ) ),
                   [&]( const IntfId & port ) { touched.push_back( port ); } );
   input->intfConfig( eth( 1 ) )->modeIs( Interface::LagMode::passive );
   scheduler.settle();
   input->intfConfig( eth( 2 ) )->modeIs( Interface::LagMode::active );
   EXPECT_EQ( touched, ( std::vector< IntfId >{ eth( 1 ), eth( 2 ) } ) );
}

TEST_F( ConfigAggregatorFlow, ARestInTheMiddleOfTheScanBeginsAnew ) {
   const U32 batch = Qon::LagConfigAggregatorSm::batch;
   for ( U32 port = 1; port <= 2 * batch; ++port ) {
      configure( port, 1 );
   }
   create();
   scheduler.turn();
   aggregator->initializedIs( false );
   scheduler.settle();
   EXPECT_EQ( members( 1 ).size(), batch );
   configure( 1, 2 );
   output->lagToPortIs( po( 9 ) )->memberIs( eth( 1 ), Interface::LagMode::on );
   aggregator->initializedIs( true );
   scheduler.settle();
   EXPECT_EQ( members( 1 ).size(), 2 * batch - 1 );
   EXPECT_EQ( members( 2 ), Ports{ eth( 1 ) } );
   EXPECT_FALSE( output->lagToPortHas( po( 9 ) ) );

   aggregator->initializedIs( false ); // and after it
   output->lagToPortIs( po( 9 ) )->memberIs( eth( 1 ), Interface::LagMode::on );
   configure( 2, 2 );
   scheduler.settle();
   EXPECT_EQ( members( 2 ), Ports{ eth( 1 ) } );
   aggregator->initializedIs( true );
   scheduler.settle();
   EXPECT_EQ( members( 2 ), ( Ports{ eth( 1 ), eth( 2 ) } ) );
   EXPECT_FALSE( output->lagToPortHas( po( 9 ) ) );
   EXPECT_EQ( aggregator->checkInvariants(), "" );
}

TEST_F( ConfigAggregatorFlow, WhatChangesWhileStaleEntriesGoIsReplayed ) {
   output->lagToPortIs( po( 9 ) );
   configure( 1, 1 );
   Kiv::Listener< Hardware::Lag::AggregatedLagConfigDir::lagToPortAttr > gone;
   gone.attach( output.ptr(), [&]( const IntfId & lag ) {
      if ( lag == po( 9 ) ) {
         configure( 1, 2 );
      }
   } );
   create();
   scheduler.settle();
   EXPECT_TRUE( aggregator->scanDone() );
   EXPECT_EQ( members( 2 ), Ports{ eth( 1 ) } );
   EXPECT_EQ( aggregator->checkInvariants(), "" );
}

class StateAggregatorFlow : public ::testing::Test {
 protected:
   void create() {
      aggregator = Qon::LagStateAggregatorSmIs( { slices[0], slices[1] }, merged );
      aggregator->initializedIs( true );
   }
   Tests::World world;
   Ptr< Hardware::Lag::Status > slices[2] = { Velto::make< Hardware::Lag::Status >( "0" ),
                                              Velto::make< Hardware::Lag::Status >( "1" ) };
   Ptr< Hardware::Lag::Status > merged = Velto::make< Hardware::Lag::Status >( "merged" );
   Ptr< Qon::LagStateAggregatorSm > aggregator;
};

TEST_F( StateAggregatorFlow, MergesWhatTheSlicesHold ) {
   merged->lagIs( po( 9 ) )->memberIs( eth( 9 ), MemberStatus() ); // stale
   merged->lagIs( po( 1 ) )->memberIs( eth( 9 ), MemberStatus() );
   auto first = slices[0]->lagIs( po( 1 ) );
   first->indexIs( 1 );
   first->resultIs( Result::success );
   first->memberIs( eth( 1 ), MemberStatus( Result::success, true, true, false ) );
   create();
   EXPECT_FALSE( merged->lagHas( po( 9 ) ) );
   EXPECT_EQ( merged->lag( po( 1 ) )->members(), 1u );
   EXPECT_EQ( merged->lag( po( 1 ) )->index(), 1u );

   auto second = slices[1]->lagIs( po( 1 ) );
   second->indexIs( 1 );
   EXPECT_EQ( merged->lag( po( 1 ) )->result(), Result::pending ); // of the second slice
   second->resultIs( Result::success );
   second->memberIs( eth( 1 ), MemberStatus( Result::noMember, true, false, false ) );
   EXPECT_EQ( merged->lag( po( 1 ) )->member( eth( 1 ) ),
              MemberStatus( Result::noMember, true, false, false ) );
   EXPECT_EQ( merged->lag( po( 1 ) )->result(), Result::success );
   for ( auto * one : { first.ptr(), second.ptr() } ) {
      const MemberStatus both( Result::success, true, true, false );
      first->memberIs( eth( 4 ), both );
      second->memberIs( eth( 4 ), both );
      one->memberIs( eth( 4 ), MemberStatus( Result::success, false, true, true ) );
      EXPECT_EQ( merged->lag( po( 1 ) )->member( eth( 4 ) ),
                 MemberStatus( Result::success, false, true, true ) );
   }
   first->memberDel( eth( 4 ) );
   second->memberDel( eth( 4 ) );
   first->resultIs( Result::noMember ); // of two failures, the first
   second->resultIs( Result::noLag );
   EXPECT_EQ( merged->lag( po( 1 ) )->result(), Result::noMember );
   second->memberIs( eth( 2 ), MemberStatus( Result::success, true, true, false ) );
   first->memberDel( eth( 1 ) );
   second->memberDel( eth( 1 ) );
   EXPECT_EQ( merged->lag( po( 1 ) )->members(), 1u );
   slices[1]->lagDel( po( 1 ) );
   second->memberIs( eth( 3 ), MemberStatus() ); // no slice's any more
   EXPECT_EQ( merged->lag( po( 1 ) )->members(), 0u );
   slices[0]->lagDel( po( 1 ) );
   EXPECT_EQ( merged->lags(), 0u );
}

TEST_F( StateAggregatorFlow, ASliceThatDeletesAndCreatesIsFollowed ) {
   create();
   slices[0]->lagIs( po( 1 ) )->memberIs( eth( 1 ), MemberStatus() );
   slices[0]->lagDel( po( 1 ) );
   slices[0]->lagIs( po( 1 ) )->memberIs( eth( 2 ), MemberStatus() );
   EXPECT_FALSE( merged->lag( po( 1 ) )->memberHas( eth( 1 ) ) );
   EXPECT_TRUE( merged->lag( po( 1 ) )->memberHas( eth( 2 ) ) );
   merged->lagDel( po( 1 ) ); // by somebody else: what comes finds nothing to write to
   slices[0]->lag( po( 1 ) )->memberIs( eth( 3 ), MemberStatus() );
   slices[0]->lag( po( 1 ) )->resultIs( Result::success );
   EXPECT_EQ( merged->lag( po( 1 ) )->result(), Result::success );
}

TEST_F( StateAggregatorFlow, AtRestNothingIsHeardAndThenAllOfIt ) {
   create();
   auto first = slices[0]->lagIs( po( 1 ) );
   slices[1]->lagIs( po( 2 ) );
   aggregator->initializedIs( false );
   first->memberIs( eth( 1 ), MemberStatus() );
   first->indexIs( 3 );
   slices[1]->lagDel( po( 2 ) );
   slices[1]->lagIs( po( 3 ) );
   EXPECT_EQ( merged->lag( po( 1 ) )->members(), 0u );
   EXPECT_EQ( merged->lag( po( 1 ) )->index(), 0u );
   EXPECT_TRUE( merged->lagHas( po( 2 ) ) );
   EXPECT_FALSE( merged->lagHas( po( 3 ) ) );
   aggregator->initializedIs( true );
   EXPECT_EQ( merged->lag( po( 1 ) )->members(), 1u );
   EXPECT_EQ( merged->lag( po( 1 ) )->index(), 3u );
   EXPECT_FALSE( merged->lagHas( po( 2 ) ) );
   EXPECT_TRUE( merged->lagHas( po( 3 ) ) );
}

/** Whoever raises when it hears of an aggregate costs nothing of what is told of it. */
TEST_F( StateAggregatorFlow, WhatRaisesIsWrittenAllTheSame ) {
   auto first = slices[0]->lagIs( po( 1 ) );
   first->indexIs( 4 );
   first->resultIs( Result::success );
   first->memberIs( eth( 1 ), MemberStatus() );
   slices[0]->lagIs( po( 2 ) )->indexIs( 5 );
   U32 raised = 0;
   Kiv::Listener< Hardware::Lag::Status::lagAttr > lags;
   lags.attach( merged.ptr(), [&]( const IntfId & ) {
      ++raised;
      throw Velto::RangeError( "lag" );
   } );
   EXPECT_THROW( create(), Velto::RangeError );
   EXPECT_EQ( raised, 2u );
   ASSERT_TRUE( merged->lagHas( po( 1 ) ) && merged->lagHas( po( 2 ) ) );
   EXPECT_EQ( merged->lag( po( 1 ) )->index(), 4u );
   EXPECT_EQ( merged->lag( po( 1 ) )->result(), Result::success );
   EXPECT_EQ( merged->lag( po( 1 ) )->members(), 1u );
   EXPECT_EQ( merged->lag( po( 2 ) )->index(), 5u );
   EXPECT_THROW( slices[0]->lagDel( po( 1 ) ), Velto::RangeError );
   EXPECT_FALSE( merged->lagHas( po( 1 ) ) );
}

} // namespace
