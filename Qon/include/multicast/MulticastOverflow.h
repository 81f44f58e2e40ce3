#pragma once
// What the agent has one of for all groups that the chip has no room for: the set that floods, and the
// queue in which they wait.
//
//    overflowed entry -> floodBitmap
//                    \-> vGroupNeedingHwEntry, mcastEntryNeedingHwEntry -> reviewed in this order when
//                        a group of the chip becomes free
//
// Invariants
// 1. floodBitmap is no entry of MulticastHelper::bitmapList() and is not freed when nobody points at it.
// 2. An entry is in the queue at most once, and its virtual group id is marked as long as it is.
// 3. Places only grow: who comes stands behind all others. What stands before a place is counted in a step
//    for a thousand that wait.
//
// Ownership: made by the helper when it is asked for first; counts entries and the flood set.

#include <array>
#include <bit>
#include <map>

#include "Qon/include/multicast/MulticastDataFactory.h"

namespace Qon {

class MulticastOverflow : public Kiv::Entity {
 public:
   using EntryPtr = Velto::Ptr< HardwareL2MulticastEntry >;

   explicit MulticastOverflow( const String & name ) : Kiv::Entity( name ) {}

   HardwareL2MulticastBitmap * floodBitmap() const { return floodBitmap_.ptr(); }
   void floodBitmapIs( Velto::Ptr< HardwareL2MulticastBitmap > bitmap ) {
      floodBitmap_ = std::move( bitmap );
   }

   bool vGroupNeedingHwEntryHas( S64 vGroup ) const { return marked_.has( vGroup ); }
   U32 vGroupNeedingHwEntrys() const { return marked_.size(); }
   void vGroupNeedingHwEntryIs( S64 vGroup ) { marked_.emplace( vGroup ); }
   void vGroupNeedingHwEntryDel( S64 vGroup ) { marked_.erase( vGroup ); }

   /** Numbers are places: of two the lower one is first. */
   U64 mcastEntryNeedingHwEntryEnq( EntryPtr entry ) {
      queue_.emplace_hint( queue_.end(), ++places_, std::move( entry ) );
      taken_.placeIs( places_ );
      return places_;
   }
   void mcastEntryNeedingHwEntryDeq() { mcastEntryNeedingHwEntryDel( firstPlace() ); }
   /** Takes out what stands at a place; nothing may stand there. */
   void mcastEntryNeedingHwEntryDel( U64 place ) {
      if ( auto entry = queue_.extract( place ) ) {
         taken_.placeDel( place );
      }
   }
   /** The first and the last. Raise Velto::RangeError when there is none. */
   const EntryPtr & mcastEntryNeedingHwEntryFront() const { return filled().begin()->second; }
   const EntryPtr & mcastEntryNeedingHwEntryBack() const { return filled().rbegin()->second; }
   bool mcastEntryNeedingHwEntryHas( const EntryPtr & entry ) const {
      for ( auto & [place, held] : queue_ ) {
         if ( held == entry ) {
            return true;
         }
      }
      return false;
   }
   void mcastEntryNeedingHwEntryDelAll() {
      taken_ = {};
      queue_.clear();
   }
   U32 mcastEntryNeedingHwEntrys() const { return U32( queue_.size() ); }
   /** The first place at which somebody stands; 0 if nobody does. */
   U64 firstPlace() const { return queue_.empty() ? 0 : queue_.begin()->first; }
   /** The last place that was ever given away. */
   U64 lastPlace() const { return places_; }
   /** How many stand before a place. */
   U32 before( U64 place ) const { return taken_.before( place ); }

 private:
   using Queue = std::map< U64, EntryPtr >;

   /** Which places are taken, by blocks of 1,024. */
   class Places {
    public:
      void placeIs( U64 place ) {
         Block & block = blocks_[place / blockSize];
         block.word( place ) |= bit( place );
         ++block.taken;
      }
      /** It is taken. */
      void placeDel( U64 place ) {
         const auto block = blocks_.find( place / blockSize );
         block->second.word( place ) &= ~bit( place );
         if ( --block->second.taken == 0 ) {
            blocks_.erase( block );
         }
      }
      U32 before( U64 place ) const {
         U32 count = 0;
         for ( auto & [number, block] : blocks_ ) {
            if ( number >= place / blockSize ) {
               return number == place / blockSize ? count + block.before( place ) : count;
            }
            count += block.taken;
         }
         return count;
      }

    private:
      static constexpr U32 blockSize = 1024;
      struct Block {
         U64 & word( U64 place ) { return words[place % blockSize / 64]; }
         U32 before( U64 place ) const {
            const U32 last = U32( place % blockSize / 64 );
            U32 count = U32( std::popcount( words[last] & ( bit( place ) - 1 ) ) );
            for ( U32 i = 0; i < last; ++i ) {
               count += U32( std::popcount( words[i] ) );
            }
            return count;
         }
         std::array< U64, blockSize / 64 > words = {};
         U32 taken = 0;
      };
      static U64 bit( U64 place ) { return U64( 1 ) << place % 64; }
      std::map< U64, Block > blocks_;
   };

   const Queue & filled() const {
      if ( queue_.empty() ) {
         throw Velto::RangeError( "queue is empty" );
      }
      return queue_;
   }

   Velto::Ptr< HardwareL2MulticastBitmap > floodBitmap_;
   KeySet< S64 > marked_;
   Queue queue_;
   Places taken_;
   U64 places_ = 0;
};

} // namespace Qon
