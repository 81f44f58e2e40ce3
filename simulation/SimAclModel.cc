// What the chip shall hold of access lists, by the configuration alone.

#include <algorithm>

#include "simulation/SimAcl.h"
#include "simulation/World.h"

namespace Sim {

using Acl::AclDirection;
using Acl::AclType;
using Acl::SharingKind;
using Qon::AclKey;
using Ulnet::IntfId;

bool
SimAcl::managed( IntfId intf ) const {
   return intf.type() != Ulnet::IntfType::ethernet || intf.sub() || world_.acsd->intfs() == 0 ||
          world_.acsd->intfHas( intf );
}

U16
SimAcl::vlanOf( IntfId intf ) const {
   if ( intf.type() == Ulnet::IntfType::vlan ) {
      return U16( intf.number( 0 ) );
   }
   auto internal = internal_.find( intf );
   return internal != internal_.end() ? internal->second : subIntfs_->vlan( intf ).value();
}

std::vector< IntfId >
SimAcl::membersOf( IntfId lag ) const {
   std::vector< IntfId > members;
   for ( auto & [port, flags] : world_.acsd->lagToPort( lag ) ) {
      if ( managed( port ) ) {
         members.push_back( port );
      }
   }
   return members;
}

void
SimAcl::addWanted( Wanted & wanted, AclType type, AclDirection direction, IntfId intf,
                   const String & name ) const {
   auto shared = [&]( SharingKind kind ) {
      const Acl::SharingKey key( type, direction, kind );
      return params_->sharedModeHas( key ) ? params_->sharedMode( key ) : kind != SharingKind::vlan;
   };
   auto at = [&]( U32 vlan, const String & group ) -> Uses & {
      return wanted[{ type, name, AclKey( Qon::AclVlanIdOrNone( vlan ), direction, group ) }];
   };
   auto use = []( IntfId port, IntfId lag, IntfId member ) {
      return Qon::AclIntfUse( Qon::IntfPairKey( port, lag ), member );
   };
   const bool isLag = intf.type() == Ulnet::IntfType::portChannel && !intf.sub();
   const String portGroup = shared( SharingKind::port ) ? "default" : intf.stringValue();
   if ( intf.sub() ) {
      const IntfId parent = Ulnet::SubIntfId::parent( intf );
      const bool together = shared( SharingKind::subIntf );
      if ( world_.acsd->portToLagHas( parent ) || ( !together && vlanOf( intf ) == 0 ) ||
           ( !together && type == AclType::ip && direction == AclDirection::out ) ) {
         return;
      }
      Uses & uses = at( together ? 0 : vlanOf( intf ), "default" );
      if ( parent.type() == Ulnet::IntfType::portChannel ) {
         for ( IntfId member : membersOf( parent ) ) {
            uses.insert( use( intf, IntfId(), member ) );
         }
      } else {
         uses.insert( use( intf, IntfId(), IntfId() ) );
      }
   } else if ( isLag ) {
      for ( IntfId member : membersOf( intf ) ) {
         at( 0, portGroup ).insert( use( member, intf, IntfId() ) );
      }
   } else if ( intf.type() == Ulnet::IntfType::vlan ) {
      Uses & uses = shared( SharingKind::vlan ) ? at( 0, "vlan" ) : at( vlanOf( intf ), "default" );
      uses.insert( use( intf, IntfId(), IntfId() ) );
   } else if ( managed( intf ) && !world_.acsd->portToLagHas( intf ) ) {
      at( 0, portGroup ).insert( use( intf, IntfId(), IntfId() ) );
   }
}

SimAcl::Wanted
SimAcl::wanted() const {
   Wanted all;
   for ( auto && [type, byType] : intfConfig_->typeIteratorConst() ) {
      for ( auto && [direction, config] : byType->directionIteratorConst() ) {
         for ( auto && [intf, name] : config->intfIteratorConst() ) {
            auto lists = config_->type( type );
            if ( lists && lists->aclHas( name ) ) {
               addWanted( all, type, direction, intf, name );
            }
         }
      }
   }
   return all;
}

/** A text each: what a rule does, and of what. */
std::vector< String >
SimAcl::wantedRules( AclType type, const String & name ) const {
   auto text = []( bool permit, const Acl::IpFilter & filter ) {
      return ( permit ? "permit " : "deny " ) + filter.stringValue();
   };
   std::vector< String > rules;
   std::set< String > fragments;
   for ( auto && [seq, rule] : config_->type( type )->acl( name )->ruleIteratorConst() ) {
      const bool permit = rule.action() == Acl::RuleAction::permit;
      Acl::IpFilter rest = rule.ip();
      rules.push_back( text( permit, rest ) );
      const bool ports = rest.srcPort() != Acl::PortRange() || rest.dstPort() != Acl::PortRange();
      const U32 protocol = rest.protocol().value_or( 0 );
      if ( type == AclType::mac || !permit || !ports || rest.fragments() ||
           ( protocol != 6 && protocol != 17 ) ) {
         continue;
      }
      rest = Acl::IpFilter( rest.protocol(), rest.src(), rest.dst(), {}, {}, 0, 0, {}, {}, true );
      if ( fragments.insert( rest.stringValue() ).second ) {
         rules.push_back( text( true, rest ) );
      }
   }
   if ( type == AclType::ipv6 && chip_.table().limits().icmpv6Rules ) {
      for ( U8 icmp : { 135, 136 } ) {
         Acl::IpFilter filter;
         filter.protocolIs( U8( 58 ) );
         filter.icmpTypeIs( icmp );
         rules.push_back( text( true, filter ) );
      }
   }
   rules.push_back( text( false, Acl::IpFilter() ) );
   return rules;
}

String
SimAcl::checkHeld( const QonChip::HeldAcl & held, const Wanted & wanted ) const {
   const String who = Kiv::toText( held.type ) + " " + held.name + " " + held.key.stringValue();
   auto found = wanted.find( { held.type, held.name, held.key } );
   if ( held.stale ) {
      return "a former helper's instance: " + who;
   }
   if ( found == wanted.end() ) {
      return "instance too many: " + who;
   }
   if ( !held.committed ) {
      return "instance that does not decide: " + who;
   }
   if ( held.uses != found->second ) {
      return "interfaces of an instance: " + who;
   }
   const auto rules = wantedRules( held.type, held.name );
   const auto & have = held.rules->rules();
   bool same = rules.size() == have.size();
   for ( std::size_t i = 0; same && i < rules.size(); ++i ) {
      const bool permit = have[i].rule.action() == Acl::RuleAction::permit;
      same = rules[i] == ( permit ? "permit " : "deny " ) + have[i].rule.ip().stringValue();
   }
   return same ? "" : "rules of an instance: " + who;
}

String
SimAcl::checkAtRest() const {
   const Wanted want = wanted();
   const auto held = chip_.table().held();
   if ( !held.blocked.empty() ) {
      return "blocked at rest: " + held.blocked.begin()->stringValue();
   }
   for ( auto & acl : held.acls ) {
      if ( String wrong = checkHeld( acl, want ); !wrong.empty() ) {
         return wrong;
      }
   }
   if ( held.acls.size() != want.size() ) {
      for ( auto & [place, uses] : want ) {
         if ( std::none_of( held.acls.begin(), held.acls.end(), [&]( auto & acl ) {
                 return Place( acl.type, acl.name, acl.key ) == place;
              } ) ) {
            return "instance missing: " + std::get< 1 >( place ) + " " +
                   std::get< 2 >( place ).stringValue();
         }
      }
      return "two instances of one key";
   }
   return {};
}

} // namespace Sim
