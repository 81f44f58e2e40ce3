#include "agent/features/FaultFeature.h"

#include "agent/features/Arguments.h"
#include "agent/features/FrameFields.h"

namespace QonAgent {

namespace {

U32
numberOr( const Json & line, const char * field, U32 otherwise ) {
   return hasField( line, field ) ? fieldOf< U32 >( line, field ) : otherwise;
}

SoftChip::Fault
faultOf( const Json & line ) {
   SoftChip::Fault fault;
   fault.hook = fieldOf< String >( line, "hook" );
   fault.trouble = Kiv::fromText< SoftChip::Trouble >( fieldOf< String >( line, "trouble" ) );
   fault.call = numberOr( line, "call", fault.call );
   fault.times = numberOr( line, "times", fault.times );
   fault.inThousand = numberOr( line, "inThousand", fault.inThousand );
   return fault;
}

} // namespace

FaultFeature::FaultFeature( Agent & agent )
    : agent_( agent ), chip_( dynamic_cast< SoftChip::Chip * >( &agent.chip() ) ) {}

std::function< void() >
FaultFeature::parseFault( const Json & line ) const {
   SoftChip::FaultPlan & plan = chip_->faults();
   if ( hasField( line, "hook" ) ) {
      return [&plan, fault = faultOf( line )] {
         plan.add( fault );
         if ( !plan.hooks().contains( fault.hook ) ) {
            thereIsNo( "hook with faults", fault.hook, plan.hooks() );
         }
      };
   }
   if ( hasField( line, "table" ) ) {
      return [&plan, table = fieldOf< String >( line, "table" ),
              limit = fieldOf< U32 >( line, "limit" )] {
         plan.limitIs( table, limit );
         if ( !plan.tables().contains( table ) ) {
            thereIsNo( "table with a limit", table, plan.tables() );
         }
      };
   }
   if ( hasField( line, "unit" ) ) {
      return [&plan, unit = fieldOf< String >( line, "unit" ),
              lost = fieldOf< bool >( line, "lost" )] { plan.unitLostIs( unit, lost ); };
   }
   if ( hasField( line, "seed" ) ) {
      return [&plan, seed = fieldOf< U32 >( line, "seed" )] { plan.seedIs( seed ); };
   }
   if ( hasField( line, "clear" ) ) {
      return [&plan] { plan.clear(); };
   }
   throw Velto::RangeError( "expected one of the fields hook, table, unit, seed, clear" );
}

std::function< void() >
FaultFeature::parseLatency( const Json & line ) const {
   const double seconds = fieldOf< double >( line, "seconds" );
   if ( !( seconds >= 0 ) ) {
      throw Velto::RangeError( "field 'seconds' cannot be negative" );
   }
   return [chip = chip_, seconds] { chip->latencyIs( seconds ); };
}

std::vector< EventKind >
FaultFeature::eventKinds() {
   if ( !chip_ ) {
      return {};
   }
   std::vector< String > faults;
   for ( auto & hook : chip_->faults().hooks() ) {
      faults.push_back( R"({"event": "fault", "hook": ")" + hook +
                        R"(", "trouble": "fail", "call": 2, "times": 1, "inThousand": 1000})" );
   }
   for ( auto & table : chip_->faults().tables() ) {
      faults.push_back( R"({"event": "fault", "table": ")" + table + R"(", "limit": 4})" );
   }
   faults.push_back( R"({"event": "fault", "unit": "Linecard1", "lost": true})" );
   faults.push_back( R"({"event": "fault", "seed": 7})" );
   faults.push_back( R"({"event": "fault", "clear": true})" );
   return { { "fault", R"({"time": 1, "event": "fault", "hook": "writeToHw", "trouble": "busy"})",
              [this]( const Json & line ) { return parseFault( line ); }, faults },
            { "chipLatency", R"({"time": 1, "event": "chipLatency", "seconds": 0.2})",
              [this]( const Json & line ) { return parseLatency( line ); } } };
}

/** "Ethernet12 with tag 10, cut to 64" */
String
FaultFeature::shownCopy( const SoftChip::Copy & copy ) const {
   String what = agent_.names().spelling( copy.port ) + " " + SoftChip::shown( copy.tags );
   for ( auto & change : copy.changes ) {
      what += ", " + change;
   }
   return what;
}

/** The steps of the road, then the copies that leave. */
Rows
FaultFeature::road( Arguments arguments ) const {
   const auto passage = chip_->forward(
         frameOf( arguments.intf( 0 ), arguments.has( 1 ) ? arguments.text( 1 ) : "" ) );
   for ( auto & step : passage.steps ) {
      const Row made = { { "stage", step.stage }, { "what", step.what } };
      co_yield made;
   }
   for ( auto & copy : passage.copies ) {
      Row row = { { "stage", "leaves" },
                  { "what", shownCopy( copy ) },
                  { "interface", agent_.names().spelling( copy.port ) } };
      if ( !copy.tags.outer.isNone() ) {
         row.set( "tag", U32( copy.tags.outer ) );
      }
      if ( !copy.tags.inner.isNone() ) {
         row.set( "innerTag", U32( copy.tags.inner ) );
      }
      row.set( "changes", copy.changes );
      co_yield row;
   }
   if ( passage.copies.empty() ) {
      const Row made = { { "stage", "leaves" }, { "what", "nothing" } };
      co_yield made;
   }
}

std::vector< ShowCommand >
FaultFeature::showCommands() {
   if ( !chip_ ) {
      return {};
   }
   Argument fields;
   fields.name = "FIELD=VALUE,...";
   fields.what = "frame";
   return { { "hw frame",
              "what the chip would do with a frame that arrives at a port, for example " +
                    String( frameForm ) + "; 'qonctl frame' asks it, too",
              { { Argument::Kind::intf, "PORT", "port", true, nullptr }, fields },
              { { "stage", "Stage" }, { "what", "What" } },
              [this]( auto & arguments ) { return road( arguments ); } } };
}

FeatureKind
faultFeature() {
   return feature< FaultFeature >( "faults" );
}

} // namespace QonAgent
