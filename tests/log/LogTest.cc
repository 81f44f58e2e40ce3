// The log facility: arguments, rate limits, handles by name.

#include "platform/Kiv/Log.h"

#include <gtest/gtest.h>

#include "platform/Kiv/LogRecorder.h"
#include "platform/Velto/Assert.h"

namespace {

using Kiv::LogDescriptor;
using Kiv::LogHandle;

/** As VLAN ids do: a number by conversion. */
struct Vlan {
   U16 id;
   operator U16() const { return id; }
};

/** As interfaces do: a text by stringValue(). */
struct Intf {
   Velto::String stringValue() const { return "Ethernet3/1"; }
};

struct Stepped : Kiv::TimeSource {
   Kiv::Seconds now() override { return at; }
   Kiv::Seconds at = 1000;
};

constexpr LogDescriptor mapping = { "T_MAPPING", "%s: vlan %d, %d%% of %L.", "", "", 4, 0 };
constexpr LogDescriptor plain = { "T_PLAIN", "Nothing to add", "", "", 3, 0 };

class LogTest : public testing::Test {
 protected:
   LogTest() : before_( Kiv::timeSourceIs( &time ) ) {}
   ~LogTest() override { Kiv::timeSourceIs( before_ ); }

   Velto::String last() const { return log.records().empty() ? "" : log.records().back().text; }

   Stepped time;
   Kiv::LogRecorder log;

 private:
   Kiv::TimeSource * before_;
};

TEST_F( LogTest, ArgumentsOfEveryKind ) {
   LogHandle handle( mapping, 0, 1.0, 0, 0 );
   EXPECT_TRUE( Kiv::log( handle, Intf(), Vlan{ 4094 }, S32( -1 ), ~U64( 0 ) ) );
   EXPECT_EQ( last(), "Ethernet3/1: vlan 4094, -1% of 18446744073709551615." );
   Velto::String name = "100%s";
   Kiv::log( handle, name, ~U32( 0 ), U8( 7 ), U64( 0 ) );
   EXPECT_EQ( last(), "100%s: vlan 4294967295, 7% of 0." );
   LogHandle none( plain, 0, 1.0, 0, 0 );
   Kiv::log( none );
   EXPECT_EQ( log.records().back(),
              ( Kiv::LogRecorder::Record{ "T_PLAIN", 3, "Nothing to add" } ) );
}

TEST_F( LogTest, WrongArgumentsAreFatal ) {
   LogHandle handle( mapping, 60, 1.0, 0, 0 );
   EXPECT_DEATH( Kiv::log( handle, "a", 1, 2 ), "T_MAPPING takes 4 arguments, not 3" );
   EXPECT_DEATH( Kiv::log( handle, "a", 1, 2, U64( 3 ), 4 ), "T_MAPPING takes 4 arguments, not 5" );
   EXPECT_DEATH( Kiv::log( handle, 1, 1, 2, U64( 3 ) ), "takes a text as argument 1" );
   EXPECT_DEATH( Kiv::log( handle, "a", U64( 1 ), 2, U64( 3 ) ), "a 32-bit number as argument 2" );
   EXPECT_DEATH( Kiv::log( handle, "a", 1, 2, U32( 3 ) ), "a 64-bit counter as argument 4" );
   Kiv::log( handle, "a", 1, 2, U64( 3 ) );
   ASSERT_FALSE( handle.okToLog() );
   EXPECT_DEATH( Kiv::log( handle, "a" ), "T_MAPPING takes 4 arguments, not 1" );

   static constexpr LogDescriptor odd = { "T_ODD", "%x", "", "", 3, 0 };
   LogHandle wrong( odd, 0, 1.0, 0, 0 );
   EXPECT_DEATH( Kiv::log( wrong, 1 ), "Assertion 'conversion == 's' " );
}

TEST_F( LogTest, IntervalCountsFromTheLastEmittedMessage ) {
   LogHandle handle( plain, 60, 1.0, 0, 0, "A" );
   LogHandle other( plain, 60, 1.0, 0, 0, "B" );
   EXPECT_TRUE( Kiv::log( handle ) );
   EXPECT_TRUE( Kiv::log( other ) ); // the limit is the handle's, not the message's
   time.at += 40;
   EXPECT_FALSE( handle.okToLog() );
   EXPECT_FALSE( Kiv::log( handle ) );
   time.at += 19.5;
   EXPECT_FALSE( Kiv::log( handle ) );
   time.at += 0.5; // 60 after the emitted one; the suppressed ones do not count
   EXPECT_TRUE( handle.okToLog() );
   EXPECT_TRUE( handle.okToLog() ); // asking stamps nothing
   EXPECT_TRUE( Kiv::log( handle ) );
   EXPECT_FALSE( handle.okToLog() );
   EXPECT_EQ( log.records().size(), 3u );
   time.at = 0; // time starts again
   Kiv::logWindowsReset();
   EXPECT_TRUE( Kiv::log( handle ) );
}

TEST_F( LogTest, AnIntervalEndsOnTheDotWhateverTheTimeOfDay ) {
   LogHandle handle( plain, 60, 1.0, 0, 0 );
   for ( int i = 0; i < 1000; ++i ) {
      Kiv::logWindowsReset();
      const Kiv::Seconds start = time.at = 1000 + i * 0.1;
      EXPECT_TRUE( Kiv::log( handle ) );
      time.at = start + 60;
      EXPECT_TRUE( Kiv::log( handle ) ) << start;
   }
}

TEST_F( LogTest, ASinkMayRaiseMessagesAndExceptions ) {
   struct Chatty : Kiv::LogSink {
      explicit Chatty( LogHandle & h ) : handle( h ) {}
      void message( const LogDescriptor &, const Velto::String & ) override {
         ++messages;
         Kiv::log( handle );
         if ( messages == 1 ) {
            throw Velto::RangeError( "sink" );
         }
      }
      LogHandle & handle;
      int messages = 0;
   };
   LogHandle unlimited( plain, 0, 1.0, 0, 0 ), limited( plain, 60, 1.0, 0, 0 );
   Chatty chatty( unlimited );
   Kiv::LogSink * before = Kiv::logSinkIs( &chatty );
   testing::internal::CaptureStderr();
   EXPECT_THROW( Kiv::log( limited ), Velto::RangeError );
   EXPECT_TRUE( limited.okToLog() ); // nobody got it
   EXPECT_TRUE( Kiv::log( limited ) );
   Kiv::logSinkIs( before );
   EXPECT_EQ( testing::internal::GetCapturedStderr(),
              "T_PLAIN(3): Nothing to add\nT_PLAIN(3): Nothing to add\n" );
   EXPECT_EQ( 2, chatty.messages );
}

TEST_F( LogTest, WithoutIntervalEveryMessageIsEmitted ) {
   LogHandle handle( plain, 0, 1.0, 0, 0 );
   for ( U32 i = 0; i < 3; ++i ) {
      EXPECT_TRUE( handle.okToLog() );
      EXPECT_TRUE( Kiv::log( handle ) );
   }
   EXPECT_EQ( log.records().size(), 3u );
}

Velto::String
refusal( const Velto::String & name, const std::vector< Velto::String > & args,
         const Velto::String & module = "" ) {
   try {
      Kiv::logByName( name, args, module );
   } catch ( const Velto::RangeError & error ) {
      return error.what();
   }
   return "";
}

TEST_F( LogTest, ByName ) {
   LogHandle late( mapping, 0, 1.0, 0, 0, "Zebra" );
   LogHandle handle( mapping, 60, 1.0, 0, 0, "Ant" );
   EXPECT_EQ( Kiv::logHandle( "T_MAPPING" ), &handle ); // by module, not by construction
   EXPECT_EQ( Kiv::logHandle( "T_MAPPING", "Zebra" ), &late );
   EXPECT_TRUE( Kiv::logByName( "T_MAPPING", { "", "4294967295", "-5", "4294967296" } ) );
   EXPECT_EQ( last(), ": vlan 4294967295, -5% of 4294967296." );
   EXPECT_FALSE( Kiv::logByName( "T_MAPPING", { "", "1", "2", "3" } ) ); // too soon
   EXPECT_TRUE( Kiv::logByName( "T_MAPPING", { "", "1", "2", "3" }, "Zebra" ) );

   log.clear();
   EXPECT_EQ( refusal( "T_NONE", {} ), "No module raises a message \"T_NONE\"" );
   EXPECT_EQ( refusal( "T_MAPPING", {}, "Bee" ), "No module Bee raises a message \"T_MAPPING\"" );
   EXPECT_EQ( refusal( "T_MAPPING", { "a" } ), "T_MAPPING takes 4 arguments, not 1" );
   for ( const char * number : { "4294967296", "-2147483649", "1x", "", " 1", "+1" } ) {
      EXPECT_EQ( refusal( "T_MAPPING", { "a", number, "2", "3" } ),
                 Velto::String( "T_MAPPING takes a 32-bit number as argument 2, not \"" ) + number +
                       "\"" );
   }
   EXPECT_EQ( refusal( "T_MAPPING", { "a", "1", "2", "-3" } ),
              "T_MAPPING takes a 64-bit counter as argument 4, not \"-3\"" );
   EXPECT_TRUE( log.records().empty() );
}

TEST_F( LogTest, AHandleThatIsGoneIsNotFound ) {
   { LogHandle handle( plain, 0, 1.0, 0, 0, "A" ); }
   EXPECT_EQ( Kiv::logHandle( "T_PLAIN" ), nullptr );
}

TEST( LogSinkTest, StandardErrorIsTheDefault ) {
   LogHandle handle( plain, 0, 1.0, 0, 0 );
   testing::internal::CaptureStderr();
   Kiv::log( handle );
   EXPECT_EQ( testing::internal::GetCapturedStderr(), "T_PLAIN(3): Nothing to add\n" );
}

} // namespace
