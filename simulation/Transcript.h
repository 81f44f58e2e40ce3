#pragma once
// What a run did, as one number: every hook call, status write and log message, with its time.
// Equal transcripts have equal numbers, on every platform; the lines themselves can be written to
// a file, to find where two runs part.

#include <cmath>
#include <concepts>
#include <cstdio>
#include <string_view>

#include "platform/Kiv/Time.h"
#include "platform/Velto/Types.h"

namespace Sim {

using Velto::String;

class Transcript {
 public:
   /** One line: what happened, and with which numbers, truth values, texts, interfaces. */
   template< class... Args >
   void add( std::string_view what, const Args &... args ) {
      U64 time = U64( std::llround( Kiv::now() * 1e6 ) );
      take( time );
      take( what );
      ( take( args ), ... );
      ++lines_;
      if ( file_ ) {
         std::fprintf( file_, "%llu %.*s", static_cast< unsigned long long >( time ),
                       int( what.size() ), what.data() );
         ( write( args ), ... );
         std::fputc( '\n', file_ );
      }
   }

   U64 hash() const { return hash_; }
   U64 lines() const { return lines_; }
   /** Writes the lines too; the file stays the caller's. */
   void fileIs( std::FILE * file ) { file_ = file; }

 private:
   void mix( U64 value ) {
      hash_ = ( hash_ ^ value ) * 0x9fb21c651e98df25ull;
      hash_ ^= hash_ >> 32;
   }
   template< class T >
   void take( const T & value ) {
      if constexpr ( std::convertible_to< T, std::string_view > ) {
         takeText( value );
      } else if constexpr ( std::is_enum_v< T > || std::integral< T > ) {
         mix( U64( S64( value ) ) );
      } else {
         mix( value.hash() );
      }
   }
   void takeText( std::string_view text ) {
      mix( text.size() );
      U64 word = 0;
      U32 filled = 0;
      for ( char c : text ) {
         word = word << 8 | U8( c );
         if ( ++filled == 8 ) {
            mix( word );
            word = filled = 0;
         }
      }
      mix( word );
   }
   template< class T >
   void write( const T & value ) {
      if constexpr ( std::convertible_to< T, std::string_view > ) {
         std::string_view text( value );
         std::fprintf( file_, " %.*s", int( text.size() ), text.data() );
      } else if constexpr ( std::is_enum_v< T > || std::integral< T > ) {
         std::fprintf( file_, " %lld", static_cast< long long >( value ) );
      } else {
         std::fprintf( file_, " %s", value.stringValue().c_str() );
      }
   }

   U64 hash_ = 0x6a09e667f3bcc909ull;
   U64 lines_ = 0;
   std::FILE * file_ = nullptr;
};

} // namespace Sim
