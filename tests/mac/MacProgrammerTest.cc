// The MAC programmer against a chip that answers what the test says, when it says so.

#include <cstring>

#include "platform/Kiv/Listener.h"
#include "tests/mac/FakeChip.h"

namespace {

using namespace Tests;
using enum Qon::MacProgramStatus;

class Mac : public ::testing::Test, public MacWorld {
 protected:
   void TearDown() override { EXPECT_EQ( chip->checkInvariants(), "" ); }
   /** Accepted, written, and out of the record of writes. */
   MacCmdPtr inFlight( const MacCmdPtr & cmd ) {
      cmd->addrOp() ? chip->handleAddrOp( cmd ) : chip->handleFlushOp( cmd );
      scheduler.settle();
      chip->written.clear();
      return cmd;
   }
   /** Answers and lets the next poll act on it. */
   void settleWith( const MacCmdPtr & cmd, Status status ) {
      chip->answer( cmd, status );
      scheduler.runFor( 0.11 );
   }
   void overflowed( U64 mac ) { settleWith( inFlight( addHost( mac ) ), macProgramFull ); }
};

TEST_F( Mac, FromAcceptanceToRest ) {
   auto cmd = addHost( 1 );
   chip->handleAddrOp( cmd );
   EXPECT_TRUE( chip->pendingAddrOpHas( macKey( 1 ) ) );
   scheduler.settle();
   ASSERT_EQ( chip->written, std::vector{ cmd } );
   EXPECT_EQ( chip->inProgAddrOp( macKey( 1 ) ), cmd );
   EXPECT_EQ( cmd->transactionId(), 1u );
   EXPECT_EQ( cmd->execStartTime(), 1000.0 );

   chip->handleCmdResponse( 1, 77, macProgramSuccess );
   scheduler.settle(); // the next poll comes 0.1 s later
   EXPECT_TRUE( chip->inProgAddrOpHas( macKey( 1 ) ) );
   scheduler.runFor( 0.11 );
   EXPECT_EQ( cmd->tblIndex(), 77u );
   EXPECT_TRUE( chip->atRest() );
   EXPECT_EQ( cmd->useCount(), 2u ); // this test's and the record's
}

TEST_F( Mac, OnlyTheNewestOfAKeyIsWritten ) {
   auto old = addHost( 1 ), newer = macCmd( CmdType::removeHost, macKey( 1 ) );
   auto otherTable =
         macCmd( CmdType::addHost, macKey( 1, 10, Qon::MacHwType::macHwKeyBridgeDwide ) );
   chip->handleAddrOp( old );
   chip->handleAddrOp( otherTable );
   chip->handleAddrOp( newer );
   chip->handleAddrOp( newer ); // handed in twice: no reason to call itself off
   EXPECT_TRUE( old->invalid() );
   scheduler.settle();
   EXPECT_EQ( chip->written, ( std::vector{ otherTable, newer } ) );
}

TEST_F( Mac, AnAnswerToASupersededCommandLeavesTheNewerAlone ) {
   for ( auto status : { macProgramSuccess, macProgramFailed, macProgramBusy, macProgramFull,
                         macProgramParityError } ) {
      auto old = inFlight( addHost( 1 ) );
      auto newer = addHost( 1 );
      chip->handleAddrOp( newer );
      EXPECT_TRUE( old->invalid() );
      settleWith( old, status );
      EXPECT_EQ( chip->inProgAddrOp( macKey( 1 ) ), newer ) << Kiv::toText( status );
      EXPECT_EQ( chip->inProgMacOps(), 1u );
      EXPECT_EQ( chip->overflowAddrOps(), 0u );
      EXPECT_EQ( chip->written, std::vector{ newer } );
      settleWith( newer, macProgramSuccess );
      EXPECT_TRUE( chip->atRest() );
   }
}

TEST_F( Mac, WhatTheChipRefusesForNowIsWrittenAgainUnderAnotherId ) {
   for ( auto cmd : { addHost( 1 ), flushAll() } ) {
      for ( auto status : { macProgramBusy, macProgramParityError } ) {
         inFlight( cmd );
         U64 formerId = cmd->transactionId();
         settleWith( cmd, status );
         ASSERT_EQ( chip->written, std::vector{ cmd } );
         EXPECT_NE( cmd->transactionId(), formerId );
         chip->handleCmdResponse( formerId, 5, macProgramFull ); // late
         EXPECT_EQ( cmd->status(), macProgramInProgress );
         scheduler.runFor( 1 ); // one refusal, one more write
         EXPECT_EQ( chip->written.size(), 1u );
         settleWith( cmd, macProgramSuccess );
         EXPECT_TRUE( chip->atRest() );
      }
   }
}

TEST_F( Mac, AnUnknownAnswerChangesNothing ) {
   auto cmd = inFlight( addHost( 1 ) );
   chip->handleCmdResponse( cmd->transactionId() + 1, 5, macProgramFull );
   chip->handleCmdResponse( 0, 5, macProgramFull );
   scheduler.runFor( 1 );
   EXPECT_EQ( chip->inProgAddrOp( macKey( 1 ) ), cmd );
   EXPECT_EQ( cmd->tblIndex(), 0u );
}

TEST_F( Mac, FlushesKeepTheirPlaceAndNeverOverflow ) {
   auto first = addHost( 1 ), second = addHost( 2 );
   auto flush = flushAll(), same = flushAll();
   chip->handleAddrOp( first );
   chip->handleFlushOp( flush );
   chip->handleFlushOp( same );
   chip->handleAddrOp( second );
   EXPECT_EQ( chip->pendingFlushOps(), 2u );
   scheduler.settle();
   EXPECT_EQ( chip->written, ( std::vector{ first, flush, same, second } ) );
   EXPECT_EQ( chip->pendingFlushOps(), 0u );
   for ( auto & cmd : std::vector( chip->written ) ) {
      chip->answer( cmd, cmd->addrOp() ? macProgramSuccess : macProgramFull );
   }
   scheduler.runFor( 0.11 );
   EXPECT_TRUE( chip->atRest() );
}

TEST_F( Mac, ACommandThatIsCalledOffIsDropped ) {
   auto pending = addHost( 1 ), flying = inFlight( addHost( 2 ) ), flush = flushAll();
   chip->handleAddrOp( pending );
   chip->handleFlushOp( flush );
   for ( auto & cmd : { pending, flying, flush } ) {
      cmd->validIs( false );
   }
   settleWith( flying, macProgramBusy );
   EXPECT_TRUE( chip->written.empty() );
   EXPECT_TRUE( chip->atRest() );
   chip->handleAddrOp( pending ); // it is no wish any more
   EXPECT_EQ( chip->pendingMacOps(), 0u );
}

TEST_F( Mac, AHookMayAnswerAtOnceOrHandInANewerCommand ) {
   auto newer = macCmd( CmdType::removeHost, macKey( 1 ) );
   chip->onWrite = [&]( const MacCmdPtr & cmd ) {
      chip->answer( cmd, macProgramSuccess );
      chip->handleAddrOp( newer );
   };
   auto old = addHost( 1 );
   chip->handleAddrOp( old );
   ASSERT_TRUE( scheduler.runToRest( 1100 ) );
   EXPECT_EQ( chip->written, ( std::vector{ old, newer } ) );
   EXPECT_TRUE( chip->atRest() );
}

TEST_F( Mac, AHookThatRaisesIsCalledOnceMore ) {
   chip->onWrite = [&]( const MacCmdPtr & ) {
      chip->onWrite = nullptr;
      throw Velto::RangeError( "chip" );
   };
   auto cmd = addHost( 1 ), next = addHost( 2 );
   chip->handleAddrOp( cmd );
   chip->handleAddrOp( next );
   EXPECT_THROW( scheduler.settle(), Velto::RangeError );
   EXPECT_EQ( chip->written, ( std::vector{ cmd, next } ) ); // and the other one all the same
   scheduler.runFor( 0.11 );
   EXPECT_EQ( chip->written, ( std::vector{ cmd, next, cmd } ) );
}

TEST_F( Mac, TransactionIdsAreUniqueAmongCommandsInFlight ) {
   auto preset = macCmd( CmdType::addHost, macKey( 1 ), 2 );
   auto clash = macCmd( CmdType::addHost, macKey( 2 ), 2 );
   auto far = macCmd( CmdType::addHost, macKey( 3 ), ~U64( 0 ) );
   inFlight( preset );
   inFlight( clash );
   inFlight( far );
   auto plain = inFlight( addHost( 4 ) );
   EXPECT_EQ( preset->transactionId(), 2u );
   EXPECT_EQ( clash->transactionId(), 1u );
   EXPECT_EQ( plain->transactionId(), 3u );
   std::vector< U64 > ids;
   for ( auto i = chip->inProgMacOpIteratorConst(); i; ++i ) {
      ids.push_back( i.key() );
   }
   EXPECT_EQ( ids, ( std::vector< U64 >{ 1, 2, 3, ~U64( 0 ) } ) );
   scheduler.runFor( 5 ); // polls get past the last number there is
   for ( auto & cmd : { preset, clash, far, plain } ) {
      settleWith( cmd, macProgramSuccess );
   }
   EXPECT_TRUE( chip->atRest() );
}

TEST_F( Mac, AShadowCommandGoesToTheOtherHook ) {
   auto cmd = addHost( 1 );
   cmd->shadowIs( 1 );
   inFlight( cmd );
   EXPECT_EQ( chip->shadowed, std::vector{ cmd } );
}

TEST_F( Mac, AStalledCommandStaysInFlight ) {
   auto cmd = inFlight( addHost( 1 ) );
   scheduler.runFor( 100 );
   EXPECT_EQ( chip->inProgAddrOp( macKey( 1 ) ), cmd );
   EXPECT_TRUE( chip->written.empty() );
}

// Overflow

TEST_F( Mac, TheOverflowIsRetriedInKeyOrder ) {
   for ( U64 mac : { 3, 1, 2 } ) {
      overflowed( mac );
   }
   EXPECT_EQ( chip->overflowAddrOps(), 3u );
   EXPECT_EQ( chip->inProgMacOps(), 0u );
   EXPECT_TRUE( chip->pollReqClock()->idle() );
   scheduler.runFor( 4.5 );
   EXPECT_TRUE( chip->written.empty() );
   scheduler.runFor( 0.6 ); // five seconds after the first, however often the poll came by
   std::vector< MacEntryKey > keys;
   for ( auto & cmd : chip->written ) {
      keys.push_back( cmd->key() );
      chip->answer( cmd, macProgramSuccess );
   }
   EXPECT_EQ( keys, ( std::vector{ macKey( 1 ), macKey( 2 ), macKey( 3 ) } ) );
   scheduler.runFor( 0.2 );
   EXPECT_TRUE( chip->atRest() );
}

TEST_F( Mac, PollsDoNotPutTheRetryOff ) {
   auto silent = inFlight( addHost( 9 ) ); // unanswered, so polled ten times a second
   overflowed( 1 );
   scheduler.runFor( 5 );
   ASSERT_EQ( chip->written.size(), 1u );
   chip->answer( silent, macProgramSuccess );
   settleWith( chip->written[0], macProgramSuccess );
   EXPECT_TRUE( chip->atRest() );
}

TEST_F( Mac, ANewerWishTakesTheKeyOutOfOverflow ) {
   overflowed( 1 );
   auto remove = inFlight( macCmd( CmdType::removeHost, macKey( 1 ) ) );
   EXPECT_EQ( chip->overflowAddrOps(), 0u );
   settleWith( remove, macProgramSuccess );
   EXPECT_TRUE( scheduler.runToRest( 1100 ) );
   EXPECT_TRUE( chip->written.empty() );
}

TEST_F( Mac, TheRetryDelayDoublesUnderLoadAndFallsByOneWhenIdle ) {
   std::vector< double > delays;
   auto run = [&]( U32 times ) {
      for ( U32 i = 0; i < times; ++i ) {
         chip->updateOverflowAddresses();
         delays.push_back( chip->updateOverflowAddressDelay() );
      }
   };
   chip->suspendPendingIs( true );
   chip->handleAddrOp( addHost( 1 ) );
   run( 4 );
   EXPECT_EQ( delays, ( std::vector{ 10.0, 20.0, 30.0, 30.0 } ) );
   delays.clear();
   chip->suspendPendingIs( false );
   writeAndAnswer( macProgramSuccess );
   run( 27 );
   EXPECT_EQ( delays[0], 29.0 );
   EXPECT_EQ( delays[1], 28.0 );
   EXPECT_EQ( delays[24], 5.0 );
   EXPECT_EQ( delays[26], 5.0 );
   scheduler.runFor( 1 );
}

TEST_F( Mac, FullIsReportedOncePerEpisode ) {
   overflowed( 1 );
   overflowed( 2 );
   scheduler.runFor( 5 ); // both are retried, and do not fit again
   writeAndAnswer( macProgramFull );
   scheduler.runFor( 60 );
   ASSERT_EQ( logs.records().size(), 1u );
   EXPECT_EQ( logs.records()[0].name, "ETH_MACADDRBANKFULL" );
   EXPECT_EQ( logs.records()[0].text.find(
                    "Unable to program learnedDynamic host table entry for MAC address "
                    "02:11:22:00:00:01 in VLAN 10 due to hardware resource exhaustion" ),
              0u );
   for ( U64 mac : { 1, 2 } ) {
      settleWith( inFlight( macCmd( CmdType::removeHost, macKey( mac ) ) ), macProgramSuccess );
   }
   EXPECT_FALSE( chip->overflowLogged() );
   overflowed( 3 );
   EXPECT_EQ( logs.records().size(), 2u );
}

// Slices

TEST_F( Mac, ADrainStopsAtTheFirstLookAtTheClockBehindItsBudget ) {
   acceptMany( 1000 );
   scheduler.readCostIs( 0.004 ); // begin, and looks after 128, 256, 384: the last one is too late
   scheduler.turn();
   EXPECT_EQ( chip->written.size(), 384u );
   EXPECT_NEAR( chip->updatePendingAddressClock()->time() - scheduler.time(), 0.2, 1e-9 );
   scheduler.readCostIs( 0 );
   U64 reads = Kiv::timeReads();
   chip->updatePendingAddresses();
   EXPECT_EQ( Kiv::timeReads() - reads, 5u ); // one, and one for each 128 of 616
   EXPECT_EQ( chip->written.size(), 1000u );
}

TEST_F( Mac, AnInterruptedPollGoesOnWhereItStopped ) {
   acceptMany( 1000 );
   chip->updatePendingAddresses();
   for ( auto & cmd : chip->written ) {
      chip->answer( cmd, macProgramSuccess );
   }
   scheduler.readCostIs( 0.006 );
   chip->pollInProgressCmds();
   EXPECT_EQ( chip->inProgMacOps(), 744u );
   EXPECT_EQ( chip->inProgMacOpBookmark(), U64( 257 ) );
   chip->answer( chip->written[256], macProgramBusy ); // the one it stopped at
   chip->pollInProgressCmds();
   EXPECT_EQ( chip->inProgMacOps(), 488u );
   EXPECT_EQ( chip->pendingMacOps(), 1u );
   scheduler.readCostIs( 0 );
   scheduler.settle();
   EXPECT_EQ( chip->inProgMacOps(), 1u );
   EXPECT_FALSE( chip->inProgMacOpBookmark() );
   writeAndAnswer( macProgramSuccess );
   chip->answer( chip->inProgMacOpIteratorConst().value(), macProgramSuccess );
   scheduler.runFor( 0.2 );
   EXPECT_TRUE( chip->atRest() );
}

TEST_F( Mac, AnInterruptedOverflowRunGoesOnWhereItStopped ) {
   acceptMany( 1000 );
   writeAndAnswer( macProgramFull );
   chip->pollInProgressCmds();
   ASSERT_EQ( chip->overflowAddrOps(), 1000u );
   scheduler.readCostIs( 0.006 );
   chip->updateOverflowAddresses();
   EXPECT_EQ( chip->overflowAddrOps(), 744u );
   EXPECT_EQ( chip->overflowAddrOpBookmark(), macKey( 256 ) );
   // What overflows behind the bookmark's back waits for the next round.
   writeAndAnswer( macProgramFull );
   chip->pollInProgressCmds();
   chip->pollInProgressCmds();
   scheduler.readCostIs( 0 );
   chip->handleAddrOp( addHost( 256 ) ); // the bookmark's key is gone
   U32 before = chip->pendingMacOps();
   chip->updateOverflowAddresses();
   EXPECT_EQ( chip->pendingMacOps() - before, 743u );
   EXPECT_FALSE( chip->overflowAddrOpBookmark() );
   EXPECT_EQ( chip->overflowAddrOps(), 256u );
   EXPECT_LT( chip->updateOverflowAddressClock()->time(), Kiv::never );
}

// Start and suspension

TEST_F( Mac, WhatCameBeforeTheStartWaitsForIt ) {
   auto early = Qon::smIs< FakeChip >( scheduler.timerWheel() );
   early->handleAddrOp( addHost( 1 ) );
   early->updatePendingAddresses(); // works without clocks
   early->handleFlushOp( flushAll() );
   scheduler.runFor( 1 );
   EXPECT_EQ( early->written.size(), 1u );
   early->handleInitialized();
   EXPECT_TRUE( early->initialized() );
   auto clock = early->pollReqClock();
   early->initializedIs( false );
   early->initializedIs( true );
   EXPECT_EQ( early->pollReqClock(), clock );
   scheduler.settle();
   EXPECT_EQ( early->written.size(), 2u );
}

TEST_F( Mac, SuspendedProcessingHoldsAndComesBackByItself ) {
   auto flying = inFlight( addHost( 1 ) );
   chip->suspendPendingIs( true );
   chip->suspendInProgressIs( true );
   chip->handleAddrOp( addHost( 2 ) );
   chip->answer( flying, macProgramSuccess );
   scheduler.runFor( 10 );
   EXPECT_TRUE( chip->written.empty() );
   EXPECT_EQ( chip->inProgMacOps(), 1u );
   chip->suspendInProgressIs( false );
   scheduler.runFor( 0.21 ); // with work pending that is held: the poll must not spin
   EXPECT_EQ( chip->inProgMacOps(), 0u );
   chip->suspendPendingIs( false );
   scheduler.runFor( 0.21 );
   ASSERT_EQ( chip->written.size(), 1u );
   settleWith( chip->written[0], macProgramSuccess );
   EXPECT_TRUE( chip->atRest() );
}

TEST_F( Mac, ACommandMayBeHandedToASuccessor ) {
   auto pending = addHost( 1 ), flush = flushAll(), inFlight = addHost( 2 ), full = addHost( 3 );
   chip->handleAddrOp( full );
   writeAndAnswer( Status::macProgramFull );
   chip->pollInProgressCmds();
   chip->handleAddrOp( inFlight );
   chip->updatePendingAddresses();
   chip->handleAddrOp( pending );
   chip->handleFlushOp( flush );
   chip = Qon::smIs< FakeChip >( scheduler.timerWheel() );
   chip->initializedIs( true );
   for ( auto & cmd : { pending, inFlight, full } ) {
      chip->handleAddrOp( cmd );
   }
   chip->handleFlushOp( flush );
   chip->updatePendingAddresses();
   EXPECT_EQ( chip->written, ( std::vector< MacCmdPtr >{ pending, inFlight, full, flush } ) );
}

/** A chip's own kind of command may carry more, and lies in no other's memory. */
TEST( MacCmd, ALargerKindHasRoomForItself ) {
   struct Larger : Qon::IndirectAccessMacCmd {
      explicit Larger( U8 fill )
          : IndirectAccessMacCmd( Qon::IndirectAccessMacCmdType::addHost, {}, {}, {} ) {
         more.fill( fill );
      }
      std::array< U8, 4096 > more;
   };
   std::vector< Velto::Ptr< Larger > > all;
   for ( U8 n = 0; n < 100; ++n ) {
      all.push_back( Velto::make< Larger >( n ) );
   }
   for ( U8 n = 0; n < 100; ++n ) {
      EXPECT_EQ( std::count( all[n]->more.begin(), all[n]->more.end(), n ), 4096 );
   }
}

TEST_F( Mac, ACommandThatIsHandedInAgainIsAnotherTransaction ) {
   auto cmd = addHost( 1 );
   chip->handleAddrOp( cmd );
   chip->updatePendingAddresses();
   const U64 first = cmd->transactionId();
   chip->answer( cmd, Status::macProgramFailed );
   chip->pollInProgressCmds();
   chip->handleAddrOp( cmd );
   chip->updatePendingAddresses();
   EXPECT_NE( first, cmd->transactionId() );
   chip->handleCmdResponse( first, 0, Status::macProgramSuccess ); // late
   EXPECT_EQ( cmd->status(), Status::macProgramInProgress );
}

TEST_F( Mac, ACommandThatWasCalledOffMayBeWishedForAgain ) {
   for ( auto cmd : { addHost( 1 ), flushAll() } ) {
      auto handIn = [&] { cmd->addrOp() ? chip->handleAddrOp( cmd ) : chip->handleFlushOp( cmd ); };
      handIn();
      cmd->validIs( false );
      scheduler.runFor( 1 );
      EXPECT_TRUE( chip->written.empty() && chip->atRest() );
      cmd->validIs( true );
      handIn();
      scheduler.settle();
      EXPECT_EQ( chip->written, std::vector{ cmd } );
      settleWith( cmd, macProgramSuccess );
      EXPECT_TRUE( chip->atRest() );
      chip->written.clear();
   }
}

/** A watcher of a command hears that its transaction is over before it is put into overflow. */
TEST_F( Mac, WhatNobodyWantsAnyMoreDoesNotOverflow ) {
   auto newer = addHost( 1 );
   const std::function< void( const MacCmdPtr & ) > acts[] = {
         []( const MacCmdPtr & cmd ) { cmd->validIs( false ); },
         [&]( const MacCmdPtr & ) { chip->handleAddrOp( newer ); },
         [&]( const MacCmdPtr & cmd ) { chip->handleAddrOp( cmd ); },
   };
   for ( auto & act : acts ) {
      auto cmd = inFlight( addHost( 1 ) );
      Kiv::Listener< Qon::IndirectAccessMacCmd::transactionIdAttr > watcher;
      watcher.attach( cmd.ptr(), [&] {
         watcher.detach();
         act( cmd );
      } );
      chip->answer( cmd, macProgramFull );
      chip->pollInProgressCmds();
      EXPECT_EQ( chip->overflowAddrOps(), 0u );
      EXPECT_TRUE( logs.records().empty() );
      EXPECT_EQ( chip->checkInvariants(), "" );
      writeAndAnswer( macProgramSuccess );
      scheduler.runFor( 0.2 );
      EXPECT_TRUE( chip->atRest() );
   }
}

TEST_F( Mac, AnEpisodeOfOverflowThatBeganTooSoonIsReportedLater ) {
   auto fill = [&]( U64 mac ) {
      chip->handleAddrOp( addHost( mac ) );
      writeAndAnswer( Status::macProgramFull );
      chip->pollInProgressCmds();
   };
   fill( 1 );
   EXPECT_EQ( 1u, logs.records().size() );
   chip->updateOverflowAddresses();
   writeAndAnswer( Status::macProgramSuccess );
   chip->pollInProgressCmds();
   EXPECT_FALSE( chip->overflowLogged() );
   fill( 2 );
   EXPECT_EQ( 1u, logs.records().size() );
   scheduler.advance( 60 );
   chip->updateOverflowAddresses();
   writeAndAnswer( Status::macProgramFull );
   chip->pollInProgressCmds();
   EXPECT_EQ( 2u, logs.records().size() );
}

TEST_F( Mac, AnEpisodeOfOverflowMayEndWithACommandThatIsCalledOff ) {
   overflowed( 1 );
   EXPECT_TRUE( chip->overflowLogged() );
   auto last = macCmd( CmdType::removeHost, macKey( 1 ) );
   chip->handleAddrOp( last );
   last->validIs( false );
   scheduler.runFor( 60 );
   EXPECT_TRUE( chip->atRest() );
   EXPECT_FALSE( chip->overflowLogged() );
   overflowed( 2 );
   EXPECT_EQ( 2u, logs.records().size() );
}

TEST_F( Mac, WorkGoesOnAfterARest ) {
   chip->handleAddrOp( addHost( 1 ) );
   chip->updatePendingAddresses();
   chip->initializedIs( false );
   chip->handleAddrOp( addHost( 2 ) );
   scheduler.runFor( 10 );
   EXPECT_EQ( 1u, chip->written.size() );
   chip->onWrite = [&]( const MacCmdPtr & cmd ) { chip->answer( cmd, Status::macProgramSuccess ); };
   chip->answer( chip->written[0], Status::macProgramSuccess );
   chip->initializedIs( true );
   scheduler.runFor( 10 );
   EXPECT_EQ( 2u, chip->written.size() );
   EXPECT_TRUE( chip->atRest() );
}

/** Whoever calls a command off while it is in overflow wants no retry. */
TEST_F( Mac, WhatIsCalledOffIsNotTriedAgain ) {
   auto cmd = addHost( 1 );
   settleWith( inFlight( cmd ), macProgramFull );
   EXPECT_EQ( chip->overflowAddrOps(), 1u );
   cmd->validIs( false );
   chip->updateOverflowAddresses();
   EXPECT_EQ( chip->overflowAddrOps() + chip->pendingMacOps(), 0u );
   scheduler.runFor( 100 );
   EXPECT_TRUE( chip->atRest() );
}

TEST_F( Mac, AFlushWhoseWatcherRaisesIsDone ) {
   auto flush = flushAll();
   flush->statusIs( macProgramFailed ); // of an attempt before
   {
      Kiv::Listener< Qon::IndirectAccessMacCmd::statusAttr > raises(
            flush.ptr(), [] { throw Velto::RangeError( "watcher" ); } );
      EXPECT_THROW( chip->handleFlushOp( flush ), Velto::RangeError );
   }
   scheduler.settle();
   EXPECT_EQ( chip->written, std::vector< MacCmdPtr >{ flush } );
}

TEST( MacSlots, HooksStandBehindTheBase ) {
   auto slot = []( auto method ) {
      std::ptrdiff_t words[sizeof( method ) / sizeof( std::ptrdiff_t )];
      std::memcpy( words, &method, sizeof( method ) );
      return ( words[0] - 1 ) / std::ptrdiff_t( sizeof( void * ) );
   };
   using P = Qon::QonMacProgrammer;
   EXPECT_EQ( slot( &P::handleInitialized ), 4 );
   EXPECT_EQ( slot( &P::handleAddrOp ), 5 );
   EXPECT_EQ( slot( &P::handleFlushOp ), 6 );
   EXPECT_EQ( slot( &P::writeToHw ), 7 );
   EXPECT_EQ( slot( &P::writeToHwShadow ), 8 );
}

} // namespace
