#include "agent/softchip/VlanMappingTable.h"

namespace SoftChip {

VlanMappingTable::Result
VlanMappingTable::write( Direction d, const Key & key, const Mapping & mapping ) {
   Entries & entries = entries_[U8( d )];
   if ( auto held = entries.find( key ) ) {
      *held = mapping;
      return Result::success;
   }
   if ( entries.size() >= plan_.limit( "vlanMappingTable", shape_.entries ) ) {
      return Result::full;
   }
   entries.emplace( key, mapping );
   return Result::success;
}

VlanMappingTable::Result
VlanMappingTable::add( Direction d, const Key & key, const Mapping & mapping ) {
   latest_[U8( d )].erase( key );
   const auto trouble = plan_.next( "vlanMapping" );
   if ( !trouble || *trouble == Trouble::lose ) {
      return write( d, key, mapping );
   }
   return *trouble == Trouble::busy   ? Result::notNow
          : *trouble == Trouble::full ? Result::full
                                      : Result::failed;
}

void
VlanMappingTable::request( Direction d, const Key & key, const Mapping & mapping, U32 version ) {
   const U64 number = ++requests_;
   *latest_[U8( d )].emplace( key ).first = number;
   completions_.add( [this, d, key, mapping, version, number, ticket = hook.ticket()] {
      auto latest = latest_[U8( d )].find( key );
      if ( !latest || *latest != number ) {
         return;
      }
      latest_[U8( d )].erase( key );
      const Result result = add( d, key, mapping );
      if ( Hook * hearer = hook.of( ticket ) ) {
         hearer->answered( d, key, result, version );
      }
   } );
}

void
VlanMappingTable::remove( Direction d, const Key & key ) {
   latest_[U8( d )].erase( key );
   entries_[U8( d )].erase( key );
}

std::vector< Qon::PortVlanKey >
VlanMappingTable::keys( Direction d ) const {
   std::vector< Key > all;
   for ( auto && [key, mapping] : entries_[U8( d )] ) {
      all.push_back( key );
   }
   for ( auto && [key, number] : latest_[U8( d )] ) {
      all.push_back( key );
   }
   return all;
}

std::optional< VlanMappingTable::Mapping >
VlanMappingTable::mapping( Direction d, const Key & key ) const {
   auto held = entries_[U8( d )].find( key );
   return held ? std::optional( *held ) : std::nullopt;
}

} // namespace SoftChip
