#pragma once
// Tap aggregation over the chip in software: taps and tools on ports and port-channels, several groups
// of one tap, policy maps, fewer groups than names, tool ports that cannot take frames, members that
// join and leave, modes that change, pauses, clean-ups and starts over what the chip holds, and changes
// made from within hooks.
//
// Checked after every event, from the configuration alone:
// 1. The chip holds the tap and tool ports that are configured and no members, with their settings, and
//    nothing outside of the mode.
// 2. Each tap port reaches the active tool ports of its groups, by the members that are listed, and
//    nothing else; nothing if its group is pending.
// 3. A name that is used has its group, unless the chip is full; ids of policy maps' names are published.
// While something happens:
// 4. The chip refuses nothing, and a group is freed a second after it was used last, at the earliest.
// 5. Who waits longest by name gets a group first.
// And at rest:
// 6. Nobody has a group that uses none; outside of the mode the chip is as it was before.

#include <map>
#include <set>

#include "Qon/include/tapagg/QonTapaggSm.h"
#include "agent/softchip/Road.h"
#include "agent/softchip/TapAggPart.h"
#include "simulation/SimFeature.h"

namespace Sim {

class SimTapAgg : public SimFeature {
 public:
   explicit SimTapAgg( World & world );
   ~SimTapAgg() override;

   static std::span< const Operation > operations();
   static void shape( const World & world, SoftChip::Shape & shape );

   void start() override;
   bool ready() override;
   String checkStep() const override;
   String checkInvariants() const override;
   void heard( const Kiv::LogDescriptor & descriptor, const String & text ) override;
   void faultsIs( bool on ) override;
   String checkAtRest() const override;
   void tearDown() override;
   String checkTornDown() const override;
   void stop() override;
   void kill( Ending ending ) override;

   /** What the chip shall do with frames that arrive at an interface. */
   struct Road {
      bool known = true; ///< false: an earlier life has left something there
      bool tap = false, tool = false;
      struct Way {
         std::set< Ulnet::IntfId > ports; ///< by one of them
         SoftChip::Tags tags;
      };
      std::vector< Way > ways; ///< of a tap port
   };
   Road road( Ulnet::IntfId intf, const SoftChip::Tags & tags ) const;

 private:
   using IntfId = Ulnet::IntfId;
   using TapGroups = Bridging::Input::TapGroups;
   class Helper;

   /** @name Operations */
   /** @{ */
   void tapIs( const Event & event );
   void tapDel( const Event & event );
   void toolIs( const Event & event );
   void toolDel( const Event & event );
   void recreate( const Event & event );
   void tapSetting( const Event & event );
   void toolSetting( const Event & event );
   void rawIs( const Event & event );
   void activeIs( const Event & event );
   void pmapGroupIs( const Event & event );
   void classIs( const Event & event );
   void policyMapDel( const Event & event );
   void serviceIs( const Event & event );
   void profileIs( const Event & event );
   void logIs( const Event & event );
   void memberIs( const Event & event );
   void reply( const Event & event );
   void modeIs( const Event & event );
   void nestedIs( const Event & event );
   void pause( const Event & event );
   void restart( const Event & event );
   /** @} */

   String name( U32 i ) const { return "g" + std::to_string( i % 6 ); }
   TapGroups groups( U32 bits ) const;
   void hookHeard();
   void change( U32 what );

   // The model
   bool tapMode() const;
   bool serves( IntfId intf ) const;
   std::set< String > namesInUse() const;
   bool takes( IntfId intf, const Bridging::Input::ToolPortConfig & tool,
               const Bridging::Input::TapGroups & groups ) const;
   std::set< IntfId > toolsOf( const TapGroups & groups ) const;
   SoftChip::Tags tagsBehind( IntfId tap, IntfId tool, const SoftChip::Tags & tags ) const;
   QonChip::HeldTapPort wantedTap( IntfId intf ) const;
   QonChip::HeldToolPort wantedTool( IntfId intf, const std::set< String > & names ) const;
   U32 idOf( const String & name ) const;
   /** The names are those in use. */
   String checkGroups( const std::set< String > & names ) const;
   String checkPort( IntfId intf, const std::set< String > & names ) const;
   String checkWays( IntfId intf ) const;

   SoftChip::TapAggTable & table_;
   Velto::Ptr< Bridging::Input::TapAggConfig > config_;
   Velto::Ptr< TapAgg::Status > status_;
   Velto::Ptr< TapAgg::ToolPortStatus > tools_;
   Velto::Ptr< TapAgg::PmapGroupConfig > pmapGroups_;
   Velto::Ptr< TapAgg::PmapGroupStatus > pmapStatus_;
   Velto::Ptr< TapAgg::PolicyMapConfig > policyMaps_;
   Velto::Ptr< Bridging::HostFlush::RequestDir > requests_;
   Velto::Ptr< Bridging::HostFlush::ReplyDir > replies_;
   Velto::Ptr< Qon::TapAggHelper > helper_;
   Velto::Ptr< Qon::TapAggSm > sm_;

   std::map< String, Kiv::Seconds > lastUse_;
   mutable Kiv::Seconds leftAt_ = 0; ///< when the mode, a pause or a life ended last, at the latest
   mutable bool left_ = false;       ///< one of them may have ended since somebody looked
   U32 nested_ = 0;
   U32 serial_ = 0;
   bool inHook_ = false;
   bool paused_ = false;
   bool stale_ = false;    ///< the chip holds what an earlier life left
   bool stopping_ = false; ///< groups go at once
};

} // namespace Sim
