// What access lists say of a packet, by the configuration.

#include "simulation/SimAcl.h"
#include "simulation/World.h"

namespace Sim {

using Acl::AclType;
using QonChip::AclPacket;

namespace {

constexpr U8 tcp = 6, udp = 17, icmpv6 = 58;
constexpr U8 neighbourSolicitation = 135, neighbourAdvertisement = 136;

bool
hasPorts( const Acl::IpFilter & filter ) {
   return filter.srcPort() != Acl::PortRange() || filter.dstPort() != Acl::PortRange();
}

/** What a rule here says of protocol, source and fragments. */
bool
meetsAddresses( const Acl::IpFilter & filter, const AclPacket & packet ) {
   return ( !filter.protocol() || *filter.protocol() == packet.protocol ) &&
          ( filter.src().isNull() || filter.src().contains( packet.src ) ) &&
          ( !filter.fragments() || packet.fragment );
}

bool
meetsPorts( const Acl::IpFilter & filter, const AclPacket & packet ) {
   return !hasPorts( filter ) || ( packet.dstPort && filter.dstPort().has( *packet.dstPort ) );
}

/** Who may send to a port may send the fragments behind the first, which have none; by a rule that is
    not of fragments itself. */
bool
meetsAsFragment( const Acl::Rule & rule, const AclPacket & packet ) {
   const U32 protocol = rule.ip().protocol().value_or( 0 );
   return rule.action() == Acl::RuleAction::permit && packet.fragment && !rule.ip().fragments() &&
          hasPorts( rule.ip() ) && ( protocol == tcp || protocol == udp );
}

bool
isFor( AclType type, const AclPacket & packet ) {
   return type == AclType::mac ||
          ( type == AclType::ip ? packet.src.isIpv4() : packet.src.isIpv6() );
}

} // namespace

SimAcl::Deciders
SimAcl::deciders() const {
   Deciders all;
   for ( auto & [place, uses] : wanted() ) {
      auto & [type, name, key] = place;
      auto sm = instance( place );
      for ( auto & use : uses ) {
         if ( !use.lagMember() ) {
            all[{ use.pair().intfId(), key.direction() }].push_back(
                  { type, name, use.host(), sm && !sm->failed() } );
         }
      }
   }
   return all;
}

/** The first rule that it meets decides in each list; all of them must permit it. */
void
SimAcl::ask( const std::vector< Decider > & deciders, const AclPacket & packet,
             Decision & decision ) const {
   for ( auto & decider : deciders ) {
      if ( !isFor( decider.type, packet ) ||
           !( decider.host.isZero() || decider.host == packet.ethSrc ) ) {
         continue;
      }
      decision.known = decision.known && decider.known;
      const bool discovery = decider.type == AclType::ipv6 && packet.protocol == icmpv6 &&
                             ( packet.icmpType == neighbourSolicitation ||
                               packet.icmpType == neighbourAdvertisement );
      bool permits = discovery && chip_.table().limits().icmpv6Rules;
      for ( auto && [seq, rule] :
            config_->type( decider.type )->acl( decider.name )->ruleIteratorConst() ) {
         const bool mac = decider.type == AclType::mac;
         const bool here = mac || meetsAddresses( rule.ip(), packet );
         if ( here && ( mac || meetsPorts( rule.ip(), packet ) ) ) {
            permits = rule.action() == Acl::RuleAction::permit;
            auto session = sessions_->session( rule.mirrorSession() );
            decision.mirrorGroups.insert( session ? session->mirrorGroup() : -1 );
            break;
         }
         if ( here && meetsAsFragment( rule, packet ) ) {
            permits = true;
            break;
         }
      }
      decision.permits = decision.permits && permits;
   }
}

/** What decides at each place, whichever instances say it. */
void
SimAcl::held( Holdings & held ) const {
   std::map< String, std::set< String > > deciding;
   for ( auto & acl : chip_.table().held().acls ) {
      String list = acl.name;
      for ( auto & rule : textsOf( acl.rules ) ) {
         list += "; " + rule;
      }
      for ( auto & use : acl.uses ) {
         if ( acl.committed ) {
            deciding["list at " + use.stringValue() + acl.key.stringValue()].insert( list );
         }
      }
   }
   for ( auto & [where, lists] : deciding ) {
      for ( auto & list : lists ) {
         held[where] += list + "\n";
      }
   }
}

} // namespace Sim
