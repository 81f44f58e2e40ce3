#pragma once
// A Unix socket on an event loop, and its clients.
//
//    SocketServer -> accept -> Connection ... -> LineHandler
//
// Invariants
// 1. The socket file of an agent that died is taken over; that of a living one is "busy".
// 2. A client that cannot be accepted for want of descriptors is turned away, and the server goes
//    on.
// 3. The file goes with the server.

#include <map>

#include "agent/server/Connection.h"

namespace QonAgent {

/** Where agent and console meet unless they are told otherwise: $XDG_RUNTIME_DIR/qon-agent.sock,
    or the same in /tmp. */
String defaultSocket();

/** A socket connected to `path`; -1 with errno set if nobody listens there. Raises
    Velto::RangeError for a path that no socket can have. */
int connectTo( const String & path );

class SocketServer : private Kiv::FdWatch {
 public:
   /** Raises Velto::RangeError "PATH: why" if the socket cannot be had. */
   SocketServer( Kiv::EventLoop & loop, const String & path, Connection::LineHandler handler );
   ~SocketServer() override;

   U32 connections() const { return U32( connections_.size() ); }

 private:
   static int listenAt( const String & path );
   void ready( bool readable, bool writable ) override;
   void turnAway();

   Kiv::EventLoop & loop_;
   String path_;
   Connection::LineHandler handler_;
   int spare_; ///< a descriptor given up to accept, and turn away, one client too many
   std::map< Connection *, std::unique_ptr< Connection > > connections_;
};

} // namespace QonAgent
