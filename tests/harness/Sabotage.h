#pragma once
// Watchers that do the worst: at the n-th change of what a state machine writes, one drops the last
// reference to the state machine, or raises.
//
//    Tests::sabotage( [&]( Tests::Saboteur & saboteur ) {
//       FeatureWorld w;
//       saboteur.watches( { w.output.ptr() } );
//       saboteur.drops( [&] { w.sm = nullptr; } );
//       saboteur.does( [&] { w.start(); } );            each step that writes
//       saboteur.ends( [&] { return w.broken(); } );    what does not hold when nothing was dropped
//    } );
//
// The flow is run once for every change that it makes, for both; under the address sanitizer whoever
// touches itself after its end is found. Entities that the watched ones come to own are watched too.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <set>
#include <vector>

#include "platform/Kiv/Attr.h"
#include "platform/Velto/Assert.h"

namespace Tests {

class Saboteur : public Velto::Node {
 public:
   Saboteur( U32 at, bool raises ) : at_( at ), raises_( raises ) {
      hasNotificationActiveIs( true );
   }

   void watches( std::initializer_list< const Kiv::Entity * > entities ) {
      for ( auto entity : entities ) {
         watch( entity );
      }
   }
   void drops( std::function< void() > drop ) { drop_ = std::move( drop ); }
   /** One step of the flow; what the saboteur raises ends it. */
   void does( const std::function< void() > & step ) {
      try {
         step();
      } catch ( const Velto::RangeError & error ) {
         EXPECT_STREQ( error.what(), "sabotage" );
         ++caught_;
      }
   }
   void ends( const std::function< Velto::String() > & broken ) {
      if ( raises_ ) {
         EXPECT_EQ( broken(), "" ) << "after an exception at change " << at_;
         EXPECT_EQ( caught_, struck_ ? 1u : 0u ) << "change " << at_;
      }
   }
   bool struck() const { return struck_; }
   /** Another change than those of entities. */
   void change() {
      if ( ++changes_ == at_ ) {
         struck_ = true;
         if ( raises_ ) {
            throw Velto::RangeError( "sabotage" );
         }
         drop_();
      }
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

   const U32 at_;
   const bool raises_;
   U32 changes_ = 0, caught_ = 0;
   bool struck_ = false;
   std::function< void() > drop_;
   std::set< const Kiv::Entity * > known_;
   std::vector< std::unique_ptr< Kiv::EntityWatch > > watches_;
};

/** Runs the flow until the saboteur comes too late. */
inline void
sabotage( const std::function< void( Saboteur & ) > & flow ) {
   for ( bool raises : { false, true } ) {
      U32 changes = 0;
      for ( bool struck = true; struck && !testing::Test::HasFailure(); ++changes ) {
         auto saboteur = Velto::make< Saboteur >( changes + 1, raises );
         flow( *saboteur );
         struck = saboteur->struck();
      }
      EXPECT_GT( changes, 3u ) << "the flow makes no changes";
   }
}

} // namespace Tests
