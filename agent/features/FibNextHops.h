#pragma once
// The next hops of a class of the forwarding table, as values that share what is equal.
//
//    Fec and its Vias (plain bytes) -> keyOf() -> L2AdjKey { NextHopCollection, consolidated }
//
// Invariants
// 1. Two classes with the same next hops and weights have equal keys, whatever the order; of a
//    next-hop group the order counts, and a next hop may stand in it twice.
// 2. What a writer says is not believed: bytes that are no next hop have no key.

#include <optional>
#include <vector>

#include "Qon/include/adjacency/L2AdjKey.h"
#include "platform/types/Fib.h"

namespace QonAgent {

class FibNextHops {
 public:
   /** More vias of a class are not taken: each takes time, and a slice has little. */
   static constexpr U32 mostVias = 4096;

   static bool known( Quarn::Fib::FecType type ) {
      return type > Quarn::Fib::FecType::unset && type <= Quarn::Fib::FecType::nextHopGroup;
   }
   /** None if they are no next hops, such as a weight of 0 or an interface that cannot be. Sorts
       `vias`. */
   std::optional< Qon::L2AdjKey > keyOf( const Quarn::Fib::Fec & fec,
                                         std::vector< Quarn::Fib::Via > & vias );
   /** How many lists of next hops, and next hops, there are. */
   U32 viaLists() const { return lists_.viaLists(); }
   U32 nextHops() const { return nextHops_.size(); }

 private:
   using Type = Quarn::Fib::FecType;
   bool push( Qon::NextHopCollection & all, const Quarn::Fib::Via & via );
   void pushOnly( Qon::NextHopCollection & all, Qon::NextHopType type );

   Qon::EncapDedupTable encaps_;
   Qon::NextHopDedupTable nextHops_;
   Qon::PlatformApi::ViaListDedupTable lists_;
};

} // namespace QonAgent
