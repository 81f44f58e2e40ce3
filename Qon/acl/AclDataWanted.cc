// What is wanted of one instance: interfaces, hosts, rules, mirror sessions.

#include "Qon/include/acl/QonAclSm.h"

namespace Qon {

using Ulnet::IntfId;

namespace {

/** Its members are where the list is applied, each by itself. */
bool
onLag( const IntfPairKey & pair ) {
   return Ulnet::SubIntfId::isSubIntfId( pair.intfId() ) &&
          Ulnet::PortChannelIntfId::isPortChannelIntfId(
                Ulnet::SubIntfId::parent( pair.intfId() ) );
}

} // namespace

/** True if that is new. */
bool
AclDataSm::useIs( const AclIntfUse & use, bool active ) {
   Use * state = uses_.find( use );
   if ( active == ( state && state->wanted ) ) {
      return false;
   }
   if ( active ) { // behind all others
      const Use before = state ? *uses_.take( use ) : Use();
      state = uses_.emplace( use, before ).first;
   }
   state->wanted = active;
   state->again = state->again || ( !active && state->applied );
   if ( !std::exchange( state->touched, true ) ) {
      touched_.push_back( use );
   }
   aclSm_->changed( this );
   if ( use.lagMember() ) {
      countMember( use.lagMember(), active );
   }
   return true;
}

void
AclDataSm::countMember( IntfId member, bool joins ) {
   U32 & count = *members_.emplace( member, 0u ).first;
   count += joins ? 1 : -1;
   if ( count == 0 ) {
      members_.erase( member );
      data_->activeLagSubIntfMembersDel( member );
   } else if ( joins && count == 1 ) {
      data_->activeLagSubIntfMembersIs( member );
   }
}

bool
AclDataSm::pairIs( const IntfPairKey & pair, const std::vector< IntfId > & members ) {
   const Velto::Hold alive( this );
   Velto::FirstError error;
   bool fresh = false;
   if ( onLag( pair ) ) {
      fresh = carried_.emplace( pair ).second;
      const auto before = std::exchange( *carried_.find( pair ), members );
      auto use = [&]( IntfId member, bool active ) {
         error.run( [&] { useIs( AclIntfUse( pair, member ), active ); } );
      };
      reconcile< IntfId >(
            before, members, [&]( IntfId m ) { use( m, false ); },
            [&]( IntfId m ) { use( m, true ); } );
   } else {
      fresh = useIs( AclIntfUse( pair, IntfId() ), true );
      plain_ += fresh;
   }
   if ( fresh ) {
      aclSm_->changed( this );
      error.run( [&] { data_->activeIntfsIs( pairCount() ); } );
   }
   error.pass();
   return fresh;
}

bool
AclDataSm::pairDel( const IntfPairKey & pair ) {
   const Velto::Hold alive( this );
   Velto::FirstError error;
   if ( onLag( pair ) ) {
      const auto members = carried_.take( pair );
      if ( !members ) {
         return false;
      }
      aclSm_->changed( this );
      for ( IntfId member : *members ) {
         error.run( [&] { useIs( AclIntfUse( pair, member ), false ); } );
      }
   } else if ( useIs( AclIntfUse( pair, IntfId() ), false ) ) {
      --plain_;
   } else {
      return false;
   }
   error.run( [&] { data_->activeIntfsIs( pairCount() ); } );
   error.pass();
   return true;
}

bool
AclDataSm::pairHas( const IntfPairKey & pair ) const {
   const Use * plain = uses_.find( AclIntfUse( pair, IntfId() ) );
   return ( plain && plain->wanted ) || carried_.has( pair );
}

/** The pairs that have it as a whole. */
KeySet< IntfPairKey >
AclDataSm::pairs() const {
   KeySet< IntfPairKey > all = keysOf< IntfPairKey >( carried_ );
   for ( auto && [use, state] : uses_ ) {
      if ( state.wanted && use.whole() ) {
         all.emplace( use.pair() );
      }
   }
   return all;
}

/** Those that have it as a whole, and those of which some host has it. */
U32
AclDataSm::pairCount() const {
   const U32 whole = plain_ + carried_.size();
   if ( hosts_.empty() ) {
      return whole;
   }
   KeySet< IntfPairKey > ofHosts;
   for ( auto && entry : hosts_ ) {
      if ( !pairHas( entry.key.pair() ) ) {
         ofHosts.emplace( entry.key.pair() );
      }
   }
   return whole + ofHosts.size();
}

void
AclDataSm::hostIs( IntfId port, const Ulnet::EthAddr & host, bool active ) {
   const Velto::Hold alive( this );
   const AclIntfUse use( IntfPairKey( port, IntfId() ), IntfId(), host );
   U32 & times = *hosts_.emplace( use, 0u ).first;
   times += active ? 1 : -1;
   if ( times != ( active ? 1 : 0 ) ) {
      return;
   }
   if ( !active ) {
      hosts_.erase( use );
   }
   hostsChanged( use, active );
}

void
AclDataSm::hostsChanged( const AclIntfUse & use, bool active ) {
   aclSm_->changed( this );
   useIs( use, active );
   auto configSm = aclSm_->aclConfigSm( type(), aclName() );
   Velto::FirstError error;
   error.run( [&] {
      data_->perHostAclIs( hosts_.empty() || !configSm ? nullptr : configSm->config() );
   } );
   error.run( [&] { data_->activeIntfsIs( pairCount() ); } );
   error.pass();
}

void
AclDataSm::rulesChanged() {
   aclSm_->changed( this );
   data_->dirtyIs( true );
}

bool
AclDataSm::mirrorSessionChanged( const String & session ) {
   auto configSm = aclSm_->aclConfigSm( type(), aclName() );
   if ( configSm && configSm->ruleSet()->mirrorSessions().has( session ) ) {
      sessions_ = true;
   } else if ( failed_ && committed_ && source_->mirrorSessions().has( session ) ) {
      revert_ = true;
      revertTo_ = good_;
   } else {
      return false;
   }
   aclSm_->changed( this );
   data_->dirtyIs( true );
   return true;
}

void
AclDataSm::retryIs() {
   retry_ = true;
   aclSm_->changed( this );
}

KeySet< IntfId >
AclDataSm::intfs() const {
   KeySet< IntfId > all;
   for ( auto && entry : pairs() ) {
      all.emplace( entry.key.intfId() );
   }
   for ( auto && entry : hosts_ ) {
      all.emplace( entry.key.pair().intfId() );
   }
   return all;
}

void
AclDataSm::retire() {
   const Velto::Hold alive( this );
   retired_ = true;
   aclSm_->changed( this );
   Velto::FirstError error;
   for ( auto && entry : pairs() ) {
      error.run( [&] { pairDel( entry.key ); } );
   }
   for ( auto && [use, times] : std::exchange( hosts_, {} ) ) {
      error.run( [&, &use = use] { hostsChanged( use, false ); } );
   }
   error.pass();
}

} // namespace Qon
