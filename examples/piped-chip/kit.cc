// The conformance kit over the chip in the other process.

#include "Driver.h"
#include "conformance/Conformance.h"

int
main( int argc, char ** argv ) {
   return QonConformance::conformanceMain( argc, argv, Piped::makePipedChip );
}
