#pragma once
// What one feature brings to the simulation: its state machines and its part of the chip, the
// operations that change its configuration, and what must hold.
//
//    World -> start() -> operation( event )... -> checkInvariants() after every event and turn
//          -> faultsIs( false ), time until nothing is due -> checkAtRest() -> faultsIs( true )
//          -> kill(), start() of all features: another agent over the same chip
//          -> tearDown(), rest again, checkTornDown() -> stop()
//
// The checks compute what is wanted from the configuration alone, and look at state machines
// through their public accessors and at the chip through what it holds. They return the empty
// text, or "name of what is broken: details"; the name tells failures apart.

#include "platform/Kiv/Log.h"
#include "platform/Kiv/Rng.h"
#include "platform/Velto/Assert.h"
#include "simulation/Event.h"
#include "simulation/Hitless.h"

namespace Sim {

using Kiv::Rng;

/** How an agent ends before another one comes up. */
enum class Ending : U8 {
   midway,  ///< killed in the middle of whatever it did
   atRest,  ///< killed with nothing under way
   planned, ///< at rest, and told before that it is for a restart
};

/** Raised on purpose, by a hook or a watcher: passes to whoever made the change. */
struct Raised : Velto::RangeError {
   Raised() : RangeError( "raised on purpose" ) {}
};

class SimFeature {
 public:
   explicit SimFeature( World & world ) : world_( world ) {}
   virtual ~SimFeature() = default;
   SimFeature( const SimFeature & ) = delete;
   SimFeature & operator=( const SimFeature & ) = delete;

   /** Creates the state machines: of the first agent, or of one after kill(). */
   virtual void start() {}
   /** The agent ends: state machines and hook objects go, and clean up at most what a planned ending
       lets them. What other agents publish and the chip stay; the shared data do not, see
       World::acsd. */
   virtual void kill( Ending ending ) { (void)ending; }
   /** Adds what the chip holds that an agent which comes up leaves alone, object by object. */
   virtual void held( Holdings & held ) const { (void)held; }
   /** Called before each of its operations; false: there is nothing that it could be done to. */
   virtual bool ready() { return true; }
   /** What stands now is about to be changed again, in the middle of an event. */
   virtual void meanwhile() {}
   /** After every step: what follows what happened from one step to the next. */
   virtual String checkStep() const { return {}; }
   /** What holds between any two steps; changes nothing, and may be left out (see Checks). */
   virtual String checkInvariants() const { return {}; }
   /** Called for every message that is logged. */
   virtual void heard( const Kiv::LogDescriptor &, const String & ) {}

   /** Adds the faults of its part of the chip: "<hook> <trouble> <first call> <calls> <in thousand>",
       "limit <table> <entries>". */
   virtual void drawFaults( Rng & rng, std::vector< String > & lines ) const {
      (void)rng;
      (void)lines;
   }
   /** Whether the chip's faults happen; without them whatever waits must come to an end. */
   virtual void faultsIs( bool ) {}
   virtual String checkAtRest() const { return {}; }
   /** Whether a clock may stay armed at rest for a reason of this feature. */
   virtual bool mayStayArmed() const { return false; }
   /** Whether it is in the middle of something that will come to an end. */
   virtual bool working() const { return false; }

   /** Takes all configuration away. */
   virtual void tearDown() {}
   virtual String checkTornDown() const { return {}; }
   /** Cleans the state machines up and releases them. */
   virtual void stop() {}

 protected:
   World & world_;
};

/** A number below `most`, as a fault's frequency in thousand. */
inline String
often( Rng & rng, U32 most ) {
   return std::to_string( rng.below( most ) );
}

/** The kind of a feature's class: it has operations(), and shape() if it sizes its own tables. */
template< class Feature >
FeatureKind
featureKindOf( const char * name ) {
   FeatureKind kind{ name, Feature::operations(),
                     []( World & world ) -> std::unique_ptr< SimFeature > {
                        return std::make_unique< Feature >( world );
                     },
                     nullptr };
   if constexpr ( requires { &Feature::shape; } ) {
      kind.shape = &Feature::shape;
   }
   return kind;
}

} // namespace Sim
