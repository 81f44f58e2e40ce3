#pragma once
// One check at work, in its own process: the chip, the history, the verdict.
//
//    check( trial ): did( ... ), run( ... ), await( ... ), broken( Mac::full, ... ) -> the parent
//
// broken() and skip() throw: they are for the checks, not for the inside of handlers.

#include "Qon/include/framework/QonCommonSmData.h"
#include "conformance/Feature.h"
#include "platform/Kiv/Rng.h"

namespace QonConformance {

struct Broken {
   Finding finding;
};
struct Skipped {
   String why;
};

class Trial {
 public:
   /** Hears what is done, as it is done: a crash leaves that behind. */
   using Note = std::function< void( const String & what ) >;

   Trial( const MakeChip & make, const Options & options, Note note );
   /** Takes the chip down. By then the check's hook objects are gone. */
   ~Trial();
   Trial( const Trial & ) = delete;
   Trial & operator=( const Trial & ) = delete;

   Kiv::VirtualScheduler scheduler;
   const std::unique_ptr< QonChip::Chip > chip;
   Ptr< Qon::QonCommonSmData > acsd;
   const Options options;
   Kiv::Rng random;

   /** A part of the chip; without it the check is skipped. */
   template< class Part >
   Part & part( const char * name ) const {
      auto part = chip->part< Part >();
      if ( !part ) {
         skip( String( "the chip has no " ) + name );
      }
      return *part;
   }
   /** Passes on what was read back; if that is nothing, the outcome will say so. */
   template< class Held >
   std::optional< Held > readBack( std::optional< Held > held, const char * what ) {
      if ( !held ) {
         notLooked( String( what ) + " cannot be read back" );
      }
      return held;
   }
   /** The chip cannot be looked at for what the check is about. */
   void notLooked( const String & why ) { notLooked_ = notLooked_.empty() ? why : notLooked_; }
   const String & whyNotLooked() const { return notLooked_; }

   QonChip::IntfId port( U32 n ) const { return ports_[n % ports_.size()]; }
   U32 ports() const { return U32( ports_.size() ); }
   Kiv::Seconds answersWithin() const { return chip->answersWithin(); }

   void did( const String & what );
   /** Lets the chip and the library work for so long. */
   void run( Kiv::Seconds span );
   /** Lets them work until `done()`, at most as long as the chip may take for an answer. */
   template< class Done >
   bool await( Done && done ) {
      return await( answersWithin(), std::forward< Done >( done ) );
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

   [[noreturn]] void broken( const Contract & contract, const String & expected,
                             const String & found ) const;
   [[noreturn]] static void skip( const String & why ) { throw Skipped{ why }; }

   /** Something that is published for others: part of what can be seen from outside. */
   void publishes( Ptr< const Kiv::Entity > entity ) {
      published_.push_back( std::move( entity ) );
   }
   /** Runs `verify()` and judges that it finds nothing. */
   void judgeVerify( const Contract & contract, const std::function< void() > & verify );
   /** Runs `end()`, which destroys the hook objects, and judges that nothing that can be seen
       changed by that, and that late answers reach nobody. */
   void judgeDestruction( const Contract & contract, const std::function< void() > & end );
   /** Runs `make()`, which makes new hook objects, and judges that the chip holds what it held. */
   void judgeSuccessor( const Contract & contract, const std::function< void() > & make );

 private:
   String held() const;
   String published() const;
   void judgeSame( const Contract & contract, const String & before, const String & after ) const;

   Note note_;
   std::vector< QonChip::IntfId > ports_;
   std::vector< Ptr< const Kiv::Entity > > published_;
   std::vector< String > history_; // the latest
   String notLooked_;
};

/** "a, b", or "nothing". */
template< class T, class Show >
String
joined( const T & parts, Show && show ) {
   String text;
   for ( auto & part : parts ) {
      text += ( text.empty() ? "" : ", " ) + show( part );
   }
   return text.empty() ? "nothing" : text;
}

} // namespace QonConformance
