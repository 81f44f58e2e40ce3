#pragma once
// The forwarding table: routes and their next hops come through shared memory, from whoever writes the
// tables at the path of `--fib`; qon-fib is one such writer.
//
//    --fib PATH -> FibReader -> prefix lists by FEC, adjacencies -> FibInstaller -> the chip
//
// Without --fib there is nothing of it. On virtual time, which watches no sockets, it cannot be.
//
// Sources: FibFeature.cc, FibFeatureShow.cc.

#include "agent/AgentFeature.h"
#include "agent/features/FibInstaller.h"

namespace QonAgent {

class FibFeature : public AgentFeature {
 public:
   explicit FibFeature( Agent & agent );

   void inputsRead() override;
   std::vector< ShowCommand > showCommands() override;
   std::vector< Counter > counters() const override;
   std::vector< String > ownNames() const override {
      return { "Qon::L2Adj", "Qon::AdjGlobalPrefixList", "Quarn route", "Quarn fec", "Quarn via",
               "Fib ",       "AdjacencyHelper" };
   }

   /** Follows the tables at `path`, in place of others. Raises Velto::RangeError. */
   void attach( Kiv::EventLoop * loop, const String & path,
                Velto::Ptr< Qon::AdjPrefixCountStatus > counts = nullptr );
   /** Null without tables. */
   FibReader * reader() const { return reader_.ptr(); }
   /** Null without tables, and with a chip that programs no adjacencies. */
   FibInstaller * installer() const { return installer_.ptr(); }

 private:
   using RouteKey = Quarn::Fib::RouteKey;
   using Route = Quarn::Fib::Route;

   std::vector< ShowCommand > hardwareCommands();
   FibReader & served() const;
   Rows routes( Arguments arguments ) const;
   Rows allRoutes( Arguments arguments ) const;
   template< class List >
   Rows routesOf( Velto::Ptr< const Qon::AdjGlobalPrefixList > fec,
                  Qon::AdjPrefixListBaseKey key ) const;
   Rows summary() const;
   Rows fecs( Arguments arguments ) const;
   Rows adjacencies( Arguments arguments ) const;
   Row routeRow( const RouteKey & key, Qon::GlobalFecId id ) const;
   Row fecRow( const FibFec & fec ) const;
   Row adjacencyRow( const FibAdjacency & adjacency ) const;
   Value::List hops( const FibAdjacency * adjacency ) const;
   Value::List hops( const Qon::L2AdjKey & key ) const;
   const char * stateOf( const FibFec & fec ) const;
   String whyOf( const FibFec & fec ) const;
   Rows hardware() const;
   Rows resources() const;

   Agent & agent_;
   QonChip::AdjacencyPart * const part_; ///< null: the chip has none
   Velto::Ptr< FibReader > reader_;
   Velto::Ptr< FibInstaller > installer_;
};

/** For tests of it alone. */
FeatureKind fibFeature();

} // namespace QonAgent
