#pragma once
// Tells what changed in a table, in slices of the scheduler.
//
//    class Routes : public Quarn::Follower< RouteKey, Route > {
//       void handleValue( const RouteKey &, const Route & ) override;
//       void handleValueDel( const RouteKey & ) override;
//    };
//
//    TableReader -> Follower (a Task) -> Chase -> handlers
//
// Invariants
// 1. Exact: what was told and not deleted is, when the follower has nothing left to do, the table;
//    each key that was told is either told again or deleted, over any number of writers.
// 2. A value that changed several times may be told once, as it is last. Changes of different keys are
//    told in the order of their last change, except by a walk over everything, which has none.
// 3. A change counts as told before its handler is called: where that raises, the exception passes to
//    the scheduler's caller, and the next slice goes on behind it.
// 4. A handler may end the follower, the reader or the source, and may change any table.
//
// Ownership: table and scheduler may end before it; it then tells nothing new.

#include "platform/Kiv/TaskScheduler.h"
#include "platform/Quarn/Chase.h"
#include "platform/Quarn/TableReader.h"

namespace Quarn {

/** Its end takes it out of a call of its own handlers: nothing is touched after it. */
template< Plain K, Plain V >
class Follower : private Kiv::Task, private FollowerLink {
 public:
   Follower( TableReader< K, V > * table, Kiv::TaskScheduler * scheduler, U32 priority )
       : Kiv::Task( scheduler, priority, "Quarn " + table->name() ), FollowerLink( table ),
         chase_( this ) {
      wake();
   }

   virtual void handleValue( const K & key, const V & value ) = 0;
   virtual void handleValueDel( const K & key ) = 0;
   /** Told everything of a new writer: what it lacks was deleted. */
   virtual void handleComplete() {}

   /** How often the writer was so far ahead that everything had to be walked. */
   U64 overtaken() const { return chase_.overtaken(); }
   /** Changes that were not looked at yet; while everything is walked, those since it began. */
   U64 behind() const { return chase_.behind(); }
   /** Keys that were told and not deleted. */
   U32 told() const { return chase_.toldKeys(); }
   /** Whether everything is told, as far as the process was awake to see it. */
   bool idle() const { return !awake(); }

 protected:
   /** A number that is kept with each key while it is told; 0 at first. In a handler, that of the
       handler's key, so that whoever follows needs no map of its own. */
   U32 note() const { return chase_.note(); }
   /** In handleValue(), before anything that may end the follower: any number but the greatest. */
   void noteIs( U32 note ) { chase_.noteIs( note ); }

 private:
   /** A member, so that its names are not in the way of those of whoever derives. */
   class Telling : public ChaseOf< wordsIn< K >, wordsIn< V > > {
      using Base = ChaseOf< wordsIn< K >, wordsIn< V > >;

    public:
      explicit Telling( Follower * follower ) : follower_( follower ) {}
      using Base::hasNews;
      using Base::note;
      using Base::noteIs;
      using Base::work;
      using typename Base::Work;

    private:
      void tell( const typename Base::Key & key, const typename Base::Value & value ) override {
         follower_->handleValue( valueOf< K >( key ), valueOf< V >( value ) );
      }
      void tellDel( const typename Base::Key & key ) override {
         follower_->handleValueDel( valueOf< K >( key ) );
      }
      void tellComplete() override { follower_->handleComplete(); }
      bool yields() override { return follower_->shouldYield(); }
      Follower * follower_;
   };

   bool run() override {
      const auto work = chase_.work( reader() ? reader()->current() : nullptr );
      if ( work == Telling::Work::done && reader() ) {
         reader()->rest();
      }
      return work == Telling::Work::left;
   }
   void look() override {
      if ( !awake() && reader() && chase_.hasNews( reader()->current() ) ) {
         wake();
      }
   }

   Telling chase_;
};

} // namespace Quarn
