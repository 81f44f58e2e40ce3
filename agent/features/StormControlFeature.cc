#include "agent/features/StormControlFeature.h"

#include "agent/Agent.h"
#include "agent/ConfigReader.h"
#include "agent/features/Arguments.h"
#include "agent/softchip/StormControlPart.h"
#include "platform/types/Paths.h"

namespace QonAgent {

using Bridging::StormControl::IntfConfig;
using Bridging::StormControl::Unit;

namespace {

constexpr char stormGenerationOption[] = "storm-control";
constexpr U64 mostKbps = 1'000'000'000;
constexpr U64 mostSeconds = 86'400;

/** The setters of a kind's levels: of the data plane, and of the CPU. */
struct StormKind {
   const char * name;
   void ( IntfConfig::*level )( Kiv::Read< Bridging::StormControl::OptionalThreshold > );
   void ( IntfConfig::*cpuLevel )( Kiv::Read< Bridging::StormControl::OptionalThreshold > );
   Qon::LevelType type;
};
constexpr StormKind stormKinds[] = {
      { "unknown-unicast", &IntfConfig::uUcastLevelIs, &IntfConfig::uUcastCpuLevelIs,
        Qon::LevelType::levelTypeUUcast },
      { "broadcast", &IntfConfig::broadcastLevelIs, &IntfConfig::broadcastCpuLevelIs,
        Qon::LevelType::levelTypeBroadcast },
      { "multicast", &IntfConfig::multicastLevelIs, &IntfConfig::multicastCpuLevelIs,
        Qon::LevelType::levelTypeMulticast },
      // As other files call it.
      { "unknown-multicast", &IntfConfig::multicastLevelIs, &IntfConfig::multicastCpuLevelIs,
        Qon::LevelType::levelTypeMulticast },
      { "all", &IntfConfig::allLevelIs, &IntfConfig::allCpuLevelIs, Qon::LevelType::levelTypeAll },
};

const StormKind *
stormKindOf( const String & name ) {
   for ( auto & kind : stormKinds ) {
      if ( name == kind.name ) {
         return &kind;
      }
   }
   return nullptr;
}

/** At most one of the fields kbps, percent and pps, with that prefix. */
Bridging::StormControl::OptionalThreshold
thresholdIn( const ConfigRow & row, const String & prefix ) {
   Bridging::StormControl::OptionalThreshold threshold;
   for ( Unit unit : { Unit::kbps, Unit::percent, Unit::pps } ) {
      const String field = prefix + Kiv::toText( unit );
      if ( !row.has( field ) ) {
         continue;
      }
      if ( threshold ) {
         throw RowError( field, "another field gives the level in another unit" );
      }
      threshold = Bridging::StormControl::Threshold(
            unit, row.number( field, 0, unit == Unit::percent ? 100 : mostKbps, 0 ) );
   }
   return threshold;
}

} // namespace

std::vector< FeatureOption >
StormControlFeature::options() {
   return { { stormGenerationOption, { "1", "2" }, "the generation of storm control" } };
}

StormControlFeature::StormControlFeature( Agent & agent )
    : agent_( agent ), part_( agent.chip().part< QonChip::StormControlPart >() ),
      second_( agent.setting( stormGenerationOption ) == "2" ),
      config_(
            agent.entities().mount< Bridging::StormControl::Config >( Paths::stormControlConfig ) ),
      status_(
            agent.entities().mount< Bridging::StormControl::Status >( Paths::stormControlStatus ) ),
      phys_( agent.entities().mount< Interface::EthPhyIntfStatusDir >( Paths::ethPhyIntfStatus ) ),
      slices_( agent.entities().mount< Qon::StormControl::DropSliceDir >(
            Paths::hardwareStormControlSlice ) ),
      drops_( agent.entities().mount< Qon::StormControl::DropStatus >(
            Paths::hardwareStormControlDrop ) ),
      platformConfig_( agent.entities().mount< Qon::StormControl::PlatformConfig >(
            Paths::hardwareStormControlConfig ) ),
      platformStatus_( agent.entities().mount< Qon::StormControl::PlatformStatus >(
            Paths::hardwareStormControlStatus ) ),
      causes_( agent.entities().mount< Errdisable::CauseConfig >( Paths::errdisableConfig ) ),
      disabled_(
            agent.entities().mount< Errdisable::CauseStatus >( Paths::errdisableStormControl ) ),
      times_( agent.entities(), Paths::stormControlConfig ) {
   if ( !part_ ) {
      return;
   }
   counter_ = part_->makeDropCounter( slices_ );
   dropSm_ = Qon::StormControlDropSmIs(
         { config_, status_, slices_, drops_, agent.acsd(), agent.timerWheel() } );
   dropSm_->initializedIs( true );
   second_ ? makeSecond() : makeFirst();
   errdisableSm_ =
         Qon::StormControlErrdisableSmIs( { config_, status_, causes_, disabled_, agent.acsd() } );
   errdisableSm_->initializedIs( true );
}

void
StormControlFeature::makeFirst() {
   if ( auto helper = part_->makeStormControlHelper( agent_.acsd() ) ) {
      sm_ = Qon::StormControlSmIs(
            { config_, status_, phys_, agent_.acsd(), drops_, agent_.timerWheel() }, helper,
            agent_.acsd()->verifyData() );
      sm_->initializedIs( true );
   }
}

void
StormControlFeature::makeSecond() {
   if ( auto helper = part_->makeStormControlHelperV2( platformConfig_, platformStatus_ ) ) {
      smV2_ = Qon::QonStormControlSmV2Is(
            { config_, status_, phys_, agent_.acsd(), drops_, agent_.timerWheel() }, helper,
            platformConfig_, platformStatus_ );
      smV2_->initializedIs( true );
   }
}

const Qon::StormControlBaseSm *
StormControlFeature::sm() const {
   return smV2_ ? static_cast< const Qon::StormControlBaseSm * >( smV2_.ptr() ) : sm_.ptr();
}

// --- Configuration -------------------------------------------------------------------------------

std::vector< ConfigTable >
StormControlFeature::tables() const {
   return { { "PORT_STORM_CONTROL",
              "interface, or interface|kind of traffic",
              { { "drop_logging", "of an interface: true or false; false" },
                { "kbps", "of a kind of traffic: the most of it" },
                { "percent", "the same by the speed, 0 to 100" },
                { "pps", "the same in packets a second" },
                { "cpu_kbps", "the same of what goes to the CPU" },
                { "cpu_percent", "the same" },
                { "cpu_pps", "the same" } },
              { R"("Ethernet8": {"drop_logging": "true"})",
                R"("Ethernet8|broadcast": {"kbps": "1000"})" } },
            { "STORM_CONTROL",
              "GLOBAL, or TC|traffic class",
              { { "drop_logging", "true or false; false" },
                { "drop_logging_interval", "seconds between two messages" },
                { "counter_period", "seconds between two readings; 10" },
                { "errdisable", "true: interfaces that drop are disabled; false" },
                { "burst_time", "microseconds, up to 1000000" },
                { "kbps", "of a traffic class: the most of it" },
                { "percent", "the same by the speed, 0 to 100" },
                { "pps", "the same in packets a second" } },
              { R"("GLOBAL": {"counter_period": "2"})", R"("TC|3": {"pps": "500"})" } } };
}

void
StormControlFeature::configure( ConfigReader & reader ) {
   auto reading = std::make_shared< Reading >();
   reader.eachRow( "PORT_STORM_CONTROL", [&]( const ConfigRow & row ) {
      row.parts() == 1 ? port( reader, row, *reading ) : level( reader, row, *reading );
   } );
   reader.eachRow( "STORM_CONTROL", [&]( const ConfigRow & row ) { global( row, *reading ); } );
   reader.apply( [=, this] { become( *reading ); } );
}

/** What holds for all kinds of traffic of an interface. */
void
StormControlFeature::port( ConfigReader & reader, const ConfigRow & row, Reading & reading ) const {
   const IntfId intf = reader.portOrChannel( "", row.part( 0, 1 ) );
   reading.logging.emplace_back( intf, row.flag( "drop_logging", false ) );
}

void
StormControlFeature::level( ConfigReader & reader, const ConfigRow & row,
                            Reading & reading ) const {
   const IntfId intf = reader.portOrChannel( "", row.part( 0, 2 ) );
   auto kind = stormKindOf( row.part( 1, 2 ) );
   if ( !kind ) {
      throw RowError( "", "'" + row.part( 1, 2 ) +
                                "' is no kind of traffic: unknown-unicast, "
                                "broadcast, multicast or all" );
   }
   const Levels levels = { thresholdIn( row, "" ), thresholdIn( row, "cpu_" ) };
   if ( !levels.first && !levels.second ) {
      throw RowError( "", "none of the fields kbps, percent, pps gives a level" );
   }
   reading.levels.emplace_back( KindOfIntf( intf, kind->type ), levels );
}

/** "GLOBAL", or "TC|<traffic class>". */
void
StormControlFeature::global( const ConfigRow & row, Reading & reading ) const {
   if ( row.parts() == 2 && row.part( 0, 2 ) == "TC" ) {
      const auto threshold = thresholdIn( row, "" );
      const String text = row.part( 1, 2 );
      if ( text.size() != 1 || text[0] < '0' || text[0] > '7' || !threshold ) {
         throw RowError( "", "expected a traffic class from 0 to 7, and one of the fields kbps, "
                             "percent, pps" );
      }
      reading.classes.emplace_back( U8( text[0] - '0' ), *threshold );
      return;
   }
   if ( row.key() != "GLOBAL" ) {
      throw RowError( "", "expected the key GLOBAL, or TC and a traffic class" );
   }
   Global global;
   global.logging = row.flag( "drop_logging", false );
   global.errdisable = row.flag( "errdisable", false );
   global.interval = row.number( "drop_logging_interval", 0, mostSeconds, 0 );
   global.period = row.number( "counter_period", 0, mostSeconds, 10 );
   global.burst = U32( row.number( "burst_time", 0, 1'000'000, 0 ) );
   reading.global = global;
}

void
StormControlFeature::become( const Reading & reading ) {
   logging_.become(
         reading.logging,
         [this]( IntfId intf, bool ) {
            config_->intfIs( intf )->dropLoggingIs( false );
            leave( intf );
         },
         [this]( IntfId intf, bool logging, auto ) {
            config_->intfIs( intf )->dropLoggingIs( logging );
         } );
   levels_.become(
         reading.levels,
         [this]( const KindOfIntf & of, auto & ) {
            levelsAre( of, {} );
            leave( of.first );
         },
         [this]( const KindOfIntf & of, const Levels & levels, auto ) {
            levelsAre( of, levels );
         } );
   classes_.become(
         reading.classes, [this]( U8 number, auto & ) { config_->aggregateTcDel( number ); },
         [this]( U8 number, const Threshold & threshold, auto ) {
            config_->aggregateTcIs( number )->thresholdIs( threshold );
         } );
   if ( global_ != reading.global ) {
      globalIs( global_ = reading.global );
   }
}

void
StormControlFeature::levelsAre( const KindOfIntf & of, const Levels & levels ) {
   auto config = config_->intfIs( of.first );
   for ( auto & kind : stormKinds ) {
      if ( kind.type == of.second ) {
         ( ( *config ).*kind.level )( levels.first );
         ( ( *config ).*kind.cpuLevel )( levels.second );
      }
   }
}

void
StormControlFeature::globalIs( const Global & global ) {
   config_->burstConfigIs( Bridging::StormControl::BurstConfig( global.burst ) );
   config_->counterPeriodIs( double( global.period ) );
   config_->dropLoggingIntervalIs( double( global.interval ) );
   config_->dropLoggingIs( global.logging );
   global.errdisable ? causes_->enabledIs( Qon::StormControlErrdisableSm::cause )
                     : causes_->enabledDel( Qon::StormControlErrdisableSm::cause );
}

/** An interface of which nobody says anything any more. */
void
StormControlFeature::leave( IntfId intf ) {
   const auto config = config_->intf( intf );
   bool said = logging_.held().contains( intf );
   for ( auto & kind : Qon::StormControl::levelKinds ) {
      said = said || ( config && ( ( *config ).*kind.configured )() );
   }
   if ( !said ) {
      config_->intfDel( intf );
   }
}

// --- Events --------------------------------------------------------------------------------------

std::function< void() >
StormControlFeature::parseTraffic( const Json & line ) const {
   auto chip = dynamic_cast< SoftChip::StormControlPart * >( part_ );
   const IntfId port = agent_.names().typed( fieldOf< String >( line, "port" ) );
   const String name = fieldOf< String >( line, "kind" );
   auto kind = stormKindOf( name );
   if ( !kind || kind->type == Qon::LevelType::levelTypeAll ) {
      throw Velto::RangeError( "kind is unknown-unicast, broadcast or multicast, not '" + name +
                               "'" );
   }
   SoftChip::StormRate rate;
   rate.kbps = fieldOf< double >( line, "kbps" );
   rate.frameOctets = hasField( line, "octets" ) ? fieldOf< double >( line, "octets" ) : 64;
   const bool cpu = hasField( line, "cpu" ) && fieldOf< bool >( line, "cpu" );
   if ( !( rate.kbps >= 0 ) || !( rate.frameOctets >= 1 ) ) {
      throw Velto::RangeError( "kbps cannot be negative, nor octets less than 1" );
   }
   return [=, this, type = kind->type] {
      mustBeThere( agent_, port );
      chip->trafficIs( port, type, cpu, rate );
   };
}

std::function< void() >
StormControlFeature::parseRecover( const Json & line ) const {
   const String name = fieldOf< String >( line, "port" );
   const IntfId port = agent_.names().typed( name );
   return [=, this] {
      if ( !disabled_->intfStatusHas( port ) ) {
         throw Velto::RangeError( "'" + name + "' is not disabled" );
      }
      disabled_->intfStatusDel( port );
   };
}

std::vector< EventKind >
StormControlFeature::eventKinds() {
   std::vector< EventKind > kinds = {
         { "errdisableRecover", R"({"time": 9, "event": "errdisableRecover", "port": "Ethernet0"})",
           [this]( const Json & line ) { return parseRecover( line ); } } };
   if ( dynamic_cast< SoftChip::StormControlPart * >( part_ ) ) {
      kinds.push_back(
            { "stormTraffic",
              R"({"time": 1, "event": "stormTraffic", "port": "Ethernet0", "kind": "broadcast", )"
              R"("kbps": 5000})",
              [this]( const Json & line ) { return parseTraffic( line ); } } );
   }
   return kinds;
}

FeatureKind
stormControlFeature() {
   return feature< StormControlFeature >( "storm-control", StormControlFeature::options() );
}

} // namespace QonAgent
