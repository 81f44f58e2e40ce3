// Next-hop collections: what can be read of them.

#include "Qon/include/adjacency/NextHopCollection.h"

#include "Qon/include/adjacency/L2AdjAssert.h"
#include "platform/Kiv/Attr.h"

namespace Qon {

using PlatformApi::Via;
using PlatformApi::ViaAndWeight;

NextHopCollection::NextHopCollection( ViaListWrapper viaListWrapper, NextHopCollectionFlags flags,
                                      NextHopGroupNhCollMetadata nhgMetadata,
                                      U64 totalWeightAndShimAttrs )
    : flags_( std::move( flags ) ), nhgMetadata_( std::move( nhgMetadata ) ),
      totalWeightAndShimAttrs_( totalWeightAndShimAttrs ) {
   replaceViaListWrapper( viaListWrapper );
}

NextHopCollection::NextHopCollection( const Velto::String & text ) {
   for ( Kiv::ValueReader r( "Qon::NextHopCollection", text ); r.next(); ) {
      if ( r.is( "viaListWrapper" ) ) {
         r.get( viaListWrapper_ );
      } else if ( r.is( "flags" ) ) {
         r.get( flags_ );
      } else if ( r.is( "nhgMetadata" ) ) {
         r.get( nhgMetadata_ );
      } else if ( r.is( "totalWeightAndShimAttrs" ) ) {
         r.get( totalWeightAndShimAttrs_ );
      } else {
         r.refuseField();
      }
   }
   updateTotalWeight();
   if ( !mayContainDuplicateNextHops() ) {
      mergeDuplicates();
   }
}

// Entries and next hops

const ViaAndWeight &
NextHopCollection::viaAndWeight( U32 index ) const {
   QON_L2ADJ_ASSERT( index < viaListWrapper_.viaList()->viaAndWeights() );
   return list().vias[index];
}

U32
NextHopCollection::nextHops() const {
   U32 n = 0;
   for ( auto i = nextHopIteratorConst(); i; ++i ) {
      ++n;
   }
   return n;
}

U64
NextHopCollection::nextHop( const NextHop & nextHop ) const {
   U64 sum = 0;
   for ( const auto & entry : list().vias ) {
      sum += nextHop && entry.via() == nextHop ? entry.weight() : 0;
   }
   return sum;
}

NextHopIteratorConst
NextHopCollection::nextHopIteratorConst() const {
   return NextHopIteratorConst( viaAndWeightSnapshot() );
}

NextHopCollection::AggWeightsResult
NextHopCollection::aggregateNextHopWeights() const {
   NextHopWeights weights;
   bool found = false;
   for ( const auto & entry : list().vias ) {
      if ( entry.via() ) {
         found |= weights.weightAdd( entry.via(), entry.weight() );
      }
   }
   return { std::move( weights ), found };
}

NextHopAggregateWeightIteratorConst
NextHopCollection::nextHopAggregateWeightIteratorConst() const {
   return NextHopAggregateWeightIteratorConst( aggregateNextHopWeights().aggregatedWeights() );
}

ViaAndWeightMapView
NextHopCollection::viaAndWeightMapView() const {
   return ViaAndWeightMapView( aggregateNextHopWeights().aggregatedWeights() );
}

QonTypes::ViaBitmap
NextHopCollection::nextHopBitmapExtern( const NextHop & nextHop ) const {
   QonTypes::ViaBitmap bitmap;
   for ( U32 index = 0; nextHop && index < viaAndWeights(); ++index ) {
      if ( list().vias[index].via() == nextHop ) {
         bitmap.bitIs( index );
      }
   }
   return bitmap;
}

NextHopBitmapExternIteratorConst
NextHopCollection::nextHopBitmapExternIteratorConst() const {
   return NextHopBitmapExternIteratorConst( list() );
}

// All of it

namespace {

NextHopType
typeOf( const Via & via ) {
   return via.nextHopInfo().nextHopType();
}

} // namespace

/** Whether `test` holds of a via that is set. */
template< class Test >
bool
NextHopCollection::any( Test && test ) const {
   for ( const auto & entry : list().vias ) {
      if ( entry.via() && test( *entry.via() ) ) {
         return true;
      }
   }
   return false;
}

bool
NextHopCollection::all( NextHopType type ) const {
   return any( []( const Via & ) { return true; } ) &&
          !any( [type]( const Via & via ) { return typeOf( via ) != type; } );
}

NextHopType
NextHopCollection::nextHopType() const {
   for ( const auto & entry : list().vias ) {
      if ( entry.via() ) {
         return typeOf( *entry.via() );
      }
   }
   return NextHopType::unset;
}

bool
NextHopCollection::hasResolvedNextHops() const {
   return any( []( const Via & via ) {
      return typeOf( via ) == NextHopType::resolved || typeOf( via ) == NextHopType::tunnel;
   } );
}

bool
NextHopCollection::isForwardingVrfAction() const {
   return any( []( const Via & via ) { return typeOf( via ) == NextHopType::vrfAction; } );
}

bool
NextHopCollection::allSlotWeightsOne() const {
   return std::all_of( list().vias.begin(), list().vias.end(),
                       []( const ViaAndWeight & entry ) { return entry.weight() == 1; } );
}

bool
NextHopCollection::hasAllocationIds() const {
   return any( []( const Via & via ) { return via.allocationId().has_value(); } );
}

bool
NextHopCollection::hasVxlanHFecTunnelL2Info() const {
   return any( []( const Via & via ) { return via.vxlanHFecTunnelL2Info().has_value(); } );
}

bool
NextHopCollection::mayContainDuplicateNextHops() const {
   return isNextHopGroup() || duplicatesAllowed() || nextHopOrderSpecified() ||
          shimAttrs().duplicatesPossible();
}

bool
NextHopCollection::specifiesNextHopOrder() const {
   return nextHopOrderSpecified() || ( isNextHopGroup() && !nhgMetadata_.nextHopGroupUnordered() );
}

NextHopCollection::Indexes
NextHopCollection::getLogicalPositionIndexes() const {
   Indexes positions;
   if ( isNextHopGroup() ) {
      for ( const auto & [key, position] : nhgMetadata_.nhgEntryKeyToPosition() ) {
         positions.push_back( position );
      }
      return positions;
   }
   for ( U32 index = 0; index < viaAndWeights(); ++index ) {
      positions.push_back( index );
   }
   return positions;
}

const NextHopCollection::EntryResolution &
NextHopCollection::nextHopGroupEntryResolution( U32 entry ) const {
   auto held = list().groupContent().entryResolution().find( entry );
   return held ? *held : Kiv::absent< EntryResolution >();
}

void
NextHopCollection::verify() const {
   U64 sum = 0;
   bool duplicates = false;
   Kiv::DenseMap< NextHop, U64 > last; // the last entry of a next hop: what could be merged into it
   for ( const auto & viaAndWeight : list().vias ) {
      QON_L2ADJ_ASSERT( viaAndWeight.weight() != 0 );
      sum += viaAndWeight.weight();
      if ( !viaAndWeight.via() ) {
         continue;
      }
      auto [weight, fresh] = last.emplace( viaAndWeight.via(), U64( 0 ) );
      duplicates |= !fresh && *weight + viaAndWeight.weight() <= mostWeight;
      *weight = viaAndWeight.weight();
   }
   QON_L2ADJ_ASSERT( totalWeight() == sum );
   QON_L2ADJ_ASSERT( !duplicates || mayContainDuplicateNextHops() );
}

// A value

bool
NextHopCollection::operator==( const NextHopCollection & other ) const {
   return totalWeightAndShimAttrs_ == other.totalWeightAndShimAttrs_ && flags_ == other.flags_ &&
          nhgMetadata_ == other.nhgMetadata_ && viaListWrapper_ == other.viaListWrapper_;
}

std::strong_ordering
NextHopCollection::operator<=>( const NextHopCollection & other ) const {
   if ( auto byList = viaListWrapper_ <=> other.viaListWrapper_; byList != 0 ) {
      return byList;
   }
   if ( auto byFlags = flags_ <=> other.flags_; byFlags != 0 ) {
      return byFlags;
   }
   if ( auto byMetadata = nhgMetadata_ <=> other.nhgMetadata_; byMetadata != 0 ) {
      return byMetadata;
   }
   return totalWeightAndShimAttrs_ <=> other.totalWeightAndShimAttrs_;
}

U64
NextHopCollection::hash() const {
   return Kiv::hashOf( viaListWrapper_, flags_, nhgMetadata_, totalWeightAndShimAttrs_ );
}

Velto::String
NextHopCollection::stringValue() const {
   Kiv::ValueWriter w( "Qon::NextHopCollection" );
   w.field( "viaListWrapper", viaListWrapper_ );
   w.field( "flags", flags_ );
   w.field( "nhgMetadata", nhgMetadata_ );
   w.field( "totalWeightAndShimAttrs", totalWeightAndShimAttrs_ );
   return w.text();
}

} // namespace Qon
