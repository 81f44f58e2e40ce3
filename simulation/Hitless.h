#pragma once
// What the chip holds while an agent is killed and another one comes up: an object that is the same
// before and after must be the same all the time between.
//
//    Hitless watch( holdings ) -> look( holdings, during ) after each call to the chip and each turn
//                              -> judge( holdings at rest )

#include <map>

#include "platform/Velto/Types.h"

namespace Sim {

using Velto::String;

/** What the chip holds: the name of an object, and what it says of it. */
using Holdings = std::map< String, String >;

class Hitless {
 public:
   explicit Hitless( Holdings before ) : before_( std::move( before ) ), last_( before_ ) {}

   /** `during`: what was done last. */
   void look( Holdings now, const String & during );
   /** Empty, or "hitless: ..." of an object that was disturbed for nothing. */
   String judge( const Holdings & after ) const;

 private:
   const Holdings before_;
   Holdings last_;
   std::map< String, String > disturbed_; ///< object -> what became of it first
};

} // namespace Sim
