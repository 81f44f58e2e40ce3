#pragma once
// The adjacencies of the forwarding table: one for each distinct set of next hops.
//
//    FEC's next hops (L2AdjKey) -> adjacency() -> FibAdjacency, numbered <- by key, by number
//                                  move( fec, from, to )
//
// Invariants
// 1. Equal keys have one adjacency; it goes with the last FEC that uses it, or when the chip has let
//    it go, and its number is then free for another one.
// 2. A FEC is with the adjacency that it moves to before it leaves the former one.
// 3. configRefCount of an adjacency is the number of prefixes that lead to it, over all its FECs.

#include <deque>
#include <vector>

#include "Qon/include/adjacency/L2Adjacency.h"
#include "platform/Velto/Scope.h"

namespace QonAgent {

/** How far an adjacency is in the chip; kept by who installs it. */
enum class FibChipState : U8 {
   none, ///< the chip has not been given it
   requested,
   programmed,
   noRoom,
   noGroup,
   failed,
};
KIV_ENUM( FibChipState, none, requested, programmed, noRoom, noGroup, failed )

struct FibInChip {
   FibChipState state = FibChipState::none;
   FibChipState retriedFrom = FibChipState::none; ///< why it is requested again
   U32 version = 0;                               ///< of the request that was not answered; 0: none
   U32 rooms = 0; ///< how often the chip had said by then that there is room
   U32 fecs = 0;  ///< that lead to it in the chip
   Kiv::Seconds since = 0;
};

class FibAdjacency : public Qon::L2Adjacency {
 public:
   FibAdjacency( const Qon::L2AdjKey & key, U32 number )
       : Qon::L2Adjacency( key ), number_( number ) {}
   U32 number() const { return number_; }
   /** Whether a group of the chip is needed for it. */
   bool several() const { return l2AdjKey().nextHopCollection().viaAndWeights() > 1; }

   FibInChip inChip;

 private:
   const U32 number_;
};

class FibAdjacencies {
 public:
   using Ptr = Velto::Ptr< FibAdjacency >;

   /** The adjacency of these next hops. A new one stays if a FEC moves to it. */
   Ptr adjacency( const Qon::L2AdjKey & key );
   /** A FEC with so many prefixes uses `to` in place of `from`. Either may be null. */
   void move( Qon::GlobalFecId fec, U32 prefixes, const Ptr & from, const Ptr & to );

   /** Lets it go that neither a FEC nor the chip has. */
   void dropUnused( const Ptr & adjacency );

   U32 size() const { return byKey_.size(); }
   /** Numbers are 1 to this one. */
   U32 mostNumber() const { return U32( byNumber_.size() ); }
   /** Null if there is none. */
   Ptr at( U32 number ) const {
      return Ptr( number - 1 < byNumber_.size() ? byNumber_[number - 1] : nullptr );
   }
   Velto::String checkInvariants() const;

 private:
   void enter( Qon::GlobalFecId fec, U32 prefixes, const Ptr & to );
   void leave( Qon::GlobalFecId fec, U32 prefixes, const Ptr & from );

   Kiv::DenseMap< Qon::L2AdjKey, Ptr > byKey_;
   std::vector< FibAdjacency * > byNumber_;
   std::vector< U32 > free_; // numbers
};

} // namespace QonAgent
