#pragma once
// One topology of a port and a group, and hooks that do something the first time that they are called.

#include "tests/topology/TopologyWorld.h"

namespace Tests {

using Calls = std::vector< String >;

class ReentryTest : public testing::Test, public TopologyWorld {
 protected:
   /** "mst0" (id 7) with VLAN 10, Ethernet1, and Port-Channel1 of Ethernet2 and Ethernet3. */
   void build() {
      stp.topo( "mst0", 7 );
      stp.vlan( 10, "mst0" );
      lags.join( "Ethernet2", "Port-Channel1" );
      lags.join( "Ethernet3", "Port-Channel1" );
      for ( String port : { "Ethernet1", "Ethernet2", "Port-Channel1" } ) {
         stp.port( "mst0", port, blocked );
      }
      tapAggTopo( "tapAgg", 100 );
   }
   void run() {
      build();
      start( helper );
      helper->setStpStateDoneTopoId( 7 );
      helper->calls();
   }
   /** Does something at the first call of this kind, before the hook returns. */
   void at( const String & call, std::function< void() > act ) {
      helper->onCall = [=, this]( const String & made ) {
         if ( made.starts_with( call ) ) {
            helper->onCall = nullptr;
            act();
         }
      };
   }
   PortState held( const String & port, const String & topo = "mst0" ) {
      return helper->hardware[topo][intf( port )];
   }
   U32 count( const Calls & calls, const String & kind ) {
      return U32( std::count_if( calls.begin(), calls.end(),
                                 [&]( auto & call ) { return call.starts_with( kind ); } ) );
   }
   ~ReentryTest() override {
      if ( stpSm ) {
         EXPECT_EQ( stpSm->checkInvariants(), "" );
      }
   }
   Velto::Ptr< RecordingTopoHelper > helper = Velto::make< RecordingTopoHelper >();
};

} // namespace Tests
