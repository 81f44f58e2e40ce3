#pragma once
// The adjacencies of the chip in software: so many sets of next hops, so many groups for those of several
// next hops, and which of them each FEC leads to.
//
//    hook object -> add( number, version, key ) ... after the latency -> a place, a group -> hook.answered()
//                   remove( number )            ... after the latency -> both are free    -> hook.room()
//                -> lead( fec, number ), drop( fec ): at once
//
// Invariants
// 1. There are not more adjacencies and groups than there is room for (in the fault plan the limits of
//    "adjacencies" and "ecmpGroups").
// 2. What cannot be held is not: a FEC of an adjacency that is not there, the removal of one that a FEC
//    leads to. refused() says what was asked.
// 3. Work is done in whatever order it ends, but of a number only the newest: an addition that was
//    withdrawn, or whose hook object has gone, leaves nothing, whenever its time comes.
//
// Reads the fault plan: hook "adjacencyIs", with trouble `lose` for an answer that never comes.

#include <set>

#include "agent/softchip/Completions.h"
#include "agent/softchip/FaultPlan.h"
#include "agent/softchip/Hearer.h"
#include "chip/AdjacencyPart.h"

namespace SoftChip {

struct AdjacencyLimits {
   U32 adjacencies = 65'536;
   U32 ecmpGroups = 16'384;
};

class AdjacencyTable {
 public:
   using Answer = QonChip::AdjacencyAnswer;
   using GlobalFecId = Qon::GlobalFecId;

   /** What hears of it. */
   class Hook {
    public:
      virtual void done( U32 number, U32 version, Answer answer ) = 0;
      virtual void roomCame() = 0;

    protected:
      ~Hook() = default;
   };

   /** `plan` outlives the table. */
   AdjacencyTable( const AdjacencyLimits & limits, FaultPlan & plan );

   Hearer< Hook > hook;
   Completions completions;

   U32 adjacenciesAtMost() const { return plan_.limit( "adjacencies", limits_.adjacencies ); }
   U32 groupsAtMost() const { return plan_.limit( "ecmpGroups", limits_.ecmpGroups ); }
   const QonChip::HeldAdjacencyTable & adjacencies() const { return adjacencies_; }
   U32 groups() const { return groups_.taken(); }
   U32 fecs() const { return fecs_.size(); }
   QonChip::HeldAdjacencies held() const;
   /** The next hops that packets to a FEC take; null: they are dropped. */
   const Qon::L2AdjKey * hopsOf( GlobalFecId fec ) const;
   /** What it was asked and could not do, in words. */
   const std::vector< String > & refused() const { return refused_; }

   void add( U32 number, U32 version, const Qon::L2AdjKey & key );
   void remove( U32 number );
   void lead( GlobalFecId fec, U32 number );
   void drop( GlobalFecId fec );
   /** Another hook object hears from now on: all that there is is a former one's. */
   void begin( Hook * by );
   void staleDel();

 private:
   using Ticket = Hearer< Hook >::Ticket;
   /** Numbers from 0: the lowest that is free. */
   class Places {
    public:
      U32 take();
      void giveBack( U32 place ) { free_.insert( place ); }
      U32 taken() const { return next_ - U32( free_.size() ); }

    private:
      std::set< U32 > free_;
      U32 next_ = 0;
   };
   struct Newest {
      U32 version = 0;
      std::optional< U32 > place = {}; // none: it is not in the chip
   };
   using Troubles = std::optional< Trouble >;

   void complete( U32 number, U32 version, const Qon::L2AdjKey & key, Troubles trouble, Ticket by );
   Answer write( U32 number, Newest & newest, const Qon::L2AdjKey & key, Troubles trouble );
   void erase( U32 place );
   void tellRoom();

   const AdjacencyLimits limits_;
   FaultPlan & plan_;
   QonChip::HeldAdjacencyTable adjacencies_; // by place
   Places places_, groups_;
   std::set< U32 > going_;                  // places whose removal is not done yet
   Kiv::DenseMap< U32, Newest > newest_;    // by number, of the present hook object
   Kiv::DenseMap< GlobalFecId, U32 > fecs_; // places
   bool wanting_ = false; // somebody found no room, and has not been told of any since
   std::vector< String > refused_;
};

} // namespace SoftChip
