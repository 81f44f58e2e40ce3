#pragma once
// What one feature brings to the reference agent. One class a feature in agent/features/, one line
// each in agent/Features.cc.
//
//    Agent -> create() ... in the order of Features.cc; destroy() ... in reverse
//    ConfigDB file -> configure( reader ) of all features -> what they queued is applied
//    qonctl show X -> ShowCommand X -> rows -> a table, or --json
//    --events FILE -> EventKind -> a change at its time
//
// Invariants
// 1. configure() and EventKind::parse change nothing; what they return or queue does.
// 2. A feature reaches another one only through Orvane and the shared agent data.

#include <functional>
#include <memory>
#include <vector>

#include "agent/Json.h"
#include "agent/softchip/ChipKind.h"
#include "platform/Velto/Types.h"

namespace QonAgent {

using Velto::String;

class Agent;
class ConfigReader;

/** One column of a table. */
struct Column {
   const char * field;   ///< of a row's object
   const char * heading; ///< what stands above it
   bool numeric = false; ///< numbers stand to the right
};

/** `qonctl show NAME [ARGUMENT...]`. */
struct ShowCommand {
   String name;      ///< "port-channel"; a blank inside makes words of it, "hw mac"
   String help;      ///< one line
   String arguments; ///< as help shows them, "[NAME]"; empty: it takes none
   std::vector< Column > columns;
   /** An array of objects, a row each. A field that `columns` does not name is in --json only; an
       array of texts is shown with commas. Bad arguments: Velto::RangeError. */
   std::function< Json( const std::vector< String > & arguments ) > rows;
};

/** One kind of line of an event stream: {"time": 1.5, "event": NAME, ...}. */
struct EventKind {
   String name;
   String help; ///< an example of the line
   /** Checks a line and returns what makes it happen. Velto::RangeError says what is wrong. */
   std::function< std::function< void() >( const Json & line ) > parse;
};

class AgentFeature {
 public:
   AgentFeature() = default;
   AgentFeature( const AgentFeature & ) = delete;
   AgentFeature & operator=( const AgentFeature & ) = delete;
   virtual ~AgentFeature() = default;

   virtual const char * name() const = 0;

   /** Mounts the entities, makes the state machines and sets them going. Called once, before any
       configuration. */
   virtual void create( Agent & agent ) = 0;
   /** Takes down what create() made; the features after it are gone already. */
   virtual void destroy() {}

   /** The tables of a ConfigDB file that configure() understands. */
   virtual std::vector< String > tables() const { return {}; }
   /** Checks the rows of its tables and queues, with reader.apply(), what makes entities of them.
       See configdb/ConfigReader.h. */
   virtual void configure( ConfigReader & reader ) { (void)reader; }

   virtual std::vector< ShowCommand > showCommands() { return {}; }
   virtual std::vector< EventKind > eventKinds() { return {}; }
};

using Features = std::vector< std::unique_ptr< AgentFeature > >;

/** Every feature of the agent, in the order in which they are created. */
Features agentFeatures( SoftChip::ChipKind chip = SoftChip::ChipKind::topology );

} // namespace QonAgent
