#pragma once
// One check at work, in its own process: the bench, the chip, the history, the verdict.
//
//    check( trial ): did( ... ), run( ... ), await( ... ), broken( ... ) -> Broken -> the parent
//
// broken() and skip() throw: they are for the checks, not for the inside of handlers.

#include <memory>

#include "conformance/Conformance.h"

namespace QonConformance {

struct Broken {
   Finding finding;
};
struct Skipped {
   String why;
};

/** A sequence of numbers that depends on the seed alone. */
class Random {
 public:
   explicit Random( U64 seed ) : state_( seed ) {}
   /** Below `limit`. */
   U32 below( U32 limit ) { return U32( next() % limit ); }
   bool oneIn( U32 n ) { return below( n ) == 0; }

 private:
   U64 next();
   U64 state_;
};

class Trial {
 public:
   /** Hears what is done, as it is done: a crash leaves that behind. */
   using Note = std::function< void( const String & what ) >;

   Trial( const MakeChip & make, const Options & options, Note note );
   Trial( const Trial & ) = delete;
   Trial & operator=( const Trial & ) = delete;

   Kiv::VirtualScheduler scheduler;
   Ptr< Qon::QonCommonSmData > acsd;
   Ptr< Hardware::Lag::Config > lagConfig;
   Ptr< Hardware::Lag::Status > lagStatus;
   const Bench bench; ///< the same, as the adapter sees it
   ChipAdapter chip;
   Options options;
   Random random;

   Ulnet::IntfId port( U32 n ) const { return chip.ports[n % chip.ports.size()]; }
   U32 ports() const { return U32( chip.ports.size() ); }

   void did( const String & what );
   /** Lets the chip and the library work for so long. */
   void run( Kiv::Seconds span );
   /** Lets them work until `done()`, at most as long as the chip may take for an answer. */
   template< class Done >
   bool await( Done && done ) {
      return await( chip.answersWithin, std::forward< Done >( done ) );
   }
   template< class Done >
   bool await( Kiv::Seconds limit, Done && done ) {
      Kiv::Seconds end = scheduler.time() + limit;
      scheduler.settle();
      while ( !done() ) {
         if ( scheduler.time() >= end ) {
            return false;
         }
         run( step );
      }
      return true;
   }
   static constexpr Kiv::Seconds step = 0.05;

   [[noreturn]] void broken( const char * contract, const String & expected,
                             const String & found ) const;
   [[noreturn]] static void skip( const String & why ) { throw Skipped{ why }; }

   /** Everything that can be seen from outside: what the chip holds, and what is published. */
   String visible() const;
   /** Runs `verify()` and judges that it finds nothing. */
   void judgeVerify( const char * contract, const std::function< void() > & verify );
   /** Runs `end()`, which destroys the hook objects, and judges that nothing that can be seen
      changed by that, and that late answers reach nobody. */
   void judgeDestruction( const char * contract, const std::function< void() > & end );

 private:
   Note note_;
   bool destroyed_ = false;        // the hook objects
   std::vector< String > history_; // the latest
};

struct Check {
   const char * id; ///< of the contract that it is about
   void ( *make )( Trial & trial );
};
const std::vector< Check > & macChecks();
const std::vector< Check > & vlanChecks();
const std::vector< Check > & topoChecks();
const std::vector< Check > & lagChecks();

/** @name Texts of what is held */
/** @{ */
String shown( const std::map< Qon::MacEntryKey, Ulnet::IntfId > & hosts );
String shown( const ChipAdapter::Ports & ports );
String shown( const HeldTopology & topology );
String shown( const std::set< Ulnet::IntfId > & ports );
/** @} */

} // namespace QonConformance
