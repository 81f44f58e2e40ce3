#include "agent/record/Replay.h"

#include <bit>
#include <cstdlib>

namespace QonAgent {

using Ending = RecordReader::Ending;

String
ReplayResult::shown() const {
   if ( !same() ) {
      return "record " + Kiv::toText( different ) + " differs: recorded '" + recorded +
             "', replayed '" + replayed + "'";
   }
   String text = "replayed " + Kiv::toText( records ) + " records";
   if ( ending == Ending::cut ) {
      return text + "; the file ends in the middle of record " + Kiv::toText( records + 1 );
   }
   return text + ( ending == Ending::whole ? ", all the same"
                                           : "; the file ends behind them, without the last one" );
}

Replay::Replay( const String & name, String text )
    : reader_( name, std::move( text ) ), former_( Kiv::timeSourceIs( this ) ) {
   turnWatchIs( this ); // turns read the time as they did when they were recorded
}

Replay::~Replay() {
   Kiv::timeSourceIs( former_ );
}

ReplayResult
Replay::run() {
   while ( result_.same() ) {
      const Record * record = reader_.peek();
      if ( !record ) {
         break;
      }
      Record::Kind kind = record->kind;
      String text = record->text;
      if ( kind != Record::Kind::input && kind != Record::Kind::turn ) {
         differs( reader_.number(), record->shown(), "the end of the input or the turn" );
         break;
      }
      reader_.take();
      inside_ = true;
      if ( kind == Record::Kind::input ) {
         input( text );
      } else {
         turn();
      }
      over();
   }
   result_.records = result_.same() ? reader_.number() - 1 : result_.different - 1;
   result_.ending = reader_.ending();
   return result_;
}

void
Replay::input( const String & text ) {
   auto blank = text.find( ' ' );
   String kind = text.substr( 0, blank );
   if ( !kindHas( kind ) ) {
      throw Velto::RangeError( "record " + Kiv::toText( reader_.number() - 1 ) +
                               ": there are no inputs of kind '" + kind + "'" );
   }
   try {
      apply( kind, blank == String::npos ? String() : text.substr( blank + 1 ) );
   } catch ( const Velto::RangeError & ) {
      // It was refused when it was recorded, too; what it did before that is compared.
   }
}

void
Replay::over() {
   next( "the end of the input or the turn" );
   inside_ = false;
}

void
Replay::differs( U64 number, const String & recorded, const String & replayed ) {
   if ( result_.same() ) {
      result_.different = number;
      result_.recorded = recorded;
      result_.replayed = replayed;
   }
}

const Record *
Replay::next( const String & happening ) {
   if ( !readings_.empty() ) {
      differs( readingsRecord_, "c: " + Kiv::toText( U32( readings_.size() ) ) + " more readings",
               happening );
      readings_.clear();
   }
   return result_.same() ? reader_.peek() : nullptr;
}

void
Replay::takeReadings() {
   const Record * record = reader_.peek();
   if ( !record ) {
      return; // behind the end of a recording that was cut
   }
   if ( record->kind != Record::Kind::clock ) {
      differs( reader_.number(), record->shown(), "a reading of the time" );
      return;
   }
   const char * at = record->text.c_str();
   for ( char * end; *at; at = end ) {
      U64 step = std::strtoull( at, &end, 16 );
      if ( end == at ) {
         differs( reader_.number(), record->shown(), "a reading of the time" );
         return;
      }
      readings_.push_back( step );
   }
   readingsRecord_ = reader_.number();
   reader_.take();
}

Kiv::Seconds
Replay::now() {
   if ( comparing() && readings_.empty() ) {
      takeReadings();
   }
   if ( comparing() && !readings_.empty() ) {
      lastReading_ += readings_.front();
      readings_.pop_front();
   }
   return std::bit_cast< Kiv::Seconds >( lastReading_ );
}

void
Replay::called( const String & call ) {
   Record happened{ Record::Kind::hook, call };
   if ( !comparing() ) {
      return;
   }
   if ( const Record * record = next( happened.shown() ) ) {
      if ( *record == happened ) {
         reader_.take();
      } else {
         differs( reader_.number(), record->shown(), happened.shown() );
      }
   }
}

String
Replay::answer( const String & name, const std::function< String() > & ) {
   if ( !comparing() ) {
      return "";
   }
   String asked = "a " + name + " ";
   if ( const Record * record = next( asked ) ) {
      if ( record->kind == Record::Kind::answer && record->text.starts_with( name + " " ) ) {
         String text = record->text.substr( name.size() + 1 );
         reader_.take();
         return text;
      }
      differs( reader_.number(), record->shown(), asked + "..." );
   }
   return "";
}

} // namespace QonAgent
