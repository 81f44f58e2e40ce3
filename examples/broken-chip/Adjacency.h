#pragma once
// Adjacencies of the chip, the groups of those with several next hops, the FECs that lead to them, and
// the hook class that writes them: adjacencies a little later, FECs at once.

#include "Tables.h"

namespace Chip {

class ChipAdjacency : public QonChip::AdjacencyHelper {
 public:
   using GlobalFecId = Qon::GlobalFecId;
   using Answer = QonChip::AdjacencyAnswer;

   ChipAdjacency( Tables & tables, Faults faults, Kiv::TimerWheel * wheel )
       : faults_( faults ), held_( tables.adjacencies ), later_( wheel ) {
      for ( auto & [place, one] : held_.adjacencies ) {
         one.stale = true;
      }
   }

   void adjacencyIs( U32 number, U32 version, const Qon::L2AdjKey & key ) override {
      versions_[number] = version;
      later_.add( [=, this] { write( number, version, key ); } );
   }
   void adjacencyDel( U32 number ) override {
      versions_.erase( number );
      if ( const auto place = placeOf( number ) ) {
         held_.adjacencies.erase( *place );
         if ( std::exchange( refused_, false ) && !faults_.roomUntold ) {
            room();
         }
      }
   }
   void fecIs( GlobalFecId fec, U32 number ) override { held_.fecs[fec] = *placeOf( number ); }
   void fecDel( GlobalFecId fec ) override { held_.fecs.erase( fec ); }
   void staleDel() override {
      std::erase_if( held_.fecs, [this]( auto & fec ) { return isStale( fec.second ); } );
      std::erase_if( held_.adjacencies, []( auto & one ) { return one.second.stale; } );
   }

 private:
   void write( U32 number, U32 version, const Qon::L2AdjKey & key ) {
      const auto newest = versions_.find( number );
      if ( newest != versions_.end() && newest->second == version ) {
         const Answer answer = add( number, key );
         refused_ = refused_ || answer != Answer::programmed;
         answered( number, version, answer );
      }
   }
   Answer add( U32 number, const Qon::L2AdjKey & key ) {
      const bool several = key.nextHopCollection().viaAndWeights() > 1;
      if ( held_.adjacencies.size() >= Tables::adjacencyRoom ) {
         return Answer::full;
      }
      if ( several && groups() >= Tables::ecmpRoom ) {
         return Answer::ecmpGroupsFull;
      }
      U32 place = 0;
      while ( held_.adjacencies.contains( place ) ) {
         ++place;
      }
      held_.adjacencies[place] = { number, false, key, {}, 0 };
      if ( several ) {
         held_.adjacencies[place].group = place;
      }
      return Answer::programmed;
   }
   std::size_t groups() const {
      std::size_t all = 0;
      for ( auto & [place, one] : held_.adjacencies ) {
         all += one.group.has_value();
      }
      return all;
   }
   std::optional< U32 > placeOf( U32 number ) const {
      for ( auto & [place, one] : held_.adjacencies ) {
         if ( one.number == number && !one.stale ) {
            return place;
         }
      }
      return std::nullopt;
   }
   bool isStale( U32 place ) const { return held_.adjacencies.at( place ).stale; }

   Faults faults_;
   QonChip::HeldAdjacencies & held_;
   std::map< U32, U32 > versions_; // the newest of each number
   bool refused_ = false;          // somebody found no room
   Later later_;
};

} // namespace Chip
