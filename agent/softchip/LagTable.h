#pragma once
// The groups that the chip in software holds: a finite number of groups, and of members in each.
//
// Invariants
// 1. The table never holds more than it has room for, nor a hardware port as the own member of two
//    groups; what does not fit is refused, with the reason.
// 2. A group is in the table while it has members.
// 3. What a programmer left when it went is done at its time, or before the next one begins.
//
// Reads the fault plan: hook "lagMember" for each member that is written, tables "lagTable" and
// "lagMembers".

#include <optional>

#include "agent/softchip/Completions.h"
#include "agent/softchip/FaultPlan.h"
#include "platform/types/HardwareLag.h"

namespace SoftChip {

/** How much there is room for. */
struct LagLimits {
   U32 lags = 2048;
   U32 members = 64; ///< of one group
};

/** A member's place: the port in the group. */
struct LagPlace {
   Ulnet::IntfId lag;
   Ulnet::IntfId port;
   bool operator==( const LagPlace & ) const = default;
   U64 hash() const { return Kiv::hashJoin( lag.hash(), port.hash() ); }
};

class LagTable {
 public:
   using Member = Hardware::Lag::Member;
   using Result = Hardware::Lag::Result;
   using Members = Kiv::DenseMap< Ulnet::IntfId, Member >;
   struct Group {
      U32 index = 0;
      Members members;
   };
   using Groups = Kiv::DenseMap< Ulnet::IntfId, Group >;

   /** `faults` outlives the table. */
   LagTable( FaultPlan & faults, const LagLimits & limits ) : faults_( faults ), limits_( limits ) {
      faults.hookIs( "lagMember" );
      faults.tableIs( "lagTable" );
      faults.tableIs( "lagMembers" );
   }

   /** Changes the room there is; what is held already stays. */
   void limitsIs( const LagLimits & limits ) { limits_ = limits; }

   /** What writing a member came to. */
   struct Written {
      Result result;
      bool askAgain = false; ///< the chip was busy
   };
   /** Holds the member, or refuses it; one that is held as wanted is not written again, and one
       that is refused is not held any longer. */
   Written write( const LagPlace & place, U32 index, const Member & member );
   /** Writes the member after so many seconds, or takes it out if none is wanted; nobody hears what
       came of it. */
   void later( Kiv::Seconds after, const LagPlace & place, U32 index,
               const std::optional< Member > & want );
   /** Does now what waits for its time. */
   void finishAll() { late_.finishAll(); }
   /** Takes the member out; false if it is not held. */
   bool drop( const LagPlace & place );

   const Groups & groups() const { return groups_; }
   U32 lags() const { return groups_.size(); }
   U32 members( Ulnet::IntfId lag ) const;
   /** Null if the chip does not hold it. */
   const Member * member( Ulnet::IntfId lag, Ulnet::IntfId port ) const;
   /** The group that a port is an own member of; null for none. */
   Ulnet::IntfId lagOf( Ulnet::IntfId port ) const;
   /** The group that a hardware port is the own member of; null for none. */
   const LagPlace * owner( const Qon::FapIdPort & port ) const { return owner_.find( port ); }
   /** One line a group: "5: Port-Channel5 Ethernet1(0/1 CD) Ethernet2(0/2 CDs)"; C may collect, D
       distribute, s is lent by the peer link. */
   String text() const;

 private:
   Result admit( const LagPlace & place, const Member & member ) const;
   void hold( const LagPlace & place, U32 index, const Member & member );

   FaultPlan & faults_;
   LagLimits limits_;
   Groups groups_;
   Kiv::DenseMap< Ulnet::IntfId, Ulnet::IntfId > lagOf_; // of own members
   Completions late_;
   Kiv::DenseMap< Qon::FapIdPort, LagPlace > owner_; // of hardware ports that are own members
};

} // namespace SoftChip
