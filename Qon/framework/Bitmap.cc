#include "Qon/include/framework/Bitmap.h"

#include <algorithm>

#include "platform/Kiv/Text.h"
#include "platform/Velto/Assert.h"

namespace QonTypes {

Bitmap::Bitmap( std::initializer_list< U32 > bits ) {
   for ( U32 number : bits ) {
      bitIs( number );
   }
}

Bitmap::Bitmap( const Velto::String & text ) {
   constexpr char expected[] = "numbers such as {0, 3, 17}";
   if ( text.size() < 2 || text.front() != '{' || text.back() != '}' ) {
      Kiv::textRefused( expected, text );
   }
   const Velto::String list = text.substr( 1, text.size() - 2 );
   if ( list.find_first_not_of( ' ' ) == Velto::String::npos ) {
      return;
   }
   for ( const auto & part : Kiv::split( list, ',' ) ) {
      const auto first = part.find_first_not_of( ' ' );
      if ( first == Velto::String::npos ) {
         Kiv::textRefused( expected, text );
      }
      const U32 number = Kiv::fromText< U32 >( part.substr( first ) );
      if ( number >= maxBits ) {
         Kiv::textRefused( "numbers below " + Kiv::toText( maxBits ), text );
      }
      bitIs( number );
   }
}

Bitmap::Bitmap( const Bitmap & o ) {
   roomIs( o.used_ );
   used_ = o.used_;
   std::copy_n( o.words(), used_, words() );
}

void
Bitmap::swap( Bitmap & o ) noexcept {
   std::swap( used_, o.used_ );
   std::swap( room_, o.room_ );
   std::swap( store_, o.store_ );
}

void
Bitmap::roomIs( U32 room ) {
   if ( room <= room_ ) {
      return;
   }
   auto fresh = new U64[room];
   std::copy_n( words(), used_, fresh );
   if ( room_ > inlineWords ) {
      delete[] store_.heap;
   }
   store_.heap = fresh;
   room_ = room;
}

void
Bitmap::usedIs( U32 used ) {
   roomIs( used );
   if ( used > used_ ) {
      std::fill( words() + used_, words() + used, 0 );
      used_ = used;
   }
}

void
Bitmap::trim() {
   while ( used_ && words()[used_ - 1] == 0 ) {
      --used_;
   }
}

void
Bitmap::bitIs( U32 number, bool v ) {
   VELTO_ASSERT( number < maxBits );
   const U64 mask = U64( 1 ) << number % 64;
   if ( v ) {
      usedIs( number / 64 + 1 );
      words()[number / 64] |= mask;
   } else if ( number / 64 < used_ ) {
      words()[number / 64] &= ~mask;
      trim();
   }
}

U32
Bitmap::count() const {
   U32 n = 0;
   for ( U32 i = 0; i < used_; ++i ) {
      n += U32( std::popcount( words()[i] ) );
   }
   return n;
}

bool
Bitmap::contains( const Bitmap & o ) const {
   if ( o.used_ > used_ ) {
      return false;
   }
   for ( U32 i = 0; i < o.used_; ++i ) {
      if ( o.words()[i] & ~words()[i] ) {
         return false;
      }
   }
   return true;
}

Bitmap &
Bitmap::operator|=( const Bitmap & o ) {
   usedIs( o.used_ );
   for ( U32 i = 0; i < o.used_; ++i ) {
      words()[i] |= o.words()[i];
   }
   return *this;
}

bool
Bitmap::operator==( const Bitmap & o ) const {
   if ( used_ != o.used_ ) {
      return false;
   }
   const U64 *ours = words(), *others = o.words();
   U64 differ = 0;
   for ( U32 i = 0; i < used_; ++i ) {
      differ |= ours[i] ^ others[i];
   }
   return differ == 0;
}

std::strong_ordering
Bitmap::operator<=>( const Bitmap & o ) const {
   if ( used_ != o.used_ ) {
      return used_ <=> o.used_;
   }
   for ( U32 i = used_; i-- > 0; ) {
      if ( words()[i] != o.words()[i] ) {
         return words()[i] <=> o.words()[i];
      }
   }
   return std::strong_ordering::equal;
}

U64
Bitmap::hash() const {
   U64 h = used_;
   for ( U32 i = 0; i < used_; ++i ) {
      h = Kiv::hashCombine( h, words()[i] );
   }
   return h;
}

Velto::String
Bitmap::stringValue() const {
   Kiv::ValueWriter w;
   for ( U32 number : *this ) {
      w.element( number );
   }
   return w.text();
}

} // namespace QonTypes
