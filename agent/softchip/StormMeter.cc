#include "agent/softchip/StormMeter.h"

#include <algorithm>
#include <set>

namespace SoftChip {

namespace {

using Bridging::StormControl::Unit;
using Qon::LevelType;

/** The level of a type on a plane. */
Level
stormLevel( LevelType type, bool cpu ) {
   return Level( 2 * ( U8( type ) - U8( LevelType::levelTypeUUcast ) ) + cpu );
}

} // namespace

StormMeter::StormMeter( const StormTable & table, const FaultPlan & plan, U32 slices )
    : table_( table ), plan_( plan ), slices_( std::max( slices, U32( 1 ) ) ) {}

void
StormMeter::trafficIs( IntfId port, LevelType kind, bool cpu, const StormRate & rate ) {
   advance();
   const FlowKey key = { port, cpu, kind };
   rate.kbps > 0 ? void( flows_[key] = rate ) : void( flows_.erase( key ) );
   counted_[port] = true;
}

double
StormMeter::passing( IntfId port, LevelType type, bool cpu, const StormRate & rate ) const {
   auto limit = table_.limit( port, stormLevel( type, cpu ) );
   if ( !limit ) {
      return rate.pps();
   }
   const double value = double( limit->threshold.value() );
   switch ( limit->threshold.unit() ) {
   case Unit::pps:
      return std::min( rate.pps(), value );
   case Unit::kbps:
      return std::min( rate.kbps, value ) * 125 / rate.frameOctets;
   case Unit::percent:
      // Of a port whose speed nobody knows nothing can be said.
      return limit->speedKbps ? std::min( rate.kbps, value * double( limit->speedKbps ) / 100 ) *
                                      125 / rate.frameOctets
                              : rate.pps();
   }
   return rate.pps();
}

void
StormMeter::advance() {
   const Kiv::Seconds now = Kiv::now(), span = now - std::exchange( until_, now );
   for ( U32 slice = 0; slice < slices(); ++slice ) {
      if ( lost( slice ) ) {
         slices_[slice].clear();
      }
   }
   std::set< std::pair< IntfId, bool > > busyPorts;
   for ( auto & [key, rate] : flows_ ) {
      busyPorts.emplace( key.port, key.cpu );
   }
   for ( auto & [port, cpu] : busyPorts ) {
      countPort( port, cpu, span );
   }
}

void
StormMeter::countPort( IntfId port, bool cpu, Kiv::Seconds span ) {
   double passed = 0, passedKbps = 0;
   for ( auto type : { LevelType::levelTypeUUcast, LevelType::levelTypeBroadcast,
                       LevelType::levelTypeMulticast } ) {
      auto flow = flows_.find( { port, cpu, type } );
      if ( flow == flows_.end() ) {
         continue;
      }
      const StormRate & rate = flow->second;
      const double pass = passing( port, type, cpu, rate ), over = rate.pps() - pass;
      count( port, cpu, type, over * span, over * span * rate.frameOctets );
      passed += pass;
      passedKbps += pass * rate.frameOctets / 125;
   }
   if ( passed > 0 ) {
      const StormRate all = { passedKbps, passedKbps * 125 / passed };
      const double over = passed - passing( port, LevelType::levelTypeAll, cpu, all );
      count( port, cpu, LevelType::levelTypeAll, over * span, over * span * all.frameOctets );
   }
}

void
StormMeter::count( IntfId port, bool cpu, LevelType type, double packets, double octets ) {
   std::vector< U32 > there;
   for ( U32 slice = 0; slice < slices(); ++slice ) {
      if ( !lost( slice ) ) {
         there.push_back( slice );
      }
   }
   const U32 place = U8( type ) - U8( LevelType::levelTypeUUcast );
   const double share = 1.0 / double( std::max( there.size(), std::size_t( 1 ) ) );
   for ( U32 slice : there ) {
      Count & sum = slices_[slice][port];
      ( cpu ? sum.cpuPackets : sum.packets )[place] += packets * share;
      sum.octets[place] += cpu ? 0 : octets * share;
   }
}

std::vector< IntfId >
StormMeter::ports() const {
   for ( auto & [key, limit] : table_.held() ) {
      counted_[key.first] = true;
   }
   std::vector< IntfId > all;
   for ( auto & [port, yes] : counted_ ) {
      all.push_back( port );
   }
   return all;
}

StormMeter::Drops
StormMeter::drops( U32 slice, IntfId port ) const {
   auto found = slices_[slice].find( port );
   if ( found == slices_[slice].end() ) {
      return {};
   }
   const Count & c = found->second;
   return { U64( c.packets[0] ),    U64( c.packets[1] ),    U64( c.packets[2] ),
            U64( c.packets[3] ),    U64( c.octets[0] ),     U64( c.octets[1] ),
            U64( c.octets[2] ),     U64( c.octets[3] ),     U64( c.cpuPackets[0] ),
            U64( c.cpuPackets[1] ), U64( c.cpuPackets[2] ), U64( c.cpuPackets[3] ) };
}

void
StormMeter::clearCounters() {
   advance();
   for ( auto & slice : slices_ ) {
      slice.clear();
   }
}

} // namespace SoftChip
