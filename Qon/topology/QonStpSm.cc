#include "Qon/include/topology/QonStpSm.h"

#include "Qon/include/framework/HookTap.h"
#include "Qon/topology/StpTrace.h"
#include "platform/Kiv/Describe.h"
#include "platform/Velto/Scope.h"

KIV_DEFINE( Qon::MappedVlan )
KIV_DEFINE( Qon::PendingStpStateTopo )
KIV_DEFINE( Qon::IntfSet::IntfInfo )
KIV_DEFINE( Qon::IntfSet )
KIV_DEFINE( Qon::StpSm )

namespace Qon {

using Bridging::VlanId;

Flintlog::Facility stpFacility( "QonStpSm" );

class StpSm::TopoIdSm : public QonBaseSm {
 public:
   TopoIdSm( StpSm * stpSm, const String & name, const TopoIdInput & input )
       : stpSm_( stpSm ), name_( name ) {
      configWatch_.attach( this, input.config.ptr() );
      statusWatch_.attach( this, input.status.ptr() );
   }
   void handleTopoId() { stpSm_->handleTopoChange( name_ ); }

 private:
   StpSm * const stpSm_;
   const String name_;
   Kiv::Watch< Bridging::Topology::TopoConfig::topoIdAttr, TopoIdSm, &TopoIdSm::handleTopoId >
         configWatch_;
   Kiv::Watch< Bridging::Topology::Inst::TopoStatus::topoIdAttr, TopoIdSm, &TopoIdSm::handleTopoId >
         statusWatch_;
};

StpSm::StpSm( Velto::Ptr< QonCommonSmData > acsd,
              Velto::Ptr< const Bridging::Topology::Config > config,
              Velto::Ptr< Bridging::Topology::Inst::Status > status,
              Velto::Ptr< TopoHelper > topoHelper )
    : config_( std::move( config ) ), status_( std::move( status ) ),
      topoHelper_( std::move( topoHelper ) ), acsd_( std::move( acsd ) ), topoIdSm_( this ),
      topoSm_( this ) {}

StpSm::~StpSm() = default;

void
StpSm::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   topoIdSm_.kivDoZombieReactors();
   topoSm_.kivDoZombieReactors();
   if ( tapAggIntfSm_ ) {
      tapAggIntfSm_->kivDoZombieReactors();
   }
   if ( topoHelper()->stpSm() == this ) {
      topoHelper()->stpSmIs( nullptr );
   }
}

void
StpSm::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   const Velto::Hold alive( this );
   topoHelper()->stpSmIs( this );
   const bool resumed = started_;
   // Interfaces in tap or tool mode come first: for their ports nothing is handed over.
   Velto::FirstError error;
   if ( resumed ) {
      error.run( [&] { tapAggIntfSm_->handleTapAgg(); } );
   } else {
      start();
   }
   error.run( [&] { handleTopoChange(); } );
   if ( resumed ) {
      forEachTopo( [&]( const String &, TopoSm & topo ) { error.run( [&] { topo.refresh(); } ); } );
   }
   error.run( [&] { handleVidToTopoMap(); } );
   error.run( [&] { handleOperationalMode(); } );
   error.run( [&] { handleBpduTrapping(); } );
   if ( initialized() ) {
      verifyDataIs( acsd_->verifyData() );
      verifyCheck_.attach< &StpSm::handleVerify >( verifyData(), "QonStpSm", this );
   }
   error.pass();
}

void
StpSm::start() {
   QON_HOOK( TopoHelper, topoHelper(), hwInit );
   if ( !initialized() ) {
      return; // cleaned up from within
   }
   started_ = true;
   tapAggIntfIs( "tapAggIntf" );
   tapAggIntfSm_ = smIs< TapAggIntfSm >( this );
   tapAggIntfSm_->initializedIs( true );
   for ( auto && [vlan, name] : config()->vidToTopoMapIteratorConst() ) {
      if ( !name.empty() ) {
         vlanToTopoSmMapIs( vlan, name );
         topoToVlanMapIs( name )->vlanIs( vlan, true );
      }
   }
   attach();
}

void
StpSm::attach() {
   topoConfigWatch_.attach( this, config() );
   topoStatusWatch_.attach( this, status() );
   vidToTopoWatch_.attach( this, config() );
   bpduWatch_.attach( this, config() );
   pvstBpduWatch_.attach( this, config() );
   reactAcsd_.attach( this, acsd() );
   tapAggConfigWatch_.attach( this, acsd() );
   tapAggIdWatch_.attach( this, acsd_->tapAggHwConfig() );
   tapAggNameWatch_.attach( this, acsd_->tapAggHwConfig() );
   lagFollower_.attach( this, acsd() );
}

void
StpSm::detach() {
   topoConfigWatch_.detach();
   topoStatusWatch_.detach();
   vidToTopoWatch_.detach();
   bpduWatch_.detach();
   pvstBpduWatch_.detach();
   reactAcsd_.detach();
   tapAggConfigWatch_.detach();
   tapAggIdWatch_.detach();
   tapAggNameWatch_.detach();
   lagFollower_.attach( this, nullptr );
   verifyCheck_.attach( nullptr, "", nullptr, nullptr );
}

// --- Topologies ----------------------------------------------------------------------------------

Velto::Ptr< StpSm::TopoIdSm >
StpSm::makeTopoId( const String & name, const TopoIdInput & input ) {
   return smIs< TopoIdSm >( this, name, input );
}

void
StpSm::cleanUpTopoId( const String &, TopoIdSm * ) {}

Velto::Ptr< TopoSm >
StpSm::makeTopo( const String & name, const TopoInput & input ) {
   const auto mapped = topoToVlanMap( name );
   STP_TRACE( "handleTopoChange creating topo ", name, " with mapped vlan ",
              mapped ? mapped->vlans() : 0 );
   return smIs< TopoSm >( name, input, this );
}

void
StpSm::cleanUpTopo( const String & name, TopoSm * topoSm ) {
   STP_TRACE( "handleTopoChange deleting topo ", name );
   portsChanged();
   topoSm->doCleanup();
}

/** What holds of the name now: a report that finds another topology than its own is nobody's. */
StpSm::TopoInput
StpSm::topoInput( const String & name ) const {
   const Velto::Ptr< const Bridging::Topology::TopoConfig > topoConfig(
         config()->topoConfig( name ) );
   const Velto::Ptr< Bridging::Topology::Inst::TopoStatus > topoStatus(
         status()->topoStatus( name ) );
   if ( !topoConfig || !topoStatus || topoConfig->topoId() != topoStatus->topoId() ) {
      return {};
   }
   return { topoConfig, topoStatus, topoConfig->topoId() };
}

void
StpSm::topoInUse( const String & name ) {
   if ( ++topoUsers_.emplace( name ).first->users > 1 ) {
      return;
   }
   if ( !QON_HOOK( TopoHelper, topoHelper(), allocTopo, name ) ) {
      STP_TRACE( "handleInitialized no room for topo ", name );
      if ( auto use = topoUsers_.find( name ) ) { // unless the hook gave it up again
         use->noRoomSince = Kiv::now();
      }
   }
}

void
StpSm::topoNotInUse( const String & name ) {
   if ( auto use = topoUsers_.find( name ); !use || --use->users ) {
      return;
   }
   topoUsers_.erase( name );
   if ( auto mapped = topoToVlanMap( name ) ) {
      for ( auto && [vlan, present] : mapped->vlanIteratorConst() ) {
         addedVlan_.erase( vlan );
      }
   }
   QON_HOOK( TopoHelper, topoHelper(), freeTopo, name );
}

void
StpSm::handleTopoChange( const String & name ) {
   if ( !initialized() ) {
      return;
   }
   const Velto::Hold alive( this );
   Velto::FirstError error;
   error.run( [&] {
      topoIdSm_.review( name, { config()->topoConfig( name ), status()->topoStatus( name ) } );
   } );
   error.run( [&] { topoSm_.review( name, topoInput( name ) ); } );
   error.run( [&] { requestVerify(); } );
   error.pass();
}

void
StpSm::handleTopoChange() {
   const Velto::Hold alive( this );
   auto names = keysOf< String >( config()->topoConfigIteratorConst() );
   for ( auto && [name, topoStatus] : status()->topoStatusIteratorConst() ) {
      names.emplace( name );
   }
   for ( const String & name : topoIdSm_.heldKeys() ) {
      names.emplace( name );
   }
   Velto::FirstError error;
   for ( auto && entry : names ) {
      error.run( [&] { handleTopoChange( entry.key ); } );
   }
   error.pass();
}

void
StpSm::topoIdIs( U32 topoId, TopoSm * topoSm ) {
   topoById_.emplace( topoId ).first->push_back( topoSm );
}

void
StpSm::topoIdDel( U32 topoId, TopoSm * topoSm ) {
   if ( auto topos = topoById_.find( topoId ) ) {
      std::erase( *topos, topoSm );
      if ( topos->empty() ) {
         topoById_.erase( topoId );
      }
   }
}

void
StpSm::setStpStateDoneTopoName( const String & name ) {
   const Velto::Hold alive( this );
   if ( auto topo = topoSm( name ) ) {
      topo->stateDone();
   }
}

void
StpSm::setStpStateDoneTopoId( U32 topoId ) {
   const Velto::Hold alive( this );
   auto topos = topoById_.find( topoId );
   if ( !topos ) {
      return;
   }
   if ( topos->size() == 1 ) {
      topos->front()->stateDone();
      return;
   }
   std::vector< String > names;
   for ( TopoSm * topo : *topos ) {
      names.push_back( topo->name() );
   }
   Velto::FirstError error;
   for ( const String & name : names ) {
      error.run( [&] { setStpStateDoneTopoName( name ); } );
   }
   error.pass();
}

/** Tells every topology, and then the tap-aggregation topology's interfaces. */
template< class Tell >
void
StpSm::membershipChanged( Tell && tell ) {
   portsChanged();
   Velto::FirstError error;
   forEachTopo( [&]( const String &, TopoSm & topo ) { error.run( [&] { tell( topo ); } ); } );
   if ( initialized() ) {
      error.run( [&] { tapAggIntfSm_->settle(); } );
   }
   error.pass();
}

void
StpSm::handleLag( Ulnet::IntfId port, Ulnet::IntfId from, Ulnet::IntfId ) {
   if ( !initialized() ) {
      return;
   }
   const Velto::Hold alive( this );
   membershipChanged( [&]( TopoSm & topo ) { topo.handlePortToLag( port, from ); } );
}

void
StpSm::handleLagList( Ulnet::IntfId lag, Ulnet::IntfId port ) {
   if ( !initialized() ) {
      return;
   }
   const Velto::Hold alive( this );
   membershipChanged( [&]( TopoSm & topo ) { topo.handleLagToPort( lag, port ); } );
}

// --- VLANs ---------------------------------------------------------------------------------------

/** The topology in which the VLAN belongs; empty for none. */
String
StpSm::wantedTopo( VlanId vlan ) const {
   const String & named = config()->vidToTopoMap( vlan );
   return named.empty() ? tapAggTopoName() : named;
}

void
StpSm::handleVidToTopoMap( const VlanId & vlan ) {
   if ( !initialized() ) {
      return;
   }
   const Velto::Hold alive( this );
   const String held = vlanToTopoSmMap( vlan );
   Velto::FirstError error;
   if ( !held.empty() && held != wantedTopo( vlan ) ) {
      if ( held == tapAggTopoName() ) {
         STP_TRACE( "vlan was in TapAggTopo. take it out first" );
      }
      error.run( [&] { takeOut( vlan, held ); } );
   }
   const String wanted = wantedTopo( vlan );
   if ( initialized() && !wanted.empty() ) {
      error.run( [&] { putIn( vlan, wanted ); } );
   }
   error.run( [&] { requestVerify(); } );
   error.pass();
}

void
StpSm::handleVidToTopoMap() {
   const Velto::Hold alive( this );
   auto vlans = keysOf< VlanId >( config()->vidToTopoMapIteratorConst() );
   for ( auto && [vlan, name] : vlanToTopoSmMapIteratorConst() ) {
      vlans.emplace( VlanId( vlan ) );
   }
   Velto::FirstError error;
   for ( auto && entry : vlans ) {
      error.run( [&] { handleVidToTopoMap( entry.key ); } );
   }
   error.pass();
}

void
StpSm::takeOut( VlanId vlan, const String & topoName ) {
   vlanToTopoSmMapDel( vlan );
   if ( auto mapped = topoToVlanMap( topoName ) ) {
      mapped->vlanDel( vlan );
      if ( mapped->vlans() == 0 ) {
         topoToVlanMapDel( topoName );
      }
   }
   addedVlan_.erase( vlan );
   QON_HOOK( TopoHelper, topoHelper(), delVlanFromTopo, topoName, vlan );
}

void
StpSm::putIn( VlanId vlan, const String & topoName ) {
   if ( vlanToTopoSmMap( vlan ) != topoName ) {
      vlanToTopoSmMapIs( vlan, topoName );
      topoToVlanMapIs( topoName )->vlanIs( vlan, true );
   }
   if ( !topoUsers_.has( topoName ) ) {
      STP_TRACE( "topoSm not yet present for topology ", topoName );
      return;
   }
   if ( addedVlan_.emplace( U16( vlan ) ).second ) {
      if ( topoName == tapAggTopoName() ) {
         STP_TRACE( "in TapAgg mode, placing vlan without topo in TapAggTopo" );
      }
      QON_HOOK( TopoHelper, topoHelper(), addVlanToTopo, topoName, vlan );
   }
}

// --- Operational mode ----------------------------------------------------------------------------

void
StpSm::handleOperationalMode() {
   if ( !initialized() ) {
      STP_TRACE( "not initialized. return" );
      return;
   }
   if ( acsd_->operationalMode() == currentHwOperationalMode() ) {
      STP_TRACE( "handleOperationalMode nothing to do " ); // fixed text
   }
   settleMode();
}

/** Carries out one change after the other until mode and tap-aggregation topology are those that
    are wanted; what hooks change meanwhile waits for its turn. */
void
StpSm::settleMode() {
   if ( settlingMode_ ) {
      return;
   }
   const Velto::Hold alive( this );
   settlingMode_ = true;
   const Velto::AtEnd settled( [this] { settlingMode_ = false; } );
   while ( initialized() && stepMode() ) {
   }
}

bool
StpSm::stepMode() {
   const HwOperationalMode mode = acsd_->operationalMode();
   if ( mode != currentHwOperationalMode() ) {
      modeIs( mode );
      return true;
   }
   if ( mode != HwOperationalMode::tapAgg ) {
      if ( !tapAggTopo_ && !tapAggIntfSm_->active() ) {
         return false;
      }
      cleanupTapAgg(); // left behind by a change that was not carried out to its end
      return true;
   }
   if ( tapAggIntfSm_->hwConfig() != acsd_->tapAggHwConfig() ) {
      tapAggIntfSm_->handleTapAgg();
      return true;
   }
   const TapAggTopo wanted = configuredTapAgg();
   if ( wanted && wanted != tapAggTopo_ ) {
      enterTapAgg( wanted );
      return true;
   }
   return false;
}

void
StpSm::modeIs( HwOperationalMode mode ) {
   const bool leaves = currentHwOperationalMode() == HwOperationalMode::tapAgg;
   if ( mode == HwOperationalMode::tapAgg ) {
      const Velto::Ptr< const TapAgg::HwConfig > tapAggHwConfig( acsd_->tapAggHwConfig() );
      VELTO_ASSERT( tapAggHwConfig );                     // fixed text
      VELTO_ASSERT( tapAggHwConfig->tapAggTopoId() > 0 ); // fixed text
      VELTO_ASSERT( !tapAggHwConfig->tapAggTopoName().empty() );
      enterTapAgg( configuredTapAgg() );
   } else if ( leaves ) {
      cleanupTapAgg();
   }
   if ( !initialized() ) {
      return;
   }
   currentHwOperationalModeIs( mode );
   if ( leaves ) {
      STP_TRACE( "configure regular topo stuff" );
      handleTopoChange();
      handleVidToTopoMap();
   }
   handleBpduTrapping();
}

/** Nothing where the settings are not complete. */
StpSm::TapAggTopo
StpSm::configuredTapAgg() const {
   auto hwConfig = acsd_->tapAggHwConfig();
   return hwConfig && hwConfig->tapAggTopoId()
                ? TapAggTopo{ hwConfig->tapAggTopoName(), hwConfig->tapAggTopoId() }
                : TapAggTopo();
}

/** From the tap-aggregation topology that was in use, if any, to this one. */
void
StpSm::enterTapAgg( const TapAggTopo & wanted ) {
   const TapAggTopo former = std::exchange( tapAggTopo_, wanted );
   portsChanged();
   tapAggIntfSm_->toldDel();
   if ( former.name != wanted.name ) {
      topoInUse( wanted.name );
      if ( former ) {
         leaveTapAggTopo( former.name );
         topoNotInUse( former.name );
      }
   }
   STP_TRACE( "configure all vlan into TapAggTopo" );
   for ( U32 vlan = 1; vlan <= 4094 && tapAggTopo_ == wanted; ++vlan ) {
      if ( !vlanToTopoSmMapHas( U16( vlan ) ) ) {
         STP_TRACE( vlan, " is not in a topo. Add to TapAggTopo" );
         putIn( VlanId( vlan ), wanted.name );
      } else if ( vlanToTopoSmMap( U16( vlan ) ) == wanted.name ) {
         putIn( VlanId( vlan ), wanted.name );
      }
   }
   if ( tapAggTopo_ == wanted ) {
      tapAggIntfSm_->handleTapAgg();
   }
}

void
StpSm::followTapAggConfig() {
   tapAggIdWatch_.attach( this, acsd_->tapAggHwConfig() );
   tapAggNameWatch_.attach( this, acsd_->tapAggHwConfig() );
   handleTapAggConfig();
}

/** Interfaces, name and id of the tap-aggregation topology, while one is in use. */
void
StpSm::handleTapAggConfig() {
   if ( !initialized() || settlingMode_ ) {
      return; // taken up by whoever settles
   }
   if ( currentHwOperationalMode() == HwOperationalMode::tapAgg ) {
      const Velto::Hold alive( this );
      tapAggIntfSm_->handleTapAgg();
      settleMode();
   }
}

void
StpSm::handleBpduTrapping() {
   if ( !initialized() ) {
      return;
   }
   const Velto::Hold alive( this );
   if ( acsd_->operationalMode() == HwOperationalMode::tapAgg ) {
      QON_HOOK( StpSm, this, configureBpduTrapping, false, false );
   } else {
      QON_HOOK( StpSm, this, configureBpduTrapping, config()->bpduTrapEnabled(),
                config()->pvstBpduTrapEnabled() );
   }
}

void
StpSm::configureBpduTrapping( bool, bool ) {
   // The report names the handler, as those who search for it expect.
   qonAssert( unimplementedFunction( "StpSm::handleBpduTrapping" ) ); // fixed text
}

// --- Verification, clean-up ----------------------------------------------------------------------

void
StpSm::requestVerify() {
   if ( auto data = acsd_->verifyData() ) {
      data->doRequestVerify();
   }
}

void
StpSm::handleVerify() {
   const Velto::Hold alive( this );
   QON_HOOK( StpSm, this, verify );
}

void
StpSm::verify() {
   QON_HOOK( TopoHelper, topoHelper(), verify );
}

void
StpSm::doCleanup() {
   const Velto::Hold alive( this );
   if ( !std::exchange( started_, false ) ) {
      initializedIs( false );
      return;
   }
   detach();
   Velto::FirstError error;
   if ( tapAggTopo_ || tapAggIntfSm_->active() ) {
      error.run( [&] { cleanupTapAgg(); } );
   }
   STP_TRACE( "cleanup regular topo stuff" );
   error.run( [&] { topoSm_.removeAll(); } );
   error.run( [&] { topoIdSm_.removeAll(); } );
   vlanToTopoSmMapDelAll();
   topoToVlanMapDelAll();
   error.run( [&] { pendingStpStateTopoDelAll(); } );
   addedVlan_.clear();
   tapAggIntfSm_ = nullptr;
   currentHwOperationalModeIs( HwOperationalMode::switching );
   initializedIs( false );
   error.pass();
}

Velto::Ptr< StpSm >
StpSmIs( Velto::Ptr< QonCommonSmData > acsd, Velto::Ptr< const Bridging::Topology::Config > config,
         Velto::Ptr< Bridging::Topology::Inst::Status > status,
         Velto::Ptr< TopoHelper > topoHelper ) {
   return smIs< StpSm >( std::move( acsd ), std::move( config ), std::move( status ),
                         std::move( topoHelper ) );
}

} // namespace Qon
