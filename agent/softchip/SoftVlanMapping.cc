#include "agent/softchip/SoftVlanMapping.h"

namespace SoftChip {

using Bridging::vlanMappingDirections;
using Qon::PortVlanKey;
using QonTypes::TableAddStatus;

// --- First generation ----------------------------------------------------------------------------

SoftVlanMappingSm::SoftVlanMappingSm( Inputs inputs, const Statuses & statuses,
                                      VlanMappingTable & table )
    : VlanMappingSm( std::move( inputs ) ), statuses_( statuses ), table_( table ) {
   table_.hook.is( this );
   for ( Direction d : vlanMappingDirections ) {
      if ( gracefulRestartSupported() ) {
         follow( d );
         continue;
      }
      for ( const PortVlanKey & key : table_.keys( d ) ) {
         remove( d, key ); // only the directories outlast a restart
      }
   }
}

SoftVlanMappingSm::~SoftVlanMappingSm() {
   table_.hook.is( nullptr );
}

const Qon::QonVlanMappingConfigDir &
SoftVlanMappingSm::directory( Direction d ) const {
   return d == Direction::ingress ? *inputs().qonIngVlanMappingConfigDir
                                  : *inputs().qonEgrVlanMappingConfigDir;
}

Qon::QonVlanMappingStatusDir &
SoftVlanMappingSm::statuses( Direction d ) const {
   return d == Direction::ingress ? *statuses_.ingress : *statuses_.egress;
}

SoftVlanMappingSm::Status
SoftVlanMappingSm::add( Direction d, const PortVlanKey & key, const Mapping & mapping ) {
   if ( table_.shape().form == VlanMappingForm::atOnce ) {
      return table_.add( d, key, mapping );
   }
   statuses( d ).vlanMappingStatusDel( key );
   table_.request( d, key, mapping, 0 );
   return Status::handedOver;
}

void
SoftVlanMappingSm::remove( Direction d, const PortVlanKey & key ) {
   table_.remove( d, key );
   if ( table_.shape().form == VlanMappingForm::late ) {
      statuses( d ).vlanMappingStatusDel( key );
   }
}

void
SoftVlanMappingSm::answered( Direction d, const PortVlanKey & key, Status result, U32 version ) {
   statuses( d ).vlanMappingStatusIs( key, { result, version } );
}

/** The table is brought to the directory, by and by. */
void
SoftVlanMappingSm::follow( Direction d ) {
   entries_[U8( d )].attach( &directory( d ),
                             [this, d]( const PortVlanKey & key ) { entryHeard( d, key ); } );
   for ( const PortVlanKey & key : table_.keys( d ) ) {
      if ( !directory( d ).vlanMappingConfigHas( key ) ) {
         table_.remove( d, key );
      }
   }
   for ( auto && [key, config] : directory( d ).vlanMappingConfigIteratorConst() ) {
      if ( !statuses( d ).vlanMappingStatusHas( key ) ||
           !statuses( d ).vlanMappingStatus( key ).answers( config.version() ) ) {
         entryHeard( d, key );
      }
   }
}

void
SoftVlanMappingSm::entryHeard( Direction d, const PortVlanKey & key ) {
   if ( directory( d ).vlanMappingConfigHas( key ) ) {
      const auto config = directory( d ).vlanMappingConfig( key );
      statuses( d ).vlanMappingStatusDel( key );
      table_.request( d, key, config.mapping(), config.version() );
   } else {
      table_.remove( d, key );
      statuses( d ).vlanMappingStatusDel( key );
   }
}

// --- Second generation ---------------------------------------------------------------------------

PlatformFollower::PlatformFollower( Velto::Ptr< const Config > config,
                                    Velto::Ptr< Qon::PlatformVlanMappingStatus > status,
                                    VlanMappingTable & table )
    : config_( std::move( config ) ), status_( std::move( status ) ), table_( table ) {
   table_.hook.is( this );
}

PlatformFollower::~PlatformFollower() {
   table_.hook.is( nullptr );
}

/** What the table has and nobody wants goes; the rest is asked for anew. */
void
PlatformFollower::begin() {
   std::vector< std::pair< IntfId, Key > > held;
   for ( Direction d : vlanMappingDirections ) {
      for ( const PortVlanKey & key : table_.keys( d ) ) {
         const bool native = Qon::isNative( key.key() );
         held.emplace_back( key.portId(),
                            Key( d, key.vlanId(), native ? U16( 0 ) : key.innerVlanId() ) );
      }
   }
   for ( auto & [port, key] : held ) {
      if ( !wanted( port, key ).version() ) {
         handleKey( port, key );
      }
   }
   keys_.attach( this, config_.ptr() );
   status_->readyIs( true );
}

Qon::PlatformVlanMappingData
PlatformFollower::wanted( IntfId port, const Key & key ) const {
   auto config = config_->intfVlanMappingConfig( port );
   return config ? config->vlanMappingConfig( key ) : Qon::PlatformVlanMappingData();
}

PortVlanKey
PlatformFollower::tableKey( IntfId port, const Key & key, bool native ) const {
   return PortVlanKey::of(
         port, native ? Bridging::VlanXlateKey( key.vlanId(), Qon::nativeInnerVlan ) : key.key() );
}

void
PlatformFollower::handleIntf( const IntfId & port ) {
   std::vector< Key > keys;
   if ( auto config = config_->intfVlanMappingConfig( port ) ) {
      for ( auto && [key, data] : config->vlanMappingConfigIteratorConst() ) {
         keys.push_back( key );
      }
   }
   if ( auto known = status_->intfVlanMappingStatus( port ) ) {
      for ( auto && [key, status] : known->vlanMappingStatusIteratorConst() ) {
         keys.push_back( key );
      }
   }
   for ( Direction d : vlanMappingDirections ) {
      for ( auto && [key, mapping] : table_.entries( d ) ) {
         if ( key.portId() == port && !config_->intfVlanMappingConfig( port ) ) {
            keys.push_back( Key( d, key.vlanId(),
                                 Qon::isNative( key.key() ) ? U16( 0 ) : key.innerVlanId() ) );
         }
      }
   }
   for ( const Key & key : keys ) {
      handleKey( port, key );
   }
}

void
PlatformFollower::handleKey( const IntfId & port, const Key & key ) {
   const auto data = wanted( port, key );
   const bool native = data.merged().source() == Qon::VlanMappingConfigSource::nativeVlan;
   const Direction d = key.direction();
   if ( !data.version() ) {
      table_.remove( d, tableKey( port, key, true ) );
      table_.remove( d, tableKey( port, key, false ) );
      statusDel( port, key );
      return;
   }
   auto known = status_->intfVlanMappingStatus( port );
   if ( known && known->vlanMappingStatusHas( key ) &&
        known->vlanMappingStatus( key ).version() == data.version() &&
        known->vlanMappingStatus( key ).result() != TableAddStatus::notNow ) {
      return; // answered for good
   }
   table_.remove( d, tableKey( port, key, !native ) );
   table_.request( d, tableKey( port, key, native ), data.merged().mapping(), data.version() );
}

void
PlatformFollower::statusDel( IntfId port, const Key & key ) {
   if ( auto known = status_->intfVlanMappingStatus( port ) ) {
      known->vlanMappingStatusDel( key );
      if ( !known->vlanMappingStatuss() ) {
         status_->intfVlanMappingStatusDel( port );
      }
   }
}

void
PlatformFollower::answered( Direction d, const PortVlanKey & key, TableAddStatus result,
                            U32 version ) {
   const Velto::Hold alive( this );
   const Key plain( d, key.vlanId(), Qon::isNative( key.key() ) ? U16( 0 ) : key.innerVlanId() );
   if ( result == TableAddStatus::full || result == TableAddStatus::failed ) {
      table_.remove( d, key ); // not what was there before either
   }
   if ( result == TableAddStatus::notNow ) {
      busy_.emplace_back( key.portId(), plain );
      retry_.in( 1 );
   }
   const auto statuses = status_->intfVlanMappingStatusIs( key.portId() );
   statuses->vlanMappingStatusIs( plain, { result, version } );
}

void
PlatformFollower::retry() {
   for ( auto & [port, key] : std::exchange( busy_, {} ) ) {
      const auto data = wanted( port, key );
      auto known = status_->intfVlanMappingStatus( port );
      if ( data.version() && known && known->vlanMappingStatusHas( key ) &&
           known->vlanMappingStatus( key ).result() == TableAddStatus::notNow ) {
         const bool native = data.merged().source() == Qon::VlanMappingConfigSource::nativeVlan;
         table_.request( key.direction(), tableKey( port, key, native ), data.merged().mapping(),
                         data.version() );
      }
   }
}

} // namespace SoftChip
