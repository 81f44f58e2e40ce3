#include "Qon/include/mac/IndirectAccessMacCmd.h"

#include "Qon/mac/SlabPool.h"
#include "platform/Kiv/Describe.h"

KIV_DEFINE( Qon::IndirectAccessMacCmd )

namespace Qon {

namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr bool pooled = false; // uses of released commands shall be found
#else
constexpr bool pooled = true;
#endif

SlabPool< sizeof( IndirectAccessMacCmd ) > pool;

} // namespace

void *
IndirectAccessMacCmd::operator new( std::size_t size ) {
   return pooled && size == sizeof( IndirectAccessMacCmd ) ? pool.take() : ::operator new( size );
}

void
IndirectAccessMacCmd::operator delete( void * p, std::size_t size ) {
   if ( pooled && size == sizeof( IndirectAccessMacCmd ) ) {
      pool.give( p );
   } else {
      ::operator delete( p );
   }
}

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
