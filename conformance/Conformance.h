#pragma once
// The conformance kit: shows whether the hook classes of a chip-specific agent keep what their
// contracts promise.
//
//    the kit, a process for each check --makes--> Bench --MakeChip--> ChipAdapter
//    scripted and random histories -> configuration -> the library's state machines
//          -> hooks of the adapter's classes -> chip -> completions -> state machines
//    the kit reads back what the chip holds, if the adapter can tell, and judges
//
// How to use it: fill a ChipAdapter in a function, and hand that to conformanceMain() in a program
// that links Qon::Conformance. docs/writing-a-chip-agent.md shows it step by step.
//
// Invariants
// 1. Each check has a bench and a chip of its own, in a process of its own: one that crashes or
//    hangs is a finding and ends nothing else.
// 2. Time is virtual: what takes seconds on a chip takes none here. The same seed gives the same
//    history.
// 3. A finding names the contract that was broken, what was done, what was expected and what was
//    found.
//
// Needs the library and the standard library only.

#include <cstdio>
#include <functional>
#include <map>
#include <set>
#include <vector>

#include "Qon/include/framework/QonCommonSmData.h"
#include "Qon/include/mac/QonChipProgrammer.h"
#include "Qon/include/topology/QonStpSm.h"
#include "Qon/include/topology/QonVlanHelper.h"
#include "platform/Kiv/TaskScheduler.h"
#include "platform/types/HardwareLag.h"

namespace QonConformance {

using Velto::Ptr;
using Velto::String;

/** What a chip stands in; made anew for each check, and there longer than the adapter. */
struct Bench {
   Kiv::TaskScheduler & scheduler; ///< chips that take time arm clocks of its wheel
   Ptr< Qon::QonCommonSmData > acsd;
   Ptr< const Hardware::Lag::Config > lagConfig; ///< the groups that the chip shall hold
   Ptr< Hardware::Lag::Status > lagStatus;       ///< what became of them, written by the adapter
};

/** What the chip holds of one topology. */
struct HeldTopology {
   std::set< U16 > vlans;
   std::map< Ulnet::IntfId, Bridging::Topology::PortState > ports;
   bool operator==( const HeldTopology & ) const = default;
};

/** A chip, by the classes that derive from the library's and by what it can tell. What a chip has
    not stays empty; the checks that need it are skipped. The functions share the chip, which lives
    until the adapter is gone. */
struct ChipAdapter {
   /** @name Hook classes
       Each is called at most once, returns an object of its own, and need not initialize it. */
   /** @{ */
   std::function< Ptr< Qon::QonMacProgrammer >() > makeMacProgrammer;
   std::function< Ptr< Qon::TopoHelper >() > makeTopoHelper;
   std::function< Ptr< Qon::VlanHelper >() > makeVlanHelper;
   /** Follows Bench::lagConfig while it lives, and reports in Bench::lagStatus. */
   std::function< Ptr< Velto::Node >() > makeLagProgrammer;
   /** The state machine of topologies, if the chip derives from it; it is given what StpSmIs()
       takes. Without it the kit derives one that takes every setting of BPDU trapping. */
   std::function< Ptr< Qon::StpSm >(
         Ptr< Qon::QonCommonSmData >, Ptr< const Bridging::Topology::Config >,
         Ptr< Bridging::Topology::Inst::Status >, Ptr< Qon::TopoHelper > ) >
         makeStpSm;
   /** @} */

   /** @name Reading back
       What the chip holds now; not what it was asked for. */
   /** @{ */
   bool tablesInHooks =
         false; ///< the tables go with the hook objects, as those of a simulated chip
   std::function< std::map< Qon::MacEntryKey, Ulnet::IntfId >() > hosts;
   std::function< std::map< String, HeldTopology >() > topologies;
   using Ports = std::map< Ulnet::IntfId, Qon::VlanMembership >;
   std::function< std::map< U16, Ports >() > vlans; ///< those with members
   std::function< std::map< Ulnet::IntfId, std::set< Ulnet::IntfId > >() > lags;
   /** @} */

   /** Lets a chip work that does not run on the bench's clocks: returns when it has had this many
       seconds for what it was asked. Called before virtual time moves on by as much. */
   std::function< void( Kiv::Seconds ) > pump;

   std::vector< Ulnet::IntfId > ports; ///< that the checks may use; Ethernet1 to 64 by default
   /** The hardware port of each; by default chip 0, numbered in the order of `ports` from 0. */
   std::function< Qon::FapIdPort( Ulnet::IntfId ) > fapIdPort;
   U32 hostsToFill = 20'000;        ///< so many hosts overfill the table; 0: it cannot be filled
   Kiv::Seconds answersWithin = 10; ///< the chip has answered everything after so long
};

/** Makes the adapter of one check. */
using MakeChip = std::function< ChipAdapter( const Bench & ) >;

/** What a chip-specific agent promises. Ids are stable. */
struct Contract {
   const char * id;      ///< "mac.full"
   const char * promise; ///< one sentence
};
const std::vector< Contract > & contracts();

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
   String check;
   String skipped; ///< why it was not made; empty if it was
   std::vector< Finding > findings;
};

struct Options {
   String only;            ///< a contract's id, or a feature ("mac"); empty: all
   U64 seed = 1;           ///< of the random histories
   U32 steps = 2'000;      ///< of each random history
   U32 secondsToHang = 60; ///< a check that takes longer in real time is a finding
};

/** Makes the checks. Velto::RangeError if `only` names nothing. `report` hears each outcome. */
std::vector< Outcome >
runChecks( const MakeChip & make, const Options & options,
           const std::function< void( const Outcome & ) > & report = nullptr );

/** The findings, each contract once. */
std::vector< Finding > findingsOf( const std::vector< Outcome > & outcomes );

/** The program: --list, --only ID, --seed N, --steps N, --json, --help. Returns its exit status: 0
    for no findings, 1 for some, 2 for a wrong command line. */
int conformanceMain( int argc, const char * const * argv, const MakeChip & make );

} // namespace QonConformance
