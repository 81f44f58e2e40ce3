#pragma once
// MAC entries: a stream of learn, age and flush events goes to the MAC programmer, whose chip is
// the one in software.
//
//    {"event": "mac", "op": "add", "mac": "00:1c:73:00:00:01", "vlan": 10, "intf": "Ethernet0"}
//    {"event": "mac", "op": "remove", "mac": "00:1c:73:00:00:01", "vlan": 10}
//    {"event": "mac", "op": "flushVlanPort", "vlan": 10, "intf": "Ethernet0"}
//
// `op` is add, remove, addMcast or the name of a flush; flushes need the fields that their names
// tell. Not needed: `type` (learnedDynamic), `table` (macHwKeyBridge).

#include "agent/AgentFeature.h"
#include "agent/softchip/SoftMacProgrammer.h"

namespace QonAgent {

class MacFeature : public AgentFeature {
 public:
   explicit MacFeature( const SoftChip::HostTableShape & shape = {} ) : shape_( shape ) {}

   const char * name() const override { return "mac"; }
   void create( Agent & agent ) override;
   void destroy() override;
   std::vector< ShowCommand > showCommands() override;
   std::vector< EventKind > eventKinds() override;

   SoftChip::SoftMacProgrammer * programmer() const { return programmer_.ptr(); }

 private:
   std::function< void() > parse( const Json & line ) const;
   void hand( const Qon::MacCmdPtr & cmd );
   Json row( const Qon::IndirectAccessMacCmd & cmd, const char * state ) const;
   Json requested() const;
   Json hardware() const;
   Json hardwareRow( const Qon::MacEntryKey & key, const SoftChip::HostEntry & entry ) const;

   Agent * agent_ = nullptr;
   SoftChip::HostTableShape shape_;
   Velto::Ptr< SoftChip::SoftMacProgrammer > programmer_;
};

} // namespace QonAgent
