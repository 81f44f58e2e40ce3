// The kit: a healthy chip passes, and every fault is found under the contract that it breaks.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <set>

#include "conformance/Conformance.h"
#include "examples/broken-chip/Chip.h"
#include "tests/conformance/Programs.h"

namespace {

using namespace QonConformance;
using Chip::ChipLag;
using Chip::ChipMac;
using Chip::ChipTopo;
using Chip::ChipVlan;
using Chip::Faults;
using Chip::SmallChip;
using Chip::Tables;

// Faults beyond those of the example.

struct AnswersTwice : ChipMac {
   using ChipMac::ChipMac;
   Status writeToHw( const Qon::MacCmdPtr & cmd ) override {
      again.add(
            [this, id = cmd->transactionId()] { again.add( [this, id] { later( id, 100 ); } ); } );
      return ChipMac::writeToHw( cmd );
   }
   void later( U64 id, int steps ) {
      if ( steps ) {
         again.add( [=, this] { later( id, steps - 1 ); } );
      } else {
         handleCmdResponse( id, 0, Status::macProgramSuccess );
      }
   }
   Later again{ timerWheel() };
};
struct StrangeStatus : ChipMac {
   using ChipMac::ChipMac;
   Status writeToHw( const Qon::MacCmdPtr & cmd ) override {
      handleCmdResponse( cmd->transactionId(), 0, Status::macProgramFlushInProgress );
      return Status::macProgramSuccess;
   }
};
struct FirstWishStays : ChipMac {
   FirstWishStays( Tables & tables, Faults faults, Kiv::TimerWheel * wheel )
       : ChipMac( tables, faults, wheel ), held( tables ) {}
   Status writeToHw( const Qon::MacCmdPtr & cmd ) override {
      if ( cmd->type() == Type::addHost && held.hosts.contains( cmd->key() ) ) {
         handleCmdResponse( cmd->transactionId(), 0, Status::macProgramSuccess );
         return Status::macProgramSuccess;
      }
      return ChipMac::writeToHw( cmd );
   }
   Tables & held;
};
struct NoHook : Qon::QonMacProgrammer {
   NoHook( Tables &, Faults, Kiv::TimerWheel * wheel ) : QonMacProgrammer( wheel ) {}
};
struct Hangs : ChipMac {
   using ChipMac::ChipMac;
   Status writeToHw( const Qon::MacCmdPtr & ) override {
      for ( volatile bool forever = true; forever; ) {
      }
      return Status::macProgramSuccess;
   }
};
struct DoneForgotten : ChipVlan {
   using ChipVlan::ChipVlan;
   void doUpdateVlan( Bridging::VlanId vlan ) override {
      if ( vlan != Bridging::VlanId( 123 ) ) {
         ChipVlan::doUpdateVlan( vlan );
      }
   }
};
struct DoneWithoutWriting : ChipVlan {
   using ChipVlan::ChipVlan;
   void doUpdateVlan( Bridging::VlanId vlan ) override {
      U32 members = 0;
      forEachHwPort( vlan, [&]( auto, auto ) { ++members; } );
      if ( members == 3 ) {
         updateVlanDone( vlan, Qon::VlanProgrammingStatus::success );
      } else {
         ChipVlan::doUpdateVlan( vlan );
      }
   }
};
struct TopoNotDone : ChipTopo {
   using ChipTopo::ChipTopo;
   void setStpState( S32 id, const String & name, Ulnet::IntfId intf, PortState state ) override {
      if ( state != PortState::learning ) {
         ChipTopo::setStpState( id, name, intf, state );
      }
   }
};
struct TopoNotFreed : ChipTopo {
   using ChipTopo::ChipTopo;
   void freeTopo( const String & ) override {}
};
struct VlanStays : ChipTopo {
   using ChipTopo::ChipTopo;
   void delVlanFromTopo( const String &, U16 ) override {}
};
struct FewVlans : ChipTopo {
   using ChipTopo::ChipTopo;
   void addVlanToTopo( const String & name, U16 vlan ) override {
      if ( vlan <= 1024 ) {
         ChipTopo::addVlanToTopo( name, vlan );
      }
   }
};
struct DiesOfAbsence : ChipTopo {
   DiesOfAbsence( Tables & tables, Faults faults, Kiv::TimerWheel * wheel )
       : ChipTopo( tables, faults, wheel ), held( tables ) {}
   void delVlanFromTopo( const String & name, U16 vlan ) override {
      held.topologies.at( name ).vlans.erase( vlan );
   }
   Tables & held;
};
/** Follows nothing and reports nothing. */
struct DeadLag : Velto::Node {
   template< class... Args >
   explicit DeadLag( Args &&... ) {}
};
/** A hook class that begins with empty tables. */
template< class Hook >
struct StartsEmpty : Hook {
   template< class... Args >
   explicit StartsEmpty( Tables & tables, Args &&... args )
       : Hook( tables, std::forward< Args >( args )... ) {
      tables = {};
   }
};
/** The chip answers to whoever is there, and not to the one who asked. */
struct AnswersSuccessor : ChipMac {
   AnswersSuccessor( Tables & tables, Faults faults, Kiv::TimerWheel * wheel )
       : ChipMac( tables, faults, wheel ) {
      chip = chip ? chip : new Later( wheel );
      present = this;
   }
   Status writeToHw( const Qon::MacCmdPtr & cmd ) override {
      chip->add( [id = cmd->transactionId()] {
         present->handleCmdResponse( id, 0, Status::macProgramSuccess );
      } );
      return Status::macProgramInProgress;
   }
   static inline Later * chip = nullptr;
   static inline AnswersSuccessor * present = nullptr;
};
struct ReportsToSuccessor : ChipVlan {
   ReportsToSuccessor( Tables & tables, Faults faults, const Qon::QonCommonSmData * acsd,
                       Kiv::TimerWheel * wheel )
       : ChipVlan( tables, faults, acsd, wheel ), held( tables ) {
      chip = chip ? chip : new Later( wheel );
      present = this;
   }
   void doUpdateVlan( Bridging::VlanId vlan ) override {
      QonChip::HeldVlan members;
      forEachHwPort( vlan, [&]( auto intf, auto how ) { members[intf] = how; } );
      chip->add( [=, &held = held] { // the chip's, which outlives this
         held.vlans[vlan] = members;
         present->updateVlanDone( vlan, Qon::VlanProgrammingStatus::success );
      } );
   }
   Tables & held;
   static inline Later * chip = nullptr;
   static inline ReportsToSuccessor * present = nullptr;
};

template< class Chip >
std::unique_ptr< QonChip::Chip >
make( Kiv::TaskScheduler & scheduler ) {
   return std::make_unique< Chip >( scheduler );
}

std::vector< Outcome >
outcomes( const MakeChip & make, const String & only ) {
   Options options;
   options.only = only;
   options.steps = 300;
   options.secondsToHang = 2;
   return runChecks( make, options );
}

template< class T >
using WithMac = SmallChip< T >;
template< class T >
using WithTopo = SmallChip< ChipMac, T >;
template< class T >
using WithVlan = SmallChip< ChipMac, ChipTopo, T >;
template< class T >
using WithLag = SmallChip< ChipMac, ChipTopo, ChipVlan, T >;

TEST( Conformance, EveryFaultBreaksItsContract ) {
   struct {
      const char * check; ///< that is made
      const char * contract;
      const char * found;
      MakeChip make;
   } const cases[] = {
         { "mac.held", "mac.unasked", "not in flight", make< WithMac< AnswersTwice > > },
         { "mac.held", "mac.status", "unexpected mac program status",
           make< WithMac< StrangeStatus > > },
         { "mac.newest", "mac.newest", " at Ethernet", make< WithMac< FirstWishStays > > },
         { "mac.held", "hook.missing", "writeToHw", make< WithMac< NoHook > > },
         { "mac.held", "mac.held", "did not return within 2 s", make< WithMac< Hangs > > },
         { "vlan.done", "vlan.done", "VLAN 123 waits", make< WithVlan< DoneForgotten > > },
         { "vlan.random", "vlan.newest", "", make< WithVlan< DoneWithoutWriting > > },
         { "topo.done", "topo.done", "learning is not reported", make< WithTopo< TopoNotDone > > },
         { "topo.cleanup", "topo.cleanup", "Topo0", make< WithTopo< TopoNotFreed > > },
         { "topo.vlan", "topo.vlan", "10", make< WithTopo< VlanStays > > },
         { "topo.absent", "topo.absent", "map::at", make< WithTopo< DiesOfAbsence > > },
         { "topo.tapagg", "topo.tapagg", " VLANs, forwarding", make< WithTopo< FewVlans > > },
         { "lag.result", "lag.result", "has no status", make< WithLag< DeadLag > > },
         { "mac.successor", "mac.successor", "not so", make< WithMac< StartsEmpty< ChipMac > > > },
         { "mac.successor", "mac.successor", "transaction", make< WithMac< AnswersSuccessor > > },
         { "vlan.successor", "vlan.successor", "VLAN 30", make< WithVlan< ReportsToSuccessor > > },
         { "topo.successor", "topo.successor", "", make< WithTopo< StartsEmpty< ChipTopo > > > },
         { "lag.successor", "lag.successor", "", make< WithLag< StartsEmpty< ChipLag > > > },
   };
   for ( auto & c : cases ) {
      auto found = findingsOf( outcomes( c.make, c.check ) );
      ASSERT_EQ( found.size(), 1u ) << c.check << " for " << c.contract;
      EXPECT_EQ( found[0].id, c.contract ) << found[0].found;
      EXPECT_NE( found[0].found.find( c.found ), String::npos )
            << c.check << ": " << found[0].found;
      EXPECT_FALSE( found[0].promise.empty() || found[0].expected.empty() );
   }
}

/** The program of the example. */
int
brokenChip( const String & arguments, String & text ) {
   return Tests::runProgram( "broken-chip " + arguments, text );
}

TEST( Conformance, TheChipInSoftwarePasses ) {
   String text;
   for ( auto kind : { "", "--per-vlan", "--latency 0", "--per-vlan --latency 0.3 --seed 5" } ) {
      EXPECT_EQ( Tests::runProgram( String( "qon-conformance --steps 1000 " ) + kind, text ), 0 )
            << text;
      EXPECT_NE( text.find( "\n0 findings\n" ), String::npos ) << text;
   }
}

TEST( Conformance, EachFaultOfTheBrokenChipIsAFinding ) {
   String text;
   EXPECT_EQ( brokenChip( "--healthy --seed 7", text ), 0 ) << text;
   EXPECT_NE( text.find( "\n0 findings\n" ), String::npos );
   const std::pair< const char *, const char * > faults[] = {
         { "lost-answer", "mac.answer" },          { "full-aborts", "mac.full" },
         { "early-done", "topo.early" },           { "stale-flags", "lag.flags" },
         { "tidy-destructor", "vlan.destructor" }, { "kept-level", "stormcontrol.nolimit" },
         { "kept-mapping", "vlanmapping.latest" }, { "one-destination", "mirror.last" },
         { "kept-group", "multicast.delete" },     { "kept-port", "acl.intfs" },
         { "first-group", "tapagg.ports" },        { "any-answer", "async.late" },
         { "room-untold", "adjacency.room" },
   };
   EXPECT_EQ( brokenChip( "", text ), 1 );
   for ( auto [fault, contract] : faults ) {
      EXPECT_NE( text.find( String( ". " ) + contract + ":" ), String::npos ) << text;
   }
   for ( auto [fault, contract] : faults ) { // some break another contract, too
      EXPECT_EQ( brokenChip( String( "--fault " ) + fault, text ), 1 );
      EXPECT_NE( text.find( String( "\n1. " ) + contract + ":" ), String::npos ) << text;
   }
}

TEST( Conformance, TheCommandLine ) {
   String text;
   EXPECT_EQ( brokenChip( "--list", text ), 0 );
   EXPECT_EQ( U32( std::count( text.begin(), text.end(), '\n' ) ), contracts().size() );
   EXPECT_EQ( brokenChip( "--only lag --json", text ), 1 );
   EXPECT_NE( text.find( "\"id\": \"lag.flags\"" ), String::npos ) << text;
   EXPECT_EQ( text.find( "mac." ), String::npos );
   EXPECT_EQ( brokenChip( "--only lag.cleanup", text ), 0 ) << text;
   EXPECT_EQ( brokenChip( "--only lag --junit", text ), 1 );
   EXPECT_NE( text.find( "<failure type=\"lag.flags\"" ), String::npos ) << text;
   EXPECT_EQ( std::system( "command -v python3 > /dev/null" ) == 0
                    ? Tests::shell( Tests::programs() +
                                          "/broken-chip --junit | python3 -c 'import sys, "
                                          "xml.etree.ElementTree as x; x.parse( sys.stdin )'",
                                    text )
                    : 0,
              0 )
         << text;
   for ( auto bad : { "--only elephants", "--json --junit", "--seed x", "--steps", "--what" } ) {
      EXPECT_EQ( brokenChip( bad, text ), 2 ) << bad;
      EXPECT_EQ( std::count( text.begin(), text.end(), '\n' ), 1 ) << text;
   }
   // The same seed, the same history.
   String again;
   brokenChip( "--fault lost-answer --only mac.random --seed 3", text );
   brokenChip( "--fault lost-answer --only mac.random --seed 3", again );
   EXPECT_EQ( text, again );
}

TEST( Conformance, AnIdThatWasGivenStays ) {
   std::set< String > ids;
   for ( auto contract : contracts() ) {
      EXPECT_TRUE( ids.insert( contract->id ).second ) << contract->id;
   }
   std::ifstream document( "docs/conformance.md" );
   U32 documented = 0;
   for ( String line; std::getline( document, line ); ) {
      if ( !line.starts_with( "| " ) || line.find( ".destructor` " ) == String::npos ) {
         continue;
      }
      auto words = Kiv::split( line, '`' );
      for ( std::size_t n = 1; n < words.size(); n += 2 ) {
         EXPECT_TRUE( ids.contains( words[n] ) ) << words[n];
         ++documented;
      }
   }
   EXPECT_GE( documented, 80u );
}

struct Bare : QonChip::Chip {
   explicit Bare( Kiv::TaskScheduler & ) {}
   String name() const override { return "bare"; }
};
/** Does what it should, and nobody can tell. */
struct Blind : SmallChip<> {
   using SmallChip::SmallChip;
   std::optional< QonChip::HeldHosts > hosts() const override { return std::nullopt; }
   std::optional< QonChip::HeldTopologies > topologies() const override { return std::nullopt; }
   std::optional< QonChip::HeldVlans > vlans() const override { return std::nullopt; }
   std::optional< QonChip::HeldGroups > groups() const override { return std::nullopt; }
   std::optional< QonChip::HeldStormControl > stormControl() const override { return std::nullopt; }
   std::optional< QonChip::HeldMirrors > mirrors() const override { return std::nullopt; }
   std::optional< QonChip::HeldMulticast > multicast() const override { return std::nullopt; }
   std::optional< QonChip::HeldAcls > acls() const override { return std::nullopt; }
   std::optional< QonChip::HeldTapAgg > tapAgg() const override { return std::nullopt; }
   std::optional< QonChip::HeldTranslations > translations() const override { return std::nullopt; }
   std::optional< QonChip::HeldEntries > asyncEntries() const override { return std::nullopt; }
   std::optional< QonChip::HeldAdjacencies > adjacencies() const override { return std::nullopt; }
};

TEST( Conformance, NothingIsCalledSoundThatWasNotLookedAt ) {
   using Result = Outcome::Result;
   for ( auto & outcome : outcomes( make< Bare >, "" ) ) {
      if ( outcome.check.starts_with( "chip." ) ) {
         EXPECT_EQ( outcome.result, Result::ok ) << outcome.check;
         continue;
      }
      EXPECT_EQ( outcome.result, Result::skipped ) << outcome.check;
      EXPECT_NE( outcome.why.find( "Part" ), String::npos ) << outcome.why;
   }
   // What is judged by the chip's reports alone.
   const std::set< String > byReports = {
         "mac.answer",    "mac.shadow",          "vlan.verify",       "topo.flush",
         "topo.verify",   "stormcontrol.verify", "mirror.reconciled", "tapagg.group",
         "tapagg.verify", "async.handler",       "async.once",        "async.numbers",
         "async.moment",  "chip.pump",           "chip.ports" };
   for ( auto & outcome : outcomes( make< Blind >, "" ) ) {
      if ( outcome.check == "acl.hosts" ) { // the chip has no lists of them
         EXPECT_EQ( outcome.result, Result::skipped ) << outcome.check;
         continue;
      }
      bool reports = byReports.contains( outcome.check );
      EXPECT_EQ( outcome.result, reports ? Result::ok : Result::notLooked ) << outcome.check;
      EXPECT_EQ( outcome.why.find( "cannot be read back" ) == String::npos, reports );
   }
}

} // namespace
