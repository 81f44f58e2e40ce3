#pragma once
// Running a recording again: the same inputs, turns, readings of the time and answers of the chip,
// and the calls to the chip compared.
//
//    Replay: record -> input: the kind's effect; turn: turn() of its scheduler
//               |        inside: now() <- readings, recordedAnswer() <- answers, hooks -> compared
//               `-> ReplayResult: same, or the first record that differs
//
// Invariants
// 1. Nothing is compared, and no further input or turn happens, behind the first difference.
// 2. A recording that was cut in the middle of an input or a turn: that one is run to its end, with
//    the time standing still, and compared as far as the recording goes.

#include <deque>

#include "agent/record/Recorder.h"

namespace QonAgent {

struct ReplayResult {
   U64 records = 0;   ///< replayed, all of them the same
   U64 different = 0; ///< the number of the first that differs; 0 if none does
   String recorded;   ///< what that record says
   String replayed;   ///< what happened instead
   RecordReader::Ending ending = RecordReader::Ending::none;

   bool same() const { return different == 0; }
   /** One line for the operator. */
   String shown() const;
};

class Replay : public Recorder,
               public Kiv::TaskScheduler,
               private Kiv::TimeSource,
               private Kiv::TurnWatch {
 public:
   /** `text` is the content of the file `name`; Velto::RangeError if it is no recording. The kinds
       of inputs are given to it before run(). */
   Replay( const String & name, String text );
   ~Replay() override;

   /** Runs the whole recording. Velto::RangeError for a damaged one, or for a kind of inputs that
       it was not given. */
   ReplayResult run();

   /** What the live chip says by itself is not heard. */
   void arrived( const String &, const String & ) override {}
   String answer( const String & name, const std::function< String() > & ask ) override;

 private:
   void called( const String & call ) override;
   Kiv::Seconds now() override;
   void turnBegins() override {}
   void turnEnds( bool ) override {}
   void input( const String & text );
   /** The next record if there is one and nothing has differed; readings that are left over are a
       difference. */
   const Record * next( const String & happening );
   /** Takes the readings of a clock record, if one is next. */
   void takeReadings();
   void over();
   void differs( U64 number, const String & recorded, const String & replayed );
   bool comparing() const { return inside_ && result_.same(); }

   RecordReader reader_;
   ReplayResult result_;
   Kiv::TimeSource * former_;
   bool inside_ = false;
   std::deque< U64 > readings_; // of the clock record that was taken last
   U64 readingsRecord_ = 0;     // its number
   U64 lastReading_ = 0;
};

} // namespace QonAgent
