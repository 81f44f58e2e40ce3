#pragma once
// Programs hardware groups: from the members that LagSm wants, and the hardware ports that are
// known, to Hardware::Lag::Config, which the chip follows.
//
//    LagSm -> memberIs( lag, port, ... ) / memberDel( lag, port ) --.
//    FapIdPortDir.fapIdPort[ port ] --------------------------------+-> review( lag, port )
//                                              Config.lag[ lag ].member[ port ] <-'
//    chip -> Hardware::Lag::Status -> programmed( lag, port )
//
// One of three possible writers of Hardware::Lag::Config, of which an agent has one (HardwareLagWriter.h):
// this one for agents that follow LagSm, which is most of them.
//
// Who owns the mounts says inputsReadIs( true ) once the directory of hardware ports has been read
// for the first time (at once where there is none). Until then a hardware port that is missing
// is one that was not read yet: what an earlier incarnation programmed goes on to forward.
//
// Invariants
// 1. From then on a member is in Config exactly while it is wanted and its hardware port is known; a
//    group exactly while it has a member. Before that, members are written, but none is removed for
//    the want of its hardware port, and nothing as stale.
// 2. A call writes at most one member and costs the same with one group and with a thousand.
// 3. Aggregates without an index (recirculation channels, names with two numbers) have no
//    hardware group.
//
// Ownership: counts its inputs and outputs. Config is written by this class alone.

#include "Qon/include/framework/QonBaseSm.h"
#include "Qon/include/framework/QonPortLists.h"
#include "Qon/include/lag/HardwareLagWriter.h"
#include "platform/types/HardwareLag.h"

namespace Qon {

class LagProgSm : public QonBaseSm, public Checked {
 public:
   /** `fapIdPortDir` may be null: then every port is programmed, as hardware port 0 of chip 0. */
   LagProgSm( Velto::Ptr< Hardware::Lag::Config > config,
              Velto::Ptr< const Hardware::Lag::Status > status,
              Velto::Ptr< const Hardware::FapIdPortDir > fapIdPortDir );

   void handleInitialized() override;

   /** `port` shall be a member of the group; `shared` when the peer link lends it. */
   void memberIs( Ulnet::IntfId lag, Ulnet::IntfId port, const QonLagPort & flags, bool shared );
   void memberDel( Ulnet::IntfId lag, Ulnet::IntfId port );
   /** The ports that shall be members, own and shared. */
   std::vector< Ulnet::IntfId > membersOf( Ulnet::IntfId lag ) const;
   /** Everything that is wanted has been said: removes from Config what is not, as another
       incarnation left it there; as soon as the inputs have been read. */
   void removeStale();

   /** Whether the directory of hardware ports holds what its writer has. Set by the hosting agent,
       once; true from the beginning without a directory. */
   bool inputsRead() const { return inputsRead_; }
   void inputsReadIs( bool v );

   /** What the chip says of a member; `pending` where it says nothing. */
   Hardware::Lag::MemberStatus programmed( Ulnet::IntfId lag, Ulnet::IntfId port ) const;
   const Hardware::Lag::Config & config() const { return writer_.config(); }

   void handleFapIdPort( const Ulnet::IntfId & port );

   String checkInvariants() const override;

 private:
   struct Wanted {
      QonLagPort flags;
      bool shared = false;
   };
   using WantedPorts = Kiv::DenseMap< Ulnet::IntfId, Wanted >;

   const Wanted * wanted( Ulnet::IntfId lag, Ulnet::IntfId port ) const;
   bool portKnown( Ulnet::IntfId port ) const;
   bool holdable( Ulnet::IntfId lag, Ulnet::IntfId port ) const;
   Hardware::Lag::Member memberOf( Ulnet::IntfId port, const Wanted & wanted ) const;
   void review( Ulnet::IntfId lag, Ulnet::IntfId port );
   String checkConfig( const Hardware::Lag::LagConfig & group,
                       Kiv::DenseMap< Ulnet::IntfId, Ulnet::IntfId > & owner ) const;

   void reviewAll();
   void removeIfRead();

   HardwareLagWriter writer_;
   bool inputsRead_;
   bool allWanted_ = false; // removeStale() was called
   const Velto::Ptr< const Hardware::Lag::Status > status_;
   const Velto::Ptr< const Hardware::FapIdPortDir > fapIdPortDir_;
   Kiv::DenseMap< Ulnet::IntfId, WantedPorts > wanted_;
   Kiv::DenseMap< Ulnet::IntfId, QonPortList > lagsOf_; // port -> groups that want it
   Kiv::Watch< Hardware::FapIdPortDir::fapIdPortAttr, LagProgSm, &LagProgSm::handleFapIdPort >
         fapIdPortWatch_;
};

Velto::Ptr< LagProgSm > LagProgSmIs( Velto::Ptr< Hardware::Lag::Config > config,
                                     Velto::Ptr< const Hardware::Lag::Status > status,
                                     Velto::Ptr< const Hardware::FapIdPortDir > fapIdPortDir );

} // namespace Qon
