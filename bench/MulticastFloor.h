#pragma once
// The floor of the benchmarks of multicast groups: the same outcome written straight down, a map of
// bitmaps over dense maps.
//
// It hears the same status, makes the same virtual calls in the same order and raises the same messages.
// A group has interfaces, ports or port-channels; of those the ports are a bitmap of any size, shared by
// content. It has no clocks and no slices, and nothing of it may be called while it works.

#include <algorithm>
#include <memory>
#include <vector>

#include "Qon/include/framework/Bitmap.h"
#include "Qon/include/framework/QonLog.h"
#include "Qon/include/framework/Reconcile.h"
#include "platform/Kiv/Log.h"
#include "platform/types/Ulnet.h"

namespace Bench {

using Bridging::MacVlanPair;
using QonTypes::Bitmap;
using Ulnet::IntfId;
using Velto::Ptr;

/** What both sides call; it counts. */
struct MulticastChip {
   virtual ~MulticastChip() = default;
   virtual S64 take() {
      if ( used >= room ) {
         return -1;
      }
      ++used;
      return ++next;
   }
   virtual void giveBack() { --used; }
   virtual void write() { ++writes; }
   virtual void lead( S64 index ) { writes += U64( index ); }
   U32 room = ~U32( 0 ), used = 0;
   S64 next = 0;
   U64 writes = 0;
};

/** Groups by hand. */
class MulticastByHand {
   struct Shared {
      S64 index = 0;
      U32 count = 0;
   };
   struct Group {
      explicit Group( const MacVlanPair & k ) : key( k ) {}
      const MacVlanPair key;
      Bitmap own; // its ports, those of port-channels excepted
      std::vector< IntfId > lags;
      Bitmap held; // as the chip has it; empty: not, or it floods
      bool pending = false, floods = false;
   };
   struct Lag {
      Bitmap members;
      std::vector< Group * > groups;
   };

 public:
   explicit MulticastByHand( MulticastChip & chip ) : chip_( chip ) {}

   /** The port has that bit. */
   void portIs( IntfId port, U32 bit ) { *bits_.emplace( port, 0u ).first = bit; }
   void membersAre( IntfId lag, const std::vector< IntfId > & ports ) {
      Lag & held = *lags_.emplace( lag ).first;
      held.members.clear();
      for ( IntfId port : ports ) {
         held.members.bitIs( *bits_.find( port ) );
      }
      for ( Group * group : held.groups ) {
         later( *group );
      }
   }
   void memberIs( const MacVlanPair & key, IntfId intf, bool member ) {
      auto & group = *groups_.emplace( key ).first;
      if ( !group ) {
         group = std::make_unique< Group >( key );
      }
      if ( Ulnet::PortChannelIntfId::isPortChannelIntfId( intf ) ) {
         lagIs( *group, intf, member );
      } else if ( const U32 * bit = bits_.find( intf ) ) {
         group->own.bitIs( *bit, member );
      }
      later( *group );
   }
   void settle() {
      for ( Group * group : pending_ ) {
         group->pending = false;
         review( *group );
      }
      pending_.clear();
   }
   /** There is room: those that flood, in the order in which they came. */
   void recover() {
      for ( Group * group : std::exchange( waiting_, {} ) ) {
         review( *group );
      }
   }
   /** Where a group leads that finds no room. */
   void floodIs( S64 group ) { flood_ = group; }
   U32 flooding() const { return U32( waiting_.size() ); }

 private:
   void lagIs( Group & group, IntfId lag, bool member ) {
      auto & users = lags_.emplace( lag ).first->groups;
      if ( member ) {
         group.lags.push_back( lag );
         users.push_back( &group );
      } else {
         std::erase( group.lags, lag );
         std::erase( users, &group );
      }
   }
   void later( Group & group ) {
      if ( !std::exchange( group.pending, true ) ) {
         pending_.push_back( &group );
      }
   }
   void review( Group & group ) {
      Bitmap wanted = group.own;
      for ( IntfId lag : group.lags ) {
         wanted |= lags_.find( lag )->members;
      }
      if ( wanted == group.held ) {
         return;
      }
      Shared & shared = *sets_.emplace( wanted ).first;
      if ( shared.count == 0 ) {
         shared.index = chip_.take();
         if ( shared.index < 0 ) {
            sets_.erase( wanted );
            flood( group );
            return;
         }
         chip_.write();
      }
      ++shared.count;
      chip_.lead( shared.index );
      leave( group );
      group.held = std::move( wanted );
      if ( std::exchange( group.floods, false ) ) {
         say( clear_, group );
      }
   }
   void flood( Group & group ) {
      chip_.lead( flood_ );
      leave( group );
      group.held.clear();
      if ( !std::exchange( group.floods, true ) ) {
         waiting_.push_back( &group );
         say( full_, group, chip_.room );
      }
   }
   void leave( const Group & group ) {
      if ( !group.held.empty() ) {
         Shared & former = *sets_.find( group.held );
         if ( --former.count == 0 ) {
            chip_.giveBack();
            sets_.erase( group.held );
         }
      }
   }
   template< class... Args >
   void say( Qon::QonLogHandle & handle, const Group & group, const Args &... args ) {
      if ( handle.okToLog() ) {
         Kiv::log( handle, group.key.mac().stringValue(), U32( group.key.vlan() ), args... );
      }
   }

   MulticastChip & chip_;
   Qon::QonLogHandle full_{ "byHand", Qon::QonLog::DATAPLANE_NOMULTICASTGROUPS };
   Qon::QonLogHandle clear_{ "byHand", Qon::QonLog::DATAPLANE_MULTICASTGROUPCLEAR };
   Kiv::DenseMap< IntfId, U32 > bits_;
   Kiv::DenseMap< MacVlanPair, std::unique_ptr< Group > > groups_;
   Kiv::DenseMap< IntfId, Lag > lags_;
   Kiv::DenseMap< Bitmap, Shared > sets_;
   std::vector< Group * > pending_, waiting_;
   S64 flood_ = 0;
};

} // namespace Bench
