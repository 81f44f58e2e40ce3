#pragma once
// Access lists: tables ACL_TABLE, ACL_RULE, ACL_TABLE_TYPE and VLAN_SUB_INTERFACE, and what the chip
// has of them.
//
//    {"event": "acl", "intf": "Ethernet0", "acl": "DATAACL", "type": "ip", "direction": "in"}
//    {"event": "acl-host", "intf": "Ethernet0", "host": "02:11:22:00:00:01", "acl": "DATAACL",
//     "type": "ip"}
//
// An empty `acl` takes the list off the interface, or off the host.
//
// A table of type L3, L3V6 or L2 becomes a list of type ip, ipv6 or mac. Its rules are asked in
// descending order of priority, rules of the same priority in the order of the file; what no rule
// matches is forwarded, so that a last rule permits everything. An interface has one list of a type
// and direction: of several tables the first in the file has it.

#include <map>

#include "Qon/include/acl/QonAclSm.h"
#include "agent/AgentFeature.h"
#include "agent/Configured.h"
#include "chip/AclPart.h"

namespace QonAgent {

class ConfigRow;

class AclFeature : public AgentFeature {
 public:
   explicit AclFeature( Agent & agent );
   ~AclFeature() override;
   std::vector< ConfigTable > tables() const override;
   void configure( ConfigReader & reader ) override;
   std::vector< ShowCommand > showCommands() override;
   std::vector< EventKind > eventKinds() override;
   std::vector< Counter > counters() const override;
   std::vector< String > ownNames() const override {
      return { "Acl::", "AclHelper", "Interface::SubIntf" };
   }

   /** Null if the chip has no part for it. */
   Qon::AclSm * aclSm() const { return aclSm_.ptr(); }

 private:
   using AclType = Acl::AclType;
   using AclDirection = Acl::AclDirection;
   /** What a file says, while it is being read; see AclReading.h. */
   struct Reading;
   struct NamedRule {
      String name;
      U64 priority;
      Acl::Rule rule;
      bool operator==( const NamedRule & ) const = default;
   };
   struct List {
      AclType type;
      std::vector< NamedRule > rules;
      bool operator==( const List & ) const = default;
   };
   /** Where an interface has a list. */
   using Place = std::tuple< AclType, AclDirection, Ulnet::IntfId >;

   void readTypes( ConfigReader & reader, Reading & reading ) const;
   void readTables( ConfigReader & reader, Reading & reading );
   void readRules( ConfigReader & reader, Reading & reading ) const;
   void readSubIntfs( ConfigReader & reader, Reading & reading ) const;
   void become( const Reading & reading );
   void listIs( const String & name, const List & list, const List * former );
   void listDel( AclType type, const String & name );
   void directionNeeded( Reading & reading, AclType type, AclDirection direction ) const;
   std::function< void() > parseAttach( const Json & line );
   std::function< void() > parseHost( const Json & line );

   Rows lists( Arguments arguments ) const;
   Row row( AclType type, AclDirection direction, Ulnet::IntfId intf, const String & name ) const;
   String waitsFor( AclType type, AclDirection direction, Ulnet::IntfId intf,
                    const String & name ) const;
   Rows rules( Arguments arguments ) const;
   Row ruleRow( AclType type, const String & list, const Qon::AclRule & rule ) const;
   Rows hardware( Arguments arguments ) const;
   Row hardwareRow( const QonChip::HeldAcl & acl ) const;
   Rows lookup( Arguments arguments ) const;
   Rows resources( Arguments arguments ) const;
   std::vector< ShowCommand > hardwareCommands() const;
   String programmed( const Qon::AclDataSm & instance ) const;
   String failingOn( const String & unit ) const;
   String passWaitsFor( const Qon::AclDataSm & instance ) const;

   Agent & agent_;
   QonChip::AclPart * const part_; ///< null: the chip has none
   const Velto::Ptr< Acl::Config > config_;
   const Velto::Ptr< Acl::IntfConfig > intfConfig_;
   const Velto::Ptr< Acl::ParamConfig > params_;
   const Velto::Ptr< Acl::PerHostConfig > hosts_;
   const Velto::Ptr< Interface::SubIntfConfigDir > subIntfs_;
   const Velto::Ptr< Bridging::Config > bridging_;
   const Velto::Ptr< Mirroring::Status > mirroring_;
   const Velto::Ptr< Errdisable::CauseStatus > errdisable_;
   std::map< std::pair< AclType, String >, std::map< U32, String > > ruleNames_;
   Velto::Ptr< QonHelper::AclHelper > helper_;
   Velto::Ptr< Qon::AclSm > aclSm_;
   Configured< String, List > lists_;
   Configured< Place, String > intfs_;
   Configured< Ulnet::IntfId, U16 > subIntfVlans_;
};

} // namespace QonAgent
