#pragma once
// The hook object of tap aggregation over the chip in software.

#include "agent/softchip/TapAggTable.h"

namespace SoftChip {

class SoftTapAggHelper : public Qon::TapAggHelper {
 public:
   explicit SoftTapAggHelper( TapAggTable & table ) : TapAggHelper( "soft" ), table_( table ) {}

   void hwInit() override { table_.init(); }
   void hwCleanup() override { table_.cleanup(); }
   U32 allocateAggGroup( const String & name ) override { return table_.allocate( name ); }
   void deallocateAggGroup( U32 group ) override { table_.deallocate( group ); }
   void tapPortIs( IntfId intf, bool enable, bool ) override { table_.tapIs( intf, enable ); }
   void toolPortIs( IntfId intf, bool enable, bool ) override { table_.toolIs( intf, enable ); }
   void addTapPortAssociation( IntfId intf, U32 group ) override {
      table_.tapGroupIs( intf, group );
   }
   void removeTapPortAssociation( IntfId intf ) override { table_.tapGroupIs( intf, 0 ); }
   void addToolPortAssociation( IntfId intf, U32 group ) override {
      table_.toolGroupIs( intf, group, true );
   }
   void removeToolPortAssociation( IntfId intf, U32 group ) override {
      table_.toolGroupIs( intf, group, false );
   }
   void updateToolInterfaceLagMembership( IntfId lag, IntfId member, U32 group,
                                          bool add ) override {
      table_.toolMemberIs( lag, member, group, add );
   }
   void handleTcamProfile( const String & profile ) override { table_.tcamProfileIs( profile ); }
   U32 getMaxExternalFrameSizeTapAgg() override { return table_.limits().maxFrameSize; }

   void tapTruncationSizeIs( IntfId intf, U32 size ) override;
   void toolTruncationSizeIs( IntfId intf, U32 size ) override;
   void identityTagIs( IntfId intf, const IdentityTuple & identity ) override;
   void taggingOnEgressIs( IntfId intf, ToolIdentityMode mode ) override;
   void toolBrStripIs( IntfId intf, bool strip ) override;
   void toolMplsPopIs( IntfId intf, bool pop ) override;
   void toolVnStripIs( IntfId intf, bool strip ) override;
   void tapMacAddressIs( IntfId intf, Ulnet::EthAddr address ) override;
   void tapHeaderRemoveIs( IntfId intf, U32 size ) override;
   void tapGreStripIs( IntfId intf, bool strip ) override;
   void tapGreStripForEpIs( IntfId intf, const Ulnet::IpGenAddr & endpoint, bool strip ) override;
   void tapVxlanStripIs( IntfId intf, bool strip ) override;
   void tapMplsPopIs( IntfId intf, bool pop ) override;
   void toolDot1qRemoveIs( IntfId intf, U8 tags ) override;

   bool verifyHwState() override { return table_.held().inited; }
   bool verifyAggGroup( const String & name, U32 group ) override;
   bool verifyTapPort( IntfId intf, bool enabled, bool isLag ) override;
   bool verifyToolPort( IntfId intf, bool enabled, bool isLag ) override;
   bool verifyTapPortAssociation( IntfId intf, U32 group ) override;
   bool verifyToolPortAssociation( IntfId intf, U32 group ) override;
   bool verifyTapTruncationSize( IntfId intf, U32 size ) override;
   bool verifyToolTruncationSize( IntfId intf, U32 size ) override;
   bool verifyIdentityTag( IntfId intf, const IdentityTuple & identity ) override;
   bool verifyTaggingOnEgress( IntfId intf, ToolIdentityMode mode ) override;
   bool verifyToolBrStrip( IntfId intf, bool strip ) override;
   bool verifyToolMplsPop( IntfId intf, bool pop ) override;
   bool verifyToolVnStrip( IntfId intf, bool strip ) override;

 private:
   template< class T >
   void tapSetting( IntfId intf, T QonChip::HeldTapPort::*field, const T & value );
   template< class T >
   void toolSetting( IntfId intf, T QonChip::HeldToolPort::*field, const T & value );
   template< class T >
   bool tapHas( IntfId intf, T QonChip::HeldTapPort::*field, const T & value ) const;
   template< class T >
   bool toolHas( IntfId intf, T QonChip::HeldToolPort::*field, const T & value ) const;

   TapAggTable & table_;
};

} // namespace SoftChip
