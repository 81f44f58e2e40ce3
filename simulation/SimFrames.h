#pragma once
// Random frames, at rest: what the chip does with them is what FrameModel foresees of them. Looks on:
// there are no operations. On a chip with topology tables it also says who is a member of which VLAN,
// for that is nobody else's business there.

#include "simulation/FrameModel.h"
#include "simulation/SimFeature.h"

namespace Sim {

class SimFrames : public SimFeature {
 public:
   explicit SimFrames( World & world );

   static std::span< const Operation > operations() { return {}; }

   void start() override;
   String checkInvariants() const override;
   void faultsIs( bool on ) override;
   String checkAtRest() const override;
   void tearDown() override;
   String checkTornDown() const override;
   void stop() override;
   void kill( Ending ending ) override;

 private:
   using IntfId = Ulnet::IntfId;
   using VlanId = Bridging::VlanId;
   using Place = std::pair< VlanId, IntfId >;

   void drawMembers( U32 percent );
   void ask( const Place & place );
   void openRoads();
   void apply( const String & event );
   FrameModel::Members members() const;
   SoftChip::Frame frame( const Place & at ) const;
   std::vector< Place > openPlaces( const FrameModel & model ) const;
   Place anyPlace() const;
   Ulnet::EthAddr destination( VlanId vlan ) const;
   SoftChip::Tags drawTags( VlanId vlan ) const;
   void drawPacket( QonChip::AclPacket & packet ) const;
   String check( const FrameModel & model, const SoftChip::Frame & frame ) const;

   mutable Rng rng_;
   mutable U32 sinceCheck_ = 0;
   SoftChip::VlanTable & table_;
   Velto::Ptr< SoftChip::SoftVlanHelper > helper_; ///< null where forwarding is kept per VLAN
   std::map< Place, Qon::VlanMembership > wanted_;
   bool ended_ = false;
};

} // namespace Sim
