#pragma once
// VLAN mapping, first generation: which source owns a translation, and its programming through the
// hooks or through directories that the chip agent follows.
//
//    Bridging::Config ---------> KivConfig per interface ----------------\   ask( key )
//    QonFlowVlanXlateConfigDir -> QonFlowVlanXlateConfigSm per interface --> review of one key
//    acsd.portToLag -----------> a port joins, leaves -------------------/       |
//    status directories -------> handleQonIng/EgrVlanMappingStatus -----'        |
//    retry clock --------------> doApplyConfig of what is on the list           |
//        owner of the key? -> hook or directory, for every port -> result <-----'
//
// A translation is known by the interface that it is configured for, its direction and its key. It
// is programmed on the ports that the interface leads to: itself, or the members of a port-channel.
//
// Invariants
// 1. A key has one owner: the source that claimed it first, whatever the number of ports. Another
//    source that wants it waits; it gets the key when the owner's wish goes or cannot be fulfilled.
// 2. What a port-channel wants is on all its members; what a member wants itself rests meanwhile. An
//    interface that leads to no port owns its keys and programs nothing.
// 3. A translation that did not fit, or was refused, is given up: it is tried again when it changes,
//    or when the members of its port-channel do. What cannot be programmed now is kept, and its
//    interface is applied again as a whole when the retry clock fires.
// 4. The retry clock is armed exactly while the retry list is not empty.
// 5. Each message is raised once for what it is about: a conflict until the wish or the owner
//    changes, a full table until the translation is tried afresh.
// 6. One key at a time: what a hook or a watcher changes is looked at when this key is done.
// 7. A translation that is out of range is nobody's wish: Velto::RangeError goes to who wrote it.
//
// Ownership: counts its inputs and outputs; owns what is kept per interface. encapVlan of the shared
// data is written here, or by the second generation, whichever the agent runs.

#include <memory>

#include "Qon/include/framework/LagView.h"
#include "Qon/include/framework/SmCollection.h"
#include "Qon/include/vlanmapping/VlanMappingRecords.h"
#include "platform/Kiv/Clock.h"

namespace Qon {

class VlanMappingSm;
class VlanTranslations;

/** What one source wants on one interface; the common part of both sources. */
class VlanXlateConfigSm : public QonBaseSm {
 public:
   using Direction = Bridging::VlanMappingDirection;
   using Key = Bridging::VlanXlateKey;
   using Config = Bridging::VlanXlateIntfConfig;

   void handleInitialized() override;
   void handleIngressVlanXlate( const Key & key ) { handleVlanXlate( Direction::ingress, key ); }
   void handleEgressVlanXlate( const Key & key ) { handleVlanXlate( Direction::egress, key ); }
   /** Programs the whole configuration again: what the source owns, and what it may claim. */
   void doApplyConfig();

   Ulnet::IntfId intf() const { return config_->intf(); }
   QonVlanMappingSource source() const { return source_; }
   const Config * config() const { return config_.ptr(); }

 protected:
   VlanXlateConfigSm( VlanMappingSm * sm, QonVlanMappingSource source,
                      Velto::Ptr< const Config > config );
   VlanMappingSm * sm_;

 private:
   void handleVlanXlate( Direction direction, const Key & key );
   void askAll( bool apply );

   const QonVlanMappingSource source_;
   const Velto::Ptr< const Config > config_;
   Kiv::Watch< Config::ingressVlanXlateAttr, VlanXlateConfigSm,
               &VlanXlateConfigSm::handleIngressVlanXlate >
         ingressWatch_;
   Kiv::Watch< Config::egressVlanXlateAttr, VlanXlateConfigSm,
               &VlanXlateConfigSm::handleEgressVlanXlate >
         egressWatch_;
};

/** What the flow-programming feature wants on one interface. */
class QonFlowVlanXlateConfigSm : public VlanXlateConfigSm {
 public:
   QonFlowVlanXlateConfigSm( VlanMappingSm * sm, Velto::Ptr< const Config > config )
       : VlanXlateConfigSm( sm, QonVlanMappingSource::Steerline, std::move( config ) ) {}
};

class VlanMappingSm : public QonBaseSm, public Checked {
   KIV_BODY( VlanMappingSm, QonBaseSm )
   /** Seconds after the first failure when what could not be programmed is tried again. */
   KIV_ATTR( double, retryUnprogrammedInterval, 5.0 )
   /** Seconds for which additions of a direction are gathered; 0: they are done at once. */
   KIV_ATTR( double, timeDelay, 0.0 )
   /** What waits for the retry clock. */
   KIV_SET( UnprogrammedMapping, unprogrammedIntfList )
 public:
   using IntfId = Ulnet::IntfId;
   using Direction = Bridging::VlanMappingDirection;
   using Source = QonVlanMappingSource;
   using Key = Bridging::VlanXlateKey;
   using Mapping = Bridging::VlanXlateMapping;
   using Status = QonTypes::TableAddStatus;

   /** What the command line wants on one interface: translations and native VLANs. */
   class KivConfig : public VlanXlateConfigSm {
    public:
      using SwitchConfig = Bridging::SwitchIntfConfig;
      KivConfig( VlanMappingSm * sm, Velto::Ptr< const SwitchConfig > config );
      void handleInitialized() override;
      void handleIngressNativeVlan();
      void handleEgressNativeVlan();

    private:
      Kiv::Watch< SwitchConfig::ingressNativeVlanAttr, KivConfig,
                  &KivConfig::handleIngressNativeVlan >
            ingressNativeWatch_;
      Kiv::Watch< SwitchConfig::egressNativeVlanAttr, KivConfig,
                  &KivConfig::handleEgressNativeVlan >
            egressNativeWatch_;
   };

   /** `acsd` and `bridgingConfig` must be there; the directories too, where
       gracefulRestartSupported(). The others may be null: what they stand for is left out then. */
   struct Inputs {
      Velto::Ptr< QonCommonSmData > acsd;
      Velto::Ptr< const Bridging::Config > bridgingConfig;
      Velto::Ptr< const QonFlowVlanXlateConfigDir > flowVlanXlateConfigDir;
      Velto::Ptr< QonVlanMappingConfigDir > qonIngVlanMappingConfigDir;
      Velto::Ptr< QonVlanMappingConfigDir > qonEgrVlanMappingConfigDir;
      Velto::Ptr< QonVlanMappingIntfConfigDir > qonVlanMappingIntfConfigDir;
      Velto::Ptr< const QonVlanMappingStatusDir > qonIngVlanMappingStatusDir;
      Velto::Ptr< const QonVlanMappingStatusDir > qonEgrVlanMappingStatusDir;
      Velto::Ptr< QonVlanLagMemberStatusDir > qonVlanLagMemberStatusDir;
      Velto::Ptr< VerifyData > verifyData;
   };
   explicit VlanMappingSm( Inputs inputs );
   ~VlanMappingSm() override;

   void handleInitialized() override;
   void kivDoZombieReactors() override;

   /** @name Hooks
       `intf` is the interface that the translation is configured for, `isLag` says that it is a
       port-channel; key.portId() is the port to program. A hook may change anything: it is looked
       at when the hook has returned.

       Add is called for what is not there, and again for what is, with the same mapping or another
       one: the mapping of the last call holds. Update is called for what is there and gets another
       mapping; before and after it there is one. After full or failed the chip holds nothing under
       the key that it did not hold before; Del follows, and is called for keys that the chip does
       not hold, too. After notNow either mapping may be in the chip; Add is called again later. */
   /** @{ */
   virtual Status doAddIngressVlanMapping( IntfId intf, bool isLag, const PortVlanKey & key,
                                           const Mapping & mapping );
   virtual Status doAddEgressVlanMapping( IntfId intf, bool isLag, const PortVlanKey & key,
                                          const Mapping & mapping );
   virtual void doDelIngressVlanMapping( IntfId intf, bool isLag, const PortVlanKey & key );
   virtual void doDelEgressVlanMapping( IntfId intf, bool isLag, const PortVlanKey & key );
   virtual Status doUpdateIngressVlanMapping( IntfId intf, bool isLag, const PortVlanKey & key,
                                              const Mapping & mapping );
   virtual Status doUpdateEgressVlanMapping( IntfId intf, bool isLag, const PortVlanKey & key,
                                             const Mapping & mapping );
   /** True: no hook programs anything; the chip agent takes translations from the directories, and
       reports in the status directories. Asked once, at the start. */
   virtual bool gracefulRestartSupported() { return false; }
   /** @} */

   /** @name Steps of the review of a key
       They raise Velto::RangeError for VLANs out of range, having done nothing. `intf` is the
       configured interface, `inLag` says that it is a port-channel. What no configuration wants goes
       again with the next review of its key. */
   /** @{ */
   /** Claims the key for the source and programs the ports. The worst of their results; failed, and
       nothing done, while the other source owns the key. */
   Status addIngressVlanTranslation( IntfId intf, Key key, Mapping mapping, bool inLag,
                                     Source source );
   Status addEgressVlanTranslation( IntfId intf, Key key, Mapping mapping, bool inLag,
                                    Source source );
   /** Takes the key from all ports and frees it; nothing if the source does not own it. */
   void delIngressVlanTranslation( IntfId intf, Key key, bool inLag, Source source );
   void delEgressVlanTranslation( IntfId intf, Key key, bool inLag, Source source );
   Status addIngressNativeVlanTranslation( IntfId intf, Bridging::VlanId vlan, bool inLag );
   Status addEgressNativeVlanTranslation( IntfId intf, Bridging::VlanId vlan, bool inLag );
   void delIngressNativeVlanTranslation( IntfId intf, Bridging::VlanId vlan, bool inLag );
   void delEgressNativeVlanTranslation( IntfId intf, Bridging::VlanId vlan, bool inLag );
   /** @} */

   /** The interface shall be applied again when the retry clock fires. */
   void doAddToUnprogrammedList( IntfId intf, Key key, Direction direction, Source source );
   /** Takes the list and applies what was on it. */
   void reviewUnprogrammedIntfList();
   /** How often an interface was applied again so. */
   U64 retries() const { return retries_; }

   void handleQonIngVlanMappingStatus( const PortVlanKey & key );
   void handleQonEgrVlanMappingStatus( const PortVlanKey & key );
   /** A finding for each key whose owner and directory entry do not fit. */
   void handleVerify();
   String checkInvariants() const override;

   /** @name Who owns a key
       Of a configured interface, and of a member of a port-channel what the port-channel has there. */
   /** @{ */
   Source ingVlanXlateSourceMap( const PortVlanKey & key ) const;
   bool ingVlanXlateSourceMapHas( const PortVlanKey & key ) const;
   Source egrVlanXlateSourceMap( const PortVlanKey & key ) const;
   bool egrVlanXlateSourceMapHas( const PortVlanKey & key ) const;
   /** @} */

   /** What has become of what a source wants. */
   enum class Outcome : U8 {
      unwanted,   ///< it does not want this
      conflict,   ///< the other source owns the key
      givenUp,    ///< it did not fit, or was refused
      resting,    ///< the interface leads to no port now
      waiting,    ///< cannot be programmed now, or was not yet
      handedOver, ///< the chip agent has not answered yet
      programmed,
   };
   KIV_NESTED_ENUM( Outcome, unwanted, conflict, givenUp, resting, waiting, handedOver, programmed )
   /** The same for a key of a configured interface. */
   Outcome outcome( IntfId intf, Direction direction, Key key, Source source ) const;
   /** Hears when that may have changed; not counted, null for none. */
   void listenerIs( VlanMappingListener * listener ) { listener_ = listener; }

   KivConfig * kivConfig( IntfId intf ) const { return kivConfig_.sm( intf ); }
   QonFlowVlanXlateConfigSm * flowConfigSm( IntfId intf ) const { return flowConfigSm_.sm( intf ); }
   const Bridging::SwitchIntfConfig * config( IntfId intf ) const {
      return bridgingConfig()->switchIntfConfig( intf );
   }
   const Bridging::Config * bridgingConfig() const { return in_.bridgingConfig.ptr(); }
   const Inputs & inputs() const { return in_; }
   QonCommonSmData * acsd() const { return in_.acsd.ptr(); }
   /** Fires when what could not be programmed is tried again. */
   Kiv::Clock * clock() const { return retryClock_.clock(); }
   Kiv::Clock * codefClockIngress() const { return codefClockIngress_.clock(); }
   Kiv::Clock * codefClockEgress() const { return codefClockEgress_.clock(); }

   void handleSwitchIntfConfig( const IntfId & intf );
   void handleFlowVlanXlateConfig( const IntfId & intf );
   /** The port left `from` and joined `to`; null is none. */
   void handlePortToLag( IntfId port, IntfId from, IntfId to );

 private:
   friend class VlanTranslations;
   friend class VlanXlateConfigSm;

   Velto::Ptr< KivConfig > makeKivConfig( const IntfId & intf,
                                          const Velto::Ptr< const Bridging::SwitchIntfConfig > & );
   void cleanUpKivConfig( const IntfId & intf, KivConfig * sm );
   Velto::Ptr< QonFlowVlanXlateConfigSm >
   makeFlowConfigSm( const IntfId & intf,
                     const Velto::Ptr< const Bridging::VlanXlateIntfConfig > & );
   void cleanUpFlowConfigSm( const IntfId & intf, QonFlowVlanXlateConfigSm * sm );

   Status callAdd( Direction d, IntfId intf, bool isLag, const PortVlanKey & key, Mapping mapping );
   Status callUpdate( Direction d, IntfId intf, bool isLag, const PortVlanKey & key,
                      Mapping mapping );
   void callDel( Direction d, IntfId intf, bool isLag, const PortVlanKey & key );

   void start( bool graceful );
   void tell( IntfId intf, Direction direction, Key key ) const {
      if ( listener_ ) {
         listener_->outcomeHeard( intf, direction, key );
      }
   }
   void unprogrammedDel( IntfId intf, Source source );
   void armRetryClock();
   void handleCodefIngress();
   void handleCodefEgress();

   const Inputs in_;
   VlanMappingListener * listener_ = nullptr;
   VerifyCheck check_;
   const std::unique_ptr< VlanTranslations > translations_;
   SmCollection< IntfId, Velto::Ptr< const Bridging::SwitchIntfConfig >, KivConfig, VlanMappingSm,
                 &VlanMappingSm::makeKivConfig, &VlanMappingSm::cleanUpKivConfig >
         kivConfig_{ this };
   SmCollection< IntfId, Velto::Ptr< const Bridging::VlanXlateIntfConfig >,
                 QonFlowVlanXlateConfigSm, VlanMappingSm, &VlanMappingSm::makeFlowConfigSm,
                 &VlanMappingSm::cleanUpFlowConfigSm >
         flowConfigSm_{ this };
   U64 retries_ = 0;
   Kiv::ClockReactor< VlanMappingSm, &VlanMappingSm::reviewUnprogrammedIntfList > retryClock_;
   Kiv::ClockReactor< VlanMappingSm, &VlanMappingSm::handleCodefIngress > codefClockIngress_;
   Kiv::ClockReactor< VlanMappingSm, &VlanMappingSm::handleCodefEgress > codefClockEgress_;
   LagFollower< VlanMappingSm, &VlanMappingSm::handlePortToLag > follower_;
   Kiv::Watch< Bridging::Config::switchIntfConfigAttr, VlanMappingSm,
               &VlanMappingSm::handleSwitchIntfConfig >
         configWatch_;
   Kiv::Watch< QonFlowVlanXlateConfigDir::vlanXlateIntfConfigAttr, VlanMappingSm,
               &VlanMappingSm::handleFlowVlanXlateConfig >
         flowWatch_;
   Kiv::Watch< QonVlanMappingStatusDir::vlanMappingStatusAttr, VlanMappingSm,
               &VlanMappingSm::handleQonIngVlanMappingStatus >
         ingressStatusWatch_;
   Kiv::Watch< QonVlanMappingStatusDir::vlanMappingStatusAttr, VlanMappingSm,
               &VlanMappingSm::handleQonEgrVlanMappingStatus >
         egressStatusWatch_;
};

/** A state machine with no hooks overridden, for agents without hardware. */
Velto::Ptr< VlanMappingSm > VlanMappingSmIs( VlanMappingSm::Inputs inputs );

} // namespace Qon
