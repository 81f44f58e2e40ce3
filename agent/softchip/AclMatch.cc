#include "agent/softchip/AclMatch.h"

namespace SoftChip {

using Acl::AclType;

namespace {

bool
matchesPorts( const Acl::PortRange & wanted, const std::optional< U16 > & port ) {
   return wanted.any() || ( port && wanted.has( *port ) );
}

template< class T >
bool
matchesValue( const std::optional< T > & wanted, const std::optional< T > & value ) {
   return !wanted || wanted == value;
}

bool
matchesIp( const Acl::IpFilter & filter, const AclPacket & packet ) {
   return matchesValue( filter.protocol(), std::optional( packet.protocol ) ) &&
          ( filter.src().isNull() || filter.src().contains( packet.src ) ) &&
          ( filter.dst().isNull() || filter.dst().contains( packet.dst ) ) &&
          matchesPorts( filter.srcPort(), packet.srcPort ) &&
          matchesPorts( filter.dstPort(), packet.dstPort ) &&
          ( packet.tcpFlags & filter.tcpFlagsMask() ) == filter.tcpFlags() &&
          matchesValue( filter.icmpType(), packet.icmpType ) &&
          matchesValue( filter.icmpCode(), packet.icmpCode ) &&
          ( !filter.fragments() || packet.fragment );
}

bool
matchesMac( const Ulnet::EthAddrWithMask & wanted, const Ulnet::EthAddr & address ) {
   return ( wanted.addr().value() & wanted.mask().value() ) ==
          ( address.value() & wanted.mask().value() );
}

} // namespace

bool
concerns( AclType type, const AclPacket & packet ) {
   return type == AclType::mac || ( type == AclType::ip && packet.src.isIpv4() ) ||
          ( type == AclType::ipv6 && packet.src.isIpv6() );
}

bool
matches( AclType type, const Acl::Rule & rule, const AclPacket & packet ) {
   return type == AclType::mac
                ? matchesMac( rule.mac().src(), packet.ethSrc ) &&
                        matchesMac( rule.mac().dst(), packet.ethDst ) &&
                        matchesValue( rule.mac().etherType(), std::optional( packet.etherType ) )
                : matchesIp( rule.ip(), packet );
}

} // namespace SoftChip
