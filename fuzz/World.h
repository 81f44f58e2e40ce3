#pragma once
// An agent over a chip in software, made anew for every input, that says nothing.

#include "agent/Agent.h"
#include "agent/ConfigReader.h"
#include "agent/softchip/Chip.h"

namespace Fuzz {

using Velto::String;

/** Does it; whether it was not refused. */
template< class Work >
bool
accepted( Work && work ) {
   try {
      work();
      return true;
   } catch ( const Velto::RangeError & ) {
      return false;
   }
}

/** A switch that has a bit of everything, for inputs that change one. */
inline constexpr char smallSwitch[] = R"({
   "PORT": { "Ethernet0": {}, "Ethernet4": {}, "Ethernet8": {}, "Ethernet12": {} },
   "PORTCHANNEL": { "PortChannel1": { "min_links": "1" } },
   "PORTCHANNEL_MEMBER": { "PortChannel1|Ethernet0": {}, "PortChannel1|Ethernet4": {} },
   "VLAN": { "Vlan10": { "vlanid": "10" }, "Vlan20": { "vlanid": "20" } },
   "VLAN_MEMBER": { "Vlan10|Ethernet8": { "tagging_mode": "untagged" },
                    "Vlan20|PortChannel1": { "tagging_mode": "tagged" } } })";

template< class Scheduler >
class World {
 public:
   World() { agent.log().levelIs( 0 ); }

   void load( const String & text ) {
      const auto db = QonAgent::ConfigDb::parse( "config", text );
      QonAgent::ConfigReader( agent, db ).load();
   }

   Scheduler scheduler;
   SoftChip::Chip chip{ scheduler };
   QonAgent::Agent agent{ scheduler, chip };
};

/** On virtual time. */
class VirtualWorld : public World< Kiv::VirtualScheduler > {
 public:
   /** What follows has time for a retry or two. */
   void runOn() { scheduler.runFor( 10 ); }
};

} // namespace Fuzz
