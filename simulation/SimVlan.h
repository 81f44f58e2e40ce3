#pragma once
// Membership of ports in VLANs, on a chip that keeps forwarding per VLAN: requests that replace
// and expand, VLANs that go, recirculation features, updates that fail.
//
// Checked at rest: the chip's table of every VLAN holds exactly the ports that were asked for and
// forward, with the flags that were asked for; nothing is under way.

#include <map>
#include <optional>
#include <set>

#include "agent/softchip/Chip.h"
#include "agent/softchip/VlanPart.h"
#include "simulation/ClockLaw.h"
#include "simulation/SimFeature.h"

namespace Sim {

class SimVlan : public SimFeature {
 public:
   using IntfId = Ulnet::IntfId;
   using VlanId = Bridging::VlanId;

   explicit SimVlan( World & world );
   ~SimVlan() override;

   static std::span< const Operation > operations();

   void drawFaults( Rng & rng, std::vector< String > & lines ) const override;
   void start() override;
   bool ready() override;
   String checkStep() const override;
   String checkInvariants() const override;
   void faultsIs( bool on ) override;
   String checkAtRest() const override;
   void tearDown() override;
   String checkTornDown() const override;
   void stop() override;
   void kill( Ending ending ) override;

   /** Null on a chip with topology tables. */
   SoftChip::SoftVlanHelper * helper() const { return helper_.ptr(); }
   bool inChip( VlanId vlan, IntfId port ) const { return table_.has( vlan, port ); }
   /** The membership that the chip shall hold; nothing where nobody says so. */
   std::optional< Qon::VlanMembership > wantedInChip( VlanId vlan, IntfId port ) const;
   /** Whether the VLAN went since the last rest: nobody waits for it, the chip may be late. */
   bool gone( VlanId vlan ) const { return gone_.contains( vlan ); }
   /** Whether somebody took the port out of the VLAN since the last rest, whatever its state: who
       waits for the state does not wait for that. */
   bool takenOut( VlanId vlan, IntfId port ) const { return takenOut_.contains( { vlan, port } ); }
   /** Whether a port stays in its VLANs whatever its state. */
   bool inRecirc( IntfId port ) const;
   /** Whether ports may be in the chip that stayed so, or that have just lost the right to. */
   bool recircSinceRest() const { return recirc_; }

 private:
   /** @name Operations */
   /** @{ */
   void replace( const Event & event );
   void expand( const Event & event );
   void remove( const Event & event );
   void recirculate( const Event & event );
   void finish( const Event & event );
   void modeIs( const Event & event );
   /** @} */

   void request( IntfId intf, VlanId vlan, U32 flags, bool expand );
   String checkVlan( VlanId vlan ) const;
   String checkRetry() const;

   Rng rng_;
   mutable U32 sinceCheck_ = 0;
   mutable ClockLaw retries_;
   U32 mode_ = 0;
   std::map< std::pair< U16, IntfId >, Qon::VlanMembership > wanted_;
   mutable std::set< U16 > gone_;
   mutable std::set< std::pair< U16, IntfId > > takenOut_;
   mutable bool recirc_ = false;
   SoftChip::VlanTable & table_;
   Velto::Ptr< SoftChip::SoftVlanHelper > helper_;
};

} // namespace Sim
