#pragma once
// What the agent does for its console: requests and answers, a JSON object a line each.
//
//    {"do": "get", "path": "acsd/portToLag[Ethernet0]"} -> {"ok": true, "value": "Port-Channel1"}
//    {"do": "show", ...}, {"do": "dump", ...}           -> many lines, see Answers.h
//    anything that cannot be done                       -> {"ok": false, "error": "why"}
//    VTS#...                                            -> the verification's answer, as it is
//
// docs/agent.md lists the requests.
//
// Invariants
// 1. Every request gets an answer of one line, "show" and "dump" one of many; a watch sends more of
//    them. The answer of a verification has no line end.
// 2. A request that is refused has changed nothing.
//
// Ownership: none; the agent outlives the console, and the console the server.

#include <functional>

#include "agent/Agent.h"
#include "agent/base/Json.h"
#include "agent/server/Answers.h"
#include "agent/server/OwnShows.h"
#include "platform/Flintlog/Listen.h"

namespace QonAgent {

/** Prints traces as they come. */
class TraceLines : public Flintlog::Sink {
 public:
   ~TraceLines() override { Flintlog::unlisten( this ); }

 private:
   void trace( const char * facility, U8 level, const String & text ) override;
};

class Console {
 public:
   /** Lets the agent's own time run on by so many seconds. */
   using Advance = std::function< void( Kiv::Seconds by ) >;

   /** Makes a change (Changes.h) and returns its answer. */
   using Change = std::function< String( const String & kind, const String & text ) >;

   explicit Console( Agent & agent );

   /** For an agent on virtual time: after every change it is advanced by 0. */
   void advanceIs( Advance advance ) { advance_ = std::move( advance ); }

   /** The loop that serves the agent, whose rounds are counted. */
   void loopIs( const Kiv::EventLoop * loop ) { own_.loopIs( loop ); }

   /** Who makes changes instead of the console itself: a recorder that notes them. */
   void changeIs( Change change ) { change_ = std::move( change ); }

   /** Everything that can be shown: of the features, and the console's own. */
   const std::vector< ShowCommand > & shows() const { return shows_; }
   /** A Connection's LineHandler. */
   void line( Connection & connection, const String & line );
   /** The answer to a request, watches excepted. Of a long one everything at once: "rows", or
       "state". */
   Json answer( const Json & request );

 private:
   using Action = Json ( Console::* )( const Json & request );
   static const std::map< String, Action > & actions();

   using LongAction = LongAnswer ( Console::* )( const Json & request );
   static const std::map< String, LongAction > & longActions();
   Json shortAnswer( const String & wanted, const Json & request );

   Json help( const Json & request );
   Json get( const Json & request );
   Json set( const Json & request );
   Json insert( const Json & request );
   Json del( const Json & request );
   Json event( const Json & request );
   Json raise( const Json & request );
   Json logLevel( const Json & request );
   Json trace( const Json & request );
   Json complete( const Json & request );
   Json run( const Json & request );

   LongAnswer show( const Json & request );
   String unknownOf( const std::vector< String > & words ) const;
   LongAnswer dump( const Json & request );

   void watch( Connection & connection, const Json & request );
   void verification( Connection & connection, const String & command );
   String change( const String & kind, const String & text );

   Agent & agent_;
   OwnShows own_;
   Advance advance_;
   Change change_;
   std::vector< ShowCommand > shows_;
   TraceLines traces_;
};

} // namespace QonAgent
