// Recordings: what was recorded on real time happens again in virtual time, and whatever is wrong
// with a file or with the run is said.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "agent/record/Replay.h"
#include "platform/Kiv/EventLoop.h"

namespace {

using namespace QonAgent;

/** Wishes are handed to a slow chip in slices, at times that depend on when they came. */
class Wishes : public Velto::Node {
 public:
   explicit Wishes( Kiv::TaskScheduler & scheduler ) : work_( this, &scheduler ) {
      hasNotificationActiveIs( true );
      done_.attach( this, Velto::make< Kiv::Clock >( scheduler.timerWheel() ) );
   }

   void wish( const String & text ) {
      if ( text == "bad" ) {
         throw Velto::RangeError( "a bad wish" );
      }
      for ( int i = 0; i < 40; ++i ) {
         waiting_.push_back( text + "." + std::to_string( i ) );
      }
      work_.wake();
   }
   void handleDone() {
      // Which of them are done depends on the time, and so does all that follows.
      Kiv::Seconds now = Kiv::now();
      while ( !busy_.empty() && busy_.front().second <= now ) {
         transcript.push_back( "done " + busy_.front().first );
         QON_TELL_HOOK( Wishes, done, busy_.front().first );
         busy_.pop_front();
      }
      if ( !busy_.empty() ) {
         done_->timeMin( busy_.front().second );
      }
   }

   static U32 luck; ///< what nobody can foresee
   std::vector< String > transcript;

 private:
   class Work : public Kiv::Task {
    public:
      Work( Wishes * wishes, Kiv::TaskScheduler * scheduler )
          : Kiv::Task( scheduler, 1, "wishes" ), wishes_( wishes ) {}
      bool run() override {
         while ( !wishes_->waiting_.empty() ) {
            wishes_->hand();
            if ( shouldYield() ) {
               return !wishes_->waiting_.empty();
            }
         }
         return false;
      }

    private:
      Wishes * wishes_;
   };

   void hand() {
      String wish = waiting_.front();
      waiting_.pop_front();
      QON_TELL_HOOK( Wishes, hand, wish, U32( busy_.size() ) );
      U32 answer = QonChip::recordedAnswer< U32 >( "luck", [] { return luck++ * 7 % 5; } );
      transcript.push_back( "hand " + wish + " " + std::to_string( answer ) );
      busy_.emplace_back( wish, Kiv::now() + 0.0001 * answer );
      done_->timeMin( busy_.front().second );
   }

   std::deque< String > waiting_;
   std::deque< std::pair< String, Kiv::Seconds > > busy_;
   Work work_;
   Kiv::ClockReactor< Wishes, &Wishes::handleDone > done_;
};
U32 Wishes::luck = 0;

class Recording : public ::testing::Test {
 protected:
   ~Recording() override { std::remove( file.c_str() ); }

   static void kindsOf( Recorder & recorder, Kiv::TaskScheduler & scheduler,
                        Velto::Ptr< Wishes > & wishes ) {
      recorder.kindIs( "start",
                       [&]( const String & ) { wishes = Velto::make< Wishes >( scheduler ); } );
      recorder.kindIs( "wish", [&]( const String & text ) { wishes->wish( text ); } );
   }

   /** A run on real time, with wishes that come whenever they come. */
   std::vector< String > record( int wished ) {
      Kiv::EventLoop loop;
      Velto::Ptr< Wishes > wishes;
      std::remove( file.c_str() );
      FileRecorder recorder( loop, file );
      kindsOf( recorder, loop, wishes );
      recorder.input( "start", "" );
      for ( int i = 0; i < wished; ++i ) {
         recorder.input( "wish", "w\n" + std::to_string( i ) );
         EXPECT_THROW( recorder.input( "wish", "bad" ), Velto::RangeError );
         loop.runOnce( 0.0003 );
         Kiv::now(); // of no consequence
      }
      for ( int idle = 0; idle < 10; ++idle ) {
         loop.runOnce( 0.001 );
      }
      EXPECT_TRUE( recorder.good() );
      return wishes->transcript;
   }

   ReplayResult replay( const String & text ) {
      Replay again( "rec", text );
      Velto::Ptr< Wishes > wishes; // its task goes before the scheduler
      kindsOf( again, again, wishes );
      ReplayResult result = again.run();
      transcript = wishes ? wishes->transcript : std::vector< String >();
      return result;
   }
   String refusal( const String & text ) {
      try {
         replay( text );
      } catch ( const Velto::RangeError & e ) {
         return e.what();
      }
      return "";
   }
   String content() const {
      std::ostringstream all;
      all << std::ifstream( file ).rdbuf();
      return all.str();
   }
   void contentIs( const std::vector< Record > & records ) {
      std::remove( file.c_str() ); // no recording takes the place of another
      RecordWriter writer( file );
      for ( auto & record : records ) {
         writer.write( record );
      }
   }

   String file = ::testing::TempDir() + "recording." + std::to_string( getpid() );
   std::vector< String > transcript; ///< of the last replay
};

using Kind = Record::Kind;

TEST_F( Recording, ARunOnRealTimeHappensAgain ) {
   auto before = record( 20 );
   ASSERT_GT( before.size(), 1000u );
   Wishes::luck += 3; // another chip by now
   auto result = replay( content() );
   EXPECT_TRUE( result.same() ) << result.shown();
   EXPECT_EQ( transcript, before );
   EXPECT_EQ( result.ending, RecordReader::Ending::whole );
}

TEST_F( Recording, AnInputInsideATurnHappensBehindIt ) {
   std::vector< String > before;
   {
      Kiv::VirtualScheduler scheduler;
      Velto::Ptr< Wishes > wishes;
      FileRecorder recorder( scheduler, file );
      kindsOf( recorder, scheduler, wishes );
      struct Player : Velto::Node {
         void handleFired() { recorder->input( "wish", "timed" ); }
         FileRecorder * recorder;
         Kiv::ClockReactor< Player, &Player::handleFired > clock;
      };
      auto player = Velto::make< Player >();
      player->recorder = &recorder;
      player->hasNotificationActiveIs( true );
      player->clock.attach( player.ptr(), Velto::make< Kiv::Clock >() );
      player->clock->timeIs( 1001.5 );
      recorder.input( "start", "" );
      recorder.input( "wish", "first" );
      scheduler.runFor( 5 );
      before = wishes->transcript;
      wishes = nullptr;
   }
   auto result = replay( content() );
   EXPECT_TRUE( result.same() ) << result.shown();
   EXPECT_EQ( transcript, before );
   EXPECT_EQ( transcript.size(), 160u );
}

TEST_F( Recording, TheFirstDifferenceIsNamed ) {
   record( 1 );
   String before = content();
   std::istringstream lines( before );
   std::vector< Record > records;
   RecordReader reader( "rec", before );
   while ( auto record = reader.peek() ) {
      records.push_back( *record );
      reader.take();
   }
   std::size_t at = 0;
   while ( records[at].kind != Kind::hook ) {
      ++at;
   }
   String number = std::to_string( at + 1 );

   auto other = records;
   other[at].text = "hand( nothing )";
   contentIs( other );
   EXPECT_EQ(
         replay( content() ).shown(),
         "record " + number +
               " differs: recorded 'h hand( nothing )', replayed 'h Wishes::hand( w\n0.0, 0 )'" );
   other = records; // a call that no longer happens
   other.insert( other.begin() + long( at ), { Kind::hook, "extra()" } );
   contentIs( other );
   EXPECT_EQ( replay( content() ).different, at + 1 );
   other = records; // a call that was not there before
   other.erase( other.begin() + long( at ) );
   contentIs( other );
   EXPECT_EQ( replay( content() ).different, at + 1 );
   other = records; // one reading of the time more than happen
   ASSERT_EQ( other[at - 1].kind, Kind::clock );
   other[at - 1].text += " 1";
   contentIs( other );
   EXPECT_EQ( replay( content() ).different, at );
   other[at - 1].kind = Kind::answer; // and none
   contentIs( other );
   EXPECT_EQ( replay( content() ).different, at );
}

TEST_F( Recording, AFileThatIsCutReplaysUpToItsLastWholeRecord ) {
   record( 1 );
   String whole = content();
   ASSERT_EQ( replay( whole ).ending, RecordReader::Ending::whole );
   std::size_t firstLine = whole.find( '\n' ) + 1;
   U64 records = 0;
   for ( std::size_t size = 0; size < whole.size(); ++size ) {
      String text = whole.substr( 0, size );
      if ( size < firstLine ) {
         EXPECT_EQ( refusal( text ), "rec: ends in the middle of its first line" );
         continue;
      }
      records += size > firstLine && text.back() == '\n';
      auto result = replay( text );
      ASSERT_TRUE( result.same() ) << result.shown();
      String n = std::to_string( records );
      ASSERT_EQ( result.shown(),
                 "replayed " + n + " records; the file ends " +
                       ( text.back() == '\n'
                               ? "behind them, without the last one"
                               : "in the middle of record " + std::to_string( records + 1 ) ) );
   }
}

TEST_F( Recording, WhatIsNoRecordingIsRefused ) {
   record( 1 );
   String good = content();
   EXPECT_EQ( refusal( "{}" ), "rec: is no recording" );
   EXPECT_EQ( refusal( String( "\0\n", 2 ) ), "rec: is no recording" );
   EXPECT_EQ( refusal( "qon-recording 2 #00000000\n" ),
              "rec: is a recording of version 2; this program reads version 1" );
   EXPECT_EQ( refusal( "qon-recording 1 #00000000\n" ), "rec: the first line is damaged" );
   // A byte that changed, wherever it is; a line that is missing.
   std::size_t firstLine = good.find( '\n' ) + 1;
   for ( std::size_t at = firstLine; at < good.size() - 1; at += 7 ) {
      if ( good[at] != '\n' ) {
         String text = good;
         text[at] ^= 1;
         EXPECT_NE( refusal( text ).find( " is damaged" ), String::npos ) << at;
      }
   }
   String text = good;
   text.erase( firstLine, text.find( '\n', firstLine ) + 1 - firstLine );
   EXPECT_EQ( refusal( text ), "rec: record 1 is damaged" );
   contentIs( { { Kind::input, "party now" }, { Kind::end, "" } } );
   EXPECT_EQ( refusal( content() ), "record 1: there are no inputs of kind 'party'" );
   contentIs( { { Kind( 'q' ), "?" } } );
   EXPECT_EQ( refusal( content() ), "rec: record 1 is of no known kind: 'q ?'" );
   contentIs( { { Kind::input, "start" }, { Kind::end, "" }, { Kind::end, "" } } );
   EXPECT_EQ( refusal( content() ), "rec: the closing record 2 does not belong there" );
   EXPECT_THROW( RecordWriter( "/nowhere/rec" ), Velto::RangeError );
}

} // namespace
