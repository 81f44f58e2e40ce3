// The agent from a switch configuration to the copies that leave the chip.

#include <nlohmann/json.hpp>

#include "Qon/include/framework/HookTap.h"
#include "agent/ConfigReader.h"
#include "agent/server/Console.h"
#include "agent/softchip/Chip.h"
#include "agent/softchip/MirrorPart.h"
#include "platform/types/Paths.h"
#include "tests/harness/World.h"

namespace {

using QonAgent::Json;
using SoftChip::Copy;
using Tests::intf;
using Tests::String;

const char config[] = R"({
   "PORT": { "Ethernet0": {}, "Ethernet4": {}, "Ethernet8": {}, "Ethernet12": {}, "Ethernet16": {},
             "Ethernet20": {} },
   "PORTCHANNEL": { "PortChannel7": {} },
   "PORTCHANNEL_MEMBER": { "PortChannel7|Ethernet8": {}, "PortChannel7|Ethernet12": {} },
   "VLAN": { "Vlan10": {} },
   "VLAN_MEMBER": { "Vlan10|Ethernet0": { "tagging_mode": "tagged" },
                    "Vlan10|Ethernet4": { "tagging_mode": "tagged" } },
   "MIRROR_SESSION": {
      "span": { "type": "SPAN", "dst_port": "PortChannel7", "src_port": "Ethernet0,Ethernet4",
                "direction": "RX" },
      "both": { "dst_port": "Ethernet16", "src_port": [ "Ethernet4" ] },
      "tunnel": { "src_ip": "10.0.0.1", "dst_ip": "10.0.0.2", "gre_type": "0x8949", "dscp": "8",
                  "ttl": "9", "src_port@": "Ethernet0", "sample_rate": "50000",
                  "truncate_size": "128", "direction": "TX" },
      "nowhere": { "src_port": "Ethernet0" },
      "badTtl": { "src_ip": "10.0.0.1", "dst_ip": "10.0.0.2", "ttl": "300" },
      "badType": { "src_ip": "10.0.0.1", "dst_ip": "10.0.0.2", "gre_type": "0x10000" },
      "mixed": { "src_ip": "10.0.0.1", "dst_ip": "2001:db8::1" },
      "noPort": { "dst_port": "Ethernet99" },
      "badWay": { "dst_port": "Ethernet0", "direction": "UP" } }
})";

struct AgentWorld {
   QonAgent::ConfigReport load( const String & text ) {
      auto db = QonAgent::ConfigDb::parse( "x.json", text );
      return QonAgent::ConfigReader( agent, db ).load();
   }
   Kiv::VirtualScheduler scheduler;
   Kiv::LogRecorder logs;
   SoftChip::Chip chip{ scheduler };
   QonAgent::Agent agent{ scheduler, chip };
};

class AgentMirrorTest : public testing::Test {
 protected:
   void event( const String & text ) {
      const Json line = Json::parse( "{" + text + "}" );
      for ( auto & kind : world->agent.eventKinds() ) {
         if ( kind.name == line.at( "event" ) ) {
            kind.parse( line )();
            world->scheduler.runFor( 1 );
            return;
         }
      }
      FAIL() << text;
   }
   Json show( const std::vector< String > & words ) {
      const Json answer =
            QonAgent::Console( world->agent ).answer( { { "do", "show" }, { "words", words } } );
      return answer.contains( "rows" ) ? answer["rows"] : answer["error"];
   }
   /** "group span 0", "destination span Ethernet8 programmed", ... */
   std::vector< String > lines( const std::vector< String > & words ) {
      std::vector< String > all;
      for ( auto & row : show( words ) ) {
         String line;
         for ( const char * field : { "session", "group", "role", "interface", "state", "why" } ) {
            if ( row.contains( field ) && !row[field].is_null() && row[field] != "" ) {
               line += ( line.empty() ? "" : " " ) +
                       ( row[field].is_string() ? row[field].get< String >() : row[field].dump() );
            }
         }
         all.push_back( line );
      }
      return all;
   }
   std::vector< Copy > copies( const String & from, const String & to ) {
      return world->chip
            .forward( { intf( from ), Ulnet::EthAddr( to ), Ulnet::EthAddr( 0x02 ),
                        Bridging::VlanIdOrNone( Bridging::VlanId( 10 ) ) } )
            .copies;
   }

   std::unique_ptr< AgentWorld > world = std::make_unique< AgentWorld >();
};

TEST_F( AgentMirrorTest, FromTheTableToTheCopies ) {
   auto report = world->load( config );
   world->agent.inputsRead();
   EXPECT_EQ( report.warnings.size(), 6u );
   auto named = [&]( const String & place ) {
      return std::any_of( report.warnings.begin(), report.warnings.end(), [&]( auto & line ) {
         return line.find( "MIRROR_SESSION|" + place ) != String::npos;
      } );
   };
   EXPECT_TRUE( named( "nowhere|dst_port" ) && named( "badTtl|ttl" ) &&
                named( "badType|gre_type" ) && named( "mixed|dst_ip" ) &&
                named( "noPort|dst_port" ) && named( "badWay|direction" ) );
   world->scheduler.runFor( 1 );
   EXPECT_EQ( lines( { "mirror" } ),
              ( std::vector< String >{
                    "span 0 programmed",
                    "span destination Ethernet8 programmed",
                    "span destination Ethernet12 programmed",
                    "span source Ethernet0 programmed",
                    "span source Ethernet4 programmed",
                    "both 1 programmed",
                    "both destination Ethernet16 programmed",
                    "both source Ethernet4 programmed",
                    "tunnel 2 waiting no destination is in hardware",
                    "tunnel tunnel 10.0.0.2 waiting the far end is not resolved",
                    "tunnel source Ethernet0 waiting the session is not in hardware",
              } ) );
   event( R"("event": "tunnel", "dst": "10.0.0.2", "intf": "Ethernet20")" );
   auto & held = world->chip.of< SoftChip::MirrorPart >().table().sessions().at( "tunnel" );
   EXPECT_EQ( held.tunnel.greProtocol(), 0x8949 );
   EXPECT_EQ( held.tunnel.dscp(), 8 );
   EXPECT_EQ( held.attributes.truncationSize(), 128 );
   EXPECT_EQ( held.attributes.rxSampleRate(), 50000u );
   EXPECT_EQ( lines( { "mirror", "tunnel" } )[1], "tunnel tunnel 10.0.0.2 programmed" );
   EXPECT_EQ( show( { "mirror", "absent" } ), "there is no mirror session 'absent'" );
   EXPECT_EQ( lines( { "hw", "mirror" } ).size(), 8u );

   // From Ethernet4 to Ethernet0: mirrored as it comes in, and as it leaves.
   event( R"("event": "mac", "op": "add", "vlan": 10, "mac": "02:11:22:00:00:01", )"
          R"("intf": "Ethernet0")" );
   std::set< Ulnet::IntfId > out;
   for ( auto & copy : copies( "Ethernet4", "02:11:22:00:00:01" ) ) {
      out.insert( copy.port );
   }
   EXPECT_EQ( out.erase( intf( "Ethernet12" ) ) + out.erase( intf( "Ethernet16" ) ),
              1u ); // members
   EXPECT_EQ( out, ( std::set{ intf( "Ethernet0" ), intf( "Ethernet8" ), intf( "Ethernet20" ) } ) );
}

/** A list decides frame by frame what of a source is copied; without room for it, nothing is. */
TEST_F( AgentMirrorTest, AFilterTakesWhatItsListPermits ) {
   world->load( config );
   world->agent.inputsRead();
   auto list = world->agent.entities()
                     .mount< Acl::Config >( "acl/config" )
                     ->typeIs( Acl::AclType::mac )
                     ->aclIs( "some" );
   auto rule = [&]( U32 number, Acl::RuleAction action, const String & to ) {
      Acl::Rule made;
      made.seqIs( number );
      made.actionIs( action );
      Acl::MacFilter filter;
      filter.dstIs(
            Ulnet::EthAddrWithMask( Ulnet::EthAddr( to ), Ulnet::EthAddr( "ff:ff:ff:ff:ff:ff" ) ) );
      made.macIs( filter );
      list->ruleIs( number, made );
   };
   rule( 10, Acl::RuleAction::deny, "02:11:22:00:00:02" );
   rule( 20, Acl::RuleAction::permit, "02:11:22:00:00:01" );
   rule( 30, Acl::RuleAction::permit, "02:11:22:00:00:02" );
   event( R"("event": "mirrorFilter", "session": "span", "intf": "Ethernet0", "acl": "some", )"
          R"("type": "mac")" );
   auto taken = [&]( const String & to ) {
      auto all = copies( "Ethernet0", to );
      return std::any_of( all.begin(), all.end(), []( const Copy & copy ) { // by either member
         return copy.port == intf( "Ethernet8" ) || copy.port == intf( "Ethernet12" );
      } );
   };
   EXPECT_TRUE( taken( "02:11:22:00:00:01" ) );
   EXPECT_FALSE( taken( "02:11:22:00:00:02" ) ); // denied before it is permitted
   EXPECT_FALSE( taken( "02:11:22:00:00:03" ) );
   rule( 5, Acl::RuleAction::permit, "02:11:22:00:00:03" );
   list->versionIs( 2 );
   world->scheduler.runFor( 1 );
   EXPECT_TRUE( taken( "02:11:22:00:00:03" ) );
   world->chip.faults().limitIs( "mirrorFilters", 0 );
   list->versionIs( 3 );
   world->scheduler.runFor( 1 );
   EXPECT_FALSE( taken( "02:11:22:00:00:01" ) );
}

/** How often a hook was called. */
struct HookCalls : Qon::HookListener {
   explicit HookCalls( const char * name ) : hook( String( "MirroringSmHelper::" ) + name ) {}
   void hookCalled( const char * called, const String & ) override { count += hook == called; }
   const String hook;
   U32 count = 0;
};

TEST_F( AgentMirrorTest, WhyNotAndSinceWhen ) {
   world->load( config );
   world->agent.inputsRead();
   world->scheduler.runFor( 4 );
   event( R"("event": "forwardingMode", "mode": "cutThrough")" );
   event( R"("event": "mirrorFilter", "session": "span", "intf": "Ethernet0", "acl": "web")" );
   EXPECT_EQ( lines( { "mirror", "both" } )[2],
              "both source Ethernet4 over limit both directions to one port in cut-through mode" );
   EXPECT_EQ( lines( { "mirror", "span" } )[3],
              "span source Ethernet0 failed its access list is not there" );
   EXPECT_THROW( event( R"("event": "mirrorFilter", "session": "span", "intf": "Ethernet0", )"
                        R"("acl": "web", "type": "7")" ),
                 Velto::RangeError );
   const HookCalls counters( "updateCounters" );
   world->scheduler.runFor( 2 );
   const Json rows = show( { "mirror", "both" } );
   EXPECT_EQ( counters.count, 1u );                         // read for whoever looks
   EXPECT_GE( rows[0]["since"].get< double >(), 8 );        // all the time
   EXPECT_NEAR( rows[2]["since"].get< double >(), 4, 0.5 ); // since the mode
   auto sessions = world->agent.entities().mount< Mirroring::Config >( "mirroring/config" );
   sessions->sessionIs( "fourth" ); // more of them than groups
   sessions->sessionIs( "fifth" );
   EXPECT_EQ( lines( { "mirror", "fifth" } )[0],
              "fifth waiting place 1 of those that wait for a group" );
}

/** What a snapshot tells of the hardware is of another day; the chip is asked. */
TEST_F( AgentMirrorTest, WhatTheChipDoesNotHoldIsMade ) {
   world->load( config );
   auto hw = world->agent.entities().mount< Mirroring::HwStatus >( Paths::hardwareMirroringStatus );
   hw->sessionIs( "both" )->mirrorGroupIs( 3 );
   hw->session( "both" )->targetIntfIs( intf( "Ethernet16" ) );
   world->agent.inputsRead();
   world->scheduler.runFor( 1 );
   auto held = world->chip.part< QonChip::MirrorPart >()->mirrors();
   EXPECT_EQ( held->at( "both" ).targets, std::set{ intf( "Ethernet16" ) } );
   EXPECT_EQ( held->at( "both" ).sources.size(), 1u );
}

TEST_F( AgentMirrorTest, AnAgentThatStartsAgainFindsItsSessions ) {
   Kiv::VirtualScheduler scheduler;
   SoftChip::Chip chip( scheduler );
   auto load = [&]( QonAgent::Agent & agent ) {
      auto db = QonAgent::ConfigDb::parse( "x.json", config );
      QonAgent::ConfigReader( agent, db ).load();
      agent.inputsRead();
      scheduler.runFor( 1 );
   };
   HookCalls creations( "createMirror" );
   auto & part = *chip.part< QonChip::MirrorPart >();
   QonChip::HeldMirrors before;
   {
      QonAgent::Agent first( scheduler, chip );
      load( first );
      before = *part.mirrors();
      EXPECT_EQ( before.size(), 2u );
   }
   EXPECT_EQ( *part.mirrors(), before );
   EXPECT_EQ( creations.count, 3u );
   QonAgent::Agent second( scheduler, chip );
   load( second );
   EXPECT_EQ( *part.mirrors(), before );
   EXPECT_EQ( creations.count, 3u ); // none was touched
}

} // namespace
