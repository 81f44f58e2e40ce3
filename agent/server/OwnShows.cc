#include "agent/server/OwnShows.h"

#include <malloc.h>
#include <unistd.h>

#include <fstream>

#include "agent/base/ClockText.h"
#include "agent/base/Version.h"
#include "platform/Kiv/Log.h"

namespace QonAgent {

namespace {

constexpr char ofNone[] = "agent"; // whose work is of no feature

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

/** Work by feature, and under "agent" what is of none. */
std::map< String, OwnShows::Work >
OwnShows::workByFeature() const {
   std::vector< std::pair< String, String > > owners; // by how a name begins
   for ( std::size_t i = 0; i < agent_.features().size(); ++i ) {
      for ( auto & begin : agent_.features()[i]->ownNames() ) {
         owners.emplace_back( begin, agent_.featureNames()[i] );
      }
   }
   std::map< String, Work > all;
   auto workOf = [&]( const String & name ) -> Work & {
      for ( auto & [begin, owner] : owners ) {
         if ( name.starts_with( begin ) ) {
            return all[owner];
         }
      }
      return all[ofNone];
   };
   for ( auto && [type, changes] : changeCounts_.byType() ) {
      workOf( type ? type->name : "" ).changes += changes;
   }
   for ( auto & [hook, calls] : hookCounts_.byName() ) {
      workOf( hook ).hookCalls += calls;
   }
   if ( loop_ ) {
      for ( auto & [task, times] : loop_->slices() ) {
         workOf( task ).turns.add( times );
      }
      all[ofNone].turns = loop_->rounds(); // all slices are part of them
   }
   return all;
}

Rows
OwnShows::counterRows() const {
   auto work = workByFeature();
   std::vector< String > names = agent_.featureNames();
   names.insert( names.begin(), ofNone );
   for ( std::size_t i = 0; i < names.size(); ++i ) {
      const Work & of = work[names[i]];
      const std::pair< const char *, Value > all[] = {
            { "changes heard", of.changes },
            { "calls of hooks", of.hookCalls },
            { i ? "slices" : "turns", of.turns.times },
            { i ? "seconds in slices" : "seconds in turns", of.turns.busy },
            { i ? "longest slice in seconds" : "longest turn in seconds", of.turns.longest },
            { i ? "longest slice ended at" : "longest turn ended at",
              of.turns.times ? clockText( of.turns.longestAt ) : "" } };
      for ( auto & [counter, value] : all ) {
         const Row made = { { "feature", names[i] }, { "counter", counter }, { "value", value } };
         co_yield made;
      }
      const auto counters = i ? agent_.features()[i - 1]->counters() : ownCounters();
      for ( auto & counter : counters ) {
         const Row made = {
               { "feature", names[i] }, { "counter", counter.name }, { "value", counter.value } };
         co_yield made;
      }
   }
}

std::vector< Counter >
OwnShows::ownCounters() const {
   return { { "messages", agent_.log().gone() + agent_.log().records().size() } };
}

Rows
OwnShows::hookRows() const {
   for ( auto & [hook, calls] : hookCounts_.byName() ) {
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
           { { "feature", "Feature" }, { "counter", "What" }, { "value", "Value", true } },
           [this]( auto & ) { return counterRows(); } },
         { "hooks",
           "how often each hook of the chip was called",
           {},
           { { "hook", "Hook" }, { "calls", "Calls", true } },
           [this]( auto & ) { return hookRows(); } },
   };
}

} // namespace QonAgent
