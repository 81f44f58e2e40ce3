#pragma once
// A watch that calls a function: how checks hear of what is published, at the moment it is.

#include <functional>

#include "platform/Kiv/Entity.h"

namespace Sim {

template< class Attr >
class Listener : public Velto::Node {
   using Key = typename Attr::Key;

 public:
   using Call = std::function< void( const Key & ) >;

   Listener( const typename Attr::Owner * entity, Call call ) : call_( std::move( call ) ) {
      hasNotificationActiveIs( true );
      watch_.attach( this, entity );
   }

 private:
   void heard( const Key & key ) { call_( key ); }
   Call call_;
   Kiv::Watch< Attr, Listener, &Listener::heard > watch_;
};

} // namespace Sim
