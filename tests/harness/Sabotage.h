#pragma once
// Watchers that do the worst: at the n-th change of what a state machine writes, one drops the last
// reference to the state machine, or raises.
//
//    Tests::sabotage( [&]( Tests::Saboteur & saboteur ) {
//       FeatureWorld w;
//       saboteur.watches( { w.output.ptr() } );
//       saboteur.drops( w.sm );
//       saboteur.does( [&] { w.start(); } );            each step that writes
//       saboteur.ends( [&] { return w.broken(); } );    what does not hold when nothing was dropped
//    } );
//
// The flow is run once for every change that it makes, for both; under the address sanitizer whoever
// touches itself after its end is found. Entities that the watched ones come to own are watched too.
//
// drops( w.sm ) in place of a function also sees that one whose reactors are dead, but that somebody
// still holds, is as silent as one that is gone: its children hear nothing either.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <set>
#include <vector>

#include "platform/Kiv/Attr.h"
#include "platform/Velto/Assert.h"

namespace Tests {

/** What happens at the n-th change; or, to a state machine, after the n-th step. */
enum class Sabotage : U8 { drops, raises, gone, dead };

class Saboteur : public Velto::Node {
 public:
   Saboteur( U32 at, Sabotage what ) : at_( at ), what_( what ) { hasNotificationActiveIs( true ); }
   ~Saboteur() override { EXPECT_TRUE( dead_.empty() ) << "a flow closes with ends()"; }

   void watches( std::initializer_list< const Kiv::Entity * > entities ) {
      for ( auto entity : entities ) {
         watch( entity );
      }
   }
   void drops( std::function< void() > drop ) { drop_ = std::move( drop ); }
   template< class... Sm >
   void drops( Velto::Ptr< Sm > &... sm ) {
      drop_ = [this, &sm...] {
         if ( what_ == Sabotage::dead ) {
            dead_ = { Velto::Ptr< Velto::Node >( sm.ptr() )... };
            ( sm->kivDoZombieReactors(), ... );
         }
         ( ( sm = nullptr ), ... );
      };
   }
   /** One step of the flow; what the saboteur raises ends it. */
   void does( const std::function< void() > & step ) {
      try {
         step();
      } catch ( const Velto::RangeError & error ) {
         EXPECT_STREQ( error.what(), "sabotage" );
         ++caught_;
      }
      if ( afterwards() && ++steps_ == at_ ) {
         struck_ = true;
         drop_();
         changes_ = 0; // its end may write
      }
   }
   void ends( const std::function< Velto::String() > & broken ) {
      const U32 changes = changes_;
      dead_.clear(); // while the world that it stands in lives
      changes_ = changes;
      if ( what_ == Sabotage::raises ) {
         EXPECT_EQ( broken(), "" ) << "after an exception at change " << at_;
         EXPECT_EQ( caught_, struck_ ? 1u : 0u ) << "change " << at_;
      }
   }
   bool struck() const { return struck_; }
   /** All, or those after the end of the state machine. */
   U32 changes() const { return changes_; }
   /** Another change than those of entities. */
   void change() {
      ++changes_;
      if ( afterwards() || changes_ != at_ ) {
         return;
      }
      struck_ = true;
      if ( what_ == Sabotage::raises ) {
         throw Velto::RangeError( "sabotage" );
      }
      drop_();
   }

 private:
   void watch( const Kiv::Entity * entity ) {
      if ( entity && known_.insert( entity ).second ) {
         watches_.push_back( std::make_unique< Kiv::EntityWatch >() );
         watches_.back()->attach( this, entity, heard, this );
         watchOwned( *entity );
      }
   }
   void watchOwned( const Kiv::Entity & entity ) {
      for ( auto type = entity.typeData(); type; type = type->base ) {
         for ( int i = 0; i < type->count; ++i ) {
            const auto & attr = type->attrs[i];
            if ( attr.kind == Kiv::AttrKind::ownedEntity ) {
               watch( static_cast< const Kiv::Entity * >(
                     static_cast< const Velto::Node * >( attr.at( entity, nullptr ) ) ) );
            } else if ( attr.kind == Kiv::AttrKind::entities ) {
               attr.each( entity, [this]( const void *, const void * value ) {
                  watch( static_cast< const Kiv::Entity * >(
                        static_cast< const Velto::Node * >( value ) ) );
               } );
            }
         }
      }
   }
   static void heard( void * context, const Kiv::Entity & entity, int, const void * ) {
      auto self = static_cast< Saboteur * >( context );
      self->watchOwned( entity );
      self->change();
   }

   bool afterwards() const { return what_ == Sabotage::gone || what_ == Sabotage::dead; }

   const U32 at_;
   const Sabotage what_;
   U32 changes_ = 0, steps_ = 0, caught_ = 0;
   bool struck_ = false;
   std::function< void() > drop_;
   std::vector< Velto::Ptr< Velto::Node > > dead_;
   std::set< const Kiv::Entity * > known_;
   std::vector< std::unique_ptr< Kiv::EntityWatch > > watches_;
};

/** Runs the flow until the saboteur comes too late, and with a state machine that is gone, or dead. */
inline void
sabotage( const std::function< void( Saboteur & ) > & flow ) {
   for ( Sabotage what : { Sabotage::drops, Sabotage::raises } ) {
      U32 changes = 0;
      for ( bool struck = true; struck && !testing::Test::HasFailure(); ++changes ) {
         auto saboteur = Velto::make< Saboteur >( changes + 1, what );
         flow( *saboteur );
         struck = saboteur->struck();
      }
      EXPECT_GT( changes, 3u ) << "the flow makes no changes";
   }
   for ( U32 steps = 1; !testing::Test::HasFailure(); ++steps ) {
      auto gone = Velto::make< Saboteur >( steps, Sabotage::gone );
      flow( *gone );
      if ( !gone->struck() ) {
         break;
      }
      auto dead = Velto::make< Saboteur >( steps, Sabotage::dead );
      flow( *dead );
      EXPECT_EQ( dead->changes(), gone->changes() ) << "dead after step " << steps;
   }
}

} // namespace Tests
