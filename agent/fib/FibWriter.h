#pragma once
// Writes the forwarding table into shared memory.
//
//    apply( line ) -> routeIs, fecIs ... -> tables "via", "fec", "route" -> the agents that follow
//
// Invariants
// 1. Routes with the same next hops share one class, whose number is this writer's; a class goes with
//    its last route. Classes that lines name have the numbers that they name, and stay until they are
//    removed.
// 2. The vias of a class are written before the class, and all that is written before the route.
//    Removals go the other way. All vias of a class have its version, which no other one ever has
//    while the writer runs; another writer begins elsewhere.
// 3. Where a table has no room, the call raises Velto::RangeError, and what was is as it was.

#include <map>
#include <memory>

#include "agent/fib/RouteFile.h"
#include "platform/Kiv/DenseMap.h"
#include "platform/Quarn/TableWriter.h"

namespace QonAgent {

/** How many of each there may be at a time. Costs address space. */
struct FibRoom {
   U32 routes = 1u << 22;
   U32 fecs = 1u << 21;
   U32 vias = 1u << 22;
};

class FibWriter {
 public:
   using RouteKey = Quarn::Fib::RouteKey;
   using GlobalFecId = Quarn::Fib::GlobalFecId;

   /** Tables of a server that outlives it. */
   explicit FibWriter( Quarn::Server * server, const FibRoom & room = {} );

   void apply( const FibLine & line );
   void routeIs( const RouteKey & route, const FibContent & content );
   void routeIs( const RouteKey & route, GlobalFecId fec );
   /** Whether it was there. */
   bool routeDel( const RouteKey & route );
   void fecIs( GlobalFecId fec, const FibContent & content );
   bool fecDel( GlobalFecId fec );
   /** All that is known is written: agents go over to it. */
   void completeIs( bool v );

   U32 routes() const { return routes_.size(); }
   U32 fecs() const { return fecs_.size(); }

 private:
   using Fec = Quarn::Fib::Fec;
   using Via = Quarn::Fib::Via;
   using FecKey = Quarn::Fib::FecKey;
   using ViaKey = Quarn::Fib::ViaKey;

   /** Classes of this writer by what they say. */
   using Own = std::map< String, GlobalFecId >;
   struct Shared {
      Own::iterator content;
      U32 routes = 0;
   };
   static constexpr U64 firstOwn = mostNamedFec + 1;

   bool leadsTo( const RouteKey & route, GlobalFecId fec );
   void release( GlobalFecId fec );
   GlobalFecId fecOf( const FibContent & content );
   bool viasAre( GlobalFecId fec, const std::vector< Via > & vias, U32 version );
   std::vector< Via > viasOf( GlobalFecId fec, U32 count ) const;
   void viasDel( GlobalFecId fec, U32 from, U32 to );

   Quarn::TableWriter< ViaKey, Via > vias_;
   Quarn::TableWriter< FecKey, Fec > fecs_;
   Quarn::TableWriter< RouteKey, Quarn::Fib::Route > routes_;
   Own own_;
   Kiv::DenseMap< GlobalFecId, Shared > shared_;
   U64 nextOwn_ = firstOwn;
   U32 version_;
};

} // namespace QonAgent
