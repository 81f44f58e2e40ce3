#pragma once
// A log sink that keeps what was emitted; for tests and for a console that shows recent messages.

#include <vector>

#include "platform/Kiv/Log.h"

namespace Kiv {

/** Installed from construction to destruction. Construction starts all rate limits afresh, since
    virtual time starts again with every test. */
class LogRecorder : public LogSink {
 public:
   struct Record {
      Velto::String name;
      U32 severity;
      Velto::String text;
      friend bool operator==( const Record &, const Record & ) = default;
   };

   LogRecorder() : before_( logSinkIs( this ) ) { logWindowsReset(); }
   ~LogRecorder() override { logSinkIs( before_ ); }
   LogRecorder( const LogRecorder & ) = delete;
   LogRecorder & operator=( const LogRecorder & ) = delete;

   void message( const LogDescriptor & descriptor, const Velto::String & text ) override {
      records_.push_back( { descriptor.name, descriptor.severity, text } );
   }

   const std::vector< Record > & records() const { return records_; }
   void clear() { records_.clear(); }

 private:
   LogSink * before_;
   std::vector< Record > records_;
};

} // namespace Kiv
