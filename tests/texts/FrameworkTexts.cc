// Texts of the bases that operators and tools search for: what is reported, of which source and line.

#include "Qon/include/framework/QonAsyncBaseSm.h"
#include "tests/texts/Traced.h"
#include "tests/verify/VerifyWorld.h"

namespace {

using namespace Tests;

TEST( FrameworkTexts, AMissingResultHandlerIsFatalWithAndWithoutAnAgent ) {
   World world;
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

TEST( FrameworkTexts, TheWholeRangeOfSequencesIsUsed ) {
   auto helper = Qon::qonAsyncBaseHelperFactory();
   U16 last = 0;
   for ( U32 i = 0; i < 65535; ++i ) {
      last = helper->getNextSequence( "a" );
   }
   EXPECT_EQ( 1, last );
   EXPECT_DEATH( helper->getNextSequence( "a" ), "Assertion 'nextSequence > 0' failed" );
   EXPECT_EQ( 1, helper->sequence( "a" ) );
   helper->sequenceIs( "a", 0 ); // and nothing wraps from there
   EXPECT_DEATH( helper->getNextSequence( "a" ), "Assertion 'nextSequence > 0' failed" );
}

TEST( FrameworkTexts, TheLastPriorityIsOne ) {
   auto helper = Qon::qonAsyncBaseHelperFactory();
   helper->priorityIs( 2 );
   EXPECT_EQ( 1u, helper->nextPriority() );
   EXPECT_DEATH( helper->nextPriority(), "Assertion 'priority\\(\\) > 0' failed" );
   helper->priorityIs( 0 );
   EXPECT_DEATH( helper->nextPriority(), "Assertion 'priority\\(\\) > 0' failed" );
}

TEST( FrameworkTexts, AnswersOfTheEpochBeforeTheStartAreFatalWhereTheyCouldBeWrong ) {
   using Epoch = Qon::QonEpochStatus;
   auto epoch = Qon::qonEpochStatusFactory( "epoch" );
   Env env( "QON_NOOP_AGENT", "1" ); // has no say here
   for ( auto v : { "SIMULATION_VMID", "OLD_ACLS_TCAM_ENABLED", "PDP_MODE_ENABLED" } ) {
      env.unset( v );
   }
   EXPECT_TRUE( epoch->aclsInTcamSupported( "any" ) );
   for ( auto predicate :
         { &Epoch::aclSupported, &Epoch::pbrDenyActionSupported, &Epoch::qosDropActionSupported,
           &Epoch::tapAggDenyActionSupported, &Epoch::stormZeroRateSupported,
           &Epoch::pfcWatchdogTcamDropSupported } ) {
      EXPECT_DEATH( ( epoch.ptr()->*predicate )( "any" ), "Assertion 'initialized\\(\\)' failed" );
   }
   EXPECT_DEATH( epoch->pdpModeEnabled(), "Assertion 'hwEpochStatus\\(\\)' failed" );
   epoch->initializedIs( true );
   EXPECT_DEATH( epoch->preferHaloAcls( "Linecard4" ), "Assertion 'cardStatus' failed" );
   epoch->hwEpochStatusIs( Velto::make< HwEpoch::Status >( "status" ) );
   EXPECT_DEATH( epoch->preferHaloAcls( "Linecard4" ), "Assertion 'cardStatus' failed" );
}

/** The text with which `call` refuses. */
template< class F >
String
refusal( F && call ) {
   try {
      call();
   } catch ( const Velto::RangeError & e ) {
      return e.what();
   }
   return "";
}

TEST( FrameworkTexts, ValuesOutOfRangeAreRefusedBeforeAnythingIsMade ) {
   auto acsd = Qon::qonCommonSmDataFactory( "acsd" );
   const String range = "Bridging::VlanId::value < 1 or > 4094 not allowed";
   EXPECT_EQ( range, refusal( [&] { acsd->vlanStatusIs( Bridging::VlanId( 0 ) ); } ) );
   EXPECT_EQ( range, refusal( [&] { acsd->vlanStatusIs( Bridging::VlanId( 4095 ) ); } ) );
   EXPECT_EQ( 0u, acsd->vlanStatuss() );
   auto status = acsd->vlanStatusIs( Bridging::VlanId( 4094 ) );
   EXPECT_EQ( status, acsd->vlanStatusIs( Bridging::VlanId( 4094 ) ) );
   EXPECT_EQ( Bridging::VlanId( 4094 ), status->vlanId() );
   EXPECT_EQ( "No String constructor for QonLagPortList - has collection",
              refusal( [] { Qon::QonLagPortList( String( "{}" ) ); } ) );
   EXPECT_EQ( "No String constructor for QonPortList - has collection",
              refusal( [] { Qon::QonPortList( String( "{}" ) ); } ) );
}

TEST( FrameworkTexts, TracesAndAnswersOfVerification ) {
   const String opening = "{ \"qonVerify::sand\" : [ ";
   const String closing = " { \"qonVerify::sand\": \"END_OF_VERIFICATION\" } ] }";
   auto flow = [&] {
      VerifyWorld w;
      auto sm =
            Qon::VerifyAgentSmIs( w.world->acsd, Velto::make< VerifyAgent::Config >( "config" ),
                                  Velto::make< VerifyAgent::Status >( "status" ), nullptr, "sand" );
      sm->initializedIs( true );
      EXPECT_EQ( sm->cliCallback()->className(), "VerifyAgentCli" );
      w.data->doRequestVerify();
      w.settle();
      Connection client;
      w.feature->check = [&] { w.data->updateCliVerifyOutput( "where", "what" ); };
      sm->cliCallback()->handleCommand( client.agentEnd(), "VTS#qonVerify::sand#" );
      EXPECT_EQ( client.received(), opening + "{ \"where\" : \"what\" }," + closing );
   };
   expectTraced( flow, { "Verify enabled", "Verify SM initialized", "Starting Qon verification",
                         "Qon verification done", "Qon CliCommand callback has been initialized",
                         "VerifyAgentSm initialized" } );
}

} // namespace
