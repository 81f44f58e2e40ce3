// One row of ACL_RULE.

#include <strings.h>

#include <algorithm>

#include "agent/configdb/ConfigDb.h"
#include "agent/features/AclReading.h"

namespace QonAgent {

namespace {

using Acl::AclType;

/** A number, decimal or with 0x. */
U32
numberOf( const String & field, const String & text, U32 max ) {
   std::size_t end = 0;
   unsigned long number = 0;
   try {
      number = std::stoul( text, &end, 0 );
   } catch ( const std::logic_error & ) {
      end = 0;
   }
   if ( end == 0 || end != text.size() || number > max ) {
      throw RowError( field,
                      "expected a number up to " + Kiv::toText( max ) + ", found '" + text + "'" );
   }
   return U32( number );
}

template< class T >
T
valueOf( const String & field, const String & text ) {
   try {
      return Kiv::fromText< T >( text );
   } catch ( const Velto::RangeError & e ) {
      throw RowError( field, e.what() );
   }
}

Ulnet::IpGenPrefix
prefixOf( const String & field, const String & text, AclType type, AclType wanted ) {
   if ( type != wanted ) {
      throw RowError( field, "is not for a table of this type" );
   }
   const auto prefix = valueOf< Ulnet::IpGenPrefix >( field, text );
   if ( prefix.address().isIpv6() != ( wanted == AclType::ipv6 ) ) {
      throw RowError( field, "'" + text + "' is of the other family" );
   }
   return prefix;
}

Acl::PortRange
rangeOf( const String & field, const String & text ) {
   const auto dash = text.find( '-' );
   const U32 first = numberOf( field, text.substr( 0, dash ), 65535 );
   const U32 last =
         dash == String::npos ? first : numberOf( field, text.substr( dash + 1 ), 65535 );
   if ( last < first ) {
      throw RowError( field, "'" + text + "' ends before it begins" );
   }
   return Acl::PortRange( U16( first ), U16( last ) );
}

Ulnet::EthAddrWithMask
macOf( const String & field, const String & text ) {
   const auto slash = text.find( '/' );
   return Ulnet::EthAddrWithMask(
         valueOf< Ulnet::EthAddr >( field, text.substr( 0, slash ) ),
         slash == String::npos ? Ulnet::EthAddr::allOnes()
                               : valueOf< Ulnet::EthAddr >( field, text.substr( slash + 1 ) ) );
}

/** True if the field is one of IP packets. */
bool
ipField( Acl::IpFilter & filter, const String & field, const String & text, AclType type ) {
   if ( sameWord( field, "SRC_IP" ) || sameWord( field, "SRC_IPV6" ) ) {
      filter.srcIs( prefixOf( field, text, type,
                              sameWord( field, "SRC_IP" ) ? AclType::ip : AclType::ipv6 ) );
   } else if ( sameWord( field, "DST_IP" ) || sameWord( field, "DST_IPV6" ) ) {
      filter.dstIs( prefixOf( field, text, type,
                              sameWord( field, "DST_IP" ) ? AclType::ip : AclType::ipv6 ) );
   } else if ( sameWord( field, "IP_PROTOCOL" ) || sameWord( field, "NEXT_HEADER" ) ) {
      filter.protocolIs( U8( numberOf( field, text, 255 ) ) );
   } else if ( sameWord( field, "L4_SRC_PORT" ) || sameWord( field, "L4_SRC_PORT_RANGE" ) ) {
      filter.srcPortIs( rangeOf( field, text ) );
   } else if ( sameWord( field, "L4_DST_PORT" ) || sameWord( field, "L4_DST_PORT_RANGE" ) ) {
      filter.dstPortIs( rangeOf( field, text ) );
   } else if ( sameWord( field, "TCP_FLAGS" ) ) {
      const auto slash = text.find( '/' );
      filter.tcpFlagsIs( U8( numberOf( field, text.substr( 0, slash ), 255 ) ) );
      filter.tcpFlagsMaskIs( slash == String::npos
                                   ? filter.tcpFlags()
                                   : U8( numberOf( field, text.substr( slash + 1 ), 255 ) ) );
   } else if ( sameWord( field, type == AclType::ip ? "ICMP_TYPE" : "ICMPV6_TYPE" ) ) {
      filter.icmpTypeIs( U8( numberOf( field, text, 255 ) ) );
   } else if ( sameWord( field, type == AclType::ip ? "ICMP_CODE" : "ICMPV6_CODE" ) ) {
      filter.icmpCodeIs( U8( numberOf( field, text, 255 ) ) );
   } else {
      return false;
   }
   return true;
}

/** True if the field is one of frames. */
bool
macField( Acl::MacFilter & filter, const String & field, const String & text ) {
   if ( sameWord( field, "SRC_MAC" ) ) {
      filter.srcIs( macOf( field, text ) );
   } else if ( sameWord( field, "DST_MAC" ) ) {
      filter.dstIs( macOf( field, text ) );
   } else if ( sameWord( field, "ETHER_TYPE" ) ) {
      filter.etherTypeIs( U16( numberOf( field, text, 65535 ) ) );
   } else {
      return false;
   }
   return true;
}

/** True if the field says what becomes of a packet. */
bool
actionField( Acl::Rule & rule, const String & field, const String & text ) {
   if ( sameWord( field, "PACKET_ACTION" ) ) {
      if ( sameWord( text, "DROP" ) ) {
         rule.actionIs( Acl::RuleAction::deny );
      } else if ( !sameWord( text, "FORWARD" ) && !sameWord( text, "ACCEPT" ) ) {
         throw RowError( field, "expected FORWARD, ACCEPT or DROP, found '" + text + "'" );
      }
   } else if ( sameWord( field, "MIRROR_ACTION" ) || sameWord( field, "MIRROR_INGRESS_ACTION" ) ||
               sameWord( field, "MIRROR_EGRESS_ACTION" ) ) {
      rule.mirrorSessionIs( text );
   } else {
      return sameWord( field, "PRIORITY" );
   }
   return true;
}

} // namespace

bool
sameWord( const String & text, const char * word ) {
   return strcasecmp( text.c_str(), word ) == 0;
}

Acl::Rule
aclRuleOf( const ConfigRow & row, AclType type ) {
   Acl::Rule rule;
   Acl::IpFilter ip;
   Acl::MacFilter mac;
   for ( auto & [field, value] : row.fields() ) {
      const String text = row.text( field );
      const bool known = actionField( rule, field, text ) ||
                         ( type == AclType::mac ? macField( mac, field, text )
                                                : ipField( ip, field, text, type ) );
      if ( !known ) {
         throw RowError( field,
                         "no rule of a list of type " + Kiv::toText( type ) + " can say this" );
      }
   }
   rule.ipIs( ip );
   rule.macIs( mac );
   return rule;
}

} // namespace QonAgent
