#include "agent/record/Recorder.h"

#include <bit>
#include <cerrno>
#include <chrono>
#include <cstring>

namespace QonAgent {

Recorder::~Recorder() = default;

void
Recorder::apply( const String & kind, const String & text ) {
   auto found = kinds_.find( kind );
   if ( found == kinds_.end() ) {
      throw Velto::RangeError( "there are no inputs of kind '" + kind + "'" );
   }
   const InputKind does = found->second; // which may end whoever gave it
   does( text );
}

void
input( FileRecorder * recorder, const String & kind, const String & text, const InputKind & does ) {
   if ( recorder ) {
      recorder->kindIs( kind, does );
      recorder->input( kind, text );
   } else {
      does( text );
   }
}

FileRecorder::FileRecorder( Kiv::TaskScheduler & scheduler, const String & file, Say say )
    : scheduler_( scheduler ), writer_( file ), former_( Kiv::timeSourceIs( this ) ),
      say_( std::move( say ) ) {
   scheduler_.turnWatchIs( this );
}

FileRecorder::~FileRecorder() {
   scheduler_.turnWatchIs( nullptr );
   Kiv::timeSourceIs( former_ );
   put( { Record::Kind::end, "" } );
   flush();
}

Kiv::Seconds
FileRecorder::now() {
   Kiv::Seconds time = former_ ? former_->now()
                               : std::chrono::duration< Kiv::Seconds >(
                                       std::chrono::steady_clock::now().time_since_epoch() )
                                       .count();
   if ( inside_ && !asking_ ) {
      // Bit patterns of positive numbers grow with them: their differences are exact and short.
      U64 reading = std::bit_cast< U64 >( time );
      char text[24];
      std::snprintf( text, sizeof( text ), readings_.empty() ? "%llx" : " %llx",
                     static_cast< unsigned long long >( reading - lastReading_ ) );
      lastReading_ = reading;
      readings_ += text;
   }
   return time;
}

void
FileRecorder::turnBegins() {
   inside_ = turnToWrite_ = true;
   readingBefore_ = lastReading_;
}

void
FileRecorder::turnEnds( bool worked ) {
   if ( worked || !turnToWrite_ ) {
      over();
   } else {
      // It changed nothing: as if it had not been.
      readings_.clear();
      lastReading_ = readingBefore_;
      inside_ = turnToWrite_ = false;
   }
   std::vector< std::pair< String, String > > waiting;
   waiting.swap( waiting_ );
   for ( auto & [kind, text] : waiting ) {
      try {
         input( kind, text );
      } catch ( const Velto::RangeError & ) {
      }
   }
}

void
FileRecorder::input( const String & kind, const String & text ) {
   if ( inside_ ) {
      waiting_.emplace_back( kind, text );
      return;
   }
   inside_ = true;
   write( Record::Kind::input, kind + " " + text );
   try {
      apply( kind, text );
   } catch ( ... ) {
      over();
      throw;
   }
   over();
}

void
FileRecorder::write( Record::Kind kind, const String & text ) {
   writeReadings();
   put( { kind, text } );
}

void
FileRecorder::writeReadings() {
   if ( std::exchange( turnToWrite_, false ) ) {
      put( { Record::Kind::turn, "" } );
   }
   if ( !readings_.empty() ) {
      put( { Record::Kind::clock, std::exchange( readings_, {} ) } );
   }
}

void
FileRecorder::over() {
   writeReadings();
   inside_ = false;
   flush();
}

/** A recording with a hole could not be replayed: behind the first failure there is nothing. */
void
FileRecorder::put( const Record & record ) {
   if ( good_ ) {
      writer_.write( record );
   }
}

void
FileRecorder::flush() {
   if ( !good_ || writer_.flush() ) {
      return;
   }
   const int why = errno;
   good_ = false;
   if ( say_ ) {
      say_( "warning: " + writer_.file() + ": the recording ends here, behind about " +
            Kiv::toText( writer_.records() ) + " records: " + std::strerror( why ) );
   }
}

void
FileRecorder::called( const String & call ) {
   if ( inside_ ) {
      write( Record::Kind::hook, call );
   }
}

String
FileRecorder::answer( const String & name, const std::function< String() > & ask ) {
   asking_ = true;
   String text = ask();
   asking_ = false;
   if ( inside_ ) {
      write( Record::Kind::answer, name + " " + text );
   }
   return text;
}

} // namespace QonAgent
