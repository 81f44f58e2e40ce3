#pragma once
// A route TCAM in software that completes what it is asked to do later, and the state machine that
// feeds it: how the asynchronous base classes are meant to be used.
//
//    routeIs( version ) -> waiting, one operation per prefix
//    tcamRequestClock -> SoftTcamSm -> SoftTcam::start( operation )
//                                  ... later, or never ...
//    handleAsyncOperationResult() <- SoftTcamHelper: key, priority, sequence, result
//    pendingOperationTimeoutClock -> the operation is tried again, at last given up
//    -> QonRouteAckSmConfig: the version that was handed over (nack if it failed); skipped ones
//
// Invariants
// 1. One operation is in flight. Operations of different prefixes start in the order of their
//    priorities; a version that arrives while its prefix waits takes over the waiting operation.
// 2. Every version is acknowledged exactly once, per prefix in the order of arrival: as handed
//    over, or as skipped because a later one took its place.
// 3. A result counts only for the operation in flight, by key, priority and sequence number. What
//    comes late or twice is nobody's.
// 4. An operation that the TCAM applies after a later one of the same prefix changes nothing.
//
// Ownership: the state machine counts the TCAM, the helper and the acknowledgements.

#include <vector>

#include "Qon/include/framework/QonAck.h"
#include "Qon/include/framework/QonAsyncBaseSm.h"

namespace SoftChip {

using Velto::String;
using Route = Qon::Ack::VersionIdPassedToPdRoute;

/** Writes a version of a route to the TCAM, or takes the route out. */
struct TcamOperation {
   Route route;
   U32 priority = 0;
   U16 sequence = 0;
   U32 tries = 1;
   U32 versions = 1; // of the route that it settles: itself and those that it took over from
};

/** Says to which operation a result belongs. The result is written last, and no two have the same
    time: of several results within one moment none would be heard otherwise. */
class SoftTcamHelper : public Qon::QonAsyncBaseHelper {
   KIV_BODY( SoftTcamHelper, Qon::QonAsyncBaseHelper )
   KIV_ATTR( String, resultKey, "" )
   KIV_ATTR( U32, resultPriority, 0 )
   KIV_ATTR( U16, resultSequence, 0 )
 public:
   /** `error` is empty on success. */
   void report( const TcamOperation & operation, const String & error );
};

/** The TCAM itself: finite, and slow by choice. */
class SoftTcam : public Velto::Node {
 public:
   SoftTcam( Velto::Ptr< SoftTcamHelper > helper, U32 capacity );

   /** How long an operation takes. 0: it is done before start() returns. Kiv::never: until
       finish() is called. */
   void latencyIs( Kiv::Seconds latency );
   void start( const TcamOperation & operation );
   /** The operations that were started and are not done, oldest first. */
   const std::vector< TcamOperation > & pending() const { return pending_; }
   /** Completes one of them: applies it and reports. An error of the caller's choice keeps it from
       being applied. */
   void finish( U32 index, const String & error = "" );
   /** Forgets one of them without a word. */
   void lose( U32 index ) { pending_.erase( pending_.begin() + index ); }

   U32 entries() const { return entries_; }
   bool has( const Ulnet::IpGenPrefix & prefix ) const;
   /** The version that the TCAM holds. Null version if it holds none. */
   Qon::QonPdVersionId version( const Ulnet::IpGenPrefix & prefix ) const;

 private:
   /** What became of a prefix, and by which operation. */
   struct Entry {
      U32 priority = ~U32( 0 );
      bool present = false;
      Qon::QonPdVersionId version;
   };
   String apply( const TcamOperation & operation );
   void handleLatency();

   const Velto::Ptr< SoftTcamHelper > helper_;
   const U32 capacity_;
   Kiv::Seconds latency_ = 0;
   U32 entries_ = 0;
   Kiv::DenseMap< Ulnet::IpGenPrefix, Entry > table_;
   std::vector< TcamOperation > pending_;
   Kiv::ClockReactor< SoftTcam, &SoftTcam::handleLatency > latencyClock_;
};

Velto::Ptr< SoftTcam > SoftTcamIs( Velto::Ptr< SoftTcamHelper > helper, U32 capacity );

class SoftTcamSm : public Qon::QonAsyncBaseSm {
   KIV_BODY( SoftTcamSm, Qon::QonAsyncBaseSm )
   KIV_ATTR( Kiv::Seconds, requestInterval, 0.01 ) // from one start to the next, at least
   KIV_ATTR( U32, maxTries, 3 )
   KIV_ENTITIES( Ulnet::IpGenPrefix, Qon::Ack::RoutesToAckQueue, routesToAck )
 public:
   SoftTcamSm( Velto::Ptr< Qon::QonCommonSmData > acsd, Velto::Ptr< SoftTcam > tcam,
               Velto::Ptr< SoftTcamHelper > helper,
               Velto::Ptr< Qon::Ack::QonRouteAckSmConfig > acks );

   void handleInitialized() override;
   void handleAsyncOperationResult() override;
   void processTcamRequestQueue() override;
   void handlePendingOperationTimeout() override;

   /** Wants this version of the route in the TCAM, or the route out of it (`remove`). */
   void routeIs( const Route & route );
   U32 waiting() const { return waiting_.size(); }
   /** What must hold between any two events. */
   void checkInvariants() const;

 private:
   void enqueue( const TcamOperation & operation );
   void armRequestClock();
   bool resultIsOurs() const;
   TcamOperation takeInFlight();
   void conclude( const String & error );
   void acknowledge( const TcamOperation & operation, bool nack );

   const Velto::Ptr< SoftTcam > tcam_;
   const Velto::Ptr< SoftTcamHelper > helper_;
   const Velto::Ptr< Qon::Ack::QonRouteAckSmConfig > acks_;
   Kiv::DenseMap< Ulnet::IpGenPrefix, TcamOperation > waiting_; // by falling priority
   TcamOperation inFlight_;
   Kiv::Seconds nextRequest_ = 0;
   Kiv::Watch< Qon::QonAsyncBaseHelper::asyncOperationResultAttr, SoftTcamSm,
               &SoftTcamSm::handleAsyncOperationResult >
         resultWatch_;
};

Velto::Ptr< SoftTcamSm > SoftTcamSmIs( Velto::Ptr< Qon::QonCommonSmData > acsd,
                                       Velto::Ptr< SoftTcam > tcam,
                                       Velto::Ptr< SoftTcamHelper > helper,
                                       Velto::Ptr< Qon::Ack::QonRouteAckSmConfig > acks );

} // namespace SoftChip
