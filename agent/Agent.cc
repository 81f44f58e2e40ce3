#include "agent/Agent.h"

#include "agent/Json.h"
#include "platform/types/HwEpoch.h"
#include "platform/types/Paths.h"

namespace QonAgent {

RecentLog::RecentLog() {
   next_ = Kiv::logSinkIs( this );
   Kiv::logWindowsReset();
}

RecentLog::~RecentLog() {
   Kiv::logSinkIs( next_ );
}

void
RecentLog::message( const Kiv::LogDescriptor & descriptor, const String & text ) {
   records_.push_back( { Kiv::now(), descriptor.severity, descriptor.name, text } );
   if ( records_.size() > logDepth ) {
      records_.pop_front();
   }
   ( next_ ? *next_ : Kiv::logStandardError() ).message( descriptor, text );
}

Agent::Agent( Kiv::TaskScheduler & scheduler, Features features )
    : scheduler_( scheduler ), began_( Kiv::now() ), features_( std::move( features ) ) {
   auto epoch = entities_.mount< HwEpoch::Status >( Paths::hwEpochStatus );
   acsd_ = Qon::qonCommonSmDataFactory( acsdPath );
   entities_.mountIs( acsdPath, acsd_ );
   acsd_->initializedIs( true );
   epochStatus_ = Qon::qonEpochStatusFactory( "epochStatus" );
   epochStatus_->hwEpochStatusIs( epoch.ptr() );
   epochStatus_->initializedIs( true );
   for ( auto & feature : features_ ) {
      feature->create( *this );
   }
}

Agent::~Agent() {
   while ( !features_.empty() ) {
      features_.back()->destroy();
      features_.pop_back();
   }
}

std::vector< ShowCommand >
Agent::showCommands() const {
   std::vector< ShowCommand > all;
   for ( auto & feature : features_ ) {
      for ( auto & command : feature->showCommands() ) {
         all.push_back( command );
      }
   }
   return all;
}

std::vector< EventKind >
Agent::eventKinds() const {
   std::vector< EventKind > all;
   for ( auto & feature : features_ ) {
      for ( auto & kind : feature->eventKinds() ) {
         all.push_back( kind );
      }
   }
   return all;
}

} // namespace QonAgent
