#include "Qon/include/stormcontrol/StormControlBaseSm.h"

#include "Qon/stormcontrol/StormControlTrace.h"

namespace Qon {

using StormControl::IntfConfig;
using StormControl::IntfStatus;
using Ulnet::IntfId;
using Ulnet::PortChannelIntfId;
using Ulnet::SubIntfId;

Flintlog::Facility stormControlFacility( "QonStormControlSm" );

namespace {

U64
speedOf( const Interface::EthPhyIntfStatus * phy ) {
   return phy ? Interface::EthSpeedApi::speedKbps( phy->speed() ) : 0;
}

} // namespace

// --- Start and stop ------------------------------------------------------------------------------

StormControlBaseSm::StormControlBaseSm( Inputs inputs ) : in_( std::move( inputs ) ) {}

void
StormControlBaseSm::handleInitialized() {
   if ( !initialized() ) {
      machines_.rest();
      phys_.rest();
      intfConfigs_.rest();
      aggregateTcs_.rest();
      return;
   }
   VELTO_ASSERT( config() );
   VELTO_ASSERT( status() );
   VELTO_ASSERT( ethPhyIntfStatusDir() );
   VELTO_ASSERT( acsd() );
   starting_ = true;
   Velto::FirstError error;
   {
      const Velto::AtEnd done( [this] { starting_ = false; } );
      auto start = [this] { begin(); };
      if ( !started_ && !error.run( start ) && !error.run( start ) ) {
         error.pass();
      }
      if ( initialized() ) { // no hook of the start has ended it
         auto orphans = [this] { removeOrphanedStatus(); };
         error.run( orphans ) || error.run( orphans );
         started_ = true;
         attachAll();
         reviewAll();
      }
   }
   error.run( [this] { settle(); } );
   error.pass();
}

void
StormControlBaseSm::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   machines_.kivDoZombieReactors();
   phys_.kivDoZombieReactors();
   intfConfigs_.kivDoZombieReactors();
   aggregateTcs_.kivDoZombieReactors();
}

void
StormControlBaseSm::attachAll() {
   configWatch_.attach( this, config() );
   aggregateTcWatch_.attach( this, config() );
   burstWatch_.attach( this, config() );
   periodWatch_.attach( this, config() );
   phyWatch_.attach( this, ethPhyIntfStatusDir() );
   intfWatch_.attach( this, acsd() );
   lagWatch_.attach( this, acsd() );
}

/** Asks everything that there is to ask; the machines of the inputs ask of theirs. */
void
StormControlBaseSm::reviewAll() {
   later( What::burst );
   for ( U8 trafficClass : programmedClasses() ) {
      later( What::trafficClass, {}, trafficClass );
   }
   aggregateTcs_.reviewAll( config()->aggregateTcIteratorConst(), [this]( U8 trafficClass ) {
      return Velto::Ptr< const StormControl::AggregateTcConfig >(
            config()->aggregateTc( trafficClass ) );
   } );
   phys_.reviewAll( ethPhyIntfStatusDir()->intfStatusIteratorConst(), [this]( IntfId intf ) {
      return Velto::Ptr< const Interface::EthPhyIntfStatus >(
            ethPhyIntfStatusDir()->intfStatus( intf ) );
   } );
   intfConfigs_.reviewAll( config()->intfIteratorConst(), [this]( IntfId intf ) {
      return Velto::Ptr< const IntfConfig >( config()->intf( intf ) );
   } );
   allManaged_ = acsd()->intfs() == 0;
   lagReactors_ = keysOf< IntfId >( acsd()->lagToPortIteratorConst() );
   lagFollower_.attach( this, acsd() );
   laterForAll();
}

/** Whatever has a machine or could have one. */
void
StormControlBaseSm::laterForAll() {
   auto intfs = keysOf< IntfId >( machines_.heldKeys() );
   for ( auto && [intf, config] : config()->intfIteratorConst() ) {
      intfs.emplace( intf );
   }
   for ( auto && [lag, ports] : lagPorts_ ) {
      for ( auto && port : ports ) {
         intfs.emplace( port.key );
      }
   }
   for ( auto && entry : intfs ) {
      later( What::intf, entry.key );
   }
}

void
StormControlBaseSm::removeOrphanedStatus() {
   for ( auto && entry : keysOf< IntfId >( status()->intfStatusIteratorConst() ) ) {
      if ( !wantOf( entry.key ).machine && !machines_.has( entry.key ) ) {
         // fixed text
         QON_TRACE( stormControlFacility, 2, "Removing orphaned status for ", entry.key );
         status()->intfStatusDel( entry.key );
      }
   }
   for ( auto && entry : keysOf< U8 >( status()->aggregateTcStatusIteratorConst() ) ) {
      if ( !config()->aggregateTcHas( entry.key ) && !started_ ) {
         // fixed text
         QON_TRACE( stormControlFacility, 2, "Removing orphaned status for ", U32( entry.key ) );
         status()->aggregateTcStatusDel( entry.key );
      }
   }
}

void
StormControlBaseSm::doCleanup() {
   const Velto::Hold alive( this );
   Velto::FirstError error;
   error.run( [this] { initializedIs( false ); } );
   const bool held = std::exchange( started_, false );
   for ( U8 trafficClass : held ? programmedClasses() : std::vector< U8 >() ) {
      auto remove = [&] { programTrafficClass( trafficClass, nullptr ); };
      error.run( remove ) || error.run( remove );
   }
   error.run( [this] { machines_.removeAll(); } );
   intfConfigs_.removeAll();
   phys_.removeAll();
   aggregateTcs_.removeAll();
   error.pass();
}

// --- What is heard -------------------------------------------------------------------------------

void
StormControlBaseSm::handleConfigIntf( const IntfId & intf ) {
   intfConfigs_.review( intf, config()->intf( intf ) );
}

Velto::Ptr< IntfConfigSm >
StormControlBaseSm::makeIntfConfigSm( const IntfId & intf,
                                      const Velto::Ptr< const IntfConfig > & config ) {
   if ( SubIntfId::isSubIntfId( intf ) ) {
      updateIntfToSubIntfNumMap( SubIntfId::parent( intf ), 1 );
   }
   return smIs< IntfConfigSm >( this, config );
}

void
StormControlBaseSm::cleanUpIntfConfigSm( const IntfId & intf, IntfConfigSm * ) {
   if ( SubIntfId::isSubIntfId( intf ) ) {
      updateIntfToSubIntfNumMap( SubIntfId::parent( intf ), -1 );
   }
   handleIntfConfig( intf );
}

/** The interface itself; the members of a port-channel instead of the port-channel. */
void
StormControlBaseSm::handleIntfConfig( IntfId intf ) {
   if ( auto ports = lagPorts_.find( intf ) ) {
      QON_TRACE( stormControlFacility, 4, "Updating levels for lag ", intf ); // fixed text
      for ( auto && port : *ports ) {
         later( What::lagConfig, port.key );
      }
   } else if ( stormControlFacility.hears( 4 ) && LagView( acsd() ).lagOf( intf ) ) {
      // fixed text
      QON_TRACE( stormControlFacility, 4, intf, " is part of a LAG, ignore its own config" );
   }
   ask( What::intf, intf );
}

void
StormControlBaseSm::handleLevel( IntfId intf, Level level ) {
   if ( has( StormControl::kindOf( level ) ) ) {
      handleIntfConfig( intf );
   }
}

void
StormControlBaseSm::handleAggregateTc( const U8 & trafficClass ) {
   aggregateTcs_.review( trafficClass, config()->aggregateTc( trafficClass ) );
}

Velto::Ptr< AggregateTcConfigSm >
StormControlBaseSm::makeAggregateTcSm(
      const U8 &, const Velto::Ptr< const StormControl::AggregateTcConfig > & config ) {
   return smIs< AggregateTcConfigSm >( this, config );
}

void
StormControlBaseSm::cleanUpAggregateTcSm( const U8 & trafficClass, AggregateTcConfigSm * ) {
   trafficClassChanged( trafficClass );
}

void
StormControlBaseSm::trafficClassChanged( U8 trafficClass ) {
   ask( What::trafficClass, {}, trafficClass );
}

void
StormControlBaseSm::handleBurstConfig() {
   ask( What::burst );
}

void
StormControlBaseSm::handleCounterPeriod() {
   machines_.forEach( []( IntfId, StormControlIntfSm & machine ) { machine.handlePeriod(); } );
}

void
StormControlBaseSm::handleEthPhyIntfStatus( const IntfId & intf ) {
   phys_.review( intf, ethPhyIntfStatusDir()->intfStatus( intf ) );
}

Velto::Ptr< EthPhyIntfStatusSm >
StormControlBaseSm::makePhySm( const IntfId &,
                               const Velto::Ptr< const Interface::EthPhyIntfStatus > & status ) {
   return smIs< EthPhyIntfStatusSm >( this, status );
}

void
StormControlBaseSm::cleanUpPhySm( const IntfId & intf, EthPhyIntfStatusSm * ) {
   intfChanged( intf );
}

/** What an interface is, its sub-interfaces are. */
void
StormControlBaseSm::intfChanged( IntfId intf ) {
   if ( !subIntfs_.has( intf ) ) {
      ask( What::intf, intf );
      return;
   }
   later( What::intf, intf );
   for ( auto && [sub, config] : config()->intfIteratorConst() ) {
      if ( SubIntfId::isSubIntfId( sub ) && SubIntfId::parent( sub ) == intf ) {
         later( What::intf, sub );
      }
   }
   settle();
}

/** The first entry of acsd.intf and the loss of the last one concern every interface. */
void
StormControlBaseSm::handleIntf( const IntfId & intf ) {
   const bool all = acsd()->intfs() == 0;
   if ( std::exchange( allManaged_, all ) != all ) {
      laterForAll();
      settle();
   } else {
      intfChanged( intf );
   }
}

/** The map is read by those who program; here it says that a port-channel was written anew. */
void
StormControlBaseSm::handleLagToPort( const IntfId & lag ) {
   if ( acsd()->lagToPortHas( lag ) ) {
      if ( !lagReactors_.emplace( lag ).second ) {
         QON_TRACE( stormControlFacility, 4, lag, " updated. Reapplying config" ); // fixed text
      }
   } else if ( lagReactors_.erase( lag ) ) {
      QON_TRACE( stormControlFacility, 4, lag, " removed. Disabling reactor" ); // fixed text
   }
   if ( auto ports = lagPorts_.find( lag ) ) {
      for ( auto && port : *ports ) {
         later( What::intf, port.key );
      }
      settle();
   }
}

void
StormControlBaseSm::handlePortToLag( IntfId port, IntfId from, IntfId to ) {
   if ( auto ports = lagPorts_.find( from ) ) {
      ports->erase( port );
      if ( ports->empty() ) {
         lagPorts_.erase( from );
      }
   }
   if ( to ) {
      lagPorts_.emplace( to ).first->emplace( port );
   }
   const bool own = config()->intfHas( port );
   if ( to && own ) {
      // fixed text
      QON_TRACE( stormControlFacility, 4, "Removing config of ", port,
                 " because it is part of a lag, and lag config takes precedence" );
   } else if ( !to && !own ) {
      // fixed text
      QON_TRACE( stormControlFacility, 4, "Disabling storm control on ", port,
                 " because it left a lag" );
   }
   ask( What::lagConfig, port );
}

// --- One question at a time ----------------------------------------------------------------------

void
StormControlBaseSm::settle() {
   if ( settles() ) {
      work_.drain( this, [this]( const Question & question ) { review( question ); } );
   }
}

void
StormControlBaseSm::ask( What what, IntfId intf, U8 trafficClass ) {
   if ( settles() ) {
      work_.ask( this, { what, intf, trafficClass },
                 [this]( const Question & question ) { review( question ); } );
   } else {
      later( what, intf, trafficClass );
   }
}

void
StormControlBaseSm::review( const Question & question ) {
   if ( !initialized() || !started_ ) {
      return;
   }
   Velto::FirstError error;
   switch ( question.what ) {
   case What::lagConfig:
      if ( fitForMachine( question.intf ) ) {
         error.run( [&] { tellLagConfig( question.intf ); } );
      }
      error.run( [&] { reviewIntf( question.intf ); } );
      error.pass();
      return;
   case What::intf:
      reviewIntf( question.intf );
      return;
   case What::trafficClass:
      programTrafficClass( question.trafficClass, config()->aggregateTc( question.trafficClass ) );
      return;
   case What::report:
      reviewReport( question.intf );
      return;
   case What::tcReport:
      reviewTcReport( question.trafficClass );
      return;
   case What::burst:
      reviewBurst();
      return;
   }
}

bool
StormControlBaseSm::managed( IntfId intf ) const {
   return acsd()->intfs() == 0 || acsd()->intfHas( intf );
}

bool
StormControlBaseSm::fitForMachine( IntfId intf ) const {
   const IntfId base = SubIntfId::parent( intf );
   return fitForMachine( base, ethPhyIntfStatusDir()->intfStatus( base ) );
}

/** `phy` is that of `base`, which is no sub-interface. */
bool
StormControlBaseSm::fitForMachine( IntfId base, const Interface::EthPhyIntfStatus * phy ) const {
   return PortChannelIntfId::isPortChannelIntfId( base ) ||
          ( managed( base ) &&
            ( !phy || phy->forwardingModel() == Interface::ForwardingModel::bridged ) );
}

void
StormControlBaseSm::traceWhyNot( IntfId intf ) const {
   // fixed text, both
   QON_TRACE( stormControlFacility, 4, intf,
              managed( SubIntfId::parent( intf ) )
                    ? " Interface is non-bridged fwd mode, skip initializing the sm"
                    : " Interface doesn't exists in platform, skip initializing the sm" );
}

U64
StormControlBaseSm::calculateSpeedForIntf( IntfId intf ) const {
   return speedOf( ethPhyIntfStatusDir()->intfStatus( intf ) );
}

StormControlBaseSm::Want
StormControlBaseSm::wantOf( IntfId intf ) const {
   Want want;
   want.effective = StormControl::effectiveConfig( *config(), LagView( acsd() ), intf );
   auto phy = ethPhyIntfStatusDir()->intfStatus( intf );
   want.machine =
         want.effective.config &&
         ( SubIntfId::isSubIntfId( intf ) ? fitForMachine( intf ) : fitForMachine( intf, phy ) );
   want.active = !phy || phy->active();
   want.speedKbps = speedOf( phy );
   return want;
}

void
StormControlBaseSm::reviewIntf( IntfId intf ) {
   const Want want = wantOf( intf );
   if ( want.effective.config && !want.machine ) {
      traceWhyNot( intf );
   }
   const Velto::Ptr< StormControlIntfSm > machine( machines_.reviewed( intf, want.machine ) );
   if ( machine && StormControl::isPort( intf ) ) {
      settleMachine( *machine, want );
   }
}

void
StormControlBaseSm::settleMachine( StormControlIntfSm & machine, const Want & want ) {
   machine.ownerIs( want.effective.config );
   if ( !want.active ) {
      rest( machine, want );
      return;
   }
   if ( std::exchange( machine.cleared_, false ) ) {
      machine.forget();
   }
   program( machine, want );
}

/** Nothing is programmed on an inactive port; whose configuration holds is shown all the same. */
void
StormControlBaseSm::rest( StormControlIntfSm & machine, const Want & want ) {
   Velto::FirstError error;
   if ( !machine.cleared_ ) {
      machine.cleared_ = error.run( [&] { clear( machine, want ); } );
   }
   if ( const auto status = statusOf( machine.intf() ); status ) {
      error.run( [&] { status->lagIs( want.effective.lag ); } );
   }
   error.pass();
}

Velto::Ptr< StormControlIntfSm >
StormControlBaseSm::makeMachine( const IntfId & intf, const bool & ) {
   return smIs< StormControlIntfSm >( this, intf );
}

void
StormControlBaseSm::cleanUpMachine( const IntfId &, StormControlIntfSm * machine ) {
   auto end = [&] { machineEnds( *machine ); };
   Velto::FirstError error;
   error.run( end ) || error.run( end );
   error.pass();
}

// --- Pieces for the generations ------------------------------------------------------------------

StormControlBaseSm::Given
StormControlBaseSm::wantedLevel( StormControlIntfSm & machine, const LevelKind & kind,
                                 const Want & want ) {
   Threshold threshold = StormControl::thresholdOf( *want.effective.config, kind );
   if ( kind.cpu ) {
      Threshold & accepted = machine.accepted_[U8( kind.level )];
      if ( threshold.value() == 0 ) {
         QON_TRACE( stormControlFacility, 2, machine.intf(), " ", Kiv::toText( kind.type ),
                    " zero rate is not supported" ); // fixed text
         threshold = accepted;
      }
      accepted = threshold;
   }
   return { true, threshold, want.speedKbps, want.effective.lag };
}

void
StormControlBaseSm::reviewBcastSkip( IntfId intf, bool skip ) {
   if ( skipped_.has( intf ) != skip ) {
      tellBcastSkip( intf, skip );
      skip ? void( skipped_.emplace( intf ) ) : void( skipped_.erase( intf ) );
   }
}

std::optional< StormControl::AllDrops >
StormControlBaseSm::dropsOf( const StormControlIntfSm & machine ) const {
   if ( !dropStatus() ) {
      return {};
   }
   return dropStatus()->allIntfStatus( machine.intf() );
}

Velto::Ptr< IntfStatus >
StormControlBaseSm::statusIs( IntfId intf ) const {
   return status()->intfStatusIs( intf );
}

void
StormControlBaseSm::statusDel( IntfId intf ) {
   status()->intfStatusDel( intf );
}

U32
StormControlBaseSm::intfToSubIntfNum( IntfId intf ) const {
   auto number = subIntfs_.find( intf );
   return number ? *number : 0;
}

void
StormControlBaseSm::updateIntfToSubIntfNumMap( const IntfId & intf, S32 change ) {
   auto number = subIntfs_.emplace( intf, 0 ).first;
   VELTO_ASSERT( change > 0 || *number > 0 );
   *number += U32( change );
   if ( *number == 0 ) {
      subIntfs_.erase( intf );
   }
}

} // namespace Qon
