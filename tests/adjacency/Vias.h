#pragma once
// Next hops to test with.

#include <gtest/gtest.h>

#include <cstdlib>

#include "Qon/include/adjacency/NextHopCollection.h"

namespace Tests {

using Qon::NextHop;
using Qon::NextHopCollection;
using Qon::NextHopType;
using Velto::String;

/** How many random histories there are. A longer search is made by hand: ADJACENCY_SEEDS=20000. */
inline U32
seeds( U32 usual ) {
   const char * wanted = std::getenv( "ADJACENCY_SEEDS" );
   return wanted ? U32( std::atoi( wanted ) ) : usual;
}

/** Next hop `number`, of that type. */
inline Qon::PlatformApi::Via
via( U32 number, NextHopType type = NextHopType::resolved ) {
   Qon::PlatformApi::Via v;
   Qon::ViaGen gen;
   gen.l3IntfIs( Ulnet::EthIntfId::intfId( number + 1 ) );
   gen.nextHopIs( Ulnet::IpGenAddr::ipv4( 0x0a000000 + number ) );
   v.viaGenIs( gen );
   Qon::NextHopInfo info;
   info.nextHopTypeIs( type );
   v.nextHopInfoIs( info );
   return v;
}

inline NextHop
hop( U32 number, NextHopType type = NextHopType::resolved ) {
   return NextHop::alone( via( number, type ) );
}

} // namespace Tests
