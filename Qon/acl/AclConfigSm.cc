#include "Qon/include/acl/AclConfigSm.h"

#include "Qon/acl/AclTrace.h"
#include "Qon/include/acl/QonAclSm.h"
#include "Qon/include/framework/QonLog.h"

namespace Qon {

using Acl::AclDirection;
using Acl::SharingKind;
using Ulnet::IntfId;

namespace {

QonLogHandle subIntfUnshared( "QonAclSm", QonLog::ACL_SUBINTF_UNSHARED_NOT_SUPPORTED );

// fixed texts
constexpr const char * firstPort = "Added first port to ";
constexpr const char * lastPort = "Removed last port from ";
constexpr const char * firstVlan = "Added first vlan to ";
constexpr const char * lastVlan = "Removed last intf from ";

bool
carriedByLag( IntfId intf ) {
   return Ulnet::SubIntfId::isSubIntfId( intf ) &&
          Ulnet::PortChannelIntfId::isPortChannelIntfId( Ulnet::SubIntfId::parent( intf ) );
}

} // namespace

AclConfigSm::AclConfigSm( AclSm * aclSm, Acl::AclType type, const String & name,
                          Velto::Ptr< const Acl::AclConfig > config )
    : aclSm_( aclSm ), type_( type ), name_( name ), config_( std::move( config ) ),
      countersRead_( config_->counterRequest() ) {}

void
AclConfigSm::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   ruleWatch_.attach( this, config_.ptr() );
   counterRequestWatch_.attach( this, config_.ptr() );
   handleCounterRequest();
   rulesMayDiffer();
   aclSm_->laterNaming( type_, name_ );
   aclSm_->hostsLaterOf( type_, name_ );
   aclSm_->settle();
}

void
AclConfigSm::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   counterClock_.attach( nullptr, nullptr );
}

void
AclConfigSm::doCleanup() {
   live_ = false;
   counterClock_.attach( nullptr, nullptr );
   for ( AclDirection d : Acl::aclDirections ) {
      auto placed = std::exchange( keyOf_[U8( d )], {} );
      refused_[U8( d )] = {};
      unsupported_[U8( d )] = {};
      for ( auto && [pair, key] : placed ) {
         aclSm_->pairActiveIs( type_, d, pair.intfId(), false );
      }
      if ( auto direction = aclSm_->directionSm( type_, d ) ) {
         direction->deferredDelOf( name_ );
      }
   }
   for ( auto && [use, key] : std::exchange( keyOfHost_, {} ) ) {
      aclSm_->pairActiveIs( type_, AclDirection::in, use.pair().intfId(), false );
   }
   aclSm_->hostsLaterOf( type_, name_ );
   Velto::FirstError error;
   for ( auto && [key, instance] : std::exchange( instances_, {} ) ) {
      error.run( [&] { Velto::Ptr< AclDataSm >( instance )->retire(); } );
   }
   implicitRuleId_ = {};
   error.run( [&] { aclSm_->settle(); } );
   error.pass();
}

// Its instances

AclDataSm *
AclConfigSm::aclDataSm( const AclKey & key ) const {
   auto instance = instances_.find( key );
   return instance ? instance->ptr() : nullptr;
}

AclData *
AclConfigSm::aclData( const AclKey & key ) const {
   auto instance = aclDataSm( key );
   return instance ? instance->data() : nullptr;
}

AclDataStatus *
AclConfigSm::aclDataStatus( const AclKey & key ) const {
   auto instance = aclDataSm( key );
   return instance ? instance->status() : nullptr;
}

AclDataStatusSm *
AclConfigSm::aclDataStatusSm( const AclKey & key ) const {
   auto instance = aclDataSm( key );
   return instance ? instance->statusSm() : nullptr;
}

std::optional< AclKey >
AclConfigSm::keyOf( const IntfPairKey & pair, AclDirection direction ) const {
   auto key = keyOf_[U8( direction )].find( pair );
   return key ? std::optional( *key ) : std::nullopt;
}

bool
AclConfigSm::shared( AclDirection direction, SharingKind kind ) const {
   return aclSm_->shared( type_, direction, kind );
}

AclKey
AclConfigSm::portKey( const IntfPairKey & pair, AclDirection direction ) const {
   return shared( direction, SharingKind::port )
                ? AclKey( AclVlanIdOrNone(), direction, aclGroupDefault )
                : AclKey( AclVlanIdOrNone(), direction, pair.attachedTo().stringValue() );
}

bool
AclConfigSm::busyFor( const IntfPairKey & pair, AclDirection direction ) const {
   auto instance = aclDataSm( portKey( pair, direction ) );
   return instance && instance->busy();
}

// Who is in which

void
AclConfigSm::intfActiveIs( const IntfPairKey & pair, AclDirection direction, bool active,
                           bool otherOwner ) {
   const IntfId intfId = pair.intfId();
   const bool lag = Ulnet::PortChannelIntfId::isPortChannelIntfId( intfId );
   if ( lag || !intfId ) {
      const IntfPairKey all( IntfId(), lag ? intfId : pair.lagIntf() );
      all.check();
      lagActiveIs( all, direction, active );
      return;
   }
   pair.check();
   if ( otherOwner ) {
      if ( !active ) {
         // fixed text
         QON_TRACE( aclFacility, 2, "Not the owner of ", intfId, "; will not deactivate" );
      }
   } else if ( Ulnet::VlanIntfId::isVlanIntfId( intfId ) ) {
      vlanActiveIs( pair, direction, active );
   } else if ( Ulnet::SubIntfId::isSubIntfId( intfId ) ) {
      subIntfActiveIs( pair, direction, active );
   } else {
      portActiveIs( pair, direction, active );
   }
}

/** A port-channel as such is in no instance; its pairs are. */
void
AclConfigSm::lagActiveIs( const IntfPairKey & all, AclDirection direction, bool active ) {
   const IntfId lag = all.lagIntf();
   // fixed texts
   QON_TRACE( aclFacility, 2, lag,
              " fed to intfActiveIs. Probably an empty LAG or linecard removal.",
              active ? "" : " but allowing cleanup" );
   if ( active ) {
      return;
   }
   for ( auto && entry : keysOf< IntfPairKey >( keyOf_[U8( direction )] ) ) {
      if ( entry.key.lagIntf() == lag ) {
         portActiveIs( entry.key, direction, false );
      }
   }
}

void
AclConfigSm::vlanActiveIs( const IntfPairKey & pair, AclDirection direction, bool active ) {
   if ( shared( direction, SharingKind::vlan ) ) {
      sharedVlanActiveIs( pair, direction, active );
   } else {
      unsharedVlanActiveIs( pair, direction, active );
   }
}

void
AclConfigSm::sharedVlanActiveIs( const IntfPairKey & pair, AclDirection direction, bool active ) {
   constexpr Words words{ firstVlan, lastVlan };
   if ( active ) {
      join( pair, AclKey( AclVlanIdOrNone(), direction, aclGroupVlan ), words );
   } else {
      leave( pair, direction, words );
   }
}

void
AclConfigSm::unsharedVlanActiveIs( const IntfPairKey & pair, AclDirection direction, bool active ) {
   const IntfId intfId = pair.intfId();
   VELTO_ASSERT( Ulnet::VlanIntfId::isVlanIntfId( intfId ) ||
                 Ulnet::SubIntfId::isSubIntfId( intfId ) ); // fixed text
   constexpr Words words{ firstVlan, lastVlan };
   const AclVlanIdOrNone vlan =
         Ulnet::VlanIntfId::isVlanIntfId( intfId )
               ? AclVlanIdOrNone( U32( Ulnet::VlanIntfId::vlanNum( intfId ) ) )
               : aclSm_->subIntfVlan( intfId );
   if ( active && vlan.isNone() ) {
      // fixed text
      QON_TRACE( aclFacility, 2, intfId,
                 ": vlanId is 0. Cannot create aclData and"
                 " block traffic" );
   }
   if ( active && !vlan.isNone() ) {
      join( pair, AclKey( vlan, direction, aclGroupDefault ), words );
   } else {
      leave( pair, direction, words );
   }
}

void
AclConfigSm::subIntfActiveIs( const IntfPairKey & pair, AclDirection direction, bool active ) {
   const bool together = shared( direction, SharingKind::subIntf );
   const bool refuse = active && !together && type_ == Acl::ip() && direction == AclDirection::out;
   refusedIs( pair, direction, refuse );
   if ( together ) {
      sharedPortActiveIs( pair, direction, active );
   } else {
      unsharedVlanActiveIs( pair, direction, active && !refuse );
   }
}

/** One message each time that the list begins to wait for the sharing mode. */
void
AclConfigSm::refusedIs( const IntfPairKey & pair, AclDirection direction, bool refused ) {
   auto & pairs = refused_[U8( direction )];
   if ( !refused ) {
      pairs.erase( pair );
   } else if ( pairs.emplace( pair ).second && subIntfUnshared.okToLog() ) {
      Kiv::log( subIntfUnshared, pair.intfId().stringValue() );
   }
}

void
AclConfigSm::portActiveIs( const IntfPairKey & pair, AclDirection direction, bool active ) {
   const IntfId intf = pair.intfId();
   // clang-format off: fixed text
   VELTO_ASSERT( Ulnet::EthIntfId::isEthIntfId( intf ) ||
                 Ulnet::PortChannelIntfId::isPortChannelIntfId( intf ) ||
                 Ulnet::TunnelIntfId::isTunnelIntfId( intf ) ||
                 Ulnet::SubIntfId::isSubIntfId( intf ) ||
                 Ulnet::InternalRecircIntfId::isInternalRecircIntfId( intf ) ||
                 Ulnet::GenericIntfId::typeId( intf ) == 109 );
   // clang-format on
   if ( shared( direction, SharingKind::port ) ) {
      sharedPortActiveIs( pair, direction, active );
   } else {
      unsharedPortActiveIs( pair, direction, active );
   }
}

void
AclConfigSm::sharedPortActiveIs( const IntfPairKey & pair, AclDirection direction, bool active ) {
   constexpr Words words{ firstPort, lastPort };
   if ( active ) {
      join( pair, AclKey( AclVlanIdOrNone(), direction, aclGroupDefault ), words );
   } else {
      leave( pair, direction, words );
   }
}

void
AclConfigSm::unsharedPortActiveIs( const IntfPairKey & pair, AclDirection direction, bool active ) {
   constexpr Words words{ firstPort, lastPort };
   if ( active ) {
      join( pair, portKey( pair, direction ), words );
   } else {
      leave( pair, direction, words );
   }
}

/** Whether the pair's device has no access lists; one message for each device. */
bool
AclConfigSm::unsupported( const IntfPairKey & pair, AclDirection d ) {
   if ( aclSm_->hardwareSupports( pair.intfId() ) ) {
      unsupported_[U8( d )].erase( pair );
      return false;
   }
   const String card = aclSm_->cardOf( pair.intfId() );
   bool known = false;
   for ( auto & pairs : unsupported_ ) {
      for ( auto && [other, otherCard] : pairs ) {
         known = known || otherCard == card;
      }
   }
   *unsupported_[U8( d )].emplace( pair ).first = card;
   if ( !known ) {
      aclSm_->logAclUnsupportedHardware( name_, pair.intfId() );
   }
   return true;
}

/** The instance of the key, with numbers of the direction that there is now. */
Velto::Ptr< AclDataSm >
AclConfigSm::instanceIs( const AclKey & key ) {
   auto direction = aclSm_->directionSm( type_, key.direction() );
   VELTO_ASSERT( direction != nullptr );
   Velto::Ptr< AclDataSm > instance = aclDataSm( key );
   if ( instance && !( instance->numbers() == direction->numbers() ) ) {
      instances_.erase( key ); // of a direction that is gone
      hostsLeave( key );
      instance->retire();
      instance = nullptr;
   }
   if ( !instance ) {
      instance = smIs< AclDataSm >( aclSm_, type_, name_, key, direction->numbers() );
      instance->initializedIs( true );
      instances_.emplace( key, instance );
   }
   return instance;
}

/** They are looked at again, and join what comes in the place of the instance. */
void
AclConfigSm::hostsLeave( const AclKey & key ) {
   for ( auto && entry : keysOf< AclIntfUse >( keyOfHost_ ) ) {
      if ( *keyOfHost_.find( entry.key ) == key ) {
         keyOfHost_.erase( entry.key );
         aclSm_->pairActiveIs( type_, AclDirection::in, entry.key.pair().intfId(), false );
      }
   }
   aclSm_->hostsLaterOf( type_, name_ );
}

/** The members of the port-channel that carries the sub-interface; none of other interfaces. */
std::vector< IntfId >
AclConfigSm::membersUnder( IntfId subIntf ) const {
   std::vector< IntfId > members;
   if ( !carriedByLag( subIntf ) ) {
      return members;
   }
   for ( IntfId lagMember :
         LagView( aclSm_->acsd() ).membersOf( Ulnet::SubIntfId::parent( subIntf ) ) ) {
      if ( !lagMember ) {
         Velto::assertFail( "lagMember should've been non-null", "QonAclSm", __LINE__,
                            __PRETTY_FUNCTION__ ); // fixed text
      }
      if ( aclSm_->managed( lagMember ) ) {
         members.push_back( lagMember );
      }
   }
   return members;
}

void
AclConfigSm::hostActiveIs( const IntfPairKey & pair, const Ulnet::EthAddr & host, bool active ) {
   pair.check();
   const AclIntfUse use( pair, IntfId(), host );
   const AclKey key = portKey( pair, AclDirection::in );
   const bool wanted = active && aclSm_->hardwareSupports( pair.intfId() );
   const AclKey * before = keyOfHost_.find( use );
   Velto::FirstError error;
   if ( before && !( wanted && *before == key ) ) {
      const Velto::Ptr< AclDataSm > instance = aclDataSm( *keyOfHost_.take( use ) );
      aclSm_->pairActiveIs( type_, AclDirection::in, pair.intfId(), false );
      error.run( [&] { instance ? instance->hostIs( pair.intfId(), host, false ) : void(); } );
   }
   if ( wanted ) {
      const Velto::Ptr< AclDataSm > instance = instanceIs( key );
      if ( instance->unwanted() ) {
         QON_TRACE( aclFacility, 4, firstPort, name_ );
      }
      if ( keyOfHost_.emplace( use, key ).second ) {
         aclSm_->pairActiveIs( type_, AclDirection::in, pair.intfId(), true );
         error.run( [&] { instance->hostIs( pair.intfId(), host, true ); } );
      }
   }
   error.pass();
}

void
AclConfigSm::join( const IntfPairKey & pair, const AclKey & key, const Words & words ) {
   const AclDirection d = key.direction();
   if ( unsupported( pair, d ) ) {
      leave( pair, d, words );
      unsupported_[U8( d )].emplace( pair ).first->assign( aclSm_->cardOf( pair.intfId() ) );
      return;
   }
   auto & keys = keyOf_[U8( d )];
   if ( auto before = keys.find( pair ); before && *before != key ) {
      leave( pair, d, words );
   }
   const Velto::Ptr< AclDataSm > instance = instanceIs( key );
   if ( instance->unwanted() ) {
      QON_TRACE( aclFacility, 4, words.first, name_ );
   }
   if ( keys.emplace( pair, key ).second ) {
      aclSm_->pairActiveIs( type_, d, pair.intfId(), true );
   }
   instance->pairIs( pair, membersUnder( pair.intfId() ) );
}

void
AclConfigSm::leave( const IntfPairKey & pair, AclDirection d, const Words & words ) {
   unsupported_[U8( d )].erase( pair );
   const auto key = keyOf_[U8( d )].take( pair );
   if ( !key ) {
      return;
   }
   aclSm_->pairActiveIs( type_, d, pair.intfId(), false );
   Velto::Ptr< AclDataSm > instance = aclDataSm( *key );
   if ( instance && instance->pairDel( pair ) && instance->unwanted() ) {
      QON_TRACE( aclFacility, 4, words.last, name_ );
   }
}

} // namespace Qon
