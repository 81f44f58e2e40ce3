// The tables of access lists.

#include <algorithm>

#include "agent/ConfigReader.h"
#include "agent/features/AclReading.h"
#include "agent/features/Arguments.h"

namespace QonAgent {

using Acl::AclDirection;
using Acl::AclType;
using Ulnet::IntfId;

namespace {

constexpr std::size_t mostDirections = 5; // numbers for more there are not
constexpr U32 seqStep = 10;

String
shown( AclType type, AclDirection direction ) {
   return Kiv::toText( type ) + ( direction == AclDirection::in ? " ingress" : " egress" );
}

} // namespace

std::vector< ConfigTable >
AclFeature::tables() const {
   return {
         { "ACL_TABLE_TYPE",
           "type",
           { { "MATCHES", "fields of rules, a list; with addresses of one kind" } },
           { R"("OWN": {"MATCHES": ["SRC_IP", "IP_PROTOCOL"]})" } },
         { "ACL_TABLE",
           "list",
           { { "type", "L3, L3V6, L2 or a type of ACL_TABLE_TYPE" },
             { "stage", "ingress or egress; ingress" },
             { "ports", "ports, port-channels and VLANs, a list" } },
           { R"("DATA": {"type": "L3", "ports": ["Ethernet8"]})", R"("SIX": {"type": "L3V6"})",
             R"("FRAMES": {"type": "L2", "ports": ["Ethernet8"]})" } },
         { "ACL_RULE",
           "list|rule",
           { { "PRIORITY", "the highest is asked first" },
             { "PACKET_ACTION", "FORWARD, ACCEPT or DROP; FORWARD" },
             { "MIRROR_ACTION",
               "a mirror session; also MIRROR_INGRESS_ACTION, MIRROR_EGRESS_ACTION" },
             { "SRC_IP", "of L3: a prefix" },
             { "DST_IP", "the same" },
             { "SRC_IPV6", "of L3V6: a prefix" },
             { "DST_IPV6", "the same" },
             { "IP_PROTOCOL", "of L3 and L3V6: 0 to 255; also NEXT_HEADER" },
             { "L4_SRC_PORT", "of L3 and L3V6: a port or a range, 80-90; also L4_SRC_PORT_RANGE" },
             { "L4_DST_PORT", "the same; also L4_DST_PORT_RANGE" },
             { "TCP_FLAGS", "of L3 and L3V6: flags and their mask, 0x2/0x12" },
             { "ICMP_TYPE", "of L3: 0 to 255" },
             { "ICMP_CODE", "the same" },
             { "ICMPV6_TYPE", "of L3V6: 0 to 255" },
             { "ICMPV6_CODE", "the same" },
             { "SRC_MAC", "of L2: an address, or with /mask" },
             { "DST_MAC", "the same" },
             { "ETHER_TYPE", "of L2: up to 0xffff" } },
           { R"("DATA|WEB": {"PRIORITY": "20", "PACKET_ACTION": "DROP", "SRC_IP": "10.0.0.0/8",
                "DST_IP": "10.1.0.0/16", "IP_PROTOCOL": "6", "L4_SRC_PORT": "1024-65535",
                "L4_DST_PORT": "80-90", "TCP_FLAGS": "0x2/0x12"})",
             R"("DATA|PING": {"PRIORITY": "10", "IP_PROTOCOL": "1", "ICMP_TYPE": "8",
                "ICMP_CODE": "0", "MIRROR_ACTION": "span"})",
             R"("SIX|ONE": {"PRIORITY": "1", "SRC_IPV6": "2001:db8::/32", "DST_IPV6": "2001:db8::/48",
                "ICMPV6_TYPE": "128", "ICMPV6_CODE": "0"})",
             R"("FRAMES|ONE": {"PRIORITY": "1", "PACKET_ACTION": "DROP",
                "SRC_MAC": "02:11:22:00:00:01", "DST_MAC": "02:11:22:00:00:00/ff:ff:ff:00:00:00",
                "ETHER_TYPE": "0x806"})" } },
         { "VLAN_SUB_INTERFACE",
           "sub-interface",
           { { "vlan", "1 to 4094; the sub-interface's number" } },
           { R"("Ethernet8.40": {"vlan": "40"})" } } };
}

void
AclFeature::configure( ConfigReader & reader ) {
   auto reading = std::make_shared< Reading >();
   readTypes( reader, *reading );
   readTables( reader, *reading );
   readRules( reader, *reading );
   readSubIntfs( reader, *reading );
   reader.apply( [this, reading] { become( *reading ); } );
}

void
AclFeature::become( const Reading & reading ) {
   subIntfVlans_.become(
         reading.subIntfs, [this]( IntfId intf, U16 ) { subIntfs_->vlanDel( intf ); },
         [this]( IntfId intf, U16 vlan, auto ) {
            subIntfs_->vlanIs( intf, Bridging::VlanIdOrNone( U32( vlan ) ) );
         } );
   lists_.become(
         { reading.lists.begin(), reading.lists.end() },
         [this]( const String & name, const List & list ) { listDel( list.type, name ); },
         [this]( const String & name, const List & list, const List * former ) {
            listIs( name, list, former );
         } );
   intfs_.become(
         { reading.intfs.begin(), reading.intfs.end() },
         [this]( const Place & place, const String & ) {
            auto & [type, direction, intf] = place;
            intfConfig_->typeIs( type )->directionIs( direction )->intfDel( intf );
         },
         [this]( const Place & place, const String & name, auto ) {
            auto & [type, direction, intf] = place;
            intfConfig_->typeIs( type )->directionIs( direction )->intfIs( intf, name );
         } );
}

/** What a type of its own can match tells which of our types it is. */
void
AclFeature::readTypes( ConfigReader & reader, Reading & reading ) const {
   reader.eachRow( "ACL_TABLE_TYPE", [&]( const ConfigRow & row ) {
      bool v4 = false, v6 = false, mac = false;
      for ( const String & match : row.list( "MATCHES" ) ) {
         v4 = v4 || sameWord( match, "SRC_IP" ) || sameWord( match, "DST_IP" );
         v6 = v6 || sameWord( match, "SRC_IPV6" ) || sameWord( match, "DST_IPV6" );
         mac = mac || sameWord( match, "SRC_MAC" ) || sameWord( match, "DST_MAC" );
      }
      if ( v4 + v6 + mac != 1 ) {
         throw RowError( "MATCHES", "expected addresses of one kind: IPv4, IPv6 or MAC" );
      }
      reading.types[row.part( 0, 1 )] = v4 ? AclType::ip : v6 ? AclType::ipv6 : AclType::mac;
   } );
}

/** Another block of numbers is used up for good. */
void
AclFeature::directionNeeded( Reading & reading, AclType type, AclDirection direction ) const {
   auto all = reading.directions;
   for ( auto && [t, config] : intfConfig_->typeIteratorConst() ) {
      for ( auto && [d, intfs] : config->directionIteratorConst() ) {
         all.insert( { t, d } );
      }
   }
   if ( all.size() >= mostDirections && !all.contains( { type, direction } ) ) {
      String held;
      for ( auto & [t, d] : all ) {
         held += ( held.empty() ? "" : ", " ) + shown( t, d );
      }
      throw RowError( "stage", "no numbers are left for " + shown( type, direction ) +
                                     ": they are used by " + held );
   }
   reading.directions.insert( { type, direction } );
}

void
AclFeature::readTables( ConfigReader & reader, Reading & reading ) {
   reader.eachRow( "ACL_TABLE", [&]( const ConfigRow & row ) {
      const String name = row.part( 0, 1 ), typeName = row.text( "type" );
      auto own = reading.types.find( typeName );
      if ( own == reading.types.end() && !sameWord( typeName, "L3" ) &&
           !sameWord( typeName, "L3V6" ) && !sameWord( typeName, "L2" ) ) {
         throw RowError( "type", "expected L3, L3V6, L2 or a row of ACL_TABLE_TYPE, found '" +
                                       typeName + "'" );
      }
      const AclType type = own != reading.types.end()     ? own->second
                           : sameWord( typeName, "L3" )   ? AclType::ip
                           : sameWord( typeName, "L3V6" ) ? AclType::ipv6
                                                          : AclType::mac;
      const auto direction = AclDirection( row.word( "stage", { "ingress", "egress" }, 0 ) );
      std::vector< IntfId > intfs;
      String unknown, taken;
      for ( const String & text : row.list( "ports" ) ) {
         const IntfId intf = reader.intf( "ports", text );
         auto other = reading.intfs.find( { type, direction, intf } );
         if ( !Ulnet::VlanIntfId::isVlanIntfId( intf ) && !reader.isPort( intf ) &&
              !reader.isPortChannel( intf ) ) {
            unknown += ( unknown.empty() ? "" : ", " ) + text;
         } else if ( other != reading.intfs.end() ) {
            taken += ( taken.empty() ? "" : ", " ) + text + " has " + other->second;
         } else {
            intfs.push_back( intf );
         }
      }
      if ( !intfs.empty() ) {
         directionNeeded( reading, type, direction );
      }
      if ( !unknown.empty() ) {
         reader.warn( row, "ports", "no such port or port-channel, left out: " + unknown );
      }
      if ( !taken.empty() ) {
         reader.warn( row, "ports",
                      "an interface has one list of a type and stage, left out: " + taken );
      }
      for ( IntfId intf : intfs ) {
         reading.intfs[{ type, direction, intf }] = name;
      }
      reading.lists[name] = { type, {} };
   } );
}

void
AclFeature::readRules( ConfigReader & reader, Reading & reading ) const {
   reader.eachRow( "ACL_RULE", [&]( const ConfigRow & row ) {
      auto list = reading.lists.find( row.part( 0, 2 ) );
      if ( list == reading.lists.end() ) {
         throw RowError( "", "its table " + row.part( 0, 2 ) + " is not used" );
      }
      const Acl::Rule rule = aclRuleOf( row, list->second.type );
      list->second.rules.push_back(
            { row.part( 1, 2 ), row.number( "PRIORITY", 0, 0xffffffff, 0 ), rule } );
   } );
}

/** In descending order of priority, and then everything else. */
void
AclFeature::listIs( const String & name, const List & list, const List * former ) {
   if ( former && former->type != list.type ) {
      listDel( former->type, name );
   }
   auto config = config_->typeIs( list.type )->aclIs( name );
   auto rules = list.rules;
   std::stable_sort( rules.begin(), rules.end(),
                     []( auto & a, auto & b ) { return a.priority > b.priority; } );
   rules.push_back( { "(everything else)", 0, Acl::Rule() } );
   auto & names = ruleNames_[{ list.type, name }];
   names.clear();
   U32 seq = 0;
   for ( auto & [ruleName, priority, rule] : rules ) {
      seq += seqStep;
      rule.seqIs( seq );
      names[seq] = ruleName;
      config->ruleIs( seq, rule );
   }
   for ( auto && entry : Qon::keysOf< U32 >( config->ruleIteratorConst() ) ) {
      if ( !names.contains( entry.key ) ) {
         config->ruleDel( entry.key );
      }
   }
   config->versionIs( config->version() + 1 );
}

void
AclFeature::listDel( AclType type, const String & name ) {
   ruleNames_.erase( { type, name } );
   config_->typeIs( type )->aclDel( name );
}

/** Rows with an address have two parts, and are somebody else's. */
void
AclFeature::readSubIntfs( ConfigReader & reader, Reading & reading ) const {
   reader.eachRow( "VLAN_SUB_INTERFACE", [&]( const ConfigRow & row ) {
      if ( row.parts() == 2 ) {
         return;
      }
      const IntfId intf = reader.intf( "", row.part( 0, 1 ) );
      const IntfId parent = Ulnet::SubIntfId::parent( intf );
      if ( !Ulnet::SubIntfId::isSubIntfId( intf ) ) {
         throw RowError( "", "is not the name of a sub-interface" );
      }
      if ( !reader.isPort( parent ) && !reader.isPortChannel( parent ) ) {
         throw RowError( "", "there is no " + parent.stringValue() + " to carry it" );
      }
      const U64 vlan = row.number( "vlan", 1, 4094, intf.sub() );
      if ( vlan > 4094 ) {
         throw RowError( "vlan", "is missing, and the sub-interface's number is no VLAN's" );
      }
      reading.subIntfs.emplace_back( intf, U16( vlan ) );
   } );
}

} // namespace QonAgent
