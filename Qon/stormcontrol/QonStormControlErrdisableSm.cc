#include "Qon/include/stormcontrol/QonStormControlErrdisableSm.h"

#include "Qon/include/framework/QonTraceHandles.h"
#include "platform/Kiv/Time.h"

namespace Qon {

using Ulnet::IntfId;

namespace {

Flintlog::Facility errdisableFacility( "QonStormControlErrdisableSm" );

} // namespace

StormControlErrdisableIntfSm::StormControlErrdisableIntfSm( StormControlErrdisableSm * owner,
                                                            Velto::Ptr< const Status > status )
    : owner_( owner ), status_( std::move( status ) ) {}

void
StormControlErrdisableIntfSm::handleInitialized() {
   if ( initialized() ) {
      uucastWatch_.attach( this, status_.ptr() );
      broadcastWatch_.attach( this, status_.ptr() );
      multicastWatch_.attach( this, status_.ptr() );
      allWatch_.attach( this, status_.ptr() );
      comparableWatch_.attach( this, status_.ptr() );
      remember();
   }
}

void
StormControlErrdisableIntfSm::remember() {
   last_ = { status_->uucastDrop(), status_->broadcastDrop(), status_->multicastDrop(),
             status_->allDrop() };
}

void
StormControlErrdisableIntfSm::handleDropsComparable() {
   if ( status_->dropsComparable() ) {
      remember();
   }
}

void
StormControlErrdisableIntfSm::look( U32 counter, U64 now ) {
   const bool rose = now > std::exchange( last_[counter], now );
   if ( rose && status_->dropsComparable() ) {
      owner_->errdisable( status_->intfId() );
   }
}

void
StormControlErrdisableSm::handleInitialized() {
   if ( !initialized() ) {
      intfs_.rest();
      return;
   }
   statusWatch_.attach( this, in_.status.ptr() );
   intfs_.reviewAll( in_.status->intfStatusIteratorConst(), [this]( IntfId intf ) {
      return Velto::Ptr< const StormControl::IntfStatus >( in_.status->intfStatus( intf ) );
   } );
}

void
StormControlErrdisableSm::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   intfs_.kivDoZombieReactors();
}

void
StormControlErrdisableSm::handleIntfStatus( const IntfId & intf ) {
   intfs_.review( intf, in_.status->intfStatus( intf ) );
}

Velto::Ptr< StormControlErrdisableIntfSm >
StormControlErrdisableSm::makeIntfSm(
      const IntfId &, const Velto::Ptr< const StormControl::IntfStatus > & status ) {
   return smIs< StormControlErrdisableIntfSm >( this, status );
}

bool
StormControlErrdisableSm::applies( IntfId intf ) const {
   return in_.causeConfig->enabledHas( cause ) &&
          StormControl::effectiveConfig( *in_.config, LagView( in_.acsd.ptr() ), intf ).config;
}

void
StormControlErrdisableSm::errdisable( IntfId intf ) {
   if ( applies( intf ) && !in_.causeStatus->intfStatusHas( intf ) ) {
      // fixed text
      QON_TRACE( errdisableFacility, 2, "Errdisabling ", intf, " due to storm-control." );
      const Velto::Ptr status( in_.causeStatus );
      status->intfStatusIs( intf, Kiv::now() );
   }
}

Velto::Ptr< StormControlErrdisableSm >
StormControlErrdisableSmIs( StormControlErrdisableSm::Inputs inputs ) {
   return smIs< StormControlErrdisableSm >( std::move( inputs ) );
}

} // namespace Qon
