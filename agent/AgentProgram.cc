#include "agent/AgentProgram.h"

#include <malloc.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <optional>
#include <utility>

#include "agent/AgentRun.h"
#include "agent/Reference.h"
#include "agent/base/FileMode.h"
#include "agent/base/Json.h"
#include "agent/base/PlainWords.h"
#include "agent/base/Readiness.h"
#include "agent/base/SignalWatch.h"
#include "agent/base/Version.h"
#include "agent/server/Console.h"
#include "agent/server/SocketServer.h"
#include "platform/Kiv/EventLoop.h"
#include "platform/Kiv/Printable.h"

namespace QonAgent {

namespace {

constexpr int exitBadInput = 2;
constexpr Kiv::Seconds restLimit = 3600; // how long --once waits for the agent to come to rest

struct Options {
   String config;
   String state;
   String events;
   String socket; // empty: none
   bool socketOfEnvironment = false;
   SocketAccess access;
   String log = "stderr";
   String chip; // empty: the first
   Settings settings;
   String record;
   String replay;
   bool virtualTime = false;
   bool once = false;
   bool describe = false;
};

/** Octal digits as a number. */
String
modeOf( const String & text ) {
   try {
      return Kiv::toText( fileMode( text ) );
   } catch ( const Velto::RangeError & e ) {
      throw CLI::ValidationError( e.what() );
   }
}

String program; // argv[0] without its folder, with which messages begin

void
say( const String & line ) {
   std::fprintf( stderr, "%s: %s\n", program.c_str(),
                 Kiv::printable( plainWords( line ) ).c_str() );
}

/** Descriptors are served in real time; the agent's clocks run on it, or on a time of their own. */
class Program {
 public:
   Program( const Options & options, const Chips & chips );
   /** Clients go first: what they are told is of the agent. */
   ~Program() { server_.reset(); }

   /** Reads the files. Raises Velto::RangeError. */
   void load();
   /** Until a signal ends it, or until everything is done with --once. */
   void run();

 private:
   Kiv::TaskScheduler & scheduler();
   bool playing() { return run_->player() && !run_->player()->done(); }
   void advance( Kiv::Seconds by );
   void playVirtual();
   void oneRound( bool wait );
   void reload();

   Options options_;
   Kiv::EventLoop loop_;
   SignalWatch signals_{ loop_, [this] { reload(); } };
   std::optional< Kiv::VirtualScheduler > virtual_;
   std::optional< SocketServer > server_;
   std::optional< FileRecorder > recorder_;
   std::optional< AgentRun > run_;
   std::optional< Console > console_;
};

Program::Program( const Options & options, const Chips & chips ) : options_( options ) {
   if ( options.virtualTime ) {
      virtual_.emplace();
   }
   // Before the agent: a busy socket is known before anything else is done.
   if ( !options.socket.empty() ) {
      try {
         server_.emplace(
               loop_, options.socket,
               [this]( Connection & c, const String & line ) { console_->line( c, line ); },
               options.access );
      } catch ( const Velto::RangeError & e ) {
         throw Velto::RangeError( String( e.what() ) +
                                  ( options.socketOfEnvironment ? socketFromEnvironment : "" ) );
      }
   }
   if ( !options.record.empty() ) {
      recorder_.emplace( scheduler(), options.record, say );
      if ( recorder_->file() != options.record ) {
         say( "note: " + options.record + " is there already; recording to " + recorder_->file() );
      }
   }
   run_.emplace( scheduler(), recorder_ ? &*recorder_ : nullptr, say, chips );
   run_->begin( options.chip, options.settings );
   console_.emplace( run_->agent() );
   console_->loopIs( &loop_ );
   console_->changeIs( [this]( const String & kind, const String & text ) {
      return run_->change( kind, text );
   } );
   if ( virtual_ ) {
      console_->advanceIs( [this]( Kiv::Seconds by ) { advance( by ); } );
   }
}

Kiv::TaskScheduler &
Program::scheduler() {
   return virtual_ ? static_cast< Kiv::TaskScheduler & >( *virtual_ ) : loop_;
}

void
Program::load() {
   if ( !options_.state.empty() ) {
      run_->state( options_.state );
   }
   if ( !options_.config.empty() ) {
      run_->config( options_.config );
   }
   run_->inputsRead();
   if ( !options_.events.empty() ) {
      run_->events( options_.events );
   }
}

void
Program::advance( Kiv::Seconds by ) {
   run_->chip().pump( by );
   virtual_->runFor( by );
}

void
Program::oneRound( bool wait ) {
   loop_.runOnce( wait ? Kiv::never : 0 );
   if ( virtual_ ) {
      virtual_->settle();
   }
}

/** Reads the configuration again, as a difference. What can not be read changes nothing. */
void
Program::reload() {
   if ( options_.config.empty() || options_.config == "-" ) {
      say( "warning: there is no file to read again: --config names none" );
      return;
   }
   tellServiceManager( "RELOADING=1" );
   try {
      run_->config( options_.config );
   } catch ( const Velto::RangeError & e ) {
      say( String( "error: " ) + e.what() + "; everything stays as it is" );
   }
   tellServiceManager( "READY=1" );
}

/** From one firing to the next, with a look at the clients between them. */
void
Program::playVirtual() {
   while ( playing() && !signals_.stopped() ) {
      const Kiv::Seconds next = std::max( virtual_->time(), virtual_->nextTime() );
      run_->chip().pump( next - virtual_->time() );
      virtual_->runUntil( next );
      oneRound( false );
   }
}

void
Program::run() {
   if ( server_ ) {
      say( "ready, serving " + options_.socket );
   }
   tellServiceManager( "READY=1" );
   if ( run_->player() ) {
      run_->play();
   }
   if ( virtual_ ) {
      virtual_->settle();
      playVirtual();
      if ( options_.once ) {
         run_->chip().pump( run_->chip().answersWithin() );
         virtual_->runToRest( virtual_->time() + restLimit );
      }
   }
   auto finished = [this] {
      return options_.once && !playing() && scheduler().nextTime() > Kiv::now();
   };
   while ( !signals_.stopped() && !finished() ) {
      oneRound( true );
   }
   tellServiceManager( "STOPPING=1" );
}

void
addSetting( CLI::App & app, Options & options, const FeatureOption & option ) {
   const auto taken = app.add_option_function< String >(
         "--" + option.name,
         [&options, name = option.name]( const String & word ) { options.settings[name] = word; },
         option.help + ( option.words.empty() ? "" : "; unless given, " + option.words[0] ) );
   option.words.empty() ? taken->type_name( "PATH" )
                        : taken->check( CLI::IsMember( option.words ) );
}

void
describe( CLI::App & app, Options & options, const Chips & chips ) {
   app.add_option( "-c,--config", options.config, "switch configuration, a ConfigDB JSON file" )
         ->type_name( "FILE" );
   app.add_option( "--state", options.state, "snapshot: a JSON object of paths and values" )
         ->type_name( "FILE" );
   app.add_option( "-e,--events", options.events, "timed changes, a JSON object a line" )
         ->type_name( "FILE" );
   app.add_option( "-s,--socket", options.socket,
                   "socket for qonctl; unless given, $QON_SOCKET or a place of the user's, or none "
                   "with --once" )
         ->type_name( "PATH" );
   app.add_option( "--socket-mode", options.access.mode, "who may use the socket, as chmod has it" )
         ->type_name( "OCTAL" )
         ->transform( []( const String & text ) { return modeOf( text ); } )
         ->default_str( "0600" );
   app.add_option( "--socket-group", options.access.group, "the group of the socket" )
         ->type_name( "NAME" );
   app.add_option( "--log", options.log, "where messages go" )
         ->check( CLI::IsMember( { "stderr", "syslog" } ) )
         ->capture_default_str();
   app.add_flag( "--virtual-time", options.virtualTime,
                 "time moves with events and with 'qonctl run' only" );
   app.add_flag( "--once", options.once, "load, play the events, come to rest, and end" );
   app.add_flag(
         "--describe", options.describe,
         "print what this agent understands and shows, with examples; nothing else is done" );
   app.add_option( "--record", options.record, "write everything that comes in to a recording" )
         ->type_name( "FILE" );
   app.add_option( "--replay", options.replay,
                   "run a recording again and compare what the chip is told; nothing else is done" )
         ->type_name( "FILE" );
   if ( chips.size() > 1 ) {
      std::vector< String > names;
      for ( auto & choice : chips ) {
         names.push_back( choice.name );
      }
      app.add_option( "--chip", options.chip, "which chip; unless given, " + names[0] )
            ->check( CLI::IsMember( names ) );
   }
   for ( auto & feature : agentFeatures() ) {
      for ( auto & option : feature.options ) {
         addSetting( app, options, option );
      }
   }
   const String agent = "\n  " + program;
   app.footer(
         "Examples:" + agent + " --config examples/leaf.json &     run a switch" +
         "\n  qonctl show port-channel                    ask it" + agent +
         " --once --config my.json        check a file" + agent +
         " -c my.json -e storm.jsonl --virtual-time --once\n\n"
         "Exit codes: 0 ended as asked, 1 a replay that differs, 2 bad input, a busy socket or "
         "no\nchip; one line says which." );
}

/** The socket that was chosen, or that stands in the environment, or the default one. What is wrong;
    empty if nothing is. */
String
settled( Options & options, const CLI::App & app ) {
   for ( auto & feature : agentFeatures() ) {
      for ( auto & option : feature.options ) {
         if ( option.words.empty() && app.count( "--" + option.name ) && !options.record.empty() ) {
            return "--record: what comes by --" + option.name + " cannot be recorded";
         }
      }
   }
   if ( app.count( "--socket" ) ) {
      return options.socket.empty() ? "--socket: a path is expected, it is empty" : "";
   }
   if ( options.once || options.describe || !options.replay.empty() ) {
      return "";
   }
   try {
      const SocketChoice choice = chosenSocket();
      options.socket = choice.path;
      options.socketOfEnvironment = choice.ofEnvironment;
   } catch ( const Velto::RangeError & e ) {
      return e.what();
   }
   return "";
}

} // namespace

namespace {

int
printReference( const Options & options, const Chips & chips ) {
   Kiv::VirtualScheduler scheduler;
   AgentRun run( scheduler, nullptr, say, chips );
   run.begin( options.chip, options.settings );
   std::fputs( referenceOf( run.agent(), Console( run.agent() ).shows() ).c_str(), stdout );
   return 0;
}

/** No turn of the loop pays for what many turns have freed: the allocator joins each piece when it
    comes, and gives back to the system only what is more than a gigabyte. */
void
freeEvenly() {
   constexpr int kept = 1 << 30;
   mallopt( M_MXFAST, 0 );
   mallopt( M_TRIM_THRESHOLD, kept );
}

} // namespace

int
agentMain( int argc, char ** argv, const QonChip::MakeChip & make ) {
   return agentMain( argc, argv, Chips{ { "chip", make } } );
}

int
agentMain( int argc, char ** argv, const Chips & chips ) {
   freeEvenly();
   program = std::filesystem::path( argv[0] ).filename();
   Options options;
   CLI::App app( "Forwarding agent: runs the state machines of libQon on a switch "
                 "configuration." );
   describe( app, options, chips );
   app.set_version_flag( "--version", program + " " + agentVersion() );
   app.failure_message( []( const CLI::App *, const CLI::Error & e ) {
      return program + ": error: " + Kiv::printable( e.what() ) + "; --help tells more\n";
   } );
   try {
      app.parse( argc, argv );
   } catch ( const CLI::ParseError & e ) {
      return app.exit( e ) ? exitBadInput : 0;
   }
   if ( const String wrong = settled( options, app ); !wrong.empty() ) {
      say( "error: " + wrong );
      return exitBadInput;
   }
   if ( !options.replay.empty() ) {
      return replayFile( options.replay, say, chips );
   }
   signal( SIGPIPE, SIG_IGN );
   signal( SIGXFSZ, SIG_IGN ); // a limit on the size of files is an error of writing
   if ( options.log == "syslog" ) {
      Kiv::logSinkIs( &Kiv::logSyslog() );
   }
   try {
      if ( options.describe ) {
         return printReference( options, chips );
      }
      Program program( options, chips );
      program.load();
      program.run();
   } catch ( const Velto::RangeError & e ) {
      say( String( "error: " ) + e.what() );
      return exitBadInput;
   }
   return 0;
}

} // namespace QonAgent
