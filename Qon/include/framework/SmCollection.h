#pragma once
// One child state machine for each key of a collection of inputs.
//
//    owner's handler( key ) -> review( key, what is wanted now )
//       not held, wanted            make( key, input ), then initializedIs( true ) of the child
//       held, same input            nothing, or initializedIs( true ) after rest()
//       held, another input         clean-up of the child, then make
//       held, not wanted            clean-up of the child, then it is erased
//
//    SmCollection< Ulnet::IntfId, Velto::Ptr< const Status >, StatusSm, LagSm,
//                  &LagSm::makeStatusSm, &LagSm::cleanUpStatusSm > status_;
//
// An input is whatever a child stands for: a counted pointer to an entity, a bool, a value. An
// empty one (false as a bool) means that no child is wanted. The collection keeps the input, so
// that an entity which is deleted and created again under its key is another one for certain.
//
// Invariants
// 1. A child is in the collection before it is initialized, and until its clean-up has returned.
// 2. A child is made, initialized and cleaned up once. After its clean-up it hears nothing more.
// 3. make and the clean-up may call review(), of the same key too: what was asked for last holds
//    when the outermost call returns.
// 4. Order is that of the first making; a child that is replaced keeps its place.
// 5. The owner may end inside a callback: it lives until the call that it is in returns, and what
//    was asked for is done.
// 6. An exception of a callback passes to the caller. The child is there if it was made, and gone if
//    its clean-up was called; the key can be reviewed again. reviewAll() and removeAll() go on with
//    the other keys first.
//
// Ownership: the collection counts children and inputs. Its destruction cleans nothing up: it makes
// the children zombies and releases them.

#include <vector>

#include "Qon/include/framework/Reconcile.h"
#include "platform/Velto/Scope.h"

namespace Qon {

/** `make` is `Velto::Ptr< Sm > Owner::f( const K &, const Input & )`: it constructs, and has no
    effects (those are for the child's handleInitialized).
    `cleanUp` is `void Owner::f( const K &, Sm * )`: it undoes what the child did. */
template< class K, class Input, class Sm, class Owner,
          Velto::Ptr< Sm > ( Owner::*make )( const K &, const Input & ),
          void ( Owner::*cleanUp )( const K &, Sm * ) >
class SmCollection {
   struct Child {
      Input input{};  // of `sm`
      Input wanted{}; // what was asked for last
      bool busy = false;
      Velto::Ptr< Sm > sm;
   };
   using Children = Kiv::DenseMap< K, Child >;

 public:
   explicit SmCollection( Owner * owner ) : owner_( owner ) {}
   SmCollection( const SmCollection & ) = delete;
   SmCollection & operator=( const SmCollection & ) = delete;
   ~SmCollection() { kivDoZombieReactors(); }

   /** The child of `key`, or null. */
   Sm * sm( const K & key ) const {
      auto child = children_.find( key );
      return child ? child->sm.ptr() : nullptr;
   }
   bool has( const K & key ) const { return sm( key ) != nullptr; }
   U32 size() const { return children_.size(); }

   /** Makes true that the child of `key` stands for `wanted`. Idempotent. */
   void review( const K & key, const Input & wanted ) {
      Child * child = wanted ? children_.emplace( key ).first : children_.find( key );
      if ( !child ) {
         return;
      }
      if ( child->input == wanted && !child->busy ) {
         wake( *child );
         return;
      }
      child->wanted = wanted;
      if ( !child->busy ) {
         settle( K( key ), *child );
      }
   }

   /** review(), then sm( key ), for one who holds the owner: a single look-up where the child is as
       it shall be. */
   Sm * reviewed( const K & key, const Input & wanted ) {
      auto child = children_.find( key );
      if ( child && !child->busy && child->input == wanted && child->sm &&
           child->sm->initialized() ) {
         return child->sm.ptr();
      }
      review( key, wanted );
      return sm( key );
   }

   /** Reviews every key that is held or in `keys` (a range as in Reconcile.h); `wanted( key )` is
       asked for each when its turn comes. */
   template< class Keys, class Wanted >
   void reviewAll( Keys && keys, Wanted && wanted ) {
      std::vector< K > all = heldKeys();
      for ( auto && element : keys ) {
         if ( !children_.has( keyOfElement( element ) ) ) {
            all.push_back( keyOfElement( element ) );
         }
      }
      const Velto::Hold alive( owner_ );
      Velto::FirstError error;
      for ( const K & key : all ) {
         error.run( [&] { review( key, wanted( key ) ); } );
      }
      error.pass();
   }

   /** For an owner whose `initialized` went to false: so does that of the children. Each begins
       again when it is reviewed. */
   void rest() {
      forEach( []( const K &, Sm & sm ) { sm.initializedIs( false ); } );
   }

   /** Cleans up every child, in order. */
   void removeAll() {
      reviewAll( KeySet< K >(), []( const K & ) { return Input(); } );
   }

   std::vector< K > heldKeys() const {
      std::vector< K > keys;
      keys.reserve( children_.size() );
      for ( auto && [key, child] : children_ ) {
         keys.push_back( key );
      }
      return keys;
   }

   /** Calls `act( key, Sm & )` for each child, which may change the collection. */
   template< class Act >
   void forEach( Act && act ) const {
      const Velto::Hold alive( owner_ );
      for ( auto && [key, child] : children_ ) {
         if ( Velto::Ptr< Sm > held = child.sm ) {
            act( key, *held );
         }
      }
   }

   /** For the owner's own: no child hears anything more. */
   void kivDoZombieReactors() {
      for ( auto && [key, child] : children_ ) {
         if ( child.sm ) {
            child.sm->kivDoZombieReactors();
         }
      }
   }

 private:
   static void wake( const Child & child ) {
      if ( Velto::Ptr< Sm > sm = child.sm ) {
         sm->initializedIs( true );
      }
   }
   void settle( const K & key, Child & child ) {
      const Velto::Hold alive( owner_ );
      bool gone = false;
      const Velto::AtEnd forgotten( [&] {
         if ( gone ) {
            children_.erase( key );
         }
      } );
      // Others may come and go meanwhile; while a walk is open, none moves.
      const typename Children::Walk steady( children_ );
      child.busy = true;
      const Velto::AtEnd done( [&] {
         child.busy = false;
         gone = !child.sm;
      } );
      Velto::FirstError error;
      while ( !( child.input == child.wanted ) ) {
         error.run( [&] { child.sm ? end( key, child ) : begin( key, child ); } );
      }
      error.pass();
   }
   void begin( const K & key, Child & child ) {
      child.input = child.wanted;
      Velto::Ptr< Sm > fresh = ( owner_->*make )( key, Input( child.input ) );
      child.sm = fresh;
      fresh->initializedIs( true );
   }
   void end( const K & key, Child & child ) {
      Velto::Ptr< Sm > old = child.sm;
      const Velto::AtEnd done( [&] {
         old->kivDoZombieReactors();
         child.sm = nullptr;
         child.input = Input();
      } );
      ( owner_->*cleanUp )( key, old.ptr() );
   }

   Owner * owner_;
   Children children_;
};

} // namespace Qon
