#include "simulation/SimVerify.h"

#include "simulation/World.h"

namespace Sim {

std::span< const Operation >
SimVerify::operations() {
   static const Operation table[] = {
         { "request", 10, { Range::few }, &SimVerify::request },
         { "console", 2, {}, &SimVerify::runForConsole },
         { "enable", 2, { Range::flag }, &SimVerify::enabledIs },
   };
   return table;
}

SimVerify::SimVerify( World & world ) : SimFeature( world ) {}

SimVerify::~SimVerify() = default;

void
SimVerify::start() {
   data_ = world_.acsd->verifyData();
   counter_ = Velto::make< Counter >();
   counter_->hasNotificationActiveIs( true );
   requests_ = runsAtLast_ = 0;
   runs_ = {};
   data_->verifyIs( true );
   counter_->data = data_;
   counter_->place.attach< &Counter::check >( data_, "counter", counter_.ptr() );
}

void
SimVerify::request( const Event & event ) {
   for ( U32 i = 0; i <= event[0]; ++i ) {
      data_->doRequestVerify();
      if ( data_->verify() ) {
         ++requests_;
         runsAtLast_ = counter_->runs;
      }
   }
}

void
SimVerify::runForConsole( const Event & ) {
   world_.acsd->verifySm()->handleCliVerificationRequest( 0 );
   ++consoleRuns_;
}

void
SimVerify::enabledIs( const Event & event ) {
   data_->verifyIs( event[0] != 0 );
}

String
SimVerify::checkStep() const {
   if ( data_->verifyInc() != 0 ) {
      return "finding: " + data_->verifyOutput().description();
   }
   const bool requested = data_->verifyRequired()->verifyRequired() != counter_->request;
   const String wrong = runs_.check( world_.scheduler.time(), world_.acsd->verifySm()->runTime(),
                                     requested ? 0 : 1.0 );
   return wrong.empty() ? "" : "clock of the verification: " + wrong;
}

String
SimVerify::checkAtRest() const {
   if ( requests_ != 0 && counter_->runs <= runsAtLast_ ) {
      return "lost request: no run after it";
   }
   return {};
}

void
SimVerify::kill( Ending ) {
   stop();
}

void
SimVerify::stop() {
   counter_->place.attach( nullptr, "", nullptr, nullptr );
}

FeatureKind
simVerify() {
   return featureKindOf< SimVerify >( "verify" );
}

} // namespace Sim
