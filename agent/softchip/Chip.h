#pragma once
// A chip in software: finite tables, answers at once or late, and trouble by plan.
//
//    SoftChip::Chip( scheduler, shape ) -> part< QonChip::MacPart >() -> hook object -> table
//          |-> faults()                                                              ^
//          `-> of< MacPart >().table(): what only this chip can tell ----------------'
//
//    forward( frame ) -> the stages of Stages.h -> what became of it, and by which ports it leaves
//
// Parts.cc lists its parts; each has a header and a source of its own, beside its table (HostTable,
// VlanTable, TopoTable, LagTable) and its hook object (SoftMacProgrammer, SoftVlanHelper, ...).
//
// Invariants
// 1. The tables outlive the hook objects. What was handed over by one that goes is done all the
//    same, and reported to nobody.
// 2. It never accepts what it could not hold.
//
// Ownership: owns the parts and the fault plan; the scheduler outlives it.

#include "agent/softchip/Part.h"
#include "agent/softchip/Road.h"
#include "chip/Chip.h"

namespace SoftChip {

class Chip : public QonChip::Chip {
 public:
   explicit Chip( Kiv::TaskScheduler & scheduler, const Shape & shape = {} );
   ~Chip() override;

   String name() const override { return "soft-" + Kiv::toText( shape().kind ); }
   Kiv::Seconds answersWithin() const override;

   const Shape & shape() const { return board_.shape; }
   /** What goes wrong. */
   FaultPlan & faults() { return faults_; }
   /** How long what is accepted from now on takes, in seconds: VLANs, port states, groups,
       adjacencies. 0: it is done before the hook returns. */
   void latencyIs( Kiv::Seconds latency );

   /** What becomes of a frame by what the tables hold now. */
   Passage forward( const Frame & frame ) const;

   /** A part with its tables: of< MacPart >().table(). */
   template< class Part >
   Part & of() const {
      return *part< Part >();
   }

   /** Makes a part over the board; it stands under the seam's interface and under its own class. For
       the functions that Parts.cc lists. */
   template< class Part >
   void addPart() {
      auto holder = std::make_unique< HolderOf< Part > >( board_ );
      add< typename Part::Seam >( holder->part );
      add< Part >( holder->part );
      parts_.push_back( std::move( holder ) );
   }

 private:
   /** A part, of whatever class. */
   class Holder {
    public:
      virtual ~Holder() = default;
      virtual void latencyIs( Kiv::Seconds latency ) = 0;
   };
   template< class Part >
   class HolderOf : public Holder {
    public:
      explicit HolderOf( const Board & board ) : part( board ) {}
      void latencyIs( Kiv::Seconds latency ) override { part.latencyIs( latency ); }

      Part part;
   };

   void addParts();

   FaultPlan faults_;
   Board board_;
   Kiv::Seconds latency_ = 0;
   std::vector< std::unique_ptr< Holder > > parts_;
};

/** Makes a soft chip of that shape; for whoever takes a QonChip::MakeChip. */
QonChip::MakeChip makeChip( const Shape & shape = {} );

} // namespace SoftChip
