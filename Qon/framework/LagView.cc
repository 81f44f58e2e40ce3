#include "Qon/include/framework/LagView.h"

#include "Qon/include/framework/Reconcile.h"

namespace Qon {

void
LagFollowerBase::attachTo( Velto::Node * owner, const QonCommonSmData * acsd ) {
   acsd_ = acsd;
   owner_ = owner;
   portWatch_.attach( owner, acsd );
   lagWatch_.attach( owner, acsd );
   if ( !acsd ) {
      return;
   }
   auto ports = keysOf< Ulnet::IntfId >( lagOf_ );
   for ( auto && [port, lag] : acsd->portToLagIteratorConst() ) {
      ports.emplace( port );
   }
   for ( auto && entry : ports ) {
      handlePortToLag( entry.key );
   }
}

void
LagFollowerBase::handlePortToLag( const Ulnet::IntfId & port ) {
   if ( !acsd_ ) {
      return;
   }
   const Ulnet::IntfId now = LagView( acsd_ ).lagOf( port );
   const Ulnet::IntfId before = lagOf( port );
   if ( now != before ) {
      told( port, before, now );
      tell_( owner_, port, before, now );
   }
}

void
LagFollowerBase::handleLagToPort( const Ulnet::IntfId & lag ) {
   auto held = portsOf_.find( lag );
   auto ports = held ? keysOf< Ulnet::IntfId >( *held ) : KeySet< Ulnet::IntfId >();
   for ( auto & [port, flags] : acsd_->lagToPort( lag ) ) {
      ports.emplace( port );
   }
   for ( auto && entry : ports ) {
      handlePortToLag( entry.key );
   }
}

void
LagFollowerBase::told( Ulnet::IntfId port, Ulnet::IntfId from, Ulnet::IntfId to ) {
   if ( auto ports = portsOf_.find( from ) ) {
      ports->portDel( port );
      if ( ports->ports() == 0 ) {
         portsOf_.erase( from );
      }
   }
   if ( to ) {
      *lagOf_.emplace( port ).first = to;
      portsOf_.emplace( to ).first->portIs( port );
   } else {
      lagOf_.erase( port );
   }
}

} // namespace Qon
