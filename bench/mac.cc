// The MAC programmer from accepting a command to releasing it, against two floors in the same run:
//
//    hand      a pipeline written by hand for this benchmark: one dense map from keys to records,
//              queues of record numbers, no framework, no commands of their own
//    packed    the same, with the key packed into one word as the programmer does it
//    standard  the programmer's own design on std::unordered_map, std::map, std::deque and
//              std::shared_ptr
//
// Each line `keys/N` shows nanoseconds a command for the whole way (`ns`), for its four steps, and
// for the whole way of the floors; `ratio_hand` should stay within 1.5, `ratio_standard` be
// above 3. Commands are made and released within the time. `slice_ms` is the longest run of any of
// the three handlers (time of the processor), which may take 10 ms and what follows the last
// look at the clock. `bytes` is what a pending command takes, with its places in all collections.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "Qon/include/mac/QonChipProgrammer.h"
#include "bench/Ratio.h"
#include "platform/Kiv/Rng.h"

namespace {

using Qon::MacEntryKey;
using Type = Qon::IndirectAccessMacCmdType;
using Status = Qon::MacProgramStatus;

/** Where every pipeline's writes go: the chip that answers them. */
struct Chip {
   std::vector< U64 > ids;
   [[gnu::noinline]] void write( U64 id, Type type ) {
      ids.push_back( id );
      benchmark::DoNotOptimize( type );
   }
};
Chip chip;

const Ulnet::IntfId port( "Ethernet1" );

/** Keeps the allocator from handing the floors' memory back to the system, tens of megabytes at one
    go, while the programmer is measured. */
const int noTrim = mallopt( M_TRIM_THRESHOLD, 1 << 30 );

/** The programmer. */
class Ours {
   class Programmer : public Qon::QonMacProgrammer {
    public:
      using QonMacProgrammer::QonMacProgrammer;
      Status writeToHw( const Qon::MacCmdPtr & cmd ) override {
         chip.write( cmd->transactionId(), cmd->type() );
         return Status::macProgramSuccess;
      }
   };

 public:
   Ours() { programmer_->initializedIs( true ); }
   void accept( const MacEntryKey & key, S64 arg ) {
      programmer_->handleAddrOp( Qon::indirectAccessMacCmdFactory(
            Type::addHost, key, port, Bridging::EntryType::learnedDynamic, arg ) );
   }
   void drain() { programmer_->updatePendingAddresses(); }
   void respond( U64 id, Status status ) {
      programmer_->handleCmdResponse( id, U32( id ), status );
   }
   void poll() { programmer_->pollInProgressCmds(); }
   void retry() { programmer_->updateOverflowAddresses(); }
   U32 pending() const { return programmer_->pendingMacOps(); }
   U32 inFlight() const { return programmer_->inProgMacOps(); }
   U32 overflowed() const { return programmer_->overflowAddrOps(); }

 private:
   Kiv::TimerWheel wheel_;
   Velto::Ptr< Programmer > programmer_ = Qon::smIs< Programmer >( &wheel_ );
};

U64
packed( const MacEntryKey & key ) {
   return key.key().mac().value() << 16 | U64( key.key().vlan() ) << 4 | U64( key.macHwType() );
}

/** By hand: the records stand in one array, the map leads to their numbers. */
template< class Key >
class Hand {
 public:
   void accept( const MacEntryKey & key, S64 arg ) {
      U32 at = take();
      records_[at] = { key,   port, arg, 0, 0, Kiv::Seconds( 0 ), Status::macProgramInProgress,
                       false, true };
      auto [slot, fresh] = current_.emplace( keyOf( key ), at );
      if ( !fresh ) {
         records_[*slot].valid = false;
         *slot = at;
      }
      pending_.push_back( at );
   }
   void drain() {
      Qon::TimeSlice slice( 0.01, 128 );
      while ( !pending_.empty() ) {
         U32 at = pending_.front();
         pending_.pop_front();
         if ( records_[at].valid ) {
            write( at, slice.now() );
         } else {
            free_.push_back( at );
         }
         if ( slice.usedUp() ) {
            break;
         }
      }
   }
   void respond( U64 id, Status status ) {
      Record & r = records_[flying_[id - first_]];
      r.tblIndex = U32( id );
      r.status = status;
   }
   void poll() {
      Qon::TimeSlice slice( 0.01, 128 );
      while ( !flying_.empty() ) {
         U32 at = flying_.front();
         if ( records_[at].status > Status::macProgramFailed ) {
            break;
         }
         if ( records_[at].valid ) {
            current_.erase( keyOf( records_[at].key ) );
         }
         free_.push_back( at );
         flying_.pop_front();
         ++first_;
         if ( slice.usedUp() ) {
            break;
         }
      }
   }
   void retry() {}
   U32 pending() const { return U32( pending_.size() ); }
   U32 inFlight() const { return U32( flying_.size() ); }
   U32 overflowed() const { return 0; }

 private:
   struct Record {
      MacEntryKey key;
      Ulnet::IntfId intf;
      S64 arg;
      U64 id;
      U32 tblIndex;
      Kiv::Seconds start;
      Status status;
      bool shadow;
      bool valid;
   };
   static Key keyOf( const MacEntryKey & key ) {
      if constexpr ( std::is_same_v< Key, U64 > ) {
         return packed( key );
      } else {
         return key;
      }
   }
   U32 take() {
      if ( free_.empty() ) {
         records_.emplace_back();
         return U32( records_.size() - 1 );
      }
      U32 at = free_.back();
      free_.pop_back();
      return at;
   }
   void write( U32 at, Kiv::Seconds now ) {
      flying_.push_back( at );
      Record & r = records_[at];
      r.id = next_++;
      r.start = now;
      chip.write( r.id, Type::addHost );
   }
   std::deque< Record > records_;
   std::vector< U32 > free_;
   Kiv::DenseMap< Key, U32 > current_;
   std::deque< U32 > pending_;
   std::deque< U32 > flying_; // by transaction id, from first_ on
   U64 first_ = 1, next_ = 1;
};

/** The programmer's design as one would write it with the standard library. */
class Standard {
 public:
   void accept( const MacEntryKey & key, S64 arg ) {
      auto cmd = std::make_shared< Command >();
      cmd->key = key;
      cmd->intf = port;
      cmd->arg = arg;
      overflow_.erase( key );
      if ( auto old = inProgAddr_.find( key ); old != inProgAddr_.end() ) {
         old->second->valid = false;
         inProgAddr_.erase( old );
      }
      auto & slot = pendingAddr_[key];
      if ( slot ) {
         slot->valid = false;
      }
      slot = cmd;
      pending_.push_back( std::move( cmd ) );
   }
   void drain() {
      Qon::TimeSlice slice( 0.01, 128 );
      while ( !pending_.empty() ) {
         auto cmd = pending_.front();
         pending_.pop_front();
         if ( cmd->valid ) {
            write( cmd, slice.now() );
         }
         if ( slice.usedUp() ) {
            break;
         }
      }
   }
   void respond( U64 id, Status status ) {
      if ( auto found = inProg_.find( id ); found != inProg_.end() ) {
         found->second->tblIndex = U32( id );
         found->second->status = status;
      }
   }
   void poll() {
      Qon::TimeSlice slice( 0.01, 128 );
      for ( auto at = inProg_.begin(); at != inProg_.end(); ) {
         auto cmd = at->second;
         if ( cmd->status != Status::macProgramInProgress ) {
            at = inProg_.erase( at );
            inProgAddr_.erase( cmd->key );
         } else {
            ++at;
         }
         if ( cmd->status == Status::macProgramFull ) {
            overflow_[cmd->key] = cmd;
         }
         if ( slice.usedUp() ) {
            break;
         }
      }
   }
   void retry() {
      Qon::TimeSlice slice( 0.01, 128 );
      for ( auto at = overflow_.begin(); at != overflow_.end(); ) {
         auto cmd = at->second;
         at = overflow_.erase( at );
         if ( pendingAddr_.find( cmd->key ) == pendingAddr_.end() ) {
            cmd->status = Status::macProgramInProgress;
            pendingAddr_[cmd->key] = cmd;
            pending_.push_back( cmd );
         }
         if ( slice.usedUp() ) {
            break;
         }
      }
   }
   U32 pending() const { return U32( pending_.size() ); }
   U32 inFlight() const { return U32( inProg_.size() ); }
   U32 overflowed() const { return U32( overflow_.size() ); }

 private:
   struct Command {
      MacEntryKey key;
      Ulnet::IntfId intf;
      S64 arg = 0;
      U64 id = 0;
      U32 tblIndex = 0;
      bool valid = true;
      Kiv::Seconds start = 0;
      Status status = Status::macProgramInProgress;
   };
   struct Hash {
      std::size_t operator()( const MacEntryKey & key ) const {
         return std::size_t( Kiv::mix( key.hash() ) );
      }
   };
   using Ptr = std::shared_ptr< Command >;

   void write( const Ptr & cmd, Kiv::Seconds now ) {
      cmd->id = next_++;
      inProg_[cmd->id] = cmd;
      pendingAddr_.erase( cmd->key );
      inProgAddr_[cmd->key] = cmd;
      cmd->start = now;
      chip.write( cmd->id, Type::addHost );
   }
   std::deque< Ptr > pending_;
   std::unordered_map< MacEntryKey, Ptr, Hash > pendingAddr_, inProgAddr_;
   std::map< U64, Ptr > inProg_;
   std::map< MacEntryKey, Ptr > overflow_;
   U64 next_ = 1;
};

// Measuring

struct Costs { // ns a command; the best of several rounds
   double accept = 1e9, write = 1e9, response = 1e9, poll = 1e9, all = 1e9, retry = 1e9;
   double bytes = 0;
   double longest = 1e12; // slice, ns
};

std::vector< MacEntryKey >
keysOf( U32 n ) {
   std::vector< MacEntryKey > keys;
   for ( U32 i = 0; i < n; ++i ) {
      keys.push_back( { { Ulnet::EthAddr( 0x021122000000ull + i / 16 ),
                          Bridging::VlanIdOrNone( 1 + i % 16 ) },
                        Qon::MacHwType::macHwKeyBridge } );
   }
   std::shuffle( keys.begin(), keys.end(), Kiv::Rng( 1 ) );
   return keys;
}

/** One round's measurements. */
class Round {
 public:
   explicit Round( U32 items ) : items_( items ) { chip.ids.reserve( items ); }

   template< class Work >
   double timed( Work && work ) {
      double start = Bench::spent();
      work();
      double took = ( Bench::spent() - start ) / items_;
      sum_ += took;
      return took;
   }
   /** Runs a handler until `left` is zero. */
   template< class P >
   double slices( P & p, void ( P::*run )(), U32 ( P::*left )() const ) {
      return timed( [&] {
         while ( ( p.*left )() ) {
            double start = Bench::threadTime();
            ( p.*run )();
            longest_ = std::max( longest_, Bench::threadTime() - start );
         }
      } );
   }
   double sum() const { return sum_; }
   double longest() const { return longest_; }

 private:
   double items_, sum_ = 0, longest_ = 0;
};

void
least( double & best, double now ) {
   best = std::min( best, now );
}

/** All keys from acceptance to release, answered in the order written. */
template< class P >
void
wholeWay( Costs & c, const std::vector< MacEntryKey > & keys, P & p ) {
   Round round( U32( keys.size() ) );
   U64 before = Bench::bytesInUse();
   least( c.accept, round.timed( [&] {
      for ( auto & key : keys ) {
         p.accept( key, 7 );
      }
   } ) );
   c.bytes = double( Bench::bytesInUse() - before ) / double( keys.size() );
   least( c.write, round.slices( p, &P::drain, &P::pending ) );
   least( c.response, round.timed( [&] {
      for ( U64 id : chip.ids ) {
         p.respond( id, Status::macProgramSuccess );
      }
   } ) );
   chip.ids.clear();
   least( c.poll, round.slices( p, &P::poll, &P::inFlight ) );
   least( c.all, round.sum() );
   least( c.longest, round.longest() );
}

/** The same when all have been in overflow before; `retry` is the walk over them. */
template< class P >
void
overOverflow( Costs & c, const std::vector< MacEntryKey > & keys ) {
   P p;
   Round round( U32( keys.size() ) );
   for ( auto & key : keys ) {
      p.accept( key, 7 );
   }
   for ( auto status : { Status::macProgramFull, Status::macProgramSuccess } ) {
      round.slices( p, &P::drain, &P::pending );
      for ( U64 id : chip.ids ) {
         p.respond( id, status );
      }
      chip.ids.clear();
      round.slices( p, &P::poll, &P::inFlight );
      if ( p.overflowed() ) {
         least( c.retry, round.slices( p, &P::retry, &P::overflowed ) );
      }
   }
   least( c.longest, round.longest() );
}

struct Compared {
   Costs ours, hand, packed, standard;
};

void
show( benchmark::State & state, const Compared & c ) {
   for ( auto _ : state ) {
      state.SetIterationTime( c.ours.all * 1e-9 );
   }
   auto & counters = state.counters;
   counters["ns"] = c.ours.all;
   counters["accept"] = c.ours.accept;
   counters["write"] = c.ours.write;
   counters["response"] = c.ours.response;
   counters["poll"] = c.ours.poll;
   counters["hand_ns"] = c.hand.all;
   counters["standard_ns"] = c.standard.all;
   counters["packed_ns"] = c.packed.all;
   counters["ratio_hand"] = c.ours.all / c.hand.all;
   counters["ratio_packed"] = c.ours.all / c.packed.all;
   counters["ratio_standard"] = c.standard.all / c.ours.all;
   counters["slice_ms"] = c.ours.longest * 1e-6;
   counters["bytes"] = c.ours.bytes;
}

/** A new pipeline for every round; the three in turns. */
void
keys( benchmark::State & state ) {
   U32 n = U32( state.range( 0 ) );
   auto all = keysOf( n );
   Compared c;
   for ( U32 round = 0; round < std::max( 5u, 200000 / n ); ++round ) {
      wholeWay( c.ours, all, *std::make_unique< Ours >() );
      wholeWay( c.hand, all, *std::make_unique< Hand< MacEntryKey > >() );
      wholeWay( c.packed, all, *std::make_unique< Hand< U64 > >() );
      wholeWay( c.standard, all, *std::make_unique< Standard >() );
   }
   show( state, c );
   static Compared smallest = c;
   state.counters["growth"] = c.ours.all / smallest.ours.all;
   state.counters["growth_hand"] = c.hand.all / smallest.hand.all;
   state.counters["growth_standard"] = c.standard.all / smallest.standard.all;
}
BENCHMARK( keys )
      ->Arg( 1000 )
      ->Arg( 10000 )
      ->Arg( 100000 )
      ->Arg( 1000000 )
      ->Iterations( 1 )
      ->UseManualTime();

/** The same 4,096 keys through one pipeline, about a million commands. */
void
recycled( benchmark::State & state ) {
   auto all = keysOf( 4096 );
   Compared c;
   Ours ours;
   Hand< MacEntryKey > hand;
   Hand< U64 > packed;
   Standard standard;
   for ( U32 round = 0; round < 244; ++round ) {
      wholeWay( c.ours, all, ours );
      wholeWay( c.hand, all, hand );
      wholeWay( c.packed, all, packed );
      wholeWay( c.standard, all, standard );
   }
   show( state, c );
}
BENCHMARK( recycled )->Iterations( 1 )->UseManualTime();

/** The walk over what did not fit, back to pending. */
void
overflow( benchmark::State & state ) {
   auto all = keysOf( 100000 );
   Costs ours, standard;
   for ( U32 round = 0; round < 5; ++round ) {
      overOverflow< Ours >( ours, all );
      overOverflow< Standard >( standard, all );
   }
   for ( auto _ : state ) {
      state.SetIterationTime( ours.retry * 1e-9 );
   }
   state.counters["ns"] = ours.retry;
   state.counters["standard_ns"] = standard.retry;
   state.counters["ratio_standard"] = standard.retry / ours.retry;
   state.counters["slice_ms"] = ours.longest * 1e-6;
}
BENCHMARK( overflow )->Iterations( 1 )->UseManualTime();

} // namespace
