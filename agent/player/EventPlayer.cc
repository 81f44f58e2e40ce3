#include "agent/player/EventPlayer.h"

#include <nlohmann/json.hpp>

#include "agent/Agent.h"
#include "agent/base/Fields.h"
#include "agent/base/ReadFile.h"

namespace QonAgent {

using Velto::RangeError;

namespace {

constexpr U32 batch = 4096; // lines in one go
constexpr U32 linesPerReport = 100'000;

} // namespace

EventPlayer::EventPlayer( Agent & agent, const String & file, const String & text, Say say )
    : events_( agent ), file_( file ), text_( text ), say_( std::move( say ) ),
      alarm_( [this] { handleTimeout(); }, agent.timerWheel() ) {}

Velto::Ptr< EventPlayer >
EventPlayer::load( Agent & agent, const String & file, Say say ) {
   return parse( agent, file, readFile( file ), std::move( say ) );
}

Velto::Ptr< EventPlayer >
EventPlayer::parse( Agent & agent, const String & file, const String & text, Say say ) {
   Velto::Ptr< EventPlayer > player( new EventPlayer( agent, file, text, std::move( say ) ) );
   player->check();
   return player;
}

std::function< void() >
EventPlayer::parse( const Line & line, Kiv::Seconds & time, String * unknown ) const {
   Json json;
   try {
      json = Json::parse( text_.begin() + long( line.begin ),
                          text_.begin() + long( line.begin + line.size ) );
   } catch ( const Json::parse_error & ) {
      throw RangeError( "not a JSON object on one line" );
   }
   if ( !json.is_object() ) {
      throw RangeError( "expected a JSON object, found " + String( json.type_name() ) );
   }
   if ( json.contains( "time" ) ) {
      auto wanted = fieldOf< double >( json, "time" );
      if ( wanted < time ) {
         throw RangeError( "time goes back from " + Kiv::toText( time ) + " to " +
                           Kiv::toText( wanted ) );
      }
      time = wanted;
   }
   return events_.parse( json, unknown );
}

void
EventPlayer::check() {
   Line line = {};
   for ( std::size_t at = 0; at < text_.size(); at = line.begin + line.size + 1 ) {
      line.begin = at;
      line.size = std::min( text_.find( '\n', at ), text_.size() ) - at;
      ++line.number;
      auto text = text_.find_first_not_of( " \t\r", at );
      if ( text >= line.begin + line.size || text_[text] == '#' ) {
         continue; // empty, or a comment
      }
      try {
         String unknown;
         parse( line, line.time, &unknown );
         if ( !unknown.empty() ) {
            say_( "warning: " + file_ + ":" + Kiv::toText( line.number ) + ": " + unknown );
         }
      } catch ( const RangeError & e ) {
         throw RangeError( file_ + ":" + Kiv::toText( line.number ) + ": " + e.what() );
      }
      lines_.push_back( line );
   }
}

void
EventPlayer::start() {
   began_ = Kiv::now();
   if ( !done() ) {
      alarm_.at( began_ + lines_[next_].time );
   }
}

void
EventPlayer::handleTimeout() {
   // The same sum as the clock was armed with: by another one, a line may be due and never played.
   Kiv::Seconds now = Kiv::now();
   for ( U32 n = 0; n < batch && !done() && began_ + lines_[next_].time <= now; ++n ) {
      play( lines_[next_++] );
      if ( next_ % linesPerReport == 0 || ( done() && next_ > linesPerReport ) ) {
         say_( file_ + ": " + Kiv::toText( played() ) + " of " +
               Kiv::toText( U32( lines_.size() ) ) + " events played" );
      }
   }
   if ( !done() ) {
      alarm_.at( began_ + lines_[next_].time );
   }
}

void
EventPlayer::play( const Line & line ) {
   try {
      Kiv::Seconds time = line.time;
      parse( line, time )();
   } catch ( const RangeError & e ) {
      ++failed_;
      say_( "warning: " + file_ + ":" + Kiv::toText( line.number ) + ": " + e.what() );
   }
}

} // namespace QonAgent
