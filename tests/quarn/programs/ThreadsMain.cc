// Writer and reader of one table in two threads and on one map, for the thread sanitizer: it takes two
// maps of one file for different memory. Exit code 1: what was followed is not what was written.
// quarn-threads WRITES

#include <sys/personality.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <thread>

#include "platform/Kiv/Rng.h"
#include "platform/Quarn/Chase.h"
#include "platform/Quarn/Table.h"

namespace {

using Pair = Quarn::Words< 2 >;
using Table = Quarn::TableOf< 2, 2 >;
constexpr Quarn::TableType pairs = { 1, 8, 8 };
constexpr U32 keys = 3000;

/** Both halves of every value are the same number. */
class Follows : public Quarn::ChaseOf< 2, 2 > {
 public:
   bool works( const std::shared_ptr< Quarn::Mapping > & memory ) {
      return work( memory ) == Work::left;
   }
   std::map< U32, U32 > held;
   U32 torn = 0;

 private:
   void tell( const Pair & key, const Pair & value ) override {
      torn += value[0] == value[1] ? 0 : 1;
      held[key[0]] = value[0];
   }
   void tellDel( const Pair & key ) override { torn += held.erase( key[0] ) == 1 ? 0 : 1; }
   void tellComplete() override {}
   bool yields() override { return false; }
};

/** Fills, changes and removes; now and then in bursts that overtake the reader. */
std::map< U32, U32 >
write( Table & table, U32 writes ) {
   std::map< U32, U32 > model;
   Kiv::Rng rng( 1 );
   for ( U32 i = 1; i <= writes; ++i ) {
      const U32 key = rng.below( keys );
      if ( rng.percent( 30 ) ) {
         table.valueDel( { key, 0 } );
         model.erase( key );
      } else if ( table.valueIs( { key, 0 }, { i, i } ) ) {
         model[key] = i;
      }
      if ( i % 8000 > 4000 && i % 16 == 0 ) {
         std::this_thread::yield();
      }
   }
   return model;
}

} // namespace

int
main( int argc, char ** argv ) {
   // The sanitizer's own memory needs maps where they used to be.
   if ( !( personality( 0xffffffff ) & ADDR_NO_RANDOMIZE ) && !std::getenv( "QUARN_THREADS" ) ) {
      personality( personality( 0xffffffff ) | ADDR_NO_RANDOMIZE );
      setenv( "QUARN_THREADS", "1", 1 );
      execv( "/proc/self/exe", argv );
   }
   Table table( nullptr, "t", { 2500, 0 }, pairs );
   Follows follows;
   std::atomic< bool > done = false;
   U32 torn = 0;
   std::thread reader( [&] {
      Kiv::Rng rng( 2 );
      while ( !done.load() ) {
         follows.works( table.memory() );
         Quarn::ViewOf< 2, 2 >::Entry entry;
         for ( U32 i = 0; i < 100; ++i ) {
            const auto found =
                  Quarn::ViewOf< 2, 2 >( *table.memory() ).find( { rng.below( keys ), 0 }, &entry );
            torn += found == Quarn::Found::yes && entry.value[0] != entry.value[1];
         }
      }
      follows.works( table.memory() );
   } );
   const auto model = write( table, argc > 1 ? U32( std::atoi( argv[1] ) ) : 200000 );
   done.store( true );
   reader.join();
   std::printf( "%u keys, overtaken %u times, %u torn\n", U32( model.size() ),
                U32( follows.overtaken() ), torn + follows.torn );
   return torn + follows.torn == 0 && follows.held == model ? 0 : 1;
}
