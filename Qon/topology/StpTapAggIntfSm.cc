#include "Qon/include/framework/HookTap.h"
#include "Qon/include/topology/QonStpSm.h"
#include "platform/Velto/Scope.h"

namespace Qon {

using Bridging::Topology::PortState;
using Ulnet::IntfId;

void
StpSm::TapAggIntfSm::handleInitialized() {
   if ( initialized() ) {
      handleTapAgg();
   }
}

bool
StpSm::TapAggIntfSm::wanted( IntfId intf ) const {
   return active_ && hwConfig_ && ( hwConfig_->tapIntf( intf ) || hwConfig_->toolIntf( intf ) );
}

void
StpSm::TapAggIntfSm::handleTapAgg() {
   const Velto::Hold stpAlive( stpSm_ ), alive( this );
   active_ = active_ || stpSm_->acsd()->operationalMode() == HwOperationalMode::tapAgg;
   hwConfig_ = stpSm_->acsd()->tapAggHwConfig();
   tapWatch_.attach( this, hwConfig_.ptr() );
   toolWatch_.attach( this, hwConfig_.ptr() );
   auto intfs = keysOf< IntfId >( stpSm_->tapAggIntf()->intfInfoIteratorConst() );
   if ( hwConfig_ ) {
      for ( auto && entry : keysOf< IntfId >( hwConfig_->tapIntfIteratorConst() ) ) {
         intfs.emplace( entry.key );
      }
      for ( auto && entry : keysOf< IntfId >( hwConfig_->toolIntfIteratorConst() ) ) {
         intfs.emplace( entry.key );
      }
   }
   for ( auto && entry : intfs ) {
      handleIntf( entry.key );
   }
   settle();
}

void
StpSm::TapAggIntfSm::handleIntf( const IntfId & intf ) {
   IntfSet * set = stpSm_->tapAggIntf();
   if ( !stpSm_->initialized() || wanted( intf ) == set->intfInfoHas( intf ) ) {
      return;
   }
   const Velto::Hold stpAlive( stpSm_ ), alive( this );
   stpSm_->portsChanged();
   if ( wanted( intf ) ) {
      set->intfInfoIs( intf, Ulnet::PortChannelIntfId::isPortChannelIntfId( intf ) );
   } else {
      set->intfInfoDel( intf );
   }
   settle();
}

/** The ports that are to forward. A member is represented by its aggregate; an aggregate that has
    lost its last member carries nothing itself. */
KeySet< IntfId >
StpSm::TapAggIntfSm::wantedTargets() {
   const LagView lags = stpSm_->lagView();
   KeySet< IntfId > targets, expanded;
   for ( auto && [intf, info] : stpSm_->tapAggIntf()->intfInfoIteratorConst() ) {
      if ( lags.lagOf( intf ) ) {
         continue;
      }
      const auto members = info->isLag() ? lags.membersOf( intf ) : std::vector< IntfId >();
      for ( IntfId member : members ) {
         targets.emplace( member );
      }
      if ( !members.empty() || expanded_.has( intf ) ) {
         expanded.emplace( intf );
      } else {
         targets.emplace( intf );
      }
   }
   expanded_ = std::move( expanded );
   return targets;
}

void
StpSm::TapAggIntfSm::settle() {
   unsettled_ = true;
   if ( settling_ || !stpSm_->tapAggTopo_ || !stpSm_->initialized() ) {
      return;
   }
   const Velto::Hold stpAlive( stpSm_ ), alive( this );
   settling_ = true;
   const Velto::AtEnd settled( [this] { settling_ = false; } );
   while ( std::exchange( unsettled_, false ) && stpSm_->tapAggTopo_ ) {
      const auto change = differenceOf< IntfId >( told_, wantedTargets() );
      for ( auto i = change.gone.begin(); i != change.gone.end() && !unsettled_; ++i ) {
         if ( stpSm_->lagView().membersOf( *i ).empty() ) {
            stateIs( *i, false );
         } else {
            told_.erase( *i ); // an aggregate that has members by now
         }
      }
      for ( auto i = change.missing.begin(); i != change.missing.end() && !unsettled_; ++i ) {
         stateIs( *i, true );
      }
   }
}

void
StpSm::TapAggIntfSm::stateIs( IntfId intf, bool forwarding ) {
   forwarding ? void( told_.emplace( intf ) ) : void( told_.erase( intf ) );
   QON_HOOK( TopoHelper, stpSm_->topoHelper(), setStpState, S32( stpSm_->tapAggTopoId() ),
             stpSm_->tapAggTopoName(), intf,
             forwarding ? PortState::forwarding : PortState::discarding );
}

void
StpSm::TapAggIntfSm::doCleanup() {
   active_ = false;
   tapWatch_.detach();
   toolWatch_.detach();
   told_.clear();
   expanded_.clear();
   IntfSet * set = stpSm_->tapAggIntf();
   Velto::FirstError error;
   for ( auto && entry : keysOf< IntfId >( set->intfInfoIteratorConst() ) ) {
      stpSm_->portsChanged();
      error.run( [&] { set->intfInfoDel( entry.key ); } );
   }
   error.pass();
}

} // namespace Qon
