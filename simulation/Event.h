#pragma once
// One thing that happens to the simulated agent, and how features say what can happen.
//
//    SimMac.cc: { "add", 30, { Range::key, Range::port }, &SimMac::add }
//                          an operation: name, weight, arguments, and what is done
//    "mac add 7 3"         an event: one line of text
//
// Invariants
// 1. An event says everything about itself in small numbers; it applies whatever happened before,
//    and does nothing where there is nothing to do it to. So any part of a history is a history.
// 2. The number of an argument is taken modulo the size of its range in the world at hand.

#include <array>
#include <concepts>
#include <memory>
#include <span>
#include <vector>

#include "platform/Velto/Types.h"

namespace SoftChip {
struct Shape;
}

namespace Sim {

using Velto::String;

class SimFeature;
class World;

/** What an argument chooses from; the sizes are the world's. */
enum class Range : U8 {
   none,
   port,    ///< physical ports
   lag,     ///< aggregates
   intf,    ///< ports, then aggregates
   vlan,    ///< VLANs
   topo,    ///< topologies
   key,     ///< MAC entries
   flag,    ///< 0 or 1
   few,     ///< 0 to 7
   hundred, ///< 0 to 99
   micros,  ///< a span of time up to ten minutes, in microseconds; most are short
};

constexpr U32 mostArguments = 5;

struct Event;

struct Operation {
   using Ranges = std::array< Range, mostArguments >;
   using Act = void ( SimFeature::* )( const Event & event );

   /** `act` is a member of the feature's own class. */
   template< class Feature >
   Operation( const char * n, U32 w, const Ranges & r,
              void ( Feature::*act )( const Event & event ) )
       : name( n ), weight( w ), ranges( r ), act( static_cast< Act >( act ) ) {}

   const char * name;
   U32 weight; ///< how often, compared with the other operations of all features; 0 is never
   Ranges ranges;
   Act act;
};

struct FeatureKind {
   const char * name;
   std::span< const Operation > operations;
   std::unique_ptr< SimFeature > ( *make )( World & world );
   /** Draws the size of its tables in the world's chip, before anything is made; null: as they are
       in any soft chip. */
   void ( *shape )( const World & world, SoftChip::Shape & shape );
   /** It is only in a plan that names it. */
   bool apart = false;
   /** It does nothing of its own: a plan that names it alone is one of all. */
   bool looksOn() const { return operations.empty(); }
};

/** Everything that can be simulated, in the order of creation. The first is part of every plan. */
std::span< const FeatureKind > featureKinds();
/** Its place in featureKinds(); featureKinds().size() if there is none of that name. */
U32 featureKind( std::string_view name );

struct Event {
   U8 feature = 0; ///< place in featureKinds()
   U8 operation = 0;
   std::array< U32, mostArguments > args{};

   U32 operator[]( U32 i ) const { return args[i]; }
   bool operator==( const Event & ) const = default;
   const Operation & kind() const { return featureKinds()[feature].operations[operation]; }

   String text() const;
   /** Raises Velto::RangeError for a line that is none. */
   static Event parsed( const String & line );
};

} // namespace Sim
