#include "Qon/include/framework/LagView.h"

#include "Qon/include/framework/Reconcile.h"
#include "platform/Velto/Scope.h"

namespace Qon {

namespace {

/** Those of `ports` that `others` has not. Groups are small: to look through them is faster than to
    make sets of them. */
template< class Ports, class Others >
std::vector< Ulnet::IntfId >
portsWithout( const Ports & ports, const Others & others ) {
   std::vector< Ulnet::IntfId > result;
   for ( auto & element : ports ) {
      if ( !others.portHas( keyOfElement( element ) ) ) {
         result.push_back( keyOfElement( element ) );
      }
   }
   return result;
}

} // namespace

void
LagFollowerBase::attachTo( Velto::Node * owner, const QonCommonSmData * acsd ) {
   acsd_ = acsd;
   owner_ = owner;
   portWatch_.attach( owner, acsd );
   lagWatch_.attach( owner, acsd );
   if ( !acsd ) {
      return;
   }
   const Velto::Ptr< Velto::Node > keep( owner );
   auto ports = keysOf< Ulnet::IntfId >( lagOf_ );
   for ( auto && [port, lag] : acsd->portToLagIteratorConst() ) {
      ports.emplace( port );
   }
   Velto::FirstError error;
   for ( auto && entry : ports ) {
      error.run( [&] { handlePortToLag( entry.key ); } );
   }
   auto lags = keysOf< Ulnet::IntfId >( portsOf_ );
   for ( auto && [lag, list] : acsd->lagToPortIteratorConst() ) {
      lags.emplace( lag );
   }
   for ( auto && entry : lags ) {
      error.run( [&] { handleLagToPort( entry.key ); } );
   }
   error.pass();
}

void
LagFollowerBase::handlePortToLag( const Ulnet::IntfId & port ) {
   if ( !acsd_ ) {
      return;
   }
   const Ulnet::IntfId now = LagView( acsd_ ).lagOf( port );
   const Ulnet::IntfId before = lagOf( port );
   if ( now == before ) {
      return;
   }
   if ( now ) {
      *lagOf_.emplace( port ).first = now;
   } else {
      lagOf_.erase( port );
   }
   tell_( owner_, port, before, now );
}

void
LagFollowerBase::handleLagToPort( const Ulnet::IntfId & lag ) {
   if ( !acsd_ || !tellList_ ) {
      return;
   }
   const auto & now = acsd_->lagToPort( lag );
   auto & told = *portsOf_.emplace( lag ).first;
   const auto gone = portsWithout( told, now ), missing = portsWithout( now, told );
   for ( Ulnet::IntfId port : gone ) {
      told.portDel( port );
   }
   for ( Ulnet::IntfId port : missing ) {
      told.portIs( port );
   }
   if ( told.ports() == 0 ) {
      portsOf_.erase( lag );
   }
   const Velto::Ptr< Velto::Node > keep( owner_ );
   Velto::FirstError error;
   for ( auto * ports : { &gone, &missing } ) {
      for ( Ulnet::IntfId port : *ports ) {
         error.run( [&] { tellList_( owner_, lag, port ); } );
      }
   }
   error.pass();
}

} // namespace Qon
