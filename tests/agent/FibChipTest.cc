// The forwarding table in the chip: what a FEC leads to while answers are late, the chip is full, hooks
// raise, and the agent begins anew. On virtual time, but for the sockets.

#include "agent/features/FibInstaller.h"
#include "agent/softchip/AdjacencyPart.h"
#include "platform/Kiv/Rng.h"
#include "tests/agent/FibWorld.h"

namespace Tests {
namespace {

using Qon::GlobalFecId;
using QonAgent::FibChipState;
using QonAgent::FibInstaller;
using QonAgent::FibReader;

/** The soft chip's hook object, which raises when it is told to. */
struct RaisingHelper : SoftChip::SoftAdjacencyHelper {
   RaisingHelper( SoftChip::AdjacencyTable & table, U32 & raises )
       : SoftAdjacencyHelper( table ), raises_( raises ) {}
   void adjacencyIs( U32 number, U32 version, const Qon::L2AdjKey & key ) override {
      raise();
      SoftAdjacencyHelper::adjacencyIs( number, version, key );
   }
   void adjacencyDel( U32 number ) override {
      raise();
      SoftAdjacencyHelper::adjacencyDel( number );
   }
   void fecIs( GlobalFecId fec, U32 number ) override {
      raise();
      SoftAdjacencyHelper::fecIs( fec, number );
   }
   void fecDel( GlobalFecId fec ) override {
      raise();
      SoftAdjacencyHelper::fecDel( fec );
   }
   void staleDel() override {
      raise();
      SoftAdjacencyHelper::staleDel();
   }
   void raise() {
      if ( raises_ && raises_-- ) {
         throw Velto::RangeError( "hook" );
      }
   }
   U32 & raises_;
};

class FibChip : public testing::Test, public QonChip::AdjacencyPart {
 protected:
   FibChip() { begin(); }
   ~FibChip() override { EXPECT_EQ( table.refused(), std::vector< String >() ); }

   Velto::Ptr< QonChip::AdjacencyHelper > makeAdjacencyHelper() override {
      return Velto::make< RaisingHelper >( table, raises );
   }
   void begin() {
      reader = Velto::make< FibReader >( &loop, &scheduler, folder / "fib" );
      installer = Velto::make< FibInstaller >( reader, *this, &scheduler );
   }
   void end() {
      installer->end();
      installer = nullptr;
      reader = nullptr;
   }
   void writes( const String & text ) {
      file.lines( text );
      file.writer.completeIs( true );
      settle();
   }
   /** What can be done without time; what hooks raise is counted. */
   void settle() {
      for ( U32 quiet = 0; quiet < 4; ) {
         loop.runOnce( 0.0005 );
         try {
            scheduler.settle();
            quiet = reader->idle() && installer->idle() ? quiet + 1 : 0;
         } catch ( const Velto::RangeError & ) {
            ++raised;
         }
      }
      EXPECT_EQ( reader->checkInvariants(), "" );
      EXPECT_EQ( installer->checkInvariants(), "" );
   }
   void pass( Kiv::Seconds seconds ) {
      for ( const Kiv::Seconds until = Kiv::now() + seconds; Kiv::now() < until; ) {
         try {
            scheduler.runUntil( until );
         } catch ( const Velto::RangeError & ) {
            ++raised;
         }
      }
      settle();
   }
   void finishAll() {
      table.completions.finishAll();
      settle();
   }
   /** "Ethernet1, Ethernet2": where packets to a FEC go in the chip. */
   String way( U64 fec ) const { return shown( table.hopsOf( GlobalFecId( fec ) ) ); }
   static String shown( const Qon::L2AdjKey * key ) {
      String text;
      for ( auto i = key ? key->nextHopCollection().viaAndWeightIteratorConst()
                         : Qon::NextHopCollection().viaAndWeightIteratorConst();
            i; ++i ) {
         text += ( text.empty() ? "" : ", " ) + i->via()->viaGen().l3Intf().stringValue() +
                 ( i->weight() == 1 ? "" : "*" + Kiv::toText( i->weight() ) );
      }
      return text;
   }
   U32 in( FibChipState state ) const { return installer->adjacencies( state ); }
   Velto::Ptr< const QonAgent::FibAdjacency > adjacency( U64 fec ) const {
      return reader->fec( GlobalFecId( fec ) )->adjacency;
   }

   SocketFolder folder;
   Kiv::EventLoop loop;
   FibFile file{ loop, folder / "fib" };
   Kiv::VirtualScheduler scheduler;
   Kiv::LogRecorder logs;
   SoftChip::Chip chip{ scheduler };
   SoftChip::AdjacencyTable & table = chip.of< SoftChip::AdjacencyPart >().table();
   U32 raises = 0; // so many hooks raise from now on
   U32 raised = 0;
   Velto::Ptr< FibReader > reader;
   Velto::Ptr< FibInstaller > installer;
};

TEST_F( FibChip, AFecLeadsToItsFormerNextHopsUntilTheNewOnesAreThere ) {
   writes( "fec 1 @Ethernet1\nfec 2 @Ethernet1\n" );
   EXPECT_EQ( way( 1 ), "Ethernet1" );
   EXPECT_TRUE( adjacency( 1 )->hwState().installed() );
   chip.latencyIs( Kiv::never );
   writes( "fec 1 @Ethernet2 @Ethernet3*3\nfec 2 @Ethernet2 @Ethernet3*3" );
   EXPECT_EQ( way( 1 ) + "; " + way( 2 ), "Ethernet1; Ethernet1" );
   EXPECT_EQ( in( FibChipState::requested ), 1u );
   writes( "fec 2 @Ethernet1" ); // as it was
   finishAll();
   EXPECT_EQ( way( 1 ) + "; " + way( 2 ), "Ethernet2, Ethernet3*3; Ethernet1" );
   writes( "fec 2 -" );
   EXPECT_EQ( way( 2 ), "" );
   EXPECT_EQ( reader->adjacencies().size(), 1u );
   EXPECT_EQ( table.adjacencies().size(), 2u ); // its removal takes a while
   finishAll();
   EXPECT_EQ( table.adjacencies().size(), 1u );
   EXPECT_EQ( table.groups(), 1u );
}

TEST_F( FibChip, AFecMayGoAndItsNumberComeAgainWhileTheAnswerIsLate ) {
   chip.latencyIs( Kiv::never );
   writes( "fec 1 @Ethernet1 @Ethernet2" );
   const U32 number = adjacency( 1 )->number();
   writes( "fec 1 -" );
   EXPECT_EQ( reader->adjacencies().size(), 0u );
   writes( "fec 2 @Ethernet3" );
   EXPECT_EQ( adjacency( 2 )->number(), number );
   table.completions.finish( 1 );
   settle();
   EXPECT_EQ( way( 2 ), "Ethernet3" );
   finishAll(); // the first one's turn, long after
   EXPECT_EQ( way( 2 ), "Ethernet3" );
   EXPECT_EQ( table.adjacencies().size(), 1u );
   // Next hops that change twice before the first answer.
   writes( "fec 2 @Ethernet4" );
   writes( "fec 2 @Ethernet5" );
   finishAll();
   EXPECT_EQ( way( 2 ), "Ethernet5" );
   finishAll();
   EXPECT_EQ( table.adjacencies().size(), 1u );
   EXPECT_EQ( installer->unasked(), 0u );
}

TEST_F( FibChip, WhatFindsNoRoomWaitsForIt ) {
   writes( "" );
   pass( 2 );
   EXPECT_TRUE( installer->staleGone() );
   chip.faults().limitIs( "adjacencies", 3 );
   chip.faults().limitIs( "ecmpGroups", 1 );
   writes( "fec 1 @Ethernet1 @Ethernet2\nfec 2 @Ethernet1 @Ethernet3\nfec 3 @Ethernet1\nfec 4 "
           "drop\n" );
   EXPECT_TRUE( adjacency( 2 )->hwState().ecmpGroupsFull() );
   EXPECT_TRUE( way( 3 ) != "" );
   writes( "fec 5 @Ethernet5" );
   EXPECT_EQ( in( FibChipState::noRoom ), 1u );
   EXPECT_EQ( in( FibChipState::noGroup ), 1u );
   writes( "fec 3 -" );
   EXPECT_EQ( way( 5 ), "Ethernet5" );
   EXPECT_EQ( way( 2 ), "" );
   writes( "fec 1 -" );
   EXPECT_EQ( way( 2 ), "Ethernet1, Ethernet3" );
   EXPECT_TRUE( adjacency( 2 )->hwState().installed() );
   EXPECT_EQ( installer->interrupted(), 0u );
   // A chip that grows without a word.
   writes( "fec 6 @Ethernet6\nfec 7 @Ethernet7\nfec 8 @Ethernet8\nfec 9 @Ethernet9" );
   EXPECT_EQ( in( FibChipState::noRoom ), 4u );
   chip.faults().clear();
   pass( FibInstaller::retryInterval );
   EXPECT_EQ( in( FibChipState::programmed ), 7u );
}

TEST_F( FibChip, AFullChipWhoseFecsAllMoveIsEmptiedOneByOne ) {
   chip.faults().limitIs( "ecmpGroups", 4 );
   chip.latencyIs( 0.01 );
   const auto all = [&]( const String & other ) {
      String text;
      for ( U32 id = 1; id <= 8; ++id ) {
         text += "fec " + Kiv::toText( id ) + " @Ethernet1 @Ethernet" +
                 Kiv::toText( 2 + ( id - 1 ) / 2 ) + other + "\n";
      }
      writes( text );
      pass( 1 );
   };
   all( "" );
   EXPECT_EQ( in( FibChipState::programmed ), 4u );
   all( "*2" );
   EXPECT_EQ( in( FibChipState::programmed ), 4u );
   EXPECT_EQ( way( 8 ), "Ethernet1, Ethernet5*2" );
   // With one free group the others go over without a gap.
   EXPECT_LE( installer->interrupted(), 8u );
   chip.faults().limitIs( "ecmpGroups", 5 );
   const U64 before = installer->interrupted();
   all( "*3" );
   EXPECT_EQ( way( 8 ), "Ethernet1, Ethernet5*3" );
   EXPECT_EQ( installer->interrupted(), before );
}

TEST_F( FibChip, WhatFailsOrIsNeverAnsweredIsTriedAgain ) {
   chip.faults().add( { "adjacencyIs", SoftChip::Trouble::fail } );
   chip.faults().add( { "adjacencyIs", SoftChip::Trouble::lose, 2 } );
   writes( "fec 1 @Ethernet1" );
   EXPECT_TRUE( adjacency( 1 )->hwState().installFailed() );
   writes( "fec 2 @Ethernet2" );
   pass( FibInstaller::retryInterval );
   EXPECT_EQ( way( 1 ) + "; " + way( 2 ), "Ethernet1; " );
   pass( FibInstaller::answerTimeout + 2 * FibInstaller::retryInterval );
   EXPECT_EQ( way( 2 ), "Ethernet2" );
   // The next try raises, and so does nothing: the answer is that of the first one.
   chip.latencyIs( Kiv::never );
   writes( "fec 3 @Ethernet3" );
   raises = 1;
   pass( FibInstaller::answerTimeout + 1 );
   EXPECT_EQ( in( FibChipState::failed ), 1u );
   finishAll();
   EXPECT_EQ( way( 3 ), "Ethernet3" );
   EXPECT_EQ( installer->unasked(), 0u );
}

TEST_F( FibChip, HooksThatRaiseAreCalledAgain ) {
   const auto both = [&]( const String & text, U32 howMany ) {
      raises = howMany;
      raised = 0;
      writes( text );
      pass( 4 * FibInstaller::retryInterval );
      EXPECT_EQ( raised, howMany );
   };
   both( "fec 1 @Ethernet1\nfec 2 @Ethernet1", 2 ); // the request, and staleDel()
   EXPECT_EQ( way( 1 ), "Ethernet1" );
   EXPECT_TRUE( installer->staleGone() );
   both( "fec 1 @Ethernet2", 1 );
   EXPECT_EQ( way( 1 ), "Ethernet2" );
   both( "fec 2 -", 1 ); // fecDel()
   EXPECT_EQ( table.adjacencies().size(), 1u );
   // The removal of an adjacency that is wanted again before the next try.
   file.lines( "fec 3 @Ethernet3" );
   settle();
   file.lines( "fec 3 -" );
   raises = 0;
   scheduler.settle();
   settle();
   EXPECT_EQ( table.adjacencies().size(), 1u );
   EXPECT_EQ( table.fecs(), 1u );
}

TEST_F( FibChip, AFecThatGoesBeforeItIsToldIsGone ) {
   scheduler.budgetIs( { 1, 1, 1 } );
   for ( U32 turns = 0; turns < 16; ++turns ) {
      const String path = folder / "other";
      auto writer = std::make_unique< FibFile >( loop, path );
      writer->lines( "fec 1 @Ethernet1" );
      writer->writer.completeIs( true );
      const auto other = Velto::make< FibReader >( &loop, &scheduler, path );
      const auto pump = [&] {
         for ( U32 i = 0; i < 12; ++i ) {
            loop.runOnce( 0 );
         }
      };
      pump();
      scheduler.settle();
      ASSERT_TRUE( other->fec( GlobalFecId( 1 ) ) );
      // Its end is not told yet when the next writer has it again, and takes it out as well.
      writer->lines( "fec 1 -" );
      writer = nullptr;
      writer = std::make_unique< FibFile >( loop, path );
      writer->lines( "fec 1 drop" );
      writer->writer.completeIs( true );
      pump();
      scheduler.advance( 1 );
      pump();
      ASSERT_TRUE( other->source().connected() );
      for ( U32 i = 0; i < turns; ++i ) {
         scheduler.turn();
      }
      writer->lines( "fec 1 -" );
      pump();
      scheduler.settle();
      EXPECT_FALSE( other->fec( GlobalFecId( 1 ) ) ) << turns;
      EXPECT_EQ( other->checkInvariants(), "" );
   }
}

TEST_F( FibChip, AnAgentThatBeginsAnewInterruptsNothing ) {
   writes( "fec 1 @Ethernet1\nfec 2 @Ethernet2 @Ethernet3\nfec 3 drop" );
   end();
   file.lines( "fec 2 @Ethernet2 @Ethernet4\nfec 3 -" );
   EXPECT_EQ( table.fecs(), 3u );
   chip.latencyIs( Kiv::never );
   begin();
   settle();
   EXPECT_FALSE( installer->staleGone() );
   EXPECT_EQ( way( 1 ) + "; " + way( 2 ), "Ethernet1; Ethernet2, Ethernet3" );
   finishAll();
   pass( 2 );
   finishAll();
   EXPECT_TRUE( installer->staleGone() );
   EXPECT_EQ( way( 1 ) + "; " + way( 2 ), "Ethernet1; Ethernet2, Ethernet4" );
   EXPECT_EQ( table.fecs(), 2u );
   EXPECT_EQ( table.adjacencies().size(), 2u );
   // In the middle of everything.
   writes( "fec 1 @Ethernet5\nfec 4 @Ethernet6" );
   end();
   table.completions.finishAll();
   begin();
   settle();
   finishAll();
   pass( 2 );
   finishAll();
   EXPECT_EQ( way( 1 ) + "; " + way( 4 ), "Ethernet5; Ethernet6" );
   EXPECT_EQ( table.adjacencies().size(), 3u );
}

/** Whatever happens, in the end FECs lead where the tables say. */
TEST_F( FibChip, ARandomHistoryEndsInWhatTheTablesSay ) {
   std::map< U32, String > wanted;
   for ( U32 seed = 1; seed <= 10; ++seed ) {
      SCOPED_TRACE( seed );
      Kiv::Rng random( seed );
      for ( U32 step = 0; step < 150; ++step ) {
         const U32 id = 1 + random.below( 20 ), what = random.below( 100 );
         const String name = "fec " + Kiv::toText( id ) + " ";
         if ( what < 60 ) {
            const U32 a = 1 + random.below( 3 ), b = 4 + random.below( 2 );
            const String one = "Ethernet" + Kiv::toText( a ), other = "Ethernet" + Kiv::toText( b );
            const bool several = random.oneIn( 2 );
            wanted[id] = one + ( several ? ", " + other : "" );
            file.lines( name + "@" + one + ( several ? " @" + other : "" ) );
         } else if ( what < 70 && wanted.erase( id ) ) {
            file.lines( name + "-" );
         } else if ( what < 75 ) {
            chip.latencyIs( random.oneIn( 2 ) ? 0 : 0.001 * random.below( 100 ) );
         } else if ( what < 80 ) {
            chip.faults().limitIs( "adjacencies", 2 + random.below( 8 ) );
            chip.faults().limitIs( "ecmpGroups", random.below( 5 ) );
         } else if ( what < 84 ) {
            chip.faults().add(
                  { "adjacencyIs", SoftChip::Trouble( random.below( 5 ) ), random.below( 3 ) } );
         } else if ( what < 88 ) {
            raises = random.below( 3 );
         } else if ( what < 90 ) {
            end();
            begin();
         } else {
            pass( 0.01 * random.below( 700 ) );
         }
         if ( random.oneIn( 3 ) ) {
            settle();
         }
      }
      raises = 0;
      chip.faults().clear();
      file.writer.completeIs( true );
      settle();
      pass( FibInstaller::answerTimeout + 3 * FibInstaller::retryInterval );
      std::set< String > distinct;
      for ( U32 id = 1; id <= 20; ++id ) {
         EXPECT_EQ( way( id ), wanted[id] ) << id;
         distinct.insert( wanted[id] );
      }
      distinct.erase( "" );
      EXPECT_EQ( table.adjacencies().size(), distinct.size() );
      EXPECT_EQ( in( FibChipState::programmed ), distinct.size() );
   }
}

} // namespace
} // namespace Tests
