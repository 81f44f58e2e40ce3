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

/** It said nothing for as long as it was given. */
class Silence : public NoAgent {
 public:
   using NoAgent::NoAgent;
};

class Client {
 public:
   /** Connects; tries again for `patience` seconds. Raises NoAgent. Later, an agent that says nothing
       for `timeout` seconds counts as one that does not answer; 0 waits for ever. */
   Client( const String & path, double patience, double timeout = 0 );
   ~Client();
   Client( const Client & ) = delete;
   Client & operator=( const Client & ) = delete;

   /** The answer to a request, or the head of a long one. What the agent refuses raises
       Velto::RangeError, a connection that breaks NoAgent. */
   Json ask( const Json & request );
   /** The next line of a long answer; false behind the last one. Raises as ask() does. */
   bool more( Json & line );
   /** The answer to a verification command: everything up to its closing. */
   Json verify( const String & name );
   /** From now on an agent may say nothing for so long; 0: for ever. */
   void timeoutIs( double timeout ) { timeout_ = timeout; }
   void timeoutDel() { timeout_ = 0; }
   /** One more line that the agent sends on its own; false once the agent is gone. */
   bool next( Json & line );

 private:
   void send( const String & bytes );
   bool receive();
   Json checked( Json answer ) const;

   String path_;
   double timeout_;
   int fd_ = -1;
   String in_;
   std::size_t read_ = 0; ///< of in_
};

} // namespace QonAgent
