#include "Qon/include/stormcontrol/QonStormControlDropSm.h"

#include <algorithm>

#include "Qon/include/framework/QonLog.h"
#include "Qon/include/framework/QonTraceHandles.h"

namespace Qon {

using StormControl::AllDrops;
using StormControl::Drops;
using Ulnet::IntfId;

namespace {

Flintlog::Facility dropFacility( "QonStormControlDropLogSm" );
QonLogHandle discards( "QonStormControlDropLogSm", QonLog::ETH_STORMCONTROL_DISCARDS );

} // namespace

// --- One interface in one slice ------------------------------------------------------------------

StormControlDropIntfSm::StormControlDropIntfSm( StormControlDropSm * dropSm,
                                                Velto::Ptr< const Status > status )
    : dropSm_( dropSm ), status_( std::move( status ) ) {}

void
StormControlDropIntfSm::handleInitialized() {
   if ( initialized() ) {
      dropsWatch_.attach( this, status_.ptr() );
      Velto::FirstError error;
      if ( !std::exchange( counted_, true ) ) {
         error.run( [&] { dropSm_->reporterIs( status_->intfId(), true ); } );
      }
      error.run( [&] { handleDrops(); } );
      error.pass();
   }
}

/** Its part is exchanged before anybody hears of it. */
void
StormControlDropIntfSm::handleDrops() {
   if ( counted_ ) {
      const Drops change = StormControl::minus( status_->drops(), last_ );
      last_ = status_->drops();
      dropSm_->add( status_->intfId(), change );
   }
}

void
StormControlDropIntfSm::doCleanup() {
   if ( std::exchange( counted_, false ) ) {
      const Velto::Ptr< StormControlDropSm > dropSm( dropSm_ );
      const IntfId intf = status_->intfId();
      const Drops part = std::exchange( last_, Drops() );
      Velto::FirstError error;
      error.run( [&] { dropSm->add( intf, StormControl::minus( Drops(), part ) ); } );
      error.run( [&] { dropSm->reporterIs( intf, false ); } );
      error.pass();
   }
}

// --- One slice -----------------------------------------------------------------------------------

StormControlDropSliceSm::StormControlDropSliceSm( StormControlDropSm * dropSm,
                                                  Velto::Ptr< const Slice > slice )
    : dropSm_( dropSm ), slice_( std::move( slice ) ) {}

void
StormControlDropSliceSm::handleInitialized() {
   if ( !initialized() ) {
      intfs_.rest();
      return;
   }
   intfWatch_.attach( this, slice_.ptr() );
   intfs_.reviewAll( slice_->intfStatusIteratorConst(), [this]( IntfId intf ) {
      return Velto::Ptr< const Status >( slice_->intfStatus( intf ) );
   } );
}

void
StormControlDropSliceSm::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   intfs_.kivDoZombieReactors();
}

void
StormControlDropSliceSm::handleIntfStatus( const IntfId & intf ) {
   const Velto::Hold dropSmAlive( dropSm_ );
   intfs_.review( intf, slice_->intfStatus( intf ) );
}

Velto::Ptr< StormControlDropIntfSm >
StormControlDropSliceSm::makeIntfSm( const IntfId & intf,
                                     const Velto::Ptr< const Status > & status ) {
   QON_TRACE( dropFacility, 4, "Creating SM for Intf: ", intf ); // fixed text
   return smIs< StormControlDropIntfSm >( dropSm_, status );
}

void
StormControlDropSliceSm::cleanUpIntfSm( const IntfId &, StormControlDropIntfSm * sm ) {
   sm->doCleanup();
}

void
StormControlDropSliceSm::doCleanup() {
   QON_TRACE( dropFacility, 3, "Slice is going away: ", slice_->name() ); // fixed text
   for ( IntfId intf : intfs_.heldKeys() ) {
      QON_TRACE( dropFacility, 4, slice_->name(), " deleting interface: ", intf ); // fixed text
   }
   intfs_.removeAll();
}

// --- What configurations say of logging ----------------------------------------------------------

StormControlDropSm::LoggingSm::LoggingSm( StormControlDropSm * dropSm,
                                          Velto::Ptr< const StormControl::IntfConfig > config )
    : dropSm_( dropSm ), config_( std::move( config ) ) {}

void
StormControlDropSm::LoggingSm::handleInitialized() {
   if ( initialized() ) {
      loggingWatch_.attach( this, config_.ptr() );
      handleDropLogging();
   }
}

void
StormControlDropSm::LoggingSm::handleDropLogging() {
   dropSm_->loggingIs( config_->intfId(), config_->dropLogging() );
}

// --- All of them ---------------------------------------------------------------------------------

StormControlDropSm::StormControlDropSm( Inputs inputs ) : in_( std::move( inputs ) ) {}

void
StormControlDropSm::handleInitialized() {
   if ( !initialized() ) {
      slices_.rest();
      configs_.rest();
      return;
   }
   sliceWatch_.attach( this, in_.sliceDir.ptr() );
   configWatch_.attach( this, in_.config.ptr() );
   loggingWatch_.attach( this, in_.config.ptr() );
   intervalWatch_.attach( this, in_.config.ptr() );
   syslogClock_.attach( this, Velto::make< Kiv::Clock >( in_.wheel ) );
   Velto::FirstError error;
   error.run( [this] {
      slices_.reviewAll( in_.sliceDir->sliceIteratorConst(), [this]( const String & name ) {
         return Velto::Ptr< const StormControl::DropSlice >( in_.sliceDir->slice( name ) );
      } );
   } );
   auto stale = [this] { clearStaleEntries(); };
   error.run( stale ) || error.run( stale );
   configs_.reviewAll( in_.config->intfIteratorConst(), [this]( IntfId intf ) {
      return Velto::Ptr< const StormControl::IntfConfig >( in_.config->intf( intf ) );
   } );
   setSyslogTimer();
   error.pass();
}

void
StormControlDropSm::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   slices_.kivDoZombieReactors();
   configs_.kivDoZombieReactors();
}

void
StormControlDropSm::handleSlice( const String & name ) {
   slices_.review( name, in_.sliceDir->slice( name ) );
}

Velto::Ptr< StormControlDropSliceSm >
StormControlDropSm::makeSliceSm( const String &,
                                 const Velto::Ptr< const StormControl::DropSlice > & slice ) {
   return smIs< StormControlDropSliceSm >( this, slice );
}

void
StormControlDropSm::cleanUpSliceSm( const String &, StormControlDropSliceSm * sm ) {
   sm->doCleanup();
}

void
StormControlDropSm::handleConfigIntf( const IntfId & intf ) {
   configs_.review( intf, in_.config->intf( intf ) );
}

Velto::Ptr< StormControlDropSm::LoggingSm >
StormControlDropSm::makeLoggingSm( const IntfId &,
                                   const Velto::Ptr< const StormControl::IntfConfig > & config ) {
   return smIs< LoggingSm >( this, config );
}

void
StormControlDropSm::cleanUpLoggingSm( const IntfId & intf, LoggingSm * ) {
   loggingIs( intf, false );
}

// --- Sums ----------------------------------------------------------------------------------------

/** The first slice that reports an interface finds no sum, whatever an agent before this one left. */
void
StormControlDropSm::reporterIs( IntfId intf, bool reports ) {
   U32 & count = *reporters_.emplace( intf, 0 ).first;
   VELTO_ASSERT( reports || count > 0 );
   count += reports ? 1 : U32( -1 );
   const bool none = count == 0, first = reports && count == 1;
   const Velto::Ptr all( dropStatus() );
   if ( none ) {
      reporters_.erase( intf );
      all->allIntfStatusDel( intf );
      return;
   }
   const U32 number = all->lastReporters() + 1;
   Velto::FirstError error;
   error.run( [&] { all->lastReportersIs( number ); } );
   error.run( [&] {
      const Drops sum = first ? Drops() : all->allIntfStatus( intf ).drops();
      all->allIntfStatusIs( intf, AllDrops( sum, number ) );
   } );
   error.pass();
}

void
StormControlDropSm::add( IntfId intf, const Drops & change ) {
   const AllDrops & now = dropStatus()->allIntfStatus( intf );
   dropStatus()->allIntfStatusIs(
         intf, AllDrops( StormControl::plus( now.drops(), change ), now.reporters() ) );
}

void
StormControlDropSm::clearStaleEntries() {
   QON_TRACE( dropFacility, 3, "Checking for stale allIntfStatus entries" ); // fixed text
   Velto::FirstError error;
   for ( auto && entry : keysOf< IntfId >( dropStatus()->allIntfStatusIteratorConst() ) ) {
      if ( !reporters_.has( entry.key ) ) {
         QON_TRACE( dropFacility, 3, "Clearing stale entry for intf: ", entry.key ); // fixed text
         error.run( [&] { dropStatus()->allIntfStatusDel( entry.key ); } );
      }
   }
   error.pass();
}

// --- The log -------------------------------------------------------------------------------------

void
StormControlDropSm::loggingIs( IntfId intf, bool enabled ) {
   enabled ? void( logging_.emplace( intf ) ) : void( logging_.erase( intf ) );
   setSyslogTimer();
}

void
StormControlDropSm::setSyslogTimer() {
   if ( !syslogClock_ ) {
      return;
   }
   const bool enabled = in_.config->dropLogging() || !logging_.empty();
   const Kiv::Seconds interval = in_.config->dropLoggingInterval();
   if ( !enabled || !( interval > 0 ) ) {
      syslogClock_->timeIs( Kiv::never );
   } else if ( syslogClock_->idle() ) {
      syslogClock_->timeIs( Kiv::now() + interval );
   }
}

void
StormControlDropSm::handleSyslogClock() {
   setSyslogTimer();
   handleDropLogging();
}

bool
StormControlDropSm::dropLoggingEnabled( IntfId intf ) const {
   const IntfId lag = LagView( in_.acsd.ptr() ).lagOf( intf );
   return ( in_.config->dropLogging() && in_.status->intfStatusHas( intf ) ) ||
          logging_.has( intf ) || ( lag && logging_.has( lag ) );
}

void
StormControlDropSm::handleDropLogging() {
   const Velto::Hold alive( this );
   std::vector< IntfId > intfs;
   for ( auto && [intf, all] : dropStatus()->allIntfStatusIteratorConst() ) {
      if ( dropLoggingEnabled( intf ) ) {
         intfs.push_back( intf );
      }
   }
   std::sort( intfs.begin(), intfs.end() );
   Velto::FirstError error;
   for ( IntfId intf : intfs ) {
      // fixed text
      QON_TRACE( dropFacility, 6, "Syslogging of drops is enabled for interface ", intf );
      error.run( [&] { log( intf ); } );
   }
   error.pass();
}

void
StormControlDropSm::log( IntfId intf ) const {
   const Drops drops = dropStatus()->allIntfStatus( intf ).drops();
   const U64 uucast = drops.uucastDrop(), broadcast = drops.broadcastDrop(),
             multicast = drops.multicastDrop(), all = drops.allDrop();
   if ( ( uucast || broadcast || multicast || all ) && discards.okToLog() ) {
      Kiv::log( discards, intf, uucast, broadcast, multicast, all );
   }
}

String
StormControlDropSm::checkInvariants() const {
   Kiv::DenseMap< IntfId, Drops > sums;
   for ( auto && [name, slice] : in_.sliceDir->sliceIteratorConst() ) {
      for ( auto && [intf, status] : slice->intfStatusIteratorConst() ) {
         Drops & sum = *sums.emplace( intf ).first;
         sum = StormControl::plus( sum, status->drops() );
      }
   }
   if ( sums.size() != dropStatus()->allIntfStatuss() ) {
      return "sums of interfaces that no slice reports, or none of one";
   }
   for ( auto && [intf, sum] : sums ) {
      if ( !( dropStatus()->allIntfStatus( intf ).drops() == sum ) ) {
         return "wrong sum: " + intf.stringValue();
      }
   }
   return {};
}

Velto::Ptr< StormControlDropSm >
StormControlDropSmIs( StormControlDropSm::Inputs inputs ) {
   return smIs< StormControlDropSm >( std::move( inputs ) );
}

} // namespace Qon
