#pragma once
// What long work is cut into slices with: the reactor thread belongs to everybody, so a run that
// may be long works for a few milliseconds, notes where it stopped, and has itself called again.
//
//    handler of a clock
//       Qon::TimeSlice slice( budget, 128 )              reads the time
//       auto walk = Qon::resume( map, bookmark )         from where the last run stopped
//       for ( ...; ++walk ) { work; if ( slice.usedUp() ) break; }
//       bookmark = Qon::bookmarkAt( walk )
//       Qon::wakeUp( clock, slice.now() )                work is left: soon again
//
// Invariants
// 1. The time is read when a slice begins and after every `itemsPerRead` items, never otherwise;
//    so a run stops after a multiple of that number of items, or at the end of its work.
// 2. A bookmark names the next key, not the last one done. That key may be gone when the run
//    resumes: it goes on with the first key that is not less.
// 3. wakeUp() only ever moves a firing time earlier: whoever waits for it is not put off by
//    others who can wait longer.

#include <optional>

#include "platform/Kiv/Clock.h"

namespace Qon {

/** The budget of one run. */
class TimeSlice {
 public:
   /** Begins now. `budget` in seconds; `itemsPerRead` of 0 counts as 1. */
   TimeSlice( Kiv::Seconds budget, U32 itemsPerRead )
       : itemsPerRead_( itemsPerRead ? itemsPerRead : 1 ), left_( itemsPerRead_ ),
         now_( Kiv::now() ), deadline_( now_ + budget ) {}

   /** Counts one item as done. True if the time was read for it and the deadline has come. */
   bool usedUp() {
      if ( --left_ ) [[likely]] {
         return false;
      }
      left_ = itemsPerRead_;
      now_ = Kiv::now();
      return now_ >= deadline_;
   }
   /** The last time read, in seconds of Kiv::now(). */
   Kiv::Seconds now() const { return now_; }
   Kiv::Seconds deadline() const { return deadline_; }

 private:
   U32 itemsPerRead_;
   U32 left_;
   Kiv::Seconds now_;
   Kiv::Seconds deadline_;
};

/** The next key of an interrupted walk; none when the next walk is to start at the beginning. */
template< class Key >
using Bookmark = std::optional< Key >;

/** A walk over an ordered map from the bookmark, or from the beginning if there is none. */
template< class Map, class Key >
auto
resume( Map & map, const Bookmark< Key > & bookmark ) {
   return bookmark ? map.lowerBound( *bookmark ) : map.begin();
}

/** The bookmark of a walk that stops in front of its current key; none at the end. */
template< class Walk >
auto
bookmarkAt( const Walk & walk ) {
   using Key = std::remove_cvref_t< decltype( walk.key() ) >;
   return walk ? Bookmark< Key >( walk.key() ) : Bookmark< Key >();
}

/** Makes a clock fire at `time` (at once for the past), unless it will fire earlier anyway.
    Nothing happens without a clock: work that arrives before the clocks exist waits. */
inline void
wakeUp( Kiv::Clock * clock, Kiv::Seconds time ) {
   if ( clock ) {
      clock->timeMin( time );
   }
}

} // namespace Qon
