#pragma once
// The facts that all feature state machines of an agent share, and the answers to "does this
// hardware support it".
//
//    hosting agent: qonCommonSmDataFactory( name ) -> fill -> initializedIs( true )
//    -> verifyData, verifySm, lowMemoryMode, initialized (in this order)
//    -> feature state machines, each with a counted pointer to this
//
// Invariants
// 1. When a watcher sees `initialized` true, everything else that the set-up makes is there.
// 2. The set-up is made once; going to false and back makes nothing anew.
// 3. portToLag says of which LAG a port is a member; lagToPort lists the members of a LAG. Both
//    are LagSm's alone; a change is written to lagToPort first.
//
// Ownership: owns verifyData, vlanStatus and verifySm; counts vlanHelper and the inputs.

#include "Qon/include/framework/QonPortLists.h"
#include "Qon/include/framework/QonTypes.h"
#include "Qon/include/framework/VerifySm.h"
#include "Qon/include/framework/VlanHelperBase.h"
#include "platform/types/Brisel.h"
#include "platform/types/HwEpoch.h"
#include "platform/types/Lag.h"
#include "platform/types/TapAgg.h"

namespace Qon {

/** Routing facts of one VLAN. */
class VlanStatus : public Kiv::Entity {
   KIV_BODY( VlanStatus, Kiv::Entity )
   KIV_ATTR( bool, routingEnable, false )
   KIV_ATTR( bool, isUnnumberedIntf, false )
   KIV_ATTR( bool, isUnnumbered6Intf, false )
 public:
   explicit VlanStatus( const Bridging::VlanId & vlanId )
       : Kiv::Entity( vlanId.stringValue() ), vlanId_( vlanId ) {}
   Bridging::VlanId vlanId() const { return vlanId_; }

 private:
   const Bridging::VlanId vlanId_;
};

/** Agent-wide settings from the command line of the switch. */
class HwCliConfig : public Kiv::Entity {
   KIV_BODY( HwCliConfig, Kiv::Entity )
   KIV_MAP( String, String, option )
 public:
   explicit HwCliConfig( const String & name ) : Kiv::Entity( name ) {}
};

/** A memory parity error of the chip. */
class ParityEvent {
 public:
   /** Where it happened. */
   class Key {
      String table_;
      U32 index_ = 0;
      KIV_VALUE( Qon::ParityEvent, Key, table, index )
   };

 private:
   Key key_;
   U32 count_ = 0;
   bool corrected_ = false;
   KIV_VALUE( Qon, ParityEvent, key, count, corrected )
};

/** "acsd" in the code: the agent's common state machine data. Each attribute says what it means, who
    writes it and who reads it; classes of this library are checked by tools/check-shared-data,
    features outside of it stand in plain words. */
class QonCommonSmData : public Kiv::Entity {
   KIV_BODY( QonCommonSmData, Kiv::Entity )

   // --- Mode and start-up -------------------------------------------------------------------------

   // Features keep small what they may: QON_LOW_MEMORY_MODE was set at the start.
   // Writer: QonCommonSmData.
   KIV_ATTR( bool, lowMemoryMode, false )
   // The switch switches, or aggregates taps. Writer: hosting agent. Readers: StpSm, TapAggSm.
   KIV_ATTR( HwOperationalMode, operationalMode, HwOperationalMode() )
   // The hardware side of VLANs; null on a chip that has none of its own.
   // Writer: hosting agent. Readers: hosting agent.
   KIV_PTR( VlanHelperBase, vlanHelper )

   // --- Interfaces --------------------------------------------------------------------------------

   // The ports that the agent manages; empty is every port. Writer: hosting agent.
   // Readers: LagSm, StormControlBaseSm, AclSm, MulticastHelper, MulticastReactorSm.
   KIV_MAP( Ulnet::IntfId, bool, intf )
   // At least so many ports come; who needs all of them waits. Writer: hosting agent.
   KIV_ATTR( U16, minIntfs, 0 )
   // Ports of the hardware that are not connected. Writer: hosting agent.
   KIV_MAP( Ulnet::IntfId, bool, unusedIntf )
   // Ports that lead to the CPU. Writer: hosting agent.
   KIV_MAP( Ulnet::IntfId, bool, cpuIntf )
   // Ports that take several encapsulations. Writer: hosting agent.
   KIV_SET( Ulnet::IntfId, multiEncapIntf )
   // The service interfaces behind encapsulations. Writer: hosting agent.
   KIV_PTR( const Brisel::IntfEncapServiceIntfColl, intfEncapServiceIntf )
   // Members of the MLAG peer link. Writer: MLAG status.
   KIV_MAP( Ulnet::IntfId, bool, mlagPeerLinkPort )
   // Ports that drop what came over the peer link. Writer: MLAG status.
   // Readers: MulticastReactorSm.
   KIV_MAP( Ulnet::IntfId, bool, mlagIntfPort )

   // --- Link aggregation --------------------------------------------------------------------------

   // The members that are configured, whatever was negotiated. Writer: source guard.
   KIV_MAP( Ulnet::IntfId, QonPortList, lagToPortConfig )
   // What a recirculation channel is used for. Writer: recirculation. Readers: VlanHelper.
   KIV_MAP( Ulnet::IntfId, Lag::Recirc::RecircFeatureSet, lagToFeatureSet )
   // The LAG of which a port is a member: who asks of a port, asks here.
   // Writer: LagSm. Readers: LagView, LagFollowerBase, QonLagCreatorSm, TapAggSm, VlanHelper,
   // MulticastHelper, MulticastReactorSm.
   KIV_MAP( Ulnet::IntfId, Ulnet::IntfId, portToLag )
   // The members of a LAG, with their flags: who asks of a LAG, asks here.
   // Writer: LagSm. Readers: LagView, LagFollowerBase, LagConfigMapCreatorSm, LagMemberCreatorSm,
   // QonLagCreatorSm, LagInterlockSm, StormControlBaseSm, MulticastHelper, MulticastReactorSm.
   KIV_MAP( Ulnet::IntfId, QonLagPortList, lagToPort )
   // How the hardware holds a LAG. Writer: hosting agent.
   KIV_MAP( Ulnet::IntfId, QonTypes::QonLagType, lagToLagType )
   // True: the partner is silent, and members work on their own. Others have no entry.
   // Writer: LagSm.
   KIV_MAP( Ulnet::IntfId, bool, lagInLacpFallbackIndividualMode )

   // --- MAC addresses -----------------------------------------------------------------------------

   // Static addresses stay in hardware while their interface is disabled. Writer: hosting agent.
   KIV_ATTR( bool, keepStaticMacOnDisabledIntf, false )
   // Static addresses are in hardware only while their interface is in the VLAN.
   // Writer: hosting agent.
   KIV_ATTR( bool, enforceVlanMembershipForStaticMac, false )
   // The virtual router's addresses. Writer: hosting agent.
   KIV_ATTR( Ulnet::EthAddrWithMask, virtualMacWithMask )
   // The MLAG peer's router address. Writer: hosting agent.
   KIV_ATTR( Ulnet::EthAddr, peerRouterMac )

   // --- VLANs -------------------------------------------------------------------------------------

   // The VLAN that stands for a routed port. Writer: hosting agent. Readers: AclSm.
   KIV_MAP( Ulnet::IntfId, U32, internalVlan )
   // Routing facts of each VLAN. Writer: hosting agent.
   KIV_ENTITIES( Bridging::VlanId, VlanStatus, vlanStatus )
   // The VLAN that a port's encapsulation translates to.
   // Writer: VlanTranslations, IntfConfigMergeSm, ConfigMergeSm. Readers: VlanMappingSm, ConfigMergeSm.
   KIV_MAP( Ulnet::IntfId, Bridging::VlanIdOrNone, encapVlan )
   // The tag protocol ids of a port. Writer: hosting agent.
   KIV_MAP( Ulnet::IntfId, QonPortVlanTpidData, portVlanTpidData )
   // Settings of the hardware from the command line. Writer: hosting agent.
   KIV_PTR( const HwCliConfig, cliConfig )

   // --- Mirroring ---------------------------------------------------------------------------------

   // The session's group in hardware, while it has one.
   // Writer: MirroringSm, KivMirroringSession. Readers: MirroringSm.
   KIV_MAP( String, U32, mirrorSessionNameToId )
   // The same for sessions that mirror what leaves.
   // Writer: MirroringSm, KivMirroringSession. Readers: MirroringSm, KivMirroringSession.
   KIV_MAP( String, U8, mirrorSessionNameToEgressId )
   // Groups that no session has, the one that is free longest first.
   // Writer: MirroringSm, hosting agent. Readers: MirroringSm.
   KIV_QUEUE( U8, freeMirrorSession )

   // --- The chip's faults, and verification -------------------------------------------------------

   // This agent drives a chip of the fabric, without ports of its own. Writer: hosting agent.
   KIV_ATTR( bool, isFabricSlice, false )
   // Parity errors, by their place. Writer: parity slice, hosting agent.
   // Readers: MulticastReactorSm.
   KIV_MAP( ParityEvent::Key, ParityEvent, parityEvent )
   // Requests, checks and findings of verification runs.
   // Writer: QonCommonSmData. Readers: VerifySm, VerifyAgentSm, VerifyAgentSmCliCallback, StpSm,
   // IgmpSnoopingSm, MulticastHelper.
   KIV_OWNED( VerifyData, verifyData )
   // Who runs the checks.
   // Writer: QonCommonSmData. Readers: VerifyAgentSm, VerifyAgentSmCliCallback.
   KIV_PTR( VerifySm, verifySm )

   // --- Limits and abilities of the platform ------------------------------------------------------

   // VLAN interfaces that are there. Writer: hosting agent.
   KIV_MAP( Ulnet::IntfId, bool, vlanIntf )
   // At which levels the traces of data paths are kept. Writer: hosting agent.
   KIV_ATTR( FlintlogLevels, flintlogLevels )
   // The hardware forwards while the agent restarts. Writer: hosting agent.
   KIV_ATTR( bool, hitlessAgentRestartSupported, true )
   // The watchdog of priority flow control may drop. Writer: hosting agent.
   KIV_ATTR( bool, pfcWatchdogDropActionSupported, false )
   // Logical ports are in use. Writer: hosting agent.
   KIV_ATTR( bool, dlpEnabled, false )
   // Flushes of VPLS VLANs are slowed down, by the three numbers below. Writer: hosting agent.
   KIV_ATTR( bool, vplsFlushCodefEnabled, false )
   // Flushes under way in hardware, at most. Writer: hosting agent.
   KIV_ATTR( U16, maxVplsFlushRequestsInHw, 32 )
   // Flushes that are taken up at once, at most. Writer: hosting agent.
   KIV_ATTR( U16, maxVplsFlushReqsToProcess, 200 )
   // From so many flushes of a VLAN on the whole VLAN is flushed. Writer: hosting agent.
   KIV_ATTR( U16, thresholdForFlushVplsVlan, 8 )
   // The topology and the interfaces of tap aggregation; needed in that mode.
   // Writer: hosting agent. Readers: StpSm.
   KIV_PTR( const TapAgg::HwConfig, tapAggHwConfig )

 public:
   explicit QonCommonSmData( const String & name );
   ~QonCommonSmData() override;

   bool initialized() const { return initialized_; }
   /** Watched through initializedAttr. Going to true runs the set-up. */
   void initializedIs( bool v );
   void handleInitialized();

   /** Whether the port is a member of a LAG. */
   bool inLag( Ulnet::IntfId intf ) const { return portToLagHas( intf ); }

   KIV_DECLARE(
         initialized, void, bool,
         template scalar< KivT, bool, &KivT::initialized_, &KivT::initializedIs >( "initialized" ) )

 private:
   void setUp();

   enum class SetUp : U8 { none, underWay, done };
   bool initialized_ = false;
   SetUp setUp_ = SetUp::none;
};

Velto::Ptr< QonCommonSmData > qonCommonSmDataFactory( const String & name );

/** Answers feature-support questions from the platform's hardware epoch. The card is ignored by
    all but preferHaloAcls: support is uniform across cards except for that one feature. */
class QonEpochStatus : public Kiv::Entity {
   KIV_BODY( QonEpochStatus, Kiv::Entity )
   KIV_PTR( const HwEpoch::Status, hwEpochStatus )
 public:
   explicit QonEpochStatus( const String & name ) : Kiv::Entity( name ) {}

   bool initialized() const { return initialized_; }
   void initializedIs( bool v );
   void handleInitialized();

   /** True, except under simulation with OLD_ACLS_TCAM_ENABLED set to zero. */
   bool aclsInTcamSupported( const String & card ) const;
   // These need initialized(); an early call is a fatal assertion.
   bool aclSupported( const String & card ) const;
   bool pbrDenyActionSupported( const String & card ) const;
   bool qosDropActionSupported( const String & card ) const;
   bool tapAggDenyActionSupported( const String & card ) const;
   bool stormZeroRateSupported( const String & card ) const;
   bool pfcWatchdogTcamDropSupported( const String & card ) const;
   /** Under simulation PDP_MODE_ENABLED decides, else hwEpochStatus, which must be there. */
   bool pdpModeEnabled() const;
   /** Whether the card restricts the feature of HwEpoch::EpochFeature::haloAcl. An unknown card
       is true under simulation, else a fatal assertion. */
   bool preferHaloAcls( const String & card ) const;

   KIV_DECLARE(
         initialized, void, bool,
         template scalar< KivT, bool, &KivT::initialized_, &KivT::initializedIs >( "initialized" ) )

 private:
   bool initialized_ = false;
};

Velto::Ptr< QonEpochStatus > qonEpochStatusFactory( const String & name );

} // namespace Qon
