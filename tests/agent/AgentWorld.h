#pragma once
// A whole agent on virtual time, and what it says to a configuration.

#include <gtest/gtest.h>

#include "agent/Agent.h"
#include "agent/ConfigReader.h"
#include "agent/softchip/Chip.h"
#include "tests/harness/World.h"

namespace Tests {

using Velto::String;
using Lines = std::vector< String >;

class AgentWorld {
 public:
   QonAgent::ConfigReport load( const String & text ) {
      auto db = QonAgent::ConfigDb::parse( "x.json", text );
      auto report = QonAgent::ConfigReader( agent, db ).load();
      scheduler.settle();
      return report;
   }
   Qon::QonCommonSmData & acsd() { return *agent.acsd(); }

   Kiv::VirtualScheduler scheduler;
   Kiv::LogRecorder logs;
   SoftChip::Chip chip{ scheduler };
   QonAgent::Agent agent{ scheduler, chip };
};

} // namespace Tests
