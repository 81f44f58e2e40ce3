// The smallest program on the installed library.

#include <cstdio>

#include "platform/Velto/Node.h"

namespace {

class Chip : public Velto::Node {
 public:
   const char * name() const { return "minimal"; }
};

} // namespace

int
main() {
   auto chip = Velto::make< Chip >();
   std::printf( "libQon %s, chip %s, %u holder\n", QON_VERSION, chip->name(), chip->useCount() );
   return chip->useCount() == 1 ? 0 : 1;
}
