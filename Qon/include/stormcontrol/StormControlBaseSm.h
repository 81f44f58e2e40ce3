#pragma once
// What both generations of storm control follow, and whose configuration holds where. Each
// generation derives from it and says how a level reaches the chip.
//
//    Config.intf[i]      -> IntfConfigSm        \                          / program( machine, ... )
//    EthPhyIntfStatus[i] -> EthPhyIntfStatusSm   > questions -> reviewIntf   clear( machine )
//    acsd.portToLag, lagToPort, intf            /     one at a time        \ machineEnds( machine )
//    Config.aggregateTc  -> AggregateTcConfigSm      -> reviewTrafficClass
//    DropStatus -> StormControlIntfSm: a clock each -> counters of IntfStatus
//
// Invariants
// 1. An interface has a machine (StormControlIntfSm) while a configuration holds on it, the agent
//    manages it, and it is bridged; a sub-interface's port counts for it, a port-channel is always
//    managed.
// 2. One question at a time: what a hook or a watcher changes is looked at when the step that it
//    interrupted is done, still inside the outermost change.
// 3. A level is handed over when (threshold, speed, port-channel) differs from what was handed over
//    last for that port, level and plane. What was handed over is forgotten when the port becomes
//    inactive.
// 4. A CPU level of zero is refused: what was accepted before stays while the same configuration
//    holds, and is the default under another one.
// 5. The status of an inactive port, where it has one, says whose configuration would hold.
// 6. Nothing is done before the start has come through, nor while `initialized` is false; the next
//    start makes good what was missed.
// 7. doCleanup() takes everything back; destruction touches nothing.
//
// Ownership: counts its inputs and outputs; owns the machines. Reads acsd.intf, portToLag and
// lagToPort; writes none of them.

#include <array>
#include <optional>

#include "Qon/include/framework/SmCollection.h"
#include "Qon/include/framework/WorkQueue.h"
#include "Qon/include/stormcontrol/StormControlPlatform.h"
#include "platform/Kiv/Clock.h"
#include "platform/types/Interface.h"

namespace Qon {

class StormControlBaseSm;

/** Follows the configuration of one interface. */
class IntfConfigSm : public QonBaseSm {
 public:
   using Config = StormControl::IntfConfig;
   IntfConfigSm( StormControlBaseSm * owner, Velto::Ptr< const Config > config );

   void handleInitialized() override;
   Ulnet::IntfId intf() const { return config_->intfId(); }

#define QON_STORM_HANDLER( type, level, Name, name ) void handle##Name();
   QON_STORM_LEVELS( QON_STORM_HANDLER )
#undef QON_STORM_HANDLER

 private:
   StormControlBaseSm * owner_;
   const Velto::Ptr< const Config > config_;
#define QON_STORM_WATCH( type, level, Name, name )                                                 \
   Kiv::Watch< Config::name##Attr, IntfConfigSm, &IntfConfigSm::handle##Name > name##Watch_;
   QON_STORM_LEVELS( QON_STORM_WATCH )
#undef QON_STORM_WATCH
};

/** Follows the configuration of one traffic class. */
class AggregateTcConfigSm : public QonBaseSm {
 public:
   using Config = StormControl::AggregateTcConfig;
   AggregateTcConfigSm( StormControlBaseSm * owner, Velto::Ptr< const Config > config );

   void handleInitialized() override;
   void handleThreshold();

 private:
   StormControlBaseSm * owner_;
   const Velto::Ptr< const Config > config_;
   Kiv::Watch< Config::thresholdAttr, AggregateTcConfigSm, &AggregateTcConfigSm::handleThreshold >
         thresholdWatch_;
};

/** Follows the status of one physical interface. */
class EthPhyIntfStatusSm : public QonBaseSm {
 public:
   using Status = Interface::EthPhyIntfStatus;
   EthPhyIntfStatusSm( StormControlBaseSm * owner, Velto::Ptr< const Status > status );

   void handleInitialized() override;
   void handleSpeed();
   void handleActive();
   void handleForwardingModel();

 private:
   StormControlBaseSm * owner_;
   const Velto::Ptr< const Status > status_;
   Kiv::Watch< Status::speedAttr, EthPhyIntfStatusSm, &EthPhyIntfStatusSm::handleSpeed >
         speedWatch_;
   Kiv::Watch< Status::activeAttr, EthPhyIntfStatusSm, &EthPhyIntfStatusSm::handleActive >
         activeWatch_;
   Kiv::Watch< Status::forwardingModelAttr, EthPhyIntfStatusSm,
               &EthPhyIntfStatusSm::handleForwardingModel >
         forwardingWatch_;
};

/** The machine of one interface: what was handed over for it, and its counters. */
class StormControlIntfSm : public QonBaseSm {
 public:
   using IntfId = Ulnet::IntfId;
   using Threshold = StormControl::Threshold;

   /** What was handed over for one level. */
   struct Given {
      bool given = false;
      Threshold threshold;
      U64 speedKbps = 0;
      IntfId lag;
      bool operator==( const Given & ) const = default;
   };

   StormControlIntfSm( StormControlBaseSm * owner, IntfId intf ) : owner_( owner ), intf_( intf ) {}

   void handleInitialized() override;
   /** The clock: copies the counters, and winds itself up again. */
   void handleTime();
   /** The period of the configuration is another one. */
   void handlePeriod();

   IntfId intf() const { return intf_; }
   const Given & given( StormControl::Level level ) const { return given_[U8( level )]; }
   /** The port is inactive, and its levels were taken back. */
   bool cleared() const { return cleared_; }

 private:
   friend class StormControlBaseSm;
   friend class StormControlSm;
   friend class QonStormControlSmV2;

   /** Another configuration holds: a CPU level of zero falls back on the default. */
   void ownerIs( const Velto::Ptr< const StormControl::IntfConfig > & config );
   void forget() { given_.fill( {} ); }

   StormControlBaseSm * owner_;
   const IntfId intf_;
   Velto::Ptr< const StormControl::IntfConfig > config_; // that accepted_ is of
   std::array< Given, StormControl::levels > given_;
   std::array< Threshold, StormControl::levels > accepted_; // of the CPU levels
   bool cleared_ = false;
   U32 reporters_ = 0; // of the counters that were copied last
   Kiv::ClockReactor< StormControlIntfSm, &StormControlIntfSm::handleTime > clock_;
};

class StormControlBaseSm : public QonBaseSm, public Checked {
 public:
   using IntfId = Ulnet::IntfId;
   using Threshold = StormControl::Threshold;
   using Level = StormControl::Level;
   using LevelKind = StormControl::LevelKind;
   using Given = StormControlIntfSm::Given;

   /** The first three must be there, the others may be null: what they stand for is left out. */
   struct Inputs {
      Velto::Ptr< const StormControl::Config > config;
      Velto::Ptr< StormControl::Status > status;
      Velto::Ptr< const Interface::EthPhyIntfStatusDir > ethPhyIntfStatusDir;
      Velto::Ptr< QonCommonSmData > acsd;
      Velto::Ptr< const StormControl::DropStatus > dropStatus;
      Kiv::TimerWheel * wheel = Kiv::TimerWheel::current();
   };

   void handleInitialized() override;
   void kivDoZombieReactors() override;
   /** Takes back what was programmed, removes the statuses, stops the clocks; `initialized` is false
       afterwards, and going to true begins anew. */
   void doCleanup();

   const StormControl::Config * config() const { return in_.config.ptr(); }
   StormControl::Status * status() const { return in_.status.ptr(); }
   const Interface::EthPhyIntfStatusDir * ethPhyIntfStatusDir() const {
      return in_.ethPhyIntfStatusDir.ptr();
   }
   QonCommonSmData * acsd() const { return in_.acsd.ptr(); }
   const StormControl::DropStatus * dropStatus() const { return in_.dropStatus.ptr(); }
   Kiv::TimerWheel * wheel() const { return in_.wheel; }

   /** The machine of an interface, or null. */
   StormControlIntfSm * intfSm( IntfId intf ) const { return machines_.sm( intf ); }
   /** Of its physical status, in kilobits a second; 0 without one. */
   U64 calculateSpeedForIntf( IntfId intf ) const;
   /** How many of its sub-interfaces are configured. */
   U32 intfToSubIntfNum( IntfId intf ) const;
   /** Counts one more of them (1) or one less (-1). */
   void updateIntfToSubIntfNumMap( const IntfId & intf, S32 change );
   /** Whether broadcasts pass by the rules, as the chip was told last. */
   bool bcastSkipped( IntfId intf ) const { return skipped_.has( intf ); }

   /** @name What the machines above hear */
   /** @{ */
   void handleConfigIntf( const IntfId & intf );
   void handleAggregateTc( const U8 & trafficClass );
   void handleEthPhyIntfStatus( const IntfId & intf );
   void handleIntf( const IntfId & intf );
   void handleLagToPort( const IntfId & lag );
   void handlePortToLag( IntfId port, IntfId from, IntfId to );
   void handleBurstConfig();
   void handleCounterPeriod();
   /** A configuration came, went, or changed the level. */
   void handleIntfConfig( IntfId intf );
   void handleLevel( IntfId intf, Level level );
   void trafficClassChanged( U8 trafficClass );
   void intfChanged( IntfId intf );
   /** @} */

 protected:
   explicit StormControlBaseSm( Inputs inputs );

   /** What is wanted of an interface. */
   struct Want {
      bool machine = false;
      bool active = false;
      U64 speedKbps = 0;
      StormControl::EffectiveConfig effective;
   };
   Want wantOf( IntfId intf ) const;
   /** What shall be handed over for a level under `want`, while a machine is to program it; refuses
       a CPU level of zero. */
   Given wantedLevel( StormControlIntfSm & machine, const LevelKind & kind, const Want & want );
   /** Says that broadcasts pass by the rules, or do not, if that was not said last. */
   void reviewBcastSkip( IntfId intf, bool skip );
   /** The chip has begun anew: broadcasts pass by the rules nowhere. */
   void forgetBcastSkips() { skipped_ = {}; }
   /** The interface's status; made if there is none, or null. */
   Velto::Ptr< StormControl::IntfStatus > statusIs( IntfId intf ) const;
   Velto::Ptr< StormControl::IntfStatus > statusOf( IntfId intf ) const {
      return status()->intfStatus( intf );
   }
   void statusDel( IntfId intf );

   /** @name What a generation does
       Each may raise; then it is called once more. */
   /** @{ */
   /** The first part of a start: inputs, hardware, what was left behind. */
   virtual void begin() = 0;
   /** The machine has begun; its status, where the generation does not wait for the chip. */
   virtual void machineBegins( StormControlIntfSm & machine ) = 0;
   virtual void program( StormControlIntfSm & machine, const Want & want ) = 0;
   virtual void clear( StormControlIntfSm & machine, const Want & want ) = 0;
   /** Takes everything back. */
   virtual void machineEnds( StormControlIntfSm & machine ) = 0;
   /** `config` is null when the class has gone. */
   virtual void
   programTrafficClass( U8 trafficClass,
                        const Velto::Ptr< const StormControl::AggregateTcConfig > & config ) = 0;
   /** What the chip said of an interface, or of a traffic class. */
   virtual void reviewReport( IntfId ) {}
   virtual void reviewTcReport( U8 ) {}
   virtual void tellBcastSkip( IntfId intf, bool skip ) = 0;
   virtual void tellLagConfig( IntfId ) {}
   virtual void reviewBurst() {}
   /** Whether the generation programs the level at all. */
   virtual bool has( const LevelKind & kind ) const = 0;
   /** What was dropped on the machine's interface; nothing if that cannot be said now. */
   virtual std::optional< StormControl::AllDrops >
   dropsOf( const StormControlIntfSm & machine ) const;
   /** The keys of what was programmed for traffic classes. */
   virtual std::vector< U8 > programmedClasses() const = 0;
   /** @} */

   enum class What : U8 { intf, lagConfig, trafficClass, report, tcReport, burst };
   struct Question {
      What what;
      IntfId intf;
      U8 trafficClass = 0;
   };
   void later( What what, IntfId intf = IntfId(), U8 trafficClass = 0 ) {
      work_.add( { what, intf, trafficClass } );
   }
   /** Looks at everything that waits; nothing before the start and during it. */
   void settle();
   /** later(), then settle(). */
   void ask( What what, IntfId intf = IntfId(), U8 trafficClass = 0 );
   bool started() const { return started_; }
   /** Orphans of the status: interfaces and traffic classes without configuration. */
   void removeOrphanedStatus();
   std::vector< IntfId > machineKeys() const { return machines_.heldKeys(); }

 private:
   friend class StormControlIntfSm;

   Velto::Ptr< IntfConfigSm >
   makeIntfConfigSm( const IntfId & intf, const Velto::Ptr< const StormControl::IntfConfig > & c );
   void cleanUpIntfConfigSm( const IntfId & intf, IntfConfigSm * sm );
   Velto::Ptr< AggregateTcConfigSm >
   makeAggregateTcSm( const U8 & tc,
                      const Velto::Ptr< const StormControl::AggregateTcConfig > & c );
   void cleanUpAggregateTcSm( const U8 & tc, AggregateTcConfigSm * sm );
   Velto::Ptr< EthPhyIntfStatusSm >
   makePhySm( const IntfId & intf, const Velto::Ptr< const Interface::EthPhyIntfStatus > & status );
   void cleanUpPhySm( const IntfId & intf, EthPhyIntfStatusSm * sm );
   Velto::Ptr< StormControlIntfSm > makeMachine( const IntfId & intf, const bool & );
   void cleanUpMachine( const IntfId & intf, StormControlIntfSm * machine );

   void attachAll();
   void reviewAll();
   void laterForAll();
   bool settles() const { return initialized() && started_ && !starting_; }
   void review( const Question & question );
   void reviewIntf( IntfId intf );
   void settleMachine( StormControlIntfSm & machine, const Want & want );
   void rest( StormControlIntfSm & machine, const Want & want );
   bool managed( IntfId intf ) const;
   bool fitForMachine( IntfId intf ) const;
   bool fitForMachine( IntfId base, const Interface::EthPhyIntfStatus * phy ) const;
   void traceWhyNot( IntfId intf ) const;

   const Inputs in_;
   bool started_ = false;
   bool starting_ = false;
   bool allManaged_ = true;
   WorkQueue< Question > work_;
   Kiv::DenseMap< IntfId, KeySet< IntfId > > lagPorts_; // by portToLag
   KeySet< IntfId > lagReactors_;                       // the keys of lagToPort
   Kiv::DenseMap< IntfId, U32 > subIntfs_;
   KeySet< IntfId > skipped_;
   SmCollection< IntfId, bool, StormControlIntfSm, StormControlBaseSm,
                 &StormControlBaseSm::makeMachine, &StormControlBaseSm::cleanUpMachine >
         machines_{ this };
   SmCollection< IntfId, Velto::Ptr< const Interface::EthPhyIntfStatus >, EthPhyIntfStatusSm,
                 StormControlBaseSm, &StormControlBaseSm::makePhySm,
                 &StormControlBaseSm::cleanUpPhySm >
         phys_{ this };
   SmCollection< IntfId, Velto::Ptr< const StormControl::IntfConfig >, IntfConfigSm,
                 StormControlBaseSm, &StormControlBaseSm::makeIntfConfigSm,
                 &StormControlBaseSm::cleanUpIntfConfigSm >
         intfConfigs_{ this };
   SmCollection< U8, Velto::Ptr< const StormControl::AggregateTcConfig >, AggregateTcConfigSm,
                 StormControlBaseSm, &StormControlBaseSm::makeAggregateTcSm,
                 &StormControlBaseSm::cleanUpAggregateTcSm >
         aggregateTcs_{ this };
   Kiv::Watch< StormControl::Config::intfAttr, StormControlBaseSm,
               &StormControlBaseSm::handleConfigIntf >
         configWatch_;
   Kiv::Watch< StormControl::Config::aggregateTcAttr, StormControlBaseSm,
               &StormControlBaseSm::handleAggregateTc >
         aggregateTcWatch_;
   Kiv::Watch< StormControl::Config::burstConfigAttr, StormControlBaseSm,
               &StormControlBaseSm::handleBurstConfig >
         burstWatch_;
   Kiv::Watch< StormControl::Config::counterPeriodAttr, StormControlBaseSm,
               &StormControlBaseSm::handleCounterPeriod >
         periodWatch_;
   Kiv::Watch< Interface::EthPhyIntfStatusDir::intfStatusAttr, StormControlBaseSm,
               &StormControlBaseSm::handleEthPhyIntfStatus >
         phyWatch_;
   Kiv::Watch< QonCommonSmData::intfAttr, StormControlBaseSm, &StormControlBaseSm::handleIntf >
         intfWatch_;
   Kiv::Watch< QonCommonSmData::lagToPortAttr, StormControlBaseSm,
               &StormControlBaseSm::handleLagToPort >
         lagWatch_;
   LagFollower< StormControlBaseSm, &StormControlBaseSm::handlePortToLag > lagFollower_;
};

} // namespace Qon
