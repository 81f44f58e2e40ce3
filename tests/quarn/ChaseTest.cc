// Following against a plain map: over growth, overtaking, slices, and generations of which some die.

#include <gtest/gtest.h>

#include <memory>

#include "platform/Kiv/LogRecorder.h"
#include "platform/Kiv/Rng.h"
#include "tests/quarn/Tables.h"

namespace QuarnTest {
namespace {

class Chase : public Quarn::ChaseOf< 2, 2 > {
 public:
   using Memory = std::shared_ptr< Quarn::Mapping >;
   std::map< U32, U32 > held;
   std::map< U32, U32 > notes; // left at each key
   bool damaged = false;       // no writer leaves a memory like that
   U32 told = 0;
   U32 completes = 0;
   U32 raiseOneIn = 0;
   Kiv::Rng rng{ 5 };

   /** Works until nothing is left, whatever is raised. */
   void workAll( const Memory & memory ) {
      while ( workSome( memory, ~U32( 0 ) ) ) {
      }
   }
   /** At most `units`; whether work was left. */
   bool workSome( const Memory & memory, U32 units ) {
      left_ = units;
      try {
         return work( memory ) == Work::left;
      } catch ( const std::runtime_error & ) {
         return true;
      }
   }
   bool news( const Memory & memory ) const { return hasNews( memory ); }

 private:
   void raise() {
      ++told;
      if ( raiseOneIn && rng.oneIn( raiseOneIn ) ) {
         throw std::runtime_error( "handler" );
      }
   }
   void tell( const Pair & key, const Pair & value ) override {
      noted( held.contains( key[0] ) ? notes[key[0]] : 0 );
      held[key[0]] = value[0];
      noteIs( notes[key[0]] = rng.below( 1000 ) );
      raise();
   }
   void noted( U32 expected ) const { EXPECT_TRUE( damaged || note() == expected ); }
   void tellDel( const Pair & key ) override {
      EXPECT_EQ( held.erase( key[0] ), 1u ) << "deleted, but not told: " << key[0];
      noted( notes[key[0]] );
      raise();
   }
   void tellComplete() override { ++completes; }
   bool yields() override { return --left_ == 0; }
   U32 left_ = 0;
};

/** A writer, and what it should hold. */
struct Generation {
   Table table;
   std::map< U32, U32 > model;
   U32 & counter;

   Generation( U32 most, U32 * count )
       : table( nullptr, "t", { most, 0 }, pairs ), counter( *count ) {}
   void change( Kiv::Rng & rng, U32 keys, U32 deletions ) {
      const U32 key = rng.below( keys );
      if ( rng.percent( deletions ) ) {
         table.valueDel( { key, 0 } );
         model.erase( key );
      } else if ( table.valueIs( { key, 0 }, { ++counter, 0 } ) ) {
         model[key] = counter;
      }
   }
   /** As a writer leaves it that dies in the middle of an entry. */
   void dieInside( Kiv::Rng & rng ) {
      const U32 used = table.memory()->live().used;
      if ( used ) {
         U32 * words = table.memory()->entry( rng.below( used ) );
         words[0] |= 1;
         words[4] = 12345;
      }
   }
};

/** How often it was overtaken. */
U64
history( U64 seed, U32 raiseOneIn ) {
   const Kiv::LogRecorder quiet;
   Kiv::Rng rng( seed );
   U32 counter = 0;
   Chase chase;
   chase.raiseOneIn = raiseOneIn;
   auto live = std::make_unique< Generation >( 400, &counter );
   for ( U32 round = 0; round < 60; ++round ) {
      const U32 keys = rng.oneIn( 2 ) ? 600 : 40, deletions = rng.between( 5, 95 );
      const U32 writes = rng.oneIn( 4 ) ? 4000 : rng.below( 300 ); // the ring has 1,024
      const U32 pause = rng.oneIn( 2 ) ? 20 : 2000;
      for ( U32 i = 0; i < writes; ++i ) {
         live->change( rng, keys, deletions );
         if ( rng.oneIn( pause ) ) {
            chase.workSome( live->table.memory(), rng.between( 1, 80 ) );
         }
      }
      if ( rng.oneIn( 3 ) ) {
         chase.workAll( live->table.memory() );
         EXPECT_EQ( chase.held, live->model ) << "seed " << seed << " round " << round;
         EXPECT_EQ( chase.toldKeys(), live->model.size() );
         EXPECT_FALSE( chase.news( live->table.memory() ) );
      }
      if ( rng.oneIn( 5 ) ) { // a new writer, which begins with much the same
         if ( rng.oneIn( 2 ) ) {
            live->dieInside( rng );
            chase.damaged = true;
         }
         auto next = std::make_unique< Generation >( 400, &counter );
         for ( const auto & [key, value] : live->model ) {
            if ( rng.percent( 80 ) && next->table.valueIs( { key, 0 }, { value, 0 } ) ) {
               next->model[key] = value;
            }
         }
         live = std::move( next );
      }
   }
   chase.workAll( live->table.memory() );
   EXPECT_EQ( chase.held, live->model ) << "seed " << seed;
   return chase.overtaken();
}

TEST( Chase, ComesToThePlainMapByWhateverHistory ) {
   U64 overtaken = 0;
   for ( U64 seed = 1; seed <= 60 && !testing::Test::HasFailure(); ++seed ) {
      overtaken += history( seed, 0 );
   }
   EXPECT_GT( overtaken, 60u );
}

TEST( Chase, AHandlerThatRaisesLosesNothingAndIsToldNothingTwice ) {
   for ( U64 seed = 100; seed <= 130 && !testing::Test::HasFailure(); ++seed ) {
      history( seed, 7 );
   }
   U32 counter = 0;
   Generation one( 400, &counter );
   Chase chase;
   chase.workAll( one.table.memory() );
   chase.raiseOneIn = 1;
   for ( U32 key = 0; key < 300; ++key ) {
      one.table.valueIs( { key, 0 }, { key, 0 } );
   }
   chase.workAll( one.table.memory() );
   EXPECT_EQ( chase.told, 300u );
}

TEST( Chase, AWalkTellsOnlyWhatMayHaveChanged ) {
   U32 counter = 0;
   Generation one( 400, &counter );
   for ( U32 key = 0; key < 400; ++key ) {
      one.table.valueIs( { key, 0 }, { key, 0 } );
   }
   Chase chase;
   chase.workAll( one.table.memory() );
   EXPECT_EQ( chase.told, 400u );
   for ( U32 i = 0; i < 3000; ++i ) {
      one.table.valueIs( { i % 10, 0 }, { 1000 + i, 0 } );
   }
   chase.workAll( one.table.memory() );
   EXPECT_EQ( chase.overtaken(), 1u );
   EXPECT_EQ( chase.told, 410u );
}

TEST( Chase, AChangeIsToldOnceAtItsLastPlace ) {
   U32 counter = 0;
   Generation one( 400, &counter );
   Chase chase;
   chase.workAll( one.table.memory() );
   for ( U32 i = 0; i < 50; ++i ) {
      one.table.valueIs( { 1, 0 }, { i + 1, 0 } );
   }
   one.table.valueIs( { 2, 0 }, { 1, 0 } );
   one.table.valueDel( { 2, 0 } );
   chase.workAll( one.table.memory() );
   EXPECT_EQ( chase.told, 1u );
   EXPECT_EQ( chase.held, ( std::map< U32, U32 >{ { 1, 50 } } ) );
}

TEST( Chase, OfAnEqualGenerationNothingIsToldButWhatMayBeWrong ) {
   U32 counter = 0;
   Generation one( 400, &counter ), two( 400, &counter );
   for ( U32 key = 0; key < 400; ++key ) {
      one.table.valueIs( { key, 0 }, { key, 0 } );
      two.table.valueIs( { 399 - key, 0 }, { 399 - key, 0 } );
   }
   Chase chase;
   chase.workAll( one.table.memory() );
   one.table.memory()->entry( 17 )[0] |= 1;   // its writer died in it
   one.table.memory()->entry( 18 )[0] += 800; // or behind it, before the head
   chase.workAll( two.table.memory() );
   EXPECT_EQ( chase.told, 402u );
   EXPECT_EQ( chase.completes, 2u );
   EXPECT_EQ( chase.toldKeys(), 400u );
}

TEST( Chase, AKeyThatIsBeingWrittenIsNotGone ) {
   U32 counter = 0;
   Generation one( 400, &counter ), two( 400, &counter );
   for ( Generation * generation : { &one, &two } ) {
      for ( U32 key = 0; key < 10; ++key ) {
         generation->table.valueIs( { key, 0 }, { key, 0 } );
      }
   }
   Chase chase;
   chase.workAll( one.table.memory() );
   U32 * sequence = two.table.memory()->entry( 5 );
   *sequence |= 1;
   chase.workAll( two.table.memory() );
   EXPECT_EQ( chase.completes, 2u );
   EXPECT_EQ( chase.held.size(), 10u );
   *sequence &= ~1u;
   two.table.valueIs( { 5, 0 }, { 99, 0 } );
   chase.workAll( two.table.memory() );
   EXPECT_EQ( chase.held[5], 99u );
   EXPECT_EQ( chase.toldKeys(), 10u );
   two.table.valueDel( { 5, 0 } );
   chase.workAll( two.table.memory() );
   EXPECT_EQ( chase.held.size(), 9u );
}

/** Whatever stands in the memory: no crash, no hang, nothing outside. */
TEST( Chase, RandomBytesCostTimeAndWrongValuesOnly ) {
   const Kiv::LogRecorder quiet;
   for ( U64 seed = 1; seed <= 40; ++seed ) {
      Kiv::Rng rng( seed );
      U32 counter = 0;
      Generation broken( 400, &counter );
      for ( U32 i = 0; i < 2000; ++i ) {
         broken.change( rng, 600, 30 );
      }
      Chase chase;
      chase.workSome( broken.table.memory(), rng.below( 500 ) + 1 );
      const Quarn::Geometry & g = broken.table.memory()->geometry();
      auto * bytes = reinterpret_cast< char * >( &broken.table.memory()->live() ) - 64;
      const U64 taken =
            g.entriesAt + 400 * g.stride; // indexes that were never used may be written too
      for ( U32 i = 0; i < 200; ++i ) {
         for ( U32 j = rng.below( 400 ); j > 0; --j ) {
            const bool live = rng.oneIn( 3 );
            const U32 at = live ? 64 + rng.below( 160 ) : 64 + rng.below( U32( taken - 64 ) );
            bytes[at] = char( rng.next() );
         }
         // As any slice of the scheduler ends.
         for ( U32 slices = 0; slices < 4; ++slices ) {
            try {
               View view( *broken.table.memory() );
               View::Entry entry;
               view.find( { rng.below( 600 ), 0 }, &entry );
            } catch ( ... ) {
               FAIL();
            }
         }
      }
      struct Deaf : Quarn::ChaseOf< 2, 2 > {
         using ChaseOf::Work;
         using ChaseOf::work;
         void tell( const Pair &, const Pair & ) override {}
         void tellDel( const Pair & ) override {}
         void tellComplete() override {}
         bool yields() override { return --left == 0; }
         U32 left = 0;
      } deaf;
      for ( U32 i = 0; i < 100; ++i ) {
         deaf.left = 3000;
         deaf.work( broken.table.memory() );
         bytes[64 + rng.below( 160 )] = char( rng.next() );
      }
   }
}

} // namespace
} // namespace QuarnTest
