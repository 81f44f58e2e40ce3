#pragma once
// Recording what a run cannot foresee, so that it can be run again.
//
//    server, ConfigDB, events, chip's descriptor -> input( kind, text ) -> what the kind does
//    scheduler -> turns; Kiv::now() -> readings       |
//    chip-specific agent: recordHook(), recordedAnswer() -.
//                                                       v
//                              FileRecorder -> a file -> Replay -> the same, in virtual time
//
// A run is made of inputs and turns. Everything that happens inside one follows from the state
// before, the readings of the time, and the answers of the chip; those are recorded, and the calls
// to the chip for comparison. What a process does outside of inputs and turns must change nothing.
//
// Invariants
// 1. There is one recorder at most, and everything works without one.
// 2. An input happens outside of turns: one that arrives inside a turn happens behind it.
// 3. What is recorded is in the file when the input or the turn is over.

#include <functional>
#include <map>
#include <utility>
#include <vector>

#include "agent/record/RecordFile.h"
#include "platform/Kiv/TaskScheduler.h"
#include "platform/Kiv/Text.h"

namespace QonAgent {

/** What an input of one kind does with its text. It may raise Velto::RangeError, having changed
    nothing. */
using InputKind = std::function< void( const String & text ) >;

class Recorder {
 public:
   Recorder( const Recorder & ) = delete;
   Recorder & operator=( const Recorder & ) = delete;
   virtual ~Recorder();

   /** Null if nothing is recorded or replayed. */
   static Recorder * current() { return current_; }

   /** Gives a kind of inputs its effect; `kind` is one word. */
   void kindIs( const String & kind, InputKind does ) { kinds_[kind] = std::move( does ); }
   bool kindHas( const String & kind ) const { return kinds_.contains( kind ); }

   /** A call to the chip. */
   virtual void hook( const String & call ) = 0;
   /** The answer to a question that was asked inside a hook: of `ask`, or the recorded one. */
   virtual String answer( const String & name, const std::function< String() > & ask ) = 0;

 protected:
   Recorder();
   /** Does what the input does; a kind that nobody gave is a Velto::RangeError. */
   void apply( const String & kind, const String & text );

 private:
   static Recorder * current_;
   std::map< String, InputKind > kinds_;
};

/** Writes a recording. Installs itself as the source of time and as the watch of turns while it
    lives; made behind the scheduler and gone before it. */
class FileRecorder : public Recorder, private Kiv::TimeSource, private Kiv::TurnWatch {
 public:
   /** Raises Velto::RangeError if the file cannot be made. */
   FileRecorder( Kiv::TaskScheduler & scheduler, const String & file );
   ~FileRecorder() override;

   /** An input: it is recorded, and its effect happens. What that raises goes to the caller; behind
       a turn it is dropped. */
   void input( const String & kind, const String & text );

   void hook( const String & call ) override;
   String answer( const String & name, const std::function< String() > & ask ) override;

   U64 records() const { return writer_.records(); }
   /** False once something could not be written. */
   bool good() const { return good_; }

 private:
   Kiv::Seconds now() override;
   void turnBegins() override;
   void turnEnds( bool worked ) override;
   void write( Record::Kind kind, const String & text );
   void writeReadings();
   void over();

   Kiv::TaskScheduler & scheduler_;
   RecordWriter writer_;
   Kiv::TimeSource * former_;
   bool inside_ = false;      // an input or a turn
   bool turnToWrite_ = false; // a turn has begun, and nothing of it is written yet
   bool asking_ = false;      // the chip answers; its readings of the time are its own
   bool good_ = true;
   U64 lastReading_ = 0;
   U64 readingBefore_ = 0; // the last one before the turn
   String readings_;
   std::vector< std::pair< String, String > > waiting_; // inputs that arrived inside
};

/** An input from outside: recorded where there is a recorder, else just done. */
void input( FileRecorder * recorder, const String & kind, const String & text,
            const InputKind & does );

/** @name For chip-specific agents */
/** @{ */
template< class T >
String
recordText( const T & value ) {
   if constexpr ( std::is_convertible_v< const T &, String > ) {
      return value;
   } else {
      return Kiv::toText( value );
   }
}

/** Notes that a hook was called, with its arguments: recordHook( "setStpState", id, name ). */
template< class... Args >
void
recordHook( const char * hook, const Args &... args ) {
   if ( auto recorder = Recorder::current() ) [[unlikely]] {
      String text;
      ( ( text += ( text.empty() ? " " : ", " ) + recordText( args ) ), ... );
      recorder->hook( hook + ( "(" + text ) + ( text.empty() ? ")" : " )" ) );
   }
}

/** What the chip answers at once: `ask()` returns it; a replay returns the recorded answer and does
    not ask. T has a text form both ways. Behind the end of a recording that was cut: T(). */
template< class T, class Ask >
T
recordedAnswer( const char * name, Ask && ask ) {
   auto recorder = Recorder::current();
   if ( !recorder ) [[likely]] {
      return ask();
   }
   String text = recorder->answer( name, [&] { return Kiv::toText( T( ask() ) ); } );
   return text.empty() ? T() : Kiv::fromText< T >( text );
}
/** @} */

} // namespace QonAgent
