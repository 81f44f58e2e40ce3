#pragma once
// A state machine of operations that complete later, at work on the chip, and what should have become
// of its requests.
//
//    request() -> the chip's state machine -> chip -> its answers, or the kit's -> AsyncHeard
//    helper's priority, sequence -> numbers that do not fall

#include <deque>
#include <set>

#include "chip/AsyncPart.h"
#include "conformance/Trial.h"
#include "conformance/async/Contracts.h"
#include "platform/Kiv/Listener.h"

namespace QonConformance::Async {

using QonChip::AsyncAnswers;
using QonChip::AsyncConclusion;
using QonChip::AsyncOperation;
using QonChip::HeldEntries;
using End = AsyncConclusion::End;

class AsyncStage {
 public:
   explicit AsyncStage( Trial & trial );
   ~AsyncStage();
   /** A helper, and a state machine that uses it. */
   void begin();
   void end() { sm = nullptr; }

   static String key( U32 n ) { return "key" + Kiv::toText( n ); }
   /** Another value than all before. */
   void request( U32 n ) { request( n, ++values_ ); }
   void request( U32 n, U32 value );
   void remove( U32 n ) { request( n, 0 ); }

   /** Skips the check if the chip cannot be made to answer so. */
   void answersAre( AsyncAnswers answers );
   /** The place of an operation of the key that was handed over, has another value than `former`, and
       is not answered yet, once there is one; `contract` is broken if none comes. */
   U32 started( const Contract & contract, U32 n, U32 former = 0 );
   void answer( U32 place, const String & error = "" );
   /** Whoever waits yet is answered, and what they let start, until nobody waits. */
   void answerAll();

   U32 open() const;
   bool openOf( U32 n ) const {
      return open_.contains( key( n ) ) && !open_.at( key( n ) ).empty();
   }
   U32 concluded() const { return concluded_; }
   /** Lets every request be concluded; judges what was heard until then. */
   void rest( const Contract & contract );
   void judgeHeard() const;
   /** At rest the entries are what was wanted last, but for what failed. */
   void judge( const Contract & contract );
   /** What the entry of a key is; 0 if it is not there, or the chip cannot be read back. */
   U32 entry( U32 n );

   Trial & t;
   QonChip::AsyncPart & part;
   Ptr< Qon::QonAsyncBaseHelper > helper;
   Ptr< Qon::QonAsyncBaseSm > sm;
   std::vector< AsyncConclusion > conclusions; ///< of those that failed
   bool endsItself = false;                    ///< drops the state machine in the next conclusion

 private:
   struct Entry {
      U32 value = 0;
      bool sure = true; ///< its newest request was not concluded with an error
   };
   void heard( const AsyncConclusion & conclusion );
   void heardPriority();
   void heardSequence( const String & key );

   U32 values_ = 0, concluded_ = 0;
   std::map< String, std::deque< U32 > > open_; // requests without a conclusion
   std::map< String, Entry > wanted_;
   std::set< U32 > answered_; // places
   U32 priority_ = 0;
   std::map< String, U16 > sequence_;
   String notOnce_, notHeld_, notFalling_;
   Kiv::Listener< Qon::QonAsyncBaseHelper::priorityAttr > priorities_;
   Kiv::Listener< Qon::QonAsyncBaseHelper::sequenceAttr > sequences_;
};

} // namespace QonConformance::Async
