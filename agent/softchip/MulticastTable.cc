#include "agent/softchip/MulticastTable.h"

#include <utility>

namespace SoftChip {

using QonTypes::TableAddStatus;

namespace {

Qon::MacEntryKey
hostKey( const Bridging::MacVlanPair & key ) {
   return Qon::MacEntryKey( key, Qon::MacHwType::macHwKeyBridge );
}

TableAddStatus
addStatusOf( Trouble trouble ) {
   return trouble == Trouble::full   ? TableAddStatus::full
          : trouble == Trouble::fail ? TableAddStatus::failed
                                     : TableAddStatus::notNow;
}

} // namespace

const MulticastTable::Ports *
MulticastTable::portsOf( const Bridging::MacVlanPair & key ) const {
   auto entry = macEntries_.find( key );
   return entry == macEntries_.end() ? nullptr : &groups_.at( entry->second );
}

S64
MulticastTable::take() {
   if ( plan_.next( "multicastGroup" ) || groups_.size() >= groupsAtMost() ) {
      return -1;
   }
   const S64 free = gaps_.empty() ? S64( groups_.size() ) : *gaps_.begin();
   gaps_.erase( free );
   groups_.try_emplace( free );
   return free;
}

void
MulticastTable::write( S64 index, Ports ports ) {
   VELTO_ASSERT( groups_.contains( index ) );
   groups_[index] = std::move( ports );
}

void
MulticastTable::giveBack( S64 index ) {
   VELTO_ASSERT( !leading_.contains( index ) );
   groups_.erase( index );
   gaps_.insert( index );
}

TableAddStatus
MulticastTable::lead( const Bridging::MacVlanPair & key, S64 index ) {
   VELTO_ASSERT( groups_.contains( index ) );
   if ( auto trouble = plan_.next( "multicastMac" ) ) {
      return addStatusOf( *trouble );
   }
   if ( !macEntries_.contains( key ) ) {
      const TableAddStatus status = hosts_->reserve( hostKey( key ) );
      if ( status != TableAddStatus::success ) {
         return status;
      }
   }
   auto [entry, fresh] = macEntries_.try_emplace( key, index );
   if ( !fresh ) {
      dropLead( std::exchange( entry->second, index ) );
   }
   ++leading_[index];
   return TableAddStatus::success;
}

void
MulticastTable::leadNowhere( const Bridging::MacVlanPair & key ) {
   if ( auto entry = macEntries_.find( key ); entry != macEntries_.end() ) {
      dropLead( entry->second );
      macEntries_.erase( entry );
      hosts_->unreserve( hostKey( key ) );
   }
}

void
MulticastTable::dropLead( S64 index ) {
   if ( --leading_[index] == 0 ) {
      leading_.erase( index );
   }
}

void
MulticastTable::damage( bool macEntries ) {
   while ( macEntries && !macEntries_.empty() ) {
      const Bridging::MacVlanPair key = macEntries_.begin()->first;
      leadNowhere( key );
   }
   if ( !macEntries ) {
      for ( auto & [index, ports] : groups_ ) {
         ports.clear();
      }
   }
}

void
MulticastTable::clear() {
   damage( true );
   groups_.clear();
   gaps_.clear();
   ++serial_;
}

} // namespace SoftChip
