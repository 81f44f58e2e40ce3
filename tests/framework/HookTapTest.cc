// The tap at the hooks: who hears a call, what is heard of it, and who may end meanwhile.

#include <functional>
#include <memory>
#include <vector>

#include "Qon/include/framework/HookTap.h"
#include "Qon/include/framework/QonAsyncBaseSm.h"
#include "tests/harness/World.h"

namespace {

using Velto::String;
using Lines = std::vector< String >;

class Listener : public Qon::HookListener {
 public:
   explicit Listener( Lines & lines, const String & name = "", std::function< void() > act = {} )
       : lines_( lines ), name_( name ), act_( std::move( act ) ) {}
   void hookCalled( const char * hook, const String & arguments ) override {
      lines_.push_back( name_ + Qon::HookTap::shown( hook, arguments ) );
      if ( auto once = std::exchange( act_, nullptr ) ) {
         once();
      }
   }

 private:
   Lines & lines_;
   String name_;
   std::function< void() > act_;
};

struct CountedChip {
   Lines * lines;
   U32 count() const { return 3; }
   void reset() { lines->push_back( "reset" ); }
   bool write( U32 index, const String & name, bool on ) {
      lines->push_back( "write" );
      return index > 1 && on && !name.empty();
   }
};

TEST( HookTap, ACallIsToldBeforeItIsMade ) {
   Lines lines;
   CountedChip chip{ &lines };
   const String name = "x";
   U32 texts = 0;
   auto text = [&] { return String( 1, char( 'a' + texts++ ) ); };
   QON_TELL_HOOK( CountedChip, write, text() );
   EXPECT_EQ( texts, 0u ) << "made for nobody";
   {
      Listener listener( lines );
      EXPECT_TRUE( QON_HOOK( CountedChip, &chip, write, chip.count(), name, true ) );
      QON_HOOK( CountedChip, &chip, reset );
      QON_TELL_HOOK( CountedChip, write, text() );
   }
   QON_HOOK( CountedChip, &chip, reset );
   EXPECT_EQ( lines, ( Lines{ "CountedChip::write( 3, x, True )", "write", "CountedChip::reset()",
                              "reset", "CountedChip::write( a )", "reset" } ) );
}

TEST( HookTap, ListenersMayEndAndBeginMeanwhile ) {
   Lines lines;
   std::unique_ptr< Listener > first, second, third, late;
   first = std::make_unique< Listener >( lines, "1 ", [&] {
      // Within the delivery of one call another is told, in which the next listener ends.
      second = nullptr;
      late = std::make_unique< Listener >( lines, "4 " );
      first = nullptr;
      QON_TELL_HOOK( CountedChip, inner );
   } );
   second = std::make_unique< Listener >( lines, "2 " );
   third = std::make_unique< Listener >( lines, "3 ", [&] {
      third = nullptr;
      throw Velto::RangeError( "no" );
   } );
   EXPECT_THROW( QON_TELL_HOOK( CountedChip, outer ), Velto::RangeError );
   QON_TELL_HOOK( CountedChip, last );
   EXPECT_EQ( lines, ( Lines{ "1 CountedChip::outer()", "3 CountedChip::inner()",
                              "4 CountedChip::last()" } ) );
   late = nullptr;
   EXPECT_FALSE( Qon::HookTap::listening() );
}

TEST( HookTap, WhatTheClocksOfAsynchronousOperationsCall ) {
   Tests::World world;
   auto sm = Qon::QonAsyncBaseSmIs( world.acsd );
   sm->tcamRequestClockIs( Velto::make< Kiv::Clock >() );
   sm->pendingOperationTimeoutClockIs( Velto::make< Kiv::Clock >() );
   sm->tcamRequestClock()->timeIs( Kiv::now() + 1 );
   sm->pendingOperationTimeoutClock()->timeIs( Kiv::now() + 2 );
   Lines lines;
   Listener listener( lines );
   world.scheduler.runFor( 3 );
   EXPECT_EQ( lines, ( Lines{ "QonAsyncBaseSm::processTcamRequestQueue()",
                              "QonAsyncBaseSm::handlePendingOperationTimeout()" } ) );
}

} // namespace
