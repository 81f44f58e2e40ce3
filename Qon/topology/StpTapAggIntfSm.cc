#include "Qon/include/topology/QonStpSm.h"

#include "Qon/include/framework/HookTap.h"

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
   return !stpSm_->tapAggTopoName().empty() && hwConfig_ &&
          ( hwConfig_->tapIntf( intf ) || hwConfig_->toolIntf( intf ) );
}

void
StpSm::TapAggIntfSm::handleTapAgg() {
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
}

void
StpSm::TapAggIntfSm::handleIntf( const IntfId & intf ) {
   IntfSet * set = stpSm_->tapAggIntf();
   const bool held = set->intfInfoHas( intf );
   if ( wanted( intf ) == held ) {
      return;
   }
   if ( held ) {
      set->intfInfoDel( intf );
   } else {
      set->intfInfoIs( intf, Ulnet::PortChannelIntfId::isPortChannelIntfId( intf ) );
   }
   if ( !stpSm_->lagView().lagOf( intf ) ) { // a member carries its aggregate's state
      setState( intf, held ? PortState::discarding : PortState::forwarding );
   }
}

void
StpSm::TapAggIntfSm::handleLag( IntfId port, IntfId from, IntfId to ) {
   const IntfSet * set = stpSm_->tapAggIntf();
   const bool forwarded = set->intfInfoHas( from ? from : port );
   const bool forwards = set->intfInfoHas( to ? to : port );
   if ( forwards != forwarded ) {
      setState( port, forwards ? PortState::forwarding : PortState::discarding );
   }
   if ( from && stpSm_->lagView().membersOf( from ).empty() ) {
      setState( from, set->intfInfoHas( from ) ? PortState::forwarding : PortState::discarding );
   }
}

/** Sets the state of an interface in the tap-aggregation topology, of an aggregate through its
    members. */
void
StpSm::TapAggIntfSm::setState( IntfId intf, PortState state ) {
   stpSm_->lagView().forEachTarget( intf, EmptyAggregate::itself, [&]( IntfId target ) {
      if ( !stpSm_->tapAggTopoName().empty() ) {
         QON_HOOK( TopoHelper, stpSm_->topoHelper(), setStpState, S32( stpSm_->tapAggTopoId() ),
                   stpSm_->tapAggTopoName(), target, state );
      }
   } );
}

void
StpSm::TapAggIntfSm::doCleanup() {
   tapWatch_.detach();
   toolWatch_.detach();
   IntfSet * set = stpSm_->tapAggIntf();
   for ( auto && entry : keysOf< IntfId >( set->intfInfoIteratorConst() ) ) {
      set->intfInfoDel( entry.key );
   }
}

} // namespace Qon
