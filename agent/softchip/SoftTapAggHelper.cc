#include "agent/softchip/SoftTapAggHelper.h"

namespace SoftChip {

using QonChip::HeldTapPort;
using QonChip::HeldToolPort;

template< class T >
void
SoftTapAggHelper::tapSetting( IntfId intf, T HeldTapPort::*field, const T & value ) {
   if ( auto port = table_.tap( intf, "setting" ) ) {
      port->*field = value;
   }
}

template< class T >
void
SoftTapAggHelper::toolSetting( IntfId intf, T HeldToolPort::*field, const T & value ) {
   if ( auto port = table_.tool( intf, "setting" ) ) {
      port->*field = value;
   }
}

template< class T >
bool
SoftTapAggHelper::tapHas( IntfId intf, T HeldTapPort::*field, const T & value ) const {
   auto port = table_.held().taps.find( intf );
   return port != table_.held().taps.end() && port->second.*field == value;
}

template< class T >
bool
SoftTapAggHelper::toolHas( IntfId intf, T HeldToolPort::*field, const T & value ) const {
   auto port = table_.held().tools.find( intf );
   return port != table_.held().tools.end() && port->second.*field == value;
}

void
SoftTapAggHelper::tapTruncationSizeIs( IntfId intf, U32 size ) {
   tapSetting( intf, &HeldTapPort::truncationSize, size );
}

void
SoftTapAggHelper::identityTagIs( IntfId intf, const IdentityTuple & identity ) {
   tapSetting( intf, &HeldTapPort::identity, identity );
}

void
SoftTapAggHelper::tapMacAddressIs( IntfId intf, Ulnet::EthAddr address ) {
   tapSetting( intf, &HeldTapPort::macAddress, address );
}

void
SoftTapAggHelper::tapHeaderRemoveIs( IntfId intf, U32 size ) {
   tapSetting( intf, &HeldTapPort::headerRemove, size );
}

void
SoftTapAggHelper::tapGreStripIs( IntfId intf, bool strip ) {
   tapSetting( intf, &HeldTapPort::greStrip, strip );
}

void
SoftTapAggHelper::tapVxlanStripIs( IntfId intf, bool strip ) {
   tapSetting( intf, &HeldTapPort::vxlanStrip, strip );
}

void
SoftTapAggHelper::tapMplsPopIs( IntfId intf, bool pop ) {
   tapSetting( intf, &HeldTapPort::mplsPop, pop );
}

void
SoftTapAggHelper::toolTruncationSizeIs( IntfId intf, U32 size ) {
   toolSetting( intf, &HeldToolPort::truncationSize, size );
}

void
SoftTapAggHelper::taggingOnEgressIs( IntfId intf, ToolIdentityMode mode ) {
   toolSetting( intf, &HeldToolPort::identityTagging, mode );
}

void
SoftTapAggHelper::toolBrStripIs( IntfId intf, bool strip ) {
   toolSetting( intf, &HeldToolPort::brStrip, strip );
}

void
SoftTapAggHelper::toolMplsPopIs( IntfId intf, bool pop ) {
   toolSetting( intf, &HeldToolPort::mplsPop, pop );
}

void
SoftTapAggHelper::toolVnStripIs( IntfId intf, bool strip ) {
   toolSetting( intf, &HeldToolPort::vnStrip, strip );
}

void
SoftTapAggHelper::toolDot1qRemoveIs( IntfId intf, U8 tags ) {
   toolSetting( intf, &HeldToolPort::dot1qRemove, tags );
}

void
SoftTapAggHelper::tapGreStripForEpIs( IntfId intf, const Ulnet::IpGenAddr & endpoint, bool strip ) {
   if ( auto port = table_.tap( intf, "setting" ) ) {
      strip ? void( port->greStripForEp.insert( endpoint ) )
            : void( port->greStripForEp.erase( endpoint ) );
   }
}

bool
SoftTapAggHelper::verifyAggGroup( const String & name, U32 group ) {
   auto held = table_.held().groups.find( group );
   return held != table_.held().groups.end() && held->second == name;
}

bool
SoftTapAggHelper::verifyTapPort( IntfId intf, bool enabled, bool ) {
   return table_.held().taps.contains( intf ) == enabled;
}

bool
SoftTapAggHelper::verifyToolPort( IntfId intf, bool enabled, bool ) {
   return table_.held().tools.contains( intf ) == enabled;
}

bool
SoftTapAggHelper::verifyToolPortAssociation( IntfId intf, U32 group ) {
   auto port = table_.held().tools.find( intf );
   return port != table_.held().tools.end() && port->second.groups.contains( group );
}

bool
SoftTapAggHelper::verifyTapTruncationSize( IntfId intf, U32 size ) {
   return tapHas( intf, &HeldTapPort::truncationSize, size );
}

bool
SoftTapAggHelper::verifyIdentityTag( IntfId intf, const IdentityTuple & identity ) {
   return tapHas( intf, &HeldTapPort::identity, identity );
}

bool
SoftTapAggHelper::verifyTapPortAssociation( IntfId intf, U32 group ) {
   return tapHas( intf, &HeldTapPort::group, group );
}

bool
SoftTapAggHelper::verifyToolTruncationSize( IntfId intf, U32 size ) {
   return toolHas( intf, &HeldToolPort::truncationSize, size );
}

bool
SoftTapAggHelper::verifyTaggingOnEgress( IntfId intf, ToolIdentityMode mode ) {
   return toolHas( intf, &HeldToolPort::identityTagging, mode );
}

bool
SoftTapAggHelper::verifyToolBrStrip( IntfId intf, bool strip ) {
   return toolHas( intf, &HeldToolPort::brStrip, strip );
}

bool
SoftTapAggHelper::verifyToolMplsPop( IntfId intf, bool pop ) {
   return toolHas( intf, &HeldToolPort::mplsPop, pop );
}

bool
SoftTapAggHelper::verifyToolVnStrip( IntfId intf, bool strip ) {
   return toolHas( intf, &HeldToolPort::vnStrip, strip );
}

} // namespace SoftChip
