#pragma once
// The forwarding table: routes, FECs and vias come through shared memory to the agent's own reader, and
// from there into the chip in software. Writers end in the middle and come back, tables vanish, values
// cannot be, the reader is overtaken; the chip is full, fails, answers late or never; hooks and watchers
// raise, change things, and end the reader.
//
// While something happens:
// 1. Each change of a FEC's prefixes is told once, with the counts that are behind it.
// 2. A FEC leads to next hops in the chip that it had once, and drops packets only for want of room.
// Whenever the reader has nothing to do, from what was written alone:
// 3. The prefix lists are the routes; a FEC that is whole has the adjacency of its next hops, another one
//    that of some time before; equal next hops share one adjacency, which knows its FECs and prefixes.
// At rest:
// 4. Each FEC leads to its next hops in the chip, and the chip holds nothing else; what is not there
//    found it full. A FEC that lacks a group may stay with one next hop, which does not have one.

#include <array>
#include <map>
#include <optional>
#include <set>

#include "agent/features/FibInstaller.h"
#include "agent/softchip/AdjacencyPart.h"
#include "simulation/FibTables.h"
#include "simulation/SimFeature.h"

namespace Sim {

class SimFib : public SimFeature, public QonChip::AdjacencyPart {
 public:
   explicit SimFib( World & world );
   ~SimFib() override;

   static std::span< const Operation > operations();
   static void shape( const World & world, SoftChip::Shape & shape );

   void drawFaults( Rng & rng, std::vector< String > & lines ) const override;
   void start() override;
   void kill( Ending ending ) override;
   String checkInvariants() const override;
   void faultsIs( bool on ) override;
   String checkAtRest() const override;
   bool mayStayArmed() const override;
   void tearDown() override;
   String checkTornDown() const override;
   void stop() override;

 private:
   using GlobalFecId = Qon::GlobalFecId;
   using RouteKey = Quarn::Fib::RouteKey;
   using Route = Quarn::Fib::Route;
   using Fec = Quarn::Fib::Fec;
   using Via = Quarn::Fib::Via;
   class Helper;
   class Watcher;
   class Folder;

   static constexpr U32 routeCount = 24; // numbers from 0
   static constexpr U32 fecCount = 10;   // numbers from 1
   static constexpr U32 ownFec = 1000;   // FECs from here on lead nowhere, and are in no table
   static constexpr U32 mostVias = 4;
   static RouteKey routeKey( U32 route );
   static bool possible( U32 route ) { return route % 8 != 7; }

   /** @name Operations */
   /** @{ */
   void routeIs( const Event & event );
   void routeDel( const Event & event );
   void fecIs( const Event & event );
   void fecPart( const Event & event );
   void fecGarbled( const Event & event );
   void fecDel( const Event & event );
   void flood( const Event & event );
   void writerEnds( const Event & event );
   void writerBegins( const Event & event );
   void complete( const Event & event );
   void tableIs( const Event & event );
   void ownIs( const Event & event );
   void latencyIs( const Event & event );
   void answer( const Event & event );
   void nestedIs( const Event & event );
   void raisesIs( const Event & event );
   void restart( const Event & event );
   /** @} */

   Velto::Ptr< QonChip::AdjacencyHelper > makeAdjacencyHelper() override;
   void begin();
   void end();
   void openTables();
   void changed();
   void look();
   void lastLook();
   void walked();
   void change( U32 what );
   void nest();
   void raise();
   std::vector< Via > hops( U32 content, Fec & fec );
   void writeFec( U32 fec, U32 content, U32 steps );

   // What happens
   void told( const Qon::AdjGlobalPrefixList & list, Ulnet::AddressFamily family );
   void leads( GlobalFecId fec );
   void drops( GlobalFecId fec );
   void complain( const String & what );

   // The model
   struct Counts {
      U32 v4 = 0, v6 = 0, defaults4 = 0, defaults6 = 0;
   };
   /** What a FEC may be while it cannot be taken as it stands, since somebody looked last. */
   struct Past {
      std::set< String > had = { "" };
      bool gone = true;
      std::set< U32 > routes; // that led to it all the time
   };
   using FecRoutes = std::map< U32, std::set< U32 > >; // by FEC
   using Actuals = std::array< String, fecCount + 1 >;
   std::optional< String > content( U32 fec ) const;
   void remember();
   FecRoutes routesByFec() const;
   static String shown( const Qon::L2AdjKey & key );
   String actual( U32 fec ) const;
   String checkRead() const;
   String checkList( U32 fec, const std::set< U32 > & routes ) const;
   String checkFec( U32 fec, const std::set< U32 > & routes, const String & is ) const;
   String checkAdjacencies( const FecRoutes & routes, const Actuals & is ) const;
   String checkChip() const;

   SoftChip::AdjacencyTable & table_;
   const std::unique_ptr< Folder > folder_;
   const String socket_;
   std::unique_ptr< Quarn::Server > server_; // null: there is no writer
   FibTable< RouteKey, Route > routes_;
   FibTable< Quarn::Fib::FecKey, Fec > fecs_;
   FibTable< Quarn::Fib::ViaKey, Via > vias_; // by 8 times the FEC, and the index
   Velto::Ptr< QonAgent::FibReader > reader_;
   Velto::Ptr< QonAgent::FibInstaller > installer_;
   Velto::Ptr< Watcher > watcher_;

   mutable std::map< U32, Past > past_;
   std::array< std::optional< String >, fecCount + 1 > whole_; // what FECs say by now
   std::map< U32, std::set< String > > ever_;                  // next hops that a FEC had
   std::map< U32, std::set< U32 > > own_;                      // prefixes of FECs from ownFec on
   std::map< U64, Counts > told_;
   std::set< U64 > telling_; // FECs
   U32 version_ = 0;
   U32 nested_ = 0;
   U32 serial_ = 0;
   U32 raises_ = 0;
   bool begun_ = false; ///< the writer's life; those of agents are shorter
   bool inHook_ = false;
   bool unseen_ = false;           // something was written in the middle of a slice
   mutable bool unchecked_ = true; // something has changed since the reader was idle
   Kiv::Alarm look_;
};

} // namespace Sim
