#pragma once
// Entities: named, counted objects whose attributes can be watched.
//
//    setter: compare -> store -> kivPublish --> Watch 1 -> handler of its owner
//                                           `-> Watch 2 -> ...
//
// Invariants
// 1. Delivery is synchronous, inside the setter, in the order of attachment; a change made by a
//    handler is delivered before the next watcher of the outer change is called.
// 2. Who is detached or dead hears nothing more, also in the middle of a delivery; who attaches
//    in the middle of one hears from the next change on.
// 3. Nothing touches the entity after its watchers have been called: a handler may end it.
// 4. An entity that nobody watches pays one pointer, and its setters one load and one branch.
//
// Ownership: a watch belongs to the object that reacts and detaches when it is destroyed. An
// entity that dies detaches its watches.

#include <type_traits>

#include "platform/Velto/Assert.h"
#include "platform/Velto/Node.h"
#include "platform/Velto/Types.h"

namespace Kiv {

using Velto::String;
class Entity;
struct TypeData;

/** Overload rank: gives each attribute of a class its index, in order of declaration. */
template< int n >
struct Rank : Rank< n - 1 > {};
template<>
struct Rank< 0 > {};
constexpr int maxAttributes = 96;
template< int n >
using Index = std::integral_constant< int, n >;

/** What connects one attribute of one entity to one handler. Use Watch or EntityWatch. */
class WatchBase {
 public:
   WatchBase( const WatchBase & ) = delete;
   WatchBase & operator=( const WatchBase & ) = delete;

   bool attached() const { return entity_ != nullptr; }
   /** Ends the watch; nothing more is delivered, not even what is under way. */
   void detach();

 protected:
   using Deliver = void ( * )( WatchBase &, const void * key, int attribute );
   explicit WatchBase( Deliver deliver ) : deliver_( deliver ) {}
   ~WatchBase() {
      if ( entity_ ) {
         detach();
      }
   }
   /** Moves the watch to `entity` (null detaches), behind the watches that it has. */
   void attachTo( const Entity * entity, int slot, Velto::Node * owner );

   const Entity * entity_ = nullptr;
   Velto::Node * owner_ = nullptr;

 private:
   friend class Entity;

   Deliver deliver_;
   WatchBase * next_ = nullptr;
   WatchBase * prev_ = nullptr;
   int slot_ = 0;
};

class Entity : public Velto::Node {
 public:
   explicit Entity( const String & name );
   ~Entity() override;

   /** Empty for an entity that is known by its key only. */
   const String & name() const;

   static Index< 0 > kivCount( Rank< 0 > );
   static const TypeData kivTypeData;

 protected:
   Entity() = default;

   const Entity * kivSelfEntity() const { return this; }
   bool kivWatched() const { return watches_ != nullptr; }
   void kivPublish( int attribute ) const {
      if ( watches_ ) [[unlikely]] {
         kivDeliver( attribute, nullptr );
      }
   }
   /** The key is copied first: the watchers' copy outlives whatever it came from. */
   template< class K >
   void kivPublish( int attribute, const K & key ) const {
      if ( watches_ ) [[unlikely]] {
         const K copy( key );
         kivDeliver( attribute, &copy );
      }
   }
   void kivDeliver( int attribute, const void * key ) const;

 private:
   friend class WatchBase;
   friend class DeathNotice;

   struct List {
      WatchBase * first = nullptr;
      WatchBase * last = nullptr;
   };
   /** One list per attribute up to the highest that was ever watched; list 0 hears all. */
   struct WatchTable {
      int lists;
      List list[1];
   };

   void deliverTo( int slot, const void * key, int attribute ) const;
   void link( WatchBase * watch ) const;
   void unlink( WatchBase * watch ) const;
   List & listOf( int slot ) const;

   mutable WatchTable * watches_ = nullptr;
   String * name_ = nullptr;
};

/** Tells a function that calls handlers whether `entity` is still there. Lives on the stack. */
class DeathNotice {
 public:
   explicit DeathNotice( const Entity * entity );
   ~DeathNotice();
   DeathNotice( const DeathNotice & ) = delete;
   DeathNotice & operator=( const DeathNotice & ) = delete;
   bool alive() const { return entity_ != nullptr; }

 private:
   friend class Entity;
   const Entity * entity_;
   DeathNotice * outer_;
};

template< class Attr, class Owner >
struct HandlerOf {
   using Type = void ( Owner::* )( const typename Attr::Key & );
};
template< class Attr, class Owner >
requires std::is_void_v< typename Attr::Key >
struct HandlerOf< Attr, Owner > {
   using Type = void ( Owner::* )();
};

/** A watch on one attribute: `Kiv::Watch< TopoConfig::topoIdAttr, TopoSm, &TopoSm::handleTopoId >`.
    A handler of a keyed attribute takes `const Key &`, of any other attribute nothing. Nothing is
    delivered while the owner is a zombie or has no active notification.
    Declare watches as the last members of their owner. */
template< class Attr, class Owner, typename HandlerOf< Attr, Owner >::Type handler >
class Watch : public WatchBase {
 public:
   using Watched = typename Attr::Owner;

   Watch() : WatchBase( deliver ) {}
   /** Watches `entity` from now on and no other; null detaches. Calls nothing. */
   void attach( Owner * owner, const Watched * entity ) {
      attachTo( entity, Attr::index + 1, owner );
   }
   const Watched * entity() const { return static_cast< const Watched * >( entity_ ); }

 private:
   static void deliver( WatchBase & self, const void * key, int ) {
      auto owner = static_cast< Owner * >( static_cast< Watch & >( self ).owner_ );
      if constexpr ( std::is_void_v< typename Attr::Key > ) {
         ( owner->*handler )();
      } else {
         ( owner->*handler )( *static_cast< const typename Attr::Key * >( key ) );
      }
   }
};

/** A watch on every attribute of an entity, of whatever type; for tools. */
class EntityWatch : public WatchBase {
 public:
   using Handler = void ( * )( void * context, const Entity &, int attribute, const void * key );

   EntityWatch() : WatchBase( deliver ) {}
   /** `handler( context, ... )` is called while `owner` hears. */
   void attach( Velto::Node * owner, const Entity * entity, Handler handler, void * context ) {
      handler_ = handler;
      context_ = context;
      attachTo( entity, 0, owner );
   }

 private:
   static void deliver( WatchBase & self, const void * key, int attribute ) {
      auto & watch = static_cast< EntityWatch & >( self );
      watch.handler_( watch.context_, *watch.entity_, attribute, key );
   }
   Handler handler_ = nullptr;
   void * context_ = nullptr;
};

} // namespace Kiv
