// qonctl: the console of a running qon-agent.

#include <sys/ioctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>
#include <nlohmann/json.hpp>

#include "agent/base/Printable.h"
#include "agent/base/Version.h"
#include "agent/ctl/Client.h"
#include "agent/ctl/Table.h"
#include "agent/server/SocketServer.h"

namespace {

using namespace QonAgent;

constexpr int exitRefused = 1; // also: verification has findings
constexpr int exitNoAgent = 2; // also: the command line is wrong

struct Options {
   String socket; // empty: the one of the environment, or the default
   double wait = 0;
   double timeout = 30;
   bool json = false;
   String path;
   String value;
   String message;
   double seconds = 0;
   std::vector< String > words;
};

void
print( const String & text ) {
   std::fputs( text.c_str(), stdout );
}

String
jsonText( const Json & json, int indent = -1 ) {
   return json.dump( indent, ' ', false, Json::error_handler_t::replace );
}

void
printJson( const Json & json, int indent = 2 ) {
   print( jsonText( json, indent ) + "\n" );
}

/** How wide a table may be: as the terminal is, or as it gets. */
U32
tableWidth() {
   winsize size = {};
   return ioctl( STDOUT_FILENO, TIOCGWINSZ, &size ) == 0 ? size.ws_col : 0;
}

/** The rows of a table that the console makes itself. */
Json
column( const char * field, const char * heading ) {
   return { { "field", field }, { "heading", heading }, { "numeric", false } };
}

/** Entries of a JSON array or object, a line each, as they come. */
class JsonList {
 public:
   explicit JsonList( const char * brackets ) : brackets_( brackets ) {}
   void entry( const String & text ) {
      print( ( begun_ ? ",\n  " : String( 1, brackets_[0] ) + "\n  " ) + text );
      begun_ = true;
   }
   void end() {
      print( begun_ ? String( "\n" ) + brackets_[1] + "\n" : String( brackets_ ) + "\n" );
   }

 private:
   const char * const brackets_;
   bool begun_ = false;
};

class Ctl {
 public:
   explicit Ctl( const Options & options )
       : options_( options ), client_( options.socket, options.wait, options.timeout ) {}

   int show();
   int get();
   int change( const char * what );
   int watch();
   int dump();
   int raise();
   int run();
   int verify();

 private:
   int showHelp();
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
   JsonList list( "[]" );
   Table table( head.at( "columns" ), tableWidth(), print );
   for ( Json line; client_.more( line ); ) {
      if ( options_.json ) {
         list.entry( jsonText( line.at( "row" ) ) );
      } else {
         table.row( line.at( "row" ) );
      }
   }
   options_.json ? list.end() : table.end();
   return 0;
}

int
Ctl::get() {
   Json value = client_.ask( { { "do", "get" }, { "path", options_.path } } ).at( "value" );
   if ( options_.json ) {
      printJson( value );
   } else {
      print( printable( value ) + "\n" );
   }
   return 0;
}

int
Ctl::change( const char * what ) {
   Json request = { { "do", what }, { "path", options_.path } };
   if ( String( what ) == "set" ) {
      request["value"] = options_.value;
   }
   client_.ask( request );
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
      if ( options_.json ) {
         printJson( line, -1 );
      } else if ( line.contains( "entity" ) ) {
         print( printable( line.at( "path" ) ) +
                ( line.at( "entity" ).get< bool >() ? "\n" : " is gone\n" ) );
      } else {
         auto & value = line.at( "value" );
         print( printable( line.at( "path" ) ) +
                ( value.is_null() ? " is gone" : " = " + printable( value ) ) + "\n" );
      }
      std::fflush( stdout );
   }
   throw NoAgent( options_.socket + ": the agent ended" );
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
   path( sub( "get", "print the value at a path", &Ctl::get ) );
   path( sub( "set", "set the value at a path", []( Ctl & c ) { return c.change( "set" ); } ) )
         ->add_option( "VALUE", options.value, "its text" )
         ->required();
   path( sub( "insert", "make the entity at a path",
              []( Ctl & c ) { return c.change( "insert" ); } ) );
   path( sub( "delete", "remove what is at a path",
              []( Ctl & c ) { return c.change( "delete" ); } ) );
   path( sub( "watch", "print what is below a path, then every change, until interrupted",
              &Ctl::watch ) );
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

const char examples[] =
      "Examples:\n"
      "  qonctl show                               what can be shown\n"
      "  qonctl show port-channel\n"
      "  qonctl show port-channel members PortChannel1 --json\n"
      "  qonctl show entity interface/status/eth/lag\n"
      "  qonctl get 'acsd/portToLag[Ethernet0]'\n"
      "  qonctl set 'interface/status/eth/phy/intfStatus[Ethernet0]/linkUp' False\n"
      "  qonctl insert 'interface/status/eth/lag/intfStatus[Port-Channel7]'\n"
      "  qonctl delete 'interface/status/eth/lag/intfStatus[Port-Channel7]'\n"
      "  qonctl watch acsd/lagToPort\n"
      "  qonctl raise ETH_MACADDRBANKFULL switch1 00:11:22:33:44:55 10\n"
      "  qonctl verify\n\n"
      "Exit codes: 0 done, 1 the agent refused or verification found something,\n"
      "2 no agent, or a wrong command line.";

} // namespace

int
main( int argc, char ** argv ) {
   Options options;
   Command command;
   CLI::App app( "Console of a running qon-agent." );
   app.add_option( "-s,--socket", options.socket, "the agent's socket" )->type_name( "PATH" );
   app.add_option( "--wait", options.wait, "seconds to wait for the agent to be there" );
   app.add_option( "--timeout", options.timeout,
                   "seconds after which an agent that says nothing is given up; 0: never" )
         ->capture_default_str();
   app.set_version_flag( "--version", "qonctl " + agentVersion() );
   app.failure_message( []( const CLI::App *, const CLI::Error & e ) {
      return String( "qonctl: error: " ) + e.what() + "; --help tells more\n";
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
      std::fprintf( stderr, "qonctl: %s\n", printable( why ).c_str() );
      return code;
   };
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
      return command( ctl );
   } catch ( const NoAgent & e ) {
      return failed( e.what() + note, exitNoAgent );
   } catch ( const Velto::RangeError & e ) {
      return failed( e.what(), exitRefused );
   } catch ( const Json::exception & e ) {
      return failed( String( "the agent's answer is not what it should be: " ) + e.what(),
                     exitNoAgent );
   }
}
