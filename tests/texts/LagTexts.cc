// Texts of link aggregation that operators and tools search for: failed assertions and reports.

#include "Qon/include/lag/QonLagIndex.h"
#include "tests/lag/LagWorld.h"

namespace {

using namespace LagTests;

class LagTexts : public ::testing::Test, public LagWorld {};

TEST_F( LagTexts, TheIndexIsTheNumberOfPlainPortChannels ) {
   auto index = []( const char * name ) { return Qon::getLagIndex( intf( name ) ); };
   EXPECT_EQ( index( "Port-Channel17" ), 17u );
   EXPECT_DEATH( index( "Ethernet1" ),
                 "'Ulnet::PortChannelIntfId::isPortChannelIntfId\\( lagName \\)'" );
   EXPECT_DEATH( index( "Recirc-Channel1" ),
                 "'!Ulnet::PortChannelIntfId::isRecirc\\( lagName \\)'" );
   EXPECT_DEATH( index( "Port-Channel1/2" ), "'1 == Ulnet::GenericIntfId::parts\\( lagName \\)'" );
}

TEST_F( LagTexts, AnInvalidFallbackTypeIsFatalUnlessThereIsNoHardware ) {
   start();
   EXPECT_DEATH( lag( 1 )->lacpFallbackEnabledIs( 3 ), "Invalid LACP fallback type: 3\n" );
   Tests::Env noop( "QON_NOOP_AGENT", "" );
   lag( 1 )->lacpFallbackEnabledIs( 3 );
   EXPECT_EQ( acsd->lagInLacpFallbackIndividualModes(), 0u );
}

} // namespace
