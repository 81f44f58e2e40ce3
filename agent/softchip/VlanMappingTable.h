#pragma once
// The VLAN translation tables of the chip in software, one a direction.
//
//    hook at once: add( d, key, mapping ) -> the table
//    late:         request( d, key, mapping, version ) -> after a while: the table
//                                         Hook::answered( d, key, result, version ) <-'
//
// Invariants
// 1. Each direction holds so many entries. A mapping that replaces another one of its key needs no
//    room; one that is refused leaves the table as it was.
// 2. Of several requests for a key only the last one is done, and answered; removal is done at once.
// 3. A request is answered to the hook object that made it, or to nobody.
//
// Reads the fault plan: hook "vlanMapping" for each addition that is done (fail, busy, full, and lose
// for a request that is never answered), table "vlanMappingTable".

#include "Qon/include/vlanmapping/VlanMappingRecords.h"
#include "agent/softchip/Completions.h"
#include "agent/softchip/FaultPlan.h"
#include "agent/softchip/Hearer.h"

namespace SoftChip {

/** How translations reach the chip in the first generation. */
enum class VlanMappingForm : U8 {
   atOnce,      ///< hooks, done when they return
   late,        ///< hooks, answered in the status directories
   directories, ///< by the directories alone, which outlast a restart
};
KIV_ENUM( VlanMappingForm, atOnce, late, directories )

struct VlanMappingShape {
   U32 entries = 65536; ///< a direction
   VlanMappingForm form = VlanMappingForm::atOnce;
};

class VlanMappingTable {
 public:
   using Direction = Bridging::VlanMappingDirection;
   using Mapping = Bridging::VlanXlateMapping;
   using Result = QonTypes::TableAddStatus;
   using Key = Qon::PortVlanKey;
   using Entries = Kiv::DenseMap< Key, Mapping >;

   class Hook {
    public:
      virtual void answered( Direction d, const Key & key, Result result, U32 version ) = 0;

    protected:
      ~Hook() = default;
   };

   /** `plan` outlives the table. */
   VlanMappingTable( const VlanMappingShape & shape, FaultPlan & plan )
       : shape_( shape ), plan_( plan ) {
      plan.hookIs( "vlanMapping" );
      plan.tableIs( "vlanMappingTable" );
   }

   Hearer< Hook > hook;

   Result add( Direction d, const Key & key, const Mapping & mapping );
   void request( Direction d, const Key & key, const Mapping & mapping, U32 version );
   void remove( Direction d, const Key & key );

   /** When requests are done. */
   Completions & completions() { return completions_; }
   const Entries & entries( Direction d ) const { return entries_[U8( d )]; }
   /** The keys that the table has, or will have when what is under way is done. */
   std::vector< Key > keys( Direction d ) const;
   /** None: the chip does not translate it. */
   std::optional< Mapping > mapping( Direction d, const Key & key ) const;
   const VlanMappingShape & shape() const { return shape_; }

 private:
   Result write( Direction d, const Key & key, const Mapping & mapping );

   const VlanMappingShape shape_;
   FaultPlan & plan_;
   Completions completions_;
   Entries entries_[2];
   Kiv::DenseMap< Key, U64 > latest_[2]; // the number of the last request under way
   U64 requests_ = 0;
};

} // namespace SoftChip
