#include "Qon/include/acl/QonAclSm.h"

#include "Qon/acl/AclTrace.h"

namespace Qon {

using Acl::AclDirection;
using Acl::AclType;
using Bridging::VlanIdOrNone;
using Ulnet::IntfId;

Flintlog::Facility aclFacility( "QonAclSm" );

AclSm::AclSm( Inputs inputs ) : in_( std::move( inputs ) ) {}

AclSm::~AclSm() {
   if ( aclHelper()->aclSm() == this ) {
      aclHelper()->aclSmIs( nullptr );
   }
   for ( auto && entry : instances_ ) {
      entry.key->orphan();
   }
}

void
AclSm::handleInitialized() {
   if ( !initialized() ) {
      types_.rest();
      sessions_.rest();
      hosts_.rest();
      return;
   }
   VELTO_ASSERT( !aclHelper()->asyncAclConfig() || aclHelper()->asyncBlockIntf() );
   aclHelper()->paramConfigIs( in_.paramConfig );
   aclHelper()->aclSmIs( this );
   if ( !applyClock_ ) {
      applyClock_.attach( this, Velto::make< Kiv::Clock >() );
   }
   typeWatch_.attach( this, config() );
   intfTypeWatch_.attach( this, intfConfig() );
   modeWatch_.attach( this, in_.paramConfig.ptr() );
   switchIntfWatch_.attach( this, bridgingConfig() );
   cfgVlanWatch_.attach( this, in_.subIntfConfig.ptr() );
   internalVlanWatch_.attach( this, acsd() );
   managedWatch_.attach( this, acsd() );
   sessionWatch_.attach( this, in_.mirroringStatus.ptr() );
   cardWatch_.attach( this, in_.intfCards.ptr() );
   hostWatch_.attach( this,
                      aclHelper()->perHostAclSupported() ? in_.perHostConfig.ptr() : nullptr );
   allManaged_ = acsd()->intfs() == 0;
   starting_ = true; // nothing is applied before all of it has been looked at
   const Velto::AtEnd started( [this] { starting_ = false; } );
   // Each compares what is there with what was done: one that raised is asked once more.
   Velto::FirstError error;
   for ( auto step :
         { +[]( AclSm & sm ) { sm.lags_.attach( &sm, sm.acsd() ); },
           +[]( AclSm & sm ) { sm.reviewVlans(); },
           +[]( AclSm & sm ) {
              for ( AclType type : { Acl::ip(), Acl::mac(), Acl::ipv6() } ) {
                 sm.reviewType( type );
              }
           },
           +[]( AclSm & sm ) { sm.reviewSessions(); }, +[]( AclSm & sm ) { sm.reviewHosts(); },
           +[]( AclSm & sm ) { sm.laterAll(); }, +[]( AclSm & sm ) { sm.settle(); } } ) {
      error.run( [&] { step( *this ); } ) || error.run( [&] { step( *this ); } );
   }
   applyClock_->timeMin( Kiv::now() );
   if ( in_.dpRequest && in_.dpStatus ) {
      dpWatch_.attach( this, in_.dpRequest.ptr() );
      if ( !dpClock_ ) {
         dpClock_.attach( this, Velto::make< Kiv::Clock >() );
      }
      handleDpAclUpdateRequest();
   }
   error.pass();
}

void
AclSm::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   types_.kivDoZombieReactors();
   sessions_.kivDoZombieReactors();
   hosts_.kivDoZombieReactors();
}

void
AclSm::doCleanup() {
   const Velto::Hold alive( this );
   cleanedUp_ = true;
   keepsHardware_ = envSet( "HITLESS_RESTART_TEST" );
   applyClock_.attach( nullptr, nullptr );
   dpClock_.attach( nullptr, nullptr );
   Velto::FirstError error;
   error.run( [&] { hosts_.removeAll(); } );
   error.run( [&] { types_.removeAll(); } );
   for ( auto && entry : keysOf< AclDataSm * >( instances_ ) ) {
      if ( instances_.has( entry.key ) && !keepsHardware_ ) {
         const Velto::Ptr< AclDataSm > instance( entry.key );
         error.run( [&] { instance->uninstallNow(); } );
      }
   }
   const bool asked = aclHelper()->asyncBlockIntf();
   for ( auto && [intf, sm] : std::exchange( intfs_, {} ) ) {
      if ( sm->wantToBlocks() && asked && !keepsHardware_ ) {
         error.run( [&] { aclHelper()->blockIntf( intf, false ); } );
      }
   }
   for ( auto && entry : std::exchange( errdisabled_, {} ) ) {
      error.run( [&] {
         if ( !keepsHardware_ ) {
            in_.errdisable->intfStatusDel( entry.key );
         }
      } );
   }
   for ( auto & sm : callbackDataSm_ ) {
      sm = nullptr;
   }
   outstanding_ = {};
   Instances left;
   takeChanged( left );
   reverts_ = {};
   failing_ = {};
   hasNotificationActiveIs( false );
   error.pass();
}

// The tree

AclDirectionTypeConfigSm *
AclSm::directionSm( AclType type, AclDirection direction ) const {
   auto sm = aclTypeConfigSm( type );
   return sm ? sm->aclDirectionTypeConfigSm( direction ) : nullptr;
}

AclConfigSm *
AclSm::aclConfigSm( AclType type, const String & name ) const {
   auto typeSm = aclTypeConfigSm( type );
   auto sm = typeSm ? typeSm->aclConfigSm( name ) : nullptr;
   return sm && sm->live() ? sm : nullptr;
}

Velto::Ptr< AclTypeConfigSm >
AclSm::makeType( const AclType & type, const bool & ) {
   return smIs< AclTypeConfigSm >( this, type );
}

void
AclSm::reviewType( AclType type ) {
   types_.review( type, config()->typeHas( type ) || intfConfig()->typeHas( type ) );
   if ( const Velto::Ptr< AclTypeConfigSm > sm = aclTypeConfigSm( type ) ) {
      sm->reviewInputs();
   }
   replayCallbackData( type );
}

void
AclSm::handleType( const AclType & type ) {
   const Velto::Hold alive( this );
   reviewType( type );
}

bool
AclSm::shared( AclType type, AclDirection direction, Acl::SharingKind kind ) const {
   return in_.paramConfig ? in_.paramConfig->shared( type, direction, kind )
                          : kind != Acl::SharingKind::vlan;
}

bool
AclSm::managed( IntfId intf ) const {
   return !Ulnet::EthIntfId::isEthIntfId( intf ) || acsd()->intfs() == 0 || acsd()->intfHas( intf );
}

// Reviews

void
AclSm::later( AclType type, AclDirection direction, IntfId intf ) {
   work_.add( { type, direction, intf } );
}

void
AclSm::laterEverywhere( IntfId intf ) {
   forEachDirection( [&]( AclDirectionTypeConfigSm & sm ) {
      if ( sm.held( intf ) ) {
         later( sm.type(), sm.direction(), intf );
      }
   } );
}

/** And the sub-interfaces that it carries. */
void
AclSm::laterFamily( IntfId intf ) {
   laterEverywhere( intf );
   hostsLaterAt( intf );
   if ( auto subIntfs = subIntfs_.find( intf ) ) {
      for ( auto && entry : *subIntfs ) {
         laterEverywhere( entry.key );
      }
   }
}

void
AclSm::laterAll() {
   forEachDirection( [&]( AclDirectionTypeConfigSm & sm ) {
      sm.forEachIntf( [&]( IntfId intf ) { later( sm.type(), sm.direction(), intf ); } );
   } );
   for ( AclType type : Acl::aclTypes ) {
      hostsLaterOf( type );
   }
}

void
AclSm::laterNaming( AclType type, const String & aclName ) {
   for ( AclDirection direction : Acl::aclDirections ) {
      if ( auto sm = directionSm( type, direction ) ) {
         sm->forEachNaming( aclName, [&]( IntfId intf ) { later( type, direction, intf ); } );
      }
   }
}

/** Nothing is looked at before the start and while the state machine rests; the start looks at
    everything. */
void
AclSm::settle() {
   if ( !initialized() ) {
      return;
   }
   const Velto::Hold alive( this );
   const Velto::AtEnd answered( [this] { passLater(); } );
   work_.drain( this, [this]( const Work & work ) { answer( work ); } );
   applyIntfsNow();
}

void
AclSm::review( AclType type, AclDirection direction, IntfId intf ) {
   if ( !initialized() ) {
      later( type, direction, intf );
      return;
   }
   const Velto::Hold alive( this );
   const Velto::AtEnd answered( [this] { passLater(); } );
   work_.ask( this, { type, direction, intf }, [this]( const Work & work ) { answer( work ); } );
   applyIntfsNow();
}

void
AclSm::answer( const Work & work ) {
   if ( work.host.intf() ) {
      if ( const Velto::Ptr< PerHostAclStateSm > sm = hosts_.sm( work.host ) ) {
         sm->review();
      }
   } else if ( const Velto::Ptr< AclDirectionTypeConfigSm > sm =
                     directionSm( work.type, work.direction ) ) {
      sm->reviewIntf( work.intf );
   }
}

void
AclSm::handleSharedMode( const Acl::SharingKey & key ) {
   auto kindOf = []( IntfId intf ) {
      return Ulnet::SubIntfId::isSubIntfId( intf )     ? Acl::SharingKind::subIntf
             : Ulnet::VlanIntfId::isVlanIntfId( intf ) ? Acl::SharingKind::vlan
                                                       : Acl::SharingKind::port;
   };
   if ( key.kind() == Acl::SharingKind::port ) {
      hostsLaterOf( key.type() );
   }
   if ( auto sm = directionSm( key.type(), key.direction() ) ) {
      sm->forEachIntf( [&]( IntfId intf ) {
         if ( kindOf( intf ) == key.kind() ) {
            later( key.type(), key.direction(), intf );
         }
      } );
   }
   settle();
}

void
AclSm::handleSwitchIntfConfig( const IntfId & intf ) {
   laterEverywhere( intf );
   settle();
}

/** The first entry and the loss of the last one concern every port, others one. */
void
AclSm::handleManagedIntf( const IntfId & intf ) {
   const bool all = acsd()->intfs() == 0;
   if ( std::exchange( allManaged_, all ) != all ) {
      laterAll();
      settle();
   } else {
      handleIntf( intf );
   }
}

/** And those that it is a member of. */
void
AclSm::handleIntf( IntfId intf ) {
   laterEverywhere( intf );
   hostsLaterAt( intf );
   if ( auto lags = listedBy_.find( intf ) ) {
      for ( auto && entry : *lags ) {
         laterFamily( entry.key );
      }
   }
   settle();
}

void
AclSm::handlePortToLag( IntfId port, IntfId, IntfId ) {
   laterFamily( port );
   settle();
}

void
AclSm::handleLagToPort( IntfId lag, IntfId port ) {
   if ( LagView( acsd() ).lists( lag, port ) ) {
      listedBy_.emplace( port ).first->emplace( lag );
   } else if ( auto lags = listedBy_.find( port ) ) {
      lags->erase( lag );
      if ( lags->empty() ) {
         listedBy_.erase( port );
      }
   }
   laterFamily( lag );
   settle();
}

// Sub-interfaces

void
AclSm::subIntfAttachedIs( IntfId subIntf, bool attached ) {
   U32 & count = *attachments_.emplace( subIntf, 0u ).first;
   count += attached ? 1 : -1;
   const IntfId parent = Ulnet::SubIntfId::parent( subIntf );
   if ( count == 0 ) {
      attachments_.erase( subIntf );
      auto & siblings = *subIntfs_.find( parent );
      siblings.erase( subIntf );
      if ( siblings.empty() ) {
         subIntfs_.erase( parent );
      }
   } else if ( attached && count == 1 ) {
      subIntfs_.emplace( parent ).first->emplace( subIntf );
   }
}

const KeySet< IntfId > &
AclSm::lagToSubIntfMap( IntfId lag ) const {
   auto found = subIntfs_.find( lag );
   return found ? *found : Kiv::absent< KeySet< IntfId > >();
}

VlanIdOrNone
AclSm::subIntfCfgVlanIdMap( IntfId subIntf ) const {
   auto vlan = cfgVlan_.find( subIntf );
   return vlan ? *vlan : VlanIdOrNone();
}

VlanIdOrNone
AclSm::subIntfInternalVlanIdMap( IntfId subIntf ) const {
   auto vlan = internalVlan_.find( subIntf );
   return vlan ? *vlan : VlanIdOrNone();
}

IntfId
AclSm::internalVlanIdSubIntfMap( VlanIdOrNone vlan ) const {
   auto subIntf = subIntfOfInternalVlan_.find( vlan.value() );
   return subIntf ? *subIntf : IntfId();
}

AclVlanIdOrNone
AclSm::subIntfVlan( IntfId subIntf ) const {
   const VlanIdOrNone internal = subIntfInternalVlanIdMap( subIntf );
   return AclVlanIdOrNone(
         U32( ( internal.isNone() ? subIntfCfgVlanIdMap( subIntf ) : internal ).value() ) );
}

void
AclSm::handleSubIntfCfgVlan( const IntfId & subIntf ) {
   const VlanIdOrNone now = in_.subIntfConfig->vlan( subIntf );
   if ( now == subIntfCfgVlanIdMap( subIntf ) ) {
      QON_TRACE( aclFacility, 7, "Returning - configured vlan unchanged" ); // fixed text
      return;
   }
   if ( now.isNone() ) {
      cfgVlan_.erase( subIntf );
   } else {
      *cfgVlan_.emplace( subIntf ).first = now;
   }
   laterEverywhere( subIntf );
   settle();
}

void
AclSm::handleSubIntfInternalVlan( const IntfId & subIntf ) {
   if ( !Ulnet::SubIntfId::isSubIntfId( subIntf ) ) {
      return;
   }
   const bool there = acsd()->internalVlanHas( subIntf );
   const U32 value = acsd()->internalVlan( subIntf );
   if ( there && ( value < 1 || value > 4094 ) ) {
      QON_TRACE( aclFacility, 4, "Returning - invalid internal vlan" ); // fixed text
      return;
   }
   const VlanIdOrNone now( there ? value : 0u ), before = subIntfInternalVlanIdMap( subIntf );
   if ( now == before ) {
      return;
   }
   if ( internalVlanIdSubIntfMap( before ) == subIntf ) {
      subIntfOfInternalVlan_.erase( before.value() );
   }
   if ( now.isNone() ) {
      internalVlan_.erase( subIntf );
   } else {
      *internalVlan_.emplace( subIntf ).first = now;
      *subIntfOfInternalVlan_.emplace( now.value() ).first = subIntf;
   }
   laterEverywhere( subIntf );
   settle();
}

void
AclSm::reviewVlans() {
   if ( in_.subIntfConfig ) {
      auto configured = keysOf< IntfId >( cfgVlan_ );
      for ( auto && [subIntf, vlan] : in_.subIntfConfig->vlanIteratorConst() ) {
         configured.emplace( subIntf );
      }
      for ( auto && entry : configured ) {
         handleSubIntfCfgVlan( entry.key );
      }
   }
   auto internal = keysOf< IntfId >( internalVlan_ );
   for ( auto && [intf, vlan] : acsd()->internalVlanIteratorConst() ) {
      internal.emplace( intf );
   }
   for ( auto && entry : internal ) {
      handleSubIntfInternalVlan( entry.key );
   }
}

void
AclSm::reviewSessions() {
   if ( in_.mirroringStatus ) {
      sessions_.reviewAll( in_.mirroringStatus->sessionIteratorConst(),
                           [this]( const String & name ) {
                              return Velto::Ptr< const Mirroring::SessionStatus >(
                                    in_.mirroringStatus->session( name ) );
                           } );
   }
}

// Invariants

void
AclSm::instanceIs( AclDataSm * instance, bool there ) {
   if ( there ) {
      instances_.emplace( instance );
   } else {
      instances_.erase( instance );
      failing_.erase( instance );
   }
}

String
AclSm::checkInvariants() const {
   Kiv::DenseMap< U32, Kiv::Nothing > numbers;
   Kiv::DenseMap< const AclNumbers *, U32 > held;
   for ( auto && entry : instances_ ) {
      const AclDataSm & instance = *entry.key;
      if ( String wrong = instance.checkInvariants(); !wrong.empty() ) {
         return wrong;
      }
      const U32 number = instance.data()->aclNumber();
      if ( number == aclNumberNone ) {
         continue;
      }
      if ( !numbers.emplace( number ).second ) {
         return "number " + Kiv::toText( number ) + " is held twice";
      }
      ++*held.emplace( instance.numbers().ptr(), 0u ).first;
   }
   String wrong;
   forEachDirection( [&]( AclDirectionTypeConfigSm & sm ) {
      const U32 * taken = held.find( sm.numbers().ptr() );
      if ( sm.numbers()->free() + ( taken ? *taken : 0 ) != aclNumbersPerDirection ) {
         wrong = "numbers of " + Kiv::toText( sm.type() ) + " " + Kiv::toText( sm.direction() ) +
                 " are lost";
      }
      const bool waits =
            !sm.intfAddWaitForBlocked().empty() || !sm.intfRemovalWaitForBlocked().empty();
      if ( phase_ == AclApplyPhase::done && waits ) {
         wrong = "a pair waits for a block, and no pass is under way";
      }
   } );
   if ( !wrong.empty() ) {
      return wrong;
   }
   if ( phase_ == AclApplyPhase::done && ( !pass_.empty() || !outstanding_.empty() ) ) {
      return "a pass is done, and something of it is left";
   }
   const bool armed = applyClock_ && !applyClock_->idle();
   if ( initialized() && !cleanedUp_ && phase_ == AclApplyPhase::done && passDue() && !armed ) {
      return "something has changed, and no pass will begin";
   }
   return {};
}

Velto::Ptr< AclSm >
AclSmIs( AclSm::Inputs inputs ) {
   return smIs< AclSm >( std::move( inputs ) );
}

} // namespace Qon
