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
//
// Ownership: made by the helper when it is asked for first; counts entries and the flood set.

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
      return places_;
   }
   void mcastEntryNeedingHwEntryDeq() {
      if ( !queue_.empty() ) {
         queue_.erase( queue_.begin() );
      }
   }
   /** Takes out what stands at a place; 0 is nothing. */
   void mcastEntryNeedingHwEntryDel( U64 place ) { queue_.erase( place ); }
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
   void mcastEntryNeedingHwEntryDelAll() { queue_.clear(); }
   U32 mcastEntryNeedingHwEntrys() const { return U32( queue_.size() ); }
   /** How many stand before a place. Takes time by their number. */
   U32 before( U64 place ) const {
      return U32( std::distance( queue_.begin(), queue_.lower_bound( place ) ) );
   }

 private:
   using Queue = std::map< U64, EntryPtr >;
   const Queue & filled() const {
      if ( queue_.empty() ) {
         throw Velto::RangeError( "queue is empty" );
      }
      return queue_;
   }

   Velto::Ptr< HardwareL2MulticastBitmap > floodBitmap_;
   KeySet< S64 > marked_;
   Queue queue_;
   U64 places_ = 0;
};

} // namespace Qon
