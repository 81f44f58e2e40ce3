#pragma once
// The vias of one forwarding equivalence class, in a list that collections share.
//
//    NextHopCollection -> ViaListWrapper -> ViaList <- other collections
//                                              ^
//                                       ViaListDedupTable, while anybody holds it
//
// Invariants
// 1. A list that is shared, or stands in a table, does not change: who writes takes a copy, or the
//    list out of the table if nobody else holds it.
// 2. Two lists are content-equal by their vias and weights in order, their flags, the group
//    information and the tunnel type. What consolidation recorded (may hold duplicates, order
//    matters) does not count there; in a table it does.
// 3. The empty list that all fresh collections share is never written and never in a table.

#include "Qon/include/adjacency/Via.h"

namespace Qon {
class NextHopCollection;
}

namespace Qon::PlatformApi {

enum class LabelType : U8 { labelUnset, labelPerPrefix, labelPerNextHop, labelPerVrf };
KIV_ENUM( LabelType, labelUnset, labelPerPrefix, labelPerNextHop, labelPerVrf )

enum class MplsPayloadType : U8 { payloadUnset, payloadIp, payloadIpv4, payloadIpv6, payloadMpls };
KIV_ENUM( MplsPayloadType, payloadUnset, payloadIp, payloadIpv4, payloadIpv6, payloadMpls )

enum class MplsTtlMode : U8 { ttlUnset, ttlUniform, ttlPipe };
KIV_ENUM( MplsTtlMode, ttlUnset, ttlUniform, ttlPipe )

enum class GreKeyType : U8 { greKeyUnset, greKeyIngressInterface };
KIV_ENUM( GreKeyType, greKeyUnset, greKeyIngressInterface )

class ViaListFlags {
   bool dlbEcmpEnable_ = false;
   LabelType labelType_ = LabelType::labelUnset;
   MplsPayloadType mplsPayloadType_ = MplsPayloadType::payloadUnset;
   MplsTtlMode mplsTtlMode_ = MplsTtlMode::ttlUnset;
   // recorded by consolidation
   bool mayContainDuplicateNextHops_ = false;
   bool specifiesNextHopOrder_ = false;
   KIV_VALUE( Qon::PlatformApi, ViaListFlags, dlbEcmpEnable, labelType, mplsPayloadType,
              mplsTtlMode, mayContainDuplicateNextHops, specifiesNextHopOrder )

   /** Without what consolidation recorded. */
   ViaListFlags unrecorded() const {
      return { dlbEcmpEnable_, labelType_, mplsPayloadType_, mplsTtlMode_, false, false };
   }
};

/** What an entry of a next-hop group was resolved to. */
class NextHopGroupEntryResolution {
   Kiv::ValueList< NextHop > nextHop_;
   KIV_VALUE( Qon::PlatformApi, NextHopGroupEntryResolution, nextHop )
};

/** What the next-hop group that a list was made of says besides its vias. Shared like the list. */
class NextHopGroupInfo : public Velto::Node {
 public:
   using Ptr = Velto::Ptr< NextHopGroupInfo >;

   class Content {
      U32 nhgId_ = 0;
      GreKeyType greKeyType_ = GreKeyType::greKeyUnset;
      U8 tos_ = 0;
      U32 ttl_ = 0;
      Kiv::ValueMap< U32, NextHopGroupEntryResolution > entryResolution_; // by entry index
      KIV_VALUE( Qon::PlatformApi::NextHopGroupInfo, Content, nhgId, greKeyType, tos, ttl,
                 entryResolution )
   };
   NextHopGroupInfo() = default;
   explicit NextHopGroupInfo( const Content & content ) : content_( content ) {}
   const Content & content() const { return content_; }

 private:
   friend class Qon::NextHopCollection; // which copies before it writes
   Content content_;
};

class ViaList final : public KivStash::Dedupable< ViaList > {
 public:
   using Ptr = Velto::Ptr< ViaList >;
   using Snapshot = Velto::Ptr< const ViaList >;
   using Content = ViaList;
   using Vias = Kiv::ValueList< ViaAndWeight >;
   using TunnelType = Tunnel::TunnelTable::Type;
   static constexpr U32 mostVias = 65535;

   ViaList() = default;
   ~ViaList() override { dedupLeave(); }
   /** A list of its own with the same content and flags; the group information is shared. */
   Ptr copyViaList() const { return copyWith( Vias( vias ) ); }
   /** The same with other vias. */
   Ptr copyWith( Vias && others ) const;

   /** How many there are. */
   U32 viaAndWeights() const { return U32( vias.size() ); }
   NextHopGroupInfo * nhgInfo() const { return groupInfo.ptr(); }
   /** The group's information, or an empty one. */
   const NextHopGroupInfo::Content & groupContent() const;

   const ViaList & dedupContent() const { return *this; }
   bool operator==( const ViaList & other ) const;
   bool sameContent( const ViaList & other ) const;
   std::strong_ordering compareContent( const ViaList & other ) const;
   U64 contentHash() const;
   Velto::String stringValue() const;
   /** Takes over what the text says; raises Velto::RangeError, also for a weight of 0 and for more
       than 65535 entries. */
   void read( const Velto::String & text );

   // For whoever may write.
   Vias vias;
   ViaListFlags flags;
   NextHopGroupInfo::Ptr groupInfo;
   TunnelType tunnelType = TunnelType::none;

 private:
   friend class ViaListDedupTable;
   U64 computeHash() const;
   U64 contentHash_ = 0; // while it is in a table
};

/** Where equal lists meet. */
class ViaListDedupTable {
 public:
   /** The list of the table that equals `viaList`; that itself from now on, if there was none. */
   ViaList::Ptr dedup( const ViaList::Ptr & viaList ) const;
   /** How many lists it holds: those that somebody else holds. */
   U32 viaLists() const { return set_.size(); }

 private:
   KivStash::DedupSet< ViaList > set_;
};

} // namespace Qon::PlatformApi

namespace Qon {

/** A collection's hold of its list: copied before it is written. */
class ViaListWrapper {
 public:
   using ViaList = PlatformApi::ViaList;

   /** The empty list that all share. */
   ViaListWrapper() : viaList_( globalDefaultViaList() ) {}
   ViaListWrapper( const ViaListWrapper & ) = default;
   ViaListWrapper( ViaListWrapper && o ) noexcept
       : viaList_( std::exchange( o.viaList_, globalDefaultViaList() ) ),
         consolidated_( std::exchange( o.consolidated_, false ) ) {}
   ViaListWrapper & operator=( ViaListWrapper o ) noexcept {
      std::swap( viaList_, o.viaList_ );
      std::swap( consolidated_, o.consolidated_ );
      return *this;
   }
   explicit ViaListWrapper( const Velto::String & text );

   const ViaList * viaList() const { return viaList_.ptr(); }
   /** Whether the list is shared through a dedup table. */
   bool consolidated() const { return consolidated_; }
   static const ViaList::Ptr & globalDefaultViaList();

   /** By the lists' content; the mark takes no part. */
   bool operator==( const ViaListWrapper & other ) const {
      return viaList_ == other.viaList_ || viaList_->sameContent( *other.viaList_ );
   }
   std::strong_ordering operator<=>( const ViaListWrapper & other ) const {
      return viaList_ == other.viaList_ ? std::strong_ordering::equal
                                        : viaList_->compareContent( *other.viaList_ );
   }
   bool isEq( const ViaListWrapper & other ) const { return *this == other; }
   U64 hash() const { return viaList_->contentHash(); }
   Velto::String stringValue() const;

 private:
   friend class NextHopCollection;
   /** The list for writing: this wrapper's alone. It is not consolidated. */
   ViaList & viaListMut();
   /** Whether somebody else may hold the list: then viaListMut() copies it. */
   bool shared() const { return consolidated_ || viaList_->useCount() > 1; }
   /** As viaListMut(), with these vias in the place of those that there are. */
   void viasAre( ViaList::Vias && vias );
   void consolidate( const PlatformApi::ViaListDedupTable & table, bool mayContainDuplicates,
                     bool specifiesOrder );
   void unconsolidate();

   ViaList::Ptr viaList_;
   bool consolidated_ = false;
};

} // namespace Qon
