// Checks of the MAC programmer: its own queues, clocks and retries drive the chip's writeToHw().

#include "conformance/mac/Stage.h"

namespace QonConformance::Mac {

namespace {

void
checkAnswer( Trial & t ) {
   MacStage stage( t );
   addFew( stage );
   for ( U32 host = few; host < 20 * few; ++host ) {
      stage.add( host, host );
      stage.remove( host - few );
   }
   t.did( "added 304 more and removed the first 304" );
   stage.rest();
}

void
checkHeld( Trial & t ) {
   MacStage stage( t );
   std::vector< MacCmdPtr > cmds;
   for ( U32 host = 0; host < few; ++host ) {
      cmds.push_back( stage.add( host, host ) );
   }
   t.did( "added 16 hosts" );
   stage.rest();
   for ( auto & cmd : cmds ) {
      if ( !stage.mac->overflowAddrOpHas( cmd->key() ) ) {
         stage.succeeded( held, cmd );
      }
   }
   stage.judge( held );
}

void
checkNewest( Trial & t ) {
   MacStage stage( t );
   for ( U32 host = 0; host < few; ++host ) {
      stage.add( host, 1 );
      stage.add( host, 2 );
   }
   t.did( "added 16 hosts at one port, then at another" );
   t.run( Trial::step ); // some are in flight
   for ( U32 host = 0; host < few; ++host ) {
      stage.remove( host );
      if ( host % 2 ) {
         stage.add( host, 3 );
      }
   }
   t.did( "removed them in the middle of that, and added every second one at a third port" );
   stage.rest();
   stage.judge( newest );
}

void
checkReadd( Trial & t ) {
   MacStage stage( t );
   addFew( stage );
   std::vector< MacCmdPtr > again;
   for ( U32 host = 0; host < few; ++host ) {
      again.push_back( stage.add( host, host ) );
   }
   t.did( "added them again" );
   stage.rest();
   for ( auto & cmd : again ) {
      if ( !stage.mac->overflowAddrOpHas( cmd->key() ) ) {
         stage.succeeded( readd, cmd );
      }
   }
   stage.judge( readd );
   for ( U32 host = 0; host < few; ++host ) {
      stage.remove( host );
   }
   t.did( "removed each once" );
   stage.rest();
   stage.judge( readd );
}

void
checkAbsent( Trial & t ) {
   MacStage stage( t );
   addFew( stage );
   for ( U32 host = few; host < 2 * few; ++host ) {
      stage.remove( host );
   }
   t.did( "removed 16 others, which were never added" );
   stage.rest();
   stage.judge( absent );
}

void
checkFull( Trial & t ) {
   MacStage stage( t );
   stage.fill( full );
   stage.judge( full );
   auto wished = stage.wished;
   for ( auto & [host, intf] : wished ) {
      if ( !stage.mac->overflowAddrOpHas( stage.key( host ) ) ) {
         stage.remove( host );
      }
   }
   t.did( "removed all hosts that the table held" );
   stage.rest();
   constexpr Kiv::Seconds retries = 120;
   bool all = t.await( t.answersWithin() + retries, [&] {
      return !stage.mac->overflowAddrOps() && !stage.mac->pendingMacOps() &&
             !stage.mac->inProgMacOps();
   } );
   if ( !all ) {
      t.broken( full, "room for the hosts that did not fit before",
                Kiv::toText( stage.mac->overflowAddrOps() ) + " of them still do not" );
   }
   stage.judge( full );
}

void
checkShadow( Trial & t ) {
   MacStage stage( t );
   for ( Type type : { Type::addHost, Type::removeHost } ) {
      for ( U32 host = 0; host < few; ++host ) {
         auto cmd = Qon::indirectAccessMacCmdFactory( type, stage.key( host ), t.port( host ),
                                                      Bridging::EntryType::learnedDynamic );
         cmd->shadowIs( 1 );
         stage.mac->handleAddrOp( cmd );
      }
      t.did( Kiv::toText( type ) + " of 16 hosts in the shadow" );
      stage.rest( shadow );
   }
}

void
checkCleanup( Trial & t ) {
   MacStage stage( t );
   addFew( stage );
   for ( U32 host = 0; host < few; ++host ) {
      stage.remove( host );
   }
   t.did( "removed all of them" );
   stage.rest();
   stage.judge( cleanup );
}

void
checkDestructor( Trial & t ) {
   MacStage stage( t );
   addFew( stage );
   for ( U32 host = few; host < 2 * few; ++host ) {
      stage.add( host, host );
   }
   t.scheduler.settle(); // written, some not answered yet
   t.did( "added 16 more" );
   stage.hosts();
   t.judgeDestruction( destructor, [&] { stage.mac = nullptr; } );
   if ( !stage.answers.last.empty() ) {
      t.broken( destructor, "no call of the library from a destructor",
                "an answer for transaction " + stage.answers.last );
   }
}

/** In the middle of the first one's work; what the second is told are answers to its own. */
void
checkSuccessor( Trial & t ) {
   std::optional< MacStage > first( std::in_place, t ), second;
   addFew( *first );
   HeldHosts settled;
   for ( auto & [host, intf] : first->wished ) {
      if ( !first->mac->overflowAddrOpHas( MacStage::key( host ) ) ) {
         settled[MacStage::key( host )] = { intf };
      }
   }
   for ( U32 host = few; host < 2 * few; ++host ) {
      first->add( host, host );
   }
   t.scheduler.settle();
   t.did( "added 16 more, and destroyed the programmer in the middle of that" );
   first.reset();
   t.judgeSuccessor( successor, [&] { second.emplace( t ); } );
   for ( U32 host = 100; host < 100 + 3 * few; ++host ) {
      second->add( host, host ); // some get the numbers of what the first has on its way
      t.run( 0.0005 );
   }
   t.did( "added 48 others, one by one" );
   t.run( t.answersWithin() );
   if ( !second->answers.last.empty() ) {
      t.broken( successor, "answers to the second programmer's commands only",
                "an answer for transaction " + second->answers.last );
   }
   second->rest();
   if ( auto held = second->hosts() ) {
      for ( auto & [host, intf] : second->wished ) {
         if ( !second->mac->overflowAddrOpHas( MacStage::key( host ) ) ) {
            settled[MacStage::key( host )] = { intf };
         }
      }
      second->contains( successor, *held, settled );
   }
}

void
checkRandom( Trial & t ) {
   MacStage stage( t );
   constexpr U32 hosts = 48;
   for ( U32 step = 0; step < t.options.steps; ++step ) {
      U32 host = t.random.below( hosts ), what = t.random.below( 100 );
      String when = "step " + Kiv::toText( step ) + ": ";
      if ( what < 50 ) {
         stage.add( host, t.random.below( 5 ) );
         t.did( when + "added " + stage.name( host ) );
      } else if ( what < 75 ) {
         stage.remove( host );
         t.did( when + "removed host " + Kiv::toText( host ) );
      } else if ( what < 78 ) {
         static const Type types[] = { Type::flushPort, Type::flushVlan, Type::flushVlanPort,
                                       Type::flushAll };
         Type type = types[t.random.below( 4 )];
         stage.flush( type, t.port( t.random.below( 5 ) ),
                      MacStage::firstVlan + t.random.below( MacStage::vlans ) );
         t.did( when + Kiv::toText( type ) );
      } else if ( what < 95 ) {
         t.run( 0.001 * t.random.below( 200 ) );
      } else {
         stage.rest();
         stage.judge( random );
      }
   }
   stage.rest();
   stage.judge( random );
}

constexpr Check checks[] = { { answer, checkAnswer },       { early, checkEarly },
                             { held, checkHeld },           { newest, checkNewest },
                             { readd, checkReadd },         { vlans, checkVlans },
                             { absent, checkAbsent },       { full, checkFull },
                             { move, checkMove },           { flush, checkFlush },
                             { order, checkOrder },         { shadow, checkShadow },
                             { cleanup, checkCleanup },     { destructor, checkDestructor },
                             { successor, checkSuccessor }, { random, checkRandom } };
constexpr LastWords lastWords[] = { { "unexpected mac program status", status } };

String
heldBy( const QonChip::Chip & chip ) {
   auto part = chip.part< QonChip::MacPart >();
   auto hosts = part ? part->hosts() : std::nullopt;
   String text;
   for ( auto & [host, there] : hosts.value_or( HeldHosts() ) ) {
      text += shown( host, there.intf ) + "\n";
   }
   return text;
}

} // namespace

extern const Feature feature{ "mac", contracts, checks, lastWords, heldBy };

} // namespace QonConformance::Mac
