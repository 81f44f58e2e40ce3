#pragma once
// Follows the forwarding table in shared memory, and keeps what the agent makes of it.
//
//    table "route" -> Routes --prefix, FEC--> prefix lists, by FEC
//    table "fec"   -> Marks --FEC to look at--> Resolver: FEC and vias by look-up --> adjacency
//    table "via"   -> Marks ------^
//
// Invariants
// 1. When nothing is left to do, the prefix lists are the routes, and each FEC that is whole in the
//    tables is with the adjacency of its next hops.
// 2. A FEC that cannot be taken as it stands (a via of another version, bytes that are no next hop) is
//    what it was, and says why: a change of it or of one of its vias makes the reader look again.
// 3. A route may come before its FEC, and stay behind it: then the FEC is there as long as routes are,
//    without an adjacency, or with the one that it had.
// 4. What a writer says is not believed: a route whose prefix, length or VRF cannot be is counted, and
//    leads nowhere.
// 5. A look-up may be ahead of what was told, and see what goes without a word. So only the follower of
//    FECs says which there are; look-ups say only what one is:
//
//       not there --told--> in the table: looked up --its end--> not there, or behind: as it was
//           `--a route---> ahead --told--^   ^--told--- behind --the last route leaves--> not there
//
// 6. A route knows its FEC by the number that it leaves with the follower (the FEC's place, and 1): no
//    prefix is looked up to change a route.
//
// Everything is done in slices of the scheduler, FECs before routes. Watchers of adjacencies and of
// counts may drop the last reference to the reader; what they raise passes when the change is made.
//
// Ownership: counted. The event loop and the scheduler outlive it.

#include <deque>

#include "Qon/include/adjacency/AdjGlobalPrefixList.h"
#include "agent/features/FibAdjacencies.h"
#include "agent/features/FibNextHops.h"
#include "platform/Quarn/Follower.h"

namespace QonAgent {

using Velto::String;

/** A forwarding equivalence class, as the agent has it. */
struct FibFec {
   Qon::GlobalFecId id;
   U32 routes = 0;                ///< that lead to it
   bool inTable = false;          ///< false: routes are ahead of it, or behind it
   Quarn::Fib::Fec taken;         ///< that its adjacency was made of
   Qon::AdjErrorStates errors;    ///< why it is not what the table says
   FibAdjacencies::Ptr adjacency; ///< null: packets of its routes go nowhere yet
   bool inUse() const { return inTable || routes; }
};

/** What is to be said of one of the tables. */
struct FibTableState {
   const Quarn::Reader * reader;
   U64 told;
   U64 behind;
   U64 overtaken;
   bool idle;
};

class FibReader : public Velto::Node {
 public:
   using GlobalFecId = Qon::GlobalFecId;
   using Ptr = FibAdjacencies::Ptr;

   /** Who brings into the chip what there is here. */
   class Hearer {
    public:
      /** A FEC is to be with another adjacency than `from`; either may be null. Called before
          anybody else hears of it, in the middle of the change. */
      virtual void fecMoves( GlobalFecId fec, const Ptr & from ) = 0;

    protected:
      ~Hearer() = default;
   };
   using RouteKey = Quarn::Fib::RouteKey;

   /** The tables of the writer at `path`; raises Velto::RangeError for what cannot be one. `counts`
       hears of all counts of prefixes; null: nobody does. */
   FibReader( Kiv::EventLoop * loop, Kiv::TaskScheduler * scheduler, const String & path,
              Velto::Ptr< Qon::AdjPrefixCountStatus > counts = nullptr );

   /** @name What there is */
   /** @{ */
   const Quarn::Source & source() const { return source_; }
   std::vector< FibTableState > tables() const;
   /** Whether everything that was seen of the tables is done. */
   bool idle() const;
   /** Null if there is none. Holds until the next change. */
   const FibFec * fec( GlobalFecId id ) const;
   /** FECs by place, from 0; null where there is none. */
   const FibFec * fecAt( U32 place ) const {
      return place < fecs_.size() && fecs_[place].inUse() ? &fecs_[place] : nullptr;
   }
   U32 fecPlaces() const { return U32( fecs_.size() ); }
   U32 fecs() const { return byId_.size(); }
   const Velto::Ptr< Qon::AdjGlobalPrefixListWrapper > & prefixLists() const { return lists_; }
   const FibAdjacencies & adjacencies() const { return adjacencies_; }
   const FibNextHops & nextHops() const { return nextHops_; }
   /** The route of exactly that prefix, as the table has it now. */
   Quarn::Found route( const RouteKey & key, Quarn::Fib::Route * to ) const {
      return routeTable_.value( key, to );
   }
   U32 routes( Ulnet::AddressFamily family ) const { return routes_[U32( family )]; }
   /** Routes of FECs that have no adjacency. */
   U32 waiting() const { return waiting_; }
   /** Routes that cannot be. */
   U32 refused() const { return routes_[0]; }
   /** @} */

   /** Null: nobody. It takes itself out before it ends. */
   void hearerIs( Hearer * hearer ) { hearer_ = hearer; }
   /** The chip has let it go. */
   void adjacencyLeft( const Ptr & adjacency ) { adjacencies_.dropUnused( adjacency ); }

   /** What does not hold of the invariants; empty if all do. */
   String checkInvariants() const;

 private:
   using Route = Quarn::Fib::Route;
   using Fec = Quarn::Fib::Fec;
   using Via = Quarn::Fib::Via;
   using FecKey = Quarn::Fib::FecKey;
   using ViaKey = Quarn::Fib::ViaKey;

   struct Routes final : Quarn::Follower< RouteKey, Route > {
      Routes( FibReader * reader, Kiv::TaskScheduler * scheduler );
      void handleValue( const RouteKey & key, const Route & route ) override;
      void handleValueDel( const RouteKey & key ) override;
      FibReader * const reader_;
   };
   /** What follows FECs, and vias: each change is a FEC to look at. */
   template< class Key, class Value >
   struct Marks final : Quarn::Follower< Key, Value > {
      Marks( FibReader * reader, Quarn::TableReader< Key, Value > * table,
             Kiv::TaskScheduler * scheduler );
      void handleValue( const Key & key, const Value & ) override { reader_->told( key, true ); }
      void handleValueDel( const Key & key ) override { reader_->told( key, false ); }
      FibReader * const reader_;
   };
   struct Resolver final : Kiv::Task {
      Resolver( FibReader * reader, Kiv::TaskScheduler * scheduler );
      bool run() override;
      FibReader * const reader_;
   };
   static constexpr U32 none = 0;                // notes of routes: leads nowhere
   static constexpr U32 impossible = 0xfffffffe; // cannot be

   void routeLeadsTo( const RouteKey & key, U32 former, U32 wanted );
   void prefixIs( const RouteKey & key, U32 note, bool in );
   void count( const RouteKey & key, U32 note, int by );

   U32 placeOf( GlobalFecId id );
   void dropUnused( U32 place );
   void told( const FecKey & key, bool there );
   void told( const ViaKey & key, bool there );
   void look( GlobalFecId id );
   void resolve( GlobalFecId id );
   void take( U32 place, const Fec & fec );
   Qon::AdjErrorStates read( GlobalFecId id, const Fec & fec, std::vector< Via > & vias ) const;
   void adjacencyIs( U32 place, const Ptr & wanted );

   const Velto::Ptr< Qon::AdjPrefixCountStatus > counts_;
   FibNextHops nextHops_;
   FibAdjacencies adjacencies_;
   const Velto::Ptr< Qon::AdjGlobalPrefixListWrapper > lists_ =
         Velto::make< Qon::AdjGlobalPrefixListWrapper >();
   std::deque< FibFec > fecs_;
   std::vector< U32 > free_; // places
   Kiv::DenseMap< GlobalFecId, U32 > byId_;
   Kiv::DenseMap< GlobalFecId, Kiv::Nothing > toLookAt_; // of those in the table
   U32 routes_[3] = {}; // by family; those that cannot be are of none
   U32 waiting_ = 0;
   Hearer * hearer_ = nullptr;

   Quarn::Source source_;
   Quarn::TableReader< RouteKey, Route > routeTable_;
   Quarn::TableReader< FecKey, Fec > fecTable_;
   Quarn::TableReader< ViaKey, Via > viaTable_;
   Resolver resolver_;
   Marks< FecKey, Fec > fecChanges_;
   Marks< ViaKey, Via > viaChanges_;
   Routes routeChanges_;
};

} // namespace QonAgent
