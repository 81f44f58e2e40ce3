#pragma once
// The reference forwarding agent: the state database, the shared agent data, and the features.
//
//    program or test -> Agent( scheduler ) -> mounts, shared data, create() of each feature
//    ConfigDB, state file, events, server -> entities -> state machines
//
// Invariants
// 1. Everything runs on the scheduler's one thread; the agent itself never waits.
// 2. Features are created in order and destroyed in reverse; the shared data goes last.
// 3. A message of the log is remembered (the last `logDepth`) and then passed on.
//
// Ownership: owns the entity manager, the shared data and the features; not the scheduler, which
// must outlive it.

#include <deque>

#include "Qon/include/framework/QonCommonSmData.h"
#include "agent/AgentFeature.h"
#include "agent/configdb/IntfNames.h"
#include "agent/softchip/FaultPlan.h"
#include "platform/Kiv/Log.h"
#include "platform/Kiv/TaskScheduler.h"
#include "platform/Orvane/EntityManager.h"

namespace QonAgent {

/** Under which path the shared agent data stands, for the console. */
inline constexpr char acsdPath[] = "acsd";

/** The last messages of the log. Installed as the log's sink while it lives. */
class RecentLog : public Kiv::LogSink {
 public:
   struct Record {
      Kiv::Seconds time; ///< of the agent's clock
      U32 severity;
      String name;
      String text;
   };
   static constexpr U32 logDepth = 1000;

   RecentLog();
   ~RecentLog() override;
   void message( const Kiv::LogDescriptor & descriptor, const String & text ) override;
   const std::deque< Record > & records() const { return records_; }

 private:
   Kiv::LogSink * next_;
   std::deque< Record > records_;
};

/** Who answers the verification commands of clients. */
struct Verification {
   String name; ///< what stands between "VTS#" and "#" in a command that it accepts
   /** Writes the whole answer to `socket` before it returns. */
   std::function< void( int socket, const String & command ) > handle;
};

class Agent {
 public:
   explicit Agent( Kiv::TaskScheduler & scheduler, Features features = agentFeatures() );
   ~Agent();
   Agent( const Agent & ) = delete;
   Agent & operator=( const Agent & ) = delete;

   Kiv::TaskScheduler & scheduler() { return scheduler_; }
   Kiv::TimerWheel * timerWheel() { return scheduler_.timerWheel(); }
   Orvane::EntityManager & entities() { return entities_; }
   Qon::QonCommonSmData * acsd() const { return acsd_.ptr(); }
   Qon::QonEpochStatus * epochStatus() const { return epochStatus_.ptr(); }
   const Features & features() const { return features_; }
   const RecentLog & log() const { return log_; }

   /** What goes wrong in the chip. */
   SoftChip::FaultPlan & faults() { return faults_; }

   /** How interfaces are spelled in the configuration that was loaded. */
   IntfNames & names() { return names_; }
   const IntfNames & names() const { return names_; }

   /** Set by the feature that brings it. */
   void verificationIs( Verification verification ) { verification_ = std::move( verification ); }
   const Verification & verification() const { return verification_; }

   /** What all features offer, in their order. */
   std::vector< ShowCommand > showCommands() const;
   std::vector< EventKind > eventKinds() const;

   /** Seconds since the agent began, by its own clock. */
   Kiv::Seconds uptime() const { return Kiv::now() - began_; }
   Kiv::Seconds began() const { return began_; }

 private:
   Kiv::TaskScheduler & scheduler_;
   Kiv::Seconds began_;
   RecentLog log_;
   Orvane::EntityManager entities_;
   Velto::Ptr< Qon::QonCommonSmData > acsd_;
   Velto::Ptr< Qon::QonEpochStatus > epochStatus_;
   IntfNames names_;
   Verification verification_;
   SoftChip::FaultPlan faults_;
   Features features_;
};

} // namespace QonAgent
