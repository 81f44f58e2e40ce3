#include "Qon/include/multicast/MulticastReactorSm.h"

#include "Qon/multicast/MulticastTrace.h"

namespace Qon {

using Ulnet::IntfId;

MulticastReactorSm::MulticastReactorSm( Velto::Ptr< MulticastHelper > helper )
    : helper_( std::move( helper ) ), acsd_( helper_->acsd() ) {}

Velto::Ptr< MulticastReactorSm >
MulticastReactorSmIs( Velto::Ptr< MulticastHelper > helper ) {
   return smIs< MulticastReactorSm >( std::move( helper ) );
}

void
MulticastReactorSm::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   const Velto::Hold alive( this );
   lagWatch_.attach( this, acsd_.ptr() );
   portWatch_.attach( this, acsd_.ptr() );
   mlagWatch_.attach( this, acsd_.ptr() );
   intfWatch_.attach( this, acsd_.ptr() );
   parityWatch_.attach( this, acsd_.ptr() );
   // A helper that has written something may be another one's that was here before.
   const bool fresh = !helper_->overflow()->floodBitmap() && helper_->bitmapList().empty();
   Velto::FirstError error;
   error.run( [&] { helper_->addFloodEntry(); } );
   error.run( [&] { catchUp( fresh ); } );
   error.pass();
}

/** Calls the handlers for what there is, and for what was known of before. Parity errors from before
    anything was written are of no interest. */
void
MulticastReactorSm::catchUp( bool fresh ) {
   Velto::FirstError error;
   auto each = [&]( auto && now, auto && before, auto handler ) {
      auto all = keysOf< IntfId >( now );
      for ( auto && element : before ) {
         all.emplace( keyOfElement( element ) );
      }
      for ( auto && entry : all ) {
         error.run( [&] { ( this->*handler )( entry.key ); } );
      }
   };
   each( acsd_->intfIteratorConst(), helper_->portsKnown(), &MulticastReactorSm::handleIntf );
   each( acsd_->lagToPortIteratorConst(), helper_->lagsKnown(),
         &MulticastReactorSm::handleLagToPort );
   each( acsd_->mlagIntfPortIteratorConst(), mlagIntfs_, &MulticastReactorSm::handleMlagIntfPort );
   for ( auto && [key, event] : acsd_->parityEventIteratorConst() ) {
      if ( fresh ) {
         *parityEvents_.emplace( key ).first = event;
      } else {
         error.run( [&, &key = key] { handleParityEvent( key ); } );
      }
   }
   error.pass();
}

void
MulticastReactorSm::handleLagToPort( const IntfId & lag ) {
   helper_->addOrRemoveLag( lag );
}

void
MulticastReactorSm::handlePortToLag( const IntfId & port ) {
   helper_->addOrRemoveLagPort( port, acsd_->portToLagHas( port ) );
}

void
MulticastReactorSm::handleMlagIntfPort( const IntfId & port ) {
   const bool present = acsd_->mlagIntfPortHas( port );
   if ( present ? mlagIntfs_.emplace( port ).second : mlagIntfs_.erase( port ) ) {
      helper_->addOrRemoveMlagIntfPort( port );
   }
}

void
MulticastReactorSm::handleIntf( const IntfId & intf ) {
   helper_->handleAcsdIntf( intf );
}

void
MulticastReactorSm::handleParityEvent( const ParityEvent::Key & key ) {
   if ( !acsd_->parityEventHas( key ) ) {
      parityEvents_.erase( key );
      return;
   }
   const ParityEvent event = acsd_->parityEvent( key );
   auto [seen, fresh] = parityEvents_.emplace( key, event );
   if ( !fresh && std::exchange( *seen, event ) == event ) {
      return;
   }
   helper_->handleParityEvent( key.table() );
}

} // namespace Qon
