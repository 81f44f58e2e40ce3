#pragma once
// A trace sink that keeps what was traced; for tests.

#include <vector>

#include "platform/Flintlog/Trace.h"

namespace Flintlog {

/** Installed for the whole process from construction to destruction. */
class TraceRecorder : public Sink {
 public:
   struct Record {
      Velto::String facility;
      U8 level;
      Velto::String text;
      friend bool operator==( const Record &, const Record & ) = default;
   };

   TraceRecorder() : before_( sinkIs( this ) ) {}
   ~TraceRecorder() override { sinkIs( before_ ); }
   TraceRecorder( const TraceRecorder & ) = delete;
   TraceRecorder & operator=( const TraceRecorder & ) = delete;

   void trace( const char * facility, U8 level, const Velto::String & text ) override {
      records_.push_back( { facility, level, text } );
   }

   const std::vector< Record > & records() const { return records_; }
   void clear() { records_.clear(); }

 private:
   Sink * before_;
   std::vector< Record > records_;
};

} // namespace Flintlog
