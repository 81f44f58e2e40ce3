#pragma once
// The VLAN table of the chip in software: the members of each VLAN as the chip holds them.
//
//    hook object -> update( vlan, members ) -> at once or later: the table -> Hook::updated()
//
// Invariants
// 1. The table changes only for VLANs that were created, and only when an update is done.
// 2. An update that fails by the fault plan (hook "doUpdateVlan") writes nothing; one that is lost
//    is neither done nor reported.

#include <vector>

#include "Qon/include/topology/QonVlanHelper.h"
#include "agent/softchip/Completions.h"
#include "agent/softchip/FaultPlan.h"
#include "agent/softchip/Hearer.h"

namespace SoftChip {

using Bridging::VlanId;
using Ulnet::IntfId;
using Velto::String;

struct VlanPort {
   IntfId intf;
   Qon::VlanMembership how;
   bool operator==( const VlanPort & ) const = default;
};
using VlanPorts = std::vector< VlanPort >;

class VlanTable {
 public:
   class Hook {
    public:
      virtual void updated( VlanId vlan, bool fails ) = 0;

    protected:
      ~Hook() = default;
   };

   /** `plan` outlives the table. */
   explicit VlanTable( FaultPlan & plan ) : plan_( plan ) { plan.hookIs( "doUpdateVlan" ); }

   Hearer< Hook > hook;

   /** When updates are done. */
   Completions & completions() { return completions_; }

   /** Empty, and nothing on its way, as after a reset of the chip. */
   void reset();
   void create( VlanId vlan ) { table_.emplace( vlan ); }
   /** The members of the VLAN shall be these. */
   void update( VlanId vlan, VlanPorts ports );

   /** The VLANs of the table, in order of creation. */
   std::vector< VlanId > vlans() const;
   /** The members of a VLAN in the chip; empty for one that is not there. */
   const VlanPorts & ports( VlanId vlan ) const;
   /** How the chip has the port in the VLAN; in neither direction if it has not. */
   Qon::VlanMembership membership( VlanId vlan, IntfId intf ) const;
   bool has( VlanId vlan, IntfId intf ) const { return bool( membership( vlan, intf ) ); }
   /** How often the table was written. */
   U64 writes() const { return writes_; }

 private:
   FaultPlan & plan_;
   Completions completions_;
   Kiv::DenseMap< VlanId, VlanPorts > table_;
   U64 writes_ = 0;
};

} // namespace SoftChip
