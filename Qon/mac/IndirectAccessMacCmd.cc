#include "Qon/include/IndirectAccessMacCmd.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Qon::IndirectAccessMacCmd )

namespace Qon {

Velto::String
IndirectAccessMacCmd::stringValue() const {
   return Kiv::toText( type() ) + " " + key().key().mac().stringValue() + " vlan " +
          key().key().vlan().stringValue() + " " + Kiv::toText( key().macHwType() ) + " intf " +
          intf().stringValue() + " id " + Kiv::toText( transactionId() ) +
          ( valid() ? "" : " out-of-date" );
}

MacCmdPtr
indirectAccessMacCmdFactory( IndirectAccessMacCmdType type, const MacEntryKey & key,
                             Ulnet::IntfId intf, Bridging::EntryType entryType, S64 opArg,
                             U64 transactionId ) {
   return Velto::make< IndirectAccessMacCmd >( type, key, intf, entryType, opArg, transactionId );
}

} // namespace Qon
