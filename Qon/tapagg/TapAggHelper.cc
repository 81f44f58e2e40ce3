#include "Qon/include/tapagg/TapAggHelper.h"

namespace Qon {

void
TapAggHelper::missing( const char * hook ) const {
   qonAssert( unimplementedFunction( ( "TapAggHelper::" + String( hook ) ).c_str() ) );
}

void
TapAggHelper::missingToolHook( const char * hook ) const {
   qonAssert( "Unimplemented function " + String( hook ) ); // fixed text
}

void
TapAggHelper::hwInit() {
   missing( "hwInit" );
}

void
TapAggHelper::hwCleanup() {
   missing( "hwCleanup" );
}

U32
TapAggHelper::allocateAggGroup( const String & ) {
   missing( "allocateAggGroup" );
   return 0;
}

void
TapAggHelper::deallocateAggGroup( U32 ) {
   missing( "deallocateAggGroup" );
}

void
TapAggHelper::tapPortIs( IntfId, bool, bool ) {
   missing( "tapPortIs" );
}

void
TapAggHelper::toolPortIs( IntfId, bool, bool ) {
   missing( "toolPortIs" );
}

void
TapAggHelper::addTapPortAssociation( IntfId, U32 ) {
   missing( "addTapPortAssociation" );
}

void
TapAggHelper::removeTapPortAssociation( IntfId ) {
   missing( "removeTapPortAssociation" );
}

void
TapAggHelper::addToolPortAssociation( IntfId, U32 ) {
   missing( "addToolPortAssociation" );
}

void
TapAggHelper::removeToolPortAssociation( IntfId, U32 ) {
   missing( "removeToolPortAssociation" );
}

void
TapAggHelper::updateToolInterfaceLagMembership( IntfId, IntfId, U32, bool ) {
   missing( "updateToolInterfaceLagMembership" );
}

void
TapAggHelper::tapTruncationSizeIs( IntfId, U32 ) {
   missing( "tapTruncationSizeIs" );
}

void
TapAggHelper::toolTruncationSizeIs( IntfId, U32 ) {
   missing( "toolTruncationSizeIs" );
}

void
TapAggHelper::identityTagIs( IntfId, const IdentityTuple & ) {
   missing( "identityTagIs" );
}

void
TapAggHelper::taggingOnEgressIs( IntfId, ToolIdentityMode ) {
   missing( "taggingOnEgressIs" );
}

void
TapAggHelper::handleTcamProfile( const String & ) {
   missing( "handleTcamProfile" );
}

U32
TapAggHelper::getMaxExternalFrameSizeTapAgg() {
   missing( "getMaxExternalFrameSizeTapAgg" );
   return 0;
}

bool
TapAggHelper::verifyHwState() {
   missing( "verifyHwState" );
   return true;
}

bool
TapAggHelper::verifyAggGroup( const String &, U32 ) {
   missing( "verifyAggGroup" );
   return true;
}

bool
TapAggHelper::verifyTapPort( IntfId, bool, bool ) {
   missing( "verifyTapPort" );
   return true;
}

bool
TapAggHelper::verifyToolPort( IntfId, bool, bool ) {
   missing( "verifyToolPort" );
   return true;
}

bool
TapAggHelper::verifyTapPortAssociation( IntfId, U32 ) {
   missing( "verifyTapPortAssociation" );
   return true;
}

bool
TapAggHelper::verifyToolPortAssociation( IntfId, U32 ) {
   missing( "verifyToolPortAssociation" );
   return true;
}

bool
TapAggHelper::verifyTapTruncationSize( IntfId, U32 ) {
   missing( "verifyTapTruncationSize" );
   return true;
}

bool
TapAggHelper::verifyToolTruncationSize( IntfId, U32 ) {
   missing( "verifyToolTruncationSize" );
   return true;
}

bool
TapAggHelper::verifyIdentityTag( IntfId, const IdentityTuple & ) {
   missing( "verifyIdentityTag" );
   return true;
}

bool
TapAggHelper::verifyTaggingOnEgress( IntfId, ToolIdentityMode ) {
   missing( "verifyTaggingOnEgress" );
   return true;
}

void
TapAggHelper::toolBrStripIs( IntfId, bool ) {
   missingToolHook( "toolBrStripIs" );
}

void
TapAggHelper::toolMplsPopIs( IntfId, bool ) {
   missingToolHook( "toolMplsPopIs" );
}

void
TapAggHelper::toolVnStripIs( IntfId, bool ) {
   missingToolHook( "toolVnStripIs" );
}

bool
TapAggHelper::verifyToolBrStrip( IntfId, bool ) {
   missingToolHook( "verifyToolBrStrip" );
   return true;
}

bool
TapAggHelper::verifyToolMplsPop( IntfId, bool ) {
   missingToolHook( "verifyToolMplsPop" );
   return true;
}

bool
TapAggHelper::verifyToolVnStrip( IntfId, bool ) {
   missingToolHook( "verifyToolVnStrip" );
   return true;
}

} // namespace Qon
