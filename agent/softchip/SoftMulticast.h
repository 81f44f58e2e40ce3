#pragma once
// The hook objects of multicast over the table of the chip in software. The table outlives them.

#include "Qon/include/multicast/MulticastCopyUpdater.h"
#include "Qon/include/multicast/QonMulticastHelper.h"
#include "agent/softchip/MulticastTable.h"

namespace SoftChip {

class SoftMulticastBitmap : public Qon::HardwareL2MulticastBitmap {
 public:
   SoftMulticastBitmap( MulticastTable & table, Qon::MulticastHelper * helper,
                        const QonTypes::Bitmap & ports, const Qon::BitmapInfoType & info )
       : HardwareL2MulticastBitmap( helper, ports, info ), table_( table ),
         serial_( table.serial() ) {}
   ~SoftMulticastBitmap() override {
      if ( groupIndex() != noGroup && freed() && serial_ == table_.serial() ) {
         table_.giveBack( groupIndex() );
      }
   }
   S64 createL2MulticastEntry() override { return table_.take(); }
   void writeGroupsToHardware( const QonTypes::Bitmap & ports ) override {
      if ( serial_ == table_.serial() ) {
         const auto intfs = helper()->portsOf( ports );
         table_.write( groupIndex(), { intfs.begin(), intfs.end() } );
      }
   }

 private:
   MulticastTable & table_;
   const U32 serial_; // of the factory's life: a later one starts with an empty table
};

class SoftMulticastEntry : public Qon::HardwareL2MulticastEntry {
 public:
   SoftMulticastEntry( MulticastTable & table, Qon::MulticastHelper * helper, S64 vGroup )
       : HardwareL2MulticastEntry( helper, vGroup ), table_( table ) {}
   TableAddStatus updateMacTableEntry() override {
      return table_.lead( macVlan(), hwL2MulticastBitmap()->groupIndex() );
   }
   void deleteMacTableEntry() override { table_.leadNowhere( macVlan() ); }

 private:
   MulticastTable & table_;
};

class SoftMulticastFactory : public Qon::MulticastDataFactory {
 public:
   explicit SoftMulticastFactory( MulticastTable & table );

   Velto::Ptr< Qon::HardwareL2MulticastEntry >
   getHardwareL2MulticastEntry( Qon::MulticastHelper * helper, S64 vGroup ) override;
   Velto::Ptr< Qon::HardwareL2MulticastBitmap >
   getHardwareL2MulticastBitmap( Qon::MulticastHelper * helper, const QonTypes::Bitmap & ports,
                                 const Qon::BitmapInfoType & info ) override;
   U32 getMaxL2MulticastGroups() override { return table_.limits().pairs; }
   Qon::BitmapInfoType getBitmapInfoType() override { return {}; }

 private:
   MulticastTable & table_;
};

class SoftMulticastCopyUpdater : public Qon::MulticastCopyUpdater {
 public:
   SoftMulticastCopyUpdater( MulticastTable & table, Velto::Ptr< const Config > config )
       : MulticastCopyUpdater( std::move( config ) ), table_( table ) {}
   void updateCopyRequest( bool enabled, Qon::PacketType ) override {
      table_.linkLocalCopied = enabled;
   }
   void updateCopyAndDropRequest( bool enabled, Qon::PacketType ) override {
      table_.igmpTaken = enabled;
   }

 private:
   MulticastTable & table_;
};

} // namespace SoftChip
