// The way back: what the ports say of a translation, told to its source.

#include "Qon/include/vlanmapping/QonVlanMappingSm2.h"
#include "Qon/vlanmapping/VlanMapping2Trace.h"

namespace Qon::VlanMapping {

using Result = QonTypes::TableAddStatus;

namespace {

/** The larger, the worse. */
U32
badness( Result result ) {
   switch ( result ) {
   case Result::success:
      return 0;
   case Result::handedOver:
      return 1;
   case Result::failed:
      return 2;
   case Result::notNow:
      return 3;
   case Result::full:
      return 4;
   }
   return 0;
}

} // namespace

PlatformStatusSm::PlatformStatusSm( Velto::Ptr< const MergedVlanMappingConfig > mergedConfig,
                                    Velto::Ptr< LagResolutionSm > lagResolution,
                                    Velto::Ptr< const PlatformVlanMappingStatus > platformStatus,
                                    Velto::Ptr< SourceVlanMappingStatusDir > sourceStatusDir )
    : mergedConfig_( std::move( mergedConfig ) ), lagResolution_( std::move( lagResolution ) ),
      platformStatus_( std::move( platformStatus ) ),
      sourceStatusDir_( std::move( sourceStatusDir ) ) {
   lagResolution_->listenerIs( this );
}

PlatformStatusSm::~PlatformStatusSm() {
   lagResolution_->listenerIs( nullptr );
}

void
PlatformStatusSm::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   const Velto::Hold alive( this );
   readyWatch_.attach( this, platformStatus_.ptr() );
   Velto::FirstError error;
   error.run( [&] { platform_.attach( this, platformStatus_.ptr() ); } );
   error.run( [&] { merged_.attach( this, mergedConfig_.ptr() ); } );
   error.run( [&] { askAll(); } );
   error.pass();
}

void
PlatformStatusSm::handleReady() {
   askAll();
}

void
PlatformStatusSm::askAll() {
   const Velto::Hold alive( this );
   Velto::FirstError error;
   KeySet< IntfId > intfs;
   for ( auto && [intf, config] : mergedConfig_->intfVlanMappingConfigIteratorConst() ) {
      intfs.emplace( intf );
   }
   for ( ConfigSource source : vlanMappingConfigSources ) {
      error.run( [&] { sourceStatusDir_->sourceVlanMappingStatusIs( source ); } );
      auto statuses = sourceStatusDir_->sourceVlanMappingStatus( source );
      for ( auto && [intf, status] : statuses->intfVlanMappingStatusIteratorConst() ) {
         intfs.emplace( intf );
      }
   }
   for ( auto && entry : intfs ) {
      error.run( [&] { handleMergedIntf( entry.key ); } );
   }
   error.pass();
}

void
PlatformStatusSm::handlePlatformVlanMappingStatus( const IntfId & port, const Key & key ) {
   auto config = lagResolution_->platformIntfConfig( port );
   if ( config && config->vlanMappingConfigHas( key ) ) {
      ask( config->vlanMappingConfig( key ).intf(), key );
   }
}

void
PlatformStatusSm::handlePlatformIntf( const IntfId & port ) {
   if ( auto config = lagResolution_->platformIntfConfig( port ) ) {
      KeySet< IntfId > intfs;
      for ( auto && [key, data] : config->vlanMappingConfigIteratorConst() ) {
         intfs.emplace( data.intf() );
      }
      const Velto::Hold alive( this );
      Velto::FirstError error;
      for ( auto && entry : intfs ) {
         error.run( [&] { handleMergedIntf( entry.key ); } );
      }
      error.pass();
   }
}

void
PlatformStatusSm::handleMergedKey( const IntfId & intf, const Key & key ) {
   ask( intf, key );
}

void
PlatformStatusSm::handleMergedIntf( const IntfId & intf ) {
   for ( const Key & key : knownKeys( intf ) ) {
      work_.add( { intf, key } );
   }
   work_.drain( this, [this]( const Question & question ) { review( question ); } );
}

std::vector< Key >
PlatformStatusSm::knownKeys( IntfId intf ) const {
   KeySet< Key > keys;
   if ( auto merged = mergedConfig_->intfVlanMappingConfig( intf ) ) {
      keys = keysOf< Key >( merged->vlanMappingConfigIteratorConst() );
   }
   for ( ConfigSource source : vlanMappingConfigSources ) {
      auto statuses = sourceStatusDir_->sourceVlanMappingStatus( source );
      auto known = statuses ? statuses->intfVlanMappingStatus( intf ) : nullptr;
      if ( known ) {
         for ( auto && [key, status] : known->vlanMappingStatusIteratorConst() ) {
            keys.emplace( key );
         }
      }
   }
   std::vector< Key > all;
   for ( auto && entry : keys ) {
      all.push_back( entry.key );
   }
   return all;
}

void
PlatformStatusSm::ask( IntfId intf, const Key & key ) {
   work_.add( { intf, key } );
   work_.drain( this, [this]( const Question & question ) { review( question ); } );
}

std::optional< Result >
PlatformStatusSm::resultOf( IntfId intf, const Key & key ) const {
   std::optional< Result > worst;
   auto merged = mergedConfig_->intfVlanMappingConfig( intf );
   for ( IntfId port : lagResolution_->targets( intf ) ) {
      auto config = lagResolution_->platformIntfConfig( port );
      if ( !config || !config->vlanMappingConfigHas( key ) ) {
         continue;
      }
      auto statuses = platformStatus_->intfVlanMappingStatus( port );
      const auto data = config->vlanMappingConfig( key );
      const bool answered = merged && data.merged() == merged->vlanMappingConfig( key ) &&
                            statuses && statuses->vlanMappingStatusHas( key ) &&
                            statuses->vlanMappingStatus( key ).answers( data.version() );
      const Result result =
            answered ? statuses->vlanMappingStatus( key ).result() : Result::handedOver;
      if ( !worst || badness( result ) > badness( *worst ) ) {
         worst = result;
      }
   }
   return worst;
}

void
PlatformStatusSm::review( const Question & question ) {
   const IntfId intf = question.intf;
   const Key key = question.key;
   auto merged = mergedConfig_->intfVlanMappingConfig( intf );
   const bool has = merged && merged->vlanMappingConfigHas( key );
   const auto data = has ? merged->vlanMappingConfig( key ) : MergedVlanMappingData();
   if ( has && !platformStatus_->ready() ) {
      return;
   }
   const auto found = resultOf( intf, key );
   const bool known = has && found.has_value();
   const Result result = found.value_or( Result::handedOver );
   if ( auto ofIntf = full_.find( intf ) ) {
      auto reported = ofIntf->find( key );
      const bool succeeded = known && result == Result::success;
      if ( reported && ( !has || !( *reported == data ) || succeeded ) ) {
         ofIntf->erase( key );
      }
      if ( ofIntf->empty() ) {
         full_.erase( intf );
      }
   }
   Velto::FirstError error;
   if ( known && result == Result::full ) {
      error.run( [&] { reportFull( intf, key, data ); } );
   }
   error.run( [&] { tellSource( question, data, known ? found : std::nullopt ); } );
   if ( listener_ ) {
      listener_->outcomeHeard( intf, key.direction(), key.key() );
   }
   error.pass();
}

/** The source that owns the key, if there is a result; nothing is left with the others. */
void
PlatformStatusSm::tellSource( const Question & question, const MergedVlanMappingData & data,
                              std::optional< Result > result ) {
   const IntfId intf = question.intf;
   const Key key = question.key;
   for ( ConfigSource source : vlanMappingConfigSources ) {
      const auto all = sourceStatusDir_->sourceVlanMappingStatusIs( source );
      if ( result && source == data.source() ) {
         const auto statuses = all->intfVlanMappingStatusIs( intf );
         statuses->vlanMappingStatusIs( key, *result );
      } else if ( const Velto::Ptr< SourceIntfVlanMappingStatus > statuses{
                        all->intfVlanMappingStatus( intf ) } ) {
         statuses->vlanMappingStatusDel( key );
         if ( !statuses->vlanMappingStatuss() ) {
            all->intfVlanMappingStatusDel( intf );
         }
      }
   }
}

/** Once until the merged translation changes, goes, or is on all ports. */
void
PlatformStatusSm::reportFull( IntfId intf, const Key & key, const MergedVlanMappingData & data ) {
   if ( full_.emplace( intf ).first->emplace( key, data ).second ) {
      messages.full( { intf, key.direction(), key.key(), data.mapping() },
                     data.source() == ConfigSource::nativeVlan );
   }
}

} // namespace Qon::VlanMapping
