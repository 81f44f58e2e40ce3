#pragma once
// Spanning-tree topologies in hardware: which VLANs are in which topology, the state of each port
// in each topology, and the flushing of MAC addresses.
//
//    Config, Inst::Status --> StpSm --1:n--> TopoSm (a topology) --1:n--> TopoPortSm (a port)
//    acsd: LAGs, mode    -->   |                 |                          |
//    TapAgg::HwConfig --> TapAggIntfSm           |                          |
//                              v                 v                          v
//                   TopoHelper: VLANs        alloc, free            port states, flushes
//                              chip --done--> StpSm --> TopoPortStatus
//
// Invariants
// 1. A TopoSm exists while configuration and status both have the name, with the same id. Another
//    entity or another id under the name is another TopoSm.
// 2. A port's status is written when the hardware reports done; at once when nothing is handed
//    over: for members of an aggregate, whose state is the aggregate's, and for interfaces in tap
//    or tool mode, which forward whatever is wanted.
// 3. What is pending is recorded before the hook is called and taken off before the status is
//    written, so hooks that complete inside and watchers that ask anew are both right.
// 4. vlanToTopoSmMap and topoToVlanMap are each other's inverse; no MappedVlan is empty.
// 5. In tap-aggregation mode every VLAN that the configuration puts into no topology is in the
//    tap-aggregation topology, which needs no TopoSm. A topology that is both that one and a
//    configured one is one topology in the hardware: allocated once, freed with its last user.
// 6. A change of the mode is carried out to its end before the next one: what a hook changes
//    meanwhile is taken up then.
// 7. While initialized() is false nothing is done and nothing acknowledged; afterwards everything
//    is brought up to date. hwInit is called again only after doCleanup().
//
// Reads of the shared data: portToLag, lagToPort, operationalMode, tapAggHwConfig, verifyData.
// Ownership: StpSm owns the TopoSms, they own the TopoPortSms; back pointers are not counted. Who
// releases the state machine from within a hook or a watcher ends it when the handler returns.

#include "Qon/include/framework/LagView.h"
#include "Qon/include/framework/SmCollection.h"
#include "Qon/include/topology/TopoHelper.h"
#include "Qon/include/topology/TopoRecords.h"
#include "platform/Kiv/Time.h"

namespace Qon {

class TopoSm;
class TopoPortSm;

class StpSm : public QonBaseSm, public Checked {
   KIV_BODY( StpSm, QonBaseSm )
   KIV_PTR( const Bridging::Topology::Config, config )
   KIV_PTR( Bridging::Topology::Inst::Status, status )
   KIV_PTR( TopoHelper, topoHelper )
   KIV_ATTR( HwOperationalMode, currentHwOperationalMode, HwOperationalMode::switching )
   KIV_MAP( U16, String, vlanToTopoSmMap )
   KIV_ENTITIES( String, MappedVlan, topoToVlanMap )
   KIV_ENTITIES( String, PendingStpStateTopo, pendingStpStateTopo )
   KIV_OWNED( IntfSet, tapAggIntf )
   KIV_PTR( VerifyData, verifyData )
 public:
   class TapAggIntfSm;

   StpSm( Velto::Ptr< QonCommonSmData > acsd, Velto::Ptr< const Bridging::Topology::Config > config,
          Velto::Ptr< Bridging::Topology::Inst::Status > status,
          Velto::Ptr< TopoHelper > topoHelper );
   ~StpSm() override;

   void handleInitialized() override;
   /** Part of a verification run; the base asks the helper. */
   virtual void verify();
   /** Traps BPDUs to the CPU, as the two settings of the topology configuration say; both false
       in tap-aggregation mode. Done on return. */
   virtual void configureBpduTrapping( bool bpdu, bool pvstBpdu );

   const Bridging::Topology::Config * brTopoConfig() const { return config(); }
   Bridging::Topology::Inst::Status * brTopoInstStatus() const { return status(); }
   QonCommonSmData * acsd() const { return acsd_.ptr(); }
   LagView lagView() const { return LagView( acsd_.ptr() ); }
   /** The group of a port as the topologies were told last; null is none. */
   Ulnet::IntfId lagOf( Ulnet::IntfId port ) const { return lagFollower_.lagOf( port ); }
   TapAggIntfSm * tapAggIntfSm() const { return tapAggIntfSm_.ptr(); }
   /** The tap-aggregation topology that is in use; empty outside tap-aggregation mode. */
   const String & tapAggTopoName() const { return tapAggTopo_.name; }
   U32 tapAggTopoId() const { return tapAggTopo_.id; }
   /** Between a start and doCleanup(). */
   bool started() const { return started_; }
   /** Grows with every change that the state of a port in a VLAN may depend on. */
   U64 portChanges() const { return portChanges_; }

   TopoSm * topoSm( const String & name ) const { return topoSm_.sm( name ); }
   /** Since when the hardware has had no room for a topology that is worked on; none: it has. */
   std::optional< Kiv::Seconds > noRoomSince( const String & name ) const {
      auto use = topoUsers_.find( name );
      return use ? use->noRoomSince : std::nullopt;
   }
   U32 topoSms() const { return topoSm_.size(); }
   template< class Act >
   void forEachTopo( Act && act ) const {
      topoSm_.forEach( std::forward< Act >( act ) );
   }

   void kivDoZombieReactors() override;
   void handleTopoChange( const String & name );
   void handleTopoChange();
   void handleVidToTopoMap( const Bridging::VlanId & vlan );
   void handleVidToTopoMap();
   void handleOperationalMode();
   void handleBpduTrapping();
   void handleVerify();
   /** Undoes everything in the hardware; the state machine hears nothing afterwards until it is
       initialized anew. */
   void doCleanup();

   /** Acknowledges every pending port state of the topology. Unknown ones are ignored. */
   void setStpStateDoneTopoName( const String & name );
   void setStpStateDoneTopoId( U32 topoId );

   String checkInvariants() const override;

 private:
   friend class TopoSm;
   friend class TopoPortSm;

   struct TapAggTopo {
      String name;
      U32 id = 0;
      explicit operator bool() const { return !name.empty(); }
      bool operator==( const TapAggTopo & ) const = default;
   };
   /** What a TopoSm stands for; false where there is no topology. */
   struct TopoInput {
      Velto::Ptr< const Bridging::Topology::TopoConfig > config;
      Velto::Ptr< Bridging::Topology::Inst::TopoStatus > status;
      U32 topoId = 0;
      explicit operator bool() const { return bool( config ); }
      bool operator==( const TopoInput & ) const = default;
   };
   /** Reviews a topology when one of its two ids changes. */
   class TopoIdSm;
   struct TopoIdInput {
      Velto::Ptr< const Bridging::Topology::TopoConfig > config;
      Velto::Ptr< const Bridging::Topology::Inst::TopoStatus > status;
      explicit operator bool() const { return config || status; }
      bool operator==( const TopoIdInput & ) const = default;
   };

   Velto::Ptr< TopoSm > makeTopo( const String & name, const TopoInput & input );
   void cleanUpTopo( const String & name, TopoSm * topoSm );
   Velto::Ptr< TopoIdSm > makeTopoId( const String & name, const TopoIdInput & input );
   void cleanUpTopoId( const String & name, TopoIdSm * sm );

   void topoIdIs( U32 topoId, TopoSm * topoSm );
   void topoIdDel( U32 topoId, TopoSm * topoSm );
   U64 nextRequest() { return ++request_; }
   U64 lastRequest() const { return request_; }

   TopoInput topoInput( const String & name ) const;
   /** The topology is used once more, or no more, in the hardware. */
   void topoInUse( const String & name );
   void topoNotInUse( const String & name );

   void start();
   void attach();
   void detach();
   void portsChanged() { ++portChanges_; }
   void handleLag( Ulnet::IntfId port, Ulnet::IntfId from, Ulnet::IntfId to );
   void handleLagList( Ulnet::IntfId lag, Ulnet::IntfId port );
   template< class Tell >
   void membershipChanged( Tell && tell );
   String wantedTopo( Bridging::VlanId vlan ) const;
   void takeOut( Bridging::VlanId vlan, const String & topoName );
   void putIn( Bridging::VlanId vlan, const String & topoName );
   TapAggTopo configuredTapAgg() const;
   void handleTapAggConfig();
   void followTapAggConfig();
   void settleMode();
   bool stepMode();
   void modeIs( HwOperationalMode mode );
   void enterTapAgg( const TapAggTopo & wanted );
   void leaveTapAggTopo( const String & name );
   void cleanupTapAgg();
   void requestVerify();

   const Velto::Ptr< QonCommonSmData > acsd_;
   TapAggTopo tapAggTopo_;
   bool started_ = false;      // between hwInit and doCleanup()
   bool settlingMode_ = false; // a change of the mode is being carried out
   U64 request_ = 0;
   U64 portChanges_ = 0;
   Kiv::DenseMap< U32, std::vector< TopoSm * > > topoById_;
   /** Of a topology in the hardware. */
   struct TopoUse {
      U32 users = 0;
      std::optional< Kiv::Seconds > noRoomSince;
   };
   Kiv::DenseMap< String, TopoUse > topoUsers_;
   KeySet< U16 > addedVlan_; // in the hardware, to the topology that it is in
   VerifyCheck verifyCheck_;
   Velto::Ptr< TapAggIntfSm > tapAggIntfSm_;
   SmCollection< String, TopoIdInput, TopoIdSm, StpSm, &StpSm::makeTopoId, &StpSm::cleanUpTopoId >
         topoIdSm_;
   SmCollection< String, TopoInput, TopoSm, StpSm, &StpSm::makeTopo, &StpSm::cleanUpTopo > topoSm_;

   using BrConfig = Bridging::Topology::Config;
   Kiv::Watch< BrConfig::topoConfigAttr, StpSm, &StpSm::handleTopoChange > topoConfigWatch_;
   Kiv::Watch< Bridging::Topology::Inst::Status::topoStatusAttr, StpSm, &StpSm::handleTopoChange >
         topoStatusWatch_;
   Kiv::Watch< BrConfig::vidToTopoMapAttr, StpSm, &StpSm::handleVidToTopoMap > vidToTopoWatch_;
   Kiv::Watch< BrConfig::bpduTrapEnabledAttr, StpSm, &StpSm::handleBpduTrapping > bpduWatch_;
   Kiv::Watch< BrConfig::pvstBpduTrapEnabledAttr, StpSm, &StpSm::handleBpduTrapping >
         pvstBpduWatch_;
   Kiv::Watch< QonCommonSmData::operationalModeAttr, StpSm, &StpSm::handleOperationalMode >
         reactAcsd_;
   Kiv::Watch< QonCommonSmData::tapAggHwConfigAttr, StpSm, &StpSm::followTapAggConfig >
         tapAggConfigWatch_;
   Kiv::Watch< TapAgg::HwConfig::tapAggTopoIdAttr, StpSm, &StpSm::handleTapAggConfig >
         tapAggIdWatch_;
   Kiv::Watch< TapAgg::HwConfig::tapAggTopoNameAttr, StpSm, &StpSm::handleTapAggConfig >
         tapAggNameWatch_;
   LagFollower< StpSm, &StpSm::handleLag, &StpSm::handleLagList > lagFollower_;
};

/** One topology. */
class TopoSm : public QonBaseSm {
   KIV_BODY( TopoSm, QonBaseSm )
   KIV_ATTR( String, name )
   KIV_ATTR( U32, topoId, 0 )
   KIV_PTR( const Bridging::Topology::TopoConfig, config )
   KIV_PTR( Bridging::Topology::Inst::TopoStatus, status )
   KIV_PTR( TopoHelper, topoHelper )
 public:
   using PortState = Bridging::Topology::PortState;
   using Config = Bridging::Topology::TopoConfig;
   using Status = Bridging::Topology::Inst::TopoStatus;
   using PortConfig = Bridging::Topology::TopoPortConfig;

   TopoSm( const String & name, const StpSm::TopoInput & input, StpSm * stpSm );

   StpSm * stpSm() const { return stpSm_; }

   TopoPortSm * topoPortSm( Ulnet::IntfId intf ) const { return topoPortSm_.sm( intf ); }
   U32 topoPortSms() const { return topoPortSm_.size(); }
   template< class Act >
   void forEachPort( Act && act ) const {
      topoPortSm_.forEach( std::forward< Act >( act ) );
   }

   void handleInitialized() override;
   void kivDoZombieReactors() override;
   void handleTopoPortChange( const Ulnet::IntfId & intf );
   void handleTopoPortChange();
   /** The port joined a group, left `from`, or moved. */
   void handlePortToLag( const Ulnet::IntfId & intf, Ulnet::IntfId from = {} );
   /** The group began or ceased to lead to the port. */
   void handleLagToPort( const Ulnet::IntfId & lag, const Ulnet::IntfId & intf );
   /** The interface entered or left tap or tool mode. */
   void handleTapAggIntf( const Ulnet::IntfId & intf );
   /** Hands a port's state to the hardware: of an aggregate, for every member. False for a
       member, for which nothing is handed over. */
   bool doSetStpState( Ulnet::IntfId intf, bool isLag, Ulnet::IntfId lagIntf, PortState state );
   /** Takes the ports down and gives the topology back to the hardware. */
   void doCleanup();

   /** Whether the port's state was handed over and is not done yet. */
   bool pendingHas( Ulnet::IntfId intf ) const;

 private:
   friend class StpSm;
   friend class TopoPortSm;

   bool works() const { return initialized() && !zombie() && stpSm_->initialized(); }
   /** Brings every port up to date, after a time in which nothing was heard. */
   void refresh();
   void refreshPort( const Ulnet::IntfId & intf );
   /** The hardware has taken everything that was handed over. */
   void stateDone();
   /** Returns the number of the request. */
   U64 pendingIs( Ulnet::IntfId intf, PortState state );
   void pendingDel( Ulnet::IntfId intf );
   /** The number of the request that is pending, 0 for none. */
   U64 pendingRequest( Ulnet::IntfId intf ) const;
   Velto::Ptr< TopoPortSm > makePort( const Ulnet::IntfId & intf,
                                      const Velto::Ptr< const PortConfig > & config );
   void cleanUpPort( const Ulnet::IntfId & intf, TopoPortSm * port );
   void setStpState( Ulnet::IntfId intf, PortState state );
   void setLagState( Ulnet::IntfId lag, Ulnet::IntfId port );

   const StpSm::TopoInput input_;
   StpSm * const stpSm_;
   Velto::Ptr< PendingStpStateTopo > pending_; // the entry of stpSm's, null where there is none
   U32 fanOut_ = 0;            // hook calls for the members of an aggregate under way
   bool doneInFanOut_ = false; // reported done since the last hook call
   SmCollection< Ulnet::IntfId, Velto::Ptr< const PortConfig >, TopoPortSm, TopoSm,
                 &TopoSm::makePort, &TopoSm::cleanUpPort >
         topoPortSm_;
   Kiv::Watch< Config::topoPortConfigAttr, TopoSm, &TopoSm::handleTopoPortChange > portWatch_;
   Kiv::Watch< IntfSet::intfInfoAttr, TopoSm, &TopoSm::handleTapAggIntf > tapAggWatch_;
};

/** One port of one topology. */
class TopoPortSm : public QonBaseSm {
   KIV_BODY( TopoPortSm, QonBaseSm )
   KIV_ATTR( Ulnet::IntfId, intf )
   KIV_PTR( const Bridging::Topology::TopoPortConfig, config )
   KIV_PTR( Bridging::Topology::TopoPortStatus, status )
   KIV_PTR( TopoHelper, topoHelper )
   KIV_ATTR( U32, topoId, 0 )
   KIV_ATTR( bool, isLag, false )
 public:
   using PortState = Bridging::Topology::PortState;
   using Config = Bridging::Topology::TopoPortConfig;
   using Status = Bridging::Topology::TopoPortStatus;

   TopoPortSm( Ulnet::IntfId intf, Velto::Ptr< const Config > config, TopoSm * topoSm );

   TopoSm * topoSm() const { return topoSm_; }
   IntfSet * tapAggIntf() const;
   bool inTapOrTool() const { return tapAggIntf()->intfInfoHas( intf_ ); }
   /** What the hardware is to carry: the configured state, or forwarding in tap or tool mode. */
   PortState wantedState() const {
      return inTapOrTool() ? PortState::forwarding : config_->state();
   }

   void handleInitialized() override;
   /** Requests the configured state. */
   void handleState();
   void handleFdbFlush();
   /** Hands the state over; false if there was nothing to hand over. */
   bool doSetStpState( Ulnet::IntfId intf, PortState state );
   /** Forgets what is pending. */
   void doCleanup();

 private:
   friend class TopoSm;

   bool works() const { return initialized() && !zombie() && topoSm_->works(); }
   void nothingPending();
   /** The change information alone: echoes it where it belongs to a state that is done. */
   void handleChangeInfo();
   /** Writes the status: this state is in the hardware. */
   void stateDone( PortState state );
   static void handleConfig( void * self, const Kiv::Entity &, int attribute, const void * );

   TopoSm * const topoSm_;
   U32 writes_ = 0;  // of the status: tells whether a watcher of it came in between
   U32 flushes_ = 0; // likewise of flush hooks
   Kiv::EntityWatch configWatch_;
};

/** Keeps the set of interfaces in tap or tool mode, and lets them forward in the tap-aggregation
    topology: an aggregate through its members. */
class StpSm::TapAggIntfSm : public QonBaseSm {
 public:
   explicit TapAggIntfSm( StpSm * stpSm ) : stpSm_( stpSm ) {}

   /** Begins to fill the set if the mode is tap aggregation. */
   void handleInitialized() override;
   /** The mode, the topology or the settings changed as a whole. */
   void handleTapAgg();
   void handleIntf( const Ulnet::IntfId & intf );
   /** Brings the port states in the tap-aggregation topology, where there is one, to what the set
       and the groups want. */
   void settle();
   /** Everything is to be told anew: to another topology, or under another id. */
   void toldDel() { told_.clear(); }
   /** The settings that are followed. */
   const TapAgg::HwConfig * hwConfig() const { return hwConfig_.ptr(); }
   /** Whether the set is kept. */
   bool active() const { return active_; }
   /** Empties the set; the hardware's topology goes as a whole. */
   void doCleanup();

 private:
   bool wanted( Ulnet::IntfId intf ) const;
   KeySet< Ulnet::IntfId > wantedTargets();
   void stateIs( Ulnet::IntfId intf, bool forwarding );

   StpSm * const stpSm_;
   bool active_ = false;
   bool settling_ = false;
   bool unsettled_ = false;           // something changed while settling
   KeySet< Ulnet::IntfId > told_;     // forward in the tap-aggregation topology
   KeySet< Ulnet::IntfId > expanded_; // aggregates of the set that had members
   Velto::Ptr< const TapAgg::HwConfig > hwConfig_;
   Kiv::Watch< TapAgg::HwConfig::tapIntfAttr, TapAggIntfSm, &TapAggIntfSm::handleIntf > tapWatch_;
   Kiv::Watch< TapAgg::HwConfig::toolIntfAttr, TapAggIntfSm, &TapAggIntfSm::handleIntf > toolWatch_;
};

Velto::Ptr< StpSm > StpSmIs( Velto::Ptr< QonCommonSmData > acsd,
                             Velto::Ptr< const Bridging::Topology::Config > config,
                             Velto::Ptr< Bridging::Topology::Inst::Status > status,
                             Velto::Ptr< TopoHelper > topoHelper );

} // namespace Qon
