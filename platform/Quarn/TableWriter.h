#pragma once
// A table that this process writes.
//
//    Quarn::Server server( &loop, "/run/routes.quarn" );
//    Quarn::TableWriter< RouteKey, Route > routes( &server, "route" );
//    routes.valueIs( key, value );      // readers see it at once
//    routes.completeIs( true );         // all that is known is written: readers go over to it
//
// Invariants
// 1. A value is seen whole or not at all, and every change is told to each reader that follows.
// 2. No single call takes longer than about a millisecond, however large the table is.
// 3. Readers go over to a generation (the table since its constructor) when it is complete, and not
//    before: what the last one held stays in force with them until then.
// 4. Nothing shrinks: memory that was taken is kept for later keys.
//
// Ownership: one thread. The server may end before the table, which then serves nobody.

#include "platform/Quarn/Table.h"

namespace Quarn {

template< Plain K, Plain V >
class TableWriter {
 public:
   /** `name` is this table's among those of the server; two of one name are fatal. Raises
       Velto::RangeError for a name that no table can have. Where there is no memory for it, all
       writes say false. */
   TableWriter( Server * server, const String & name, const Room & room = {} )
       : table_( server, name, room, tableType< K, V >() ) {}

   /** False, and nothing is changed, when there is no room or no memory; counted, and logged once.
       Visible at once; who sleeps is woken once, at the end of the turn. An equal value is no
       change. */
   bool valueIs( const K & key, const V & value ) {
      return table_.valueIs( wordsOf( key ), wordsOf( value ) );
   }
   /** Whether the key was there and is gone now. False for a key that is there: no memory. */
   bool valueDel( const K & key ) { return table_.valueDel( wordsOf( key ) ); }
   /** Until the next write; null if there is none. */
   const V * value( const K & key ) const {
      return reinterpret_cast< const V * >( table_.value( wordsOf( key ) ) );
   }
   /** Keys that are there. */
   U32 size() const { return table_.size(); }
   /** Writes of new keys that found no room or no memory. */
   U64 refused() const { return table_.refused(); }
   /** Whether all that the writer knows is written. False at first. */
   bool complete() const { return table_.complete(); }
   void completeIs( bool v ) { table_.completeIs( v ); }
   /** Memory that was taken so far. */
   U64 bytes() const { return table_.bytes(); }
   /** "", or why the table has no memory. */
   const String & fault() const { return table_.fault(); }

 private:
   TableOf< wordsIn< K >, wordsIn< V > > table_;
};

} // namespace Quarn
