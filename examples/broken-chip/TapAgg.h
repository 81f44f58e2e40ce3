#pragma once
// Tap aggregation of the chip: groups, tap ports, tool ports, and the hook class that writes them.

#include "Tables.h"

namespace Chip {

class ChipTapAgg : public Qon::TapAggHelper {
 public:
   ChipTapAgg( Tables & tables, Faults faults )
       : TapAggHelper( "chip" ), faults_( faults ), held_( tables.tapAgg ) {}

   void hwInit() override {
      held_ = {};
      held_.inited = true;
   }
   void hwCleanup() override { held_ = {}; }
   U32 allocateAggGroup( const String & name ) override {
      U32 free = 0;
      for ( U32 id = Tables::tapGroupRoom; id; --id ) {
         auto group = held_.groups.find( id );
         if ( group == held_.groups.end() ) {
            free = id;
         } else if ( group->second == name ) {
            return id;
         }
      }
      if ( free ) {
         held_.groups[free] = name;
      }
      return free;
   }
   void deallocateAggGroup( U32 group ) override { held_.groups.erase( group ); }
   void tapPortIs( IntfId intf, bool enable, bool ) override {
      enable ? void( held_.taps[intf] ) : void( held_.taps.erase( intf ) );
   }
   void toolPortIs( IntfId intf, bool enable, bool ) override {
      enable ? void( held_.tools[intf] ) : void( held_.tools.erase( intf ) );
   }
   void addTapPortAssociation( IntfId intf, U32 group ) override {
      if ( !faults_.firstGroup || !tap( intf ).group ) {
         tap( intf ).group = group;
      }
   }
   void removeTapPortAssociation( IntfId intf ) override { tap( intf ).group = 0; }
   void addToolPortAssociation( IntfId intf, U32 group ) override { tool( intf ).groups[group]; }
   void removeToolPortAssociation( IntfId intf, U32 group ) override {
      tool( intf ).groups.erase( group );
   }
   void updateToolInterfaceLagMembership( IntfId lag, IntfId member, U32 group,
                                          bool add ) override {
      auto & members = tool( lag ).groups[group];
      add ? void( members.insert( member ) ) : void( members.erase( member ) );
   }
   void tapTruncationSizeIs( IntfId intf, U32 size ) override { tap( intf ).truncationSize = size; }
   void toolTruncationSizeIs( IntfId intf, U32 size ) override {
      tool( intf ).truncationSize = size;
   }
   void identityTagIs( IntfId intf, const IdentityTuple & identity ) override {
      tap( intf ).identity = identity;
   }
   void taggingOnEgressIs( IntfId intf, ToolIdentityMode mode ) override {
      tool( intf ).identityTagging = mode;
   }
   void toolBrStripIs( IntfId intf, bool strip ) override { tool( intf ).brStrip = strip; }
   void toolMplsPopIs( IntfId intf, bool pop ) override { tool( intf ).mplsPop = pop; }
   void toolVnStripIs( IntfId intf, bool strip ) override { tool( intf ).vnStrip = strip; }
   void handleTcamProfile( const String & ) override {}
   U32 getMaxExternalFrameSizeTapAgg() override { return 0; }

   bool verifyHwState() override { return held_.inited; }
   bool verifyAggGroup( const String & name, U32 group ) override {
      return of( held_.groups, group ) == name;
   }
   bool verifyTapPort( IntfId intf, bool enabled, bool ) override {
      return held_.taps.contains( intf ) == enabled;
   }
   bool verifyToolPort( IntfId intf, bool enabled, bool ) override {
      return held_.tools.contains( intf ) == enabled;
   }
   bool verifyTapPortAssociation( IntfId intf, U32 group ) override {
      return of( held_.taps, intf ).group == group;
   }
   bool verifyToolPortAssociation( IntfId intf, U32 group ) override {
      return of( held_.tools, intf ).groups.contains( group );
   }
   bool verifyTapTruncationSize( IntfId intf, U32 size ) override {
      return of( held_.taps, intf ).truncationSize == size;
   }
   bool verifyToolTruncationSize( IntfId intf, U32 size ) override {
      return of( held_.tools, intf ).truncationSize == size;
   }
   bool verifyIdentityTag( IntfId intf, const IdentityTuple & identity ) override {
      return of( held_.taps, intf ).identity == identity;
   }
   bool verifyTaggingOnEgress( IntfId intf, ToolIdentityMode mode ) override {
      return of( held_.tools, intf ).identityTagging == mode;
   }
   bool verifyToolBrStrip( IntfId intf, bool strip ) override {
      return of( held_.tools, intf ).brStrip == strip;
   }
   bool verifyToolMplsPop( IntfId intf, bool pop ) override {
      return of( held_.tools, intf ).mplsPop == pop;
   }
   bool verifyToolVnStrip( IntfId intf, bool strip ) override {
      return of( held_.tools, intf ).vnStrip == strip;
   }

 private:
   /** What the table has under the key; without an entry, what a new one would have. */
   template< class Table >
   static typename Table::mapped_type of( const Table & table,
                                          const typename Table::key_type & key ) {
      auto entry = table.find( key );
      return entry == table.end() ? typename Table::mapped_type() : entry->second;
   }
   QonChip::HeldTapPort & tap( IntfId intf ) { return held_.taps[intf]; }
   QonChip::HeldToolPort & tool( IntfId intf ) { return held_.tools[intf]; }

   Faults faults_;
   QonChip::HeldTapAgg & held_;
};

} // namespace Chip
