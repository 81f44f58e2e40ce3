// qon-fib: writes a forwarding table into shared memory, for the agents that follow it, and changes it
// at a rate.

#include <CLI/CLI.hpp>
#include <cstdio>

#include "agent/base/FileMode.h"
#include "agent/base/ReadFile.h"
#include "agent/base/SignalWatch.h"
#include "agent/base/Version.h"
#include "agent/fib/FibWriter.h"
#include "platform/Kiv/Alarm.h"
#include "platform/Kiv/Printable.h"

namespace {

using namespace QonAgent;

constexpr int exitBadInput = 2;
constexpr Kiv::Seconds tick = 0.001;

struct Options {
   String fib;
   String routes;
   String changes;
   U32 rate = 1000;
   U32 rounds = 1;
   U32 mode = 0600;
   FibRoom room;
   bool once = false;
};

void
say( const String & line ) {
   std::fprintf( stderr, "qon-fib: %s\n", Kiv::printable( line ).c_str() );
}

/** Applies changes as their time comes. What has no room is said, and the rest goes on. */
class Replay {
 public:
   Replay( FibWriter & writer, std::vector< FibLine > && changes, const Options & options )
       : writer_( writer ), changes_( std::move( changes ) ), rate_( options.rate ),
         left_( U64( options.rounds ) * changes_.size() ), began_( Kiv::now() ) {
      if ( left_ ) {
         alarm_.in( 0 );
      }
   }
   bool done() const { return left_ == 0; }

 private:
   void ring() {
      const U64 due = U64( ( Kiv::now() - began_ ) * rate_ ) + 1;
      for ( ; left_ && made_ < due; ++made_, --left_ ) {
         try {
            writer_.apply( changes_[made_ % changes_.size()] );
         } catch ( const Velto::RangeError & e ) {
            refused_ += refused_ ? 0 : ( say( String( "warning: " ) + e.what() ), 1 );
         }
      }
      if ( left_ ) {
         alarm_.in( tick );
      } else {
         char line[100];
         const double span = std::max( Kiv::now() - began_, tick );
         std::snprintf( line, sizeof( line ), "%llu changes in %.3f s",
                        static_cast< unsigned long long >( made_ ), span );
         say( line );
      }
   }

   FibWriter & writer_;
   const std::vector< FibLine > changes_;
   const U32 rate_;
   U64 left_;
   U64 made_ = 0;
   U32 refused_ = 0;
   const Kiv::Seconds began_;
   Kiv::Alarm alarm_{ [this] { ring(); } };
};

/** Everything is read and checked before anything is written. */
std::vector< FibLine >
linesOf( const String & file ) {
   std::vector< FibLine > lines;
   if ( !file.empty() ) {
      eachFibLine( file, readFile( file ), [&]( FibLine && line ) { lines.push_back( line ); } );
   }
   return lines;
}

void
run( const Options & options ) {
   Kiv::EventLoop loop;
   SignalWatch signals( loop );
   auto lines = linesOf( options.routes );
   auto changes = linesOf( options.changes );
   Quarn::Server server( &loop, options.fib, options.mode );
   FibWriter writer( &server, options.room );
   for ( auto & line : lines ) {
      writer.apply( line );
   }
   std::vector< FibLine >().swap( lines );
   writer.completeIs( true );
   say( "ready, serving " + options.fib + ": " + Kiv::toText( writer.routes() ) + " routes, " +
        Kiv::toText( writer.fecs() ) + " classes" );
   Replay replay( writer, std::move( changes ), options );
   while ( !signals.stopped() && !( options.once && replay.done() ) ) {
      loop.runOnce( Kiv::never );
   }
}

void
describe( CLI::App & app, Options & options ) {
   app.add_option( "ROUTES", options.routes, "a line a route; - is standard input" )->required();
   app.add_option( "-f,--fib", options.fib, "the socket where agents find the table" )
         ->type_name( "PATH" )
         ->required();
   app.add_option( "--changes", options.changes, "lines of the same kind, which are replayed" )
         ->type_name( "FILE" );
   app.add_option( "--rate", options.rate, "changes a second" )
         ->check( CLI::Range( 1u, 10000000u ) )
         ->capture_default_str();
   app.add_option( "--rounds", options.rounds, "how often the changes are replayed" )
         ->capture_default_str();
   app.add_option_function< String >(
            "--mode", [&options]( const String & text ) { options.mode = fileMode( text ); },
            "who may read, as chmod has it; unless given, 0600" )
         ->type_name( "OCTAL" );
   app.add_option( "--routes", options.room.routes, "room for so many routes" )
         ->check( CLI::Range( 1u, 1u << 27 ) )
         ->capture_default_str();
   app.add_flag( "--once", options.once, "end when the changes are replayed" );
   app.footer( "A line: VRF PREFIX NEXTHOP..., such as\n"
               "  0 10.1.0.0/16 192.0.2.1@Ethernet1 192.0.2.5@Ethernet2*3\n"
               "  0 10.2.0.0/24 @Vlan10\n"
               "  0 10.3.0.0/16 drop\n"
               "  fec 7 192.0.2.1@Ethernet1\n"
               "  0 10.4.0.0/16 fec 7\n"
               "  0 10.1.0.0/16 -\n\n"
               "Exit codes: 0 ended as asked, 2 bad input or a busy socket; one line says which." );
}

} // namespace

int
main( int argc, char ** argv ) {
   Options options;
   CLI::App app( "Writes a forwarding table into shared memory." );
   describe( app, options );
   app.set_version_flag( "--version", "qon-fib " + agentVersion() );
   app.failure_message( []( const CLI::App *, const CLI::Error & e ) {
      return "qon-fib: error: " + Kiv::printable( e.what() ) + "; --help tells more\n";
   } );
   try {
      app.parse( argc, argv );
      run( options );
   } catch ( const CLI::ParseError & e ) {
      return app.exit( e ) ? exitBadInput : 0;
   } catch ( const Velto::RangeError & e ) {
      say( String( "error: " ) + e.what() );
      return exitBadInput;
   }
   return 0;
}
