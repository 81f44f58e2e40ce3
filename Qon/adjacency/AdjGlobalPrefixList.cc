#include "Qon/include/adjacency/AdjGlobalPrefixList.h"

#include <limits>

#include "platform/Velto/Scope.h"

namespace Qon {

using Ulnet::AddressFamily;
using Velto::String;

namespace {

// The two families' counts. Their names are part of the texts of failed checks.
template< class P >
struct Counts;

#define QON_PREFIX_COUNTS_( P, total, defaults )                                                   \
   template<>                                                                                      \
   struct Counts< P > {                                                                            \
      static void inc( AdjGlobalPrefixList * adjPfxLists, bool isDefault ) {                       \
         VELTO_ASSERT( adjPfxLists->total() < std::numeric_limits< U32 >::max() );                 \
         adjPfxLists->total##Is( adjPfxLists->total() + 1 );                                       \
         if ( isDefault ) {                                                                        \
            VELTO_ASSERT( adjPfxLists->defaults() < std::numeric_limits< U16 >::max() );           \
            adjPfxLists->defaults##Is( U16( adjPfxLists->defaults() + 1 ) );                       \
         }                                                                                         \
      }                                                                                            \
      static void dec( AdjGlobalPrefixList * adjPfxLists, bool isDefault ) {                       \
         VELTO_ASSERT( adjPfxLists->total() != 0 );                                                \
         adjPfxLists->total##Is( adjPfxLists->total() - 1 );                                       \
         if ( isDefault ) {                                                                        \
            VELTO_ASSERT( adjPfxLists->defaults() != 0 );                                          \
            adjPfxLists->defaults##Is( U16( adjPfxLists->defaults() - 1 ) );                       \
         }                                                                                         \
      }                                                                                            \
   };
QON_PREFIX_COUNTS_( Ulnet::Prefix, v4PrefixCount, defaultV4PrefixCount )
QON_PREFIX_COUNTS_( Ulnet::Ip6Prefix, v6PrefixCount, defaultV6PrefixCount )
#undef QON_PREFIX_COUNTS_

/** Adds the prefixes of a list, and how many of them are the default route. */
template< class List >
void
sum( const AdjPrefixListBase & list, U32 & total, U32 & defaults ) {
   const auto & typed = static_cast< const List & >( list );
   total += typed.prefixs();
   defaults += typed.prefixHas( typename List::Prefix() );
}

} // namespace

AdjPrefixListBaseKey::AdjPrefixListBaseKey( VrfId vrf, AddressFamily family ) {
   const U32 vrfId = vrf.value();
   VELTO_ASSERT( vrfId <= 0xffffff );
   value_ = U32( family ) << 24 | vrfId;
}

// One FEC

template< class List >
const List *
AdjGlobalPrefixList::listOf( VrfId vrf ) const {
   const bool may = vrf.value() <= AdjPrefixListBaseKey::mostVrfId;
   return may ? static_cast< const List * >( prefixList( { vrf, List::Prefix::family } ) )
              : nullptr;
}
template const VrfPrefixList * AdjGlobalPrefixList::listOf( VrfId ) const;
template const VrfPrefix6List * AdjGlobalPrefixList::listOf( VrfId ) const;

String
AdjGlobalPrefixList::checkInvariants() const {
   U32 v4 = 0, v6 = 0, defaultV4 = 0, defaultV6 = 0, lists = 0;
   for ( auto i = prefixListIteratorConst(); i; ++i, ++lists ) {
      const U32 before = v4 + v6;
      if ( i.value().family() == AddressFamily::ipv4 ) {
         sum< VrfPrefixList >( i.value(), v4, defaultV4 );
      } else {
         sum< VrfPrefix6List >( i.value(), v6, defaultV6 );
      }
      if ( v4 + v6 == before || i.value().key() != i.key() ) {
         return "FEC " + name() + ": list " + i.key().stringValue() +
                " is empty, or of another key";
      }
   }
   const bool right = lists == prefixLists() && v4 == v4PrefixCount() && v6 == v6PrefixCount() &&
                      defaultV4 == defaultV4PrefixCount() && defaultV6 == defaultV6PrefixCount();
   return right ? "" : "FEC " + name() + ": the counts are not those of its lists";
}

void
AdjPrefixCountStatus::notify( const AdjGlobalPrefixList::PtrConst &, AddressFamily ) {}

// All of them

/** One notification under way; they nest. Lives on the stack. */
struct AdjGlobalPrefixListWrapper::Telling {
   Telling( AdjGlobalPrefixListWrapper * wrapper, const AdjGlobalPrefixList & list )
       : of( wrapper ), told( list ), outer( wrapper->telling_ ) {
      of->telling_ = this;
   }
   Telling( const Telling & ) = delete;
   Telling & operator=( const Telling & ) = delete;
   ~Telling() { of->telling_ = outer; }

   AdjGlobalPrefixListWrapper * of;
   const AdjGlobalPrefixList & told;
   Telling * outer;
};

/** Fatal while `list` is told of. */
void
AdjGlobalPrefixListWrapper::checkQuiet( const AdjGlobalPrefixList & list ) const {
   const auto notifying = [&] {
      const Telling * t = telling_;
      while ( t && &t->told != &list ) {
         t = t->outer;
      }
      return t != nullptr;
   };
   VELTO_ASSERT( !notifying() );
}

void
AdjGlobalPrefixListWrapper::tell( const AdjGlobalPrefixList & list, AddressFamily family,
                                  AdjPrefixCountStatus * status ) {
   const Telling telling( this, list );
   status->notify( AdjGlobalPrefixList::PtrConst( &list ), family );
}

AdjGlobalPrefixList::Ptr
AdjGlobalPrefixListWrapper::adjGlobalPrefixListIs( const GlobalFecId & fecId ) {
   if ( auto held = lists_.find( fecId ) ) {
      return *held;
   }
   return *lists_.emplace( fecId, Velto::make< AdjGlobalPrefixList >( fecId ) ).first;
}

void
AdjGlobalPrefixListWrapper::adjGlobalPrefixListDel( const GlobalFecId & fecId ) {
   if ( auto * list = adjGlobalPrefixList( fecId ) ) {
      checkQuiet( *list );
      lists_.erase( fecId );
   }
}

template< class P >
void
AdjGlobalPrefixListWrapper::prefixIs( GlobalFecId fecId, VrfId vrfId, P prefix,
                                      AdjPrefixCountStatus * status ) {
   using List = VrfPrefixListOf< P >;
   const AdjPrefixListBaseKey key( vrfId, P::family );
   const AdjGlobalPrefixList::Ptr adjPfxLists = adjGlobalPrefixListIs( fecId );
   if ( !status ) {
      if ( adjPfxLists->lists_.listIs< List >( key ).prefixIs( prefix ) ) {
         checkQuiet( *adjPfxLists );
         Counts< P >::inc( adjPfxLists.ptr(), prefix.isDefaultRoute() );
      }
      return;
   }
   List & list = adjPfxLists->lists_.listIs< List >( key );
   if ( list.prefixHas( prefix ) ) {
      return;
   }
   checkQuiet( *adjPfxLists );
   Counts< P >::inc( adjPfxLists.ptr(), prefix.isDefaultRoute() );
   const Velto::AtEnd counted( [&] { list.prefixIs( prefix ); } );
   const Velto::Hold alive( this );
   tell( *adjPfxLists, P::family, status );
}

template< class P >
void
AdjGlobalPrefixListWrapper::prefixDel( GlobalFecId fecId, VrfId vrfId, P prefix,
                                       AdjPrefixCountStatus * status ) {
   using List = VrfPrefixListOf< P >;
   const AdjGlobalPrefixList::Ptr adjPfxLists( adjGlobalPrefixList( fecId ) );
   if ( !adjPfxLists || vrfId.value() > AdjPrefixListBaseKey::mostVrfId ) {
      return;
   }
   const AdjPrefixListBaseKey key( vrfId, P::family );
   List * list = adjPfxLists->lists_.findAs< List >( key );
   if ( !list || !list->prefixDel( prefix ) ) {
      return;
   }
   checkQuiet( *adjPfxLists );
   Counts< P >::dec( adjPfxLists.ptr(), prefix.isDefaultRoute() );
   const Velto::Hold alive( this );
   Velto::FirstError error;
   if ( status ) {
      error.run( [&] { tell( *adjPfxLists, P::family, status ); } );
   }
   if ( list->prefixs() == 0 ) {
      adjPfxLists->lists_.listDel( key );
   }
   if ( adjPfxLists->prefixLists() == 0 ) {
      VELTO_ASSERT( adjPfxLists->v4PrefixCount() == 0 && adjPfxLists->v6PrefixCount() == 0 );
      lists_.erase( fecId );
   }
   error.pass();
}

template void AdjGlobalPrefixListWrapper::prefixIs( GlobalFecId, VrfId, Ulnet::Prefix,
                                                    AdjPrefixCountStatus * );
template void AdjGlobalPrefixListWrapper::prefixIs( GlobalFecId, VrfId, Ulnet::Ip6Prefix,
                                                    AdjPrefixCountStatus * );
template void AdjGlobalPrefixListWrapper::prefixDel( GlobalFecId, VrfId, Ulnet::Prefix,
                                                     AdjPrefixCountStatus * );
template void AdjGlobalPrefixListWrapper::prefixDel( GlobalFecId, VrfId, Ulnet::Ip6Prefix,
                                                     AdjPrefixCountStatus * );

String
AdjGlobalPrefixListWrapper::checkInvariants() const {
   for ( auto && [fecId, list] : adjGlobalPrefixListIteratorConst() ) {
      if ( list->fecId() != fecId ) {
         return "FEC " + fecId.stringValue() + " has the list of FEC " + list->name();
      }
      if ( const String broken = list->checkInvariants(); !broken.empty() ) {
         return broken;
      }
   }
   return "";
}

} // namespace Qon
