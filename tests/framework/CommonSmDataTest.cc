// The shared agent data: its set-up, its odd corners, and the predicates of the hardware epoch.

#include "Qon/include/framework/QonCommonSmData.h"
#include "platform/Kiv/Generic.h"
#include "platform/Kiv/Listener.h"
#include "tests/harness/World.h"

namespace {

using namespace Tests;
using Qon::QonCommonSmData;

/** Writes down every change of the shared data, and what was there by then. */
class SetUpWatcher : public Velto::Node {
 public:
   explicit SetUpWatcher( QonCommonSmData * acsd ) : acsd_( acsd ) {
      hasNotificationActiveIs( true );
      watch_.attach( this, acsd, &heard, this );
   }
   std::vector< String > events;
   std::function< void() > onChange;

 private:
   static void heard( void * self, const Kiv::Entity &, int attribute, const void * ) {
      static_cast< SetUpWatcher * >( self )->note( attribute );
   }
   void note( int attribute ) {
      auto sm = acsd_->verifySm();
      auto data = acsd_->verifyData();
      String there = data && data->verifyRequired() ? " vr" : "";
      there += sm && sm->initialized() ? " sm" : "";
      there += acsd_->lowMemoryMode() ? " low" : "";
      events.push_back( acsd_->typeData()->at( attribute )->name + there );
      if ( onChange ) {
         onChange();
      }
   }
   QonCommonSmData * acsd_;
   Kiv::EntityWatch watch_;
};

TEST( CommonSmData, InitializedIsTheLastThatAWatcherHears ) {
   Kiv::VirtualScheduler scheduler;
   Env env( "QON_LOW_MEMORY_MODE", "" ); // set, if only with an empty value
   auto acsd = Qon::qonCommonSmDataFactory( "acsd" );
   auto watcher = Velto::make< SetUpWatcher >( acsd.ptr() );
   // Whoever hears of the first parts cannot cut the rest short.
   watcher->onChange = [&] { acsd->initializedIs( true ); };
   acsd->initializedIs( true );
   EXPECT_EQ( watcher->events,
              ( std::vector< String >{ "verifyData", "verifySm vr", "lowMemoryMode vr sm low",
                                       "initialized vr sm low" } ) );
   EXPECT_EQ( "verify", acsd->verifyData()->name() );
   EXPECT_EQ( "vr", acsd->verifyData()->verifyRequired()->name() );
}

TEST( CommonSmData, TheSetUpIsMadeOnce ) {
   World world;
   EXPECT_FALSE( world.acsd->lowMemoryMode() );
   auto data = world.acsd->verifyData();
   auto sm = world.acsd->verifySm();
   auto watcher = Velto::make< SetUpWatcher >( world.acsd.ptr() );
   world.acsd->initializedIs( true );
   EXPECT_TRUE( watcher->events.empty() );
   world.acsd->initializedIs( false );
   world.acsd->initializedIs( false );        // is no change
   EXPECT_FALSE( world.acsd->initialized() ); // and nothing turns it back
   EXPECT_EQ( watcher->events, std::vector< String >{ "initialized vr sm" } );
   Env env( "QON_LOW_MEMORY_MODE", "1" );
   world.acsd->handleInitialized();
   EXPECT_TRUE( world.acsd->initialized() );
   EXPECT_FALSE( world.acsd->lowMemoryMode() );
   EXPECT_EQ( data, world.acsd->verifyData() );
   EXPECT_EQ( sm, world.acsd->verifySm() );
}

TEST( CommonSmData, TheVerifierMayOutliveIt ) {
   World world;
   Velto::Ptr< Qon::VerifySm > sm = world.acsd->verifySm();
   sm->handleVerifyRequest();
   world.acsd = nullptr;
   world.scheduler.settle();
   sm->handleCliVerificationRequest( 0 );
}

TEST( CommonSmData, FreeMirrorSessionsAreFirstInFirstOut ) {
   auto acsd = Qon::qonCommonSmDataFactory( "acsd" );
   for ( U8 id : { 3, 1, 2 } ) {
      acsd->freeMirrorSessionEnq( id );
   }
   U8 id = acsd->freeMirrorSessionFront();
   EXPECT_EQ( 3, id );
   acsd->freeMirrorSessionDeq();
   EXPECT_FALSE( acsd->freeMirrorSessionHas( id ) );
   acsd->freeMirrorSessionEnq( id ); // to the back
   EXPECT_EQ( std::pair( 1, 3 ), std::pair( int( acsd->freeMirrorSessionFront() ),
                                            int( acsd->freeMirrorSessionBack() ) ) );
   acsd->freeMirrorSessionEnq( id ); // a queue, no set
   EXPECT_EQ( 4u, acsd->freeMirrorSessions() );
   acsd->freeMirrorSessionDelAll();
   acsd->freeMirrorSessionDeq();
   EXPECT_THROW( acsd->freeMirrorSessionFront(), Velto::RangeError );
   EXPECT_THROW( acsd->freeMirrorSessionBack(), Velto::RangeError );
}

TEST( CommonSmData, TraceLevelsAreOneValue ) {
   World world;
   auto watcher = Velto::make< SetUpWatcher >( world.acsd.ptr() );
   auto levels = world.acsd->flintlogLevels();
   EXPECT_EQ( Qon::FlintlogLevels( 1, 2, 2, 8, 6, 0, 7, 5 ), levels );
   world.acsd->flintlogLevelsIs( levels );
   levels.qonArpSmIs( 9 );
   levels.qonL2AdjHelperIs( 9 );
   world.acsd->flintlogLevelsIs( levels );
   EXPECT_EQ( watcher->events, std::vector< String >{ "flintlogLevels vr sm" } );
}

class Epoch : public ::testing::Test {
 protected:
   Epoch() {
      for ( auto v : { "SIMULATION_VMID", "OLD_ACLS_TCAM_ENABLED", "PDP_MODE_ENABLED" } ) {
         env.unset( v );
      }
   }
   Env env;
   Velto::Ptr< HwEpoch::Status > status = Velto::make< HwEpoch::Status >( "epoch" );
   Velto::Ptr< Qon::QonEpochStatus > epoch = Qon::qonEpochStatusFactory( "epoch" );
};

TEST_F( Epoch, ItsStartIsPublishedOnceEachTime ) {
   int heard = 0;
   Kiv::Listener< Qon::QonEpochStatus::initializedAttr > ear( epoch.ptr(), [&] { ++heard; } );
   for ( bool v : { true, true, false, true } ) {
      epoch->initializedIs( v );
   }
   EXPECT_EQ( 3, heard );
}

using Predicate = bool ( Qon::QonEpochStatus::* )( const String & ) const;
const Predicate dependent[] = {
      &Qon::QonEpochStatus::aclSupported,           &Qon::QonEpochStatus::pbrDenyActionSupported,
      &Qon::QonEpochStatus::qosDropActionSupported, &Qon::QonEpochStatus::tapAggDenyActionSupported,
      &Qon::QonEpochStatus::stormZeroRateSupported,
};

TEST_F( Epoch, AclsAndWhatDependsOnThemFollowTheEnvironmentUnderSimulationOnly ) {
   const struct {
      const char * simulation;
      const char * acls;
      bool supported;
   } cases[] = {
         { nullptr, nullptr, true }, { nullptr, "0", true },       { "", nullptr, true },
         { "7", "0", false },        { "7", "1", true },           { "7", "-3", true },
         { "7", "", false },         { "7", "nonsense", false },   { "7", " 12 or so", true },
         { "7", "0x10", false },     { "7", "99999999999", true },
   };
   epoch->initializedIs( true );
   for ( auto & c : cases ) {
      Env here;
      c.simulation ? here.set( "SIMULATION_VMID", c.simulation ) : void();
      c.acls ? here.set( "OLD_ACLS_TCAM_ENABLED", c.acls ) : void();
      EXPECT_EQ( c.supported, epoch->aclsInTcamSupported( "any" ) ) << c.acls;
      for ( auto predicate : dependent ) {
         EXPECT_EQ( c.supported, ( epoch.ptr()->*predicate )( "any" ) ) << c.acls;
      }
      EXPECT_TRUE( epoch->pfcWatchdogTcamDropSupported( "any" ) );
   }
}

TEST_F( Epoch, PdpModeComesFromTheStatusOrUnderSimulationFromTheEnvironment ) {
   epoch->hwEpochStatusIs( status );
   env.set( "PDP_MODE_ENABLED", "1" );
   EXPECT_FALSE( epoch->pdpModeEnabled() );
   status->pdpModeEnabledIs( true );
   EXPECT_TRUE( epoch->pdpModeEnabled() );
   env.set( "SIMULATION_VMID", "1" );
   EXPECT_TRUE( epoch->pdpModeEnabled() );
   env.set( "PDP_MODE_ENABLED", "0" );
   EXPECT_FALSE( epoch->pdpModeEnabled() );
   env.unset( "PDP_MODE_ENABLED" );
   EXPECT_FALSE( epoch->pdpModeEnabled() );
}

TEST_F( Epoch, HaloAclsDependOnTheCardsRestriction ) {
   auto feature = []( int number ) { return Kiv::toText( HwEpoch::EpochFeature( number ) ); };
   auto card = status->cardIs( "Linecard3" );
   for ( bool simulated : { false, true } ) {
      Env here;
      simulated ? here.set( "SIMULATION_VMID", "1" ) : here.unset( "SIMULATION_VMID" );
      epoch->hwEpochStatusIs( status );
      card->featureDelAll();
      card->featureIs( feature( 4 ) )->stateIs( HwEpoch::RestrictionState( 1 ) );
      EXPECT_FALSE( epoch->preferHaloAcls( "Linecard3" ) );
      card->featureIs( feature( 5 ) );
      EXPECT_FALSE( epoch->preferHaloAcls( "Linecard3" ) );
      card->featureIs( feature( 5 ) )->stateIs( HwEpoch::RestrictionState( 1 ) );
      EXPECT_TRUE( epoch->preferHaloAcls( "Linecard3" ) );
      if ( simulated ) {
         EXPECT_TRUE( epoch->preferHaloAcls( "Linecard4" ) );
         epoch->hwEpochStatusIs( nullptr );
         EXPECT_TRUE( epoch->preferHaloAcls( "Linecard3" ) );
      }
   }
}

} // namespace
