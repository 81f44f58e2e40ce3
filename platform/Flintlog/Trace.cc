#include "platform/Flintlog/Listen.h"

#include <algorithm>
#include <cinttypes>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "platform/Velto/Assert.h"

namespace Flintlog {

using Velto::String;

namespace {

struct Registry {
   std::vector< Facility * > facilities;
   std::map< String, U8 > finest;        ///< by facility name, where it was set
   std::map< String, Sink * > listeners; ///< by facility name
   Sink * sink = nullptr;
};

/** Constructed by the first facility, so that it outlives all static ones. */
Registry &
registry() {
   static Registry all;
   return all;
}

String &
directory() {
   static String path;
   return path;
}

String
pathOf( String name ) {
   std::replace( name.begin(), name.end(), '/', '_' );
   return ( directory().empty() ? name : directory() + "/" + name ) + ".qt";
}

} // namespace

Sink *
sinkIs( Sink * sink ) {
   Sink * before = std::exchange( registry().sink, sink );
   for ( Facility * facility : registry().facilities ) {
      facility->update();
   }
   return before;
}

void
levelIs( const String & name, U8 finest ) {
   registry().finest[name] = finest;
   for ( Facility * facility : registry().facilities ) {
      facility->update();
   }
}

std::vector< String >
facilities() {
   std::set< String > names;
   for ( Facility * facility : registry().facilities ) {
      names.insert( facility->name() );
   }
   return { names.begin(), names.end() };
}

void
listen( const String & name, Sink * sink, U8 finest ) {
   bool found = false;
   for ( Facility * facility : registry().facilities ) {
      if ( facility->name() == name ) {
         found = true;
         facility->sinkIs( sink );
      }
   }
   if ( !found ) {
      String known;
      for ( auto & other : facilities() ) {
         known += ( known.empty() ? "" : ", " ) + other;
      }
      throw Velto::RangeError( "there is no facility '" + name + "'; there are: " + known );
   }
   registry().listeners[name] = sink;
   levelIs( name, sink ? finest : finestLevel );
}

void
unlisten( const Sink * sink ) {
   for ( auto & [name, listener] : registry().listeners ) {
      if ( listener == sink ) {
         listen( name, nullptr, finestLevel );
      }
   }
}

Facility::Facility( const char * name ) : name_( name ) {
   registry().facilities.push_back( this );
   update();
}

Facility::~Facility() {
   std::erase( registry().facilities, this );
}

void
Facility::sinkIs( Sink * sink ) {
   sink_ = sink;
   update();
}

void
Facility::update() {
   bool listens = sink_ || registry().sink;
   auto set = registry().finest.find( name_ );
   U8 finest = set == registry().finest.end() ? finestLevel : std::min( set->second, finestLevel );
   heardBelow_ = listens ? U8( finest + 1 ) : U8( 0 );
}

void
Facility::write( U8 level, const String & text ) const {
   if ( Sink * sink = sink_ ? sink_ : registry().sink ) {
      sink->trace( name_, level, text );
   }
}

Handle::Handle( const String & name, U8 finest )
    : path_( pathOf( name ) ), finest_( finest ), file_( std::fopen( path_.c_str(), "ae" ) ) {
   if ( file_ ) {
      std::setvbuf( file_, nullptr, _IOLBF, 0 ); // what was traced before a crash is kept
   }
}

Handle::~Handle() {
   if ( file_ ) {
      std::fclose( file_ );
   }
}

void
Handle::trace( const char * facility, U8 level, const String & text ) {
   if ( file_ && level <= finest_ ) {
      std::fprintf( file_, "%" PRIu32 " %s %u %s\n", ++lines_, facility, unsigned( level ),
                    text.c_str() );
   }
}

void
Handle::directoryIs( const String & path ) {
   directory() = path;
}

void
append( String & text, std::string_view piece ) {
   text += piece;
}

void
append( String & text, S64 number ) {
   text += std::to_string( number );
}

void
append( String & text, U64 number ) {
   text += std::to_string( number );
}

void
append( String & text, double number ) {
   char shown[32];
   std::snprintf( shown, sizeof shown, "%.15g", number );
   text += shown;
}

} // namespace Flintlog
