// The machines below the state machines of storm control: each hears one input, and one keeps what
// was handed over for an interface.

#include "Qon/include/stormcontrol/StormControlBaseSm.h"
#include "Qon/stormcontrol/StormControlTrace.h"

namespace Qon {

// Configuration

IntfConfigSm::IntfConfigSm( StormControlBaseSm * owner, Velto::Ptr< const Config > config )
    : owner_( owner ), config_( std::move( config ) ) {}

void
IntfConfigSm::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
#define ATTACH( type, level, Name, name ) name##Watch_.attach( this, config_.ptr() );
   QON_STORM_LEVELS( ATTACH )
#undef ATTACH
   owner_->handleIntfConfig( intf() );
}

#define HANDLER( type, level, Name, name )                                                         \
   void IntfConfigSm::handle##Name() {                                                             \
      owner_->handleLevel( intf(), StormControl::Level::level );                                   \
   }
QON_STORM_LEVELS( HANDLER )
#undef HANDLER

AggregateTcConfigSm::AggregateTcConfigSm( StormControlBaseSm * owner,
                                          Velto::Ptr< const Config > config )
    : owner_( owner ), config_( std::move( config ) ) {}

void
AggregateTcConfigSm::handleInitialized() {
   if ( initialized() ) {
      thresholdWatch_.attach( this, config_.ptr() );
      handleThreshold();
   }
}

void
AggregateTcConfigSm::handleThreshold() {
   owner_->trafficClassChanged( config_->trafficClass() );
}

// Physical interfaces

EthPhyIntfStatusSm::EthPhyIntfStatusSm( StormControlBaseSm * owner,
                                        Velto::Ptr< const Status > status )
    : owner_( owner ), status_( std::move( status ) ) {}

void
EthPhyIntfStatusSm::handleInitialized() {
   if ( initialized() ) {
      speedWatch_.attach( this, status_.ptr() );
      activeWatch_.attach( this, status_.ptr() );
      forwardingWatch_.attach( this, status_.ptr() );
      owner_->intfChanged( status_->intfId() );
   }
}

void
EthPhyIntfStatusSm::handleSpeed() {
   owner_->intfChanged( status_->intfId() );
}

void
EthPhyIntfStatusSm::handleActive() {
   // fixed text, both
   QON_TRACE( stormControlFacility, 4, status_->intfId(),
              status_->active() ? " Interface has become active, reprogram storm control"
                                : " Interface has become inactive, clear storm control" );
   owner_->intfChanged( status_->intfId() );
}

void
EthPhyIntfStatusSm::handleForwardingModel() {
   owner_->intfChanged( status_->intfId() );
}

// The machine of one interface

void
StormControlIntfSm::handleInitialized() {
   if ( initialized() ) {
      clock_.attach( this, Velto::make< Kiv::Clock >( owner_->wheel() ) );
      handlePeriod();
      owner_->machineBegins( *this );
   }
}

void
StormControlIntfSm::handlePeriod() {
   const Kiv::Seconds period = owner_->config()->counterPeriod();
   clock_->timeIs( period > 0 ? Kiv::now() + period : Kiv::never );
}

void
StormControlIntfSm::handleTime() {
   handlePeriod();
   const Velto::Ptr< StormControl::IntfStatus > status( owner_->status()->intfStatus( intf_ ) );
   if ( !status ) {
      QON_TRACE( stormControlFacility, 6, intf_,
                 " returning as intfStatus is empty " ); // fixed text
      return;
   }
   const auto now = owner_->dropsOf( *this );
   if ( !now ) {
      return;
   }
   const Velto::Hold alive( this ), ownerAlive( owner_ );
   const bool comparable = now->reporters() == reporters_;
   if ( !comparable ) {
      status->dropsComparableIs( false );
   }
   const StormControl::Drops & drops = now->drops();
#define COPY( name ) status->name##Is( drops.name() );
   STORM_CONTROL_DROPS( COPY )
#undef COPY
   if ( !comparable ) {
      reporters_ = now->reporters();
      status->dropsComparableIs( true );
   }
}

void
StormControlIntfSm::ownerIs( const Velto::Ptr< const StormControl::IntfConfig > & config ) {
   if ( !( config_ == config ) ) {
      config_ = config;
      accepted_.fill( Threshold() );
   }
}

} // namespace Qon
