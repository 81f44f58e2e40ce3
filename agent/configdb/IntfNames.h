#pragma once
// How a ConfigDB file spells interfaces, both ways and without loss.
//
//    "PortChannel12" <-> Port-Channel12      "Vlan1000" <-> Vlan1000
//    "PortChannel0001" <-> Port-Channel1     "Eth36.10", "Ethernet36.10" <-> Ethernet36.10
//    "Po12.5" <-> Port-Channel12.5           "eth0" <-> Management0
//    "Ethernet-BP3" <-> Internal3            "Ethernet-Rec0" <-> InternalRecirc0
//
// Invariants
// 1. spelling( find( name ) ) == name for every defined name, and no two defined names share an
//    identifier. A name with leading zeros has its plain number as identifier, unless the file
//    has that number without zeros too: then 10,000 times its digits are added (PortChannel0001
//    beside PortChannel1 is Port-Channel40001).
// 2. An identifier that nobody defined is spelled as the format would.

#include <map>
#include <optional>
#include <vector>

#include "platform/types/IntfId.h"

namespace QonAgent {

using Velto::String;

class IntfNames {
 public:
   /** Defines the names of a file; those without leading zeros are served first. Names that name no
       interface are left out. Names that are defined already keep their identifier. */
   void define( const std::vector< String > & names );

   /** The identifier of a name: of a defined one, or of what the format means by it. Raises
       Velto::RangeError for a text that names no interface. */
   Ulnet::IntfId intf( const String & name ) const;
   /** The same, but takes our own spelling (Port-Channel12) too; what a user types. */
   Ulnet::IntfId typed( const String & name ) const;

   /** The defined names, in alphabetical order. */
   std::vector< String > defined() const;

   /** How the file spells it. Empty for the null interface. */
   String spelling( Ulnet::IntfId intf ) const;

 private:
   void defineOne( const String & name );

   std::map< String, Ulnet::IntfId > byName_;
   std::map< Ulnet::IntfId, String > byIntf_;
};

} // namespace QonAgent
