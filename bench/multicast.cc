// Multicast groups: created to synced at 1,000 and 100,000 groups, with one set of ports for all and with a
// thousand; one member that joins a group; a member that leaves a port-channel with 10,000 groups on it;
// overflow and recovery of 10,000 groups; bytes a group; the longest run of any clock, and the longest
// change. The floor is a map of bitmaps by hand, with the same virtual calls: once called directly, and once
// told by the same status, as the library is.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <array>
#include <memory>
#include <unordered_map>

#include "Qon/include/multicast/IgmpSnoopingSm.h"
#include "bench/Ratio.h"
#include "platform/Kiv/Log.h"
#include "platform/Kiv/TaskScheduler.h"

namespace {

using Bridging::MacVlanPair;
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

/** What both sides call; it counts. */
struct Chip {
   virtual ~Chip() = default;
   virtual S64 take() {
      if ( used >= room ) {
         return -1;
      }
      ++used;
      return ++next;
   }
   virtual void giveBack() { --used; }
   virtual void write() { ++writes; }
   virtual void lead( S64 index ) { writes += U64( index ); }
   U32 room = ~U32( 0 ), used = 0;
   S64 next = 0;
   U64 writes = 0;
};

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

/** By hand: groups with their sets of ports, and a map of the sets. */
struct Floor {
   struct Hash {
      std::size_t operator()( const MacVlanPair & key ) const { return Kiv::mix( key.hash() ); }
      std::size_t operator()( U64 set ) const { return Kiv::mix( set ); }
   };
   struct Shared {
      S64 index = 0;
      U32 count = 0;
   };
   struct Group {
      U64 wanted = 0, held = 0;
      bool pending = false;
   };

   void join( const MacVlanPair & key, U32 p ) {
      auto & group = groups[key];
      group.wanted |= U64( 1 ) << p % ports;
      if ( !group.pending ) {
         group.pending = true;
         pending.push_back( &group );
      }
   }
   void create( U32 n, U32 sets ) {
      for ( U32 p : portsOf( n, sets ) ) {
         join( MacVlanPair( address( n ), vlan( n ) ), p );
      }
   }
   void settle() {
      for ( Group * group : pending ) {
         group->pending = false;
         auto & shared = sets[group->wanted];
         if ( shared.count++ == 0 ) {
            shared.index = chip->take();
            chip->write();
         }
         chip->lead( shared.index );
         if ( group->held ) {
            auto former = sets.find( group->held );
            if ( --former->second.count == 0 ) {
               chip->giveBack();
               sets.erase( former );
            }
         }
         group->held = group->wanted;
      }
      pending.clear();
   }

   std::unique_ptr< Chip > chip = std::make_unique< Chip >();
   std::unordered_map< MacVlanPair, Group, Hash > groups;
   std::unordered_map< U64, Shared, Hash > sets;
   std::vector< Group * > pending;
};

/** What lets the floor hear the status: an ear a VLAN, and one a group. */
struct Ears : Velto::Node {
   using Status = Bridging::IgmpSnooping::Status;
   using Vlan = Bridging::IgmpSnooping::VlanStatus;
   using Group = Bridging::IgmpSnooping::EthGroupStatus;

   struct OfGroup : Velto::Node {
      OfGroup( Floor & f, const VlanId & vlan, Ptr< const Group > g )
          : floor( f ), key( g->groupAddr(), vlan ), group( std::move( g ) ) {
         hasNotificationActiveIs( true );
         watch.attach( this, group.ptr() );
      }
      void handleIntf( const IntfId & intf ) {
         if ( group->intfHas( intf ) ) {
            floor.join( key, intf.number( 0 ) - 1 );
         }
      }
      Floor & floor;
      const MacVlanPair key;
      const Ptr< const Group > group;
      Kiv::Watch< Group::intfAttr, OfGroup, &OfGroup::handleIntf > watch;
   };
   struct OfVlan : Velto::Node {
      OfVlan( Floor & f, Ptr< const Vlan > v ) : floor( f ), vlan( std::move( v ) ) {
         hasNotificationActiveIs( true );
         watch.attach( this, vlan.ptr() );
      }
      void handleGroup( const EthAddr & addr ) {
         groups[addr.value()] =
               Velto::make< OfGroup >( floor, vlan->vlanId(), vlan->ethGroup( addr ) );
      }
      Floor & floor;
      const Ptr< const Vlan > vlan;
      std::unordered_map< U64, Ptr< OfGroup >, Floor::Hash > groups;
      Kiv::Watch< Vlan::ethGroupAttr, OfVlan, &OfVlan::handleGroup > watch;
   };

   explicit Ears( Floor & f ) : floor( f ) {
      hasNotificationActiveIs( true );
      watch.attach( this, status.ptr() );
   }
   void handleVlan( const VlanId & vlan ) {
      vlans.push_back( Velto::make< OfVlan >( floor, status->vlanStatus( vlan ) ) );
   }
   void create( U32 n, U32 sets ) { joinAll( *status, n, sets ); }

   Floor & floor;
   const Ptr< Status > status = Velto::make< Status >( "status" );
   std::vector< Ptr< OfVlan > > vlans;
   Kiv::Watch< Status::vlanStatusAttr, Ears, &Ears::handleVlan > watch;
};

double
bytesInUse() {
   return double( mallinfo2().uordblks );
}

void
createToSynced( benchmark::State & state ) {
   const U32 groups = U32( state.range( 0 ) ), sets = U32( state.range( 1 ) );
   double ns = 1e300, byHand = 1e300, told = 1e300, bytes = 0;
   for ( auto _ : state ) {
      Framework f;
      f.settle();
      const double before = bytesInUse();
      ns = std::min( ns, Bench::nsOf( [&] {
                        for ( U32 n = 0; n < groups; ++n ) {
                           f.create( n, sets );
                        }
                        f.settle();
                     } ) );
      bytes = ( bytesInUse() - before ) / groups;
      Floor floor;
      byHand = std::min( byHand, Bench::nsOf( [&] {
                            for ( U32 n = 0; n < groups; ++n ) {
                               floor.create( n, sets );
                            }
                            floor.settle();
                         } ) );
      Floor hearing;
      const auto ears = Velto::make< Ears >( hearing );
      told = std::min( told, Bench::nsOf( [&] {
                          for ( U32 n = 0; n < groups; ++n ) {
                             ears->create( n, sets );
                          }
                          hearing.settle();
                       } ) );
      benchmark::DoNotOptimize( floor.chip->writes + hearing.chip->writes );
   }
   state.counters["ns_a_group"] = ns / groups;
   state.counters["ns_by_hand"] = byHand / groups;
   state.counters["to_by_hand"] = ns / byHand;
   state.counters["ns_by_hand_told"] = told / groups;
   state.counters["to_by_hand_told"] = ns / told;
   state.counters["bytes_a_group"] = bytes;
}
BENCHMARK( createToSynced )
      ->Args( { 1'000, 1 } )
      ->Args( { 1'000, 1'000 } )
      ->Args( { 100'000, 1 } )
      ->Args( { 100'000, 1'000 } )
      ->Iterations( 5 );

/** One member joins one of many groups, and leaves. */
void
oneMember( benchmark::State & state ) {
   const U32 groups = U32( state.range( 0 ) );
   Framework f;
   for ( U32 n = 0; n < groups; ++n ) {
      f.create( n, 1000 );
   }
   f.settle();
   U32 n = 0;
   bool there = false;
   auto change = [&] {
      auto group = f.group( n );
      ( there = !there ) ? group->intfIs( port( 50 ) ) : group->intfDel( port( 50 ) );
      n = there ? n : ( n + 7 ) % groups;
      f.scheduler.settle();
   };
   for ( auto _ : state ) {
      change();
   }
   state.counters["ns"] = Bench::nsPerCall( change, 100'000 );
}
BENCHMARK( oneMember )->Arg( 1'000 )->Arg( 100'000 );

/** All groups are on a port-channel; one of its members leaves, and joins. */
void
memberOfAPortChannel( benchmark::State & state ) {
   const U32 groups = U32( state.range( 0 ) );
   const IntfId lag = Ulnet::PortChannelIntfId::intfId( 1 );
   Framework f;
   auto members = [&]( U32 count ) {
      Qon::QonLagPortList list;
      for ( U32 n = 0; n < count; ++n ) {
         list.portIs( port( n ), Qon::QonLagPort( true, true ) );
      }
      f.acsd->lagToPortIs( lag, list );
   };
   members( 8 );
   for ( U32 n = 0; n < groups; ++n ) {
      f.group( n )->intfIs( lag );
      f.group( n )->intfIs( port( 10 + n % 50 ) );
   }
   f.settle();
   double best = 1e300, change = 0;
   bool there = true;
   for ( auto _ : state ) {
      there = !there;
      const double changed = Bench::nsOf( [&] { members( there ? 8 : 7 ); } );
      best = std::min( best, changed + Bench::nsOf( [&] { f.settle(); } ) );
      change = std::max( change, changed );
   }
   state.counters["ms"] = best / 1e6;
   state.counters["ns_a_group"] = best / groups;
   state.counters["change_ms"] = change / 1e6;
}
BENCHMARK( memberOfAPortChannel )->Arg( 10'000 )->Arg( 100'000 )->Iterations( 20 );

/** No group is free, then there are enough. */
void
overflowAndRecovery( benchmark::State & state ) {
   constexpr U32 groups = 10'000;
   double overflow = 1e300, recovery = 1e300;
   for ( auto _ : state ) {
      Framework f;
      f.chip.room = 1; // for the set that floods, which is there
      overflow = std::min( overflow, Bench::nsOf( [&] {
                              for ( U32 n = 0; n < groups; ++n ) {
                                 f.create( n, 1000 );
                              }
                              f.settle();
                           } ) );
      f.chip.room = ~U32( 0 );
      recovery = std::min( recovery, Bench::nsOf( [&] { f.scheduler.runFor( 6 ); } ) );
      if ( f.helper->overflow()->mcastEntryNeedingHwEntrys() ) {
         state.SkipWithError( "some groups still flood" );
      }
   }
   state.counters["ns_overflow"] = overflow / groups;
   state.counters["ns_recovery"] = recovery / groups;
}
BENCHMARK( overflowAndRecovery )->Iterations( 5 );

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
