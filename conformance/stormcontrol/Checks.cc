// Checks of the hooks of storm control: the library's state machines of either generation call them,
// the kit reads the limits back.

#include <algorithm>

#include "Qon/include/stormcontrol/QonStormControlSm.h"
#include "Qon/include/stormcontrol/QonStormControlSmV2.h"
#include "chip/StormControlPart.h"
#include "conformance/Trial.h"
#include "conformance/stormcontrol/Contracts.h"
#include "platform/Kiv/Listener.h"

namespace QonConformance::Stormcontrol {

namespace {

using Bridging::StormControl::IntfConfig;
using Bridging::StormControl::Level;
using Bridging::StormControl::OptionalThreshold;
using Bridging::StormControl::Threshold;
using Bridging::StormControl::Unit;
using Levels = QonChip::HeldPortLevels;

constexpr U32 portsUsed = 4;

String
stormShown( const Levels & levels ) {
   return joined( levels, []( auto & entry ) {
      return Kiv::toText( entry.first ) + " " + Kiv::toText( entry.second.threshold.value() ) +
             " " + Kiv::toText( entry.second.threshold.unit() ) + " at " +
             Kiv::toText( entry.second.speedKbps );
   } );
}

/** One generation over the chip. */
class StormStage {
 public:
   StormStage( Trial & trial, bool second )
       : t( trial ), part( trial.part< QonChip::StormControlPart >( "StormControlPart" ) ) {
      Qon::StormControlBaseSm::Inputs inputs = { config, status,  phys,
                                                 t.acsd, nullptr, t.scheduler.timerWheel() };
      if ( !second ) {
         helper = part.makeStormControlHelper( t.acsd );
         first = helper ? Qon::StormControlSmIs( inputs, helper, t.acsd->verifyData() ) : nullptr;
      } else if ( ( helperV2 = part.makeStormControlHelperV2( platform, report ) ) ) {
         reported.attach( report.ptr(), [this]( const Ulnet::IntfId & port ) { heard( port ); } );
         v2 = Qon::QonStormControlSmV2Is( inputs, helperV2, platform, report );
      }
      if ( !first && !v2 ) {
         t.skip( second ? "the chip has no hooks of the second generation"
                        : "the chip has no hooks of the first generation" );
      }
      uucast = second || helper->uucastLevelEnabled();
      if ( first ) {
         first->initializedIs( true );
      } else {
         v2->initializedIs( true );
      }
   }

   Ptr< IntfConfig > of( U32 port ) { return config->intfIs( t.port( port ) ); }
   /** Levels with numbers of their own; which of them, say the bits. */
   void levels( U32 port, U32 bits, U64 rate, Unit unit = Unit::kbps ) {
      auto value = [&]( U32 bit ) {
         return bits & ( 1u << bit ) ? OptionalThreshold( Threshold( unit, rate + bit ) )
                                     : OptionalThreshold();
      };
      auto config = of( port );
      config->uUcastLevelIs( value( 0 ) );
      config->broadcastLevelIs( value( 1 ) );
      config->multicastLevelIs( value( 2 ) );
      config->allLevelIs( value( 3 ) );
      config->broadcastCpuLevelIs( value( 4 ) );
   }
   void speed( U32 port, Interface::EthSpeed speed ) {
      phys->intfStatusIs( t.port( port ) )->speedIs( speed );
   }
   void member( U32 port, bool joins ) {
      const auto lag = Ulnet::PortChannelIntfId::intfId( 1 );
      joins ? t.acsd->portToLagIs( t.port( port ), lag ) : t.acsd->portToLagDel( t.port( port ) );
   }

   Levels wanted( U32 port ) const {
      Levels all;
      const auto lag = t.acsd->portToLag( t.port( port ) );
      auto owner = config->intf( lag ? lag : t.port( port ) );
      auto phy = phys->intfStatus( t.port( port ) );
      for ( auto & kind : Qon::StormControl::levelKinds ) {
         const bool possible =
               ( uucast || kind.type != Qon::LevelType::levelTypeUUcast ) && !( v2 && kind.cpu );
         auto threshold = owner && possible ? ( owner->*kind.configured )() : OptionalThreshold();
         if ( threshold && !( *threshold == Threshold() ) ) {
            all[kind.level] = { *threshold,
                                phy ? Interface::EthSpeedApi::speedKbps( phy->speed() ) : 0 };
         }
      }
      return all;
   }
   bool waits() const {
      for ( auto && [port, wish] : platform->platformIntfConfigIteratorConst() ) {
         auto answer = report->platformIntfStatus( port );
         if ( v2 && ( !answer || answer->versionId() != wish->versionId() ) ) {
            return true;
         }
      }
      return false;
   }
   void judge( const Contract & contract ) {
      if ( !t.await( [&] { return !waits(); } ) ) {
         t.broken( version, "an answer within " + Kiv::toText( t.answersWithin() ) + " s", "none" );
      }
      if ( v2 ) {
         t.run( t.answersWithin() ); // what is taken back is not reported
      }
      auto held = t.readBack( part.stormControl(), "the chip's storm control" );
      for ( U32 port = 0; held && port < portsUsed; ++port ) {
         judgePort( contract, port, held->ports[t.port( port )] );
      }
      if ( !early.empty() ) {
         t.broken( version, "reports of versions that hold", early );
      }
   }

   /** What is left of a level that was taken back is a finding of its own. */
   void judgePort( const Contract & contract, U32 port, const Levels & held ) const {
      const Levels want = wanted( port );
      const bool left = std::any_of( held.begin(), held.end(), [&]( auto & entry ) {
         return !want.contains( entry.first );
      } );
      if ( held != want ) {
         t.broken( left && &contract != &init && &contract != &reset ? nolimit : contract,
                   t.port( port ).stringValue() + ": " + stormShown( want ), stormShown( held ) );
      }
   }

   Trial & t;
   QonChip::StormControlPart & part;
   Ptr< Bridging::StormControl::Config > config =
         Velto::make< Bridging::StormControl::Config >( "config" );
   Ptr< Bridging::StormControl::Status > status =
         Velto::make< Bridging::StormControl::Status >( "status" );
   Ptr< Interface::EthPhyIntfStatusDir > phys =
         Velto::make< Interface::EthPhyIntfStatusDir >( "phys" );
   Ptr< Qon::StormControl::PlatformConfig > platform =
         Velto::make< Qon::StormControl::PlatformConfig >( "platform" );
   Ptr< Qon::StormControl::PlatformStatus > report =
         Velto::make< Qon::StormControl::PlatformStatus >( "platform" );
   Ptr< Qon::StormControlSmHelper > helper;
   Ptr< Qon::QonStormControlSmHelperV2 > helperV2;
   Ptr< Qon::StormControlSm > first;
   Ptr< Qon::QonStormControlSmV2 > v2;
   bool uucast = true;
   String early; ///< a version that was reported and did not hold

 private:
   void heard( Ulnet::IntfId port ) {
      auto entry = report->platformIntfStatus( port );
      if ( !entry ) {
         versions.erase( port );
         return;
      }
      versions[port].attach( entry, [this, port] {
         auto wish = platform->platformIntfConfig( port );
         auto now = report->platformIntfStatus( port );
         auto held = part.stormControl();
         for ( U32 n = 0;
               held && wish && now && now->versionId() == wish->versionId() && n < portsUsed;
               ++n ) {
            if ( t.port( n ) == port && held->ports[port] != wanted( n ) ) {
               early = port.stringValue() + " when it had " + stormShown( held->ports[port] );
            }
         }
      } );
   }
   std::map< Ulnet::IntfId, Kiv::Listener< Qon::StormControl::PlatformIntfStatus::versionIdAttr > >
         versions;
   Kiv::Listener< Qon::StormControl::PlatformStatus::platformIntfStatusAttr > reported;
};

/** Both generations, as far as the chip has them; skipped if it has neither. */
void
eachGeneration( Trial & t, const std::function< void( StormStage & ) > & check ) {
   U32 made = 0;
   for ( bool second : { false, true } ) {
      try {
         StormStage stage( t, second );
         ++made;
         check( stage );
      } catch ( const Skipped & ) {
         if ( made == 0 && second ) {
            throw;
         }
      }
   }
}

void
checkLevel( Trial & t ) {
   eachGeneration( t, [&]( StormStage & stage ) {
      for ( U32 port = 0; port < portsUsed; ++port ) {
         stage.levels( port, 1 + port * 5, 1000 * ( port + 1 ) );
      }
      t.did( "levels on four ports" );
      stage.judge( level );
      stage.levels( 1, 31, 10, Unit::percent );
      stage.speed( 1, Interface::EthSpeed::speed25Gbps );
      t.did( "percentages on a port, and its speed" );
      stage.judge( level );
      stage.levels( 1, 10, 500, Unit::pps );
      t.did( "other levels on that port" );
      stage.judge( level );
   } );
}

void
checkNoLimit( Trial & t ) {
   eachGeneration( t, [&]( StormStage & stage ) {
      stage.levels( 0, 31, 100 );
      stage.levels( 1, 2, 200 );
      t.did( "levels on two ports" );
      stage.levels( 0, 0, 0 );
      stage.of( 1 )->broadcastLevelIs( Threshold() );
      t.did( "and took them back" );
      stage.judge( nolimit );
   } );
}

void
checkInit( Trial & t ) {
   {
      StormStage stage( t, false );
      stage.levels( 0, 31, 100 );
      stage.config->aggregateTcIs( 2 )->thresholdIs( Threshold( Unit::pps, 5 ) );
      stage.judge( level );
   }
   t.did( "levels on a port, and a new agent that wants none" );
   StormStage second( t, false );
   second.judge( init );
   auto held = t.readBack( second.part.stormControl(), "the chip's storm control" );
   if ( held && !held->classes.empty() ) {
      t.broken( init, "no traffic classes", "class 2" );
   }
}

void
checkVersion( Trial & t ) {
   StormStage stage( t, true );
   for ( U32 round = 0; round < 20; ++round ) {
      stage.levels( 0, 1 + t.random.below( 15 ), 100 + round );
      stage.levels( 1, 2, 100 + round );
      t.did( "two ports' levels, in the middle of the versions before" );
      t.run( 0.001 * t.random.below( 40 ) );
      if ( round % 5 == 4 ) {
         stage.judge( version );
      }
   }
}

void
checkReset( Trial & t ) {
   StormStage stage( t, true );
   for ( U32 round = 0; round < 5; ++round ) {
      stage.levels( 0, 15, 100 );
      round % 2 ? t.run( 0.01 ) : t.run( 0 );
      stage.config->intfDel( t.port( 0 ) );
      t.did( "levels, and no configuration any more" );
      stage.judge( reset );
   }
}

void
checkClass( Trial & t ) {
   eachGeneration( t, [&]( StormStage & stage ) {
      for ( U32 rate : { 100, 200, 300 } ) {
         for ( U8 tc = 0; tc < 4; ++tc ) {
            stage.config->aggregateTcIs( tc )->thresholdIs( Threshold( Unit::kbps, rate + tc ) );
         }
      }
      stage.config->aggregateTcDel( 2 );
      t.did( "three thresholds for each of four classes; one goes" );
      t.run( t.answersWithin() );
      auto held = t.readBack( stage.part.stormControl(), "the chip's storm control" );
      for ( U8 tc = 0; held && tc < 4; ++tc ) {
         const bool there = held->classes.contains( tc );
         if ( there != ( tc != 2 ) || ( there && held->classes[tc].value() != U64( 300 + tc ) ) ) {
            t.broken( trafficClass, "class " + Kiv::toText( tc ) + " as it was told",
                      there ? held->classes[tc].stringValue() : "nothing" );
         }
      }
      for ( U8 tc = 0; tc < 4; ++tc ) {
         stage.config->aggregateTcDel( tc );
      }
      t.run( t.answersWithin() );
   } );
}

void
checkVerify( Trial & t ) {
   StormStage stage( t, false );
   stage.levels( 0, 31, 100 );
   stage.levels( 1, 2, 100 );
   stage.phys->intfStatusIs( t.port( 1 ) )->activeIs( false );
   stage.config->aggregateTcIs( 2 )->thresholdIs( Threshold( Unit::pps, 5 ) );
   t.judgeVerify( verify, [&] { stage.first->handleVerify(); } );
}

void
checkDestructor( Trial & t ) {
   eachGeneration( t, [&]( StormStage & stage ) {
      stage.levels( 0, 31, 100 );
      stage.levels( 1, 2, 200 );
      stage.judge( level );
      t.judgeDestruction( destructor, [&] {
         stage.first = nullptr;
         stage.v2 = nullptr;
         stage.helper = nullptr;
         stage.helperV2 = nullptr;
      } );
   } );
}

void
checkRandom( Trial & t ) {
   eachGeneration( t, [&]( StormStage & stage ) {
      const auto lag = Ulnet::PortChannelIntfId::intfId( 1 );
      for ( U32 step = 0; step < t.options.steps; ++step ) {
         const U32 port = t.random.below( portsUsed ), what = t.random.below( 100 );
         const String when = "step " + Kiv::toText( step ) + ": " + t.port( port ).stringValue();
         if ( what < 40 ) {
            stage.levels( port, t.random.below( 32 ), 1 + t.random.below( 1000 ) );
            t.did( when + " levels" );
         } else if ( what < 50 ) {
            stage.config->intfDel( t.port( port ) );
            t.did( when + " without configuration" );
         } else if ( what < 60 ) {
            stage.config->intfIs( lag )->broadcastLevelIs(
                  Threshold( Unit::kbps, 1 + t.random.below( 1000 ) ) );
            t.did( "step " + Kiv::toText( step ) + ": level of the port-channel" );
         } else if ( what < 70 ) {
            stage.member( port, t.random.oneIn( 2 ) );
            t.did( when + " joins or leaves" );
         } else if ( what < 80 ) {
            stage.speed( port, Interface::EthSpeed( t.random.below( 8 ) ) );
            t.did( when + " speed" );
         } else if ( what < 97 ) {
            t.run( 0.001 * t.random.below( 30 ) );
         } else {
            stage.judge( random );
         }
      }
      stage.judge( random );
      t.acsd->portToLagDelAll();
   } );
}

constexpr Check checks[] = {
      { level, checkLevel },     { nolimit, checkNoLimit },       { init, checkInit },
      { version, checkVersion }, { reset, checkReset },           { trafficClass, checkClass },
      { verify, checkVerify },   { destructor, checkDestructor }, { random, checkRandom } };

String
heldBy( const QonChip::Chip & chip ) {
   auto part = chip.part< QonChip::StormControlPart >();
   auto held = part ? part->stormControl() : std::nullopt;
   String text;
   for ( auto & [port, levels] : held ? held->ports : decltype( held->ports )() ) {
      text += "storm control of " + port.stringValue() + ": " + stormShown( levels ) + "\n";
   }
   return text;
}

} // namespace

extern const Feature feature{ "stormcontrol", contracts, checks, {}, heldBy };

} // namespace QonConformance::Stormcontrol
