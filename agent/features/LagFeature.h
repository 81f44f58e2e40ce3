#pragma once
// Link aggregation: tables PORTCHANNEL and PORTCHANNEL_MEMBER become what the aggregation agent of
// a switch would publish, MCLAG_DOMAIN and MCLAG_INTERFACE what its MLAG agent would; Qon::LagSm
// makes of it what all features read and what the chip is to hold.
//
//    ConfigDB, events -> status, configuration, MLAG -> Qon::LagSm, LagProgSm -> SoftChip::LagTable
//                                          `-> LagConfigAggregatorSm -> LagConfigMapCreatorSm
//    LagTable -> Hardware::Lag::Status -> LagStateAggregatorSm -> show commands
//
// Sources: LagFeature.cc (configuration), LagFeatureMlag.cc, LagFeatureShow.cc.

#include <map>

#include "Qon/include/lag/QonEthPhyLagConfigAggregatorSm.h"
#include "Qon/include/lag/QonLagConfigMapCreatorSm.h"
#include "Qon/include/lag/QonLagCreatorSm.h"
#include "Qon/include/lag/QonLagSm.h"
#include "Qon/include/lag/QonLagStateAggregatorSm.h"
#include "agent/AgentFeature.h"
#include "agent/softchip/LagTable.h"

namespace QonAgent {

class ConfigRow;

class LagFeature : public AgentFeature {
 public:
   const char * name() const override { return "lag"; }
   void create( Agent & agent ) override;
   void destroy() override;
   std::vector< String > tables() const override {
      return { "PORTCHANNEL", "PORTCHANNEL_MEMBER", "MCLAG_DOMAIN", "MCLAG_INTERFACE" };
   }
   void configure( ConfigReader & reader ) override;
   std::vector< ShowCommand > showCommands() override;
   std::vector< EventKind > eventKinds() override;

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
   void domain( ConfigReader & reader, const ConfigRow & row );
   void mlagInterface( ConfigReader & reader, const ConfigRow & row );
   std::function< void() > memberEvent( const Json & line );
   std::function< void() > mlagEvent( const Json & line );

   void createCreators();
   Json portChannels( const std::vector< String > & arguments ) const;
   Json members( const std::vector< String > & arguments ) const;
   Json mlag( const std::vector< String > & arguments ) const;
   Json chip( const std::vector< String > & arguments ) const;
   /** The ports that the aggregate lists, has, or is lent. */
   std::vector< Ulnet::IntfId > portsOf( Ulnet::IntfId lag ) const;
   Json memberRow( Ulnet::IntfId lag, Ulnet::IntfId port ) const;
   Hardware::Lag::MemberStatus held( Ulnet::IntfId lag, Ulnet::IntfId port ) const;
   /** Why a port that the aggregate lists is not what it should be; empty if it is. */
   String why( Ulnet::IntfId lag, Ulnet::IntfId port ) const;

   Agent * agent_ = nullptr;
   Velto::Ptr< Interface::EthLagIntfStatusDir > status_;
   Velto::Ptr< Interface::EthLagIntfConfigDir > config_;
   Velto::Ptr< Hardware::Lag::MemberStatusDir > memberStatus_;
   Velto::Ptr< Hardware::FapIdPortDir > fapIdPorts_;
   Velto::Ptr< Hardware::Lag::Config > hardware_;
   Velto::Ptr< Hardware::Lag::Status > state_; // merged
   Velto::Ptr< Mlag::Status > mlag_;
   Velto::Ptr< Qon::LagProgSm > progSm_;
   Velto::Ptr< Qon::LagSm > lagSm_;
   Velto::Ptr< SoftChip::LagTable > chip_;
   Velto::Ptr< Qon::LagConfigAggregatorSm > configAggregator_;
   Velto::Ptr< Qon::LagConfigMapCreatorSm > mapCreator_;
   Velto::Ptr< Qon::QonLagCreatorSm > creator_;
   Velto::Ptr< Qon::LagStateAggregatorSm > stateAggregator_;
   String domain_; // of MCLAG_DOMAIN
   std::map< Ulnet::IntfId, Channel > channels_;
};

} // namespace QonAgent
