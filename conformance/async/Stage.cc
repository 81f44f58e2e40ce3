#include "conformance/async/Stage.h"

#include <algorithm>

namespace QonConformance::Async {

namespace {

String
shown( const String & key, U32 value ) {
   return value ? key + " = " + Kiv::toText( value ) : "no " + key;
}

} // namespace

AsyncStage::AsyncStage( Trial & trial )
    : t( trial ), part( trial.part< QonChip::AsyncPart >( "AsyncPart" ) ) {
   begin();
}

AsyncStage::~AsyncStage() {
   end();
   part.asyncAnswersAre( AsyncAnswers::later );
}

void
AsyncStage::begin() {
   helper = part.makeAsyncHelper();
   priority_ = helper->priority();
   sequence_.clear();
   open_.clear(); // what one before it was asked for is nobody's
   priorities_.attach( helper.ptr(), [this] { heardPriority(); } );
   sequences_.attach( helper.ptr(), [this]( const String & key ) { heardSequence( key ); } );
   sm = part.makeAsyncSm( t.acsd, helper,
                          [this]( const AsyncConclusion & what ) { heard( what ); } );
   sm->initializedIs( true );
}

void
AsyncStage::request( U32 n, U32 value ) {
   open_[key( n )].push_back( value );
   wanted_[key( n )] = { value };
   part.asyncRequest( *sm, key( n ), value );
}

void
AsyncStage::answersAre( AsyncAnswers answers ) {
   answered_.clear();
   if ( !part.asyncAnswersAre( answers ) ) {
      Trial::skip( answers == AsyncAnswers::held
                         ? "the chip's answers cannot be held back"
                         : "the chip cannot be made to answer inside of a call" );
   }
}

U32
AsyncStage::started( const Contract & contract, U32 n, U32 former ) {
   constexpr U32 tries = 10; // of one that is not answered, before the next has its turn
   U32 place = 0;
   auto found = [&] {
      const auto all = part.asyncOperations();
      for ( place = 0; place < all.size(); ++place ) {
         if ( all[place].key == key( n ) && all[place].value != former &&
              !answered_.contains( place ) ) {
            return true;
         }
      }
      return false;
   };
   if ( !t.await( t.answersWithin() + tries * sm->pendingOperationTimeout(), found ) ) {
      t.broken( contract, "an operation of " + key( n ) + " in the chip", "none" );
   }
   return place;
}

void
AsyncStage::answer( U32 place, const String & error ) {
   answered_.insert( place );
   part.asyncAnswer( place, error );
   t.scheduler.settle();
}

void
AsyncStage::answerAll() {
   for ( bool more = true; more; ) {
      t.run( Trial::step );
      more = false;
      const U32 places = U32( part.asyncOperations().size() );
      for ( U32 place = 0; place < places; ++place ) {
         if ( !answered_.contains( place ) ) {
            answer( place );
            more = true;
         }
      }
   }
}

U32
AsyncStage::open() const {
   U32 all = 0;
   for ( auto & [key, values] : open_ ) {
      all += U32( values.size() );
   }
   return all;
}

void
AsyncStage::rest( const Contract & contract ) {
   const bool rests = t.await( [&] { return open() == 0; } );
   t.run( 2 * Trial::step );
   judgeHeard();
   if ( !rests ) {
      t.broken( contract, "a conclusion within " + Kiv::toText( t.answersWithin() ) + " s",
                Kiv::toText( open() ) + " requests without one; the state machine is at '" +
                      sm->reqKey() + "', " + Kiv::toText( sm->asyncState() ) );
   }
}

void
AsyncStage::judgeHeard() const {
   if ( !notFalling_.empty() ) {
      t.broken( numbers, "numbers that fall", notFalling_ );
   }
   if ( !notOnce_.empty() ) {
      t.broken( once, "one conclusion for each request", notOnce_ );
   }
   if ( !notHeld_.empty() ) {
      t.broken( held, "entries as they were concluded", notHeld_ );
   }
}

void
AsyncStage::judge( const Contract & contract ) {
   auto entries = t.readBack( part.asyncEntries(), "the chip's entries" );
   if ( !entries ) {
      return;
   }
   for ( auto & [key, wanted] : wanted_ ) {
      if ( wanted.sure && ( *entries )[key] != wanted.value ) {
         t.broken( contract, shown( key, wanted.value ), shown( key, ( *entries )[key] ) );
      }
   }
}

U32
AsyncStage::entry( U32 n ) {
   auto entries = t.readBack( part.asyncEntries(), "the chip's entries" );
   return entries ? ( *entries )[key( n )] : 0;
}

void
AsyncStage::heard( const AsyncConclusion & what ) {
   auto & waiting = open_[what.key];
   const String text = shown( what.key, what.value );
   ++concluded_;
   // What was replaced before it was handed over may stand behind one that is in the chip.
   auto place = what.end == End::replaced ? std::find( waiting.begin(), waiting.end(), what.value )
                                          : waiting.begin();
   if ( place == waiting.end() || *place != what.value ) {
      notOnce_ = text + ", which " + ( waiting.empty() ? "nobody waits for" : "is not the next" );
      return;
   }
   waiting.erase( place );
   if ( what.end == End::failed ) {
      conclusions.push_back( what );
      Entry & wanted = wanted_[what.key];
      wanted.sure = wanted.sure && wanted.value != what.value;
   } else if ( what.end == End::held ) {
      auto entries = part.asyncEntries();
      if ( entries && ( *entries )[what.key] != what.value ) {
         notHeld_ =
               text + " is concluded, and there is " + shown( what.key, ( *entries )[what.key] );
      }
   }
   if ( std::exchange( endsItself, false ) ) {
      sm = nullptr;
   }
}

void
AsyncStage::heardPriority() {
   const U32 now = helper->priority();
   if ( now >= priority_ ) {
      notFalling_ = "priority " + Kiv::toText( now ) + " after " + Kiv::toText( priority_ );
   }
   priority_ = now;
}

/** A key whose number is taken away begins anew. */
void
AsyncStage::heardSequence( const String & key ) {
   if ( !helper->sequenceHas( key ) ) {
      sequence_.erase( key );
      return;
   }
   const U16 now = helper->sequence( key );
   auto [last, fresh] = sequence_.emplace( key, now );
   if ( !fresh && now >= last->second ) {
      notFalling_ = "sequence number " + Kiv::toText( now ) + " of " + key + " after " +
                    Kiv::toText( last->second );
   }
   last->second = now;
}

} // namespace QonConformance::Async
