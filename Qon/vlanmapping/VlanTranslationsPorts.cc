// What the translations put on ports, and take from them.

#include "Qon/vlanmapping/VlanTranslations.h"

namespace Qon {

using Ulnet::IntfId;

/** Makes every port hold what the owner wants. Stops where there is no room. */
VlanTranslations::Status
VlanTranslations::program( IntfId intf, Direction d, Key key, bool inLag, Source apply ) {
   Status worst = Status::success;
   Velto::FirstError error;
   for ( IntfId port : targets( intf, at( intf ), inLag ) ) {
      Status status = worst;
      error.run( [&] { status = programPort( intf, port, d, key, inLag, apply ); } );
      if ( status == Status::full || status == Status::failed || worst == Status::success ||
           ( worst == Status::handedOver && status == Status::notNow ) ) {
         worst = status;
      }
      if ( worst == Status::full ) {
         break;
      }
   }
   error.pass();
   return worst;
}

VlanTranslations::Status
VlanTranslations::programPort( IntfId intf, IntfId port, Direction d, Key key, bool inLag,
                               Source apply ) {
   const Mapping mapping = entry( intf, d, key ).mapping;
   const Source owner = entry( intf, d, key ).owner;
   Entry & e = entry( port, d, key );
   const bool fresh = e.state == State::none;
   const bool same = !fresh && e.held == mapping && e.heldFor == owner;
   if ( same && apply == Source::None && e.state != State::trying ) {
      return e.state == State::held || e.state == State::handedHeld ? Status::success
             : e.state == State::handedOver                         ? Status::handedOver
                                                                    : Status::notNow;
   }
   if ( fresh && sm_->timeDelay() > 0 && !paced_ ) {
      delayed_[U8( d )].emplace( PortVlanKey::of( intf, key ) );
      auto clock = d == Direction::ingress ? sm_->codefClockIngress() : sm_->codefClockEgress();
      clock->timeMin( Kiv::now() + sm_->timeDelay() );
      return Status::notNow;
   }
   const bool update = e.state == State::held && e.heldFor == owner && !same;
   e.held = mapping;
   e.heldFor = owner;
   if ( graceful_ ) {
      return handOver( intf, port, d, key, e );
   }
   e.state = State::trying;
   const PortVlanKey portKey = PortVlanKey::of( port, key );
   const Status status = update ? sm_->callUpdate( d, intf, inLag, portKey, mapping )
                                : sm_->callAdd( d, intf, inLag, portKey, mapping );
   took( intf, port, d, key, status );
   return status;
}

/** The chip agent shall look at it, unless it has done so already. */
VlanTranslations::Status
VlanTranslations::handOver( IntfId intf, IntfId port, Direction d, Key key, Entry & e ) {
   const PortVlanKey portKey = PortVlanKey::of( port, key );
   const IntfId lag = intf == port ? IntfId() : intf;
   const auto before = directory( d )->vlanMappingConfig( portKey );
   if ( e.state != State::handedNotNow && directory( d )->vlanMappingConfigHas( portKey ) &&
        before == QonVlanMappingConfig( e.held, lag, e.heldFor, e.version ) ) {
      return e.state == State::handedHeld ? Status::success : Status::handedOver;
   }
   e.state = State::handedOver;
   e.version = ++version_;
   directory( d )->vlanMappingConfigIs( portKey, { e.held, lag, e.heldFor, e.version } );
   return Status::handedOver;
}

/** A hook's answer. After a refusal there may be something to remove. */
void
VlanTranslations::took( IntfId intf, IntfId port, Direction d, Key key, Status status ) {
   Entry & e = entry( port, d, key );
   switch ( status ) {
   case Status::success:
      e.state = State::held;
      return;
   case Status::notNow:
      e.state = State::notNow;
      sm_->doAddToUnprogrammedList( intf, key, d, e.heldFor );
      return;
   case Status::handedOver:
      e.state = State::handedOver;
      handing_ = true;
      return;
   case Status::full:
   case Status::failed:
      return;
   }
}

void
VlanTranslations::removePort( IntfId intf, IntfId port, Direction d, Key key ) {
   auto held = find( port, d, key );
   if ( !held || held->state == State::none ) {
      return;
   }
   const PortVlanKey portKey = PortVlanKey::of( port, key );
   if ( graceful_ ) {
      entry( port, d, key ).state = State::none;
      directory( d )->vlanMappingConfigDel( portKey );
   } else {
      entry( port, d, key ).state = State::trying; // whatever a hook that raises has done
      sm_->callDel( d, intf, isLag( intf ), portKey );
      entry( port, d, key ).state = State::none;
   }
   if ( port != intf && entry( port, d, key ).empty() ) {
      at( port ).entries[U8( d )].erase( key );
   }
   publishPort( intf, port, d, key );
}

void
VlanTranslations::reviewPort( IntfId port ) {
   const IntfId now = LagView( sm_->acsd() ).lagOf( port );
   const IntfId before = at( port ).ruler;
   if ( now == before ) {
      return;
   }
   Velto::FirstError error;
   error.run( [&] { clearPort( port, before ? before : port ); } );
   at( port ).ruler = now;
   if ( before ) {
      std::erase( at( before ).members, port );
      at( before ).givenUp.clear();
      error.run( [&] { unpublishMember( before, port ); } );
   }
   if ( now ) {
      at( now ).members.push_back( port );
      at( now ).givenUp.clear();
   }
   for ( IntfId intf : { before, now, port } ) {
      if ( intf ) {
         for ( Source source : qonVlanMappingSources ) {
            askAll( intf, source, false );
         }
      }
   }
   error.pass();
}

/** Takes everything from the port that `ruler` has there. */
void
VlanTranslations::clearPort( IntfId port, IntfId ruler ) {
   Velto::FirstError error;
   for ( Direction d : Bridging::vlanMappingDirections ) {
      std::vector< Key > keys;
      for ( auto && [key, held] : at( port ).entries[U8( d )] ) {
         if ( held.state != State::none ) {
            keys.push_back( key );
         }
      }
      for ( Key key : keys ) {
         if ( !error.run( [&] { removePort( ruler, port, d, key ); } ) ) {
            ask( { What::sweep, d, Source::None, port, key } );
         }
      }
   }
   error.pass();
}

/** Once more what could not be removed when the port changed its ruler. */
void
VlanTranslations::sweep( IntfId port, Direction d, Key key ) {
   const IntfId ruler = rulerOf( port );
   auto owned = find( ruler, d, key );
   if ( !owned || owned->owner == Source::None ) {
      removePort( ruler, port, d, key );
   }
   publishPort( ruler, port, d, key );
   if ( auto left = find( port, d, key ); left && left->empty() ) {
      at( port ).entries[U8( d )].erase( key );
   }
}

} // namespace Qon
