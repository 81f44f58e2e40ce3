// Chains of several features, judged by what the chip does with frames.

#include "agent/softchip/MacPart.h"
#include "agent/softchip/MirrorPart.h"
#include "agent/softchip/MulticastPart.h"
#include "agent/softchip/TopologyPart.h"
#include "platform/types/Paths.h"
#include "tests/flows/WholeSwitch.h"

namespace {

using namespace FlowTests;
using Bridging::VlanId;
using Kind = SoftChip::ChipKind;

/** The answers at one port as if it were another one. */
WholeSwitch::Answers
renamed( const WholeSwitch::Answers & answers, const String & port ) {
   WholeSwitch::Answers all;
   for ( auto & [frame, ports] : answers ) {
      all[port + frame.substr( frame.find( ' ' ) )] = ports;
   }
   return all;
}

class Chains : public testing::TestWithParam< Kind > {
 protected:
   SoftChip::Shape shape() const { return { .kind = GetParam() }; }
};

/** Whatever comes in by the new member is treated as by the others, and what leaves is spread over it;
    topologies, translations, lists, sources, limits and groups have followed within the turn. When it
    leaves, its own settings are back. */
TEST_P( Chains, AMemberThatJoinsIsLikeTheOthersInTheSameTurn ) {
   WholeSwitch s( shape() );
   s.bringUp();
   const auto before = s.answers();
   s.join( "Ethernet12" );
   s.scheduler.settle();
   s.scheduler.runFor( 0.05 ); // multicast groups are reviewed every 10 ms
   EXPECT_EQ( differences( renamed( s.answersAt( { "Ethernet8" } ), "Ethernet12" ),
                           s.answersAt( { "Ethernet12" } ) ),
              Lines() );
   for ( const char * fields : { "dmac=02:00:00:00:00:02", "dmac=01:00:5e:01:01:01" } ) {
      std::set< String > members;
      for ( auto & leaves : s.spread( "Ethernet0", fields ) ) {
         for ( const char * member : { "Ethernet8/10", "Ethernet12/10", "Ethernet16/10" } ) {
            if ( leaves.find( member ) != String::npos ) {
               members.insert( member );
            }
         }
      }
      EXPECT_EQ( members.size(), 3u ) << fields;
   }
   s.leave( "Ethernet12" );
   s.scheduler.runFor( 20 );
   EXPECT_EQ( differences( before, s.answers() ), Lines() );
}

/** The rules that mirror follow their session, whatever group it has, and copy to no other one. */
TEST_P( Chains, ListsFollowASessionToAnotherGroup ) {
   WholeSwitch s( shape() );
   s.bringUp();
   const String denied = "dmac=02:00:00:00:00:02,src=10.0.0.1,dst=10.0.0.2,protocol=6,dport=23";
   const WholeSwitch::Ports toSecond = { "Ethernet24", "Ethernet28" };
   EXPECT_EQ( s.spread( "Ethernet0", denied ), toSecond );
   auto groupOf = [&]( const String & name ) {
      auto & sessions = s.chip.of< SoftChip::MirrorPart >().table().sessions();
      auto session = sessions.find( name );
      return session == sessions.end() ? Mirroring::mirrorGroupInvalid() : session->second.group;
   };
   const S32 group = groupOf( "second" );
   // Without it another session takes its group; nothing goes there that was meant for it.
   auto config = QonAgent::Json::parse( wholeConfig );
   const auto second = config["MIRROR_SESSION"]["second"];
   config["MIRROR_SESSION"].erase( "second" );
   for ( U32 i = 0; i < 4; ++i ) {
      config["MIRROR_SESSION"]["other" + std::to_string( i )] = { { "type", "SPAN" },
                                                                  { "src_port", "Ethernet32" },
                                                                  { "direction", "RX" },
                                                                  { "dst_port", "Ethernet44" } };
   }
   s.load( config.dump() );
   EXPECT_EQ( s.spread( "Ethernet0", denied ), WholeSwitch::Ports{ "" } );
   for ( U32 i = 0; i < 4; ++i ) {
      const String other = "other" + std::to_string( i );
      if ( groupOf( other ) != group ) {
         config["MIRROR_SESSION"].erase( other );
      }
   }
   s.load( config.dump() );
   config["MIRROR_SESSION"]["second"] = second;
   s.load( config.dump() );
   EXPECT_NE( groupOf( "second" ), group );
   EXPECT_EQ( s.spread( "Ethernet0", denied ), toSecond );
}

/** In the mode tap ports lead to tools, BPDUs are let through, and what was in no topology forwards;
    afterwards nothing is different from before. */
TEST_P( Chains, TapAggregationModeComesAndGoesOverEverything ) {
   WholeSwitch s( shape() );
   s.bringUp();
   const auto before = s.answers();
   s.event( R"("event": "operationalMode", "mode": "tapAgg")" );
   EXPECT_EQ( s.spread( "Ethernet40", "dmac=02:00:00:00:00:01" ),
              WholeSwitch::Ports{ "Ethernet44/77" } );
   EXPECT_EQ( s.out( "Ethernet44", "dmac=02:00:00:00:00:01,vlan=10" ), "" );
   EXPECT_EQ( s.out( "Ethernet0", "dmac=01:80:c2:00:00:00" ).find( "Cpu" ), String::npos );
   const auto forwards = s.chip.of< SoftChip::TopologyPart >().forwards( 40, intf( "Ethernet44" ) );
   EXPECT_TRUE( !forwards || *forwards );
   s.event( R"("event": "operationalMode", "mode": "switching")" );
   EXPECT_EQ( differences( before, s.answers() ), Lines() );
}

/** Ports of a card that is taken out and put back. */
TEST_P( Chains, ALinecardsPortsLeaveAndComeBack ) {
   WholeSwitch s( shape() );
   s.bringUp();
   const auto before = s.answers();
   const std::vector< String > ports = { "Ethernet0", "Ethernet8", "Ethernet28", "Ethernet36" };
   std::map< String, String > hardware;
   auto & db = s.agent.entities();
   auto place = []( const String & at, const String & port ) { return at + "[" + port + "]"; };
   const String hw = String( Paths::hardwareFapIdPort ) + "/fapIdPort",
                phy = String( Paths::ethPhyIntfStatus ) + "/intfStatus";
   for ( auto & port : ports ) {
      hardware[port] = db.get( place( hw, port ) );
      for ( auto & path : { String( "acsd/intf" ), hw, phy } ) {
         s.eventNow( R"("event": "delete", "path": ")" + place( path, port ) + "\"" );
      }
   }
   s.scheduler.runFor( 20 );
   EXPECT_EQ( s.spread( "Ethernet4", "dmac=02:00:00:00:00:02,vlan=10" ),
              WholeSwitch::Ports{ "Ethernet16/10" } );
   for ( auto & port : ports ) {
      s.eventNow( R"("event": "insert", "path": ")" + place( phy, port ) + "\"" );
      s.eventNow( R"("event": "set", "path": ")" + place( phy, port ) +
                  R"(/linkUp", "value": true)" );
      s.eventNow( R"("event": "set", "path": ")" + place( hw, port ) + R"(", "value": ")" +
                  hardware[port] + "\"" );
      s.eventNow( R"("event": "set", "path": ")" + place( "acsd/intf", port ) +
                  R"(", "value": true)" );
   }
   s.scheduler.runFor( 20 );
   EXPECT_EQ( differences( before, s.answers() ), Lines() );
}

/** With every table full from the start the switch does what it has room for. When there is room, what
    is tried again by itself is there; and nothing is left behind that would be in the way of the same
    configuration when it comes anew. */
TEST_P( Chains, EveryTableIsFullThenThereIsRoom ) {
   WholeSwitch reference( shape() );
   reference.bringUp();
   const auto wanted = reference.answers();
   for ( U32 room : { 0u, 1u, 2u } ) {
      WholeSwitch s( shape() );
      for ( auto & table : s.chip.faults().tables() ) {
         s.chip.faults().limitIs( table, room );
      }
      s.bringUp();
      EXPECT_NE( s.answers(), wanted );
      s.chip.faults().clear();
      s.scheduler.runFor( 200 );
      auto & hosts = s.chip.of< SoftChip::MacPart >().table();
      const Qon::MacEntryKey host( { Ulnet::EthAddr( U64( 0x020000000002 ) ), VlanId( 10 ) },
                                   Qon::MacHwType::macHwKeyBridge );
      EXPECT_TRUE( hosts.entry( host ) ) << room;
      auto & groups = s.chip.of< SoftChip::MulticastPart >().table();
      auto ports = groups.portsOf( { Ulnet::EthAddr( U64( 0x01005e010101 ) ), VlanId( 10 ) } );
      EXPECT_TRUE( ports && ports->size() == 3 ) << room;
      s.load( "{}" );
      s.bringUp();
      EXPECT_EQ( differences( wanted, s.answers() ), Lines() ) << room;
   }
}

/** Whoever of the features is made first. */
TEST_P( Chains, AnyOrderOfTheFeaturesComesToTheSameEnd ) {
   WholeSwitch reference( shape() );
   reference.bringUp();
   const auto wanted = reference.answers();
   auto features = QonAgent::agentFeatures();
   std::reverse( features.begin(), features.end() );
   for ( U32 turn = 0; turn < 3; ++turn ) {
      WholeSwitch s( shape(), features );
      s.bringUp();
      EXPECT_EQ( differences( wanted, s.answers() ), Lines() ) << turn;
      std::rotate( features.begin(), features.begin() + 5, features.end() );
   }
}

/** A state is acknowledged when frames meet it, and not before; of an aggregate on every member. */
TEST_P( Chains, AStateIsAcknowledgedWhenFramesMeetIt ) {
   WholeSwitch s( shape() );
   s.bringUp();
   s.chip.latencyIs( 0.05 );
   auto status =
         s.agent.entities().mount< Bridging::Topology::Inst::Status >( Paths::topologyStatus );
   auto acknowledged = [&] {
      return status->topoStatus( "Vlan10" )->topoPortStatus( intf( "Port-Channel7" ) )->state();
   };
   auto passes = [&]( const char * port ) {
      return s.out( port, "dmac=02:00:00:00:00:01,vlan=10" ) != "";
   };
   for ( bool forwards : { false, true, false, true } ) {
      s.eventNow(
            String( R"("event": "portState", "topology": "Vlan10", "intf": "PortChannel7", )" ) +
            R"("state": ")" + ( forwards ? "forwarding" : "blocking" ) + "\"" );
      s.join( forwards ? "Ethernet12" : "Ethernet20" );
      U32 moments = 0;
      for ( ; moments < 100 &&
              ( acknowledged() == Bridging::Topology::PortState::forwarding ) != forwards;
            ++moments ) {
         s.scheduler.runFor( 0.01 );
      }
      EXPECT_GT( moments, 0u );
      EXPECT_LT( moments, 100u );
      EXPECT_EQ( passes( "Ethernet8" ), forwards );
      EXPECT_EQ( passes( "Ethernet16" ), forwards );
   }
}

/** A translation that the chip has no time for is tried again five seconds later, on the member that
    joined and for the whole aggregate. */
TEST_P( Chains, ATranslationThatHadToWaitIsTriedAgain ) {
   WholeSwitch s( shape() );
   s.bringUp();
   s.chip.faults().add( { .hook = "vlanMapping", .trouble = SoftChip::Trouble::busy, .times = 1 } );
   const String mapped = "dmac=02:00:00:00:00:01,vlan=110";
   s.join( "Ethernet12" );
   s.scheduler.runFor( 4.9 );
   EXPECT_EQ( s.out( "Ethernet12", mapped ), "" );
   s.scheduler.runFor( 0.2 );
   EXPECT_EQ( s.spread( "Ethernet12", mapped ), s.spread( "Ethernet8", mapped ) );
   EXPECT_NE( s.out( "Ethernet12", mapped ), "" );
}

INSTANTIATE_TEST_SUITE_P( Kinds, Chains, testing::Values( Kind::topology, Kind::vlan ),
                          []( const auto & info ) { return Kiv::toText( info.param ); } );

} // namespace
