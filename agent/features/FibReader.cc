#include "agent/features/FibReader.h"

#include <algorithm>

namespace QonAgent {

using namespace Quarn::Fib;
using Qon::AdjErrorStates;
using Ulnet::AddressFamily;
using Velto::FirstError;
using Velto::Hold;

namespace {

constexpr U32 fecPriority = 3; // more urgent than routes
constexpr U32 routePriority = 4;

/** The prefix of a key; raises Velto::RangeError for a length that its family has not. */
template< class P >
P
prefixOf( const RouteKey & key ) {
   typename P::Bytes bytes;
   std::copy_n( key.address.bytes, bytes.size(), bytes.begin() );
   return P( bytes, key.length );
}

/** Calls act( prefix ) with the prefix in the type of its family. */
template< class Act >
void
withPrefix( const RouteKey & key, Act && act ) {
   if ( key.family == AddressFamily::ipv4 ) {
      act( prefixOf< Ulnet::Prefix >( key ) );
   } else {
      act( prefixOf< Ulnet::Ip6Prefix >( key ) );
   }
}

/** Whether there can be such a route: its bytes are those that its prefix has. */
bool
possible( const RouteKey & key ) {
   const bool v4 = key.family == AddressFamily::ipv4;
   if ( ( !v4 && key.family != AddressFamily::ipv6 ) || key.length > ( v4 ? 32 : 128 ) ||
        key.vrf > Qon::AdjPrefixListBaseKey::mostVrfId ) {
      return false;
   }
   return RouteKey( key.vrfId(), key.prefix() ) == key;
}

AdjErrorStates
errorOf( AdjErrorStates::Bit bit ) {
   return AdjErrorStates( bit );
}

} // namespace

// --- Followers -----------------------------------------------------------------------------------

FibReader::Routes::Routes( FibReader * reader, Kiv::TaskScheduler * scheduler )
    : Follower( &reader->routeTable_, scheduler, routePriority ), reader_( reader ) {}

/** The note is set before anybody hears of the change, so that it is true whatever they do. */
void
FibReader::Routes::handleValue( const RouteKey & key, const Route & route ) {
   const U32 former = note();
   const U32 wanted = possible( key ) ? reader_->placeOf( route.fecId() ) + 1 : impossible;
   if ( wanted != former ) {
      noteIs( wanted );
      reader_->routeLeadsTo( key, former, wanted );
   }
}

void
FibReader::Routes::handleValueDel( const RouteKey & key ) {
   reader_->routeLeadsTo( key, note(), none );
}

template< class Key, class Value >
FibReader::Marks< Key, Value >::Marks( FibReader * reader, Quarn::TableReader< Key, Value > * table,
                                       Kiv::TaskScheduler * scheduler )
    : Quarn::Follower< Key, Value >( table, scheduler, fecPriority ), reader_( reader ) {}

FibReader::Resolver::Resolver( FibReader * reader, Kiv::TaskScheduler * scheduler )
    : Kiv::Task( scheduler, fecPriority, "Fib classes" ), reader_( reader ) {}

/** A via is a unit of work. One that raises counts as looked at. */
bool
FibReader::Resolver::run() {
   const Hold alive( reader_ );
   auto & left = reader_->toLookAt_;
   while ( !left.empty() ) {
      const GlobalFecId id = left.front().key;
      left.erase( id );
      reader_->resolve( id );
      const FibFec * fec = reader_->fec( id );
      bool full = shouldYield();
      for ( U32 i = 0; fec && i < fec->taken.vias; ++i ) {
         full = shouldYield() || full;
      }
      if ( full ) {
         return !left.empty();
      }
   }
   return false;
}

FibReader::FibReader( Kiv::EventLoop * loop, Kiv::TaskScheduler * scheduler, const String & path,
                      Velto::Ptr< Qon::AdjPrefixCountStatus > counts )
    : counts_( std::move( counts ) ), source_( loop, path ), routeTable_( &source_, routeTable ),
      fecTable_( &source_, fecTable ), viaTable_( &source_, viaTable ),
      resolver_( this, scheduler ), fecChanges_( this, &fecTable_, scheduler ),
      viaChanges_( this, &viaTable_, scheduler ), routeChanges_( this, scheduler ) {}

std::vector< FibTableState >
FibReader::tables() const {
   const auto state = []( const Quarn::Reader & reader, auto & follower ) {
      return FibTableState{ &reader, follower.told(), follower.behind(), follower.overtaken(),
                            follower.idle() };
   };
   return { state( routeTable_, routeChanges_ ), state( fecTable_, fecChanges_ ),
            state( viaTable_, viaChanges_ ) };
}

bool
FibReader::idle() const {
   return routeChanges_.idle() && fecChanges_.idle() && viaChanges_.idle() && !resolver_.awake();
}

// --- Routes --------------------------------------------------------------------------------------

/** `former` and `wanted` are notes. The prefix is in the new list before it leaves the old one. */
void
FibReader::routeLeadsTo( const RouteKey & key, U32 former, U32 wanted ) {
   const Hold alive( this );
   count( key, wanted, 1 );
   count( key, former, -1 );
   FirstError error;
   error.run( [&] { prefixIs( key, wanted, true ); } );
   error.run( [&] { prefixIs( key, former, false ); } );
   error.pass();
}

/** What can be said without telling anybody. */
void
FibReader::count( const RouteKey & key, U32 note, int by ) {
   if ( note == none ) {
      return;
   }
   routes_[note == impossible ? 0 : U32( key.family )] += U32( by );
   if ( note != impossible ) {
      FibFec & fec = fecs_[note - 1];
      fec.routes += U32( by );
      waiting_ += fec.adjacency ? 0 : U32( by );
   }
}

/** The prefix comes into what the FEC of the note keeps, or goes. */
void
FibReader::prefixIs( const RouteKey & key, U32 note, bool in ) {
   if ( note == none || note == impossible ) {
      return;
   }
   const GlobalFecId id = fecs_[note - 1].id;
   const Ptr adjacency = fecs_[note - 1].adjacency;
   FirstError error;
   error.run( [&] {
      withPrefix( key, [&]( const auto & prefix ) {
         in ? lists_->prefixIs( id, key.vrfId(), prefix, counts_.ptr() )
            : lists_->prefixDel( id, key.vrfId(), prefix, counts_.ptr() );
      } );
   } );
   error.run( [&] {
      if ( adjacency ) {
         in ? adjacency->configRefCountInc( 1 ) : adjacency->configRefCountDec( 1 );
      }
   } );
   if ( !in ) {
      error.run( [&] { dropUnused( note - 1 ); } );
   }
   error.pass();
}

// --- FECs ----------------------------------------------------------------------------------------

const FibFec *
FibReader::fec( GlobalFecId id ) const {
   const U32 * place = byId_.find( id );
   return place ? &fecs_[*place] : nullptr;
}

/** The place of a FEC, which is made if there is none. */
U32
FibReader::placeOf( GlobalFecId id ) {
   if ( const U32 * held = byId_.find( id ) ) {
      return *held;
   }
   if ( free_.empty() ) {
      free_.push_back( U32( fecs_.size() ) );
      fecs_.emplace_back();
   }
   const U32 place = free_.back();
   free_.pop_back();
   fecs_[place].id = id;
   fecs_[place].errors = errorOf( AdjErrorStates::Bit::fecMissingFromFib );
   byId_.emplace( id, place );
   return place;
}

/** Lets a FEC go that neither the table nor a route names. */
void
FibReader::dropUnused( U32 place ) {
   if ( fecs_[place].inUse() ) {
      return;
   }
   const Ptr none;
   FirstError error;
   error.run( [&] { adjacencyIs( place, none ); } );
   if ( !fecs_[place].inUse() && byId_.erase( fecs_[place].id ) ) {
      fecs_[place] = FibFec();
      free_.push_back( place );
   }
   error.pass();
}

/** What is behind stays as it was. */
void
FibReader::told( const FecKey & key, bool there ) {
   const Hold alive( this );
   const U32 place = placeOf( key.fecId() );
   fecs_[place].inTable = there;
   if ( there ) {
      look( key.fecId() );
      return;
   }
   toLookAt_.erase( key.fecId() );
   fecs_[place].errors = errorOf( AdjErrorStates::Bit::fecMissingFromFib );
   dropUnused( place );
}

void
FibReader::told( const ViaKey & key, bool ) {
   const FibFec * held = fec( key.fecId() );
   if ( held && held->inTable ) {
      look( held->id );
   }
}

void
FibReader::look( GlobalFecId id ) {
   toLookAt_.emplace( id );
   resolver_.wake();
}

/** Makes of a FEC what the tables say of it now. */
void
FibReader::resolve( GlobalFecId id ) {
   Fec fec;
   if ( fecTable_.value( FecKey( id ), &fec ) == Quarn::Found::yes ) {
      take( placeOf( id ), fec );
   } // else its change is still to come, or its writer died in it
}

void
FibReader::take( U32 place, const Fec & fec ) {
   std::vector< Via > vias;
   fecs_[place].errors = read( fecs_[place].id, fec, vias );
   if ( fecs_[place].errors ) {
      return;
   }
   const auto key = nextHops_.keyOf( fec, vias );
   if ( !key ) {
      fecs_[place].errors = errorOf( AdjErrorStates::Bit::sourceFecInvalid );
      return;
   }
   fecs_[place].taken = fec;
   adjacencyIs( place, adjacencies_.adjacency( *key ) );
}

/** The vias of a FEC; what is wrong with them, if anything is. */
AdjErrorStates
FibReader::read( GlobalFecId id, const Fec & fec, std::vector< Via > & vias ) const {
   if ( !FibNextHops::known( fec.type ) ) {
      return errorOf( AdjErrorStates::Bit::invalidRouteType );
   }
   if ( fec.vias > FibNextHops::mostVias ) {
      return errorOf( AdjErrorStates::Bit::sourceFecInvalid );
   }
   vias.resize( fec.vias );
   for ( U32 i = 0; i < fec.vias; ++i ) {
      if ( viaTable_.value( ViaKey( id, i ), &vias[i] ) != Quarn::Found::yes ||
           vias[i].version != fec.version ) {
         return errorOf( AdjErrorStates::Bit::nextLevelInfoMissing );
      }
   }
   return {};
}

void
FibReader::adjacencyIs( U32 place, const Ptr & wanted ) {
   FibFec & fec = fecs_[place];
   const Ptr former = std::exchange( fec.adjacency, wanted );
   if ( bool( former ) != bool( wanted ) ) {
      waiting_ += wanted ? 0 - fec.routes : fec.routes;
   }
   if ( hearer_ && former != wanted ) {
      hearer_->fecMoves( fec.id, former );
   }
   adjacencies_.move( fec.id, fec.routes, former, wanted );
}

String
FibReader::checkInvariants() const {
   U32 routes = 0, waiting = 0, used = 0;
   for ( U32 place = 0; place < fecs_.size(); ++place ) {
      const FibFec * fec = fecAt( place );
      if ( !fec ) {
         continue;
      }
      ++used;
      routes += fec->routes;
      waiting += fec->adjacency ? 0 : fec->routes;
      if ( !fec->inTable && toLookAt_.has( fec->id ) ) {
         return "FEC " + fec->id.stringValue() + " is to be looked at, and in no table";
      }
      const U32 * at = byId_.find( fec->id );
      if ( !at || *at != place ) {
         return "FEC " + fec->id.stringValue() + " is not where it is looked for";
      }
      const auto * list = lists_->adjGlobalPrefixList( fec->id );
      if ( ( list ? list->v4PrefixCount() + list->v6PrefixCount() : 0 ) != fec->routes ) {
         return "FEC " + fec->id.stringValue() + " has another number of prefixes than of routes";
      }
      if ( fec->adjacency && !fec->adjacency->adjEntryHas( fec->id ) ) {
         return "FEC " + fec->id.stringValue() + " is not with its adjacency";
      }
   }
   if ( used != byId_.size() || used + free_.size() != fecs_.size() ) {
      return "a FEC that nobody names is still there";
   }
   if ( waiting != waiting_ || routes != routes_[1] + routes_[2] ) {
      return "the counts of routes are wrong";
   }
   if ( const String wrong = lists_->checkInvariants(); !wrong.empty() ) {
      return wrong;
   }
   return adjacencies_.checkInvariants();
}

} // namespace QonAgent
