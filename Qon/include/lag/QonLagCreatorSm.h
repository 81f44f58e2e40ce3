#pragma once
// Creates hardware groups from the membership that all features see.
//
//    acsd.lagToPort, portToLag --> QonLagCreatorSm -> LagMemberCreatorSm per aggregate
//    EthPhyIntfStatusDir ---------'   by key              | getLagInfo( index ) of LagPacketDriver
//    FapIdPortDir ---------------'                        v
//                                              Hardware::Lag::Config
//
// One of three possible writers of Hardware::Lag::Config, of which an agent has one (HardwareLagWriter.h):
// this one for agents that keep groups in step with a packet driver of the kernel.
//
// Invariants
// 1. A member is in the configuration exactly while both maps say that it is one, its interface has
//    a status, and its hardware port is known.
// 2. One watcher of each input, which goes by the key: a change costs as much as the group is
//    large, whatever the number of aggregates.
// 3. An aggregate without members, or without an index, has no hardware group.
//
// Ownership: counts inputs and outputs. The configuration is written by this class alone.

#include "Qon/include/framework/QonCommonSmData.h"
#include "Qon/include/framework/SmCollection.h"
#include "Qon/include/lag/HardwareLagWriter.h"
#include "Qon/include/lag/QonLagIndex.h"

namespace Qon {

/** The packet driver's side of aggregates. A chip-specific agent overrides the hook. */
class LagPacketDriver : public QonBaseHelper {
 public:
   /** Room for one answer, in bytes. */
   static constexpr U32 commandBufferSize = 512;

   explicit LagPacketDriver( const String & name ) : QonBaseHelper( name ) {}

   /** Asks the kernel for its view of the aggregate, when a member of it is looked at. Writes at
       most `size` bytes to `buffer`, a text that ends in 0. Returns 0; anything else is a failure
       and fatal to the caller. */
   virtual int getLagInfo( U32 lagIndex, char * buffer, U32 size );
};

class QonLagCreatorSm;

/** The members of one aggregate. */
class LagMemberCreatorSm : public QonBaseSm {
 public:
   LagMemberCreatorSm( QonLagCreatorSm * creator, Ulnet::IntfId lag );

   void handleInitialized() override;
   /** The aggregate's list changed. */
   void handleMemberList();
   /** Adds the member, or brings what is programmed of it up to date, if all that it takes is
       there; else takes it out. */
   void maybeAddLagConfigMember( Ulnet::IntfId member );
   void removeLagConfigMember( Ulnet::IntfId member );
   /** Takes all members out. */
   void doCleanup();

   Ulnet::IntfId lag() const { return lag_; }

 private:
   std::optional< Hardware::Lag::Member > wanted( Ulnet::IntfId member ) const;

   QonLagCreatorSm * creator_;
   const Ulnet::IntfId lag_;
};

class QonLagCreatorSm : public QonBaseSm {
 public:
   /** All must be there. */
   struct Inputs {
      Velto::Ptr< const QonCommonSmData > acsd;
      Velto::Ptr< const Interface::EthPhyIntfStatusDir > ethPhyIntfStatusDir;
      Velto::Ptr< const Hardware::FapIdPortDir > fapIdPortDir;
      Velto::Ptr< LagPacketDriver > packetDriver;
   };
   QonLagCreatorSm( Inputs inputs, Velto::Ptr< Hardware::Lag::Config > hwLagConfig );

   void handleInitialized() override;
   void kivDoZombieReactors() override;

   /** The port-channel number; fatal for an interface that has no index. */
   static U32 getLagIndex( Ulnet::IntfId lagName ) { return Qon::getLagIndex( lagName ); }

   LagMemberCreatorSm * lagMemberSm( Ulnet::IntfId lag ) const { return members_.sm( lag ); }

   void handleLagToPort( const Ulnet::IntfId & lag );
   /** Something about the port changed: its aggregate, its interface status, its hardware port. */
   void handlePort( const Ulnet::IntfId & port );

   Velto::Ptr< LagMemberCreatorSm > addLagMemberSm( const Ulnet::IntfId & lag, const bool & );
   void removeLagMemberSm( const Ulnet::IntfId & lag, LagMemberCreatorSm * sm );

 private:
   friend class LagMemberCreatorSm;

   const Inputs in_;
   HardwareLagWriter writer_;
   SmCollection< Ulnet::IntfId, bool, LagMemberCreatorSm, QonLagCreatorSm,
                 &QonLagCreatorSm::addLagMemberSm, &QonLagCreatorSm::removeLagMemberSm >
         members_{ this };
   Kiv::Watch< QonCommonSmData::lagToPortAttr, QonLagCreatorSm, &QonLagCreatorSm::handleLagToPort >
         lagToPortWatch_;
   Kiv::Watch< QonCommonSmData::portToLagAttr, QonLagCreatorSm, &QonLagCreatorSm::handlePort >
         portToLagWatch_;
   Kiv::Watch< Interface::EthPhyIntfStatusDir::intfStatusAttr, QonLagCreatorSm,
               &QonLagCreatorSm::handlePort >
         intfStatusWatch_;
   Kiv::Watch< Hardware::FapIdPortDir::fapIdPortAttr, QonLagCreatorSm,
               &QonLagCreatorSm::handlePort >
         fapIdPortWatch_;
};

Velto::Ptr< QonLagCreatorSm > QonLagCreatorSmIs( QonLagCreatorSm::Inputs inputs,
                                                 Velto::Ptr< Hardware::Lag::Config > hwLagConfig );

} // namespace Qon
