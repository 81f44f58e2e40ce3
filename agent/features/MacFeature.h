#pragma once
// MAC entries: a stream of learn, age and flush events goes to the chip's MAC programmer.
//
//    {"event": "mac", "op": "add", "mac": "02:11:22:00:00:01", "vlan": 10, "intf": "Ethernet0"}
//    {"event": "mac", "op": "remove", "mac": "02:11:22:00:00:01", "vlan": 10}
//    {"event": "mac", "op": "flushVlanPort", "vlan": 10, "intf": "Ethernet0"}
//
// `op` is add, remove, addMcast or the name of a flush; flushes need the fields that their names
// tell. Not needed: `type` (learnedDynamic), `table` (macHwKeyBridge).

#include "agent/AgentFeature.h"
#include "chip/MacPart.h"
#include "platform/Kiv/OrderedMap.h"

namespace QonAgent {

class MacFeature : public AgentFeature {
 public:
   explicit MacFeature( Agent & agent );
   ~MacFeature() override;
   std::vector< ShowCommand > showCommands() override;
   std::vector< EventKind > eventKinds() override;
   std::vector< String > ownNames() const override {
      return { "QonMacProgrammer", "Qon::IndirectAccessMacCmd" };
   }
   std::vector< Counter > counters() const override;

   /** Null if the chip has none. */
   Qon::QonMacProgrammer * programmer() const { return programmer_.ptr(); }

 private:
   struct Filter;
   class Handed;
   /** What the chip refused, until it is asked for again or withdrawn. */
   struct Refused {
      Velto::Ptr< const Qon::IndirectAccessMacCmd > cmd;
      Kiv::Seconds since;
   };
   void handleAnswer( const Qon::MacEntryKey & key, const Qon::IndirectAccessMacCmd & cmd );
   void withdraw( const Qon::IndirectAccessMacCmd & flush );
   std::function< void() > parse( const Json & line );
   void hand( const Qon::MacCmdPtr & cmd );
   Row row( const Qon::IndirectAccessMacCmd & cmd, const char * state ) const;
   Row row( const Qon::MacEntryKey & key, const QonChip::HeldHost & host ) const;
   Rows requested( Arguments arguments ) const;
   Rows hardware( Arguments arguments ) const;

   Agent & agent_;
   QonChip::MacPart * const part_; ///< null: the chip has none
   const Velto::Ptr< Qon::QonMacProgrammer > programmer_;
   Kiv::OrderedMap< Qon::MacEntryKey, Velto::Ptr< Handed > > handed_; ///< not answered yet
   Kiv::OrderedMap< Qon::MacEntryKey, Refused > refused_;
};

} // namespace QonAgent
