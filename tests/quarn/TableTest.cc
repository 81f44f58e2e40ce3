// Look-ups in memory that a writer changes: growth, removal, positions, torn entries, no room.

#include <gtest/gtest.h>
#include <sys/resource.h>

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
