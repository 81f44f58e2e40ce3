#pragma once
// How a class of the library reports a broken invariant or a hook that nobody overrode.
//
//    obj.qonAssert( message ) -> silent?  yes: nothing
//                                no:  message on standard error, fatal assertion "0"
//
// Three families differ in when they are silent; the test of the environment is made at each call:
//    Silence::noopAgent    QON_NOOP_AGENT set: QonBaseSm, QonBaseHelper and what derives from them
//    Silence::simulation   SIMULATION_VMID set: hardware that a simulator does not model
//    Silence::never        always fatal
// A silenced hook returns false, 0, success or null; the caller goes on with that.

#include <cstdlib>

#include "platform/Velto/Types.h"

namespace Kiv {
using Velto::String;
}

namespace Qon {

using Velto::String;

enum class Silence { noopAgent, simulation, never };

/** Whether `variable` is in the environment, with whatever value. */
inline bool
envSet( const char * variable ) {
   return std::getenv( variable ) != nullptr;
}

/** No hardware agent behind the library. */
inline bool
noopAgent() {
   return envSet( "QON_NOOP_AGENT" );
}

/** Running on a simulated chip. */
inline bool
underSimulation() {
   return envSet( "SIMULATION_VMID" );
}

inline bool
silenced( Silence family ) {
   return family == Silence::noopAgent    ? noopAgent()
          : family == Silence::simulation ? underSimulation()
                                          : false;
}

/** Writes the message and a line end to standard error and fails the assertion "0" of `source`,
    line 12, in `function`. */
[[noreturn]] void qonAssertFail( const String & message, const char * source,
                                 const char * function );

/** The report of a hook that a chip-specific agent did not override; `hook` is "Class::hook". */
String unimplementedFunction( const char * hook );

/** Fatal unless the caller came through the generic attribute interface (as a test script does)
    or QON_ASSERTCALLERISBREADTHTESTSCRIPT_ALLOW is set. Guards operations that only an
    interactive test harness may call. */
void assertCallerIsBreadthTestScript();

/** Whether a stack, innermost frame first, shows the generic attribute interface near enough. */
bool breadthTestPasses( const char * const * symbols, int frames );
/** Such a stack as assertCallerIsBreadthTestScript reports it. */
String breadthTestListing( const char * const * symbols, int frames );

} // namespace Qon

/** Declares qonAssert( message ) of class Qon::Class, reported as of `module`. */
#define QON_ASSERT_FAMILY( Class, module, family )                                                 \
   void qonAssert( const ::Qon::String & message ) const {                                         \
      if ( !::Qon::silenced( family ) ) {                                                          \
         ::Qon::qonAssertFail( message, module,                                                    \
                               "void Qon::" #Class "::qonAssert(const String&) const" );           \
      }                                                                                            \
   }
