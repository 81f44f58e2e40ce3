#pragma once
// Turns the configuration of each physical interface (of which aggregate it is a member) into a
// directory by aggregate and member.
//
//    EthLagIntfConfigDir -> EthPhyLagConfigSm per interface -> reviewIntf( phyIntf )
//                                             -> AggregatedLagConfigDir.lagToPort[ lag ].member
//
//    start: scan (a task, in slices) -> replay of what changed meanwhile -> stale entries out
//           -> from then on each event at once
//
// Invariants
// 1. Nothing is deleted from the output before the scan is over: what an earlier incarnation left
//    stays until it is known to be stale.
// 2. An event during the scan only marks its interface, which is looked at after the scan.
// 3. After the scan an interface is in the entry of the aggregate that it is configured for, and
//    in no other. An aggregate has an entry while it has a member.
// 4. A slice handles at most `batch` interfaces, fewer when the scheduler's budget is used up.
//
// Ownership: counts inputs and outputs; the output is written by this class alone.

#include "Qon/include/framework/QonBaseSm.h"
#include "Qon/include/framework/SmCollection.h"
#include "platform/Kiv/TaskScheduler.h"
#include "platform/types/HardwareLag.h"

namespace Qon {

class LagConfigAggregatorSm;

/** The configuration of one physical interface. */
class EthPhyLagConfigSm : public QonBaseSm {
 public:
   EthPhyLagConfigSm( LagConfigAggregatorSm * aggregator,
                      Velto::Ptr< const Interface::EthLagIntfConfig > config );
   void handleInitialized() override;
   /** Its aggregate or its mode changed. */
   void handleLag();
   const Interface::EthLagIntfConfig * config() const { return config_.ptr(); }

 private:
   LagConfigAggregatorSm * aggregator_;
   const Velto::Ptr< const Interface::EthLagIntfConfig > config_;
   Kiv::Watch< Interface::EthLagIntfConfig::lagAttr, EthPhyLagConfigSm,
               &EthPhyLagConfigSm::handleLag >
         lagWatch_;
   Kiv::Watch< Interface::EthLagIntfConfig::modeAttr, EthPhyLagConfigSm,
               &EthPhyLagConfigSm::handleLag >
         modeWatch_;
};

class LagConfigAggregatorSm : public QonBaseSm, public Checked {
 public:
   /** Interfaces in one slice of the scan, at most. */
   static constexpr U32 batch = 64;
   static constexpr U32 taskPriority = 100;

   LagConfigAggregatorSm(
         Velto::Ptr< const Interface::EthLagIntfConfigDir > ethLagIntfConfigDir,
         Velto::Ptr< Hardware::Lag::AggregatedLagConfigDir > aggregatedLagConfigDir,
         Kiv::TaskScheduler * scheduler );

   void handleInitialized() override;
   void kivDoZombieReactors() override;

   /** Whether the start is over: stale entries are gone, events have their effect at once. */
   bool scanDone() const { return phase_ == Phase::done; }
   String checkInvariants() const override;

   void handleIntfConfig( const Ulnet::IntfId & phyIntf );
   /** Brings the output up to date with the interface, or marks it while the scan goes on. */
   void handleEvent( Ulnet::IntfId phyIntf );

 private:
   Velto::Ptr< EthPhyLagConfigSm >
   makeIntfSm( const Ulnet::IntfId & phyIntf,
               const Velto::Ptr< const Interface::EthLagIntfConfig > & config );
   void cleanUpIntfSm( const Ulnet::IntfId & phyIntf, EthPhyLagConfigSm * sm );

   enum class Phase : U8 { idle, scan, replay, stale, done };
   /** The scan as a task of the scheduler. */
   class Scan : public Kiv::Task {
    public:
      Scan( Kiv::TaskScheduler * scheduler, LagConfigAggregatorSm * sm )
          : Kiv::Task( scheduler, taskPriority, "LagConfigAggregatorSm" ), sm_( sm ) {}
      bool run() override;

    private:
      LagConfigAggregatorSm * sm_;
   };

   /** One unit of the scan; false when it is over. */
   bool scanOne();
   void nextPhase();
   void reviewIntf( Ulnet::IntfId phyIntf );
   void memberDel( Ulnet::IntfId lagId, Ulnet::IntfId phyIntf );
   void removeStale( Ulnet::IntfId lagId );
   Ulnet::IntfId wantedLag( Ulnet::IntfId phyIntf ) const;

   const Velto::Ptr< const Interface::EthLagIntfConfigDir > ethLagIntfConfigDir_;
   const Velto::Ptr< Hardware::Lag::AggregatedLagConfigDir > aggregatedLagConfigDir_;
   Phase phase_ = Phase::idle;
   bool tidied_ = false;                                  // stale entries are gone
   std::vector< Ulnet::IntfId > todo_;                    // of the phase
   U32 next_ = 0;                                         // in todo_
   KeySet< Ulnet::IntfId > dirty_;                        // what changed during the scan
   Kiv::DenseMap< Ulnet::IntfId, Ulnet::IntfId > placed_; // interface -> aggregate, as written
   Scan scan_;
   SmCollection< Ulnet::IntfId, Velto::Ptr< const Interface::EthLagIntfConfig >, EthPhyLagConfigSm,
                 LagConfigAggregatorSm, &LagConfigAggregatorSm::makeIntfSm,
                 &LagConfigAggregatorSm::cleanUpIntfSm >
         intfs_{ this };
   Kiv::Watch< Interface::EthLagIntfConfigDir::intfConfigAttr, LagConfigAggregatorSm,
               &LagConfigAggregatorSm::handleIntfConfig >
         intfConfigWatch_;
};

Velto::Ptr< LagConfigAggregatorSm >
LagConfigAggregatorSmIs( Velto::Ptr< const Interface::EthLagIntfConfigDir > ethLagIntfConfigDir,
                         Velto::Ptr< Hardware::Lag::AggregatedLagConfigDir > aggregatedLagConfigDir,
                         Kiv::TaskScheduler * scheduler );

} // namespace Qon
