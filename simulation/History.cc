#include "simulation/History.h"

#include <fstream>
#include <sstream>

#include "platform/Velto/Assert.h"

namespace Sim {

namespace {

constexpr char firstLine[] = "qon-sim history 1";

void
readPlanLine( Plan & plan, const String & line ) {
   std::istringstream in( line );
   String word;
   in >> word;
   if ( word == "seed" && in >> plan.seed ) {
      return;
   }
   if ( word == "features" ) {
      while ( in >> word ) {
         plan.features.push_back( word );
      }
      return;
   }
   if ( word == "fault" && std::getline( in >> std::ws, word ) ) {
      plan.faults.push_back( word );
      return;
   }
   throw Velto::RangeError( "expected seed, features, fault or events: " + line );
}

} // namespace

void
History::write( const String & path ) const {
   std::ofstream out( path );
   out << firstLine << "\nseed " << plan.seed << "\n";
   if ( !plan.features.empty() ) {
      out << "features";
      for ( auto & name : plan.features ) {
         out << " " << name;
      }
      out << "\n";
   }
   for ( auto & line : plan.faults ) {
      out << "fault " << line << "\n";
   }
   out << "events\n";
   for ( auto & event : events ) {
      out << event.text() << "\n";
   }
   if ( !out.flush() ) {
      throw Velto::RangeError( path + ": cannot be written" );
   }
}

History
History::read( const String & path ) {
   std::ifstream in( path );
   if ( !in ) {
      throw Velto::RangeError( path + ": cannot be read" );
   }
   History history;
   String line;
   U32 number = 0;
   bool events = false;
   try {
      while ( std::getline( in, line ) ) {
         ++number;
         if ( number == 1 ) {
            if ( line != firstLine ) {
               throw Velto::RangeError( String( "expected \"" ) + firstLine + "\"" );
            }
         } else if ( line.empty() || line[0] == '#' ) {
            continue;
         } else if ( events ) {
            history.events.push_back( Event::parsed( line ) );
         } else if ( line == "events" ) {
            events = true;
         } else {
            readPlanLine( history.plan, line );
         }
      }
   } catch ( const Velto::RangeError & error ) {
      throw Velto::RangeError( path + ":" + std::to_string( number ) + ": " + error.what() );
   }
   if ( !events ) {
      throw Velto::RangeError( path + ": no line \"events\"" );
   }
   return history;
}

Generator::Generator( const World & world )
    : world_( world ), rng_( world.chance( 2 ) ), habit_( rng_.below( 60 ) ) {
   // How a seed favours operations: not at all, a little, as given, more.
   constexpr U32 favour[] = { 0, 1, 4, 4, 4, 16 };
   U32 below = 0;
   auto kinds = featureKinds();
   for ( U32 kind = 0; kind < kinds.size(); ++kind ) {
      if ( kinds[kind].looksOn() ) {
         continue; // it changes nobody's mixture
      }
      U32 ofFeature = kind == 0 ? 4 : favour[1 + rng_.below( 5 )];
      for ( U32 i = 0; i < kinds[kind].operations.size(); ++i ) {
         U32 weight = kinds[kind].operations[i].weight * ofFeature;
         weight *= kind == 0 ? 4 : favour[rng_.below( 6 )];
         if ( weight != 0 && world.has( kind ) ) {
            below += weight;
            choices_.push_back( { U8( kind ), U8( i ), below } );
         }
      }
   }
}

U32
Generator::draw( Range range ) {
   U32 & last = last_[U32( range )];
   if ( range == Range::micros ) {
      return rng_.below( 1u << rng_.between( 4, rng_.percent( 3 ) ? 29 : 23 ) );
   }
   if ( range == Range::none || ( range != Range::flag && rng_.percent( habit_ ) ) ) {
      return last;
   }
   return last = rng_.below( world_.size( range ) );
}

Event
Generator::next() {
   U32 number = rng_.below( choices_.back().below );
   auto choice = std::upper_bound( choices_.begin(), choices_.end(), number,
                                   []( U32 n, const Choice & c ) { return n < c.below; } );
   Event event{ choice->feature, choice->operation, {} };
   auto & ranges = event.kind().ranges;
   for ( U32 i = 0; i < mostArguments && ranges[i] != Range::none; ++i ) {
      event.args[i] = draw( ranges[i] );
   }
   return event;
}

} // namespace Sim
