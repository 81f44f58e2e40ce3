#pragma once
// Brings what is there to what is wanted, key by key.
//
//    reconcile( have, want, remove, add )
//       1. both are read in full          2. remove( k ) for what is too much, in have's order
//                                         3. add( k ) for what is missing, in want's order
//
// `have` and `want` are ranges of keys, of pairs or of a collection's entries: port lists, vectors,
// sets, `xIteratorConst()`. Nothing of them is touched once the first call is made, so the calls
// may change them. The keys are looked up by hash: cost is linear, order that of the ranges.

#include <utility>
#include <vector>

#include "platform/Kiv/DenseMap.h"

namespace Qon {

/** The key of an element: of a pair, of an entry of a collection, or the element itself. */
template< class Element >
const auto &
keyOfElement( const Element & element ) {
   if constexpr ( requires { element.key; } ) {
      return element.key;
   } else if constexpr ( requires { element.first; } ) {
      return element.first;
   } else {
      return element;
   }
}

template< class K >
using KeySet = Kiv::DenseMap< K, Kiv::Nothing >;

template< class K, class Range >
KeySet< K >
keysOf( Range && range ) {
   KeySet< K > keys;
   for ( auto && element : range ) {
      keys.emplace( keyOfElement( element ) );
   }
   return keys;
}

/** What has to go and what has to come. */
template< class K >
struct Difference {
   std::vector< K > gone;
   std::vector< K > missing;
   bool empty() const { return gone.empty() && missing.empty(); }
};

template< class K, class Have, class Want >
Difference< K >
differenceOf( Have && have, Want && want ) {
   const auto held = keysOf< K >( have );
   const auto wanted = keysOf< K >( want );
   Difference< K > result;
   for ( auto && entry : held ) {
      if ( !wanted.has( entry.key ) ) {
         result.gone.push_back( entry.key );
      }
   }
   for ( auto && entry : wanted ) {
      if ( !held.has( entry.key ) ) {
         result.missing.push_back( entry.key );
      }
   }
   return result;
}

template< class K, class Have, class Want, class Remove, class Add >
void
reconcile( Have && have, Want && want, Remove && remove, Add && add ) {
   const auto change = differenceOf< K >( have, want );
   for ( const K & key : change.gone ) {
      remove( key );
   }
   for ( const K & key : change.missing ) {
      add( key );
   }
}

} // namespace Qon
