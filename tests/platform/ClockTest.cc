// Clocks, tasks, and the two schedulers that run them.

#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <limits>
#include <vector>

#include "platform/Kiv/Alarm.h"
#include "platform/Kiv/EventLoop.h"

namespace {

using Velto::String;

class Alarm : public Velto::Node {
 public:
   explicit Alarm( std::vector< String > * heard, const String & name )
       : heard_( heard ), name_( name ) {
      hasNotificationActiveIs( true );
      clock.attach( this, Velto::make< Kiv::Clock >() );
   }
   void handleFired() {
      idleWhenHeard = clock->idle();
      heard_->push_back( name_ );
      if ( act ) {
         act();
      }
   }
   std::function< void() > act;
   bool idleWhenHeard = false;

 private:
   std::vector< String > * heard_;
   String name_;

 public:
   Kiv::ClockReactor< Alarm, &Alarm::handleFired > clock;
};

class Clocks : public ::testing::Test {
 protected:
   Velto::Ptr< Alarm > alarm( const String & name ) { return Velto::make< Alarm >( &heard, name ); }
   using Heard = std::vector< String >;
   Kiv::VirtualScheduler scheduler{ 100 };
   Heard heard;
};

TEST_F( Clocks, FireByTimeThenByOrderOfArming ) {
   auto a = alarm( "a" ), b = alarm( "b" ), c = alarm( "c" ), d = alarm( "d" );
   a->clock->timeIs( 105 );
   b->clock->timeIs( 103 );
   c->clock->timeIs( 105 );
   d->clock->timeIs( 101 );
   d->clock->timeIs( 105 ); // armed anew: behind c
   scheduler.runUntil( 102 );
   EXPECT_TRUE( heard.empty() );
   scheduler.runUntil( 200 );
   EXPECT_EQ( heard, ( Heard{ "b", "a", "c", "d" } ) );
   EXPECT_TRUE( a->idleWhenHeard && a->clock->idle() );
   EXPECT_EQ( 200, Kiv::now() );
}

TEST_F( Clocks, ThousandsKeepTheirOrderThroughChange ) {
   std::vector< Velto::Ptr< Alarm > > alarms;
   U32 random = 1;
   for ( int i = 0; i < 3000; ++i ) {
      alarms.push_back( alarm( std::to_string( i ) ) );
      random = random * 1664525 + 1013904223;
      alarms.back()->clock->timeIs( 100 + random % 50 );
      if ( i % 3 == 1 ) {
         alarms[random % alarms.size()]->clock->timeIs( Kiv::never );
      } else if ( i % 3 == 2 ) {
         alarms[random % alarms.size()]->clock->timeMin( 100 + ( random >> 8 ) % 50 );
      }
   }
   size_t armed = 0, fired = 0;
   for ( auto & a : alarms ) {
      armed += !a->clock->idle();
      a->act = [&, time = a->clock->time()] {
         ++fired;
         EXPECT_EQ( time, scheduler.time() ); // not too late either, behind a place left open
      };
   }
   scheduler.runUntil( 200 );
   EXPECT_EQ( armed, fired );
}

TEST_F( Clocks, WhatIsArmedForNowFiresInALaterTurn ) {
   auto a = alarm( "a" ), b = alarm( "b" );
   int times = 0;
   a->act = [&] {
      if ( ++times < 3 ) {
         a->clock->timeIs( 0 );
      }
   };
   a->clock->timeIs( 0 );
   b->clock->timeIs( 0 );
   scheduler.turn();
   EXPECT_EQ( heard, ( Heard{ "a", "b" } ) );
   scheduler.settle();
   EXPECT_EQ( heard, ( Heard{ "a", "b", "a", "a" } ) );
}

TEST_F( Clocks, APendingFiringIsCancelledWithItsClockOrWatcher ) {
   auto a = alarm( "a" ), cleared = alarm( "cleared" ), moved = alarm( "moved" );
   auto detached = alarm( "detached" ), dead = alarm( "dead" ), e = alarm( "e" );
   for ( auto & x : { a, cleared, moved, detached, dead, e } ) {
      x->clock->timeIs( 100 );
   }
   a->act = [&] {
      cleared->clock->timeIs( Kiv::never );
      moved->clock->timeIs( 150 );
      detached->clock.attach( detached.ptr(), nullptr );
      dead = nullptr;
   };
   scheduler.turn();
   EXPECT_EQ( heard, ( Heard{ "a", "e" } ) );
   scheduler.runUntil( 200 );
   EXPECT_EQ( heard, ( Heard{ "a", "e", "moved" } ) );
}

/** What was due and did not come to fire is armed as any other: it may be put off, or called off. */
TEST_F( Clocks, WhatWasPutBackMayBeArmedAnew ) {
   auto a = alarm( "a" ), b = alarm( "b" ), c = alarm( "c" ), d = alarm( "d" );
   for ( auto & x : { a, b, c, d } ) {
      x->clock->timeIs( 100 );
   }
   a->act = [] { throw Velto::RangeError( "a" ); };
   EXPECT_THROW( scheduler.turn(), Velto::RangeError );
   b->clock->timeIs( 101 );
   d->clock->timeIs( 100 );
   c->clock->timeIs( Kiv::never );
   auto e = alarm( "e" );
   e->clock->timeIs( 100 );
   e->act = [&] { b->clock->timeIs( 102 ); };
   scheduler.turn();
   EXPECT_EQ( heard, ( Heard{ "a", "d", "e" } ) );
   scheduler.runUntil( 101.5 );
   EXPECT_EQ( heard.size(), 3u );
   scheduler.runUntil( 102 );
   EXPECT_EQ( heard.back(), "b" );
   EXPECT_EQ( scheduler.timerWheel()->armed(), 0u );
}

TEST_F( Clocks, OneThatFiredTakesNoOthersPlaceWhenItIsArmedAnew ) {
   auto a = alarm( "a" ), b = alarm( "b" ), c = alarm( "c" ), d = alarm( "d" );
   a->clock->timeIs( 101 );
   b->clock->timeIs( 101 );
   c->clock->timeIs( 110 );
   d->clock->timeIs( 110 );
   c->act = [&] { b->clock->timeIs( 120 ); }; // b was second of its turn, as d is now
   scheduler.runUntil( 200 );
   EXPECT_EQ( heard, ( Heard{ "a", "b", "c", "d", "b" } ) );
}

TEST_F( Clocks, OneThatIsCalledOffTwiceTakesNoOthersTurn ) {
   auto a = alarm( "a" ), b = alarm( "b" ), c = alarm( "c" );
   a->clock->timeIs( 101 );
   b->clock->timeIs( 101 );
   a->act = [&] { b->clock->timeIs( Kiv::never ); }; // second of its turn, as c is next time
   scheduler.runUntil( 102 );
   a->clock->timeIs( 110 );
   c->clock->timeIs( 110 );
   b->clock->timeIs( 120 );
   scheduler.runUntil( 200 );
   EXPECT_EQ( heard, ( Heard{ "a", "a", "c" } ) );
}

/** Clocks that outlive what they are armed with, one of them while it is due, are as if idle. */
TEST_F( Clocks, ThoseOfAWheelThatIsGoneDoNothing ) {
   Velto::Ptr< Alarm > due, later;
   {
      Kiv::VirtualScheduler other( 100 );
      auto first = alarm( "first" );
      due = alarm( "due" );
      later = alarm( "later" );
      first->clock->timeIs( 100 );
      due->clock->timeIs( 100 );
      later->clock->timeIs( 200 );
      first->act = [] { throw Velto::RangeError( "first" ); };
      EXPECT_THROW( other.turn(), Velto::RangeError );
   }
   due->clock->timeIs( 300 );
   later->clock->timeIs( Kiv::never );
   EXPECT_EQ( heard, Heard{ "first" } );
}

TEST_F( Clocks, AHandlerThatRaisesCostsNoOtherFiring ) {
   struct Turns : Kiv::TurnWatch {
      void turnBegins() override { ++begun; }
      void turnEnds( bool worked ) override { ended += worked; }
      int begun = 0, ended = 0;
   } turns;
   scheduler.turnWatchIs( &turns );
   auto a = alarm( "a" ), b = alarm( "b" ), c = alarm( "c" ), cleared = alarm( "cleared" );
   auto late = alarm( "late" );
   for ( auto & x : { a, b, cleared, c } ) {
      x->clock->timeIs( 100 );
   }
   a->act = [&] {
      cleared->clock->timeIs( Kiv::never );
      late->clock->timeIs( 100 ); // behind those that were due before it
      throw Velto::RangeError( "a" );
   };
   EXPECT_THROW( scheduler.turn(), Velto::RangeError );
   EXPECT_EQ( heard, ( Heard{ "a" } ) );
   EXPECT_TRUE( a->clock->idle() );
   EXPECT_EQ( 100, c->clock->time() );
   EXPECT_EQ( 3u, scheduler.timerWheel()->armed() );
   b->clock->timeIs( 110 );
   scheduler.turn();
   EXPECT_EQ( heard, ( Heard{ "a", "c", "late" } ) );
   scheduler.runUntil( 110 );
   EXPECT_EQ( heard.back(), "b" );
   EXPECT_EQ( turns.begun, turns.ended );
   scheduler.turnWatchIs( nullptr );
}

class Job : public Kiv::Task {
 public:
   Job( Kiv::TaskScheduler * s, U32 priority, const String & name, std::vector< String > * log )
       : Kiv::Task( s, priority, name ), log_( log ) {}
   bool run() override {
      log_->push_back( name() );
      while ( left ) {
         --left;
         if ( shouldYield() ) {
            break;
         }
      }
      if ( act ) {
         act();
      }
      return left;
   }
   U32 left = 0;
   std::function< void() > act;

 private:
   std::vector< String > * log_;
};

TEST_F( Clocks, TasksRunInSlicesByPriority ) {
   Job low( &scheduler, 9, "low", &heard ), high( &scheduler, 1, "high", &heard );
   Job same( &scheduler, 9, "same", &heard );
   scheduler.budgetIs( { 1.0, 2, 16 } );
   low.left = 4;
   same.left = 1;
   high.left = 3;
   low.wake();
   same.wake();
   high.wake();
   scheduler.settle();
   EXPECT_EQ( heard, ( Heard{ "high", "high", "low", "same", "low" } ) );
   EXPECT_FALSE( scheduler.turn() );
}

TEST_F( Clocks, ATaskMayOutliveItsScheduler ) {
   auto other = std::make_unique< Kiv::TaskScheduler >();
   std::vector< std::unique_ptr< Job > > jobs;
   for ( U32 n = 0; n < 5; ++n ) {
      jobs.push_back( std::make_unique< Job >( other.get(), 1, "job", &heard ) );
      jobs[n]->left = 1;
   }
   jobs[3]->wake();
   jobs.erase( jobs.begin() + 1 ); // one that sleeps, in the middle
   other->turn();
   jobs[0]->wake();
   other = nullptr;
   for ( auto & job : jobs ) {
      job->wake();
      EXPECT_TRUE( job->shouldYield() );
   }
   jobs.clear();
   EXPECT_EQ( heard, Heard{ "job" } );
}

TEST_F( Clocks, ASliceEndsWithItsTime ) {
   Job job( &scheduler, 1, "job", &heard );
   scheduler.budgetIs( { 0.010, ~U32( 0 ), 10 } );
   scheduler.readCostIs( 0.004 ); // the third reading of a slice is past its end
   job.left = 100;
   job.wake();
   scheduler.turn();
   EXPECT_EQ( 70u, job.left );
   auto gone = std::make_unique< Job >( &scheduler, 0, "gone", &heard );
   gone->wake();
   gone = nullptr;
   scheduler.settle();
   EXPECT_EQ( 0u, job.left );
   EXPECT_EQ( 0, std::count( heard.begin(), heard.end(), "gone" ) );
}

TEST_F( Clocks, ATaskThatRaisesGoesOn ) {
   Job job( &scheduler, 1, "job", &heard ), other( &scheduler, 1, "other", &heard );
   scheduler.budgetIs( { 1.0, 1, 16 } );
   job.left = other.left = 2;
   job.act = [&] {
      if ( job.left == 1 ) {
         throw Velto::RangeError( "job" );
      }
   };
   job.wake();
   other.wake();
   EXPECT_THROW( scheduler.turn(), Velto::RangeError );
   scheduler.settle();
   EXPECT_EQ( heard, ( Heard{ "job", "other", "job", "other" } ) );
}

TEST_F( Clocks, AClockInterruptsWorkBetweenSlices ) {
   Job job( &scheduler, 1, "job", &heard );
   auto a = alarm( "a" );
   scheduler.budgetIs( { 1.0, 1, 16 } );
   job.left = 3;
   job.act = [&] {
      if ( job.left == 2 ) {
         a->clock->timeIs( Kiv::now() );
      }
   };
   job.wake();
   scheduler.settle();
   EXPECT_EQ( heard, ( Heard{ "job", "a", "job", "job" } ) );
}

class Pipe : public Kiv::FdWatch {
 public:
   Pipe( Kiv::EventLoop * loop, int fd ) : FdWatch( loop, fd ), loop_( loop ) {
      wanted( true, false );
   }
   void ready( bool readable, bool ) override {
      char c = 0;
      EXPECT_TRUE( readable && read( fd(), &c, 1 ) == 1 );
      got += c;
      if ( c == 'q' ) {
         loop_->stop();
      }
   }
   String got;

 private:
   Kiv::EventLoop * loop_;
};

TEST( EventLoop, ServesDescriptorsAndClocksInRealTime ) {
   Kiv::EventLoop loop;
   int ends[2];
   ASSERT_EQ( 0, pipe( ends ) );
   {
      Pipe pipe( &loop, ends[0] );
      std::vector< String > heard;
      auto a = Velto::make< Alarm >( &heard, "a" );
      double start = Kiv::now();
      a->clock->timeIs( start + 0.02 );
      a->act = [&] { ASSERT_EQ( 1, write( ends[1], "q", 1 ) ); };
      ASSERT_EQ( 1, write( ends[1], "x", 1 ) );
      loop.run();
      EXPECT_EQ( "xq", pipe.got );
      EXPECT_GE( Kiv::now(), start + 0.02 );
      EXPECT_LT( Kiv::now(), start + 0.9 ); // not a second late
   }
   close( ends[0] );
   close( ends[1] );
}

TEST( EventLoop, WaitsForWholeSecondsToo ) {
   Kiv::EventLoop loop;
   const double start = Kiv::now();
   loop.runOnce( 1.02 );
   EXPECT_GE( Kiv::now(), start + 1 );
}

TEST( EventLoop, WorkTimesKnowWhenTheLongestPieceEnded ) {
   Kiv::WorkTimes some, all;
   some.add( 1, 2 );
   some.add( 10, 13 );
   some.add( 20, 21 );
   some.add( 30, 33 ); // no longer than the first of its length
   EXPECT_EQ( 4u, some.times );
   EXPECT_EQ( 8, some.busy );
   EXPECT_EQ( 3, some.longest );
   EXPECT_EQ( 13, some.longestAt );
   all.add( 50, 52 );
   all.add( some );
   EXPECT_EQ( 5u, all.times );
   EXPECT_EQ( 10, all.busy );
   EXPECT_EQ( 3, all.longest );
   EXPECT_EQ( 13, all.longestAt );
   some.add( 40, 41 );
   all.add( Kiv::WorkTimes() );
   EXPECT_EQ( 13, all.longestAt );
}

TEST( EventLoop, AHangUpIsToldAsSomethingToRead ) {
   struct End : Kiv::FdWatch {
      using FdWatch::FdWatch;
      void ready( bool readable, bool ) override { told += readable; }
      int told = 0;
   };
   Kiv::EventLoop loop;
   int ends[2];
   ASSERT_EQ( 0, pipe( ends ) );
   {
      End end( &loop, ends[0] );
      end.wanted( false, false ); // it cannot be declined
      close( ends[1] );
      loop.runOnce( 1 );
      EXPECT_EQ( 1, end.told );
   }
   close( ends[0] );
}

TEST( Time, TheSourceIsReplaceableAndReadsAreCounted ) {
   Kiv::VirtualScheduler outer( 5 );
   {
      Kiv::VirtualScheduler inner( 50 );
      inner.readCostIs( 2 );
      U64 before = Kiv::timeReads();
      EXPECT_EQ( 52, Kiv::now() );
      EXPECT_EQ( 54, Kiv::now() );
      EXPECT_EQ( before + 2, Kiv::timeReads() );
   }
   EXPECT_EQ( 5, Kiv::now() );
}

TEST( Alarms, RingOnceAtTheEarliestTimeAndMayEndThemselves ) {
   Kiv::VirtualScheduler scheduler;
   U32 rings = 0;
   Kiv::Alarm again( [&] { ++rings < 3 ? again.in( 1 ) : void(); } );
   again.in( 5 );
   again.in( 2 );
   again.in( 9 );
   scheduler.runFor( 2.5 );
   EXPECT_EQ( rings, 1u );
   scheduler.runFor( 100 );
   EXPECT_EQ( rings, 3u );
   again.in( 1 );
   again.off();
   EXPECT_EQ( again.time(), Kiv::never );

   auto what = std::make_unique< String >( "still there" );
   std::unique_ptr< Kiv::Alarm > owner;
   owner = std::make_unique< Kiv::Alarm >( [&heard = what, &owner, kept = String( *what )] {
      owner = nullptr;
      *heard = kept; // what the function holds outlives the alarm
   } );
   owner->in( 1 );
   what->clear();
   Kiv::Alarm never( [&] { rings = 100; } );
   never.in( 2 );
   { Kiv::Alarm moved( std::move( never ) ); }
   scheduler.runFor( 10 );
   EXPECT_FALSE( owner );
   EXPECT_EQ( *what, "still there" );
   EXPECT_EQ( rings, 3u );
}

} // namespace
