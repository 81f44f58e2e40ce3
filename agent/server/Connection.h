#pragma once
// One client of the agent's socket: lines in, lines out.
//
//    socket -> ready() -> whole lines -> LineHandler -> send(), stream()
//    a watch of the client -> push()
//
// Invariants
// 1. The next line is handled when the answers of the last one have been taken by the socket: a
//    client that does not read is not read from. A long answer is a stream: it is asked for a piece
//    when the socket has taken all before, one piece in a turn of the loop. Of lines that come
//    together `linesATurn` are handled in one.
// 2. A line has at most `maxLine` bytes; a longer one is answered with an error and the end of the
//    connection. So is nothing else that a client may send.
// 3. What is pushed and not read grows to `maxPending` bytes; then the connection ends.
// 4. Whatever a client does costs its own connection at most. No call here waits.
//
// Ownership: owns the descriptor and its watches; the server owns the connection.

#include <functional>
#include <memory>
#include <vector>

#include "platform/Kiv/EventLoop.h"

namespace QonAgent {

using Velto::String;

class Connection : private Kiv::FdWatch {
 public:
   static constexpr U32 maxLine = 65536;
   static constexpr U32 maxPending = 1 << 20;
   static constexpr U32 linesATurn = 8;

   using LineHandler = std::function< void( Connection & connection, const String & line ) >;
   /** Appends a piece of an answer; whether there is more of it. */
   using More = std::function< bool( String & out ) >;
   /** Called last in a turn of this connection, once it has ended; destroys it. */
   using Ended = std::function< void( Connection & connection ) >;

   Connection( Kiv::EventLoop & loop, int fd, LineHandler handler, Ended ended );
   ~Connection() override;

   /** Sends bytes as they are: (part of) the answer to the present line. */
   void send( const String & bytes );
   /** The answer to the present line goes on with what `more` appends. What is pushed meanwhile comes
       between two pieces. */
   void stream( More more ) { more_ = std::move( more ); }
   /** Sends what the client did not ask for just now. Does nothing once the client is behind. */
   void push( const String & bytes );
   /** Keeps `object` until the connection ends; the connection then lasts beyond the end of the
       client's input. */
   void keep( Velto::Ptr< Velto::Node > object ) { kept_.push_back( std::move( object ) ); }

   U32 pending() const { return U32( out_.size() - sent_ ); }

 private:
   void ready( bool readable, bool writable ) override;
   void receive();
   void handleLines();
   void flush();
   void nextPiece();
   bool answering() const { return pending() || more_; }
   void want();

   LineHandler handler_;
   Ended ended_;
   String in_;
   String out_;
   std::size_t sent_ = 0;   ///< of out_
   More more_;              ///< the rest of the answer under way; empty for none
   bool linesWait_ = false; ///< whole ones, for the next turn
   bool inputEnded_ = false;
   bool ending_ = false; ///< once out_ is sent
   bool broken_ = false;
   std::vector< Velto::Ptr< Velto::Node > > kept_;
};

} // namespace QonAgent
