#pragma once
// Routes as text, a line a route:
//
//    0 10.1.0.0/16 192.0.2.1@Ethernet1 192.0.2.5@Ethernet2*3      VRF, prefix, next hops with weights
//    0 2001:db8::/32 2001:db8:ffff::1@Port-Channel7+16001+17*2    labels, the outermost first
//    0 10.2.0.0/24 @Vlan10                                        attached
//    0 10.3.0.0/16 drop        5 10.0.0.1/32 local
//    fec 7 192.0.2.1@Ethernet1 192.0.2.5@Ethernet2                a class that has a number
//    0 10.4.0.0/16 fec 7                                          the next hops of that class
//    0 10.1.0.0/16 -           fec 7 -                            it is no more
//    # a remark
//
// Invariants
// 1. A line is understood whole or refused with one line that says what was expected.
// 2. Host bits of a prefix are refused, not cleared: two lines never mean one route unseen.

#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/types/Fib.h"

namespace QonAgent {

using Velto::String;

/** Where packets of a class go. */
struct FibContent {
   Quarn::Fib::FecType type = Quarn::Fib::FecType::forward;
   std::vector< Quarn::Fib::Via > vias; ///< without a version
   bool operator==( const FibContent & ) const = default;
};

/** What a line says: of a route, or of a class that has a number. */
struct FibLine {
   bool ofRoute = true;
   bool removed = false;
   Quarn::Fib::RouteKey route;
   /** The class that the line is about, or that a route leads to in place of a content. */
   std::optional< Quarn::Fib::GlobalFecId > fec;
   FibContent content;
};

/** Numbers of classes in a file are below this one. */
constexpr U64 mostNamedFec = 0xffffffff;

/** None of an empty line or a remark. Raises Velto::RangeError. */
std::optional< FibLine > parseFibLine( std::string_view line );
/** All lines of a file's text, in order. Raises Velto::RangeError "FILE:LINE: what" for the first
    that is wrong, and what `act` raises in the same way. */
void eachFibLine( const String & file, std::string_view text,
                  const std::function< void( FibLine && ) > & act );

} // namespace QonAgent
