// Loading a switch configuration of 512 ports, 64 port-channels of 4 members, 4,094 VLANs and a
// member in each: parsing alone, and all the way into a running agent. The floor, in the same run,
// is the parser of JSON that keeps nothing.

#include <benchmark/benchmark.h>

#include <nlohmann/json.hpp>

#include "agent/Agent.h"
#include "agent/ConfigReader.h"
#include "agent/softchip/Chip.h"
#include "platform/Kiv/TaskScheduler.h"

namespace {

using Velto::String;

constexpr U32 ports = 512;
constexpr U32 channels = 64;
constexpr U32 vlans = 4094;

String
number( U32 n ) {
   return std::to_string( n );
}

/** A table of `rows` rows, each of which `row` writes. */
template< class Row >
String
table( const String & name, U32 rows, Row row ) {
   String text = "\"" + name + "\": {";
   for ( U32 i = 0; i < rows; ++i ) {
      text += ( i ? ",\n" : "\n" ) + row( i );
   }
   return text + "}";
}

const String &
configuration() {
   static const String text = [] {
      auto port = []( U32 i ) {
         return "\"Ethernet" + number( i ) + R"(": {"admin_status": "up", "speed": "25000", )" +
                R"("mtu": "9100", "lanes": ")" + number( i + 1 ) + "\"}";
      };
      auto channel = []( U32 i ) {
         return "\"PortChannel" + number( i + 1 ) + R"(": {"admin_status": "up", "mtu": "9100"})";
      };
      auto member = []( U32 i ) {
         return "\"PortChannel" + number( i / 4 + 1 ) + "|Ethernet" + number( i ) + "\": {}";
      };
      auto vlan = []( U32 i ) {
         return "\"Vlan" + number( i + 1 ) + R"(": {"vlanid": ")" + number( i + 1 ) + "\"}";
      };
      auto vlanMember = []( U32 i ) {
         return "\"Vlan" + number( i + 1 ) + "|Ethernet" + number( 256 + i % 256 ) +
                R"(": {"tagging_mode": "tagged"})";
      };
      return "{" + table( "PORT", ports, port ) + ",\n" +
             table( "PORTCHANNEL", channels, channel ) + ",\n" +
             table( "PORTCHANNEL_MEMBER", channels * 4, member ) + ",\n" +
             table( "VLAN", vlans, vlan ) + ",\n" + table( "VLAN_MEMBER", vlans, vlanMember ) + "}";
   }();
   return text;
}

void
rates( benchmark::State & state ) {
   U32 rows = ports + channels + channels * 4 + vlans + vlans;
   state.SetItemsProcessed( S64( state.iterations() ) * rows );
   state.SetBytesProcessed( S64( state.iterations() ) * S64( configuration().size() ) );
}

void
floorOfTheParser( benchmark::State & state ) {
   for ( auto _ : state ) {
      benchmark::DoNotOptimize( nlohmann::json::accept( configuration() ) );
   }
   rates( state );
}

void
treeOfTheParser( benchmark::State & state ) {
   for ( auto _ : state ) {
      benchmark::DoNotOptimize( nlohmann::json::parse( configuration() ) );
   }
   rates( state );
}

void
parse( benchmark::State & state ) {
   for ( auto _ : state ) {
      auto db = QonAgent::ConfigDb::parse( "bench", configuration() );
      benchmark::DoNotOptimize( db.tables().size() );
   }
   rates( state );
}

void
loadIntoAgent( benchmark::State & state ) {
   for ( auto _ : state ) {
      Kiv::VirtualScheduler scheduler;
      SoftChip::Chip chip( scheduler );
      QonAgent::Agent agent( scheduler, chip );
      auto db = QonAgent::ConfigDb::parse( "bench", configuration() );
      auto report = QonAgent::ConfigReader( agent, db ).load();
      scheduler.settle();
      if ( agent.acsd()->portToLags() != channels * 4 || !report.warnings.empty() ) {
         state.SkipWithError( "not all of it was loaded" );
      }
   }
   rates( state );
}

BENCHMARK( floorOfTheParser )->Unit( benchmark::kMillisecond );
BENCHMARK( treeOfTheParser )->Unit( benchmark::kMillisecond );
BENCHMARK( parse )->Unit( benchmark::kMillisecond );
BENCHMARK( loadIntoAgent )->Unit( benchmark::kMillisecond );

} // namespace
