#include "Qon/include/acl/AclDirectionTypeConfigSm.h"

#include "Qon/acl/AclTrace.h"
#include "Qon/include/acl/QonAclSm.h"

namespace Qon {

using Bridging::SwitchportMode;
using Ulnet::IntfId;

// The switchport mode of one interface

AclSwitchportModeConfigSm::AclSwitchportModeConfigSm(
      AclDirectionTypeConfigSm * directionSm,
      Velto::Ptr< const Bridging::SwitchIntfConfig > config )
    : directionSm_( directionSm ), config_( std::move( config ) ),
      mode_( config_->switchportMode() ) {}

void
AclSwitchportModeConfigSm::handleInitialized() {
   modeWatch_.attach( this, initialized() ? config_.ptr() : nullptr );
}

void
AclSwitchportModeConfigSm::handleSwitchportMode() {
   directionSm_->handleIntf( config_->intf() );
}

void
AclSwitchportModeConfigSm::review() {
   const SwitchportMode now = config_->switchportMode();
   if ( now != mode_ ) {
      const SwitchportMode before = std::exchange( mode_, now );
      if ( !directionSm_->switchportModeChanged( config_->intf(), before, now ) ) {
         mode_ = before; // so that it is compared again
      }
   }
}

bool
AclDirectionTypeConfigSm::switchportModeChanged( IntfId intf, SwitchportMode before,
                                                 SwitchportMode now ) {
   const bool wasRouted = before == SwitchportMode::routed, routed = now == SwitchportMode::routed;
   if ( wasRouted == routed ) {
      return true;
   }
   // fixed texts
   QON_TRACE( aclFacility, 4, "Interface switchport mode changing from ", Kiv::toText( before ),
              " to ", Kiv::toText( now ) );
   const String name = aclNameOf( intf );
   if ( name.empty() || !aclSm_->aclConfigSm( type_, name ) ) {
      QON_TRACE( aclFacility, 4, "Ignore switchport mode: No ACL config" );
      return true;
   }
   if ( routed && aclSm_->shared( type_, direction(), Acl::SharingKind::port ) &&
        !aclSm_->aclHelper()->raclSharingSupported( type_, direction() ) ) {
      QON_TRACE( aclFacility, 2,
                 "Ignore switchport mode: Routed port RACL sharing not supported for ACL ", name );
      return false;
   }
   applyAnew( intf );
   return true;
}

/** Off its instances and on them again. */
void
AclDirectionTypeConfigSm::applyAnew( IntfId intf ) {
   auto held = held_.find( intf );
   auto configSm = held ? aclSm_->aclConfigSm( type_, held->name ) : nullptr;
   if ( !configSm ) {
      return;
   }
   const Velto::Ptr< AclConfigSm > alive( configSm );
   const Pairs pairs = held->pairs;
   for ( bool active : { false, true } ) {
      for ( auto && [pair, other] : pairs ) {
         if ( !other && !deferred_.has( pair ) ) {
            configSm->intfActiveIs( pair, direction(), active, false );
         }
      }
   }
}

// The direction

AclDirectionTypeConfigSm::AclDirectionTypeConfigSm(
      AclSm * aclSm, Acl::AclType type, Velto::Ptr< const Acl::DirectionIntfConfig > config,
      U16 aclNumberRangeStart )
    : aclSm_( aclSm ), type_( type ), config_( std::move( config ) ),
      numbers_( Velto::make< AclNumbers >( aclNumberRangeStart ) ) {}

void
AclDirectionTypeConfigSm::handleInitialized() {
   if ( !initialized() ) {
      modes_.rest();
      return;
   }
   intfWatch_.attach( this, config_.ptr() );
   for ( auto && [intf, held] : held_ ) {
      aclSm_->later( type_, direction(), intf );
   }
   for ( auto && [intf, name] : config_->intfIteratorConst() ) {
      aclSm_->later( type_, direction(), intf );
   }
   aclSm_->hostsLaterOf( type_ );
   aclSm_->settle();
}

void
AclDirectionTypeConfigSm::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   modes_.kivDoZombieReactors();
}

void
AclDirectionTypeConfigSm::doCleanup() {
   cleanedUp_ = true;
   Velto::FirstError error;
   for ( auto && entry : keysOf< IntfId >( held_ ) ) {
      error.run( [&] { reviewIntf( entry.key ); } );
   }
   modes_.removeAll();
   addWait_ = removalWait_ = {};
   aclSm_->waitsChanged();
   aclSm_->hostsLaterOf( type_ );
   error.run( [&] { aclSm_->settle(); } );
   error.pass();
}

AclCreateError
AclDirectionTypeConfigSm::allocateAclNumber( const String & aclName, AclData * data ) {
   if ( data->aclNumber() != aclNumberNone ) {
      return AclCreateError::success;
   }
   if ( numbers_->empty() ) {
      // fixed texts
      QON_TRACE( aclFacility, 1, "Could not create ", aclName,
                 " because the ACL limit was reached" );
      return AclCreateError::aclLimit;
   }
   data->aclNumberIs( numbers_->take() );
   return AclCreateError::success;
}

String
AclDirectionTypeConfigSm::aclNameOf( IntfId intf ) const {
   auto held = held_.find( intf );
   return held ? held->name : String();
}

void
AclDirectionTypeConfigSm::handleIntf( const IntfId & intf ) {
   aclSm_->review( type_, direction(), intf );
}

AclDirectionTypeConfigSm::Pairs
AclDirectionTypeConfigSm::wantedPairs( IntfId intf ) const {
   const LagView lags( aclSm_->acsd() );
   Pairs pairs;
   auto add = [&]( IntfId port, IntfId lag ) {
      const IntfPairKey pair( port, lag );
      pair.check();
      pairs.emplace_back( pair, !aclSm_->managed( port ) );
   };
   if ( Ulnet::PortChannelIntfId::isPortChannelIntfId( intf ) ) {
      for ( IntfId member : lags.membersOf( intf ) ) {
         add( member, intf );
      }
      if ( pairs.empty() ) {
         // fixed text
         QON_TRACE( aclFacility, 4, "No active ports found for port-channel ", intf );
      }
   } else if ( Ulnet::SubIntfId::isSubIntfId( intf ) ) {
      if ( !lags.lagOf( Ulnet::SubIntfId::parent( intf ) ) ) {
         add( intf, IntfId() );
      }
   } else if ( !lags.lagOf( intf ) ) {
      add( intf, IntfId() );
   }
   return pairs;
}

void
AclDirectionTypeConfigSm::reviewIntf( IntfId intf ) {
   const bool attached = !cleanedUp_ && config_->intfHas( intf );
   Held * held = held_.find( intf );
   if ( !attached && !held ) {
      return;
   }
   const Velto::Hold alive( this );
   const String name = attached ? config_->intf( intf ) : String();
   const Pairs wanted = attached ? wantedPairs( intf ) : Pairs();
   const bool wasHeld = held;
   const Held before = held ? std::move( *held ) : Held();
   if ( attached ) {
      held = held ? held : held_.emplace( intf, Held() ).first;
      *held = { name, wanted };
   } else {
      held_.erase( intf );
   }
   namingIs( intf, before.name, name );
   if ( Ulnet::SubIntfId::isSubIntfId( intf ) && wasHeld != attached ) {
      aclSm_->subIntfAttachedIs( intf, attached );
   }
   pairsDel( before, name, wanted );
   pairsAdd( name, wanted );
   // A list that goes may be back before the pass is done; an interface that is detached is not.
   if ( !attached && !aclSm_->intfActive( type_, direction(), intf ) ) {
      waitForBlockedDel( intf );
      aclSm_->waitsChanged();
   }
   reviewMode( intf );
}

void
AclDirectionTypeConfigSm::namingIs( IntfId intf, const String & before, const String & now ) {
   if ( before == now ) {
      return;
   }
   if ( auto intfs = before.empty() ? nullptr : naming_.find( before ) ) {
      intfs->erase( intf );
      if ( intfs->empty() ) {
         naming_.erase( before );
      }
   }
   if ( !now.empty() ) {
      naming_.emplace( now ).first->emplace( intf );
   }
}

void
AclDirectionTypeConfigSm::pairsDel( const Held & before, const String & name,
                                    const Pairs & wanted ) {
   if ( before.pairs.empty() ) {
      return;
   }
   const Velto::Ptr< AclConfigSm > configSm = aclSm_->aclConfigSm( type_, before.name );
   Kiv::DenseMap< IntfPairKey, bool > staying;
   if ( before.name == name ) {
      for ( auto & [pair, other] : wanted ) {
         staying.emplace( pair, other );
      }
   }
   for ( auto & [pair, other] : before.pairs ) {
      const bool * stays = staying.find( pair );
      if ( stays && *stays == other ) {
         continue;
      }
      deferred_.erase( pair );
      // What was driven by somebody else and is not any more has nothing to be taken back.
      if ( configSm && !( stays && other ) ) {
         configSm->intfActiveIs( pair, direction(), false, other );
      }
   }
}

void
AclDirectionTypeConfigSm::pairsAdd( const String & name, const Pairs & wanted ) {
   const Velto::Ptr< AclConfigSm > configSm =
         name.empty() ? nullptr : aclSm_->aclConfigSm( type_, name );
   if ( !configSm ) {
      return;
   }
   for ( auto && [pair, other] : wanted ) {
      const bool joins = pair.lagIntf() && !configSm->keyOf( pair, direction() );
      if ( joins && !other && configSm->busyFor( pair, direction() ) ) {
         QON_TRACE( aclFacility, 4, "deferring addition of lag member ", pair.intfId() ); // fixed
         deferred_.emplace( pair );
         aclSm_->memberWaits();
         continue;
      }
      deferred_.erase( pair );
      configSm->intfActiveIs( pair, direction(), true, other );
   }
}

// Members that wait

std::vector< IntfId >
AclDirectionTypeConfigSm::deferredPorts() const {
   std::vector< IntfId > ports;
   for ( auto && entry : deferred_ ) {
      ports.push_back( entry.key.intfId() );
   }
   return ports;
}

void
AclDirectionTypeConfigSm::updateAclOnLagMember( IntfId member ) {
   for ( auto && entry : keysOf< IntfPairKey >( deferred_ ) ) {
      if ( entry.key.intfId() == member ) {
         deferred_.erase( entry.key );
         aclSm_->later( type_, direction(), entry.key.lagIntf() );
      }
   }
   aclSm_->settle();
}

void
AclDirectionTypeConfigSm::deferredDelOf( const String & aclName ) {
   for ( auto && entry : keysOf< IntfPairKey >( deferred_ ) ) {
      if ( aclNameOf( entry.key.lagIntf() ) == aclName ) {
         deferred_.erase( entry.key );
      }
   }
}

void
AclDirectionTypeConfigSm::waitForBlockedDel( IntfId intf ) {
   for ( auto * waits : { &addWait_, &removalWait_ } ) {
      for ( auto && entry : keysOf< IntfPairKey >( *waits ) ) {
         if ( entry.key.intfId() == intf ) {
            waits->erase( entry.key );
         }
      }
   }
}

// Switchport modes

Velto::Ptr< AclSwitchportModeConfigSm >
AclDirectionTypeConfigSm::makeMode(
      const IntfId &, const Velto::Ptr< const Bridging::SwitchIntfConfig > & config ) {
   return smIs< AclSwitchportModeConfigSm >( this, config );
}

void
AclDirectionTypeConfigSm::reviewMode( IntfId intf ) {
   const bool wanted = type_ != Acl::mac() && aclSm_->bridgingConfig() && held_.has( intf );
   modes_.review( intf, wanted ? Velto::Ptr< const Bridging::SwitchIntfConfig >(
                                       aclSm_->bridgingConfig()->switchIntfConfig( intf ) )
                               : nullptr );
   if ( const Velto::Ptr< AclSwitchportModeConfigSm > mode = modes_.sm( intf ) ) {
      mode->review();
   }
}

} // namespace Qon
