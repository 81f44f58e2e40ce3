#pragma once
// Link aggregation: aggregates come, go and come back in one burst, members are listed by several
// aggregates, interfaces become managed and unmanaged, hardware ports appear late; the state
// machine is restarted on what it finds.
//
// Checked after every event against the configuration alone:
// 1. A managed port is in the aggregate that listed it last; the shared maps, the device names and
//    the fallback map say so and nothing else.
// 2. The hardware groups hold the own members whose hardware port is known, and what the peer link
//    lends.
// At every moment, inside bursts too:
// 3. When portToLag is published, it is the inverse of lagToPort.
// 4. No port is an own member of two hardware groups.
// And at rest:
// 5. The chip holds the hardware groups, save what it has no room for and says so.

#include <map>
#include <vector>

#include "Qon/include/lag/QonLagSm.h"
#include "agent/softchip/SoftLagProgrammer.h"
#include "simulation/Listener.h"
#include "simulation/SimFeature.h"

namespace Sim {

class SimLag : public SimFeature {
 public:
   explicit SimLag( World & world );

   static std::span< const Operation > operations();

   void start() override;
   void apply( const Event & event ) override;
   String checkInvariants() const override;
   void faultsIs( bool on ) override;
   String checkAtRest() const override;
   void tearDown() override;
   String checkTornDown() const override;
   void stop() override;

   /** The part of the configuration that SimMlag changes. */
   Mlag::Status & mlag() const { return *mlag_; }
   void shareIs( Ulnet::IntfId lag, bool share );
   /** Something that matters here changed: check it all. */
   void touched() { dirty_ = true; }

   /** The aggregate that the configuration puts the port into; null is none. */
   Ulnet::IntfId wantedLag( Ulnet::IntfId port ) const;

 private:
   using IntfId = Ulnet::IntfId;
   using Member = Hardware::Lag::Member;
   using Group = std::map< IntfId, Member >;

   void lagIs( IntfId lag, bool there );
   void recreate( IntfId lag );
   void memberIs( IntfId lag, IntfId port, U32 flags );
   void memberDel( IntfId lag, IntfId port );
   void claim( IntfId port, IntfId lag );
   void unclaim( IntfId port, IntfId lag );
   void rebuildClaims();
   void managedIs( IntfId port, bool managed );
   void latencyIs( U32 latency );
   void restart( U32 how );
   void leaveStale( U32 how );
   void portToLagHeard( IntfId port );
   void groupHeard( IntfId lag );
   void memberHeard( IntfId lag, IntfId port );

   bool managed( IntfId port ) const;
   IntfId wantedPeerLink( IntfId lag ) const;
   Group wantedGroup( IntfId lag ) const;
   String checkMaps() const;
   String checkLagToPort( IntfId lag ) const;
   String checkNames( IntfId lag ) const;
   String checkGroup( IntfId lag ) const;
   String checkChip( IntfId lag ) const;

   Velto::Ptr< Interface::EthLagIntfStatusDir > statuses_;
   Velto::Ptr< Lag::Input::IntfDeviceNameDir > names_;
   Velto::Ptr< Mlag::Status > mlag_;
   Velto::Ptr< Hardware::FapIdPortDir > hardwarePorts_;
   Velto::Ptr< Hardware::Lag::Config > hardware_;
   Velto::Ptr< Hardware::Lag::Status > hardwareStatus_;
   std::map< IntfId, std::vector< IntfId > > claims_; ///< port -> aggregates, the latest last
   std::map< IntfId, bool > share_;
   mutable bool dirty_ = true; ///< something happened since the last check
   mutable U32 sinceCheck_ = 0;
   U32 nested_ = 0; ///< changes to make while portToLag is published

   U32 latency_ = 0; ///< how late the chip is, see latencyIs()
   SoftChip::LagTable table_;
   Velto::Ptr< SoftChip::SoftLagProgrammer > chip_;
   Velto::Ptr< Qon::LagProgSm > progSm_;
   Velto::Ptr< Qon::LagSm > sm_;
   using MemberListener = Listener< Hardware::Lag::LagConfig::memberAttr >;
   std::map< IntfId, Velto::Ptr< MemberListener > > memberListeners_;
   Velto::Ptr< Listener< Hardware::Lag::Config::lagAttr > > groupListener_;
   Velto::Ptr< Listener< Qon::QonCommonSmData::portToLagAttr > > portListener_;
};

/** What the MLAG agent publishes: state, peer link, redirection, and which aggregates share. */
class SimMlag : public SimFeature {
 public:
   using SimFeature::SimFeature;

   static std::span< const Operation > operations();

   void apply( const Event & event ) override;
   void tearDown() override;
};

} // namespace Sim
