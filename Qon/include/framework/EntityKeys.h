#pragma once
// Follows one keyed attribute of every entity of a collection: who wants to know of each
// translation of each interface watches the interfaces, and the translations of each.
//
//    directory->intf( name ) comes, goes, is another one -> entityHandler( name )
//    directory->intf( name )->key( k ) changes -----------> keyHandler( name, k )
//
//    EntityKeys< &Owner::handleIntf, &Owner::handleKey, Dir::intfAttr, &Dir::intf,
//                &Dir::intfIteratorConst, Intf::keyAttr > keys_;
//
// Invariants
// 1. It says what may have changed, not how: handlers compare.
// 2. attach() tells of every entity that there is and that there was, and of none of their keys:
//    whoever hears of an entity looks at all of it.
// 3. Nothing is told while the owner hears nothing. A handler may end the owner.
//
// Ownership: a member of the one that reacts; declare it as one of the last.

#include <memory>
#include <vector>

#include "platform/Kiv/Attr.h"
#include "platform/Velto/Scope.h"

namespace Qon {

template< class Handler >
struct OwnerOfHandler;
template< class O, class... Args >
struct OwnerOfHandler< void ( O::* )( Args... ) > {
   using Owner = O;
};

template< auto entityHandler, auto keyHandler, class DirAttr, auto entityOf, auto entitiesOf,
          class KeyAttr >
class EntityKeys {
   using Owner = typename OwnerOfHandler< decltype( keyHandler ) >::Owner;
   using Dir = typename DirAttr::Owner;
   using Name = typename DirAttr::Key;
   using Key = typename KeyAttr::Key;
   using Entity = typename KeyAttr::Owner;

 public:
   EntityKeys() = default;
   EntityKeys( const EntityKeys & ) = delete;
   EntityKeys & operator=( const EntityKeys & ) = delete;

   /** Follows `dir` from now on; null ends it, silently. */
   void attach( Owner * owner, const Dir * dir ) {
      owner_ = owner;
      dir_ = dir;
      dirWatch_.keys = this;
      dirWatch_.attach( owner, dir );
      Kiv::DenseMap< Name, Kiv::Nothing > names;
      for ( auto && entry : entities_ ) {
         names.emplace( entry.key );
      }
      if ( !dir ) {
         entities_.clear();
         return;
      }
      for ( auto i = ( dir->*entitiesOf )(); i; ++i ) {
         names.emplace( i.key() );
      }
      const Velto::Hold alive( owner );
      Velto::FirstError error;
      for ( auto && entry : names ) {
         if ( !owner->zombie() ) {
            error.run( [&] { heard( entry.key ); } );
         }
      }
      error.pass();
   }

 private:
   struct DirWatch : Kiv::WatchBase {
      DirWatch() : Kiv::WatchBase( deliver ) {}
      void attach( Velto::Node * owner, const Dir * dir ) {
         attachTo( dir, DirAttr::index + 1, owner );
      }
      static void deliver( Kiv::WatchBase & self, const void * key, int ) {
         static_cast< DirWatch & >( self ).keys->heard( *static_cast< const Name * >( key ) );
      }
      EntityKeys * keys = nullptr;
   };
   struct KeyWatch : Kiv::WatchBase {
      explicit KeyWatch( const Name & n ) : Kiv::WatchBase( deliver ), name( n ) {}
      void attach( Velto::Node * owner, const Entity * entity ) {
         attachTo( entity, KeyAttr::index + 1, owner );
      }
      const Kiv::Entity * entity() const { return entity_; }
      static void deliver( Kiv::WatchBase & self, const void * key, int ) {
         auto & watch = static_cast< KeyWatch & >( self );
         const Name name = watch.name;
         ( static_cast< Owner * >( watch.owner_ )->*keyHandler )(
               name, *static_cast< const Key * >( key ) );
      }
      const Name name;
   };

   void heard( const Name & changed ) {
      const Name name = changed;
      const Entity * now = ( dir_->*entityOf )( name );
      auto held = entities_.find( name );
      if ( now && ( !held || ( *held )->entity() != now ) ) {
         auto watch = std::make_unique< KeyWatch >( name );
         watch->attach( owner_, now );
         *entities_.emplace( name ).first = std::move( watch );
      } else if ( !now && held ) {
         entities_.erase( name );
      }
      ( owner_->*entityHandler )( name );
   }

   Owner * owner_ = nullptr;
   const Dir * dir_ = nullptr;
   Kiv::DenseMap< Name, std::unique_ptr< KeyWatch > > entities_;
   DirWatch dirWatch_;
};

} // namespace Qon
