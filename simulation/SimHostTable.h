#pragma once
// MAC commands on the chip in software: buckets that overflow, a queue with a depth, its fault
// plan.
//
// Checked at rest: the chip holds the newest wish of every key, save those in overflow, whose
// buckets have no room, and those that a flush may have met.

#include <vector>

#include "agent/softchip/Chip.h"
#include "agent/softchip/MacPart.h"
#include "simulation/SimFeature.h"

namespace Sim {

class SimHostTable : public SimFeature {
 public:
   explicit SimHostTable( World & world );

   static std::span< const Operation > operations();
   static void shape( const World & world, SoftChip::Shape & shape );

   void drawFaults( Rng & rng, std::vector< String > & lines ) const override;
   void start() override;
   String checkInvariants() const override;
   String checkAtRest() const override;
   bool mayStayArmed() const override;
   bool working() const override;
   void tearDown() override;
   String checkTornDown() const override;
   void stop() override;
   void kill( Ending ending ) override;
   void held( Holdings & held ) const override;

   /** Where the chip shall have a host. */
   struct Place {
      bool known = true;  ///< false: a flush may have met it, or its bucket is full
      Ulnet::IntfId intf; ///< null: nowhere
   };
   Place wantedInChip( const Bridging::MacVlanPair & host ) const;
   Bridging::MacVlanPair host( U32 i ) const { return keyOf( i % U32( keys_.size() ) ).key(); }

 private:
   using Type = Qon::IndirectAccessMacCmdType;

   struct Key {
      bool wanted = false;
      Ulnet::IntfId intf;
      bool flushed = false; ///< a flush was on its way with the wish, or came after it
      bool said = false;    ///< handed in at some time
   };

   /** @name Operations */
   /** @{ */
   void add( const Event & event );
   void remove( const Event & event );
   void burst( const Event & event );
   void flush( const Event & event );
   void quantumIs( const Event & event );
   /** @} */

   Qon::MacEntryKey keyOf( U32 i ) const;
   void handIn( U32 i, Type type, Ulnet::IntfId intf );
   String checkKey( U32 i ) const;

   std::vector< Key > keys_;
   Velto::Ptr< SoftChip::SoftMacProgrammer > programmer_;
};

} // namespace Sim
