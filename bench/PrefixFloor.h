#pragma once
// What prefix lists are compared with: for each forwarding class one dense map of its prefixes, found
// through one hash table of classes, with counts; no VRFs, no notification, no walks.

#include <memory>
#include <vector>

#include "platform/Kiv/Hash.h"
#include "platform/types/IpAddr.h"

namespace Bench {

/** A dense map: the prefixes in a row, and their positions by hash; from half full on twice as many. */
template< class P >
class PlainMap {
 public:
   bool add( const P & p ) {
      if ( ( used_ + 1 ) * 2 > index_.size() ) {
         grow();
      }
      U32 & slot = index_[search( p )];
      if ( slot ) {
         return false;
      }
      entries_.push_back( p );
      slot = U32( entries_.size() );
      ++used_;
      return true;
   }
   bool has( const P & p ) const { return !index_.empty() && index_[search( p )]; }
   bool remove( const P & p ) {
      U32 * slot = index_.empty() ? nullptr : &index_[search( p )];
      if ( !slot || !*slot ) {
         return false;
      }
      if ( *slot != entries_.size() ) { // the last one takes its place
         index_[search( entries_.back() )] = *slot;
         entries_[*slot - 1] = entries_.back();
      }
      entries_.pop_back();
      *slot = gone;
      return true;
   }

 private:
   static constexpr U32 gone = ~0u;
   U32 search( const P & p ) const {
      const U32 mask = U32( index_.size() ) - 1;
      U32 i = U32( Kiv::mix( p.hash() ) ) & mask;
      while ( index_[i] && ( index_[i] == gone || entries_[index_[i] - 1] != p ) ) {
         i = ( i + 1 ) & mask;
      }
      return i;
   }
   void grow() {
      index_.assign( index_.empty() ? 8 : index_.size() * 2, 0 );
      used_ = U32( entries_.size() );
      for ( U32 i = 0; i < entries_.size(); ++i ) {
         index_[search( entries_[i] )] = i + 1;
      }
   }
   std::vector< U32 > index_;
   std::vector< P > entries_;
   U32 used_ = 0; // places of the index, those that are left included
};

template< class P >
class PlainLists {
 public:
   explicit PlainLists( U32 fecs ) {
      U32 room = 8;
      while ( room < fecs * 2 ) {
         room *= 2;
      }
      slots_.resize( room );
   }
   struct Fec {
      U64 id = 0;
      U32 prefixes = 0;
      U32 defaults = 0;
      PlainMap< P > map;
   };
   void add( U64 id, const P & p ) {
      auto & slot = slots_[search( id )];
      if ( !slot ) {
         slot = std::make_unique< Fec >();
         slot->id = id;
      }
      if ( slot->map.add( p ) ) {
         ++slot->prefixes;
         slot->defaults += p.isDefaultRoute();
      }
   }
   bool has( U64 id, const P & p ) const {
      auto & slot = slots_[search( id )];
      return slot && slot->map.has( p );
   }
   void remove( U64 id, const P & p ) {
      auto & slot = slots_[search( id )];
      if ( slot && slot->map.remove( p ) ) {
         slot->defaults -= p.isDefaultRoute();
         if ( --slot->prefixes == 0 ) {
            slot->map = {};
         }
      }
   }

 private:
   U32 search( U64 id ) const {
      const U32 mask = U32( slots_.size() ) - 1;
      U32 i = U32( Kiv::mix( id ) ) & mask;
      while ( slots_[i] && slots_[i]->id != id ) {
         i = ( i + 1 ) & mask;
      }
      return i;
   }
   std::vector< std::unique_ptr< Fec > > slots_;
};

template< class P >
P
prefixOf( U32 i ) {
   typename P::Bytes bytes = {};
   for ( U32 k = 0; k < 4; ++k ) {
      bytes[k] = U8( i * 2654435761u >> ( 24 - 8 * k ) ); // a bijection, so that no two are equal
   }
   return P( bytes, 32 );
}

} // namespace Bench
