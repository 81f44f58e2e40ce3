#include "agent/Agent.h"

#include <algorithm>

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
      ++gone_;
   }
   if ( descriptor.severity > level_ ) {
      return;
   }
   ( next_ ? *next_ : Kiv::logStandardError() ).message( descriptor, text );
}

Agent::Agent( Kiv::TaskScheduler & scheduler, QonChip::Chip & chip, const Features & features,
              const Settings & settings )
    : scheduler_( scheduler ), chip_( chip ), began_( Kiv::now() ) {
   settingsAre( features, settings );
   auto epoch = entities_.mount< HwEpoch::Status >( Paths::hwEpochStatus );
   acsd_ = Qon::qonCommonSmDataFactory( acsdPath );
   entities_.mountIs( acsdPath, acsd_ );
   acsd_->initializedIs( true );
   epochStatus_ = Qon::qonEpochStatusFactory( "epochStatus" );
   epochStatus_->hwEpochStatusIs( epoch.ptr() );
   epochStatus_->initializedIs( true );
   for ( auto & kind : features ) {
      featureNames_.push_back( kind.name );
      features_.push_back( kind.make( *this ) );
   }
}

Agent::~Agent() {
   while ( !features_.empty() ) {
      features_.pop_back();
   }
   // They watch the shared data without counting it.
   acsd_->vlanHelperDel();
   shared_.clear();
}

/** The words that were chosen, and the first one of every other option. */
void
Agent::settingsAre( const Features & features, const Settings & settings ) {
   for ( auto & kind : features ) {
      for ( auto & option : kind.options ) {
         auto & words = option.words;
         auto chosen = settings.find( option.name );
         const String word = chosen != settings.end() ? chosen->second
                             : words.empty()          ? ""
                                                      : words[0];
         if ( !words.empty() && std::find( words.begin(), words.end(), word ) == words.end() ) {
            throw Velto::RangeError( option.name + " cannot be '" + word + "'" );
         }
         settings_[option.name] = word;
      }
   }
   for ( auto & [name, word] : settings ) {
      if ( !settings_.contains( name ) ) {
         throw Velto::RangeError( "no feature has the option " + name );
      }
   }
}

void
Agent::inputsRead() {
   for ( auto & feature : features_ ) {
      feature->inputsRead();
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
