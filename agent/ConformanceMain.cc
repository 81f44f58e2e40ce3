// qon-conformance: the conformance kit over the chip in software.

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "agent/softchip/Chip.h"
#include "conformance/Conformance.h"
#include "platform/Kiv/Printable.h"

namespace {

constexpr double slowest = 10; // seconds

} // namespace

/** Takes --per-vlan and --latency SECONDS; what remains is the kit's. */
int
main( int argc, char ** argv ) {
   SoftChip::Shape shape;
   shape.hosts = { 256, 4, 256, 20e-6 };
   shape.topologies = 64;
   shape.lags = { 32, 16 };
   shape.latency = 0.0025;
   std::vector< const char * > rest;
   for ( int n = 0; n < argc; ++n ) {
      if ( !std::strcmp( argv[n], "--per-vlan" ) ) {
         shape.kind = SoftChip::ChipKind::vlan;
      } else if ( !std::strcmp( argv[n], "--latency" ) && n + 1 < argc ) {
         char * end = nullptr;
         const char * const text = argv[++n];
         shape.latency = std::strtod( text, &end );
         if ( end == text || *end || !( shape.latency >= 0 && shape.latency <= slowest ) ) {
            std::fprintf( stderr,
                          "qon-conformance: error: --latency: expected seconds up to %.0f, found "
                          "'%s'\n",
                          slowest, Kiv::printable( text ).c_str() );
            return 2;
         }
      } else {
         rest.push_back( argv[n] );
      }
   }
   return QonConformance::conformanceMain( int( rest.size() ), rest.data(),
                                           SoftChip::makeChip( shape ) );
}
