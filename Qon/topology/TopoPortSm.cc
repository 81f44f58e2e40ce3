#include "Qon/include/topology/QonStpSm.h"

#include "Qon/include/framework/HookTap.h"
#include "Qon/topology/StpTrace.h"

namespace Qon {

namespace {

/** "{1 20 4094}" */
String
vlansText( const MappedVlan & vlans ) {
   String text;
   for ( auto && [vlan, present] : vlans.vlanIteratorConst() ) {
      text += ( text.empty() ? "" : " " ) + vlan.stringValue();
   }
   return "{" + text + "}";
}

} // namespace

TopoPortSm::TopoPortSm( Ulnet::IntfId intf, Velto::Ptr< const Config > config, TopoSm * topoSm )
    : intf_( intf ), topoSm_( topoSm ), config_( std::move( config ) ) {}

TopoHelper *
TopoPortSm::topoHelper() const {
   return topoSm_->topoHelper();
}

U32
TopoPortSm::topoId() const {
   return topoSm_->topoId();
}

IntfSet *
TopoPortSm::tapAggIntf() const {
   return topoSm_->stpSm()->tapAggIntf();
}

void
TopoPortSm::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   status_ = topoSm_->status()->topoPortStatusIs( intf_ );
   configWatch_.attach( this, config_.ptr(), handleConfig, this );
   handleState();
   handleFdbFlush();
}

void
TopoPortSm::handleConfig( void * self, const Kiv::Entity &, int attribute, const void * ) {
   auto port = static_cast< TopoPortSm * >( self );
   switch ( attribute ) {
   case Config::stateAttr::index:
      port->handleState();
      break;
   case Config::changeInfoAttr::index:
      port->handleChangeInfo();
      break;
   case Config::fdbFlushAttr::index:
      port->handleFdbFlush();
      break;
   default:
      break;
   }
}

void
TopoPortSm::handleState() {
   if ( !works() ) {
      return;
   }
   if ( inTapOrTool() ) {
      STP_TRACE( intf_, " is in tap/tool mode so it's perma-forwarding" );
      topoSm_->pendingDel( intf_ );
      stateDone( PortState::forwarding );
      return;
   }
   const PortState state = config_->state();
   topoSm_->pendingIs( intf_, state );
   if ( !doSetStpState( intf_, state ) ) {
      topoSm_->pendingDel( intf_ );
      stateDone( state );
   }
}

void
TopoPortSm::handleChangeInfo() {
   if ( works() && !topoSm_->pendingHas( intf_ ) && status_->state() == wantedState() ) {
      ++writes_;
      status_->changeInfoIs( config_->changeInfo() );
   }
}

bool
TopoPortSm::doSetStpState( Ulnet::IntfId intf, PortState state ) {
   return topoSm_->doSetStpState( intf, isLag(), intf, state );
}

void
TopoPortSm::stateDone( PortState state ) {
   const Velto::Ptr< TopoPortSm > keep( this );
   const auto info = config_->changeInfo();
   const U32 write = ++writes_;
   status_->stateIs( state );
   if ( writes_ == write ) {
      status_->changeInfoIs( info );
   }
}

void
TopoPortSm::handleFdbFlush() {
   if ( !works() ) {
      return;
   }
   if ( inTapOrTool() ) {
      STP_TRACE( intf_, " is in tap/tool mode. skipping " ); // fixed text
      return;
   }
   const U32 request = config_->fdbFlush();
   if ( request == status_->fdbFlushReport() ) {
      STP_TRACE( intf_, " skipping unchanged report" );
      return;
   }
   const Velto::Ptr< TopoPortSm > keep( this );
   TopoHelper * helper = topoHelper();
   if ( !helper->pvst() ) {
      QON_HOOK( TopoHelper, helper, flushTopoPort, topoId(), intf_ );
   } else if ( Velto::Ptr< MappedVlan > vlans =
                     topoSm_->stpSm()->topoToVlanMap( topoSm_->name() ) ) {
      QON_TELL_HOOK( TopoHelper, flushTopoPortVlan, vlans->name(), vlansText( *vlans ), intf_ );
      helper->flushTopoPortVlan( *vlans, intf_ );
   } else {
      STP_TRACE( topoSm_->name(), ": no mappedVlan" );
   }
   status_->fdbFlushReportIs( request );
}

void
TopoPortSm::doCleanup() {
   configWatch_.detach();
   topoSm_->pendingDel( intf_ );
}

} // namespace Qon
