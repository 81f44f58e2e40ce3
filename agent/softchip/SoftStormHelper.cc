#include "agent/softchip/SoftStormHelper.h"

#include "Qon/include/framework/VerifyData.h"
#include "agent/softchip/StormControlPart.h"

namespace SoftChip {

using Qon::LevelType;
using Qon::StormControl::levelKinds;
using QonTypes::TableAddStatus;

namespace {

Level
softStormLevel( LevelType type, bool cpu ) {
   return Level( 2 * ( U8( type ) - U8( LevelType::levelTypeUUcast ) ) + cpu );
}

} // namespace

// --- The first generation ------------------------------------------------------------------------

SoftStormHelper::SoftStormHelper( StormControlPart & part,
                                  Velto::Ptr< Qon::VerifyData > verifyData )
    : StormControlSmHelper( "stormControl" ), part_( part ),
      verifyData_( std::move( verifyData ) ) {
   part_.table().hook.is( this );
}

SoftStormHelper::~SoftStormHelper() {
   part_.table().hook.is( nullptr );
}

void
SoftStormHelper::hwInit() {
   part_.changes();
   part_.table().clear();
   part_.changed();
}

void
SoftStormHelper::updateBcastSkipRule( IntfId intf, bool skip ) {
   part_.table().skipIs( intf, skip );
}

void
SoftStormHelper::programTcAggregateHwRate( U8 trafficClass, const Threshold & threshold ) {
   part_.table().classIs( trafficClass, threshold );
}

void
SoftStormHelper::set( LevelType levelType, bool cpu, IntfId intf, U64 speedKbps,
                      const Threshold & threshold ) {
   part_.changes();
   part_.table().set( intf, softStormLevel( levelType, cpu ), { threshold, speedKbps } );
   part_.changed();
}

void
SoftStormHelper::setHwRate( LevelType levelType, IntfId intf, IntfId, U64 speedKbps,
                            const Threshold & threshold ) {
   set( levelType, false, intf, speedKbps, threshold );
}

void
SoftStormHelper::setCpuHwRate( LevelType levelType, IntfId intf, IntfId, U64 speedKbps,
                               const Threshold & threshold ) {
   set( levelType, true, intf, speedKbps, threshold );
}

void
SoftStormHelper::setBurstTime( const Qon::StormControl::BurstConfig & config ) {
   part_.burstTimeIs( config.burstTime() );
}

bool
SoftStormHelper::uucastLevelEnabled() {
   return part_.shape().uucast;
}

bool
SoftStormHelper::burstEnabled() {
   return part_.shape().burst;
}

void
SoftStormHelper::finding( const String & what ) {
   if ( verifyData_ ) {
      QON_FINDING( verifyData_, what );
   }
}

void
SoftStormHelper::verifyEnabled( IntfId intf, bool enabled ) {
   for ( auto & kind : levelKinds ) {
      if ( !enabled && part_.table().limit( intf, kind.level ) ) {
         finding( "Storm control limits " + intf.stringValue() + ", which is inactive" );
      }
   }
}

/** What waits for a limiter is no difference: there is none. */
void
SoftStormHelper::verifyPort( IntfId intf, IntfId, U64 speedKbps,
                             const Qon::StormControl::IntfStatus & status ) {
   for ( auto & kind : levelKinds ) {
      const StormTable::Limit wanted = { status.level( kind.level ), speedKbps };
      auto held = part_.table().limit( intf, kind.level );
      const bool none = wanted.threshold == Threshold();
      if ( !part_.table().waits( intf, kind.level ) &&
           ( none ? held != nullptr : !held || !( *held == wanted ) ) ) {
         finding( "Storm control level " + Kiv::toText( kind.level ) + " of " + intf.stringValue() +
                  " differs in the chip" );
      }
   }
}

void
SoftStormHelper::verifyAggregateTc( U8 trafficClass,
                                    const Qon::StormControl::AggregateTcStatus & status ) {
   auto & classes = part_.table().classes();
   auto held = classes.find( trafficClass );
   const Threshold now = held == classes.end() ? Threshold() : held->second;
   if ( status.threshold() && !( *status.threshold() == now ) ) {
      finding( "Storm control of traffic class " + Kiv::toText( trafficClass ) +
               " differs in the chip" );
   }
}

// --- The second generation -----------------------------------------------------------------------

/** What nobody configures any more, an agent before this one left. */
SoftStormHelperV2::SoftStormHelperV2( StormControlPart & part, Velto::Ptr< const Config > config,
                                      Velto::Ptr< Status > status )
    : QonStormControlSmHelperV2( "stormControl" ), part_( part ), config_( std::move( config ) ),
      status_( std::move( status ) ) {
   part_.table().hook.is( this );
   part_.changes();
   part_.table().skipNowhere();
   const auto held = part_.table().held();
   for ( auto & [key, limit] : held ) {
      if ( !config_->platformIntfConfigHas( key.first ) ) {
         part_.table().reset( key.first );
      }
   }
   const auto classes = part_.table().classes();
   for ( auto & [trafficClass, threshold] : classes ) {
      if ( !config_->platformAggregateTcConfigHas( trafficClass ) ) {
         part_.table().classIs( trafficClass, Threshold() );
      }
   }
}

SoftStormHelperV2::~SoftStormHelperV2() {
   part_.table().hook.is( nullptr );
}

void
SoftStormHelperV2::updateBcastSkipRule( IntfId intf, bool skip ) {
   part_.table().skipIs( intf, skip );
}

/** The levels of a change come one by one; they are taken together. */
void
SoftStormHelperV2::handlePortRulesHelper( LevelType, IntfId intf, IntfId, U64, const Threshold & ) {
   if ( pending_.insert( intf ).second ) {
      part_.completions().add( [this, &part = part_, intf, ticket = part_.table().hook.ticket()] {
         if ( part.table().hook.of( ticket ) ) {
            pending_.erase( intf );
            apply( intf );
         }
      } );
   }
}

void
SoftStormHelperV2::apply( IntfId intf ) {
   const Velto::Hold alive( this );
   const Velto::Ptr config( config_->platformIntfConfig( intf ) );
   if ( !config ) {
      return;
   }
   part_.changes();
   for ( auto & kind : levelKinds ) {
      if ( config->levelHas( kind.type ) && !kind.cpu ) {
         part_.table().set( intf, kind.level, { config->level( kind.type ), config->speed() } );
      }
   }
   part_.changed();
   report( intf );
}

void
SoftStormHelperV2::report( IntfId intf ) {
   const Velto::Ptr config( config_->platformIntfConfig( intf ) );
   if ( !config || pending_.contains( intf ) ) {
      return; // what comes later reports it
   }
   const Velto::Ptr status( status_->platformIntfStatusIs( intf ) );
   const U32 version = config->versionId();
   for ( auto & kind : levelKinds ) {
      if ( config->levelHas( kind.type ) && !kind.cpu ) {
         status->resultIs( kind.type, part_.table().waits( intf, kind.level )
                                            ? TableAddStatus::full
                                            : TableAddStatus::success );
      }
   }
   status->versionIdIs( version );
}

void
SoftStormHelperV2::admitted( IntfId port ) {
   const Velto::Hold alive( this );
   part_.changes();
   report( port );
}

void
SoftStormHelperV2::resetPortConfig( IntfId intf ) {
   part_.changes();
   part_.table().reset( intf );
   part_.changed();
   status_->platformIntfStatusDel( intf );
}

void
SoftStormHelperV2::handleAggregateTcRulesHelper( U8 trafficClass, const Threshold & threshold ) {
   part_.completions().add( [this, &part = part_, trafficClass, threshold,
                             asked = part_.classAsked( trafficClass ),
                             ticket = part_.table().hook.ticket()] {
      if ( part.table().hook.of( ticket ) ) {
         applyClass( trafficClass );
      } else if ( part.lastAsked( trafficClass, asked ) ) {
         part.table().classIs( trafficClass, threshold );
      }
   } );
}

void
SoftStormHelperV2::applyClass( U8 trafficClass ) {
   const Velto::Hold alive( this );
   if ( const Velto::Ptr config( config_->platformAggregateTcConfig( trafficClass ) ); config ) {
      part_.table().classIs( trafficClass, config->threshold() );
      const U32 version = config->versionId();
      const Velto::Ptr status( status_->platformAggregateTcStatusIs( trafficClass ) );
      status->versionIdIs( version );
   } else {
      part_.table().classIs( trafficClass, Threshold() );
      status_->platformAggregateTcStatusDel( trafficClass );
   }
}

// --- The counters --------------------------------------------------------------------------------

SoftStormCounter::SoftStormCounter( StormControlPart & part, Velto::Ptr< Dir > slices )
    : part_( part ), slices_( std::move( slices ) ) {
   VELTO_ASSERT( !part_.counter_ );
   part_.counter_ = this;
   touch();
}

SoftStormCounter::~SoftStormCounter() {
   part_.counter_ = nullptr;
}

void
SoftStormCounter::publish() {
   const Velto::Hold alive( this );
   part_.meter().advance();
   if ( part_.meter().busy() ) {
      alarm_.in( period );
   }
   const auto ports = part_.meter().ports();
   for ( U32 slice = 0; slice < part_.meter().slices(); ++slice ) {
      publishSlice( slice, ports );
   }
}

void
SoftStormCounter::publishSlice( U32 number, const std::vector< IntfId > & ports ) {
   const String name = StormMeter::sliceName( number );
   if ( part_.meter().lost( number ) ) {
      slices_->sliceDel( name );
      return;
   }
   const Velto::Ptr slice( slices_->sliceIs( name ) );
   for ( IntfId port : ports ) {
      const auto drops = part_.meter().drops( number, port );
      const Velto::Ptr status( slice->intfStatusIs( port ) );
      status->dropsIs( drops );
   }
}

} // namespace SoftChip
