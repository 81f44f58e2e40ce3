// Checks of link aggregation.

#include "conformance/lag/Stage.h"

namespace QonConformance::Lag {

namespace {

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

/** Each port of the peer link, itself an aggregate, is lent to a group that takes them. */
void
checkShared( Trial & t ) {
   LagStage stage( t );
   const Ulnet::IntfId peerLink = stage.lag( 0 );
   stage.join( 0, 0 );
   stage.join( 0, 1 );
   stage.join( 1, 2 );
   t.did( "a peer link of two ports, and a group of one" );
   stage.rest();
   stage.lagSm->sharePeerLinkWithLagIs( stage.lag( 1 ), true );
   stage.mlag->peerLinkIntfIs( peerLink );
   stage.mlag->fastMacRedirectionIs( true );
   for ( U32 round = 0; round < 2; ++round ) {
      stage.mlag->mlagStateIs( Mlag::MlagState::primary );
      t.did( "the group takes the members of the peer link" );
      stage.rest();
      for ( U32 port = 0; port < 3; ++port ) {
         stage.succeeded( shared, 1, port );
      }
      stage.judge( shared, shared );
      stage.join( 0, 1, round, !round );
      t.did( "one of them changes its flags" );
      stage.rest();
      stage.judge( shared, shared );
      stage.mlag->mlagStateIs( Mlag::MlagState::disabled );
      t.did( "it gives them back" );
      stage.rest();
      stage.judge( shared, shared );
   }
}

void
checkPort( Trial & t ) {
   LagStage stage( t );
   stage.join( 0, 0 );
   stage.join( 0, 1 );
   t.did( "a group of two ports" );
   stage.rest();
   stage.judge( hardwarePort );
   if ( t.chip->fapIdPort( t.port( 0 ) ) ) {
      return; // they are the chip's own numbers, and stay
   }
   const auto other = stage.fapIdPorts->fapIdPort( t.port( t.ports() - 1 ) );
   stage.fapIdPorts->fapIdPortDel( t.port( t.ports() - 1 ) );
   stage.fapIdPorts->fapIdPortIs( t.port( 0 ), other );
   t.did( "the first gets another hardware port" );
   stage.rest(); // no status tells of it
   t.await( [&] {
      auto held = stage.part.groups();
      return !held || ( *held )[stage.lag( 0 )][t.port( 0 )].port() == other;
   } );
   stage.judge( hardwarePort );
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
      { result, checkResult },       { flags, checkFlags },     { shared, checkShared },
      { hardwarePort, checkPort },   { removed, checkRemoved }, { readd, checkReadd },
      { full, checkFull },           { cleanup, checkCleanup }, { destructor, checkDestructor },
      { successor, checkSuccessor }, { random, checkRandom } };

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
