#pragma once
// When groups are looked at: three clocks, and slices of time.
//
//    MulticastHelper queues a group -> kickReview() -> ethGroupClock -> reviewEthGroupSet()
//    no room                        -> ethGroupOverflowClock         -> overflowEthGroupSet()
//    a group is queued for deletion -> kickDel()    -> ethGroupDelClock -> delEthGroupSet()
//
// Invariants
// 1. A run works on at least one group, and stops behind the first after which its budget is used up.
//    What is left is worked on in the next run, a pause later.
// 2. A clock is armed while its list is not empty: nothing waits for ever.
// 3. A kick only ever moves a firing time earlier.
// 4. A group whose hooks raise costs no other its turn; it waits with those that had no room. The first
//    exception passes to whoever runs the clock.
//
// Ownership: the helper owns it; it points back without counting.

#include "Qon/include/framework/QonBaseSm.h"
#include "platform/Kiv/Clock.h"

namespace Qon {

class MulticastHelper;

/** Budgets of a run and pauses between two, in seconds. */
class EthGroupReviewConfig : public Kiv::Entity {
   KIV_BODY( EthGroupReviewConfig, Kiv::Entity )
   KIV_ATTR( double, reviewTime, 0.01 )
   KIV_ATTR( double, reviewPause, 0.01 )
   KIV_ATTR( double, overflowTime, 0.01 )
   KIV_ATTR( double, overflowPause, 5.0 )
   KIV_ATTR( double, delTime, 0.01 )
   KIV_ATTR( double, delPause, 0.01 )
 public:
   explicit EthGroupReviewConfig( const String & name ) : Kiv::Entity( name ) {}
};

class EthGroupReviewSm : public QonBaseSm {
 public:
   EthGroupReviewSm( MulticastHelper * helper, Velto::Ptr< const EthGroupReviewConfig > config,
                     Kiv::TimerWheel * wheel );

   void handleInitialized() override;

   /** The pending groups are reviewed at once: when control is back in the loop. */
   void kickReview();
   /** The same for the groups that are to be deleted. */
   void kickDel();
   /** The groups without room are tried again in a while. */
   void kickOverflow();

   void reviewEthGroupSet();
   void overflowEthGroupSet();
   void delEthGroupSet();
   /** No clock fires any more, until the next kick. */
   void stopReview();

   /** Whether reviewEthGroupSet() is being carried out. */
   bool reviewing() const { return reviewing_; }
   const EthGroupReviewConfig * config() const { return config_.ptr(); }
   Kiv::Clock * ethGroupClock() const { return reviewClock_.clock(); }
   Kiv::Clock * ethGroupOverflowClock() const { return overflowClock_.clock(); }
   Kiv::Clock * ethGroupDelClock() const { return delClock_.clock(); }

 private:
   /** Calls `step()` for one group after the other while `more()`, within the budget; then arms the clock
       again if there are more. */
   template< class More, class Step >
   void slice( Kiv::Clock * clock, double budget, double pause, More && more, Step && step );

   MulticastHelper * const helper_;
   const Velto::Ptr< const EthGroupReviewConfig > config_;
   bool reviewing_ = false;
   bool deleting_ = false;
   Kiv::ClockReactor< EthGroupReviewSm, &EthGroupReviewSm::reviewEthGroupSet > reviewClock_;
   Kiv::ClockReactor< EthGroupReviewSm, &EthGroupReviewSm::overflowEthGroupSet > overflowClock_;
   Kiv::ClockReactor< EthGroupReviewSm, &EthGroupReviewSm::delEthGroupSet > delClock_;
};

} // namespace Qon
