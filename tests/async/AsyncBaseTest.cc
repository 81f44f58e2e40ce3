// The base of asynchronous state machines, the numbering of operations, the acknowledgements.

#include "Qon/include/framework/QonAck.h"
#include "Qon/include/framework/QonAsyncBaseSm.h"
#include "platform/Kiv/Generic.h"
#include "platform/Kiv/Listener.h"
#include "tests/harness/World.h"

namespace {

using namespace Tests;
using Qon::AsyncOperationResult;
using Qon::QonAsyncBaseHelper;

/** Writes down what it is called for. */
class Recorder : public Qon::QonAsyncBaseSm {
 public:
   explicit Recorder( Velto::Ptr< Qon::QonCommonSmData > acsd )
       : QonAsyncBaseSm( std::move( acsd ) ) {}
   void handleAsyncOperationResult() override { ++results; }
   void processTcamRequestQueue() override {
      ++requests;
      if ( auto once = std::exchange( onRequest, nullptr ) ) {
         once();
      }
   }
   void handlePendingOperationTimeout() override { ++timeouts; }

   int results = 0, requests = 0, timeouts = 0;
   std::function< void() > onRequest;
   Kiv::Watch< QonAsyncBaseHelper::asyncOperationResultAttr, Recorder,
               &Recorder::handleAsyncOperationResult >
         resultWatch;
};

class AsyncBase : public ::testing::Test {
 protected:
   Velto::Ptr< Kiv::Clock > clock() { return Velto::make< Kiv::Clock >(); }

   World world;
   Velto::Ptr< Recorder > sm = Qon::smIs< Recorder >( world.acsd );
   Velto::Ptr< QonAsyncBaseHelper > helper = Qon::qonAsyncBaseHelperFactory();
};

TEST_F( AsyncBase, EachFiringOfAClockCallsItsOwnHandler ) {
   EXPECT_EQ( Qon::AsyncOperationState::asyncNone, sm->asyncState() );
   EXPECT_EQ( 60.0, sm->pendingOperationTimeout() );
   sm->tcamRequestClockIs( clock() );
   sm->pendingOperationTimeoutClockIs( clock() );
   EXPECT_TRUE( sm->tcamRequestClock()->idle() ); // the base arms nothing
   sm->tcamRequestClock()->timeIs( Kiv::now() + 1 );
   sm->pendingOperationTimeoutClock()->timeIs( Kiv::now() + 2 );
   world.scheduler.runFor( 1 );
   EXPECT_EQ( std::pair( 1, 0 ), std::pair( sm->requests, sm->timeouts ) );
   world.scheduler.runFor( 1 );
   EXPECT_EQ( std::pair( 1, 1 ), std::pair( sm->requests, sm->timeouts ) );
}

TEST_F( AsyncBase, AFiringThatIsDueDiesWithItsReactor ) {
   auto request = clock(), other = clock();
   sm->tcamRequestClockIs( request );
   sm->pendingOperationTimeoutClockIs( clock() );
   // Both are due in one turn; the first handler takes the second clock away.
   sm->tcamRequestClock()->timeIs( Kiv::now() );
   sm->pendingOperationTimeoutClock()->timeIs( Kiv::now() );
   sm->onRequest = [this] { sm->pendingOperationTimeoutClockDel(); };
   world.scheduler.settle();
   EXPECT_EQ( std::pair( 1, 0 ), std::pair( sm->requests, sm->timeouts ) );
   EXPECT_EQ( nullptr, sm->pendingOperationTimeoutClock() );

   sm->tcamRequestClockIs( other ); // in place of a clock that is about to fire
   request->timeIs( Kiv::now() );
   world.scheduler.settle();
   EXPECT_EQ( 1, sm->requests );

   other->timeIs( Kiv::now() );
   sm->tcamRequestClockIs( other ); // the same clock: nothing is lost
   world.scheduler.settle();
   EXPECT_EQ( 2, sm->requests );
}

TEST_F( AsyncBase, HandlersMayTakeAwayTheirClockOrEndTheirOwner ) {
   sm->tcamRequestClockIs( clock() );
   sm->tcamRequestClock()->timeIs( Kiv::now() );
   sm->onRequest = [this] { sm->tcamRequestClockDel(); };
   world.scheduler.settle();
   EXPECT_EQ( nullptr, sm->tcamRequestClock() );

   auto kept = clock();
   sm->tcamRequestClockIs( kept );
   kept->timeIs( Kiv::now() );
   sm->onRequest = [this] { sm = nullptr; };
   world.scheduler.settle();
   EXPECT_EQ( 1u, kept->useCount() );
}

TEST_F( AsyncBase, ADeadStateMachineHearsNoClock ) {
   auto kept = clock(), other = clock();
   sm->tcamRequestClockIs( kept );
   sm->pendingOperationTimeoutClockIs( other );
   kept->timeIs( Kiv::now() );
   sm->kivDoZombieReactors();
   world.scheduler.settle();
   EXPECT_EQ( 0, sm->requests );
   EXPECT_EQ( 2u, kept->useCount() + other->useCount() ); // it has let both of them go
}

TEST_F( AsyncBase, AResultIsHeardOnceForEachChange ) {
   sm->resultWatch.attach( sm.ptr(), helper.ptr() );
   AsyncOperationResult result( "busy", 7 );
   helper->asyncOperationResultIs( result );
   helper->asyncOperationResultIs( result );
   EXPECT_EQ( 1, sm->results );
   result.timestampIs( 8 );
   helper->asyncOperationResultIs( result );
   EXPECT_EQ( 2, sm->results );
   // Compared by its fields: an empty result of now is no less a change.
   helper->asyncOperationResultIs( AsyncOperationResult() );
   EXPECT_EQ( 3, sm->results );
}

TEST_F( AsyncBase, PrioritiesAndSequencesFall ) {
   EXPECT_EQ( 4294967294u, helper->nextPriority() );
   EXPECT_EQ( 4294967293u, helper->nextPriority() );
   EXPECT_EQ( 65535, helper->getNextSequence( "a" ) );
   EXPECT_EQ( 65534, helper->getNextSequence( "a" ) );
   EXPECT_EQ( 65535, helper->getNextSequence( "b" ) );
   helper->sequenceDel( "a" );
   EXPECT_EQ( 65535, helper->getNextSequence( "a" ) );
   EXPECT_EQ( 65534, helper->getNextSequence( "b" ) );
   EXPECT_EQ( "65534", Kiv::GenericIf::get( *helper, "sequence[b]" ) );
}

TEST_F( AsyncBase, NumbersArePublishedAndAreNotThoseOfTheirWatchers ) {
   std::vector< String > heard;
   Kiv::Listener< QonAsyncBaseHelper::sequenceAttr > sequences(
         helper.ptr(), [&]( const String & key ) {
            heard.push_back( key + " " + Kiv::toText( helper->sequence( key ) ) );
         } );
   helper->getNextSequence( "a" );
   helper->getNextSequence( "a" );
   EXPECT_EQ( heard, ( std::vector< String >{ "a 65535", "a 65534" } ) );
   Kiv::Listener< QonAsyncBaseHelper::priorityAttr > other( helper.ptr(), [&] {
      other.detach();
      helper->priorityIs( 100 );
   } );
   EXPECT_EQ( 4294967294u, helper->nextPriority() );
   Kiv::Listener< QonAsyncBaseHelper::priorityAttr > last( helper.ptr(),
                                                           [&] { helper = nullptr; } );
   EXPECT_EQ( 99u, helper->nextPriority() );
}

TEST_F( AsyncBase, NewHooksStandBehindThoseOfTheBase ) {
   // A pointer to a virtual member function holds the slot's offset plus one.
   auto slot = []( auto member ) {
      std::ptrdiff_t word;
      std::memcpy( &word, &member, sizeof( word ) );
      return ( word - 1 ) / std::ptrdiff_t( sizeof( void * ) );
   };
   EXPECT_EQ( 4, slot( &Qon::QonAsyncBaseSm::handleInitialized ) );
   EXPECT_EQ( 5, slot( &Qon::QonAsyncBaseSm::handleAsyncOperationResult ) );
   EXPECT_EQ( 6, slot( &Qon::QonAsyncBaseSm::processTcamRequestQueue ) );
   EXPECT_EQ( 7, slot( &Qon::QonAsyncBaseSm::handlePendingOperationTimeout ) );
}

/** Counts the changes of the records of a holder. */
struct Changes {
   explicit Changes( Velto::Ptr< Kiv::Entity > entity ) {
      self->hasNotificationActiveIs( true );
      watch.attach(
            self.ptr(), entity.ptr(),
            []( void * changes, const Kiv::Entity &, int attribute, const void * ) {
               ++static_cast< Changes * >( changes )->of[attribute];
            },
            this );
   }
   struct Ear : Velto::Node {};
   std::map< int, int > of;
   Velto::Ptr< Ear > self = Velto::make< Ear >();
   Kiv::EntityWatch watch;
};

TEST( Acknowledgements, EveryUpdateIsPublishedWithTheNextGeneration ) {
   using Qon::Ack::QonFecAckSmConfig;
   auto acks =
         Velto::make< QonFecAckSmConfig >( Routing::Hardware::FecAckSupport::fecAckSupported );
   Changes changes( acks );
   Qon::Ack::DeleteFecIdFromFecStatus gone( Quarn::Fib::FecId( 5 ), 77 );
   acks->updateFecIdToBeDeleted( gone );
   EXPECT_EQ( 1, acks->deletedFec().genId() ); // the caller's generation does not count
   for ( int i = 1; i < 256; ++i ) {
      acks->updateFecIdToBeDeleted( gone );
   }
   EXPECT_EQ( 0, acks->deletedFec().genId() );
   EXPECT_EQ( 256, changes.of[QonFecAckSmConfig::deletedFecAttr::index] );
   EXPECT_EQ( Quarn::Fib::FecId( 5 ), acks->deletedFec().fecId() );

   // Each record has its own count.
   acks->updatePassedToPdFec( {} );
   acks->updateDedupedToLatestL2Adj( {} );
   acks->updateDedupedToLatestL2Adj( {} );
   EXPECT_EQ( 1, acks->passedToPdFec().genId() );
   EXPECT_EQ( 2, acks->dedupedToLatestL2Adj().genId() );

   acks->deletedFecIs( acks->deletedFec() ); // a plain write of the same is silent
   EXPECT_EQ( 256, changes.of[QonFecAckSmConfig::deletedFecAttr::index] );
}

TEST( Acknowledgements, RoutesAndTunnelsLikewise ) {
   auto routes = Velto::make< Qon::Ack::QonRouteAckSmConfig >( 3, Ulnet::AddressFamily::ipv6 );
   Qon::Ack::VersionIdPassedToPdRoute route;
   route.prefixIs( Ulnet::IpGenPrefix( "2001:db8::/32" ) );
   routes->updateNextRouteToPassToPd( route );
   routes->updateNextRouteToPassToPd( route );
   routes->updateSkippedPdRoute( route );
   EXPECT_EQ( 2, routes->nextRouteToPassToPd().genId() );
   EXPECT_EQ( 1, routes->skippedPdRoute().genId() );
   EXPECT_EQ( 3u, routes->vrfId() );

   auto tunnels = Velto::make< Qon::Ack::QonTunnelFecAckSmConfig >();
   tunnels->updatePassedToPdTunnelFec( { {}, {}, Quarn::Fib::FecId( 9 ), true, false, 0 } );
   EXPECT_EQ( 1, tunnels->passedToPdTunnelFec().genId() );
   EXPECT_TRUE( tunnels->passedToPdTunnelFec().remove() );
}

TEST( Acknowledgements, WaitingRoutesKeepTheirOrderAndRepetitions ) {
   auto queue = Velto::make< Qon::Ack::RoutesToAckQueue >( Ulnet::IpGenPrefix( "10.0.0.0/8" ) );
   Qon::Ack::VersionIdPassedToPdRoute one, two;
   one.qonVersionIdIs( Qon::QonPdVersionId( 1 ) );
   two.qonVersionIdIs( Qon::QonPdVersionId( 2 ) );
   for ( auto & route : { one, two, one } ) {
      queue->routeAckQueueEnq( route );
   }
   EXPECT_EQ( 3u, queue->routeAckQueues() );
   EXPECT_EQ( one, queue->routeAckQueueFront() );
   queue->routeAckQueueDeq();
   EXPECT_EQ( two, queue->routeAckQueueFront() );
   EXPECT_EQ( one, queue->routeAckQueueBack() );
}

} // namespace
