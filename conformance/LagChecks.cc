// Checks of link aggregation: the library's state machines write Hardware::Lag::Config, the
// adapter follows it and reports in Hardware::Lag::Status.

#include "Qon/include/lag/QonLagSm.h"
#include "conformance/Trial.h"

namespace QonConformance {

namespace {

using Hardware::Lag::Result;
using Interface::LagMember;
using Ulnet::IntfId;

class LagStage {
 public:
   explicit LagStage( Trial & trial ) : t( trial ) {
      if ( !t.chip.makeLagProgrammer ) {
         Trial::skip( "the adapter has no makeLagProgrammer" );
      }
      for ( U32 n = 0; n < t.ports(); ++n ) {
         auto port = t.port( n );
         fapIdPorts->fapIdPortIs( port, t.chip.fapIdPort ? t.chip.fapIdPort( port )
                                                         : Qon::FapIdPort( 0, n ) );
      }
      chip = t.chip.makeLagProgrammer();
      prog = Qon::LagProgSmIs( t.lagConfig, t.lagStatus, fapIdPorts );
      lagSm = Qon::LagSmIs( t.acsd, dir, names, nullptr, nullptr, prog );
      lagSm->initializedIs( true );
   }

   static IntfId lag( U32 n ) { return Ulnet::PortChannelIntfId::intfId( n + 1 ); }
   void join( U32 n, U32 port, bool collecting = true, bool distributing = true ) {
      dir->intfStatusIs( lag( n ) )->intfIs( t.port( port ), { collecting, distributing } );
      look();
   }
   void leave( U32 n, U32 port ) {
      if ( auto status = dir->intfStatus( lag( n ) ) ) {
         status->intfDel( t.port( port ) );
      }
      look();
   }
   void del( U32 n ) {
      dir->intfStatusDel( lag( n ) );
      look();
   }
   String name( U32 n, U32 port ) const {
      return t.port( port ).stringValue() + " in " + lag( n ).stringValue();
   }

   /** A port that the chip has in two groups as their own. */
   void look() {
      if ( t.chip.lags ) {
         std::map< IntfId, IntfId > owner;
         for ( auto & [lag, ports] : t.chip.lags() ) {
            for ( auto & port : ports ) {
               auto [first, fresh] = owner.emplace( port, lag );
               if ( !fresh ) {
                  t.broken( "lag.single", port.stringValue() + " in one group",
                            "it is in " + first->second.stringValue() + " and in " +
                                  lag.stringValue() );
               }
            }
         }
      }
   }

   const Hardware::Lag::MemberStatus * status( IntfId lag, IntfId port ) const {
      auto group = t.lagStatus->lag( lag );
      found = group && group->memberHas( port ) ? group->member( port )
                                                : Hardware::Lag::MemberStatus();
      return group && group->memberHas( port ) ? &found : nullptr;
   }
   /** A member without a result; empty if all have one. */
   String withoutResult() const {
      for ( auto && [lag, group] : t.lagConfig->lagIteratorConst() ) {
         for ( auto && [port, member] : group->memberIteratorConst() ) {
            auto held = status( lag, port );
            if ( !held || held->result() == Result::pending ) {
               return port.stringValue() + " in " + lag.stringValue() +
                      ( held ? " is 'pending'" : " has no status" );
            }
         }
      }
      return "";
   }
   /** A status without configuration; empty if there is none. */
   String leftOver() const {
      for ( auto && [lag, group] : t.lagStatus->lagIteratorConst() ) {
         auto wanted = t.lagConfig->lag( lag );
         if ( !wanted ) {
            return lag.stringValue() + " still has a status";
         }
         for ( auto && [port, member] : group->memberIteratorConst() ) {
            if ( !wanted->memberHas( port ) ) {
               return port.stringValue() + " in " + lag.stringValue() + " still has a status";
            }
         }
      }
      return "";
   }
   /** A member whose flags are not those that were asked for. */
   String wrongFlags() const {
      for ( auto && [lag, group] : t.lagConfig->lagIteratorConst() ) {
         for ( auto && [port, member] : group->memberIteratorConst() ) {
            auto held = status( lag, port );
            if ( held && held->result() == Result::success &&
                 ( held->collecting() != member.collecting() ||
                   held->distributing() != member.distributing() ) ) {
               return port.stringValue() + " in " + lag.stringValue() + " has " +
                      held->stringValue();
            }
         }
      }
      return "";
   }

   void rest() {
      if ( !t.await( [&] {
              look();
              return withoutResult().empty();
           } ) ) {
         t.broken( "lag.result", "a result within " + Kiv::toText( t.chip.answersWithin ) + " s",
                   withoutResult() );
      }
      if ( !t.await( [&] { return leftOver().empty(); } ) ) {
         t.broken( "lag.removed", "no status of what is not configured", leftOver() );
      }
      if ( !t.await( [&] { return wrongFlags().empty(); } ) ) {
         t.broken( "lag.flags", "the flags that were asked for", wrongFlags() );
      }
   }
   /** At rest the chip holds what is configured and what its status says. */
   void judge( const char * contract, const char * tooMuch = "lag.removed" ) {
      if ( !t.chip.lags ) {
         return;
      }
      std::map< IntfId, std::set< IntfId > > wanted;
      for ( auto && [lag, group] : t.lagConfig->lagIteratorConst() ) {
         for ( auto && [port, member] : group->memberIteratorConst() ) {
            auto held = status( lag, port );
            if ( held && held->result() == Result::success ) {
               wanted[lag].insert( port );
            }
         }
      }
      auto held = t.chip.lags();
      for ( auto & [lag, ports] : wanted ) {
         if ( !std::includes( held[lag].begin(), held[lag].end(), ports.begin(), ports.end() ) ) {
            t.broken( contract, lag.stringValue() + " with " + shown( ports ),
                      "it has " + shown( held[lag] ) );
         }
      }
      for ( auto & [lag, ports] : held ) {
         for ( auto & port : ports ) {
            if ( !wanted[lag].contains( port ) ) {
               t.broken( tooMuch, "no " + port.stringValue() + " in " + lag.stringValue(),
                         "it is there" );
            }
         }
      }
   }
   void succeeded( const char * contract, U32 n, U32 port ) {
      auto held = status( lag( n ), t.port( port ) );
      if ( !held || held->result() != Result::success ) {
         t.broken( contract, name( n, port ) + " with success",
                   held ? Kiv::toText( held->result() ) : String( "no status" ) );
      }
   }

   Trial & t;
   Ptr< Interface::EthLagIntfStatusDir > dir =
         Velto::make< Interface::EthLagIntfStatusDir >( "status" );
   Ptr< Lag::Input::IntfDeviceNameDir > names =
         Velto::make< Lag::Input::IntfDeviceNameDir >( "names" );
   Ptr< Hardware::FapIdPortDir > fapIdPorts = Velto::make< Hardware::FapIdPortDir >( "ports" );
   Ptr< Velto::Node > chip;
   Ptr< Qon::LagProgSm > prog;
   Ptr< Qon::LagSm > lagSm;

 private:
   mutable Hardware::Lag::MemberStatus found;
};

void
result( Trial & t ) {
   LagStage stage( t );
   for ( U32 port = 0; port < 4; ++port ) {
      stage.join( port / 2, port );
   }
   t.did( "two groups of two ports" );
   stage.rest();
   for ( U32 port = 0; port < 4; ++port ) {
      stage.succeeded( "lag.result", port / 2, port );
   }
   stage.judge( "lag.result" );
}

void
flags( Trial & t ) {
   LagStage stage( t );
   stage.join( 0, 0, false, false );
   stage.join( 0, 1, true, false );
   t.did( "a group with a member that neither collects nor distributes, and one that collects" );
   stage.rest();
   stage.join( 0, 0, true, true );
   stage.join( 0, 1, false, false );
   t.did( "the first collects and distributes, the second neither" );
   stage.rest();
   stage.judge( "lag.flags" );
}

void
removed( Trial & t ) {
   LagStage stage( t );
   for ( U32 port = 0; port < 6; ++port ) {
      stage.join( port / 3, port );
   }
   t.did( "two groups of three ports" );
   stage.rest();
   stage.leave( 0, 1 );
   stage.del( 1 );
   t.did( "one port left the first group, and the second group went" );
   stage.rest();
   stage.judge( "lag.result" );
   stage.join( 1, 0 );
   t.did( "a port of the first group is claimed by the second" );
   stage.rest();
   stage.judge( "lag.result" );
}

void
readd( Trial & t ) {
   LagStage stage( t );
   for ( U32 round = 0; round < 5; ++round ) {
      stage.join( 0, 0 );
      stage.join( 0, 1 );
      stage.del( 0 );
      stage.join( 0, 1 );
      t.did( "a group of two, deleted and made again with one of them, in one go" );
      stage.rest();
      stage.succeeded( "lag.readd", 0, 1 );
      stage.judge( "lag.readd" );
      stage.del( 0 );
      t.did( "deleted" );
      stage.rest();
   }
}

/** Fills the chip with groups, or one group with members; whether some did not fit. */
bool
overfill( LagStage & stage, Result refusal, bool groups ) {
   Trial & t = stage.t;
   bool refused = false;
   for ( U32 port = 0; port < t.ports(); ++port ) {
      stage.join( groups ? port : 0, port );
   }
   t.did( groups ? "a group for each of " + Kiv::toText( t.ports() ) + " ports"
                 : "a group of " + Kiv::toText( t.ports() ) + " ports" );
   stage.rest();
   for ( U32 port = 0; port < t.ports(); ++port ) {
      auto held = stage.status( stage.lag( groups ? port : 0 ), t.port( port ) );
      Result result = held ? held->result() : Result::pending;
      refused |= result == refusal;
      if ( result != refusal && result != Result::success ) {
         t.broken( "lag.full", "success or " + Kiv::toText( refusal ), Kiv::toText( result ) );
      }
   }
   stage.judge( "lag.full" );
   return refused;
}

void
full( Trial & t ) {
   LagStage stage( t );
   const U32 last = t.ports() - 1;
   auto lastSucceeds = [&]( U32 n ) {
      auto held = stage.status( stage.lag( n ), t.port( last ) );
      return held && held->result() == Result::success;
   };
   if ( overfill( stage, Result::noLag, true ) ) {
      for ( U32 n = 0; n < last; ++n ) {
         stage.del( n );
      }
      t.did( "deleted all groups but the last" );
      t.await( [&] { return lastSucceeds( last ); } );
      stage.rest();
      stage.succeeded( "lag.full", last, last );
   }
   for ( U32 n = 0; n < t.ports(); ++n ) {
      stage.del( n );
   }
   t.did( "deleted all groups" );
   stage.rest();
   if ( overfill( stage, Result::noMember, false ) ) {
      for ( U32 port = 0; port < last; ++port ) {
         stage.leave( 0, port );
      }
      t.did( "all ports but the last one left" );
      t.await( [&] { return lastSucceeds( 0 ); } );
      stage.rest();
      stage.succeeded( "lag.full", 0, last );
   }
   stage.judge( "lag.full" );
}

void
cleanup( Trial & t ) {
   LagStage stage( t );
   for ( U32 port = 0; port < 8; ++port ) {
      stage.join( port % 3, port );
   }
   t.did( "three groups of eight ports" );
   stage.rest();
   for ( U32 n = 0; n < 3; ++n ) {
      stage.del( n );
   }
   t.did( "deleted all groups" );
   stage.rest();
   stage.judge( "lag.cleanup", "lag.cleanup" );
   if ( t.chip.lags && !t.chip.lags().empty() ) {
      t.broken( "lag.cleanup", "no groups", t.chip.lags().begin()->first.stringValue() );
   }
}

void
destructor( Trial & t ) {
   LagStage stage( t );
   stage.join( 0, 0 );
   stage.join( 1, 1 );
   t.did( "two groups of one port" );
   stage.rest();
   stage.join( 0, 2 );
   t.scheduler.settle();
   t.did( "one more port in the first" );
   t.judgeDestruction( "lag.destructor", [&] { stage.chip = nullptr; } );
}

void
random( Trial & t ) {
   LagStage stage( t );
   for ( U32 step = 0; step < t.options.steps; ++step ) {
      U32 n = t.random.below( 5 ), port = t.random.below( 12 ), what = t.random.below( 100 );
      String when = "step " + Kiv::toText( step ) + ": ";
      if ( what < 45 ) {
         stage.join( n, port, !t.random.oneIn( 4 ), !t.random.oneIn( 4 ) );
         t.did( when + stage.name( n, port ) );
      } else if ( what < 70 ) {
         stage.leave( n, port );
         t.did( when + "no " + stage.name( n, port ) );
      } else if ( what < 75 ) {
         stage.del( n );
         t.did( when + "deleted " + stage.lag( n ).stringValue() );
      } else if ( what < 95 ) {
         t.run( 0.001 * t.random.below( 100 ) );
         stage.look();
      } else {
         stage.rest();
         stage.judge( "lag.random" );
      }
   }
   stage.rest();
   stage.judge( "lag.random" );
}

} // namespace

const std::vector< Check > &
lagChecks() {
   static const std::vector< Check > all = {
         { "lag.result", result },         { "lag.flags", flags },   { "lag.removed", removed },
         { "lag.readd", readd },           { "lag.full", full },     { "lag.cleanup", cleanup },
         { "lag.destructor", destructor }, { "lag.random", random },
   };
   return all;
}

} // namespace QonConformance
