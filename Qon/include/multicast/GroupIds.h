#pragma once
// A set of virtual group ids. Ids are given one after the other, so 64 neighbours share a word.
//
//    GroupMembership of a port -> GroupIds: id / 64 -> a bit for each
//
// Invariants
// 1. A word that is there has a bit.
// 2. forEach() goes in the order in which the words came, and up in each. The set stays as it is meanwhile.
//
// Ownership: a value.

#include <bit>

#include "platform/Kiv/DenseMap.h"

namespace Qon {

class GroupIds {
 public:
   U32 size() const { return size_; }
   bool empty() const { return size_ == 0; }
   bool has( S64 id ) const {
      const U64 * word = words_.find( wordOf( id ) );
      return word && ( *word & bitOf( id ) );
   }
   /** Whether it is new. */
   bool insert( S64 id ) {
      U64 & word = *words_.emplace( wordOf( id ), 0 ).first;
      const bool fresh = !( word & bitOf( id ) );
      word |= bitOf( id );
      size_ += fresh;
      return fresh;
   }
   /** Whether it was there. */
   bool erase( S64 id ) {
      U64 * word = words_.find( wordOf( id ) );
      if ( !word || !( *word & bitOf( id ) ) ) {
         return false;
      }
      --size_;
      if ( ( *word &= ~bitOf( id ) ) == 0 ) {
         words_.erase( wordOf( id ) );
      }
      return true;
   }
   template< class Act >
   void forEach( Act && act ) const {
      for ( auto && [number, word] : words_ ) {
         for ( U64 rest = word; rest; rest &= rest - 1 ) {
            act( S64( U64( number ) << 6 | U64( std::countr_zero( rest ) ) ) );
         }
      }
   }

 private:
   static S64 wordOf( S64 id ) { return id >> 6; }
   static U64 bitOf( S64 id ) { return U64( 1 ) << ( id & 63 ); }

   Kiv::DenseMap< S64, U64 > words_;
   U32 size_ = 0;
};

} // namespace Qon
