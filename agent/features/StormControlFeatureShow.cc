// What the console shows of storm control.

#include "agent/features/Arguments.h"
#include "agent/features/StormControlFeature.h"
#include "platform/types/Paths.h"

namespace QonAgent {

using Bridging::StormControl::Threshold;

namespace {

String
shownThreshold( const Threshold & threshold ) {
   return Kiv::toText( threshold.value() ) + " " + Kiv::toText( threshold.unit() );
}

String
shownThreshold( const Bridging::StormControl::OptionalThreshold & threshold ) {
   return threshold ? shownThreshold( *threshold ) : "";
}

Kiv::Read< Bridging::StormControl::OptionalThreshold >
levelOf( const Bridging::StormControl::IntfConfig & config, Bridging::StormControl::Level level ) {
   return ( config.*Qon::StormControl::kindOf( level ).configured )();
}

/** The packets that a level dropped, by its number. */
U64
dropsOf( const Bridging::StormControl::Drops & drops, Bridging::StormControl::Level level ) {
   const U64 all[] = { drops.uucastDrop(),       drops.uucastCpuDrop(), drops.broadcastDrop(),
                       drops.broadcastCpuDrop(), drops.multicastDrop(), drops.multicastCpuDrop(),
                       drops.allDrop(),          drops.allCpuDrop() };
   return all[U8( level )];
}

} // namespace

std::vector< Ulnet::IntfId >
StormControlFeature::shown() const {
   auto intfs = Qon::keysOf< IntfId >( config_->intfIteratorConst() );
   for ( auto && [port, lag] : agent_.acsd()->portToLagIteratorConst() ) {
      if ( config_->intfHas( lag ) ) {
         intfs.emplace( port );
      }
   }
   std::vector< IntfId > sorted;
   for ( auto && entry : intfs ) {
      sorted.push_back( entry.key );
   }
   std::sort( sorted.begin(), sorted.end() );
   return sorted;
}

String
StormControlFeature::whyNoMachine( IntfId intf ) const {
   auto phy = phys_->intfStatus( intf );
   if ( !sm() ) {
      return part_ ? "the chip has not this generation" : "no storm control in the chip";
   }
   if ( !sm()->intfSm( intf ) ) {
      const bool bridged = !phy || phy->forwardingModel() == Interface::ForwardingModel::bridged;
      return bridged ? "not managed" : "not bridged";
   }
   return phy && !phy->active() ? "inactive" : "";
}

String
StormControlFeature::why( IntfId intf, Level level, const OptionalThreshold & wanted,
                          const QonChip::HeldStormControl & held ) const {
   if ( !Qon::StormControl::isPort( intf ) ) {
      return Ulnet::SubIntfId::isSubIntfId( intf ) ? "a sub-interface" : "";
   }
   const auto & kind = Qon::StormControl::kindOf( level );
   if ( wanted && kind.cpu && second_ ) {
      return "not supported";
   }
   if ( wanted && kind.cpu && wanted->value() == 0 ) {
      return "zero rate is not supported";
   }
   if ( String reason = whyNoMachine( intf ); wanted && !reason.empty() ) {
      return reason;
   }
   if ( !wanted || *wanted == Threshold() ) {
      return "";
   }
   auto platform = platformConfig_->platformIntfConfig( intf );
   auto report = platformStatus_->platformIntfStatus( intf );
   if ( second_ && ( !platform || !report || report->versionId() != platform->versionId() ) ) {
      return "chip not done";
   }
   auto port = held.ports.find( intf );
   return port == held.ports.end() || !port->second.contains( level ) ? "no limiter" : "";
}

Row
StormControlFeature::row( IntfId intf, Level level, const QonChip::HeldStormControl & held ) const {
   auto & names = agent_.names();
   const auto effective =
         Qon::StormControl::effectiveConfig( *config_, Qon::LagView( agent_.acsd() ), intf );
   auto own = config_->intf( intf );
   const OptionalThreshold wanted =
         effective.config ? levelOf( *effective.config, level ) : OptionalThreshold();
   auto port = held.ports.find( intf );
   String programmed;
   if ( port != held.ports.end() && port->second.contains( level ) ) {
      programmed = shownThreshold( port->second.at( level ).threshold );
   }
   const String reason = why( intf, level, wanted, held );
   Row row = { { "interface", names.spelling( intf ) },
               { "level", Kiv::toText( level ) },
               { "configured", own ? shownThreshold( levelOf( *own, level ) ) : "" },
               { "effective", shownThreshold( wanted ) },
               { "from", effective.config ? names.spelling( effective.config->intfId() ) : "" },
               { "programmed", programmed },
               { "drops", dropsOf( drops_->allIntfStatus( intf ).drops(), level ) },
               { "disabled", yesNo( disabled_->intfStatusHas( intf ) ) },
               { "reason", reason },
               { "intfId", intf.stringValue() } };
   // What is not in the chip has not been since it was asked for.
   const IntfId asked = effective.config ? effective.config->intfId() : intf;
   const auto since = times_.of( String( Paths::stormControlConfig ) + "/intf[" +
                                 asked.stringValue() + "]/" + Kiv::toText( level ) + "Level" );
   if ( !reason.empty() && since ) {
      row.set( "since", Kiv::now() - *since );
   }
   return row;
}

/** A row a level that anybody configured or that dropped anything. */
Rows
StormControlFeature::stormControl( Arguments arguments ) const {
   const auto held =
         ( part_ ? part_->stormControl() : std::nullopt ).value_or( QonChip::HeldStormControl() );
   for ( IntfId intf : shown() ) {
      if ( arguments.has( 0 ) && intf != arguments.intf( 0 ) ) {
         continue;
      }
      for ( auto & kind : Qon::StormControl::levelKinds ) {
         const auto effective =
               Qon::StormControl::effectiveConfig( *config_, Qon::LagView( agent_.acsd() ), intf );
         auto own = config_->intf( intf );
         const bool said = ( own && levelOf( *own, kind.level ) ) ||
                           ( effective.config && levelOf( *effective.config, kind.level ) );
         if ( said || dropsOf( drops_->allIntfStatus( intf ).drops(), kind.level ) ) {
            co_yield row( intf, kind.level, held );
         }
      }
   }
}

/** A row a limiter, then one a traffic class. */
Rows
StormControlFeature::hardware() const {
   const auto held = part_ ? part_->stormControl() : std::nullopt;
   if ( !held ) {
      notServed( agent_, "the reading of storm control" );
   }
   for ( auto & [intf, levels] : held->ports ) {
      for ( auto & [level, limit] : levels ) {
         const Row made = { { "interface", agent_.names().spelling( intf ) },
                            { "level", Kiv::toText( level ) },
                            { "limit", shownThreshold( limit.threshold ) },
                            { "speed", limit.speedKbps / 1000 } };
         co_yield made;
      }
   }
   for ( auto & [trafficClass, threshold] : held->classes ) {
      const Row made = { { "trafficClass", U32( trafficClass ) },
                         { "limit", shownThreshold( threshold ) } };
      co_yield made;
   }
}

std::vector< ShowCommand >
StormControlFeature::showCommands() {
   const Argument only = intfArgument( "INTF", "storm control of", [this]( IntfId intf ) {
      const auto all = shown();
      return std::find( all.begin(), all.end(), intf ) != all.end();
   } );
   return { { "storm-control",
              "levels of traffic: configured, from where, in the chip, and what was dropped",
              { only },
              { { "interface", "Interface" },
                { "level", "Level" },
                { "configured", "Configured" },
                { "effective", "Effective" },
                { "from", "From" },
                { "programmed", "In the chip" },
                { "drops", "Drops", true },
                { "disabled", "Disabled" },
                { "reason", "Reason" },
                { "since", "Since s", true } },
              [this]( auto & arguments ) { return stormControl( arguments ); } },
            { "hw storm-control",
              "limiters that the chip holds",
              {},
              { { "interface", "Interface" },
                { "level", "Level" },
                { "trafficClass", "Class", true },
                { "limit", "Limit" },
                { "speed", "Mb/s", true } },
              [this]( auto & ) { return hardware(); } } };
}

} // namespace QonAgent
