// Multicast groups: created to synced at 1,000 and 100,000 groups, with one set of ports for all and with a
// thousand; one member that joins a group; a member that leaves a port-channel with 10,000 groups on it;
// overflow and recovery of 10,000 groups; bytes a group; the longest run of any clock, and the longest
// change. The floor is a map of bitmaps by hand, told by the same status, with the same virtual calls.

#include <benchmark/benchmark.h>

#include <array>

#include "Qon/include/multicast/IgmpSnoopingSm.h"
#include "bench/MulticastFloor.h"
#include "bench/Ratio.h"
#include "platform/Kiv/Log.h"
#include "platform/Kiv/TaskScheduler.h"

namespace {

using Bench::MulticastByHand;
using Bridging::MacVlanPair;
using Chip = Bench::MulticastChip;
using Bridging::VlanId;
using QonTypes::TableAddStatus;
using Ulnet::EthAddr;
using Ulnet::IntfId;
using Velto::Ptr;

/** Memory that is freed stays with the process, and is joined piece by piece: how long the system takes to
    clear it, or the allocator to join a hundred megabytes at one go, is not of interest. */
const int noTrim = mallopt( M_TRIM_THRESHOLD, 1 << 30 ) + mallopt( M_MXFAST, 0 );

constexpr U32 ports = 64;
constexpr U32 groupsAVlan = 1000;

IntfId
port( U32 n ) {
   return Ulnet::EthIntfId::intfId( n % ports + 1 );
}
EthAddr
address( U32 n ) {
   return EthAddr( 0x01005e000000 + n % groupsAVlan );
}
VlanId
vlan( U32 n ) {
   return VlanId( n / groupsAVlan + 1 );
}

struct Bitmap : Qon::HardwareL2MulticastBitmap {
   Bitmap( Chip & c, Qon::MulticastHelper * helper, const QonTypes::Bitmap & set,
           const Qon::BitmapInfoType & info )
       : HardwareL2MulticastBitmap( helper, set, info ), chip( c ) {}
   ~Bitmap() override {
      if ( groupIndex() != noGroup && freed() ) {
         chip.giveBack();
      }
   }
   S64 createL2MulticastEntry() override { return chip.take(); }
   void writeGroupsToHardware( const QonTypes::Bitmap & ) override { chip.write(); }
   Chip & chip;
};

struct Entry : Qon::HardwareL2MulticastEntry {
   Entry( Chip & c, Qon::MulticastHelper * helper, S64 vGroup )
       : HardwareL2MulticastEntry( helper, vGroup ), chip( c ) {}
   TableAddStatus updateMacTableEntry() override {
      chip.lead( hwL2MulticastBitmap()->groupIndex() );
      return TableAddStatus::success;
   }
   void deleteMacTableEntry() override { chip.lead( 0 ); }
   Chip & chip;
};

struct Factory : Qon::MulticastDataFactory {
   explicit Factory( Chip & c ) : chip( c ) {}
   Ptr< Qon::HardwareL2MulticastEntry > getHardwareL2MulticastEntry( Qon::MulticastHelper * helper,
                                                                     S64 vGroup ) override {
      return Velto::make< Entry >( chip, helper, vGroup );
   }
   Ptr< Qon::HardwareL2MulticastBitmap >
   getHardwareL2MulticastBitmap( Qon::MulticastHelper * helper, const QonTypes::Bitmap & set,
                                 const Qon::BitmapInfoType & info ) override {
      return Velto::make< Bitmap >( chip, helper, set, info );
   }
   U32 getMaxL2MulticastGroups() override { return chip.room; }
   Qon::BitmapInfoType getBitmapInfoType() override { return {}; }
   Chip & chip;
};

/** The ports of a group: one set of `sets`. */
std::array< U32, 4 >
portsOf( U32 n, U32 sets ) {
   const U32 set = n % sets;
   return { set % 64, set / 64 + 1, set / 64 + 20, 63 };
}

Ptr< Bridging::IgmpSnooping::EthGroupStatus >
groupOf( Bridging::IgmpSnooping::Status & status, U32 n ) {
   return status.vlanStatusIs( vlan( n ) )->ethGroupIs( address( n ) );
}

void
joinAll( Bridging::IgmpSnooping::Status & status, U32 n, U32 sets ) {
   const auto made = groupOf( status, n );
   for ( U32 p : portsOf( n, sets ) ) {
      made->intfIs( port( p ) );
   }
}

struct Quiet : Kiv::LogSink {
   Quiet() : former( Kiv::logSinkIs( this ) ) {}
   ~Quiet() override { Kiv::logSinkIs( former ); }
   void message( const Kiv::LogDescriptor &, const Velto::String & ) override { ++messages; }
   Kiv::LogSink * former;
   U64 messages = 0;
};

struct Framework {
   Framework() {
      acsd->initializedIs( true );
      for ( U32 n = 0; n < ports; ++n ) {
         acsd->intfIs( port( n ), true );
      }
      helper = Qon::MulticastHelperIs( "multicast", { acsd, Velto::make< Factory >( chip ), nullptr,
                                                      scheduler.timerWheel() } );
      sm = Qon::IgmpSnoopingSmIs(
            { helper, status, Velto::make< Bridging::Multicast::StaticConfig >( "static" ) } );
      sm->initializedIs( true );
   }
   Ptr< Bridging::IgmpSnooping::EthGroupStatus > group( U32 n ) { return groupOf( *status, n ); }
   void create( U32 n, U32 sets ) { joinAll( *status, n, sets ); }
   void settle() { scheduler.runFor( 1 ); }

   Quiet quiet;
   Chip chip;
   Kiv::VirtualScheduler scheduler;
   Ptr< Qon::QonCommonSmData > acsd = Qon::qonCommonSmDataFactory( "acsd" );
   Ptr< Bridging::IgmpSnooping::Status > status =
         Velto::make< Bridging::IgmpSnooping::Status >( "status" );
   Ptr< Qon::MulticastHelper > helper;
   Ptr< Qon::IgmpSnoopingSm > sm;
};

/** The floor, and what lets it hear the status: an ear a VLAN, and one a group. */
struct ByHand : Velto::Node {
   using Status = Bridging::IgmpSnooping::Status;
   using Vlan = Bridging::IgmpSnooping::VlanStatus;
   using Group = Bridging::IgmpSnooping::EthGroupStatus;

   struct OfGroup : Velto::Node {
      OfGroup( MulticastByHand & f, const VlanId & vlan, Ptr< const Group > g )
          : floor( f ), key( g->groupAddr(), vlan ), group( std::move( g ) ) {
         hasNotificationActiveIs( true );
         watch.attach( this, group.ptr() );
      }
      void handleIntf( const IntfId & intf ) {
         floor.memberIs( key, intf, group->intfHas( intf ) );
      }
      MulticastByHand & floor;
      const MacVlanPair key;
      const Ptr< const Group > group;
      Kiv::Watch< Group::intfAttr, OfGroup, &OfGroup::handleIntf > watch;
   };
   struct OfVlan : Velto::Node {
      OfVlan( MulticastByHand & f, Ptr< const Vlan > v ) : floor( f ), vlan( std::move( v ) ) {
         hasNotificationActiveIs( true );
         watch.attach( this, vlan.ptr() );
      }
      void handleGroup( const EthAddr & addr ) {
         groups.emplace( addr,
                         Velto::make< OfGroup >( floor, vlan->vlanId(), vlan->ethGroup( addr ) ) );
      }
      MulticastByHand & floor;
      const Ptr< const Vlan > vlan;
      Kiv::DenseMap< EthAddr, Ptr< OfGroup > > groups;
      Kiv::Watch< Vlan::ethGroupAttr, OfVlan, &OfVlan::handleGroup > watch;
   };

   ByHand() {
      hasNotificationActiveIs( true );
      watch.attach( this, status.ptr() );
      for ( U32 n = 0; n < ports; ++n ) {
         floor.portIs( port( n ), n );
      }
   }
   void handleVlan( const VlanId & vlan ) {
      vlans.push_back( Velto::make< OfVlan >( floor, status->vlanStatus( vlan ) ) );
   }
   Ptr< Group > group( U32 n ) { return groupOf( *status, n ); }
   void create( U32 n, U32 sets ) { joinAll( *status, n, sets ); }
   void settle() { floor.settle(); }

   Chip chip;
   MulticastByHand floor{ chip };
   const Ptr< Status > status = Velto::make< Status >( "status" );
   std::vector< Ptr< OfVlan > > vlans;
   Kiv::Watch< Status::vlanStatusAttr, ByHand, &ByHand::handleVlan > watch;
};

void
report( benchmark::State & state, const Bench::Compared & c, U32 groups = 1 ) {
   state.counters["ns"] = c.ours / groups;
   state.counters["floorNs"] = c.floor / groups;
   state.counters["ratio"] = c.ratio;
}

template< class Switch >
double
createAll( Switch & s, U32 groups, U32 sets ) {
   return Bench::nsOf( [&] {
      for ( U32 n = 0; n < groups; ++n ) {
         s.create( n, sets );
      }
      s.settle();
   } );
}

void
createToSynced( benchmark::State & state ) {
   const U32 groups = U32( state.range( 0 ) ), sets = U32( state.range( 1 ) );
   double bytes = 0;
   Bench::Rounds rounds;
   for ( auto _ : state ) {
      Framework f;
      f.settle();
      const double before = double( Bench::bytesInUse() );
      const double ours = createAll( f, groups, sets );
      bytes = ( double( Bench::bytesInUse() ) - before ) / groups;
      rounds.add( ours, createAll( *Velto::make< ByHand >(), groups, sets ) );
   }
   report( state, rounds.result(), groups );
   state.counters["bytes_a_group"] = bytes;
}
BENCHMARK( createToSynced )->Args( { 1'000, 1 } )->Args( { 1'000, 1'000 } )->Iterations( 51 );
BENCHMARK( createToSynced )->Args( { 100'000, 1 } )->Args( { 100'000, 1'000 } )->Iterations( 5 );

/** One member joins one of many groups, and leaves. */
void
oneMember( benchmark::State & state ) {
   const U32 groups = U32( state.range( 0 ) );
   Framework f;
   const auto byHand = Velto::make< ByHand >();
   createAll( f, groups, 1000 );
   createAll( *byHand, groups, 1000 );
   auto change = [&]( auto & at, auto && settle ) {
      return [&at, settle, groups, n = U32( 0 )]() mutable {
         const auto group = at.group( n );
         group->intfIs( port( 50 ) );
         settle();
         group->intfDel( port( 50 ) );
         settle();
         n = ( n + 7 ) % groups;
      };
   };
   Bench::Compared result{};
   for ( auto _ : state ) {
      result = Bench::compared( change( f, [&] { f.scheduler.settle(); } ),
                                change( *byHand, [&] { byHand->settle(); } ), 1000 );
   }
   report( state, result, 2 );
}
BENCHMARK( oneMember )->Arg( 1'000 )->Arg( 100'000 )->Iterations( 1 );

/** All groups are on a port-channel; one of its members leaves, and joins. */
void
memberOfAPortChannel( benchmark::State & state ) {
   const U32 groups = U32( state.range( 0 ) );
   const IntfId lag = Ulnet::PortChannelIntfId::intfId( 1 );
   Framework f;
   const auto byHand = Velto::make< ByHand >();
   auto members = [&]( U32 count ) {
      Qon::QonLagPortList list;
      for ( U32 n = 0; n < count; ++n ) {
         list.portIs( port( n ), Qon::QonLagPort( true, true ) );
      }
      f.acsd->lagToPortIs( lag, list );
   };
   auto first = []( U32 count ) {
      std::vector< IntfId > all;
      for ( U32 n = 0; n < count; ++n ) {
         all.push_back( port( n ) );
      }
      return all;
   };
   auto joinAllOf = [&]( auto & at ) {
      for ( U32 n = 0; n < groups; ++n ) {
         at.group( n )->intfIs( lag );
         at.group( n )->intfIs( port( 10 + n % 50 ) );
      }
      at.settle();
   };
   members( 8 );
   byHand->floor.membersAre( lag, first( 8 ) );
   joinAllOf( f );
   joinAllOf( *byHand );
   double change = 0;
   U32 count = 8;
   Bench::Rounds rounds;
   for ( auto _ : state ) {
      count = 15 - count;
      const double changed = Bench::nsOf( [&] { members( count ); } );
      const double ours = changed + Bench::nsOf( [&] { f.settle(); } );
      rounds.add( ours, Bench::nsOf( [&] {
                     byHand->floor.membersAre( lag, first( count ) );
                     byHand->settle();
                  } ) );
      change = std::max( change, changed );
   }
   report( state, rounds.result(), groups );
   state.counters["change_ms"] = change / 1e6;
}
BENCHMARK( memberOfAPortChannel )->Arg( 10'000 )->Arg( 100'000 )->Iterations( 20 );

/** No group is free, then there are enough. */
void
overflowAndRecovery( benchmark::State & state ) {
   constexpr U32 groups = 10'000;
   Bench::Rounds overflow, recovery;
   for ( auto _ : state ) {
      Framework f;
      const auto byHand = Velto::make< ByHand >();
      byHand->floor.floodIs( byHand->chip.take() );
      f.chip.room = byHand->chip.room = 1; // for the set that floods, which is there
      const U64 & messages = f.quiet.messages;
      U64 ours = 0;
      auto heard = [&]( auto && run ) { // by the library
         const U64 before = messages;
         const double ns = run();
         ours += messages - before;
         return ns;
      };
      const double full = heard( [&] { return createAll( f, groups, 1000 ); } );
      overflow.add( full, createAll( *byHand, groups, 1000 ) );
      f.chip.room = byHand->chip.room = ~U32( 0 );
      const double room = heard( [&] { return Bench::nsOf( [&] { f.scheduler.runFor( 6 ); } ); } );
      recovery.add( room, Bench::nsOf( [&] { byHand->floor.recover(); } ) );
      if ( f.helper->overflow()->mcastEntryNeedingHwEntrys() || byHand->floor.flooding() ) {
         state.SkipWithError( "some groups still flood" );
      }
      if ( messages != 2 * ours ) {
         state.SkipWithError( "the floor raises other messages" );
      }
   }
   report( state, overflow.result(), groups );
   const Bench::Compared r = recovery.result();
   state.counters["ns_recovery"] = r.ours / groups;
   state.counters["floorNsRecovery"] = r.floor / groups;
   state.counters["ratio_recovery"] = r.ratio;
}
BENCHMARK( overflowAndRecovery )->Iterations( 11 );

/** The longest run of each clock in milliseconds, by real time: groups that are created, that find no room,
    that find some, that parity errors concern (with the event itself), and that go. */
void
longestRun( benchmark::State & state ) {
   constexpr U32 groups = 100'000;
   double review = 0, overflow = 0, recovery = 0, parity = 0, deletion = 0;
   U32 runs = 0;
   for ( auto _ : state ) {
      Framework f;
      Kiv::TimeSource * const simulated = Kiv::timeSourceIs( nullptr );
      auto clocks = f.helper->ethGroupReviewSm();
      auto longest = [&]( double & most, auto && more, auto && run ) {
         while ( more() ) {
            most = std::max( most, Bench::nsOf( run ) / 1e6 );
            ++runs;
         }
      };
      auto pending = [&] { return f.helper->pending(); };
      auto reviewed = [&] { clocks->reviewEthGroupSet(); };
      f.chip.room = groups / 2;
      for ( U32 n = 0; n < groups; ++n ) {
         f.create( n, n < 1000 ? 1000 : 1 );
      }
      longest( review, pending, reviewed );
      f.chip.room = 1;
      for ( U32 n = 0; n < groups; n += 10 ) {
         f.group( n )->intfIs( port( 40 + n / 10 % 20 ) );
         f.group( n )->intfIs( port( 2 + n / 200 % 20 ) );
      }
      longest( overflow, pending, reviewed );
      f.chip.room = groups;
      bool tried = false;
      longest(
            recovery, [&] { return !std::exchange( tried, true ); },
            [&] { clocks->overflowEthGroupSet(); } );
      longest( recovery, pending, reviewed );
      for ( const char * table : { "multicast", "mac" } ) {
         bool told = false;
         longest(
               parity, [&] { return !std::exchange( told, true ); },
               [&] { f.helper->handleParityEvent( table ); } );
         longest( parity, pending, reviewed );
      }
      f.status->vlanStatusDelAll();
      longest(
            deletion, [&] { return f.helper->groupDelList().size() != 0; },
            [&] { clocks->delEthGroupSet(); } );
      Kiv::timeSourceIs( simulated );
   }
   state.counters["review_ms"] = review;
   state.counters["overflow_ms"] = overflow;
   state.counters["recovery_ms"] = recovery;
   state.counters["parity_ms"] = parity;
   state.counters["deletion_ms"] = deletion;
   state.counters["runs"] = runs;
}
BENCHMARK( longestRun )->Iterations( 3 );

} // namespace
