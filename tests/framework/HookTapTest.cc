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

struct Chip {
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
   Chip chip{ &lines };
   const String name = "x";
   U32 texts = 0;
   auto text = [&] { return String( 1, char( 'a' + texts++ ) ); };
   QON_TELL_HOOK( Chip, write, text() );
   EXPECT_EQ( texts, 0u ) << "made for nobody";
   {
      Listener listener( lines );
      EXPECT_TRUE( QON_HOOK( Chip, &chip, write, chip.count(), name, true ) );
      QON_HOOK( Chip, &chip, reset );
      QON_TELL_HOOK( Chip, write, text() );
   }
   QON_HOOK( Chip, &chip, reset );
   EXPECT_EQ( lines, ( Lines{ "Chip::write( 3, x, True )", "write", "Chip::reset()", "reset",
                              "Chip::write( a )", "reset" } ) );
}

TEST( HookTap, ListenersMayEndAndBeginMeanwhile ) {
   Lines lines;
   std::unique_ptr< Listener > first, second, third, late;
   first = std::make_unique< Listener >( lines, "1 ", [&] {
      // Within the delivery of one call another is told, in which the next listener ends.
      second = nullptr;
      late = std::make_unique< Listener >( lines, "4 " );
      first = nullptr;
      QON_TELL_HOOK( Chip, inner );
   } );
   second = std::make_unique< Listener >( lines, "2 " );
   third = std::make_unique< Listener >( lines, "3 ", [&] {
      third = nullptr;
      throw Velto::RangeError( "no" );
   } );
   EXPECT_THROW( QON_TELL_HOOK( Chip, outer ), Velto::RangeError );
   QON_TELL_HOOK( Chip, last );
   EXPECT_EQ( lines, ( Lines{ "1 Chip::outer()", "3 Chip::inner()", "4 Chip::last()" } ) );
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
