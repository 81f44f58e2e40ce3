#include "Qon/include/adjacency/NextHopViews.h"

#include <bit>

#include "Qon/include/adjacency/L2AdjAssert.h"

namespace QonTypes {

ViaBitmap::ViaBitmap( const Velto::String & text ) {
   for ( U32 index : Kiv::ValueList< U32 >( text ) ) {
      if ( index >= ViaBitmapIndex::max() ) {
         Kiv::textRefused( "slots below 65536", text );
      }
      bitIs( index );
   }
}

bool
ViaBitmap::bit( U32 index ) const {
   QON_L2ADJ_ASSERT( index < ViaBitmapIndex::max() );
   return index / 64 < words_.size() && words_[index / 64] >> index % 64 & 1;
}

void
ViaBitmap::bitIs( U32 index ) {
   QON_L2ADJ_ASSERT( index < ViaBitmapIndex::max() );
   if ( index / 64 >= words_.size() ) {
      words_.resize( index / 64 + 1 );
   }
   words_[index / 64] |= U64( 1 ) << index % 64;
}

void
ViaBitmap::bitDel( U32 index ) {
   if ( bit( index ) ) {
      words_[index / 64] &= ~( U64( 1 ) << index % 64 );
      while ( !words_.empty() && !words_.back() ) {
         words_.pop_back();
      }
   }
}

U32
ViaBitmap::bits() const {
   U32 n = 0;
   for ( U64 word : words_ ) {
      n += U32( std::popcount( word ) );
   }
   return n;
}

U32
ViaBitmap::nextBit( U32 index ) const {
   for ( U32 at = index / 64; at < words_.size(); ++at ) {
      const U64 rest = at == index / 64 ? words_[at] >> index % 64 << index % 64 : words_[at];
      if ( rest ) {
         return 64 * at + U32( std::countr_zero( rest ) );
      }
   }
   return ViaBitmapIndex::max();
}

U64
ViaBitmap::hash() const {
   U64 h = 0;
   for ( U64 word : words_ ) {
      h = Kiv::hashCombine( h, word );
   }
   return h;
}

Velto::String
ViaBitmap::stringValue() const {
   Kiv::ValueWriter w;
   for ( U32 at = nextBit( 0 ); at < ViaBitmapIndex::max(); at = nextBit( at + 1 ) ) {
      w.element( at );
   }
   return w.text();
}

} // namespace QonTypes

namespace Qon {

NextHopWeights::NextHopWeights( const Velto::String & text ) {
   for ( Kiv::ValueReader r( "Qon::NextHopWeights", text ); r.next(); ) {
      weightAdd( NextHop( r.name() ), Kiv::fromText< U64 >( r.value() ) );
   }
}

U64
NextHopWeights::weight( const NextHop & nextHop ) const {
   auto sum = map_.find( nextHop );
   return sum ? *sum : 0;
}

bool
NextHopWeights::weightAdd( const NextHop & nextHop, U64 weight ) {
   auto [sum, fresh] = map_.emplace( nextHop, U64( 0 ) );
   *sum += weight;
   return !fresh;
}

std::strong_ordering
NextHopWeights::operator<=>( const NextHopWeights & other ) const {
   auto a = map_.begin(), b = other.map_.begin();
   for ( ; a && b; ++a, ++b ) {
      if ( auto byHop = a.key() <=> b.key(); byHop != 0 ) {
         return byHop;
      }
      if ( auto byWeight = a.value() <=> b.value(); byWeight != 0 ) {
         return byWeight;
      }
   }
   return bool( a ) <=> bool( b );
}

U64
NextHopWeights::hash() const {
   U64 h = nextHops();
   for ( auto && [nextHop, weight] : map_ ) {
      h = Kiv::hashOf( h, nextHop, weight );
   }
   return h;
}

Velto::String
NextHopWeights::stringValue() const {
   Kiv::ValueWriter w;
   for ( auto && [nextHop, weight] : map_ ) {
      w.entry( nextHop, weight );
   }
   return w.text();
}

NextHopIteratorConst::NextHopIteratorConst( PlatformApi::ViaList::Snapshot list )
    : list_( std::move( list ) ) {
   skip();
}

void
NextHopIteratorConst::step() {
   ++at_;
   skip();
}

/** On to an entry that is a next hop, and the first one of it. */
void
NextHopIteratorConst::skip() {
   while ( !atEnd() && ( !current() || !seen_.emplace( current() ).second ) ) {
      ++at_;
   }
}

namespace {

template< class Entry >
std::vector< Entry >
entriesOf( const NextHopWeights & weights ) {
   std::vector< Entry > entries;
   entries.reserve( weights.nextHops() );
   for ( auto && [nextHop, weight] : weights.map() ) {
      entries.push_back( { nextHop, weight } );
   }
   return entries;
}

std::vector< NextHopBitmapEntry >
bitmapsOf( const PlatformApi::ViaList & list ) {
   std::vector< NextHopBitmapEntry > entries;
   Kiv::DenseMap< NextHop, U32 > places;
   for ( U32 index = 0; index < list.viaAndWeights(); ++index ) {
      const NextHop & via = list.vias[index].via();
      if ( !via ) {
         continue;
      }
      auto [place, fresh] = places.emplace( via, U32( entries.size() ) );
      if ( fresh ) {
         entries.push_back( { via, {} } );
      }
      entries[*place].bitmap.bitIs( index );
   }
   return entries;
}

} // namespace

NextHopAggregateWeightIteratorConst::NextHopAggregateWeightIteratorConst(
      const NextHopWeights & weights )
    : GatheredIterator( entriesOf< NextHopWeightEntry >( weights ) ) {}

NextHopBitmapExternIteratorConst::NextHopBitmapExternIteratorConst(
      const PlatformApi::ViaList & list )
    : GatheredIterator( bitmapsOf( list ) ) {}

ViaAndWeightMapViewIteratorConst::ViaAndWeightMapViewIteratorConst( const NextHopWeights & weights )
    : GatheredIterator( entriesOf< ViaMapEntry >( weights ) ) {}

} // namespace Qon
