#pragma once
// One fuzzer: what is done with whatever bytes.
//
//    FUZZ( routes ) {                      with clang's fuzzer: the function that it calls
//       parse( input.rest() );             otherwise: one of those that replay-inputs knows
//    }
//
// Invariants
// 1. The same input does the same, whatever came before.
// 2. What an input is refused for is caught; everything else that is raised, an assertion that fails
//    and an end that does not come are finds.

#include <cstring>
#include <map>
#include <string_view>

#include "platform/Velto/Types.h"

namespace Fuzz {

using Velto::String;

/** Bytes, and how many of them were taken. Behind the end there are zeros. */
class Input {
 public:
   Input( const unsigned char * bytes, std::size_t size )
       : left_( reinterpret_cast< const char * >( bytes ), size ) {}

   bool empty() const { return left_.empty(); }
   template< class Number >
   Number number() {
      Number n = 0;
      std::memcpy( &n, left_.data(), std::min( sizeof( n ), left_.size() ) );
      left_.remove_prefix( std::min( sizeof( n ), left_.size() ) );
      return n;
   }
   String rest() const { return String( left_ ); }

 private:
   std::string_view left_;
};

using One = void ( * )( Input input );
/** The fuzzers of this program. */
inline std::map< String, One > &
all() {
   static std::map< String, One > fuzzers;
   return fuzzers;
}

} // namespace Fuzz

#ifdef QON_FUZZ
#define FUZZ( name )                                                                               \
   static void name( Fuzz::Input input );                                                          \
   extern "C" int LLVMFuzzerTestOneInput( const unsigned char * bytes, std::size_t size ) {        \
      name( Fuzz::Input( bytes, size ) );                                                          \
      return 0;                                                                                    \
   }                                                                                               \
   static void name( [[maybe_unused]] Fuzz::Input input )
#else
#define FUZZ( name )                                                                               \
   static void name( Fuzz::Input input );                                                          \
   [[maybe_unused]] static const bool name##Known = ( Fuzz::all()[#name] = name, true );           \
   static void name( [[maybe_unused]] Fuzz::Input input )
#endif
