// What is wanted of one instance: interfaces, hosts, rules, mirror sessions.

#include "Qon/include/acl/QonAclSm.h"

namespace Qon {

using Ulnet::IntfId;

void
AclDataSm::useIs( const AclIntfUse & use, bool active ) {
   Use * state = uses_.find( use );
   if ( active == ( state && state->wanted ) ) {
      return;
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
   const bool fresh = pairs_.emplace( pair ).second;
   const bool onLag =
         Ulnet::SubIntfId::isSubIntfId( pair.intfId() ) &&
         Ulnet::PortChannelIntfId::isPortChannelIntfId( Ulnet::SubIntfId::parent( pair.intfId() ) );
   if ( onLag ) {
      const auto before = std::exchange( *pairs_.find( pair ), members );
      auto use = [&]( IntfId member, bool active ) {
         error.run( [&] { useIs( AclIntfUse( pair, member ), active ); } );
      };
      reconcile< IntfId >(
            before, members, [&]( IntfId m ) { use( m, false ); },
            [&]( IntfId m ) { use( m, true ); } );
   } else {
      useIs( AclIntfUse( pair, IntfId() ), true );
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
   const auto members = pairs_.take( pair );
   if ( !members ) {
      return false;
   }
   aclSm_->changed( this );
   Velto::FirstError error;
   for ( IntfId member : *members ) {
      error.run( [&] { useIs( AclIntfUse( pair, member ), false ); } );
   }
   useIs( AclIntfUse( pair, IntfId() ), false ); // of one that no port-channel carries
   error.run( [&] { data_->activeIntfsIs( pairCount() ); } );
   error.pass();
   return true;
}

/** Those that have it as a whole, and those of which some host has it. */
U32
AclDataSm::pairCount() const {
   KeySet< IntfPairKey > ofHosts;
   for ( auto && entry : hosts_ ) {
      if ( !pairs_.has( entry.key.pair() ) ) {
         ofHosts.emplace( entry.key.pair() );
      }
   }
   return pairs_.size() + ofHosts.size();
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
   for ( auto && [pair, members] : pairs_ ) {
      all.emplace( pair.intfId() );
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
   for ( auto && entry : keysOf< IntfPairKey >( pairs_ ) ) {
      error.run( [&] { pairDel( entry.key ); } );
   }
   for ( auto && [use, times] : std::exchange( hosts_, {} ) ) {
      error.run( [&, &use = use] { hostsChanged( use, false ); } );
   }
   error.pass();
}

} // namespace Qon
