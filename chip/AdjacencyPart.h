#pragma once
// Adjacencies: what a chip brings to hold the next hops of classes of routes (FECs).
//
//    adjacencyIs( number, version, next hops ) -> chip ... -> answered( number, version, answer )
//    fecIs( FEC, number ): its routes lead to that adjacency from now on
//    ... no room -> something goes -> room()
//
// Invariants
// 1. A number names one adjacency from adjacencyIs() to adjacencyDel(); behind that, another one. Each
//    version that is handed over is answered once, inside of the call or later, unless its adjacency
//    was deleted or handed over again before. Versions do not come again while a helper lives.
// 2. A FEC leads to an adjacency that was answered `programmed`, and not deleted. No adjacency is
//    deleted that a FEC leads to.
// 3. What another helper left goes on forwarding until a FEC is told anew, or staleDel(). Numbers and
//    versions of two helpers have nothing to do with one another.
//
// Ownership: counted. The user outlives the helper, or takes itself out.

#include <map>

#include "Qon/include/adjacency/L2Adjacency.h"
#include "chip/Chip.h"
#include "chip/Reading.h"

namespace QonChip {

using Qon::GlobalFecId;

/** What became of an adjacency that the chip was given. All but `programmed` leave nothing. */
enum class AdjacencyAnswer : U8 {
   programmed,
   full,           ///< no room for an adjacency
   ecmpGroupsFull, ///< it has several next hops, and no group is free for them
   failed,
};
KIV_ENUM( AdjacencyAnswer, programmed, full, ecmpGroupsFull, failed )

/** The hook object. */
class AdjacencyHelper : public Velto::Node {
 public:
   class User {
    public:
      virtual void adjacencyAnswered( U32 number, U32 version, AdjacencyAnswer answer ) = 0;
      /** There may be room for what was refused for want of it. */
      virtual void adjacencyRoom() = 0;

    protected:
      ~User() = default;
   };

   /** Who hears what the chip says; null: nobody. */
   void userIs( User * user ) { user_ = user; }

   /** @name Hooks */
   /** @{ */
   /** An adjacency with these next hops; number and version are not 0. Again with
       another version after an answer that was not `programmed`, or when there was none for long. */
   virtual void adjacencyIs( U32 number, U32 version, const Qon::L2AdjKey & key ) = 0;
   /** Also of one that was not answered, or refused. */
   virtual void adjacencyDel( U32 number ) = 0;
   /** When it returns packets to the FEC take that adjacency, and never none in between. */
   virtual void fecIs( GlobalFecId fec, U32 number ) = 0;
   /** Packets to the FEC are dropped. */
   virtual void fecDel( GlobalFecId fec ) = 0;
   /** Takes what another helper left: FECs that have not been told anew, and their adjacencies. */
   virtual void staleDel() = 0;
   /** @} */

 protected:
   /** @name For the chip: what it says. Whoever hears may call hooks. */
   /** @{ */
   void answered( U32 number, U32 version, AdjacencyAnswer answer ) {
      if ( user_ ) {
         user_->adjacencyAnswered( number, version, answer );
      }
   }
   void room() {
      if ( user_ ) {
         user_->adjacencyRoom();
      }
   }
   /** @} */

 private:
   User * user_ = nullptr;
};

/** An adjacency in the chip. */
struct HeldAdjacency {
   U32 number = 0;             ///< 0: the chip holds none here
   bool stale = false;         ///< of a former helper
   Qon::L2AdjKey key;          ///< its next hops
   std::optional< U32 > group; ///< that it takes; one next hop needs none
   U32 fecs = 0;               ///< that lead to it
};
/** By place in the chip. */
using HeldAdjacencyTable = std::map< U32, HeldAdjacency >;
using AdjacencyReading = Reading< U32, HeldAdjacency >;

struct HeldAdjacencies {
   HeldAdjacencyTable adjacencies;
   std::map< GlobalFecId, U32 > fecs; ///< the place that each leads to
};

/** How much of the chip is used, and how much there is; 0 where it does not tell. */
struct AdjacencyRoom {
   U32 adjacencies = 0, adjacenciesAtMost = 0;
   U32 groups = 0, groupsAtMost = 0;
};

class AdjacencyPart {
 public:
   virtual ~AdjacencyPart() = default;

   /** The hook object. Making one changes nothing in the chip. */
   virtual Ptr< AdjacencyHelper > makeAdjacencyHelper() = 0;

   /** What the chip holds; none if it cannot be read back. */
   virtual std::optional< HeldAdjacencies > adjacencies() const { return std::nullopt; }
   /** The same, an adjacency at a time; null if the chip cannot be read back. */
   virtual std::unique_ptr< AdjacencyReading > readAdjacencies() const {
      auto held = adjacencies();
      return held ? wholeReading( std::optional( std::move( held->adjacencies ) ) ) : nullptr;
   }
   /** None if it does not tell. */
   virtual std::optional< AdjacencyRoom > adjacencyRoom() const { return std::nullopt; }
};

} // namespace QonChip
