#pragma once
// Entries that are written later: the engine of the chip that writes them, and the state machine that
// hands it one operation at a time.

#include <algorithm>
#include <cmath>

#include "Tables.h"

namespace Chip {

using QonChip::AsyncAnswers;
using QonChip::AsyncConclusion;
using QonChip::AsyncOperation;

/** Says which operation a result is of. */
class ChipAsyncHelper : public Qon::QonAsyncBaseHelper {
 public:
   const AsyncOperation & reported() const { return reported_; }
   void report( const AsyncOperation & operation, const String & error ) {
      // Two results that are the same would be heard as one, so each has a time of its own.
      const Kiv::Seconds after = std::nextafter( asyncOperationResult().timestamp(), Kiv::never );
      reported_ = operation;
      asyncOperationResultIs( { error, std::max( Kiv::now(), after ) } );
   }

 private:
   AsyncOperation reported_;
};

/** The chip's, which outlives the state machines: what it was handed it completes, whoever asked. */
class ChipEngine {
 public:
   ChipEngine( Tables & tables, Kiv::TimerWheel * wheel ) : tables_( tables ), later_( wheel ) {}

   void start( const Ptr< ChipAsyncHelper > & helper, const AsyncOperation & operation ) {
      const Job job{ helper, operation, ++started_ };
      if ( answers_ == AsyncAnswers::inside ) {
         complete( job, "" );
      } else if ( answers_ == AsyncAnswers::held ) {
         jobs_.push_back( job );
      } else {
         later_.add( [this, job] { complete( job, "" ); } );
      }
   }

   void answersAre( AsyncAnswers answers ) {
      answers_ = answers;
      if ( answers == AsyncAnswers::held ) {
         jobs_.clear();
      }
   }
   std::vector< AsyncOperation > operations() const {
      std::vector< AsyncOperation > all;
      for ( auto & job : jobs_ ) {
         all.push_back( job.operation );
      }
      return all;
   }
   void answer( U32 place, const String & error ) { complete( Job( jobs_[place] ), error ); }

 private:
   struct Job {
      Ptr< ChipAsyncHelper > helper;
      AsyncOperation operation;
      U64 number; // of all that were started
   };
   void complete( const Job & job, const String & error ) {
      auto & newest = newest_[job.operation.key];
      if ( error.empty() && job.number >= newest ) {
         newest = job.number;
         write( job.operation );
      }
      job.helper->report( job.operation, error );
   }
   void write( const AsyncOperation & operation ) {
      operation.value ? void( tables_.entries[operation.key] = operation.value )
                      : void( tables_.entries.erase( operation.key ) );
   }

   Tables & tables_;
   AsyncAnswers answers_ = AsyncAnswers::later;
   U64 started_ = 0;
   std::map< String, U64 > newest_; // the job that wrote an entry
   std::vector< Job > jobs_;
   Later later_;
};

/** One operation is in flight; a request that waits is replaced by the next one of its key. */
class ChipAsync : public Qon::QonAsyncBaseSm {
 public:
   using State = Qon::AsyncOperationState;
   using End = AsyncConclusion::End;

   ChipAsync( Ptr< Qon::QonCommonSmData > acsd, Ptr< ChipAsyncHelper > helper, ChipEngine & engine,
              Faults faults, QonChip::AsyncHeard heard )
       : QonAsyncBaseSm( std::move( acsd ) ), helper_( std::move( helper ) ), engine_( engine ),
         faults_( faults ), heard_( std::move( heard ) ) {}

   void handleInitialized() override {
      if ( initialized() && !tcamRequestClock() ) {
         tcamRequestClockIs( Velto::make< Kiv::Clock >() );
         pendingOperationTimeoutClockIs( Velto::make< Kiv::Clock >() );
         results_.attach( this, helper_.ptr() );
      }
      next();
   }
   void request( const String & key, U32 value ) {
      const Velto::Hold alive( this );
      auto waits = std::find_if( waiting_.begin(), waiting_.end(),
                                 [&]( auto & other ) { return other.key == key; } );
      if ( waits == waiting_.end() ) {
         waiting_.push_back( { key, value } );
         next();
         return;
      }
      const U32 former = std::exchange( waits->value, value );
      heard_( { key, former, End::replaced, "" } );
   }

   void processTcamRequestQueue() override {
      if ( asyncState() != State::asyncNone || waiting_.empty() ) {
         return;
      }
      const Velto::Hold alive( this );
      inFlight_ = waiting_.front();
      waiting_.pop_front();
      inFlight_.priority = helper_->nextPriority();
      inFlight_.sequence = helper_->getNextSequence( inFlight_.key );
      reqKeyIs( inFlight_.key );
      pendingOperationTimeoutClock()->timeIs( Kiv::now() + pendingOperationTimeout() );
      asyncStateIs( State::asyncInCall );
      engine_.start( helper_, inFlight_ );
      if ( asyncState() == State::asyncCompleted ) {
         conclude( helper_->asyncOperationResult().error() );
      } else {
         asyncStateIs( State::asyncWaiting );
      }
   }
   void handleAsyncOperationResult() override {
      if ( !faults_.anyAnswer && !( helper_->reported() == inFlight_ ) ) {
         return; // of an operation that is not waited for any more
      }
      if ( asyncState() == State::asyncInCall ) {
         asyncStateIs( State::asyncCompleted );
      } else if ( asyncState() == State::asyncWaiting ) {
         conclude( helper_->asyncOperationResult().error() );
      }
   }
   void handlePendingOperationTimeout() override { conclude( "no answer" ); }

 private:
   void conclude( const String & error ) {
      const Velto::Hold alive( this );
      pendingOperationTimeoutClock()->timeIs( Kiv::never );
      const AsyncOperation done = std::exchange( inFlight_, {} );
      reqKeyIs( "" );
      asyncStateIs( State::asyncNone );
      if ( done.value == 0 ) {
         helper_->sequenceDel( done.key ); // numbers are finite; priorities tell operations apart
      }
      next();
      heard_( { done.key, done.value, error.empty() ? End::held : End::failed, error } );
   }
   void next() {
      if ( initialized() && asyncState() == State::asyncNone && !waiting_.empty() ) {
         tcamRequestClock()->timeMin( Kiv::now() );
      }
   }

   Ptr< ChipAsyncHelper > helper_;
   ChipEngine & engine_;
   Faults faults_;
   QonChip::AsyncHeard heard_;
   std::deque< AsyncOperation > waiting_; // without numbers
   AsyncOperation inFlight_;
   Kiv::Watch< Qon::QonAsyncBaseHelper::asyncOperationResultAttr, ChipAsync,
               &ChipAsync::handleAsyncOperationResult >
         results_;
};

} // namespace Chip
