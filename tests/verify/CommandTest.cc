// Runs that an operator asks for: the answer on the socket, clients of all sorts, the cookie.

#include <sys/time.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <nlohmann/json.hpp>
#include <thread>

#include "platform/Kiv/Generic.h"
#include "platform/Kiv/Listener.h"
#include "tests/verify/VerifyWorld.h"

namespace {

using namespace Tests;
using Json = nlohmann::json;
using Qon::VerifyResult;

const String opening = "{ \"qonVerify::sand\" : [ ";
const String closing = " { \"qonVerify::sand\": \"END_OF_VERIFICATION\" } ] }";
const String command = "VTS#qonVerify::sand#";

class Command : public ::testing::Test {
 protected:
   Command() { start(); }
   /** What starts with the agent. */
   void start() {
      sm = Qon::VerifyAgentSmIs( w.world->acsd, config, status, requests, "sand" );
      sm->initializedIs( true );
   }
   String answerTo( const String & text ) {
      Connection client;
      sm->cliCallback()->handleCommand( client.agentEnd(), text );
      return client.received();
   }

   VerifyWorld w{ false };
   Velto::Ptr< VerifyAgent::Config > config = Velto::make< VerifyAgent::Config >( "config" );
   Velto::Ptr< VerifyAgent::Status > status = Velto::make< VerifyAgent::Status >( "status" );
   Velto::Ptr< VerifyAgent::RequestDir > requests =
         Velto::make< VerifyAgent::RequestDir >( "requests" );
   Velto::Ptr< Qon::VerifyAgentSm > sm;
};

TEST_F( Command, AHealthyAgentsAnswerIsEmpty ) {
   EXPECT_EQ( "qonVerify::sand", sm->cliCallback()->name() );
   EXPECT_EQ( "VerifyAgentCli", sm->cliCallback()->className() );
   EXPECT_EQ( opening + closing, answerTo( command ) );
   EXPECT_EQ( opening + closing, answerTo( command + "whatever follows" ) );
   EXPECT_EQ( 2, w.feature->runs ); // though verification is not enabled
   EXPECT_TRUE( w.data->verifyDone() );
}

TEST_F( Command, FindingsStandBetweenOpeningAndClosingByteForByte ) {
   w.feature->check = [&] {
      w.data->reportFinding( { "first\n", "a.cc", 7, "f", VerifyResult::failed } );
      w.data->updateCliVerifyOutput( "key", "value" );
      w.data->reportFinding( { "second", "b.cc", 9, "f", VerifyResult::failed } );
   };
   EXPECT_EQ( opening +
                    "{ \"a.cc:7#1\" : \"first\" },{ \"key\" : \"value\" },"
                    "{ \"b.cc:9#2\" : \"second\" }," +
                    closing,
              answerTo( command ) );
   EXPECT_EQ( 0u, w.data->socket() );
   EXPECT_EQ( 0u, w.data->verifyInc() );
   EXPECT_EQ( 0u, w.data->cliVerifyOutputs() );
   EXPECT_TRUE( w.world->logs.records().empty() ); // the client was told
}

TEST_F( Command, WhateverAFindingHoldsTheAnswerParses ) {
   const String nasty[] = { "quote \" and \\ and \\\" end\\",
                            "line\nbreak\r\n",
                            "tab\tbell\a",
                            String( "nul\0byte", 8 ),
                            "\xc3\xa9 \xff\x80",
                            "",
                            "\n\n" };
   w.feature->check = [&] {
      for ( auto & text : nasty ) {
         w.feature->finds( text );
      }
   };
   Json list = Json::parse( answerTo( command ) ).at( "qonVerify::sand" );
   ASSERT_EQ( std::size( nasty ) + 1, list.size() );
   EXPECT_EQ( "quote \" and \\ and \\\" end\\", list[0].begin().value() );
   EXPECT_EQ( "line\nbreak\r", list[1].begin().value() ); // without its last line end
   EXPECT_EQ( nasty[3], list[3].begin().value() );
   EXPECT_EQ( "\n", list[6].begin().value() );
   EXPECT_EQ( "END_OF_VERIFICATION", list.back().at( "qonVerify::sand" ) );
   std::set< String > keys;
   for ( auto & element : list ) {
      EXPECT_TRUE( keys.insert( element.begin().key() ).second );
   }
}

TEST_F( Command, WithoutItsPrefixACommandGetsAnEmptyAnswer ) {
   w.feature->check = [&] { w.feature->finds( "never asked" ); };
   const String foreign[] = { "VTS#qonVerify::petra#",
                              "VTS#qonVerify::sandbox#",
                              "VTS#qonVerify::sand",
                              "VTS##",
                              "vts#qonVerify::sand#",
                              " VTS#qonVerify::sand#",
                              "VTS",
                              "" };
   for ( auto & text : foreign ) {
      EXPECT_EQ( opening + closing, answerTo( text ) ) << text;
   }
   EXPECT_EQ( 0, w.feature->runs );
}

TEST_F( Command, WithoutAVerifierTheAnswerIsEmpty ) {
   w.feature->check = [&] { w.feature->finds( "never asked" ); };
   auto callback = Velto::Ptr< Qon::VerifyAgentSmCliCallback >( sm->cliCallback() );
   w.world->acsd->verifySm()->initializedIs( false );
   EXPECT_EQ( opening + closing, answerTo( command ) );
   w.world->acsd->verifySmIs( nullptr );
   EXPECT_EQ( opening + closing, answerTo( command ) );
   sm = nullptr; // the callback is all that is left
   Connection client;
   callback->handleCommand( client.agentEnd(), command );
   EXPECT_EQ( opening + closing, client.received() );
}

TEST_F( Command, AClientThatHasGoneOrGoesCostsNothing ) {
   Connection gone, going;
   w.feature->check = [&] {
      for ( int i = 0; i < 3; ++i ) {
         w.feature->finds( "lost" );
         going.hangUp();
      }
   };
   gone.hangUp();
   sm->cliCallback()->handleCommand( gone.agentEnd(), command );
   EXPECT_EQ( 0, w.feature->runs ); // for nobody
   sm->cliCallback()->handleCommand( going.agentEnd(), command );
   EXPECT_EQ( 1, w.feature->runs );
   EXPECT_EQ( 0u, w.data->socket() );
   sm->cliCallback()->handleCommand( 0, command );        // no descriptor
   sm->cliCallback()->handleCommand( 1u << 20, command ); // none that is open
   EXPECT_EQ( opening + "{ \"", answerTo( command ).substr( 0, opening.size() + 3 ) );
}

TEST_F( Command, ASlowClientGetsAllOfIt ) {
   w.feature->check = [&] {
      for ( int i = 0; i < 4000; ++i ) {
         w.feature->finds( String( 100, 'x' ) );
      }
   };
   Connection client;
   int little = 4096;
   setsockopt( int( client.agentEnd() ), SOL_SOCKET, SO_SNDBUF, &little, sizeof( little ) );
   String all;
   std::thread reader( [&] { // pieces of odd sizes, to the end of the closing
      char some[777];
      while ( !all.ends_with( "] }" ) ) {
         usleep( 50 );
         ssize_t n = recv( client.clientEnd(), some, sizeof( some ), 0 );
         if ( n < 0 && errno == EINTR ) {
            continue; // the signal may come to this thread
         }
         ASSERT_GT( n, 0 );
         all.append( some, std::size_t( n ) );
      }
   } );
   // Meanwhile signals interrupt whatever waits.
   struct sigaction onAlarm = {}, former;
   onAlarm.sa_handler = []( int ) {};
   sigaction( SIGALRM, &onAlarm, &former );
   itimerval often = { { 0, 3000 }, { 0, 3000 } }, never = {};
   setitimer( ITIMER_REAL, &often, nullptr );
   sm->cliCallback()->handleCommand( client.agentEnd(), command );
   setitimer( ITIMER_REAL, &never, nullptr );
   sigaction( SIGALRM, &former, nullptr );
   reader.join();
   EXPECT_EQ( 4001u, Json::parse( all ).at( "qonVerify::sand" ).size() );
}

TEST_F( Command, AClientThatTakesNothingIsGivenUp ) {
   w.feature->check = [&] {
      for ( int i = 0; i < 10000; ++i ) {
         w.feature->finds( String( 100, 'x' ) );
      }
   };
   Connection client; // nobody reads; the descriptor is one that waits
   w.data->clientPatienceIs( 0.05 );
   const auto began = std::chrono::steady_clock::now();
   sm->cliCallback()->handleCommand( client.agentEnd(), command );
   EXPECT_EQ( 1, w.feature->runs );
   String all = client.received();
   EXPECT_GT( all.size(), 1000u );
   EXPECT_FALSE( all.ends_with( closing ) ); // cut short, it does not look whole
   EXPECT_LT( std::chrono::steady_clock::now() - began, std::chrono::milliseconds( 900 ) );
   EXPECT_EQ( "0.05", Kiv::GenericIf::get( *w.data, "clientPatience" ) );
}

TEST_F( Command, AClientThatWasGivenUpGetsNoEndThoughItReadsAgain ) {
   Connection client;
   String all;
   w.feature->check = [&] {
      for ( int i = 0; i < 10000 && w.data->socket(); ++i ) {
         w.feature->finds( String( 100, 'x' ) );
      }
      all = client.received(); // too late
   };
   w.data->clientPatienceIs( 0.05 );
   sm->cliCallback()->handleCommand( client.agentEnd(), command );
   EXPECT_GT( all.size(), 1000u );
   EXPECT_EQ( "", client.received() );
}

/** The signal of a closed pipe is the library's own unless it was waiting before. */
TEST_F( Command, AClosedPipeLeavesSignalsAsTheyWere ) {
   sigset_t pipeSignal, former, pending;
   sigemptyset( &pipeSignal );
   sigaddset( &pipeSignal, SIGPIPE );
   pthread_sigmask( SIG_BLOCK, &pipeSignal, &former );
   for ( bool waiting : { false, true, false } ) {
      if ( waiting ) {
         raise( SIGPIPE );
      }
      int ends[2];
      ASSERT_EQ( 0, pipe( ends ) );
      close( ends[0] );
      sm->cliCallback()->handleCommand( U32( ends[1] ), command );
      close( ends[1] );
      sigpending( &pending );
      EXPECT_EQ( waiting ? 1 : 0, sigismember( &pending, SIGPIPE ) );
      const timespec atOnce = {};
      sigtimedwait( &pipeSignal, nullptr, &atOnce );
   }
   pthread_sigmask( SIG_SETMASK, &former, nullptr );
   EXPECT_EQ( 0, w.feature->runs );
}

TEST_F( Command, ADescriptorThatIsNoSocketIsWrittenToo ) {
   int ends[2];
   ASSERT_EQ( 0, pipe( ends ) );
   sm->cliCallback()->handleCommand( U32( ends[1] ), command );
   char some[1000];
   EXPECT_EQ( opening + closing, String( some, std::size_t( read( ends[0], some, 1000 ) ) ) );
   close( ends[0] );
   close( ends[1] );
}

TEST_F( Command, ARepetitionThatItCausedIsForgottenOneThatWaitsIsNot ) {
   w.feature->check = [&] {
      w.feature->finds( "not yet" );
      w.data->retryVerifyIs( true );
   };
   answerTo( command );
   EXPECT_FALSE( w.data->retryVerify() );
   config->cookieIs( 1 );
   w.settle();
   EXPECT_EQ( 2, w.feature->runs ); // a real one
   EXPECT_TRUE( w.data->retryVerify() );
   answerTo( "VTS#foreign#" );
   w.feature->check = nullptr;
   answerTo( command );
   EXPECT_TRUE( w.data->retryVerify() );
   w.runFor( 5 );
   EXPECT_EQ( 1, w.feature->repetitions );
   EXPECT_EQ( 1u, status->cookie() );
}

TEST_F( Command, RequestsInTheDirectoryAreAnsweredOnceEach ) {
   Connection one, two;
   requests->requestIs( "one", command, one.agentEnd() );
   EXPECT_EQ( opening + closing, one.received() );
   EXPECT_TRUE( requests->request( "one" )->done() );
   requests->requestIs( "nobody" );
   EXPECT_TRUE( requests->request( "nobody" )->done() );
   requests->requestDel( "one" );

   sm->initializedIs( false ); // or rests
   requests->requestIs( "resting", command, one.agentEnd() );
   EXPECT_EQ( "", one.received() );
   sm->initializedIs( true );
   EXPECT_EQ( opening + closing, one.received() );
   sm = nullptr; // what comes while the agent is away is answered at its start
   requests->requestIs( "two", command, two.agentEnd() );
   EXPECT_EQ( "", two.received() );
   start();
   EXPECT_EQ( opening + closing, two.received() );
   EXPECT_EQ( "", one.received() );
   sm = nullptr; // and not again at the next one
   start();
   EXPECT_EQ( "", two.received() );
}

TEST_F( Command, ANewCookieIsOneRunAndItsStatus ) {
   w.data->doRequestVerify(); // somebody else's run is no answer
   w.settle();
   EXPECT_FALSE( status->done() );
   w.feature->runs = 0;
   w.feature->check = [&] { w.feature->finds( "lost" ); };
   config->cookieIs( 7 );
   EXPECT_EQ( VerifyResult::inProgress, status->result() );
   w.settle();
   EXPECT_EQ( 1, w.feature->runs );
   EXPECT_EQ( 7u, status->cookie() );
   EXPECT_EQ( VerifyResult::done, status->result() );
   EXPECT_EQ( 1u, status->findings() );
   EXPECT_TRUE( status->done() );

   sm = nullptr; // answered before the restart: not asked again
   start();
   w.settle();
   EXPECT_EQ( 1, w.feature->runs );
   sm = nullptr;
   config->cookieIs( 8 ); // asked while the agent was away
   start();
   config->cookieIs( 9 ); // and once more in the same burst
   w.settle();
   EXPECT_EQ( 2, w.feature->runs );
   EXPECT_EQ( 9u, status->cookie() );
}

TEST_F( Command, ACookieThatIsAskedInTheAnswerToAnotherHasItsOwnRun ) {
   std::vector< U32 > answered;
   Kiv::Listener< VerifyAgent::Status::cookieAttr > answers(
         status.ptr(), [&] { answered.push_back( status->cookie() ); } );
   Kiv::Listener< VerifyAgent::Status::resultAttr > impatient( status.ptr(), [&] {
      if ( status->result() == VerifyResult::done && config->cookie() == 7 ) {
         config->cookieIs( 8 );
      }
   } );
   config->cookieIs( 7 );
   w.settle();
   EXPECT_EQ( 2, w.feature->runs );
   EXPECT_EQ( answered, ( std::vector< U32 >{ 7, 8 } ) );
}

TEST_F( Command, AClientsRunDoesNotAnswerACookieThatWaits ) {
   config->cookieIs( 7 );
   answerTo( command );
   EXPECT_TRUE( w.data->verifyDone() );
   EXPECT_FALSE( status->done() );
   w.settle();
   EXPECT_EQ( 2, w.feature->runs );
   EXPECT_EQ( 7u, status->cookie() );
   EXPECT_TRUE( status->done() );
}

TEST_F( Command, AClientsRunIsNoAnswerWhereNoneIsWanted ) {
   answerTo( command );
   EXPECT_TRUE( w.data->verifyDone() );
   EXPECT_FALSE( status->done() );
   w.feature->check = [&] { w.feature->finds( "lost" ); };
   config->cookieIs( 7 );
   w.settle();
   EXPECT_EQ( 1u, status->findings() );
   w.feature->check = nullptr;
   answerTo( command );
   EXPECT_EQ( 1u, status->findings() ); // those of the cookie's own run
}

TEST_F( Command, ARunThatIsRepeatedAnswersAtItsEnd ) {
   w.feature->check = [&] { w.data->retryVerifyIs( true ); };
   config->cookieIs( 7 );
   w.settle();
   EXPECT_EQ( 0u, status->cookie() );
   w.runFor( 2 );
   EXPECT_EQ( 7u, status->cookie() );
   EXPECT_EQ( VerifyResult::done, status->result() );
}

} // namespace
