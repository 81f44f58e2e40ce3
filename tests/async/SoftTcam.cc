#include "tests/async/SoftTcam.h"

#include <algorithm>
#include <cmath>

#include "Qon/include/framework/QonCommonSmData.h"
#include "platform/Kiv/Describe.h"

KIV_DEFINE( SoftChip::SoftTcamHelper )
KIV_DEFINE( SoftChip::SoftTcamSm )

namespace SoftChip {

using Qon::AsyncOperationState;

namespace {

String
keyOf( const TcamOperation & operation ) {
   return operation.route.prefix().stringValue();
}

} // namespace

void
SoftTcamHelper::report( const TcamOperation & operation, const String & error ) {
   resultKeyIs( keyOf( operation ) );
   resultPriorityIs( operation.priority );
   resultSequenceIs( operation.sequence );
   Kiv::Seconds after = std::nextafter( asyncOperationResult().timestamp(), Kiv::never );
   asyncOperationResultIs( { error, std::max( Kiv::now(), after ) } );
}

SoftTcam::SoftTcam( Velto::Ptr< SoftTcamHelper > helper, U32 capacity )
    : helper_( std::move( helper ) ), capacity_( capacity ) {
   latencyClock_.attach( this, Velto::make< Kiv::Clock >() );
}

void
SoftTcam::latencyIs( Kiv::Seconds latency ) {
   latency_ = latency;
   helper_->asyncTcamOperationsSupportedIs( latency > 0 );
}

void
SoftTcam::start( const TcamOperation & operation ) {
   pending_.push_back( operation );
   if ( latency_ == 0 ) {
      finish( U32( pending_.size() - 1 ) );
   } else if ( latency_ < Kiv::never ) {
      latencyClock_->timeMin( Kiv::now() + latency_ );
   }
}

void
SoftTcam::handleLatency() {
   if ( pending_.size() > 1 ) {
      latencyClock_->timeIs( Kiv::now() + latency_ );
   }
   if ( !pending_.empty() ) {
      finish( 0 );
   }
}

void
SoftTcam::finish( U32 index, const String & error ) {
   TcamOperation operation = pending_[index];
   pending_.erase( pending_.begin() + index );
   helper_->report( operation, error.empty() ? apply( operation ) : error );
}

String
SoftTcam::apply( const TcamOperation & operation ) {
   Entry & entry = *table_.emplace( operation.route.prefix() ).first;
   bool add = !operation.route.remove();
   if ( operation.priority >= entry.priority ) {
      return ""; // a later operation has been here
   }
   entry.priority = operation.priority;
   if ( add && !entry.present && entries_ == capacity_ ) {
      return "table full";
   }
   entries_ += U32( add ) - U32( entry.present );
   entry.present = add;
   entry.version = add ? operation.route.qonVersionId() : Qon::QonPdVersionId();
   return "";
}

bool
SoftTcam::has( const Ulnet::IpGenPrefix & prefix ) const {
   auto entry = table_.find( prefix );
   return entry && entry->present;
}

Qon::QonPdVersionId
SoftTcam::version( const Ulnet::IpGenPrefix & prefix ) const {
   auto entry = table_.find( prefix );
   return entry ? entry->version : Qon::QonPdVersionId();
}

Velto::Ptr< SoftTcam >
SoftTcamIs( Velto::Ptr< SoftTcamHelper > helper, U32 capacity ) {
   auto tcam = Velto::make< SoftTcam >( std::move( helper ), capacity );
   tcam->hasNotificationActiveIs( true );
   return tcam;
}

SoftTcamSm::SoftTcamSm( Velto::Ptr< Qon::QonCommonSmData > acsd, Velto::Ptr< SoftTcam > tcam,
                        Velto::Ptr< SoftTcamHelper > helper,
                        Velto::Ptr< Qon::Ack::QonRouteAckSmConfig > acks )
    : QonAsyncBaseSm( std::move( acsd ) ), tcam_( std::move( tcam ) ),
      helper_( std::move( helper ) ), acks_( std::move( acks ) ) {}

void
SoftTcamSm::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   if ( !tcamRequestClock() ) {
      tcamRequestClockIs( Velto::make< Kiv::Clock >() );
      pendingOperationTimeoutClockIs( Velto::make< Kiv::Clock >() );
      resultWatch_.attach( this, helper_.ptr() );
   }
   armRequestClock();
}

void
SoftTcamSm::routeIs( const Route & route ) {
   routesToAckIs( route.prefix() )->routeAckQueueEnq( route );
   if ( auto operation = waiting_.find( route.prefix() ) ) {
      operation->route = route;
      ++operation->versions;
      return;
   }
   enqueue( { route } );
}

void
SoftTcamSm::enqueue( const TcamOperation & operation ) {
   TcamOperation numbered = operation;
   numbered.priority = helper_->nextPriority();
   numbered.sequence = helper_->getNextSequence( keyOf( operation ) );
   waiting_.emplace( operation.route.prefix(), numbered );
   armRequestClock();
}

void
SoftTcamSm::armRequestClock() {
   bool ready = asyncState() == AsyncOperationState::asyncNone && !waiting_.empty();
   if ( ready && initialized() ) {
      tcamRequestClock()->timeMin( std::max( Kiv::now(), nextRequest_ ) );
   }
}

void
SoftTcamSm::processTcamRequestQueue() {
   if ( !initialized() || asyncState() != AsyncOperationState::asyncNone || waiting_.empty() ) {
      return;
   }
   const Velto::Hold alive( this );
   Ulnet::IpGenPrefix prefix = ( *waiting_.begin() ).key;
   inFlight_ = *waiting_.take( prefix );
   reqKeyIs( keyOf( inFlight_ ) );
   nextRequest_ = Kiv::now() + requestInterval();
   pendingOperationTimeoutClock()->timeIs( Kiv::now() + pendingOperationTimeout() );
   asyncStateIs( AsyncOperationState::asyncInCall );
   tcam_->start( inFlight_ );
   if ( asyncState() == AsyncOperationState::asyncCompleted ) {
      conclude( helper_->asyncOperationResult().error() );
   } else {
      asyncStateIs( AsyncOperationState::asyncWaiting );
   }
}

bool
SoftTcamSm::resultIsOurs() const {
   return helper_->resultKey() == reqKey() && helper_->resultPriority() == inFlight_.priority &&
          helper_->resultSequence() == inFlight_.sequence;
}

void
SoftTcamSm::handleAsyncOperationResult() {
   if ( !resultIsOurs() ) {
      return;
   }
   if ( asyncState() == AsyncOperationState::asyncInCall ) {
      asyncStateIs( AsyncOperationState::asyncCompleted );
   } else if ( asyncState() == AsyncOperationState::asyncWaiting ) {
      conclude( helper_->asyncOperationResult().error() );
   }
}

void
SoftTcamSm::handlePendingOperationTimeout() {
   if ( asyncState() != AsyncOperationState::asyncWaiting ) {
      return;
   }
   const Velto::Hold alive( this );
   TcamOperation late = takeInFlight();
   if ( auto next = waiting_.find( late.route.prefix() ) ) {
      next->versions += late.versions;
   } else if ( late.tries < maxTries() ) {
      ++late.tries;
      enqueue( late );
   } else {
      acknowledge( late, true );
   }
   armRequestClock();
}

TcamOperation
SoftTcamSm::takeInFlight() {
   pendingOperationTimeoutClock()->timeIs( Kiv::never );
   reqKeyIs( "" );
   asyncStateIs( AsyncOperationState::asyncNone );
   return std::exchange( inFlight_, TcamOperation() );
}

void
SoftTcamSm::conclude( const String & error ) {
   const Velto::Hold alive( this );
   TcamOperation operation = takeInFlight();
   acknowledge( operation, !error.empty() );
   armRequestClock();
}

void
SoftTcamSm::acknowledge( const TcamOperation & operation, bool nack ) {
   const Ulnet::IpGenPrefix prefix = operation.route.prefix();
   std::vector< Route > settled;
   auto queue = routesToAckIs( prefix );
   for ( U32 i = 0; i < operation.versions; ++i ) {
      settled.push_back( queue->routeAckQueueFront() );
      queue->routeAckQueueDeq();
   }
   if ( !queue->routeAckQueues() ) {
      routesToAckDel( prefix );
      helper_->sequenceDel( keyOf( operation ) ); // numbers are finite, priorities tell apart
   }
   for ( U32 i = 0; i + 1 < settled.size(); ++i ) {
      acks_->updateSkippedPdRoute( settled[i] );
   }
   settled.back().nackIs( nack );
   acks_->updateNextRouteToPassToPd( settled.back() );
}

void
SoftTcamSm::checkInvariants() const {
   bool idle = asyncState() == AsyncOperationState::asyncNone;
   VELTO_ASSERT( idle == reqKey().empty() );
   VELTO_ASSERT( idle == pendingOperationTimeoutClock()->idle() );
   VELTO_ASSERT( !idle || waiting_.empty() || !initialized() || !tcamRequestClock()->idle() );
   U32 versions = idle ? 0 : inFlight_.versions;
   U32 last = ~U32( 0 );
   for ( auto && [prefix, operation] : waiting_ ) {
      VELTO_ASSERT( operation.priority < last );
      last = operation.priority;
      versions += operation.versions;
   }
   for ( auto && [prefix, queue] : routesToAckIteratorConst() ) {
      versions -= queue->routeAckQueues();
   }
   VELTO_ASSERT( versions == 0 );
}

Velto::Ptr< SoftTcamSm >
SoftTcamSmIs( Velto::Ptr< Qon::QonCommonSmData > acsd, Velto::Ptr< SoftTcam > tcam,
              Velto::Ptr< SoftTcamHelper > helper,
              Velto::Ptr< Qon::Ack::QonRouteAckSmConfig > acks ) {
   return Qon::smIs< SoftTcamSm >( std::move( acsd ), std::move( tcam ), std::move( helper ),
                                   std::move( acks ) );
}

} // namespace SoftChip
