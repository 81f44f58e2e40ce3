// Access lists into hardware: a pass of a list of 2,400 rules on 64 ports, one rule edited, 1,000
// lists forced anew, a port that joins. Hooks return at once. For the floor see AclFloor.h.

#include <benchmark/benchmark.h>

#include "Qon/include/acl/QonAclSm.h"
#include "bench/AclFloor.h"
#include "bench/Ratio.h"
#include "platform/Kiv/TaskScheduler.h"

namespace {

using Acl::AclDirection;
using Acl::AclType;
using Qon::AclOperation;
using Ulnet::IntfId;
using Velto::Ptr;
using Velto::String;

/** Hooks that return at once, and know all that they were called with by one number. */
struct Quick : QonHelper::AclHelper {
   Quick() : AclHelper( "quick" ) {}
   void uninstallAcl( const AclOperation & acl ) override { note( 1, acl.aclNumber ); }
   Qon::AclUnitResults prepareAcl( const AclOperation & acl ) override {
      note( 2, acl.aclNumber + acl.rules->rules().size() );
      return {};
   }
   Qon::AclUnitResults commitAcl( const AclOperation & acl ) override {
      note( 3, acl.aclNumber );
      return {};
   }
   void aclIntfIs( const AclOperation & acl, const Qon::AclIntfUse & use, bool on ) override {
      note( 4 + on, acl.aclNumber + use.pair().intfId().hash() );
   }
   void blockIntf( IntfId intf, bool block ) override { note( 6 + block, intf.hash() ); }
   void note( U64 hook, U64 argument ) {
      ++calls;
      heard = heard * 31 + hook + argument * 8;
   }
   U64 calls = 0, heard = 0;
};

String
name( U32 list ) {
   return "list" + std::to_string( list );
}

/** The library. */
struct Library {
   Library() {
      acsd->initializedIs( true );
      direction = intfs->typeIs( AclType::ip )->directionIs( AclDirection::in );
      lists = config->typeIs( AclType::ip );
   }
   void start() {
      sm = Qon::AclSmIs( { acsd, config, intfs, nullptr, nullptr, nullptr, helper } );
      sm->initializedIs( true );
   }
   void ruleIs( const String & list, const Acl::Rule & rule ) {
      lists->aclIs( list )->ruleIs( rule.seq(), rule );
   }
   void attach( IntfId intf, const String & list ) { direction->intfIs( intf, list ); }
   void force() { sm->doApplyAcls( true ); }
   void settle() { scheduler.settle(); }

   Kiv::VirtualScheduler scheduler;
   Ptr< Qon::QonCommonSmData > acsd = Qon::qonCommonSmDataFactory( "acsd" );
   Ptr< Acl::Config > config = Velto::make< Acl::Config >( "config" );
   Ptr< Acl::IntfConfig > intfs = Velto::make< Acl::IntfConfig >( "intfs" );
   Ptr< Quick > helper = Velto::make< Quick >();
   Ptr< Acl::DirectionIntfConfig > direction;
   Ptr< Acl::TypeConfig > lists;
   Ptr< Qon::AclSm > sm;
};

struct Floor : Bench::AclByHand {
   explicit Floor( Ptr< Quick > quick = Velto::make< Quick >() )
       : AclByHand( quick ), helper( std::move( quick ) ) {}
   void start() {}
   const Ptr< Quick > helper;
};

template< class Switch >
struct Program : Switch {
   Program( U32 lists, U32 rules, U32 ports ) {
      for ( U32 list = 0; list < lists; ++list ) {
         for ( U32 seq = 1; seq <= rules; ++seq ) {
            edit( list, seq, 0 );
         }
         for ( U32 port = 0; port < ports; ++port ) {
            this->attach( Ulnet::EthIntfId::intfId( list * ports + port + 1 ), name( list ) );
         }
      }
      this->start();
   }
   void edit( U32 list, U32 seq, U16 port ) {
      Acl::IpFilter filter;
      filter.protocolIs( U8( 6 ) );
      filter.srcIs( Ulnet::IpGenPrefix( Ulnet::IpGenAddr::ipv4( 0x0a000000 + seq * 256 ), 24 ) );
      filter.dstPortIs( Acl::PortRange( port, U16( port + 10 ) ) );
      Acl::Rule rule;
      rule.seqIs( seq );
      rule.ipIs( filter );
      this->ruleIs( name( list ), rule );
   }
};

/** The best of several rounds of `act( program, round )`, of both; and the calls of one. */
template< class Act >
void
measure( benchmark::State & state, U32 lists, U32 rules, U32 ports, Act && act ) {
   Program< Library > library( lists, rules, ports );
   Program< Floor > byHand( lists, rules, ports );
   library.settle();
   byHand.settle();
   const U64 before = library.helper->calls;
   constexpr U32 rounds = 40;
   U32 round = 0;
   auto best = [&]( auto & program ) {
      round = 0;
      return Bench::nsPerCall(
            [&] {
               act( program, ++round );
               program.settle();
            },
            1, rounds );
   };
   const double ours = best( library ), floor = best( byHand );
   state.counters["us"] = ours / 1000;
   state.counters["floor_us"] = floor / 1000;
   state.counters["ratio"] = ours / floor;
   state.counters["calls"] = double( library.helper->calls - before ) / rounds;
   if ( library.helper->heard != byHand.helper->heard ) {
      state.SkipWithError( "the floor makes other calls" );
   }
}

template< class Switch >
double
firstPass() {
   double ns = 1e18;
   for ( U32 round = 0; round < 10; ++round ) {
      Program< Switch > p( 1, 2400, 64 );
      ns = std::min( ns, Bench::nsOf( [&] { p.settle(); } ) );
   }
   return ns;
}

void
wholePass( benchmark::State & state ) {
   for ( auto _ : state ) {
      const double ours = firstPass< Library >(), floor = firstPass< Floor >();
      state.counters["us"] = ours / 1000;
      state.counters["floor_us"] = floor / 1000;
      state.counters["ratio"] = ours / floor;
   }
}

void
forced( benchmark::State & state ) {
   const bool one = state.range( 0 ) == 1;
   for ( auto _ : state ) {
      measure( state, U32( state.range( 0 ) ), one ? 2400 : 24, one ? 64 : 1,
               []( auto & program, U32 ) { program.force(); } );
   }
}

void
editOne( benchmark::State & state ) {
   for ( auto _ : state ) {
      measure( state, 1, 2400, 64,
               []( auto & program, U32 round ) { program.edit( 0, round, 20 ); } );
   }
}

void
join( benchmark::State & state ) {
   for ( auto _ : state ) {
      measure( state, 1, 2400, 64, []( auto & program, U32 round ) {
         program.attach( Ulnet::EthIntfId::intfId( 1000 + round ), name( 0 ) );
      } );
   }
}

BENCHMARK( wholePass )->Iterations( 1 );
BENCHMARK( forced )->Arg( 1 )->Arg( 1000 )->Iterations( 1 );
BENCHMARK( editOne )->Iterations( 1 );
BENCHMARK( join )->Iterations( 1 );

} // namespace
