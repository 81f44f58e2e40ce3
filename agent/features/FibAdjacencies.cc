#include "agent/features/FibAdjacencies.h"

namespace QonAgent {

FibAdjacencies::Ptr
FibAdjacencies::adjacency( const Qon::L2AdjKey & key ) {
   if ( const Ptr * held = byKey_.find( key ) ) {
      return *held;
   }
   if ( free_.empty() ) {
      byNumber_.push_back( nullptr );
      free_.push_back( mostNumber() );
   }
   const auto made = Velto::make< FibAdjacency >( key, free_.back() );
   free_.pop_back();
   byNumber_[made->number() - 1] = made.ptr();
   byKey_.emplace( key, made );
   return made;
}

void
FibAdjacencies::move( Qon::GlobalFecId fec, U32 prefixes, const Ptr & from, const Ptr & to ) {
   if ( from == to ) {
      return;
   }
   Velto::FirstError error;
   error.run( [&] { enter( fec, prefixes, to ); } );
   error.run( [&] { leave( fec, prefixes, from ); } );
   error.pass();
}

void
FibAdjacencies::enter( Qon::GlobalFecId fec, U32 prefixes, const Ptr & to ) {
   if ( !to ) {
      return;
   }
   Velto::FirstError error;
   error.run( [&] { to->adjEntryIs( fec ); } );
   error.run( [&] { to->setTableTypeForAdj( fec, Qon::TableType::unicast ); } );
   error.run( [&] { to->configRefCountInc( prefixes ); } );
   error.pass();
}

void
FibAdjacencies::leave( Qon::GlobalFecId fec, U32 prefixes, const Ptr & from ) {
   if ( !from ) {
      return;
   }
   Velto::FirstError error;
   error.run( [&] { from->configRefCountDec( prefixes ); } );
   error.run( [&] { from->adjEntryDel( fec ); } );
   dropUnused( from );
   error.pass();
}

void
FibAdjacencies::dropUnused( const Ptr & adjacency ) {
   const U32 number = adjacency->number();
   if ( adjacency->adjEntrys() == 0 && adjacency->inChip.state == FibChipState::none &&
        at( number ) == adjacency ) {
      byNumber_[number - 1] = nullptr;
      free_.push_back( number );
      byKey_.erase( adjacency->l2AdjKey() );
   }
}

Velto::String
FibAdjacencies::checkInvariants() const {
   for ( auto && [key, adjacency] : byKey_ ) {
      const Velto::String name = "adjacency " + Kiv::toText( adjacency->number() ) + ": ";
      if ( adjacency->l2AdjKey() != key || at( adjacency->number() ) != adjacency ) {
         return name + "stands under another key or number";
      }
      if ( adjacency->adjEntrys() == 0 && adjacency->inChip.state == FibChipState::none ) {
         return name + "has no FEC";
      }
      if ( const Velto::String wrong = adjacency->checkInvariants(); !wrong.empty() ) {
         return name + wrong;
      }
   }
   return size() + free_.size() == byNumber_.size() ? "" : "a number is neither used nor free";
}

} // namespace QonAgent
