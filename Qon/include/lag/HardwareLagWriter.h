#pragma once
// Writes members of groups to Hardware::Lag::Config, for whichever state machine decides them.
//
// Hardware::Lag::Config has one writer in an agent, one of three:
//    LagProgSm              LagSm hands it the members; the only one that knows what the peer link lends
//    LagConfigMapCreatorSm  from the configuration, before anything is negotiated
//    QonLagCreatorSm        from the maps of the shared data, where a packet driver of the kernel is asked
// The first is right for most agents. Two of them would take each other's members out.
//
// Invariants
// 1. A port is an own member (not shared) of one group at most, at any moment: it is taken out of
//    the one, also of one that an earlier incarnation left, before it is put into another.
// 2. A group is there exactly while it has a member.
// 3. A call writes one member and costs the same with one group and with a thousand.
//
// Ownership: counts the configuration, of which it must be the only writer.

#include <optional>

#include "platform/Kiv/DenseMap.h"
#include "platform/Velto/Scope.h"
#include "platform/types/HardwareLag.h"

namespace Qon {

class HardwareLagWriter {
 public:
   using Member = Hardware::Lag::Member;

   explicit HardwareLagWriter( Velto::Ptr< Hardware::Lag::Config > config );

   const Hardware::Lag::Config & config() const { return *config_; }
   /** Learns what the configuration holds already. Call it before the first write. */
   void findOwners();

   /** The group of which the port is an own member; null is none. */
   Ulnet::IntfId owner( Ulnet::IntfId port ) const;
   bool has( Ulnet::IntfId lag, Ulnet::IntfId port ) const;
   /** The member as it is written; nothing if it is not. */
   std::optional< Member > member( Ulnet::IntfId lag, Ulnet::IntfId port ) const;

   void memberIs( Ulnet::IntfId lag, Ulnet::IntfId port, const Member & member );
   void memberDel( Ulnet::IntfId lag, Ulnet::IntfId port );
   /** Removes the whole group, member by member. */
   void lagDel( Ulnet::IntfId lag );
   /** Removes every member of which `wanted( lag, port )` is false, and groups without any. */
   template< class Wanted >
   void removeUnless( Wanted && wanted ) {
      Velto::FirstError error;
      for ( Ulnet::IntfId lag : lags() ) {
         for ( Ulnet::IntfId port : members( lag ) ) {
            if ( !wanted( lag, port ) ) {
               error.run( [&] { memberDel( lag, port ); } );
            }
         }
         error.run( [&] { dropIfEmpty( lag ); } );
      }
      error.pass();
   }

   std::vector< Ulnet::IntfId > lags() const;
   std::vector< Ulnet::IntfId > members( Ulnet::IntfId lag ) const;

 private:
   void dropIfEmpty( Ulnet::IntfId lag );

   const Velto::Ptr< Hardware::Lag::Config > config_;
   Kiv::DenseMap< Ulnet::IntfId, Ulnet::IntfId > owner_; // port -> group, as its own
};

} // namespace Qon
