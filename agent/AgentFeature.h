#pragma once
// What one feature brings to the agent. One class a feature in agent/features/, one line each in
// agent/Features.cc.
//
//    Agent -> each feature is made, in the order of Features.cc, and ends in reverse
//    ConfigDB file -> configure( reader ) of all features -> what they queued is applied
//    qonctl show X -> ShowCommand X -> rows -> a table, or --json
//    --events FILE -> EventKind -> a change at its time
//
// A feature's constructor takes the agent: it mounts the entities, makes the state machines and
// sets them going. Its destructor takes them down, the language doing so where it can.
//
// Invariants
// 1. configure() and EventKind::parse change nothing; what they return or queue does.
// 2. A feature reaches another one only through Orvane, the shared agent data, and the hook objects
//    that they share (Agent::shared()). Any order of features comes to the same end.
// 3. A feature whose part the chip has not does without, and says so when it is asked.

#include <functional>
#include <memory>
#include <vector>

#include "agent/Show.h"
#include "agent/base/Json.h"

namespace QonAgent {

using Velto::String;

class Agent;
class ConfigReader;

/** A table of a ConfigDB file, for those who write one. */
struct ConfigTable {
   String name;
   String key; ///< its parts, "port-channel|port"
   /** Those that are read: a name, and what it may say. */
   std::vector< std::pair< String, String > > fields;
   std::vector< String > examples; ///< rows: "key": {...}
};

/** One kind of line of an event stream: {"time": 1.5, "event": NAME, ...}. */
struct EventKind {
   String name;
   String help; ///< an example of the line
   /** Checks a line and returns what makes it happen. Velto::RangeError says what is wrong. */
   std::function< std::function< void() >( const Json & line ) > parse;
   std::vector< String > examples = {}; ///< further lines, of its other forms
};

/** Features check their tables in this order: what a stage finds in the file is known to those
    behind it. */
enum class ConfigStage : U8 { ports, aggregates, vlans, others };

/** How often, or how much of, something there was or is. */
struct Counter {
   const char * name; ///< "commands that wait"
   U64 value;
};

class AgentFeature {
 public:
   AgentFeature() = default;
   AgentFeature( const AgentFeature & ) = delete;
   AgentFeature & operator=( const AgentFeature & ) = delete;
   virtual ~AgentFeature() = default;

   /** The tables of a ConfigDB file that configure() understands. */
   virtual std::vector< ConfigTable > tables() const { return {}; }
   virtual ConfigStage configStage() const { return ConfigStage::others; }
   /** Checks the rows of its tables and queues, with reader.apply(), what makes entities of them. A
       file that comes behind another one is a difference to it: what was said and is no more is
       taken away, what is said as before is left alone. See ConfigReader.h and Configured.h. */
   virtual void configure( ConfigReader & reader ) { (void)reader; }

   /** The state and the configuration that the agent starts with have been read. */
   virtual void inputsRead() {}

   virtual std::vector< Counter > counters() const { return {}; }
   /** How the names of what is its own begin: classes of hooks, types of the state database, tasks. */
   virtual std::vector< String > ownNames() const { return {}; }
   virtual std::vector< ShowCommand > showCommands() { return {}; }
   virtual std::vector< EventKind > eventKinds() { return {}; }
};

/** A choice that a feature leaves to whoever starts the agent: `--NAME WORD`; or a path at which
    something comes to it from outside, which no recording has: `--NAME PATH`. */
struct FeatureOption {
   String name;
   std::vector< String > words; ///< the first is taken unless another is chosen; none: a path
   String help;
};

/** How a feature is made; `name` is one word. */
struct FeatureKind {
   String name;
   std::vector< FeatureOption > options;
   std::function< std::unique_ptr< AgentFeature >( Agent & agent ) > make;
};
using Features = std::vector< FeatureKind >;

/** The kind of a feature's class. */
template< class Feature >
FeatureKind
feature( const String & name, std::vector< FeatureOption > options = {} ) {
   return { name, std::move( options ),
            []( Agent & agent ) { return std::make_unique< Feature >( agent ); } };
}

/** Every feature of the agent, in the order in which they are made. */
Features agentFeatures();

} // namespace QonAgent
