#pragma once
// Brings the FECs and adjacencies of the forwarding table into the chip.
//
//    FibReader --FEC moves--> marks -> slices: adjacency wanted -> adjacencyIs() -> chip
//                                                                                    |
//      leads the FECs over -> fecIs(), then adjacencyDel() of the former one <- answered, room
//
// Invariants
// 1. Make before break: a FEC leads to its former adjacency until the new one is programmed. An
//    adjacency that no FEC wants leaves the chip when no FEC leads to it there.
// 2. When the chip is full, and everything is answered, it comes to the one exception: FECs whose former
//    adjacency nobody wants any more leave it for the room, those of one adjacency at a time.
// 3. What finds no room waits in the order of its coming, and tries again when the chip says that
//    there is room: one, and two more for each that found it. What failed, or was not answered for a
//    minute, is tried again every 5 s; so is one of those without room, whatever the chip says.
// 4. What a former agent left in the chip goes when the tables are complete, and everything that they
//    say was handed over.
// 5. What the chip says is only noted down: hooks and watchers are called from slices. A hook that raises
//    did nothing, and is called again in 5 s.
//
// Ownership: counted; it holds the reader. The chip and the scheduler outlive it.

#include "agent/features/FibReader.h"
#include "chip/AdjacencyPart.h"
#include "platform/Kiv/Alarm.h"

namespace QonAgent {

class FibInstaller : public Velto::Node,
                     private QonChip::AdjacencyHelper::User,
                     private FibReader::Hearer {
 public:
   using GlobalFecId = Qon::GlobalFecId;
   using State = FibChipState;

   static constexpr Kiv::Seconds retryInterval = 5;
   static constexpr Kiv::Seconds answerTimeout = 60;

   FibInstaller( Velto::Ptr< FibReader > reader, QonChip::AdjacencyPart & part,
                 Kiv::TaskScheduler * scheduler );
   ~FibInstaller() override;
   /** From now on it does nothing: another one may begin. The chip stays as it is. */
   void end();

   /** The adjacency that packets to a FEC take in the chip; 0: none. */
   U32 leadsTo( GlobalFecId fec ) const {
      const U32 * number = leads_.find( fec );
      return number ? *number : 0;
   }
   /** FECs that lead anywhere in the chip. */
   U32 fecs() const { return leads_.size(); }
   /** Adjacencies by how far they are. */
   U32 adjacencies( State state ) const { return counts_[U32( state )]; }
   /** FECs whose packets were dropped to make room. */
   U64 interrupted() const { return interrupted_; }
   /** Answers that nobody waited for. */
   U64 unasked() const { return unasked_; }
   /** Whether nothing is left to do before the chip says something. */
   bool idle() const { return !work_.awake(); }
   /** Whether what a former agent left is gone. */
   bool staleGone() const { return staleGone_; }

   /** What does not hold of the invariants; empty if all do. */
   String checkInvariants() const;

 private:
   using Ptr = FibAdjacencies::Ptr;
   using Answer = QonChip::AdjacencyAnswer;
   using Numbers = Kiv::DenseMap< U32, Kiv::Nothing >;

   struct Work final : Kiv::Task {
      Work( FibInstaller * installer, Kiv::TaskScheduler * scheduler );
      bool run() override;
      FibInstaller * const installer_;
   };
   /** Adjacencies that found no room of one kind, or failed. */
   struct Waiting {
      Numbers numbers;
      U32 credits = 0; // so many may try again now
   };
   /** The FECs of an adjacency, one at a time, while they come and go. */
   class Walk {
    public:
      Walk( const Ptr & of, bool forRoom ) : adjacency( of ), makesRoom( forRoom ) { read(); }
      explicit operator bool() const { return bool( at_ ); }
      /** The next one; it may have left by now. */
      GlobalFecId take() {
         const GlobalFecId fec = fec_;
         ++at_;
         read();
         return fec;
      }
      const Ptr adjacency;
      const bool makesRoom; // they leave what nobody wants; else they are led to the adjacency

    private:
      void read() { fec_ = at_ ? at_.key() : GlobalFecId(); }
      Kiv::Iterator< FibAdjacency::adjEntryMap > at_ = adjacency->adjEntryIteratorConst();
      GlobalFecId fec_;
   };

   // What is noted down
   void fecMoves( GlobalFecId fec, const Ptr & from ) override;
   void adjacencyAnswered( U32 number, U32 version, Answer answer ) override;
   void adjacencyRoom() override;
   void conclude( const Ptr & adjacency, State state );
   void ring();

   // Slices, a unit each; false: there is nothing of the kind to do
   bool step();
   bool reviewNext();
   bool tellNext();
   bool syncNext();
   bool walkNext();
   bool retry( State state );
   bool dropStale();
   bool makeRoom();

   void sync( GlobalFecId fec );
   void request( const Ptr & adjacency );
   void lead( GlobalFecId fec, const Ptr & to );
   void drop( GlobalFecId fec );
   void left( U32 number );
   void leaveForRoom( GlobalFecId fec, const FibAdjacency & wanted );
   void stateIs( const Ptr & adjacency, State state );
   Waiting & waiting( State state ) { return waiting_[U32( state )]; }
   const Waiting & waiting( State state ) const { return waiting_[U32( state )]; }
   Ptr at( U32 number ) const { return reader_->adjacencies().at( number ); }
   String checkAdjacency( const FibAdjacency & adjacency, U32 fecs ) const;

   const Velto::Ptr< FibReader > reader_;
   Velto::Ptr< QonChip::AdjacencyHelper > helper_; // null: it has ended
   Kiv::DenseMap< GlobalFecId, U32 > leads_;       // numbers, as the chip has them
   U32 counts_[6] = {};
   Waiting waiting_[6]; // of noRoom, noGroup and failed; the others stay empty
   Numbers inFlight_;   // requests without an answer, the oldest first
   U32 version_ = 0;
   U32 rooms_ = 0;
   U64 interrupted_ = 0, unasked_ = 0;
   bool staleGone_ = false, stalePaused_ = false;
   bool roomComes_ = false; // something was taken out of a full chip
   U32 searched_ = 0;       // of those that wait: for which no room could be made

   Kiv::DenseMap< GlobalFecId, Kiv::Nothing > toSync_;
   Numbers toReview_; // nobody may want them any more
   Numbers toTell_;   // of their state
   Numbers toWalk_;   // programmed: their FECs can come
   std::optional< Walk > walk_;
   // Whose hooks raised, until the next ring.
   Kiv::DenseMap< GlobalFecId, Kiv::Nothing > syncAgain_;
   Numbers reviewAgain_;

   Kiv::Alarm alarm_;
   Work work_;
};

} // namespace QonAgent
