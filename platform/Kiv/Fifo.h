#pragma once
// Kiv::Fifo: a queue. A value may be in it several times.
//
//    for ( auto && element : queue ) { ... }    // may enqueue, dequeue, clear
//
// Invariants
// 1. An element stays where it is until it leaves.
// 2. Before the destructor of an element runs, the queue is consistent and no longer holds it.
// 3. An empty queue is one pointer. The elements' room is given back block by block as a burst is
//    worked off; the list of the blocks when the queue is empty.
//
// The queue owns its elements.

#include <deque>
#include <utility>

#include "platform/Kiv/WalkLink.h"
#include "platform/Velto/Assert.h"

namespace Kiv {

template< class T >
class Fifo {
   struct Body;

   struct Step : WalkLink< Step > {
      Body * body = nullptr; // null when closed
      U64 number = 0;        // of the current element
   };

   struct Body {
      std::deque< T > elements;
      U64 gone = 0; // elements that have left: the number of the first
      Step * walks = nullptr;

      U64 end() const { return gone + elements.size(); }
      ~Body() {
         for ( ; walks; walks->unlink() ) {
            walks->body = nullptr;
         }
      }
   };

 public:
   /** A walk from front to back. It stays valid whatever happens to the queue: elements that come
       are visited, those that leave before their turn are not. A walk that has come to the end is
       closed, as is one whose queue is destroyed. */
   class Walk {
    public:
      explicit Walk( const Fifo & of ) {
         if ( !of.empty() ) {
            step_.body = of.body_;
            step_.number = of.body_->gone;
            step_.link( of.body_->walks );
         }
      }
      explicit operator bool() const { return step_.body != nullptr; }
      Walk & operator++() {
         if ( Body * body = step_.body ) {
            step_.number = step_.number < body->gone ? body->gone : step_.number + 1;
            if ( step_.number == body->end() ) {
               step_.unlink();
               step_.body = nullptr;
            }
         }
         return *this;
      }
      /** Whether the current element is still in the queue. */
      bool alive() const { return step_.body && step_.number >= step_.body->gone; }
      /** The current element; the reference holds until it leaves. Fatal when it has. */
      const T & operator*() const {
         VELTO_ASSERT( alive() );
         return step_.body->elements[step_.number - step_.body->gone];
      }
      bool operator!=( std::nullptr_t ) const { return step_.body != nullptr; }

    private:
      Step step_;
   };

   Fifo() = default;
   Fifo( const Fifo & o ) {
      if ( !o.empty() ) {
         body_ = new Body{ .elements = o.body_->elements };
      }
   }
   Fifo( Fifo && o ) noexcept : body_( std::exchange( o.body_, nullptr ) ) {}
   Fifo & operator=( Fifo o ) noexcept {
      swap( o );
      return *this;
   }
   ~Fifo() {
      while ( Body * body = std::exchange( body_, nullptr ) ) {
         auto dying = std::exchange( body->elements, {} );
         delete body;
      }
   }
   void swap( Fifo & o ) noexcept { std::swap( body_, o.body_ ); }

   U32 size() const { return body_ ? U32( body_->elements.size() ) : 0; }
   bool empty() const { return size() == 0; }
   /** Whether an element equals `value`; takes time by the size. */
   bool has( const T & value ) const {
      for ( U32 i = 0; i < size(); ++i ) {
         if ( body_->elements[i] == value ) {
            return true;
         }
      }
      return false;
   }

   /** Puts an element at the back. */
   void enq( T value ) {
      if ( !body_ ) {
         body_ = new Body{};
      }
      body_->elements.push_back( std::move( value ) );
   }
   /** Removes the front element; nothing happens when there is none. */
   void deq() {
      if ( !empty() ) {
         [[maybe_unused]] T dying = std::move( body_->elements.front() );
         body_->elements.pop_front();
         ++body_->gone;
         dropIfIdle();
      }
   }
   void clear() {
      if ( body_ ) {
         body_->gone = body_->end();
         auto dying = std::exchange( body_->elements, {} );
         dropIfIdle();
      }
   }

   /** The first and the last element. Raise Velto::RangeError when the queue is empty. */
   const T & front() const { return filled().front(); }
   const T & back() const { return filled().back(); }

   Walk begin() const { return Walk( *this ); }
   std::nullptr_t end() const { return nullptr; }

 private:
   std::deque< T > & filled() const {
      if ( empty() ) {
         throw Velto::RangeError( "queue is empty" );
      }
      return body_->elements;
   }
   void dropIfIdle() {
      if ( body_->elements.empty() && !body_->walks ) {
         delete std::exchange( body_, nullptr );
      }
   }

   Body * body_ = nullptr;
};

} // namespace Kiv
