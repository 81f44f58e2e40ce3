#pragma once
// Multicast groups over the chip in software: more sets of ports than it has groups, a MAC table without
// room, refusals, aggregates and ports that come and go, routers, parity errors, pauses, restarts, and
// changes made from within hooks.
//
// Checked after every event:
// 1. What MulticastHelper promises; the chip has as many groups as there are bitmaps.
// At rest, from the configuration and the shared data alone:
// 2. The chip forwards each group that somebody wants, and that ever had a member, to exactly its members,
//    and to no others but routers' ports of its VLAN; or to all ports, if that was said and every group of
//    the chip is taken; or has no entry for it while the MAC table has no room.
// 3. It forwards no other group, no two of its groups have the same ports, and none is nobody's.

#include <map>
#include <set>

#include "Qon/include/multicast/IgmpSnoopingSm.h"
#include "agent/softchip/Chip.h"
#include "agent/softchip/MulticastPart.h"
#include "simulation/SimFeature.h"

namespace Sim {

class SimMulticast : public SimFeature {
 public:
   explicit SimMulticast( World & world );

   static std::span< const Operation > operations();
   static void shape( const World & world, SoftChip::Shape & shape );

   void drawFaults( Rng & rng, std::vector< String > & lines ) const override;
   void start() override;
   String checkInvariants() const override;
   void heard( const Kiv::LogDescriptor & descriptor, const String & text ) override;
   void faultsIs( bool on ) override;
   String checkAtRest() const override;
   bool mayStayArmed() const override;
   void tearDown() override;
   String checkTornDown() const override;
   void stop() override;
   void kill( Ending ending ) override;

   /** The ports that a group's frames must leave by, and others by which they may. */
   struct Way {
      bool known = true; ///< false: two want it, or something has no room
      bool there = false;
      std::set< Ulnet::IntfId > ports, allowed;
   };
   Way wantedInChip( const Bridging::MacVlanPair & key ) const;
   Bridging::MacVlanPair groupKey( U32 i, U32 vlan ) const { return key( i, vlan ); }

   /** A hook was called: one more change, now and then. */
   void hookCalled();

 private:
   using IntfId = Ulnet::IntfId;
   using Key = Bridging::MacVlanPair;
   using Ports = std::set< IntfId >;
   using Group = Bridging::IgmpSnooping::EthGroupStatus;
   using StaticGroup = Bridging::Multicast::StaticGroup;

   /** @name Operations */
   /** @{ */
   void join( const Event & event );
   void leave( const Event & event );
   void groupDel( const Event & event );
   void recreate( const Event & event );
   void validIs( const Event & event );
   void routerIs( const Event & event );
   void vlanDel( const Event & event );
   void staticIs( const Event & event );
   void staticDel( const Event & event );
   void memberIs( const Event & event );
   void portIs( const Event & event );
   void mlagIs( const Event & event );
   void parity( const Event & event );
   void numberIs( const Event & event );
   void nestedIs( const Event & event );
   void pauseIs( const Event & event );
   void restart( const Event & event );
   /** @} */

   // The model
   /** What one of those who want a group wants. */
   struct Wish {
      Ports ports;   // it must leave by
      Ports allowed; // and may leave by
      bool members;  // whether there are any
   };
   Ulnet::EthAddr address( U32 i ) const;
   Key key( U32 group, U32 vlan ) const;
   Velto::Ptr< Group > group( const Event & event ) const;
   bool isPort( IntfId intf ) const;
   void addPorts( IntfId intf, Ports & ports ) const;
   Ports allPorts() const;
   std::vector< Wish > wishesFor( const Key & key ) const;
   String checkGroup( const Key & key ) const;
   String checkChip() const;
   bool groupsUsedUp() const;
   void change( U32 what );

   SoftChip::MulticastTable & table_;
   Velto::Ptr< Bridging::IgmpSnooping::Status > status_;
   Velto::Ptr< Bridging::Multicast::StaticConfig > static_;
   Velto::Ptr< Qon::MulticastHelper > helper_;
   Velto::Ptr< Qon::IgmpSnoopingSm > sm_;
   std::set< Key > saidToFlood_;
   U32 nested_ = 0;
   U32 serial_ = 0;
   bool inHook_ = false;
   bool paused_ = false;
};

} // namespace Sim
