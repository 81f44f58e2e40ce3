#pragma once
// Reading back what a chip holds a piece at a time, so that whoever shows a large table never holds
// all of it, and never keeps anybody from other work for long.
//
//    part->readVlans() -> Reading: next( vlan, members ) until there are no more
//                                  at( vlan )
//
// A chip whose tables can be looked up derives from Reading. For one that can only be read as a whole
// there is WholeReading: a copy of everything, made when the reading begins.
//
// Invariants
// 1. Each piece is what the chip holds when it is asked for (a WholeReading: when it began). The
//    table may change between two pieces: one that is there all the time is told once.
// 2. Reading changes nothing.
//
// Ownership: whoever reads owns the reading; the chip outlives it.

#include <memory>
#include <optional>

#include "platform/Velto/Types.h"

namespace QonChip {

template< class K, class V >
class Reading {
 public:
   using Key = K;
   using Held = V;

   Reading() = default;
   Reading( const Reading & ) = delete;
   Reading & operator=( const Reading & ) = delete;
   virtual ~Reading() = default;

   /** The next piece; false behind the last one. */
   virtual bool next( Key & key, Held & held ) = 0;
   /** What the chip holds under a key; an empty one if it holds nothing. */
   virtual Held at( const Key & key ) const = 0;
};

/** Of a std::map. */
template< class Map >
class WholeReading : public Reading< typename Map::key_type, typename Map::mapped_type > {
 public:
   using Key = typename Map::key_type;
   using Held = typename Map::mapped_type;

   explicit WholeReading( Map map ) : map_( std::move( map ) ), next_( map_.begin() ) {}
   bool next( Key & key, Held & held ) override {
      if ( next_ == map_.end() ) {
         return false;
      }
      key = next_->first;
      held = next_->second;
      ++next_;
      return true;
   }
   Held at( const Key & key ) const override {
      auto entry = map_.find( key );
      return entry == map_.end() ? Held() : entry->second;
   }

 private:
   const Map map_;
   typename Map::const_iterator next_;
};

/** Null for a table that cannot be read back. */
template< class Map >
std::unique_ptr< Reading< typename Map::key_type, typename Map::mapped_type > >
wholeReading( std::optional< Map > map ) {
   return map ? std::make_unique< WholeReading< Map > >( std::move( *map ) ) : nullptr;
}

} // namespace QonChip
