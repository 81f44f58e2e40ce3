// State machines of all features, by the names of their attributes.

#include "Qon/include/framework/QonAsyncBaseSm.h"
#include "Qon/include/lag/QonLagSm.h"
#include "Qon/include/mac/QonChipProgrammer.h"
#include "Qon/include/topology/QonStpSm.h"
#include "Qon/include/topology/VlanTopoHelper.h"
#include "Qon/include/vlanmapping/QonVlanMappingSm.h"
#include "platform/Kiv/Generic.h"
#include "tests/harness/World.h"

namespace {

using Tests::intf;
using Tests::String;
using Velto::Ptr;

/** A chip that traps nothing. */
class StpSm : public Qon::StpSm {
 public:
   using Qon::StpSm::StpSm;
   void configureBpduTrapping( bool, bool ) override {}
};

class ByName : public testing::Test {
 protected:
   /** Each attribute is found by its own name, and read. */
   static U32 readable( const Velto::Node & node ) {
      U32 count = 0;
      for ( auto type = node.typeData(); type; type = type->base ) {
         for ( int i = 0; i < type->count; ++i, ++count ) {
            const String name = type->attrs[i].name;
            EXPECT_EQ( &Kiv::GenericIf::attribute( node, name ), &type->attrs[i] ) << name;
            if ( type->attrs[i].kind == Kiv::AttrKind::pointer ) {
               EXPECT_NE( get( node, name ), "" ) << name; // to what lives elsewhere, or nothing
               continue;
            }
            Kiv::GenericIf::Dump dump( node, name );
            for ( Kiv::GenericIf::Line line; dump.next( line ); ) {
               EXPECT_TRUE( line.path.starts_with( name ) ) << line.path;
            }
         }
      }
      return count;
   }
   static String get( const Velto::Node & node, const String & path ) {
      return Kiv::GenericIf::get( node, path );
   }

   Tests::World world;
};

TEST_F( ByName, WhatTimesAndQuantaCanBeSet ) {
   auto mac = Velto::make< Qon::QonMacProgrammer >( nullptr );
   EXPECT_GE( readable( *mac ), 15u );
   EXPECT_EQ( get( *mac, "updateOverflowAddressMaxDelay" ), "30" );
   EXPECT_EQ( get( *mac, "overflowLogged" ), "False" );
   Kiv::GenericIf::set( *mac, "pollReqQuantum", "7" );
   EXPECT_EQ( mac->pollReqQuantum(), 7u );
   auto mapping = Velto::make< Qon::VlanMappingSm >( Qon::VlanMappingSm::Inputs() );
   EXPECT_GE( readable( *mapping ), 3u );
   EXPECT_EQ( get( *mapping, "retryUnprogrammedInterval" ), "5" );
   auto async = Velto::make< Qon::QonAsyncBaseSm >( world.acsd );
   EXPECT_GE( readable( *async ), 3u );
   EXPECT_EQ( get( *async, "asyncState" ), "asyncNone" );
   EXPECT_EQ( get( *async, "pendingOperationTimeout" ), "60" );
}

TEST_F( ByName, WhereAStateMachineIsWithItsWork ) {
   auto helper = Qon::VlanTopoHelperIs( nullptr, &world.scheduler );
   auto config = Velto::make< Bridging::Topology::Config >( "config" );
   auto status = Velto::make< Bridging::Topology::Inst::Status >( "status" );
   auto stp = Qon::smIs< StpSm >( world.acsd, config, status, helper );
   stp->initializedIs( true );
   config->topoConfigIs( "mst0", 7 );
   status->topoStatusIs( "mst0", 7 );
   config->vidToTopoMapIs( Bridging::VlanId( 10 ), "mst0" );
   config->topoConfig( "mst0" )->topoPortConfigIs( intf( "Ethernet1" ),
                                                   Bridging::Topology::PortState::forwarding );
   EXPECT_GE( readable( *stp ), 9u );
   EXPECT_EQ( get( *stp, "vlanToTopoSmMap[10]" ), "mst0" );
   EXPECT_EQ( get( *stp, "topoToVlanMap[mst0]/vlan[10]" ), "True" );
   EXPECT_EQ( get( *stp, "currentHwOperationalMode" ), "switching" );
   EXPECT_EQ( get( *stp, "pendingStpStateTopo[mst9]" ), "None" );
   EXPECT_GE( readable( *helper ), 4u );
   EXPECT_EQ( get( *helper, "topoVlanOp[10]" ), "mst0" );
   EXPECT_NE( get( *helper, "topoUpdateMap[mst0]/stpStateChange[Ethernet1]" ), "None" );
   world.scheduler.settle();
   EXPECT_EQ( get( *helper, "topoUpdateMap[mst0]" ), "None" );
   EXPECT_EQ( readable( *stp->topoSm( "mst0" ) ), 5u );
   EXPECT_EQ( readable( *stp->topoSm( "mst0" )->topoPortSm( intf( "Ethernet1" ) ) ), 6u );

   auto lags = Velto::make< Interface::EthLagIntfStatusDir >( "lags" );
   auto lag = Qon::LagSmIs( world.acsd, lags, nullptr, nullptr, nullptr, nullptr );
   EXPECT_GE( readable( *lag ), 8u );
   EXPECT_EQ( get( *lag, "mlagStatus" ), "None" );
   stp = nullptr;
}

} // namespace
