// Look-ups in memory that a writer changes: growth, removal, positions, torn entries, no room.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "platform/Kiv/LogRecorder.h"
#include "platform/Kiv/Rng.h"
#include "tests/quarn/Tables.h"

namespace QuarnTest {
namespace {

using Quarn::Found;

Table
tableFor( U32 most, U32 changes = 0 ) {
   return Table( nullptr, "t", { most, changes }, pairs );
}

Found
find( const Table & table, U32 key, U32 * value = nullptr ) {
   View::Entry entry;
   const Found found = View( *table.memory() ).find( Pair{ key, 0 }, &entry );
   if ( found == Found::yes && value ) {
      *value = entry.value[0];
   }
   return found;
}

TEST( Table, EveryKeyIsFoundWhileTheIndexGrowsUnderIt ) {
   Table table = tableFor( 100000 );
   for ( U32 i = 0; i < 30000; ++i ) {
      ASSERT_TRUE( table.valueIs( { i, 0 }, { i * 7, 0 } ) );
      U32 value = 0;
      const U32 asked[] = { 0, i / 2, i };
      for ( U32 key : asked ) {
         ASSERT_EQ( find( table, key, &value ), Found::yes ) << key << " of " << i;
         ASSERT_EQ( value, key * 7 );
      }
      ASSERT_EQ( find( table, i + 1 ), Found::no );
   }
   EXPECT_EQ( table.size(), 30000u );
   EXPECT_EQ( ( *table.value( { 5, 0 } ) ), 35u );
   EXPECT_EQ( table.value( { 30000, 0 } ), nullptr );
}

TEST( Table, KeysThatComeAndGoTakeNoMorePlaces ) {
   const Kiv::LogRecorder quiet;
   Table table = tableFor( 1000 );
   Kiv::Rng rng( 1 );
   std::map< U32, U32 > model;
   for ( U32 i = 0; i < 300000; ++i ) {
      const U32 key = rng.below( 3000 );
      if ( rng.percent( 40 ) ) {
         ASSERT_EQ( table.valueDel( { key, 0 } ), model.erase( key ) == 1 );
      } else if ( table.valueIs( { key, 0 }, { i, 0 } ) ) {
         model[key] = i;
      } else {
         ASSERT_EQ( model.size(), 1000u );
         ASSERT_FALSE( model.contains( key ) );
      }
      if ( i % 1000 == 0 ) {
         for ( U32 k = 0; k < 3000; ++k ) {
            U32 value = 0;
            ASSERT_EQ( find( table, k, &value ) == Found::yes, model.contains( k ) ) << i;
            ASSERT_TRUE( !model.contains( k ) || value == model[k] );
         }
      }
   }
   EXPECT_LE( View( *table.memory() ).used(), 2024u );
}

TEST( Table, AnEqualValueIsNoChangeAndAnAbsentKeyNotRemoved ) {
   Table table = tableFor( 10 );
   const View view( *table.memory() );
   EXPECT_TRUE( table.valueIs( { 1, 1 }, { 2, 2 } ) );
   EXPECT_EQ( view.head( 0 ), 1u );
   EXPECT_TRUE( table.valueIs( { 1, 1 }, { 2, 2 } ) );
   EXPECT_FALSE( table.valueDel( { 1, 2 } ) );
   EXPECT_EQ( view.head( 0 ), 1u );
   EXPECT_TRUE( table.valueIs( { 1, 1 }, { 2, 3 } ) );
   EXPECT_EQ( view.head( 0 ), 2u );
}

TEST( Table, AnEntryThatIsBeingWrittenIsBusyAndNothingElseIs ) {
   Table table = tableFor( 10 );
   table.valueIs( { 1, 0 }, { 10, 0 } );
   table.valueIs( { 2, 0 }, { 20, 0 } );
   U32 * words = table.memory()->entry( 0 );
   const U32 before = words[0];
   words[0] = before + 1; // as the writer has it when it dies in the middle
   words[4] = 999;
   U32 value = 0;
   EXPECT_EQ( find( table, 1, &value ), Found::busy );
   EXPECT_EQ( find( table, 2, &value ), Found::yes );
   EXPECT_EQ( value, 20u );
   EXPECT_EQ( find( table, 3 ), Found::no );
   words[0] = before + 2;
   EXPECT_EQ( find( table, 1, &value ), Found::yes );
   EXPECT_EQ( value, 999u );
}

TEST( Table, WhatIsReadIsOfOneWrite ) {
   constexpr U32 words = 1024; // so many that one is read while it is written
   Quarn::TableOf< 2, words > table( nullptr, "t", { 10, 0 }, { 1, 8, 4 * words } );
   Quarn::Words< words > value = {};
   table.valueIs( { 1, 0 }, value );
   std::atomic< bool > done = false;
   std::thread writer( [&] {
      for ( U32 number = 1; !done; ++number ) {
         value.fill( number );
         table.valueIs( { 1, 0 }, value );
         std::this_thread::yield();
      }
   } );
   const Quarn::ViewOf< 2, words > view( *table.memory() );
   Quarn::ViewOf< 2, words >::Entry entry;
   U32 found = 0, torn = 0;
   const double end = Kiv::now() + 20; // the writer may be in the middle of one, and not run
   for ( U32 looks = 0; ( looks < 20000 || found < 100 ) && Kiv::now() < end; ++looks ) {
      if ( view.find( { 1, 0 }, &entry ) == Found::yes ) {
         ++found;
         torn += std::count( entry.value.begin(), entry.value.end(), entry.value[0] ) != words;
      }
   }
   done = true;
   writer.join();
   EXPECT_EQ( torn, 0u );
   EXPECT_GE( found, 100u );
}

TEST( Table, AWriterThatDiedWhileTheHeadPassed2To32StopsNobody ) {
   Table table = tableFor( 10 );
   Quarn::Live & live = table.memory()->live();
   live.head[1] = ~U32( 0 );
   Quarn::storeHead( live, U64( 1 ) << 32 );
   EXPECT_EQ( View( *table.memory() ).head( 3 ), U64( 1 ) << 32 );
   live.head[0] = 2;
   EXPECT_EQ( View( *table.memory() ).head( 3 ), 3u );
}

TEST( Table, FullIsCountedAndLoggedOnce ) {
   Kiv::LogRecorder log;
   Table table = tableFor( 3 );
   for ( U32 i = 0; i < 6; ++i ) {
      EXPECT_EQ( table.valueIs( { i, 0 }, { i, 0 } ), i < 3 );
   }
   EXPECT_EQ( table.refused(), 3u );
   ASSERT_EQ( log.records().size(), 1u );
   EXPECT_TRUE( table.valueIs( { 1, 0 }, { 100, 0 } ) ); // what is there can change
   EXPECT_TRUE( table.valueDel( { 0, 0 } ) );
   EXPECT_TRUE( table.valueIs( { 7, 0 }, { 7, 0 } ) ); // at once, though its place still rests
   EXPECT_EQ( find( table, 0 ), Found::no );
   EXPECT_EQ( find( table, 7 ), Found::yes );
}

TEST( Table, WhatTheRingHasLostIsNotRead ) {
   Table table = tableFor( 10 );
   for ( U32 number = 1; number <= 2000; ++number ) { // the ring has 1,024
      table.valueIs( { 1, 0 }, { number, 0 } );
   }
   const View view( *table.memory() );
   View::Change changes[8];
   EXPECT_EQ( view.changes( 1990, 1995, changes, 8 ), 5 );
   EXPECT_EQ( view.changes( 10, 15, changes, 8 ), -1 ); // overtaken since that head was read
   EXPECT_EQ( view.changes( 10, 2000, changes, 8 ), -1 );
}

TEST( Table, AnIndexThatLeadsBehindTheTableLeadsNowhere ) {
   Table table = tableFor( 10 );
   table.valueIs( { 1, 0 }, { 10, 0 } );
   const Quarn::Mapping & memory = *table.memory();
   const Quarn::Geometry & g = memory.geometry();
   const Pair key = { 77, 0 };
   U32 * entry = memory.entry( g.positions ); // the last page has some room
   entry[0] = 2;
   entry[1] = Quarn::entryPresent;
   entry[2] = key[0];
   const U64 hash = Quarn::hashOfWords( key.data(), 2, memory.constants().seed );
   for ( U32 slot = 0; slot < 1u << g.slotBits( 0 ); ++slot ) {
      if ( memory.index( 0 )[slot] == 0 ) {
         memory.index( 0 )[slot] = Quarn::slotTag( hash, g.positionBits ) | ( g.positions + 1 );
      }
   }
   EXPECT_EQ( find( table, 77 ), Found::no );
}

/** Nothing that a reader maps can be taken away under it, or is shorter than it says. */
TEST( Memory, OfAHostileWriterIsNotMapped ) {
   using Quarn::Constants;
   const Quarn::Shape shape = { pairs.keyBytes, pairs.valueBytes, 10, 1024 };
   const U64 whole = Quarn::Geometry( shape ).bytes;
   auto attached = [&]( U64 bytes, int seals, auto && damage ) {
      Constants constants;
      constants.fingerprint = pairs.fingerprint;
      constants.shape = shape;
      damage( constants );
      const Quarn::Handle file( memfd_create( "t", MFD_CLOEXEC | MFD_ALLOW_SEALING ) );
      EXPECT_EQ( ftruncate( file.get(), off_t( bytes ) ), 0 );
      EXPECT_EQ( pwrite( file.get(), &constants, sizeof( constants ), 0 ), 48 );
      EXPECT_EQ( fcntl( file.get(), F_ADD_SEALS, seals ), 0 );
      String why;
      const bool mapped = Quarn::Mapping::attach( file.get(), pairs, &why ) != nullptr;
      EXPECT_EQ( mapped, why.empty() );
      return why;
   };
   const auto as = []( auto Constants::*part, auto value ) {
      return [=]( Constants & c ) { c.*part = value; };
   };
   auto sound = []( Constants & ) {};
   auto most = []( U32 most ) { return [=]( Constants & c ) { c.shape.most = most; }; };
   const String noTable = "what the writer handed over is no table",
                wrongSize = "the table's size is not what its writer says";
   const int sealed = F_SEAL_SHRINK | F_SEAL_GROW;
   EXPECT_EQ( attached( whole, sealed, sound ), "" );
   EXPECT_EQ( attached( whole, F_SEAL_GROW, sound ), noTable );
   EXPECT_EQ( attached( whole, sealed, as( &Constants::magic, 1u ) ), noTable );
   EXPECT_EQ( attached( whole, sealed, as( &Constants::version, 2u ) ),
              "layout version 2, here 1" );
   EXPECT_EQ( attached( whole, sealed, as( &Constants::fingerprint, U64( 1 ) ) ),
              "a table of another type" );
   EXPECT_EQ( attached( whole - 4096, sealed, sound ), wrongSize );
   EXPECT_EQ( attached( whole + 4096, sealed, sound ), wrongSize );
   for ( U32 keys : { 0u, 5000u, Quarn::Geometry::mostKeys + 1, ~0u } ) {
      EXPECT_EQ( attached( whole, sealed, most( keys ) ), wrongSize );
   }
}

TEST( Table, WithoutMemoryAllWritesSayFalse ) {
   const Kiv::LogRecorder quiet;
   rlimit before = {};
   getrlimit( RLIMIT_FSIZE, &before );
   const rlimit small = { 10000, before.rlim_max };
   setrlimit( RLIMIT_FSIZE, &small );
   Table table = tableFor( 1u << 20 );
   setrlimit( RLIMIT_FSIZE, &before );
   EXPECT_NE( table.fault(), "" );
   EXPECT_FALSE( table.valueIs( { 1, 0 }, { 1, 0 } ) );
   EXPECT_FALSE( table.valueDel( { 1, 0 } ) );
   EXPECT_EQ( table.value( { 1, 0 } ), nullptr );
   EXPECT_EQ( table.refused(), 1u );
}

} // namespace
} // namespace QuarnTest
