#include "agent/softchip/AdjacencyTable.h"

#include <utility>

namespace SoftChip {

U32
AdjacencyTable::Places::take() {
   if ( free_.empty() ) {
      return next_++;
   }
   const U32 place = *free_.begin();
   free_.erase( free_.begin() );
   return place;
}

AdjacencyTable::AdjacencyTable( const AdjacencyLimits & limits, FaultPlan & plan )
    : limits_( limits ), plan_( plan ) {
   plan.hookIs( "adjacencyIs" );
   plan.tableIs( "adjacencies" );
   plan.tableIs( "ecmpGroups" );
}

QonChip::HeldAdjacencies
AdjacencyTable::held() const {
   QonChip::HeldAdjacencies all{ adjacencies_, {} };
   for ( auto && [fec, place] : fecs_ ) {
      all.fecs[fec] = place;
   }
   return all;
}

const Qon::L2AdjKey *
AdjacencyTable::hopsOf( GlobalFecId fec ) const {
   const U32 * place = fecs_.find( fec );
   return place ? &adjacencies_.at( *place ).key : nullptr;
}

// --- Adjacencies ---------------------------------------------------------------------------------

void
AdjacencyTable::add( U32 number, U32 version, const Qon::L2AdjKey & key ) {
   Newest & newest = *newest_.emplace( number ).first;
   if ( newest.place ) {
      refused_.push_back( "adjacency " + Kiv::toText( number ) + " again" );
      return;
   }
   newest.version = version;
   const Troubles trouble = plan_.next( "adjacencyIs" );
   if ( trouble != Trouble::lose ) {
      completions.add(
            [=, this, by = hook.ticket()] { complete( number, version, key, trouble, by ); } );
   }
}

void
AdjacencyTable::complete( U32 number, U32 version, const Qon::L2AdjKey & key, Troubles trouble,
                          Ticket by ) {
   Hook * hears = hook.of( by );
   Newest * newest = hears ? newest_.find( number ) : nullptr;
   if ( newest && newest->version == version && !newest->place ) {
      hears->done( number, version, write( number, *newest, key, trouble ) );
   }
}

AdjacencyTable::Answer
AdjacencyTable::write( U32 number, Newest & newest, const Qon::L2AdjKey & key, Troubles trouble ) {
   if ( trouble && *trouble != Trouble::full ) {
      return Answer::failed;
   }
   if ( trouble || adjacencies_.size() >= adjacenciesAtMost() ) {
      wanting_ = true;
      return Answer::full;
   }
   const bool several = key.nextHopCollection().viaAndWeights() > 1;
   if ( several && groups_.taken() >= groupsAtMost() ) {
      wanting_ = true;
      return Answer::ecmpGroupsFull;
   }
   newest.place = places_.take();
   QonChip::HeldAdjacency & held = adjacencies_[*newest.place];
   held.number = number;
   held.key = key;
   if ( several ) {
      held.group = groups_.take();
   }
   return Answer::programmed;
}

void
AdjacencyTable::remove( U32 number ) {
   const auto place = newest_.has( number ) ? newest_.find( number )->place : std::nullopt;
   if ( place && adjacencies_.at( *place ).fecs ) {
      refused_.push_back( "removal of adjacency " + Kiv::toText( number ) + ", which is in use" );
      return;
   }
   newest_.erase( number );
   if ( place ) {
      going_.insert( *place );
      completions.add( [this, at = *place] {
         going_.erase( at );
         erase( at );
         tellRoom();
      } );
   }
}

void
AdjacencyTable::erase( U32 place ) {
   const auto held = adjacencies_.find( place );
   if ( held->second.group ) {
      groups_.giveBack( *held->second.group );
   }
   adjacencies_.erase( held );
   places_.giveBack( place );
}

void
AdjacencyTable::tellRoom() {
   if ( hook.now() && std::exchange( wanting_, false ) ) {
      hook.now()->roomCame();
   }
}

// --- FECs ----------------------------------------------------------------------------------------

void
AdjacencyTable::lead( GlobalFecId fec, U32 number ) {
   const Newest * newest = newest_.find( number );
   if ( !newest || !newest->place ) {
      refused_.push_back( "FEC " + fec.stringValue() + " to adjacency " + Kiv::toText( number ) +
                          ", which is not there" );
      return;
   }
   const U32 to = *newest->place;
   ++adjacencies_.at( to ).fecs;
   if ( const auto [place, fresh] = fecs_.emplace( fec, to ); !fresh ) {
      --adjacencies_.at( std::exchange( *place, to ) ).fecs;
   }
}

void
AdjacencyTable::drop( GlobalFecId fec ) {
   if ( const auto place = fecs_.take( fec ) ) {
      --adjacencies_.at( *place ).fecs;
   }
}

// --- From one hook object to the next ------------------------------------------------------------

void
AdjacencyTable::begin( Hook * by ) {
   hook.is( by );
   newest_.clear();
   wanting_ = false;
   for ( auto & [place, held] : adjacencies_ ) {
      held.stale = true;
   }
}

void
AdjacencyTable::staleDel() {
   std::vector< GlobalFecId > left;
   for ( auto && [fec, place] : fecs_ ) {
      if ( adjacencies_.at( place ).stale ) {
         left.push_back( fec );
      }
   }
   for ( const GlobalFecId fec : left ) {
      drop( fec );
   }
   std::vector< U32 > gone;
   for ( auto & [place, held] : adjacencies_ ) {
      if ( held.stale && !going_.contains( place ) ) {
         gone.push_back( place );
      }
   }
   for ( const U32 place : gone ) {
      erase( place );
   }
   tellRoom();
}

} // namespace SoftChip
