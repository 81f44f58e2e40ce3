#pragma once
// An agent on real time that follows a forwarding table, and the writer of it, in one process.

#include <filesystem>
#include <unistd.h>

#include "agent/Agent.h"
#include "agent/features/FibFeature.h"
#include "agent/fib/FibWriter.h"
#include "agent/softchip/Chip.h"
#include "tests/harness/World.h"

namespace Tests {

/** A folder for sockets, with all that is in it gone at the end. */
class SocketFolder {
 public:
   SocketFolder() {
      char path[] = "/tmp/qon-fib.XXXXXX";
      path_ = mkdtemp( path );
   }
   ~SocketFolder() { std::filesystem::remove_all( path_ ); }
   String operator/( const String & name ) const { return path_ + "/" + name; }

 private:
   String path_;
};

/** Tables of a server, for values as they come. */
struct RawTables {
   explicit RawTables( Kiv::EventLoop & loop, const String & path )
       : server( &loop, path ), vias( &server, Quarn::Fib::viaTable ),
         fecs( &server, Quarn::Fib::fecTable ), routes( &server, Quarn::Fib::routeTable ) {
      vias.completeIs( true );
      fecs.completeIs( true );
      routes.completeIs( true );
   }
   Quarn::Server server;
   Quarn::TableWriter< Quarn::Fib::ViaKey, Quarn::Fib::Via > vias;
   Quarn::TableWriter< Quarn::Fib::FecKey, Quarn::Fib::Fec > fecs;
   Quarn::TableWriter< Quarn::Fib::RouteKey, Quarn::Fib::Route > routes;
};

/** What qon-fib would do with a file. */
class FibFile {
 public:
   FibFile( Kiv::EventLoop & loop, const String & path, const QonAgent::FibRoom & room = {} )
       : server_( &loop, path ), writer( &server_, room ) {}
   void lines( const String & text ) {
      QonAgent::eachFibLine( "f", text,
                             [this]( QonAgent::FibLine && line ) { writer.apply( line ); } );
   }

 private:
   Quarn::Server server_;

 public:
   QonAgent::FibWriter writer;
};

class FibWorld {
 public:
   FibWorld() { feature = &dynamic_cast< QonAgent::FibFeature & >( *agent.features().back() ); }
   void attach( Velto::Ptr< Qon::AdjPrefixCountStatus > counts = nullptr ) {
      feature->attach( &loop, path, std::move( counts ) );
   }
   QonAgent::FibReader & reader() { return *feature->reader(); }
   QonAgent::FibInstaller & installer() { return *feature->installer(); }
   /** Until all that the tables say is done: whoever writes has been awake, and nobody is behind. */
   void rest() {
      for ( U32 quiet = 0; quiet < 4; ) {
         loop.runOnce( 0.001 );
         quiet = reader().idle() && installer().idle() ? quiet + 1 : 0;
      }
      EXPECT_EQ( reader().checkInvariants(), "" );
      EXPECT_EQ( installer().checkInvariants(), "" );
   }
   template< class Done >
   bool runUntil( Done && done ) {
      const double end = Kiv::now() + 10;
      while ( !done() && Kiv::now() < end ) {
         loop.runOnce( 0.02 );
      }
      return done();
   }
   /** `show WORDS`: a line a row, of these fields. */
   String shown( const String & words, const std::vector< String > & fields );
   /** The next hops of the adjacency of a FEC, and what is wrong. */
   String fec( U64 id ) {
      return shown( "fec " + Kiv::toText( id ), { "nextHops", "state", "why" } );
   }

   SocketFolder folder;
   const String path = folder / "fib";
   Kiv::EventLoop loop;
   Kiv::LogRecorder logs;
   SoftChip::Chip chip{ loop };
   QonAgent::Agent agent{ loop, chip, { QonAgent::fibFeature() } };
   QonAgent::FibFeature * feature;
};

inline String
FibWorld::shown( const String & words, const std::vector< String > & fields ) {
   const auto commands = agent.showCommands();
   const auto split = Kiv::split( words, ' ' );
   auto rows = QonAgent::runShow( agent, *QonAgent::findShow( commands, split ), split );
   String text;
   while ( const QonAgent::Row * row = rows.next() ) {
      String line;
      for ( auto & field : fields ) {
         for ( auto & [name, value] : row->fields() ) {
            if ( field != name ) {
               continue;
            }
            line += line.empty() ? "" : " | ";
            if ( auto * s = std::get_if< String >( &value.held() ) ) {
               line += *s;
            } else if ( auto * n = std::get_if< U64 >( &value.held() ) ) {
               line += Kiv::toText( *n );
            } else if ( auto * list = std::get_if< QonAgent::Value::List >( &value.held() ) ) {
               for ( auto & part : *list ) {
                  line += ( &part == &list->front() ? "" : ", " ) + part;
               }
            }
         }
      }
      text += ( text.empty() ? "" : "\n" ) + line;
   }
   return text;
}

} // namespace Tests
