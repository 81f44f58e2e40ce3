#include "Qon/include/mirroring/MirroringSmHelper.h"

namespace Qon {

void
MirroringSmHelper::missing( const char * hook ) const {
   qonAssert( "Function " + String( hook ) +
              "() must be implemented by derived class" ); // fixed text
}

bool
MirroringSmHelper::createMirror( const String &, int, int, IntfId, bool ) {
   missing( "createMirror" );
   return true;
}

bool
MirroringSmHelper::removeMirror( const String &, int, int, const QonPortList & ) {
   missing( "removeMirror" );
   return true;
}

bool
MirroringSmHelper::createGreTunnelMirror( const String &, int, int, const Mirroring::TunnelInfo &,
                                          const Tunnel::Resolution & ) {
   missing( "createGreTunnelMirror" );
   return true;
}

bool
MirroringSmHelper::updateGreTunnelMirror( const String &, int, int, const Mirroring::TunnelInfo &,
                                          const Tunnel::Resolution & ) {
   missing( "updateGreTunnelMirror" );
   return true;
}

bool
MirroringSmHelper::removeGreTunnelMirror( const String &, int, int ) {
   missing( "removeGreTunnelMirror" );
   return true;
}

bool
MirroringSmHelper::addSourceToHardware( const String &, int, int, IntfId, Direction ) {
   missing( "addSourceToHardware" );
   return true;
}

bool
MirroringSmHelper::removeSourceFromHardware( const String &, int, int, IntfId, Direction, bool ) {
   missing( "removeSourceFromHardware" );
   return true;
}

bool
MirroringSmHelper::verifySinglePort( const String &, int, int, IntfId ) {
   missing( "verifySinglePort" );
   return true;
}

bool
MirroringSmHelper::verifyGreTunnelMirror( const String &, int, int,
                                          const Mirroring::TunnelInfo & ) {
   missing( "verifyGreTunnelMirror" );
   return true;
}

void
MirroringSmHelper::hwInit() {
   missing( "hwInit" );
}

U8
MirroringSmHelper::maxBiDirSources() {
   missing( "maxBiDirSources" );
   return 255;
}

U8
MirroringSmHelper::maxUniDirSources() {
   missing( "maxUniDirSources" );
   return 255;
}

void
MirroringSmHelper::updateCounters() {
   missing( "updateCounters" );
}

bool
MirroringSmHelper::isValidIntf( const Interface::EthPhyIntfStatus *, IntfId, bool ) {
   missing( "isValidIntf" );
   return true;
}

void
MirroringSmHelper::setTcamProfileFeature( const String &, const String & ) {
   qonAssert( "Platform definition not implemented" ); // fixed text
}

bool
MirroringSmHelper::sourcesFit( const String &, U32 biDir, U32 uniDir ) {
   const U32 maxBi = maxBiDirSources(), maxUni = maxUniDirSources();
   return biDir <= maxBi && uniDir <= maxUni && biDir * maxUni + uniDir * maxBi <= maxBi * maxUni;
}

bool
MirroringSmHelper::sourcesOverlap( const String &, U32 rx, U32 tx ) {
   return rx && tx;
}

} // namespace Qon
