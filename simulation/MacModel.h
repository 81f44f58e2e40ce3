#pragma once
// When the three clocks of a MAC programmer must fire, and when it must report a full table: computed
// from what happened to it, in the order in which it happened.
//
//    SimMac: accepted(), written(), answered(), ran() -> MacModel -> check() against the clocks
//
// It knows the rules of the clocks and no line of the programmer. It holds for as long as reading the
// time costs nothing: no run stops at its budget then, and all that a run does is done at one moment.
// After a time in which it did cost something, the model begins anew with the books that it finds.

#include <map>

#include "Qon/include/mac/QonChipProgrammer.h"
#include "platform/Kiv/TaskScheduler.h"

namespace Sim {

using Velto::String;

class MacModel {
 public:
   using Status = Qon::MacProgramStatus;
   using Programmer = Qon::QonMacProgrammer;
   enum class Run { drain, poll, retry };
   static constexpr U32 flush = ~U32( 0 ); ///< in place of a key

   explicit MacModel( const Kiv::VirtualScheduler & scheduler ) : scheduler_( scheduler ) {}

   /** Follows what happens while reading the time costs nothing; when that begins, the books are
       those of `programmer`, whose commands have their serial numbers as opArg(). */
   void lookAt( const Programmer & programmer );
   /** Another programmer, with nothing to do. */
   void restart();
   void suspendIs( bool drain, bool poll );

   /** A command of that key, or a flush, was handed in. */
   void accepted( S64 serial, U32 key );
   /** The hook was called for it: in a run that a clock fired, unless `direct`. */
   void written( S64 serial, U64 transaction, bool direct );
   void answered( U64 transaction, Status status );
   /** A run is over. */
   void ran( Run run, bool direct );
   /** A full table was reported, on behalf of this programmer or of another one. */
   void reported( bool own );

   /** What is not as it must be, or nothing. */
   String check( const Programmer & programmer ) const;

 private:
   enum class Place { pending, inFlight, overflow };
   struct Command {
      U32 key;
      bool live = true; ///< no newer one of its key
      Place place = Place::pending;
      U64 transaction = 0;
      Status status = Status::macProgramInProgress;
   };
   struct Clock {
      Kiv::Seconds time = Kiv::never;
      void atMost( Kiv::Seconds t ) { time = t < time ? t : time; }
   };

   Kiv::Seconds now() const { return scheduler_.time(); }
   bool any( Place place ) const;
   Clock & clock( Run run ) { return clocks_[U32( run )]; }
   void begin( Run run, bool direct );
   void wakeDrain();
   void afterDrain();
   void poll();
   bool leaves( Command & command );
   void overflowed();
   void retry();
   void noteEnd();

   const Kiv::VirtualScheduler & scheduler_;
   bool follows_ = true;
   Kiv::Seconds began_ = 0; ///< to follow; what was due before could not fire at its time
   bool holdDrain_ = false, holdPoll_ = false;
   bool running_ = false; ///< a drain has called hooks and is not over
   std::map< S64, Command > commands_;
   Clock clocks_[3];
   Kiv::Seconds delay_ = 5;
   bool episode_ = false; ///< of overflow, reported
   Kiv::Seconds lastReport_ = -Kiv::never;
   S32 missing_ = 0; ///< reports that must have come, less those that came
   String wrong_;    ///< a run at a wrong time
};

} // namespace Sim
