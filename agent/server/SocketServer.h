#pragma once
// A Unix socket on an event loop, and its clients.
//
//    SocketServer -> accept -> Connection ... -> LineHandler
//
// Invariants
// 1. The socket file of an agent that died is taken over; that of a living one is "busy".
// 2. A client that cannot be accepted for want of descriptors is turned away, and the server goes
//    on.
// 3. The file goes with the server, unless another one stands there by now.
// 4. Of several agents that start at once, one serves; the others find it busy.
// 5. Nobody can connect before the file has its mode and group.

#include <map>

#include "agent/server/Connection.h"

namespace QonAgent {

/** Where agent and console meet unless they are told otherwise. */
struct SocketChoice {
   String path;
   bool ofEnvironment = false; ///< by QON_SOCKET
};
/** $QON_SOCKET; else qon-agent.sock in $XDG_RUNTIME_DIR, in /run for the superuser, or hidden in the
    user's home: never where others can put one. Raises Velto::RangeError if there is none of
    these. */
SocketChoice chosenSocket();
/** What stands behind an error about a socket that the environment chose. */
inline constexpr char socketFromEnvironment[] = " (chosen by QON_SOCKET)";

/** Who may use a socket. */
struct SocketAccess {
   U32 mode = 0600;
   String group; ///< a name; empty: as it comes
};

/** A socket connected to `path`; -1 with errno set if nobody listens there. Raises
    Velto::RangeError for a path that no socket can have. */
int connectTo( const String & path );

/** Which file stands under a name. */
struct FileIdentity {
   U64 device = 0;
   U64 number = 0;
   bool operator==( const FileIdentity & ) const = default;
};

class SocketServer : private Kiv::FdWatch {
 public:
   /** Raises Velto::RangeError "PATH: why" if the socket cannot be had. */
   SocketServer( Kiv::EventLoop & loop, const String & path, Connection::LineHandler handler,
                 const SocketAccess & access = {} );
   ~SocketServer() override;

   U32 connections() const { return U32( connections_.size() ); }

 private:
   static int listenAt( const String & path, const SocketAccess & access );
   void ready( bool readable, bool writable ) override;
   void turnAway();

   Kiv::EventLoop & loop_;
   String path_;
   const FileIdentity identity_;
   Connection::LineHandler handler_;
   int spare_; ///< a descriptor given up to accept, and turn away, one client too many
   std::map< Connection *, std::unique_ptr< Connection > > connections_;
};

} // namespace QonAgent
