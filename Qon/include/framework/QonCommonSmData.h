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

class QonCommonSmData : public Kiv::Entity {
   KIV_BODY( QonCommonSmData, Kiv::Entity )
   KIV_ATTR( bool, lowMemoryMode, false )
   KIV_ATTR( HwOperationalMode, operationalMode, HwOperationalMode() )
   KIV_PTR( VlanHelperBase, vlanHelper )
   KIV_MAP( Ulnet::IntfId, bool, intf )
   KIV_ATTR( U16, minIntfs, 0 )
   KIV_MAP( Ulnet::IntfId, bool, unusedIntf )
   KIV_MAP( Ulnet::IntfId, bool, cpuIntf )
   KIV_SET( Ulnet::IntfId, multiEncapIntf )
   KIV_PTR( const Brisel::IntfEncapServiceIntfColl, intfEncapServiceIntf )
   KIV_MAP( Ulnet::IntfId, bool, mlagPeerLinkPort )
   KIV_MAP( Ulnet::IntfId, bool, mlagIntfPort )
   KIV_MAP( Ulnet::IntfId, QonPortList, lagToPortConfig )
   KIV_MAP( Ulnet::IntfId, Lag::Recirc::RecircFeatureSet, lagToFeatureSet )
   KIV_MAP( Ulnet::IntfId, Ulnet::IntfId, portToLag )
   KIV_MAP( Ulnet::IntfId, QonLagPortList, lagToPort )
   KIV_MAP( Ulnet::IntfId, QonTypes::QonLagType, lagToLagType )
   KIV_MAP( Ulnet::IntfId, bool, lagInLacpFallbackIndividualMode )
   KIV_ATTR( bool, keepStaticMacOnDisabledIntf, false )
   KIV_ATTR( bool, enforceVlanMembershipForStaticMac, false )
   KIV_ATTR( Ulnet::EthAddrWithMask, virtualMacWithMask )
   KIV_ATTR( Ulnet::EthAddr, peerRouterMac )
   KIV_MAP( Ulnet::IntfId, U32, internalVlan )
   KIV_ENTITIES( Bridging::VlanId, VlanStatus, vlanStatus )
   KIV_MAP( Ulnet::IntfId, Bridging::VlanIdOrNone, encapVlan )
   KIV_MAP( Ulnet::IntfId, QonPortVlanTpidData, portVlanTpidData )
   KIV_PTR( const HwCliConfig, cliConfig )
   KIV_MAP( String, U32, mirrorSessionNameToId )
   KIV_MAP( String, U8, mirrorSessionNameToEgressId )
   KIV_QUEUE( U8, freeMirrorSession )
   KIV_ATTR( bool, isFabricSlice, false )
   KIV_MAP( ParityEvent::Key, ParityEvent, parityEvent )
   KIV_OWNED( VerifyData, verifyData )
   KIV_PTR( VerifySm, verifySm )
   KIV_MAP( Ulnet::IntfId, bool, vlanIntf )
   KIV_ATTR( FlintlogLevels, flintlogLevels )
   KIV_ATTR( bool, hitlessAgentRestartSupported, true )
   KIV_ATTR( bool, pfcWatchdogDropActionSupported, false )
   KIV_ATTR( bool, dlpEnabled, false )
   KIV_ATTR( bool, vplsFlushCodefEnabled, false )
   KIV_ATTR( U16, maxVplsFlushRequestsInHw, 32 )
   KIV_ATTR( U16, maxVplsFlushReqsToProcess, 200 )
   KIV_ATTR( U16, thresholdForFlushVplsVlan, 8 )
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
