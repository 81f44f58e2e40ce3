#pragma once
// What a feature has to show: commands with typed arguments, and rows of plain values.
//
//    words of a client -> runShow() -> arguments checked -> ShowCommand::rows -> a row at a time
//
// Invariants
// 1. A command gets arguments that are whole, and that name what there is: runShow() alone says
//    what is wrong with one.
// 2. Rows go to the sink one by one; nobody keeps them all.

#include <functional>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

#include "platform/types/Bridging.h"
#include "platform/types/Ulnet.h"

namespace QonAgent {

using Velto::String;

class Agent;

/** What stands in one field of a row: a text, a number, a list of texts, or nothing. */
class Value {
 public:
   using List = std::vector< String >;
   using Held = std::variant< std::monostate, String, U64, double, List >;

   Value() = default;
   Value( const char * text ) : held_( String( text ) ) {}
   Value( String text ) : held_( std::move( text ) ) {}
   Value( U64 number ) : held_( number ) {}
   Value( U32 number ) : held_( U64( number ) ) {}
   Value( double number ) : held_( number ) {}
   Value( List list ) : held_( std::move( list ) ) {}
   Value( bool ) = delete; // yesNo()

   const Held & held() const { return held_; }

 private:
   Held held_;
};

using Kiv::yesNo;

/** Fields in the order in which they were set. */
class Row {
 public:
   using Field = std::pair< const char *, Value >;
   Row( std::initializer_list< Field > fields ) : fields_( fields ) {}
   void set( const char * field, Value value );
   const std::vector< Field > & fields() const { return fields_; }

 private:
   std::vector< Field > fields_;
};

using RowSink = std::function< void( const Row & row ) >;

/** One column of a table. */
struct Column {
   const char * field;   ///< of a row
   const char * heading; ///< what stands above it
   bool numeric = false; ///< numbers stand to the right
};

/** An argument that a client gave; the member of its kind is set beside `text`. */
struct ArgumentValue {
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
};

/** The arguments of one call, by their place; what was not given is null, none, or empty. */
class Arguments {
 public:
   explicit Arguments( std::vector< ArgumentValue > given ) : given_( std::move( given ) ) {}
   bool has( std::size_t place ) const { return place < given_.size(); }
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
   /** Velto::RangeError: it cannot be shown, and why. */
   std::function< void( const Arguments & arguments, const RowSink & sink ) > rows;
};

/** "PORT [VLAN]"; empty for a command without. */
String argumentHelp( const ShowCommand & command );

/** The command that most of the words name; null for none. */
const ShowCommand * findShow( const std::vector< ShowCommand > & commands,
                              const std::vector< String > & words );

/** Shows what the words say: the command's name, and its arguments. Raises Velto::RangeError before
    the first row. */
void runShow( const Agent & agent, const ShowCommand & command, const std::vector< String > & words,
              const RowSink & sink );

} // namespace QonAgent
