#pragma once
// Tables, readers and followers of the tests, in one process; values that carry their own check.

#include <functional>
#include <map>

#include "platform/Quarn/Follower.h"
#include "platform/Quarn/TableWriter.h"

namespace QuarnTest {

using Velto::String;

struct Id {
   U64 id = 0;
   auto operator<=>( const Id & ) const = default;
};
QUARN_LAYOUT( Id, id )

/** A value that cannot be torn unseen. */
struct Checked {
   U64 number = 0;
   U64 copies[4] = {};
   U64 check = 0;

   Checked() = default;
   Checked( U64 key, U64 n ) : number( n ), copies{ n, ~n, n * 3, n ^ key } {
      check = Quarn::Detail::mixed( Quarn::Detail::mixed( 1, key ), n );
   }
   bool sound( U64 key ) const { return *this == Checked( key, number ); }
   bool operator==( const Checked & ) const = default;
};
QUARN_LAYOUT( Checked, number, copies, check )

struct Other {
   U64 number = 0;
};
QUARN_LAYOUT( Other, number )

/** The same without types: what stands below the sockets. */
using Pair = Quarn::Words< 2 >;
using Table = Quarn::TableOf< 2, 2 >;
using View = Quarn::ViewOf< 2, 2 >;
inline constexpr Quarn::TableType pairs = Quarn::tableType< Id, Other >();

using Writer = Quarn::TableWriter< Id, Checked >;
using Reader = Quarn::TableReader< Id, Checked >;
using Model = std::map< U64, U64 >; // key -> number

/** The folder of a test's sockets, with all that is in it gone at the end. */
class Folder {
 public:
   Folder();
   ~Folder();
   String operator/( const String & name ) const { return path_ + "/" + name; }

 private:
   String path_;
};

/** Writes down what it is told, and finds fault with what must not be told. */
class Follower : public Quarn::Follower< Id, Checked > {
 public:
   using Base = Quarn::Follower< Id, Checked >;
   using Base::Base;
   void handleValue( const Id & key, const Checked & value ) override {
      torn += value.sound( key.id ) ? 0 : 1;
      held[key.id] = value.number;
      ++values;
      if ( then ) {
         then( key.id );
      }
   }
   void handleValueDel( const Id & key ) override {
      strange += held.erase( key.id ) == 1 ? 0 : 1;
      ++deletions;
   }
   void handleComplete() override { ++generations; }

   Model held;
   U32 values = 0;
   U32 deletions = 0;
   U32 generations = 0;
   U32 torn = 0;
   U32 strange = 0;                   // deletions of what was not told
   std::function< void( U64 ) > then; // after each value
};

/** Runs the loop until `done`, for a few seconds at most; whether that became true. */
template< class Done >
bool
runUntil( Kiv::EventLoop & loop, Done && done, double seconds = 10 ) {
   const double end = Kiv::now() + seconds;
   while ( !done() ) {
      if ( Kiv::now() > end ) {
         return false;
      }
      loop.runOnce( 0.02 );
   }
   return true;
}

/** What a reader finds by look-ups, of keys below `keys`; busy ones are left out. */
template< class R >
Model
lookedUp( const R & reader, U64 keys, U32 * torn = nullptr ) {
   Model all;
   for ( U64 id = 0; id < keys; ++id ) {
      Checked value;
      if ( reader.value( Id{ id }, &value ) == Quarn::Found::yes ) {
         all[id] = value.number;
         if ( torn && !value.sound( id ) ) {
            ++*torn;
         }
      }
   }
   return all;
}

} // namespace QuarnTest
