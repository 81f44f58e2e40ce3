#include "platform/types/EthAddr.h"

namespace Ulnet {

namespace {

int
digitOf( char c ) {
   if ( c >= '0' && c <= '9' ) {
      return c - '0';
   }
   char lower = char( c | 0x20 );
   return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

/** Twelve digits with `separator` after every `group`-th but the last. */
bool
parsed( const Velto::String & text, U32 group, char separator, U64 & value ) {
   value = 0;
   U32 digits = 0;
   for ( U32 at = 0; at < text.size(); ++at ) {
      if ( at % ( group + 1 ) == group ) {
         if ( text[at] != separator ) {
            return false;
         }
         continue;
      }
      int digit = digitOf( text[at] );
      if ( digit < 0 ) {
         return false;
      }
      value = value << 4 | U64( digit );
      ++digits;
   }
   return digits == 12 && digitOf( text.back() ) >= 0;
}

} // namespace

EthAddr::EthAddr( const Velto::String & text ) {
   U64 value = 0;
   if ( !parsed( text, 2, ':', value ) && !parsed( text, 2, '-', value ) &&
        !parsed( text, 4, '.', value ) ) {
      Kiv::textRefused( "a MAC address such as 01:00:5e:00:00:01", text );
   }
   *this = EthAddr( value );
}

Velto::String
EthAddr::stringValue() const {
   const char * digits = "0123456789abcdef";
   Velto::String text;
   for ( int shift = 44; shift >= 0; shift -= 4 ) {
      text += digits[value() >> shift & 15];
      if ( shift % 8 == 0 && shift > 0 ) {
         text += ':';
      }
   }
   return text;
}

} // namespace Ulnet
