#pragma once
// Link aggregation as other features see it: what an interface is, to which ports it leads, and
// which ports join and leave.
//
//    LagSm -> acsd.lagToPort, then acsd.portToLag
//                 |               |
//                 v               v
//               LagFollower: review( port ) -> handler( port, from, to ) of the feature
//
// The two maps are written one after the other. A port is a member of a group when both say so.
//
// Invariants of the follower
// 1. Level-triggered: it compares what holds now with what it told last; the end is the same
//    whichever of the maps is written first, and nothing is told twice.
// 2. A call costs as much as the group that changed is large, whatever the number of groups.
// 3. It remembers before it calls: a handler that changes the maps again is told so, nested.
//
// Ownership: views do not count the shared data; a follower is a member of the one that reacts.

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
             : acsd_->lagToPortHas( intf ) || Ulnet::PortChannelIntfId::isPortChannelIntfId( intf )
                   ? LagRole::aggregate
                   : LagRole::plain;
   }
   /** The group of which `port` is a member by both maps; null is none. */
   Ulnet::IntfId lagOf( Ulnet::IntfId port ) const {
      Ulnet::IntfId lag = acsd_->portToLag( port );
      return lag && acsd_->lagToPort( lag ).portHas( port ) ? lag : Ulnet::IntfId();
   }
   /** The ports that are members of `lag` by both maps, in the order of the list. */
   std::vector< Ulnet::IntfId > membersOf( Ulnet::IntfId lag ) const {
      std::vector< Ulnet::IntfId > members;
      for ( auto & [port, flags] : acsd_->lagToPort( lag ) ) {
         if ( acsd_->portToLag( port ) == lag ) {
            members.push_back( port );
         }
      }
      return members;
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
   explicit LagFollowerBase( Tell tell ) : portWatch_( this ), lagWatch_( this ), tell_( tell ) {}
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

   void told( Ulnet::IntfId port, Ulnet::IntfId from, Ulnet::IntfId to );

   const QonCommonSmData * acsd_ = nullptr;
   Velto::Node * owner_ = nullptr;
   Kiv::DenseMap< Ulnet::IntfId, Ulnet::IntfId > lagOf_; // what was told last
   Kiv::DenseMap< Ulnet::IntfId, QonPortList > portsOf_; // its inverse
   MapWatch< QonCommonSmData::portToLagAttr, &LagFollowerBase::handlePortToLag > portWatch_;
   MapWatch< QonCommonSmData::lagToPortAttr, &LagFollowerBase::handleLagToPort > lagWatch_;
   Tell tell_;
};

/** Tells its owner, a state machine, who joins and leaves: `handler( port, from, to )`, where
    `from` is null for a port that joins, `to` is null for one that leaves, and neither for one
    that moves. Declare it as one of the last members. */
template< class Owner,
          void ( Owner::*handler )( Ulnet::IntfId port, Ulnet::IntfId from, Ulnet::IntfId to ) >
class LagFollower : public LagFollowerBase {
 public:
   LagFollower()
       : LagFollowerBase(
               []( Velto::Node * owner, Ulnet::IntfId port, Ulnet::IntfId from, Ulnet::IntfId to ) {
                  ( static_cast< Owner * >( owner )->*handler )( port, from, to );
               } ) {}
   /** Follows `acsd` from now on, and tells of the members that there are. Null ends it, silently;
       what was told is kept, and is the ground of comparison when it is attached again. */
   void attach( Owner * owner, const QonCommonSmData * acsd ) { attachTo( owner, acsd ); }
};

} // namespace Qon
