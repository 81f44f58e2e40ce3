#pragma once
// Rows of plain values, made one at a time as they are taken.
//
//    Rows MacFeature::hardware() const { for ( ... ) { co_yield row; } }
//    while ( const Row * row = rows.next() ) { ... }
//
// Invariants
// 1. A row is made when it is asked for, and gone with the next one: nobody keeps them all. Who shows
//    them may stop for a while, or for good, at any row.
// 2. What a function that makes rows needs of its arguments, it takes by value.
// 3. From one row to the next any time may pass, and anything change but the features themselves. So
//    a function that makes rows keeps no plain pointer, reference or position across a co_yield: it
//    counts what it walks (Velto::Ptr), and looks up again, by key, whatever else it needs, which may
//    be gone. Walks of Kiv's collections go on whatever happens; the key and the value of an entry,
//    such as the names of a structured binding, are to be read before the first co_yield of its turn,
//    or copied.
// 4. The making of one row takes far less than a millisecond. Who passes over entries, since they
//    are not asked for, says `co_yield Pause()` every few hundred of them.
//
// Ownership: whoever shows the rows owns them; the feature that makes them outlives them.

#include <coroutine>
#include <exception>
#include <utility>
#include <variant>
#include <vector>

#include "platform/Velto/Types.h"

namespace QonAgent {

using Velto::String;

/** What stands in one field of a row: a text, a number, a list of texts, or nothing. Numbers that are
    not whole are seconds, and shown to the millisecond. */
class Value {
 public:
   using List = std::vector< String >;
   using Held = std::variant< std::monostate, String, U64, double, List >;

   Value() = default;
   Value( const char * text ) : held_( String( text ) ) {}
   Value( String text ) : held_( std::move( text ) ) {}
   Value( U64 number ) : held_( number ) {}
   Value( U32 number ) : held_( U64( number ) ) {}
   Value( double number ) : held_( number ) {}
   Value( List list ) : held_( std::move( list ) ) {}
   Value( bool ) = delete; // yesNo()

   const Held & held() const { return held_; }

 private:
   Held held_;
};

/** Fields in the order in which they were set. */
class Row {
 public:
   using Field = std::pair< const char *, Value >;
   Row( std::initializer_list< Field > fields ) : fields_( fields ) {}
   void set( const char * field, Value value );
   const std::vector< Field > & fields() const { return fields_; }

 private:
   std::vector< Field > fields_;
};

/** Stands for no row: whoever shows them may stop here. */
struct Pause {};

class Rows {
 public:
   enum class Step : U8 { row, pause, end };

   struct promise_type {
      Rows get_return_object() { return Rows( Handle::from_promise( *this ) ); }
      std::suspend_always initial_suspend() noexcept { return {}; }
      std::suspend_always final_suspend() noexcept { return {}; }
      std::suspend_always yield_value( const Row & made ) noexcept {
         row = &made;
         return {};
      }
      std::suspend_always yield_value( Pause ) noexcept {
         row = nullptr;
         return {};
      }
      void return_void() noexcept {}
      void unhandled_exception() noexcept { raised = std::current_exception(); }

      const Row * row = nullptr;
      std::exception_ptr raised;
   };

   Rows( Rows && other ) noexcept : handle_( std::exchange( other.handle_, nullptr ) ) {}
   Rows & operator=( Rows && other ) noexcept {
      std::swap( handle_, other.handle_ );
      return *this;
   }
   ~Rows() {
      if ( handle_ ) {
         handle_.destroy();
      }
   }

   /** Goes on to the next row or pause. Passes on what the making of a row raises, and is at the end
       then. */
   Step step() {
      if ( handle_.done() ) {
         return Step::end;
      }
      handle_.resume();
      if ( handle_.promise().raised ) {
         std::rethrow_exception( std::exchange( handle_.promise().raised, nullptr ) );
      }
      return handle_.done() ? Step::end : handle_.promise().row ? Step::row : Step::pause;
   }
   /** The row that step() came to, there until the next step. */
   const Row & row() const { return *handle_.promise().row; }

   /** The next row, whatever pauses there are; null behind the last one. */
   const Row * next() {
      Step at;
      do {
         at = step();
      } while ( at == Step::pause );
      return at == Step::row ? &row() : nullptr;
   }

 private:
   using Handle = std::coroutine_handle< promise_type >;
   explicit Rows( Handle handle ) : handle_( handle ) {}
   Handle handle_;
};

} // namespace QonAgent
