#pragma once
// Velto::Node, the counted object under every entity and state machine, and Velto::Ptr, which
// counts it.
//
//    Ptr -> Node: count
//    last Ptr gone -> hasNotificationActive := false -> kivDoZombieReactors() -> delete
//
// Invariants
// 1. A node dies by the release of its last Ptr only, and is marked dead while it is complete:
//    whatever reacts through it hears nothing from then on.
// 2. Virtual slots: destructor (2), typeData, kivDoZombieReactors; a derived class's own follow.
//    Nothing else in Node or Entity is virtual.

#include <compare>
#include <cstddef>
#include <utility>

#include "platform/Velto/Types.h"

namespace Kiv {
struct TypeData;
}

namespace Velto {

/** Set by whoever starts the first further thread; reference counts are atomic from then on. */
extern bool severalThreads;

class Node {
 public:
   Node( const Node & ) = delete;
   Node & operator=( const Node & ) = delete;

   virtual ~Node() = default;

   /** The description of the concrete type; null where a class has none. */
   virtual const Kiv::TypeData * typeData() const { return nullptr; }

   /** Marks every reactor of this object dead. An override calls its base's. */
   virtual void kivDoZombieReactors() { flags_ |= zombieFlag; }

   /** While true (and not zombie()), the framework delivers changes to this object's handlers.
       Factories set it; a directly constructed object has it false. */
   bool hasNotificationActive() const { return flags_ & activeFlag; }
   void hasNotificationActiveIs( bool v ) {
      flags_ = v ? flags_ | activeFlag : flags_ & U8( ~activeFlag );
   }
   bool zombie() const { return flags_ & zombieFlag; }
   /** Whether a change may be delivered to this object's handlers now. */
   bool kivHears() const {
      return ( flags_ & ( activeFlag | zombieFlag | pausedFlag ) ) == activeFlag;
   }
   /** Between true and false nothing is delivered, whatever else holds; for base classes that have
       a state in which their handlers must not run. What happens meanwhile is not made up for. */
   void kivPausedIs( bool v ) { flags_ = v ? flags_ | pausedFlag : flags_ & U8( ~pausedFlag ); }

   U32 useCount() const { return __atomic_load_n( &count_, __ATOMIC_RELAXED ); }
   void kivRef() const {
      if ( severalThreads ) [[unlikely]] {
         __atomic_add_fetch( &count_, 1, __ATOMIC_RELAXED );
      } else {
         ++count_;
      }
   }
   void kivUnref() const {
      U32 left = severalThreads ? __atomic_sub_fetch( &count_, 1, __ATOMIC_ACQ_REL ) : --count_;
      if ( left == 0 ) {
         const_cast< Node * >( this )->kivDie();
      }
   }

 protected:
   Node() = default;

 private:
   static constexpr U8 activeFlag = 1;
   static constexpr U8 zombieFlag = 2;
   static constexpr U8 pausedFlag = 4;

   void kivDie();

   mutable U32 count_ = 0;
   U8 flags_ = 0; // small members of derived classes stand right behind it
};

/** A counted pointer to a Node; null by default. */
template< class T >
class Ptr {
 public:
   Ptr() = default;
   Ptr( std::nullptr_t ) {}
   Ptr( T * p ) : p_( p ) { ref(); }
   Ptr( const Ptr & o ) : p_( o.p_ ) { ref(); }
   Ptr( Ptr && o ) noexcept : p_( std::exchange( o.p_, nullptr ) ) {}
   template< class U >
   requires std::is_convertible_v< U *, T * > Ptr( const Ptr< U > & o ) : p_( o.ptr() ) { ref(); }
   template< class U >
   requires std::is_convertible_v< U *, T * > Ptr( Ptr< U > && o )
   noexcept : p_( o.release() ) {}
   ~Ptr() { unref( p_ ); }

   Ptr & operator=( Ptr o ) noexcept {
      std::swap( p_, o.p_ );
      return *this;
   }

   T * ptr() const { return p_; }
   T * operator->() const { return p_; }
   T & operator*() const { return *p_; }
   explicit operator bool() const { return p_ != nullptr; }
   /** Gives the count away to the caller. */
   T * release() noexcept { return std::exchange( p_, nullptr ); }

   friend bool operator==( const Ptr & a, const Ptr & b ) { return a.p_ == b.p_; }
   friend bool operator==( const Ptr & a, std::nullptr_t ) { return a.p_ == nullptr; }
   friend bool operator==( const Ptr & a, const T * b ) { return a.p_ == b; }
   friend auto operator<=>( const Ptr & a, const Ptr & b ) { return a.p_ <=> b.p_; }

 private:
   void ref() const {
      if ( p_ ) {
         p_->kivRef();
      }
   }
   static void unref( T * p ) {
      if ( p ) {
         p->kivUnref();
      }
   }

   T * p_ = nullptr;
};

/** Constructs a T and returns the first pointer to it. */
template< class T, class... Args >
Ptr< T >
make( Args &&... args ) {
   return Ptr< T >( new T( std::forward< Args >( args )... ) );
}

} // namespace Velto
