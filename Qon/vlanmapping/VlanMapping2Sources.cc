// The first stage: each source's wishes, by interface and key.

#include "Qon/include/vlanmapping/QonVlanMappingSm2.h"

namespace Qon::VlanMapping {

namespace {

/** Every source's first walk, one after the other. */
constexpr U32 startPriority = 6;

} // namespace

// --- Slices of the start -------------------------------------------------------------------------

SlicedStart::SlicedStart( Velto::Node * owner, Kiv::TaskScheduler * scheduler, const char * name,
                          U32 units, std::function< bool() > step )
    : owner_( owner ), units_( units ), step_( std::move( step ) ) {
   if ( scheduler ) {
      task_.emplace( this, scheduler, name );
   }
}

SlicedStart::Work::Work( SlicedStart * start, Kiv::TaskScheduler * scheduler, const char * name )
    : Kiv::Task( scheduler, startPriority, name ), start_( start ) {}

void
SlicedStart::begin() {
   if ( task_ ) {
      task_->wake();
      return;
   }
   const Velto::Hold alive( owner_ );
   Velto::FirstError error;
   bool more = true;
   while ( more && !owner_->zombie() ) {
      error.run( [&] { more = step_(); } );
   }
   error.pass();
}

bool
SlicedStart::Work::run() {
   const Velto::Hold alive( start_->owner_ );
   while ( !start_->owner_->zombie() && start_->step_() ) {
      bool usedUp = false;
      for ( U32 unit = 0; unit < start_->units_; ++unit ) {
         usedUp |= shouldYield();
      }
      if ( usedUp ) {
         return true;
      }
   }
   return false;
}

// --- What a source writes ------------------------------------------------------------------------

SourceVlanMappingConfig *
SourceOutput::config() const {
   return dir_->sourceVlanMappingConfigIs( source_ ).ptr();
}

void
SourceOutput::mappingIs( IntfId intf, const Key & key, std::optional< VlanXlateMapping > mapping ) {
   const Velto::Ptr< SourceVlanMappingConfig > all( config() );
   Velto::FirstError error;
   if ( mapping ) {
      error.run( [&] { all->intfVlanMappingConfigIs( intf ); } );
   }
   const Velto::Ptr< SourceIntfVlanMappingConfig > held( all->intfVlanMappingConfig( intf ) );
   if ( held ) {
      error.run( [&] {
         mapping ? held->vlanMappingConfigIs( key, *mapping ) : held->vlanMappingConfigDel( key );
      } );
      if ( !held->vlanMappingConfigs() && all->intfVlanMappingConfig( intf ) == held.ptr() ) {
         error.run( [&] { all->intfVlanMappingConfigDel( intf ); } );
      }
   }
   error.pass();
}

void
SourceOutput::intfDel( IntfId intf ) {
   const Velto::Ptr< SourceVlanMappingConfig > all( config() );
   all->intfVlanMappingConfigDel( intf );
}

std::vector< Key >
SourceOutput::keysOf( IntfId intf ) const {
   std::vector< Key > keys;
   if ( auto held = config()->intfVlanMappingConfig( intf ) ) {
      for ( auto && [key, mapping] : held->vlanMappingConfigIteratorConst() ) {
         keys.push_back( key );
      }
   }
   return keys;
}

std::vector< IntfId >
SourceOutput::intfs() const {
   std::vector< IntfId > all;
   for ( auto && [intf, held] : config()->intfVlanMappingConfigIteratorConst() ) {
      all.push_back( intf );
   }
   return all;
}

// --- Translations of one interface ---------------------------------------------------------------

namespace {

/** Whether it is one that can be. */
bool
inRange( const VlanXlateKey & key, const VlanXlateMapping & mapping ) {
   try {
      Bridging::checkVlanXlate( key );
      Bridging::checkVlanXlate( mapping );
      return true;
   } catch ( const Velto::RangeError & ) {
      return false;
   }
}

} // namespace

std::optional< VlanXlateMapping >
XlateIntfSm::wanted( Direction d, const VlanXlateKey & key ) const {
   const auto mapping = config_->vlanXlate( d, key );
   return config_->vlanXlateHas( d, key ) && inRange( key, mapping ) ? std::optional( mapping )
                                                                     : std::nullopt;
}

void
XlateIntfSm::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   ingressWatch_.attach( this, config_.ptr() );
   egressWatch_.attach( this, config_.ptr() );
   const Velto::Hold alive( this );
   Velto::FirstError error;
   for ( const Key & key : output_->keysOf( config_->intf() ) ) {
      if ( !wanted( key.direction(), key.key() ) && !zombie() ) {
         error.run( [&] { output_->mappingIs( config_->intf(), key, {} ); } );
      }
   }
   for ( Direction d : Bridging::vlanMappingDirections ) {
      for ( auto && [key, mapping] : config_->vlanXlateIteratorConst( d ) ) {
         if ( wanted( d, key ) && !zombie() ) {
            error.run( [&] {
               output_->mappingIs( config_->intf(), Key::of( d, key ), wanted( d, key ) );
            } );
         }
      }
   }
   error.pass();
}

void
XlateIntfSm::handle( Direction d, const VlanXlateKey & key ) {
   const bool there = config_->vlanXlateHas( d, key );
   const auto mapping = config_->vlanXlate( d, key );
   const Velto::Hold alive( this );
   output_->mappingIs( config_->intf(), Key::of( d, key ), wanted( d, key ) );
   if ( there ) {
      Bridging::checkVlanXlate( key );
      Bridging::checkVlanXlate( mapping );
   }
}

void
NativeIntfSm::handleInitialized() {
   if ( initialized() ) {
      ingressWatch_.attach( this, config_.ptr() );
      egressWatch_.attach( this, config_.ptr() );
      handleNativeVlan();
   }
}

/** The new ones come before the old ones go: the interface is never without. */
void
NativeIntfSm::handleNativeVlan() {
   const Velto::Hold alive( this );
   Velto::FirstError error;
   auto vlan = [this]( Direction d ) { return config_->nativeVlan( d ); };
   for ( Direction d : Bridging::vlanMappingDirections ) {
      if ( !vlan( d ).isNone() && !zombie() ) {
         error.run( [&] {
            output_->mappingIs( config_->intf(), Key( d, vlan( d ).value(), 0 ),
                                VlanXlateMapping( vlan( d ).value(), 0 ) );
         } );
      }
   }
   for ( const Key & key : zombie() ? std::vector< Key >() : output_->keysOf( config_->intf() ) ) {
      if ( vlan( key.direction() ).value() != key.vlanId() && !zombie() ) {
         error.run( [&] { output_->mappingIs( config_->intf(), key, {} ); } );
      }
   }
   error.pass();
}

// --- A source ------------------------------------------------------------------------------------

template< ConfigSource source, class Attr, class IntfSm, auto entityOf, auto entitiesOf >
void
SourceConfigSm< source, Attr, IntfSm, entityOf, entitiesOf >::handleInitialized() {
   if ( !this->initialized() ) {
      intfs_.rest();
      return;
   }
   toDo_ = output_.intfs(); // what a former run left
   if ( input_ ) {
      watch_.attach( this, input_.ptr() );
      for ( auto i = ( input_.ptr()->*entitiesOf )(); i; ++i ) {
         toDo_.push_back( i.key() );
      }
   }
   for ( IntfId intf : intfs_.heldKeys() ) {
      toDo_.push_back( intf );
   }
   start_.begin();
}

template< ConfigSource source, class Attr, class IntfSm, auto entityOf, auto entitiesOf >
bool
SourceConfigSm< source, Attr, IntfSm, entityOf, entitiesOf >::step() {
   if ( !this->initialized() ) {
      return false;
   }
   if ( toDo_.empty() ) {
      output_.readyIs( true );
      return false;
   }
   const IntfId intf = toDo_.back();
   toDo_.pop_back();
   handleIntf( intf );
   return true;
}

template< ConfigSource source, class Attr, class IntfSm, auto entityOf, auto entitiesOf >
void
SourceConfigSm< source, Attr, IntfSm, entityOf, entitiesOf >::handleIntf( const IntfId & intf ) {
   const Velto::Hold alive( this );
   Config * wanted = input_ ? ( input_.ptr()->*entityOf )( intf ) : nullptr;
   intfs_.review( intf, Velto::Ptr< Config >( wanted ) );
   if ( !wanted && !intfs_.has( intf ) ) {
      output_.intfDel( intf );
   }
}

template class SourceConfigSm< ConfigSource::bridging, Bridging::Config::switchIntfConfigAttr,
                               XlateIntfSm, &Bridging::Config::switchIntfConfig,
                               &Bridging::Config::switchIntfConfigIteratorConst >;
template class SourceConfigSm< ConfigSource::nativeVlan, Bridging::Config::switchIntfConfigAttr,
                               NativeIntfSm, &Bridging::Config::switchIntfConfig,
                               &Bridging::Config::switchIntfConfigIteratorConst >;
template class SourceConfigSm< ConfigSource::flow,
                               QonFlowVlanXlateConfigDir::vlanXlateIntfConfigAttr, XlateIntfSm,
                               &QonFlowVlanXlateConfigDir::vlanXlateIntfConfig,
                               &QonFlowVlanXlateConfigDir::vlanXlateIntfConfigIteratorConst >;

} // namespace Qon::VlanMapping
