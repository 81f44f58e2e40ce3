#include "Qon/include/topology/QonStpSm.h"

#include "Qon/include/framework/HookTap.h"
#include "Qon/topology/StpTrace.h"
#include "platform/Kiv/Describe.h"

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
   topoHelper()->stpSmIs( this );
   QON_HOOK( TopoHelper, topoHelper(), hwInit );
   tapAggIntfIs( "tapAggIntf" );
   tapAggIntfSm_ = smIs< TapAggIntfSm >( this );
   for ( auto && [vlan, name] : config()->vidToTopoMapIteratorConst() ) {
      if ( !name.empty() ) {
         vlanToTopoSmMapIs( vlan, name );
         topoToVlanMapIs( name )->vlanIs( vlan, true );
      }
   }
   attach();
   tapAggIntfSm_->initializedIs( true );
   handleTopoChange();
   handleVidToTopoMap();
   handleOperationalMode();
   handleBpduTrapping();
   verifyDataIs( acsd_->verifyData() );
   verifyCheck_.attach< &StpSm::handleVerify >( verifyData(), "QonStpSm", this );
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
   followTapAggConfig();
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
   topoSm->doCleanup();
   if ( auto mapped = topoToVlanMap( name ) ) {
      for ( auto && [vlan, present] : mapped->vlanIteratorConst() ) {
         addedVlan_.erase( vlan );
      }
   }
}

void
StpSm::handleTopoChange( const String & name ) {
   if ( !initialized() ) {
      return;
   }
   const TopoIdInput entities{ config()->topoConfig( name ), status()->topoStatus( name ) };
   topoIdSm_.review( name, entities );
   TopoInput input;
   if ( entities.config && entities.status &&
        entities.config->topoId() == entities.status->topoId() ) {
      input = { entities.config, status()->topoStatus( name ), entities.config->topoId() };
   }
   topoSm_.review( name, input );
   requestVerify();
}

void
StpSm::handleTopoChange() {
   auto names = keysOf< String >( config()->topoConfigIteratorConst() );
   for ( auto && [name, topoStatus] : status()->topoStatusIteratorConst() ) {
      names.emplace( name );
   }
   for ( const String & name : topoIdSm_.heldKeys() ) {
      names.emplace( name );
   }
   for ( auto && entry : names ) {
      handleTopoChange( entry.key );
   }
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
   if ( auto topo = topoSm( name ) ) {
      topo->stateDone();
   }
}

void
StpSm::setStpStateDoneTopoId( U32 topoId ) {
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
   for ( const String & name : names ) {
      setStpStateDoneTopoName( name );
   }
}

void
StpSm::handleLag( Ulnet::IntfId port, Ulnet::IntfId from, Ulnet::IntfId to ) {
   if ( !initialized() ) {
      return;
   }
   forEachTopo( [&]( const String &, TopoSm & topo ) { topo.handlePortToLag( port, from ); } );
   tapAggIntfSm_->handleLag( port, from, to );
}

// --- VLANs ---------------------------------------------------------------------------------------

/** The topology in which the VLAN belongs; empty for none. */
String
StpSm::wantedTopo( VlanId vlan ) const {
   const String & named = config()->vidToTopoMap( vlan );
   return named.empty() ? tapAggTopoName_ : named;
}

void
StpSm::handleVidToTopoMap( const VlanId & vlan ) {
   if ( !initialized() ) {
      return;
   }
   const String held = vlanToTopoSmMap( vlan );
   if ( !held.empty() && held != wantedTopo( vlan ) ) {
      if ( held == tapAggTopoName_ ) {
         STP_TRACE( "vlan was in TapAggTopo. take it out first" );
      }
      takeOut( vlan, held );
   }
   const String wanted = wantedTopo( vlan );
   if ( !wanted.empty() ) {
      putIn( vlan, wanted );
   }
   requestVerify();
}

void
StpSm::handleVidToTopoMap() {
   auto vlans = keysOf< VlanId >( config()->vidToTopoMapIteratorConst() );
   for ( auto && [vlan, name] : vlanToTopoSmMapIteratorConst() ) {
      vlans.emplace( VlanId( vlan ) );
   }
   for ( auto && entry : vlans ) {
      handleVidToTopoMap( entry.key );
   }
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
   const bool fresh = vlanToTopoSmMap( vlan ) != topoName;
   if ( fresh ) {
      vlanToTopoSmMapIs( vlan, topoName );
      topoToVlanMapIs( topoName )->vlanIs( vlan, true );
   }
   if ( topoSm( topoName ) ) {
      if ( addedVlan_.emplace( U16( vlan ) ).second ) {
         QON_HOOK( TopoHelper, topoHelper(), addVlanToTopo, topoName, vlan );
      }
   } else if ( topoName == tapAggTopoName_ ) {
      if ( fresh ) {
         STP_TRACE( "in TapAgg mode, placing vlan without topo in TapAggTopo" );
         QON_HOOK( TopoHelper, topoHelper(), addVlanToTopo, topoName, vlan );
      }
   } else {
      STP_TRACE( "topoSm not yet present for topology ", topoName );
   }
}

// --- Operational mode ----------------------------------------------------------------------------

void
StpSm::handleOperationalMode() {
   if ( !initialized() ) {
      STP_TRACE( "not initialized. return" );
      return;
   }
   const HwOperationalMode mode = acsd_->operationalMode();
   if ( mode == currentHwOperationalMode() ) {
      STP_TRACE( "handleOperationalMode nothing to do " ); // fixed text
      return;
   }
   if ( mode == HwOperationalMode::tapAgg ) {
      enterTapAgg();
      currentHwOperationalModeIs( mode );
   } else if ( currentHwOperationalMode() == HwOperationalMode::tapAgg ) {
      cleanupTapAgg();
      currentHwOperationalModeIs( mode );
      STP_TRACE( "configure regular topo stuff" );
      handleTopoChange();
      handleVidToTopoMap();
   } else {
      currentHwOperationalModeIs( mode );
   }
   handleBpduTrapping();
}

void
StpSm::enterTapAgg() {
   const Velto::Ptr< const TapAgg::HwConfig > tapAggHwConfig( acsd_->tapAggHwConfig() );
   VELTO_ASSERT( tapAggHwConfig );                     // fixed text
   VELTO_ASSERT( tapAggHwConfig->tapAggTopoId() > 0 ); // fixed text
   tapAggTopoName_ = tapAggHwConfig->tapAggTopoName();
   tapAggTopoId_ = tapAggHwConfig->tapAggTopoId();
   if ( !topoSm( tapAggTopoName_ ) ) {
      QON_HOOK( TopoHelper, topoHelper(), allocTopo, tapAggTopoName_ );
   }
   STP_TRACE( "configure all vlan into TapAggTopo" );
   for ( U32 vlan = 1; vlan <= 4094; ++vlan ) {
      if ( !vlanToTopoSmMapHas( U16( vlan ) ) ) {
         STP_TRACE( vlan, " is not in a topo. Add to TapAggTopo" );
         putIn( VlanId( vlan ), tapAggTopoName_ );
      }
   }
   tapAggIntfSm_->handleTapAgg();
}

void
StpSm::cleanupTapAgg() {
   STP_TRACE( "cleanup tapagg stuff" );
   const String name = std::exchange( tapAggTopoName_, String() );
   tapAggTopoId_ = 0;
   if ( auto mapped = topoToVlanMap( name ) ) {
      for ( auto && entry : keysOf< VlanId >( mapped->vlanIteratorConst() ) ) {
         if ( config()->vidToTopoMap( entry.key ) != name ) {
            STP_TRACE( "Deleting from TapAggTopo" );
            takeOut( entry.key, name );
         }
      }
   }
   tapAggIntfSm_->doCleanup();
   VELTO_ASSERT( !tapAggIntf()->intfInfos() ); // fixed text
   if ( !topoSm( name ) ) {
      QON_HOOK( TopoHelper, topoHelper(), freeTopo, name );
   }
}

void
StpSm::followTapAggConfig() {
   tapAggIdWatch_.attach( this, acsd_->tapAggHwConfig() );
   tapAggNameWatch_.attach( this, acsd_->tapAggHwConfig() );
   handleTapAggConfig();
}

/** Moves to another tap-aggregation topology while one is in use. */
void
StpSm::handleTapAggConfig() {
   const auto wanted = acsd_->tapAggHwConfig();
   if ( !initialized() || currentHwOperationalMode() != HwOperationalMode::tapAgg || !wanted ||
        wanted->tapAggTopoId() == 0 ) {
      return;
   }
   if ( wanted->tapAggTopoId() == tapAggTopoId_ && wanted->tapAggTopoName() == tapAggTopoName_ ) {
      tapAggIntfSm_->handleTapAgg();
      return;
   }
   cleanupTapAgg();
   enterTapAgg();
}

void
StpSm::handleBpduTrapping() {
   if ( !initialized() ) {
      return;
   }
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
   QON_HOOK( StpSm, this, verify );
}

void
StpSm::verify() {
   QON_HOOK( TopoHelper, topoHelper(), verify );
}

void
StpSm::doCleanup() {
   detach();
   if ( tapAggIntfSm_ && !tapAggTopoName_.empty() ) {
      cleanupTapAgg();
   }
   STP_TRACE( "cleanup regular topo stuff" );
   topoSm_.removeAll();
   topoIdSm_.removeAll();
   vlanToTopoSmMapDelAll();
   topoToVlanMapDelAll();
   pendingStpStateTopoDelAll();
   tapAggIntfSm_ = nullptr;
   currentHwOperationalModeIs( HwOperationalMode::switching );
   initializedIs( false );
}

Velto::Ptr< StpSm >
StpSmIs( Velto::Ptr< QonCommonSmData > acsd, Velto::Ptr< const Bridging::Topology::Config > config,
         Velto::Ptr< Bridging::Topology::Inst::Status > status,
         Velto::Ptr< TopoHelper > topoHelper ) {
   return smIs< StpSm >( std::move( acsd ), std::move( config ), std::move( status ),
                         std::move( topoHelper ) );
}

} // namespace Qon
