#pragma once
// What came of the checks, for other programs. docs/conformance.md describes both forms.

#include "conformance/Conformance.h"

namespace QonConformance {

/** "ok", "broken", "skipped", "not looked at". */
const char * nameOf( Outcome::Result result );
U32 count( const std::vector< Outcome > & outcomes, Outcome::Result result );

String asJson( const std::vector< Outcome > & outcomes );
String asJunit( const std::vector< Outcome > & outcomes );

} // namespace QonConformance
