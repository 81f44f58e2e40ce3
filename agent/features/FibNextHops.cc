#include "agent/features/FibNextHops.h"

#include <algorithm>
#include <cstring>

namespace QonAgent {

using namespace Quarn::Fib;
using Qon::NextHopCollection;
using Qon::NextHopType;

namespace {

/** What tells next hops apart: everything that stands before the weight. */
int
compareHops( const Quarn::Fib::Via & a, const Quarn::Fib::Via & b ) {
   static_assert( offsetof( Quarn::Fib::Via, weight ) + 8 == sizeof( Quarn::Fib::Via ) );
   return std::memcmp( &a, &b, offsetof( Quarn::Fib::Via, weight ) );
}

/** Puts equal ones together, weights added. False if one of them is 0 or they come to too much. */
bool
merge( std::vector< Quarn::Fib::Via > & vias ) {
   std::sort( vias.begin(), vias.end(),
              []( auto & a, auto & b ) { return compareHops( a, b ) < 0; } );
   std::size_t kept = 0;
   for ( std::size_t i = 0; i < vias.size(); ++i ) {
      const U32 weight = vias[i].weight;
      if ( weight == 0 ) {
         return false;
      }
      if ( i == 0 || compareHops( vias[kept - 1], vias[i] ) != 0 ) {
         vias[kept++] = vias[i];
      } else if ( NextHopCollection::mostWeight - vias[kept - 1].weight < weight ) {
         return false;
      } else {
         vias[kept - 1].weight += weight;
      }
   }
   vias.resize( kept );
   return true;
}

bool
sound( const Quarn::Fib::Via & via ) {
   return via.weight != 0 && via.labels <= Quarn::Fib::Via::mostLabels &&
          via.family <= Ulnet::AddressFamily::ipv6 && via.intf.type != Ulnet::IntfType::none;
}

} // namespace

std::optional< Qon::L2AdjKey >
FibNextHops::keyOf( const Fec & fec, std::vector< Quarn::Fib::Via > & vias ) {
   const bool group = fec.type == Type::nextHopGroup;
   const bool leads = group || fec.type == Type::forward;
   if ( leads ? vias.empty() || ( !group && !merge( vias ) ) : !vias.empty() ) {
      return std::nullopt;
   }
   NextHopCollection all;
   all.nextHopCollTypeIs( group ? Qon::NextHopCollType::nhCollNextHopGroup
                                : Qon::NextHopCollType::nhCollFec );
   all.isNextHopGroupIs( group );
   all.viaAndWeightsReserve( leads ? U32( vias.size() ) : 1 );
   for ( auto & via : vias ) {
      if ( !push( all, via ) ) {
         return std::nullopt;
      }
   }
   if ( !leads ) {
      pushOnly( all, fec.type == Type::drop ? NextHopType::drop : NextHopType::cpu );
   }
   all.consolidate( &lists_ );
   return Qon::L2AdjKey( U8( fec.type ), all, Qon::VrfId( 0 ) );
}

bool
FibNextHops::push( NextHopCollection & all, const Quarn::Fib::Via & via ) {
   Qon::ViaGen gen;
   if ( !sound( via ) ) {
      return false;
   }
   try {
      gen.l3IntfIs( via.intf.intfId() );
   } catch ( const Velto::RangeError & ) {
      return false;
   }
   gen.nextHopIs( via.nextHopAddr() );
   if ( via.labels ) {
      Kiv::ValueList< Ulnet::MplsLabel > stack;
      for ( U32 i = 0; i < via.labels; ++i ) {
         stack.push_back( Ulnet::MplsLabel( via.label[i] ) );
      }
      Qon::EncapInfo encap( Qon::EncapInfo::mplsWrapperFactory() );
      encap.labelsIs( { Ulnet::MplsOp::mplsPush, stack } );
      encap.dedup( encaps_ );
      gen.encapInfoIs( encap );
   }
   Qon::NextHopInfo info;
   info.nextHopTypeIs( via.family == Ulnet::AddressFamily::none ? NextHopType::arpRequired
                                                                : NextHopType::resolved );
   Qon::PlatformApi::Via made;
   made.viaGenIs( gen );
   made.nextHopInfoIs( info );
   all.viaAndWeightEmplaceBack( nextHops_.handle( made ), via.weight );
   return true;
}

/** What becomes of packets that leave by no interface. */
void
FibNextHops::pushOnly( NextHopCollection & all, NextHopType type ) {
   Qon::PlatformApi::Via made;
   Qon::NextHopInfo info;
   info.nextHopTypeIs( type );
   made.nextHopInfoIs( info );
   all.viaPush( nextHops_.handle( made ) );
}

} // namespace QonAgent
