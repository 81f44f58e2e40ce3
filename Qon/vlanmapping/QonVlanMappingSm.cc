#include "Qon/include/vlanmapping/QonVlanMappingSm.h"

#include "Qon/include/framework/HookTap.h"
#include "Qon/include/framework/QonTraceHandles.h"
#include "Qon/vlanmapping/VlanTranslations.h"
#include "platform/Flintlog/Trace.h"
#include "platform/Kiv/Describe.h"

KIV_DEFINE( Qon::VlanMappingSm )

namespace Qon {

using Ulnet::IntfId;

VlanMappingLog vlanMappingLog( "QonVlanMappingSm" );

namespace {

Flintlog::Facility facility( "QonVlanMappingSm" );

} // namespace

// --- What a source wants on one interface --------------------------------------------------------

VlanXlateConfigSm::VlanXlateConfigSm( VlanMappingSm * sm, QonVlanMappingSource source,
                                      Velto::Ptr< const Config > config )
    : sm_( sm ), source_( source ), config_( std::move( config ) ) {}

void
VlanXlateConfigSm::handleInitialized() {
   if ( initialized() ) {
      ingressWatch_.attach( this, config_.ptr() );
      egressWatch_.attach( this, config_.ptr() );
      askAll( false );
   }
}

void
VlanXlateConfigSm::askAll( bool apply ) {
   sm_->translations_->askAll( intf(), source_, apply );
   sm_->translations_->settle();
}

void
VlanXlateConfigSm::doApplyConfig() {
   askAll( true );
}

void
VlanXlateConfigSm::handleVlanXlate( Direction direction, const Key & key ) {
   const Velto::Ptr< const Config > config = config_;
   const bool fine =
         !isNative( key ) && sm_->translations_->wishChanged( intf(), direction, key, source_ );
   if ( !fine && config->vlanXlateHas( direction, key ) ) {
      Bridging::checkVlanXlate( key );
      Bridging::checkVlanXlate( config->vlanXlate( direction, key ) );
   }
}

VlanMappingSm::KivConfig::KivConfig( VlanMappingSm * sm, Velto::Ptr< const SwitchConfig > config )
    : VlanXlateConfigSm( sm, Source::BriselCli, std::move( config ) ) {}

void
VlanMappingSm::KivConfig::handleInitialized() {
   if ( initialized() ) {
      auto switchConfig = static_cast< const SwitchConfig * >( config() );
      ingressNativeWatch_.attach( this, switchConfig );
      egressNativeWatch_.attach( this, switchConfig );
   }
   VlanXlateConfigSm::handleInitialized();
}

void
VlanMappingSm::KivConfig::handleIngressNativeVlan() {
   sm_->translations_->askNative( intf(), Direction::ingress );
   sm_->translations_->settle();
}

void
VlanMappingSm::KivConfig::handleEgressNativeVlan() {
   sm_->translations_->askNative( intf(), Direction::egress );
   sm_->translations_->settle();
}

Velto::Ptr< VlanMappingSm::KivConfig >
VlanMappingSm::makeKivConfig( const IntfId & intf,
                              const Velto::Ptr< const Bridging::SwitchIntfConfig > & config ) {
   translations_->inputIs( intf, Source::BriselCli, config );
   return smIs< KivConfig >( this, config );
}

void
VlanMappingSm::cleanUpKivConfig( const IntfId & intf, KivConfig * ) {
   translations_->inputIs( intf, Source::BriselCli, nullptr );
   if ( !config( intf ) ) { // another one wants what is tried again all the same
      unprogrammedDel( intf, Source::BriselCli );
   }
   translations_->settle();
}

Velto::Ptr< QonFlowVlanXlateConfigSm >
VlanMappingSm::makeFlowConfigSm(
      const IntfId & intf, const Velto::Ptr< const Bridging::VlanXlateIntfConfig > & config ) {
   translations_->inputIs( intf, Source::Steerline, config );
   return smIs< QonFlowVlanXlateConfigSm >( this, config );
}

void
VlanMappingSm::cleanUpFlowConfigSm( const IntfId & intf, QonFlowVlanXlateConfigSm * ) {
   translations_->inputIs( intf, Source::Steerline, nullptr );
   if ( !in_.flowVlanXlateConfigDir->vlanXlateIntfConfigHas( intf ) ) {
      unprogrammedDel( intf, Source::Steerline );
   }
   translations_->settle();
}

// --- Start ---------------------------------------------------------------------------------------

VlanMappingSm::VlanMappingSm( Inputs inputs )
    : in_( std::move( inputs ) ), translations_( std::make_unique< VlanTranslations >( this ) ) {
   retryClock_.attach( this, Velto::make< Kiv::Clock >() );
   codefClockIngress_.attach( this, Velto::make< Kiv::Clock >() );
   codefClockEgress_.attach( this, Velto::make< Kiv::Clock >() );
}

VlanMappingSm::~VlanMappingSm() = default;

void
VlanMappingSm::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   kivConfig_.kivDoZombieReactors();
   flowConfigSm_.kivDoZombieReactors();
}

void
VlanMappingSm::handleInitialized() {
   if ( !initialized() ) {
      kivConfig_.rest();
      flowConfigSm_.rest();
      follower_.attach( this, nullptr );
      return;
   }
   configWatch_.attach( this, bridgingConfig() );
   flowWatch_.attach( this, in_.flowVlanXlateConfigDir.ptr() );
   ingressStatusWatch_.attach( this, in_.qonIngVlanMappingStatusDir.ptr() );
   egressStatusWatch_.attach( this, in_.qonEgrVlanMappingStatusDir.ptr() );
   check_.attach< &VlanMappingSm::handleVerify >( in_.verifyData, "QonVlanMappingSm", this );
   const bool graceful = QON_HOOK( VlanMappingSm, this, gracefulRestartSupported );
   translations_->startsIs( true, graceful );
   const Velto::AtEnd started( [&] { translations_->startsIs( false, graceful ); } );
   Velto::FirstError error;
   error.run( [&] { start( graceful ); } );
   armRetryClock();
   error.pass();
}

/** Members first, then the wishes of both sources, then what the chip has of them; nothing is
    programmed before all is known. */
void
VlanMappingSm::start( bool graceful ) {
   translations_->holdUpIs( true );
   Velto::FirstError error;
   error.run( [&] { follower_.attach( this, acsd() ); } );
   error.run( [&] {
      kivConfig_.reviewAll( bridgingConfig()->switchIntfConfigIteratorConst(), [&]( IntfId intf ) {
         return Velto::Ptr< const Bridging::SwitchIntfConfig >( config( intf ) );
      } );
   } );
   if ( auto flow = in_.flowVlanXlateConfigDir ) {
      error.run( [&] {
         flowConfigSm_.reviewAll( flow->vlanXlateIntfConfigIteratorConst(), [&]( IntfId intf ) {
            return Velto::Ptr< const Bridging::VlanXlateIntfConfig >(
                  flow->vlanXlateIntfConfig( intf ) );
         } );
      } );
   }
   if ( graceful ) {
      translations_->restore();
   }
   for ( Direction d : Bridging::vlanMappingDirections ) {
      auto & statuses = d == Direction::ingress ? in_.qonIngVlanMappingStatusDir
                                                : in_.qonEgrVlanMappingStatusDir;
      if ( statuses ) {
         for ( auto && [key, status] : statuses->vlanMappingStatusIteratorConst() ) {
            translations_->askStatus( d, key );
         }
      }
   }
   for ( auto && [intf, vlan] : acsd()->encapVlanIteratorConst() ) {
      translations_->askEncap( intf );
   }
   translations_->holdUpIs( false );
   error.run( [&] { translations_->settle(); } );
   error.run( [&] { translations_->reviewOutputs(); } );
   error.pass();
}

void
VlanMappingSm::handleSwitchIntfConfig( const IntfId & intf ) {
   kivConfig_.review( intf, config( intf ) );
}

void
VlanMappingSm::handleFlowVlanXlateConfig( const IntfId & intf ) {
   flowConfigSm_.review( intf, in_.flowVlanXlateConfigDir->vlanXlateIntfConfig( intf ) );
}

void
VlanMappingSm::handlePortToLag( IntfId port, IntfId, IntfId ) {
   translations_->askPort( port );
   translations_->settle();
}

// --- Hooks ---------------------------------------------------------------------------------------

QonTypes::TableAddStatus
VlanMappingSm::doAddIngressVlanMapping( IntfId, bool, const PortVlanKey &, const Mapping & ) {
   qonAssert( unimplementedFunction( "VlanMappingSm::doAddIngressVlanMapping" ) );
   return Status::success;
}

QonTypes::TableAddStatus
VlanMappingSm::doAddEgressVlanMapping( IntfId, bool, const PortVlanKey &, const Mapping & ) {
   qonAssert( unimplementedFunction( "VlanMappingSm::doAddEgressVlanMapping" ) );
   return Status::success;
}

void
VlanMappingSm::doDelIngressVlanMapping( IntfId, bool, const PortVlanKey & ) {
   qonAssert( unimplementedFunction( "VlanMappingSm::doDelIngressVlanMapping" ) );
}

void
VlanMappingSm::doDelEgressVlanMapping( IntfId, bool, const PortVlanKey & ) {
   qonAssert( unimplementedFunction( "VlanMappingSm::doDelEgressVlanMapping" ) );
}

QonTypes::TableAddStatus
VlanMappingSm::doUpdateIngressVlanMapping( IntfId, bool, const PortVlanKey &, const Mapping & ) {
   qonAssert( unimplementedFunction( "VlanMappingSm::doUpdateIngressVlanMapping" ) );
   return Status::success;
}

QonTypes::TableAddStatus
VlanMappingSm::doUpdateEgressVlanMapping( IntfId, bool, const PortVlanKey &, const Mapping & ) {
   qonAssert( unimplementedFunction( "VlanMappingSm::doUpdateEgressVlanMapping" ) );
   return Status::success;
}

QonTypes::TableAddStatus
VlanMappingSm::callAdd( Direction d, IntfId intf, bool isLag, const PortVlanKey & key,
                        Mapping mapping ) {
   return d == Direction::ingress ? QON_HOOK( VlanMappingSm, this, doAddIngressVlanMapping, intf,
                                              isLag, key, mapping )
                                  : QON_HOOK( VlanMappingSm, this, doAddEgressVlanMapping, intf,
                                              isLag, key, mapping );
}

QonTypes::TableAddStatus
VlanMappingSm::callUpdate( Direction d, IntfId intf, bool isLag, const PortVlanKey & key,
                           Mapping mapping ) {
   return d == Direction::ingress ? QON_HOOK( VlanMappingSm, this, doUpdateIngressVlanMapping, intf,
                                              isLag, key, mapping )
                                  : QON_HOOK( VlanMappingSm, this, doUpdateEgressVlanMapping, intf,
                                              isLag, key, mapping );
}

void
VlanMappingSm::callDel( Direction d, IntfId intf, bool isLag, const PortVlanKey & key ) {
   d == Direction::ingress
         ? QON_HOOK( VlanMappingSm, this, doDelIngressVlanMapping, intf, isLag, key )
         : QON_HOOK( VlanMappingSm, this, doDelEgressVlanMapping, intf, isLag, key );
}

// --- Steps ---------------------------------------------------------------------------------------

QonTypes::TableAddStatus
VlanMappingSm::addIngressVlanTranslation( IntfId intf, Key key, Mapping mapping, bool inLag,
                                          Source source ) {
   return translations_->add( Direction::ingress, intf, key, mapping, inLag, source );
}

QonTypes::TableAddStatus
VlanMappingSm::addEgressVlanTranslation( IntfId intf, Key key, Mapping mapping, bool inLag,
                                         Source source ) {
   return translations_->add( Direction::egress, intf, key, mapping, inLag, source );
}

void
VlanMappingSm::delIngressVlanTranslation( IntfId intf, Key key, bool, Source source ) {
   translations_->del( Direction::ingress, intf, key, source );
}

void
VlanMappingSm::delEgressVlanTranslation( IntfId intf, Key key, bool, Source source ) {
   translations_->del( Direction::egress, intf, key, source );
}

QonTypes::TableAddStatus
VlanMappingSm::addIngressNativeVlanTranslation( IntfId intf, Bridging::VlanId vlan, bool inLag ) {
   return translations_->add( Direction::ingress, intf, nativeKey( vlan ), { vlan, 0 }, inLag,
                              Source::BriselCli );
}

QonTypes::TableAddStatus
VlanMappingSm::addEgressNativeVlanTranslation( IntfId intf, Bridging::VlanId vlan, bool inLag ) {
   return translations_->add( Direction::egress, intf, nativeKey( vlan ), { vlan, 0 }, inLag,
                              Source::BriselCli );
}

void
VlanMappingSm::delIngressNativeVlanTranslation( IntfId intf, Bridging::VlanId vlan, bool ) {
   translations_->del( Direction::ingress, intf, nativeKey( vlan ), Source::BriselCli );
}

void
VlanMappingSm::delEgressNativeVlanTranslation( IntfId intf, Bridging::VlanId vlan, bool ) {
   translations_->del( Direction::egress, intf, nativeKey( vlan ), Source::BriselCli );
}

// --- What cannot be programmed now ---------------------------------------------------------------

void
VlanMappingSm::doAddToUnprogrammedList( IntfId intf, Key key, Direction direction, Source source ) {
   unprogrammedIntfListIs( UnprogrammedMapping( intf, source ) );
   armRetryClock();
   // fixed text
   QON_TRACE( facility, 5, intf, " : Added to unprogrammed  interface list", " for ",
              Kiv::toText( direction ), " ", key );
}

/** Idle without anything on the list; never put off by what comes later. */
void
VlanMappingSm::armRetryClock() {
   if ( !unprogrammedIntfLists() ) {
      clock()->timeIs( Kiv::never );
   } else if ( clock()->idle() ) {
      clock()->timeIs( Kiv::now() + retryUnprogrammedInterval() );
   }
}

void
VlanMappingSm::unprogrammedDel( IntfId intf, Source source ) {
   unprogrammedIntfListDel( UnprogrammedMapping( intf, source ) );
   armRetryClock();
}

void
VlanMappingSm::reviewUnprogrammedIntfList() {
   std::vector< UnprogrammedMapping > list;
   for ( auto && [entry, nothing] : unprogrammedIntfListIteratorConst() ) {
      list.push_back( entry );
   }
   const Velto::Hold alive( this );
   unprogrammedIntfListDelAll();
   armRetryClock();
   Velto::FirstError error;
   for ( auto & entry : list ) {
      VlanXlateConfigSm * sm = nullptr;
      switch ( entry.source() ) {
      case Source::BriselCli:
         sm = kivConfig( entry.intf() );
         break;
      case Source::Steerline:
         sm = flowConfigSm( entry.intf() );
         break;
      default:
         VELTO_ASSERT( 0 ); // nobody else has anything to apply
      }
      if ( sm && sm->initialized() ) {
         ++retries_;
         error.run( [&] { sm->doApplyConfig(); } );
      }
   }
   error.pass();
}

void
VlanMappingSm::handleCodefIngress() {
   translations_->handleCodef( Direction::ingress );
}

void
VlanMappingSm::handleCodefEgress() {
   translations_->handleCodef( Direction::egress );
}

void
VlanMappingSm::handleQonIngVlanMappingStatus( const PortVlanKey & key ) {
   translations_->askStatus( Direction::ingress, key );
   translations_->settle();
}

void
VlanMappingSm::handleQonEgrVlanMappingStatus( const PortVlanKey & key ) {
   translations_->askStatus( Direction::egress, key );
   translations_->settle();
}

// --- Questions -----------------------------------------------------------------------------------

QonVlanMappingSource
VlanMappingSm::ingVlanXlateSourceMap( const PortVlanKey & key ) const {
   return translations_->sourceOf( Direction::ingress, key );
}

bool
VlanMappingSm::ingVlanXlateSourceMapHas( const PortVlanKey & key ) const {
   return ingVlanXlateSourceMap( key ) != Source::None;
}

QonVlanMappingSource
VlanMappingSm::egrVlanXlateSourceMap( const PortVlanKey & key ) const {
   return translations_->sourceOf( Direction::egress, key );
}

bool
VlanMappingSm::egrVlanXlateSourceMapHas( const PortVlanKey & key ) const {
   return egrVlanXlateSourceMap( key ) != Source::None;
}

VlanMappingSm::Outcome
VlanMappingSm::outcome( IntfId intf, Direction direction, Key key, Source source ) const {
   return translations_->outcome( intf, direction, key, source );
}

void
VlanMappingSm::handleVerify() {
   if ( in_.verifyData ) {
      translations_->verify();
   }
}

String
VlanMappingSm::checkInvariants() const {
   if ( initialized() && clock()->idle() != ( unprogrammedIntfLists() == 0 ) ) {
      return "the retry clock does not go with the retry list";
   }
   return translations_->checkInvariants();
}

Velto::Ptr< VlanMappingSm >
VlanMappingSmIs( VlanMappingSm::Inputs inputs ) {
   return smIs< VlanMappingSm >( std::move( inputs ) );
}

} // namespace Qon
