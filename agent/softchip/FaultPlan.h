#pragma once
// What goes wrong in the chip in software, as data. Every table of the soft chip asks the same
// plan; nothing goes wrong in an empty one.
//
//    test, event stream, console -> add( fault ), limitIs( table, n ), unitLostIs( unit, true )
//    table: plan.next( "writeToHw" ) -> what this call shall come to, if anything special
//           plan.limit( "hostTable", size ) -> how many entries it may hold
//           plan.unitLost( "Linecard1" )
//
// Invariants
// 1. The same plan, seed and calls give the same faults, on every platform.
// 2. Of several faults for one call the one that was added first counts, and only it is used up.

#include <functional>
#include <optional>
#include <set>
#include <vector>

#include "platform/Kiv/DenseMap.h"
#include "platform/Kiv/Rng.h"
#include "platform/Kiv/Text.h"

namespace SoftChip {

using Velto::String;

/** What a call comes to instead of what it should. */
enum class Trouble : U8 {
   fail,   ///< refused for good
   busy,   ///< not now
   parity, ///< a parity error: not done
   full,   ///< as if there were no room
   lose,   ///< taken, and never heard of again
};
KIV_ENUM( Trouble, fail, busy, parity, full, lose )

/** Which calls of a hook come to what. */
struct Fault {
   String hook;
   Trouble trouble = Trouble::fail;
   U32 call = 0;          ///< from the n-th call on, counted from now on; 0 and 1 are the next
   U32 times = 1;         ///< for how many calls; 0 is for ever
   U32 inThousand = 1000; ///< the chance of each of them
};

class FaultPlan {
 public:
   /** A table declares which hooks it counts the calls of, and by which names it can be limited, so
       that a name that nobody declared is known as a misspelled one. */
   void hookIs( const String & hook ) { hooks_.insert( hook ); }
   void tableIs( const String & table ) { tables_.insert( table ); }
   const std::set< String > & hooks() const { return hooks_; }
   const std::set< String > & tables() const { return tables_; }

   /** What the sequence of chances starts with. */
   void seedIs( U32 seed ) { random_ = Kiv::Rng( seed ); }
   void add( const Fault & fault ) { faults_.push_back( { fault, 0 } ); }
   /** Counts a call of a hook, which was declared. */
   std::optional< Trouble > next( const char * hook );

   void limitIs( const String & table, U32 entries );
   /** The smaller of the table's own size and its limit. */
   U32 limit( const char * table, U32 size ) const;

   void unitLostIs( const String & unit, bool lost );
   /** Calls `act( unit )` whenever a unit is lost or comes back, as long as the plan lives. */
   void unitsHeardBy( std::function< void( const String & unit ) > act ) {
      unitsHeardBy_.push_back( std::move( act ) );
   }
   bool unitLost( const String & unit ) const { return lost_.has( unit ); }

   /** Everything is well again; the seed stays where it is. */
   void clear();

 private:
   struct Active {
      Fault fault;
      U32 calls; // of its hook since it was added
   };
   bool applies( Active & active );

   std::set< String > hooks_;
   std::set< String > tables_;
   std::vector< Active > faults_;
   Kiv::DenseMap< String, U32 > limits_;
   Kiv::DenseMap< String, Kiv::Nothing > lost_;
   std::vector< std::function< void( const String & unit ) > > unitsHeardBy_;
   Kiv::Rng random_{ 1 };
};

} // namespace SoftChip
