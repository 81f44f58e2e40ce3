// Runs the conformance kit on the chip. broken-chip [--fault NAME] [--healthy] [options of the kit]
//
// All faults are planted unless one is named, or none with --healthy.

#include <cstring>

#include "Chip.h"
#include "conformance/Conformance.h"

namespace {

using namespace Chip;

struct NamedFault {
   const char * name;
   bool Faults::*fault;
};
constexpr NamedFault named[] = {
      { "lost-answer", &Faults::lostAnswer },
      { "full-aborts", &Faults::fullAborts },
      { "early-done", &Faults::earlyDone },
      { "stale-flags", &Faults::staleFlags },
      { "tidy-destructor", &Faults::tidyDestructor },
      { "kept-level", &Faults::keptLevel },
      { "kept-port", &Faults::keptPort },
      { "kept-mapping", &Faults::keptMapping },
      { "kept-group", &Faults::keptGroup },
      { "one-destination", &Faults::oneDestination },
      { "first-group", &Faults::firstGroup },
      { "room-untold", &Faults::roomUntold },
      { "any-answer", &Faults::anyAnswer },
};

/** Takes --fault NAME and --healthy out of the arguments. False for an unknown name. */
bool
takeFaults( std::vector< const char * > & arguments, Faults & faults ) {
   for ( auto & fault : named ) {
      faults.*fault.fault = true;
   }
   for ( std::size_t n = 1; n < arguments.size(); ) {
      bool healthy = !std::strcmp( arguments[n], "--healthy" );
      bool one = !std::strcmp( arguments[n], "--fault" ) && n + 1 < arguments.size();
      if ( !healthy && !one ) {
         ++n;
         continue;
      }
      faults = {};
      bool known = healthy;
      for ( auto & fault : named ) {
         if ( one && !std::strcmp( arguments[n + 1], fault.name ) ) {
            faults.*fault.fault = known = true;
         }
      }
      if ( !known ) {
         std::fprintf( stderr, "broken-chip: no fault '%s'\n", arguments[n + 1] );
         return false;
      }
      auto first = arguments.begin() + std::ptrdiff_t( n );
      arguments.erase( first, first + ( one ? 2 : 1 ) );
   }
   return true;
}

} // namespace

int
main( int argc, char ** argv ) {
   std::vector< const char * > arguments( argv, argv + argc );
   Faults faults;
   if ( !takeFaults( arguments, faults ) ) {
      return 2;
   }
   return QonConformance::conformanceMain(
         int( arguments.size() ), arguments.data(), [=]( Kiv::TaskScheduler & scheduler ) {
            return std::make_unique< SmallChip<> >( scheduler, faults );
         } );
}
