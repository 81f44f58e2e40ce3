#include "simulation/SimFib.h"

#include <filesystem>
#include <unistd.h>

#include "simulation/World.h"

namespace Sim {

using namespace Quarn::Fib;
using Ulnet::AddressFamily;

namespace {

constexpr U32 rounds = 10;

GlobalFecId
fecId( U32 number ) {
   return GlobalFecId( number );
}

} // namespace

/** Of the writer's socket. */
class SimFib::Folder {
 public:
   Folder() {
      char path[] = "/tmp/qon-sim.XXXXXX";
      VELTO_ASSERT( mkdtemp( path ) );
      path_ = path;
   }
   ~Folder() { std::filesystem::remove_all( path_ ); }
   String operator/( const String & name ) const { return path_ + "/" + name; }

 private:
   String path_;
};

/** The chip's hooks, which raise before they have done anything, and change things when they have. */
class SimFib::Helper : public SoftChip::SoftAdjacencyHelper {
 public:
   explicit Helper( SimFib * sim ) : SoftAdjacencyHelper( sim->table_ ), sim_( sim ) {}

   void adjacencyIs( U32 number, U32 version, const Qon::L2AdjKey & key ) override;
   void adjacencyDel( U32 number ) override {
      sim_->raise();
      SoftAdjacencyHelper::adjacencyDel( number );
      sim_->nest();
   }
   void fecIs( GlobalFecId fec, U32 number ) override {
      sim_->raise();
      SoftAdjacencyHelper::fecIs( fec, number );
      sim_->leads( fec );
      sim_->nest();
   }
   void fecDel( GlobalFecId fec ) override {
      sim_->raise();
      SoftAdjacencyHelper::fecDel( fec );
      sim_->drops( fec );
      sim_->nest();
   }
   void staleDel() override {
      sim_->raise();
      SoftAdjacencyHelper::staleDel();
      sim_->nest();
   }

 private:
   SimFib * sim_;
};

/** Hears of counts, and of what changes in adjacencies, for one life of the reader. */
class SimFib::Watcher : public Qon::AdjPrefixCountStatus {
 public:
   explicit Watcher( SimFib * sim ) : sim_( sim ) { hasNotificationActiveIs( true ); }

   void notify( const Qon::AdjGlobalPrefixList::PtrConst & list, AddressFamily family ) override {
      if ( sim_->watcher_ == this ) {
         sim_->told( *list, family );
      }
   }
   void watch( U32 number, const QonAgent::FibAdjacency & adjacency ) {
      auto & watch = watches_[number];
      watch = std::make_unique< Kiv::EntityWatch >();
      watch->attach( this, &adjacency, heard, this );
   }

 private:
   static void heard( void * context, const Kiv::Entity &, int, const void * ) {
      auto self = static_cast< Watcher * >( context );
      if ( self->sim_->watcher_ == self ) {
         self->sim_->nest();
         self->sim_->raise();
      }
   }
   SimFib * sim_;
   std::map< U32, std::unique_ptr< Kiv::EntityWatch > > watches_; // by number
};

void
SimFib::Helper::adjacencyIs( U32 number, U32 version, const Qon::L2AdjKey & key ) {
   sim_->raise();
   if ( sim_->reader_ ) {
      sim_->watcher_->watch( number, *sim_->reader_->adjacencies().at( number ) );
   }
   SoftAdjacencyHelper::adjacencyIs( number, version, key );
   sim_->nest();
}

FeatureKind
simFib() {
   FeatureKind kind = featureKindOf< SimFib >( "fib" );
   kind.apart = true; // until thousands of seeds have held
   return kind;
}

std::span< const Operation >
SimFib::operations() {
   static const Operation table[] = {
         { "route", 60, { Range::hundred, Range::hundred }, &SimFib::routeIs },
         { "no-route", 30, { Range::hundred }, &SimFib::routeDel },
         { "fec", 50, { Range::hundred, Range::hundred }, &SimFib::fecIs },
         { "fec-part", 10, { Range::hundred, Range::hundred, Range::few }, &SimFib::fecPart },
         { "fec-garbled", 6, { Range::hundred, Range::few }, &SimFib::fecGarbled },
         { "no-fec", 12, { Range::hundred, Range::few }, &SimFib::fecDel },
         { "flood", 1, { Range::hundred }, &SimFib::flood },
         { "writer-ends", 3, {}, &SimFib::writerEnds },
         { "writer", 12, { Range::few }, &SimFib::writerBegins },
         { "complete", 10, { Range::few }, &SimFib::complete },
         { "table", 3, { Range::few, Range::flag }, &SimFib::tableIs },
         { "own", 12, { Range::few, Range::hundred, Range::few }, &SimFib::ownIs },
         { "latency", 6, { Range::few }, &SimFib::latencyIs },
         { "answer", 12, { Range::few }, &SimFib::answer },
         { "nested", 6, { Range::few, Range::hundred }, &SimFib::nestedIs },
         { "raise", 4, { Range::few }, &SimFib::raisesIs },
         { "restart", 2, {}, &SimFib::restart },
   };
   return table;
}

SimFib::SimFib( World & world )
    : SimFeature( world ), table_( world.chip->of< SoftChip::AdjacencyPart >().table() ),
      folder_( std::make_unique< Folder >() ), socket_( *folder_ / "fib" ),
      routes_( routeTable, routeKey ),
      fecs_( fecTable, []( U32 fec ) { return FecKey( fecId( fec ) ); } ),
      vias_( viaTable, []( U32 via ) { return ViaKey( fecId( via / 8 ), via % 8 ); } ),
      look_( [this] { look(); }, world.scheduler.timerWheel() ) {}

SimFib::~SimFib() = default;

void
SimFib::shape( const World & world, SoftChip::Shape & shape ) {
   Rng rng = world.chance( 83 );
   shape.adjacencies.adjacencies = rng.percent( 40 ) ? 64 : rng.between( 1, 10 );
   shape.adjacencies.ecmpGroups = rng.percent( 40 ) ? 64 : rng.between( 0, 6 );
}

void
SimFib::drawFaults( Rng & rng, std::vector< String > & lines ) const {
   for ( const char * trouble : { "fail", "lose", "full" } ) {
      lines.push_back( String( "adjacencyIs " ) + trouble + " 0 0 " + often( rng, 100 ) );
   }
   if ( rng.percent( 20 ) ) {
      lines.push_back( "limit adjacencies " + std::to_string( rng.below( 8 ) ) );
   }
   if ( rng.percent( 20 ) ) {
      lines.push_back( "limit ecmpGroups " + std::to_string( rng.below( 4 ) ) );
   }
}

Velto::Ptr< QonChip::AdjacencyHelper >
SimFib::makeAdjacencyHelper() {
   return Velto::make< Helper >( this );
}

void
SimFib::start() {
   begin();
   if ( std::exchange( begun_, true ) ) {
      changed(); // the writer has not noticed
   } else {
      writerBegins( Event() );
      complete( Event() );
   }
}

void
SimFib::kill( Ending ) {
   end();
}

/** A reader and an installer, over what the chip holds. */
void
SimFib::begin() {
   routes_.forget();
   fecs_.forget();
   vias_.forget();
   past_.clear();
   own_.clear();
   told_.clear();
   watcher_ = Velto::make< Watcher >( this );
   reader_ = Velto::make< QonAgent::FibReader >( &world_.sockets, &world_.scheduler, socket_,
                                                 watcher_ );
   installer_ = Velto::make< QonAgent::FibInstaller >( reader_, *this, &world_.scheduler );
}

void
SimFib::end() {
   if ( installer_ ) {
      installer_->end();
   }
   watcher_ = nullptr;
   installer_ = nullptr;
   reader_ = nullptr;
}

void
SimFib::stop() {
   end();
   writerEnds( Event() );
   look_.off();
}

// --- Sockets -------------------------------------------------------------------------------------

/** The end of each operation. In the middle of a slice the sockets have to wait for its end. */
void
SimFib::changed() {
   if ( inHook_ ) {
      unseen_ = true;
      look_.in( 0 );
      remember();
   } else {
      look();
   }
}

/** Lets the sockets do what they have to do now, until both ends are quiet. */
void
SimFib::look() {
   unseen_ = false;
   if ( !reader_ ) {
      begin();
   }
   bool connected = reader_->source().connected();
   for ( U32 quiet = 0; quiet < rounds; ++quiet ) {
      world_.sockets.runOnce( 0 );
      if ( std::exchange( connected, reader_->source().connected() ) != connected ) {
         quiet = 0; // both have a lot to say
      }
   }
   if ( routes_.looked( connected ) ) {
      walked(); // deletions come first
   }
   fecs_.looked( connected );
   vias_.looked( connected );
   remember();
   if ( world_.sockets.nextTime() != Kiv::never ) {
      look_.at( world_.sockets.nextTime() );
   }
}

/** Routes come in an order of their own: in between a FEC may have none. */
void
SimFib::walked() {
   for ( auto & [fec, past] : past_ ) {
      past.routes.clear();
   }
}

// --- What else happens ---------------------------------------------------------------------------

/** A prefix of a FEC that somebody else keeps in the same lists. */
void
SimFib::ownIs( const Event & event ) {
   const U32 fec = ownFec + event[0] % 3, route = event[1] % routeCount;
   if ( !reader_ || telling_.contains( fec ) || !possible( route ) ) {
      return;
   }
   unchecked_ = true;
   const bool in = event[2] % 2;
   in ? void( own_[fec].insert( route ) ) : void( own_[fec].erase( route ) );
   const RouteKey key = routeKey( route );
   auto & lists = *reader_->prefixLists();
   const auto with = [&]( const auto & prefix ) {
      in ? lists.prefixIs( fecId( fec ), key.vrfId(), prefix, watcher_.ptr() )
         : lists.prefixDel( fecId( fec ), key.vrfId(), prefix, watcher_.ptr() );
   };
   const auto held = watcher_;
   try {
      if ( key.family == AddressFamily::ipv4 ) {
         Ulnet::Prefix::Bytes bytes;
         std::copy_n( key.address.bytes, bytes.size(), bytes.begin() );
         with( Ulnet::Prefix( bytes, key.length ) );
      } else {
         Ulnet::Ip6Prefix::Bytes bytes;
         std::copy_n( key.address.bytes, bytes.size(), bytes.begin() );
         with( Ulnet::Ip6Prefix( bytes, key.length ) );
      }
   } catch ( const Raised & ) {
   }
   if ( !reader_ ) {
      changed();
   }
}

void
SimFib::latencyIs( const Event & event ) {
   const Kiv::Seconds latencies[] = { 0, 0, 0, 0.001, 0.05, 2, 20, Kiv::never };
   table_.completions.latencyIs( latencies[event[0]] );
}

void
SimFib::answer( const Event & event ) {
   if ( const U32 waiting = table_.completions.waiting() ) {
      table_.completions.finish( event[0] % waiting );
   }
}

void
SimFib::nestedIs( const Event & event ) {
   nested_ = event[0];
   serial_ += event[1];
}

void
SimFib::raisesIs( const Event & event ) {
   raises_ = event[0];
}

/** As another agent over what the chip holds. */
void
SimFib::restart( const Event & ) {
   end();
   changed();
}

/** In the middle of a change: something else changes. */
void
SimFib::nest() {
   if ( nested_ && !inHook_ ) {
      inHook_ = true;
      const Velto::AtEnd out( [this] { inHook_ = false; } );
      --nested_;
      change( ++serial_ * 7 );
   }
}

/** In a watcher, or in a hook that has done nothing yet. */
void
SimFib::raise() {
   if ( raises_ && raises_-- % 2 == 0 ) {
      throw Raised();
   }
}

void
SimFib::change( U32 what ) {
   Event event;
   event.args = { what / 5, what / 3, what / 2 % 8, 0, 0 };
   constexpr void ( SimFib::*changes[] )( const Event & ) = {
         &SimFib::routeIs, &SimFib::routeDel, &SimFib::fecIs,    &SimFib::fecPart,
         &SimFib::fecDel,  &SimFib::ownIs,    &SimFib::complete, &SimFib::routeIs };
   if ( what % 64 == 63 ) {
      restart( event );
   } else {
      if ( changes[what % 8] == &SimFib::complete ) {
         event.args[0] %= 8;
      }
      ( this->*changes[what % 8] )( event );
   }
}

void
SimFib::faultsIs( bool on ) {
   if ( on ) {
      return;
   }
   nested_ = raises_ = 0;
   writerBegins( Event() );
   openTables();
   complete( Event() );
   table_.completions.latencyIs( 0 );
   table_.completions.finishAll();
}

bool
SimFib::mayStayArmed() const {
   using State = QonAgent::FibChipState;
   return installer_ &&
          installer_->adjacencies( State::noRoom ) + installer_->adjacencies( State::noGroup );
}

void
SimFib::tearDown() {
   nested_ = raises_ = 0;
   openTables();
   routes_.delAll();
   fecs_.delAll();
   vias_.delAll();
   const auto own = own_;
   for ( auto & [fec, routes] : own ) {
      for ( U32 route : routes ) {
         Event event;
         event.args = { fec - ownFec, route, 0, 0, 0 };
         ownIs( event );
      }
   }
   changed();
}

} // namespace Sim
