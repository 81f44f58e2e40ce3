#pragma once
// Link aggregation as other features see it: what an interface is, to which ports it leads, and
// which ports join and leave.
//
//    LagSm -> acsd.lagToPort, then acsd.portToLag
//                 |               |
//                 v               v
//     listHandler( lag, port )   handler( port, from, to )   of the feature: LagFollower
//
// The two maps are written one after the other, and each answers one question: portToLag alone
// whether a port is a member and of which group, lagToPort alone which ports a group leads to.
//
// Invariants of the follower
// 1. Level-triggered: it compares what holds now with what it told last, and tells nothing twice.
// 2. A call costs as much as the group that changed is large, whatever the number of groups.
// 3. It remembers before it calls: a handler that changes the maps again is told so, nested.
//
// Ownership: views do not count the shared data; a follower is a member of the one that reacts.

#include <type_traits>
#include <vector>

#include "Qon/include/framework/QonCommonSmData.h"

namespace Qon {

enum class LagRole : U8 { plain, aggregate, member };

/** What an aggregate without members leads to. */
enum class EmptyAggregate : U8 { nothing, itself };

class LagView {
 public:
   explicit LagView( const QonCommonSmData * acsd ) : acsd_( acsd ) {}

   /** A port-channel is an aggregate even before its members are known. */
   LagRole role( Ulnet::IntfId intf ) const {
      return lagOf( intf ) ? LagRole::member
             : Ulnet::PortChannelIntfId::isPortChannelIntfId( intf ) || acsd_->lagToPortHas( intf )
                   ? LagRole::aggregate
                   : LagRole::plain;
   }
   /** The group of which `port` is a member; null is none. */
   Ulnet::IntfId lagOf( Ulnet::IntfId port ) const { return acsd_->portToLag( port ); }
   /** The ports that `lag` leads to, in the order of the list. */
   std::vector< Ulnet::IntfId > membersOf( Ulnet::IntfId lag ) const {
      std::vector< Ulnet::IntfId > members;
      for ( auto & [port, flags] : acsd_->lagToPort( lag ) ) {
         members.push_back( port );
      }
      return members;
   }
   bool lists( Ulnet::IntfId lag, Ulnet::IntfId port ) const {
      return acsd_->lagToPort( lag ).portHas( port );
   }
   /** Calls `act( port )` for every port that `intf` leads to: the members of an aggregate, else
       the interface itself. `act` may change the membership; the ports are those of the call. */
   template< class Act >
   void forEachTarget( Ulnet::IntfId intf, EmptyAggregate empty, Act && act ) const {
      if ( role( intf ) != LagRole::aggregate ) {
         act( intf );
         return;
      }
      auto members = membersOf( intf );
      for ( Ulnet::IntfId member : members ) {
         act( member );
      }
      if ( members.empty() && empty == EmptyAggregate::itself ) {
         act( intf );
      }
   }

 private:
   const QonCommonSmData * acsd_;
};

/** The follower without the type of its owner. Use LagFollower. */
class LagFollowerBase {
 public:
   LagFollowerBase( const LagFollowerBase & ) = delete;
   LagFollowerBase & operator=( const LagFollowerBase & ) = delete;

   /** The group of `port` that was told last; null is none. */
   Ulnet::IntfId lagOf( Ulnet::IntfId port ) const {
      auto lag = lagOf_.find( port );
      return lag ? *lag : Ulnet::IntfId();
   }

 protected:
   using Tell = void ( * )( Velto::Node * owner, Ulnet::IntfId port, Ulnet::IntfId from,
                            Ulnet::IntfId to );
   using TellList = void ( * )( Velto::Node * owner, Ulnet::IntfId lag, Ulnet::IntfId port );
   LagFollowerBase( Tell tell, TellList tellList )
       : portWatch_( this ), lagWatch_( this ), tell_( tell ), tellList_( tellList ) {}
   ~LagFollowerBase() = default;

   void attachTo( Velto::Node * owner, const QonCommonSmData * acsd );
   void handlePortToLag( const Ulnet::IntfId & port );
   void handleLagToPort( const Ulnet::IntfId & lag );

 private:
   template< class Attr, void ( LagFollowerBase::*handler )( const Ulnet::IntfId & ) >
   class MapWatch : public Kiv::WatchBase {
    public:
      explicit MapWatch( LagFollowerBase * follower )
          : Kiv::WatchBase( deliver ), follower_( follower ) {}
      void attach( Velto::Node * owner, const QonCommonSmData * acsd ) {
         attachTo( acsd, Attr::index + 1, owner );
      }

    private:
      static void deliver( Kiv::WatchBase & self, const void * key, int ) {
         ( static_cast< MapWatch & >( self ).follower_->*handler )(
               *static_cast< const Ulnet::IntfId * >( key ) );
      }
      LagFollowerBase * follower_;
   };

   const QonCommonSmData * acsd_ = nullptr;
   Velto::Node * owner_ = nullptr;
   Kiv::DenseMap< Ulnet::IntfId, Ulnet::IntfId > lagOf_; // what was told last
   Kiv::DenseMap< Ulnet::IntfId, QonPortList > portsOf_; // the lists as they were told last
   MapWatch< QonCommonSmData::portToLagAttr, &LagFollowerBase::handlePortToLag > portWatch_;
   MapWatch< QonCommonSmData::lagToPortAttr, &LagFollowerBase::handleLagToPort > lagWatch_;
   Tell tell_;
   TellList tellList_; // null if nobody wants to know
};

/** Tells its owner, a state machine, who joins and leaves: `handler( port, from, to )`, where
    `from` is null for a port that joins, `to` is null for one that leaves, and neither for one
    that moves; and `listHandler( lag, port )` when a group begins or ceases to lead to a port.
    Declare it as one of the last members. */
template< class Owner,
          void ( Owner::*handler )( Ulnet::IntfId port, Ulnet::IntfId from, Ulnet::IntfId to ),
          auto listHandler = nullptr >
class LagFollower : public LagFollowerBase {
 public:
   LagFollower()
       : LagFollowerBase(
               []( Velto::Node * owner, Ulnet::IntfId port, Ulnet::IntfId from, Ulnet::IntfId to ) {
                  ( static_cast< Owner * >( owner )->*handler )( port, from, to );
               },
               tellList() ) {}
   /** Follows `acsd` from now on, and tells of the members that there are. Null ends it, silently;
       what was told is kept, and is the ground of comparison when it is attached again. */
   void attach( Owner * owner, const QonCommonSmData * acsd ) { attachTo( owner, acsd ); }

 private:
   static TellList tellList() {
      if constexpr ( std::is_null_pointer_v< decltype( listHandler ) > ) {
         return nullptr;
      } else {
         return []( Velto::Node * owner, Ulnet::IntfId lag, Ulnet::IntfId port ) {
            ( static_cast< Owner * >( owner )->*listHandler )( lag, port );
         };
      }
   }
};

} // namespace Qon
