#pragma once
// VLAN translations of the chip: a table, and the hook class that writes it.

#include "Tables.h"

namespace Chip {

/** Translations: done when the hook returns. */
class ChipVlanMapping : public Qon::VlanMappingSm {
 public:
   ChipVlanMapping( Inputs inputs, Tables & tables, Faults faults )
       : VlanMappingSm( std::move( inputs ) ), tables_( tables ), faults_( faults ) {}

   Status doAddIngressVlanMapping( IntfId, bool, const Qon::PortVlanKey & key,
                                   const Mapping & mapping ) override {
      return write( { Direction::ingress, key }, mapping );
   }
   Status doAddEgressVlanMapping( IntfId, bool, const Qon::PortVlanKey & key,
                                  const Mapping & mapping ) override {
      return write( { Direction::egress, key }, mapping );
   }
   void doDelIngressVlanMapping( IntfId, bool, const Qon::PortVlanKey & key ) override {
      tables_.translations.erase( { Direction::ingress, key } );
   }
   void doDelEgressVlanMapping( IntfId, bool, const Qon::PortVlanKey & key ) override {
      tables_.translations.erase( { Direction::egress, key } );
   }
   Status doUpdateIngressVlanMapping( IntfId, bool, const Qon::PortVlanKey & key,
                                      const Mapping & mapping ) override {
      return write( { Direction::ingress, key }, mapping );
   }
   Status doUpdateEgressVlanMapping( IntfId, bool, const Qon::PortVlanKey & key,
                                     const Mapping & mapping ) override {
      return write( { Direction::egress, key }, mapping );
   }

 private:
   Status write( const QonChip::HeldTranslationKey & key, const Mapping & mapping ) {
      auto & all = tables_.translations;
      if ( all.contains( key ) && faults_.keptMapping ) {
         return Status::success;
      }
      if ( !all.contains( key ) && all.size() == Tables::translationRoom ) {
         return Status::full;
      }
      all[key] = mapping;
      return Status::success;
   }
   Tables & tables_;
   Faults faults_;
};

} // namespace Chip
