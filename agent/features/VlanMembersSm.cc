#include "agent/features/VlanMembersSm.h"

namespace QonAgent {

class VlanMembersSm::VlanSm : public Qon::QonBaseSm {
 public:
   VlanSm( VlanMembersSm * owner, const VlanConfig * config )
       : owner_( owner ), config_( config ) {}
   void handleInitialized() override {
      memberWatch_.attach( this, config_ );
      for ( auto && entry : Qon::keysOf< IntfId >( config_->memberIteratorConst() ) ) {
         handleMember( entry.key );
      }
   }
   void handleMember( const IntfId & member ) { owner_->handleMember( config_->vlan(), member ); }

 private:
   VlanMembersSm * const owner_;
   const VlanConfig * const config_;
   Kiv::Watch< VlanConfig::memberAttr, VlanSm, &VlanSm::handleMember > memberWatch_;
};

VlanMembersSm::VlanMembersSm( Qon::QonCommonSmData * acsd, Velto::Ptr< const Config > config,
                              Velto::Ptr< Qon::VlanHelper > helper )
    : acsd_( acsd ), config_( std::move( config ) ), helper_( std::move( helper ) ),
      vlanSm_( this ) {}

void
VlanMembersSm::handleInitialized() {
   lagFollower_.attach( this, acsd_ );
   vlanWatch_.attach( this, config_.ptr() );
   for ( auto && entry : Qon::keysOf< VlanId >( config_->vlanConfigIteratorConst() ) ) {
      handleVlan( entry.key );
   }
}

void
VlanMembersSm::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   vlanSm_.kivDoZombieReactors();
}

void
VlanMembersSm::handleVlan( const VlanId & vlan ) {
   vlanSm_.review( vlan, config_->vlanConfig( vlan ) );
}

Velto::Ptr< VlanMembersSm::VlanSm >
VlanMembersSm::makeVlan( const VlanId & vlan, const Velto::Ptr< const VlanConfig > & config ) {
   helper_->vlanIs( vlan );
   return Qon::smIs< VlanSm >( this, config.ptr() );
}

void
VlanMembersSm::cleanUpVlan( const VlanId & vlan, VlanSm * ) {
   helper_->vlanDel( vlan );
}

void
VlanMembersSm::handleMember( VlanId vlan, IntfId member ) {
   const VlanConfig * config = config_->vlanConfig( vlan );
   const Qon::LagView lags( acsd_ );
   if ( lags.role( member ) == Qon::LagRole::aggregate ) {
      for ( IntfId port : lags.membersOf( member ) ) {
         review( vlan, config, port );
      }
   }
   review( vlan, config, member );
}

void
VlanMembersSm::handleLag( IntfId port, IntfId from, IntfId to ) {
   for ( auto && [vlan, config] : config_->vlanConfigIteratorConst() ) {
      for ( IntfId intf : { port, from, to } ) {
         if ( intf ) {
            review( vlan, config.ptr(), intf );
         }
      }
   }
}

/** An aggregate that leads to others is no member itself. */
void
VlanMembersSm::handleLagList( IntfId lag, IntfId ) {
   for ( auto && [vlan, config] : config_->vlanConfigIteratorConst() ) {
      review( vlan, config.ptr(), lag );
   }
}

/** Requests what the configuration wants of one port. */
void
VlanMembersSm::review( VlanId vlan, const VlanConfig * config, IntfId port ) {
   const Qon::LagView lags( acsd_ );
   const IntfId lag = lags.lagOf( port );
   const IntfId member = lag ? lag : port;
   const bool standsForOthers =
         lags.role( port ) == Qon::LagRole::aggregate && !lags.membersOf( port ).empty();
   const bool in = config && config->memberHas( member ) && !standsForOthers;
   helper_->requestPortVlanMembershipChange( Qon::PortVlanMembershipChangeKind::setOverride, port,
                                             vlan, in && config->member( member ), in, in );
}

} // namespace QonAgent
