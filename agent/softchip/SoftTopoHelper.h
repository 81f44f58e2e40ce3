#pragma once
// The hooks of topologies over the tables of the chip in software. The tables outlive it.

#include "Qon/include/topology/QonStpSm.h"
#include "agent/softchip/TopoTable.h"

namespace SoftChip {

class SoftTopoHelper : public Qon::TopoHelper, private TopoTable::Hook {
 public:
   explicit SoftTopoHelper( TopoTable & table ) : table_( table ) { table_.hook.is( this ); }
   ~SoftTopoHelper() override { table_.hook.is( nullptr ); }

   TopoTable & table() { return table_; }
   const TopoTable & table() const { return table_; }

   U32 maxTopo() override { return table_.maxTopo(); }
   bool allocTopo( const String & topoName ) override { return table_.alloc( topoName ); }
   void freeTopo( const String & topoName ) override { table_.free( topoName ); }
   void setStpState( S32 topoId, const String & topoName, IntfId intf, PortState state ) override {
      table_.stateIs( U32( topoId ), topoName, intf, state );
   }
   void addVlanToTopo( const String & topoName, U16 vlan ) override {
      table_.vlanIs( topoName, vlan );
   }
   void delVlanFromTopo( const String &, U16 vlan ) override { table_.vlanDel( vlan ); }
   void flushTopoPort( U32, IntfId ) override { table_.flush(); }
   void flushTopoPortVlan( const Qon::MappedVlan &, IntfId ) override { table_.flush(); }

 private:
   void stpStateDone( U32 topoId ) override {
      if ( stpSm() ) {
         setStpStateDoneTopoId( topoId );
      }
   }

   TopoTable & table_;
};

} // namespace SoftChip
