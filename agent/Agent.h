#pragma once
// The reference forwarding agent: the state database, the shared agent data, and the features.
//
//    program or test -> Agent( scheduler, chip ) -> mounts, shared data, features
//                                 chip's parts -> hook objects of the features
//    ConfigDB, state file, events, server -> entities -> state machines
//
// Invariants
// 1. Everything runs on the scheduler's one thread; the agent itself never waits.
// 2. Features are made in order and end in reverse; then the hook objects that they shared; the
//    shared data goes last.
// 3. A message of the log is remembered (the last `logDepth`) and then passed on, if its severity
//    is of the level that was asked for.
//
// Ownership: owns the entity manager, the shared data and the features; not the scheduler and the
// chip, which must outlive it.

#include <deque>
#include <map>
#include <typeindex>

#include "Qon/include/framework/QonCommonSmData.h"
#include "agent/AgentFeature.h"
#include "agent/configdb/IntfNames.h"
#include "chip/Chip.h"
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
   /** Messages less severe than that are remembered, and not passed on. */
   void levelIs( U32 least ) { level_ = least; }
   U32 level() const { return level_; }
   const std::deque< Record > & records() const { return records_; }
   /** How many messages came before the first of records(). */
   U64 gone() const { return gone_; }

 private:
   Kiv::LogSink * next_;
   U64 gone_ = 0;
   U32 level_ = Kiv::logInformational;
   std::deque< Record > records_;
};

/** Who answers the verification commands of clients. */
struct Verification {
   String name; ///< what stands between "VTS#" and "#" in a command that it accepts
   /** Writes the whole answer to `socket` before it returns. */
   std::function< void( int socket, const String & command ) > handle;
};

/** What was chosen of the features' options, by name. */
using Settings = std::map< String, String >;

class Agent {
 public:
   /** Raises Velto::RangeError for a setting that no feature knows, having made nothing. */
   Agent( Kiv::TaskScheduler & scheduler, QonChip::Chip & chip,
          const Features & features = agentFeatures(), const Settings & settings = {} );
   ~Agent();
   Agent( const Agent & ) = delete;
   Agent & operator=( const Agent & ) = delete;

   Kiv::TaskScheduler & scheduler() { return scheduler_; }
   Kiv::TimerWheel * timerWheel() { return scheduler_.timerWheel(); }
   Orvane::EntityManager & entities() { return entities_; }
   Qon::QonCommonSmData * acsd() const { return acsd_.ptr(); }
   Qon::QonEpochStatus * epochStatus() const { return epochStatus_.ptr(); }
   const std::vector< std::unique_ptr< AgentFeature > > & features() const { return features_; }
   /** Their names, in the same order. */
   const std::vector< String > & featureNames() const { return featureNames_; }
   RecentLog & log() { return log_; }
   const RecentLog & log() const { return log_; }

   QonChip::Chip & chip() const { return chip_; }
   /** The word that was chosen for a feature's option. */
   const String & setting( const String & name ) const { return settings_.at( name ); }

   /** A hook object that several features use, such as the one of VLANs: `make` makes it for the
       first that asks. Null, if the chip has no part for it, for the others too. */
   template< class Hook >
   Velto::Ptr< Hook > shared( const std::function< Velto::Ptr< Hook >() > & make ) {
      auto [entry, fresh] = shared_.try_emplace( typeid( Hook ) );
      if ( fresh ) {
         entry->second = make();
      }
      return static_cast< Hook * >( entry->second.ptr() );
   }

   /** How interfaces are spelled in the configuration that was loaded. */
   IntfNames & names() { return names_; }
   const IntfNames & names() const { return names_; }

   /** Set by the feature that brings it. */
   void verificationIs( Verification verification ) { verification_ = std::move( verification ); }
   const Verification & verification() const { return verification_; }

   /** Tells the features that what the agent starts with has been read, once. */
   void inputsRead();

   /** What all features offer, in their order. */
   std::vector< ShowCommand > showCommands() const;
   std::vector< EventKind > eventKinds() const;

   /** Seconds since the agent began, by its own clock. */
   Kiv::Seconds uptime() const { return Kiv::now() - began_; }
   Kiv::Seconds began() const { return began_; }

 private:
   void settingsAre( const Features & features, const Settings & settings );

   Kiv::TaskScheduler & scheduler_;
   QonChip::Chip & chip_;
   Settings settings_;
   Kiv::Seconds began_;
   RecentLog log_;
   Orvane::EntityManager entities_;
   Velto::Ptr< Qon::QonCommonSmData > acsd_;
   Velto::Ptr< Qon::QonEpochStatus > epochStatus_;
   IntfNames names_;
   Verification verification_;
   std::map< std::type_index, Velto::Ptr< Velto::Node > > shared_;
   std::vector< String > featureNames_;
   std::vector< std::unique_ptr< AgentFeature > > features_;
};

} // namespace QonAgent
