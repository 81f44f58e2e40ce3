#pragma once
// What a run cannot foresee of its chip, so that it can be run again: answers that the chip gives
// at once, and what it says by itself.
//
//    hook       -> recordedAnswer< U32 >( "index", ask )  -> recorded: ask(), and its answer is
//    noted
//                                                         \-> replayed: the noted answer
//    descriptor -> ChipInput::arrived( text )             -> recorded: noted, then its effect
//                                                         \-> replayed: nothing; the effects come
//                                                             from the recording
//
// The calls to the chip need nothing: whoever records listens at the hooks. A driver whose code
// runs in a replay too, on the scheduler's clocks, needs nothing either.
//
// Invariants
// 1. There is one recording at most, and everything works without one.
// 2. While a run is replayed the chip is not asked, and what it says is not heard.

#include <functional>

#include "platform/Kiv/Text.h"

namespace QonChip {

using Velto::String;

/** A recording that is made or replayed. */
class Recording {
 public:
   using Effect = std::function< void( const String & text ) >;

   Recording( const Recording & ) = delete;
   Recording & operator=( const Recording & ) = delete;

   /** Null if nothing is recorded or replayed. */
   static Recording * current() { return current_; }

   /** The answer to a question that was asked inside a hook: of `ask`, or the recorded one; empty
       behind the end of a recording that was cut. */
   virtual String answer( const String & name, const std::function< String() > & ask ) = 0;
   /** Gives a kind of inputs its effect; `kind` is one word. */
   virtual void kindIs( const String & kind, Effect effect ) = 0;
   virtual void kindDel( const String & kind ) = 0;
   /** An input has come. While a run is recorded it is noted, and has its effect: now, or behind
      the turn of the scheduler that is under way. */
   virtual void arrived( const String & kind, const String & text ) = 0;

 protected:
   Recording() {
      VELTO_ASSERT( !current_ );
      current_ = this;
   }
   ~Recording() { current_ = nullptr; }

 private:
   static inline Recording * current_ = nullptr;
};

/** What the chip answers at once: `ask()` returns it; a replay returns the recorded answer and does
    not ask. T has a text form both ways. Behind the end of a recording that was cut: T(). */
template< class T, class Ask >
T
recordedAnswer( const char * name, Ask && ask ) {
   auto recording = Recording::current();
   if ( !recording ) [[likely]] {
      return ask();
   }
   String text = recording->answer( name, [&] { return Kiv::toText( T( ask() ) ); } );
   return text.empty() ? T() : Kiv::fromText< T >( text );
}

/** What a chip says by itself, such as what its descriptor delivers. A member of whatever reads it,
    made after the recording began and before the first turn. */
class ChipInput {
 public:
   /** `kind` is one word, and no other input's. */
   ChipInput( const String & kind, Recording::Effect effect )
       : kind_( kind ), effect_( std::move( effect ) ) {
      if ( auto recording = Recording::current() ) {
         recording->kindIs( kind_, effect_ );
      }
   }
   ChipInput( const ChipInput & ) = delete;
   ChipInput & operator=( const ChipInput & ) = delete;
   ~ChipInput() {
      if ( auto recording = Recording::current() ) {
         recording->kindDel( kind_ );
      }
   }

   void arrived( const String & text ) {
      auto recording = Recording::current();
      recording ? recording->arrived( kind_, text ) : effect_( text );
   }

 private:
   const String kind_;
   const Recording::Effect effect_;
};

} // namespace QonChip
