#include "Qon/include/lag/QonLagSm.h"

#include "Qon/include/framework/LagView.h"
#include "Qon/include/framework/QonTraceHandles.h"
#include "Qon/lag/QonLagTrace.h"
#include "platform/Kiv/Describe.h"
#include "platform/Kiv/Restart.h"

KIV_DEFINE( Qon::LagSm )

namespace Qon {

using Ulnet::IntfId;

Flintlog::Facility lagFacility( "QonLagSm" );

// The aggregate's own part

LagSm::NestedSm_Status::NestedSm_Status( LagSm * lagSm, Velto::Ptr< const Status > status )
    : lagSm_( lagSm ), status_( std::move( status ) ) {}

void
LagSm::NestedSm_Status::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   live_ = true;
   intfWatch_.attach( this, status_.ptr() );
   fallbackWatch_.attach( this, status_.ptr() );
   deviceNameWatch_.attach( this, status_.ptr() );
   lagSm_->later( What::entry, lag() );
   QonPortList portList;
   for ( auto && [port, member] : status_->intfIteratorConst() ) {
      portList.portIs( port );
   }
   doUpdatePortList( portList );
   lagSm_->later( What::fallback, lag() );
   lagSm_->later( What::peerLinkOf, lag() );
   lagSm_->settle();
}

void
LagSm::NestedSm_Status::doUpdatePortList( const QonPortList & portList ) {
   for ( auto & [port, flags] : lagSm_->localMember( lag() ) ) {
      lagSm_->later( What::port, port ); // what an earlier incarnation published
   }
   reconcile< IntfId >(
         claims_, portList, [&]( IntfId port ) { doUpdateMember( port, false ); },
         [&]( IntfId port ) { doUpdateMember( port, true ); } );
}

void
LagSm::NestedSm_Status::doUpdateMember( IntfId member, bool isMember ) {
   if ( isMember && claims_.emplace( member ).second ) {
      lagSm_->claims_.claim( member, lag() );
   } else if ( !isMember && claims_.erase( member ) ) {
      lagSm_->claims_.unclaim( member, lag() );
   }
   lagSm_->later( What::port, member );
}

void
LagSm::NestedSm_Status::handleIntf( const IntfId & member ) {
   doUpdateMember( member, status_->intfHas( member ) );
   lagSm_->settle();
}

void
LagSm::NestedSm_Status::handleLacpFallbackEnabled() {
   lagSm_->later( What::fallback, lag() );
   lagSm_->settle();
}

void
LagSm::NestedSm_Status::handleDeviceName() {
   lagSm_->later( What::entry, lag() );
   lagSm_->settle();
}

void
LagSm::NestedSm_Status::handleDel() {
   live_ = false;
   if ( Kiv::agentRestarting() ) {
      QON_TRACE( lagFacility, 2, "Disabling Qon cleanup in case of restart" ); // fixed text
      claimsDel( []( IntfId ) {} ); // what is published stays, claims begin anew
      return;
   }
   doCleanupLag();
}

template< class Act >
void
LagSm::NestedSm_Status::claimsDel( Act && act ) {
   for ( auto && entry : std::exchange( claims_, {} ) ) {
      lagSm_->claims_.unclaim( entry.key, lag() );
      act( entry.key );
   }
}

void
LagSm::NestedSm_Status::doCleanupLag() {
   lagSm_->later( What::peerLinkOf, lag() );
   claimsDel( [this]( IntfId port ) { lagSm_->later( What::port, port ); } );
   lagSm_->later( What::entry, lag() );
   lagSm_->settle();
}

// Start, and what is heard

LagSm::LagSm( Inputs inputs ) : in_( std::move( inputs ) ) {}

void
LagSm::handleInitialized() {
   if ( !initialized() ) {
      status_.rest();
      return;
   }
   statusWatch_.attach( this, in_.ethLagIntfStatusDir.ptr() );
   reactAcsd_.attach( this, acsd() );
   mlagStateWatch_.attach( this, in_.mlagStatus.ptr() );
   peerLinkWatch_.attach( this, in_.mlagStatus.ptr() );
   redirectionWatch_.attach( this, in_.mlagStatus.ptr() );
   reverifyWatch_.attach( this, verifyData() );
   check_.attach< &LagSm::handleVerify >( in_.verifyData, "QonLagSm", this );
   if ( lagProgSm() ) {
      lagProgSm()->initializedIs( true );
   }
   allManaged_ = acsd()->intfs() == 0;
   reading_ = true;
   // Each compares what is there with what shall be: one that raised is asked once more.
   Velto::FirstError error;
   for ( auto step : { &LagSm::clearStaleDeviceNames, &LagSm::repairMaps, &LagSm::reviewStatuses,
                       &LagSm::settleAll, &LagSm::removeStaleGroups } ) {
      auto run = [&] { ( this->*step )(); };
      error.run( run ) || error.run( run );
   }
   error.pass();
}

void
LagSm::reviewStatuses() {
   for ( auto && [port, lags] : claims_.all() ) {
      later( What::port, port );
   }
   const auto & statuses = in_.ethLagIntfStatusDir;
   status_.reviewAll( statuses->intfStatusIteratorConst(), [&]( IntfId lag ) {
      return Velto::Ptr< const Interface::EthLagIntfStatus >( statuses->intfStatus( lag ) );
   } );
}

/** Once all claims are known: a port that several aggregates list goes straight to its owner, and is
    lent to nobody who owns it. */
void
LagSm::settleAll() {
   reading_ = false;
   Velto::FirstError error;
   ownFirst_ = true;
   error.run( [&] { settle(); } );
   ownFirst_ = false;
   later( What::peerLinkOfAll );
   error.run( [&] { settle(); } );
   error.pass();
}

void
LagSm::removeStaleGroups() {
   if ( lagProgSm() ) {
      lagProgSm()->removeStale();
   }
}

void
LagSm::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   status_.kivDoZombieReactors();
}

void
LagSm::clearStaleDeviceNames() {
   auto & names = in_.lagInputIntfDeviceNameDir;
   if ( !names ) {
      return;
   }
   for ( auto && entry : keysOf< IntfId >( names->intfDeviceNameIteratorConst() ) ) {
      if ( !in_.ethLagIntfStatusDir->intfStatusHas( entry.key ) ) {
         // fixed text
         QON_TRACE( lagFacility, 4, " clearing stale lagInputIntfDeviceNameDir entry for ",
                    entry.key );
         names->intfDeviceNameDel( entry.key );
      }
   }
}

/** Makes the maps that were found the inverse of each other, and has what belongs to no aggregate
    removed. */
void
LagSm::repairMaps() {
   for ( auto && entry : keysOf< IntfId >( acsd()->lagToPortIteratorConst() ) ) {
      const IntfId lag = entry.key;
      QonLagPortList list;
      for ( auto & [port, flags] : acsd()->lagToPort( lag ) ) {
         if ( acsd()->portToLag( port ) == lag ) {
            list.portIs( port, flags );
         }
      }
      acsd()->lagToPortIs( lag, list );
   }
   for ( auto && entry : keysOf< IntfId >( acsd()->portToLagIteratorConst() ) ) {
      const LagView lags( acsd() );
      if ( !lags.lists( lags.lagOf( entry.key ), entry.key ) ) {
         acsd()->portToLagDel( entry.key );
      }
   }
   auto fallbacks = keysOf< IntfId >( acsd()->lagInLacpFallbackIndividualModeIteratorConst() );
   for ( auto && entry : fallbacks ) {
      if ( !in_.ethLagIntfStatusDir->intfStatusHas( entry.key ) ) {
         acsd()->lagInLacpFallbackIndividualModeDel( entry.key );
      }
   }
   // The entries of live aggregates are looked at when their state machines start.
   for ( auto && entry : keysOf< IntfId >( acsd()->lagToPortIteratorConst() ) ) {
      if ( !in_.ethLagIntfStatusDir->intfStatusHas( entry.key ) ) {
         entryDel( entry.key );
      }
   }
}

bool
LagSm::isIntfManaged( IntfId intf ) const {
   return acsd()->intfs() == 0 || acsd()->intfHas( intf ) ||
          Ulnet::PortChannelIntfId::isPortChannelIntfId( intf );
}

void
LagSm::handleIntfStatus( const IntfId & lag ) {
   status_.review( lag, in_.ethLagIntfStatusDir->intfStatus( lag ) );
}

Velto::Ptr< LagSm::NestedSm_Status >
LagSm::makeStatusSm( const IntfId &,
                     const Velto::Ptr< const Interface::EthLagIntfStatus > & status ) {
   return smIs< NestedSm_Status >( this, status );
}

void
LagSm::cleanUpStatusSm( const IntfId &, NestedSm_Status * sm ) {
   sm->handleDel();
}

/** The first entry of acsd.intf and the loss of the last one concern every port, others one. */
void
LagSm::handleManagedIntf( const IntfId & intf ) {
   const bool all = acsd()->intfs() == 0;
   if ( all != allManaged_ ) {
      allManaged_ = all;
      laterForAll( What::entry );
      laterForAll( What::fallback );
      for ( auto && [port, lags] : claims_.all() ) {
         later( What::port, port );
      }
      later( What::peerLinkOfAll );
   } else {
      later( What::entry, intf );
      later( What::fallback, intf );
      later( What::peerLinkOf, intf );
      later( What::port, intf );
      if ( auto sm = status( intf ) ) {
         for ( auto && entry : sm->claims() ) {
            later( What::port, entry.key );
         }
      }
      if ( in_.mlagStatus && in_.mlagStatus->peerLinkIntf() == intf ) {
         later( What::peerLinkOfAll );
      }
   }
   settle();
}

// --- One thing at a time -------------------------------------------------------------------------

/** Nothing is looked at before the start and while the state machine rests; the start looks at
    everything. */
void
LagSm::settle() {
   if ( !initialized() || reading_ || work_.draining() ) {
      return;
   }
   const Velto::Hold alive( this );
   Velto::FirstError error;
   error.run( [&] { work_.drain( this, [this]( const Work & work ) { review( work ); } ); } );
   if ( std::exchange( changed_, false ) && verifyData() ) {
      error.run( [&] { verifyData()->doRequestVerify(); } );
   }
   error.pass();
}

void
LagSm::laterForAll( What what ) {
   for ( IntfId lag : status_.heldKeys() ) {
      later( what, lag );
   }
}

void
LagSm::review( const Work & work ) {
   const bool lends = work.what == What::peerLinkOf || work.what == What::peerLinkOfAll ||
                      work.what == What::borrowers;
   if ( lends && ownFirst_ ) {
      return; // the start asks for all of them
   }
   switch ( work.what ) {
   case What::entry:
      reviewEntry( work.intf );
      return;
   case What::port:
      reviewPort( work.intf );
      return;
   case What::fallback:
      reviewFallback( work.intf );
      return;
   case What::peerLinkOf:
      reviewPeerLinkOf( work.intf );
      return;
   case What::peerLinkOfAll:
      reviewPeerLinkOfAll();
      return;
   case What::borrowers:
      reviewBorrowers();
      return;
   }
}

bool
LagSm::wanted( IntfId lag ) const {
   auto sm = status( lag );
   return sm && sm->live() && isIntfManaged( lag );
}

void
LagSm::reviewEntry( IntfId lag ) {
   if ( wanted( lag ) ) {
      if ( !acsd()->lagToPortHas( lag ) ) {
         changed_ = true;
         acsd()->lagToPortIs( lag, QonLagPortList() );
      }
   } else if ( acsd()->lagToPortHas( lag ) && !Kiv::agentRestarting() ) {
      entryDel( lag );
   }
   reviewDeviceName( lag );
}

void
LagSm::entryDel( IntfId lag ) {
   const QonLagPortList list = acsd()->lagToPort( lag );
   for ( auto & [port, flags] : list ) {
      removeMember( lag, port );
   }
   changed_ = true;
   acsd()->lagToPortDel( lag );
   acsd()->lagInLacpFallbackIndividualModeDel( lag );
}

void
LagSm::reviewDeviceName( IntfId lag ) {
   auto & names = in_.lagInputIntfDeviceNameDir;
   if ( !names ) {
      return;
   }
   auto sm = status( lag );
   if ( sm && sm->live() ) {
      const String deviceName = sm->status()->deviceName();
      if ( names->intfDeviceNameHas( lag ) && names->intfDeviceName( lag ) == deviceName ) {
         return;
      }
      // fixed text
      QON_TRACE( lagFacility, 5, "Added deviceName ", deviceName, " input for ", lag );
      names->intfDeviceNameIs( lag, deviceName );
   } else if ( names->intfDeviceNameHas( lag ) && !Kiv::agentRestarting() ) {
      QON_TRACE( lagFacility, 5, "Removing deviceName input for ", lag ); // fixed text
      names->intfDeviceNameDel( lag );
   }
}

void
LagSm::reviewFallback( IntfId lag ) {
   if ( !wanted( lag ) ) {
      return; // went with the entry
   }
   const U8 type = status( lag )->status()->lacpFallbackEnabled();
   switch ( type ) {
   case 0:
   case 1:
      acsd()->lagInLacpFallbackIndividualModeDel( lag );
      return;
   case 2:
      acsd()->lagInLacpFallbackIndividualModeIs( lag, true );
      return;
   default:
      qonAssert( "Invalid LACP fallback type: " + std::to_string( type ) ); // fixed text
   }
}

// --- Members -------------------------------------------------------------------------------------

IntfId
LagSm::ownerOf( IntfId port ) const {
   if ( !isIntfManaged( port ) ) {
      return {};
   }
   return claims_.owner( port, [this]( IntfId lag ) { return isIntfManaged( lag ); } );
}

void
LagSm::reviewPort( IntfId port ) {
   const IntfId want = ownerOf( port );
   const IntfId have = acsd()->portToLag( port );
   if ( have && want && have != want ) {
      doScrubMember( port, have );
   } else if ( have && !want && ( wanted( have ) || !Kiv::agentRestarting() ) ) {
      removeMember( have, port );
   }
   if ( want ) {
      addMember( want, port );
   }
}

void
LagSm::doScrubMember( IntfId port, IntfId lag ) {
   QON_TRACE( lagFacility, 2, port, " duplicate lag found ", lag ); // fixed text
   removeMember( lag, port );
}

void
LagSm::addMember( IntfId lag, IntfId port ) {
   auto sm = status( lag );
   if ( !sm || !acsd()->lagToPortHas( lag ) ) {
      return;
   }
   const Interface::LagMember flags = sm->status()->intf( port );
   QonLagPortList list = acsd()->lagToPort( lag );
   const QonLagPort before = list.port( port ), now( flags.collecting(), flags.distributing() );
   const bool fresh = acsd()->portToLag( port ) != lag;
   if ( fresh ) {
      QON_TRACE( lagFacility, 4, lag, " adding ", port ); // fixed text
   }
   if ( fresh || !( before == now ) ) {
      membersChanged( lag );
      list.portIs( port, now );
      acsd()->lagToPortIs( lag, list );
      acsd()->portToLagIs( port, lag );
   }
   reviewHardware( lag, port, false );
}

void
LagSm::removeMember( IntfId lag, IntfId member ) {
   // Named for the assertion's text.
   auto portToLag = [this]( IntfId port ) { return acsd()->portToLag( port ); };
   VELTO_ASSERT( portToLag( member ) == lag );             // fixed text
   QON_TRACE( lagFacility, 4, lag, " deleting ", member ); // fixed text
   membersChanged( lag );
   reviewHardware( lag, member, true );
   if ( acsd()->lagToPortHas( lag ) ) {
      QonLagPortList list = acsd()->lagToPort( lag );
      list.portDel( member );
      acsd()->lagToPortIs( lag, list );
   }
   acsd()->portToLagDel( member );
}

/** Before the first write: what it asks for is looked at when this step is done. */
void
LagSm::membersChanged( IntfId lag ) {
   changed_ = true;
   if ( in_.mlagStatus && in_.mlagStatus->peerLinkIntf() == lag ) {
      later( What::borrowers );
   }
}

/** Tells the hardware what `port` is to the group: an own member, a lent one or none. */
void
LagSm::reviewHardware( IntfId lag, IntfId port, bool leaving ) {
   if ( !lagProgSm() ) {
      return;
   }
   const QonLagPortList & own = localMember( lag );
   if ( !leaving && own.portHas( port ) ) {
      lagProgSm()->memberIs( lag, port, own.port( port ), false );
   } else if ( auto lent = lentFlags( lag, port ) ) {
      lagProgSm()->memberIs( lag, port, *lent, true );
   } else {
      lagProgSm()->memberDel( lag, port );
   }
}

Velto::Ptr< LagSm >
LagSmIs( Velto::Ptr< QonCommonSmData > acsd,
         Velto::Ptr< const Interface::EthLagIntfStatusDir > ethLagIntfStatusDir,
         Velto::Ptr< Lag::Input::IntfDeviceNameDir > lagInputIntfDeviceNameDir,
         Velto::Ptr< const Mlag::Status > mlagStatus, Velto::Ptr< VerifyData > verifyData,
         Velto::Ptr< LagProgSm > lagProgSm ) {
   return smIs< LagSm >( LagSm::Inputs{ acsd, ethLagIntfStatusDir, lagInputIntfDeviceNameDir,
                                        mlagStatus, verifyData, lagProgSm } );
}

} // namespace Qon
