#pragma once
// A watch that calls a function: a member of whoever is no Node, or wants the change with more than
// the key.
//
//    Kiv::Listener< Config::lagAttr > groups_;
//    groups_.attach( config, [this]( const IntfId & lag ) { groupHeard( lag ); } );
//
// Invariants
// 1. The function hears what a Kiv::Watch would, at the same moment.
// 2. After its end, and after it was attached elsewhere, it hears nothing more of the entity. The
//    function may do either.

#include <functional>

#include "platform/Kiv/Entity.h"

namespace Kiv {

template< class Attr, class Key = typename Attr::Key >
struct ListenerCall {
   using Type = std::function< void( const Key & ) >;
};
template< class Attr >
struct ListenerCall< Attr, void > {
   using Type = std::function< void() >;
};

template< class Attr >
class Listener {
 public:
   using Call = typename ListenerCall< Attr >::Type;

   Listener() = default;
   Listener( const typename Attr::Owner * entity, Call call ) {
      attach( entity, std::move( call ) );
   }

   /** Listens to `entity` from now on and to no other; calls nothing. */
   void attach( const typename Attr::Owner * entity, Call call ) {
      ear_ = Velto::make< Ear >( entity, std::move( call ) );
   }
   void detach() { ear_ = nullptr; }

 private:
   struct Ear : Velto::Node {
      Ear( const typename Attr::Owner * entity, Call && c ) : call( std::move( c ) ) {
         hasNotificationActiveIs( true );
         watch.attach( this, entity );
      }
      template< class... Key >
      void heard( const Key &... key ) {
         Velto::Ptr< Ear > self( this ); // the function may end the listener
         call( key... );
      }
      static constexpr typename HandlerOf< Attr, Ear >::Type handler = &Ear::heard;
      Call call;
      Watch< Attr, Ear, handler > watch;
   };
   Velto::Ptr< Ear > ear_;
};

} // namespace Kiv
