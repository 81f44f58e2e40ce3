#include "agent/fib/FibWriter.h"

#include <cstring>
#include <random>

namespace QonAgent {

using namespace Quarn::Fib;

namespace {

/** The bytes of what a class says. */
String
bytesOf( const FibContent & content ) {
   static_assert( std::has_unique_object_representations_v< Quarn::Fib::Via > );
   String bytes( 1, char( content.type ) );
   bytes.append( reinterpret_cast< const char * >( content.vias.data() ),
                 content.vias.size() * sizeof( Quarn::Fib::Via ) );
   return bytes;
}

[[noreturn]] void
noRoom( const char * table ) {
   throw Velto::RangeError( String( "the table of " ) + table + " has no room" );
}

} // namespace

FibWriter::FibWriter( Quarn::Server * server, const FibRoom & room )
    : vias_( server, viaTable, { room.vias } ), fecs_( server, fecTable, { room.fecs } ),
      routes_( server, routeTable, { room.routes } ), version_( std::random_device()() ) {}

void
FibWriter::apply( const FibLine & line ) {
   if ( !line.ofRoute ) {
      line.removed ? void( fecDel( *line.fec ) ) : fecIs( *line.fec, line.content );
   } else if ( line.removed ) {
      routeDel( line.route );
   } else if ( line.fec ) {
      routeIs( line.route, *line.fec );
   } else {
      routeIs( line.route, line.content );
   }
}

void
FibWriter::routeIs( const RouteKey & route, const FibContent & content ) {
   const GlobalFecId fec = fecOf( content );
   ++shared_.find( fec )->routes;
   if ( !leadsTo( route, fec ) ) {
      release( fec );
      noRoom( "routes" );
   }
}

void
FibWriter::routeIs( const RouteKey & route, GlobalFecId fec ) {
   if ( !leadsTo( route, fec ) ) {
      noRoom( "routes" );
   }
}

/** False if there is no room. What the route led to before is let go. */
bool
FibWriter::leadsTo( const RouteKey & route, GlobalFecId fec ) {
   const Route * held = routes_.value( route );
   const GlobalFecId former = held ? held->fecId() : GlobalFecId();
   Route wanted;
   wanted.fec = fec.value();
   if ( !routes_.valueIs( route, wanted ) ) {
      return false;
   }
   release( former );
   return true;
}

bool
FibWriter::routeDel( const RouteKey & route ) {
   const Route * held = routes_.value( route );
   const GlobalFecId former = held ? held->fecId() : GlobalFecId();
   if ( !routes_.valueDel( route ) ) {
      return false;
   }
   release( former );
   return true;
}

/** A route leads there no more. Nothing of a class that a line has named. */
void
FibWriter::release( GlobalFecId fec ) {
   Shared * shared = shared_.find( fec );
   if ( shared && --shared->routes == 0 ) {
      own_.erase( shared->content );
      shared_.erase( fec );
      fecDel( fec );
   }
}

/** The class of these next hops, which is made if there is none. */
GlobalFecId
FibWriter::fecOf( const FibContent & content ) {
   const auto [at, fresh] = own_.try_emplace( bytesOf( content ), GlobalFecId( nextOwn_ ) );
   if ( fresh ) {
      try {
         fecIs( at->second, content );
      } catch ( ... ) {
         own_.erase( at );
         throw;
      }
      ++nextOwn_;
      shared_.emplace( at->second, Shared{ at, 0 } );
   }
   return at->second;
}

void
FibWriter::fecIs( GlobalFecId fec, const FibContent & content ) {
   const FecKey key( fec );
   const Fec * held = fecs_.value( key );
   const Fec former = held ? *held : Fec();
   const auto formerVias = viasOf( fec, former.vias );
   Fec wanted;
   wanted.type = content.type;
   wanted.vias = U32( content.vias.size() );
   wanted.version = ++version_;
   const bool enough = viasAre( fec, content.vias, wanted.version );
   if ( !enough || !fecs_.valueIs( key, wanted ) ) {
      viasAre( fec, formerVias, former.version ); // they have their places
      viasDel( fec, former.vias, wanted.vias );
      noRoom( enough ? "classes" : "vias" );
   }
   viasDel( fec, wanted.vias, former.vias );
}

bool
FibWriter::fecDel( GlobalFecId fec ) {
   const Fec * held = fecs_.value( FecKey( fec ) );
   const U32 count = held ? held->vias : 0;
   const bool was = fecs_.valueDel( FecKey( fec ) );
   if ( was ) {
      viasDel( fec, 0, count );
   }
   return was;
}

/** False when there is no room for one of them. */
bool
FibWriter::viasAre( GlobalFecId fec, const std::vector< Via > & vias, U32 version ) {
   for ( U32 i = 0; i < vias.size(); ++i ) {
      Via via = vias[i];
      via.version = version;
      if ( !vias_.valueIs( ViaKey( fec, i ), via ) ) {
         return false;
      }
   }
   return true;
}

std::vector< Quarn::Fib::Via >
FibWriter::viasOf( GlobalFecId fec, U32 count ) const {
   std::vector< Via > vias;
   for ( U32 i = 0; i < count; ++i ) {
      vias.push_back( *vias_.value( ViaKey( fec, i ) ) );
   }
   return vias;
}

void
FibWriter::viasDel( GlobalFecId fec, U32 from, U32 to ) {
   for ( U32 i = from; i < to; ++i ) {
      vias_.valueDel( ViaKey( fec, i ) );
   }
}

void
FibWriter::completeIs( bool v ) {
   vias_.completeIs( v );
   fecs_.completeIs( v );
   routes_.completeIs( v );
}

} // namespace QonAgent
