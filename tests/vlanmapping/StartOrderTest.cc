// Whatever comes first, the state machine or one of its inputs: the end is the same, in both
// generations.

#include <algorithm>

#include "tests/vlanmapping/PipelineWorld.h"

namespace {

using namespace VlanMappingTests;

using Step = std::function< void( PipelineWorld & ) >;

const Step inputs[] = {
      []( PipelineWorld & w ) { w.joins( 1, 1 ); },
      []( PipelineWorld & w ) { w.joins( 1, 2 ); },
      []( PipelineWorld & w ) {
         w.wants( cli, po( 1 ), in, 10, 110 );
         w.native( po( 1 ), out, 7 );
      },
      []( PipelineWorld & w ) {
         w.wants( cli, eth( 1 ), in, 20, 120 ); // rests
         w.wants( cli, eth( 3 ), out, 20, 120 );
      },
      []( PipelineWorld & w ) {
         w.mode( eth( 4 ), Mode::flow );
         w.wants( flow, eth( 4 ), in, 30, 130 );
      },
};

/** Runs every order of the inputs and `start`, and hands each world to `check`. */
void
everyOrder( const Step & start, const std::function< void( PipelineWorld & ) > & check ) {
   std::vector< U32 > order = { 0, 1, 2, 3, 4, 5 };
   do {
      PipelineWorld w;
      String shown;
      for ( U32 step : order ) {
         shown += Kiv::toText( step ) + " ";
         step == std::size( inputs ) ? start( w ) : inputs[step]( w );
      }
      w.scheduler.settle();
      SCOPED_TRACE( "order " + shown );
      check( w );
   } while ( !testing::Test::HasFailure() && std::next_permutation( order.begin(), order.end() ) );
}

TEST( VlanMappingStart, OfTheFirstGeneration ) {
   for ( bool graceful : { false, true } ) {
      everyOrder(
            [&]( PipelineWorld & w ) {
               w.chip.graceful = graceful;
               w.start();
            },
            [&]( PipelineWorld & w ) {
               Held held = w.chip.held;
               for ( Direction d : { in, out } ) {
                  auto & dir = d == in ? w.ingConfig : w.egrConfig;
                  for ( auto && [key, entry] : dir->vlanMappingConfigIteratorConst() ) {
                     held[nameOf( d, key )] = entry.mapping().vlanId();
                  }
               }
               EXPECT_EQ( held, ( Held{ { "ingress Ethernet1 10", 110 },
                                        { "ingress Ethernet2 10", 110 },
                                        { "egress Ethernet1 7 native", 7 },
                                        { "egress Ethernet2 7 native", 7 },
                                        { "egress Ethernet3 20", 120 },
                                        { "ingress Ethernet4 30", 130 } } ) );
               EXPECT_EQ( w.acsd->encapVlan( po( 1 ) ).value(), 7 );
               EXPECT_EQ( w.takeLogs(), std::vector< String >() );
               w.checkAll();
            } );
   }
}

TEST( VlanMappingStart, OfTheSecondGeneration ) {
   for ( bool slices : { false, true } ) {
      everyOrder(
            [&]( PipelineWorld & w ) { w.startPipeline( slices ); },
            []( PipelineWorld & w ) {
               EXPECT_EQ( w.shown( w.platform ),
                          ( PipelineWorld::Shown{ { "Ethernet1 ingress 10", "CLI 110" },
                                                  { "Ethernet2 ingress 10", "CLI 110" },
                                                  { "Ethernet1 egress 7", "native VLAN 7" },
                                                  { "Ethernet2 egress 7", "native VLAN 7" },
                                                  { "Ethernet3 egress 20", "CLI 120" },
                                                  { "Ethernet4 ingress 30", "Steerline 130" } } ) );
               EXPECT_EQ( w.acsd->encapVlan( po( 1 ) ).value(), 7 );
               EXPECT_TRUE( w.interlock->portChannelHas( po( 1 ) ) );
               EXPECT_EQ( w.takeLogs(), std::vector< String >() );
               w.checkPipeline();
            } );
   }
}

} // namespace
