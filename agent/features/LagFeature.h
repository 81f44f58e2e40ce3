#pragma once
// Link aggregation: tables PORTCHANNEL and PORTCHANNEL_MEMBER become what the aggregation agent of
// a switch would publish, MCLAG_DOMAIN and MCLAG_INTERFACE what its MLAG agent would; Qon::LagSm
// makes of it what all features read and what the chip is to hold.
//
//    ConfigDB, events -> status, configuration, MLAG -> Qon::LagSm -> shared data
//    a writer -> Hardware::Lag::Config -> the chip's programmer -> Hardware::Lag::Status
//                                            LagStateAggregatorSm -> show commands <-'
//
// One of three writes the groups that the chip follows, by option lag-writer; the others are not
// made:
//    status      LagProgSm, from what the aggregation agent publishes; the only one that shares
//                peer links
//    interfaces  LagConfigMapCreatorSm, from the configuration of the interfaces
//    members     QonLagCreatorSm, from the members in the shared data
//
// Sources: LagFeature.cc (configuration), LagFeatureMlag.cc, LagFeatureShow.cc.

#include <map>

#include "Qon/include/lag/QonEthPhyLagConfigAggregatorSm.h"
#include "Qon/include/lag/QonLagConfigMapCreatorSm.h"
#include "Qon/include/lag/QonLagCreatorSm.h"
#include "Qon/include/lag/QonLagSm.h"
#include "Qon/include/lag/QonLagStateAggregatorSm.h"
#include "agent/AgentFeature.h"
#include "chip/LagPart.h"
#include "platform/Kiv/Listener.h"

namespace QonAgent {

class ConfigRow;

class LagFeature : public AgentFeature {
 public:
   explicit LagFeature( Agent & agent );
   static std::vector< FeatureOption > options();

   std::vector< ConfigTable > tables() const override;
   ConfigStage configStage() const override { return ConfigStage::aggregates; }
   void inputsRead() override;
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

   void makeInterfacesWriter();
   void makeMembersWriter();
   Rows portChannels( Arguments arguments ) const;
   Rows members( Arguments arguments ) const;
   Rows mlag() const;
   Rows chip( Arguments arguments ) const;
   Row portChannelRow( Ulnet::IntfId lag, const Interface::EthLagIntfStatus & status ) const;
   /** The ports that the aggregate lists, has, or is lent. */
   std::vector< Ulnet::IntfId > portsOf( Ulnet::IntfId lag,
                                         const Interface::EthLagIntfStatus & status ) const;
   Row memberRow( Ulnet::IntfId lag, const Interface::EthLagIntfStatus & status,
                  Ulnet::IntfId port ) const;
   Hardware::Lag::MemberStatus held( Ulnet::IntfId lag, Ulnet::IntfId port ) const;
   /** Why a port that the aggregate lists is not what it should be; empty if it is. */
   String why( Ulnet::IntfId lag, Ulnet::IntfId port ) const;
   /** Whether a writer wants the port in the group. */
   bool wanted( Ulnet::IntfId lag, Ulnet::IntfId port ) const;

   Agent & agent_;
   QonChip::LagPart * const part_; ///< null: the chip has none
   const Velto::Ptr< Interface::EthLagIntfStatusDir > status_;
   const Velto::Ptr< Interface::EthLagIntfConfigDir > config_;
   const Velto::Ptr< Hardware::Lag::MemberStatusDir > memberStatus_;
   const Velto::Ptr< Hardware::FapIdPortDir > fapIdPorts_;
   const Velto::Ptr< Hardware::Lag::Config > hardware_;
   const Velto::Ptr< Hardware::Lag::Status > held_;
   const Velto::Ptr< Hardware::Lag::Status > state_; // merged
   const Velto::Ptr< Mlag::Config > mlagConfig_;
   const Velto::Ptr< Mlag::Status > mlag_;
   const Velto::Ptr< Velto::Node > programmer_; // the chip's; null if it has none
   Velto::Ptr< Qon::LagProgSm > progSm_;
   Velto::Ptr< Qon::LagSm > lagSm_;
   Velto::Ptr< Qon::LagConfigAggregatorSm > configAggregator_;
   Velto::Ptr< Qon::LagConfigMapCreatorSm > mapCreator_;
   Velto::Ptr< Qon::QonLagCreatorSm > creator_;
   Velto::Ptr< Qon::LagStateAggregatorSm > stateAggregator_;
   Kiv::Listener< Mlag::Config::peerLinkSharerAttr > sharerHeard_;
   String domain_; // of MCLAG_DOMAIN
   std::map< Ulnet::IntfId, Channel > channels_;
};

} // namespace QonAgent
