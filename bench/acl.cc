// Access lists: attach and detach at 1 and at 1,000 lists that are attached, on 512 ports; one rule
// edited in a list of 2,400; the load of 1,000 lists of 24 rules. For the floor see AclFloor.h.

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

constexpr U32 ports = 512;

/** Hooks that return at once. */
struct Quiet : QonHelper::AclHelper {
   Quiet() : AclHelper( "quiet" ) {}
   void uninstallAcl( const AclOperation & ) override { ++calls; }
   Qon::AclUnitResults prepareAcl( const AclOperation & ) override {
      return ++calls, Qon::AclUnitResults();
   }
   Qon::AclUnitResults commitAcl( const AclOperation & ) override {
      return ++calls, Qon::AclUnitResults();
   }
   void aclIntfIs( const AclOperation &, const Qon::AclIntfUse &, bool ) override { ++calls; }
   void blockIntf( IntfId, bool ) override { ++calls; }
   U64 calls = 0;
};

String
name( U32 list ) {
   return "list" + std::to_string( list );
}

Acl::Rule
rule( U32 seq ) {
   Acl::IpFilter filter;
   filter.protocolIs( U8( 6 ) );
   filter.srcIs( Ulnet::IpGenPrefix( Ulnet::IpGenAddr::ipv4( 0x0a000000 + seq * 256 ), 24 ) );
   filter.dstPortIs( Acl::PortRange( U16( seq % 60000 ), U16( seq % 60000 + 10 ) ) );
   Acl::Rule rule;
   rule.seqIs( seq );
   rule.ipIs( filter );
   return rule;
}

/** The library. Each list is on VLAN interfaces or ports of its own. */
struct Framework {
   Framework() {
      acsd->initializedIs( true );
      direction = intfs->typeIs( AclType::ip )->directionIs( AclDirection::in );
      lists = config->typeIs( AclType::ip );
      sm = Qon::AclSmIs( { acsd, config, intfs, params, nullptr, nullptr, helper } );
      sm->initializedIs( true );
      scheduler.settle();
   }
   void ruleIs( U32 list, const Acl::Rule & r ) {
      lists->aclIs( name( list ) )->ruleIs( r.seq(), r );
   }
   void attach( IntfId intf, U32 list ) { direction->intfIs( intf, name( list ) ); }
   void detach( IntfId intf ) { direction->intfDel( intf ); }
   void settle() { scheduler.settle(); }
   U64 calls() const { return helper->calls; }

   Kiv::VirtualScheduler scheduler;
   Ptr< Qon::QonCommonSmData > acsd = Qon::qonCommonSmDataFactory( "acsd" );
   Ptr< Acl::Config > config = Velto::make< Acl::Config >( "config" );
   Ptr< Acl::IntfConfig > intfs = Velto::make< Acl::IntfConfig >( "intfs" );
   Ptr< Acl::ParamConfig > params = Velto::make< Acl::ParamConfig >( "params" );
   Ptr< Quiet > helper = Velto::make< Quiet >();
   Ptr< Acl::DirectionIntfConfig > direction;
   Ptr< Acl::TypeConfig > lists;
   Ptr< Qon::AclSm > sm;
};

/** The same by hand. */
struct Floor {
   void ruleIs( U32 list, const Acl::Rule & r ) { byHand.ruleIs( name( list ), r ); }
   void attach( IntfId intf, U32 list ) { byHand.attach( intf, name( list ) ); }
   void detach( IntfId intf ) { byHand.detach( intf ); }
   void settle() { byHand.settle(); }
   U64 calls() const { return helper->calls; }

   Ptr< Quiet > helper = Velto::make< Quiet >();
   Bench::AclByHand byHand{ helper };
};

/** Times, and the ratio: of two that made the same calls. */
void
report( benchmark::State & state, double ours, double floor, bool sameCalls ) {
   state.counters["us"] = ours / 1000;
   state.counters["floor_us"] = floor / 1000;
   state.counters["ratio"] = ours / floor;
   if ( !sameCalls ) {
      state.SkipWithError( "the floor makes other calls" );
   }
}

template< class Switch >
void
load( Switch & s, U32 lists, U32 rules ) {
   for ( U32 list = 0; list < lists; ++list ) {
      for ( U32 n = 1; n <= rules; ++n ) {
         s.ruleIs( list, rule( n ) );
      }
      s.attach( Ulnet::EthIntfId::intfId( ports + list + 1 ), list );
   }
   s.settle();
}

/** Nanoseconds for one list on one port more, and off it again. */
template< class Switch >
double
attachAndDetach( Switch & s, U32 lists ) {
   load( s, lists, 24 );
   for ( U32 port = 1; port <= ports; ++port ) {
      s.attach( Ulnet::EthIntfId::intfId( port ), port % lists );
   }
   s.settle();
   U32 round = 0;
   return Bench::nsPerCall(
                [&] {
                   const IntfId port = Ulnet::EthIntfId::intfId( 5000 + round % 64 );
                   s.attach( port, ++round % lists );
                   s.settle();
                   s.detach( port );
                   s.settle();
                },
                5000 ) /
          2;
}

void
attach( benchmark::State & state ) {
   const U32 lists = U32( state.range( 0 ) );
   for ( auto _ : state ) {
      Framework framework;
      Floor byHand;
      const double ours = attachAndDetach( framework, lists );
      const double floor = attachAndDetach( byHand, lists );
      report( state, ours, floor, framework.calls() == byHand.calls() );
   }
}

template< class Switch >
double
editRule( Switch & s ) {
   load( s, 1, 2400 );
   U32 round = 0;
   return Bench::nsPerCall(
         [&] {
            Acl::Rule r = rule( ++round % 2400 + 1 );
            r.logIs( round / 2400 % 2 == 0 );
            s.ruleIs( 0, r );
            s.settle();
         },
         200 );
}

void
edit( benchmark::State & state ) {
   for ( auto _ : state ) {
      Framework framework;
      Floor byHand;
      const double ours = editRule( framework ), floor = editRule( byHand );
      report( state, ours, floor, framework.calls() == byHand.calls() );
   }
}

void
loadAll( benchmark::State & state ) {
   for ( auto _ : state ) {
      Framework framework;
      Floor byHand;
      const double ours = Bench::nsOf( [&] { load( framework, 1000, 24 ); } );
      const double floor = Bench::nsOf( [&] { load( byHand, 1000, 24 ); } );
      report( state, ours, floor, framework.calls() == byHand.calls() );
   }
}

BENCHMARK( attach )->Arg( 1 )->Arg( 1000 )->Iterations( 1 );
BENCHMARK( edit )->Iterations( 1 );
BENCHMARK( loadAll )->Iterations( 1 );

} // namespace
