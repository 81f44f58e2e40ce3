#pragma once
// What a writing process puts into its table, known to those who read it.

#include "platform/Kiv/Rng.h"
#include "tests/quarn/Tables.h"

namespace QuarnTest {

constexpr U64 peerKeys = 3000;

/** What the writer of that seed has written when it is complete. Neighbours have much in common. */
inline Model
peerModel( U64 seed ) {
   Model model;
   for ( U64 key = 0; key < peerKeys; ++key ) {
      if ( Kiv::scrambled( key * 7919 + seed ) % 3 != 0 ) {
         model[key] = 1 + Kiv::scrambled( key ^ seed ) % 2;
      }
   }
   return model;
}

/** In how many keys that what was told differs from what stands in the memory; keys that their writer
    was just writing when it died do not count. */
inline U32
peerDiffers( const Reader & reader, const Model & told ) {
   U32 differing = 0;
   for ( U64 key = 0; key < peerKeys; ++key ) {
      Checked value;
      const Quarn::Found found = reader.value( { key }, &value );
      const auto held = told.find( key );
      if ( found == Quarn::Found::yes ) {
         differing += held == told.end() || held->second != value.number;
      } else if ( found == Quarn::Found::no ) {
         differing += held != told.end();
      }
   }
   return differing;
}

} // namespace QuarnTest
