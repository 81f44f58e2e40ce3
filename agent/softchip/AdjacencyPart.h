#pragma once
// Adjacencies in the chip in software: the hook object over the table, which outlives it.

#include "agent/softchip/AdjacencyTable.h"
#include "agent/softchip/Part.h"

namespace SoftChip {

class SoftAdjacencyHelper : public QonChip::AdjacencyHelper, AdjacencyTable::Hook {
 public:
   using GlobalFecId = Qon::GlobalFecId;

   explicit SoftAdjacencyHelper( AdjacencyTable & table ) : table_( table ) { table.begin( this ); }
   ~SoftAdjacencyHelper() override { table_.hook.is( nullptr ); }

   void adjacencyIs( U32 number, U32 version, const Qon::L2AdjKey & key ) override {
      table_.add( number, version, key );
   }
   void adjacencyDel( U32 number ) override { table_.remove( number ); }
   void fecIs( GlobalFecId fec, U32 number ) override { table_.lead( fec, number ); }
   void fecDel( GlobalFecId fec ) override { table_.drop( fec ); }
   void staleDel() override { table_.staleDel(); }

 private:
   void done( U32 number, U32 version, QonChip::AdjacencyAnswer answer ) override {
      answered( number, version, answer );
   }
   void roomCame() override { room(); }

   AdjacencyTable & table_;
};

class AdjacencyPart : public QonChip::AdjacencyPart {
 public:
   using Seam = QonChip::AdjacencyPart;
   explicit AdjacencyPart( const Board & board )
       : table_( board.shape.adjacencies, board.faults ) {}

   Velto::Ptr< QonChip::AdjacencyHelper > makeAdjacencyHelper() override {
      return Velto::make< SoftAdjacencyHelper >( table_ );
   }
   std::optional< QonChip::HeldAdjacencies > adjacencies() const override { return table_.held(); }
   std::unique_ptr< QonChip::AdjacencyReading > readAdjacencies() const override;
   std::optional< QonChip::AdjacencyRoom > adjacencyRoom() const override {
      return QonChip::AdjacencyRoom{ U32( table_.adjacencies().size() ), table_.adjacenciesAtMost(),
                                     table_.groups(), table_.groupsAtMost() };
   }

   AdjacencyTable & table() { return table_; }
   const AdjacencyTable & table() const { return table_; }
   void latencyIs( Kiv::Seconds latency ) { table_.completions.latencyIs( latency ); }

 private:
   AdjacencyTable table_;
};

} // namespace SoftChip
