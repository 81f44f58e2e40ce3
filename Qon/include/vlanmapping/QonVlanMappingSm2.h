#pragma once
// VLAN mapping, second generation: stages, each of which writes what the next one reads.
//
//    Bridging::Config -> BridgingConfigSm  ---\  SourceVlanMappingConfig
//                    `-> NativeVlanConfigSm ---+---> ConfigMergeSm -> MergedVlanMappingConfig
//    flow directory --> QonFlowConfigSm ------/        IntfConfigMergeSm       |        |
//                                                      per interface           |        v
//    ProgrammedPortToLag ---------------------------> LagResolutionSm <--------'  LagInterlockSm
//                                                         |
//                              PlatformVlanMappingConfig -+-> chip agent
//    SourceVlanMappingStatus <- PlatformStatusSm <- PlatformVlanMappingStatus <-'
//
// Invariants
// 1. Nothing is merged before all sources are ready; after that every change passes all stages before
//    the call that made it returns.
// 2. A key belongs to the source that had it first among those that are active in the interface's
//    mode. Another active source that wants it waits, and one message says so.
// 3. Entries are replaced, never removed and made again: neither a new winner nor a restart shows as
//    a gap in what the chip agent reads.
// 4. A port has the merged translations of its port-channel while it is a member, else its own.
// 5. A full table leaves the translation merged; its status says so, and one message.
//
// Ownership: VlanMappingSm2 counts the inputs and outputs and owns the stages, which can stand alone.
// encapVlan of the shared data is written here, or by the first generation, whichever the agent runs.

#include <functional>
#include <optional>

#include "Qon/include/framework/EntityKeys.h"
#include "Qon/include/framework/QonCommonSmData.h"
#include "Qon/include/framework/SmCollection.h"
#include "Qon/include/framework/WorkQueue.h"
#include "Qon/include/vlanmapping/VlanMappingRecords2.h"
#include "platform/Kiv/TaskScheduler.h"

namespace Qon::VlanMapping {

using Bridging::VlanXlateKey;
using Bridging::VlanXlateMapping;
using Ulnet::IntfId;
using Direction = Bridging::VlanMappingDirection;
using ConfigSource = VlanMappingConfigSource;
using Key = QonVlanMappingKey;

/** Work at the start that is cut into slices; without a scheduler it is done at once. */
class SlicedStart {
 public:
   /** `step` does so many units of work, and returns false when none is left; the owner is held. */
   SlicedStart( Velto::Node * owner, Kiv::TaskScheduler * scheduler, const char * name, U32 units,
                std::function< bool() > step );
   void begin();
   bool working() const { return task_ && task_->awake(); }

 private:
   class Work : public Kiv::Task {
    public:
      Work( SlicedStart * start, Kiv::TaskScheduler * scheduler, const char * name );
      bool run() override;

    private:
      SlicedStart * start_;
   };
   Velto::Node * owner_;
   const U32 units_;
   const std::function< bool() > step_;
   std::optional< Work > task_;
};

// --- Sources -------------------------------------------------------------------------------------

/** Where a source writes; common to the three. */
class SourceOutput {
 public:
   SourceOutput( ConfigSource source, Velto::Ptr< SourceVlanMappingConfigDir > dir,
                 Velto::Ptr< VlanMappingOutputState > state )
       : source_( source ), dir_( std::move( dir ) ), state_( std::move( state ) ) {}

   SourceVlanMappingConfig * config() const;
   /** None: the key is not wanted any more. */
   void mappingIs( IntfId intf, const Key & key, std::optional< VlanXlateMapping > mapping );
   void intfDel( IntfId intf );
   std::vector< Key > keysOf( IntfId intf ) const;
   std::vector< IntfId > intfs() const;
   void readyIs( bool ready ) { state_->readyIs( ready ); }
   bool ready() const { return state_->ready(); }

 private:
   const ConfigSource source_;
   const Velto::Ptr< SourceVlanMappingConfigDir > dir_;
   const Velto::Ptr< VlanMappingOutputState > state_;
};

/** The translations of one interface, on their way to a source's output. */
class XlateIntfSm : public QonBaseSm {
 public:
   using Config = Bridging::VlanXlateIntfConfig;
   XlateIntfSm( SourceOutput * output, Velto::Ptr< const Config > config )
       : output_( output ), config_( std::move( config ) ) {}
   void handleInitialized() override;
   void handleIngressVlanXlate( const VlanXlateKey & key ) { handle( Direction::ingress, key ); }
   void handleEgressVlanXlate( const VlanXlateKey & key ) { handle( Direction::egress, key ); }

 private:
   void handle( Direction d, const VlanXlateKey & key );
   std::optional< VlanXlateMapping > wanted( Direction d, const VlanXlateKey & key ) const;

   SourceOutput * const output_;
   const Velto::Ptr< const Config > config_;
   Kiv::Watch< Config::ingressVlanXlateAttr, XlateIntfSm, &XlateIntfSm::handleIngressVlanXlate >
         ingressWatch_;
   Kiv::Watch< Config::egressVlanXlateAttr, XlateIntfSm, &XlateIntfSm::handleEgressVlanXlate >
         egressWatch_;
};

/** The native VLANs of one interface, likewise. A native translation is that of the VLAN to itself. */
class NativeIntfSm : public QonBaseSm {
 public:
   using Config = Bridging::SwitchIntfConfig;
   NativeIntfSm( SourceOutput * output, Velto::Ptr< const Config > config )
       : output_( output ), config_( std::move( config ) ) {}
   void handleInitialized() override;
   void handleNativeVlan();

 private:
   SourceOutput * const output_;
   const Velto::Ptr< const Config > config_;
   Kiv::Watch< Config::ingressNativeVlanAttr, NativeIntfSm, &NativeIntfSm::handleNativeVlan >
         ingressWatch_;
   Kiv::Watch< Config::egressNativeVlanAttr, NativeIntfSm, &NativeIntfSm::handleNativeVlan >
         egressWatch_;
};

/** One source: a directory of interfaces, and a state machine for each. `entityOf` and `entitiesOf`
    are the directory's accessors. */
template< ConfigSource source, class Attr, class IntfSm, auto entityOf, auto entitiesOf >
class SourceConfigSm : public QonBaseSm {
 public:
   using Dir = typename Attr::Owner;
   using Config = const typename Attr::Value;

   /** `input` null: there is nothing that the source could want. */
   SourceConfigSm( Velto::Ptr< const Dir > input, SourceOutput output,
                   Kiv::TaskScheduler * scheduler )
       : input_( std::move( input ) ), output_( std::move( output ) ),
         start_( this, scheduler, "VlanMappingSource", 64, [this] { return step(); } ) {}

   void handleInitialized() override;
   void kivDoZombieReactors() override {
      QonBaseSm::kivDoZombieReactors();
      intfs_.kivDoZombieReactors();
   }
   void handleIntf( const IntfId & intf );
   IntfSm * intfSm( IntfId intf ) const { return intfs_.sm( intf ); }

 private:
   bool step();
   Velto::Ptr< IntfSm > make( const IntfId &, const Velto::Ptr< Config > & config ) {
      return smIs< IntfSm >( &output_, config );
   }
   void cleanUp( const IntfId & intf, IntfSm * ) { output_.intfDel( intf ); }

   const Velto::Ptr< const Dir > input_;
   SourceOutput output_;
   std::vector< IntfId > toDo_; // at the start
   SlicedStart start_;
   SmCollection< IntfId, Velto::Ptr< Config >, IntfSm, SourceConfigSm, &SourceConfigSm::make,
                 &SourceConfigSm::cleanUp >
         intfs_{ this };
   Kiv::Watch< Attr, SourceConfigSm, &SourceConfigSm::handleIntf > watch_;
};

using BridgingConfigSm =
      SourceConfigSm< ConfigSource::bridging, Bridging::Config::switchIntfConfigAttr, XlateIntfSm,
                      &Bridging::Config::switchIntfConfig,
                      &Bridging::Config::switchIntfConfigIteratorConst >;
using QonFlowConfigSm =
      SourceConfigSm< ConfigSource::flow, QonFlowVlanXlateConfigDir::vlanXlateIntfConfigAttr,
                      XlateIntfSm, &QonFlowVlanXlateConfigDir::vlanXlateIntfConfig,
                      &QonFlowVlanXlateConfigDir::vlanXlateIntfConfigIteratorConst >;
using NativeVlanConfigSm =
      SourceConfigSm< ConfigSource::nativeVlan, Bridging::Config::switchIntfConfigAttr,
                      NativeIntfSm, &Bridging::Config::switchIntfConfig,
                      &Bridging::Config::switchIntfConfigIteratorConst >;

// --- Merge ---------------------------------------------------------------------------------------

class ConfigMergeSm;

/** The keys of one interface: which source has each. */
class IntfConfigMergeSm : public QonBaseSm {
 public:
   IntfConfigMergeSm( ConfigMergeSm * merge, IntfId intf );
   void handleInitialized() override;
   /** The interface's bridging came, went, or is in another mode. */
   void handleSwitchIntfConfig();
   void handleSwitchportMode();

   /** Makes true what invariant 2 says of the key. `silent`: whoever gets it was not waiting for
       another one to go. */
   void reviewKey( const Key & key, bool silent );
   /** Gives the key to the first source that is active and holds it; to nobody if there is none. */
   void reevaluateVlanMappingKey( const Key & key );
   /** Every key that a source holds, or that is merged. */
   std::vector< Key > keys() const;
   /** What is wrong with it; empty: nothing. */
   const char * brokenKey( const Key & key ) const;
   /** Nobody wants anything, and nothing is merged. */
   bool idle() const;

   IntfId intf() const { return intf_; }
   bool active( ConfigSource source ) const;
   bool holds( ConfigSource source, const Key & key ) const;
   VlanXlateMapping mapping( ConfigSource source, const Key & key ) const;
   MergedIntfVlanMappingConfig * mergedIntfConfig() const;
   String checkInvariants() const;

 private:
   struct Report {
      ConfigSource owner;
      VlanXlateMapping wanted;
      bool operator==( const Report & ) const = default;
   };
   class Waiting {
      Key key_;
      ConfigSource source_ = ConfigSource::bridging;
      KIV_VALUE( Qon::VlanMapping, Waiting, key, source )
   };

   void reportConflicts( const Key & key );
   void reviewEncap();

   ConfigMergeSm * const merge_;
   const IntfId intf_;
   Kiv::DenseMap< Waiting, Report > reported_;
   Kiv::Watch< Bridging::SwitchIntfConfig::switchportModeAttr, IntfConfigMergeSm,
               &IntfConfigMergeSm::handleSwitchportMode >
         modeWatch_;
};

class ConfigMergeSm : public QonBaseSm, public Checked {
 public:
   struct Inputs {
      Velto::Ptr< QonCommonSmData > acsd;
      Velto::Ptr< const Bridging::Config > bridgingConfig;
      Velto::Ptr< SourceVlanMappingConfigDir > sourceConfigDir;
      /** In the order of the sources. */
      Velto::Ptr< const VlanMappingOutputState > outputState[3];
      Velto::Ptr< MergedVlanMappingConfig > mergedConfig;
      Kiv::TaskScheduler * scheduler = nullptr; ///< null: the initial sync is done at once
   };
   explicit ConfigMergeSm( Inputs inputs );

   void handleInitialized() override;
   void kivDoZombieReactors() override;
   void handleReady();
   void handleSwitchIntfConfig( const IntfId & intf );

   /** The initial sync has been made. */
   bool synced() const { return state_ == State::synced; }
   IntfConfigMergeSm * intfConfigMergeSm( IntfId intf ) const { return intfs_.sm( intf ); }
   /** As VlanMappingSm2::listenerIs(). */
   void listenerIs( VlanMappingListener * listener ) { listener_ = listener; }
   const Inputs & inputs() const { return in_; }
   const SourceIntfVlanMappingConfig * sourceConfig( ConfigSource source, IntfId intf ) const;
   String checkInvariants() const override;

   /** A key may have changed; the interface as a whole. */
   void askKey( IntfId intf, const Key & key ) { ask( intf, key ); }
   void askIntf( IntfId intf ) { ask( intf, {} ); }

 private:
   enum class State : U8 { waiting, syncing, synced };
   struct Question {
      IntfId intf;
      std::optional< Key > key; // none: all
      bool silent;
   };

   void handleSourceIntf( const IntfId & intf ) { askIntf( intf ); }
   void handleSourceKey( const IntfId & intf, const Key & key ) { askKey( intf, key ); }
   void ask( IntfId intf, std::optional< Key > key );
   void answer( const Question & question );
   bool wantedIntf( IntfId intf ) const;
   void endIntf( IntfId intf );
   void beginSync();
   bool syncStep();

   Velto::Ptr< IntfConfigMergeSm > make( const IntfId & intf, const bool & );
   void cleanUp( const IntfId & intf, IntfConfigMergeSm * sm );

   const Inputs in_;
   VlanMappingListener * listener_ = nullptr;
   State state_ = State::waiting;
   std::vector< IntfId > toSync_;
   std::vector< Key > keysToSync_; // of the last one
   WorkQueue< Question > work_;
   SlicedStart sync_;
   SmCollection< IntfId, bool, IntfConfigMergeSm, ConfigMergeSm, &ConfigMergeSm::make,
                 &ConfigMergeSm::cleanUp >
         intfs_{ this };
   Kiv::Watch< VlanMappingOutputState::readyAttr, ConfigMergeSm, &ConfigMergeSm::handleReady >
         readyWatch_[3];
   Kiv::Watch< Bridging::Config::switchIntfConfigAttr, ConfigMergeSm,
               &ConfigMergeSm::handleSwitchIntfConfig >
         configWatch_;

   friend class IntfConfigMergeSm;
   EntityKeys< &ConfigMergeSm::handleSourceIntf, &ConfigMergeSm::handleSourceKey,
               SourceVlanMappingConfig::intfVlanMappingConfigAttr,
               &SourceVlanMappingConfig::intfVlanMappingConfig,
               &SourceVlanMappingConfig::intfVlanMappingConfigIteratorConst,
               SourceIntfVlanMappingConfig::vlanMappingConfigAttr >
         sources_[3];
};

// --- Port-channels -------------------------------------------------------------------------------

class PlatformStatusSm;

/** Merged translations on the ports that have them. */
class LagResolutionSm : public QonBaseSm, public Checked {
 public:
   LagResolutionSm( Velto::Ptr< const MergedVlanMappingConfig > mergedConfig,
                    Velto::Ptr< const ProgrammedPortToLag > programmedPortToLag,
                    Velto::Ptr< PlatformVlanMappingConfig > platformConfig );

   void handleInitialized() override;
   void handlePortToLag( const IntfId & port );
   void handleMergedIntf( const IntfId & intf );
   void handleMergedKey( const IntfId & intf, const Key & key );

   /** The ports that have the translations of the interface. */
   std::vector< IntfId > targets( IntfId intf ) const;
   const PlatformIntfVlanMappingConfig * platformIntfConfig( IntfId port ) const {
      return platformConfig_->intfVlanMappingConfig( port );
   }
   /** Hears of an interface whose ports are others; not counted, null for none. */
   void listenerIs( PlatformStatusSm * listener ) { listener_ = listener; }
   String checkInvariants() const override;

 private:
   struct Question {
      IntfId intf;
      std::optional< Key > key; // none: what the port has
   };
   void answer( const Question & question );
   void settle();
   void reviewPort( IntfId port );
   void reviewKey( IntfId port, IntfId ruler, const Key & key );
   IntfId rulerOf( IntfId port ) const;

   const Velto::Ptr< const MergedVlanMappingConfig > mergedConfig_;
   const Velto::Ptr< const ProgrammedPortToLag > portToLag_;
   const Velto::Ptr< PlatformVlanMappingConfig > platformConfig_;
   PlatformStatusSm * listener_ = nullptr;
   U32 version_ = 0;                       // given last
   Kiv::DenseMap< IntfId, IntfId > ruler_; // of members
   Kiv::DenseMap< IntfId, std::vector< IntfId > > members_;
   WorkQueue< Question > work_;
   Kiv::Watch< ProgrammedPortToLag::portToLagAttr, LagResolutionSm,
               &LagResolutionSm::handlePortToLag >
         portToLagWatch_;
   EntityKeys< &LagResolutionSm::handleMergedIntf, &LagResolutionSm::handleMergedKey,
               MergedVlanMappingConfig::intfVlanMappingConfigAttr,
               &MergedVlanMappingConfig::intfVlanMappingConfig,
               &MergedVlanMappingConfig::intfVlanMappingConfigIteratorConst,
               MergedIntfVlanMappingConfig::vlanMappingConfigAttr >
         merged_;
};

/** Holds the port-channels that carry translations, as the feature "vlanMapping". */
class LagInterlockSm : public QonBaseSm {
 public:
   static constexpr char feature[] = "vlanMapping";
   LagInterlockSm( Velto::Ptr< const QonCommonSmData > acsd,
                   Velto::Ptr< const MergedVlanMappingConfig > mergedConfig,
                   Velto::Ptr< PortChannelInterlockDir > interlock );

   void handleInitialized() override;
   void handleLagToPort( const IntfId & lag ) { ask( lag ); }
   void handleMergedIntf( const IntfId & intf ) { ask( intf ); }
   void handleMergedKey( const IntfId & intf, const Key & ) { ask( intf ); }

 private:
   void ask( IntfId lag );
   void review( IntfId lag );

   const Velto::Ptr< const QonCommonSmData > acsd_;
   const Velto::Ptr< const MergedVlanMappingConfig > mergedConfig_;
   const Velto::Ptr< PortChannelInterlockDir > interlock_;
   WorkQueue< IntfId > work_;
   Kiv::Watch< QonCommonSmData::lagToPortAttr, LagInterlockSm, &LagInterlockSm::handleLagToPort >
         lagToPortWatch_;
   EntityKeys< &LagInterlockSm::handleMergedIntf, &LagInterlockSm::handleMergedKey,
               MergedVlanMappingConfig::intfVlanMappingConfigAttr,
               &MergedVlanMappingConfig::intfVlanMappingConfig,
               &MergedVlanMappingConfig::intfVlanMappingConfigIteratorConst,
               MergedIntfVlanMappingConfig::vlanMappingConfigAttr >
         merged_;
};

// --- What became of it ---------------------------------------------------------------------------

class PlatformStatusSm : public QonBaseSm {
 public:
   PlatformStatusSm( Velto::Ptr< const MergedVlanMappingConfig > mergedConfig,
                     Velto::Ptr< LagResolutionSm > lagResolution,
                     Velto::Ptr< const PlatformVlanMappingStatus > platformStatus,
                     Velto::Ptr< SourceVlanMappingStatusDir > sourceStatusDir );
   ~PlatformStatusSm() override;

   void handleInitialized() override;
   void handleReady();
   void handlePlatformVlanMappingStatus( const IntfId & port, const Key & key );
   void handlePlatformIntf( const IntfId & port );
   void handleMergedIntf( const IntfId & intf );
   void handleMergedKey( const IntfId & intf, const Key & key );
   /** The interface's ports are others now. */
   void handleTargets( IntfId intf ) { handleMergedIntf( intf ); }

   /** What the ports say together of what is merged; none for an interface without ports. */
   std::optional< QonTypes::TableAddStatus > resultOf( IntfId intf, const Key & key ) const;
   /** As VlanMappingSm2::listenerIs(). */
   void listenerIs( VlanMappingListener * listener ) { listener_ = listener; }

 private:
   struct Question {
      IntfId intf;
      Key key;
   };
   void ask( IntfId intf, const Key & key );
   void askAll();
   void review( const Question & question );
   void tellSource( const Question & question, const MergedVlanMappingData & data,
                    std::optional< QonTypes::TableAddStatus > result );
   void reportFull( IntfId intf, const Key & key, const MergedVlanMappingData & data );
   std::vector< Key > knownKeys( IntfId intf ) const;

   const Velto::Ptr< const MergedVlanMappingConfig > mergedConfig_;
   const Velto::Ptr< LagResolutionSm > lagResolution_;
   const Velto::Ptr< const PlatformVlanMappingStatus > platformStatus_;
   const Velto::Ptr< SourceVlanMappingStatusDir > sourceStatusDir_;
   VlanMappingListener * listener_ = nullptr;
   Kiv::DenseMap< IntfId, Kiv::DenseMap< Key, MergedVlanMappingData > > full_; // and reported
   WorkQueue< Question > work_;
   Kiv::Watch< PlatformVlanMappingStatus::readyAttr, PlatformStatusSm,
               &PlatformStatusSm::handleReady >
         readyWatch_;
   EntityKeys< &PlatformStatusSm::handlePlatformIntf,
               &PlatformStatusSm::handlePlatformVlanMappingStatus,
               PlatformVlanMappingStatus::intfVlanMappingStatusAttr,
               &PlatformVlanMappingStatus::intfVlanMappingStatus,
               &PlatformVlanMappingStatus::intfVlanMappingStatusIteratorConst,
               PlatformIntfVlanMappingStatus::vlanMappingStatusAttr >
         platform_;
   EntityKeys< &PlatformStatusSm::handleMergedIntf, &PlatformStatusSm::handleMergedKey,
               MergedVlanMappingConfig::intfVlanMappingConfigAttr,
               &MergedVlanMappingConfig::intfVlanMappingConfig,
               &MergedVlanMappingConfig::intfVlanMappingConfigIteratorConst,
               MergedIntfVlanMappingConfig::vlanMappingConfigAttr >
         merged_;
};

// --- All of it -----------------------------------------------------------------------------------

class VlanMappingSm2 : public QonBaseSm, public Checked {
 public:
   /** All must be there; flowVlanXlateConfigDir and scheduler may be null. */
   struct Inputs {
      Velto::Ptr< QonCommonSmData > acsd;
      Velto::Ptr< const Bridging::Config > bridgingConfig;
      Velto::Ptr< const QonFlowVlanXlateConfigDir > flowVlanXlateConfigDir;
      Velto::Ptr< const ProgrammedPortToLag > programmedPortToLag;
      Velto::Ptr< const PlatformVlanMappingStatus > platformStatus;
      Velto::Ptr< SourceVlanMappingConfigDir > sourceConfigDir;
      Velto::Ptr< SourceVlanMappingStatusDir > sourceStatusDir;
      Velto::Ptr< MergedVlanMappingConfig > mergedConfig;
      Velto::Ptr< PlatformVlanMappingConfig > platformConfig;
      Velto::Ptr< PortChannelInterlockDir > interlock;
      Velto::Ptr< VlanMappingOutputState > bridgingConfigOutputState;
      Velto::Ptr< VlanMappingOutputState > qonFlowConfigOutputState;
      Velto::Ptr< VlanMappingOutputState > nativeVlanConfigOutputState;
      Kiv::TaskScheduler * scheduler = nullptr; ///< null: the start is not cut into slices
   };
   explicit VlanMappingSm2( Inputs inputs );

   /** Fatal if the platform status is ready before the first start. */
   void handleInitialized() override;
   void kivDoZombieReactors() override;
   String checkInvariants() const override;

   /** Hears when the owner of a key or the result may have changed; not counted, null for none. */
   void listenerIs( VlanMappingListener * listener ) {
      merge_->listenerIs( listener );
      status_->listenerIs( listener );
   }
   ConfigMergeSm * configMergeSm() const { return merge_.ptr(); }
   LagResolutionSm * lagResolutionSm() const { return lagResolution_.ptr(); }
   PlatformStatusSm * platformStatusSm() const { return status_.ptr(); }
   const PlatformVlanMappingStatus * platformVlanMappingStatus() const {
      return in_.platformStatus.ptr();
   }
   const Inputs & inputs() const { return in_; }

 private:
   const Inputs in_;
   bool started_ = false;
   Velto::Ptr< ConfigMergeSm > merge_;
   Velto::Ptr< LagResolutionSm > lagResolution_;
   Velto::Ptr< LagInterlockSm > interlock_;
   Velto::Ptr< PlatformStatusSm > status_;
   Velto::Ptr< BridgingConfigSm > bridging_;
   Velto::Ptr< QonFlowConfigSm > flow_;
   Velto::Ptr< NativeVlanConfigSm > native_;
};

Velto::Ptr< VlanMappingSm2 > VlanMappingSm2Is( VlanMappingSm2::Inputs inputs );

} // namespace Qon::VlanMapping
