// Access lists into hardware: a pass of a list of 2,400 rules on 64 ports, one rule edited, 1,000
// lists forced anew, a port that joins. Hooks return at once; the floor is a loop of the same calls
// over rules that are resolved already.

#include <benchmark/benchmark.h>

#include "Qon/include/acl/QonAclSm.h"
#include "bench/Ratio.h"
#include "platform/Kiv/TaskScheduler.h"

namespace {

using Acl::AclDirection;
using Acl::AclType;
using Qon::AclOperation;
using Ulnet::IntfId;
using Velto::Ptr;
using Velto::String;

/** Hooks that return at once, and keep what they were called with. */
struct Quick : QonHelper::AclHelper {
   struct Call {
      char hook;
      AclOperation acl;
      Qon::AclIntfUse use;
      bool on;
   };
   Quick() : AclHelper( "quick" ) {}
   void uninstallAcl( const AclOperation & acl ) override { note( 'u', acl ); }
   Qon::AclUnitResults prepareAcl( const AclOperation & acl ) override {
      note( 'p', acl );
      return {};
   }
   Qon::AclUnitResults commitAcl( const AclOperation & acl ) override {
      note( 'c', acl );
      return {};
   }
   void aclIntfIs( const AclOperation & acl, const Qon::AclIntfUse & use, bool on ) override {
      note( 'i', acl, use, on );
   }
   void blockIntf( IntfId intf, bool block ) override {
      note( 'b', {}, { Qon::IntfPairKey( intf, {} ), {} }, block );
   }
   void note( char hook, const AclOperation & acl, const Qon::AclIntfUse & use = {},
              bool on = false ) {
      ++calls;
      if ( keeps ) {
         kept.push_back( { hook, acl, use, on } );
      }
   }
   /** The same calls once more, by hand. */
   void again() {
      for ( auto & call : kept ) {
         switch ( call.hook ) {
         case 'u':
            uninstallAcl( call.acl );
            break;
         case 'p':
            benchmark::DoNotOptimize( prepareAcl( call.acl ) );
            break;
         case 'c':
            benchmark::DoNotOptimize( commitAcl( call.acl ) );
            break;
         case 'i':
            aclIntfIs( call.acl, call.use, call.on );
            break;
         default:
            blockIntf( call.use.pair().intfId(), call.on );
         }
      }
   }
   bool keeps = false;
   std::vector< Call > kept;
   U64 calls = 0;
};

struct Program {
   Program( U32 lists, U32 rules, U32 ports ) {
      acsd->initializedIs( true );
      direction = intfs->typeIs( AclType::ip )->directionIs( AclDirection::in );
      for ( U32 list = 0; list < lists; ++list ) {
         for ( U32 seq = 1; seq <= rules; ++seq ) {
            ruleIs( list, seq, 0 );
         }
         for ( U32 port = 0; port < ports; ++port ) {
            direction->intfIs( Ulnet::EthIntfId::intfId( list * ports + port + 1 ), name( list ) );
         }
      }
      sm = Qon::AclSmIs( { acsd, config, intfs, nullptr, nullptr, nullptr, helper } );
      sm->initializedIs( true );
   }
   static String name( U32 list ) { return "list" + std::to_string( list ); }
   void ruleIs( U32 list, U32 seq, U16 port ) {
      Acl::IpFilter filter;
      filter.protocolIs( U8( 6 ) );
      filter.srcIs( Ulnet::IpGenPrefix( Ulnet::IpGenAddr::ipv4( 0x0a000000 + seq * 256 ), 24 ) );
      filter.dstPortIs( Acl::PortRange( port, U16( port + 10 ) ) );
      Acl::Rule rule;
      rule.seqIs( seq );
      rule.ipIs( filter );
      config->typeIs( AclType::ip )->aclIs( name( list ) )->ruleIs( seq, rule );
   }
   /** The library's share of what `act` leads to, and a loop of the calls that it made. */
   template< class Act >
   void measure( benchmark::State & state, Act && act ) {
      double ours = 1e18, floor = 1e18;
      for ( U32 round = 0; round < 20; ++round ) {
         helper->keeps = false;
         ours = std::min( ours, Bench::nsOf( [&] {
                             act();
                             scheduler.settle();
                          } ) );
         helper->keeps = true;
         helper->kept.clear();
         act();
         scheduler.settle();
         helper->keeps = false;
         floor = std::min( floor, Bench::nsOf( [&] { helper->again(); } ) );
      }
      state.counters["us"] = ours / 1000;
      state.counters["floor_us"] = floor / 1000;
      state.counters["calls"] = double( helper->kept.size() );
   }

   Kiv::VirtualScheduler scheduler;
   Ptr< Qon::QonCommonSmData > acsd = Qon::qonCommonSmDataFactory( "acsd" );
   Ptr< Acl::Config > config = Velto::make< Acl::Config >( "config" );
   Ptr< Acl::IntfConfig > intfs = Velto::make< Acl::IntfConfig >( "intfs" );
   Ptr< Quick > helper = Velto::make< Quick >();
   Ptr< Acl::DirectionIntfConfig > direction;
   Ptr< Qon::AclSm > sm;
};

void
wholePass( benchmark::State & state ) {
   for ( auto _ : state ) {
      double ns = 0;
      for ( U32 round = 0; round < 10; ++round ) {
         Program p( 1, 2400, 64 );
         const double one = Bench::nsOf( [&] { p.scheduler.settle(); } );
         ns = round ? std::min( ns, one ) : one;
      }
      state.counters["us"] = ns / 1000;
   }
}

void
forced( benchmark::State & state ) {
   for ( auto _ : state ) {
      Program p( 1, 2400, 64 ), many( 1000, 24, 1 );
      p.scheduler.settle();
      many.scheduler.settle();
      state.range( 0 ) == 1 ? p.measure( state, [&] { p.sm->doApplyAcls( true ); } )
                            : many.measure( state, [&] { many.sm->doApplyAcls( true ); } );
   }
}

void
editOne( benchmark::State & state ) {
   for ( auto _ : state ) {
      Program p( 1, 2400, 64 );
      p.scheduler.settle();
      U32 round = 0;
      p.measure( state, [&] { p.ruleIs( 0, ++round, 20 ); } );
   }
}

void
join( benchmark::State & state ) {
   for ( auto _ : state ) {
      Program p( 1, 2400, 64 );
      p.scheduler.settle();
      U32 round = 0;
      p.measure( state, [&] {
         p.direction->intfIs( Ulnet::EthIntfId::intfId( 1000 + ++round ), Program::name( 0 ) );
      } );
   }
}

BENCHMARK( wholePass )->Iterations( 1 );
BENCHMARK( forced )->Arg( 1 )->Arg( 1000 )->Iterations( 1 );
BENCHMARK( editOne )->Iterations( 1 );
BENCHMARK( join )->Iterations( 1 );

} // namespace
