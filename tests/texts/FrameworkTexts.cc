// Texts of the bases that operators and tools search for: what is reported, of which source and line.

#include "Qon/include/framework/QonAsyncBaseSm.h"
#include "tests/harness/World.h"

namespace {

using Tests::Env;

TEST( FrameworkTexts, AMissingResultHandlerIsFatalWithAndWithoutAnAgent ) {
   Tests::World world;
   auto helper = Qon::qonAsyncBaseHelperFactory();
   auto base = Qon::QonAsyncBaseSmIs( world.acsd );
   Env noop( "QON_NOOP_AGENT", "1" );
   EXPECT_DEATH( base->handleAsyncOperationResult(),
                 "QonAsyncCommon:28: .*handleAsyncOperationResult\\(\\): Assertion '0' failed" );
   base->processTcamRequestQueue();
   base->handlePendingOperationTimeout();
   helper->qonAssert( "not heard" );
   noop.unset( "QON_NOOP_AGENT" );
   EXPECT_DEATH( helper->qonAssert( "lost" ),
                 "^lost\nQonAsyncBaseHelper:12: void "
                 "Qon::QonAsyncBaseHelper::qonAssert\\(const String&\\) const: Assertion '0'" );
}

} // namespace
