// Access lists: attach and detach at 1 and at 1,000 lists that are attached, on 512 ports; one rule
// edited in a list of 2,400; the load of 1,000 lists of 24 rules. The floor is a resolution written
// by hand over dense maps, with the same hook calls.

#include <benchmark/benchmark.h>

#include <map>

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

/** The same by hand: maps of lists, of interfaces and of instances, and a list of what changed. */
struct Floor {
   struct Instance {
      U32 number = 0;
      Qon::KeySet< IntfId > intfs;
      Ptr< const Qon::AclRuleSet > rules;
      bool dirty = true;
   };
   struct List {
      std::map< U32, Acl::Rule > rules;
      Kiv::DenseMap< Acl::IpFilter, U32 > fragments;
      Instance instance;
   };
   Floor() {
      for ( U32 n = Qon::aclNumbersPerDirection; n > 0; --n ) {
         free.push_back( n - 1 );
      }
   }
   void ruleIs( U32 list, const Acl::Rule & r ) {
      List & l = *lists.emplace( name( list ) ).first;
      l.rules.insert_or_assign( r.seq(), r );
      l.instance.dirty = true;
      changed.emplace( name( list ) );
   }
   void attach( IntfId intf, U32 list ) {
      const String n = name( list );
      intfs.emplace( intf, n );
      lists.emplace( n ).first->instance.intfs.emplace( intf );
      changed.emplace( n );
      moved.push_back( { intf, n, true } );
   }
   void detach( IntfId intf ) {
      const String n = *intfs.take( intf );
      lists.find( n )->instance.intfs.erase( intf );
      changed.emplace( n );
      moved.push_back( { intf, n, false } );
   }
   void settle() {
      for ( auto && entry : std::exchange( changed, {} ) ) {
         List & list = *lists.find( entry.key );
         Instance & i = list.instance;
         if ( i.rules && ( i.dirty || i.intfs.empty() ) ) {
            operation( entry.key, i );
            helper->uninstallAcl( acl );
         }
         if ( i.intfs.empty() && i.rules ) {
            free.push_back( i.number );
            i.rules = nullptr;
            i.dirty = true;
         } else if ( !i.intfs.empty() && ( i.dirty || !i.rules ) ) {
            if ( !i.rules ) {
               i.number = free.back();
               free.pop_back();
            }
            i.rules = resolve( list );
            i.dirty = false;
            operation( entry.key, i );
            helper->prepareAcl( acl );
            for ( auto && intf : i.intfs ) {
               helper->aclIntfIs( acl, { Qon::IntfPairKey( intf.key, {} ), {} }, true );
            }
            helper->commitAcl( acl );
         }
      }
      for ( auto & move : std::exchange( moved, {} ) ) {
         helper->aclIntfIs( acl, { Qon::IntfPairKey( move.intf, {} ), {} }, move.on );
      }
   }
   void operation( const String & n, const Instance & i ) {
      acl = { AclType::ip, n, {}, i.number, ++operations, i.rules };
   }
   static Ptr< const Qon::AclRuleSet > resolve( List & list ) {
      std::vector< Qon::AclRule > rules;
      list.fragments = {};
      for ( auto & [seq, r] : list.rules ) {
         rules.push_back( { Qon::AclRule::Origin::configured, seq, r } );
         Acl::IpFilter f( r.ip().protocol(), r.ip().src(), r.ip().dst(), {}, {}, 0, 0, {}, {},
                          true );
         if ( list.fragments.emplace( f, seq ).second ) {
            Acl::Rule fragment;
            fragment.ipIs( f );
            rules.push_back( { Qon::AclRule::Origin::fragment, seq, fragment } );
         }
      }
      rules.push_back( { Qon::AclRule::Origin::implicit, 0, {} } );
      return Velto::make< Qon::AclRuleSet >( std::move( rules ) );
   }
   U64 calls() const { return helper->calls; }

   struct Move {
      IntfId intf;
      String name;
      bool on;
   };
   Kiv::DenseMap< String, List > lists;
   Kiv::DenseMap< IntfId, String > intfs;
   Qon::KeySet< String > changed;
   std::vector< Move > moved;
   std::vector< U32 > free;
   AclOperation acl;
   U64 operations = 0;
   Ptr< Quiet > helper = Velto::make< Quiet >();
};

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
attachAndDetach( U32 lists ) {
   Switch s;
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
   double ours = 0, floor = 0;
   for ( auto _ : state ) {
      ours = attachAndDetach< Framework >( lists );
      floor = attachAndDetach< Floor >( lists );
   }
   state.counters["ns_change"] = ours;
   state.counters["floor_ns"] = floor;
   state.counters["ratio"] = ours / floor;
}

template< class Switch >
double
editRule() {
   Switch s;
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
   double ours = 0, floor = 0;
   for ( auto _ : state ) {
      ours = editRule< Framework >();
      floor = editRule< Floor >();
   }
   state.counters["us_edit"] = ours / 1000;
   state.counters["floor_us"] = floor / 1000;
   state.counters["ratio"] = ours / floor;
}

void
loadAll( benchmark::State & state ) {
   double ours = 0, floor = 0;
   for ( auto _ : state ) {
      Framework framework;
      Floor byHand;
      ours = Bench::nsOf( [&] { load( framework, 1000, 24 ); } );
      floor = Bench::nsOf( [&] { load( byHand, 1000, 24 ); } );
   }
   state.counters["ms"] = ours / 1e6;
   state.counters["floor_ms"] = floor / 1e6;
   state.counters["ratio"] = ours / floor;
}

BENCHMARK( attach )->Arg( 1 )->Arg( 1000 )->Iterations( 1 );
BENCHMARK( edit )->Iterations( 1 );
BENCHMARK( loadAll )->Iterations( 1 );

} // namespace
