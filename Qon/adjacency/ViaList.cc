#include "Qon/include/adjacency/ViaList.h"

#include "Qon/include/adjacency/L2AdjAssert.h"
#include "platform/Kiv/Attr.h"

namespace Qon {

const EncapInfo &
getEncapInfo( const NextHop & via ) {
   return via ? via->viaGen().encapInfo() : Kiv::absent< EncapInfo >();
}

} // namespace Qon

namespace Qon::PlatformApi {

ViaList::Ptr
ViaList::copyWith( Vias && others ) const {
   auto fresh = Velto::make< ViaList >();
   fresh->vias = std::move( others );
   fresh->flags = flags;
   fresh->groupInfo = groupInfo;
   fresh->tunnelType = tunnelType;
   return fresh;
}

const NextHopGroupInfo::Content &
ViaList::groupContent() const {
   return groupInfo ? groupInfo->content() : Kiv::absent< NextHopGroupInfo::Content >();
}

bool
ViaList::operator==( const ViaList & other ) const {
   return flags == other.flags && sameContent( other );
}

bool
ViaList::sameContent( const ViaList & other ) const {
   return tunnelType == other.tunnelType && flags.unrecorded() == other.flags.unrecorded() &&
          vias == other.vias &&
          ( groupInfo == other.groupInfo ||
            ( groupInfo && other.groupInfo &&
              groupInfo->content() == other.groupInfo->content() ) );
}

std::strong_ordering
ViaList::compareContent( const ViaList & other ) const {
   if ( auto byVias = vias <=> other.vias; byVias != 0 ) {
      return byVias;
   }
   if ( auto byFlags = flags.unrecorded() <=> other.flags.unrecorded(); byFlags != 0 ) {
      return byFlags;
   }
   if ( !groupInfo || !other.groupInfo ) {
      if ( auto byPresence = bool( groupInfo ) <=> bool( other.groupInfo ); byPresence != 0 ) {
         return byPresence;
      }
   } else if ( auto byInfo = groupInfo->content() <=> other.groupInfo->content(); byInfo != 0 ) {
      return byInfo;
   }
   return tunnelType <=> other.tunnelType;
}

U64
ViaList::contentHash() const {
   return interned() ? contentHash_ : computeHash();
}

U64
ViaList::computeHash() const {
   U64 h = Kiv::hashOf( vias.size(), flags.unrecorded().hash(), tunnelType );
   for ( const auto & entry : vias ) {
      h = Kiv::hashCombine( h, entry.via().hash() + entry.weight() );
   }
   return groupInfo ? Kiv::hashCombine( h, groupInfo->content().hash() ) : h;
}

namespace {
using OptionalContent = std::optional< NextHopGroupInfo::Content >;
}

Velto::String
ViaList::stringValue() const {
   Kiv::ValueWriter w( "Qon::PlatformApi::ViaList" );
   w.field( "viaAndWeight", vias );
   w.field( "flags", flags );
   w.field( "nhgInfo", groupInfo ? OptionalContent( groupInfo->content() ) : OptionalContent() );
   w.field( "tunnelType", tunnelType );
   return w.text();
}

void
ViaList::read( const Velto::String & text ) {
   for ( Kiv::ValueReader r( "Qon::PlatformApi::ViaList", text ); r.next(); ) {
      if ( r.is( "viaAndWeight" ) ) {
         r.get( vias );
         if ( vias.size() > mostVias ) {
            Kiv::textRefused( "at most 65535 entries", Kiv::toText( U64( vias.size() ) ) );
         }
         for ( const auto & entry : vias ) {
            if ( entry.weight() == 0 ) {
               Kiv::textRefused( "weights of 1 or more", entry.stringValue() );
            }
         }
      } else if ( r.is( "flags" ) ) {
         r.get( flags );
      } else if ( r.is( "nhgInfo" ) ) {
         const auto content = Kiv::fromText< OptionalContent >( r.value() );
         groupInfo = content ? Velto::make< NextHopGroupInfo >( *content ) : nullptr;
      } else if ( r.is( "tunnelType" ) ) {
         r.get( tunnelType );
      } else {
         r.refuseField();
      }
   }
}

ViaList::Ptr
ViaListDedupTable::dedup( const ViaList::Ptr & viaList ) const {
   const U64 contentHash = viaList->contentHash();
   viaList->contentHash_ = contentHash;
   const U32 recorded =
         viaList->flags.mayContainDuplicateNextHops() + 2 * viaList->flags.specifiesNextHopOrder();
   return set_.intern( viaList, Kiv::hashCombine( contentHash, recorded ) );
}

} // namespace Qon::PlatformApi

namespace Qon {

const PlatformApi::ViaList::Ptr &
ViaListWrapper::globalDefaultViaList() {
   // Never destroyed: collections may outlive everything.
   static const auto & list = *new ViaList::Ptr( Velto::make< ViaList >() );
   return list;
}

ViaListWrapper::ViaListWrapper( const Velto::String & text ) : ViaListWrapper() {
   for ( Kiv::ValueReader r( "Qon::ViaListWrapper", text ); r.next(); ) {
      if ( r.is( "viaList" ) ) {
         ViaList & list = viaListMut();
         list.read( r.value() );
         list.flags = list.flags.unrecorded();
      } else if ( !r.is( "consolidated" ) ) { // there is no table: it begins anew
         r.refuseField();
      }
   }
   if ( *viaList_ == *globalDefaultViaList() ) {
      viaList_ = globalDefaultViaList();
   }
}

Velto::String
ViaListWrapper::stringValue() const {
   Kiv::ValueWriter w( "Qon::ViaListWrapper" );
   w.field( "viaList", *viaList_ );
   w.field( "consolidated", consolidated_ );
   return w.text();
}

PlatformApi::ViaList &
ViaListWrapper::viaListMut() {
   unconsolidate();
   KivStash::makeSole( viaList_, []( const ViaList & shared ) { return shared.copyViaList(); } );
   const auto & globalDefaultViaList_ = globalDefaultViaList();
   QON_L2ADJ_ASSERT( viaList_->useCount() == 1 );
   QON_L2ADJ_ASSERT( viaList_ != globalDefaultViaList_ );
   return *viaList_;
}

void
ViaListWrapper::viasAre( ViaList::Vias && vias ) {
   if ( shared() ) {
      viaList_ = viaList_->copyWith( std::move( vias ) );
      viaList_->flags = viaList_->flags.unrecorded();
      consolidated_ = false;
   } else {
      viaListMut().vias = std::move( vias );
   }
}

void
ViaListWrapper::consolidate( const PlatformApi::ViaListDedupTable & table,
                             bool mayContainDuplicates, bool specifiesOrder ) {
   ViaList & list = viaListMut();
   list.vias.shrink_to_fit();
   list.flags.mayContainDuplicateNextHopsIs( mayContainDuplicates );
   list.flags.specifiesNextHopOrderIs( specifiesOrder );
   viaList_ = table.dedup( viaList_ );
   consolidated_ = true;
}

void
ViaListWrapper::unconsolidate() {
   if ( consolidated_ ) {
      KivStash::makeSole( viaList_, []( const ViaList & shared ) { return shared.copyViaList(); } );
      viaList_->flags = viaList_->flags.unrecorded();
      consolidated_ = false;
   }
}

} // namespace Qon
