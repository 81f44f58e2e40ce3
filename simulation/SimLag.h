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
#include "agent/softchip/Chip.h"
#include "agent/softchip/LagPart.h"
#include "platform/Kiv/Listener.h"
#include "simulation/SimFeature.h"

namespace Sim {

class SimLag : public SimFeature {
 public:
   explicit SimLag( World & world );

   static std::span< const Operation > operations();

   void drawFaults( Rng & rng, std::vector< String > & lines ) const override;
   void start() override;
   bool ready() override;
   String checkInvariants() const override;
   void faultsIs( bool on ) override;
   String checkAtRest() const override;
   void tearDown() override;
   String checkTornDown() const override;
   void stop() override;
   void kill( Ending ending ) override;
   void held( Holdings & held ) const override;

   /** The part of the configuration that SimMlag changes. */
   Mlag::Status & mlag() const { return *mlag_; }
   void shareIs( Ulnet::IntfId lag, bool share );
   /** Something that matters here changed: check it all. */
   void touched() { dirty_ = true; }

   /** The aggregate that the configuration puts the port into; null is none. */
   Ulnet::IntfId wantedLag( Ulnet::IntfId port ) const;
   using Member = Hardware::Lag::Member;
   using Group = std::map< Ulnet::IntfId, Member >;
   /** The members that the chip shall hold, save those that were refused, as it is said. */
   Group wantedInChip( Ulnet::IntfId lag ) const;

 private:
   using IntfId = Ulnet::IntfId;

   /** @name Operations */
   /** @{ */
   void up( const Event & event );
   void down( const Event & event );
   void recreate( const Event & event );
   void join( const Event & event );
   void leave( const Event & event );
   void flagsAre( const Event & event );
   void fallbackIs( const Event & event );
   void deviceIs( const Event & event );
   void managedIs( const Event & event );
   void hardwarePortIs( const Event & event );
   void nestedIs( const Event & event );
   void latencyIs( const Event & event );
   void finish( const Event & event );
   void restart( const Event & event );
   /** @} */

   void lagIs( IntfId lag, bool there );
   void memberIs( IntfId lag, IntfId port, U32 flags );
   void memberDel( IntfId lag, IntfId port );
   void claim( IntfId port, IntfId lag );
   void unclaim( IntfId port, IntfId lag );
   void rebuildClaims();
   void chipLatencyIs( U32 latency );
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

   U32 latency_ = 0; ///< how late the chip is, see chipLatencyIs()
   SoftChip::LagPart & chip_;
   Velto::Ptr< Velto::Node > programmer_;
   Velto::Ptr< Qon::LagProgSm > progSm_;
   Velto::Ptr< Qon::LagSm > sm_;
   std::map< IntfId, Kiv::Listener< Hardware::Lag::LagConfig::memberAttr > > members_;
   Kiv::Listener< Hardware::Lag::Config::lagAttr > groups_;
   Kiv::Listener< Qon::QonCommonSmData::portToLagAttr > ports_;
};

} // namespace Sim
