// Mirror sessions: one source comes and goes, and a port-channel of 16 joins, against a table written
// by hand that keeps the same configuration, records, counts and status, and calls the same chip. Which
// ports a port-channel has won and lost both find out from its list.
//
// "sources" is how many the session has, "sessions" how many there are: neither should matter.

#include <benchmark/benchmark.h>

#include "Qon/include/mirroring/MirroringSession.h"
#include "bench/Ratio.h"
#include "platform/Kiv/TaskScheduler.h"

namespace {

using Mirroring::Direction;
using Ulnet::EthIntfId;
using Ulnet::IntfId;
using Velto::Ptr;
using Velto::String;

constexpr U32 lagMembers = 16;

/** Keeps what it is told in one word. */
class ArrayHelper : public Qon::MirroringSmHelper {
 public:
   bool createMirror( const String &, int, int, IntfId, bool ) override { return true; }
   bool removeMirror( const String &, int, int, const Qon::QonPortList & ) override { return true; }
   bool addSourceToHardware( const String &, int group, int, IntfId port,
                             Direction direction ) override {
      word( group, port ) = U8( direction );
      return true;
   }
   bool removeSourceFromHardware( const String &, int group, int, IntfId port, Direction,
                                  bool ) override {
      word( group, port ) = 0;
      return true;
   }
   void hwInit() override {}
   U8 maxBiDirSources() override { return 255; }
   U8 maxUniDirSources() override { return 255; }
   bool isValidIntf( const Interface::EthPhyIntfStatus *, IntfId, bool ) override { return true; }
   bool sourcesFit( const String &, U32 biDir, U32 uniDir ) override {
      return biDir + uniDir <= 4096;
   }

 private:
   U8 & word( int group, IntfId port ) {
      return words_[( U32( group ) * 1024 + port.number( 0 ) ) % words_.size()];
   }
   std::vector< U8 > words_ = std::vector< U8 >( 1 << 16 );
};

/** What both work on. */
struct Switch {
   static String name( U32 session ) { return "session" + std::to_string( session ); }
   void configure( U32 sessions, U32 sources ) {
      for ( U32 s = 0; s < sessions; ++s ) {
         auto session = config->sessionIs( name( s ) );
         session->targetIntfIs( EthIntfId::intfId( 5000 + s ) );
         for ( U32 n = 1; n <= sources; ++n ) {
            session->srcIntfIs( EthIntfId::intfId( n ), Direction::rx );
         }
      }
   }
   void join( IntfId lag, U32 members ) {
      Qon::QonLagPortList list;
      for ( U32 n = 0; n < members; ++n ) {
         list.portIs( EthIntfId::intfId( 2000 + n ), Qon::QonLagPort( true, true ) );
      }
      acsd->lagToPortIs( lag, list );
   }
   Kiv::VirtualScheduler scheduler;
   Ptr< Qon::QonCommonSmData > acsd = Qon::qonCommonSmDataFactory( "acsd" );
   Ptr< Mirroring::Config > config = Velto::make< Mirroring::Config >( "config" );
   Ptr< Mirroring::Status > status = Velto::make< Mirroring::Status >( "status" );
   Ptr< ArrayHelper > helper = Velto::make< ArrayHelper >();
};

struct Library : Switch {
   Library( U32 sessions, U32 sources ) {
      acsd->initializedIs( true );
      capability->maxSupportedSessionsIs( 64 );
      configure( sessions, sources );
      sm = Qon::MirroringSmIs( { acsd, config, capability, status, helper, nullptr, nullptr,
                                 nullptr, nullptr, nullptr, nullptr } );
      sm->initializedIs( true );
   }
   Ptr< Mirroring::HwCapability > capability =
         Velto::make< Mirroring::HwCapability >( "capability" );
   Ptr< Qon::MirroringSm > sm;
};

/** The table: records by session and port, and nothing that hears of a change. */
struct Table : Switch {
   struct Record {
      Direction direction = Direction::none;
      String acl;
      U32 priority = 0;
   };
   struct Session {
      S32 group;
      Mirroring::SessionConfig * config;
      Mirroring::SessionStatus * status;
      U32 sources = 0;
      Kiv::DenseMap< IntfId, Record > records;
   };

   Table( U32 count, U32 sources ) {
      configure( count, sources );
      for ( U32 s = 0; s < count; ++s ) {
         auto & session = *sessions.emplace( name( s ) ).first;
         session.group = S32( s );
         session.config = config->session( name( s ) );
         session.status = status->sessionIs( name( s ) ).ptr();
         for ( auto && [port, source] : session.config->srcIntfIteratorConst() ) {
            add( name( s ), port );
         }
      }
   }
   void add( const String & name, IntfId port ) { add( name, port, port ); }
   /** `intf` is configured, and leads to the port. */
   void add( const String & name, IntfId port, IntfId intf ) {
      auto & session = *sessions.find( name );
      auto source = session.config->srcIntf( intf );
      auto [record, fresh] = session.records.emplace( port );
      Qon::MirroringSmHelper * chip = helper.ptr();
      if ( fresh && chip->isValidIntf( nullptr, port, false ) &&
           ( intf == port || chip->isValidIntf( nullptr, intf, false ) ) &&
           chip->sourcesFit( name, 0, session.sources + 1 ) &&
           chip->addSourceToHardware( name, session.group, -1, port, source->direction() ) ) {
         *record = { source->direction(), source->aclName(), source->aclPriority() };
         ++session.sources;
         session.status->programmedSrcIs( port, source->direction() );
      }
   }
   void remove( const String & name, IntfId port ) {
      auto & session = *sessions.find( name );
      if ( auto record = session.records.find( port ) ) {
         Qon::MirroringSmHelper * chip = helper.ptr();
         chip->removeSourceFromHardware( name, session.group, -1, port, record->direction, false );
         session.status->programmedSrcDel( port );
         session.records.erase( port );
         --session.sources;
      }
   }
   /** A group leads to other ports than before: who has left goes, who has come comes. */
   void follow( const String & name, IntfId lag ) {
      const auto & now = acsd->lagToPort( lag );
      auto & before = *portsOf.emplace( lag ).first;
      for ( IntfId port : before ) {
         if ( !now.portHas( port ) ) {
            remove( name, port );
         }
      }
      before.clear();
      for ( auto & [port, flags] : now ) {
         before.push_back( port );
         add( name, port, lag );
      }
   }
   Kiv::DenseMap< String, Session > sessions;
   Kiv::DenseMap< IntfId, std::vector< IntfId > > portsOf;
};

void
oneSource( benchmark::State & state ) {
   const U32 sessions = U32( state.range( 0 ) ), sources = U32( state.range( 1 ) );
   const String name = Switch::name( 0 );
   const IntfId port = EthIntfId::intfId( 4000 );
   Bench::Compared result{};
   for ( auto _ : state ) {
      Library library( sessions, sources );
      Table table( sessions, sources );
      auto ours = library.config->session( name ), theirs = table.config->session( name );
      result = Bench::compared(
            [&] {
               ours->srcIntfIs( port, Direction::rx );
               ours->srcIntfDel( port );
            },
            [&] {
               theirs->srcIntfIs( port, Direction::rx );
               table.add( name, port );
               theirs->srcIntfDel( port );
               table.remove( name, port );
            },
            4000 );
   }
   state.counters["ns"] = result.ours;
   state.counters["floorNs"] = result.floor;
   state.counters["ratio"] = result.ratio;
}
BENCHMARK( oneSource )
      ->ArgNames( { "sessions", "sources" } )
      ->Args( { 1, 8 } )
      ->Args( { 64, 8 } )
      ->Args( { 64, 512 } )
      ->Iterations( 1 );

/** A port-channel source gets its members, and loses them. */
void
channelJoins( benchmark::State & state ) {
   const U32 sessions = U32( state.range( 0 ) ), sources = U32( state.range( 1 ) );
   const IntfId lag = Ulnet::PortChannelIntfId::intfId( 1 );
   const String name = Switch::name( 0 );
   Bench::Compared result{};
   for ( auto _ : state ) {
      Library library( sessions, sources );
      library.config->session( name )->srcIntfIs( lag, Direction::rx );
      Table table( sessions, sources );
      table.config->session( name )->srcIntfIs( lag, Direction::rx );
      result = Bench::compared(
            [&] {
               library.join( lag, lagMembers );
               library.join( lag, 0 );
            },
            [&] {
               table.join( lag, lagMembers );
               table.follow( name, lag );
               table.join( lag, 0 );
               table.follow( name, lag );
            },
            200 );
   }
   state.counters["nsMember"] = result.ours / lagMembers;
   state.counters["floorNsMember"] = result.floor / lagMembers;
   state.counters["ratio"] = result.ratio;
}
BENCHMARK( channelJoins )
      ->ArgNames( { "sessions", "sources" } )
      ->Args( { 1, 8 } )
      ->Args( { 64, 8 } )
      ->Args( { 64, 512 } )
      ->Iterations( 1 );

/** The start, and the longest time on the loop. */
void
start( benchmark::State & state ) {
   const U32 sessions = U32( state.range( 0 ) ), sources = U32( state.range( 1 ) );
   double ns = 0;
   for ( auto _ : state ) {
      ns = Bench::nsOf(
            [&] { benchmark::DoNotOptimize( Library( sessions, sources ).sm.ptr() ); } );
   }
   state.counters["ms"] = ns / 1e6;
   state.counters["nsSource"] = ns / ( sessions * sources );
}
BENCHMARK( start )
      ->ArgNames( { "sessions", "sources" } )
      ->Args( { 64, 8 } )
      ->Args( { 64, 512 } )
      ->Iterations( 1 );

} // namespace
