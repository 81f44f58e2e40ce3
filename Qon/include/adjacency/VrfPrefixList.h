#pragma once
// The prefixes of one VRF and one address family that lead to one forwarding equivalence class (FEC).
//
//    AdjGlobalPrefixList --by AdjPrefixListBaseKey--> VrfPrefixList    set of Ulnet::Prefix
//                                                 \-> VrfPrefix6List   set of Ulnet::Ip6Prefix
//
//    one prefix, as in most     more
//    in the object              Kiv::DenseMap, until the list is empty
//
// Invariants
// 1. It is the same set in both forms, in order of insertion.
// 2. A walk copies the only prefix, and stays valid while others come and go as one of a Kiv::DenseMap
//    does, even if the list ends. One that began at the only prefix shows no other.
// 3. A list that was moved from is empty.
//
// Ownership: plain values; the list of the FEC owns them.

#include <optional>

#include "platform/Kiv/DenseMap.h"
#include "platform/types/Prefix.h"
#include "platform/types/Routing.h"
#include "platform/types/VrfId.h"

namespace Qon {

/** A VRF and an address family in one word: the VRF's number in the low 24 bits, the family's tag
    above: 1 for IPv4, 2 for IPv6. */
class AdjPrefixListBaseKey {
 public:
   static constexpr U32 mostVrfId = 0xffffff;

   constexpr AdjPrefixListBaseKey() = default;
   /** A VRF above mostVrfId is fatal: it would be taken for another one. */
   AdjPrefixListBaseKey( VrfId vrf, Ulnet::AddressFamily family );
   explicit AdjPrefixListBaseKey( const Velto::String & text )
       : value_( Kiv::fromText< U32 >( text ) ) {}

   constexpr U32 value() const { return value_; }
   VrfId vrfId() const { return VrfId( value_ & mostVrfId ); }
   /** 0 in no list's key. */
   constexpr U32 familyTag() const { return value_ >> 24; }
   Ulnet::AddressFamily family() const { return Ulnet::AddressFamily( familyTag() ); }

   bool operator==( const AdjPrefixListBaseKey & ) const = default;
   auto operator<=>( const AdjPrefixListBaseKey & ) const = default;
   U64 hash() const { return value_; }
   Velto::String stringValue() const { return Kiv::toText( value_ ); }

 private:
   U32 value_ = 0;
};

/** What lists of both families have. */
class AdjPrefixListBase {
 public:
   AdjPrefixListBaseKey key() const { return key_; }
   VrfId vrfId() const { return key_.vrfId(); }
   Ulnet::AddressFamily family() const { return key_.family(); }
   Routing::RoutePriority routePriority() const { return routePriority_; }

 protected:
   AdjPrefixListBase( AdjPrefixListBaseKey key, Routing::RoutePriority priority )
       : key_( key ), routePriority_( priority ) {}

   static constexpr U8 none = 0xff;
   static constexpr U8 many = 0xfe;

   AdjPrefixListBaseKey key_;
   Routing::RoutePriority routePriority_;
   U8 length_ = none; // of the only prefix, or which form it is

 private:
   friend class AdjPrefixLists;
   U16 spare_ = 0; // for the owner's use; kept here because the room is
};

template< class P >
class VrfPrefixListOf : public AdjPrefixListBase {
   using Many = Kiv::DenseMap< P, Kiv::Nothing >;
   using Bytes = typename P::Bytes;

 public:
   using Prefix = P;
   class Walk;

   explicit VrfPrefixListOf( VrfId vrf, Routing::RoutePriority priority = {} )
       : AdjPrefixListBase( AdjPrefixListBaseKey( vrf, P::family ), priority ) {}
   VrfPrefixListOf( VrfPrefixListOf && o ) noexcept : AdjPrefixListBase( o ) { take( o ); }
   VrfPrefixListOf & operator=( VrfPrefixListOf && o ) noexcept {
      prefixDelAll();
      AdjPrefixListBase::operator=( o );
      take( o );
      return *this;
   }
   ~VrfPrefixListOf() { prefixDelAll(); }

   bool prefixHas( const P & p ) const {
      return length_ == many ? many_.has( p ) : length_ == p.length() && one_ == p.bytes();
   }
   /** Whether it is new. */
   bool prefixIs( const P & p );
   /** Whether it was there. */
   bool prefixDel( const P & p );
   void prefixDelAll();
   /** How many there are. */
   U32 prefixs() const { return length_ == many ? many_.size() : length_ != none; }
   Walk prefixIteratorConst() const { return Walk( *this ); }

 private:
   P onlyOne() const { return P( one_, length_ ); }
   /** Makes room for several, with the only one in it. */
   void promote();
   void take( VrfPrefixListOf & o );

   union {
      Bytes one_ = {};
      Many many_; // when length_ says so
   };
};

using VrfPrefixList = VrfPrefixListOf< Ulnet::Prefix >;
using VrfPrefix6List = VrfPrefixListOf< Ulnet::Ip6Prefix >;

/** As a walk of a Kiv::DenseMap: `for ( auto i = list.prefixIteratorConst(); i; ++i ) i.key()`. */
template< class P >
class VrfPrefixListOf< P >::Walk {
 public:
   explicit Walk( const VrfPrefixListOf & list ) {
      if ( list.length_ == many ) {
         walk_.emplace( list.many_ );
      } else if ( list.length_ != none ) {
         one_ = list.onlyOne();
      }
   }
   explicit operator bool() const { return one_ || ( walk_ && *walk_ ); }
   Walk & operator++() {
      one_ ? one_.reset() : void( ++*walk_ );
      return *this;
   }
   /** Whether the current one has not been erased since; always of the only one. */
   bool alive() const { return one_ || walk_->alive(); }
   const P & key() const { return one_ ? *one_ : walk_->key(); }

 private:
   std::optional< typename Many::ConstWalk > walk_;
   std::optional< P > one_;
};

template< class P >
bool
VrfPrefixListOf< P >::prefixIs( const P & p ) {
   if ( length_ == none ) {
      one_ = p.bytes();
      length_ = U8( p.length() );
      return true;
   }
   if ( length_ != many ) {
      if ( prefixHas( p ) ) {
         return false;
      }
      promote();
   }
   return many_.emplace( p ).second;
}

template< class P >
bool
VrfPrefixListOf< P >::prefixDel( const P & p ) {
   if ( length_ == many ) {
      return many_.erase( p ); // an empty one takes no room
   }
   const bool was = prefixHas( p );
   length_ = was ? none : length_;
   return was;
}

template< class P >
void
VrfPrefixListOf< P >::prefixDelAll() {
   if ( length_ == many ) {
      many_.~Many();
   }
   length_ = none;
}

template< class P >
void
VrfPrefixListOf< P >::promote() {
   const P only = onlyOne();
   new ( &many_ ) Many;
   length_ = many;
   many_.emplace( only );
}

template< class P >
void
VrfPrefixListOf< P >::take( VrfPrefixListOf & o ) {
   if ( length_ == many ) {
      new ( &many_ ) Many( std::move( o.many_ ) );
   } else {
      one_ = o.one_;
   }
   o.prefixDelAll();
}

} // namespace Qon
