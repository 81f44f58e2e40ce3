// qonctl: the console of a running qon-agent.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>

#include "agent/base/ClockText.h"
#include "agent/base/Version.h"
#include "agent/ctl/Capture.h"
#include "agent/ctl/Client.h"
#include "agent/ctl/Output.h"
#include "agent/server/SocketServer.h"
#include "platform/Kiv/Printable.h"

namespace {

using namespace QonAgent;

constexpr int exitRefused = 1; // also: verification has findings
constexpr int exitNoAgent = 2; // also: the command line is wrong

const CLI::Range aTime( 0.0, 1e6 ); // in seconds

struct Options {
   String socket; // empty: the one of the environment, or the default
   double wait = 0;
   double timeout = 30;
   bool json = false;
   String path;
   String value;
   String message;
   String capture;
   double seconds = 0;
   bool stamps = false;
   std::vector< String > words;
};

U32
levelOf( const String & text ) {
   char * end = nullptr;
   const unsigned long level = std::strtoul( text.c_str(), &end, 10 );
   if ( text.empty() || *end || level > 9 ) {
      throw Velto::RangeError( "expected a level from 0 to 9, found '" + text + "'" );
   }
   return U32( level );
}

class Ctl {
 public:
   explicit Ctl( const Options & options )
       : options_( options ), client_( options.socket, options.wait, options.timeout ) {}

   int show();
   int frame();
   int get();
   int set();
   int change( const char * what );
   int event();
   int watch();
   int waitUntil();
   int trace();
   int logLevel();
   int complete();
   int dump();
   int raise();
   int run();
   int verify();

 private:
   int showHelp();
   void road( const String & fields, std::size_t number, Printer & printer );
   void printChange( const Json & line ) const;
   void printTable( const Json & columns, const Json & rows ) const;

   const Options & options_;
   Client client_;
};

void
Ctl::printTable( const Json & columns, const Json & rows ) const {
   if ( options_.json ) {
      printJson( rows );
   } else {
      print( tableOf( columns, rows, tableWidth() ) );
   }
}

int
Ctl::showHelp() {
   Json shows = client_.ask( { { "do", "help" } } ).at( "shows" );
   for ( auto & row : shows ) {
      String arguments = row.at( "arguments" );
      row["command"] =
            row.at( "show" ).get< String >() + ( arguments.empty() ? "" : " " + arguments );
   }
   printTable( { column( "command", "qonctl show ..." ), column( "help", "What" ) }, shows );
   return 0;
}

int
Ctl::show() {
   if ( options_.words.empty() ) {
      return showHelp();
   }
   const Json head = client_.ask( { { "do", "show" }, { "words", options_.words } } );
   Printer printer( options_.json, head.at( "columns" ) );
   for ( Json line; client_.more( line ); ) {
      printer.row( line.at( "row" ) );
   }
   printer.end();
   return 0;
}

/** The road of one frame that is given by its fields, or of each frame of a capture, with its number. */
int
Ctl::frame() {
   std::vector< String > frames;
   if ( options_.capture.empty() ) {
      String fields;
      for ( auto & word : options_.words ) {
         fields += ( fields.empty() ? "" : "," ) + word;
      }
      frames.push_back( fields );
   }
   for ( auto & octets :
         options_.capture.empty() ? std::vector< String >() : readCapture( options_.capture ) ) {
      frames.push_back( "bytes=" + hexOf( octets ) );
   }
   Json columns = Json::array( { column( "stage", "Stage" ), column( "what", "What" ) } );
   if ( !options_.capture.empty() ) {
      columns.insert( columns.begin(), column( "frame", "Frame" ) );
   }
   Printer printer( options_.json, columns );
   for ( std::size_t number = 1; number <= frames.size(); ++number ) {
      try {
         road( frames[number - 1], number, printer );
      } catch ( const NoAgent & ) {
         throw;
      } catch ( const Velto::RangeError & e ) {
         throw Velto::RangeError( options_.capture.empty()
                                        ? e.what()
                                        : options_.capture + ": frame " + std::to_string( number ) +
                                                ": " + e.what() );
      }
   }
   printer.end();
   return 0;
}

void
Ctl::road( const String & fields, std::size_t number, Printer & printer ) {
   std::vector< String > words = { "hw", "frame", options_.path };
   if ( !fields.empty() ) {
      words.push_back( fields );
   }
   client_.ask( { { "do", "show" }, { "words", words } } );
   for ( Json line; client_.more( line ); ) {
      if ( !options_.capture.empty() ) {
         line["row"]["frame"] = number;
      }
      printer.row( line.at( "row" ) );
   }
}

int
Ctl::get() {
   Json value = client_.ask( { { "do", "get" }, { "path", options_.path } } ).at( "value" );
   if ( options_.json ) {
      printJson( value );
   } else {
      print( Kiv::printable( value ) + "\n" );
   }
   return 0;
}

/** Several values are set together, or none of them. */
int
Ctl::set() {
   if ( options_.words.size() % 2 ) {
      throw Velto::RangeError( "set: every PATH needs a VALUE" );
   }
   Json values = Json::object();
   for ( std::size_t i = 0; i < options_.words.size(); i += 2 ) {
      if ( values.contains( options_.words[i] ) ) {
         throw Velto::RangeError( "set: " + options_.words[i] + " is there twice" );
      }
      values[options_.words[i]] = options_.words[i + 1];
   }
   client_.ask( { { "do", "set" }, { "values", values } } );
   return 0;
}

int
Ctl::change( const char * what ) {
   client_.ask( { { "do", what }, { "path", options_.path } } );
   return 0;
}

/** A line as of a stream of events, or its kind and FIELD=VALUE for each field. */
int
Ctl::event() {
   Json line = Json::parse( options_.words[0], nullptr, false );
   if ( !line.is_object() ) {
      if ( options_.words[0].starts_with( "{" ) ) {
         throw Velto::RangeError( "event: not valid JSON: " + options_.words[0] );
      }
      line = { { "event", options_.words[0] } };
      for ( std::size_t i = 1; i < options_.words.size(); ++i ) {
         const String & word = options_.words[i];
         const auto end = word.find( '=' );
         if ( end == String::npos ) {
            throw Velto::RangeError( "event: expected FIELD=VALUE, found '" + word + "'" );
         }
         const String value = word.substr( end + 1 );
         const Json parsed = Json::parse( value, nullptr, false );
         line[word.substr( 0, end )] = parsed.is_discarded() ? Json( value ) : parsed;
      }
   }
   client_.ask( { { "do", "event" }, { "line", line } } );
   return 0;
}

int
Ctl::trace() {
   Json request = { { "do", "trace" }, { "facility", options_.path } };
   if ( options_.value != "off" ) {
      request["level"] = U32( levelOf( options_.value ) );
   }
   client_.ask( request );
   return 0;
}

int
Ctl::logLevel() {
   client_.ask( { { "do", "logLevel" }, { "level", levelOf( options_.value ) } } );
   return 0;
}

int
Ctl::complete() {
   const Json all =
         client_.ask( { { "do", "complete" }, { "words", options_.words } } ).at( "words" );
   for ( auto & word : all ) {
      print( Kiv::printable( word ) + "\n" );
   }
   return 0;
}

int
Ctl::watch() {
   client_.ask( { { "do", "watch" }, { "path", options_.path } } );
   client_.timeoutDel();
   for ( Json line; client_.next( line ); ) {
      if ( line.contains( "ok" ) ) {
         continue; // all that was there has been told
      }
      printChange( line );
      checkOutput( std::fflush( stdout ) == 0 );
   }
   throw NoAgent( options_.socket + ": the agent ended" );
}

void
Ctl::printChange( const Json & line ) const {
   if ( options_.json ) {
      Json whole = line;
      if ( options_.stamps ) {
         whole["time"] = clockText( Kiv::now() );
      }
      printJson( whole, -1 );
      return;
   }
   String text = ( options_.stamps ? clockText( Kiv::now() ) + " " : "" ) +
                 Kiv::printable( line.at( "path" ) );
   if ( line.contains( "entity" ) ) {
      text += line.at( "entity" ).get< bool >() ? "" : " is gone";
   } else {
      auto & value = line.at( "value" );
      text += value.is_null() ? " is gone" : " = " + Kiv::printable( value );
   }
   print( text + "\n" );
}

/** Until the value at a path is what it shall be; "None" while there is none. */
int
Ctl::waitUntil() {
   const auto deadline =
         std::chrono::steady_clock::now() + std::chrono::duration< double >( options_.seconds );
   client_.ask( { { "do", "watch" }, { "path", options_.path } } );
   String value = "None";
   bool present = false; // all that was there has been told
   for ( Json line;; ) {
      const std::chrono::duration< double > left = deadline - std::chrono::steady_clock::now();
      client_.timeoutIs( std::max( left.count(), 0.001 ) );
      try {
         if ( left.count() <= 0 && present ) {
            throw Silence( "" ); // lines that never end are no answer
         }
         if ( !client_.next( line ) ) {
            throw NoAgent( options_.socket + ": the agent ended" );
         }
      } catch ( const Silence & ) {
         throw Velto::RangeError( options_.path + ": is " + value + " and not " + options_.value +
                                  " after " + jsonText( options_.seconds ) + " s" );
      }
      present = present || line.contains( "ok" );
      if ( line.contains( "value" ) && line.at( "path" ) == options_.path ) {
         value = line.at( "value" ).is_null() ? "None" : line.at( "value" ).get< String >();
      } else if ( line.contains( "entity" ) && !line.at( "entity" ).get< bool >() &&
                  options_.path.starts_with( line.at( "path" ).get< String >() ) ) {
         value = "None";
      }
      if ( present && value == options_.value ) {
         return 0;
      }
   }
}

int
Ctl::dump() {
   client_.ask( { { "do", "dump" }, { "path", options_.path } } );
   JsonList list( "{}" );
   for ( Json line; client_.more( line ); ) {
      list.entry( jsonText( line.at( "path" ) ) + ": " +
                  jsonText( line.value( "value", Json() ) ) );
   }
   list.end();
   return 0;
}

int
Ctl::raise() {
   Json answer = client_.ask(
         { { "do", "raise" }, { "message", options_.message }, { "arguments", options_.words } } );
   if ( !answer.at( "emitted" ).get< bool >() ) {
      std::fprintf( stderr, "qonctl: held back, the message was raised too short a time ago\n" );
   }
   return 0;
}

int
Ctl::run() {
   client_.timeoutDel(); // it takes as long as the agent has to do
   Json uptime = client_.ask( { { "do", "run" }, { "seconds", options_.seconds } } ).at( "uptime" );
   std::printf( "uptime %.3f s\n", uptime.get< double >() );
   return 0;
}

int
Ctl::verify() {
   String name = client_.ask( { { "do", "help" } } ).at( "verification" );
   Json rows = Json::array();
   for ( auto & finding : client_.verify( name ) ) {
      for ( auto & [place, text] : finding.items() ) {
         rows.push_back( { { "place", place }, { "finding", text } } );
      }
   }
   if ( !rows.empty() || options_.json ) {
      printTable( { column( "place", "Place" ), column( "finding", "Finding" ) }, rows );
   } else {
      print( "no findings\n" );
   }
   return rows.empty() ? 0 : exitRefused;
}

using Command = std::function< int( Ctl & ) >;

void
describeFrame( CLI::App & frame, Options & options ) {
   frame.add_option( "PORT", options.path, "where it arrives" )->required();
   auto fields = frame.add_option( "FIELD=VALUE", options.words,
                                   "dmac, smac, vlan, inner, priority, ethertype, src, dst, "
                                   "protocol, sport, dport, flags, icmp, code, fragment" );
   frame.add_option( "--capture", options.capture,
                     "the frames of a file (pcap) instead; - is standard input" )
         ->type_name( "FILE" )
         ->excludes( fields );
}

/** Declares the subcommands; the one that is given leaves what to do in `command`. */
void
describe( CLI::App & app, Options & options, Command & command ) {
   auto sub = [&]( const char * name, const char * help, Command does ) {
      auto added = app.add_subcommand( name, help );
      added->fallthrough();
      added->callback( [&command, does] { command = does; } );
      return added;
   };
   auto path = [&]( CLI::App * added ) {
      added->add_option( "PATH", options.path, "path in the state database" )->required();
      return added;
   };
   sub( "show", "show a table; alone: the tables there are", &Ctl::show )
         ->add_option( "WHAT", options.words, "name of the table, and its arguments" );
   describeFrame(
         *sub( "frame", "ask the chip in software what becomes of a frame at a port", &Ctl::frame ),
         options );
   path( sub( "get", "print the value at a path", &Ctl::get ) );
   sub( "set", "set the value at a path; several are set together, or none of them", &Ctl::set )
         ->add_option( "PATH_VALUE", options.words, "a path and its text, as often as needed" )
         ->required()
         ->expected( 2, -1 );
   path( sub( "insert", "make the entity at a path",
              []( Ctl & c ) { return c.change( "insert" ); } ) );
   path( sub( "delete", "remove what is at a path",
              []( Ctl & c ) { return c.change( "delete" ); } ) );
   sub( "event", "let an event happen, of the kinds that qon-agent --events plays", &Ctl::event )
         ->add_option( "EVENT", options.words,
                       "its kind, then FIELD=VALUE for each field; or a line" )
         ->required();
   path( sub( "watch", "print what is below a path, then every change, until interrupted",
              &Ctl::watch ) )
         ->add_flag( "-t,--stamps", options.stamps, "with the time of day at which it came" );
   auto wait = path( sub( "wait-until",
                          "wait until the value at a path is this one; exit code 1 if "
                          "it does not come to it in time",
                          &Ctl::waitUntil ) );
   wait->add_option( "VALUE", options.value, "its text; None: there is none" )->required();
   options.seconds = 60;
   wait->add_option( "--timeout,--within", options.seconds, "seconds to wait" )
         ->check( aTime )
         ->capture_default_str();
   auto trace = sub( "trace", "print the traces of a facility where the agent's messages go",
                     &Ctl::trace );
   trace->add_option( "FACILITY", options.path, "its name" )->required();
   trace->add_option( "LEVEL", options.value, "up to which level of detail, 0 to 9; or off" )
         ->required();
   sub( "log-level",
        "pass on messages of the log up to a severity: 3 errors, 4 warnings, 5 notices, 6 "
        "all",
        &Ctl::logLevel )
         ->add_option( "SEVERITY", options.value, "a number" )
         ->required();
   sub( "complete", "print what the last word of a command line can become", &Ctl::complete )
         ->add_option( "WORD", options.words, "the words of the line, behind --" );
   sub( "dump", "print a snapshot that qon-agent --state reads; without a path, of everything",
        &Ctl::dump )
         ->add_option( "PATH", options.path, "path in the state database" );
   auto raise = sub( "raise", "raise a message of the log by its name", &Ctl::raise );
   raise->add_option( "MESSAGE", options.message, "its name, see 'show messages'" )->required();
   raise->add_option( "ARGUMENT", options.words, "one for each conversion of its format" );
   sub( "run", "let an agent on virtual time run on", &Ctl::run )
         ->add_option( "SECONDS", options.seconds, "for how long" )
         ->required();
   sub( "verify", "let the agent verify itself; exit code 1 if it finds something", &Ctl::verify );
}

/** The commands that begin so. */
void
printCommands( const CLI::App & app, const String & typed ) {
   for ( auto command : app.get_subcommands( {} ) ) {
      if ( command->get_name().starts_with( typed ) ) {
         print( command->get_name() + "\n" );
      }
   }
}

const char examples[] =
      "Examples:\n"
      "  qonctl show                               what can be shown\n"
      "  qonctl show port-channel\n"
      "  qonctl show port-channel members PortChannel1 --json\n"
      "  qonctl show entity interface/status/eth/lag\n"
      "  qonctl frame Ethernet0 dmac=02:11:22:00:00:01 vlan=10\n"
      "  qonctl frame Ethernet0 --capture trace.pcap\n"
      "  qonctl get 'acsd/portToLag[Ethernet0]'\n"
      "  qonctl set 'interface/status/eth/phy/intfStatus[Ethernet0]/linkUp' False\n"
      "  qonctl event link port=Ethernet0 up=false\n"
      "  qonctl wait-until 'acsd/portToLag[Ethernet0]' Port-Channel7 --timeout 10\n"
      "  qonctl insert 'interface/status/eth/lag/intfStatus[Port-Channel7]'\n"
      "  qonctl delete 'interface/status/eth/lag/intfStatus[Port-Channel7]'\n"
      "  qonctl watch acsd/lagToPort\n"
      "  qonctl raise ETH_MACADDRBANKFULL switch1 00:11:22:33:44:55 10\n"
      "  qonctl verify\n\n"
      "Exit codes: 0 done, 1 the agent refused, verification found something, or the output could\n"
      "not be written, 2 no agent, or a wrong command line.";

} // namespace

int
main( int argc, char ** argv ) {
   Options options;
   Command command;
   CLI::App app( "Console of a running qon-agent." );
   app.add_option( "-s,--socket", options.socket, "the agent's socket" )->type_name( "PATH" );
   app.add_option( "--wait", options.wait, "seconds to wait for the agent to be there" )
         ->check( aTime );
   app.add_option( "--timeout", options.timeout,
                   "seconds after which an agent that says nothing is given up; 0: never" )
         ->check( aTime )
         ->capture_default_str();
   app.set_version_flag( "--version", "qonctl " + agentVersion() );
   app.failure_message( []( const CLI::App *, const CLI::Error & e ) {
      return "qonctl: error: " + Kiv::printable( e.what() ) + "; --help tells more\n";
   } );
   app.add_flag( "--json", options.json, "JSON instead of tables, for scripts" );
   app.require_subcommand( 1 );
   app.footer( examples );
   describe( app, options, command );
   try {
      app.parse( argc, argv );
   } catch ( const CLI::ParseError & e ) {
      return app.exit( e ) ? exitNoAgent : 0;
   }
   auto failed = []( const String & why, int code ) {
      std::fprintf( stderr, "qonctl: %s\n", Kiv::printable( why ).c_str() );
      return code;
   };
   if ( app.got_subcommand( "complete" ) && options.words.size() < 2 ) {
      printCommands( app, options.words.empty() ? "" : options.words[0] );
      return 0;
   }
   String note; // behind errors about the socket
   try {
      if ( app.count( "--socket" ) && options.socket.empty() ) {
         throw NoAgent( "--socket: a path is expected, it is empty" );
      }
      if ( options.socket.empty() ) {
         const SocketChoice choice = chosenSocket();
         options.socket = choice.path;
         note = choice.ofEnvironment ? socketFromEnvironment : "";
      }
      Ctl ctl( options );
      const int code = command( ctl );
      checkOutput( std::fflush( stdout ) == 0 );
      return code;
   } catch ( const NoAgent & e ) {
      return failed( e.what() + note, exitNoAgent );
   } catch ( const Velto::RangeError & e ) {
      return failed( e.what(), exitRefused );
   } catch ( const Json::exception & e ) {
      return failed( String( "the agent's answer is not what it should be: " ) + e.what(),
                     exitNoAgent );
   }
}
