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
#include "agent/Configured.h"
#include "agent/base/ChangeTimes.h"
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
   std::vector< Counter > counters() const override;
   std::vector< String > ownNames() const override {
      return { "Hardware::Lag",     "LagPacketDriver", "LagConfigAggregatorSm",
               "Interface::EthLag", "Mlag::",          "Lag::" };
   }

 private:
   /** What a row of PORTCHANNEL says, of itself and of its members. */
   struct Channel {
      U8 fallback = 0;
      bool up = true;
      Interface::LagMode mode = Interface::LagMode::active;
      bool operator==( const Channel & ) const = default;
   };
   struct Member {
      Ulnet::IntfId lag;
      bool up;
      Interface::LagMode mode;
      bool operator==( const Member & ) const = default;
   };
   /** What a file says, while it is being read. */
   struct Reading {
      Configured< Ulnet::IntfId, Channel >::Said channels;
      std::map< Ulnet::IntfId, Channel > channel; ///< the same, by name
      Configured< Ulnet::IntfId, Member >::Said members;
      Configured< String, Ulnet::IntfId >::Said domains; ///< one at most, and its peer link
      Configured< Ulnet::IntfId, Kiv::Nothing >::Said sharers;
   };

   void channel( ConfigReader & reader, const ConfigRow & row, Reading & reading ) const;
   void member( ConfigReader & reader, Ulnet::IntfId lag, Ulnet::IntfId port, const String & field,
                Reading & reading ) const;
   void listedMembers( ConfigReader & reader, const ConfigRow & row, Reading & reading ) const;
   void domain( ConfigReader & reader, const ConfigRow & row, Reading & reading ) const;
   void mlagInterface( ConfigReader & reader, const ConfigRow & row, Reading & reading ) const;
   void become( const Reading & reading );
   void mlagBecomes( const Reading & reading );
   void memberIs( Ulnet::IntfId port, const Member & member, const Member * former );
   void memberDel( Ulnet::IntfId port, const Member & member );
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
   const ChangeTimes times_; // of state_
   Configured< Ulnet::IntfId, Channel > channels_;
   Configured< Ulnet::IntfId, Member > members_;
   Configured< String, Ulnet::IntfId > domain_;
   Configured< Ulnet::IntfId, Kiv::Nothing > sharers_;
};

} // namespace QonAgent
