// ConfigDB files: what loads, what is skipped with which line, and what stops everything.

#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "tests/agent/AgentWorld.h"

namespace Tests {

namespace {

using QonAgent::ConfigDb;
using QonAgent::ConfigError;
using QonAgent::IntfNames;

const char twoPorts[] = R"("PORT": {"Ethernet0": {}, "Ethernet4": {"speed": 40000}})";
const char oneChannel[] = R"("PORTCHANNEL": {"PortChannel7": {}})";

String
file( const Lines & tables ) {
   String all;
   for ( auto & table : tables ) {
      all += ( all.empty() ? "" : ", " ) + table;
   }
   return "{" + all + "}";
}

String
refusal( const String & text ) {
   try {
      ConfigDb::parse( "x.json", text );
   } catch ( const ConfigError & e ) {
      return e.what();
   }
   return "";
}

TEST( ConfigDb, PortsChannelsAndMembersReachTheMapsOfAllFeatures ) {
   AgentWorld w;
   auto report = w.load( file( { twoPorts, R"("PORTCHANNEL": {"PortChannel0001": {}})",
                                 R"("PORTCHANNEL_MEMBER": {"PortChannel0001|Ethernet4": {}})" } ) );
   EXPECT_EQ( report.warnings, Lines() );
   EXPECT_EQ( report.notes, Lines() );
   EXPECT_EQ( report.rows, 4u );
   EXPECT_EQ( w.acsd().portToLag( intf( "Ethernet4" ) ), intf( "Port-Channel1" ) );
   EXPECT_TRUE( w.acsd().lagToPort( intf( "Port-Channel1" ) ).portHas( intf( "Ethernet4" ) ) );
   EXPECT_EQ( w.acsd().intfs(), 2u );
   auto & entities = w.agent.entities();
   EXPECT_EQ( entities.get( "interface/status/eth/lag/intfStatus[Port-Channel1]/deviceName" ),
              "PortChannel0001" );
   EXPECT_EQ( entities.get( "interface/status/eth/phy/intfStatus[Ethernet4]/speed" ),
              "speed40Gbps" );
}

struct SkippedCase {
   const char * what;
   String text;
   Lines warnings;
};

const SkippedCase skippedCases[] = {
      { "a member that names no port",
        file( { twoPorts, oneChannel,
                R"("PORTCHANNEL_MEMBER": {"PortChannel7|Ethernet99": {},
                                             "PortChannel7|Ethernet0": {}})" } ),
        { "x.json: PORTCHANNEL_MEMBER|PortChannel7|Ethernet99: 'Ethernet99' names no port of "
          "table PORT; row skipped" } },
      { "a member of no port-channel",
        file( { twoPorts, R"("PORTCHANNEL_MEMBER": {"PortChannel8|Ethernet0": {}})" } ),
        { "x.json: PORTCHANNEL_MEMBER|PortChannel8|Ethernet0: 'PortChannel8' names no "
          "port-channel of table PORTCHANNEL; row skipped" } },
      { "a port in two port-channels",
        file( { twoPorts, R"("PORTCHANNEL": {"PortChannel7": {}, "PortChannel8": {}})",
                R"("PORTCHANNEL_MEMBER": {"PortChannel7|Ethernet0": {},
                                             "PortChannel8|Ethernet0": {}})" } ),
        { "x.json: PORTCHANNEL_MEMBER|PortChannel8|Ethernet0: Ethernet0 is a member of "
          "PortChannel7 already; row skipped" } },
      { "names that cannot be parsed",
        R"({"PORT": {"Ethernet": {}, "Ethernet0.": {}, "": {}, "Ethernet99999999": {}}})",
        { "x.json: PORT|Ethernet: expected an interface name such as Ethernet0 or "
          "PortChannel12, found 'Ethernet'; row skipped",
          "x.json: PORT|Ethernet0.: expected an interface name such as Ethernet0 or "
          "PortChannel12, found 'Ethernet0.'; row skipped",
          "x.json: PORT|: expected an interface name such as Ethernet0 or PortChannel12, found "
          "''; row skipped",
          "x.json: PORT|Ethernet99999999: expected an interface name such as Ethernet0 or "
          "PortChannel12, found 'Ethernet99999999'; row skipped" } },
      { "keys of another shape",
        file( { R"("PORT": {"Ethernet0|x": {}})",
                R"("PORTCHANNEL_MEMBER": {"PortChannel7": {}})" } ),
        { "x.json: PORT|Ethernet0|x: expected a key of 1 part, found 2; row skipped",
          "x.json: PORTCHANNEL_MEMBER|PortChannel7: expected a key of 2 parts with '|' "
          "between, found 1; row skipped" } },
      { "fields of wrong types and values",
        R"({"PORT": {"Ethernet0": {"speed": "fast"}, "Ethernet1": {"speed": [1]},
                        "Ethernet2": {"admin_status": "maybe"}, "Ethernet3": {"speed": {}},
                        "Ethernet4": {"speed": -1}, "Ethernet5": {"speed": 99999999}}})",
        { "x.json: PORT|Ethernet0|speed: expected a number from 0 to 4000000, found 'fast'; "
          "row skipped",
          "x.json: PORT|Ethernet1|speed: expected a number from 0 to 4000000, found a list; "
          "row skipped",
          "x.json: PORT|Ethernet2|admin_status: expected down or up, found 'maybe'; row skipped",
          "x.json: PORT|Ethernet3|speed: expected a number from 0 to 4000000, found an object; "
          "row skipped",
          "x.json: PORT|Ethernet4|speed: expected a number from 0 to 4000000, found '-1'; row "
          "skipped",
          "x.json: PORT|Ethernet5|speed: expected a number from 0 to 4000000, found "
          "'99999999'; row skipped" } },
      { "tables and rows that are no objects",
        R"({"VLAN": 7, "PORT": {"Ethernet0": "up", "Ethernet4": ["x", {"y": [1]}]}})",
        { "x.json: VLAN: expected an object of rows, found a number; table skipped",
          "x.json: PORT|Ethernet0: expected an object of fields, found a text; row skipped",
          "x.json: PORT|Ethernet4: expected an object of fields, found an array; row "
          "skipped" } },
      { "what stands twice",
        R"({"PORT": {"Ethernet0": {"speed": 1, "speed": 2}, "Ethernet0": {}},
               "PORTCHANNEL": {"PortChannel1": {}}, "PORTCHANNEL": {}})",
        { "x.json: PORT|Ethernet0|speed: stands twice in the file, the last one counts",
          "x.json: PORT|Ethernet0: stands twice in the file, the last one counts",
          "x.json: PORTCHANNEL: stands twice in the file, the last one counts" } },
      { "a port-channel that is none",
        R"({"PORTCHANNEL": {"Vlan7": {}}})",
        { "x.json: PORTCHANNEL|Vlan7: 'Vlan7' is not the name of a port-channel; row "
          "skipped" } },
};

TEST( ConfigDb, OneLinePerWrongRowAndTheRestIsUsed ) {
   for ( auto & c : skippedCases ) {
      AgentWorld w;
      EXPECT_EQ( w.load( c.text ).warnings, c.warnings ) << c.what;
   }
   AgentWorld w;
   w.load( skippedCases[0].text );
   EXPECT_TRUE( w.acsd().portToLagHas( intf( "Ethernet0" ) ) );
   EXPECT_FALSE( w.acsd().portToLagHas( intf( "Ethernet99" ) ) );
}

TEST( ConfigDb, WhatCannotBeUsedAtAllIsOneLineWithThePlace ) {
   EXPECT_EQ( refusal( "" ), "x.json: is empty, an object of tables was expected" );
   EXPECT_EQ( refusal( " \n\t" ), "x.json: is empty, an object of tables was expected" );
   EXPECT_EQ( refusal( "[]" ), "x.json: expected an object of tables, found an array" );
   EXPECT_EQ( refusal( "17" ), "x.json: expected an object of tables, found a number" );
   EXPECT_EQ( refusal( "{\n \"PORT\": {\n  \"Ether" ),
              "x.json:3:8: not valid JSON: it ends too early" );
   EXPECT_EQ( refusal( "{\"PORT\": {}} x" ).substr( 0, 29 ), "x.json:1:14: not valid JSON: " );
   EXPECT_EQ( refusal( "port 1\nport 2\n" ).substr( 0, 28 ), "x.json:1:1: not valid JSON: " );
   for ( auto text :
         { "{\"a\":", "{]", "{\"PORT\": {\"\xff\": {}}}", "{\"PORT\": {} \"X\": {}}" } ) {
      String line = refusal( text );
      EXPECT_NE( line.find( "not valid JSON" ), String::npos ) << text;
      EXPECT_EQ( line.find( '\n' ), String::npos ) << text;
   }
   // However deep and long, one line.
   EXPECT_NE( refusal( String( 100000, '[' ) ), "" );
   EXPECT_LT( refusal( "{\"" + String( 1 << 20, 'x' ) ).size(), 300u );
}

TEST( ConfigDb, FilesThatCannotBeRead ) {
   auto why = []( const String & name ) -> String {
      try {
         ConfigDb::read( name );
      } catch ( const ConfigError & e ) {
         return e.what();
      }
      return "";
   };
   EXPECT_EQ( why( "no/such/file" ), "no/such/file: cannot be read: No such file or directory" );
   EXPECT_EQ( why( "tests" ), "tests: is a directory, a file was expected" );
}

TEST( ConfigDb, TheFormatsVariants ) {
   AgentWorld w;
   auto report = w.load( R"({
      "PORT": {"Ethernet0": {"NULL": "NULL"}, "Ethernet1": null, "Ethernet2": {"mtu": 9100},
               "Ethernet3": {"ADMIN_STATUS": "DOWN", "speed": null, "index": 1.5e3}},
      "PORTCHANNEL": {"PortChannel1": {"members@": "Ethernet0, Ethernet1,"},
                      "PortChannel2": {"members": ["Ethernet2"], "fallback": true},
                      "PortChannel3": {"static": "TRUE", "admin_status": "down"}},
      "PORTCHANNEL_MEMBER": {"PortChannel1|Ethernet0": {}, "PortChannel3|Ethernet3": {}},
      "LOOPBACK_INTERFACE": {"Loopback0|FC00:1::32/128": {}}, "VLAN_NEW": {}})" );
   EXPECT_EQ( report.warnings, Lines() );
   EXPECT_EQ( report.notes, ( Lines{ "x.json: LOOPBACK_INTERFACE: table not known, 1 row skipped",
                                     "x.json: VLAN_NEW: table not known, 0 rows skipped" } ) );
   for ( auto [port, lag] :
         { std::pair( "Ethernet0", "Port-Channel1" ), std::pair( "Ethernet1", "Port-Channel1" ),
           std::pair( "Ethernet2", "Port-Channel2" ),
           std::pair( "Ethernet3", "Port-Channel3" ) } ) {
      EXPECT_EQ( w.acsd().portToLag( intf( port ) ), intf( lag ) ) << port;
   }
   auto & entities = w.agent.entities();
   EXPECT_EQ( entities.get( "interface/status/eth/phy/intfStatus[Ethernet3]/linkUp" ), "False" );
   EXPECT_EQ( entities.get( "interface/config/eth/lag/intfConfig[Ethernet3]/mode" ), "on" );
   EXPECT_EQ( entities.get( "interface/config/eth/lag/intfConfig[Ethernet2]/mode" ), "active" );
   EXPECT_FALSE(
         w.acsd().lagToPort( intf( "Port-Channel3" ) ).port( intf( "Ethernet3" ) ).collecting() );
}

TEST( ConfigDb, TheLastOfWhatStandsTwiceCountsAloneAndSkippingEndsWhereItShould ) {
   auto rows = []( const String & table ) {
      return ConfigDb::parse( "x.json", "{" + table + "}" ).rows( "T" );
   };
   auto twice = rows( R"("T": {"a": {"x": 1, "y": 2}, "a": {"y": 3}})" );
   ASSERT_EQ( twice.size(), 1u );
   EXPECT_EQ( twice[0].text( "x", "absent" ), "absent" );
   EXPECT_EQ( twice[0].text( "y" ), "3" );
   EXPECT_EQ( rows( R"("T": {"a": {}}, "T": {"b": {}})" ).front().key(), "b" );
   String many; // of which the first comes again at the end
   for ( U32 n = 0; n < 300; ++n ) {
      many += "\"" + std::to_string( n ) + "\": {\"n\": " + std::to_string( n ) + "}, ";
   }
   auto all = rows( "\"T\": {" + many + R"("0": {"n": "again"}, "last": {"n": "end"}})" );
   ASSERT_EQ( all.size(), 301u );
   EXPECT_EQ( all[0].text( "n" ) + all[299].text( "n" ) + all[300].text( "n" ), "again299end" );
   auto nested = rows( R"("T": {"a": {"x": {"y": {"z": [1]}}, "l": ["p", {"q": [{}]}], "n": 4},
                                "b": [{"c": {}}], "d": {"n": 5}})" );
   ASSERT_EQ( nested.size(), 2u );
   EXPECT_EQ( nested[0].text( "n" ), "4" );
   EXPECT_EQ( nested[1].text( "n" ), "5" );
}

TEST( ConfigDb, NumbersAreWholeAndWithinTheirBounds ) {
   auto row = ConfigDb::parse( "x.json", R"({"T": {"a": {"Speed": 1, "speed": "10", "unit": "10G",
         "part": 10.5, "blank": " 10", "none": ""}}})" )
                    .rows( "T" )
                    .front();
   EXPECT_EQ( row.number( "speed", 10, 10, 0 ), 10u ); // the field itself, not one in other letters
   EXPECT_EQ( row.number( "absent", 1, 2, 77 ), 77u );
   EXPECT_THROW( row.number( "speed", 11, 20, 0 ), QonAgent::RowError );
   EXPECT_THROW( row.number( "speed", 0, 9, 0 ), QonAgent::RowError );
   for ( auto field : { "unit", "part", "blank", "none" } ) {
      EXPECT_THROW( row.number( field, 0, 1000, 0 ), QonAgent::RowError ) << field;
   }
}

TEST( ConfigDb, WordsAreThoseThatAreKnown ) {
   auto row = ConfigDb::parse( "x.json", R"({"T": {"a": {"on": "On", "off": "0", "maybe": "maybe",
         "list": ["on"], "object": {}, "red": "RED", "pink": "pink"}}})" )
                    .rows( "T" )
                    .front();
   const std::vector< String > colours{ "blue", "red" };
   EXPECT_TRUE( row.flag( "on", false ) && !row.flag( "off", true ) && row.flag( "absent", true ) );
   EXPECT_EQ( row.word( "red", colours, 0 ), 1u );
   EXPECT_EQ( row.word( "absent", colours, 7 ), 7u );
   EXPECT_EQ( row.list( "list" ), Lines{ "on" } );
   for ( auto field : { "maybe", "list", "object" } ) {
      EXPECT_THROW( row.flag( field, false ), QonAgent::RowError ) << field;
   }
   for ( auto field : { "pink", "list", "object" } ) {
      EXPECT_THROW( row.word( field, colours, 0 ), QonAgent::RowError ) << field;
   }
   EXPECT_THROW( row.list( "object" ), QonAgent::RowError );
   EXPECT_EQ( row.text( "maybe" ), "maybe" );
   for ( auto field : { "list", "object" } ) {
      EXPECT_THROW( row.text( field ), QonAgent::RowError ) << field;
   }
}

TEST( IntfNames, EveryNameOfAFileHasItsWayBack ) {
   Lines all = {
         "PortChannel0001", "PortChannel1", "PortChannel01", "PortChannel12", "PortChannel0",
         "PortChannel0012", "Ethernet0",    "Ethernet100",   "Ethernet1/2",   "Ethernet-BP4",
         "Ethernet-Rec0",   "Vlan1000",     "Loopback0",     "eth0" };
   IntfNames names;
   names.define( all );
   std::set< Ulnet::IntfId > seen;
   for ( auto & name : all ) {
      EXPECT_EQ( names.spelling( names.intf( name ) ), name );
      EXPECT_TRUE( seen.insert( names.intf( name ) ).second ) << name;
   }
   names.define( { "PortChannel0001", "PortChannel01" } ); // again: each keeps what it is
   EXPECT_EQ( seen.count( names.intf( "PortChannel01" ) ), 1u );
   EXPECT_EQ( names.intf( "PortChannel1" ), intf( "Port-Channel1" ) );
   EXPECT_EQ( names.intf( "PortChannel0001" ), intf( "Port-Channel40001" ) );
   // Names that the file does not define, and what the format would call an interface.
   for ( auto [theirs, ours] :
         { std::pair( "Eth36.10", "Ethernet36.10" ), std::pair( "Ethernet36.10", "Ethernet36.10" ),
           std::pair( "Po5.7", "Port-Channel5.7" ), std::pair( "PortChannel0009", "Port-Channel9" ),
           std::pair( "Vlan10", "Vlan10" ) } ) {
      EXPECT_EQ( names.intf( theirs ), intf( ours ) ) << theirs;
   }
   EXPECT_EQ( names.spelling( intf( "Port-Channel99" ) ), "PortChannel99" );
   EXPECT_EQ( names.spelling( intf( "Ethernet36.10" ) ), "Ethernet36.10" );
   EXPECT_EQ( names.spelling( Ulnet::IntfId() ), "" );
   EXPECT_EQ( names.typed( "Port-Channel12" ), names.typed( "PortChannel12" ) );
   for ( auto none : { "Port-Channel1", "Eth36", "ethernet0", "Vlan5000", "Ethernet0 ", "Po5" } ) {
      EXPECT_THROW( names.intf( none ), Velto::RangeError ) << none;
   }
}

} // namespace

} // namespace Tests
