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
   if ( chip_.table().limits().perHost ) {
      addWantedHosts( all );
   }
   return all;
}

/** Hosts of ports, and of all members of port-channels, have lists for what comes in. */
void
SimAcl::addWantedHosts( Wanted & wanted ) const {
   for ( auto && [host, acl] : hosts_->hostIteratorConst() ) {
      auto lists = config_->type( acl.type() );
      auto intfs = intfConfig_->type( acl.type() );
      if ( !lists || !lists->aclHas( acl.acl() ) || !intfs ||
           !intfs->directionHas( AclDirection::in ) ) {
         continue;
      }
      const Acl::SharingKey sharing( acl.type(), AclDirection::in, SharingKind::port );
      const bool shared = !params_->sharedModeHas( sharing ) || params_->sharedMode( sharing );
      const bool lag = host.intf().type() == Ulnet::IntfType::portChannel;
      std::vector< IntfId > ports =
            lag ? membersOf( host.intf() ) : std::vector< IntfId >{ host.intf() };
      for ( IntfId port : ports ) {
         if ( !lag && ( !managed( port ) || world_.acsd->portToLagHas( port ) ) ) {
            continue;
         }
         const String group = shared ? "default" : host.intf().stringValue();
         wanted[{ acl.type(), acl.acl(), AclKey( {}, AclDirection::in, group ) }].insert(
               { Qon::IntfPairKey( port, {} ), {}, host.host() } );
      }
   }
}

/** A text each: what a rule does, and of what. */
SimAcl::Texts
SimAcl::wantedRules( AclType type, const String & name, bool groups ) const {
   auto text = []( bool permit, const Acl::IpFilter & filter ) {
      return ( permit ? "permit " : "deny " ) + filter.stringValue();
   };
   auto group = [&]( const String & session ) {
      auto status = session.empty() ? nullptr : sessions_->session( session );
      const S32 number = status ? status->mirrorGroup() : Mirroring::mirrorGroupInvalid();
      return groups && number != Mirroring::mirrorGroupInvalid()
                   ? " to " + session + " in " + std::to_string( number )
                   : "";
   };
   std::vector< String > rules;
   std::set< String > fragments;
   for ( auto && [seq, rule] : config_->type( type )->acl( name )->ruleIteratorConst() ) {
      const bool permit = rule.action() == Acl::RuleAction::permit;
      Acl::IpFilter rest = rule.ip();
      rules.push_back( text( permit, rest ) + group( rule.mirrorSession() ) );
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
   auto sm = instance( found->first );
   const String wrong = sm ? checkRules( held, sm->failed() ) : "instance that nobody knows";
   return wrong.empty() ? "" : wrong + ": " + who;
}

const Qon::AclDataSm *
SimAcl::instance( const Place & place ) const {
   auto sm = sm_->aclConfigSm( std::get< 0 >( place ), std::get< 1 >( place ) );
   return sm ? sm->aclDataSm( std::get< 2 >( place ) ) : nullptr;
}

/** What is configured; where that was refused, what was configured some time before. */
String
SimAcl::checkRules( const QonChip::HeldAcl & held, bool failed ) const {
   std::vector< String > have;
   for ( auto & [origin, id, rule, group] : held.rules->rules() ) {
      const bool permit = rule.action() == Acl::RuleAction::permit;
      have.push_back( ( permit ? "permit " : "deny " ) + rule.ip().stringValue() );
      if ( !failed && group != Mirroring::mirrorGroupInvalid() ) {
         have.back() += " to " + rule.mirrorSession() + " in " + std::to_string( group );
      }
      if ( rule.log() && held.key.direction() == AclDirection::out ) {
         return "logging where there is none";
      }
   }
   if ( failed ) {
      auto versions = versions_.find( { held.type, held.name } );
      const bool known = versions != versions_.end() && versions->second.contains( have );
      return known ? "" : "rules that nobody ever wanted";
   }
   return have == wantedRules( held.type, held.name, true ) ? "" : "rules of an instance";
}

void
SimAcl::remember( AclType type, const String & name ) {
   const Texts rules = wantedRules( type, name, false );
   versions_[{ type, name }].insert( rules );
   recent_[{ type, name }].insert( rules );
}

/** Those whose list fails, unless hardware is just too small. */
String
SimAcl::checkErrdisabled( const Wanted & wanted ) const {
   std::set< IntfId > out;
   for ( auto & [place, uses] : wanted ) {
      auto sm = instance( place );
      bool broken = false;
      for ( auto && [unit, error] : sm->status()->unitErrorIteratorConst() ) {
         broken = broken || error == Qon::AclCreateError::unsupportedRule ||
                  error == Qon::AclCreateError::unsupportedTcamFeature;
      }
      if ( broken && chip_.table().refusals() == 0 ) {
         return "failure of what was never refused";
      }
      for ( auto && entry : broken ? sm->intfs() : Qon::KeySet< IntfId >() ) {
         out.insert( entry.key );
      }
   }
   for ( IntfId intf : out ) {
      if ( !errdisable_->intfStatusHas( intf ) ) {
         return "in service though its list fails: " + intf.stringValue();
      }
   }
   return errdisable_->intfStatuss() == out.size() ? "" : "out of service without a reason";
}

// What passes while lists are exchanged

bool
SimAcl::permits( AclType type ) const {
   return params_->permitDuringAclUpdateConfigHas( type )
                ? params_->permitDuringAclUpdateConfig( type )
                : params_->defaultActionDuringAclUpdatePermit();
}

std::map< SimAcl::Guard, SimAcl::Place >
SimAcl::wantedUses() const {
   std::map< Guard, Place > all;
   for ( auto & [place, uses] : wanted() ) {
      for ( auto & use : uses ) {
         all[{ std::get< 0 >( place ), std::get< 2 >( place ).direction(), use }] = place;
      }
   }
   return all;
}

const SimAcl::Texts &
SimAcl::textsOf( const Velto::Ptr< const Qon::AclRuleSet > & rules ) const {
   auto [known, fresh] = texts_.try_emplace( rules.ptr() );
   if ( fresh ) {
      Texts texts;
      for ( auto & [origin, id, rule, group] : rules->rules() ) {
         const bool permit = rule.action() == Acl::RuleAction::permit;
         texts.push_back( ( permit ? "permit " : "deny " ) + rule.ip().stringValue() );
      }
      known->second = { rules, texts };
   }
   return known->second.second;
}

/** From now on what decides now may decide, and what the configuration will say. */
void
SimAcl::takeGuards() const {
   guards_.clear();
   recent_.clear();
   texts_.clear();
   for ( auto & [guard, place] : wantedUses() ) {
      auto & [type, direction, use] = guard;
      Admitted admitted;
      for ( auto acl : chip_.table().deciders( type, direction, use ) ) {
         admitted.old.insert( { acl->aclName, textsOf( acl->rules ) } );
      }
      admitted.place = place;
      if ( !permits( type ) && !admitted.old.empty() ) {
         guards_[guard] = admitted;
      }
   }
   for ( auto && [type, lists] : config_->typeIteratorConst() ) {
      for ( auto && [name, list] : lists->aclIteratorConst() ) {
         recent_[{ type, name }].insert( wantedRules( type, name, false ) );
      }
   }
   for ( auto & acl : chip_.table().held().acls ) { // also what was brought back long ago
      recent_[{ acl.type, acl.name }].insert( textsOf( acl.rules ) );
   }
}

/** Where no list is wanted, and where one was refused, nothing needs to decide. */
void
SimAcl::dropGuards( const std::map< Guard, Place > & now ) const {
   for ( auto entry = guards_.begin(); entry != guards_.end(); ) {
      auto & [guard, admitted] = *entry;
      auto place = now.find( guard );
      if ( place != now.end() && sm_->initialized() ) { // else nothing is heard of it
         admitted.place = place->second;
      }
      const bool drop = place == now.end() || permits( std::get< 0 >( guard ) ) ||
                        refusedAt( guard, admitted.place );
      entry = drop ? guards_.erase( entry ) : std::next( entry );
   }
}

void
SimAcl::meanwhile() {
   if ( sm_ && !guards_.empty() ) {
      dropGuards( wantedUses() );
   }
}

String
SimAcl::checkGuard( const Guard & guard, const Admitted & admitted ) const {
   const auto & [type, direction, use] = guard;
   auto where = [&] {
      return Kiv::toText( std::get< 0 >( guard ) ) + " " + Kiv::toText( std::get< 1 >( guard ) ) +
             " " + std::get< 2 >( guard ).stringValue();
   };
   if ( chip_.table().blocked( use.pair().intfId() ) ) {
      return {};
   }
   const auto deciders = chip_.table().deciders( type, direction, use );
   for ( auto acl : deciders ) {
      const Texts & texts = textsOf( acl->rules );
      const bool recent = admitted.lists.contains( acl->aclName ) &&
                          recent_[{ type, acl->aclName }].contains( texts );
      if ( !recent && !admitted.old.contains( { acl->aclName, texts } ) ) {
         return "rules decide that are neither old nor new: " + acl->aclName + " at " + where();
      }
   }
   return deciders.empty() ? "traffic passes without a list: " + where() : "";
}

/** Its list was refused, as it is shown, and nothing stands in its place. */
bool
SimAcl::refusedAt( const Guard & guard, const Place & place ) const {
   const auto & [type, direction, use] = guard;
   auto sm = instance( place );
   return sm && sm->failed() && chip_.table().refusals() &&
          chip_.table().deciders( type, direction, use ).empty();
}

void
SimAcl::checkMoment() {
   if ( !sm_ || guards_.empty() ) {
      return;
   }
   const auto now = wantedUses();
   if ( sm_->phase() == Qon::AclApplyPhase::uninstall && wrongMoment_.empty() ) {
      wrongMoment_ = checkOpenMoments( now ); // what the pass before has refused is known now
   }
   for ( auto & [guard, place] : now ) {
      const auto & [type, direction, use] = guard;
      if ( guards_.contains( guard ) && !permits( type ) &&
           !chip_.table().blocked( use.pair().intfId() ) &&
           chip_.table().deciders( type, direction, use ).empty() && !refusedAt( guard, place ) ) {
         openMoments_.emplace( guard, place );
      }
   }
}

String
SimAcl::checkOpenMoments( const std::map< Guard, Place > & now ) const {
   const auto open = std::move( openMoments_ );
   openMoments_.clear();
   for ( auto & [guard, place] : open ) {
      auto & [type, direction, use] = guard;
      const auto known = guards_.find( guard );
      if ( known != guards_.end() && now.contains( guard ) && !refusedAt( guard, place ) &&
           !refusedAt( guard, known->second.place ) ) {
         return "traffic passes for a moment: " + Kiv::toText( type ) + " " +
                Kiv::toText( direction ) + " " + use.stringValue();
      }
   }
   return {};
}

String
SimAcl::checkGuards() const {
   if ( guards_.empty() ) {
      return {};
   }
   const auto now = wantedUses();
   String wrong = wrongMoment_.empty() ? checkOpenMoments( now ) : wrongMoment_;
   if ( !wrong.empty() ) {
      return wrong;
   }
   dropGuards( now );
   for ( auto & [guard, admitted] : guards_ ) {
      admitted.lists.insert( std::get< 1 >( now.at( guard ) ) );
      wrong = checkGuard( guard, admitted );
      if ( !wrong.empty() ) {
         return wrong;
      }
   }
   return {};
}

String
SimAcl::checkAtRest() const {
   const Wanted want = wanted();
   const auto held = chip_.table().held();
   if ( dpStatus_->completedRequestTime() != dpRequest_->requestTime() ) {
      return "request that is not answered";
   }
   if ( !held.blocked.empty() ) {
      return "blocked at rest: " + held.blocked.begin()->stringValue();
   }
   for ( auto & acl : held.acls ) {
      if ( String wrong = checkHeld( acl, want ); !wrong.empty() ) {
         return wrong;
      }
   }
   std::size_t absent = 0;
   for ( auto & [place, uses] : want ) {
      auto sm = instance( place );
      if ( std::none_of( held.acls.begin(), held.acls.end(), [&]( auto & acl ) {
              return Place( acl.type, acl.name, acl.key ) == place;
           } ) ) {
         ++absent;
         if ( !sm || !sm->failed() || chip_.table().refusals() == 0 ) {
            return "instance missing: " + std::get< 1 >( place ) + " " +
                   std::get< 2 >( place ).stringValue();
         }
      }
   }
   if ( held.acls.size() + absent != want.size() ) {
      return "two instances of one key";
   }
   if ( String wrong = checkErrdisabled( want ); !wrong.empty() ) {
      return wrong;
   }
   takeGuards();
   return {};
}

} // namespace Sim
