#pragma once
// Multicast groups of the chip: so many sets of ports, MAC entries that lead to them, and the hook classes
// that write both.

#include "Qon/include/multicast/QonMulticastHelper.h"
#include "Tables.h"

namespace Chip {

/** A set of ports: takes a group, and gives it back if it was freed when it ends. */
class ChipMulticastBitmap : public Qon::HardwareL2MulticastBitmap {
 public:
   ChipMulticastBitmap( Tables & tables, Qon::MulticastHelper * helper,
                        const QonTypes::Bitmap & ports, const Qon::BitmapInfoType & info )
       : HardwareL2MulticastBitmap( helper, ports, info ), tables_( tables ) {}
   ~ChipMulticastBitmap() override {
      if ( groupIndex() != noGroup && freed() ) {
         tables_.multicast.groups.erase( groupIndex() );
      }
   }

   S64 createL2MulticastEntry() override {
      for ( S64 index = 0; index < Tables::multicastRoom; ++index ) {
         if ( tables_.multicast.groups.try_emplace( index ).second ) {
            return index;
         }
      }
      return noGroup;
   }
   void writeGroupsToHardware( const QonTypes::Bitmap & ports ) override {
      const auto intfs = helper()->portsOf( ports );
      tables_.multicast.groups[groupIndex()] = { intfs.begin(), intfs.end() };
   }

 private:
   Tables & tables_;
};

/** A MAC entry. */
class ChipMulticastEntry : public Qon::HardwareL2MulticastEntry {
 public:
   ChipMulticastEntry( Tables & tables, Faults faults, Qon::MulticastHelper * helper, S64 vGroup )
       : HardwareL2MulticastEntry( helper, vGroup ), tables_( tables ), faults_( faults ) {}

   TableAddStatus updateMacTableEntry() override {
      tables_.multicast.macEntries[macVlan()] = hwL2MulticastBitmap()->groupIndex();
      return TableAddStatus::success;
   }
   void deleteMacTableEntry() override {
      if ( !faults_.keptGroup ) {
         tables_.multicast.macEntries.erase( macVlan() );
      }
   }

 private:
   Tables & tables_;
   Faults faults_;
};

class ChipMulticast : public Qon::MulticastDataFactory {
 public:
   ChipMulticast( Tables & tables, Faults faults ) : tables_( tables ), faults_( faults ) {
      tables_.multicast.groups.clear();
      tables_.multicast.macEntries.clear();
   }

   Ptr< Qon::HardwareL2MulticastEntry > getHardwareL2MulticastEntry( Qon::MulticastHelper * helper,
                                                                     S64 vGroup ) override {
      return Velto::make< ChipMulticastEntry >( tables_, faults_, helper, vGroup );
   }
   Ptr< Qon::HardwareL2MulticastBitmap >
   getHardwareL2MulticastBitmap( Qon::MulticastHelper * helper, const QonTypes::Bitmap & ports,
                                 const Qon::BitmapInfoType & info ) override {
      return Velto::make< ChipMulticastBitmap >( tables_, helper, ports, info );
   }
   U32 getMaxL2MulticastGroups() override { return Tables::hostRoom; }
   Qon::BitmapInfoType getBitmapInfoType() override { return {}; }

 private:
   Tables & tables_;
   Faults faults_;
};

/** Copies for the CPU. */
class ChipCopies : public Qon::MulticastCopyUpdater {
 public:
   ChipCopies( Tables & tables, Ptr< const Config > config )
       : MulticastCopyUpdater( std::move( config ) ), tables_( tables ) {}
   void updateCopyRequest( bool enabled, Qon::PacketType ) override {
      tables_.multicast.linkLocalCopied = enabled;
   }
   void updateCopyAndDropRequest( bool enabled, Qon::PacketType ) override {
      tables_.multicast.igmpTaken = enabled;
   }

 private:
   Tables & tables_;
};

} // namespace Chip
