// Whose configuration is programmed on a port, in both generations.

#include "tests/stormcontrol/StormWorld.h"

namespace {

using namespace StormTests;

template< class World >
class Effective : public testing::Test, public World {
 protected:
   void TearDown() override {
      if ( this->sm ) {
         EXPECT_EQ( this->sm->checkInvariants(), "" );
      }
   }
};
using Generations = testing::Types< FirstWorld, SecondWorld >;
TYPED_TEST_SUITE( Effective, Generations );

TYPED_TEST( Effective, AMemberHasThePortChannelsLevelAndItsOwnWhenItLeaves ) {
   this->phy( 1 );
   this->broadcast( eth( 1 ), 100 );
   this->broadcast( po( 1 ), 500 );
   this->start();
   EXPECT_EQ( this->told( 1 ), "100 kbps at 10000000" );
   this->member( 1, 1 );
   EXPECT_EQ( this->told( 1 ), "500 kbps at 10000000 of Port-Channel1" );
   this->notes().take();
   this->broadcast( eth( 1 ), 200 ); // its own is ignored
   EXPECT_EQ( this->notes().calls, Calls{} );
   this->broadcast( po( 1 ), 600 );
   EXPECT_EQ( this->told( 1 ), "600 kbps at 10000000 of Port-Channel1" );
   this->member( 1, 0 );
   EXPECT_EQ( this->told( 1 ), "200 kbps at 10000000" );
   for ( auto & call : this->notes().calls ) {
      EXPECT_FALSE( call.starts_with( "Port-Channel" ) ) << call;
   }
}

TYPED_TEST( Effective, APortWithoutConfigurationHasWhatItsPortChannelHas ) {
   this->broadcast( po( 1 ), 500 );
   this->broadcast( po( 2 ), 700 );
   this->start();
   this->member( 3, 1 );
   EXPECT_EQ( this->told( 3 ), "500 kbps at 0 of Port-Channel1" );
   this->notes().take();
   this->member( 3, 2 ); // moves
   EXPECT_EQ( this->told( 3 ), "700 kbps at 0 of Port-Channel2" );
   for ( auto & call : this->notes().calls ) {
      EXPECT_FALSE( call.starts_with( "Ethernet3 Broadcast: free" ) ) << "in between";
   }
   this->noConfig( po( 2 ) );
   EXPECT_TRUE( this->free( 3 ) );
   this->broadcast( po( 2 ), 800 );
   EXPECT_EQ( this->told( 3 ), "800 kbps at 0 of Port-Channel2" );
   this->member( 3, 0 );
   EXPECT_TRUE( this->free( 3 ) );
   EXPECT_FALSE( this->statusOf( eth( 3 ) ) );
   EXPECT_TRUE( this->statusOf( po( 2 ) ) );
}

TYPED_TEST( Effective, APortChannelThatComesBackIsFollowedAgain ) {
   this->broadcast( eth( 1 ), 100 );
   this->broadcast( po( 1 ), 500 );
   this->start();
   for ( U32 round = 0; round < 2; ++round ) {
      this->member( 1, 1 );
      EXPECT_EQ( this->told( 1 ), "500 kbps at 0 of Port-Channel1" );
      this->acsd->lagToPortDel( po( 1 ) );
      this->acsd->portToLagDel( eth( 1 ) );
      EXPECT_EQ( this->told( 1 ), "100 kbps at 0" );
   }
}

TYPED_TEST( Effective, MembershipIsWhatPortToLagSaysWhicheverMapComesFirst ) {
   this->broadcast( po( 1 ), 500 );
   this->start();
   this->acsd->portToLagIs( eth( 1 ), po( 1 ) );
   EXPECT_EQ( this->told( 1 ), "500 kbps at 0 of Port-Channel1" );
   this->broadcast( po( 1 ), 600 ); // no list leads to the port
   EXPECT_EQ( this->told( 1 ), "600 kbps at 0 of Port-Channel1" );
   Qon::QonLagPortList list;
   list.portIs( eth( 2 ), Qon::QonLagPort( true, true ) );
   this->acsd->lagToPortIs( po( 1 ), list );
   EXPECT_TRUE( this->free( 2 ) );
   this->acsd->portToLagIs( eth( 2 ), po( 1 ) );
   EXPECT_EQ( this->told( 2 ), "600 kbps at 0 of Port-Channel1" );
}

TYPED_TEST( Effective, SpeedFollowsThePhysicalStatus ) {
   this->broadcast( eth( 1 ), 100 );
   this->start();
   EXPECT_EQ( this->told( 1 ), "100 kbps at 0" );
   auto phy = this->phy( 1, EthSpeed::speed25Gbps );
   EXPECT_EQ( this->told( 1 ), "100 kbps at 25000000" );
   phy->speedIs( EthSpeed::speed100Gbps );
   EXPECT_EQ( this->told( 1 ), "100 kbps at 100000000" );
   this->phys->intfStatusDel( eth( 1 ) );
   EXPECT_EQ( this->told( 1 ), "100 kbps at 0" );
   this->notes().take();
   phy->speedIs( EthSpeed::speed10Gbps ); // of an entity that has gone
   EXPECT_EQ( this->notes().calls, Calls{} );
}

TYPED_TEST( Effective, OnlyWhatChangedReachesTheChip ) {
   this->phy( 1 );
   this->broadcast( eth( 1 ), 100 );
   this->start();
   this->notes().take();
   this->broadcast( eth( 1 ), 100 );
   this->of( eth( 1 ) )->multicastLevelIs( Threshold() ); // the default, said
   this->acsd->lagToPortIs( po( 9 ), Qon::QonLagPortList() );
   EXPECT_EQ( this->notes().take(), Calls{} );
   this->of( eth( 1 ) )->multicastLevelIs( Threshold( Unit::pps, 7 ) );
   EXPECT_EQ( this->notes().take(), Calls{ "Ethernet1 Multicast: 7 pps at 10000000" } );
   this->of( eth( 1 ) )->allLevelIs( Threshold( Unit::percent, 0 ) ); // zero is a rate here
   EXPECT_EQ( this->notes().take(), Calls{ "Ethernet1 All: 0 percent at 10000000" } );
}

TYPED_TEST( Effective, WhatHappensToAnInactivePortIsProgrammedWhenItIsActiveAgain ) {
   auto phy = this->phy( 1 );
   this->broadcast( eth( 1 ), 100 );
   this->start();
   phy->activeIs( false );
   EXPECT_TRUE( this->free( 1 ) );
   this->notes().take();
   this->broadcast( eth( 1 ), 200 );
   phy->speedIs( EthSpeed::speed40Gbps );
   this->broadcast( po( 1 ), 500 );
   for ( auto & call : this->notes().take() ) {
      EXPECT_EQ( call, "" );
   }
   phy->activeIs( true );
   EXPECT_EQ( this->told( 1 ), "200 kbps at 40000000" );
   U32 levels = 0;
   for ( auto & call : this->notes().calls ) {
      levels += call.find( ": " ) != String::npos;
   }
   EXPECT_EQ( levels, this->second ? 4u : 6u ) << "all of them, whatever they were";
   phy->activeIs( false );
   this->noConfig( eth( 1 ) );
   this->notes().take();
   phy->activeIs( true );
   EXPECT_EQ( this->notes().calls, Calls{} );
}

TYPED_TEST( Effective, AnInactivePortShowsWhoseConfigurationHolds ) {
   auto phy = this->phy( 1 );
   this->broadcast( eth( 1 ), 100 );
   this->broadcast( po( 1 ), 500 );
   this->broadcast( po( 2 ), 700 );
   this->member( 1, 1 );
   this->start();
   this->answer( 1 );
   phy->activeIs( false );
   EXPECT_EQ( this->statusOf( eth( 1 ) )->lag(), po( 1 ) );
   for ( U32 lag : { 2, 0, 1 } ) {
      this->member( 1, lag );
      EXPECT_EQ( this->statusOf( eth( 1 ) )->lag(), lag ? po( lag ) : IntfId() ) << lag;
   }
   EXPECT_TRUE( this->free( 1 ) );
}

TYPED_TEST( Effective, OnlyManagedAndBridgedInterfacesAreLimited ) {
   this->managed( 9, true );
   this->phy( 2 )->forwardingModelIs( Interface::ForwardingModel::routed );
   this->broadcast( eth( 1 ), 100 );
   this->broadcast( eth( 2 ), 100 );
   this->broadcast( po( 1 ), 500 );
   this->managed( 2, true );
   this->member( 3, 1 ); // nobody manages it, a member or not
   this->start();
   EXPECT_EQ( this->told( 1 ) + this->told( 2 ) + this->told( 3 ), "" );
   EXPECT_FALSE( this->sm->intfSm( eth( 1 ) ) );
   EXPECT_TRUE( this->sm->intfSm( po( 1 ) ) );
   this->managed( 1, true ); // late
   this->managed( 3, true );
   this->phys->intfStatus( eth( 2 ) )->forwardingModelIs( Interface::ForwardingModel::bridged );
   EXPECT_EQ( this->told( 1 ), "100 kbps at 0" );
   EXPECT_EQ( this->told( 2 ), "100 kbps at 10000000" );
   EXPECT_EQ( this->told( 3 ), "500 kbps at 0 of Port-Channel1" );
   this->managed( 1, false );
   this->phys->intfStatus( eth( 2 ) )->forwardingModelIs( Interface::ForwardingModel::routed );
   EXPECT_TRUE( this->free( 1 ) && this->free( 2 ) );
   EXPECT_FALSE( this->statusOf( eth( 1 ) ) );
   for ( U32 port : { 2, 3, 9 } ) { // without any, all are managed
      this->managed( port, false );
   }
   EXPECT_EQ( this->told( 1 ), "100 kbps at 0" );
}

TYPED_TEST( Effective, SubInterfacesProgramNothingAndAreCounted ) {
   this->phy( 1 );
   this->start();
   this->broadcast( intf( "Ethernet1.10" ), 100 );
   this->broadcast( intf( "Ethernet1.11" ), 100 );
   this->broadcast( intf( "Port-Channel1.7" ), 100 );
   EXPECT_EQ( this->notes().calls.size(), this->second ? 0u : 2u ); // hwInit, installRules
   EXPECT_EQ( this->sm->intfToSubIntfNum( eth( 1 ) ), 2u );
   EXPECT_EQ( this->sm->intfToSubIntfNum( po( 1 ) ), 1u );
   EXPECT_TRUE( this->sm->intfSm( intf( "Ethernet1.10" ) ) );
   this->phys->intfStatus( eth( 1 ) )->forwardingModelIs( Interface::ForwardingModel::routed );
   EXPECT_FALSE( this->sm->intfSm( intf( "Ethernet1.10" ) ) );
   this->noConfig( intf( "Ethernet1.10" ) );
   this->noConfig( intf( "Port-Channel1.7" ) );
   EXPECT_EQ( this->sm->intfToSubIntfNum( eth( 1 ) ), 1u );
   EXPECT_EQ( this->sm->intfToSubIntfNum( po( 1 ) ), 0u );
}

TYPED_TEST( Effective, BroadcastsPassByTheRulesWhereNoLevelHolds ) {
   this->start();
   this->notes().take();
   this->of( eth( 1 ) );
   EXPECT_EQ( this->notes().calls[0], "Ethernet1 skips" );
   this->notes().take();
   this->broadcast( eth( 1 ), 100 );
   EXPECT_EQ( this->notes().take(),
              ( Calls{ "Ethernet1 skips not", "Ethernet1 Broadcast: 100 kbps at 0" } ) );
   this->broadcast( eth( 1 ), 200 );
   this->noConfig( eth( 1 ) );
   EXPECT_EQ( this->notes().calls[1], "Ethernet1 skips" );
   EXPECT_TRUE( this->sm->bcastSkipped( eth( 1 ) ) );
   this->notes().take();
   auto config = this->config->intfIs( eth( 2 ) ); // its level is there with the first report
   EXPECT_TRUE( this->sm->bcastSkipped( eth( 2 ) ) );
}

TYPED_TEST( Effective, TheInputsMayComeInAnyOrder ) {
   std::vector< std::function< void() > > steps = {
         [&] { this->broadcast( eth( 1 ), 100 ); }, [&] { this->broadcast( po( 1 ), 500 ); },
         [&] { this->member( 1, 1 ); }, [&] { this->phy( 1 ); }, [&] { this->start(); } };
   std::vector< U32 > order = { 0, 1, 2, 3, 4 };
   do {
      this->sm = nullptr;
      this->config->intfDelAll();
      this->status->intfStatusDelAll();
      this->phys->intfStatusDelAll();
      this->member( 1, 0 );
      this->acsd->lagToPortDelAll();
      this->notes().told.clear();
      for ( U32 n : order ) {
         steps[n]();
      }
      EXPECT_EQ( this->told( 1 ), "500 kbps at 10000000 of Port-Channel1" );
   } while ( std::next_permutation( order.begin(), order.end() ) );
}

TYPED_TEST( Effective, AConfigurationThatIsAnotherOneIsFollowed ) {
   this->start();
   this->broadcast( eth( 1 ), 100 );
   auto old = this->of( eth( 1 ) );
   this->noConfig( eth( 1 ) );
   this->broadcast( eth( 1 ), 300 );
   EXPECT_EQ( this->told( 1 ), "300 kbps at 0" );
   old->broadcastLevelIs( kbps( 400 ) );
   EXPECT_EQ( this->told( 1 ), "300 kbps at 0" );
}

TYPED_TEST( Effective, ARestIsMadeGood ) {
   this->phy( 1 );
   this->broadcast( eth( 1 ), 100 );
   this->broadcast( eth( 2 ), 100 );
   this->broadcast( po( 1 ), 500 );
   this->config->aggregateTcIs( 3 )->thresholdIs( kbps( 7 ) );
   this->start();
   this->sm->initializedIs( false );
   this->notes().take();
   this->member( 1, 1 );
   this->broadcast( po( 1 ), 600 );
   this->noConfig( eth( 2 ) );
   this->broadcast( eth( 4 ), 400 );
   this->config->aggregateTcDel( 3 );
   this->config->aggregateTcIs( 5 )->thresholdIs( kbps( 9 ) );
   EXPECT_EQ( this->notes().calls, Calls{} );
   this->sm->initializedIs( true );
   EXPECT_EQ( this->told( 1 ), "600 kbps at 10000000 of Port-Channel1" );
   EXPECT_TRUE( this->free( 2 ) );
   EXPECT_EQ( this->told( 4 ), "400 kbps at 0" );
   auto & calls = this->notes().calls;
   for ( auto call : { "class 3: free", "class 5: 9 kbps" } ) {
      EXPECT_EQ( std::count( calls.begin(), calls.end(), call ), 1 ) << call;
   }
   EXPECT_EQ( std::count( calls.begin(), calls.end(), "hwInit" ), 0 );
}

TYPED_TEST( Effective, CleaningUpTakesEverythingBackAndAStartBeginsAnew ) {
   this->phy( 1 );
   this->broadcast( eth( 1 ), 100 );
   this->broadcast( po( 1 ), 500 );
   this->member( 2, 1 );
   this->config->aggregateTcIs( 3 )->thresholdIs( kbps( 7 ) );
   this->config->counterPeriodIs( 2 );
   this->start();
   this->sm->doCleanup();
   EXPECT_TRUE( this->free( 1 ) && this->free( 2 ) );
   EXPECT_EQ( this->notes().calls.back().substr( 0, 8 ), "Ethernet" );
   EXPECT_EQ( this->status->intfStatuss() + this->status->aggregateTcStatuss(), 0u );
   EXPECT_EQ( this->scheduler.nextTime(), Kiv::never );
   this->broadcast( eth( 1 ), 300 ); // it hears nothing
   EXPECT_TRUE( this->free( 1 ) );
   this->sm->initializedIs( true );
   EXPECT_EQ( this->told( 1 ), "300 kbps at 10000000" );
   EXPECT_EQ( this->told( 2 ), "500 kbps at 0 of Port-Channel1" );
   const auto before = this->notes().told;
   this->sm = nullptr; // an end touches nothing
   EXPECT_EQ( this->notes().told, before );
   EXPECT_NE( this->scheduler.nextTime(), 0 );
}

TYPED_TEST( Effective, AHookMayCleanUpWhatItIsToldOf ) {
   this->start();
   U32 number = 0;
   for ( const char * hook :
         { "class 1: 5 kbps", "Ethernet2 skips", "Ethernet3 Multicast: 3 kbps at 0" } ) {
      bool met = false;
      const IntfId port = eth( ++number );
      this->notes().during = [&]( const String & call ) {
         if ( call == hook && !std::exchange( met, true ) ) {
            this->sm->doCleanup();
         }
      };
      this->of( port )->multicastLevelIs( kbps( 3 ) );
      this->config->aggregateTcIs( 1 )->thresholdIs( kbps( 5 ) );
      EXPECT_TRUE( met ) << hook;
      EXPECT_EQ( this->status->intfStatuss() + this->status->aggregateTcStatuss(), 0u ) << hook;
      EXPECT_FALSE( this->sm->intfSm( port ) );
      this->notes().during = nullptr;
      this->config->intfDel( port );
      this->config->aggregateTcDel( 1 );
      this->sm->initializedIs( true );
      EXPECT_EQ( this->sm->checkInvariants(), "" );
   }
}

} // namespace
