#include "Qon/include/multicast/EthGroupReviewSm.h"

#include "Qon/include/framework/TimeSlice.h"
#include "Qon/multicast/MulticastTrace.h"
#include "platform/Kiv/Describe.h"

KIV_DEFINE( Qon::EthGroupReviewConfig )

namespace Qon {

EthGroupReviewSm::EthGroupReviewSm( MulticastHelper * helper,
                                    Velto::Ptr< const EthGroupReviewConfig > config,
                                    Kiv::TimerWheel * wheel )
    : helper_( helper ), config_( std::move( config ) ) {
   reviewClock_.attach( this, Velto::make< Kiv::Clock >( wheel ) );
   overflowClock_.attach( this, Velto::make< Kiv::Clock >( wheel ) );
   delClock_.attach( this, Velto::make< Kiv::Clock >( wheel ) );
}

/** What fired while nothing was heard is made good. */
void
EthGroupReviewSm::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   if ( helper_->pending() ) {
      kickReview();
   }
   if ( helper_->groupDelList().size() ) {
      kickDel();
   }
   if ( helper_->groupOverflowList().size() ) {
      kickOverflow();
   }
}

void
EthGroupReviewSm::kickReview() {
   wakeUp( ethGroupClock(), Kiv::now() );
}

void
EthGroupReviewSm::kickDel() {
   wakeUp( ethGroupDelClock(), Kiv::now() );
}

void
EthGroupReviewSm::kickOverflow() {
   wakeUp( ethGroupOverflowClock(), Kiv::now() + config_->overflowPause() );
}

void
EthGroupReviewSm::stopReview() {
   for ( Kiv::Clock * clock : { ethGroupClock(), ethGroupOverflowClock(), ethGroupDelClock() } ) {
      clock->timeIs( Kiv::never );
   }
}

template< class More, class Step >
void
EthGroupReviewSm::slice( Kiv::Clock * clock, double budget, double pause, More && more,
                         Step && step ) {
   Velto::FirstError error;
   TimeSlice slice( budget, 1 );
   while ( more() ) {
      error.run( step );
      if ( slice.usedUp() && more() ) {
         QON_TRACE( multicastFacility, 7, "Yielding" );
         wakeUp( clock, slice.now() + pause );
         break;
      }
   }
   error.pass();
}

void
EthGroupReviewSm::reviewEthGroupSet() {
   if ( reviewing_ || helper_->busy_ ) {
      kickReview(); // called by a hook
      return;
   }
   const Velto::Hold helperAlive( helper_ ), alive( this );
   reviewing_ = true;
   const Velto::AtEnd done( [this] { reviewing_ = false; } );
   Velto::FirstError error;
   error.run( [this] { helper_->repairFlood(); } );
   error.run( [this] {
      slice(
            ethGroupClock(), config_->reviewTime(), config_->reviewPause(),
            [this] { return helper_->pending(); }, [this] { helper_->reviewFirst(); } );
   } );
   error.pass();
}

/** Whoever waits for a bitmap comes first, in the order of the queue. */
void
EthGroupReviewSm::overflowEthGroupSet() {
   const Velto::Hold helperAlive( helper_ ), alive( this );
   helper_->reviewOverflowedGroups();
   slice(
         ethGroupOverflowClock(), config_->overflowTime(), config_->overflowPause(),
         [this] { return helper_->groupOverflowList().size() != 0; },
         [this] { helper_->reviewFirstOverflowed(); } );
   if ( helper_->pending() ) {
      kickReview();
   }
}

void
EthGroupReviewSm::delEthGroupSet() {
   if ( deleting_ || helper_->busy_ ) {
      kickDel(); // called by a hook
      return;
   }
   const Velto::Hold helperAlive( helper_ ), alive( this );
   deleting_ = true;
   const Velto::AtEnd done( [this] { deleting_ = false; } );
   U32 left = helper_->groupDelList().size(); // those that are queued again are for the next run
   Velto::FirstError error;
   error.run( [&] {
      slice(
            ethGroupDelClock(), config_->delTime(), config_->delPause(),
            [&] { return left != 0 && helper_->groupDelList().size() != 0; },
            [&] {
               --left;
               helper_->deleteFirst();
            } );
   } );
   if ( helper_->cleanupWanted_ ) {
      error.run( [this] { helper_->doCleanup(); } );
   }
   if ( helper_->groupDelList().size() ) {
      wakeUp( ethGroupDelClock(), Kiv::now() + config_->delPause() );
   }
   error.pass();
}

} // namespace Qon
