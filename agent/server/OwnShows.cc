#include "agent/server/OwnShows.h"

#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <fstream>

#include "agent/base/Version.h"
#include "platform/Kiv/Log.h"
#include "platform/Kiv/TimeOfDay.h"

namespace QonAgent {

namespace {

/** "2026-11-22 13:05:07.123" in the time zone of the process; nothing on a time of one's own. */
String
clockText( Kiv::Seconds at ) {
   const auto day = Kiv::timeOfDay( at );
   if ( !day ) {
      return "";
   }
   const auto milliseconds = U64( *day * 1000 );
   const auto seconds = std::time_t( milliseconds / 1000 );
   std::tm local = {};
   localtime_r( &seconds, &local );
   char text[40];
   const auto size = std::strftime( text, sizeof( text ), "%Y-%m-%d %H:%M:%S", &local );
   std::snprintf( text + size, sizeof( text ) - size, ".%03u", unsigned( milliseconds % 1000 ) );
   return text;
}

/** A line of /proc/self/status in bytes. */
U64
statusBytes( const String & name ) {
   std::ifstream status( "/proc/self/status" );
   for ( String word; status >> word; ) {
      if ( word == name + ":" ) {
         U64 kilobytes = 0;
         status >> kilobytes;
         return kilobytes * 1024;
      }
   }
   return 0;
}

} // namespace

/** Messages may come, and the oldest go, between two rows: they are found by their number. */
Rows
OwnShows::logRows() const {
   const RecentLog & log = agent_.log();
   for ( U64 number = log.gone(); number < log.gone() + log.records().size();
         number = std::max( number + 1, log.gone() ) ) {
      auto & record = log.records()[number - log.gone()];
      const Row made = { { "time", record.time - agent_.began() },
                         { "clock", clockText( record.time ) },
                         { "severity", record.severity },
                         { "message", record.name },
                         { "text", record.text } };
      co_yield made;
   }
}

Rows
OwnShows::messageRows() const {
   for ( auto handle : Kiv::logHandles() ) {
      auto & descriptor = handle->descriptor();
      const Row made = { { "message", descriptor.name },
                         { "severity", U32( descriptor.severity ) },
                         { "module", handle->module() },
                         { "format", descriptor.format } };
      co_yield made;
   }
}

Rows
OwnShows::entityRows( String path ) const {
   const std::size_t prefix = path.empty() ? 0 : path.size() + 1;
   Orvane::Dump dump( agent_.entities(), path );
   for ( Kiv::GenericIf::Line line; dump.next( line ); ) {
      const String below = line.path.size() > prefix ? line.path.substr( prefix ) : line.path;
      const Row made = { { "path", below },
                         { "value", line.isEntity ? Value() : Value( line.value ) } };
      co_yield made;
   }
}

Rows
OwnShows::mountRows() const {
   for ( auto & mount : std::vector( agent_.entities().mounts() ) ) {
      auto type = mount.entity->typeData();
      const Row made = { { "path", mount.path }, { "type", type ? type->name : "" } };
      co_yield made;
   }
}

Rows
OwnShows::versionRows() const {
   const Row made = { { "version", agentVersion() }, { "chip", agent_.chip().name() } };
   co_yield made;
}

Rows
OwnShows::uptimeRows() const {
   const Row made = { { "uptime", agent_.uptime() }, { "since", clockText( agent_.began() ) } };
   co_yield made;
}

Rows
OwnShows::memoryRows() const {
   const auto heap = mallinfo2();
   const std::pair< const char *, U64 > all[] = { { "resident", statusBytes( "VmRSS" ) },
                                                  { "most resident", statusBytes( "VmHWM" ) },
                                                  { "allocated", heap.uordblks + heap.hblkhd },
                                                  { "free for allocation", heap.fordblks } };
   for ( auto & [what, bytes] : all ) {
      const Row made = { { "what", what }, { "bytes", bytes } };
      co_yield made;
   }
}

Rows
OwnShows::counterRows() const {
   if ( loop_ ) {
      const Kiv::RoundTimes times = loop_->roundTimes();
      const std::pair< const char *, Value > all[] = {
            { "turns", times.rounds },
            { "seconds in turns", times.busy },
            { "longest turn in seconds", times.longest },
            { "longest turn at uptime",
              times.rounds ? times.longestAt - agent_.began() : Kiv::Seconds() } };
      for ( auto & [counter, value] : all ) {
         const Row made = { { "feature", "agent" }, { "counter", counter }, { "value", value } };
         co_yield made;
      }
   }
   for ( std::size_t i = 0; i < agent_.features().size(); ++i ) {
      for ( auto & counter : agent_.features()[i]->counters() ) {
         const Row made = { { "feature", agent_.featureNames()[i] },
                            { "counter", counter.name },
                            { "value", counter.value } };
         co_yield made;
      }
   }
}

Rows
OwnShows::hookRows() const {
   if ( !hookCounts_ ) {
      hookCounts_.emplace();
   }
   const auto counts = hookCounts_->byName();
   for ( auto & [hook, calls] : counts ) {
      const Row made = { { "hook", hook }, { "calls", calls } };
      co_yield made;
   }
}

std::vector< ShowCommand >
OwnShows::commands() const {
   const Argument path = { Argument::Kind::text, "PATH", "path", true, nullptr };
   return {
         { "log",
           "the last messages",
           {},
           { { "time", "Seconds", true },
             { "clock", "Time" },
             { "message", "Message" },
             { "text", "Text" } },
           [this]( auto & ) { return logRows(); } },
         { "messages",
           "what 'raise' can raise",
           {},
           { { "message", "Message" }, { "format", "Format" } },
           [this]( auto & ) { return messageRows(); } },
         { "entity",
           "all that is below a path",
           { path },
           { { "path", "Path" }, { "value", "Value" } },
           [this]( auto & arguments ) { return entityRows( arguments.text( 0 ) ); } },
         { "mounts",
           "where paths begin",
           {},
           { { "path", "Path" }, { "type", "Type" } },
           [this]( auto & ) { return mountRows(); } },
         { "version",
           "what runs here",
           {},
           { { "version", "Version" }, { "chip", "Chip" } },
           [this]( auto & ) { return versionRows(); } },
         { "uptime",
           "how long the agent has been running",
           {},
           { { "uptime", "Seconds", true }, { "since", "Since" } },
           [this]( auto & ) { return uptimeRows(); } },
         { "memory",
           "what the agent takes",
           {},
           { { "what", "What" }, { "bytes", "Bytes", true } },
           [this]( auto & ) { return memoryRows(); } },
         { "counters",
           "the work of the agent and of each feature: how much, how long, what waits, what failed",
           {},
           { { "feature", "Feature" }, { "counter", "What" }, { "value", "Number", true } },
           [this]( auto & ) { return counterRows(); } },
         { "hooks",
           "how often each hook of the chip was called since this was first asked",
           {},
           { { "hook", "Hook" }, { "calls", "Calls", true } },
           [this]( auto & ) { return hookRows(); } },
   };
}

} // namespace QonAgent
