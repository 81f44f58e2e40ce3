#include "agent/features/FibInstaller.h"

#include <algorithm>

#include "Qon/include/framework/HookTap.h"

namespace QonAgent {

using Qon::L2AdjHardwareState;
using QonChip::AdjacencyHelper;
using State = FibChipState;

namespace {

constexpr U32 installPriority = 3;        // as FECs
constexpr Kiv::Seconds startInterval = 1; // how often it looks whether the tables are complete

constexpr State waitingStates[] = { State::noRoom, State::noGroup, State::failed };

bool
waits( State state ) {
   return std::find( std::begin( waitingStates ), std::end( waitingStates ), state ) !=
          std::end( waitingStates );
}

State
stateOf( QonChip::AdjacencyAnswer answer ) {
   using Answer = QonChip::AdjacencyAnswer;
   return answer == Answer::programmed       ? State::programmed
          : answer == Answer::full           ? State::noRoom
          : answer == Answer::ecmpGroupsFull ? State::noGroup
                                             : State::failed;
}

L2AdjHardwareState
hwStateOf( State state ) {
   using Bit = L2AdjHardwareState::Bit;
   return state == State::programmed ? L2AdjHardwareState( Bit::installed )
          : state == State::noGroup  ? L2AdjHardwareState( Bit::ecmpGroupsFull )
          : waits( state )           ? L2AdjHardwareState( Bit::installFailed )
                                     : L2AdjHardwareState();
}

/** The first key of a set, which is taken out. */
template< class Set >
auto
takeFront( Set & set ) {
   const auto key = set.front().key;
   set.erase( key );
   return key;
}

} // namespace

FibInstaller::Work::Work( FibInstaller * installer, Kiv::TaskScheduler * scheduler )
    : Kiv::Task( scheduler, installPriority, "Fib installer" ), installer_( installer ) {}

bool
FibInstaller::Work::run() {
   const Velto::Hold alive( installer_ );
   while ( installer_->step() ) {
      if ( shouldYield() ) {
         return true;
      }
   }
   return false;
}

FibInstaller::FibInstaller( Velto::Ptr< FibReader > reader, QonChip::AdjacencyPart & part,
                            Kiv::TaskScheduler * scheduler )
    : reader_( std::move( reader ) ), helper_( part.makeAdjacencyHelper() ),
      alarm_( [this] { ring(); }, scheduler->timerWheel() ), work_( this, scheduler ) {
   helper_->userIs( this );
   reader_->hearerIs( this );
   for ( U32 place = 0; place < reader_->fecPlaces(); ++place ) {
      if ( const FibFec * fec = reader_->fecAt( place ) ) {
         toSync_.emplace( fec->id );
      }
   }
   work_.wake();
   alarm_.in( startInterval );
}

FibInstaller::~FibInstaller() {
   end();
}

void
FibInstaller::end() {
   if ( helper_ ) {
      reader_->hearerIs( nullptr );
      helper_->userIs( nullptr );
      helper_ = nullptr;
      alarm_.off();
   }
}

// --- What is noted down --------------------------------------------------------------------------

void
FibInstaller::fecMoves( GlobalFecId fec, const Ptr & from ) {
   toSync_.emplace( fec );
   if ( from && from->inChip.state != State::none ) {
      toReview_.emplace( from->number() );
   }
   searched_ = 0;
   work_.wake();
}

void
FibInstaller::adjacencyAnswered( U32 number, U32 version, Answer answer ) {
   const Ptr adjacency = at( number );
   if ( adjacency && version && adjacency->inChip.version == version ) {
      adjacency->inChip.version = 0;
      conclude( adjacency, stateOf( answer ) );
   } else {
      ++unasked_;
   }
}

/** The end of a request, or the answer to one that was given up. */
void
FibInstaller::conclude( const Ptr & adjacency, State state ) {
   waiting( adjacency->inChip.state ).numbers.erase( adjacency->number() );
   const State from = std::exchange( adjacency->inChip.retriedFrom, State::none );
   const U32 number = adjacency->number();
   inFlight_.erase( number );
   stateIs( adjacency, state );
   if ( state == State::programmed ) {
      toWalk_.emplace( number );
      waiting( from ).credits += 2;
   } else {
      waiting( from ).credits += from != state; // it was not for want of that
      waiting( state ).numbers.emplace( number );
      if ( state != State::failed && adjacency->inChip.rooms != rooms_ ) {
         waiting( state ).credits = std::max( waiting( state ).credits, 1u );
      }
      alarm_.in( retryInterval );
   }
   toTell_.emplace( number );
   work_.wake();
}

void
FibInstaller::adjacencyRoom() {
   ++rooms_;
   roomComes_ = false;
   searched_ = 0;
   for ( const State state : { State::noRoom, State::noGroup } ) {
      waiting( state ).credits = std::max( waiting( state ).credits, 1u );
   }
   work_.wake();
}

/** Everything that nobody tells of. */
void
FibInstaller::ring() {
   while ( !inFlight_.empty() ) {
      const Ptr oldest = at( inFlight_.front().key );
      if ( oldest->inChip.since + answerTimeout > Kiv::now() ) {
         break;
      }
      conclude( oldest, State::failed );
   }
   bool some = !inFlight_.empty();
   for ( const State state : waitingStates ) {
      Waiting & all = waiting( state );
      some = some || !all.numbers.empty();
      all.credits = state == State::failed ? all.numbers.size() : std::max( all.credits, 1u );
   }
   roomComes_ = false;
   searched_ = 0; // who tried again in the middle of a search has changed its order
   stalePaused_ = false;
   for ( auto && [fec, nothing] : std::exchange( syncAgain_, {} ) ) {
      toSync_.emplace( fec );
   }
   for ( auto && [number, nothing] : std::exchange( reviewAgain_, {} ) ) {
      toReview_.emplace( number );
   }
   if ( some || !staleGone_ ) {
      alarm_.in( staleGone_ ? retryInterval : startInterval );
   }
   work_.wake();
}

// --- Slices --------------------------------------------------------------------------------------

/** What makes room comes first. Nothing is left half done by one that raises. */
bool
FibInstaller::step() {
   const Velto::Ptr< AdjacencyHelper > held( helper_ ); // end() lets it go
   return held &&
          ( reviewNext() || tellNext() || syncNext() || walkNext() || retry( State::noRoom ) ||
            retry( State::noGroup ) || retry( State::failed ) || dropStale() || makeRoom() );
}

/** Takes out of the chip what no FEC wants, and none leads to. */
bool
FibInstaller::reviewNext() {
   if ( toReview_.empty() ) {
      return false;
   }
   const U32 number = takeFront( toReview_ );
   const Ptr adjacency = at( number );
   if ( !adjacency || adjacency->inChip.state == State::none || adjacency->adjEntrys() ||
        adjacency->inChip.fecs ) {
      return true;
   }
   try {
      QON_HOOK( AdjacencyHelper, helper_, adjacencyDel, number );
   } catch ( ... ) {
      reviewAgain_.emplace( number );
      alarm_.in( retryInterval );
      throw;
   }
   // What it tried for is there for another one.
   ++waiting( std::exchange( adjacency->inChip.retriedFrom, State::none ) ).credits;
   inFlight_.erase( number );
   waiting( adjacency->inChip.state ).numbers.erase( number );
   roomComes_ = roomComes_ || adjacency->inChip.state == State::programmed;
   adjacency->inChip.version = 0;
   stateIs( adjacency, State::none );
   reader_->adjacencyLeft( adjacency );
   return true;
}

bool
FibInstaller::tellNext() {
   if ( toTell_.empty() ) {
      return false;
   }
   if ( const Ptr adjacency = at( takeFront( toTell_ ) ) ) {
      adjacency->hwStateIs( hwStateOf( adjacency->inChip.state ) );
   }
   return true;
}

bool
FibInstaller::syncNext() {
   if ( toSync_.empty() ) {
      return false;
   }
   sync( takeFront( toSync_ ) );
   return true;
}

bool
FibInstaller::walkNext() {
   if ( !walk_ ) {
      if ( toWalk_.empty() ) {
         return false;
      }
      if ( const Ptr adjacency = at( takeFront( toWalk_ ) ) ) {
         walk_.emplace( adjacency, false );
      }
      return true;
   }
   if ( walk_->makesRoom && ( roomComes_ || !inFlight_.empty() ) ) {
      walk_.reset();
      return true;
   }
   if ( !*walk_ ) {
      if ( walk_->makesRoom ) { // without success: the next one's turn
         ++searched_;
         Waiting & all = waiting( walk_->adjacency->inChip.state );
         if ( all.numbers.erase( walk_->adjacency->number() ) ) {
            all.numbers.emplace( walk_->adjacency->number() );
         }
      }
      walk_.reset();
      return true;
   }
   const GlobalFecId fec = walk_->take();
   walk_->makesRoom ? leaveForRoom( fec, *walk_->adjacency ) : sync( fec );
   return true;
}

bool
FibInstaller::retry( State state ) {
   Waiting & all = waiting( state );
   if ( all.credits == 0 || all.numbers.empty() ) {
      all.credits = 0;
      return false;
   }
   --all.credits;
   const U32 number = takeFront( all.numbers );
   const Ptr adjacency = at( number );
   if ( adjacency->adjEntrys() == 0 ) { // its removal raised, and comes again
      all.numbers.emplace( number );
      return true;
   }
   adjacency->inChip.retriedFrom = state;
   request( adjacency );
   return true;
}

bool
FibInstaller::dropStale() {
   if ( staleGone_ || stalePaused_ || !inFlight_.empty() || !reader_->idle() ) {
      return false;
   }
   for ( auto & table : reader_->tables() ) {
      if ( !table.reader->complete() ) {
         return false;
      }
   }
   stalePaused_ = true; // unless the hook raises, for good
   QON_HOOK( AdjacencyHelper, helper_, staleDel );
   staleGone_ = true;
   adjacencyRoom();
   return true;
}

/** Begins to search for a FEC that holds what it does not want any more, among those that wait. */
bool
FibInstaller::makeRoom() {
   if ( !staleGone_ || !inFlight_.empty() || roomComes_ ) {
      return false;
   }
   const Numbers & rooms = waiting( State::noRoom ).numbers;
   const Numbers & groups = waiting( State::noGroup ).numbers;
   if ( searched_ >= rooms.size() + groups.size() ) {
      return false;
   }
   const Numbers & some = searched_ < rooms.size() ? rooms : groups;
   const Ptr adjacency = at( some.front().key );
   walk_.emplace( adjacency, true );
   return true;
}

// --- FECs and adjacencies ------------------------------------------------------------------------

/** Makes of a FEC in the chip what it is in the tables, as far as its adjacency is there. */
void
FibInstaller::sync( GlobalFecId id ) {
   const FibFec * fec = reader_->fec( id );
   const Ptr wanted = fec ? fec->adjacency : Ptr();
   if ( !wanted ) {
      drop( id );
   } else if ( wanted->inChip.state == State::none ) {
      request( wanted );
   } else if ( wanted->inChip.state == State::programmed && wanted->number() != leadsTo( id ) ) {
      lead( id, wanted );
   }
}

void
FibInstaller::request( const Ptr & adjacency ) {
   FibInChip & in = adjacency->inChip;
   stateIs( adjacency, State::requested );
   version_ += version_ + 1 ? 1 : 2;
   const U32 number = adjacency->number(), version = version_;
   const U32 former = std::exchange( in.version, version );
   in.rooms = rooms_;
   inFlight_.emplace( number );
   alarm_.in( retryInterval );
   try {
      QON_HOOK( AdjacencyHelper, helper_, adjacencyIs, number, version, adjacency->l2AdjKey() );
   } catch ( ... ) {
      if ( in.version == version ) {
         in.version = former;
         conclude( adjacency, State::failed );
      }
      throw;
   }
}

void
FibInstaller::lead( GlobalFecId fec, const Ptr & to ) {
   try {
      QON_HOOK( AdjacencyHelper, helper_, fecIs, fec, to->number() );
   } catch ( ... ) {
      syncAgain_.emplace( fec );
      alarm_.in( retryInterval );
      throw;
   }
   const auto [number, fresh] = leads_.emplace( fec, to->number() );
   const U32 former = fresh ? 0 : std::exchange( *number, to->number() );
   ++to->inChip.fecs;
   left( former );
}

void
FibInstaller::drop( GlobalFecId fec ) {
   const U32 former = leadsTo( fec );
   if ( !former ) {
      return;
   }
   try {
      QON_HOOK( AdjacencyHelper, helper_, fecDel, fec );
   } catch ( ... ) {
      syncAgain_.emplace( fec );
      alarm_.in( retryInterval );
      throw;
   }
   leads_.erase( fec );
   left( former );
}

/** A FEC leads to that one no more. */
void
FibInstaller::left( U32 number ) {
   if ( number && --at( number )->inChip.fecs == 0 ) {
      toReview_.emplace( number );
   }
}

/** A FEC of an adjacency that has no room: is its former one kept for nothing but it? */
void
FibInstaller::leaveForRoom( GlobalFecId id, const FibAdjacency & wanted ) {
   const FibFec * fec = reader_->fec( id );
   const U32 number = leadsTo( id );
   const Ptr former = number ? at( number ) : Ptr();
   const bool helps = wanted.inChip.state == State::noRoom || ( former && former->several() );
   if ( fec && fec->adjacency == &wanted && former && !former->adjEntrys() && helps ) {
      drop( id );
      ++interrupted_;
      roomComes_ = former->inChip.fecs == 0;
   }
}

void
FibInstaller::stateIs( const Ptr & adjacency, State state ) {
   FibInChip & in = adjacency->inChip;
   counts_[U32( in.state )] -= in.state != State::none;
   counts_[U32( state )] += state != State::none;
   in.state = state;
   in.since = Kiv::now();
}

// --- Invariants ----------------------------------------------------------------------------------

String
FibInstaller::checkAdjacency( const FibAdjacency & adjacency, U32 fecs ) const {
   const FibInChip & in = adjacency.inChip;
   if ( in.fecs != fecs ) {
      return "another number of FECs leads to it in the chip";
   }
   if ( fecs && in.state != State::programmed ) {
      return "FECs lead to it, and it is not programmed";
   }
   for ( const State state : waitingStates ) {
      if ( waiting( state ).numbers.has( adjacency.number() ) != ( in.state == state ) ) {
         return "it waits for something else than its state says";
      }
   }
   if ( inFlight_.has( adjacency.number() ) != ( in.state == State::requested ) ) {
      return "an answer is awaited that was not asked for";
   }
   const bool done = idle() && in.state == State::programmed;
   if ( idle() && in.state != State::none && adjacency.adjEntrys() == 0 && fecs == 0 &&
        !reviewAgain_.has( adjacency.number() ) ) {
      return "nobody wants it";
   }
   for ( auto i = adjacency.adjEntryIteratorConst(); done && i; ++i ) {
      if ( leadsTo( i.key() ) != adjacency.number() && !syncAgain_.has( i.key() ) ) {
         return "FEC " + i.key().stringValue() + " does not lead to it";
      }
   }
   return "";
}

String
FibInstaller::checkInvariants() const {
   std::vector< U32 > fecs( reader_->adjacencies().mostNumber() + 1 );
   for ( auto && [fec, number] : leads_ ) {
      if ( !at( number ) ) {
         return "FEC " + fec.stringValue() + " leads to what is not there";
      }
      ++fecs[number];
      if ( idle() && !reader_->fec( fec ) && !syncAgain_.has( fec ) ) {
         return "FEC " + fec.stringValue() + " is in the chip, and not in the tables";
      }
   }
   U32 states[6] = {};
   for ( U32 number = 1; number <= reader_->adjacencies().mostNumber(); ++number ) {
      const Ptr adjacency = at( number );
      if ( !adjacency ) {
         continue;
      }
      ++states[U32( adjacency->inChip.state )];
      if ( const String wrong = checkAdjacency( *adjacency, fecs[number] ); !wrong.empty() ) {
         return "adjacency " + Kiv::toText( number ) + " in the chip: " + wrong;
      }
   }
   for ( U32 state = 1; state < 6; ++state ) {
      if ( states[state] != counts_[state] ) {
         return "the counts of adjacencies in the chip are wrong";
      }
   }
   return "";
}

} // namespace QonAgent
