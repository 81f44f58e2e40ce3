#pragma once
// The console's end of the agent's socket.

#include "agent/base/Json.h"
#include "platform/Velto/Assert.h"
#include "platform/Velto/Types.h"

namespace QonAgent {

using Velto::String;

/** The agent cannot be reached, or does not answer as it should. */
class NoAgent : public Velto::RangeError {
 public:
   using Velto::RangeError::RangeError;
};

class Client {
 public:
   /** Connects; tries again for `patience` seconds. Raises NoAgent. */
   Client( const String & path, double patience );
   ~Client();
   Client( const Client & ) = delete;
   Client & operator=( const Client & ) = delete;

   /** The answer to a request. What the agent refuses raises Velto::RangeError, a connection that
       breaks NoAgent. */
   Json ask( const Json & request );
   /** The answer to a verification command: everything up to its closing. */
   Json verify( const String & name );
   /** One more line that the agent sends on its own; false once the agent is gone. */
   bool next( Json & line );

 private:
   void send( const String & bytes );
   bool receive();

   String path_;
   int fd_ = -1;
   String in_;
};

} // namespace QonAgent
