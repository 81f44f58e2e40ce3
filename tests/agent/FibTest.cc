// The forwarding table from shared memory: what the agent makes of routes, FECs and vias.

#include "tests/agent/FibWorld.h"

namespace Tests {
namespace {

using namespace Quarn::Fib;
using Qon::GlobalFecId;

const char routes[] = "0 0.0.0.0/0 192.0.2.1@Ethernet1\n"
                      "0 10.1.0.0/16 192.0.2.1@Ethernet1 192.0.2.5@Ethernet2*3\n"
                      "0 10.2.0.0/16 192.0.2.5@Ethernet2*3 192.0.2.1@Ethernet1\n"
                      "0 2001:db8::/32 2001:db8:ffff::1@Port-Channel7+16001+17*2\n"
                      "0 10.2.5.0/24 @Vlan10\n"
                      "0 10.3.0.0/16 drop\n"
                      "5 10.0.0.1/32 local\n"
                      "0 10.4.0.0/16 fec 7\n";

class Fib : public testing::Test, public FibWorld {
 protected:
   void writes( const String & text ) {
      if ( !file ) {
         file = std::make_unique< FibFile >( loop, path );
      }
      file->lines( text );
      file->writer.completeIs( true );
   }
   String why( const String & words ) {
      try {
         return shown( words, { "prefix" } );
      } catch ( const Velto::RangeError & e ) {
         return e.what();
      }
   }
   std::unique_ptr< FibFile > file;
};

TEST_F( Fib, EqualNextHopsAreOneAdjacencyAndAllOfItIsShown ) {
   writes( routes );
   attach();
   rest();
   EXPECT_EQ( shown( "adjacency", { "adjacency", "nextHops", "users", "prefixes" } ),
              "1 | 192.0.2.1 Ethernet1 | 1 | 1\n"
              "2 | 192.0.2.1 Ethernet1, 192.0.2.5 Ethernet2 weight 3 | 2 | 2\n"
              "3 | 2001:db8:ffff::1 PortChannel7 labels 16001 17 weight 2 | 1 | 1\n"
              "4 | Vlan10 attached | 1 | 1\n"
              "5 | drop | 1 | 1\n"
              "6 | cpu | 1 | 1" );
   EXPECT_EQ( shown( "route 0.0.0.0/0", { "vrf", "prefix", "nextHops", "adjacency", "state" } ),
              "0 | 0.0.0.0/0 | 192.0.2.1 Ethernet1 | 1 | programmed" );
   EXPECT_EQ( shown( "route 10.4.0.0/16", { "fec", "state", "why" } ),
              "7 | waiting | its FEC is not in the table" );
   EXPECT_EQ( shown( "route 10.2.5.77", { "prefix" } ), "10.2.5.0/24" ); // the longest match
   EXPECT_EQ( shown( "route 172.16.0.1", { "prefix" } ), "0.0.0.0/0" );
   EXPECT_EQ( shown( "route vrf 5 10.0.0.1", { "vrf", "nextHops" } ), "5 | cpu" );
   EXPECT_EQ( why( "route 10.1.0.0/17" ), "there is no route 10.1.0.0/17 in VRF 0" );
   EXPECT_EQ( why( "route 2001:db9::1" ), "there is no route to 2001:db9::1 in VRF 0" );
   EXPECT_EQ( why( "fec 99" ), "there is no FEC 99" );
   EXPECT_EQ( shown( "route vrf 5", { "prefix" } ), "10.0.0.1/32" );
   EXPECT_EQ( shown( "fec 4294967296", { "ipv4", "ipv6", "defaults" } ), "1 | 0 | 1" );
   const String summary = shown( "route summary", { "what", "count", "state" } );
   EXPECT_EQ( summary, "IPv4 routes | 7\nIPv6 routes | 1\nroutes that wait for their FEC | 1\n"
                       "routes that cannot be | 0\nFECs | 8\nadjacencies | 6\n"
                       "lists of next hops | 6\nnext hops | 6\ntable route | 8 | followed\n"
                       "table fec | 7 | followed\ntable via | 7 | followed" );
}

TEST_F( Fib, ARouteMayComeBeforeItsFecAndStayBehindIt ) {
   writes( "0 10.4.0.0/16 fec 7\n0 10.5.0.0/16 fec 7\n1 ::/0 fec 7" );
   attach();
   rest();
   EXPECT_EQ( reader().waiting(), 3u );
   writes( "fec 7 192.0.2.1@Ethernet1" );
   rest();
   EXPECT_EQ( reader().waiting(), 0u );
   EXPECT_EQ( shown( "adjacency", { "nextHops", "prefixes" } ), "192.0.2.1 Ethernet1 | 3" );
   // Other next hops: all prefixes go along, and the former adjacency goes.
   writes( "fec 7 192.0.2.2@Ethernet2 192.0.2.3@Ethernet3" );
   rest();
   EXPECT_EQ( shown( "adjacency", { "adjacency", "nextHops", "prefixes" } ),
              "2 | 192.0.2.2 Ethernet2, 192.0.2.3 Ethernet3 | 3" );
   writes( "fec 7 -" );
   rest();
   EXPECT_EQ( fec( 7 ), "192.0.2.2 Ethernet2, 192.0.2.3 Ethernet3 | kept | its FEC was removed "
                        "before its routes" );
   writes( "0 10.4.0.0/16 -\n1 ::/0 drop" );
   rest();
   EXPECT_EQ( reader().fecs(), 2u );
   writes( "0 10.5.0.0/16 -" );
   rest();
   EXPECT_EQ( reader().fecs(), 1u );
   EXPECT_EQ( shown( "adjacency", { "adjacency", "nextHops" } ), "1 | drop" ); // a free number
   EXPECT_EQ( reader().nextHops().nextHops(), 1u );
   EXPECT_EQ( reader().prefixLists()->adjGlobalPrefixLists(), 1u );
}

TEST_F( Fib, WhatAWriterSaysIsNotBelieved ) {
   RawTables raw( loop, path );
   const GlobalFecId id( 3 );
   const auto put = [&]( const Quarn::Fib::Via & via, FecType type = FecType::forward,
                         U32 version = 2, U32 vias = 1 ) {
      raw.vias.valueIs( ViaKey( id, 0 ), via );
      Fec fec;
      fec.type = type;
      fec.vias = vias;
      fec.version = version;
      raw.fecs.valueIs( FecKey( id ), fec );
      rest();
   };
   Quarn::Fib::Via via;
   via.intf = Intf( intf( "Ethernet1" ) );
   via.version = 1;
   attach();
   put( via, FecType::forward, 1 );
   EXPECT_EQ( fec( 3 ), "Ethernet1 attached | programmed | " );
   const String kept = "Ethernet1 attached | kept | ";
   const auto bad = [&]( auto change ) {
      auto other = via;
      other.version = 2;
      change( other );
      put( other );
      EXPECT_EQ( fec( 3 ), kept + "its next hops cannot be" );
   };
   bad( []( auto & v ) { v.weight = 0; } );
   bad( []( auto & v ) { v.labels = 4; } );
   bad( []( auto & v ) { v.family = Ulnet::AddressFamily( 9 ); } );
   bad( []( auto & v ) { v.intf.type = Ulnet::IntfType( 77 ); } );
   bad( []( auto & v ) { v.intf.count = 200; } );
   put( via, FecType::forward, 1, 0 );
   EXPECT_EQ( fec( 3 ), kept + "its next hops cannot be" );
   put( via, FecType::forward, 1, 5000 );
   EXPECT_EQ( fec( 3 ), kept + "its next hops cannot be" );
   put( via, FecType( 12 ), 1 );
   EXPECT_EQ( fec( 3 ), kept + "its type is none that this agent knows" );
   put( via, FecType::forward, 2, 1 );
   EXPECT_EQ( fec( 3 ), kept + "its next hops are not all written" );
   // The change that there always is.
   via.version = 2;
   via.intf = Intf( intf( "Ethernet2" ) );
   raw.vias.valueIs( ViaKey( id, 0 ), via );
   rest();
   EXPECT_EQ( fec( 3 ), "Ethernet2 attached | programmed | " );
}

TEST_F( Fib, RoutesThatCannotBeAreCountedAndLeadNowhere ) {
   RawTables raw( loop, path );
   attach();
   Route route;
   route.fec = 3;
   RouteKey good( Qon::VrfId( 0xffffff ), Ulnet::IpGenPrefix( "10.0.0.0/8" ) ), key = good;
   std::vector< RouteKey > wrong;
   const auto add = [&]( auto change ) {
      key = good;
      change( key );
      wrong.push_back( key );
   };
   add( []( auto & k ) { k.vrf = 0x1000000; } );
   add( []( auto & k ) { k.length = 33; } );
   add( []( auto & k ) { k.family = Ulnet::AddressFamily::none; } );
   add( []( auto & k ) { k.family = Ulnet::AddressFamily( 7 ); } );
   add( []( auto & k ) { k.address.bytes[3] = 1; } );  // behind its length
   add( []( auto & k ) { k.address.bytes[12] = 1; } ); // behind its family
   add( []( auto & k ) { k.spare = 1; } );
   raw.routes.valueIs( good, route );
   for ( auto & k : wrong ) {
      raw.routes.valueIs( k, route );
   }
   rest();
   EXPECT_EQ( reader().refused(), wrong.size() );
   EXPECT_EQ( shown( "route", { "vrf", "prefix" } ), "16777215 | 10.0.0.0/8" );
   for ( auto & k : wrong ) {
      raw.routes.valueDel( k );
   }
   rest();
   EXPECT_EQ( reader().refused(), 0u );
}

TEST_F( Fib, ThePlacesOfANextHopGroupKeepTheirOrder ) {
   RawTables raw( loop, path );
   attach();
   const auto group = [&]( U64 id, FecType type, const std::vector< U32 > & ports ) {
      Quarn::Fib::Via via;
      via.version = U32( id );
      for ( U32 i = 0; i < ports.size(); ++i ) {
         via.intf = Intf( Ulnet::EthIntfId::intfId( ports[i] ) );
         raw.vias.valueIs( ViaKey( GlobalFecId( id ), i ), via );
      }
      Fec fec;
      fec.type = type;
      fec.vias = U32( ports.size() );
      fec.version = U32( id );
      raw.fecs.valueIs( FecKey( GlobalFecId( id ) ), fec );
   };
   group( 1, FecType::nextHopGroup, { 2, 1, 2 } );
   group( 2, FecType::nextHopGroup, { 1, 2, 2 } );
   group( 3, FecType::forward, { 2, 1, 2 } );
   group( 4, FecType::forward, { 1, 2, 2 } );
   rest();
   EXPECT_EQ( shown( "fec", { "nextHops", "adjacency" } ),
              "Ethernet2 attached, Ethernet1 attached, Ethernet2 attached | 1\n"
              "Ethernet1 attached, Ethernet2 attached, Ethernet2 attached | 2\n"
              "Ethernet1 attached, Ethernet2 attached weight 2 | 3\n"
              "Ethernet1 attached, Ethernet2 attached weight 2 | 3" );
}

TEST_F( Fib, WhatADeadWriterSaidStaysUntilTheNextOneIsComplete ) {
   writes( routes );
   attach();
   rest();
   file.reset();
   loop.runOnce( 0.01 );
   rest();
   EXPECT_EQ( shown( "route summary", { "state" } ), "no writer\nno writer\nno writer" );
   EXPECT_EQ( reader().adjacencies().size(), 6u );
   const auto drop = reader().fec( reader().adjacencies().at( 5 )->adjEntryIteratorConst().key() );
   const auto before = drop->adjacency;
   file = std::make_unique< FibFile >( loop, path );
   file->lines( "0 10.3.0.0/16 drop\n0 10.9.0.0/16 drop" );
   EXPECT_TRUE( runUntil( [&] { return reader().source().connected(); } ) );
   rest();
   EXPECT_EQ( reader().adjacencies().size(), 6u );
   writes( "" );
   EXPECT_TRUE( runUntil( [&] { return reader().routes( Ulnet::AddressFamily::ipv6 ) == 0; } ) );
   rest();
   EXPECT_EQ( shown( "route", { "prefix", "nextHops" } ),
              "10.3.0.0/16 | drop\n10.9.0.0/16 | drop" );
   EXPECT_EQ( reader().adjacencies().size(), 1u );
   EXPECT_EQ( reader().adjacencies().at( 5 ), before ); // the same next hops: nothing moved
}

/** A watcher of counts that is called in the middle of each change. */
struct Counts : Qon::AdjPrefixCountStatus {
   void notify( const Qon::AdjGlobalPrefixList::PtrConst & list, Ulnet::AddressFamily ) override {
      ++told[list->fecId().value()];
      if ( act ) {
         act();
      }
   }
   std::map< U64, U32 > told;
   std::function< void() > act;
};

TEST_F( Fib, WatchersOfCountsMayRaiseOrEndTheReader ) {
   auto counts = Velto::make< Counts >();
   writes( "fec 1 drop\nfec 2 @Ethernet1\n0 10.0.0.0/8 fec 1\n0 10.1.0.0/16 fec 1\n" );
   attach( counts );
   rest();
   EXPECT_EQ( counts->told, ( std::map< U64, U32 >{ { 1, 2 } } ) );
   // A route that goes over: two changes, each of which raises.
   counts->act = [] { throw Velto::RangeError( "watcher" ); };
   writes( "0 10.0.0.0/8 fec 2" );
   U32 raised = 0;
   for ( U32 i = 0; i < 20; ++i ) {
      try {
         loop.runOnce( 0.001 );
      } catch ( const Velto::RangeError & ) {
         ++raised;
      }
   }
   EXPECT_EQ( raised, 1u );
   EXPECT_EQ( counts->told, ( std::map< U64, U32 >{ { 1, 3 }, { 2, 1 } } ) );
   counts->act = nullptr;
   rest();
   EXPECT_EQ( shown( "adjacency", { "nextHops", "prefixes" } ),
              "drop | 1\nEthernet1 attached | 1" );
   counts->act = [&] { feature->attach( &loop, folder / "nobody" ); };
   writes( "0 10.0.0.0/8 fec 1" );
   EXPECT_TRUE( runUntil( [&] { return reader().routes( Ulnet::AddressFamily::ipv4 ) == 0; } ) );
   EXPECT_EQ( reader().checkInvariants(), "" );
}

TEST( FibSettings, TablesNeedRealTimeAndAPath ) {
   SoftChip::Chip chip{ *std::make_unique< Kiv::VirtualScheduler >() };
   Kiv::VirtualScheduler scheduler;
   QonAgent::Agent agent( scheduler, chip, { QonAgent::fibFeature() }, { { "fib", "x" } } );
   EXPECT_THROW( agent.inputsRead(), Velto::RangeError );
   Kiv::EventLoop loop;
   QonAgent::Agent other( loop, chip, { QonAgent::fibFeature() },
                          { { "fib", String( 200, 'x' ) } } );
   EXPECT_THROW( other.inputsRead(), Velto::RangeError );
}

} // namespace
} // namespace Tests
