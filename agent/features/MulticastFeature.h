#pragma once
// Layer-2 multicast: table MULTICAST_GROUP becomes static groups, MULTICAST_COPY who asks for copies. It
// stands in for the snooping agent, too: events say who joins and leaves, and where routers are.
//
//    {"event": "igmp", "op": "join", "vlan": 10, "group": "01:00:5e:01:01:01", "port": "Ethernet0"}
//          op: join, leave, router, noRouter (without "group"), delete, invalid, valid (without "port")
//    {"event": "multicastCopy", "packets": "igmp", "by": "snooping", "on": true}
//    {"event": "parityError", "table": "mac"}
//
// Sources: MulticastFeature.cc (configuration, events), MulticastFeatureShow.cc.

#include <set>

#include "Qon/include/multicast/IgmpSnoopingSm.h"
#include "Qon/include/multicast/MulticastCopyUpdater.h"
#include "agent/AgentFeature.h"
#include "agent/Configured.h"
#include "chip/MulticastPart.h"

namespace QonAgent {

class ConfigRow;

class MulticastFeature : public AgentFeature {
 public:
   explicit MulticastFeature( Agent & agent );

   std::vector< ConfigTable > tables() const override;
   void configure( ConfigReader & reader ) override;
   std::vector< ShowCommand > showCommands() override;
   std::vector< EventKind > eventKinds() override;
   std::vector< Counter > counters() const override;
   std::vector< String > ownNames() const override {
      return { "Bridging::IgmpSnooping", "Bridging::Multicast", "HardwareL2Multicast",
               "MulticastCopyUpdater", "MulticastDataFactory" };
   }

   /** Null if the chip has no multicast groups. */
   Qon::IgmpSnoopingSm * igmpSnoopingSm() const { return sm_.ptr(); }

 private:
   using Key = Bridging::MacVlanPair;

   using Members = std::set< Ulnet::IntfId >;
   using Request = std::pair< String, String >; // of which packets, by whom
   struct Reading {
      Configured< Qon::McastAddr, Members >::Said groups;
      Configured< Request, bool >::Said copies;
   };
   static void group( ConfigReader & reader, const ConfigRow & row, Reading & reading );
   static void copies( const ConfigRow & row, Reading & reading );
   void become( const Reading & reading );
   void membersAre( const Qon::McastAddr & key, const Members & members, const Members & former );
   void copyIs( const String & packets, const String & by, bool on );
   std::function< void() > parseIgmp( const Json & line );
   std::function< void() > parseCopy( const Json & line );
   std::function< void() > parseParity( const Json & line );

   void served() const;
   std::unique_ptr< QonChip::MulticastReading > reading() const;
   Rows groups( Arguments arguments ) const;
   Rows hardware() const;
   Rows path( Arguments arguments ) const;
   Rows resources() const;
   Row row( const Key & key, const char * origin, const Qon::MulticastSmBase & sm ) const;
   /** What is to be said of a group that is not in hardware as it is wanted; empty of one that is. */
   String why( const Qon::MulticastSmBase & sm, const Qon::HardwareL2MulticastEntry * entry ) const;
   template< class Intfs >
   Value::List spelled( const Intfs & intfs ) const;

   Agent & agent_;
   QonChip::MulticastPart * const part_; ///< null: the chip has none
   const Velto::Ptr< Bridging::IgmpSnooping::Status > status_;
   const Velto::Ptr< Bridging::Multicast::StaticConfig > static_;
   const Velto::Ptr< Bridging::Multicast::CopyRequestConfig > copies_;
   Velto::Ptr< Qon::MulticastHelper > helper_;
   Velto::Ptr< Qon::IgmpSnoopingSm > sm_;
   Velto::Ptr< Qon::MulticastCopyUpdater > updater_;
   Configured< Qon::McastAddr, Members > groups_;
   Configured< Request, bool > requests_;
};

} // namespace QonAgent
