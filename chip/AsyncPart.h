#pragma once
// Operations that complete later: what a chip brings that runs them over the library's asynchronous
// bases.
//
//    asyncRequest( sm, key, value ) -> the chip's QonAsyncBaseSm -> nextPriority(),
//          getNextSequence( key ) -> chip ... later, inside of the call, or never ...
//          -> the helper's asyncOperationResultIs() -> handleAsyncOperationResult() -> AsyncHeard
//
// What an operation does is the chip's: to whoever looks from here it makes an entry have a value, or
// takes the entry away. The library starts none by itself: what a chip's own features do with theirs
// is between them and the part.
//
// Invariants
// 1. A request is concluded once: in the order of the requests of its key, or in place of it when a
//    newer one replaced it before it was handed to the chip.
// 2. A state machine has a helper of its own; an answer goes to the helper that numbered its
//    operation, also when its state machine is gone and another one is there.
// 3. The chip keeps the newest operation of an entry: one that it completes after a later one changes
//    nothing.

#include <map>

#include "Qon/include/framework/QonAsyncBaseSm.h"
#include "chip/Chip.h"

namespace QonChip {

/** Entries by key; 0 is no value. */
using HeldEntries = std::map< String, U32 >;

/** An operation as the state machine hands it to the chip. */
struct AsyncOperation {
   String key;
   U32 value = 0;    ///< that the entry shall have; 0: it shall go
   U32 priority = 0; ///< of nextPriority()
   U16 sequence = 0; ///< of getNextSequence( key )
   bool operator==( const AsyncOperation & ) const = default;
};

/** What became of a request. */
struct AsyncConclusion {
   enum class End : U8 {
      held,     ///< the chip has it
      failed,   ///< see `error`; the entry may be as it was
      replaced, ///< by a newer request of its key
   };
   String key;
   U32 value = 0; ///< of the request
   End end = End::held;
   String error; ///< as the chip reported it; of one that was given up, the state machine's
};
using AsyncHeard = std::function< void( const AsyncConclusion & ) >;

/** When the chip answers. */
enum class AsyncAnswers : U8 {
   later,  ///< as it always does
   inside, ///< before the call that hands an operation over returns
   held,   ///< when asyncAnswer() says so
};

class AsyncPart {
 public:
   virtual ~AsyncPart() = default;

   /** The helper of one state machine. */
   virtual Ptr< Qon::QonAsyncBaseHelper > makeAsyncHelper() = 0;
   /** The state machine; not initialized yet. It tells `heard` what became of each request; that
       may drop the last reference to it. */
   virtual Ptr< Qon::QonAsyncBaseSm > makeAsyncSm( const Ptr< Qon::QonCommonSmData > & acsd,
                                                   const Ptr< Qon::QonAsyncBaseHelper > & helper,
                                                   AsyncHeard heard ) = 0;
   /** Asks a state machine of this part's for the operation that makes the entry so. */
   virtual void asyncRequest( Qon::QonAsyncBaseSm & sm, const String & key, U32 value ) = 0;

   /** The entries; none if the chip cannot be read back. */
   virtual std::optional< HeldEntries > asyncEntries() const { return std::nullopt; }

   /** @name The chip on a bench */
   /** @{ */
   /** Makes it answer so. False: it cannot be made to. */
   virtual bool asyncAnswersAre( AsyncAnswers answers ) { return answers == AsyncAnswers::later; }
   /** What was handed over since answers are held, answered or not, in the order in which it came. */
   virtual std::vector< AsyncOperation > asyncOperations() const { return {}; }
   /** Completes one of asyncOperations() by its place there, and answers; with an error it does
       nothing but answer. Again: the same answer comes once more. */
   virtual void asyncAnswer( U32 place, const String & error ) { (void)place, (void)error; }
   /** @} */
};

} // namespace QonChip
