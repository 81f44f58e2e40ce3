#include "simulation/SimVerify.h"

#include "simulation/World.h"

namespace Sim {

namespace {

enum Operations : U8 { request, console, enable };

constexpr Operation operationTable[] = {
      { "request", 10, { Range::few } },
      { "console", 2 },
      { "enable", 2, { Range::flag } },
};

} // namespace

std::span< const Operation >
SimVerify::operations() {
   return operationTable;
}

SimVerify::SimVerify( World & world )
    : SimFeature( world ), data_( world.acsd->verifyData() ), counter_( Velto::make< Counter >() ) {
   counter_->hasNotificationActiveIs( true );
}

SimVerify::~SimVerify() = default;

void
SimVerify::start() {
   data_->verifyIs( true );
   counter_->place.attach< &Counter::check >( data_, "counter", counter_.ptr() );
}

void
SimVerify::apply( const Event & event ) {
   switch ( Operations( event.operation ) ) {
   case request:
      for ( U32 i = 0; i <= event[0]; ++i ) {
         data_->doRequestVerify();
         if ( data_->verify() ) {
            ++requests_;
            runsAtLast_ = counter_->runs;
         }
      }
      break;
   case console:
      world_.acsd->verifySm()->handleCliVerificationRequest( 0 );
      ++consoleRuns_;
      break;
   case enable:
      data_->verifyIs( event[0] != 0 );
      break;
   }
}

String
SimVerify::checkInvariants() const {
   if ( data_->verifyInc() != 0 ) {
      return "finding: " + data_->verifyOutput().description();
   }
   return {};
}

String
SimVerify::checkAtRest() const {
   if ( requests_ != 0 && counter_->runs <= runsAtLast_ ) {
      return "lost request: no run after it";
   }
   return {};
}

void
SimVerify::tearDown() {}

void
SimVerify::stop() {
   counter_->place.attach( nullptr, "", nullptr, nullptr );
}

} // namespace Sim
