// The third stage: merged translations on the ports that have them, and the port-channels that carry
// any.

#include "Qon/include/vlanmapping/QonVlanMappingSm2.h"
#include "Qon/vlanmapping/VlanMapping2Trace.h"

namespace Qon::VlanMapping {

// --- LagResolutionSm -----------------------------------------------------------------------------

LagResolutionSm::LagResolutionSm( Velto::Ptr< const MergedVlanMappingConfig > mergedConfig,
                                  Velto::Ptr< const ProgrammedPortToLag > programmedPortToLag,
                                  Velto::Ptr< PlatformVlanMappingConfig > platformConfig )
    : mergedConfig_( std::move( mergedConfig ) ), portToLag_( std::move( programmedPortToLag ) ),
      platformConfig_( std::move( platformConfig ) ) {}

void
LagResolutionSm::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   portToLagWatch_.attach( this, portToLag_.ptr() );
   KeySet< IntfId > ports = keysOf< IntfId >( ruler_ );
   for ( auto && [port, lag] : portToLag_->portToLagIteratorConst() ) {
      ports.emplace( port );
   }
   for ( auto && [port, config] : platformConfig_->intfVlanMappingConfigIteratorConst() ) {
      ports.emplace( port ); // what a former run left
      for ( auto && [key, data] : config->vlanMappingConfigIteratorConst() ) {
         version_ = std::max( version_, data.version() );
      }
   }
   for ( auto && entry : ports ) {
      work_.add( { entry.key, {} } );
   }
   const Velto::Hold alive( this );
   Velto::FirstError error;
   error.run( [&] { settle(); } );
   error.run( [&] { merged_.attach( this, mergedConfig_.ptr() ); } );
   error.pass();
}

void
LagResolutionSm::settle() {
   work_.drain( this, [this]( const Question & question ) { answer( question ); } );
}

void
LagResolutionSm::handlePortToLag( const IntfId & port ) {
   work_.add( { port, {} } );
   settle();
}

void
LagResolutionSm::handleMergedIntf( const IntfId & intf ) {
   for ( IntfId port : targets( intf ) ) {
      work_.add( { port, {} } );
   }
   settle();
}

void
LagResolutionSm::handleMergedKey( const IntfId & intf, const Key & key ) {
   work_.add( { intf, key } );
   settle();
}

std::vector< IntfId >
LagResolutionSm::targets( IntfId intf ) const {
   if ( Ulnet::PortChannelIntfId::isPortChannelIntfId( intf ) ) {
      auto members = members_.find( intf );
      return members ? *members : std::vector< IntfId >();
   }
   return ruler_.has( intf ) ? std::vector< IntfId >() : std::vector{ intf };
}

IntfId
LagResolutionSm::rulerOf( IntfId port ) const {
   auto lag = ruler_.find( port );
   return lag ? *lag : port;
}

void
LagResolutionSm::answer( const Question & question ) {
   if ( !question.key ) {
      reviewPort( question.intf );
      return;
   }
   Velto::FirstError error;
   for ( IntfId port : targets( question.intf ) ) {
      error.run( [&] { reviewKey( port, question.intf, *question.key ); } );
   }
   error.pass();
}

void
LagResolutionSm::reviewPort( IntfId port ) {
   const IntfId now = portToLag_->portToLag( port );
   const IntfId before = ruler_.has( port ) ? rulerOf( port ) : IntfId();
   if ( now != before ) {
      if ( before ) {
         auto & members = *members_.find( before );
         std::erase( members, port );
         if ( members.empty() ) {
            members_.erase( before );
         }
         ruler_.erase( port );
      }
      if ( now ) {
         ruler_.emplace( port, now );
         members_.emplace( now ).first->push_back( port );
      }
   }
   const IntfId ruler = rulerOf( port );
   KeySet< Key > keys;
   if ( auto merged = mergedConfig_->intfVlanMappingConfig( ruler ) ) {
      keys = keysOf< Key >( merged->vlanMappingConfigIteratorConst() );
   }
   if ( auto held = platformIntfConfig( port ) ) {
      for ( auto && [key, data] : held->vlanMappingConfigIteratorConst() ) {
         keys.emplace( key );
      }
   }
   Velto::FirstError error;
   for ( auto && entry : keys ) {
      error.run( [&] { reviewKey( port, ruler, entry.key ); } );
   }
   if ( now != before ) {
      for ( IntfId intf : { before, now, port } ) {
         if ( listener_ ) {
            error.run( [&] { listener_->handleTargets( intf ); } );
         }
      }
   }
   error.pass();
}

void
LagResolutionSm::reviewKey( IntfId port, IntfId ruler, const Key & key ) {
   auto wanted = [&]() -> std::optional< MergedVlanMappingData > {
      auto merged = mergedConfig_->intfVlanMappingConfig( ruler );
      return merged && merged->vlanMappingConfigHas( key )
                   ? std::optional( merged->vlanMappingConfig( key ) )
                   : std::nullopt;
   };
   Velto::FirstError error;
   if ( wanted() ) {
      error.run( [&] { platformConfig_->intfVlanMappingConfigIs( port ); } );
   }
   const Velto::Ptr< PlatformIntfVlanMappingConfig > held(
         platformConfig_->intfVlanMappingConfig( port ) );
   // The publication of the port may have changed what is wanted, or ended it.
   if ( const auto data = wanted(); held && data ) {
      const PlatformVlanMappingData before = held->vlanMappingConfig( key );
      if ( !before.version() || !( before.merged() == *data ) || before.intf() != ruler ) {
         error.run( [&] { held->vlanMappingConfigIs( key, { *data, ruler, ++version_ } ); } );
      }
   } else if ( held ) {
      error.run( [&] { held->vlanMappingConfigDel( key ); } );
      if ( !held->vlanMappingConfigs() ) {
         error.run( [&] { platformConfig_->intfVlanMappingConfigDel( port ); } );
      }
   }
   error.pass();
}

String
LagResolutionSm::checkInvariants() const {
   for ( auto && [port, config] : platformConfig_->intfVlanMappingConfigIteratorConst() ) {
      auto merged = mergedConfig_->intfVlanMappingConfig( rulerOf( port ) );
      if ( !merged || merged->vlanMappingConfigs() != config->vlanMappingConfigs() ) {
         return port.stringValue() + " has not the translations of " +
                rulerOf( port ).stringValue();
      }
      for ( auto && [key, data] : config->vlanMappingConfigIteratorConst() ) {
         if ( !( merged->vlanMappingConfig( key ) == data.merged() ) ) {
            return port.stringValue() + " " + key.stringValue() + " is not as merged";
         }
      }
   }
   for ( auto && [intf, config] : mergedConfig_->intfVlanMappingConfigIteratorConst() ) {
      for ( IntfId port : targets( intf ) ) {
         if ( config->vlanMappingConfigs() && !platformIntfConfig( port ) ) {
            return port.stringValue() + " has nothing of " + intf.stringValue();
         }
      }
   }
   return "";
}

// --- LagInterlockSm ------------------------------------------------------------------------------

LagInterlockSm::LagInterlockSm( Velto::Ptr< const QonCommonSmData > acsd,
                                Velto::Ptr< const MergedVlanMappingConfig > mergedConfig,
                                Velto::Ptr< PortChannelInterlockDir > interlock )
    : acsd_( std::move( acsd ) ), mergedConfig_( std::move( mergedConfig ) ),
      interlock_( std::move( interlock ) ) {}

void
LagInterlockSm::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   lagToPortWatch_.attach( this, acsd_.ptr() );
   KeySet< IntfId > lags =
         keysOf< IntfId >( interlock_->portChannelIteratorConst() ); // of a former run
   const Velto::Hold alive( this );
   Velto::FirstError error;
   error.run( [&] { merged_.attach( this, mergedConfig_.ptr() ); } );
   for ( auto && entry : lags ) {
      error.run( [&] { ask( entry.key ); } );
   }
   error.pass();
}

void
LagInterlockSm::ask( IntfId lag ) {
   work_.add( lag );
   work_.drain( this, [this]( IntfId question ) { review( question ); } );
}

void
LagInterlockSm::review( IntfId lag ) {
   auto merged = mergedConfig_->intfVlanMappingConfig( lag );
   const bool wanted = Ulnet::PortChannelIntfId::isPortChannelIntfId( lag ) && merged &&
                       merged->vlanMappingConfigs() && acsd_->lagToPortHas( lag );
   const Velto::Ptr< PortChannelInterlock > held( interlock_->portChannel( lag ) );
   const bool there = held && held->featureHas( feature );
   if ( wanted == there ) {
      return;
   }
   if ( wanted ) {
      QON_TRACE( facility, 4, "add to feature interlock for port-channel ", lag ); // fixed text
      const Velto::Ptr< PortChannelInterlock > fresh( interlock_->portChannelIs( lag ) );
      fresh->featureIs( feature );
      QON_TRACE( facility, 5, " in feature interlock for port-channel ", lag ); // fixed text
      return;
   }
   QON_TRACE( facility, 4, "remove to feature interlock for port-channel ", lag ); // fixed text
   Velto::FirstError error;
   error.run( [&] { held->featureDel( feature ); } );
   if ( !held->features() ) {
      error.run( [&] { interlock_->portChannelDel( lag ); } );
   }
   error.pass();
}

} // namespace Qon::VlanMapping
