#pragma once
// Link aggregation: tables PORTCHANNEL and PORTCHANNEL_MEMBER become what the aggregation agent of
// a switch would publish; Qon::LagSm makes of it what all features read and the chip is to hold.

#include <map>

#include "Qon/include/QonLagSm.h"
#include "agent/AgentFeature.h"
#include "platform/types/HardwareLag.h"
#include "platform/types/Interface.h"

namespace QonAgent {

class ConfigRow;

class LagFeature : public AgentFeature {
 public:
   const char * name() const override { return "lag"; }
   void create( Agent & agent ) override;
   void destroy() override;
   std::vector< String > tables() const override { return { "PORTCHANNEL", "PORTCHANNEL_MEMBER" }; }
   void configure( ConfigReader & reader ) override;
   std::vector< ShowCommand > showCommands() override;

 private:
   /** What a row of PORTCHANNEL says about the members. */
   struct Channel {
      bool up = true;
      Interface::LagMode mode = Interface::LagMode::active;
   };

   void channel( ConfigReader & reader, const ConfigRow & row );
   void member( ConfigReader & reader, Ulnet::IntfId lag, Ulnet::IntfId port,
                const String & field );
   void listedMembers( ConfigReader & reader, const ConfigRow & row );
   Json portChannels( const std::vector< String > & arguments ) const;
   void memberRows( Ulnet::IntfId lag, const Interface::EthLagIntfStatus & status,
                    Json & rows ) const;
   Json members( const std::vector< String > & arguments ) const;

   Agent * agent_ = nullptr;
   Velto::Ptr< Interface::EthLagIntfStatusDir > status_;
   Velto::Ptr< Interface::EthLagIntfConfigDir > config_;
   Velto::Ptr< Hardware::Lag::Config > hardware_;
   Velto::Ptr< Qon::LagProgSm > progSm_;
   Velto::Ptr< Qon::LagSm > lagSm_;
   std::map< Ulnet::IntfId, Channel > channels_;
};

} // namespace QonAgent
