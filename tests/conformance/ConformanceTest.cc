// The kit: a healthy chip passes, and every fault is found under the contract that it breaks.

#include <gtest/gtest.h>

#include <algorithm>

#include "examples/broken-chip/Chip.h"
#include "tests/conformance/Programs.h"

namespace {

using namespace QonConformance;
using Chip::ChipLag;
using Chip::ChipMac;
using Chip::ChipTopo;
using Chip::ChipVlan;
using Chip::Faults;
using Chip::Tables;
using Chip::TablesPtr;

/** The small chip; a test replaces one of its parts. */
struct Parts {
   const Bench & bench;
   TablesPtr tables = std::make_shared< Tables >();
   Kiv::TimerWheel * wheel = bench.scheduler.timerWheel();
   template< class T >
   Ptr< T > mac() const {
      return Velto::make< T >( tables, Faults(), wheel );
   }
   template< class T >
   Ptr< T > vlan() const {
      return Velto::make< T >( tables, Faults(), bench.acsd.ptr(), wheel );
   }
};

ChipAdapter
healthy( const Parts & p ) {
   ChipAdapter chip;
   chip.makeMacProgrammer = [=] { return p.mac< ChipMac >(); };
   chip.makeTopoHelper = [=] { return p.mac< ChipTopo >(); };
   chip.makeVlanHelper = [=] { return p.vlan< ChipVlan >(); };
   chip.makeLagProgrammer = [tables = p.tables, bench = p.bench] {
      return Velto::make< ChipLag >( tables, Faults(), bench );
   };
   chip.hosts = [t = p.tables] { return t->hosts; };
   chip.topologies = [t = p.tables] { return t->topologies; };
   chip.vlans = [t = p.tables] {
      auto vlans = t->vlans;
      std::erase_if( vlans, []( auto & vlan ) { return vlan.second.empty(); } );
      return vlans;
   };
   chip.lags = [t = p.tables] {
      std::map< Ulnet::IntfId, std::set< Ulnet::IntfId > > lags;
      for ( auto & [lag, members] : t->lags ) {
         for ( auto & [port, member] : members ) {
            lags[lag].insert( port );
         }
      }
      return lags;
   };
   chip.hostsToFill = 2048;
   return chip;
}

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
   FirstWishStays( TablesPtr tables, Faults faults, Kiv::TimerWheel * wheel )
       : ChipMac( tables, faults, wheel ), held( tables ) {}
   Status writeToHw( const Qon::MacCmdPtr & cmd ) override {
      if ( cmd->type() == Type::addHost && held->hosts.contains( cmd->key() ) ) {
         handleCmdResponse( cmd->transactionId(), 0, Status::macProgramSuccess );
         return Status::macProgramSuccess;
      }
      return ChipMac::writeToHw( cmd );
   }
   TablesPtr held;
};
struct NoHook : Qon::QonMacProgrammer {
   NoHook( TablesPtr, Faults, Kiv::TimerWheel * wheel ) : QonMacProgrammer( wheel ) {}
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
   DiesOfAbsence( TablesPtr tables, Faults faults, Kiv::TimerWheel * wheel )
       : ChipTopo( tables, faults, wheel ), held( tables ) {}
   void delVlanFromTopo( const String & name, U16 vlan ) override {
      held->topologies.at( name ).vlans.erase( vlan );
   }
   TablesPtr held;
};
/** Follows nothing and reports nothing. */
struct DeadLag : Velto::Node {};

using Change = std::function< void( ChipAdapter &, const Parts & ) >;

std::vector< Finding >
findings( const Change & change, const String & only ) {
   Options options;
   options.only = only;
   options.steps = 300;
   options.secondsToHang = 2;
   return findingsOf( runChecks(
         [&]( const Bench & bench ) {
            Parts parts{ bench };
            ChipAdapter chip = healthy( parts );
            change( chip, parts );
            return chip;
         },
         options ) );
}

template< class T >
Change
mac() {
   return []( ChipAdapter & chip, const Parts & p ) {
      chip.makeMacProgrammer = [=] { return p.mac< T >(); };
   };
}
template< class T >
Change
topo() {
   return []( ChipAdapter & chip, const Parts & p ) {
      chip.makeTopoHelper = [=] { return p.mac< T >(); };
   };
}
template< class T >
Change
vlan() {
   return []( ChipAdapter & chip, const Parts & p ) {
      chip.makeVlanHelper = [=] { return p.vlan< T >(); };
   };
}

TEST( Conformance, EveryFaultBreaksItsContract ) {
   struct {
      const char * check; ///< that is made
      const char * contract;
      const char * found;
      Change change;
   } const cases[] = {
         { "mac.held", "mac.unasked", "not in flight", mac< AnswersTwice >() },
         { "mac.held", "mac.status", "unexpected mac program status", mac< StrangeStatus >() },
         { "mac.newest", "mac.newest", " at Ethernet", mac< FirstWishStays >() },
         { "mac.held", "hook.missing", "writeToHw", mac< NoHook >() },
         { "mac.held", "mac.held", "did not return within 2 s", mac< Hangs >() },
         { "vlan.done", "vlan.done", "VLAN 123 waits", vlan< DoneForgotten >() },
         { "vlan.random", "vlan.random", "", vlan< DoneWithoutWriting >() },
         { "topo.done", "topo.done", "learning is not reported", topo< TopoNotDone >() },
         { "topo.cleanup", "topo.cleanup", "Topo0", topo< TopoNotFreed >() },
         { "topo.vlan", "topo.vlan", "10", topo< VlanStays >() },
         { "topo.absent", "topo.absent", "map::at", topo< DiesOfAbsence >() },
         { "topo.tapagg", "topo.tapagg", " VLANs, forwarding", topo< FewVlans >() },
         { "lag.result", "lag.result", "has no status",
           []( ChipAdapter & chip, const Parts & ) {
              chip.makeLagProgrammer = [] { return Velto::make< DeadLag >(); };
           } },
   };
   for ( auto & c : cases ) {
      auto found = findings( c.change, c.check );
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

TEST( Conformance, TheBrokenChipHasItsFiveFindings ) {
   String text;
   EXPECT_EQ( brokenChip( "--healthy --seed 7", text ), 0 ) << text;
   EXPECT_NE( text.find( "\n0 findings\n" ), String::npos );
   EXPECT_EQ( brokenChip( "", text ), 1 );
   EXPECT_NE( text.find( "\n5 findings\n" ), String::npos ) << text;
   const std::pair< const char *, const char * > faults[] = {
         { "lost-answer", "mac.answer" },          { "full-aborts", "mac.full" },
         { "early-done", "topo.early" },           { "stale-flags", "lag.flags" },
         { "tidy-destructor", "vlan.destructor" },
   };
   for ( auto [fault, contract] : faults ) {
      EXPECT_EQ( brokenChip( String( "--fault " ) + fault, text ), 1 );
      EXPECT_NE( text.find( String( "\n1. " ) + contract + ":" ), String::npos ) << text;
      EXPECT_NE( text.find( "\n1 finding\n" ), String::npos ) << text;
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
   for ( auto bad : { "--only elephants", "--seed x", "--steps", "--what" } ) {
      EXPECT_EQ( brokenChip( bad, text ), 2 ) << bad;
      EXPECT_EQ( std::count( text.begin(), text.end(), '\n' ), 1 ) << text;
   }
   // The same seed, the same history; a chip without parts is skipped and passes.
   String again;
   brokenChip( "--fault lost-answer --only mac.random --seed 3", text );
   brokenChip( "--fault lost-answer --only mac.random --seed 3", again );
   EXPECT_EQ( text, again );
   EXPECT_TRUE( findings( []( ChipAdapter & chip, const Parts & ) { chip = {}; }, "" ).empty() );
}

} // namespace
