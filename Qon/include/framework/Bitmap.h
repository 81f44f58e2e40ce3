#pragma once
// QonTypes::Bitmap: a set of small numbers, such as the ports of a multicast group; fit to be the key
// of a table.
//
//    Bitmap ports;
//    ports.bitIs( 3 );
//    for ( U32 bit : ports ) { ... }        in ascending order
//    toText( ports ) == "{3}"
//
// Invariants
// 1. Two bitmaps with the same bits are equal, have one hash and one text, whatever was in them before.
// 2. Sets below `inlineBits` need no memory of their own; larger ones grow to their highest bit.
// 3. Copying, comparing and hashing take a step for 64 bits. Order: as the number whose binary digits
//    the bits are.

#include <bit>
#include <compare>

#include "platform/Velto/Types.h"

namespace QonTypes {

class Bitmap {
 public:
   static constexpr U32 inlineBits = 128;
   /** Bits are less than this: far more than a switch has ports. */
   static constexpr U32 maxBits = 1u << 20;

   Bitmap() = default;
   Bitmap( std::initializer_list< U32 > bits );
   /** Of "{0, 3, 17}"; raises Velto::RangeError for anything else. */
   explicit Bitmap( const Velto::String & text );
   Bitmap( const Bitmap & o );
   Bitmap( Bitmap && o ) noexcept { swap( o ); }
   Bitmap & operator=( Bitmap o ) noexcept {
      swap( o );
      return *this;
   }
   ~Bitmap() {
      if ( room_ > inlineWords ) {
         delete[] store_.heap;
      }
   }
   void swap( Bitmap & o ) noexcept;

   bool bit( U32 number ) const {
      const U32 word = number / 64;
      return word < used_ && ( words()[word] >> number % 64 & 1 );
   }
   /** Fatal for maxBits and more. */
   void bitIs( U32 number, bool v = true );
   void clear() { used_ = 0; }

   bool empty() const { return used_ == 0; }
   U32 count() const;
   /** Whether every bit of `o` is set here too. */
   bool contains( const Bitmap & o ) const;
   Bitmap & operator|=( const Bitmap & o );

   bool operator==( const Bitmap & o ) const;
   std::strong_ordering operator<=>( const Bitmap & o ) const;
   U64 hash() const;
   Velto::String stringValue() const;

   /** Walks the bits that are set. The bitmap stays as it is meanwhile. */
   class Iterator {
    public:
      Iterator( const Bitmap * of, U32 word ) : of_( of ), word_( word ) {
         if ( word_ < of_->used_ ) {
            rest_ = of_->words()[word_];
            toNextWord();
         }
      }
      U32 operator*() const { return word_ * 64 + U32( std::countr_zero( rest_ ) ); }
      Iterator & operator++() {
         rest_ &= rest_ - 1;
         toNextWord();
         return *this;
      }
      bool operator==( const Iterator & o ) const { return word_ == o.word_ && rest_ == o.rest_; }

    private:
      void toNextWord() {
         while ( rest_ == 0 && ++word_ < of_->used_ ) {
            rest_ = of_->words()[word_];
         }
      }
      const Bitmap * of_;
      U32 word_;
      U64 rest_ = 0;
   };
   Iterator begin() const { return Iterator( this, 0 ); }
   Iterator end() const { return Iterator( this, used_ ); }

 private:
   static constexpr U32 inlineWords = inlineBits / 64;

   const U64 * words() const { return room_ > inlineWords ? store_.heap : store_.here; }
   U64 * words() { return room_ > inlineWords ? store_.heap : store_.here; }
   void roomIs( U32 room );
   void usedIs( U32 used );
   void trim();

   // The words up to the last one with a bit; those behind them mean nothing.
   U32 used_ = 0;
   U32 room_ = inlineWords;
   union Store {
      U64 here[inlineWords];
      U64 * heap;
   } store_ = {};
};

} // namespace QonTypes
