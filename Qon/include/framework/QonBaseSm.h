#pragma once
// The two bases of the library: QonBaseSm under every state machine, QonBaseHelper under every
// object that talks to hardware.
//
//    hosting agent -> XSmIs( inputs... )     constructs, sets hasNotificationActive
//                  -> sm->initializedIs( true ) -> handleInitialized(): attach, then walk
//    changes, clocks -> handleX()
//
// Invariants
// 1. handleInitialized runs once for each change of `initialized`, to true and back to false; a
//    handler that cares asks initialized().
// 2. From false on no handler of a change or a clock is called, until `initialized` is true again.
//    Nothing is torn down, and nothing that happened meanwhile is told: handleInitialized compares
//    all inputs with what was done of them, of entities that did not change too.
// 3. A dying state machine hears nothing from the release of its last pointer on.
// 4. Destruction never calls a hook; undoing hardware is doCleanup()'s, where a class has it.

#include "Qon/include/framework/QonAssert.h"
#include "platform/Kiv/Attr.h"
#include "platform/Velto/Scope.h"

namespace Qon {

class QonBaseSm : public Velto::Node {
 public:
   QonBaseSm() = default;

   bool initialized() const { return initialized_; }
   void initializedIs( bool v ) {
      if ( initialized_ != v ) {
         const Velto::Hold alive( this );
         initialized_ = v;
         kivPausedIs( !v );
         handleInitialized();
      }
   }
   /** A derived class attaches its reactors here and programs the initial state. Must be
       idempotent: it runs again when `initialized` goes to false and back to true, which also
       repeats a start that raised. */
   virtual void handleInitialized() {}

   QON_ASSERT_FAMILY( QonBaseSm, "QonBaseSm", Silence::noopAgent )

   // What lets a state machine declare attributes with the lines of Kiv/Attr.h; nobody can watch
   // them, so publishing is nothing.
   static Kiv::Index< 0 > kivCount( Kiv::Rank< 0 > );
   static const Kiv::TypeData kivTypeData;

 protected:
   static constexpr bool kivWatched() { return false; }
   template< class... A >
   static void kivPublish( const A &... ) {}
   template< class... A >
   static void kivDeliver( const A &... ) {}
   static const Kiv::Entity * kivSelfEntity() { return nullptr; }

 private:
   bool initialized_ = false;
};

/** A named object behind which hardware stands; unimplemented hooks report through qonAssert. */
class QonBaseHelper : public Kiv::Entity {
 public:
   explicit QonBaseHelper( const String & name ) : Kiv::Entity( name ) {}

   QON_ASSERT_FAMILY( QonBaseHelper, "QonBaseHelper", Silence::noopAgent )
};

/** What can tell whether its invariants hold; the base of state machines and of helpers that keep
    something. Not in their first bases, where it would move the hooks of all that derive from them
    to other places in the virtual table. */
class Checked {
 public:
   /** What does not hold of the invariants in the class's header: one sentence without a line end,
       empty if all do. For moments between two events: not from within a hook or a watcher. */
   virtual String checkInvariants() const = 0;

 protected:
   ~Checked() = default;
};

/** Constructs a state machine of the class (or a chip-specific one derived from it) and lets it
    hear. What every factory `<Class>Is( ... )` does. */
template< class Sm, class... Args >
Velto::Ptr< Sm >
smIs( Args &&... args ) {
   auto sm = Velto::make< Sm >( std::forward< Args >( args )... );
   sm->hasNotificationActiveIs( true );
   return sm;
}

Velto::Ptr< QonBaseSm > QonBaseSmIs();

} // namespace Qon
