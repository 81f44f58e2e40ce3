#pragma once
// The messages of VLAN mapping. Both generations have handles of their own.

#include "Qon/include/framework/QonLog.h"
#include "platform/types/VlanMapping.h"

namespace Qon {

/** A static object of the module's source. */
class VlanMappingLog {
 public:
   using Direction = Bridging::VlanMappingDirection;
   /** A translation, as messages name it. */
   struct Subject {
      Ulnet::IntfId intf;
      Direction direction;
      Bridging::VlanXlateKey key;
      Bridging::VlanXlateMapping mapping;
   };

   explicit VlanMappingLog( const char * module )
       : conflict_( module, QonLog::ETH_VLAN_MAPPING_CONFLICT ),
         encapFull_( module, QonLog::ETH_VLAN_ENCAP_TABLE_FULL ),
         full_( module, QonLog::ETH_VLAN_MAPPING_TABLE_FULL ),
         programmed_( module, QonLog::ETH_VLAN_MAPPING_PROGRAMMED ) {}

   void conflict( const Subject & s, const char * requester, const char * owner ) {
      raise( conflict_, s, requester, owner );
   }
   void programmed( const Subject & s, const char * winner ) { raise( programmed_, s, winner ); }
   void full( const Subject & s, bool native ) {
      if ( !native ) {
         raise( full_, s );
      } else if ( encapFull_.okToLog() ) {
         Kiv::log( encapFull_, Kiv::toText( s.direction ), s.intf.stringValue(),
                   S32( s.key.vlanId() ) );
      }
   }

 private:
   template< class... More >
   static void raise( QonLogHandle & handle, const Subject & s, const More &... more ) {
      if ( handle.okToLog() ) {
         Kiv::log( handle, S32( s.key.vlanId() ), S32( s.mapping.vlanId() ), s.intf.stringValue(),
                   Kiv::toText( s.direction ), more... );
      }
   }

   QonLogHandle conflict_;
   QonLogHandle encapFull_;
   QonLogHandle full_;
   QonLogHandle programmed_;
};

} // namespace Qon
