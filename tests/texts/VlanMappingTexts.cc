// Texts of VLAN mapping that operators and tools search for: reports of missing hooks, traces. Failed
// assertions and messages stand with the flows that raise them, in tests/vlanmapping.

#include "tests/texts/Traced.h"
#include "tests/vlanmapping/PipelineWorld.h"

namespace {

using namespace VlanMappingTests;

TEST( VlanMappingTexts, MissingHooks ) {
   VlanMappingWorld w;
   auto bare = Qon::VlanMappingSmIs( w.inputs() );
   EXPECT_FALSE( bare->gracefulRestartSupported() );
   const std::pair< const char *, std::function< void() > > hooks[] = {
         { "doAddIngressVlanMapping",
           [&] { bare->doAddIngressVlanMapping( eth( 1 ), false, {}, {} ); } },
         { "doAddEgressVlanMapping",
           [&] { bare->doAddEgressVlanMapping( eth( 1 ), false, {}, {} ); } },
         { "doDelIngressVlanMapping",
           [&] { bare->doDelIngressVlanMapping( eth( 1 ), false, {} ); } },
         { "doDelEgressVlanMapping", [&] { bare->doDelEgressVlanMapping( eth( 1 ), false, {} ); } },
         { "doUpdateIngressVlanMapping",
           [&] { bare->doUpdateIngressVlanMapping( eth( 1 ), false, {}, {} ); } },
         { "doUpdateEgressVlanMapping",
           [&] { bare->doUpdateEgressVlanMapping( eth( 1 ), false, {}, {} ); } },
   };
   for ( auto & [name, call] : hooks ) {
      EXPECT_DEATH( call(), String( "Call to unimplemented function VlanMappingSm::" ) + name );
   }
   Tests::Env noop( "QON_NOOP_AGENT", "" );
   for ( auto & [name, call] : hooks ) {
      call();
   }
   bare->initializedIs( true );
   w.wants( cli, eth( 1 ), in, 10, 110 );
   EXPECT_EQ( bare->outcome( eth( 1 ), in, { 10, 0 }, cli ), Outcome::programmed );
   bare->doAddToUnprogrammedList( eth( 1 ), { 10, 0 }, in, Source::None );
   EXPECT_DEATH( bare->reviewUnprogrammedIntfList(), "'0'" );
}

TEST( VlanMappingTexts, Traces ) {
   VlanMappingWorld w;
   w.start();
   w.chip.answer = Status::notNow;
   const VlanXlateKey key( 10, 0 );
   Tests::expectTraced(
         [&] { w.wants( cli, eth( 1 ), in, 10, 110 ); },
         { "Ethernet1 : Added to unprogrammed  interface list for ingress " + key.stringValue() } );
}

TEST( VlanMappingTexts, TracesOfThePipeline ) {
   PipelineWorld w;
   using Data = Qon::MergedVlanMappingData;
   w.wants( cli, eth( 1 ), in, 10, 110 );
   w.mode( eth( 1 ), Mode::flow );
   const auto k = key( in, 10 );
   for ( U32 n : { 1, 3 } ) { // as a former run left it
      w.merged->intfVlanMappingConfigIs( eth( n ) )
            ->vlanMappingConfigIs( k, Data( ConfigSource::bridging, { 110, 0 } ) );
   }
   Tests::expectTraced(
         [&] {
            w.startPipeline();
            w.wants( cli, po( 1 ), in, 10, 110 );
            w.joins( 1, 2 );
            w.wants( cli, po( 1 ), in, 10, 0 );
         },
         { "3 sources are not ready", " All sources are ready. Begin initial sync",
           k.stringValue() + " because it does not come from an active source",
           k.stringValue() + " because it no longer exists in its source",
           " delete stale intf Ethernet3",
           " picking bridging as the new winner for key " + k.stringValue(),
           "add to feature interlock for port-channel Port-Channel1",
           " in feature interlock for port-channel Port-Channel1",
           "remove to feature interlock for port-channel Port-Channel1" } );
}

} // namespace
