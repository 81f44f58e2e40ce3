#include "Qon/include/framework/HookTap.h"
#include "Qon/include/framework/QonAck.h"
#include "Qon/include/framework/QonAsyncBaseSm.h"
#include "Qon/include/framework/QonCommonSmData.h"
#include "platform/Kiv/Describe.h"

KIV_DEFINE( Qon::QonAsyncBaseSm )
KIV_DEFINE( Qon::QonAsyncBaseHelper )
KIV_DEFINE( Qon::AsyncSharedData )
KIV_DEFINE( Qon::Ack::QonFecAckSmConfig )
KIV_DEFINE( Qon::Ack::QonTunnelFecAckSmConfig )
KIV_DEFINE( Qon::Ack::QonRouteAckSmConfig )
KIV_DEFINE( Qon::Ack::RoutesToAckQueue )
KIV_DEFINE( Qon::Ack::AdjToAckQueue )

namespace Qon {

namespace {

constexpr int missingHandlerLine = 28;
constexpr U16 firstSequence = 65535;

} // namespace

QonAsyncBaseSm::QonAsyncBaseSm( Velto::Ptr< QonCommonSmData > acsd ) : acsd_( std::move( acsd ) ) {}

QonAsyncBaseSm::~QonAsyncBaseSm() = default;

void
QonAsyncBaseSm::handleAsyncOperationResult() {
   // fixed text
   Velto::assertFail( "0", "QonAsyncCommon", missingHandlerLine,
                      "virtual void Qon::QonAsyncBaseSm::handleAsyncOperationResult()" );
}

void
QonAsyncBaseSm::handleTcamRequestClock() {
   QON_HOOK( QonAsyncBaseSm, this, processTcamRequestQueue );
}

void
QonAsyncBaseSm::handlePendingOperationTimeoutClock() {
   QON_HOOK( QonAsyncBaseSm, this, handlePendingOperationTimeout );
}

void
QonAsyncBaseSm::kivDoZombieReactors() {
   tcamRequestClock_.attach( this, nullptr );
   pendingOperationTimeoutClock_.attach( this, nullptr );
   QonBaseSm::kivDoZombieReactors();
}

void
QonAsyncBaseSm::tcamRequestClockIs( Velto::Ptr< Kiv::Clock > clock ) {
   if ( clock != tcamRequestClock() ) {
      tcamRequestClock_.attach( this, std::move( clock ) );
   }
}

void
QonAsyncBaseSm::pendingOperationTimeoutClockIs( Velto::Ptr< Kiv::Clock > clock ) {
   if ( clock != pendingOperationTimeoutClock() ) {
      pendingOperationTimeoutClock_.attach( this, std::move( clock ) );
   }
}

Velto::Ptr< QonAsyncBaseSm >
QonAsyncBaseSmIs( Velto::Ptr< QonCommonSmData > acsd ) {
   return smIs< QonAsyncBaseSm >( std::move( acsd ) );
}

U32
QonAsyncBaseHelper::nextPriority() {
   // fixed text
   VELTO_ASSERT( priority() > 0 ); // not past zero, wherever it came from
   const U32 next = this->priority() - 1;
   priorityIs( next );                      // a watcher may end the helper
   auto priority = [next] { return next; }; // named for the assertion's text
   VELTO_ASSERT( priority() > 0 );          // fixed text
   return next;
}

U16
QonAsyncBaseHelper::getNextSequence( const String & key ) {
   auto [held, fresh] = sequence_.emplace( key, firstSequence );
   int nextSequence = fresh ? firstSequence : *held - 1;
   VELTO_ASSERT( nextSequence > 0 ); // fixed text
   *held = U16( nextSequence );
   kivPublish( sequenceAttr::index, key );
   return U16( nextSequence );
}

Velto::Ptr< QonAsyncBaseHelper >
qonAsyncBaseHelperFactory() {
   return Velto::make< QonAsyncBaseHelper >();
}

} // namespace Qon

namespace Qon::Ack {

namespace {

/** The record as the successor of `held`. */
template< class Record >
Record
nextOf( const Record & held, Record record ) {
   record.genIdIs( U8( held.genId() + 1 ) );
   return record;
}

} // namespace

void
QonFecAckSmConfig::updatePassedToPdFec( const VersionIdPassedToPdFec & record ) {
   passedToPdFecIs( nextOf( passedToPdFec(), record ) );
}

void
QonFecAckSmConfig::updateDedupedToLatestL2Adj( const DedupedToLatestL2Adj & record ) {
   dedupedToLatestL2AdjIs( nextOf( dedupedToLatestL2Adj(), record ) );
}

void
QonFecAckSmConfig::updateFecIdToBeDeleted( const DeleteFecIdFromFecStatus & record ) {
   deletedFecIs( nextOf( deletedFec(), record ) );
}

void
QonTunnelFecAckSmConfig::updatePassedToPdTunnelFec( const VersionIdPassedToPdTunnelFec & record ) {
   passedToPdTunnelFecIs( nextOf( passedToPdTunnelFec(), record ) );
}

void
QonRouteAckSmConfig::updateNextRouteToPassToPd( const VersionIdPassedToPdRoute & record ) {
   nextRouteToPassToPdIs( nextOf( nextRouteToPassToPd(), record ) );
}

void
QonRouteAckSmConfig::updateSkippedPdRoute( const VersionIdPassedToPdRoute & record ) {
   skippedPdRouteIs( nextOf( skippedPdRoute(), record ) );
}

} // namespace Qon::Ack
