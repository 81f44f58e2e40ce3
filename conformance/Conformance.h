#pragma once
// The conformance kit: shows whether a chip keeps what the hooks of the library promise.
//
//    the kit, a process for each check --MakeChip--> QonChip::Chip --part< MacPart >()--> hook
//    objects scripted and random histories -> configuration -> the library's state machines
//          -> hook objects -> chip -> completions -> state machines
//    the kit reads back what the chip holds, if its parts can tell, and judges
//
// How to use it: hand the function that makes the chip to conformanceMain() in a program that links
// Qon::Conformance. docs/writing-a-chip-agent.md shows it step by step.
//
// Invariants
// 1. Each check has a chip of its own, in a process of its own: one that crashes or hangs is a
//    finding and ends nothing else.
// 2. Time is virtual: what takes seconds on a chip takes none here. The same seed gives the same
//    history.
// 3. A finding names the contract that was broken, what was done, what was expected and what was
//    found.
// 4. Nothing is called sound that was not looked at: checks of a part that a chip has not are
//    skipped, and what cannot be read back is said to be not looked at.
//
// Needs the library and the standard library only.

#include "chip/Chip.h"

namespace QonConformance {

using QonChip::MakeChip;
using Velto::Ptr;
using Velto::String;

/** What a chip-specific agent promises. Ids are stable. */
struct Contract {
   const char * id;      ///< "mac.full"
   const char * promise; ///< one sentence
};
/** All of them, feature by feature. */
std::vector< const Contract * > contracts();

/** One broken contract. */
struct Finding {
   String id;
   String promise;
   String did;
   String expected;
   String found;
};

/** What became of one check. */
struct Outcome {
   enum class Result : U8 {
      ok,
      broken,    ///< see `findings`
      skipped,   ///< not made, see `why`
      notLooked, ///< made, but the chip itself was not looked at, see `why`
   };
   String check; ///< the id of its contract
   Result result = Result::ok;
   String why;
   std::vector< Finding > findings;
};

struct Options {
   String only;            ///< a contract's id, or a feature ("mac"); empty: all
   U64 seed = 1;           ///< of the random histories
   U32 steps = 2'000;      ///< of each random history
   U32 secondsToHang = 60; ///< a check that takes longer in real time is a finding
};

/** Makes the checks. Velto::RangeError if `only` names nothing, or if `make` returns null. `report`
    hears each outcome. */
std::vector< Outcome >
runChecks( const MakeChip & make, const Options & options,
           const std::function< void( const Outcome & ) > & report = nullptr );

/** The findings, each contract once. */
std::vector< Finding > findingsOf( const std::vector< Outcome > & outcomes );

/** The program: --list, --only ID, --seed N, --steps N, --json, --junit, --help. Returns its exit status: 0
    for no findings, 1 for some, 2 for a wrong command line or if there is no chip. Its messages
    begin with the base name of argv[0]. */
int conformanceMain( int argc, const char * const * argv, const MakeChip & make );

} // namespace QonConformance
