// Texts of mirror sessions that operators and tools search for: reports of missing hooks, traces.
// Failed assertions and messages stand with the flows that raise them, in tests/mirroring.

#include "platform/Kiv/Restart.h"
#include "tests/mirroring/MirrorWorld.h"
#include "tests/texts/Traced.h"

namespace MirrorTests {

namespace {

TEST( MirroringTexts, MissingHooks ) {
   Qon::MirroringSmHelper helper;
   const Qon::QonPortList ports;
   using Call = std::function< void() >;
   const std::pair< const char *, Call > hooks[] = {
         { "createMirror", [&] { helper.createMirror( "s", 0, -1, eth( 1 ), false ); } },
         { "removeMirror", [&] { helper.removeMirror( "s", 0, -1, ports ); } },
         { "createGreTunnelMirror", [&] { helper.createGreTunnelMirror( "s", 0, -1, {}, {} ); } },
         { "updateGreTunnelMirror", [&] { helper.updateGreTunnelMirror( "s", 0, -1, {}, {} ); } },
         { "removeGreTunnelMirror", [&] { helper.removeGreTunnelMirror( "s", 0, -1 ); } },
         { "addSourceToHardware",
           [&] { helper.addSourceToHardware( "s", 0, -1, eth( 1 ), Direction::rx ); } },
         { "removeSourceFromHardware",
           [&] { helper.removeSourceFromHardware( "s", 0, -1, eth( 1 ), Direction::rx, true ); } },
         { "verifySinglePort", [&] { helper.verifySinglePort( "s", 0, -1, eth( 1 ) ); } },
         { "verifyGreTunnelMirror", [&] { helper.verifyGreTunnelMirror( "s", 0, -1, {} ); } },
         { "hwInit", [&] { helper.hwInit(); } },
         { "maxBiDirSources", [&] { helper.maxBiDirSources(); } },
         { "maxUniDirSources", [&] { helper.maxUniDirSources(); } },
         { "updateCounters", [&] { helper.updateCounters(); } },
         { "isValidIntf", [&] { helper.isValidIntf( nullptr, eth( 1 ), true ); } },
   };
   for ( auto & [name, call] : hooks ) {
      EXPECT_DEATH( call(), "Function " + String( name ) +
                                  "\\(\\) must be implemented by derived class\n" );
   }
   EXPECT_DEATH( helper.setTcamProfileFeature( "s", "ip" ),
                 "Platform definition not implemented\n" );
   Tests::Env noop( "QON_NOOP_AGENT", "" );
   for ( auto & [name, call] : hooks ) {
      call();
   }
   helper.setTcamProfileFeature( "s", "ip" );
   EXPECT_EQ( helper.maxUniDirSources(), 255 );
   EXPECT_TRUE( helper.isValidIntf( nullptr, eth( 1 ), false ) );
}

TEST( MirroringTexts, Traces ) {
   MirrorWorld w;
   auto flow = [&] {
      w.capability->maxSupportedSessionsIs( 0 );
      w.session( "a", 1 );
      w.start();
      w.capability->maxSupportedSessionsIs( 1 );
      w.session( "b", 2 );
      w.config->session( "b" )->rateLimitIs( 1 );
      w.config->sessionDel( "a" );
      w.config->session( "b" )->targetIntfDel( eth( 2 ) );
      w.config->session( "b" )->rateLimitIs( 2 );
      w.helper->invalid = { eth( 3 ) };
      w.session( "b", 3 );
      w.config->session( "b" )->targetIntfIs( po( 1 ) );
      w.source( "b", po( 1 ) );
      w.helper->refusedTarget = { eth( 4 ) };
      w.session( "b", 4 );
      w.session( "b", 2 );
      w.source( "b", 5 )->directionIs( Direction::both );
      w.filter( "b", 6, "list" );
      w.mode->forwardingModeIs( Bridging::ForwardingMode::cutThrough );
      w.helper->removalsFail = true;
      w.config->session( "b" )->targetIntfDel( eth( 2 ) );
      w.config->sessionDel( "b" );
      w.helper->refusedTarget = { eth( 1 ) };
      w.config->sessionIs( "i" )->internalIs( true );
      w.session( "i", 1 );
      Kiv::agentRestartingIs( true );
      w.config->sessionDel( "i" );
      Kiv::agentRestartingIs( false );
   };
   Tests::expectTraced( flow,
                        {
                              "Mirroring is not supported (maxSupportedSessions=0).",
                              "Number of free Mirror groups is 1",
                              "b: HW mirroring session not available to program session",
                              "handleRateLimit b: No mirror group set. Return",
                              "handleRateLimit b: Session not created in Hw yet. Return",
                              "Found outstanding mirror session b to reassign mirror group 0",
                              "Adding mirror group 0 to free list",
                              "Adding Ethernet3 to failed ports due to invalid intf",
                              "Port-Channel1 is a LAG, carrying out operation for all members",
                              "Port-Channel1: I'm a LAG, carrying out operation for all members",
                              "Failed to create/update mirror session in hw for Ethernet4",
                              "Ethernet5 of session b has changed, removing and readding",
                              "Ethernet6: acl list not found in acl config for session b",
                              "Ethernet5 of session b: Invalid Overlapping mtp Detected",
                              "Failed to remove mirror session in hw for " + Kiv::toText( [] {
                                 Qon::QonPortList ports;
                                 ports.portIs( eth( 2 ) );
                                 return ports;
                              }() ),
                              "i: Internal session overflow",
                              "Cleanup disabled during restart, returning",
                        } );
}

} // namespace

} // namespace MirrorTests
