#include "agent/softchip/StormTable.h"

#include <algorithm>

namespace SoftChip {

namespace {

constexpr Kiv::Seconds limiterDelay = 0.02;

bool
limits( const Threshold & threshold ) {
   return !( threshold == Threshold() );
}

} // namespace

bool
StormTable::room() const {
   return held_.size() < plan_.limit( "stormLimiters", limiters_ );
}

bool
StormTable::set( IntfId port, Level level, const Limit & limit ) {
   const Key key( port, level );
   ++writes_;
   const bool trouble = bool( plan_.next( "stormLimiter" ) );
   if ( !limits( limit.threshold ) ) {
      drop( key );
      admit();
      return true;
   }
   if ( auto held = held_.find( key ); held != held_.end() ) {
      held->second = limit;
      return true;
   }
   auto place = std::find_if( waiting_.begin(), waiting_.end(),
                              [&]( auto & wish ) { return wish.first == key; } );
   if ( place != waiting_.end() ) {
      place->second = limit;
   } else if ( room() && !trouble && waiting_.empty() ) {
      held_[key] = limit;
      return true;
   } else {
      waiting_.emplace_back( key, limit );
   }
   if ( room() ) {
      again_.in( limiterDelay );
   }
   return false;
}

void
StormTable::drop( const Key & key ) {
   held_.erase( key );
   std::erase_if( waiting_, [&]( auto & wish ) { return wish.first == key; } );
}

/** Those that waited longest; they hear of it one after the other. */
void
StormTable::admit() {
   while ( !waiting_.empty() && room() ) {
      const auto wish = waiting_.front();
      waiting_.erase( waiting_.begin() );
      held_[wish.first] = wish.second;
      ++writes_;
      if ( auto hearer = hook.now() ) {
         hearer->admitted( wish.first.first );
      }
   }
}

void
StormTable::classIs( U8 trafficClass, const Threshold & threshold ) {
   limits( threshold ) ? void( classes_[trafficClass] = threshold )
                       : void( classes_.erase( trafficClass ) );
}

void
StormTable::skipIs( IntfId port, bool skip ) {
   skip ? void( skipped_[port] = true ) : void( skipped_.erase( port ) );
}

void
StormTable::reset( IntfId port ) {
   ++writes_;
   std::erase_if( held_, [&]( auto & entry ) { return entry.first.first == port; } );
   std::erase_if( waiting_, [&]( auto & wish ) { return wish.first.first == port; } );
   admit();
}

void
StormTable::clear() {
   ++writes_;
   held_.clear();
   waiting_.clear();
   classes_.clear();
   skipped_.clear();
}

const StormTable::Limit *
StormTable::limit( IntfId port, Level level ) const {
   auto held = held_.find( Key( port, level ) );
   return held == held_.end() ? nullptr : &held->second;
}

bool
StormTable::waits( IntfId port, Level level ) const {
   return std::any_of( waiting_.begin(), waiting_.end(),
                       [&]( auto & wish ) { return wish.first == Key( port, level ); } );
}

} // namespace SoftChip
