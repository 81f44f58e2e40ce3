#include "agent/AgentRun.h"

#include <malloc.h>

#include <cstdlib>
#include <sstream>

#include "agent/Changes.h"
#include "agent/ConfigReader.h"
#include "agent/base/ReadFile.h"
#include "agent/base/StateFile.h"
#include "agent/record/Replay.h"

extern char ** environ;

namespace QonAgent {

using Velto::RangeError;

namespace {

constexpr int exitDifferent = 1;
constexpr int exitUnreadable = 2;

/** Variables that the library asks for. */
bool
matters( const String & variable ) {
   static const std::vector< String > others = { "SIMULATION_VMID",  "OLD_ACLS_TCAM_ENABLED",
                                                 "PDP_MODE_ENABLED", "ENABLE_VERIFY",
                                                 "USE_BCMSIM",       "HITLESS_RESTART_TEST" };
   return ( variable.starts_with( "QON_" ) && variable != "QON_SOCKET" ) ||
          std::find( others.begin(), others.end(), variable ) != others.end();
}

/** "NAME=value" of every variable that matters. */
std::vector< String >
environment() {
   std::vector< String > all;
   for ( char ** entry = environ; *entry; ++entry ) {
      String text = *entry;
      if ( matters( text.substr( 0, text.find( '=' ) ) ) ) {
         all.push_back( text );
      }
   }
   std::sort( all.begin(), all.end() );
   return all;
}

void
environmentIs( const std::vector< String > & wanted ) {
   for ( auto & entry : environment() ) {
      unsetenv( entry.substr( 0, entry.find( '=' ) ).c_str() );
   }
   for ( auto & entry : wanted ) {
      auto end = entry.find( '=' );
      setenv( entry.substr( 0, end ).c_str(), entry.substr( end + 1 ).c_str(), 1 );
   }
}

/** "a=x b=y" */
Settings
settingsOf( const String & text ) {
   Settings settings;
   std::istringstream words( text );
   for ( String word; words >> word; ) {
      auto end = word.find( '=' );
      settings[word.substr( 0, end )] = end == String::npos ? "" : word.substr( end + 1 );
   }
   return settings;
}

String
featureNames() {
   String names;
   for ( auto & feature : agentFeatures() ) {
      names += ( names.empty() ? "" : " " ) + feature.name;
   }
   return names;
}

} // namespace

AgentRun::AgentRun( Kiv::TaskScheduler & scheduler, FileRecorder * recorder, Say say, Chips chips )
    : scheduler_( scheduler ), recorder_( recorder ), say_( std::move( say ) ),
      chips_( std::move( chips ) ) {
   VELTO_ASSERT( !chips_.empty() );
   giveKinds();
   if ( recorder_ ) {
      kindsTo( *recorder_ );
   }
}

AgentRun::~AgentRun() {
   if ( agent_ ) {
      input( "stop", "" );
   }
}

void
AgentRun::giveKinds() {
   kind( "start", [this]( const String & text ) { start( text ); } );
   kind( "stop", [this]( const String & ) {
      need();
      player_ = nullptr;
      agent_.reset();
      chip_->takeDown();
      chip_.reset();
   } );
   kind( "inputsRead", [this]( const String & ) {
      need();
      agent_->inputsRead();
   } );
   kind( "play", [this]( const String & ) {
      need();
      if ( !player_ ) {
         throw RangeError( "there are no events to play" );
      }
      player_->start();
   } );
   // Of files: the name, a line end, and the content.
   auto file = [this]( const String & name, auto load ) {
      kind( name, [this, load]( const String & text ) {
         need();
         auto end = text.find( '\n' );
         load( text.substr( 0, end ), std::string_view( text ).substr( end + 1 ) );
      } );
   };
   file( "state", [this]( const String & name, std::string_view text ) {
      applyStateText( agent_->entities(), name, String( text ) );
   } );
   file( "config",
         [this]( const String & name, std::string_view text ) { loadConfig( name, text ); } );
   file( "events", [this]( const String & name, std::string_view text ) {
      player_ = EventPlayer::parse( *agent_, name, String( text ), say_ );
   } );
   for ( auto & name : changeKinds() ) {
      kind( name, [this, name]( const String & text ) {
         need();
         answer_ = applyChange( *agent_, name, text );
      } );
   }
}

void
AgentRun::kindsTo( Recorder & recorder ) {
   for ( auto & [name, does] : kinds_ ) {
      recorder.kindIs( name, does );
   }
}

void
AgentRun::need() const {
   if ( !agent_ ) {
      throw RangeError( "there is no agent" );
   }
}

void
AgentRun::input( const String & name, const String & text ) {
   if ( recorder_ ) {
      recorder_->input( name, text );
   } else {
      kinds_.at( name )( text );
   }
}

// The description of a start: lines of the features' names, the chip's name, the settings as
// "name=word" with blanks between, and then of the environment.

void
AgentRun::begin( const String & chip, const Settings & settings ) {
   String description = featureNames() + "\n" + ( chip.empty() ? chips_[0].name : chip ) + "\n";
   for ( auto & [name, word] : settings ) {
      description += ( description.back() == '\n' ? "" : " " ) + name + "=" + word;
   }
   for ( auto & entry : environment() ) {
      description += "\n" + entry;
   }
   input( "start", description );
}

/** A recording, or its writer, cannot be followed. */
void
AgentRun::refuse( const String & why ) {
   refusal_ = why;
   throw RangeError( why );
}

const QonChip::MakeChip &
AgentRun::makerOf( const String & chip ) const {
   for ( auto & choice : chips_ ) {
      if ( choice.name == chip ) {
         return choice.make;
      }
   }
   throw RangeError( "this agent has no chip '" + chip + "'" );
}

void
AgentRun::start( const String & description ) {
   if ( agent_ ) {
      throw RangeError( "there is an agent already" );
   }
   auto lines = Kiv::split( description, '\n' );
   if ( lines[0] != featureNames() ) {
      refuse( "it was recorded with the features " + lines[0] + "; this agent has " +
              featureNames() );
   }
   lines.resize( std::max< size_t >( lines.size(), 3 ) );
   try {
      auto chip = makerOf( lines[1] )( scheduler_ );
      if ( !chip ) {
         throw RangeError( "there is no chip '" + lines[1] + "': its maker returned none" );
      }
      const Settings settings = settingsOf( lines[2] );
      lines.erase( lines.begin(), lines.begin() + 3 );
      environmentIs( lines );
      agent_.emplace( scheduler_, *chip, agentFeatures(), settings );
      chip_ = std::move( chip );
   } catch ( const RangeError & e ) {
      refuse( e.what() );
   }
}

/** The memory that a file took while it was read is given back: all of it lies in small pieces. */
void
AgentRun::inputFile( const String & kind, const String & file ) {
   input( kind, file + "\n" + readFile( file ) );
   malloc_trim( 0 );
}

void
AgentRun::state( const String & file ) {
   inputFile( "state", file );
}

void
AgentRun::config( const String & file ) {
   inputFile( "config", file );
}

void
AgentRun::events( const String & file ) {
   inputFile( "events", file );
}

void
AgentRun::inputsRead() {
   input( "inputsRead", "" );
}

void
AgentRun::play() {
   input( "play", "" );
}

String
AgentRun::change( const String & kind, const String & text ) {
   input( kind, text );
   return answer_;
}

void
AgentRun::loadConfig( const String & file, std::string_view text ) {
   const auto report = [&] {
      const auto db = ConfigDb::parse( file, text );
      return ConfigReader( *agent_, db ).load();
   }();
   for ( auto & warning : report.warnings ) {
      say_( "warning: " + warning );
   }
   for ( auto & note : report.notes ) {
      say_( "note: " + note );
   }
   say_( file + ": " + Kiv::toText( report.rows ) + " rows used, " +
         Kiv::toText( U32( report.warnings.size() ) ) + " warnings" );
}

int
replayFile( const String & file, const EventPlayer::Say & say, const Chips & chips ) {
   try {
      Replay replay( file, readFile( file ) );
      AgentRun run(
            replay, nullptr, []( const String & ) {}, chips );
      run.kindsTo( replay );
      ReplayResult result = replay.run();
      if ( !run.refusal().empty() ) {
         say( "error: " + file + ": " + run.refusal() );
         return exitUnreadable;
      }
      say( file + ": " + result.shown() );
      return result.same() ? 0 : exitDifferent;
   } catch ( const RangeError & e ) {
      say( String( "error: " ) + e.what() );
      return exitUnreadable;
   }
}

} // namespace QonAgent
