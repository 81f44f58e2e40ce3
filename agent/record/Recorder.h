#pragma once
// Recording what a run cannot foresee, so that it can be run again.
//
//    server, ConfigDB, events, chip's descriptor -> input( kind, text ) -> what the kind does
//    scheduler -> turns; Kiv::now() -> readings       |
//    library: the tap at its hooks; chip: recordedAnswer() -.
//                                                           v
//                                 FileRecorder -> a file -> Replay -> the same, in virtual time
//
// A run is made of inputs and turns. Everything that happens inside one follows from the state
// before, the readings of the time, and the answers of the chip; those are recorded, and the calls
// to the chip for comparison. What a process does outside of inputs and turns must change nothing.
//
// Invariants
// 1. There is one recorder at most, and everything works without one.
// 2. An input happens outside of turns: one that arrives inside a turn happens behind it.
// 3. What is recorded is in the file when the input or the turn is over.

#include <map>
#include <utility>
#include <vector>

#include "Qon/include/framework/HookTap.h"
#include "agent/record/RecordFile.h"
#include "chip/Recording.h"
#include "platform/Kiv/TaskScheduler.h"
#include "platform/Kiv/TimeOfDay.h"

namespace QonAgent {

/** What an input of one kind does with its text. It may raise Velto::RangeError, having changed
    nothing. */
using InputKind = QonChip::Recording::Effect;

class Recorder : public QonChip::Recording, private Qon::HookListener {
 public:
   virtual ~Recorder();

   void kindIs( const String & kind, InputKind does ) override { kinds_[kind] = std::move( does ); }
   void kindDel( const String & kind ) override { kinds_.erase( kind ); }
   bool kindHas( const String & kind ) const { return kinds_.contains( kind ); }

 protected:
   Recorder() = default;
   /** Does what the input does; a kind that nobody gave is a Velto::RangeError. */
   void apply( const String & kind, const String & text );
   /** A call to the chip: "Class::hook( arguments )". */
   virtual void called( const String & call ) = 0;

 private:
   void hookCalled( const char * hook, const String & arguments ) override {
      called( Qon::HookTap::shown( hook, arguments ) );
   }

   std::map< String, InputKind > kinds_;
};

/** Writes a recording. Installs itself as the source of time and as the watch of turns while it
    lives; made behind the scheduler and gone before it. */
class FileRecorder : public Recorder, private Kiv::PassingTimeSource, private Kiv::TurnWatch {
 public:
   using Say = std::function< void( const String & line ) >;
   /** Raises Velto::RangeError if the file cannot be made. `say` hears, once, that nothing more can be
       written; what is recorded goes on as if nothing had been. */
   FileRecorder( Kiv::TaskScheduler & scheduler, const String & file, Say say = {} );
   ~FileRecorder() override;

   /** An input: it is recorded, and its effect happens. What that raises goes to the caller; behind
       a turn it is dropped. */
   void input( const String & kind, const String & text );

   void arrived( const String & kind, const String & text ) override { input( kind, text ); }
   String answer( const String & name, const std::function< String() > & ask ) override;

   U64 records() const { return writer_.records(); }
   const String & file() const { return writer_.file(); }
   /** False once something could not be written; nothing is written then. */
   bool good() const { return good_; }

 private:
   void called( const String & call ) override;
   Kiv::Seconds now() override;
   Kiv::TimeSource * former() const override { return former_; }
   void turnBegins() override;
   void turnEnds( bool worked ) override;
   void write( Record::Kind kind, const String & text );
   void writeReadings();
   void put( const Record & record );
   void flush();
   void over();

   Kiv::TaskScheduler & scheduler_;
   RecordWriter writer_;
   Kiv::TimeSource * former_;
   bool inside_ = false;      // an input or a turn
   bool turnToWrite_ = false; // a turn has begun, and nothing of it is written yet
   bool asking_ = false;      // the chip answers; its readings of the time are its own
   bool good_ = true;
   const Say say_;
   U64 lastReading_ = 0;
   U64 readingBefore_ = 0; // the last one before the turn
   String readings_;
   std::vector< std::pair< String, String > > waiting_; // inputs that arrived inside
};

/** An input from outside: recorded where there is a recorder, else just done. */
void input( FileRecorder * recorder, const String & kind, const String & text,
            const InputKind & does );

} // namespace QonAgent
