// Shared agent data: its set-up, and the predicates of the hardware epoch.

#include <cstdlib>

#include "Qon/include/framework/QonCommonSmData.h"
#include "Qon/include/framework/QonTraceHandles.h"
#include "platform/Kiv/Describe.h"

KIV_DEFINE( Qon::VlanStatus )
KIV_DEFINE( Qon::HwCliConfig )
KIV_DEFINE( Qon::QonCommonSmData )
KIV_DEFINE( Qon::QonEpochStatus )

namespace Qon {

namespace {

Flintlog::Facility facility( "QonCommon" );
constexpr int entryLevel = 9;

/** The variable as a number to base 10; text that is none is 0. */
long
envNumber( const char * variable, long unset ) {
   const char * text = std::getenv( variable );
   return text ? std::strtol( text, nullptr, 10 ) : unset;
}

} // namespace

QonCommonSmData::QonCommonSmData( const String & name ) : Kiv::Entity( name ) {}

QonCommonSmData::~QonCommonSmData() {
   verifySm_ = nullptr; // it points back to the data that goes next
}

void
QonCommonSmData::initializedIs( bool v ) {
   if ( initialized_ == v ) {
      return;
   }
   if ( v ) {
      handleInitialized();
      return;
   }
   initialized_ = false;
   kivPublish( initializedAttr::index );
}

void
QonCommonSmData::handleInitialized() {
   QON_TRACE( facility, entryLevel, "QonCommonSmData::handleInitialized" );
   const Velto::Hold alive( this );
   if ( setUp_ == SetUp::none ) {
      SetUp reached = SetUp::none; // a set-up that a watcher's exception ended is made again
      const Velto::AtEnd done( [&] { setUp_ = reached; } );
      setUp_ = SetUp::underWay;
      setUp();
      reached = SetUp::done;
   }
   // A watcher of what the set-up makes may come here before all of it is made.
   if ( setUp_ == SetUp::done && !initialized_ ) {
      initialized_ = true;
      kivPublish( initializedAttr::index );
   }
}

void
QonCommonSmData::setUp() {
   verifyDataIs( "verify" )->verifyRequiredIs( "vr" );
   const Velto::Ptr< VerifySm > sm = verifySm() ? Velto::Ptr( verifySm() ) : VerifySmIs( this );
   verifySmIs( sm );
   sm->handleInitialized(); // sets initialized, also when that was as far as it came
   lowMemoryModeIs( envSet( "QON_LOW_MEMORY_MODE" ) );
}

Velto::Ptr< QonCommonSmData >
qonCommonSmDataFactory( const String & name ) {
   return Velto::make< QonCommonSmData >( name );
}

void
QonEpochStatus::initializedIs( bool v ) {
   if ( initialized_ == v ) {
      return;
   }
   if ( v ) {
      handleInitialized();
      return;
   }
   initialized_ = false;
   kivPublish( initializedAttr::index );
}

void
QonEpochStatus::handleInitialized() {
   QON_TRACE( facility, entryLevel, "QonEpochStatus::handleInitialized" );
   if ( !initialized_ ) {
      initialized_ = true;
      kivPublish( initializedAttr::index );
   }
}

bool
QonEpochStatus::aclsInTcamSupported( const String & ) const {
   return !underSimulation() || envNumber( "OLD_ACLS_TCAM_ENABLED", 1 ) != 0;
}

bool
QonEpochStatus::aclSupported( const String & card ) const {
   VELTO_ASSERT( initialized() ); // fixed text
   return aclsInTcamSupported( card );
}

bool
QonEpochStatus::pbrDenyActionSupported( const String & card ) const {
   return aclSupported( card );
}

bool
QonEpochStatus::qosDropActionSupported( const String & card ) const {
   return aclSupported( card );
}

bool
QonEpochStatus::tapAggDenyActionSupported( const String & card ) const {
   return aclSupported( card );
}

bool
QonEpochStatus::stormZeroRateSupported( const String & card ) const {
   return aclSupported( card );
}

bool
QonEpochStatus::pfcWatchdogTcamDropSupported( const String & ) const {
   VELTO_ASSERT( initialized() ); // fixed text
   return true;
}

bool
QonEpochStatus::pdpModeEnabled() const {
   if ( underSimulation() ) {
      return envNumber( "PDP_MODE_ENABLED", 0 ) != 0;
   }
   VELTO_ASSERT( hwEpochStatus() ); // fixed text
   return hwEpochStatus()->pdpModeEnabled();
}

bool
QonEpochStatus::preferHaloAcls( const String & card ) const {
   auto cardStatus = hwEpochStatus() ? hwEpochStatus()->card( card ) : nullptr;
   if ( !cardStatus ) {
      if ( underSimulation() ) {
         return true;
      }
      VELTO_ASSERT( cardStatus ); // fixed text
   }
   auto restriction = cardStatus->feature( Kiv::toText( HwEpoch::EpochFeature::haloAcl ) );
   return restriction && restriction->state() == HwEpoch::RestrictionState::restricted;
}

Velto::Ptr< QonEpochStatus >
qonEpochStatusFactory( const String & name ) {
   return Velto::make< QonEpochStatus >( name );
}

} // namespace Qon
