#include "Qon/include/stormcontrol/QonStormControlSm.h"

#include "Qon/include/framework/HookTap.h"
#include "Qon/stormcontrol/StormControlTrace.h"

namespace Qon {

using StormControl::levelKinds;
using StormControl::Threshold;
using Ulnet::IntfId;

StormControlSm::StormControlSm( Inputs inputs, Velto::Ptr< StormControlSmHelper > helper,
                                Velto::Ptr< VerifyData > verifyData )
    : StormControlBaseSm( std::move( inputs ) ), helper_( std::move( helper ) ),
      verifyData_( std::move( verifyData ) ) {}

void
StormControlSm::begin() {
   VELTO_ASSERT( helper() );
   check_.attach< &StormControlSm::handleVerify >( verifyData_, "QonStormControlSm", this );
   QON_HOOK( StormControlSmHelper, helper(), hwInit );
   forgetBcastSkips();
   QON_HOOK( StormControlSmHelper, helper(), installRules );
   uucast_ = QON_HOOK( StormControlSmHelper, helper(), uucastLevelEnabled );
   burst_ = QON_HOOK( StormControlSmHelper, helper(), burstEnabled );
   burstTold_ = false;
}

void
StormControlSm::reviewBurst() {
   const StormControl::BurstConfig burst = config()->burstConfig();
   if ( burst_ && !( burstTold_ && burst == burstGiven_ ) ) {
      QON_HOOK( StormControlSmHelper, helper(), setBurstTime, burst );
      burstTold_ = true;
      burstGiven_ = burst;
   }
}

// --- Interfaces ----------------------------------------------------------------------------------

void
StormControlSm::machineBegins( StormControlIntfSm & machine ) {
   statusIs( machine.intf() );
}

void
StormControlSm::updateLevel( StormControlIntfSm & machine, const LevelKind & kind,
                             const Given & wanted, StormControl::IntfStatus * status ) {
   Given & given = machine.given_[U8( kind.level )];
   // A hook that was called before may have taken everything back.
   if ( given == wanted || machine.zombie() ) {
      return;
   }
   given.given = false; // until it returns, who takes everything back takes this back too
   if ( kind.cpu ) {
      QON_HOOK( StormControlSmHelper, helper(), setCpuHwRate, kind.type, machine.intf(), wanted.lag,
                wanted.speedKbps, wanted.threshold );
   } else {
      QON_HOOK( StormControlSmHelper, helper(), setHwRate, kind.type, machine.intf(), wanted.lag,
                wanted.speedKbps, wanted.threshold );
   }
   given = wanted;
   if ( status ) {
      status->levelIs( kind.level, wanted.threshold );
   }
}

void
StormControlSm::program( StormControlIntfSm & machine, const Want & want ) {
   const bool skip = !want.effective.config->broadcastLevel();
   const auto status = statusOf( machine.intf() );
   Velto::FirstError error;
   error.run( [&] { reviewBcastSkip( machine.intf(), skip ); } );
   for ( auto & kind : levelKinds ) {
      if ( has( kind ) ) {
         error.run( [&] {
            updateLevel( machine, kind, wantedLevel( machine, kind, want ), status.ptr() );
         } );
      }
   }
   if ( status ) {
      error.run( [&] { status->lagIs( want.effective.lag ); } );
   }
   error.pass();
}

void
StormControlSm::clear( StormControlIntfSm & machine, const Want & want ) {
   const auto status = statusOf( machine.intf() );
   Velto::FirstError error;
   error.run( [&] { reviewBcastSkip( machine.intf(), true ); } );
   for ( auto & kind : levelKinds ) {
      const auto & given = machine.given( kind.level );
      if ( has( kind ) && !( given.given && given.threshold == Threshold() ) ) {
         const Given none = { true, Threshold(), want.speedKbps, want.effective.lag };
         error.run( [&] { updateLevel( machine, kind, none, status.ptr() ); } );
      }
   }
   error.pass();
}

void
StormControlSm::machineEnds( StormControlIntfSm & machine ) {
   Velto::FirstError error;
   if ( StormControl::isPort( machine.intf() ) ) {
      error.run( [&] { clear( machine, wantOf( machine.intf() ) ); } );
   }
   error.run( [&] { statusDel( machine.intf() ); } );
   error.pass();
}

void
StormControlSm::tellBcastSkip( IntfId intf, bool skip ) {
   QON_HOOK( StormControlSmHelper, helper(), updateBcastSkipRule, intf, skip );
}

void
StormControlSm::tellLagConfig( IntfId intf ) {
   QON_HOOK( StormControlSmHelper, helper(), handleEthPhyIntfLagConfig, intf );
}

// --- Traffic classes -----------------------------------------------------------------------------

void
StormControlSm::programTrafficClass(
      U8 trafficClass, const Velto::Ptr< const StormControl::AggregateTcConfig > & config ) {
   const Threshold wanted = config ? config->threshold() : Threshold();
   auto given = classes_.find( trafficClass );
   if ( config ? !given || !( *given == wanted ) : given != nullptr ) {
      // Until the hook returns, who takes everything back takes this back too.
      *classes_.emplace( trafficClass ).first = {};
      QON_HOOK( StormControlSmHelper, helper(), programTcAggregateHwRate, trafficClass, wanted );
   }
   if ( !config ) {
      classes_.erase( trafficClass );
      status()->aggregateTcStatusDel( trafficClass );
   } else if ( auto taken = classes_.find( trafficClass ) ) {
      *taken = wanted;
      const Velto::Ptr status( this->status()->aggregateTcStatusIs( trafficClass ) );
      status->thresholdIs( wanted );
   }
}

std::vector< U8 >
StormControlSm::programmedClasses() const {
   std::vector< U8 > classes;
   for ( auto && [trafficClass, threshold] : classes_ ) {
      classes.push_back( trafficClass );
   }
   return classes;
}

// --- Verification --------------------------------------------------------------------------------

void
StormControlSm::handleVerify() {
   if ( !initialized() || !started() ) {
      return;
   }
   const Velto::Hold alive( this );
   Velto::FirstError error;
   for ( IntfId intf : machineKeys() ) {
      error.run( [&] { verifyIntf( intf ); } );
   }
   for ( U8 trafficClass : programmedClasses() ) {
      error.run( [&] {
         const Velto::Ptr status( this->status()->aggregateTcStatus( trafficClass ) );
         if ( status ) {
            QON_TELL_HOOK( StormControlSmHelper, verifyAggregateTc, trafficClass );
            helper()->verifyAggregateTc( trafficClass, *status );
         }
      } );
   }
   error.pass();
}

void
StormControlSm::verifyIntf( IntfId intf ) {
   const Velto::Ptr< StormControlIntfSm > machine( intfSm( intf ) );
   const auto status = statusOf( intf );
   if ( !machine || !status || !StormControl::isPort( intf ) ) {
      return;
   }
   const bool enabled = !machine->cleared();
   QON_HOOK( StormControlSmHelper, helper(), verifyEnabled, intf, enabled );
   const IntfId lag = status->lag();
   const U64 speed = calculateSpeedForIntf( intf );
   QON_TELL_HOOK( StormControlSmHelper, verifyPort, intf, lag, speed );
   helper()->verifyPort( intf, lag, speed, *status );
}

String
StormControlSm::checkInvariants() const {
   for ( IntfId intf : machineKeys() ) {
      const auto & machine = *intfSm( intf );
      const auto status = this->status()->intfStatus( intf );
      const String name = intf.stringValue();
      if ( !wantOf( intf ).machine ) {
         return "storm control of nobody: " + name;
      }
      if ( !status ) {
         return "storm control without status: " + name;
      }
      for ( auto & kind : levelKinds ) {
         const auto & given = machine.given( kind.level );
         if ( given.given && !( status->level( kind.level ) == given.threshold ) ) {
            return "status of a level differs: " + name + ", " + Kiv::toText( kind.level );
         }
      }
   }
   for ( auto && [intf, config] : config()->intfIteratorConst() ) {
      if ( started() && initialized() && wantOf( intf ).machine && !intfSm( intf ) ) {
         return "no storm control: " + intf.stringValue();
      }
   }
   return {};
}

Velto::Ptr< StormControlSm >
StormControlSmIs( StormControlBaseSm::Inputs inputs, Velto::Ptr< StormControlSmHelper > helper,
                  Velto::Ptr< VerifyData > verifyData ) {
   return smIs< StormControlSm >( std::move( inputs ), std::move( helper ),
                                  std::move( verifyData ) );
}

} // namespace Qon
