#pragma once
// Makes the chip in software hold the groups that are configured, at once or after a while.
//
//    Hardware::Lag::Config -> a change of ( group, port ) waits for its turn -> apply -> LagTable
//                                                             (latency)           |
//                              Hardware::Lag::Status <----------------------------'
//
// Invariants
// 1. What was refused is tried again, in the order of refusal, whenever room is made.
// 2. A busy chip is asked again after `busyInterval` seconds.
// 3. At rest the table holds exactly what is configured and was not refused; groups that an earlier
//    programmer left are taken out, or kept as they are if they are configured.
// 4. What waits when this one goes is done in the table, and reported to nobody.
//
// Ownership: counts the configuration and the status, which it alone writes; the table outlives it.

#include "Qon/include/framework/QonBaseSm.h"
#include "Qon/include/framework/SmCollection.h"
#include "agent/softchip/LagTable.h"
#include "platform/Kiv/Clock.h"
#include "platform/Kiv/Fifo.h"

namespace SoftChip {

class SoftLagProgrammer;

/** Follows the members that one group is configured to have. */
class LagGroupSm : public Qon::QonBaseSm {
 public:
   LagGroupSm( SoftLagProgrammer * programmer, Velto::Ptr< const Hardware::Lag::LagConfig > config )
       : programmer_( programmer ), config_( std::move( config ) ) {}
   void handleInitialized() override;
   void handleMember( const Ulnet::IntfId & port );

 private:
   SoftLagProgrammer * programmer_;
   const Velto::Ptr< const Hardware::Lag::LagConfig > config_;
   Kiv::Watch< Hardware::Lag::LagConfig::memberAttr, LagGroupSm, &LagGroupSm::handleMember >
         memberWatch_;
};

class SoftLagProgrammer : public Qon::QonBaseSm {
 public:
   SoftLagProgrammer( Velto::Ptr< const Hardware::Lag::Config > config,
                      Velto::Ptr< Hardware::Lag::Status > status, LagTable & table );
   ~SoftLagProgrammer() override;
   static constexpr Kiv::Seconds busyInterval = 1.0;

   void handleInitialized() override;
   void kivDoZombieReactors() override;

   /** How long a change takes that is configured from now on, in seconds. 0: it is done before the
       writer of the configuration goes on. Kiv::never: until finishAll() is called. */
   void latencyIs( Kiv::Seconds latency ) { latency_ = latency; }
   /** Does everything that waits, and tries again what was refused. */
   void finishAll();
   U32 waiting() const { return waiting_.size(); }
   const LagTable & table() const { return table_; }

   /** What does not hold; empty when all does. Only while nothing waits. */
   String checkInvariants() const;

   void handleLag( const Ulnet::IntfId & lag );
   Velto::Ptr< LagGroupSm >
   makeGroupSm( const Ulnet::IntfId & lag,
                const Velto::Ptr< const Hardware::Lag::LagConfig > & config );
   void cleanUpGroupSm( const Ulnet::IntfId & lag, LagGroupSm * sm );
   /** The member's configuration changed. */
   void changed( Ulnet::IntfId lag, Ulnet::IntfId port );

 private:
   using Member = Hardware::Lag::Member;
   using Result = Hardware::Lag::Result;

   std::vector< LagPlace > leftOver() const;
   void work();
   void apply( const LagPlace & place );
   Result program( const LagPlace & place, const std::optional< Member > & want );
   std::optional< Member > wanted( const LagPlace & place ) const;
   void publish( const LagPlace & place, const std::optional< Member > & want, Result result );
   void retryRefused();

   const Velto::Ptr< const Hardware::Lag::Config > config_;
   const Velto::Ptr< Hardware::Lag::Status > status_;
   LagTable & table_;
   Kiv::Seconds latency_ = 0;
   bool working_ = false;
   Kiv::DenseMap< LagPlace, Kiv::Nothing > refused_;
   Kiv::Fifo< LagPlace > waiting_;
   Qon::SmCollection< Ulnet::IntfId, Velto::Ptr< const Hardware::Lag::LagConfig >, LagGroupSm,
                      SoftLagProgrammer, &SoftLagProgrammer::makeGroupSm,
                      &SoftLagProgrammer::cleanUpGroupSm >
         configs_{ this };
   Kiv::ClockReactor< SoftLagProgrammer, &SoftLagProgrammer::finishAll > clock_;
   Kiv::Watch< Hardware::Lag::Config::lagAttr, SoftLagProgrammer, &SoftLagProgrammer::handleLag >
         lagWatch_;
};

/** Not initialized yet. */
Velto::Ptr< SoftLagProgrammer >
SoftLagProgrammerIs( Velto::Ptr< const Hardware::Lag::Config > config,
                     Velto::Ptr< Hardware::Lag::Status > status, LagTable & table );

} // namespace SoftChip
