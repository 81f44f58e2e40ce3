#pragma once
// The prefixes of one VRF and one address family that lead to one forwarding equivalence class (FEC).
//
//    AdjGlobalPrefixList --by AdjPrefixListBaseKey--> VrfPrefixList    set of Ulnet::Prefix
//                                                 \-> VrfPrefix6List   set of Ulnet::Ip6Prefix
//
//    one prefix, as in most     up to 640                     more
//    in the object              PrefixBlock, until empty      Kiv::DenseMap, until empty
//
// Invariants
// 1. It is the same set in all forms, in order of insertion. No change takes time by its size.
// 2. A walk stays valid whatever becomes of the list. It visits once each prefix that is there from its
//    beginning to its end; one that comes or goes meanwhile is visited or not.
// 3. A list that was moved from is empty.
//
// Ownership: plain values; the list of the FEC owns them.

#include <optional>
#include <vector>

#include "Qon/include/adjacency/PrefixBlock.h"
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
   static constexpr U8 block = 0xe0; // and the bits of its size

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
   using Block = PrefixBlock< P >;
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
      return inBlock()         ? block_->has( bits(), p )
             : length_ == many ? many_.has( p )
                               : length_ == p.length() && one_ == p.bytes();
   }
   /** Whether it is new. */
   bool prefixIs( const P & p );
   /** Whether it was there. */
   bool prefixDel( const P & p );
   void prefixDelAll();
   /** How many there are. */
   U32 prefixs() const {
      return inBlock() ? block_->live() : length_ == many ? many_.size() : length_ != none;
   }
   Walk prefixIteratorConst() const { return Walk( *this ); }

 private:
   bool inBlock() const { return U32( length_ - block ) <= Block::mostBits; }
   U32 bits() const { return U32( length_ - block ); }
   P onlyOne() const { return P( one_, length_ ); }
   /** Calls act( prefix ) for each, where there are not many. */
   template< class Act >
   void eachOfFew( Act && act ) const;
   /** Moves those that are few into a block of 2^bits slots, or what holds more. */
   void moveInto( U32 bits );
   void take( VrfPrefixListOf & o );

   union {
      Bytes one_ = {};
      Block * block_; // when length_ says so
      Many many_;     // likewise
   };
};

using VrfPrefixList = VrfPrefixListOf< Ulnet::Prefix >;
using VrfPrefix6List = VrfPrefixListOf< Ulnet::Ip6Prefix >;

/** `for ( auto i = list.prefixIteratorConst(); i; ++i ) i.key()`. Few prefixes are copied. */
template< class P >
class VrfPrefixListOf< P >::Walk {
 public:
   explicit Walk( const VrfPrefixListOf & list ) {
      if ( list.length_ == many ) {
         walk_.emplace( list.many_ );
      } else {
         list.eachOfFew( [this]( const P & p ) { few_.push_back( p ); } );
      }
   }
   explicit operator bool() const { return walk_ ? bool( *walk_ ) : at_ < few_.size(); }
   Walk & operator++() {
      walk_ ? void( ++*walk_ ) : void( ++at_ );
      return *this;
   }
   /** Holds until the prefix is erased; better copied by who erases. */
   const P & key() const { return walk_ ? walk_->key() : few_[at_]; }

 private:
   std::optional< typename Many::ConstWalk > walk_;
   std::vector< P > few_;
   U32 at_ = 0;
};

template< class P >
template< class Act >
void
VrfPrefixListOf< P >::eachOfFew( Act && act ) const {
   if ( inBlock() ) {
      block_->each( bits(), act );
   } else if ( length_ != none ) {
      act( onlyOne() );
   }
}

template< class P >
bool
VrfPrefixListOf< P >::prefixIs( const P & p ) {
   if ( length_ == many ) {
      return many_.emplace( p ).second;
   }
   if ( prefixHas( p ) ) {
      return false;
   }
   if ( length_ == none ) {
      one_ = p.bytes();
      length_ = U8( p.length() );
      return true;
   }
   if ( !inBlock() ) {
      moveInto( Block::leastBits );
   } else if ( block_->full( bits() ) ) {
      moveInto( block_->live() * 2 <= Block::room( bits() ) ? bits() : bits() + 1 );
   }
   length_ == many ? void( many_.emplace( p ) ) : block_->add( bits(), p );
   return true;
}

template< class P >
bool
VrfPrefixListOf< P >::prefixDel( const P & p ) {
   if ( length_ == many ) {
      return many_.erase( p ); // an empty one takes no room
   }
   if ( !inBlock() ) {
      const bool was = prefixHas( p );
      length_ = was ? none : length_;
      return was;
   }
   const bool was = block_->remove( bits(), p );
   if ( was && block_->live() == 0 ) {
      prefixDelAll();
   } else if ( was && bits() > Block::leastBits && block_->live() << 4 < 1u << bits() ) {
      moveInto( std::max( bits() - 2, Block::leastBits ) );
   }
   return was;
}

template< class P >
void
VrfPrefixListOf< P >::prefixDelAll() {
   if ( length_ == many ) {
      many_.~Many();
   } else if ( inBlock() ) {
      Block::free( block_ );
   }
   length_ = none;
}

template< class P >
void
VrfPrefixListOf< P >::moveInto( U32 bits ) {
   VrfPrefixListOf into( vrfId() );
   if ( bits > Block::mostBits ) {
      new ( &into.many_ ) Many;
      into.length_ = many;
      eachOfFew( [&]( const P & p ) { into.many_.emplace( p ); } );
   } else {
      into.block_ = Block::make( bits );
      into.length_ = U8( block + bits );
      eachOfFew( [&]( const P & p ) { into.block_->add( bits, p ); } );
   }
   prefixDelAll();
   length_ = into.length_;
   take( into );
}

/** Takes over the prefixes of `o`, whose form this has been told to have. */
template< class P >
void
VrfPrefixListOf< P >::take( VrfPrefixListOf & o ) {
   if ( inBlock() ) {
      block_ = o.block_;
      o.length_ = none;
   } else if ( length_ == many ) {
      new ( &many_ ) Many( std::move( o.many_ ) );
   } else {
      one_ = o.one_;
   }
   o.prefixDelAll();
}

} // namespace Qon
