#pragma once
// VLAN translations: table VLAN_MAPPING, and the translation tables of the chip. `--vlan-mapping`
// says which of the two generations does it.
//
//    {"event": "vlanMapping", "intf": "Ethernet0", "direction": "ingress", "vlan": 10, "mapped": 110,
//     "source": "cli"}                          with "inner" and "mappedInner" if there are; mapped 0:
//                                               it goes; source cli or flow
//    {"event": "nativeVlan", "intf": "Ethernet0", "direction": "egress", "vlan": 7}    vlan 0: none
//    {"event": "switchportMode", "intf": "Ethernet0", "mode": "flow"}
//
// It stands in for the agents that write the bridging configuration and the flow directory, and, in
// the second generation, for the one that says which membership of ports is programmed.

#include <map>

#include "agent/AgentFeature.h"
#include "agent/Configured.h"
#include "chip/VlanMappingPart.h"
#include "platform/Kiv/Listener.h"

namespace QonAgent {

class ConfigRow;

class VlanMappingFeature : public AgentFeature, private Qon::VlanMappingListener {
 public:
   using IntfId = Ulnet::IntfId;
   using Direction = Bridging::VlanMappingDirection;
   using Key = Bridging::VlanXlateKey;
   using Mapping = Bridging::VlanXlateMapping;

   static std::vector< FeatureOption > options();
   explicit VlanMappingFeature( Agent & agent );
   ~VlanMappingFeature() override;

   std::vector< ConfigTable > tables() const override;
   void configure( ConfigReader & reader ) override;
   std::vector< Counter > counters() const override;
   std::vector< ShowCommand > showCommands() override;
   std::vector< EventKind > eventKinds() override;
   std::vector< String > ownNames() const override {
      return { "VlanMapping", "Bridging::SwitchIntf", "Bridging::VlanXlate", "Qon::QonVlanMapping",
               "Qon::VlanMapping" };
   }

   /** Null in the second generation, and on a chip that serves no mappings. */
   Qon::VlanMappingSm * first() const { return first_.ptr(); }
   /** Null in the first. */
   Qon::VlanMapping::VlanMappingSm2 * second() const { return second_.ptr(); }

 private:
   /** One wish, of a row, an event or the state database. */
   struct Wish {
      IntfId intf;
      Direction direction;
      Key key;
      Mapping mapping; ///< VLAN 0: none
      bool flow = false;
      bool native = false;
   };
   using Name = std::tuple< IntfId, Direction, U16, U16, bool, bool >;
   static Name nameOf( const Wish & wish );
   /** What became of a wish: the owner of its key, and what it waits for; empty if there is no such
       thing. */
   struct Fate {
      const char * owner = "";
      const char * why = "";
      bool operator==( const Fate & other ) const;
   };
   struct Since {
      Fate fate;
      Mapping mapping;
      Kiv::Seconds time = 0;
   };

   void become( const std::vector< Wish > & wishes );
   void modeIs( IntfId intf, bool flowsOnly, const bool * former );
   void leave( IntfId intf );

   template< class T >
   Velto::Ptr< T > mount( const char * path ) const;
   void makeFirst();
   void makeSecond();
   void portToLagHeard( IntfId port );

   Wish wishOf( ConfigReader & reader, const ConfigRow & row ) const;
   std::function< void() > parseXlate( const Json & line );
   std::function< void() > parseNative( const Json & line );
   std::function< void() > parseMode( const Json & line );
   IntfId known( const Json & line ) const;
   static Direction directionOf( const Json & line );
   void wishIs( const Wish & wish );

   /** Interfaces with wishes, by name; and the wishes of one. */
   std::vector< IntfId > wishers() const;
   std::vector< Wish > wishes( IntfId intf ) const;
   /** Those of one key: of the command line, native, of the flow source. */
   std::vector< Wish > wishes( IntfId intf, Direction d, Key key ) const;
   void outcomeHeard( IntfId intf, Direction d, Key key ) override;
   Fate fate( const Wish & wish ) const;
   Fate firstFate( const Wish & wish ) const;
   Fate secondFate( const Wish & wish ) const;
   Row row( const Wish & wish ) const;
   Row heldRow( const QonChip::HeldTranslationKey & name, const Mapping & mapping ) const;
   Rows mappings( Arguments arguments ) const;
   Rows hardware( Arguments arguments ) const;

   Agent & agent_;
   QonChip::VlanMappingPart * const part_; ///< null: the chip has none
   const Velto::Ptr< Bridging::Config > config_;
   const Velto::Ptr< Qon::QonFlowVlanXlateConfigDir > flow_;
   Configured< Name, Mapping > configured_;
   Configured< IntfId, bool > flowsOnly_; ///< of interfaces with rows
   std::map< Name, Since > since_;        ///< when what became of it changed
   Velto::Ptr< Qon::VlanMappingSm > first_;

   Velto::Ptr< Qon::ProgrammedPortToLag > portToLag_;
   Velto::Ptr< Qon::MergedVlanMappingConfig > merged_;
   Velto::Ptr< Qon::SourceVlanMappingStatusDir > status_;
   Velto::Ptr< Qon::VlanMapping::VlanMappingSm2 > second_;
   Velto::Ptr< Velto::Node > follower_;
   Kiv::Listener< Qon::QonCommonSmData::portToLagAttr > portToLagHeard_;
};

} // namespace QonAgent
