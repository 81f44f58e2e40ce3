#pragma once
// Plays a stream of timed changes: a file of JSON lines.
//
//    {"time": 0.5, "event": "set", "path": "acsd/keepStaticMacOnDisabledIntf", "value": true}
//    {"time": 2, "event": "link", "port": "Ethernet0", "up": false}
//
//    clock fires -> the lines that are due, at most `batch` in one go -> clock
//
// Invariants
// 1. The whole file is checked, line by line, before the first change.
// 2. `time` is in seconds since the player began; a line without one happens with the line
//    before. It never falls.
// 3. A line that is right in form but cannot be done is one warning; the stream goes on.

#include <vector>

#include "agent/Events.h"
#include "platform/Kiv/Alarm.h"

namespace QonAgent {

class EventPlayer : public Velto::Node {
 public:
   /** `say` takes warnings and progress, a line each. */
   using Say = std::function< void( const String & line ) >;

   /** Reads and checks. Raises Velto::RangeError "FILE:LINE: what". */
   static Velto::Ptr< EventPlayer > load( Agent & agent, const String & file, Say say );
   /** The same with the content of the file. */
   static Velto::Ptr< EventPlayer > parse( Agent & agent, const String & file, const String & text,
                                           Say say );

   /** Begins with the first line. */
   void start();
   bool done() const { return next_ == lines_.size(); }
   U32 played() const { return U32( next_ ); }
   U32 failed() const { return failed_; }

 private:
   EventPlayer( Agent & agent, const String & file, const String & text, Say say );

   struct Line {
      Kiv::Seconds time;
      U32 number;        ///< in the file, from 1
      std::size_t begin; ///< of its text in text_
      std::size_t size;
   };

   /** `unknown`: becomes what is to be said of a field that nobody asked for. */
   std::function< void() > parse( const Line & line, Kiv::Seconds & time,
                                  String * unknown = nullptr ) const;
   void check();
   void handleTimeout();
   void play( const Line & line );

   const Events events_;
   String file_;
   String text_;
   Say say_;
   std::vector< Line > lines_;
   std::size_t next_ = 0;
   U32 failed_ = 0;
   Kiv::Seconds began_ = 0;
   Kiv::Alarm alarm_;
};

} // namespace QonAgent
