#include "Qon/include/topology/QonStpSm.h"

#include "Qon/include/framework/HookTap.h"
#include "Qon/topology/StpTrace.h"
#include "platform/Kiv/Describe.h"
#include "platform/Velto/Scope.h"

KIV_DEFINE( Qon::TopoPortSm )

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
    : intf_( intf ), config_( std::move( config ) ),
      topoHelper_( Velto::Ptr< TopoHelper >( topoSm->topoHelper() ) ), topoId_( topoSm->topoId() ),
      isLag_( Ulnet::PortChannelIntfId::isPortChannelIntfId( intf ) ), topoSm_( topoSm ) {}

IntfSet *
TopoPortSm::tapAggIntf() const {
   return topoSm_->stpSm()->tapAggIntf();
}

void
TopoPortSm::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   Velto::FirstError error;
   error.run( [&] { topoSm_->status()->topoPortStatusIs( intf_ ); } );
   status_ = topoSm_->status()->topoPortStatusIs( intf_ ); // it is there, whoever has raised
   configWatch_.attach( this, config_.ptr(), handleConfig, this );
   error.run( [&] { handleState(); } );
   error.run( [&] { handleFdbFlush(); } );
   error.pass();
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
   const Velto::Hold stpAlive( topoSm_->stpSm() ), topoAlive( topoSm_ ), alive( this );
   topoSm_->stpSm()->portsChanged();
   if ( inTapOrTool() ) {
      STP_TRACE( intf_, " is in tap/tool mode so it's perma-forwarding" );
      nothingPending();
      return;
   }
   const PortState state = config_->state();
   const U64 request = topoSm_->pendingIs( intf_, state );
   if ( topoSm_->pendingRequest( intf_ ) != request ) {
      return; // a watcher came in between
   }
   bool handedOver = false;
   try {
      handedOver = doSetStpState( intf_, state );
   } catch ( ... ) {
      if ( topoSm_->pendingRequest( intf_ ) == request ) {
         topoSm_->pendingDel( intf_ ); // what was not handed over must not be taken for done
      }
      throw;
   }
   if ( !handedOver && topoSm_->pendingRequest( intf_ ) == request ) {
      nothingPending();
   }
}

/** Writes the state that counts as done without the hardware. */
void
TopoPortSm::nothingPending() {
   topoSm_->pendingDel( intf_ );
   if ( works() && !topoSm_->pendingHas( intf_ ) ) {
      stateDone( wantedState() );
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
   const Velto::Hold stpAlive( topoSm_->stpSm() ), topoAlive( topoSm_ ), alive( this );
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
   const Velto::Hold stpAlive( topoSm_->stpSm() ), topoAlive( topoSm_ ), alive( this );
   TopoHelper * helper = topoHelper();
   const U32 flush = ++flushes_;
   if ( !helper->pvst() ) {
      QON_HOOK( TopoHelper, helper, flushTopoPort, topoId(), intf_ );
   } else if ( Velto::Ptr< MappedVlan > vlans =
                     topoSm_->stpSm()->topoToVlanMap( topoSm_->name() ) ) {
      QON_TELL_HOOK( TopoHelper, flushTopoPortVlan, vlans->name(), vlansText( *vlans ), intf_ );
      helper->flushTopoPortVlan( *vlans, intf_ );
   } else {
      STP_TRACE( topoSm_->name(), ": no mappedVlan" );
   }
   if ( works() && flushes_ == flush ) { // else a later flush was asked for inside, and reported
      status_->fdbFlushReportIs( request );
   }
}

void
TopoPortSm::doCleanup() {
   configWatch_.detach();
   topoSm_->pendingDel( intf_ );
}

} // namespace Qon
