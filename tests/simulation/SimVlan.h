#pragma once
// Membership of ports in VLANs, on a chip that keeps forwarding per VLAN: requests that replace
// and expand, VLANs that go, recirculation features, updates that fail.
//
// Checked at rest: the chip's table of every VLAN holds exactly the ports that were asked for and
// forward, with the flags that were asked for; nothing is under way.

#include <map>

#include "agent/softchip/VlanTable.h"
#include "tests/simulation/SimFeature.h"

namespace Sim {

class SimVlan : public SimFeature {
 public:
   using IntfId = Ulnet::IntfId;
   using VlanId = Bridging::VlanId;

   explicit SimVlan( World & world );

   static std::span< const Operation > operations();

   void start() override;
   void apply( const Event & event ) override;
   String checkInvariants() const override;
   void faultsIs( bool on ) override;
   String checkAtRest() const override;
   void tearDown() override;
   String checkTornDown() const override;
   void stop() override;

   /** Null on a chip with topology tables. */
   SoftChip::SoftVlanHelper * helper() const { return helper_.ptr(); }
   bool inChip( VlanId vlan, IntfId port ) const { return helper_->has( vlan, port ); }
   /** Whether a port stays in its VLANs whatever its state. */
   bool inRecirc( IntfId port ) const;

 private:
   class Helper;

   void request( IntfId intf, VlanId vlan, U32 flags, bool expand );
   String checkVlan( VlanId vlan ) const;

   Rng rng_;
   U32 failing_; ///< per cent
   bool faults_ = false;
   mutable U32 sinceCheck_ = 0;
   U32 mode_ = 0;
   std::map< std::pair< U16, IntfId >, Qon::VlanMembership > wanted_;
   Velto::Ptr< SoftChip::SoftVlanHelper > helper_;
};

} // namespace Sim
