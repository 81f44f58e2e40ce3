// Membership, port states and generations of VLANs.

#include <functional>

#include "platform/Flintlog/TraceRecorder.h"
#include "tests/topology/ChipWorld.h"

namespace {

using namespace Tests;
using Qon::VlanMembership;
using Kind = Qon::PortVlanMembershipChangeKind;

const VlanId v10( 10 ), v20( 20 );

/** Records what the chip is asked to do; done when told. */
class RecordingVlanHelper : public Qon::VlanHelper {
 public:
   using VlanHelper::VlanHelper;
   void doCreateHwVlan( VlanId vlan ) override {
      calls.push_back( "create " + vlan.stringValue() );
   }
   void doUpdateVlan( VlanId vlan ) override {
      String call = "update " + vlan.stringValue();
      forEachHwPort( vlan, [&]( IntfId port, VlanMembership how ) {
         call += " " + port.stringValue() + ( how.tagged ? "t" : "u" ) +
                 ( how.ingress ? "i" : "" ) + ( how.egress ? "e" : "" );
      } );
      calls.push_back( call );
   }
   std::vector< String > takeCalls() { return std::exchange( calls, {} ); }
   std::vector< String > calls;
};

class VlanHelperTest : public testing::Test, public World {
 protected:
   using Calls = std::vector< String >;
   U64 request( Kind kind, const String & port, bool tagged, bool ingress, bool egress ) {
      return helper->requestPortVlanMembershipChange( kind, intf( port ), v10, tagged, ingress,
                                                      egress );
   }
   U64 set( const String & port, bool tagged = false, bool in = true, bool out = true ) {
      return request( Kind::setOverride, port, tagged, in, out );
   }
   U64 expand( const String & port, bool tagged, bool in, bool out ) {
      return request( Kind::expand, port, tagged, in, out );
   }
   /** Lets the chip be told, and takes it as done. */
   Calls update( Qon::VlanProgrammingStatus status = Qon::VlanProgrammingStatus::success ) {
      scheduler.settle();
      auto calls = helper->takeCalls();
      helper->updateVlanDone( v10, status );
      return calls;
   }
   U64 completed() { return helper->completedVlanUpdateStatus( v10 ); }
   ~VlanHelperTest() override { EXPECT_EQ( helper->checkInvariants(), "" ); }

   Velto::Ptr< RecordingVlanHelper > helper =
         Velto::make< RecordingVlanHelper >( "vlans", acsd.ptr() );
};

TEST_F( VlanHelperTest, ABurstIsOneUpdateOfWhatHoldsAtItsEnd ) {
   const U64 first = set( "Ethernet1" );
   const U64 second = set( "Ethernet2", true );
   EXPECT_LT( first, second );
   EXPECT_EQ( set( "Ethernet2", true ), 0u );
   EXPECT_EQ( helper->doHandlePortState( intf( "Ethernet3" ), v10, false ), 0u ); // no member
   EXPECT_EQ( update(), ( Calls{ "create 10", "update 10 Ethernet1uie Ethernet2tie" } ) );
   EXPECT_EQ( completed(), second );
   // The state that was remembered holds when the port becomes a member.
   EXPECT_EQ( set( "Ethernet3" ), 0u );
   const U64 unblocked = helper->doHandlePortState( intf( "Ethernet3" ), v10, true );
   EXPECT_GT( unblocked, second );
   EXPECT_EQ( update(), ( Calls{ "update 10 Ethernet1uie Ethernet2tie Ethernet3uie" } ) );
   EXPECT_EQ( completed(), unblocked );
}

TEST_F( VlanHelperTest, ExpandingAddsAndOverridingReplaces ) {
   struct Case {
      Kind kind;
      VlanMembership given, expected;
   };
   const Case cases[] = {
         { Kind::expand, { true, true, false }, { true, true, false } }, // nothing there yet
         { Kind::expand, { false, false, true }, { true, true, true } },
         { Kind::setOverride, { false, false, true }, { false, false, true } },
         { Kind::expand, { true, false, true }, { false, false, true } },
         { Kind::setOverride, { true, false, false }, {} },
         { Kind::expand, { true, false, false }, {} },
   };
   for ( auto & c : cases ) {
      request( c.kind, "Ethernet1", c.given.tagged, c.given.ingress, c.given.egress );
      EXPECT_EQ( helper->membership( intf( "Ethernet1" ), v10 ), c.expected );
      EXPECT_EQ( helper->hwMembership( intf( "Ethernet1" ), v10 ), c.expected );
   }
   // A blocked port comes back with what was requested meanwhile.
   helper->setPortsBlocked( v10 );
   expand( "Ethernet1", true, true, false );
   expand( "Ethernet1", false, false, true );
   EXPECT_FALSE( helper->hwMembership( intf( "Ethernet1" ), v10 ) );
   helper->doHandlePortState( intf( "Ethernet1" ), v10, true );
   EXPECT_EQ( helper->hwMembership( intf( "Ethernet1" ), v10 ),
              ( VlanMembership{ true, true, true } ) );
}

TEST_F( VlanHelperTest, BlockingAVlanCountsForPortsThatComeLater ) {
   set( "Ethernet1" );
   helper->setPortsBlocked( v10 );
   for ( U32 port = 2; port < 200; ++port ) {
      set( "Ethernet" + std::to_string( port ) );
   }
   EXPECT_EQ( update(), ( Calls{ "create 10", "update 10" } ) );
   EXPECT_TRUE( helper->forwards( intf( "Ethernet150" ), v20 ) );
   EXPECT_TRUE( helper->membership( intf( "Ethernet1" ), v10 ) );
   EXPECT_FALSE( helper->membership( intf( "Ethernet999" ), v10 ) ); // known to nobody
}

TEST_F( VlanHelperTest, WhatChangesDuringAnUpdateStartsItAgain ) {
   set( "Ethernet1" );
   scheduler.settle();
   scheduler.runFor( 5 );
   const U64 late = set( "Ethernet2" );
   EXPECT_EQ( Kiv::now() - helper->updateState( v10 ).since, 5.0 ); // of the first
   scheduler.settle();
   EXPECT_EQ( helper->takeCalls().size(), 2u ); // no second one while one is under way
   helper->updateVlanDone( v10, Qon::VlanProgrammingStatus::success );
   EXPECT_EQ( completed(), 0u );
   EXPECT_EQ( helper->takeCalls(), Calls{ "update 10 Ethernet1uie Ethernet2uie" } );
   helper->updateVlanDone( v10, Qon::VlanProgrammingStatus::success );
   EXPECT_EQ( completed(), late );
   helper->updateVlanDone( v10, Qon::VlanProgrammingStatus::failed ); // nobody asked
   EXPECT_EQ( completed(), late );
   EXPECT_FALSE( helper->updateState( v10 ).failed );
}

TEST_F( VlanHelperTest, AFailureIsNotCompletedAndTriedAgain ) {
   const U64 first = set( "Ethernet1" );
   update( Qon::VlanProgrammingStatus::failed );
   EXPECT_EQ( completed(), 0u );
   EXPECT_TRUE( helper->updateState( v10 ).failed );
   // A state that changes nothing has nothing to wait for; the next change is tried...
   EXPECT_EQ( helper->doHandlePortState( intf( "Ethernet1" ), v10, true ), 0u );
   const U64 again =
         helper->doHandlePortState( intf( "Ethernet2" ), v10, true ) + set( "Ethernet1" );
   EXPECT_GT( again, first );
   EXPECT_FALSE( helper->updateState( v10 ).failed );
   update( Qon::VlanProgrammingStatus::failed );
   // ... or after a while.
   scheduler.runFor( Qon::VlanHelper::retryInterval );
   EXPECT_EQ( update(), Calls{ "update 10 Ethernet1uie" } );
   EXPECT_EQ( completed(), again );
   scheduler.runFor( 100 );
   EXPECT_EQ( helper->takeCalls(), Calls{} );
}

TEST_F( VlanHelperTest, ManyVlansAreToldInSlices ) {
   for ( U32 vlan = 1; vlan <= 300; ++vlan ) {
      helper->requestPortVlanMembershipChange( Kind::setOverride, intf( "Ethernet1" ),
                                               VlanId( vlan ), false, true, true );
   }
   scheduler.readCostIs( 0.002 );
   scheduler.turn();
   scheduler.turn();
   const std::size_t some = helper->takeCalls().size();
   EXPECT_TRUE( some > 0 && some < 300 ) << some;
   scheduler.readCostIs( 0 );
   scheduler.turn();
   EXPECT_EQ( some + helper->takeCalls().size(), 600u ); // made, and told
   for ( U32 vlan = 1; vlan <= 300; ++vlan ) {
      helper->updateVlanDone( VlanId( vlan ), Qon::VlanProgrammingStatus::success );
   }
}

TEST_F( VlanHelperTest, OnlyAFailureIsTracedAsOne ) {
   using enum Qon::VlanProgrammingStatus;
   for ( auto status : { success, failed } ) {
      set( "Ethernet1", status == failed );
      Flintlog::TraceRecorder recorder;
      update( status );
      bool traced = false;
      for ( auto & record : recorder.records() ) {
         traced |= record.text == "10 failed to program in hardware";
      }
      EXPECT_EQ( traced, status == failed );
   }
}

TEST_F( VlanHelperTest, AVlanThatGoesKeepsNobodyWaiting ) {
   helper->doHandlePortState( intf( "Ethernet2" ), v10, false );
   set( "Ethernet1" );
   scheduler.settle();
   helper->vlanDel( v10 );
   EXPECT_EQ( completed(), helper->updateState( v10 ).requested );
   helper->vlanDel( v20 ); // which had nothing
   EXPECT_EQ( helper->updateState( v20 ).requested, 0u );
   set( "Ethernet2" );
   const U64 back = set( "Ethernet3" );
   EXPECT_EQ( update(), ( Calls{ "create 10", "update 10 Ethernet1uie" } ) );
   EXPECT_LT( completed(), back );
   EXPECT_EQ( update(), Calls{ "update 10 Ethernet3uie" } ); // the states are kept
   EXPECT_EQ( completed(), back );
}

TEST_F( VlanHelperTest, AVlanThatGoesLosesItsPortsHoweverManyThereAre ) {
   for ( U32 port = 1; port <= 150; ++port ) {
      set( "Ethernet" + std::to_string( port ) );
   }
   update();
   helper->vlanDel( v10 );
   EXPECT_EQ( update(), Calls{ "update 10" } );
   EXPECT_FALSE( helper->hwMembership( intf( "Ethernet150" ), v10 ) );
}

TEST_F( VlanHelperTest, TaggingAloneIsAChange ) {
   set( "Ethernet1" );
   update();
   const U64 tagged = set( "Ethernet1", true );
   EXPECT_EQ( update(), Calls{ "update 10 Ethernet1tie" } );
   EXPECT_EQ( completed(), tagged );
   EXPECT_NE( tagged, 0u );
}

TEST_F( VlanHelperTest, PortsOfTheRecirculationFeatureStay ) {
   Lags lags( acsd.ptr() );
   lags.join( "Ethernet2", "Port-Channel1" );
   acsd->lagToFeatureSetIs( intf( "Ethernet1" ), Lag::Recirc::RecircFeatureSet( 1 ) );
   acsd->lagToFeatureSetIs( intf( "Port-Channel1" ), Lag::Recirc::RecircFeatureSet( 2 ) );
   for ( String port : { "Ethernet1", "Ethernet2", "Ethernet3" } ) {
      set( port );
   }
   helper->setPortsBlocked( v10 );
   EXPECT_EQ( set( "Ethernet1", false, false, false ), 0u );
   EXPECT_EQ( update(), ( Calls{ "create 10", "update 10 Ethernet1uie Ethernet2uie" } ) );
   lags.leave( "Ethernet2" ); // has the aggregate's feature no more
   EXPECT_EQ( update(), Calls{ "update 10 Ethernet1uie" } );
   acsd->lagToFeatureSetDel( intf( "Ethernet1" ) );
   EXPECT_EQ( update(), Calls{ "update 10" } );
}

} // namespace
