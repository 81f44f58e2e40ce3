#pragma once
// Physical ports: table PORT becomes interface status entities and the shared set of interfaces.
// It stands in for the interface agent of a switch: a port whose admin_status is up has link. The
// ports of a file have the hardware ports 1, 2, ... of chip 0, in its order.

#include "agent/AgentFeature.h"
#include "platform/types/HardwareLag.h"
#include "platform/types/Interface.h"

namespace QonAgent {

class PortsFeature : public AgentFeature {
 public:
   const char * name() const override { return "ports"; }
   void create( Agent & agent ) override;
   void destroy() override;
   std::vector< String > tables() const override { return { "PORT" }; }
   void configure( ConfigReader & reader ) override;
   std::vector< ShowCommand > showCommands() override;
   std::vector< EventKind > eventKinds() override;

 private:
   Json interfaces( const std::vector< String > & arguments ) const;

   Agent * agent_ = nullptr;
   Velto::Ptr< Interface::EthPhyIntfStatusDir > status_;
   Velto::Ptr< Hardware::FapIdPortDir > hwPorts_;
};

} // namespace QonAgent
