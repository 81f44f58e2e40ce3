#pragma once
// What the agent does for its console: requests and answers, a JSON object a line each.
//
//    {"do": "get", "path": "acsd/portToLag[Ethernet0]"} -> {"ok": true, "value": "Port-Channel1"}
//    anything that cannot be done                       -> {"ok": false, "error": "why"}
//    VTS#...                                            -> the verification's answer, as it is
//
// docs/agent.md lists the requests.
//
// Invariants
// 1. Every request gets an answer of one line; a watch sends more of them. The answer of a
//    verification has no line end.
// 2. A request that is refused has changed nothing.
//
// Ownership: none; the agent outlives the console, and the console the server.

#include <functional>

#include "agent/Agent.h"
#include "agent/base/Json.h"
#include "agent/server/Connection.h"

namespace QonAgent {

class Console {
 public:
   /** Lets the agent's own time run on by so many seconds. */
   using Advance = std::function< void( Kiv::Seconds by ) >;

   /** Makes a change (Changes.h) and returns its answer. */
   using Change = std::function< String( const String & kind, const String & text ) >;

   explicit Console( Agent & agent );

   /** For an agent on virtual time: after every change it is advanced by 0. */
   void advanceIs( Advance advance ) { advance_ = std::move( advance ); }

   /** Who makes changes instead of the console itself: a recorder that notes them. */
   void changeIs( Change change ) { change_ = std::move( change ); }

   /** A Connection's LineHandler. */
   void line( Connection & connection, const String & line );
   /** The answer to a request, watches excepted. */
   Json answer( const Json & request );

 private:
   using Action = Json ( Console::* )( const Json & request );
   static const std::map< String, Action > & actions();

   Json help( const Json & request );
   Json show( const Json & request );
   Json get( const Json & request );
   Json set( const Json & request );
   Json insert( const Json & request );
   Json del( const Json & request );
   Json dump( const Json & request );
   Json raise( const Json & request );
   Json run( const Json & request );

   void logRows( const RowSink & sink ) const;
   void messageRows( const RowSink & sink ) const;
   void entityRows( const String & path, const RowSink & sink ) const;
   void mountRows( const RowSink & sink ) const;
   std::vector< ShowCommand > ownShows();

   void watch( Connection & connection, const Json & request );
   void verification( Connection & connection, const String & command );
   String change( const String & kind, const String & text );

   Agent & agent_;
   Advance advance_;
   Change change_;
   std::vector< ShowCommand > shows_;
};

/** A row as an object: numbers as numbers, lists as arrays. */
Json jsonOf( const Row & row );

} // namespace QonAgent
