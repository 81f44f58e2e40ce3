#include "Qon/include/mirroring/QonMirroringSm.h"

#include <algorithm>

#include "Qon/mirroring/MirroringInputs.h"
#include "Qon/mirroring/MirroringTrace.h"
#include "platform/Kiv/Restart.h"

namespace Qon {

using KivMirroringSession = MirroringSm::KivMirroringSession;
using Ulnet::IntfId;

Flintlog::Facility mirroringFacility( "QonMirroringSm" );

QonLogHandle mirrorSessionResourcesFull( "QonMirroringSm",
                                         QonLog::DATAPLANE_MIRROR_SESSION_RESOURCES_FULL );
QonLogHandle mirrorSourceResourcesFull( "QonMirroringSm",
                                        QonLog::DATAPLANE_MIRROR_SOURCE_RESOURCES_FULL );
QonLogHandle mirrorSourceResourcesNormal( "QonMirroringSm",
                                          QonLog::DATAPLANE_MIRROR_SOURCE_RESOURCES_NORMAL );
QonLogHandle
      mirrorInvalidSessionInCutThrough( "QonMirroringSm",
                                        QonLog::DATAPLANE_MIRROR_INVALID_SESSION_IN_CUT_THROUGH );
QonLogHandle mirrorInternalSessionResourcesUnavailable(
      "QonMirroringSm", QonLog::DATAPLANE_MIRROR_INTERNAL_SESSION_RESOURCES_UNAVAILABLE );
QonLogHandle mirrorAclHwResourceFull( "QonMirroringSm", QonLog::MIRRORING_ACL_HW_RESOURCE_FULL );

MirroringSm::MirroringSm( Inputs inputs )
    : in_( std::move( inputs ) ), intfStatus_( this ), aclTypes_( this ), sessions_( this ) {}

MirroringSm::~MirroringSm() = default;

void
MirroringSm::kivDoZombieReactors() {
   if ( in_.helper->mirroringSm() == this ) {
      in_.helper->mirroringSmIs( nullptr );
   }
   intfStatus_.kivDoZombieReactors();
   aclTypes_.kivDoZombieReactors();
   sessions_.kivDoZombieReactors();
   QonBaseSm::kivDoZombieReactors();
}

void
MirroringSm::handleInitialized() {
   if ( !initialized() ) {
      intfStatus_.rest();
      aclTypes_.rest();
      sessions_.rest();
      return;
   }
   in_.helper->mirroringSmIs( this );
   sessionWatch_.attach( this, in_.config.ptr() );
   maxWatch_.attach( this, in_.capability.ptr() );
   limitsWatch_.attach( this, in_.capability.ptr() );
   reconciledWatch_.attach( this, in_.hwStatus.ptr() );
   hwSessionWatch_.attach( this, in_.hwStatus.ptr() );
   aclWatch_.attach( this, in_.aclConfig.ptr() );
   tunnelWatch_.attach( this, in_.tunnelStatus.ptr() );
   modeWatch_.attach( this, in_.forwardingMode.ptr() );
   phyWatch_.attach( this, in_.phyStatus.ptr() );
   check_.attach< &MirroringSm::handleVerify >( in_.verifyData, "QonMirroringSm", this );
   later( { What::start } );
   lags_.attach( this, in_.acsd.ptr() );
   settle();
}

void
MirroringSm::doCleanup() {
   later( { What::stop } );
   drain(); // even while nothing else is asked
}

void
MirroringSm::updateCounters() {
   during( [this] { QON_HOOK( MirroringSmHelper, in_.helper, updateCounters ); } );
}

// --- Questions -----------------------------------------------------------------------------------

void
MirroringSm::later( Work work ) {
   work_.add( std::move( work ) );
}

void
MirroringSm::ask( const Work & work ) {
   if ( initialized() ) {
      work_.ask( this, work, [this]( const Work & each ) { answerIfHeard( each ); } );
   } else {
      later( work );
   }
}

void
MirroringSm::settle() {
   if ( initialized() ) {
      drain();
   }
}

void
MirroringSm::drain() {
   work_.drain( this, [this]( const Work & work ) { answerIfHeard( work ); } );
}

void
MirroringSm::during( const std::function< void() > & now ) {
   work_.during( this, now, [this]( const Work & work ) { answerIfHeard( work ); } );
}

/** A start asks everything; what was asked before it, while nothing was heard, it asks anew. */
void
MirroringSm::answerIfHeard( const Work & work ) {
   if ( initialized() || work.what == What::stop ) {
      answer( work );
   }
}

void
MirroringSm::answer( const Work & work ) {
   auto session = work.session.ptr();
   if ( session && !session->live_ ) {
      return;
   }
   switch ( work.what ) {
   case What::start:
   case What::pool:
   case What::aclRoom:
   case What::judge:
   case What::stop:
      answerAll( work.what );
      return;
   case What::session:
      reviewSession( work.name );
      return;
   case What::srcIntf:
      session->reviewSrcIntf( work.intf );
      return;
   case What::srcVxlanIntf:
      session->reviewSrcVxlanIntf( work.intf );
      return;
   case What::targetIntf:
      session->reviewTargetIntf( work.intf );
      return;
   case What::settings:
      session->reviewSettings( work.intf );
      return;
   case What::tunnel:
      session->thenSources( [&] { session->reviewDestinations(); } );
      return;
   case What::attributes:
      session->reviewAttributes();
      return;
   case What::aclStatus:
      session->reviewAclStatus( work.intf );
      return;
   case What::hwSession:
      if ( auto named = this->session( work.name ) ) {
         named->reviewHwSession();
      }
      return;
   case What::waiting:
      session->reviewWaiting();
      return;
   case What::member:
      forEachUser( work.intf, [&]( KivMirroringSession & user ) {
         user.reviewMember( work.intf, work.port );
      } );
      return;
   case What::intf:
      forEachUser( work.intf, [&]( KivMirroringSession & user ) { user.revaluate( work.intf ); } );
      return;
   case What::tunnels:
      forEachOf( allSessions(), [&]( KivMirroringSession & each ) {
         const auto & info = each.config()->tunnel();
         if ( info.type() != Mirroring::TunnelType::none &&
              ( work.name.empty() ||
                work.name == Tunnel::Endpoint( info.dst(), info.vrf() ).stringValue() ) ) {
            each.thenSources( [&] { each.reviewDestinations(); } );
         }
      } );
      return;
   case What::acl:
      forEachOf( allSessions(),
                 [&]( KivMirroringSession & each ) { each.reviewAcl( work.aclType, work.name ); } );
      return;
   }
}

void
MirroringSm::answerAll( What what ) {
   switch ( what ) {
   case What::start: {
      Velto::FirstError error;
      error.run( [&] { reviewInputs(); } );
      error.run( [&] { reviewPool(); } );
      error.run( [&] { judgeIfChanged(); } );
      error.pass();
      return;
   }
   case What::stop: {
      stopped_ = true;
      const Velto::AtEnd done( [this] {
         stopped_ = started_ = false;
         max_ = 0;
      } );
      Velto::FirstError error;
      error.run( [&] { reviewSessions(); } );
      error.run( [&] { initializedIs( false ); } );
      error.pass();
      return;
   }
   case What::pool:
      reviewPool();
      return;
   case What::aclRoom:
      aclRoomAsked_ = false;
      forEachOf( allSessions(), []( KivMirroringSession & each ) { each.reviewAclRoom(); } );
      return;
   default: // What::judge
      judgeIfChanged();
      return;
   }
}

/** By cut-through, which is new, each session's sources are judged as if they were added one by one;
    by all else those that are in hardware come first. */
void
MirroringSm::judgeIfChanged() {
   const U32 limits = in_.capability->sourceLimitsVersion();
   const bool cut = cutThrough(), mode = judgedCutThrough_ != cut;
   if ( judgedLimits_ != limits || mode ) {
      forEachOf( allSessions(),
                 [&]( KivMirroringSession & each ) { each.judgeSources( !( mode && cut ) ); } );
      judgedLimits_ = limits; // not before: what raised is judged once more
      judgedCutThrough_ = cut;
   }
}

// --- Sessions ------------------------------------------------------------------------------------

void
MirroringSm::handleSession( const String & name ) {
   ask( Work::of( What::session, name ) );
}

Velto::Ptr< KivMirroringSession >
MirroringSm::makeSession( const String & name,
                          const Velto::Ptr< const Mirroring::SessionConfig > & config ) {
   auto session = smIs< KivMirroringSession >( this, name, config );
   auto kept = std::find_if( kept_.begin(), kept_.end(),
                             [&]( auto & entry ) { return entry.first == name; } );
   if ( kept != kept_.end() ) {
      session->takeKept( kept->second );
      kept_.erase( kept );
   }
   return session;
}

void
MirroringSm::cleanUpSession( const String &, KivMirroringSession * session ) {
   session->prepareToDie();
}

void
MirroringSm::reviewSession( const String & name ) {
   const bool wanted = max_ != 0 && !stopped_;
   sessions_.review( name, wanted ? in_.config->session( name ) : nullptr );
   if ( auto sm = session( name ); sm && sm->unfinished() ) {
      const SessionPtr held( sm );
      held->program();
   }
}

void
MirroringSm::reviewSessions() {
   KeySet< String > names;
   for ( auto && [name, config] : in_.config->sessionIteratorConst() ) {
      names.emplace( name );
   }
   for ( const String & name : sessions_.heldKeys() ) {
      names.emplace( name );
   }
   Velto::FirstError error;
   for ( auto && [name, none] : names ) {
      error.run( [&, &key = name] { reviewSession( key ); } );
   }
   error.pass();
}

U32
MirroringSm::placeInQueue( const String & name ) const {
   U32 place = 0;
   for ( auto && [key, config] : in_.config->sessionIteratorConst() ) {
      auto sm = session( key );
      const bool waits = sm && sm->live_ && !sm->hasGroup();
      place += waits;
      if ( key == name ) {
         return waits ? place : 0;
      }
   }
   return 0;
}

std::vector< MirroringSm::SessionPtr >
MirroringSm::allSessions() const {
   std::vector< SessionPtr > all;
   sessions_.forEach(
         [&]( const String &, KivMirroringSession & session ) { all.push_back( &session ); } );
   return all;
}

void
MirroringSm::reviewInvalidSources() {
   if ( overflows_ != 0 || stopped_ ) {
      return;
   }
   bool said = false;
   sessions_.forEach( [&]( const String &, KivMirroringSession & session ) {
      said =
            said || ( session.resourceMessageLogged_ && session.createdInHw_ && !session.leaving_ );
   } );
   if ( said ) {
      sessions_.forEach( []( const String &, KivMirroringSession & session ) {
         session.resourceMessageLogged_ = false;
      } );
      mirrorLog( mirrorSourceResourcesNormal );
   }
}

void
MirroringSm::askAclRoom() {
   if ( !std::exchange( aclRoomAsked_, true ) ) {
      later( { What::aclRoom } );
   }
}

Velto::Ptr< MirroringSm >
MirroringSmIs( MirroringSm::Inputs inputs ) {
   return smIs< MirroringSm >( std::move( inputs ) );
}

} // namespace Qon
