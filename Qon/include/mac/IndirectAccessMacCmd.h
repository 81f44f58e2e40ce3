#pragma once
// One command to a chip that takes MAC table changes through an indirect-access interface.
//
//    MAC address state machine -> indirectAccessMacCmdFactory -> QonMacProgrammer::handleAddrOp
//    QonMacProgrammer -> writeToHw( cmd ) -> chip ... handleCmdResponse( transactionId, ... )
//
// From acceptance until it is finished a command belongs to the programmer: the caller changes
// neither its type nor its key. A command that was superseded is not valid and never becomes so
// again; the next wish for the key is a new command.

#include "Qon/include/mac/QonMacTypes.h"
#include "platform/Kiv/Attr.h"
#include "platform/types/Ulnet.h"

namespace Qon {

class IndirectAccessMacCmd : public Kiv::Entity {
   KIV_BODY( IndirectAccessMacCmd, Kiv::Entity )
   KIV_ATTR( IndirectAccessMacCmdType, type, IndirectAccessMacCmdType::addHost )
   KIV_ATTR( MacEntryKey, key )
   KIV_ATTR( Ulnet::IntfId, intf )
   KIV_ATTR( Bridging::EntryType, entryType, Bridging::EntryType::unknown )
   KIV_ATTR( S64, opArg, 0 )         // for the chip's use: what the type of operation needs
   KIV_ATTR( U64, transactionId, 0 ) // 0 is none; the programmer gives one at the write
   KIV_ATTR( U32, tblIndex, 0 )      // where the chip says it put the entry
   KIV_ATTR( U8, shadow, 0 )         // not 0: meant for the software shadow of the table
   KIV_ATTR( bool, valid, true )
   KIV_ATTR( double, execStartTime, 0.0 ) // when it was written, in seconds of Kiv::now()
   KIV_ATTR( MacProgramStatus, status, MacProgramStatus::macProgramInProgress )

 public:
   /** `opArg` is handed to the chip as it is. A caller that numbers its commands itself may preset
       `transactionId`: the first write keeps it if no command in flight has it. */
   IndirectAccessMacCmd( IndirectAccessMacCmdType type, const MacEntryKey & key, Ulnet::IntfId intf,
                         Bridging::EntryType entryType, S64 opArg = 0, U64 transactionId = 0 )
       : type_( type ), key_( key ), intf_( intf ), entryType_( entryType ), opArg_( opArg ),
         transactionId_( transactionId ) {}

   /** Whether it is about one entry (add, remove); flushes are not. */
   bool addrOp() const { return type() <= IndirectAccessMacCmdType::addMcastHost; }
   bool invalid() const { return !valid(); }
   Velto::String stringValue() const;

   /** From a pool: storms make and release hundreds of thousands. The reactor thread's only. */
   static void * operator new( std::size_t size );
   static void operator delete( void * p, std::size_t size );

 private:
   friend class QonMacProgrammer;

   /** Where the programmer keeps it; `none` also when it was superseded and only waits to be
       dropped. */
   enum class Stage : U8 { none, pending, inFlight, overflowed };
   Stage stage_ = Stage::none;
};

using MacCmdPtr = Velto::Ptr< IndirectAccessMacCmd >;

MacCmdPtr indirectAccessMacCmdFactory( IndirectAccessMacCmdType type, const MacEntryKey & key,
                                       Ulnet::IntfId intf, Bridging::EntryType entryType,
                                       S64 opArg = 0, U64 transactionId = 0 );

} // namespace Qon
