#include "simulation/Run.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sys/time.h>
#include <unistd.h>

#include "simulation/Memory.h"

namespace Sim {

namespace {

constexpr U32 eventsShown = 50;
constexpr U32 longestRun = 60; // seconds of the processor

/** The run in progress, for whoever has to report a death. */
struct Present {
   U64 seed = 0;
   std::vector< Event > events;
   U32 * steps = nullptr;
};
U32 ownSteps = 0;
Present present{ 0, {}, &ownSteps };
int deathCode = 1;

void
die( int signal ) {
   std::signal( signal, SIG_DFL );
   std::fprintf( stderr, "FAILED: seed %llu, step %u: %s\n%s",
                 static_cast< unsigned long long >( present.seed ), *present.steps,
                 signal == SIGPROF   ? "no end of a run"
                 : signal == SIGABRT ? "fatal assertion, see above"
                                     : strsignal( signal ),
                 lastEvents( present.events, *present.steps ).c_str() );
   std::fflush( nullptr );
   _exit( deathCode );
}

/** `next( i )` gives the events, `count` of them. */
template< class Next >
Outcome
run( const Plan & plan, U32 count, Next next, Checks checks, std::FILE * transcript ) {
   Outcome outcome;
   present.seed = plan.seed;
   *present.steps = 0;
   present.events.resize( count );
   S64 before = liveAllocations();
   {
      World world( plan );
      world.transcript.fileIs( transcript );
      auto events = next( world );
      try {
         world.start();
         while ( outcome.steps < count && !outcome.finding ) {
            Event event = events( outcome.steps );
            present.events[outcome.steps] = event;
            *present.steps = ++outcome.steps;
            world.apply( event );
            outcome.finding = world.checkStep( event, checks );
         }
      } catch ( const std::exception & error ) {
         outcome.finding = { "exception", error.what() };
      }
      outcome.transcript = world.transcript.hash();
   }
   S64 held = liveAllocations() - before;
   if ( !outcome.finding && held > 0 ) {
      outcome.finding = { "world", "memory: " + std::to_string( held ) + " allocations left" };
   }
   return outcome;
}

/** What is allocated once in a process is no leak: only what is left twice is. */
template< class Once >
Outcome
confirmed( Once once ) {
   Outcome outcome = once();
   return outcome.finding.key() == "world: memory" ? once() : outcome;
}

Event
lastEvent() {
   return { 0, U8( featureKinds()[0].operations.size() - 1 ), {} };
}

} // namespace

Outcome
simulate( const Plan & plan, U32 steps, std::FILE * transcript ) {
   auto generated = [&]( const World & world ) {
      return [generator = Generator( world ), steps]( U32 i ) mutable {
         return i < steps ? generator.next() : lastEvent();
      };
   };
   auto once = [&]( Checks checks ) {
      return confirmed( [&] { return run( plan, steps + 1, generated, checks, transcript ); } );
   };
   const Outcome outcome = once( transcript ? Checks::all : Checks::inTurn );
   if ( !outcome.finding || transcript ) {
      return outcome;
   }
   const Outcome exact = once( Checks::all ); // names the step
   return exact.finding ? exact : outcome;
}

History
historyOf( const Plan & plan, U32 steps ) {
   World world( plan );
   Generator generator( world );
   History history{ plan, {} };
   while ( history.events.size() < steps ) {
      history.events.push_back( generator.next() );
   }
   history.events.push_back( lastEvent() );
   return history;
}

Outcome
replay( const History & history, std::FILE * transcript ) {
   auto given = [&]( const World & ) { return [&]( U32 i ) { return history.events[i]; }; };
   return confirmed( [&] {
      return run( history.plan, U32( history.events.size() ), given, Checks::all, transcript );
   } );
}

String
lastEvents( const std::vector< Event > & events, U32 steps ) {
   String text;
   for ( U32 i = steps > eventsShown ? steps - eventsShown : 0; i < steps; ++i ) {
      text += "   " + std::to_string( i + 1 ) + "  " + events[i].text() + "\n";
   }
   return text;
}

void
stepsCountIn( U32 & counter ) {
   present.steps = &counter;
}

void
limitTime() {
   itimerval limit{ {}, { longestRun, 0 } };
   setitimer( ITIMER_PROF, &limit, nullptr );
}

void
reportDeath( int exitCode ) {
   deathCode = exitCode;
   for ( int signal : { SIGABRT, SIGSEGV, SIGFPE, SIGBUS, SIGPROF } ) {
      std::signal( signal, die );
   }
}

} // namespace Sim
