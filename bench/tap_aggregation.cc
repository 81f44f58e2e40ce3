// Tap aggregation: 512 taps into 64 groups of 16 tools; a tool comes and goes, a tap goes to another
// group, a class of a policy map to another, the mode is left and entered; against hand-written loops
// of the same hook calls over arrays.
//
// "groups" is how many there are: one change should cost the same with 64 as with 1024.

#include <benchmark/benchmark.h>

#include "Qon/include/tapagg/QonTapaggSm.h"
#include "bench/Ratio.h"
#include "platform/Kiv/TaskScheduler.h"

namespace {

using Bridging::Input::TapGroups;
using Ulnet::EthIntfId;
using Ulnet::IntfId;
using Velto::Ptr;
using Velto::String;

constexpr U32 toolsOfGroup = 16, tapsOfGroup = 8;

/** Keeps what it is told in arrays. */
class ArrayHelper : public Qon::TapAggHelper {
 public:
   void hwInit() override {}
   void hwCleanup() override {}
   U32 allocateAggGroup( const String & ) override {
      if ( free_.empty() ) {
         return ++last_;
      }
      const U32 id = free_.back();
      free_.pop_back();
      return id;
   }
   void deallocateAggGroup( U32 group ) override { free_.push_back( group ); }
   void tapPortIs( IntfId intf, bool enable, bool ) override { word( intf ) = enable; }
   void toolPortIs( IntfId intf, bool enable, bool ) override { word( intf ) = enable; }
   void addTapPortAssociation( IntfId intf, U32 group ) override { word( intf ) = group; }
   void removeTapPortAssociation( IntfId intf ) override { word( intf ) = 0; }
   void addToolPortAssociation( IntfId intf, U32 group ) override { word( intf ) += group; }
   void removeToolPortAssociation( IntfId intf, U32 group ) override { word( intf ) -= group; }
   void tapTruncationSizeIs( IntfId intf, U32 size ) override { word( intf ) = size; }
   void toolTruncationSizeIs( IntfId intf, U32 size ) override { word( intf ) = size; }
   void identityTagIs( IntfId intf, const IdentityTuple & tag ) override {
      word( intf ) = tag.outer();
   }
   void taggingOnEgressIs( IntfId intf, ToolIdentityMode mode ) override {
      word( intf ) = U32( mode );
   }
   U32 getMaxExternalFrameSizeTapAgg() override { return 9000; }

 private:
   U32 & word( IntfId intf ) { return words_[intf.number( 0 ) % words_.size()]; }
   std::vector< U32 > words_ = std::vector< U32 >( 1 << 16 ), free_;
   U32 last_ = 0;
};

IntfId
tap( U32 n ) {
   return EthIntfId::intfId( 1 + n );
}
IntfId
tool( U32 n ) {
   return EthIntfId::intfId( 20000 + n );
}
String
group( U32 n ) {
   return "group" + std::to_string( n );
}

struct Switch {
   explicit Switch( U32 n ) : groups( n ) {
      for ( U32 g = 0; g < groups; ++g ) {
         for ( U32 t = 0; t < tapsOfGroup; ++t ) {
            config->tapPortIs( tap( g * tapsOfGroup + t ) )->groupsIs( TapGroups{ group( g ) } );
         }
         for ( U32 t = 0; t < toolsOfGroup; ++t ) {
            config->toolPortIs( tool( g * toolsOfGroup + t ) )->groupIs( group( g ) );
         }
      }
      classMap = policyMaps->policyMapIs( "map" )->classMapIs( "class" );
      classMap->groupsIs( TapGroups{ group( 0 ) } );
   }
   const U32 groups;
   Kiv::VirtualScheduler scheduler;
   Ptr< Bridging::Input::TapAggConfig > config =
         Velto::make< Bridging::Input::TapAggConfig >( "config" );
   Ptr< TapAgg::PolicyMapConfig > policyMaps =
         Velto::make< TapAgg::PolicyMapConfig >( "policyMaps" );
   Ptr< TapAgg::ClassMapConfig > classMap;
   Ptr< ArrayHelper > helper = Velto::make< ArrayHelper >();
};

struct Library : Switch {
   explicit Library( U32 n ) : Switch( n ) {
      acsd->initializedIs( true );
      mode( true );
      sm = Qon::TapAggSmIs( { acsd, config, helper, Velto::make< TapAgg::Status >( "status" ),
                              Velto::make< TapAgg::ToolPortStatus >( "toolPorts" ),
                              Velto::make< TapAgg::PmapGroupConfig >( "pmapGroups" ),
                              Velto::make< TapAgg::PmapGroupStatus >( "pmapStatus" ), policyMaps,
                              Velto::make< Bridging::HostFlush::RequestDir >( "requests" ),
                              Velto::make< Bridging::HostFlush::ReplyDir >( "replies" ), nullptr,
                              scheduler.timerWheel() } );
      sm->initializedIs( true );
   }
   void mode( bool on ) {
      acsd->operationalModeIs( on ? Qon::HwOperationalMode::tapAgg
                                  : Qon::HwOperationalMode::switching );
   }
   Ptr< Qon::QonCommonSmData > acsd = Qon::qonCommonSmDataFactory( "acsd" );
   Ptr< Qon::TapAggSm > sm;
};

/** The same by hand: ids by name with counts of users, a record a port with what was told, and nothing
    that hears of a change. */
struct Table : Switch {
   struct Group {
      U32 id = 0;
      U32 users = 0;
      Kiv::DenseMap< IntfId, Kiv::Nothing > ports;
   };
   struct Port {
      bool told = false;
      Kiv::DenseMap< String, U32 > groups;
   };

   explicit Table( U32 n ) : Switch( n ) { mode( true ); }

   U32 use( const String & name, IntfId intf ) {
      auto [entry, fresh] = ids.emplace( name );
      if ( fresh ) {
         entry->id = chip().allocateAggGroup( name );
      }
      ++entry->users;
      entry->ports.emplace( intf );
      return entry->id;
   }
   void leave( const String & name, IntfId intf ) {
      auto entry = ids.find( name );
      --entry->users;
      entry->ports.erase( intf );
   }
   void addTool( IntfId intf, const String & name ) {
      auto & port = *tools.emplace( intf ).first;
      if ( !port.told ) {
         chip().toolPortIs( intf, true, false );
         port.told = true;
      }
      const U32 id = use( name, intf );
      chip().addToolPortAssociation( intf, id );
      port.groups.emplace( name, id );
   }
   void removeTool( IntfId intf ) {
      auto port = tools.find( intf );
      for ( auto && entry : port->groups ) {
         chip().removeToolPortAssociation( intf, entry.value );
         leave( entry.key, intf );
      }
      chip().toolPortIs( intf, false, false );
      tools.erase( intf );
   }
   void moveTap( IntfId intf, const String & name ) {
      auto & port = *taps.emplace( intf ).first;
      if ( !port.told ) {
         chip().tapPortIs( intf, true, false );
         port.told = true;
      }
      chip().addTapPortAssociation( intf, use( name, intf ) );
      for ( auto && entry : port.groups ) {
         leave( entry.key, intf );
      }
      port.groups.clear();
      port.groups.emplace( name );
   }
   void removeTap( IntfId intf ) {
      chip().removeTapPortAssociation( intf );
      for ( auto && entry : taps.find( intf )->groups ) {
         leave( entry.key, intf );
      }
      chip().tapPortIs( intf, false, false );
      taps.erase( intf );
   }
   void mode( bool on ) {
      if ( on ) {
         for ( auto && [intf, port] : config->toolPortIteratorConst() ) {
            for ( auto && [name, none] : port->groupIteratorConst() ) {
               addTool( intf, name );
            }
         }
         for ( auto && [intf, port] : config->tapPortIteratorConst() ) {
            moveTap( intf, port->groups().stringValue() );
         }
         return;
      }
      for ( auto && [intf, port] : config->tapPortIteratorConst() ) {
         removeTap( intf );
      }
      for ( auto && [intf, port] : config->toolPortIteratorConst() ) {
         removeTool( intf );
      }
   }

   Qon::TapAggHelper & chip() { return *helper; }
   Kiv::DenseMap< String, Group > ids;
   Kiv::DenseMap< IntfId, Port > taps, tools;
};

/** Of calls that do `times` of what is told. */
void
report( benchmark::State & state, const Bench::Compared & c, U32 times = 1 ) {
   state.counters["ns"] = c.ours / times;
   state.counters["floorNs"] = c.floor / times;
   state.counters["ratio"] = c.ratio;
}

/** One tool port of one group, configured and taken away. */
void
toolComesAndGoes( benchmark::State & state ) {
   Bench::Compared result{};
   const IntfId port = tool( 40000 );
   for ( auto _ : state ) {
      Library library( U32( state.range( 0 ) ) );
      Table table( U32( state.range( 0 ) ) );
      result = Bench::compared(
            [&] {
               library.config->toolPortIs( port )->groupIs( group( 1 ) );
               library.config->toolPortDel( port );
            },
            [&] {
               table.config->toolPortIs( port )->groupIs( group( 1 ) );
               table.addTool( port, group( 1 ) );
               table.config->toolPortDel( port );
               table.removeTool( port );
            },
            2000 );
   }
   report( state, result );
}
BENCHMARK( toolComesAndGoes )->ArgName( "groups" )->Arg( 64 )->Arg( 1024 )->Iterations( 1 );

/** A tap port goes to another group and back. */
void
tapMoves( benchmark::State & state ) {
   Bench::Compared result{};
   const TapGroups one{ group( 1 ) }, two{ group( 2 ) };
   for ( auto _ : state ) {
      Library library( U32( state.range( 0 ) ) );
      Table table( U32( state.range( 0 ) ) );
      auto move = [&]( Switch & at, const TapGroups & to ) {
         at.config->tapPort( tap( 0 ) )->groupsIs( to );
      };
      result = Bench::compared(
            [&] {
               move( library, one );
               move( library, two );
            },
            [&] {
               for ( auto & to : { one, two } ) {
                  move( table, to );
                  table.moveTap( tap( 0 ),
                                 table.config->tapPort( tap( 0 ) )->groups().stringValue() );
               }
            },
            2000 );
   }
   report( state, result, 2 );
}
BENCHMARK( tapMoves )->ArgName( "groups" )->Arg( 64 )->Arg( 1024 )->Iterations( 1 );

/** A class goes to another group: no hook at all. */
void
classMoves( benchmark::State & state ) {
   Bench::Compared result{};
   const TapGroups one{ group( 1 ) }, two{ group( 2 ) };
   for ( auto _ : state ) {
      Library library( U32( state.range( 0 ) ) );
      Table table( U32( state.range( 0 ) ) );
      String held = group( 0 );
      table.use( held, IntfId() );
      auto move = [&]( const TapGroups & to ) {
         table.classMap->groupsIs( to );
         const String name = to.stringValue();
         benchmark::DoNotOptimize( table.use( name, IntfId() ) );
         table.leave( held, IntfId() );
         held = name;
      };
      result = Bench::compared(
            [&] {
               library.classMap->groupsIs( one );
               library.classMap->groupsIs( two );
            },
            [&] {
               move( one );
               move( two );
            },
            2000 );
   }
   report( state, result, 2 );
}
BENCHMARK( classMoves )->ArgName( "groups" )->Arg( 64 )->Arg( 1024 )->Iterations( 1 );

/** The mode is left and entered again; "longestMs" is the longest of them on the loop. */
void
modeOffAndOn( benchmark::State & state ) {
   double longest = 0;
   Bench::Compared result{};
   for ( auto _ : state ) {
      Library library( U32( state.range( 0 ) ) );
      Table table( U32( state.range( 0 ) ) );
      for ( U32 round = 0; round < 5; ++round ) {
         for ( bool on : { false, true } ) {
            longest = std::max( longest, Bench::nsOf( [&] { library.mode( on ); } ) );
         }
      }
      result = Bench::compared(
            [&] {
               library.mode( false );
               library.mode( true );
            },
            [&] {
               table.mode( false );
               table.mode( true );
            },
            1 );
   }
   report( state, result );
   state.counters["longestMs"] = longest / 1e6;
   state.counters["nsPort"] =
         result.ours / ( 2.0 * double( state.range( 0 ) ) * ( toolsOfGroup + tapsOfGroup ) );
}
BENCHMARK( modeOffAndOn )->ArgName( "groups" )->Arg( 64 )->Arg( 1024 )->Iterations( 1 );

} // namespace
