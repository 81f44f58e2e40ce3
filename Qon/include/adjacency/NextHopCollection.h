#pragma once
// The next hops of one forwarding equivalence class or next-hop group, each with its weight.
//
//    NextHopCollection { viaListWrapper -> ViaList (shared, copied before it is written)
//                        flags, nhgMetadata
//                        total weight (bits 0-47), shim attributes (bits 48-63) }
//
// Invariants
// 1. A collection is a value: no write is seen through another one, whatever they share.
// 2. The total is the sum of all weights, those of unset vias included, after every call. The upper 16
//    bits change by shimAttrsIs() only.
// 3. No weight is 0. A list has at most 65535 entries; one more is fatal.
// 4. Unless mayContainDuplicateNextHops(), nobody pushes a next hop twice; nextHopIs() and the
//    replacing functions see to it themselves. Where two equal next hops are merged and their weights
//    together pass 2^32 - 1, the later one stays apart.
// 5. A write that changes nothing copies nothing, and the collection stays consolidated.
// 6. Consolidation is no change: a collection equals, and hashes as, itself before and after.
//
// Broken rules are fatal, in the module QonL2AdjTypes.

#include "Qon/include/adjacency/NextHopViews.h"

namespace Qon {

/** What kind of thing a collection was made of. */
enum class NextHopCollType : U8 {
   nhCollUnset,
   nhCollFec,
   nhCollNextHopGroup,
   nhCollTunnel,
   nhCollBackup,
};
KIV_ENUM( NextHopCollType, nhCollUnset, nhCollFec, nhCollNextHopGroup, nhCollTunnel, nhCollBackup )

enum class NexthopGroupEntryCounterType : U8 { counterNone, counterPerEntry, counterShared };
KIV_ENUM( NexthopGroupEntryCounterType, counterNone, counterPerEntry, counterShared )

/** Of flagsValue1 the bits 0 to 4 are isNextHopGroup, duplicatesAllowed, nextHopOrderSpecified,
    attachedRoute and swOnly; bits 8 to 15 are the NextHopCollType. */
class NextHopCollectionFlags {
   U32 flagsValue1_ = 0;
   Kiv::Uncompared< U32 > flagsValueEqExcluded_;
   KIV_VALUE( Qon, NextHopCollectionFlags, flagsValue1, flagsValueEqExcluded )

   static constexpr U32 isNextHopGroup = 0x1;
   static constexpr U32 duplicatesAllowed = 0x2;
   static constexpr U32 nextHopOrderSpecified = 0x4;
   static constexpr U32 attachedRoute = 0x8;
   static constexpr U32 swOnly = 0x10;
   static constexpr U32 nextHopCollTypeShift = 8;
};

class NextHopGroupEntryKey {
   U32 nhgId_ = 0;
   U32 nhgEntryIndex_ = 0;
   KIV_VALUE( Qon, NextHopGroupEntryKey, nhgId, nhgEntryIndex )
};

class NextHopGroupNhCollMetadata {
   bool nextHopGroupUnordered_ = false;
   bool nextHopGroupAutoSized_ = false;
   NexthopGroupEntryCounterType nexthopGroupEntryCounterType_ =
         NexthopGroupEntryCounterType::counterNone;
   Kiv::ValueMap< NextHopGroupEntryKey, U32 > nhgEntryKeyToPosition_;
   KIV_VALUE( Qon, NextHopGroupNhCollMetadata, nextHopGroupUnordered, nextHopGroupAutoSized,
              nexthopGroupEntryCounterType, nhgEntryKeyToPosition )
};

/** What built a collection knows of it. With the first one set, it may hold a next hop twice. */
class NextHopCollectionShimBuiltAttrs {
   KIV_BITS( Qon, NextHopCollectionShimBuiltAttrs, U16, duplicatesPossible, shimAttr1, shimAttr2,
             shimAttr3, shimAttr4, shimAttr5, shimAttr6, shimAttr7, shimAttr8, shimAttr9,
             shimAttr10, shimAttr11, shimAttr12, shimAttr13, shimAttr14, shimAttr15 )
};

class NextHopCollection {
 public:
   using ViaAndWeight = PlatformApi::ViaAndWeight;
   using ViaList = PlatformApi::ViaList;
   using NextHopGroupInfo = PlatformApi::NextHopGroupInfo;
   using EntryResolution = PlatformApi::NextHopGroupEntryResolution;
   using Indexes = std::vector< U32 >;

   class AggWeightsResult {
      NextHopWeights aggregatedWeights_;
      bool foundDuplicateEntries_ = false;
      KIV_VALUE( Qon::NextHopCollection, AggWeightsResult, aggregatedWeights,
                 foundDuplicateEntries )
   };

   static constexpr U32 mostVias = ViaList::mostVias;
   static constexpr U64 mostWeight = 0xffffffff; // of one entry

   NextHopCollection() = default;
   /** Of `totalWeightAndShimAttrs` the upper 16 bits count; the total is that of the list. */
   NextHopCollection( ViaListWrapper viaListWrapper, NextHopCollectionFlags flags,
                      NextHopGroupNhCollMetadata nhgMetadata, U64 totalWeightAndShimAttrs );
   /** Merges equal next hops where the text does not allow them. */
   explicit NextHopCollection( const Velto::String & text );
   NextHopCollection( const NextHopCollection & ) = default;
   /** What is moved from is as a fresh one. */
   NextHopCollection( NextHopCollection && o ) noexcept
       : viaListWrapper_( std::move( o.viaListWrapper_ ) ), flags_( std::exchange( o.flags_, {} ) ),
         nhgMetadata_( std::exchange( o.nhgMetadata_, {} ) ),
         totalWeightAndShimAttrs_( std::exchange( o.totalWeightAndShimAttrs_, 0 ) ) {}
   NextHopCollection & operator=( NextHopCollection o ) noexcept {
      std::swap( viaListWrapper_, o.viaListWrapper_ );
      std::swap( flags_, o.flags_ );
      std::swap( nhgMetadata_, o.nhgMetadata_ );
      std::swap( totalWeightAndShimAttrs_, o.totalWeightAndShimAttrs_ );
      return *this;
   }

   /** @name What it is made of */
   /** @{ */
   const ViaListWrapper & viaListWrapper() const { return viaListWrapper_; }
   const NextHopCollectionFlags & flags() const { return flags_; }
   const NextHopGroupNhCollMetadata & nhgMetadata() const { return nhgMetadata_; }
   U64 totalWeightAndShimAttrs() const { return totalWeightAndShimAttrs_; }
   U64 totalWeight() const { return totalWeightAndShimAttrs_ & totalWeightMask; }
   NextHopCollectionShimBuiltAttrs shimAttrs() const {
      return NextHopCollectionShimBuiltAttrs( U16( totalWeightAndShimAttrs_ >> shimAttrsShift ) );
   }
   bool consolidated() const { return viaListWrapper_.consolidated(); }
   /** @} */

   /** @name Entries. An index past the end is fatal. */
   /** @{ */
   U32 viaAndWeights() const { return list().viaAndWeights(); }
   const ViaAndWeight & viaAndWeight( U32 index ) const;
   const ViaAndWeight & viaAndWeightFront() const { return viaAndWeight( 0 ); }
   const NextHop & viaFront() const { return viaAndWeight( 0 ).via(); }
   ViaAndWeightIteratorConst viaAndWeightIteratorConst() const {
      return ViaAndWeightIteratorConst( viaAndWeightSnapshot() );
   }
   /** The list as it is now; it does not change while it is held. */
   ViaList::Snapshot viaAndWeightSnapshot() const {
      return ViaList::Snapshot( viaListWrapper_.viaList() );
   }
   /** @} */

   /** @name Next hops: distinct vias, in order of their first entry */
   /** @{ */
   U32 nextHops() const;
   U32 countUniqueNextHops() const { return nextHops(); }
   /** The sum of its weights; 0 if it is not there. */
   U64 nextHop( const NextHop & nextHop ) const;
   NextHopIteratorConst nextHopIteratorConst() const;
   AggWeightsResult aggregateNextHopWeights() const;
   NextHopAggregateWeightIteratorConst nextHopAggregateWeightIteratorConst() const;
   ViaAndWeightMapView viaAndWeightMapView() const;
   /** The slots that it has: the indexes of its entries. */
   QonTypes::ViaBitmap nextHopBitmapExtern( const NextHop & nextHop ) const;
   NextHopBitmapExternIteratorConst nextHopBitmapExternIteratorConst() const;
   bool nextHopViewsWillHaveBitmaps() const { return mayContainDuplicateNextHops(); }
   /** @} */

   /** @name What can be said of all of it */
   /** @{ */
   /** Of the first set via; unset if there is none. */
   NextHopType nextHopType() const;
   /** Whether there are set vias and all of them are of that type. */
   bool allDrop() const { return all( NextHopType::drop ); }
   bool allArpRequired() const { return all( NextHopType::arpRequired ); }
   /** Whether there is one that is resolved or a tunnel. */
   bool hasResolvedNextHops() const;
   bool isForwardingVrfAction() const;
   /** Whether every weight is 1; so of no entry at all. */
   bool allSlotWeightsOne() const;
   bool hasAllocationIds() const;
   bool hasVxlanHFecTunnelL2Info() const;
   bool mayContainDuplicateNextHops() const;
   /** Whether the order of the entries means something. */
   bool specifiesNextHopOrder() const;
   /** Of a next-hop group the positions of its entries, else 0 to viaAndWeights() - 1. */
   Indexes getLogicalPositionIndexes() const;
   /** @} */

   /** @name Flags. Those that say whether duplicates are possible or order matters end a
       consolidation; when duplicates become impossible, those that there are are merged. */
   /** @{ */
   bool isNextHopGroup() const { return flag( NextHopCollectionFlags::isNextHopGroup ); }
   bool duplicatesAllowed() const { return flag( NextHopCollectionFlags::duplicatesAllowed ); }
   bool nextHopOrderSpecified() const {
      return flag( NextHopCollectionFlags::nextHopOrderSpecified );
   }
   bool attachedRoute() const { return flag( NextHopCollectionFlags::attachedRoute ); }
   bool swOnly() const { return flag( NextHopCollectionFlags::swOnly ); }
   NextHopCollType nextHopCollType() const {
      return NextHopCollType(
            U8( flags_.flagsValue1() >> NextHopCollectionFlags::nextHopCollTypeShift ) );
   }
   void isNextHopGroupIs( bool v ) { flagIs( NextHopCollectionFlags::isNextHopGroup, v ); }
   void duplicatesAllowedIs( bool v ) { flagIs( NextHopCollectionFlags::duplicatesAllowed, v ); }
   void nextHopOrderSpecifiedIs( bool v ) {
      flagIs( NextHopCollectionFlags::nextHopOrderSpecified, v );
   }
   void attachedRouteIs( bool v ) { flagIs( NextHopCollectionFlags::attachedRoute, v ); }
   void swOnlyIs( bool v ) { flagIs( NextHopCollectionFlags::swOnly, v ); }
   void nextHopCollTypeIs( NextHopCollType v );
   void flagsIs( const NextHopCollectionFlags & v );
   /** Flags that are carried along, and make no difference to what the collection is. */
   void flagsValueEqExcludedIs( U32 v ) { flags_.flagsValueEqExcludedIs( v ); }
   void shimAttrsIs( NextHopCollectionShimBuiltAttrs v );
   /** The upper 16 bits count; the total is that of the list. */
   void totalWeightAndShimAttrsIs( U64 v ) {
      shimAttrsIs( NextHopCollectionShimBuiltAttrs( U16( v >> shimAttrsShift ) ) );
   }
   void nhgMetadataIs( const NextHopGroupNhCollMetadata & v );
   /** @} */

   /** @name Flags of the list */
   /** @{ */
   bool dlbEcmpEnable() const { return list().flags.dlbEcmpEnable(); }
   PlatformApi::LabelType labelType() const { return list().flags.labelType(); }
   PlatformApi::MplsPayloadType mplsPayloadType() const { return list().flags.mplsPayloadType(); }
   PlatformApi::MplsTtlMode mplsTtlMode() const { return list().flags.mplsTtlMode(); }
   ViaList::TunnelType tunnelType() const { return list().tunnelType; }
   void dlbEcmpEnableIs( bool v );
   void labelTypeIs( PlatformApi::LabelType v );
   void mplsPayloadTypeIs( PlatformApi::MplsPayloadType v );
   void mplsTtlModeIs( PlatformApi::MplsTtlMode v );
   void tunnelTypeIs( ViaList::TunnelType v );
   /** @} */

   /** @name The next-hop group's information. Without one, everything reads as 0; the first write
       creates it. */
   /** @{ */
   NextHopGroupInfo * nhgInfo() const { return list().nhgInfo(); }
   U32 nhgId() const { return list().groupContent().nhgId(); }
   PlatformApi::GreKeyType greKeyType() const { return list().groupContent().greKeyType(); }
   U8 tos() const { return list().groupContent().tos(); }
   U32 ttl() const { return list().groupContent().ttl(); }
   void nhgIdIs( U32 v );
   void greKeyTypeIs( PlatformApi::GreKeyType v );
   void tosIs( U8 v );
   void ttlIs( U32 v );
   /** Empty for an entry that has none. */
   const EntryResolution & nextHopGroupEntryResolution( U32 entry ) const;
   void nextHopGroupEntryResolutionIs( U32 entry, const EntryResolution & v );
   void nextHopGroupEntryResolutionDelAll();
   /** Shares `info` from now on; null: none. */
   void nhgInfoIs( const NextHopGroupInfo::Ptr & info );
   /** Takes `info` over if nobody else holds it, else a copy of it. */
   void nhgInfoIsOrCopyFrom( NextHopGroupInfo::Ptr && info );
   /** @} */

   /** @name Writing entries. A weight of 0 is fatal, and an index past the end. */
   /** @{ */
   void viaPush( const NextHop & via ) { viaAndWeightPush( ViaAndWeight( via, 1 ) ); }
   void viaAndWeightPush( const ViaAndWeight & viaAndWeight );
   void viaAndWeightIs( U32 index, const ViaAndWeight & viaAndWeight );
   /** As viaAndWeightIs and viaAndWeightPush, of the arguments that make an entry. */
   template< class... Args >
   void viaAndWeightEmplace( U32 index, Args &&... args ) {
      viaAndWeightIs( index, ViaAndWeight( std::forward< Args >( args )... ) );
   }
   template< class... Args >
   void viaAndWeightEmplaceBack( Args &&... args ) {
      viaAndWeightPush( ViaAndWeight( std::forward< Args >( args )... ) );
   }
   void viaAndWeightClear();
   /** Room for so many entries. More than 65535 is fatal. */
   void viaAndWeightsReserve( U32 n );
   void viaAndWeightsShrinkToFit();

   /** Gives the first entry of `nextHop` that weight, at its index; appends one if there is none.
       Fatal if it is there and may be there several times. */
   void nextHopIs( const NextHop & nextHop, U32 weight );
   /** Removes all its entries. */
   void nextHopDel( const NextHop & nextHop );
   void delNextHops( const NextHopSetTransient & nextHops );
   /** Ascending indexes; one that is named twice is deleted once. */
   void delNextHopsAtIndexes( const Indexes & idxsToDel );
   /** Puts `replacement` into every entry of one of `nextHops`; the weights stay. */
   void replaceNextHops( const NextHopSetTransient & nextHops, const NextHop & replacement );
   void replaceNextHopsAtIndexes( const Indexes & idxsToDel, const NextHop & replacement );
   /** Merges neighbours that are equal, where duplicates are possible and this is no next-hop
       group. The weights of a merged run are added up to 2^32 - 1; what passes that begins
       another run. */
   void compressAdjacentVias();
   /** @} */

   /** @name Sharing */
   /** @{ */
   /** Shares the list with all equal ones that the table has seen, until the next write. */
   void consolidate( const PlatformApi::ViaListDedupTable * viaListDedupTable );
   void unconsolidate();
   void replaceViaListWrapper( const ViaListWrapper & wrapper );
   void viaListWrapperIs( const ViaListWrapper & v ) { replaceViaListWrapper( v ); }
   /** @} */

   /** Adds the total up from scratch. No call needs it; for lists that somebody else made. */
   void updateTotalWeight();
   /** The same for everything that is derived from the list. */
   void updateCaches() { updateTotalWeight(); }
   /** Fatal if an invariant does not hold. */
   void verify() const;

   bool operator==( const NextHopCollection & other ) const;
   std::strong_ordering operator<=>( const NextHopCollection & other ) const;
   bool isEq( const NextHopCollection & other ) const { return *this == other; }
   U64 hash() const;
   Velto::String stringValue() const;

 private:
   static constexpr U32 shimAttrsShift = 48;
   static constexpr U64 totalWeightMask = ( U64( 1 ) << shimAttrsShift ) - 1;

   const ViaList & list() const { return *viaListWrapper_.viaList(); }
   bool flag( U32 bit ) const { return flags_.flagsValue1() & bit; }
   void flagIs( U32 bit, bool v );
   bool all( NextHopType type ) const;
   template< class Test >
   bool any( Test && test ) const;

   ViaList & viaListMut();
   void viasAre( ViaList::Vias && vias );
   NextHopGroupInfo::Content & nhgInfoMut();
   template< class T >
   void listFlagIs( const T & ( PlatformApi::ViaListFlags::*get )() const,
                    void ( PlatformApi::ViaListFlags::*set )( T ), T v );
   template< class T >
   void nhgInfoFieldIs( const T & ( NextHopGroupInfo::Content::*get )() const,
                        void ( NextHopGroupInfo::Content::*set )( T ), T v );
   template< class Into >
   void compact( Into && into );
   template< class Gone >
   void erase( Gone && gone );
   template< class Replaced >
   void replace( Replaced && replaced, const NextHop & replacement );
   template< class Change >
   void changeManners( Change && change );
   void mergeDuplicates();
   void traceUnconsolidated() const;
   void totalWeightIs( U64 total ) {
      totalWeightAndShimAttrs_ =
            ( totalWeightAndShimAttrs_ & ~totalWeightMask ) | ( total & totalWeightMask );
   }

   ViaListWrapper viaListWrapper_;
   NextHopCollectionFlags flags_;
   NextHopGroupNhCollMetadata nhgMetadata_;
   U64 totalWeightAndShimAttrs_ = 0;
};

} // namespace Qon
