#pragma once
// The interfaces that a group was asked to have: a few of them, in one piece of memory, in order.
//
//    MulticastHelper::addIntf -> insert( intf, syncs so far ) ; removeIntf -> erase( intf )
//
// Invariants
// 1. An interface is in it once; what stands beside it is from when it came.
// 2. Walks and what find() gives hold until the next insert() or erase().
//
// Ownership: a value.

#include <algorithm>
#include <vector>

#include "platform/types/IntfId.h"

namespace Qon {

class GroupMembers {
 public:
   using IntfId = Ulnet::IntfId;
   static constexpr U32 unknown = ~U32( 0 );
   struct Member {
      IntfId intf;
      U32 syncs = 0;             ///< that the group had had before it came
      mutable U32 bit = unknown; ///< of the port in bitmaps; noted by whoever has looked it up
   };

   U32 size() const { return U32( members_.size() ); }
   bool has( IntfId intf ) const { return find( intf ) != nullptr; }
   /** Its syncs; null: it is none of them. */
   const U32 * find( IntfId intf ) const {
      const auto at = members_.begin() + placeOf( intf );
      return at != members_.end() && at->intf == intf ? &at->syncs : nullptr;
   }
   /** Whether it is new. */
   bool insert( IntfId intf, U32 syncs ) {
      if ( has( intf ) ) {
         return false;
      }
      if ( members_.empty() ) {
         members_.reserve( 4 );
      }
      members_.insert( members_.begin() + placeOf( intf ), { intf, syncs } );
      return true;
   }
   /** Whether it was there. */
   bool erase( IntfId intf ) {
      const bool there = has( intf );
      if ( there ) {
         members_.erase( members_.begin() + placeOf( intf ) );
      }
      return there;
   }
   auto begin() const { return members_.begin(); }
   auto end() const { return members_.end(); }

 private:
   std::ptrdiff_t placeOf( IntfId intf ) const {
      auto before = []( const Member & member, IntfId other ) { return member.intf < other; };
      return std::lower_bound( members_.begin(), members_.end(), intf, before ) - members_.begin();
   }

   std::vector< Member > members_;
};

} // namespace Qon
