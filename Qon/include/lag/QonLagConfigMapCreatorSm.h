#pragma once
// Creates hardware groups from the aggregated configuration of all interfaces.
//
//    AggregatedLagConfigDir --> LagConfigMapCreatorSm -> LagConfigMemberCreatorSm per aggregate
//    MemberStatusDir ---------'        | by key            (claims the ports that it lists)
//    FapIdPortDir ------------'        v
//    EthPhyIntfStatusDir -----'   reviewPort( port ) -> Hardware::Lag::Config
//    acsd.lagToPort ----------'
//
// One of three possible writers of Hardware::Lag::Config, of which an agent has one (HardwareLagWriter.h):
// this one for agents whose groups follow the configuration, which LagConfigAggregatorSm collects.
//
// Invariants
// 1. A member is in the configuration exactly while it is configured, and its member status, its
//    hardware port, its interface status and its aggregate port all exist.
// 2. A port that two aggregates list belongs to the one that listed it last.
// 3. At the start everything is added first; what is unused then is deleted after that.
// 4. One watcher of each input, which goes by the key: a change costs as much as the group is
//    large, whatever the number of aggregates.
//
// Ownership: counts inputs and outputs. The configuration is written by this class alone.

#include "Qon/include/framework/QonCommonSmData.h"
#include "Qon/include/framework/SmCollection.h"
#include "Qon/include/lag/HardwareLagWriter.h"
#include "Qon/include/lag/LagClaims.h"

namespace Qon {

class LagConfigMapCreatorSm;

/** The ports that one aggregate lists. */
class LagConfigMemberCreatorSm : public QonBaseSm {
 public:
   using LagConfig = Hardware::Lag::AggregatedLagConfig;
   LagConfigMemberCreatorSm( LagConfigMapCreatorSm * creator,
                             Velto::Ptr< const LagConfig > config );

   void handleInitialized() override;
   void handleMember( const Ulnet::IntfId & port );
   /** Lists nothing any more. */
   void doCleanup();

   Ulnet::IntfId lag() const { return config_->lagId(); }
   const KeySet< Ulnet::IntfId > & claims() const { return claims_; }
   /** Whether the aggregate port was there when it was last looked for. */
   bool lagExists() const { return lagExists_; }
   void lagExistsIs( bool v ) { lagExists_ = v; }

 private:
   LagConfigMapCreatorSm * creator_;
   const Velto::Ptr< const LagConfig > config_;
   KeySet< Ulnet::IntfId > claims_;
   bool lagExists_ = false;
   Kiv::Watch< LagConfig::memberAttr, LagConfigMemberCreatorSm,
               &LagConfigMemberCreatorSm::handleMember >
         memberWatch_;
};

class LagConfigMapCreatorSm : public QonBaseSm, public Checked {
 public:
   /** All must be there. */
   struct Inputs {
      Velto::Ptr< const QonCommonSmData > acsd;
      Velto::Ptr< const Hardware::Lag::AggregatedLagConfigDir > aggregatedLagConfigDir;
      Velto::Ptr< const Hardware::Lag::MemberStatusDir > memberStatusDir;
      Velto::Ptr< const Interface::EthPhyIntfStatusDir > ethPhyIntfStatusDir;
      Velto::Ptr< const Hardware::FapIdPortDir > fapIdPortDir;
   };
   LagConfigMapCreatorSm( Inputs inputs, Velto::Ptr< Hardware::Lag::Config > hwLagConfig );

   void handleInitialized() override;
   void kivDoZombieReactors() override;

   String checkInvariants() const override;

   void handleLagConfig( const Ulnet::IntfId & lag );
   /** Whether the aggregate port exists may have changed. */
   void handleLagToPort( const Ulnet::IntfId & lag );
   /** Something about the port changed, wherever it is a member. */
   void reviewPort( const Ulnet::IntfId & port );

 private:
   Velto::Ptr< LagConfigMemberCreatorSm >
   makeMemberSm( const Ulnet::IntfId & lag,
                 const Velto::Ptr< const LagConfigMemberCreatorSm::LagConfig > & config );
   void cleanUpMemberSm( const Ulnet::IntfId & lag, LagConfigMemberCreatorSm * sm );

   friend class LagConfigMemberCreatorSm;
   std::optional< Hardware::Lag::Member > wanted( Ulnet::IntfId lag, Ulnet::IntfId port ) const;

   const Inputs in_;
   HardwareLagWriter writer_;
   LagClaims claims_;
   bool resync_ = false; // the start: add, and delete nothing
   SmCollection< Ulnet::IntfId, Velto::Ptr< const LagConfigMemberCreatorSm::LagConfig >,
                 LagConfigMemberCreatorSm, LagConfigMapCreatorSm,
                 &LagConfigMapCreatorSm::makeMemberSm, &LagConfigMapCreatorSm::cleanUpMemberSm >
         members_{ this };
   Kiv::Watch< Hardware::Lag::AggregatedLagConfigDir::lagToPortAttr, LagConfigMapCreatorSm,
               &LagConfigMapCreatorSm::handleLagConfig >
         lagConfigWatch_;
   Kiv::Watch< QonCommonSmData::lagToPortAttr, LagConfigMapCreatorSm,
               &LagConfigMapCreatorSm::handleLagToPort >
         lagToPortWatch_;
   Kiv::Watch< Hardware::Lag::MemberStatusDir::memberStatusAttr, LagConfigMapCreatorSm,
               &LagConfigMapCreatorSm::reviewPort >
         memberStatusWatch_;
   Kiv::Watch< Interface::EthPhyIntfStatusDir::intfStatusAttr, LagConfigMapCreatorSm,
               &LagConfigMapCreatorSm::reviewPort >
         intfStatusWatch_;
   Kiv::Watch< Hardware::FapIdPortDir::fapIdPortAttr, LagConfigMapCreatorSm,
               &LagConfigMapCreatorSm::reviewPort >
         fapIdPortWatch_;
};

Velto::Ptr< LagConfigMapCreatorSm >
LagConfigMapCreatorSmIs( LagConfigMapCreatorSm::Inputs inputs,
                         Velto::Ptr< Hardware::Lag::Config > hwLagConfig );

} // namespace Qon
