#pragma once
// VLANs of the chip: a table, and the hook class that writes it a little later.

#include "Tables.h"

namespace Chip {

/** VLANs: takes over the members of the moment, and reports the update done. */
class ChipVlan : public Qon::VlanHelper {
 public:
   ChipVlan( Tables & tables, Faults faults, const Qon::QonCommonSmData * acsd,
             Kiv::TimerWheel * wheel )
       : VlanHelper( "chip", acsd ), tables_( tables ), faults_( faults ), later_( wheel ) {}
   ~ChipVlan() override {
      if ( faults_.tidyDestructor ) {
         tables_.vlans.clear();
      }
   }

   void doCreateHwVlan( Bridging::VlanId ) override {} // the table has room for all of them
   void doUpdateVlan( Bridging::VlanId vlan ) override {
      QonChip::HeldVlan members;
      forEachHwPort( vlan, [&]( IntfId intf, Qon::VlanMembership how ) { members[intf] = how; } );
      later_.add( [=, this] {
         members.empty() ? void( tables_.vlans.erase( vlan ) )
                         : void( tables_.vlans[vlan] = members );
         updateVlanDone( vlan, Qon::VlanProgrammingStatus::success );
      } );
   }
   void doUpdateVlanFid( Bridging::VlanId vlan, U32 fid ) override { tables_.fids[vlan] = fid; }
   void verify() override {}

 private:
   Tables & tables_;
   Faults faults_;
   Later later_;
};

} // namespace Chip
