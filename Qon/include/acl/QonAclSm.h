#pragma once
// Access lists: which interface has which list becomes instances with numbers in hardware.
//
//    Acl::Config, Acl::IntfConfig -> AclTypeConfigSm -> AclConfigSm -> AclDataSm, an instance each
//                                         `-> AclDirectionTypeConfigSm --^ the interfaces' pairs
//    acsd.lagToPort, portToLag, intf, internalVlan, ParamConfig, sub-interface VLANs
//         -> later( interface ) -> the direction reviews it
//
//    AclDataSm -> changed( instance ) -> clock "now" -> doApplyAcls()
//         uninstall -> prepare -> commit -> unblock -> done         hooks of QonHelper::AclHelper
//
// Invariants
// 1. Handlers only note what is wanted: hooks are called in passes, and a burst is one pass.
// 2. In a pass all uninstalls come before any prepare, those before any commit; instances are taken
//    by type, name and key. Interfaces whose lists are exchanged are blocked before, and let through
//    after.
// 3. A number is held by one instance, and given back when the uninstall is done.
// 4. While a pass is under way no other begins: what comes meanwhile is left to the next.
// 5. The units' errors, the messages of shortages and the interfaces that are taken out of service
//    follow the records of all instances at the end of each pass, and at what comes outside of one.
// 6. VLANs of sub-interfaces are in the maps before anything is made of them.
//
// Ownership: counts its inputs and the helper; owns the state machines of the types.

#include "Qon/include/acl/AclCallbackDataSm.h"
#include "Qon/include/acl/AclIntfSm.h"
#include "Qon/include/acl/AclMirrorSessionSm.h"
#include "Qon/include/acl/AclTypeConfigSm.h"
#include "Qon/include/acl/PerHostAclStateSm.h"
#include "Qon/include/framework/LagView.h"
#include "Qon/include/framework/WorkQueue.h"
#include "platform/types/Errdisable.h"
#include "platform/types/SubIntf.h"

namespace Qon {

class AclSm : public QonBaseSm, public Checked {
 public:
   using IntfId = Ulnet::IntfId;
   using AclType = Acl::AclType;

   /** `acsd`, `config`, `intfConfig` and `helper` must be there; what another one stands for is left
       out if it is null. */
   struct Inputs {
      Velto::Ptr< QonCommonSmData > acsd;
      Velto::Ptr< const Acl::Config > config;
      Velto::Ptr< const Acl::IntfConfig > intfConfig;
      Velto::Ptr< const Acl::ParamConfig > paramConfig;
      Velto::Ptr< const Bridging::Config > bridgingConfig;
      Velto::Ptr< const Interface::SubIntfConfigDir > subIntfConfig;
      Velto::Ptr< QonHelper::AclHelper > helper;
      Velto::Ptr< const Mirroring::Status > mirroringStatus = {};
      Velto::Ptr< Errdisable::CauseStatus > errdisable = {}; ///< of this cause alone
      Velto::Ptr< const QonEpochStatus > epoch = {};
      Velto::Ptr< const Acl::IntfCardConfig > intfCards = {};
      Velto::Ptr< const Acl::DpAclUpdateRequest > dpRequest = {}; ///< together with the status
      Velto::Ptr< Acl::DpAclUpdateStatus > dpStatus = {};
      Velto::Ptr< const Acl::PerHostConfig > perHostConfig = {};
   };
   explicit AclSm( Inputs inputs );
   ~AclSm() override;

   void handleInitialized() override;
   void kivDoZombieReactors() override;
   /** Takes everything out of hardware, without waiting for answers; nothing is heard any more. With
       HITLESS_RESTART_TEST set, hardware stays as it is. */
   void doCleanup();

   /** @name The tree */
   /** @{ */
   AclTypeConfigSm * aclTypeConfigSm( AclType type ) const { return types_.sm( type ); }
   AclDirectionTypeConfigSm * directionSm( AclType type, Acl::AclDirection direction ) const;
   AclConfigSm * aclConfigSm( AclType type, const String & name ) const;
   PerHostAclStateSm * perHostAclStateSm( const Acl::HostKey & host ) const {
      return hosts_.sm( host );
   }
   /** @} */

   /** Whether this pass takes away what a former life left, and blocks whoever joins meanwhile. */
   bool staleGoes() const { return stale_ == Stale::goes; }

   /** The first number that no direction has had; wraps. */
   U16 aclNumbersUsed() const { return aclNumbersUsed_; }
   void aclNumbersUsedIs( U16 used ) { aclNumbersUsed_ = used; }

   /** @name Sub-interfaces */
   /** @{ */
   /** A port-channel's sub-interfaces that have lists. */
   const KeySet< IntfId > & lagToSubIntfMap( IntfId lag ) const;
   Bridging::VlanIdOrNone subIntfCfgVlanIdMap( IntfId subIntf ) const;
   Bridging::VlanIdOrNone subIntfInternalVlanIdMap( IntfId subIntf ) const;
   /** The sub-interface that was given the internal VLAN last; null if none. */
   IntfId internalVlanIdSubIntfMap( Bridging::VlanIdOrNone vlan ) const;
   /** The internal VLAN, if there is one, else the configured one. */
   AclVlanIdOrNone subIntfVlan( IntfId subIntf ) const;
   /** @} */

   /** @name Passes */
   /** @{ */
   AclApplyPhase phase() const { return phase_; }
   /** Begins a pass, or has another one follow the one that is under way. */
   void doApplyAcls( bool forceRecreateAll = false );
   /** Enters a phase; values behind the last are ignored. */
   void doApplyAclsPhase( AclApplyPhase phase );
   /** What the phase waited for is there. */
   void handleAclSmPhaseChange();
   U32 unInstallAcls() const { return U32( unInstallAcl_.size() ); }
   U32 prepareAcls() const { return U32( prepareAcl_.size() ); }
   U32 unblockAcls() const { return U32( unblockAcl_.size() ); }
   /** Operations that the chip has not answered. */
   U32 outstandingOperations() const { return outstanding_.size(); }
   /** How often an instance without room was tried again since others made room. */
   U64 retries() const { return retries_; }
   /** The instances that wait for a block to take hold. */
   std::vector< const AclDataSm * > blockIntfsPending() const;
   /** @} */

   /** @name What became of it */
   /** @{ */
   /** The error that is stored for the unit; success if none is. */
   AclCreateError unitError( const String & unit ) const;
   /** All that are stored. */
   std::vector< std::pair< String, AclCreateError > > unitErrors() const;
   /** Since when the unit has the error that is stored. */
   Kiv::Seconds unitErrorSince( const String & unit ) const;
   bool errdisabled( IntfId intf ) const { return errdisabled_.has( intf ); }
   bool blocked( IntfId intf ) const;
   /** Null if no list applies to the interface. */
   const AclIntfSm * aclIntfSm( IntfId intf ) const;
   /** What waits for the type to come; null if nothing does. */
   const AclCallbackDataSm * callbackDataSm( AclType type ) const {
      return callbackDataSm_[U8( type )].ptr();
   }
   /** Brings the units' errors, their messages and the interfaces out of service up to date. */
   void checkStatus();
   /** @} */

   /** @name What the chip reports; unknown and late answers are dropped */
   /** @{ */
   /** An operation of an asynchronous helper is done; or, with the number of its last operation, what
       has become of an instance since. */
   void aclStatusUpdateCallback( AclType type, const String & aclName, const AclKey & key,
                                 U64 operation, const AclUnitResults & results );
   /** The answer to one blockIntf() of an asynchronous helper; one each, in their order. */
   void intfBlockedCallback( IntfId intf, bool blocked );
   /** @} */

   String checkInvariants() const override;

   QonCommonSmData * acsd() const { return in_.acsd.ptr(); }
   const Acl::Config * config() const { return in_.config.ptr(); }
   const Acl::IntfConfig * intfConfig() const { return in_.intfConfig.ptr(); }
   const Bridging::Config * bridgingConfig() const { return in_.bridgingConfig.ptr(); }
   QonHelper::AclHelper * aclHelper() const { return in_.helper.ptr(); }
   bool shared( AclType type, Acl::AclDirection direction, Acl::SharingKind kind ) const;
   /** Whether the agent takes care of the port; interfaces of other kinds are always its own. */
   bool managed( IntfId intf ) const;

   /** @name For the state machines below */
   /** @{ */
   /** The interface is looked at by the direction, or by all, when its turn comes. */
   void later( AclType type, Acl::AclDirection direction, IntfId intf );
   void laterEverywhere( IntfId intf );
   /** Everybody who names the list is looked at. */
   void laterNaming( AclType type, const String & aclName );
   /** The same for hosts: one, those of an interface, those of a list or of all lists of a type. */
   void hostLater( const Acl::HostKey & host ) { work_.add( { {}, {}, {}, host } ); }
   /** Whether a host has a list of the type, as one of the port or of its port-channel. */
   bool hostBound( AclType type, IntfId port, const Ulnet::EthAddr & host ) const;
   void hostsLaterAt( IntfId intf );
   void hostsLaterOf( AclType type, const String & aclName = {} );
   void settle();
   /** later(), then settle(). */
   void review( AclType type, Acl::AclDirection direction, IntfId intf );
   /** The instance differs from what is in hardware. */
   void changed( AclDataSm * instance );
   /** Looked at in the next pass, though it is what it was. */
   void nextIs( AclDataSm * instance );
   /** A list of the type and direction applies to a pair of the interface, or no longer. */
   void pairActiveIs( AclType type, Acl::AclDirection direction, IntfId intf, bool active );
   bool intfActive( AclType type, Acl::AclDirection direction, IntfId intf ) const;
   /** Whether the next pass applies an instance of the same type and direction to the interface. */
   bool joinsNext( const AclDataSm & instance, IntfId intf );
   /** A member of a port-channel waits for the next pass. */
   void memberWaits() {
      joinsKnown_ = false;
      membersWait_ = true;
   }
   /** A sub-interface has a list in one more direction, or in one less. */
   void subIntfAttachedIs( IntfId subIntf, bool attached );
   void instanceIs( AclDataSm * instance, bool there );
   U64 nextOperation() { return ++operations_; }
   void outstandingIs( AclDataSm * instance, U64 operation );
   void outstandingDel( U64 operation ) { outstanding_.erase( operation ); }
   void numberFreed() { numberFreed_ = true; }
   /** The instance wishes that the interface is blocked, or no longer; true if it has to wait. */
   bool blockIs( AclDataSm * instance, IntfId intf, bool block );
   /** The clean-up leaves hardware as it is. */
   bool keepsHardware() const { return keepsHardware_; }
   /** Somebody waits no longer for a block. */
   void waitsChanged();
   void statusChanged( AclDataSm * instance );
   void revertLater( AclDataSm * instance );
   /** Something is out of hardware. */
   void roomMade() { roomMade_ = true; }
   /** Whether rules can log that are asked when traffic leaves; says so if not and some do. */
   bool egressLoggingIsSupported( AclType type, const String & name, Acl::AclDirection direction );
   /** The group that the session has; invalid without one. */
   S32 mirrorGroup( const String & session ) const;
   void reapplyAclsWithMirrorSession( const String & session );
   bool hardwareSupports( IntfId intf ) const;
   String cardOf( IntfId intf ) const { return in_.intfCards->card( intf ); }
   void logAclUnsupportedHardware( const String & acl, IntfId intf );
   /** @} */

   void handleType( const AclType & type );
   void handleSharedMode( const Acl::SharingKey & key );
   void handleManagedIntf( const IntfId & intf );
   void handleSwitchIntfConfig( const IntfId & intf );
   void handleSubIntfCfgVlan( const IntfId & subIntf );
   void handleSubIntfInternalVlan( const IntfId & subIntf );
   void handlePortToLag( IntfId port, IntfId from, IntfId to );
   void handleLagToPort( IntfId lag, IntfId port );
   void handleApplyClock();
   void handleMirroringSession( const String & name );
   void handleCard( const IntfId & intf ) { handleIntf( intf ); }
   void handleHost( const Acl::HostKey & host );
   void handleDpAclUpdateRequest();
   void handleDpAclUpdateRequestTime();

 private:
   struct Work {
      AclType type;
      Acl::AclDirection direction;
      IntfId intf;
      Acl::HostKey host = {}; ///< or a host
   };
   enum class Shortage : U8 { none, resources, computation };
   /** What is stored of a unit. */
   struct Unit {
      AclCreateError error = AclCreateError::success; // success: a message is left to be said
      Shortage raised = Shortage::none;               // the message that is out
      bool unsaid = false;                            // the one that should be raised
      Kiv::Seconds since = 0;                         // when the error was stored
   };
   struct LastError {
      AclCreateError error;
      bool told; // there is a message for it
      U64 at;
   };
   using Instances = std::vector< Velto::Ptr< AclDataSm > >;

   void answer( const Work & work );
   bool passDue() const { return !changed_.empty() || !reverts_.empty(); }
   void passLater();
   void note( AclDataSm * instance );
   void takeChanged( Instances & into );
   void doDeferredMembers();
   Velto::Ptr< AclTypeConfigSm > makeType( const AclType & type, const bool & there );
   void cleanUpType( const AclType &, AclTypeConfigSm * sm ) { sm->doCleanup(); }
   void reviewType( AclType type );
   void reviewVlans();
   void laterAll();
   void laterFamily( IntfId intf );
   void handleIntf( IntfId intf );
   Velto::Ptr< AclMirrorSessionSm >
   makeSession( const String & name, const Velto::Ptr< const Mirroring::SessionStatus > & status );
   void cleanUpSession( const String & name, AclMirrorSessionSm * sm );
   void reviewSessions();
   Velto::Ptr< PerHostAclStateSm > makeHost( const Acl::HostKey & host,
                                             const std::optional< Acl::HostAcl > & acl );
   void cleanUpHost( const Acl::HostKey & host, PerHostAclStateSm * sm );
   void reviewHosts();

   /** @name Results */
   /** @{ */
   Shortage shortageOf( AclCreateError error ) const;
   String unitShown( const String & unit ) const;
   void syslogUnitError( const String & unit );
   void unitSucceeds( const String & unit );
   void unitFails( const String & unit, AclCreateError error );
   void raise( const String & unit, Shortage shortage );
   void lastErrors( Kiv::DenseMap< String, LastError > & last ) const;
   void doErrdisable( const AclDataSm & instance, KeySet< IntfId > & intfs ) const;
   void checkErrdisables();
   void staleErrdisablesDel();
   void doAclRevert();
   void retryFailed();
   bool retryShortages();
   /** @} */

   template< class Act >
   void forEachDirection( Act && act ) const {
      types_.forEach(
            [&]( AclType, AclTypeConfigSm & typeSm ) { typeSm.forEachDirection( act ); } );
   }

   /** @name Parts of a pass */
   /** @{ */
   void gather( bool forceRecreateAll );
   void doBlocks();
   void doUninstalls();
   void doPrepares();
   void doCommits();
   void lookForJoins();
   void doUnblocks();
   void passDone();
   void staleDel();
   /** Each of them, whichever raises. */
   template< class Act >
   void forEach( const Instances & instances, Act && act );
   /** Interfaces come to instances that stay, or leave them: without waiting for the clock. */
   void applyIntfsNow();
   void applyWithoutPass();
   /** The first exception of the pass, to whoever moved it on. */
   void passErrors();
   bool blocksPending() const;
   Velto::Ptr< AclIntfSm > & intfSmIs( IntfId intf );
   void intfSmIdle( IntfId intf );
   void askBlock( AclIntfSm & sm, AclDataSm * instance, IntfId intf, bool block );
   bool answered( AclType type, const String & aclName, const AclKey & key, U64 operation,
                  const AclUnitResults & results );
   void replayCallbackData( AclType type );
   /** @} */

   const Inputs in_;
   U16 aclNumbersUsed_ = 0;
   bool allManaged_ = true;
   bool cleanedUp_ = false, keepsHardware_ = false;
   WorkQueue< Work > work_;
   Kiv::DenseMap< IntfId, U32 > attachments_;           // of sub-interfaces
   Kiv::DenseMap< IntfId, KeySet< IntfId > > subIntfs_; // by what carries them
   Kiv::DenseMap< IntfId, KeySet< IntfId > > listedBy_; // port -> port-channels that list it
   Kiv::DenseMap< IntfId, KeySet< Acl::HostKey > > hostsOf_;
   Kiv::DenseMap< IntfId, Bridging::VlanIdOrNone > cfgVlan_, internalVlan_;
   Kiv::DenseMap< U16, IntfId > subIntfOfInternalVlan_;

   AclApplyPhase phase_ = AclApplyPhase::done;
   bool working_ =
         false; // inside a step of the phase: answers that come now are looked at after it
   bool uninstallsAsked_ = false;
   bool again_ = false, forceAgain_ = false;
   /** What a former life left in hardware: it decides, goes in this pass, has gone. */
   enum class Stale : U8 { decides, goes, gone } stale_ = Stale::decides;
   bool staleDone_ = false;
   bool starting_ = false;
   bool saidAgain_ = false; // messages that raised were tried once more
   bool numberFreed_ = false;
   bool joinsKnown_ = false; // as the interfaces are marked
   bool membersWait_ = false;
   U64 joinsLook_ = 0;
   U64 operations_ = 0;
   Instances changed_; // those that are noted()
   Instances pass_, unInstallAcl_, prepareAcl_, unblockAcl_;
   Kiv::DenseMap< U64, Velto::Ptr< AclDataSm > > outstanding_;
   Kiv::DenseMap< IntfId, Velto::Ptr< AclIntfSm > > intfs_;
   KeySet< AclDataSm * > instances_; // all that there are
   KeySet< AclDataSm * > failing_;   // those whose record has an error
   Kiv::DenseMap< AclDataSm *, Velto::Ptr< AclDataSm > > reverts_;
   bool roomMade_ = false;
   U64 retries_ = 0;
   Kiv::DenseMap< String, Unit > units_; // that some instance fails on
   KeySet< IntfId > errdisabled_;
   Velto::Ptr< AclCallbackDataSm > callbackDataSm_[3]; // by type
   Velto::FirstError error_;

   SmCollection< AclType, bool, AclTypeConfigSm, AclSm, &AclSm::makeType, &AclSm::cleanUpType >
         types_{ this };
   SmCollection< String, Velto::Ptr< const Mirroring::SessionStatus >, AclMirrorSessionSm, AclSm,
                 &AclSm::makeSession, &AclSm::cleanUpSession >
         sessions_{ this };
   SmCollection< Acl::HostKey, std::optional< Acl::HostAcl >, PerHostAclStateSm, AclSm,
                 &AclSm::makeHost, &AclSm::cleanUpHost >
         hosts_{ this };
   Kiv::Watch< Acl::Config::typeAttr, AclSm, &AclSm::handleType > typeWatch_;
   Kiv::Watch< Acl::IntfConfig::typeAttr, AclSm, &AclSm::handleType > intfTypeWatch_;
   Kiv::Watch< Acl::ParamConfig::sharedModeAttr, AclSm, &AclSm::handleSharedMode > modeWatch_;
   Kiv::Watch< Bridging::Config::switchIntfConfigAttr, AclSm, &AclSm::handleSwitchIntfConfig >
         switchIntfWatch_;
   Kiv::Watch< Interface::SubIntfConfigDir::vlanAttr, AclSm, &AclSm::handleSubIntfCfgVlan >
         cfgVlanWatch_;
   Kiv::Watch< QonCommonSmData::internalVlanAttr, AclSm, &AclSm::handleSubIntfInternalVlan >
         internalVlanWatch_;
   Kiv::Watch< QonCommonSmData::intfAttr, AclSm, &AclSm::handleManagedIntf > managedWatch_;
   LagFollower< AclSm, &AclSm::handlePortToLag, &AclSm::handleLagToPort > lags_;
   Kiv::Watch< Mirroring::Status::sessionAttr, AclSm, &AclSm::handleMirroringSession >
         sessionWatch_;
   Kiv::Watch< Acl::IntfCardConfig::cardAttr, AclSm, &AclSm::handleCard > cardWatch_;
   Kiv::Watch< Acl::PerHostConfig::hostAttr, AclSm, &AclSm::handleHost > hostWatch_;
   Kiv::Watch< Acl::DpAclUpdateRequest::requestTimeAttr, AclSm, &AclSm::handleDpAclUpdateRequest >
         dpWatch_;
   Kiv::ClockReactor< AclSm, &AclSm::handleApplyClock > applyClock_;
   Kiv::ClockReactor< AclSm, &AclSm::handleDpAclUpdateRequestTime > dpClock_;
};

Velto::Ptr< AclSm > AclSmIs( AclSm::Inputs inputs );

} // namespace Qon
