#pragma once
// A tap at the hooks: whoever listens hears every call that the library makes to what a
// chip-specific agent overrides, with every argument.
//
//    state machine -> QON_HOOK( TopoHelper, helper, freeTopo, name ) -> helper->freeTopo( name )
//                         \-> HookListener::hookCalled( "TopoHelper::freeTopo", "1" ), if there
//                             is one: a recorder, a transcript
//
// What is told are the calls that hand something to the chip or ask it for something. Questions
// that the library answers itself unless somebody knows better (such as LagSm::isIntfManaged) are
// not. Groups reach the chip through Hardware::Lag::Config and by no hook: the entries that are
// written there are told as if they were calls.
//
// Invariants
// 1. A call is told before it is made, to the listeners in the order in which they were made.
// 2. Texts are made only for a listener that wants them; without any listener a hook costs a load
//    and a branch more.
// 3. Texts depend on values alone: never on addresses, nor on the size of a pointer.
// 4. A listener may end, and others may begin, while a call is told. One that has ended hears
// nothing.
//
// Ownership: a listener belongs to whoever made it, and listens while it lives.

#include <type_traits>

#include "platform/Kiv/Text.h"

namespace Qon {

using Velto::String;

class HookListener {
 public:
   HookListener( const HookListener & ) = delete;
   HookListener & operator=( const HookListener & ) = delete;

   /** `hook` is "Class::hook" and stays for ever; the arguments are separated by ", ". Must not
       change what the call is about to use. */
   virtual void hookCalled( const char * hook, const String & arguments ) = 0;

 protected:
   /** `reads`: false for one that only counts, which may be told of calls without arguments. */
   explicit HookListener( bool reads = true );
   ~HookListener();

 private:
   friend class HookTap;
   const bool reads_;
   HookListener * next_ = nullptr;
};

class HookTap {
 public:
   static bool listening() { return __builtin_expect( first_ != nullptr, false ); }
   /** Tells of a call; only when somebody listens. */
   template< class... Args >
   [[gnu::cold, gnu::noinline]] static void tell( const char * hook, const Args &... args ) {
      String arguments;
      if ( readers_ ) {
         ( ( ( arguments += arguments.empty() ? "" : ", " ) += text( args ) ), ... );
      }
      tellAll( hook, arguments );
   }
   /** "freeTopo( 1 )", or "hwInit()" */
   static String shown( const char * hook, const String & arguments ) {
      return hook + ( arguments.empty() ? "()" : "( " + arguments + " )" );
   }

 private:
   friend class HookListener;
   struct Walk;

   template< class T >
   static String text( const T & value ) {
      static_assert( !std::is_pointer_v< T >, "an address is no text" );
      return Kiv::toText( value );
   }
   static String text( const String & value ) { return value; }
   static void tellAll( const char * hook, const String & arguments );

   static HookListener * first_;
   static U32 readers_; // listeners that want the arguments
   static Walk * walk_; // the innermost delivery
};

} // namespace Qon

/** Tells of a call whose arguments' texts are not those of the arguments. */
#define QON_TELL_HOOK( Class, hook, ... )                                                          \
   ( ::Qon::HookTap::listening()                                                                   \
           ? ::Qon::HookTap::tell( #Class "::" #hook __VA_OPT__(, ) __VA_ARGS__ )                  \
           : void() )

/** Calls a hook, and tells of it. The arguments have no effects: they are read twice. Two calls, so
    that the one which nobody hears keeps nothing for later. */
#define QON_HOOK( Class, object, hook, ... )                                                       \
   ( ::Qon::HookTap::listening() ? ( QON_TELL_HOOK( Class, hook __VA_OPT__(, ) __VA_ARGS__ ),      \
                                     ( object )->hook( __VA_ARGS__ ) )                             \
                                 : ( object )->hook( __VA_ARGS__ ) )
