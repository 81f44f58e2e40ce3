// Runs that the clock starts: requests, the order of checks, repetitions, messages.

#include "tests/verify/VerifyWorld.h"

namespace {

using namespace Tests;
using Qon::VerifyResult;

const char * const retryNeeded = "HARDWARE_VERIFY_AGENT_RETRY_NEEDED";
const char * const failed = "HARDWARE_VERIFY_AGENT_FAILED";

TEST( Verification, IsEnabledByTheEnvironmentAtTheStartAndNeverLater ) {
   for ( bool enable : { false, true } ) {
      for ( bool simulated : { false, true } ) {
         VerifyWorld w( enable );
         simulated ? w.env.set( "USE_BCMSIM", "" ) : void();
         auto acsd = Qon::qonCommonSmDataFactory( "acsd" );
         acsd->initializedIs( true );
         EXPECT_TRUE( acsd->verifySm()->initialized() );
         EXPECT_EQ( enable && !simulated, acsd->verifyData()->verify() );
         w.env.set( "ENABLE_VERIFY", "1" );
         w.env.unset( "USE_BCMSIM" );
         acsd->verifySm()->initializedIs( false );
         acsd->verifySm()->initializedIs( true );
         EXPECT_EQ( enable && !simulated, acsd->verifyData()->verify() );
      }
   }
   VerifyWorld w( false );
   w.data->doRequestVerify();
   w.settle();
   EXPECT_EQ( 0u, w.data->verifyRequired()->verifyRequired() );
   EXPECT_EQ( 0, w.feature->runs );
   EXPECT_FALSE( w.data->verifyDone() );
}

TEST( Verification, ABurstOfRequestsIsOneRunAfterTheBurst ) {
   VerifyWorld w;
   for ( int i = 0; i < 10000; ++i ) {
      w.data->doRequestVerify();
   }
   EXPECT_EQ( 0, w.feature->runs );
   w.settle();
   EXPECT_EQ( 1, w.feature->runs );
   EXPECT_EQ( VerifyResult::done, w.data->verifyResult() );
   EXPECT_TRUE( w.data->verifyDone() );
   w.data->doRequestVerify();
   EXPECT_FALSE( w.data->verifyDone() );
   w.settle();
   EXPECT_EQ( 2, w.feature->runs );
}

TEST( Verification, ACheckThatRequestsAgainCausesExactlyOneMoreRun ) {
   VerifyWorld w;
   w.feature->check = [&] {
      if ( w.feature->runs == 1 ) {
         w.data->doRequestVerify();
         w.data->doRequestVerify();
      }
   };
   w.data->doRequestVerify();
   w.settle();
   EXPECT_EQ( 2, w.feature->runs );
   EXPECT_TRUE( w.data->verifyDone() );
}

TEST( Verification, ChecksRunInTheOrderOfRegistrationWhileTheirOwnersLive ) {
   VerifyWorld w;
   String order;
   std::vector< Velto::Ptr< Feature > > features;
   for ( char name : { 'a', 'b', 'c', 'd' } ) {
      features.push_back( Qon::smIs< Feature >( w.data, String( 1, name ) ) );
      features.back()->check = [&order, name] { order += name; };
   }
   features[1]->hasNotificationActiveIs( false );
   features[0]->check = [&] {
      order += 'a';
      features[2] = nullptr; // c dies in the middle of the run
   };
   w.data->doRequestVerify();
   w.settle();
   EXPECT_EQ( "ad", order );
   EXPECT_EQ( 4u, w.data->checks().size() );

   // Registering again keeps the place; null data withdraws, or registers nowhere.
   Qon::VerifyCheck check;
   auto run = []( Velto::Node * owner ) { ++static_cast< Feature * >( owner )->repetitions; };
   check.attach( nullptr, "nowhere", w.feature.ptr(), run );
   EXPECT_EQ( 4u, w.data->checks().size() );
   check.attach( w.data, "first", w.feature.ptr(), run );
   check.attach( w.data, "second", w.feature.ptr(), run );
   ASSERT_EQ( 5u, w.data->checks().size() );
   EXPECT_EQ( "second", w.data->checks().back()->name() );
   check.attach( nullptr, "", nullptr, nullptr );
   EXPECT_EQ( 4u, w.data->checks().size() );
}

TEST( Verification, FindingsAreCountedAndMakeTheRunFailLoudly ) {
   VerifyWorld w;
   w.feature->check = [&] {
      w.feature->finds( "Lag Port-Channel1 is missing\n" );
      w.feature->finds( "Lag \"Port-Channel2\" is missing\n" );
   };
   w.data->doRequestVerify();
   w.settle();
   EXPECT_EQ( 2u, w.data->verifyInc() );
   EXPECT_EQ( 2u, w.data->cliVerifyOutputs() );
   EXPECT_EQ( "Lag \"Port-Channel2\" is missing\n", w.data->verifyOutput().description() );
   EXPECT_EQ( "finds", w.data->verifyOutput().function() );
   EXPECT_EQ( VerifyResult::failed, w.data->verifyOutput().verifyResult() );
   ASSERT_EQ( 1u, w.world->logs.records().size() );
   EXPECT_EQ( failed, w.world->logs.records()[0].name );
   EXPECT_EQ( "Lag \"Port-Channel2\" is missing Agent will restart.",
              w.world->logs.records()[0].text );

   w.feature->check = nullptr; // a run without findings forgets them
   w.data->doRequestVerify();
   w.settle();
   EXPECT_EQ( 0u, w.data->verifyInc() );
   EXPECT_EQ( 0u, w.data->cliVerifyOutputs() );
   EXPECT_EQ( 1u, w.messages( failed ) );

   Env simulation( "SIMULATION_VMID", "1" ); // checks run, nothing is said to restart
   w.feature->check = [&] { w.feature->finds( "gone" ); };
   w.data->doRequestVerify();
   w.settle();
   EXPECT_EQ( 1u, w.data->verifyInc() );
   EXPECT_EQ( 1u, w.messages( failed ) );
}

TEST( Repetition, APassingFaultIsNoFailure ) {
   VerifyWorld w;
   w.feature->check = [&] {
      w.feature->finds( "not yet\n" );
      w.data->retryVerifyIs( true );
   };
   w.data->doRequestVerify();
   w.settle();
   EXPECT_EQ( VerifyResult::retry, w.data->verifyResult() );
   EXPECT_FALSE( w.data->verifyDone() );
   ASSERT_EQ( 1u, w.world->logs.records().size() );
   EXPECT_EQ( retryNeeded, w.world->logs.records()[0].name );
   EXPECT_EQ( "not yet", w.world->logs.records()[0].text );
   w.runFor( 0.9 );
   EXPECT_EQ( 0, w.feature->repetitions );
   w.runFor( 0.2 );
   EXPECT_EQ( std::pair( 1, 1 ), std::pair( w.feature->runs, w.feature->repetitions ) );
   EXPECT_EQ( 0u, w.data->verifyInc() );
   EXPECT_EQ( VerifyResult::done, w.data->verifyResult() );
   EXPECT_TRUE( w.data->verifyDone() );
   EXPECT_EQ( 0u, w.messages( failed ) );
}

TEST( Repetition, AFaultThatStaysIsOne ) {
   VerifyWorld w;
   w.feature->check = [&] {
      w.feature->finds( "not yet\n" );
      w.data->retryVerifyIs( true );
   };
   w.feature->recheck = [&] { w.feature->finds( "still not\n" ); };
   w.data->doRequestVerify();
   w.runFor( 5 );
   EXPECT_EQ( 1, w.feature->repetitions );
   EXPECT_EQ( 1u, w.data->verifyInc() );
   ASSERT_EQ( 2u, w.world->logs.records().size() );
   EXPECT_EQ( "still not Agent will restart.", w.world->logs.records()[1].text );
}

TEST( Repetition, WhatOthersFoundIsNotForgotten ) {
   VerifyWorld w;
   auto sure = Qon::smIs< Feature >( w.data, "sure" );
   auto hasty = Qon::smIs< Feature >( w.data, "hasty" );
   w.feature->check = hasty->check = [&] {
      hasty->finds( "not yet" );
      w.data->retryVerifyIs( true );
   };
   sure->check = [&] { sure->finds( "lost" ); };
   w.data->doRequestVerify();
   w.settle();
   EXPECT_EQ( 3u, w.data->verifyInc() );
   w.runFor( 5 );
   EXPECT_EQ( 1u, w.data->verifyInc() );
   EXPECT_EQ( "lost", w.data->verifyOutput().description() );
   EXPECT_EQ( 1u, w.messages( failed ) );
   sure->check = nullptr; // but is of its own run only
   w.data->doRequestVerify();
   w.runFor( 5 );
   EXPECT_EQ( 0u, w.data->verifyInc() );
   EXPECT_EQ( "", w.data->verifyOutput().description() );
   EXPECT_EQ( 1u, w.messages( failed ) );
}

TEST( Repetition, HasAnEnd ) {
   VerifyWorld w;
   w.feature->check = w.feature->recheck = [&] { w.data->retryVerifyIs( true ); };
   w.data->doRequestVerify();
   w.runFor( 2.5 );
   EXPECT_EQ( 2, w.feature->repetitions );
   EXPECT_FALSE( w.data->verifyDone() );
   w.runFor( 100 );
   EXPECT_EQ( std::pair( 1, 3 ), std::pair( w.feature->runs, w.feature->repetitions ) );
   EXPECT_TRUE( w.data->verifyDone() );
   EXPECT_FALSE( w.data->retryVerify() );
   EXPECT_EQ( 1u, w.messages( retryNeeded ) ); // one condition, however long
   w.data->doRequestVerify();                  // the next one starts afresh
   w.runFor( 100 );
   EXPECT_EQ( std::pair( 2, 6 ), std::pair( w.feature->runs, w.feature->repetitions ) );
   EXPECT_EQ( 2u, w.messages( retryNeeded ) );
}

TEST( Repetition, ARequestMeanwhileGetsItsOwnRun ) {
   VerifyWorld w;
   w.feature->check = [&] { w.data->retryVerifyIs( w.feature->runs == 1 ); };
   w.data->doRequestVerify();
   w.settle();
   w.data->doRequestVerify();
   w.settle();
   EXPECT_EQ( 2, w.feature->runs );
   EXPECT_TRUE( w.data->verifyDone() );
   w.runFor( 5 );
   EXPECT_EQ( 2, w.feature->runs );
}

TEST( Verification, ResetKeepsWhatIsPending ) {
   VerifyWorld w;
   Connection client;
   w.data->doRequestVerify();
   w.data->retryVerifyIs( true );
   w.data->initVerifyData( client.agentEnd() );
   w.feature->finds( "x" );
   w.data->resetVerifyData();
   EXPECT_EQ( 0u, w.data->socket() );
   EXPECT_EQ( 0u, w.data->cliVerifyOutputs() );
   EXPECT_EQ( Qon::VerifyOutput(), w.data->verifyOutput() );
   EXPECT_EQ( 0u, w.data->verifyInc() );
   EXPECT_TRUE( w.data->verify() );
   EXPECT_TRUE( w.data->retryVerify() );
   EXPECT_EQ( 1u, w.data->verifyRequired()->verifyRequired() );
   EXPECT_EQ( 1u, w.data->checks().size() );
   client.received();
   w.settle(); // the timer's run writes to nobody
   EXPECT_EQ( "", client.received() );
}

} // namespace
