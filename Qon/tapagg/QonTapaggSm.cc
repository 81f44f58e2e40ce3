// Start, mode and end; what is heard, and the questions that follow.

#include "Qon/include/tapagg/QonTapaggSm.h"

#include "Qon/tapagg/TapAggTrace.h"

namespace Qon {

using Ulnet::IntfId;

Flintlog::Facility tapAggFacility( "QonTapaggSm" );

namespace {

constexpr Kiv::Seconds hwCleanupDelay = 5.0;

} // namespace

TapAggSm::TapAggSm( Inputs inputs ) : in_( std::move( inputs ) ) {
   groupCleanupClock_.attach( this, Velto::make< Kiv::Clock >( in_.wheel ) );
   hwCleanupClock_.attach( this, Velto::make< Kiv::Clock >( in_.wheel ) );
}

TapAggSm::~TapAggSm() = default;

void
TapAggSm::kivDoZombieReactors() {
   taps_.kivDoZombieReactors();
   tools_.kivDoZombieReactors();
   policyMaps_.kivDoZombieReactors();
   servicePolicies_.kivDoZombieReactors();
   QonBaseSm::kivDoZombieReactors();
}

void
TapAggSm::handleInitialized() {
   if ( !initialized() ) {
      restAll();
      return;
   }
   const Config * config = tapAggConfig();
   modeWatch_.attach( this, in_.acsd.ptr() );
   tapPortWatch_.attach( this, config );
   toolPortWatch_.attach( this, config );
   tapRawIntfWatch_.attach( this, config );
   tcamProfileWatch_.attach( this, config );
   matchIpWatch_.attach( this, config );
   activeWatch_.attach( this, in_.toolPortStatus.ptr() );
   pmapGroupWatch_.attach( this, in_.pmapGroupConfig.ptr() );
   policyMapWatch_.attach( this, in_.policyMapConfig.ptr() );
   servicePolicyWatch_.attach( this, in_.policyMapConfig.ptr() );
   flushReplyWatch_.attach( this, in_.flushReplies.ptr() );
   check_.attach< &TapAggSm::handleVerify >( in_.verifyData, "QonTapaggSm", this );
   ask( { What::start } );
}

void
TapAggSm::restAll() {
   taps_.rest();
   tools_.rest();
   policyMaps_.rest();
   servicePolicies_.rest();
}

// --- Questions -----------------------------------------------------------------------------------

void
TapAggSm::settle() {
   if ( initialized() ) {
      drain();
   }
}

void
TapAggSm::drain() {
   questions_.drain( this, [this]( const Question & question ) { take( question ); } );
}

/** A start asks everything; what was asked before it, while nothing was heard, it asks anew. */
void
TapAggSm::take( const Question & question ) {
   if ( initialized() || stopping_ || question.what == What::stop ) {
      answer( question );
   }
}

void
TapAggSm::answer( const Question & question ) {
   switch ( question.what ) {
   case What::start:
      return start();
   case What::mode:
      reviewMode();
      return;
   case What::left:
      return left();
   case What::tcamProfile:
      return reviewTcamProfile();
   case What::pmapGroup:
      return reviewPmapGroup( question.name );
   case What::tapPort:
      return reviewTapPort( question.intf );
   case What::toolPort:
      return reviewToolPort( question.intf );
   case What::policyMap:
      policyMaps_.review( question.name, in_.policyMapConfig->policyMap( question.name ) );
      if ( auto sm = policyMapSm( question.name ) ) {
         sm->reviewAll();
      }
      return;
   case What::servicePolicy:
      servicePolicies_.review( question.intf, in_.policyMapConfig->servicePolicy( question.intf ) );
      return;
   case What::classMap:
      if ( auto sm = policyMapSm( question.name ) ) {
         sm->reviewClass( question.classMap );
      }
      return;
   case What::pending:
      return retryPending();
   case What::groupCleanup:
      return cleanUpGroups();
   case What::hwCleanup:
      return cleanUpHardware();
   case What::stop:
      return stop();
   case What::stopped:
      return stopped();
   }
}

void
TapAggSm::ask( const Question & question ) {
   if ( initialized() ) {
      questions_.ask( this, question, [this]( const Question & q ) { take( q ); } );
   } else {
      questions_.add( question );
   }
}

void
TapAggSm::askPort( TapAggRole role, IntfId intf ) {
   ask( { role == TapAggRole::tap ? What::tapPort : What::toolPort, intf } );
}

// --- Start, mode and end -------------------------------------------------------------------------

/** What was left by the clocks while nothing was heard is made good, too; and what members joined or
    left meanwhile, which at the first start nobody knows. */
void
TapAggSm::start() {
   Velto::FirstError error;
   error.run( [this] { lags_.attach( this, in_.acsd.ptr() ); } );
   error.run( [this] { reviewTcamProfile(); } );
   error.run( [this] {
      if ( !reviewMode() ) {
         askAll();
         later( active_ ? What::pending : What::left );
      }
   } );
   if ( allocatedGroupInfos() || pendingAggGroups() ) {
      scheduleGroupCleanup();
   }
   for ( auto && entry : keysOf< FlushKey >( in_.flushReplies->replyIteratorConst() ) ) {
      error.run( [&] { handleFlushReply( entry.key ); } );
   }
   error.pass();
}

/** Every key that is configured or held becomes a question. */
template< class Configured, class Collection >
void
TapAggSm::askKeys( What what, Configured && configured, const Collection & held ) {
   using K = typename decltype( held.heldKeys() )::value_type;
   auto keys = keysOf< K >( configured );
   for ( const K & key : held.heldKeys() ) {
      keys.emplace( key );
   }
   for ( auto && entry : keys ) {
      if constexpr ( std::is_same_v< K, IntfId > ) {
         later( what, entry.key );
      } else {
         later( what, {}, entry.key );
      }
   }
}

/** Groups of policy maps first; tool ports are there before frames come for them, and go after. */
void
TapAggSm::askAll() {
   auto names = keysOf< String >( in_.pmapGroupConfig->groupIteratorConst() );
   for ( auto && entry : in_.pmapGroupStatus->groupNameToIdIteratorConst() ) {
      names.emplace( entry.key );
   }
   for ( const String & name : users_.pmapGroups() ) {
      names.emplace( name ); // one that is pending is published nowhere
   }
   for ( auto && entry : names ) {
      later( What::pmapGroup, {}, entry.key );
   }
   auto askTaps = [&] { askKeys( What::tapPort, tapAggConfig()->tapPortIteratorConst(), taps_ ); };
   if ( !active_ ) {
      askTaps();
   }
   askKeys( What::toolPort, tapAggConfig()->toolPortIteratorConst(), tools_ );
   if ( active_ ) {
      askTaps();
   }
   askKeys( What::policyMap, in_.policyMapConfig->policyMapIteratorConst(), policyMaps_ );
   askKeys( What::servicePolicy, in_.policyMapConfig->servicePolicyIteratorConst(),
            servicePolicies_ );
}

/** A change is carried out to its end before the next one: what it asks stands in front of it. False:
    it is the same mode. */
bool
TapAggSm::reviewMode() {
   const bool wanted = in_.acsd->operationalMode() == HwOperationalMode::tapAgg && !stopping_;
   if ( wanted == active_ ) {
      return false;
   }
   if ( wanted ) {
      enter();
      askAll();
      later( What::pending );
   } else {
      active_ = false;
      askAll();
      later( What::left );
   }
   return true;
}

void
TapAggSm::enter() {
   const Velto::AtEnd settled( [this] { doMaybeScheduleHwCleanup(); } ); // should the chip raise
   if ( !hwInited_ ) {
      QON_HOOK( TapAggHelper, in_.helper, hwInit );
      hwInited_ = true;
   }
   askMaxFrameSize();
   active_ = true;
}

/** Nobody uses anything by now. */
void
TapAggSm::left() {
   if ( active_ ) {
      return;
   }
   if ( allocatedGroupInfos() || pendingAggGroups() ) {
      scheduleGroupCleanup();
   }
   doMaybeScheduleHwCleanup();
   in_.flushRequests->requestDelAll();
}

void
TapAggSm::doCleanup() {
   later( What::stop );
   drain(); // even while nothing else is asked
}

void
TapAggSm::stop() {
   stopping_ = true;
   reviewMode();
   later( What::stopped );
}

void
TapAggSm::stopped() {
   const Velto::AtEnd done( [this] { stopping_ = false; } );
   Velto::FirstError error;
   // Ports at which the chip raised are asked about behind this.
   auto takeBack = [&]( IntfId, TapAggIntfSm & sm ) { error.run( [&] { sm.takeBack(); } ); };
   taps_.forEach( takeBack );
   tools_.forEach( takeBack );
   auto freeGroups = [this] { cleanUpGroups(); };
   auto cleanUp = [this] {
      if ( hwInited_ ) {
         QON_HOOK( TapAggHelper, in_.helper, hwCleanup );
      }
   };
   error.run( freeGroups ) || error.run( freeGroups );
   error.run( cleanUp ) || error.run( cleanUp );
   error.run( [this] { forgetHardware(); } );
   error.run( [this] { initializedIs( false ); } );
   error.run( [this] { restAll(); } ); // should it have been false before
   error.pass();
}

/** The chip has nothing any more; nor is anything known of it that could be taken back. */
void
TapAggSm::forgetHardware() {
   hwInited_ = false;
   Velto::FirstError error;
   auto forget = [&]( IntfId, TapAggIntfSm & sm ) { error.run( [&] { sm.forget(); } ); };
   taps_.forEach( forget );
   tools_.forEach( forget );
   auto names = keysOf< String >( pendingAggGroupIteratorConst() );
   for ( auto && entry : groupIds_ ) {
      names.emplace( entry.key );
   }
   groupIds_.clear();
   error.run( [this] { allocatedGroupInfoDelAll(); } );
   error.run( [this] { allocatedPortInfoDelAll(); } );
   error.run( [this] { pendingAggGroupDelAll(); } );
   for ( auto && entry : names ) {
      groupStateChanged( entry.key );
   }
   groupCleanupClock_->timeIs( Kiv::never );
   hwCleanupClock_->timeIs( Kiv::never );
   error.pass();
}

// --- The hardware's clean-up ---------------------------------------------------------------------

bool
TapAggSm::readyForHwCleanup() {
   return initedTapPortCount() == 0 && initedToolPortCount() == 0;
}

void
TapAggSm::doMaybeScheduleHwCleanup() {
   const bool due = !active_ && hwInited_ && readyForHwCleanup();
   hwCleanupClock_->timeIs( due ? Kiv::now() + hwCleanupDelay : Kiv::never );
}

void
TapAggSm::handleHwCleanupTime() {
   ask( { What::hwCleanup } );
}

template< class Collection >
std::vector< const TapAggHwPort * >
TapAggSm::hwPorts( const Collection & ports ) {
   std::vector< const TapAggHwPort * > all;
   ports.forEach( [&]( IntfId, auto & sm ) { all.push_back( &sm.hw() ); } );
   return all;
}

void
TapAggSm::cleanUpHardware() {
   if ( active_ || !hwInited_ ) {
      return; // the mode is back
   }
   const Velto::AtEnd again( [this] { doMaybeScheduleHwCleanup(); } ); // should the chip raise
   VELTO_ASSERT( initedTapPortCount() == 0 );
   for ( auto i : hwPorts( taps_ ) ) {
      VELTO_ASSERT( !i->initialized() );
   }
   VELTO_ASSERT( initedToolPortCount() == 0 );
   for ( auto i : hwPorts( tools_ ) ) {
      VELTO_ASSERT( !i->initialized() );
   }
   groupCleanupClock_->timeIs( Kiv::never );
   cleanUpGroups();
   VELTO_ASSERT( !allocatedGroupInfos() );
   QON_HOOK( TapAggHelper, in_.helper, hwCleanup );
   hwInited_ = false;
}

void
TapAggSm::initedTapPortCountInc( S32 change ) {
   if ( change < 0 ) {
      VELTO_ASSERT( initedTapPortCount() > 0 );
   }
   initedTapPortCountIs( U16( initedTapPortCount() + change ) );
}

void
TapAggSm::initedToolPortCountInc( S32 change ) {
   if ( change < 0 ) {
      VELTO_ASSERT( initedToolPortCount() > 0 );
   }
   initedToolPortCountIs( U16( initedToolPortCount() + change ) );
}

void
TapAggSm::initedCountInc( const TapAggIntfSm & sm, S32 change ) {
   Velto::FirstError error;
   error.run( [&] {
      sm.role() == TapAggRole::tap ? initedTapPortCountInc( change )
                                   : initedToolPortCountInc( change );
   } );
   if ( change < 0 ) {
      doMaybeScheduleHwCleanup();
   }
   portStateChanged( sm );
   error.pass();
}

// --- What is heard -------------------------------------------------------------------------------

void
TapAggSm::handleMode() {
   ask( { What::mode } );
}

void
TapAggSm::handleTapPort( const IntfId & intf ) {
   askPort( TapAggRole::tap, intf );
}

void
TapAggSm::handleToolPort( const IntfId & intf ) {
   askPort( TapAggRole::tool, intf );
}

void
TapAggSm::handleTapRawIntf( const IntfId & intf ) {
   if ( auto tap = tapSm( intf ) ) {
      tap->handleTapRawIntf();
   }
}

void
TapAggSm::handleToolGroupMembership( const IntfId & intf ) {
   askPort( TapAggRole::tool, intf );
}

void
TapAggSm::handleActiveToolPortChange( const IntfId & intf ) {
   askPort( TapAggRole::tool, intf );
}

void
TapAggSm::handlePmapGroupConfig( const String & name ) {
   ask( { What::pmapGroup, {}, name } );
}

void
TapAggSm::handlePolicyMap( const String & name ) {
   ask( { What::policyMap, {}, name } );
}

void
TapAggSm::handleServicePolicy( const IntfId & intf ) {
   ask( { What::servicePolicy, intf } );
}

/** Rules of every policy map are made otherwise from now on. */
void
TapAggSm::handleTrafficSteeringMacAclMatchIp() {
   for ( const String & name : policyMaps_.heldKeys() ) {
      later( What::policyMap, {}, name );
   }
   settle();
}

void
TapAggSm::handleTcamProfile() {
   ask( { What::tcamProfile } );
}

void
TapAggSm::reviewTcamProfile() {
   const String profile = tapAggConfig()->tcamProfile();
   if ( profile != tcamProfile_ ) {
      QON_HOOK( TapAggHelper, in_.helper, handleTcamProfile, profile );
      tcamProfile_ = profile;
      maxFrameSizeStale_ = true;
   }
   if ( active_ && maxFrameSizeStale_ ) {
      askMaxFrameSize();
      askAll();
   }
}

void
TapAggSm::askMaxFrameSize() {
   maxFrameSize_ = QON_HOOK( TapAggHelper, in_.helper, getMaxExternalFrameSizeTapAgg );
   maxFrameSizeStale_ = false;
}

Velto::Ptr< TapAggSm >
TapAggSmIs( TapAggSm::Inputs inputs ) {
   return smIs< TapAggSm >( std::move( inputs ) );
}

} // namespace Qon
