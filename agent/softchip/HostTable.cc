#include "agent/softchip/HostTable.h"

#include <algorithm>
#include <bit>

#include "platform/Kiv/Hash.h"

namespace SoftChip {

using Qon::MacEntryKey;
using enum Qon::IndirectAccessMacCmdType;
using enum Qon::MacProgramStatus;

namespace {

constexpr U64 hashSeed = 0x51ed270b0c1e5a2bull; // keys of one bucket of the index spread here

U32
placesNeeded( const MacEntryKey & key ) {
   return key.macHwType() == Qon::MacHwType::macHwKeyBridgeDwide ? 2 : 1;
}

/** Whether flushes that name no type take it. */
bool
dynamic( Bridging::EntryType type ) {
   using enum Bridging::EntryType;
   return type == unknown || type == learnedDynamic || type == learnedRemote ||
          type == peerDynamic || type == evpnDynamic || type == configuredDynamic;
}

/** Whether the flush `command` takes an entry. */
bool
takes( const HostCommand & command, const MacEntryKey & key, const HostEntry & entry ) {
   bool inVlan = key.key().vlan() == command.key.key().vlan();
   bool onIntf = entry.intf == command.intf;
   bool ofType = entry.entryType == command.entryType;
   switch ( command.type ) {
   case flushAll:
      return dynamic( entry.entryType );
   case flushLag:
   case flushPort:
      return onIntf && dynamic( entry.entryType );
   case flushPortType:
      return onIntf && ofType;
   case flushVlan:
      return inVlan && dynamic( entry.entryType );
   case flushVlanLag:
   case flushVlanPort:
      return inVlan && onIntf && dynamic( entry.entryType );
   case flushVlanPortType:
      return inVlan && onIntf && ofType;
   default:
      return false;
   }
}

HostTable::Status
statusOf( Trouble trouble ) {
   switch ( trouble ) {
   case Trouble::busy:
      return macProgramBusy;
   case Trouble::parity:
      return macProgramParityError;
   case Trouble::full:
      return macProgramFull;
   default:
      return macProgramFailed;
   }
}

} // namespace

HostTable::HostTable( Kiv::TimerWheel * wheel, const HostTableShape & shape, FaultPlan & plan )
    : shape_( shape ), plan_( plan ), taken_( shape.buckets ),
      alarm_( [this] { handleTimeout(); }, wheel ) {
   VELTO_ASSERT( shape.buckets > 0 && shape.width > 0 && shape.width <= 32 );
   plan.hookIs( "writeToHw" );
   plan.tableIs( "hostTable" );
}

void
HostTable::start( const HostCommand & command ) {
   Kiv::Seconds now = Kiv::now();
   if ( queue_.size() >= shape_.depth ) {
      refused_.push_back( { command.id, hook.ticket() } );
      return;
   }
   Kiv::Seconds after = queue_.empty() ? now : std::max( now, queue_.back().due );
   queue_.push_back( { command, after + shape_.latency, hook.ticket() } );
   alarm_.at( queue_.front().due );
}

void
HostTable::handleTimeout() {
   Kiv::Seconds now = Kiv::now();
   while ( !queue_.empty() && queue_.front().due <= now ) {
      const Queued queued = queue_.front();
      queue_.pop_front();
      work( queued );
   }
   for ( auto & refused : std::exchange( refused_, {} ) ) {
      answer( refused.ticket, refused.id, 0, macProgramBusy );
   }
   if ( auto hearer = hook.now() ) {
      hearer->queueMoved();
   }
   if ( !queue_.empty() ) {
      alarm_.at( queue_.front().due );
   }
}

void
HostTable::work( const Queued & queued ) {
   U32 index = 0;
   auto trouble = plan_.next( "writeToHw" );
   if ( trouble == Trouble::lose ) {
      return;
   }
   Status status = trouble ? statusOf( *trouble ) : execute( queued.command, index );
   answer( queued.ticket, queued.command.id, index, status );
}

void
HostTable::answer( Ticket ticket, U64 id, U32 index, Status status ) {
   if ( auto hearer = hook.of( ticket ) ) {
      hearer->done( id, index, status );
   }
}

HostTable::Status
HostTable::execute( const HostCommand & command, U32 & index ) {
   if ( command.type == addHost || command.type == addMcastHost ) {
      return add( command, index );
   }
   if ( command.type == removeHost ) {
      if ( entry( command.key ) ) {
         remove( command.key );
      }
   } else {
      flush( command );
   }
   return macProgramSuccess;
}

HostTable::Status
HostTable::add( const HostCommand & command, U32 & index ) {
   if ( auto entry = entries_.find( command.key ) ) {
      if ( entry->reserved ) {
         return macProgramFull;
      }
      entry->intf = command.intf;
      entry->entryType = command.entryType;
      entry->multicast = command.type == addMcastHost;
      index = entry->index;
      return macProgramSuccess;
   }
   U32 places = freePlaces( command.key );
   if ( !places ) {
      return macProgramFull;
   }
   U32 bucket = bucketOf( command.key );
   taken_[bucket] |= places;
   index = bucket * shape_.width + U32( std::countr_zero( places ) );
   entries_.emplace( command.key, HostEntry{ command.intf, command.entryType,
                                             command.type == addMcastHost, index, places, false } );
   return macProgramSuccess;
}

void
HostTable::remove( const MacEntryKey & key ) {
   if ( auto entry = entries_.take( key ) ) {
      taken_[bucketOf( key )] &= ~entry->places;
   }
}

void
HostTable::flush( const HostCommand & command ) {
   std::vector< MacEntryKey > gone;
   for ( auto && [key, entry] : entries_ ) {
      if ( !entry.reserved && takes( command, key, entry ) ) {
         gone.push_back( key );
      }
   }
   for ( auto & key : gone ) {
      remove( key );
   }
}

QonTypes::TableAddStatus
HostTable::reserve( const MacEntryKey & key ) {
   if ( entry( key ) ) {
      return QonTypes::TableAddStatus::notNow;
   }
   VELTO_ASSERT( !entries_.has( key ) );
   const U32 places = freePlaces( key );
   if ( !places ) {
      return QonTypes::TableAddStatus::full;
   }
   const U32 bucket = bucketOf( key );
   taken_[bucket] |= places;
   entries_.emplace( key, HostEntry{ {},
                                     {},
                                     true,
                                     bucket * shape_.width + U32( std::countr_zero( places ) ),
                                     places,
                                     true } );
   return QonTypes::TableAddStatus::success;
}

void
HostTable::unreserve( const MacEntryKey & key ) {
   if ( auto held = entries_.find( key ); held && held->reserved ) {
      remove( key );
   }
}

U32
HostTable::bucketOf( const MacEntryKey & key ) const {
   return U32( Kiv::mix( key.hash() ^ hashSeed ) % shape_.buckets );
}

/** The places that a new entry would take, a bit each; 0 if there are too few. */
U32
HostTable::freePlaces( const MacEntryKey & key ) const {
   U32 capacity = shape_.buckets * shape_.width;
   if ( entries_.size() >= plan_.limit( "hostTable", capacity ) ) {
      return 0;
   }
   U32 all = ~U32( 0 ) >> ( 32 - shape_.width );
   U32 free = all & ~taken_[bucketOf( key )];
   U32 places = 0;
   for ( U32 need = placesNeeded( key ); need; --need ) {
      if ( !free ) {
         return 0;
      }
      places |= free & -free;
      free &= free - 1;
   }
   return places;
}

bool
HostTable::hasRoom( const MacEntryKey & key ) const {
   return freePlaces( key ) != 0;
}

} // namespace SoftChip
