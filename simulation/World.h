#pragma once
// One simulated agent: virtual time, the shared agent data, the features with their chips.
//
// Invariants
// 1. The plan alone decides what the world is: sizes, chips, faults. The same plan and the same
//    events give the same transcript.
// 2. Time moves in events only. What never comes to an end at one moment is a failure, not a hang.

#include "Qon/include/framework/HookTap.h"
#include "Qon/include/framework/QonCommonSmData.h"
#include "agent/softchip/Chip.h"
#include "platform/Kiv/EventLoop.h"
#include "platform/Kiv/Log.h"
#include "platform/Kiv/Rng.h"
#include "platform/Kiv/TaskScheduler.h"
#include "simulation/SimFeature.h"
#include "simulation/Transcript.h"

namespace Sim {

/** What a run begins with. */
struct Plan {
   U64 seed = 1;
   /** Empty, or none but those that look on: all but those that stand apart. */
   std::vector< String > features;
   /** What goes wrong in the soft chip: "<hook> <trouble> <first call> <calls> <in thousand>", as
       in SoftChip::Fault, or "limit <table> <entries>". Empty: what the seed chooses. */
   std::vector< String > faults;
};

/** Which features' invariants a step checks: all, or those of its own and of one other in turn. */
enum class Checks : U8 { all, inTurn };

/** What is broken: a feature's name and a text "name: details". */
struct Finding {
   String feature;
   String what;
   explicit operator bool() const { return !what.empty(); }
   /** What makes two findings the same: feature and name. */
   String key() const { return feature + ": " + what.substr( 0, what.find( ':' ) ); }
};

class World : private Kiv::LogSink, private Qon::HookListener {
 public:
   explicit World( const Plan & plan );
   ~World() override;

   /** Creates the state machines; then the world is ready for events. */
   void start();
   void apply( const Event & event );
   /** What was reported since the start, or the first thing that does not hold after the step. */
   Finding checkStep( const Event & event, Checks checks );
   /** For checks that are made while something happens: the first one is kept. */
   void report( const char * feature, const String & what );
   U32 size( Range range ) const;

   /** Names of what an argument chooses; numbers outside the range wrap around. */
   Ulnet::IntfId port( U32 i ) const;
   Ulnet::IntfId lag( U32 i ) const;
   Ulnet::IntfId intf( U32 i ) const;
   Bridging::VlanId vlan( U32 i ) const;
   String topo( U32 i ) const;

   /** The feature of that class; null if it is not part of the plan. */
   template< class T >
   T * feature() const {
      for ( auto & entry : features_ ) {
         if ( auto found = dynamic_cast< T * >( entry.feature.get() ) ) {
            return found;
         }
      }
      return nullptr;
   }
   void meanwhile() {
      for ( auto & entry : features_ ) {
         entry.feature->meanwhile();
      }
   }
   bool has( U32 kind ) const;
   /** Whether the chip keeps forwarding per VLAN and has no topology tables. */
   bool perVlan() const { return perVlan_; }
   const Plan & plan() const { return plan_; }
   /** Chance for decisions about the world that are made at its start. */
   Rng chance( U64 purpose ) const { return Rng( plan_.seed ).fork( purpose ); }

   /** What has sockets has them here; its owner lets them work, in the scheduler's time. Made before the
       scheduler, whose clocks are the others'. */
   Kiv::EventLoop sockets;
   Kiv::VirtualScheduler scheduler;
   Transcript transcript;
   /** Of the agent of the moment. */
   Velto::Ptr< Qon::QonCommonSmData > acsd;
   /** With all its parts; whoever needs one of them takes it from here. */
   std::unique_ptr< SoftChip::Chip > chip;

   /** @name Time */
   /** @{ */
   /** At most so many turns, all at the present moment. */
   void turns( U32 count );
   void runFor( Kiv::Seconds span );
   /** Without faults, until nothing is due; then what must hold at rest is checked. */
   void rest();
   /** The agent ends, and another one comes up over the same chip. Where the former one was at rest,
       its successor comes to rest too, and what is wanted as before was not touched meanwhile. */
   void restart( Ending ending );
   /** Takes everything away; from then on nothing happens. */
   void end();
   /** @} */

 private:
   struct Entry {
      U32 kind;
      std::unique_ptr< SimFeature > feature;
   };

   void message( const Kiv::LogDescriptor & descriptor, const String & text ) override;
   void hookCalled( const char * hook, const String & arguments ) override;
   bool turnsUntil( Kiv::Seconds until );
   void faultsAre( bool on );
   void settle();
   void replaceAgent( Ending ending );
   Holdings holdings() const;
   void look( const String & during );
   void check( String ( SimFeature::*what )() const );

   Plan plan_;
   U32 ports_, lags_, vlans_, topos_, keys_;
   bool perVlan_;
   std::vector< Entry > features_;
   std::vector< String > faultLines_;
   Finding finding_;
   U32 steps_ = 0;
   std::unique_ptr< Hitless > hitless_; ///< while a restart is watched
   bool stopped_ = false;               ///< the state machines are gone
   Kiv::LogSink * formerSink_;
};

} // namespace Sim
