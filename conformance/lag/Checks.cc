// Checks of link aggregation: the library's state machines write Hardware::Lag::Config, the
// adapter follows it and reports in Hardware::Lag::Status.

#include "Qon/include/lag/QonLagSm.h"
#include "chip/LagPart.h"
#include "conformance/Trial.h"
#include "conformance/lag/Contracts.h"

namespace QonConformance::Lag {

namespace {

using Hardware::Lag::Result;
using Interface::LagMember;
using Ulnet::IntfId;

String
shown( const QonChip::HeldGroup & group ) {
   return joined( group, []( auto & member ) {
      return member.first.stringValue() + ( member.second.collecting() ? " in" : "" ) +
             ( member.second.distributing() ? " out" : "" ) +
             ( member.second.shared() ? " shared" : "" );
   } );
}

class LagStage {
 public:
   explicit LagStage( Trial & trial )
       : t( trial ), part( trial.part< QonChip::LagPart >( "LagPart" ) ) {
      for ( U32 n = 0; n < t.ports(); ++n ) {
         auto port = t.port( n );
         fapIdPorts->fapIdPortIs(
               port, t.chip->fapIdPort( port ).value_or( Qon::FapIdPort( 0, n + 1 ) ) );
      }
      t.publishes( lagStatus );
      makeProgrammer();
      prog = Qon::LagProgSmIs( lagConfig, lagStatus, fapIdPorts );
      lagSm = Qon::LagSmIs( t.acsd, dir, names, nullptr, nullptr, prog );
      lagSm->initializedIs( true );
      prog->inputsReadIs( true );
   }

   void makeProgrammer() { chip = part.makeProgrammer( lagConfig, lagStatus ); }

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
      std::map< IntfId, IntfId > owner;
      for ( auto & [lag, group] : part.groups().value_or( QonChip::HeldGroups() ) ) {
         for ( auto & [port, member] : group ) {
            auto [first, fresh] = owner.emplace( port, member.shared() ? IntfId() : lag );
            if ( !fresh && !member.shared() && std::exchange( first->second, lag ) ) {
               t.broken( single, port.stringValue() + " in one group",
                         "it is in " + lag.stringValue() + " and in another" );
            }
         }
      }
   }
   std::optional< QonChip::HeldGroups > readBack() {
      return t.readBack( part.groups(), "the chip's groups" );
   }

   const Hardware::Lag::MemberStatus * status( IntfId lag, IntfId port ) const {
      auto group = lagStatus->lag( lag );
      found = group && group->memberHas( port ) ? group->member( port )
                                                : Hardware::Lag::MemberStatus();
      return group && group->memberHas( port ) ? &found : nullptr;
   }
   /** A member without a result; empty if all have one. */
   String withoutResult() const {
      for ( auto && [lag, group] : lagConfig->lagIteratorConst() ) {
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
      for ( auto && [lag, group] : lagStatus->lagIteratorConst() ) {
         auto wanted = lagConfig->lag( lag );
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
      for ( auto && [lag, group] : lagConfig->lagIteratorConst() ) {
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
         t.broken( result, "a result within " + Kiv::toText( t.answersWithin() ) + " s",
                   withoutResult() );
      }
      if ( !t.await( [&] { return leftOver().empty(); } ) ) {
         t.broken( removed, "no status of what is not configured", leftOver() );
      }
      if ( !t.await( [&] { return wrongFlags().empty(); } ) ) {
         t.broken( flags, "the flags that were asked for", wrongFlags() );
      }
   }
   /** What has success by its status. */
   QonChip::HeldGroups wanted() const {
      QonChip::HeldGroups groups;
      for ( auto && [lag, group] : lagConfig->lagIteratorConst() ) {
         for ( auto && [port, member] : group->memberIteratorConst() ) {
            auto held = status( lag, port );
            if ( held && held->result() == Result::success ) {
               groups[lag][port] = member;
            }
         }
      }
      return groups;
   }
   /** At rest the chip holds what is configured and what its status says. */
   void judge( const Contract & contract, const Contract & tooMuch = removed ) {
      auto held = readBack();
      if ( !held ) {
         return;
      }
      auto groups = wanted();
      for ( auto & [lag, group] : groups ) {
         for ( auto & [port, member] : group ) {
            judgeMember( contract, lag, port, member, ( *held )[lag] );
         }
      }
      for ( auto & [lag, group] : *held ) {
         for ( auto & [port, member] : group ) {
            if ( !groups[lag].contains( port ) ) {
               t.broken( tooMuch, "no " + port.stringValue() + " in " + lag.stringValue(),
                         "it is there" );
            }
         }
      }
   }
   void judgeMember( const Contract & contract, IntfId lag, IntfId port,
                     const Hardware::Lag::Member & wanted, const QonChip::HeldGroup & held ) {
      auto found = held.find( port );
      bool same = found != held.end() && found->second.collecting() == wanted.collecting() &&
                  found->second.distributing() == wanted.distributing();
      if ( !same ) {
         t.broken( found == held.end() ? contract : flags,
                   lag.stringValue() + " with " + shown( { { port, wanted } } ),
                   "it has " + shown( held ) );
      }
   }
   /** The chip has the member while it works for a while. */
   void staysWith( const Contract & contract, U32 n, U32 port ) {
      for ( U32 round = 0; round < 10; ++round ) {
         auto held = readBack();
         if ( held && !( *held )[lag( n )].contains( t.port( port ) ) ) {
            t.broken( contract, name( n, port ) + " all the time", "it left" );
         }
         t.run( Trial::step );
      }
   }
   void succeeded( const Contract & contract, U32 n, U32 port ) {
      auto held = status( lag( n ), t.port( port ) );
      if ( !held || held->result() != Result::success ) {
         t.broken( contract, name( n, port ) + " with success",
                   held ? Kiv::toText( held->result() ) : String( "no status" ) );
      }
   }

   Trial & t;
   QonChip::LagPart & part;
   Ptr< Hardware::Lag::Config > lagConfig =
         Velto::make< Hardware::Lag::Config >( "hardware/lag/config" );
   Ptr< Hardware::Lag::Status > lagStatus =
         Velto::make< Hardware::Lag::Status >( "hardware/lag/status" );
   Ptr< Interface::EthLagIntfStatusDir > dir =
         Velto::make< Interface::EthLagIntfStatusDir >( "status" );
   Ptr< ::Lag::Input::IntfDeviceNameDir > names =
         Velto::make< ::Lag::Input::IntfDeviceNameDir >( "names" );
   Ptr< Hardware::FapIdPortDir > fapIdPorts = Velto::make< Hardware::FapIdPortDir >( "ports" );
   Ptr< Velto::Node > chip;
   Ptr< Qon::LagProgSm > prog;
   Ptr< Qon::LagSm > lagSm;

 private:
   mutable Hardware::Lag::MemberStatus found;
};

void
checkResult( Trial & t ) {
   LagStage stage( t );
   for ( U32 port = 0; port < 4; ++port ) {
      stage.join( port / 2, port );
   }
   t.did( "two groups of two ports" );
   stage.rest();
   for ( U32 port = 0; port < 4; ++port ) {
      stage.succeeded( result, port / 2, port );
   }
   stage.judge( result );
}

void
checkFlags( Trial & t ) {
   LagStage stage( t );
   stage.join( 0, 0, false, false );
   stage.join( 0, 1, true, false );
   t.did( "a group with a member that neither collects nor distributes, and one that collects" );
   stage.rest();
   stage.join( 0, 0, true, true );
   stage.join( 0, 1, false, false );
   t.did( "the first collects and distributes, the second neither" );
   stage.rest();
   stage.judge( flags );
}

void
checkRemoved( Trial & t ) {
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
   stage.judge( result );
   stage.join( 1, 0 );
   t.did( "a port of the first group is claimed by the second" );
   stage.rest();
   stage.judge( result );
}

void
checkReadd( Trial & t ) {
   LagStage stage( t );
   for ( U32 round = 0; round < 5; ++round ) {
      stage.join( 0, 0 );
      stage.join( 0, 1 );
      stage.del( 0 );
      stage.join( 0, 1 );
      t.did( "a group of two, deleted and made again with one of them, in one go" );
      stage.rest();
      stage.succeeded( readd, 0, 1 );
      stage.judge( readd );
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
         t.broken( full, "success or " + Kiv::toText( refusal ), Kiv::toText( result ) );
      }
   }
   stage.judge( full );
   return refused;
}

void
checkFull( Trial & t ) {
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
      stage.succeeded( full, last, last );
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
      stage.succeeded( full, 0, last );
   }
   stage.judge( full );
}

void
checkCleanup( Trial & t ) {
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
   stage.judge( cleanup, cleanup );
   auto held = stage.readBack();
   if ( held && !held->empty() ) {
      t.broken( cleanup, "no groups", held->begin()->first.stringValue() );
   }
}

void
checkDestructor( Trial & t ) {
   LagStage stage( t );
   stage.join( 0, 0 );
   stage.join( 1, 1 );
   t.did( "two groups of one port" );
   stage.rest();
   stage.join( 0, 2 );
   t.scheduler.settle();
   t.did( "one more port in the first" );
   stage.readBack();
   t.judgeDestruction( destructor, [&] { stage.chip = nullptr; } );
}

/** A second programmer at rest, and one in the middle of a change that is taken back while nobody
    follows the configuration. */
void
checkSuccessor( Trial & t ) {
   LagStage stage( t );
   stage.join( 0, 0 );
   stage.join( 1, 1 );
   t.did( "two groups of one port" );
   stage.rest();
   stage.chip = nullptr;
   t.judgeSuccessor( successor, [&] { stage.makeProgrammer(); } );
   stage.staysWith( successor, 0, 0 );
   stage.join( 0, 2 );
   t.scheduler.settle();
   t.did( "one more port, and destroyed the programmer in the middle of that" );
   stage.chip = nullptr;
   stage.leave( 0, 2 );
   t.did( "the port left" );
   stage.makeProgrammer();
   t.did( "made a third one" );
   stage.staysWith( successor, 1, 1 );
   stage.rest();
   stage.judge( successor, successor );
}

void
checkRandom( Trial & t ) {
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
         stage.judge( random );
      }
   }
   stage.rest();
   stage.judge( random );
}

constexpr Check checks[] = {
      { result, checkResult },         { flags, checkFlags },         { removed, checkRemoved },
      { readd, checkReadd },           { full, checkFull },           { cleanup, checkCleanup },
      { destructor, checkDestructor }, { successor, checkSuccessor }, { random, checkRandom } };

String
heldBy( const QonChip::Chip & chip ) {
   auto part = chip.part< QonChip::LagPart >();
   auto groups = part ? part->groups() : std::nullopt;
   String text;
   for ( auto & [lag, group] : groups.value_or( QonChip::HeldGroups() ) ) {
      text += lag.stringValue() + ": " + shown( group ) + "\n";
   }
   return text;
}

} // namespace

extern const Feature feature{ "lag", contracts, checks, {}, heldBy };

} // namespace QonConformance::Lag
