#pragma once
// Storm control of either generation: levels on ports and port-channels, members that join, leave
// and move, speeds, interfaces that are inactive, routed, unknown, late; limiters that are few;
// answers that are late or old; slices that go; traffic that exceeds what is allowed; pauses, stops
// and starts over what the chip holds.
//
// Checked after every event against the configuration alone:
// 1. What was asked of the chip for a port (a limiter, or a place among those that wait) is what the
//    port's configuration wants, its port-channel's if it is a member, and nothing else; in the
//    second generation the platform's configuration says so.
// 2. The sums of drops are those of the slices that are there.
// 3. A status is of the version of the moment, or as it was.
// While something happens:
// 4. A changed level, or speed, reaches no hook with what it had before, and no other level's.
// 5. Only an interface with a configuration is disabled, and only while the cause is enabled.
// And at rest:
// 6. The chip limits what it was asked to, as far as there are limiters; counters have arrived.

#include <map>
#include <optional>
#include <set>

#include "Qon/include/framework/HookTap.h"
#include "Qon/include/stormcontrol/QonStormControlDropSm.h"
#include "Qon/include/stormcontrol/QonStormControlErrdisableSm.h"
#include "Qon/include/stormcontrol/QonStormControlSm.h"
#include "Qon/include/stormcontrol/QonStormControlSmV2.h"
#include "agent/softchip/StormControlPart.h"
#include "platform/Kiv/Listener.h"
#include "simulation/SimFeature.h"

namespace Sim {

class SimStorm : public SimFeature, private Qon::HookListener {
 public:
   explicit SimStorm( World & world );

   static std::span< const Operation > operations();
   /** How many limiters there are, and what they can do. */
   static void shape( const World & world, SoftChip::Shape & shape );

   void drawFaults( Rng & rng, std::vector< String > & lines ) const override;
   void start() override;
   bool ready() override;
   String checkInvariants() const override;
   void faultsIs( bool on ) override;
   String checkAtRest() const override;
   bool mayStayArmed() const override;
   void tearDown() override;
   String checkTornDown() const override;
   void stop() override;
   void kill( Ending ending ) override;

   /** Whether nothing of the level, or of the traffic class, passes that arrives at the port; nothing
       where nobody says so. */
   std::optional< bool > stops( Ulnet::IntfId port, Bridging::StormControl::Level level,
                                U8 trafficClass ) const;

 private:
   using IntfId = Ulnet::IntfId;
   using Level = Bridging::StormControl::Level;
   using Threshold = Bridging::StormControl::Threshold;
   using Drops = Bridging::StormControl::Drops;
   using Limits = std::map< Level, SoftChip::StormTable::Limit >;

   /** @name Operations */
   /** @{ */
   void levelIs( const Event & event );
   void configIs( const Event & event );
   void recreate( const Event & event );
   void classIs( const Event & event );
   void speedIs( const Event & event );
   void activeIs( const Event & event );
   void modelIs( const Event & event );
   void statusIs( const Event & event );
   void memberIs( const Event & event );
   void managedIs( const Event & event );
   void subIntfIs( const Event & event );
   void trafficIs( const Event & event );
   void sliceIs( const Event & event );
   void loggingIs( const Event & event );
   void causeIs( const Event & event );
   void recover( const Event & event );
   void answer( const Event & event );
   void latencyIs( const Event & event );
   void finish( const Event & event );
   void pauseIs( const Event & event );
   void restart( const Event & event );
   /** @} */

   /** What the model knows of a configuration beside the entity: the rates of its CPU levels. */
   using CpuRates = std::map< Level, std::set< U64 > >;

   void hookCalled( const char * hook, const String & arguments ) override;
   void causeHeard( IntfId intf );
   void statusHeard( IntfId intf );
   void levelHeard( IntfId intf, Level level );
   bool answered( IntfId port ) const;
   void configDel( IntfId intf );
   Qon::StormControlBaseSm & sm() const;
   void initializedIs( bool on );

   IntfId lagOf( IntfId port ) const;
   /** The interface whose configuration holds on the port; null: none. */
   IntfId ownerOf( IntfId port ) const;
   bool wanted( IntfId port ) const;
   bool programs( Level level ) const;
   /** What the chip is to be asked for, save CPU rates of zero. */
   Limits wantedLimits( IntfId port ) const;
   Limits asked( IntfId port ) const;
   String checkPort( IntfId port ) const;
   String checkLimits( IntfId port, const Limits & limits ) const;
   String checkPlatform( IntfId port ) const;
   String checkStatus( IntfId port ) const;
   String checkSums() const;
   String checkClasses() const;
   U32 waiting() const;

   const bool second_; ///< generation
   SoftChip::StormControlPart & chip_;
   Velto::Ptr< Bridging::StormControl::Config > config_;
   Velto::Ptr< Bridging::StormControl::Status > status_;
   Velto::Ptr< Interface::EthPhyIntfStatusDir > phys_;
   Velto::Ptr< Qon::StormControl::DropSliceDir > slices_;
   Velto::Ptr< Qon::StormControl::DropStatus > drops_;
   Velto::Ptr< Qon::StormControl::PlatformConfig > platformConfig_;
   Velto::Ptr< Qon::StormControl::PlatformStatus > platformStatus_;
   Velto::Ptr< Errdisable::CauseConfig > causes_;
   Velto::Ptr< Errdisable::CauseStatus > disabled_;

   Velto::Ptr< Velto::Node > counter_;
   Velto::Ptr< Qon::StormControlSmHelper > helper_;
   Velto::Ptr< Qon::QonStormControlSmHelperV2 > helperV2_;
   Velto::Ptr< Qon::StormControlSm > smV1_;
   Velto::Ptr< Qon::QonStormControlSmV2 > smV2_;
   Velto::Ptr< Qon::StormControlDropSm > dropSm_;
   Velto::Ptr< Qon::StormControlErrdisableSm > errdisableSm_;

   bool paused_ = false;
   U32 latency_ = 0;
   std::map< IntfId, CpuRates > cpuRates_;
   std::map< String, String > told_; ///< level and port -> the rest of the last call
   String only_; ///< while a level or speed changes: the level that may be told, "" for all
   bool judged_ = false;
   std::set< IntfId > fooled_; ///< the chip's answer is not its own
   Kiv::Listener< Errdisable::CauseStatus::intfStatusAttr > causeHeard_;
   Kiv::Listener< Bridging::StormControl::Status::intfStatusAttr > statusHeard_;
   std::map< IntfId, Kiv::Listener< Bridging::StormControl::IntfStatus::levelAttr > > levelHeard_;
};

} // namespace Sim
