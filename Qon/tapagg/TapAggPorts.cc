// Ports: which of them are set up, their members, and the flushes that members cause.

#include "Qon/tapagg/TapAggTrace.h"

namespace Qon {

using Ulnet::IntfId;

Velto::Ptr< TapAggTapSm >
TapAggSm::makeTap( const IntfId &,
                   const Velto::Ptr< const Bridging::Input::TapPortConfig > & config ) {
   return smIs< TapAggTapSm >( this, config );
}

Velto::Ptr< TapAggToolSm >
TapAggSm::makeTool( const IntfId &,
                    const Velto::Ptr< const Bridging::Input::ToolPortConfig > & config ) {
   return smIs< TapAggToolSm >( this, config );
}

void
TapAggSm::cleanUpPort( TapAggIntfSm & sm ) {
   auto end = [&] { sm.takeBack(); };
   Velto::FirstError error;
   error.run( end ) || error.run( end );
   sm.forget();
   error.pass();
}

void
TapAggSm::reviewTapPort( IntfId intf ) {
   taps_.review( intf, tapAggConfig()->tapPort( intf ) );
   if ( auto sm = tapSm( intf ) ) {
      sm->review();
   }
}

void
TapAggSm::reviewToolPort( IntfId intf ) {
   tools_.review( intf, tapAggConfig()->toolPort( intf ) );
   if ( auto sm = toolSm( intf ) ) {
      sm->review();
   }
}

bool
TapAggSm::serves( const TapAggIntfSm & sm ) const {
   return active_ && !lagView().lagOf( sm.intf() );
}

// --- Port-channels -------------------------------------------------------------------------------

/** A port that joins is no tap or tool port of its own any more; one that leaves may be one again. */
void
TapAggSm::handlePortToLag( IntfId port, IntfId from, IntfId to ) {
   const Velto::Hold alive( this );
   later( What::tapPort, port );
   later( What::toolPort, port );
   Velto::FirstError error;
   if ( from ) {
      error.run( [&] { addOrRemoveLagPort( from, port, false ); } );
   }
   if ( to ) {
      error.run( [&] { addOrRemoveLagPort( to, port, true ); } );
   }
   error.run( [&] { settle(); } );
   error.pass();
}

void
TapAggSm::handleLagToPort( IntfId lag, IntfId ) {
   later( What::tapPort, lag );
   later( What::toolPort, lag );
   settle();
}

bool
TapAggSm::isNoMember( IntfId lag ) const {
   const bool member = lagView().role( lag ) == LagRole::member;
   if ( member ) {
      qonAssert( "Must be called on the LAG interface, not the members." ); // fixed text
   }
   return !member;
}

void
TapAggSm::addOrRemoveLagPort( IntfId lag, IntfId port, bool add ) {
   if ( !isNoMember( lag ) ) {
      return;
   }
   const Velto::Hold alive( this );
   Velto::FirstError error;
   error.run( [&] {
      if ( add ) {
         portToLagIs( port, lag );
      } else if ( portToLag( port ) == lag ) {
         portToLagDel( port );
      }
   } );
   error.run( [&] { flushLag( lag ); } );
   error.pass();
}

void
TapAggSm::flushLag( IntfId lag ) {
   if ( !isNoMember( lag ) ) {
      return;
   }
   const bool concerned = tapAggConfig()->tapPortHas( lag ) || tapAggConfig()->toolPortHas( lag );
   if ( active_ && concerned ) {
      QON_TRACE( tapAggFacility, 3, "Enqueuing flush request for intf ", lag ); // fixed text
      FlushKey key;
      key.intfIs( lag );
      in_.flushRequests->requestIs( key );
   }
}

void
TapAggSm::handleFlushReply( const FlushKey & key ) {
   if ( in_.flushReplies->replyHas( key ) && in_.flushRequests->requestHas( key ) ) {
      QON_TRACE( tapAggFacility, 3, "Deleting flush request for vlan ", key.vlan(), " intf ",
                 key.intf() ); // fixed text
      in_.flushRequests->requestDel( key );
   }
}

} // namespace Qon
