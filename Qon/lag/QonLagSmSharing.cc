// What the MLAG peer link lends to aggregates.

#include "Qon/include/framework/LagView.h"
#include "Qon/include/framework/QonTraceHandles.h"
#include "Qon/include/lag/QonLagSm.h"
#include "Qon/lag/QonLagTrace.h"

namespace Qon {

using Ulnet::IntfId;

bool
LagSm::sharePeerLinkWithLag( IntfId lag ) const {
   auto share = share_.find( lag );
   return share && *share;
}

void
LagSm::sharePeerLinkWithLagIs( const IntfId & lag, bool share ) {
   const bool changed = sharePeerLinkWithLag( lag ) != share;
   *share_.emplace( lag ).first = share;
   if ( changed ) {
      later( What::peerLinkOf, lag );
      settle();
   }
}

void
LagSm::sharePeerLinkWithLagDel( const IntfId & lag ) {
   const auto share = share_.take( lag );
   if ( share && *share ) {
      later( What::peerLinkOf, lag );
      settle();
   }
}

void
LagSm::sharePeerLinkWithLagDelAll() {
   share_ = {};
   later( What::peerLinkOfAll );
   settle();
}

IntfId
LagSm::sharedPeerLink( IntfId lag ) const {
   auto peerLink = borrowed_.find( lag );
   return peerLink ? *peerLink : IntfId();
}

bool
LagSm::mlagEstablished() const {
   return in_.mlagStatus && ( in_.mlagStatus->mlagState() == Mlag::MlagState::primary ||
                              in_.mlagStatus->mlagState() == Mlag::MlagState::secondary );
}

IntfId
LagSm::wantedPeerLink( IntfId lag ) const {
   const bool shares = mlagEstablished() && in_.mlagStatus->fastMacRedirection() &&
                       sharePeerLinkWithLag( lag ) && wanted( lag ) &&
                       in_.mlagStatus->peerLinkIntf() != lag;
   return shares ? in_.mlagStatus->peerLinkIntf() : IntfId();
}

/** The members of the peer link: those of an aggregate, else the port itself. */
std::vector< IntfId >
LagSm::peerLinkMembers( IntfId peerLink ) const {
   std::vector< IntfId > members;
   LagView( acsd() ).forEachTarget( peerLink, EmptyAggregate::nothing, [&]( IntfId port ) {
      if ( isIntfManaged( port ) ) {
         members.push_back( port );
      }
   } );
   return members;
}

/** What `port` may do as a member that the peer link lends to `lag`; nothing if it does not. */
std::optional< QonLagPort >
LagSm::lentFlags( IntfId lag, IntfId port ) const {
   const IntfId peerLink = sharedPeerLink( lag );
   if ( peerLink && acsd()->lagToPort( peerLink ).portHas( port ) ) {
      return acsd()->lagToPort( peerLink ).port( port );
   }
   if ( peerLink == port && peerLink && isIntfManaged( port ) &&
        !Ulnet::PortChannelIntfId::isPortChannelIntfId( port ) ) {
      return QonLagPort( true, true );
   }
   return std::nullopt;
}

void
LagSm::reviewPeerLinkOf( IntfId lag ) {
   const QonLagPortList portList = localMember( lag );
   maybeSharePeerLinkWithLag( lag, portList );
}

void
LagSm::maybeSharePeerLinkWithLag( IntfId lag, const QonLagPortList & portList ) {
   const IntfId peerLink = wantedPeerLink( lag );
   const IntfId shared = sharedPeerLink( lag );
   if ( sharePeerLinkWithLag( lag ) && !mlagEstablished() ) {
      QON_TRACE( lagFacility, 5, lag, " ignore since MLAG state is invalid." ); // fixed text
   }
   if ( shared && shared != peerLink ) {
      addOrRemovePeerLink( lag, IntfId(), portList, false );
   }
   if ( peerLink ) {
      addOrRemovePeerLink( lag, peerLink, portList, true );
   }
}

void
LagSm::addOrRemovePeerLink( IntfId lag, IntfId peerLink, const QonLagPortList & portList,
                            bool forceUpdate ) {
   const IntfId shared = sharedPeerLink( lag );
   if ( shared == peerLink ) {
      QON_TRACE( lagFacility, 5, lag, " already shares ", peerLink, " members." ); // fixed text
      if ( !forceUpdate ) {
         return;
      }
   } else if ( peerLink ) {
      // fixed text
      QON_TRACE( lagFacility, 4, lag, " updating LAG membership to add ", peerLink, " members." );
      *borrowed_.emplace( lag ).first = peerLink;
   } else {
      QON_TRACE( lagFacility, 4, "Stop sharing members of peer-link ", shared ); // fixed text
      // fixed text
      QON_TRACE( lagFacility, 4, lag, " doesn't share ", shared, " anymore.",
                 " since MLAG status is ",
                 Kiv::toText( in_.mlagStatus ? in_.mlagStatus->mlagState()
                                             : Mlag::MlagState::disabled ) );
      borrowed_.erase( lag );
   }
   if ( !lagProgSm() ) {
      return;
   }
   auto ports = keysOf< IntfId >( lagProgSm()->membersOf( lag ) );
   for ( IntfId port : peerLinkMembers( peerLink ) ) {
      ports.emplace( port );
   }
   Velto::FirstError error; // nobody asks again for what was lent and is so no more
   for ( auto && entry : ports ) {
      if ( !portList.portHas( entry.key ) ) {
         error.run( [&] { reviewHardware( lag, entry.key, false ); } );
      }
   }
   error.pass();
}

void
LagSm::reviewPeerLinkOfAll() {
   for ( IntfId lag : status_.heldKeys() ) {
      // fixed text
      QON_TRACE( lagFacility, 5, "Check if we need to update the peer-link members for lag ", lag );
      later( What::peerLinkOf, lag );
   }
}

/** The members of the peer link changed. */
void
LagSm::reviewBorrowers() {
   for ( auto && [lag, peerLink] : borrowed_ ) {
      later( What::peerLinkOf, lag );
   }
}

void
LagSm::handleMlagStateOrPeerLinkIntf() {
   later( What::peerLinkOfAll );
   settle();
}

void
LagSm::handleMlagFastMacRedirection() {
   // fixed text
   QON_TRACE( lagFacility, 4, " fastMacRedirection ", in_.mlagStatus->fastMacRedirection() );
   later( What::peerLinkOfAll );
   settle();
}

} // namespace Qon
