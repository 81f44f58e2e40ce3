// Checks and watchers that raise in the middle of a run, or end what runs it; cookies and clients.

#include <csignal>

#include "tests/harness/Sabotage.h"
#include "tests/verify/VerifyWorld.h"

namespace {

using namespace Tests;
using Qon::VerifyResult;

TEST( VerifySabotage, OfTheSharedDataAndItsRuns ) {
   sabotage( []( Saboteur & saboteur ) {
      Env env( "ENABLE_VERIFY", "1" );
      Kiv::VirtualScheduler scheduler;
      Kiv::LogRecorder logs;
      Connection client;
      auto acsd = Qon::qonCommonSmDataFactory( "acsd" );
      auto status = Velto::make< VerifyAgent::Status >( "status" );
      auto config = Velto::make< VerifyAgent::Config >( "config" );
      auto agentSm = Qon::VerifyAgentSmIs( acsd, config, status, nullptr, "sand" );
      Velto::Ptr< Feature > feature;
      saboteur.watches( { acsd.ptr(), status.ptr() } );
      saboteur.drops( [&] {
         agentSm = nullptr;
         feature = nullptr;
         acsd = nullptr;
      } );
      saboteur.does( [&] { acsd->initializedIs( true ); } );
      saboteur.does( [&] { acsd ? acsd->initializedIs( true ) : void(); } ); // again, if it raised
      saboteur.does( [&] { agentSm ? agentSm->initializedIs( true ) : void(); } );
      if ( acsd ) {
         feature = Qon::smIs< Feature >( acsd->verifyData(), "feature" );
         feature->check = [data = acsd->verifyData(), &feature] {
            feature->finds( "something" );
            data->retryVerifyIs( true );
         };
      }
      saboteur.does( [&] { config->cookieIs( 7 ); } );
      saboteur.does( [&] { scheduler.settle(); } );
      saboteur.does( [&] { scheduler.runFor( 10 ); } );
      if ( agentSm && agentSm->cliCallback() ) {
         const auto callback = agentSm->cliCallback();
         saboteur.does(
               [&] { callback->handleCommand( client.agentEnd(), "VTS#qonVerify::sand#" ); } );
      }
      saboteur.ends( [&]() -> String {
         scheduler.runFor( 100 );
         return !acsd->initialized() || !acsd->verifySm()->initialized() ? "not set up"
                : acsd->verifyData()->socket()                           ? "a client is left"
                : !acsd->verifyData()->verifyDone()                      ? "the run never ends"
                : acsd->verifyData()->retryVerify()                      ? "a wish is left"
                : status->cookie() != 7 || !status->done()               ? "no answer"
                                                                         : "";
      } );
   } );
}

TEST( VerifySabotage, OfTheRequestsOfClients ) {
   Tests::sabotage( []( Saboteur & saboteur ) {
      VerifyWorld w;
      auto requests = Velto::make< VerifyAgent::RequestDir >( "requests" );
      auto sm =
            Qon::VerifyAgentSmIs( w.world->acsd, Velto::make< VerifyAgent::Config >( "config" ),
                                  Velto::make< VerifyAgent::Status >( "status" ), nullptr, "sand" );
      sm->initializedIs( true );
      auto dirSm = Qon::CliRequestDirSmIs( requests, sm->cliCallback() );
      Connection early, late;
      const String command = "VTS#qonVerify::sand#";
      w.feature->check = [&] { w.feature->finds( "lost" ); };
      saboteur.watches( { w.data.ptr(), requests.ptr() } );
      saboteur.drops( dirSm, sm );
      saboteur.does( [&] { requests->requestIs( "early", command, early.agentEnd() ); } );
      saboteur.does( [&] {
         if ( const auto started = dirSm ) {
            started->initializedIs( true );
         }
      } );
      saboteur.does( [&] { requests->requestIs( "late", command, late.agentEnd() ); } );
      saboteur.does( [&] { requests->requestIs( "nobody" ); } );
      saboteur.ends( [&] {
         for ( auto id : { "early", "late", "nobody" } ) {
            dirSm->handleRequest( id ); // a change that raised may not have been heard
            auto request = requests->request( id );
            if ( !request || !request->done() ) {
               return String( id ) + " is not done";
            }
         }
         return String( w.data->socket() ? "the client's descriptor is kept" : "" );
      } );
   } );
}

TEST( Verification, ACheckThatRaisesCostsNoOtherItsTurn ) {
   VerifyWorld w;
   Connection client;
   auto agentSm =
         Qon::VerifyAgentSmIs( w.world->acsd, Velto::make< VerifyAgent::Config >( "config" ),
                               Velto::make< VerifyAgent::Status >( "status" ), nullptr, "sand" );
   agentSm->initializedIs( true );
   auto second = Qon::smIs< Feature >( w.data, "second" );
   w.feature->check = [] { throw Velto::RangeError( "check" ); };
   second->check = [&] { second->finds( "lost" ); };
   w.data->retryVerifyIs( true );
   EXPECT_THROW( agentSm->cliCallback()->handleCommand( client.agentEnd(), "VTS#qonVerify::sand#" ),
                 Velto::RangeError );
   const String answer = client.received();
   EXPECT_NE( answer.find( "lost" ), String::npos );
   EXPECT_TRUE( answer.ends_with( "\"END_OF_VERIFICATION\" } ] }" ) );
   EXPECT_EQ( 0u, w.data->socket() );
   EXPECT_TRUE( w.data->verifyDone() && w.data->retryVerify() );
   w.data->retryVerifyIs( false );
   w.data->doRequestVerify();
   EXPECT_THROW( w.settle(), Velto::RangeError );
   EXPECT_EQ( 2, second->runs );
   EXPECT_EQ( VerifyResult::done, w.data->verifyResult() );
}

TEST( Verification, AWishToRepeatSurvivesALaterCheckWithoutOne ) {
   VerifyWorld w;
   auto later = Qon::smIs< Feature >( w.data, "later" );
   w.feature->check = [&] { w.data->retryVerifyIs( true ); };
   w.data->doRequestVerify();
   w.settle();
   EXPECT_EQ( 1, later->runs );
   EXPECT_EQ( VerifyResult::retry, w.data->verifyResult() );
}

TEST( Verification, WhatIsAskedForWhileItRestsIsRunAfterwards ) {
   VerifyWorld w;
   w.world->acsd->verifySm()->initializedIs( false );
   w.data->doRequestVerify();
   w.settle();
   EXPECT_EQ( 0, w.feature->runs );
   w.world->acsd->verifySm()->initializedIs( true );
   w.settle();
   EXPECT_EQ( 1, w.feature->runs );
   w.data->doRequestVerify();
   w.world->acsd->verifySm()->initializedIs( false );
   w.settle(); // its clock fires unheard
   w.world->acsd->verifySm()->initializedIs( true );
   w.settle();
   EXPECT_EQ( 2, w.feature->runs );
}

TEST( Verification, ARepetitionIsReportedWithItsOwnFinding ) {
   VerifyWorld w;
   w.feature->check = [&] { w.feature->finds( "of the first run" ); };
   w.data->doRequestVerify();
   w.settle();
   w.feature->check = [&] { w.data->retryVerifyIs( true ); };
   w.data->doRequestVerify();
   w.settle();
   EXPECT_EQ( "HARDWARE_VERIFY_AGENT_RETRY_NEEDED", w.world->logs.records().back().name );
   EXPECT_EQ( w.world->logs.records().back().text.find( "of the first run" ), String::npos );
}

TEST( Clients, AClosedPipeIsAClientThatHasGone ) {
   int ends[2];
   ASSERT_EQ( 0, pipe( ends ) );
   EXPECT_TRUE( Qon::writeToClient( U32( ends[1] ), "x", 1.0 ) );
   const String much( 1 << 20, 'x' );
   EXPECT_FALSE( Qon::writeToClient( U32( ends[1] ), much, 0.02 ) ); // nobody reads it
   close( ends[0] );
   EXPECT_FALSE( Qon::writeToClient( U32( ends[1] ), "x", 1.0 ) );
   sigset_t pending, blocked;
   sigpending( &pending );
   EXPECT_FALSE( sigismember( &pending, SIGPIPE ) );
   pthread_sigmask( SIG_SETMASK, nullptr, &blocked );
   EXPECT_FALSE( sigismember( &blocked, SIGPIPE ) );
   close( ends[1] );
}

struct CookieFlow : ::testing::Test {
   void start() {
      sm = Qon::VerifyAgentSmIs( w.world->acsd, config, status, nullptr, "sand" );
      sm->initializedIs( true );
   }
   VerifyWorld w;
   Velto::Ptr< VerifyAgent::Config > config = Velto::make< VerifyAgent::Config >( "config" );
   Velto::Ptr< VerifyAgent::Status > status = Velto::make< VerifyAgent::Status >( "status" );
   Velto::Ptr< Qon::VerifyAgentSm > sm;
};

TEST_F( CookieFlow, IsAnsweredByWhoStartedBeforeTheSharedData ) {
   auto acsd = Qon::qonCommonSmDataFactory( "late" );
   sm = Qon::VerifyAgentSmIs( acsd, config, status, nullptr, "sand" );
   sm->initializedIs( true );
   config->cookieIs( 3 );
   acsd->initializedIs( true );
   w.settle();
   EXPECT_TRUE( status->done() && status->cookie() == 3 );
}

TEST_F( CookieFlow, ThatReturnsToAnEarlierValueIsANewOne ) {
   start();
   config->cookieIs( 5 );
   w.settle();
   config->cookieIs( 6 );
   config->cookieIs( 5 );
   w.settle();
   EXPECT_TRUE( status->done() && status->cookie() == 5 );
   EXPECT_EQ( 2, w.feature->runs );
}

TEST_F( CookieFlow, ThatComesDuringACommandLeavesTheClientsAnswerAlone ) {
   start();
   Connection client;
   w.feature->check = [&] {
      w.feature->finds( "first" );
      config->cookieIs( 9 );
      w.feature->finds( "second" );
   };
   sm->cliCallback()->handleCommand( client.agentEnd(), "VTS#qonVerify::sand#" );
   const String answer = client.received();
   EXPECT_NE( answer.find( "second" ), String::npos );
   EXPECT_TRUE( answer.ends_with( "\"END_OF_VERIFICATION\" } ] }" ) );
   w.settle();
   EXPECT_EQ( 9u, status->cookie() );
   EXPECT_EQ( 2u, status->findings() );
}

} // namespace
