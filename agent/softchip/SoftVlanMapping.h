#pragma once
// How translations reach the table of the chip in software: by the hooks of the first generation, by
// its directories, or by the platform configuration of the second.
//
//    SoftVlanMappingSm: hooks -------------------------------> VlanMappingTable
//                       directories -> DirectoryFollower ----/        |
//    second generation's platform config -> PlatformFollower /        |
//    status directories, platform status <------- answered ----------'
//
// A follower finds what there is when it begins, brings the table to that, and answers what was not
// answered. Who follows deletes the status of an entry that it looks at again, or that has gone.

#include "agent/softchip/VlanMappingTable.h"
#include "chip/VlanMappingPart.h"
#include "platform/Kiv/Alarm.h"
#include "platform/Kiv/Listener.h"

namespace SoftChip {

using Ulnet::IntfId;

class SoftVlanMappingSm : public Qon::VlanMappingSm, private VlanMappingTable::Hook {
 public:
   using Statuses = QonChip::VlanMappingPart::Statuses;
   SoftVlanMappingSm( Inputs inputs, const Statuses & statuses, VlanMappingTable & table );
   ~SoftVlanMappingSm() override;

   Status doAddIngressVlanMapping( IntfId, bool, const Qon::PortVlanKey & key,
                                   const Mapping & mapping ) override {
      return add( Direction::ingress, key, mapping );
   }
   Status doAddEgressVlanMapping( IntfId, bool, const Qon::PortVlanKey & key,
                                  const Mapping & mapping ) override {
      return add( Direction::egress, key, mapping );
   }
   void doDelIngressVlanMapping( IntfId, bool, const Qon::PortVlanKey & key ) override {
      remove( Direction::ingress, key );
   }
   void doDelEgressVlanMapping( IntfId, bool, const Qon::PortVlanKey & key ) override {
      remove( Direction::egress, key );
   }
   Status doUpdateIngressVlanMapping( IntfId, bool, const Qon::PortVlanKey & key,
                                      const Mapping & mapping ) override {
      return add( Direction::ingress, key, mapping );
   }
   Status doUpdateEgressVlanMapping( IntfId, bool, const Qon::PortVlanKey & key,
                                     const Mapping & mapping ) override {
      return add( Direction::egress, key, mapping );
   }
   bool gracefulRestartSupported() override {
      return table_.shape().form == VlanMappingForm::directories;
   }

 private:
   using ConfigAttr = Qon::QonVlanMappingConfigDir::vlanMappingConfigAttr;

   Status add( Direction d, const Qon::PortVlanKey & key, const Mapping & mapping );
   void remove( Direction d, const Qon::PortVlanKey & key );
   void answered( Direction d, const Qon::PortVlanKey & key, Status result, U32 version ) override;

   const Qon::QonVlanMappingConfigDir & directory( Direction d ) const;
   Qon::QonVlanMappingStatusDir & statuses( Direction d ) const;
   void follow( Direction d );
   void entryHeard( Direction d, const Qon::PortVlanKey & key );

   const Statuses statuses_;
   VlanMappingTable & table_;
   Kiv::Listener< ConfigAttr > entries_[2];
};

/** Programs the platform configuration of the second generation. What could not be done is tried
    again every second. */
class PlatformFollower : public Velto::Node, private VlanMappingTable::Hook {
 public:
   using Config = Qon::PlatformVlanMappingConfig;
   using Key = Qon::QonVlanMappingKey;
   using Direction = Bridging::VlanMappingDirection;

   PlatformFollower( Velto::Ptr< const Config > config,
                     Velto::Ptr< Qon::PlatformVlanMappingStatus > status,
                     VlanMappingTable & table );
   ~PlatformFollower() override;
   void begin();

   void handleIntf( const IntfId & port );
   void handleKey( const IntfId & port, const Key & key );

 private:
   void answered( Direction d, const Qon::PortVlanKey & key, QonTypes::TableAddStatus result,
                  U32 version ) override;
   Qon::PlatformVlanMappingData wanted( IntfId port, const Key & key ) const;
   /** As it stands in the table, where native translations have a key of their own. */
   Qon::PortVlanKey tableKey( IntfId port, const Key & key, bool native ) const;
   void statusDel( IntfId port, const Key & key );
   void retry();

   const Velto::Ptr< const Config > config_;
   const Velto::Ptr< Qon::PlatformVlanMappingStatus > status_;
   VlanMappingTable & table_;
   std::vector< std::pair< IntfId, Key > > busy_;
   Kiv::Alarm retry_{ [this] { retry(); } };
   Qon::EntityKeys< &PlatformFollower::handleIntf, &PlatformFollower::handleKey,
                    Config::intfVlanMappingConfigAttr, &Config::intfVlanMappingConfig,
                    &Config::intfVlanMappingConfigIteratorConst,
                    Qon::PlatformIntfVlanMappingConfig::vlanMappingConfigAttr >
         keys_;
};

} // namespace SoftChip
