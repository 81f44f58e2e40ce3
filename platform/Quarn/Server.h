#pragma once
// The writer's end of the tables of one process: a socket where readers ask for them.
//
//    TableWriter -> Server -> socket "<path>" <- Source of a reader's process
//                     |  asked: name, layout version, fingerprint
//                     |  answer: the table's memory file, or one line of refusal
//                     `- at the end of a turn: one byte to each reader that sleeps
//
// Invariants
// 1. One writer a path: it holds "<path>.lock" until its process ends. Nobody can connect before
//    the socket has its mode; the socket of a writer that died is replaced.
// 2. No reader can make it wait, or take anything but its own connection with it: all of the socket
//    is without waiting, no descriptor is accepted, questions are bounded, memory is sealed.
// 3. A reader that sleeps is woken once, by whatever changed in the turn. A full socket means that
//    it is woken already.
// 4. A question for a table that is not there yet is answered when it comes.
//
// Ownership: the event loop outlives it; TableWriters may outlive it and then serve nobody.

#include <map>
#include <memory>
#include <vector>

#include "platform/Kiv/EventLoop.h"
#include "platform/Quarn/Memory.h"

namespace Quarn {

class Table;

/** Names of tables have 1 to this many bytes. */
constexpr U32 longestName = 63;
/** Raises Velto::RangeError for a text that cannot name a table. */
void checkName( const String & name );

class Server : private Kiv::FdWatch, private Kiv::Task {
 public:
   /** `mode` is that of the socket's file. With 0600 only the same user (and the superuser) reads.
       Raises Velto::RangeError "PATH: why" if the socket cannot be had. */
   Server( Kiv::EventLoop * loop, const String & path, U32 mode = 0600 );
   ~Server() override;

   /** Reader processes that are connected. */
   U32 readers() const { return U32( connections_.size() ); }
   /** How many bytes were sent to readers that slept. */
   U64 wakes() const { return wakes_; }

 private:
   friend class Table;
   class Connection;
   /** The socket's file. */
   struct Place {
      Handle lock;
      Handle socket;
      String path;
      U64 device = 0;
      U64 number = 0;
   };
   Server( Kiv::EventLoop * loop, Place place, U32 mode );
   static Place listenAt( const String & path, U32 mode );

   void tableIs( Table * table );
   void tableDel( Table * table );
   /** Something changed in a table: wakes readers at the end of the turn. */
   void changed() {
      if ( !awake() ) [[unlikely]] {
         wake();
      }
   }
   void ready( bool readable, bool writable ) override;
   bool run() override;
   void turnAway();
   bool mayRead( int fd ) const;

   Kiv::EventLoop * loop_;
   Place place_;
   U32 mode_;
   Handle spare_; // given up to turn away one reader too many
   U64 wakes_ = 0;
   std::map< String, Table * > tables_;
   std::map< Connection *, std::unique_ptr< Connection > > connections_;
};

} // namespace Quarn
