// Next-hop collections: what changes them.

#include "Qon/include/adjacency/L2AdjAssert.h"
#include "Qon/include/adjacency/NextHopCollection.h"
#include "platform/Flintlog/Trace.h"

namespace Qon {

using PlatformApi::ViaAndWeight;
using PlatformApi::ViaList;
using PlatformApi::ViaListFlags;

namespace {

Flintlog::Facility l2AdjTypesFacility( "QonL2AdjTypes" );

void
checkSize( U32 n ) {
   if ( n > NextHopCollection::mostVias ) {
      const Velto::String text = "size is too large: " + Kiv::toText( n ); // fixed text
      Velto::assertFail( text.c_str(), "QonL2AdjTypes", __LINE__, __PRETTY_FUNCTION__ );
   }
}

void
checkWeight( const ViaAndWeight & viaAndWeightIn ) {
   QON_L2ADJ_ASSERT( viaAndWeightIn.weight() != 0 ); // fixed text
}

/** Room for one more. */
void
grow( ViaList::Vias & vias ) {
   if ( vias.size() == vias.capacity() ) {
      vias.reserve( std::min< std::size_t >( 2 * vias.capacity() + !vias.capacity(),
                                             NextHopCollection::mostVias ) );
   }
}

} // namespace

ViaList &
NextHopCollection::viaListMut() {
   unconsolidate();
   return viaListWrapper_.viaListMut();
}

/** As viaListMut(), of a list that gets other vias: those that there are are not copied first. */
void
NextHopCollection::viasAre( ViaList::Vias && vias ) {
   const bool wasConsolidated = consolidated();
   viaListWrapper_.viasAre( std::move( vias ) );
   if ( wasConsolidated ) {
      traceUnconsolidated();
   }
}

void
NextHopCollection::updateTotalWeight() {
   U64 total = 0;
   for ( const auto & entry : list().vias ) {
      total += entry.weight();
   }
   totalWeightIs( total );
}

// Entries

void
NextHopCollection::viaAndWeightPush( const ViaAndWeight & viaAndWeight ) {
   checkWeight( viaAndWeight );
   checkSize( viaAndWeights() + 1 );
   ViaAndWeight fresh( viaAndWeight ); // it may lie in the list
   auto & vias = viaListMut().vias;
   grow( vias );
   totalWeightIs( totalWeight() + fresh.weight() );
   vias.push_back( std::move( fresh ) );
}

void
NextHopCollection::viaAndWeightIs( U32 index, const ViaAndWeight & viaAndWeight ) {
   checkWeight( viaAndWeight );
   QON_L2ADJ_ASSERT( index < viaListWrapper_.viaList()->viaAndWeights() );
   if ( list().vias[index] == viaAndWeight ) {
      return;
   }
   const ViaAndWeight fresh( viaAndWeight );
   auto & entry = viaListMut().vias[index];
   totalWeightIs( totalWeight() - entry.weight() + fresh.weight() );
   entry = fresh;
}

void
NextHopCollection::viaAndWeightClear() {
   if ( viaAndWeights() ) {
      viaListMut().vias.clear();
      totalWeightIs( 0 );
   }
}

void
NextHopCollection::viaAndWeightsReserve( U32 n ) {
   checkSize( n );
   if ( n > list().vias.capacity() ) {
      viaListMut().vias.reserve( n );
   }
}

void
NextHopCollection::viaAndWeightsShrinkToFit() {
   if ( list().vias.capacity() > viaAndWeights() ) {
      viaListMut().vias.shrink_to_fit();
   }
}

void
NextHopCollection::nextHopIs( const NextHop & nextHop, U32 weight ) {
   const ViaAndWeight wanted( nextHop, weight );
   checkWeight( wanted );
   for ( U32 index = 0; index < viaAndWeights(); ++index ) {
      if ( list().vias[index].via() == nextHop ) {
         if ( mayContainDuplicateNextHops() ) {
            // fixed text
            QON_L2ADJ_ASSERT( 0 &&
                              "nexthopIs with NextHops in multiple vector indices is invalid" );
         }
         viaAndWeightIs( index, wanted );
         return;
      }
   }
   viaAndWeightPush( wanted );
}

namespace {

constexpr U32 stays = ~0u, goes = stays - 1;

} // namespace

/** Takes entries out. `into( index, entry, kept, n )` is asked in order, once each, and is shown the
    `n` entries that are kept of those before: `stays`, `goes`, or which of them gets the weight. Entries
    that somebody else holds are copied only if they are kept. */
template< class Into >
void
NextHopCollection::compact( Into && into ) {
   const U32 n = viaAndWeights();
   U32 index = 0, at = stays;
   const ViaAndWeight * entries = list().vias.data();
   while ( index < n && ( at = into( index, entries[index], entries, index ) ) == stays ) {
      ++index;
   }
   if ( index == n ) {
      return;
   }
   ViaAndWeight * mine = viaListWrapper_.shared() ? nullptr : viaListMut().vias.data();
   ViaList::Vias kept;
   kept.reserve( n );
   const auto keep = [&]( U32 i ) {
      if ( mine ) {
         kept.push_back( std::move( mine[i] ) );
      } else {
         kept.push_back( entries[i] );
      }
   };
   for ( U32 i = 0; i < index; ++i ) {
      keep( i );
   }
   U64 total = totalWeight();
   while ( true ) {
      if ( at == stays ) {
         keep( index );
      } else if ( at == goes ) {
         total -= entries[index].weight();
      } else {
         kept[at].weightIs( kept[at].weight() + entries[index].weight() );
      }
      if ( ++index == n ) {
         break;
      }
      at = into( index, entries[index], kept.data(), U32( kept.size() ) );
   }
   viasAre( std::move( kept ) );
   totalWeightIs( total );
}

/** Deletes the entries of which `gone( index, via )` holds; it is asked in order, once each. */
template< class Gone >
void
NextHopCollection::erase( Gone && gone ) {
   compact( [&]( U32 index, const ViaAndWeight & entry, const ViaAndWeight *, U32 ) {
      return gone( index, entry.via() ) ? goes : stays;
   } );
}

void
NextHopCollection::nextHopDel( const NextHop & nextHop ) {
   erase( [gone = nextHop]( U32, const NextHop & via ) { return via == gone; } );
}

void
NextHopCollection::delNextHops( const NextHopSetTransient & nextHops ) {
   erase( [&]( U32, const NextHop & via ) { return nextHops.nextHopHas( via ); } );
}

namespace {

/** Whether an index is one of a sorted list, asked in ascending order. */
class Sorted {
 public:
   explicit Sorted( const NextHopCollection::Indexes & indexes )
       : at_( indexes.begin() ), end_( indexes.end() ) {}
   bool has( U32 index ) {
      while ( at_ != end_ && *at_ < index ) {
         ++at_;
      }
      return at_ != end_ && *at_ == index;
   }

 private:
   NextHopCollection::Indexes::const_iterator at_, end_;
};

} // namespace

void
NextHopCollection::delNextHopsAtIndexes( const Indexes & idxsToDel ) {
   QON_L2ADJ_ASSERT( std::is_sorted( idxsToDel.begin(), idxsToDel.end() ) ); // fixed text
   if ( !idxsToDel.empty() ) {
      viaAndWeight( idxsToDel.back() ); // fatal past the end
   }
   Sorted sorted( idxsToDel );
   erase( [&]( U32 index, const NextHop & ) { return sorted.has( index ); } );
}

/** Puts `replacement` into the entries of which `replaced( index, via )` holds; asked as in erase. */
template< class Replaced >
void
NextHopCollection::replace( Replaced && replaced, const NextHop & replacement ) {
   const NextHop fresh( replacement ); // it may lie in the list
   const ViaAndWeight * entries = list().vias.data();
   ViaAndWeight * mine = nullptr;
   for ( U32 index = 0, n = viaAndWeights(); index < n; ++index ) {
      const NextHop & via = entries[index].via();
      if ( replaced( index, via ) && via != fresh ) {
         entries = mine = mine ? mine : viaListMut().vias.data();
         mine[index].viaIs( fresh );
      }
   }
   if ( mine && !mayContainDuplicateNextHops() ) {
      mergeDuplicates();
   }
}

void
NextHopCollection::replaceNextHops( const NextHopSetTransient & nextHops,
                                    const NextHop & replacement ) {
   replace( [&]( U32, const NextHop & via ) { return nextHops.nextHopHas( via ); }, replacement );
}

void
NextHopCollection::replaceNextHopsAtIndexes( const Indexes & idxsToDel,
                                             const NextHop & replacement ) {
   QON_L2ADJ_ASSERT( std::is_sorted( idxsToDel.begin(), idxsToDel.end() ) ); // fixed text
   if ( !idxsToDel.empty() ) {
      viaAndWeight( idxsToDel.back() ); // fatal past the end
   }
   Sorted sorted( idxsToDel );
   replace( [&]( U32 index, const NextHop & ) { return sorted.has( index ); }, replacement );
}

namespace {

bool
weightFits( const ViaAndWeight & into, const ViaAndWeight & entry ) {
   return U64( into.weight() ) + entry.weight() <= NextHopCollection::mostWeight;
}

} // namespace

/** Merges equal next hops into the first one, whose weight becomes the sum. What would pass the
    largest weight stays, and later ones are merged into it. */
void
NextHopCollection::mergeDuplicates() {
   Kiv::DenseMap< NextHop, U32 > into; // which of those that are kept gets what equals it
   compact( [&]( U32, const ViaAndWeight & entry, const ViaAndWeight * kept, U32 n ) {
      if ( !entry.via() ) {
         return stays;
      }
      auto [at, fresh] = into.emplace( entry.via(), n );
      if ( !fresh && weightFits( kept[*at], entry ) ) {
         return *at;
      }
      *at = n;
      return stays;
   } );
}

void
NextHopCollection::compressAdjacentVias() {
   if ( !mayContainDuplicateNextHops() || isNextHopGroup() ) {
      return;
   }
   compact( []( U32, const ViaAndWeight & entry, const ViaAndWeight * kept, U32 n ) {
      const bool merged = n && kept[n - 1].via() == entry.via() && weightFits( kept[n - 1], entry );
      return merged ? n - 1 : stays;
   } );
}

// Flags

/** Makes a change of what consolidation recorded, or could have. */
template< class Change >
void
NextHopCollection::changeManners( Change && change ) {
   unconsolidate();
   change();
   if ( !mayContainDuplicateNextHops() ) {
      mergeDuplicates();
   }
}

void
NextHopCollection::flagsIs( const NextHopCollectionFlags & v ) {
   constexpr U32 manners = NextHopCollectionFlags::isNextHopGroup |
                           NextHopCollectionFlags::duplicatesAllowed |
                           NextHopCollectionFlags::nextHopOrderSpecified;
   const U32 changed = flags_.flagsValue1() ^ v.flagsValue1();
   if ( changed & manners ) {
      changeManners( [&] { flags_ = v; } );
   } else {
      flags_ = v;
   }
}

void
NextHopCollection::flagIs( U32 bit, bool v ) {
   auto flags = flags_;
   flags.flagsValue1Is( v ? flags.flagsValue1() | bit : flags.flagsValue1() & ~bit );
   flagsIs( flags );
}

void
NextHopCollection::nextHopCollTypeIs( NextHopCollType v ) {
   constexpr U32 shift = NextHopCollectionFlags::nextHopCollTypeShift;
   flags_.flagsValue1Is( ( flags_.flagsValue1() & ~( 0xffu << shift ) ) | U32( v ) << shift );
}

void
NextHopCollection::shimAttrsIs( NextHopCollectionShimBuiltAttrs v ) {
   if ( v != shimAttrs() ) {
      changeManners( [&] {
         totalWeightAndShimAttrs_ = totalWeight() | U64( v.value() ) << shimAttrsShift;
      } );
   }
}

void
NextHopCollection::nhgMetadataIs( const NextHopGroupNhCollMetadata & v ) {
   if ( v != nhgMetadata_ ) {
      changeManners( [&] { nhgMetadata_ = v; } );
   }
}

template< class T >
void
NextHopCollection::listFlagIs( const T & ( ViaListFlags::*get )() const,
                               void ( ViaListFlags::*set )( T ), T v ) {
   if ( ( list().flags.*get )() != v ) {
      ( viaListMut().flags.*set )( v );
   }
}

void
NextHopCollection::dlbEcmpEnableIs( bool v ) {
   listFlagIs( &ViaListFlags::dlbEcmpEnable, &ViaListFlags::dlbEcmpEnableIs, v );
}

void
NextHopCollection::labelTypeIs( PlatformApi::LabelType v ) {
   listFlagIs( &ViaListFlags::labelType, &ViaListFlags::labelTypeIs, v );
}

void
NextHopCollection::mplsPayloadTypeIs( PlatformApi::MplsPayloadType v ) {
   listFlagIs( &ViaListFlags::mplsPayloadType, &ViaListFlags::mplsPayloadTypeIs, v );
}

void
NextHopCollection::mplsTtlModeIs( PlatformApi::MplsTtlMode v ) {
   listFlagIs( &ViaListFlags::mplsTtlMode, &ViaListFlags::mplsTtlModeIs, v );
}

void
NextHopCollection::tunnelTypeIs( ViaList::TunnelType v ) {
   if ( tunnelType() != v ) {
      viaListMut().tunnelType = v;
   }
}

// The next-hop group's information

/** For writing: this list's alone. */
PlatformApi::NextHopGroupInfo::Content &
NextHopCollection::nhgInfoMut() {
   auto & info = viaListMut().groupInfo;
   if ( !info ) {
      info = Velto::make< NextHopGroupInfo >();
   }
   KivStash::makeSole( info, []( const NextHopGroupInfo & shared ) {
      return Velto::make< NextHopGroupInfo >( shared.content() );
   } );
   return info->content_;
}

template< class T >
void
NextHopCollection::nhgInfoFieldIs( const T & ( NextHopGroupInfo::Content::*get )() const,
                                   void ( NextHopGroupInfo::Content::*set )( T ), T v ) {
   if ( ( list().groupContent().*get )() != v ) {
      ( nhgInfoMut().*set )( std::move( v ) );
   }
}

using GroupContent = PlatformApi::NextHopGroupInfo::Content;

void
NextHopCollection::nhgIdIs( U32 v ) {
   nhgInfoFieldIs( &GroupContent::nhgId, &GroupContent::nhgIdIs, v );
}

void
NextHopCollection::greKeyTypeIs( PlatformApi::GreKeyType v ) {
   nhgInfoFieldIs( &GroupContent::greKeyType, &GroupContent::greKeyTypeIs, v );
}

void
NextHopCollection::tosIs( U8 v ) {
   nhgInfoFieldIs( &GroupContent::tos, &GroupContent::tosIs, v );
}

void
NextHopCollection::ttlIs( U32 v ) {
   nhgInfoFieldIs( &GroupContent::ttl, &GroupContent::ttlIs, v );
}

void
NextHopCollection::nextHopGroupEntryResolutionIs( U32 entry, const EntryResolution & v ) {
   auto resolutions = list().groupContent().entryResolution();
   resolutions.entryIs( entry, v );
   nhgInfoFieldIs( &GroupContent::entryResolution, &GroupContent::entryResolutionIs, resolutions );
}

void
NextHopCollection::nextHopGroupEntryResolutionDelAll() {
   nhgInfoFieldIs( &GroupContent::entryResolution, &GroupContent::entryResolutionIs, {} );
}

void
NextHopCollection::nhgInfoIs( const NextHopGroupInfo::Ptr & info ) {
   if ( list().groupInfo != info ) {
      const NextHopGroupInfo::Ptr kept( info );
      viaListMut().groupInfo = kept;
   }
}

void
NextHopCollection::nhgInfoIsOrCopyFrom( NextHopGroupInfo::Ptr && info ) {
   NextHopGroupInfo::Ptr taken( std::move( info ) );
   if ( !taken ) {
      nhgInfoIs( nullptr );
      return;
   }
   KivStash::makeSole( taken, []( const NextHopGroupInfo & shared ) {
      return Velto::make< NextHopGroupInfo >( shared.content() );
   } );
   viaListMut().groupInfo = std::move( taken );
   QON_L2ADJ_ASSERT( viaListWrapper_.viaList()->nhgInfo()->useCount() == 1 ); // fixed text
}

// Sharing

void
NextHopCollection::consolidate( const PlatformApi::ViaListDedupTable * viaListDedupTable ) {
   if ( consolidated() ) {
      return;
   }
   QON_L2ADJ_ASSERT( viaListDedupTable ); // fixed text
   viaListWrapper_.consolidate( *viaListDedupTable, mayContainDuplicateNextHops(),
                                specifiesNextHopOrder() );
   FLINTLOG_TRACE( l2AdjTypesFacility, 9, "consolidate", " nhCollType: ",
                   Kiv::toText( nextHopCollType() ) ); // fixed text
}

void
NextHopCollection::unconsolidate() {
   if ( consolidated() ) {
      viaListWrapper_.unconsolidate();
      traceUnconsolidated();
   }
}

void
NextHopCollection::traceUnconsolidated() const {
   FLINTLOG_TRACE( l2AdjTypesFacility, 9, "unconsolidate", " nhCollType: ",
                   Kiv::toText( nextHopCollType() ) ); // fixed text
}

void
NextHopCollection::replaceViaListWrapper( const ViaListWrapper & wrapper ) {
   viaListWrapper_ = wrapper;
   updateTotalWeight();
   const auto & recorded = list().flags;
   if ( recorded.mayContainDuplicateNextHops() != mayContainDuplicateNextHops() ||
        recorded.specifiesNextHopOrder() != specifiesNextHopOrder() ) {
      unconsolidate();
   }
}

} // namespace Qon
