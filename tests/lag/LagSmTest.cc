// Membership of aggregates, from the published status to the maps and the hardware groups.

#include "platform/Flintlog/TraceRecorder.h"
#include "platform/Kiv/Listener.h"
#include "tests/lag/LagWorld.h"

namespace {

using namespace LagTests;

class LagSmFlow : public ::testing::Test, public LagWorld {
 protected:
   ~LagSmFlow() override { Kiv::agentRestartingIs( false ); }
};

TEST_F( LagSmFlow, MembersReachMapsNamesAndHardware ) {
   hardwarePorts( 1, 4 );
   join( 1, 1 );
   lag( 1 )->deviceNameIs( "po1" );
   start();
   EXPECT_EQ( members( 1 ), Ports{ eth( 1 ) } );
   EXPECT_EQ( deviceNames->intfDeviceName( po( 1 ) ), "po1" );
   join( 1, 2, true, false );
   join( 2, 3 );
   lag( 3 );
   lag( 1 )->deviceNameIs( "bond1" );
   EXPECT_EQ( hardware( 1 ), ( Ports{ eth( 1 ), eth( 2 ) } ) );
   EXPECT_EQ( acsd->lagToPort( po( 1 ) ).port( eth( 2 ) ), Qon::QonLagPort( true, false ) );
   EXPECT_EQ( config->lag( po( 1 ) )->member( eth( 2 ) ),
              Hardware::Lag::Member( Qon::FapIdPort( 0, 2 ), true, false, false ) );
   EXPECT_EQ( config->lag( po( 2 ) )->index(), 2u );
   EXPECT_TRUE( acsd->lagToPortHas( po( 3 ) ) ); // an empty one has its entry, but no hardware
   EXPECT_FALSE( config->lagHas( po( 3 ) ) );
   EXPECT_EQ( deviceNames->intfDeviceName( po( 1 ) ), "bond1" );
   leave( 2, 3 );
   EXPECT_FALSE( acsd->inLag( eth( 3 ) ) );
   EXPECT_FALSE( config->lagHas( po( 2 ) ) );
   checkAll();
}

TEST_F( LagSmFlow, AMemberThatTwoClaimIsTheLastOnesAndIsTakenBack ) {
   hardwarePorts( 1, 2 );
   start();
   join( 1, 1 );
   join( 2, 1 );
   EXPECT_EQ( members( 1 ), Ports{} );
   EXPECT_EQ( hardware( 2 ), Ports{ eth( 1 ) } );
   join( 1, 1, false, false ); // the loser changes its flags: no claim
   EXPECT_EQ( acsd->portToLag( eth( 1 ) ), po( 2 ) );
   leave( 1, 1 );
   EXPECT_EQ( acsd->portToLag( eth( 1 ) ), po( 2 ) );
   join( 1, 1, false, true );
   leave( 1, 1 );
   join( 3, 1 );
   dir->intfStatusDel( po( 3 ) );
   EXPECT_EQ( acsd->portToLag( eth( 1 ) ), po( 2 ) );
   EXPECT_EQ( hardware( 2 ), Ports{ eth( 1 ) } );
   checkAll();
}

TEST_F( LagSmFlow, DeletionTakesEverythingAndRecreationStartsClean ) {
   hardwarePorts( 1, 3 );
   start();
   join( 1, 1 );
   join( 1, 2 );
   lag( 1 )->deviceNameIs( "po1" );
   lag( 1 )->lacpFallbackEnabledIs( 2 );
   auto former = lag( 1 );
   dir->intfStatusDel( po( 1 ) );
   EXPECT_FALSE( acsd->lagToPortHas( po( 1 ) ) );
   EXPECT_EQ( acsd->portToLags(), 0u );
   EXPECT_EQ( acsd->lagInLacpFallbackIndividualModes(), 0u );
   EXPECT_EQ( deviceNames->intfDeviceNames(), 0u );
   EXPECT_EQ( config->lags(), 0u );
   join( 1, 3 );
   former->intfIs( eth( 1 ), Interface::LagMember() ); // the dead one is heard no more
   former->lacpFallbackEnabledIs( 3 );
   EXPECT_EQ( members( 1 ), Ports{ eth( 3 ) } );
   checkAll();
}

TEST_F( LagSmFlow, RestartLeavesEverythingAndTheNextIncarnationTidiesUp ) {
   hardwarePorts( 1, 4 );
   start();
   join( 1, 1 );
   join( 2, 2 );
   join( 2, 3 );
   lag( 2 )->lacpFallbackEnabledIs( 2 );
   Kiv::agentRestartingIs( true );
   dir->intfStatusDel( po( 2 ) );
   acsd->intfIs( eth( 9 ), true ); // everything is looked at again
   acsd->intfIs( po( 2 ), true );
   acsd->intfDel( eth( 9 ) );
   acsd->intfDel( po( 2 ) );
   EXPECT_EQ( members( 2 ), ( Ports{ eth( 2 ), eth( 3 ) } ) );
   EXPECT_EQ( hardware( 2 ), ( Ports{ eth( 2 ), eth( 3 ) } ) );
   EXPECT_TRUE( deviceNames->intfDeviceNameHas( po( 2 ) ) );
   EXPECT_TRUE( acsd->lagInLacpFallbackIndividualMode( po( 2 ) ) );
   stop();
   Kiv::agentRestartingIs( false );
   leave( 1, 1 );
   join( 1, 3 );
   U32 before = guard->hardwareChanges;
   std::vector< IntfId > renamed;
   Kiv::Listener< Lag::Input::IntfDeviceNameDir::intfDeviceNameAttr > names;
   names.attach( deviceNames.ptr(), [&]( const IntfId & lag ) { renamed.push_back( lag ); } );
   start();
   EXPECT_EQ( renamed, std::vector< IntfId >{ po( 2 ) } ); // that of the other one stays
   EXPECT_EQ( members( 1 ), Ports{ eth( 3 ) } );
   EXPECT_FALSE( acsd->lagToPortHas( po( 2 ) ) );
   EXPECT_EQ( acsd->portToLags(), 1u );
   EXPECT_EQ( deviceNames->intfDeviceNames(), 1u );
   EXPECT_EQ( acsd->lagInLacpFallbackIndividualModes(), 0u );
   EXPECT_EQ( hardware( 1 ), Ports{ eth( 3 ) } );
   EXPECT_FALSE( config->lagHas( po( 2 ) ) );
   EXPECT_GT( guard->hardwareChanges, before );
   checkAll();
}

/** What another incarnation left half done: a port in two lists, one that no list has, one that has
    only a list. */
TEST_F( LagSmFlow, MapsThatContradictEachOtherAreMended ) {
   guard.reset();
   for ( auto [n, ports] : { std::pair( 1u, Ports{ eth( 1 ), eth( 2 ) } ),
                             std::pair( 2u, Ports{ eth( 2 ), eth( 3 ) } ) } ) {
      Qon::QonLagPortList list;
      for ( IntfId port : ports ) {
         list.portIs( port, Qon::QonLagPort( true, true ) );
      }
      acsd->lagToPortIs( po( n ), list );
   }
   acsd->portToLagIs( eth( 1 ), po( 1 ) );
   acsd->portToLagIs( eth( 2 ), po( 2 ) );
   acsd->portToLagIs( eth( 5 ), po( 1 ) );
   lag( 2 );
   join( 1, 1 );
   start();
   EXPECT_EQ( members( 1 ), Ports{ eth( 1 ) } );
   EXPECT_EQ( members( 2 ), Ports() );
   EXPECT_EQ( acsd->portToLags(), 1u );
   checkAll();
}

/** An agent with nothing but the listings: neither a port that two aggregates list nor one that the
    peer link would lend to its owner leaves its hardware group for a moment. */
TEST_F( LagSmFlow, AStartWithEmptyMapsTouchesNoGroup ) {
   hardwarePorts( 1, 3 );
   start();
   lag( 1 );
   lag( 2 );
   join( 1, 1 );
   join( 2, 1 );
   join( 2, 2 );
   join( 1, 3 );
   mlagUp( eth( 2 ) );
   lagSm->sharePeerLinkWithLagIs( po( 1 ), true );
   lagSm->sharePeerLinkWithLagIs( po( 2 ), true );
   stop();
   guard.reset(); // of the maps while they go
   acsd->portToLagDelAll();
   acsd->lagToPortDelAll();
   guard.emplace( acsd.ptr(), config.ptr() );
   prog = Qon::LagProgSmIs( config, status, fapIdPorts );
   lagSm = Qon::LagSmIs( acsd, dir, deviceNames, mlag, acsd->verifyData(), prog );
   lagSm->sharePeerLinkWithLagIs( po( 2 ), true ); // known before the start
   lagSm->sharePeerLinkWithLagIs( po( 1 ), true );
   lagSm->initializedIs( true );
   prog->inputsReadIs( true );
   EXPECT_EQ( guard->hardwareChanges, 0u );
   EXPECT_EQ( hardware( 2 ), ( Ports{ eth( 1 ), eth( 2 ) } ) );
   EXPECT_EQ( hardware( 1, true ), Ports{ eth( 2 ) } );
   checkAll();
}

TEST_F( LagSmFlow, OnlyManagedPortsTakePart ) {
   hardwarePorts( 1, 3 );
   start();
   join( 1, 1 );
   join( 1, 2 );
   acsd->intfIs( eth( 1 ), true ); // the first entry: all others are nobody's
   EXPECT_EQ( members( 1 ), Ports{ eth( 1 ) } );
   acsd->intfIs( eth( 2 ), true );
   EXPECT_EQ( hardware( 1 ), ( Ports{ eth( 1 ), eth( 2 ) } ) );
   acsd->intfDel( eth( 1 ) );
   EXPECT_EQ( members( 1 ), Ports{ eth( 2 ) } );
   acsd->intfDel( eth( 2 ) );
   EXPECT_EQ( members( 1 ), ( Ports{ eth( 1 ), eth( 2 ) } ) );
   checkAll();
}

TEST_F( LagSmFlow, NamesThatStillHoldAreNotTouchedByAStart ) {
   lag( 1 )->deviceNameIs( "po1" );
   lag( 2 )->deviceNameIs( "po2" );
   deviceNames->intfDeviceNameIs( po( 1 ), "po1" );
   deviceNames->intfDeviceNameIs( po( 2 ), "former" );
   deviceNames->intfDeviceNameIs( po( 3 ), "po3" );
   std::vector< IntfId > heard;
   Kiv::Listener< Lag::Input::IntfDeviceNameDir::intfDeviceNameAttr > names(
         deviceNames.ptr(), [&]( const IntfId & name ) { heard.push_back( name ); } );
   start();
   EXPECT_EQ( heard, ( std::vector< IntfId >{ po( 3 ), po( 2 ) } ) );
   EXPECT_EQ( deviceNames->intfDeviceName( po( 2 ) ), "po2" );
   EXPECT_FALSE( deviceNames->intfDeviceNameHas( po( 3 ) ) );
}

TEST_F( LagSmFlow, OnlyWhoJoinsIsTracedAsAdded ) {
   hardwarePorts( 1, 1 );
   start();
   Flintlog::TraceRecorder recorder;
   auto added = [&] {
      U32 n = 0;
      for ( auto & record : recorder.records() ) {
         n += record.text == "Port-Channel1 adding Ethernet1";
      }
      return n;
   };
   join( 1, 1 );
   EXPECT_EQ( added(), 1u );
   join( 1, 1, true, false );
   EXPECT_EQ( added(), 1u );
   leave( 1, 1 );
   join( 1, 1 );
   EXPECT_EQ( added(), 2u );
}

/** A switch whose agents verify. */
class VerifiedLags : public ::testing::Test {
 protected:
   VerifiedLags() {
      env.unset( "USE_BCMSIM" );
      env.unset( "SIMULATION_VMID" );
      env.set( "ENABLE_VERIFY", "1" );
      w = std::make_unique< LagWorld >();
      w->start();
      w->scheduler.settle();
   }
   /** How often a run was asked for since the last time. */
   U32 asked() {
      const U32 now = w->acsd->verifyData()->verifyRequired()->verifyRequired();
      return now - std::exchange( asked_, now );
   }
   Tests::Env env;
   std::unique_ptr< LagWorld > w;

 private:
   U32 asked_ = 0;
};

TEST_F( VerifiedLags, EveryChangeOfTheMapsAsksForARun ) {
   asked();
   w->lag( 1 );
   EXPECT_EQ( asked(), 1u ); // an entry without members
   w->lag( 1 )->lacpFallbackEnabledIs( 2 );
   EXPECT_EQ( asked(), 0u );
   w->dir->intfStatusDel( po( 1 ) );
   EXPECT_EQ( asked(), 1u );
   w->join( 1, 1 );
   EXPECT_GE( asked(), 1u );
   w->join( 1, 1, true, false );
   EXPECT_EQ( asked(), 1u );
   w->join( 1, 1, true, false );
   EXPECT_EQ( asked(), 0u );
   w->leave( 1, 1 );
   EXPECT_EQ( asked(), 1u );
}

TEST_F( VerifiedLags, WhatIsStillWrongTheSecondTimeCounts ) {
   auto data = w->acsd->verifyData();
   w->guard.reset();
   w->acsd->portToLagIs( eth( 7 ), po( 7 ) );
   data->doRequestVerify();
   w->scheduler.settle();
   EXPECT_TRUE( data->retryVerify() );
   w->scheduler.runFor( 3 );
   EXPECT_GE( data->verifyInc(), 1u );
   w->acsd->portToLagDel( eth( 7 ) );
   data->doRequestVerify();
   w->scheduler.runFor( 3 );
   EXPECT_EQ( data->verifyInc(), 0u );
}

/** What is wanted of the hardware before the programming starts and while it rests. */
TEST( HardwareGroupsAtRest, AreLeftAlone ) {
   LagWorld w;
   w.hardwarePorts( 1, 2 );
   const Qon::QonLagPort both( true, true );
   auto prog = Qon::LagProgSmIs( w.config, w.status, w.fapIdPorts );
   prog->memberIs( po( 1 ), eth( 1 ), both, false );
   EXPECT_EQ( w.config->lags(), 0u );
   prog->initializedIs( true );
   EXPECT_EQ( w.hardware( 1 ), Ports{ eth( 1 ) } );
   prog->initializedIs( false );
   prog->memberIs( po( 1 ), eth( 2 ), both, false );
   prog->memberDel( po( 1 ), eth( 1 ) );
   EXPECT_EQ( w.hardware( 1 ), Ports{ eth( 1 ) } );
   prog->inputsReadIs( true );
   prog->removeStale();
   EXPECT_EQ( w.hardware( 1 ), Ports{ eth( 1 ) } );
   prog->initializedIs( true );
   EXPECT_EQ( w.hardware( 1 ), Ports{ eth( 2 ) } );
}

TEST_F( LagSmFlow, HardwarePortsMayComeAndGoAtAnyTime ) {
   start();
   join( 1, 1 );
   join( 1, 2 );
   EXPECT_EQ( config->lags(), 0u );
   hardwarePorts( 1, 2 );
   EXPECT_EQ( hardware( 1 ), ( Ports{ eth( 1 ), eth( 2 ) } ) );
   fapIdPorts->fapIdPortIs( eth( 1 ), Qon::FapIdPort( 5, 6 ) );
   EXPECT_EQ( config->lag( po( 1 ) )->member( eth( 1 ) ).port(), Qon::FapIdPort( 5, 6 ) );
   fapIdPorts->fapIdPortDelAll();
   EXPECT_EQ( config->lags(), 0u );
   checkAll();
}

TEST_F( LagSmFlow, AggregatesWithoutAnIndexHaveNoHardwareGroup ) {
   hardwarePorts( 1, 2 );
   start();
   for ( auto name : { "Recirc-Channel1", "Port-Channel1/2" } ) {
      dir->intfStatusIs( intf( name ) )->intfIs( eth( 1 ), Interface::LagMember() );
      EXPECT_EQ( acsd->portToLag( eth( 1 ) ), intf( name ) );
   }
   EXPECT_EQ( config->lags(), 0u );
   checkAll();
}

TEST_F( LagSmFlow, ChangesMadeWhileAChangeIsPublishedAreTakenUp ) {
   hardwarePorts( 1, 3 );
   start();
   std::function< void() > meddle;
   Kiv::Listener< Qon::QonCommonSmData::portToLagAttr > meddler( acsd.ptr(), [&]( auto & ) {
      if ( auto once = std::exchange( meddle, nullptr ) ) {
         once();
      }
   } );
   meddle = [&] { leave( 1, 1 ); };
   join( 1, 1 );
   EXPECT_EQ( members( 1 ), Ports{} );
   checkAll();
   meddle = [&] { join( 2, 1 ); };
   join( 1, 1 );
   EXPECT_EQ( members( 2 ), Ports{ eth( 1 ) } );
   checkAll();
   meddle = [&] {
      dir->intfStatusDel( po( 2 ) ); // the whole aggregate, and back with another member
      join( 2, 3 );
   };
   join( 2, 2 );
   EXPECT_EQ( members( 2 ), Ports{ eth( 3 ) } );
   EXPECT_EQ( members( 1 ), Ports{ eth( 1 ) } );
   checkAll();
}

/** Names, multi-chassis state, verification and hardware groups are for those who have them. */
TEST_F( LagSmFlow, TheMapsAloneWillDo ) {
   lagSm = Qon::LagSmIs( acsd, dir, nullptr, nullptr, nullptr, nullptr );
   join( 1, 1 );
   lagSm->initializedIs( true );
   join( 1, 2 );
   join( 2, 1 );
   lag( 1 )->deviceNameIs( "po1" );
   lagSm->sharePeerLinkWithLagIs( po( 1 ), true );
   leave( 2, 1 );
   EXPECT_EQ( members( 1 ), ( Ports{ eth( 1 ), eth( 2 ) } ) );
   EXPECT_EQ( members( 2 ), Ports() );
   lagSm->initializedIs( false );
   lagSm->initializedIs( true );
   dir->intfStatusDel( po( 1 ) );
   EXPECT_EQ( acsd->portToLags(), 0u );
   checkAll();
   lagSm = Qon::LagSmIs( acsd, dir, nullptr, mlag, nullptr, nullptr );
   lagSm->initializedIs( true );
   lagSm->sharePeerLinkWithLagIs( po( 2 ), true );
   mlagUp( eth( 9 ) );
   join( 2, 1 );
   mlag->mlagStateIs( Mlag::MlagState::disabled );
   EXPECT_EQ( members( 2 ), Ports{ eth( 1 ) } );
   checkAll();
}

TEST_F( LagSmFlow, FallbackTypes ) {
   struct {
      U8 type;
      bool individual;
   } const table[] = { { 0, false }, { 2, true }, { 1, false }, { 2, true }, { 0, false } };
   lag( 1 )->lacpFallbackEnabledIs( 2 );
   start();
   EXPECT_TRUE( acsd->lagInLacpFallbackIndividualMode( po( 1 ) ) );
   for ( auto & row : table ) {
      lag( 1 )->lacpFallbackEnabledIs( row.type );
      EXPECT_EQ( acsd->lagInLacpFallbackIndividualModeHas( po( 1 ) ), row.individual )
            << int( row.type );
   }
}

} // namespace
