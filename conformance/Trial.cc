#include "conformance/Trial.h"

#include <set>

#include "platform/Kiv/Generic.h"

namespace QonConformance {

namespace {

constexpr std::size_t historyKept = 6;

std::set< String >
linesOf( const String & text ) {
   auto lines = Kiv::split( text, '\n' );
   return { lines.begin(), lines.end() };
}

bool
listed( const Contract & contract ) {
   auto all = contracts();
   return std::find( all.begin(), all.end(), &contract ) != all.end();
}

} // namespace

Trial::Trial( const MakeChip & make, const Options & o, Note note )
    : chip( make( scheduler ) ), acsd( Qon::qonCommonSmDataFactory( "acsd" ) ), options( o ),
      random( o.seed ), note_( std::move( note ) ), ports_( chip->ports() ) {
   VELTO_ASSERT( !ports_.empty() );
   acsd->initializedIs( true );
   publishes( acsd );
}

Trial::~Trial() {
   published_.clear();
   acsd = nullptr; // and with it what it holds of the chip
   chip->takeDown();
}

void
Trial::did( const String & what ) {
   if ( history_.size() == historyKept ) {
      history_.erase( history_.begin() );
   }
   history_.push_back( what );
   note_( what );
}

void
Trial::run( Kiv::Seconds span ) {
   chip->pump( span );
   scheduler.runFor( span );
}

void
Trial::broken( const Contract & contract, const String & expected, const String & found ) const {
   VELTO_ASSERT( listed( contract ) );
   String did;
   for ( auto & what : history_ ) {
      did += ( did.empty() ? "" : "; " ) + what;
   }
   throw Broken{ { contract.id, contract.promise, did, expected, found } };
}

String
Trial::held() const {
   String text;
   for ( auto feature : features() ) {
      text += feature->held( *chip );
   }
   return text;
}

String
Trial::published() const {
   String text;
   for ( auto & entity : published_ ) {
      text += Kiv::GenericIf::dump( *entity );
   }
   return text;
}

void
Trial::judgeSame( const Contract & contract, const String & before, const String & after ) const {
   auto was = linesOf( before ), is = linesOf( after );
   for ( auto & line : was ) {
      if ( !is.contains( line ) ) {
         broken( contract, line, "not so any more" );
      }
   }
   for ( auto & line : is ) {
      if ( !was.contains( line ) ) {
         broken( contract, "nothing new", line );
      }
   }
}

void
Trial::judgeVerify( const Contract & contract, const std::function< void() > & verify ) {
   auto data = acsd->verifyData();
   U32 before = data->verifyInc();
   did( "verify()" );
   verify();
   if ( data->verifyInc() != before ) {
      broken( contract, "no finding", data->verifyOutput().description() );
   }
}

void
Trial::judgeDestruction( const Contract & contract, const std::function< void() > & end ) {
   String before = published() + held();
   did( "destroyed the hook objects" );
   end();
   judgeSame( contract, before, published() + held() );
   String then = published();
   did( "let late answers come" );
   run( answersWithin() );
   judgeSame( contract, then, published() );
}

void
Trial::judgeSuccessor( const Contract & contract, const std::function< void() > & make ) {
   String before = held();
   did( "made new hook objects" );
   make();
   judgeSame( contract, before, held() );
}

} // namespace QonConformance
