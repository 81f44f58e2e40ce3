#pragma once
// A flow that a saboteur disturbs must come to the end of the one that nobody disturbs.
//
//    Tests::disturb( [&]( Tests::Saboteur & saboteur, const Tests::Ends & ends ) {
//       FeatureWorld w;
//       Tests::Bell bell;                                   hooks and log sinks strike, too
//       w.chip.duringCall = [&] { bell.ring(); };
//       saboteur.watches( { w.output.ptr(), bell.rope() } );
//       ... as in Sabotage.h ...
//       ends( Tests::held( { w.output.ptr() } ) );
//    } );

#include <regex>

#include "platform/Kiv/Generic.h"
#include "platform/Kiv/Log.h"
#include "platform/types/StormControl.h"
#include "tests/harness/Sabotage.h"

namespace Tests {

/** Changes something with every ring; log messages ring it. */
class Bell : public Kiv::LogSink {
 public:
   Bell() : before_( Kiv::logSinkIs( this ) ) {}
   ~Bell() override { Kiv::logSinkIs( before_ ); }
   void ring() { rope_->dropLoggingIntervalIs( rope_->dropLoggingInterval() + 1 ); }
   const Kiv::Entity * rope() const { return rope_.ptr(); }
   void message( const Kiv::LogDescriptor &, const Velto::String & ) override { ring(); }

 private:
   // Any entity with a number.
   Velto::Ptr< Bridging::StormControl::Config > rope_ =
         Velto::make< Bridging::StormControl::Config >( "rope" );
   Kiv::LogSink * before_;
};

/** What entities hold, a line each, in order. Versions are left out: they go on when something is
    done twice. */
inline Velto::String
held( std::initializer_list< const Kiv::Entity * > entities ) {
   static const std::regex version( "'version': \\d+|'reporters': \\d+" );
   std::multiset< Velto::String > lines;
   for ( auto entity : entities ) {
      Kiv::GenericIf::Dump dump( *entity );
      for ( Kiv::GenericIf::Line line; dump.next( line ); ) {
         if ( line.path.find( "ersion" ) == Velto::String::npos &&
              line.path.find( "lastReporters" ) == Velto::String::npos ) {
            lines.insert( line.path + " " + std::regex_replace( line.value, version, "" ) );
         }
      }
   }
   Velto::String all;
   for ( auto & line : lines ) {
      all += line + "\n";
   }
   return all;
}

/** A step of inputs that a strike has broken off is done to its end: it must be one that can be
    done twice. */
inline void
does( Saboteur & saboteur, const std::function< void() > & step ) {
   saboteur.does( step );
   step();
}

using Ends = std::function< void( const Velto::String & state ) >;

inline void
disturb( const std::function< void( Saboteur &, const Ends & ) > & flow ) {
   Velto::String undisturbed;
   auto nobody = Velto::make< Saboteur >( ~U32( 0 ), Sabotage::drops );
   flow( *nobody, [&]( const Velto::String & state ) { undisturbed = state; } );
   sabotage( [&]( Saboteur & saboteur ) {
      flow( saboteur, [&]( const Velto::String & state ) {
         saboteur.ends( [&]() -> Velto::String {
            return state == undisturbed ? "" : state + "instead of\n" + undisturbed;
         } );
      } );
   } );
}

} // namespace Tests
