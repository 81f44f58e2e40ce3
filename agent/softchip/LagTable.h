#pragma once
// The groups of a chip in software: a finite number of groups, and of members in each, done at
// once or after a while.
//
//    Hardware::Lag::Config -> a change of ( group, port ) waits for its turn -> apply -> table
//                                                             (latency)           |
//                              Hardware::Lag::Status <----------------------------'
//
// Invariants
// 1. The table never holds more than it has room for, nor a hardware port as the own member of two
//    groups; what does not fit is refused, with the reason in the status.
// 2. What was refused for want of room is tried again, in the order of refusal, whenever room is
//    made.
// 3. A busy chip is asked again after `busyInterval` seconds. Faults: hook "lagMember", tables
//    "lagTable" and "lagMembers".
// 4. At rest the table holds exactly what is configured and was not refused.
//
// Ownership: counts the configuration and the status, which it alone writes; the fault plan
// outlives it.

#include <optional>

#include "Qon/include/framework/QonBaseSm.h"
#include "Qon/include/framework/SmCollection.h"
#include "agent/softchip/FaultPlan.h"
#include "platform/Kiv/Clock.h"
#include "platform/Kiv/Fifo.h"
#include "platform/types/HardwareLag.h"

namespace SoftChip {

using Velto::String;

class LagTable;

/** Follows the members that one group is configured to have. */
class LagTableGroupSm : public Qon::QonBaseSm {
 public:
   LagTableGroupSm( LagTable * table, Velto::Ptr< const Hardware::Lag::LagConfig > config )
       : table_( table ), config_( std::move( config ) ) {}
   void handleInitialized() override;
   void handleMember( const Ulnet::IntfId & port );

 private:
   LagTable * table_;
   const Velto::Ptr< const Hardware::Lag::LagConfig > config_;
   Kiv::Watch< Hardware::Lag::LagConfig::memberAttr, LagTableGroupSm,
               &LagTableGroupSm::handleMember >
         memberWatch_;
};

class LagTable : public Qon::QonBaseSm {
 public:
   /** How much there is room for. */
   struct Limits {
      U32 lags = 2048;
      U32 members = 64; ///< of one group
   };
   LagTable( Velto::Ptr< const Hardware::Lag::Config > config,
             Velto::Ptr< Hardware::Lag::Status > status, FaultPlan & faults,
             const Limits & limits );
   static constexpr Kiv::Seconds busyInterval = 1.0;

   void handleInitialized() override;
   void kivDoZombieReactors() override;

   /** How long a change takes that is configured from now on, in seconds. 0: it is done before the
       writer of the configuration goes on. Kiv::never: until finishAll() is called. */
   void latencyIs( Kiv::Seconds latency ) { latency_ = latency; }
   /** Changes the room there is; what is held already stays. */
   void limitsIs( const Limits & limits );
   /** Does everything that waits. */
   void finishAll();
   U32 waiting() const { return waiting_.size(); }

   /** What the chip holds. */
   U32 lags() const { return groups_.size(); }
   U32 members( Ulnet::IntfId lag ) const;
   /** Null if the chip does not hold it. */
   const Hardware::Lag::Member * member( Ulnet::IntfId lag, Ulnet::IntfId port ) const;
   /** One line a group: "5: Port-Channel5 Ethernet1(0/1 CD) Ethernet2(0/2 CDs)"; C may collect, D
       distribute, s is lent by the peer link. */
   String text() const;

   /** What does not hold; empty when all does. Only while nothing waits. */
   String checkInvariants() const;

   void handleLag( const Ulnet::IntfId & lag );
   Velto::Ptr< LagTableGroupSm >
   makeGroupSm( const Ulnet::IntfId & lag,
                const Velto::Ptr< const Hardware::Lag::LagConfig > & config );
   void cleanUpGroupSm( const Ulnet::IntfId & lag, LagTableGroupSm * sm );
   /** The member's configuration changed. */
   void changed( Ulnet::IntfId lag, Ulnet::IntfId port );

 private:
   using Member = Hardware::Lag::Member;
   using Result = Hardware::Lag::Result;
   struct Group {
      U32 index = 0;
      Kiv::DenseMap< Ulnet::IntfId, Member > members;
   };
   struct Place {
      Ulnet::IntfId lag;
      Ulnet::IntfId port;
      bool operator==( const Place & ) const = default;
      U64 hash() const { return Kiv::hashJoin( lag.hash(), port.hash() ); }
   };

   void work();
   void apply( const Place & place );
   std::optional< Member > wanted( const Place & place ) const;
   Result admit( const Place & place, const Member & member ) const;
   Result attempt( const Place & place, const Member & member );
   void hold( const Place & place, const Member & member );
   void drop( const Place & place );
   void publish( const Place & place, const std::optional< Member > & want, Result result );
   void retryRefused();

   const Velto::Ptr< const Hardware::Lag::Config > config_;
   const Velto::Ptr< Hardware::Lag::Status > status_;
   FaultPlan & faults_;
   Limits limits_;
   Kiv::Seconds latency_ = 0;
   bool working_ = false;
   Kiv::DenseMap< Ulnet::IntfId, Group > groups_;
   Kiv::DenseMap< Qon::FapIdPort, Place > owner_; // of hardware ports that are own members
   Kiv::DenseMap< Place, Kiv::Nothing > refused_;
   Kiv::Fifo< Place > waiting_;
   Qon::SmCollection< Ulnet::IntfId, Velto::Ptr< const Hardware::Lag::LagConfig >, LagTableGroupSm,
                      LagTable, &LagTable::makeGroupSm, &LagTable::cleanUpGroupSm >
         configs_{ this };
   Kiv::ClockReactor< LagTable, &LagTable::finishAll > clock_;
   Kiv::Watch< Hardware::Lag::Config::lagAttr, LagTable, &LagTable::handleLag > lagWatch_;
};

Velto::Ptr< LagTable > LagTableIs( Velto::Ptr< const Hardware::Lag::Config > config,
                                   Velto::Ptr< Hardware::Lag::Status > status, FaultPlan & faults,
                                   const LagTable::Limits & limits = LagTable::Limits() );

} // namespace SoftChip
