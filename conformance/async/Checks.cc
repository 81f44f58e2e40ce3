// Checks of operations that complete later: the kit asks the chip's state machine for them, and answers
// in the chip's place where it is let to.

#include "conformance/async/Stage.h"

namespace QonConformance::Async {

namespace {

constexpr U32 keysUsed = 8;

void
checkHandler( Trial & t ) {
   AsyncStage stage( t );
   stage.request( 0 );
   t.did( "a request" );
   stage.rest( handler );
}

void
checkOnce( Trial & t ) {
   AsyncStage stage( t );
   for ( U32 round = 0; round < 4; ++round ) {
      for ( U32 n = 0; n < keysUsed; ++n ) {
         stage.request( n );
      }
      t.run( round % 2 ? 0.003 : 0 ); // in the middle of one
      stage.request( 0 );
      stage.request( 0 );
      stage.remove( 1 );
      t.did( "requests of eight keys, two more of the first, and the second goes" );
      stage.rest( once );
   }
}

/** What the chip is handed, and what the helper gave. */
void
checkNumbers( Trial & t ) {
   AsyncStage stage( t );
   for ( U32 round = 0; round < 3; ++round ) {
      for ( U32 n = 0; n < keysUsed; ++n ) {
         stage.request( n );
      }
      t.did( "requests of eight keys" );
      stage.rest( once );
   }
   stage.answersAre( AsyncAnswers::held );
   U32 priority = stage.helper->priority();
   for ( U32 round = 0; round < 3; ++round ) {
      stage.request( 0 );
      stage.request( 1 );
      t.did( "a request of each of two keys" );
      stage.answerAll();
   }
   constexpr U16 first = ~U16( 0 ); // also of a key whose number was taken away
   std::map< String, U16 > sequence;
   for ( auto & operation : stage.part.asyncOperations() ) {
      const U16 before = sequence.emplace( operation.key, first ).first->second;
      const bool falls = operation.sequence == first || operation.sequence < before;
      if ( operation.priority >= priority || operation.priority < stage.helper->priority() ||
           operation.sequence == 0 || !falls ) {
         t.broken( numbers,
                   "a priority below " + Kiv::toText( priority ) + " and a sequence number of " +
                         operation.key + " below " + Kiv::toText( before ),
                   Kiv::toText( operation.priority ) + " and " +
                         Kiv::toText( operation.sequence ) );
      }
      priority = operation.priority;
      sequence[operation.key] = operation.sequence;
   }
   stage.rest( once );
}

void
checkInside( Trial & t ) {
   AsyncStage stage( t );
   stage.answersAre( AsyncAnswers::inside );
   for ( U32 n = 0; n < 4; ++n ) {
      stage.request( n );
      t.did( "a request, which is answered inside of the call" );
      stage.rest( inside );
   }
   stage.judge( inside );
}

void
checkMoment( Trial & t ) {
   AsyncStage stage( t );
   stage.answersAre( AsyncAnswers::inside );
   for ( U32 n = 0; n < keysUsed; ++n ) {
      stage.request( n );
   }
   t.did( "requests of eight keys, which are answered in one moment" );
   stage.rest( moment );
}

void
checkTimeout( Trial & t ) {
   AsyncStage stage( t );
   stage.answersAre( AsyncAnswers::held );
   stage.request( 0 );
   stage.started( timeout, 0 );
   stage.request( 1 );
   t.did( "a request that is never answered, and one of another key" );
   stage.answer( stage.started( timeout, 1 ) );
   if ( stage.openOf( 1 ) ) {
      t.broken( timeout, "the second one concluded by its answer", "it is not" );
   }
   stage.answerAll();
   t.did( "answered whatever waits" );
   stage.rest( timeout );
   stage.request( 0 );
   stage.answer( stage.started( timeout, 0 ) );
   stage.rest( timeout );
   stage.judge( timeout );
}

/** While another operation is in flight, and when none is. */
void
checkLate( Trial & t ) {
   AsyncStage stage( t );
   stage.answersAre( AsyncAnswers::held );
   stage.request( 0 );
   const U32 first = stage.started( late, 0 );
   stage.request( 0 );
   t.did( "a request of a key, not answered in its time, and another one of the key" );
   t.run( stage.sm->pendingOperationTimeout() + 1 );
   const U32 second = stage.started( late, 0, stage.part.asyncOperations()[first].value );
   stage.answer( second );
   stage.request( 1 );
   const U32 other = stage.started( late, 1 );
   const U32 entry = stage.entry( 0 ), concluded = stage.concluded();
   auto unmoved = [&]( const char * what ) {
      t.did( what );
      t.run( Trial::step );
      if ( stage.concluded() != concluded + !stage.openOf( 1 ) || stage.entry( 0 ) != entry ) {
         t.broken( late, "nothing new",
                   stage.entry( 0 ) == entry ? "a conclusion" : "an old entry" );
      }
   };
   stage.answer( first );
   unmoved( "answered the first, while a request of another key is in the chip" );
   stage.answer( second, "once more" );
   unmoved( "answered the second again" );
   if ( !stage.openOf( 1 ) ) {
      t.broken( late, "the other key's request unanswered", "it is concluded" );
   }
   stage.answer( other );
   if ( stage.openOf( 1 ) ) {
      t.broken( late, "its own answer heard", "it is not concluded" );
   }
   stage.answer( other, "once more" );
   stage.answer( first );
   unmoved( "answered all of them again" );
   stage.rest( late );
}

void
checkHeld( Trial & t ) {
   AsyncStage stage( t );
   for ( U32 n = 0; n < keysUsed; ++n ) {
      stage.request( n );
   }
   t.did( "requests of eight keys" );
   stage.rest( once );
   stage.judge( held );
   stage.answersAre( AsyncAnswers::held );
   stage.request( 0 );
   const String error = "no room";
   stage.answer( stage.started( held, 0 ), error );
   t.did( "a request that is answered with an error" );
   stage.answerAll(); // if it was tried again
   stage.rest( once );
   for ( auto & conclusion : stage.conclusions ) {
      if ( conclusion.error != error ) {
         t.broken( held, "'" + error + "'", "'" + conclusion.error + "'" );
      }
   }
}

void
checkNewest( Trial & t ) {
   AsyncStage stage( t );
   for ( U32 round = 0; round < 6; ++round ) {
      for ( U32 n = 0; n < 3; ++n ) {
         for ( U32 again = 0; again < 3; ++again ) {
            ( round + n + again ) % 4 ? stage.request( n ) : stage.remove( n );
            t.run( 0.001 * t.random.below( 4 ) );
         }
      }
      t.did( "three requests of each of three keys, some in the middle of the ones before" );
      stage.rest( newest );
      stage.judge( newest );
   }
}

/** Nothing is asked of the helper, whoever is answered late. */
void
judgeStill( AsyncStage & stage ) {
   Trial & t = stage.t;
   const U32 priority = stage.helper->priority(), concluded = stage.concluded();
   t.did( "answered what it left" );
   stage.answerAll();
   t.run( t.answersWithin() );
   if ( stage.helper->priority() != priority || stage.concluded() != concluded ) {
      t.broken( destructor, "nobody there to hear an answer",
                stage.concluded() == concluded ? "an operation more" : "a conclusion" );
   }
}

void
checkEndInConclusion( Trial & t ) {
   AsyncStage stage( t );
   stage.entry( 0 );
   stage.answersAre( AsyncAnswers::held );
   for ( U32 n = 0; n < 3; ++n ) {
      stage.request( n );
   }
   stage.endsItself = true;
   const U32 place = stage.started( destructor, 0 );
   t.did( "three requests; the conclusion of the first drops the state machine" );
   stage.answer( place );
   t.run( Trial::step );
   if ( stage.sm ) {
      t.broken( destructor, "a conclusion", "none" );
   }
   judgeStill( stage );
}

void
checkDestructor( Trial & t ) {
   checkEndInConclusion( t );
   AsyncStage stage( t );
   stage.answersAre( AsyncAnswers::held );
   stage.request( 0 );
   stage.request( 1 );
   stage.started( destructor, 0 );
   stage.answerAll();
   stage.request( 0 );
   stage.request( 1 );
   stage.started( destructor, 0 );
   t.did( "two keys, and requests of them in the middle" );
   stage.entry( 0 );
   const auto handed = stage.part.asyncOperations();
   t.judgeDestruction( destructor, [&] { stage.end(); } );
   if ( stage.part.asyncOperations() != handed ) {
      t.broken( destructor, "no operation handed over by a destructor", "one more" );
   }
   judgeStill( stage );
}

void
checkSuccessor( Trial & t ) {
   AsyncStage stage( t );
   stage.request( 1 );
   stage.rest( once );
   stage.answersAre( AsyncAnswers::held );
   stage.request( 0 );
   const U32 first = stage.started( successor, 0 );
   t.did( "an entry, a request, and destroyed the state machine in the middle of that" );
   stage.end();
   stage.entry( 0 );
   t.judgeSuccessor( successor, [&] { stage.begin(); } );
   stage.request( 1 );
   stage.answer( stage.started( successor, 1 ) );
   stage.request( 0 ); // as many operations as the first: its numbers may be the same
   const U32 second = stage.started( successor, 0, stage.part.asyncOperations()[first].value );
   stage.answer( first );
   t.did( "requests of the same keys, and the answer to the first one" );
   t.run( Trial::step );
   if ( !stage.openOf( 0 ) ) {
      t.broken( successor, "no conclusion before an answer of its own", "a conclusion" );
   }
   stage.answer( second );
   if ( stage.openOf( 0 ) ) {
      t.broken( successor, "a conclusion by its own answer", "none" );
   }
   const U32 entry = stage.entry( 0 );
   stage.answer( first );
   t.did( "the answer to the first one once more" );
   if ( stage.entry( 0 ) != entry ) {
      t.broken( successor, AsyncStage::key( 0 ) + " as the second wants it", "as the first did" );
   }
   stage.rest( successor );
}

void
checkRandom( Trial & t ) {
   AsyncStage stage( t );
   stage.answersAre( AsyncAnswers::held );
   for ( U32 step = 0; step < t.options.steps; ++step ) {
      const U32 n = t.random.below( keysUsed ), what = t.random.below( 100 );
      const U32 places = U32( stage.part.asyncOperations().size() );
      const String when = "step " + Kiv::toText( step ) + ": ";
      if ( what < 40 ) {
         what % 5 ? stage.request( n ) : stage.remove( n );
         t.did( when + "a request of " + AsyncStage::key( n ) );
      } else if ( what < 80 && places ) {
         const U32 back = t.random.oneIn( 4 ) ? t.random.below( std::min( places, 6u ) ) : 0;
         stage.answer( places - 1 - back, t.random.oneIn( 8 ) ? "fault" : "" );
         t.did( when + "the answer to operation " + Kiv::toText( places - 1 - back ) );
      } else if ( what < 98 ) {
         t.run( 0.001 * t.random.below( 20 ) );
      } else {
         t.run( stage.sm->pendingOperationTimeout() + 1 );
         t.did( when + "too late for an answer" );
      }
      stage.judgeHeard();
   }
   for ( U32 round = 0; stage.open() && round < 2 * t.options.steps; ++round ) {
      stage.answerAll();
      t.run( 1 );
   }
   stage.rest( random );
   stage.judge( random );
}

constexpr Check checks[] = { { handler, checkHandler },     { once, checkOnce },
                             { numbers, checkNumbers },     { inside, checkInside },
                             { moment, checkMoment },       { timeout, checkTimeout },
                             { late, checkLate },           { held, checkHeld },
                             { newest, checkNewest },       { destructor, checkDestructor },
                             { successor, checkSuccessor }, { random, checkRandom } };
constexpr LastWords lastWords[] = {
      { "Qon::QonAsyncBaseSm::handleAsyncOperationResult()", handler } };

String
heldBy( const QonChip::Chip & chip ) {
   auto part = chip.part< QonChip::AsyncPart >();
   auto entries = part ? part->asyncEntries() : std::nullopt;
   String text;
   for ( auto & [key, value] : entries.value_or( HeldEntries() ) ) {
      text += "entry " + key + ": " + Kiv::toText( value ) + "\n";
   }
   return text;
}

} // namespace

extern const Feature feature{ "async", contracts, checks, lastWords, heldBy };

} // namespace QonConformance::Async
