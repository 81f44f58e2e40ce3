#pragma once
// A table that another process writes, to look keys up in.
//
//    Quarn::Source source( &loop, "/run/routes.quarn" );
//    Quarn::TableReader< RouteKey, Route > routes( &source, "route" );
//    routes.value( key, &route )
//
// Invariants
// 1. A value is what one write wrote: never parts of two. No look-up waits for the writer.
// 2. What is read is the last complete generation, also while its writer is dead or a new one still
//    writes. Before the first one is complete there is nothing.
//
// Ownership: the source may end before it; the memory that it reads stays.

#include "platform/Quarn/Reader.h"
#include "platform/Quarn/Source.h"

namespace Quarn {

template< Plain K, Plain V >
class TableReader : public Reader {
 public:
   /** Raises Velto::RangeError for a name that no table can have. */
   TableReader( Source * source, const String & name )
       : Reader( source, name, tableType< K, V >() ) {}

   /** `to` is changed only by yes. */
   Found value( const K & key, V * to ) const {
      typename View::Entry entry;
      const Found found = current() ? View( *current() ).find( wordsOf( key ), &entry ) : Found::no;
      if ( found == Found::yes ) {
         *to = valueOf< V >( entry.value );
      }
      return found;
   }

 private:
   using View = ViewOf< wordsIn< K >, wordsIn< V > >;
};

} // namespace Quarn
