#include "platform/Kiv/Printable.h"

#include <cstdio>

namespace Kiv {

using Velto::String;

namespace {

/** How many bytes the character of UTF-8 at `at` has; 0 for what is none, or controls a terminal. */
std::size_t
lengthAt( const String & text, std::size_t at ) {
   const auto byte = [&]( std::size_t i ) { return i < text.size() ? U8( text[i] ) : U8( 0 ); };
   const U8 first = byte( at );
   const std::size_t length = first < 0x80   ? 1
                              : first < 0xc2 ? 0
                              : first < 0xe0 ? 2
                              : first < 0xf0 ? 3
                              : first < 0xf5 ? 4
                                             : 0;
   for ( std::size_t i = 1; i < length; ++i ) {
      if ( ( byte( at + i ) & 0xc0 ) != 0x80 ) {
         return 0;
      }
   }
   const bool controls = first < ' ' || first == 0x7f || ( first == 0xc2 && byte( at + 1 ) < 0xa0 );
   return controls ? 0 : length;
}

} // namespace

String
printable( const String & text ) {
   String out;
   for ( std::size_t at = 0; at < text.size(); ) {
      if ( const std::size_t length = lengthAt( text, at ) ) {
         out.append( text, at, length );
         at += length;
      } else {
         char escaped[8];
         std::snprintf( escaped, sizeof( escaped ), "\\x%02x", U8( text[at++] ) );
         out += escaped;
      }
   }
   return out;
}

} // namespace Kiv
