#pragma once
// Where acknowledgements are published: which version of a route or forwarding equivalence class
// the platform-dependent layer has been handed.
//
//    chip-specific state machine -> updateX( record ) -> holder's record, genId one higher
//                                                     -> watchers
//
// Invariants
// 1. Every updateX() is published, also when nothing but the generation changes; the generation
//    that the caller's record holds does not count. The first has generation 1; 255 is followed
//    by 0.
// 2. Each record of a holder counts its own generations.
// 3. The plain setters publish on change only, like every setter.

#include "Qon/include/framework/QonAsyncTypes.h"
#include "platform/Kiv/Attr.h"

namespace Qon::Ack {

class QonFecAckSmConfig : public Kiv::Entity {
   KIV_BODY( QonFecAckSmConfig, Kiv::Entity )
   KIV_ATTR( VersionIdPassedToPdFec, passedToPdFec )
   KIV_ATTR( DedupedToLatestL2Adj, dedupedToLatestL2Adj )
   KIV_ATTR( DeleteFecIdFromFecStatus, deletedFec )
 public:
   explicit QonFecAckSmConfig( Routing::Hardware::FecAckSupport fecAckSupport )
       : fecAckSupport_( fecAckSupport ) {}
   Routing::Hardware::FecAckSupport fecAckSupport() const { return fecAckSupport_; }

   void updatePassedToPdFec( const VersionIdPassedToPdFec & record );
   void updateDedupedToLatestL2Adj( const DedupedToLatestL2Adj & record );
   void updateFecIdToBeDeleted( const DeleteFecIdFromFecStatus & record );

 private:
   const Routing::Hardware::FecAckSupport fecAckSupport_;
};

class QonTunnelFecAckSmConfig : public Kiv::Entity {
   KIV_BODY( QonTunnelFecAckSmConfig, Kiv::Entity )
   KIV_ATTR( VersionIdPassedToPdTunnelFec, passedToPdTunnelFec )
 public:
   QonTunnelFecAckSmConfig() = default;

   void updatePassedToPdTunnelFec( const VersionIdPassedToPdTunnelFec & record );
};

class QonRouteAckSmConfig : public Kiv::Entity {
   KIV_BODY( QonRouteAckSmConfig, Kiv::Entity )
   KIV_ATTR( VersionIdPassedToPdRoute, nextRouteToPassToPd )
   KIV_ATTR( VersionIdPassedToPdRoute, skippedPdRoute )
 public:
   QonRouteAckSmConfig( U32 vrfId, Ulnet::AddressFamily addressFamily )
       : vrfId_( vrfId ), addressFamily_( addressFamily ) {}
   U32 vrfId() const { return vrfId_; }
   Ulnet::AddressFamily addressFamily() const { return addressFamily_; }

   void updateNextRouteToPassToPd( const VersionIdPassedToPdRoute & record );
   void updateSkippedPdRoute( const VersionIdPassedToPdRoute & record );

 private:
   const U32 vrfId_;
   const Ulnet::AddressFamily addressFamily_;
};

/** The versions of one route that wait for their acknowledgement, oldest in front. */
class RoutesToAckQueue : public Kiv::Entity {
   KIV_BODY( RoutesToAckQueue, Kiv::Entity )
   KIV_QUEUE( VersionIdPassedToPdRoute, routeAckQueue )
 public:
   explicit RoutesToAckQueue( const Ulnet::IpGenPrefix & prefix ) : prefix_( prefix ) {}
   const Ulnet::IpGenPrefix & prefix() const { return prefix_; }

 private:
   const Ulnet::IpGenPrefix prefix_;
};

/** The forwarding equivalence classes that wait for one adjacency. */
class AdjToAckQueue : public Kiv::Entity {
   KIV_BODY( AdjToAckQueue, Kiv::Entity )
   KIV_MAP( Quarn::Fib::FecId, VersionIdPassedToPdFec, fecAck )
 public:
   explicit AdjToAckQueue( U64 adjId ) : adjId_( adjId ) {}
   U64 adjId() const { return adjId_; }

 private:
   const U64 adjId_;
};

} // namespace Qon::Ack
