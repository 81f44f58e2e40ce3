// The agent from a switch configuration to the chip, and what it says of the rest.

#include "agent/Show.h"
#include "agent/features/AclFeature.h"
#include "agent/softchip/AclPart.h"
#include "tests/agent/AgentWorld.h"

namespace {

using QonAgent::Row;
using Velto::String;

/** A text field of a row; empty if the row has none of that name. */
String
textOf( const Row & row, const String & field ) {
   for ( auto & [name, value] : row.fields() ) {
      auto text = std::get_if< String >( &value.held() );
      if ( name == field && text ) {
         return *text;
      }
   }
   return {};
}

const char config[] = R"({
   "PORT": { "Ethernet0": {}, "Ethernet4": {}, "Ethernet8": {}, "Ethernet12": {} },
   "PORTCHANNEL": { "PortChannel7": {} },
   "PORTCHANNEL_MEMBER": { "PortChannel7|Ethernet8": {}, "PortChannel7|Ethernet12": {} },
   "VLAN": { "Vlan10": {} },
   "VLAN_MEMBER": { "Vlan10|Ethernet4": { "tagging_mode": "untagged" } },
   "ACL_TABLE_TYPE": { "OWN": { "MATCHES": "SRC_IP,DST_IP,IP_PROTOCOL", "BIND_POINTS": "PORT" },
                       "BOTH": { "MATCHES": ["SRC_IP", "SRC_IPV6"] } },
   "ACL_TABLE": {
      "DATA": { "type": "L3", "ports": ["Ethernet0", "PortChannel7", "Ethernet99"] },
      "DATA6": { "type": "L3V6", "stage": "egress", "ports@": "Ethernet0,Vlan10" },
      "MORE": { "type": "OWN", "stage": "ingress", "ports@": "Ethernet0,Ethernet4" },
      "FRAMES": { "type": "L2", "stage": "ingress", "ports": ["Ethernet4"] },
      "SSH": { "type": "CTRLPLANE" }, "WIDE": { "type": "BOTH" } },
   "ACL_RULE": {
      "DATA|LAST": { "PRIORITY": "1", "PACKET_ACTION": "DROP" },
      "DATA|WEB": { "PRIORITY": "20", "PACKET_ACTION": "FORWARD", "IP_PROTOCOL": "6",
                    "L4_DST_PORT_RANGE": "80-90", "SRC_IP": "10.0.0.0/8", "TCP_FLAGS": "0x2/0x12",
                    "MIRROR_ACTION": "session1" },
      "DATA|HOST": { "priority": "30", "PACKET_ACTION": "DROP", "DST_IP": "10.0.0.3/32" },
      "DATA|DSCP": { "PRIORITY": "9", "PACKET_ACTION": "DROP", "DSCP": "8" },
      "DATA|SIX": { "PRIORITY": "9", "PACKET_ACTION": "DROP", "SRC_IPV6": "1::/64" },
      "DATA|BACK": { "PRIORITY": "9", "PACKET_ACTION": "DROP", "L4_SRC_PORT_RANGE": "9-3" },
      "FRAMES|ARP": { "PRIORITY": "9", "PACKET_ACTION": "DROP", "ETHER_TYPE": "0x0806" },
      "SSH|X": { "PRIORITY": "9", "PACKET_ACTION": "DROP" } },
   "VLAN_SUB_INTERFACE": { "Eth4.10": { "vlan": "100" }, "Ethernet4.10|10.0.0.1/24": {},
                           "Ethernet0.20": {}, "Po99.1": {} }
})";

class AgentAcl : public testing::Test, public Tests::AgentWorld {
 protected:
   /** The warnings that have all of the words. */
   U32 warnings( const QonAgent::ConfigReport & report, std::initializer_list< String > words ) {
      U32 count = 0;
      for ( auto & line : report.warnings ) {
         bool all = true;
         for ( auto & word : words ) {
            all = all && line.find( word ) != String::npos;
         }
         count += all;
      }
      return count;
   }
   std::vector< String > chipLists() {
      std::vector< String > all;
      for ( auto & acl : chip.of< SoftChip::AclPart >().table().held().acls ) {
         String text = acl.name;
         for ( auto & use : acl.uses ) {
            text += " " + use.pair().intfId().stringValue();
         }
         all.push_back( text );
      }
      std::sort( all.begin(), all.end() );
      return all;
   }
};

TEST_F( AgentAcl, FromTheConfigurationToTheChip ) {
   const auto report = load( config );
   EXPECT_EQ( chipLists(),
              ( std::vector< String >{ "DATA Ethernet0 Ethernet8 Ethernet12", "DATA6 Ethernet0",
                                       "DATA6 Vlan10", "FRAMES Ethernet4", "MORE Ethernet4" } ) );
   EXPECT_EQ( warnings( report, { "ACL_TABLE|DATA|ports", "Ethernet99" } ), 1u );
   EXPECT_EQ( warnings( report, { "ACL_TABLE|MORE|ports", "Ethernet0 has DATA" } ), 1u );
   EXPECT_EQ( warnings( report, { "ACL_TABLE|SSH|type", "CTRLPLANE" } ), 1u );
   EXPECT_EQ( warnings( report, { "ACL_TABLE|WIDE" } ), 1u );
   EXPECT_EQ( warnings( report, { "ACL_TABLE_TYPE|BOTH" } ), 1u );
   EXPECT_EQ( warnings( report, { "ACL_RULE|DATA|DSCP|DSCP" } ), 1u );
   EXPECT_EQ( warnings( report, { "ACL_RULE|DATA|SIX" } ), 1u );
   EXPECT_EQ( warnings( report, { "ACL_RULE|DATA|BACK" } ), 1u );
   EXPECT_EQ( warnings( report, { "ACL_RULE|SSH|X", "not used" } ), 1u );
   EXPECT_EQ( warnings( report, { "VLAN_SUB_INTERFACE|Po99.1" } ), 1u );
   EXPECT_EQ( report.warnings.size(), 10u );
}

TEST_F( AgentAcl, RulesInTheOrderOfTheirPriorities ) {
   load( config );
   auto acl =
         agent.entities().mount< Acl::Config >( "acl/config" )->type( Acl::ip() )->acl( "DATA" );
   ASSERT_EQ( acl->rules(), 4u );
   const auto host = acl->rule( 10 ), web = acl->rule( 20 ), last = acl->rule( 30 );
   EXPECT_EQ( host.ip().dst().stringValue(), "10.0.0.3/32" );
   EXPECT_EQ( host.action(), Acl::RuleAction::deny );
   EXPECT_EQ( web.mirrorSession(), "session1" );
   EXPECT_EQ( web.ip().dstPort(), Acl::PortRange( 80, 90 ) );
   EXPECT_EQ( web.ip().tcpFlagsMask(), 0x12 );
   EXPECT_EQ( last.action(), Acl::RuleAction::deny );
   EXPECT_EQ( acl->rule( 40 ).action(), Acl::RuleAction::permit ); // everything else
   auto subIntfs =
         agent.entities().mount< Interface::SubIntfConfigDir >( "interface/config/subintf" );
   EXPECT_EQ( subIntfs->vlan( Tests::intf( "Ethernet4.10" ) ).value(), 100 );
   EXPECT_EQ( subIntfs->vlan( Tests::intf( "Ethernet0.20" ) ).value(), 20 );
}

TEST_F( AgentAcl, ASixthDirectionIsRefused ) {
   const auto report = load(
         R"({ "PORT": { "Ethernet0": {} }, "ACL_TABLE": {
              "A": { "type": "L3", "stage": "ingress", "ports": ["Ethernet0"] },
              "B": { "type": "L3", "stage": "egress", "ports": ["Ethernet0"] },
              "C": { "type": "L2", "stage": "ingress", "ports": ["Ethernet0"] },
              "D": { "type": "L2", "stage": "egress", "ports": ["Ethernet0"] },
              "E": { "type": "L3V6", "stage": "ingress", "ports": ["Ethernet0"] },
              "F": { "type": "L3V6", "stage": "egress", "ports": ["Ethernet0"] } } })" );
   EXPECT_EQ( warnings( report, { "ACL_TABLE|F|stage", "ip ingress", "mac egress" } ), 1u );
   EXPECT_EQ( chipLists().size(), 5u );
}

TEST_F( AgentAcl, WhatTheChipDoesWithAPacket ) {
   load( config );
   auto & table = chip.of< SoftChip::AclPart >().table();
   auto verdict = [&]( const String & intf, const String & packet ) {
      for ( auto & command : agent.showCommands() ) {
         if ( command.name == "hw acl lookup" ) {
            auto made = runShow( agent, command, { "hw", "acl", "lookup", intf, "in", packet } );
            const Row * row = made.next();
            return row ? textOf( *row, "verdict" ) + " " + textOf( *row, "acl" ) : "";
         }
      }
      return String();
   };
   const String web = "src=10.1.1.1,dst=10.0.0.9,protocol=6,flags=2,";
   EXPECT_EQ( verdict( "Ethernet0", web + "dport=85" ), "permit DATA" );
   EXPECT_EQ( verdict( "Ethernet0", web + "dport=91" ), "deny DATA" );
   EXPECT_EQ( verdict( "Ethernet0", web + "fragment=1" ), "permit DATA" ); // shows no ports
   EXPECT_EQ( verdict( "Ethernet8", "src=10.1.1.1,dst=10.0.0.3" ), "deny DATA" );
   EXPECT_EQ( verdict( "Ethernet0", "src=1::1,dst=1::2" ), "no list " );
   EXPECT_EQ( verdict( "Ethernet4", "smac=00:00:00:00:00:01,ethertype=2054" ), "deny FRAMES" );
   EXPECT_THROW( verdict( "Ethernet4", "colour=3" ), Velto::RangeError );
   EXPECT_THROW( verdict( "Ethernet4", "dport=70000" ), Velto::RangeError );
   table.block( Tests::intf( "Ethernet4" ), true );
   EXPECT_EQ( verdict( "Ethernet4", "src=10.1.1.1,dst=10.0.0.3" ), "blocked " );
   const SoftChip::Frame frame{
         Tests::intf( "Ethernet4" ), Ulnet::EthAddr( 2 ), Ulnet::EthAddr( 4 ), {} };
   EXPECT_NE( chip.forward( frame ).steps.back().what.find( "blocked" ), String::npos );
}

TEST_F( AgentAcl, UnitsThatFailAndPassesThatWait ) {
   auto & part = chip.of< SoftChip::AclPart >();
   auto limits = part.table().limits();
   limits.asyncBlock = true;
   part.table().limitsAre( limits );
   load( config );
   auto column = [&]( const String & name, const String & key, const String & field ) {
      std::map< String, String > all;
      for ( auto & command : agent.showCommands() ) {
         if ( command.name == name ) {
            auto made = runShow( agent, command, Kiv::split( name, ' ' ) );
            while ( const Row * row = made.next() ) {
               all[textOf( *row, key )] = textOf( *row, field );
            }
         }
      }
      return all;
   };
   auto data =
         agent.entities().mount< Acl::Config >( "acl/config" )->type( Acl::ip() )->acl( "DATA" );
   using Texts = std::map< String, String >;
   EXPECT_EQ( column( "resources acl", "unit", "error" ),
              ( Texts{ { "Chip0", "" }, { "Chip1", "" } } ) );
   part.latencyIs( Kiv::never );
   data->ruleDel( 10 );
   scheduler.settle();
   EXPECT_EQ( column( "acl", "acl", "waits" )["DATA"],
              "the block of Ethernet0 Ethernet8 Ethernet12" );
   part.latencyIs( 0 );
   part.table().blockCompletions().finishAll();
   chip.faults().add( { "prepareAcl", SoftChip::Trouble::full } );
   scheduler.settle();
   const String full = "Out of TCAM entries on Chip0";
   EXPECT_EQ( column( "resources acl", "unit", "error" )["Chip0"], full );
   EXPECT_EQ( column( "resources acl", "unit", "lists" )["Chip0"], "DATA" );
   scheduler.runUntil( Kiv::now() + 7 );
   EXPECT_EQ( column( "acl", "acl", "programmed" )["DATA"],
              "former rules; Chip0: " + full + ", for 7 s" );
   chip.faults().unitLostIs( "Chip1", true );
   EXPECT_EQ( column( "resources acl", "unit", "state" )["Chip1"], "not there" );
}

TEST_F( AgentAcl, WhatItWaitsFor ) {
   load( config );
   auto attach = agent.entities().mount< Acl::IntfConfig >( "acl/intf/config" );
   auto intfs = attach->typeIs( Acl::ip() )->directionIs( Acl::AclDirection::in );
   intfs->intfIs( Tests::intf( "Ethernet8" ), "DATA" );
   intfs->intfIs( Tests::intf( "Tunnel1" ), "NONE" );
   intfs->intfIs( Tests::intf( "Port-Channel9" ), "DATA" );
   scheduler.settle();
   std::map< String, String > waits;
   for ( auto & command : agent.showCommands() ) {
      if ( command.name == "acl" || command.name == "acl rules" || command.name == "hw acl" ) {
         std::vector< String > words = Kiv::split( command.name, ' ' );
         if ( command.name == "acl rules" ) {
            words.push_back( "DATA" );
         }
         U32 rows = 0;
         auto made = runShow( agent, command, words );
         while ( const Row * row = made.next() ) {
            ++rows;
            if ( command.name == "acl" && textOf( *row, "type" ) == "ip" ) {
               waits[textOf( *row, "interface" )] = textOf( *row, "waits" );
            }
         }
         EXPECT_GT( rows, 4u ) << command.name;
      }
   }
   EXPECT_EQ( waits["Ethernet0"], "" );
   EXPECT_EQ( waits["Ethernet8"], "the end of its membership in PortChannel7" );
   EXPECT_EQ( waits["Tunnel1"], "the list" );
   EXPECT_EQ( waits["PortChannel9"], "a member" );
}

} // namespace
