// What the translations put on ports, and take from them.

#include "Qon/vlanmapping/VlanTranslations.h"

namespace Qon {

using Ulnet::IntfId;

/** Makes every port hold what the owner wants. Stops where there is no room. */
VlanTranslations::Status
VlanTranslations::program( const Place & p, bool inLag, Source apply ) {
   Status worst = Status::success;
   Velto::FirstError error;
   for ( IntfId port : targets( p, inLag ) ) {
      Status status = worst;
      error.run( [&] { status = programPort( p, port, inLag, apply ); } );
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
VlanTranslations::programPort( const Place & p, IntfId port, bool inLag, Source apply ) {
   const Direction d = p.direction;
   const Mapping mapping = p.entry().mapping;
   const Source owner = p.entry().owner;
   Entry & e = held( p, port );
   const bool fresh = e.state == State::none;
   const bool same = !fresh && e.held == mapping && e.heldFor == owner;
   if ( same && apply == Source::None && e.state != State::trying ) {
      return e.state == State::held || e.state == State::handedHeld ? Status::success
             : e.state == State::handedOver                         ? Status::handedOver
                                                                    : Status::notNow;
   }
   if ( fresh && sm_->timeDelay() > 0 && !paced_ ) {
      delayed_[U8( d )].emplace( PortVlanKey::of( p.intf, p.key ) );
      auto clock = d == Direction::ingress ? sm_->codefClockIngress() : sm_->codefClockEgress();
      clock->timeMin( Kiv::now() + sm_->timeDelay() );
      return Status::notNow;
   }
   const bool update = e.state == State::held && e.heldFor == owner && !same;
   e.held = mapping;
   e.heldFor = owner;
   if ( graceful_ ) {
      return handOver( p, port, e );
   }
   e.state = State::trying;
   const PortVlanKey portKey = PortVlanKey::of( port, p.key );
   const Status status = update ? sm_->callUpdate( d, p.intf, inLag, portKey, mapping )
                                : sm_->callAdd( d, p.intf, inLag, portKey, mapping );
   took( p, port, status );
   return status;
}

/** The chip agent shall look at it, unless it has done so already. */
VlanTranslations::Status
VlanTranslations::handOver( const Place & p, IntfId port, Entry & e ) {
   const PortVlanKey portKey = PortVlanKey::of( port, p.key );
   const IntfId lag = p.intf == port ? IntfId() : p.intf;
   auto dir = directory( p.direction );
   const auto before = dir->vlanMappingConfig( portKey );
   if ( e.state != State::handedNotNow && dir->vlanMappingConfigHas( portKey ) &&
        before == QonVlanMappingConfig( e.held, lag, e.heldFor, e.version ) ) {
      return e.state == State::handedHeld ? Status::success : Status::handedOver;
   }
   e.state = State::handedOver;
   e.version = ++version_;
   dir->vlanMappingConfigIs( portKey, { e.held, lag, e.heldFor, e.version } );
   return Status::handedOver;
}

/** A hook's answer. After a refusal there may be something to remove. */
void
VlanTranslations::took( const Place & p, IntfId port, Status status ) {
   Entry & e = held( p, port );
   switch ( status ) {
   case Status::success:
      e.state = State::held;
      return;
   case Status::notNow:
      e.state = State::notNow;
      sm_->doAddToUnprogrammedList( p.intf, p.key, p.direction, e.heldFor );
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
VlanTranslations::removePort( const Place & p, IntfId port ) {
   auto there = find( port, p.direction, p.key );
   if ( !there || there->state == State::none ) {
      return;
   }
   const PortVlanKey portKey = PortVlanKey::of( port, p.key );
   if ( graceful_ ) {
      held( p, port ).state = State::none;
      directory( p.direction )->vlanMappingConfigDel( portKey );
   } else {
      held( p, port ).state = State::trying; // whatever a hook that raises has done
      sm_->callDel( p.direction, p.intf, p.lag(), portKey );
      held( p, port ).state = State::none;
   }
   if ( port != p.intf && held( p, port ).empty() ) {
      at( port ).entries[U8( p.direction )].erase( p.key );
   }
   publishPort( p, port );
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
         if ( !error.run( [&] { removePort( place( ruler, d, key ), port ); } ) ) {
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
      removePort( place( ruler, d, key ), port );
   }
   publishPort( place( ruler, d, key ), port );
   if ( auto left = find( port, d, key ); left && left->empty() ) {
      at( port ).entries[U8( d )].erase( key );
   }
}

} // namespace Qon
