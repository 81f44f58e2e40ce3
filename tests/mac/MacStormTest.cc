// Storms: wishes, flushes, answers of every kind and passing time in an order drawn by a seed, on
// a chip with small buckets. When the storm has come to rest, the chip holds the newest wish of
// every key that fits.
//
// QON_NIGHTLY=1 runs 1,000 seeds of 100,000 events instead of 20 of 20,000.

#include <deque>
#include <optional>
#include <set>

#include "platform/Kiv/Rng.h"
#include "tests/mac/FakeChip.h"

namespace {

using namespace Tests;
using enum Qon::MacProgramStatus;

/** Works off what is written in order, and knows what it did. */
class StormChip {
 public:
   static constexpr U32 buckets = 16, width = 3;

   void write( const MacCmdPtr & cmd ) { queue_.push_back( { cmd, cmd->transactionId() } ); }
   bool busy() const { return !queue_.empty() || !answers_.empty(); }
   bool hasRoom( const MacEntryKey & key ) const { return fill_[bucketOf( key )] < width; }
   /** The command that put the key there; null if it is not there. */
   MacCmdPtr entry( const MacEntryKey & key ) const {
      auto found = table_.find( key );
      return found == table_.end() ? nullptr : found->second;
   }
   U32 size() const { return U32( table_.size() ); }
   /** The status under which `cmd` was done last, and whether it was flushed since. */
   struct Done {
      Status status;
      bool flushed;
   };
   std::optional< Done > done( const MacCmdPtr & cmd ) const {
      auto found = done_.find( cmd->key() );
      bool known = found != done_.end() && found->second.cmd == cmd;
      return known ? std::optional( found->second.done ) : std::nullopt;
   }

   /** Does the first command of the queue; `trouble` is an outcome that is up to the chip. */
   void work( std::optional< Status > trouble ) {
      if ( !queue_.empty() ) {
         auto [cmd, id] = queue_.front();
         queue_.pop_front();
         Status status = trouble ? *trouble : execute( cmd );
         if ( cmd->addrOp() ) {
            done_[cmd->key()] = { cmd, { status, false } };
         }
         answers_.push_back( { id, status } );
      }
   }
   /** Hands one of the answers over; `keep` lets it come again. */
   void answer( Qon::QonMacProgrammer & to, U32 random, bool keep ) {
      if ( !answers_.empty() ) {
         std::swap( answers_[random % answers_.size()], answers_.back() );
         auto [id, status] = answers_.back();
         if ( !keep ) {
            answers_.pop_back();
         }
         to.handleCmdResponse( id, U32( id ), status );
      }
   }

 private:
   static U32 bucketOf( const MacEntryKey & key ) { return U32( key.hash() >> 7 ) % buckets; }
   Status execute( const MacCmdPtr & cmd ) {
      auto found = table_.find( cmd->key() );
      if ( cmd->type() == CmdType::removeHost ) {
         if ( found != table_.end() ) {
            --fill_[bucketOf( cmd->key() )];
            table_.erase( found );
         }
      } else if ( !cmd->addrOp() ) {
         flush( cmd );
      } else if ( found != table_.end() ) {
         found->second = cmd;
      } else if ( !hasRoom( cmd->key() ) ) {
         return macProgramFull;
      } else {
         ++fill_[bucketOf( cmd->key() )];
         table_[cmd->key()] = cmd;
      }
      return macProgramSuccess;
   }
   void flush( const MacCmdPtr & cmd ) {
      std::erase_if( table_, [&]( auto & entry ) {
         auto & key = entry.first;
         bool hit = cmd->type() == CmdType::flushAll || key.key().vlan() == cmd->key().key().vlan();
         if ( hit ) {
            --fill_[bucketOf( key )];
            done_[key].done.flushed = true;
         }
         return hit;
      } );
   }

   struct Written {
      MacCmdPtr cmd;
      U64 id;
   };
   struct Record {
      MacCmdPtr cmd;
      Done done;
   };
   std::deque< Written > queue_;
   std::vector< std::pair< U64, Status > > answers_;
   std::map< MacEntryKey, MacCmdPtr > table_;
   std::map< MacEntryKey, Record > done_;
   U32 fill_[buckets] = {};
};

class Storm : public MacWorld {
 public:
   explicit Storm( U32 seed ) : random_( seed ) {
      chip->onWrite = [this]( const MacCmdPtr & cmd ) {
         hw_.write( cmd );
         chip->written.clear();
      };
      // Small slices: runs are interrupted all the time.
      chip->updateQuantumIs( 1 + draw( 8 ) );
      chip->pollReqQuantumIs( 1 + draw( 8 ) );
      chip->updateQuantumofTimesIs( draw( 2 ) * 0.01 );
      chip->pollReqQuantumofTimesIs( draw( 2 ) * 0.01 );
      calm_ = draw( 4 ); // how seldom wishes are, compared with the chip's work
   }

   void event() {
      U32 kind = draw( 100 );
      if ( kind < 30 ) {
         draw( 1 + calm_ ) == 0 ? wish() : work();
      } else if ( kind < 32 ) {
         flush();
      } else if ( kind < 65 ) {
         work();
      } else if ( kind < 90 ) {
         hw_.answer( *chip, draw( ~0u ), draw( 8 ) == 0 );
      } else if ( kind < 91 ) {
         chip->handleCmdResponse( ( U64( 1 ) << 40 ) + draw( 9 ), 0, Status( draw( 7 ) ) );
      } else if ( kind < 92 ) {
         chip->suspendPendingIs( draw( 4 ) == 0 );
         chip->suspendInProgressIs( draw( 4 ) == 0 );
      } else {
         scheduler.runFor( draw( 30 ) == 0 ? 6 : draw( 30 ) * 0.01 );
      }
   }

   void comeToRest() {
      chip->suspendPendingIs( false );
      chip->suspendInProgressIs( false );
      for ( U32 i = 0; i < 2000 && ( i < 200 || chip->pendingMacOps() || chip->inProgMacOps() );
            ++i ) {
         while ( hw_.busy() ) {
            hw_.work( {} );
            hw_.answer( *chip, 0, false );
         }
         scheduler.runFor( 0.5 );
      }
   }

   /** What is wrong at rest; empty if nothing is. */
   String verdict() const {
      if ( chip->pendingMacOps() || chip->inProgMacOps() ) {
         return "it did not come to rest";
      }
      if ( !chip->overflowAddrOps() && !chip->atRest() ) {
         return "a clock is armed for nothing";
      }
      U32 held = 0;
      for ( auto & [key, cmd] : newest_ ) {
         held += bool( hw_.entry( key ) );
         if ( String wrong = verdict( key, cmd ); !wrong.empty() ) {
            return wrong + ": " + cmd->stringValue();
         }
      }
      return held == hw_.size() ? "" : "the chip holds what nobody wished";
   }

   bool overflowed() const { return !logs.records().empty(); }

 private:
   U32 draw( U32 below ) { return U32( random_() ) % below; }
   void wish() {
      // Two in three keys share the tables; so some buckets overflow.
      auto key = macKey( draw( 40 ), 1 + draw( 2 ), Qon::MacHwType( draw( 8 ) == 0 ) );
      auto cmd = macCmd( draw( 5 ) < 3 ? CmdType::addHost : CmdType::removeHost, key,
                         draw( 20 ) ? 0 : 1 + draw( 1000000 ) );
      newest_[key] = cmd;
      chip->handleAddrOp( cmd );
   }
   void flush() {
      auto type = draw( 4 ) ? CmdType::flushVlan : CmdType::flushAll;
      chip->handleFlushOp( macCmd( type, macKey( 0, 1 + draw( 2 ) ) ) );
   }
   void work() {
      static constexpr Status troubles[] = { macProgramBusy, macProgramParityError,
                                             macProgramFailed };
      U32 luck = draw( 60 );
      hw_.work( luck < 13 ? std::optional( troubles[luck / 6] ) : std::nullopt );
   }

   String verdict( const MacEntryKey & key, const MacCmdPtr & cmd ) const {
      if ( chip->overflowAddrOpHas( key ) ) {
         return hw_.hasRoom( key ) || hw_.entry( key ) ? "in overflow, but there is room" : "";
      }
      auto done = hw_.done( cmd );
      if ( !done ) {
         return "not the last to be done";
      }
      if ( done->status == macProgramFailed ) {
         return "";
      }
      bool wanted = cmd->type() != CmdType::removeHost && !done->flushed;
      return hw_.entry( key ) == ( wanted ? cmd : nullptr ) ? "" : "not what the chip holds";
   }

   Kiv::Rng random_;
   U32 calm_;
   StormChip hw_;
   std::map< MacEntryKey, MacCmdPtr > newest_;
};

TEST( MacStorm, ComesToRestWithTheNewestWishes ) {
   bool nightly = std::getenv( "QON_NIGHTLY" );
   U32 seeds = nightly ? 1000 : 20, events = nightly ? 100000 : 20000, overflows = 0;
   for ( U32 seed = 1; seed <= seeds; ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      Storm storm( seed );
      for ( U32 i = 0; i < events; ++i ) {
         storm.event();
         if ( i % 16 == 0 ) {
            ASSERT_EQ( storm.chip->checkInvariants(), "" ) << "after event " << i;
         }
      }
      storm.comeToRest();
      ASSERT_EQ( storm.chip->checkInvariants(), "" );
      ASSERT_EQ( storm.verdict(), "" );
      overflows += storm.overflowed();
   }
   EXPECT_GT( overflows, seeds / 2 ); // or the storms were too mild
}

} // namespace
