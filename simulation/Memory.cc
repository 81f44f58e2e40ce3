#include "simulation/Memory.h"

#include <cstdlib>
#include <new>

namespace {

S64 live = 0;

void *
taken( void * p ) {
   if ( !p ) {
      throw std::bad_alloc();
   }
   ++live;
   return p;
}

/** Not to be seen through: who deletes what he made with new must not be told that it is freed. */
[[gnu::noinline]] void
given( void * p ) {
   live -= p != nullptr;
   std::free( p );
}

} // namespace

namespace Sim {

S64
liveAllocations() {
   return live;
}

} // namespace Sim

// One thread; the forms without sizes serve all others but those of great alignment.
void *
operator new( std::size_t size ) {
   return taken( std::malloc( size ? size : 1 ) );
}

void *
operator new( std::size_t size, const std::nothrow_t & ) noexcept {
   void * p = std::malloc( size ? size : 1 );
   live += p != nullptr;
   return p;
}

void
operator delete( void * p ) noexcept {
   given( p );
}

void
operator delete( void * p, std::size_t ) noexcept {
   given( p );
}

void *
operator new( std::size_t size, std::align_val_t alignment ) {
   std::size_t unit = std::size_t( alignment );
   return taken( std::aligned_alloc( unit, ( size + unit - 1 ) / unit * unit ) );
}

void
operator delete( void * p, std::align_val_t ) noexcept {
   given( p );
}

void
operator delete( void * p, std::size_t, std::align_val_t ) noexcept {
   given( p );
}
