// The rules of a named list as the hardware gets them.

#include "Qon/acl/AclTrace.h"
#include "Qon/include/acl/QonAclSm.h"
#include "Qon/include/framework/HookTap.h"

namespace Qon {

using Acl::ImplicitRuleType;

Velto::Ptr< const AclRuleSet >
AclConfigSm::ruleSet() {
   if ( rulesStale_ ) {
      rulesStale_ = false;
      auto rules = resolvedRules();
      if ( !ruleSet_ || !( ruleSet_->rules() == rules ) ) {
         ruleSet_ = Velto::make< AclRuleSet >( std::move( rules ) );
      }
   }
   return ruleSet_;
}

std::vector< AclRule >
AclConfigSm::resolvedRules() {
   fragMap_ = {};
   std::vector< AclRule > rules;
   rules.reserve( config_->rules() + 3 );
   for ( auto && [seq, rule] : config_->ruleIteratorConst() ) {
      rules.push_back( { AclRule::Origin::configured, seq, rule } );
      if ( type_ != Acl::mac() ) {
         checkIpFragRule( rule, rules );
         if ( rules.back().origin == AclRule::Origin::fragment ) {
            rules.back().id = seq;
         }
      }
   }
   generateImplicitRules( rules );
   return rules;
}

/** Further fragments show no ports: what permits by ports permits them by all else. */
void
AclConfigSm::checkIpFragRule( const Acl::Rule & rule, std::vector< AclRule > & rules ) {
   const Acl::IpFilter & filter = rule.ip();
   const bool hasPorts =
         filter.protocol() == Acl::Protocol::tcp || filter.protocol() == Acl::Protocol::udp;
   if ( rule.action() != Acl::RuleAction::permit || filter.fragments() || !hasPorts ||
        ( filter.srcPort().any() && filter.dstPort().any() ) ) {
      return;
   }
   Acl::IpFilter fragments;
   fragments.protocolIs( filter.protocol() );
   fragments.srcIs( filter.src() );
   fragments.dstIs( filter.dst() );
   fragments.fragmentsIs( true );
   if ( !fragMap_.emplace( fragments, rule.seq() ).second ) {
      QON_TRACE( aclFacility, 7, "Matching fragment permit rule already created" ); // fixed text
      return;
   }
   QON_TRACE( aclFacility, 7, "Creating fragment permit rule" ); // fixed text
   Acl::Rule permit;
   permit.seqIs( rule.seq() );
   permit.ipIs( fragments );
   rules.push_back( { AclRule::Origin::fragment, rule.seq(), permit } );
}

void
AclConfigSm::generateImplicitRules( std::vector< AclRule > & rules ) {
   auto add = [&]( ImplicitRuleType type, Acl::RuleAction action, const Acl::IpFilter & filter ) {
      Acl::Rule rule;
      rule.actionIs( action );
      rule.ipIs( filter );
      auto id = implicitRuleId_.find( type );
      if ( !id ) {
         id = implicitRuleId_.emplace( type, firstImplicitRuleId + implicitRuleId_.size() ).first;
      }
      rules.push_back( { AclRule::Origin::implicit, *id, rule } );
   };
   // A neighbour solicitation, and its answer.
   constexpr std::pair< ImplicitRuleType, U8 > neighbours[] = {
         { ImplicitRuleType::icmpv6NeighborSolicitation, 135 },
         { ImplicitRuleType::icmpv6NeighborAdvertisement, 136 } };
   if ( type_ == Acl::ipv6() && aclSm_->aclHelper()->shouldInstallIcmpv6Rules() ) {
      for ( auto & [type, icmpType] : neighbours ) {
         Acl::IpFilter filter;
         filter.protocolIs( Acl::Protocol::icmpv6 );
         filter.icmpTypeIs( icmpType );
         add( type, Acl::RuleAction::permit, filter );
      }
   }
   add( ImplicitRuleType::denyAll, Acl::RuleAction::deny, {} );
}

void
AclConfigSm::rulesMayDiffer() {
   rulesStale_ = true;
   for ( auto && [key, instance] : instances_ ) {
      Velto::Ptr< AclDataSm >( instance )->rulesChanged();
   }
}

void
AclConfigSm::handleRule( const U32 & ) {
   const Velto::Hold root( aclSm_ );
   const Velto::Hold alive( this );
   rulesMayDiffer();
}

void
AclConfigSm::handleCounterRequest() {
   if ( countersRead_ == config_->counterRequest() ) {
      return;
   }
   countersRead_ = config_->counterRequest();
   if ( !counterClock_ ) {
      counterClock_.attach( this, Velto::make< Kiv::Clock >() );
   }
   counterClock_->timeMin( Kiv::now() );
}

void
AclConfigSm::handleCounterClock() {
   const Velto::Hold root( aclSm_ );
   QON_HOOK( AclHelper, aclSm_->aclHelper(), readAclCounters, type_, name_ );
}

} // namespace Qon
