#pragma once
// What a feature has to show: commands with typed arguments, and rows of plain values.
//
//    words of a client -> runShow() -> arguments checked -> ShowCommand::rows -> Rows
//
// Invariants
// 1. A command gets arguments that are whole, and that name what there is: runShow() alone says
//    what is wrong with one.
// 2. Rows are taken one by one, see Rows.h.

#include <functional>
#include <optional>
#include <vector>

#include "agent/Rows.h"
#include "platform/Kiv/Text.h"
#include "platform/types/Bridging.h"
#include "platform/types/Ulnet.h"

namespace QonAgent {

using Kiv::yesNo;
using Velto::String;

class Agent;

/** One column of a table. */
struct Column {
   const char * field;   ///< of a row
   const char * heading; ///< what stands above it
   bool numeric = false; ///< numbers stand to the right
};

/** An argument that a client gave; the member of its kind is set beside `text`. */
struct ArgumentValue {
   bool given = false;
   String text;
   Ulnet::IntfId intf;
   Bridging::VlanIdOrNone vlan;
   Ulnet::EthAddr mac;
};

/** What a command can be given. */
struct Argument {
   enum class Kind : U8 { intf, vlan, mac, text };
   Kind kind = Kind::text;
   String name; ///< as help shows it: "PORT"
   String what; ///< in "there is no <what> 'Ethernet9'"
   bool required = false;
   /** Whether there is such a thing; none: whatever can be parsed. */
   std::function< bool( const ArgumentValue & value ) > known;
   /** The word behind which it stands, after those without one and in any order: "vlan" of "show mac
       vlan 10". Empty: it is known by its place. */
   String keyword = "";
};

/** What a text is as that argument. Raises Velto::RangeError, if it is none or names nothing that
    there is. */
ArgumentValue argumentValue( const Agent & agent, const Argument & argument, const String & text );

/** The arguments of one call, by their place in ShowCommand::arguments; what was not given is null,
    none, or empty. */
class Arguments {
 public:
   explicit Arguments( std::vector< ArgumentValue > given ) : given_( std::move( given ) ) {}
   bool has( std::size_t place ) const { return place < given_.size() && given_[place].given; }
   Ulnet::IntfId intf( std::size_t place ) const { return at( place ).intf; }
   Bridging::VlanIdOrNone vlan( std::size_t place ) const { return at( place ).vlan; }
   Ulnet::EthAddr mac( std::size_t place ) const { return at( place ).mac; }
   const String & text( std::size_t place ) const { return at( place ).text; }

 private:
   const ArgumentValue & at( std::size_t place ) const;
   std::vector< ArgumentValue > given_;
};

/** `qonctl show NAME [ARGUMENT...]`. */
struct ShowCommand {
   String name; ///< "port-channel"; a blank inside makes words of it, "hw mac"
   String help; ///< one line
   std::vector< Argument > arguments; ///< required ones first
   /** A field that `columns` does not name is in --json only. */
   std::vector< Column > columns;
   /** Velto::RangeError, with the first row at the latest: it cannot be shown, and why. */
   std::function< Rows( const Arguments & arguments ) > rows;
};

/** "PORT [VLAN]"; empty for a command without. */
String argumentHelp( const ShowCommand & command );

/** The command that most of the words name; null for none. */
const ShowCommand * findShow( const std::vector< ShowCommand > & commands,
                              const std::vector< String > & words );

/** What the words say: the command's name, and its arguments. Raises Velto::RangeError for wrong
    ones. */
Rows runShow( const Agent & agent, const ShowCommand & command,
              const std::vector< String > & words );

} // namespace QonAgent
