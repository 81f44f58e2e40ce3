#pragma once
// MAC entries: a stream of learn, age and flush events goes to the chip's MAC programmer.
//
//    {"event": "mac", "op": "add", "mac": "00:1c:73:00:00:01", "vlan": 10, "intf": "Ethernet0"}
//    {"event": "mac", "op": "remove", "mac": "00:1c:73:00:00:01", "vlan": 10}
//    {"event": "mac", "op": "flushVlanPort", "vlan": 10, "intf": "Ethernet0"}
//
// `op` is add, remove, addMcast or the name of a flush; flushes need the fields that their names
// tell. Not needed: `type` (learnedDynamic), `table` (macHwKeyBridge).

#include "agent/AgentFeature.h"
#include "chip/MacPart.h"

namespace QonAgent {

class MacFeature : public AgentFeature {
 public:
   explicit MacFeature( Agent & agent );
   std::vector< ShowCommand > showCommands() override;
   std::vector< EventKind > eventKinds() override;

   /** Null if the chip has none. */
   Qon::QonMacProgrammer * programmer() const { return programmer_.ptr(); }

 private:
   struct Filter;
   std::function< void() > parse( const Json & line ) const;
   static void hand( Qon::QonMacProgrammer & programmer, const Qon::MacCmdPtr & cmd );
   Row row( const Qon::IndirectAccessMacCmd & cmd, const char * state ) const;
   Row row( const Qon::MacEntryKey & key, const QonChip::HeldHost & host ) const;
   Rows requested( Arguments arguments ) const;
   Rows hardware( Arguments arguments ) const;

   Agent & agent_;
   QonChip::MacPart * const part_; ///< null: the chip has none
   const Velto::Ptr< Qon::QonMacProgrammer > programmer_;
};

} // namespace QonAgent
