#pragma once
// Physical ports: table PORT becomes interface status entities and the shared set of interfaces.
// It stands in for the interface agent of a switch: a port whose admin_status is up has link. The
// chip says which hardware port a port is; if it does not, the ports of a file have 1, 2, ... of
// chip 0, in its order.

#include "agent/AgentFeature.h"
#include "agent/Configured.h"
#include "platform/types/HardwareLag.h"
#include "platform/types/Interface.h"

namespace QonAgent {

class PortsFeature : public AgentFeature {
 public:
   explicit PortsFeature( Agent & agent );
   std::vector< ConfigTable > tables() const override;
   ConfigStage configStage() const override { return ConfigStage::ports; }
   void configure( ConfigReader & reader ) override;
   std::vector< ShowCommand > showCommands() override;
   std::vector< EventKind > eventKinds() override;
   std::vector< String > ownNames() const override { return { "Interface::EthPhy" }; }

 private:
   /** What a row says. */
   struct Port {
      Interface::EthSpeed speed;
      bool up;
      bool operator==( const Port & ) const = default;
   };
   void portIs( Ulnet::IntfId intf, const Port & port, const Port * former );
   void portDel( Ulnet::IntfId intf );
   Rows interfaces( Arguments arguments ) const;
   Qon::FapIdPort hwPort( Ulnet::IntfId intf ) const;

   Agent & agent_;
   const Velto::Ptr< Interface::EthPhyIntfStatusDir > status_;
   const Velto::Ptr< Hardware::FapIdPortDir > hwPorts_;
   Configured< Ulnet::IntfId, Port > configured_;
};

} // namespace QonAgent
