#pragma once
// The MAC programmer of the chip in software: how a chip-specific agent overrides its hooks.
//
//    writeToHw( cmd ) -> HostTable::start -> ... later -> handleCmdResponse
//                          |  queue full: suspendPending         `-> half empty: on with it
//    writeToHwShadow( cmd ) -> the software's own table, at once
//
// suspendPending is this class's: it holds the drain while the chip's queue is full.

#include "Qon/include/mac/QonChipProgrammer.h"
#include "agent/softchip/HostTable.h"

namespace SoftChip {

class SoftMacProgrammer : public Qon::QonMacProgrammer {
 public:
   SoftMacProgrammer( Kiv::TimerWheel * wheel, const HostTableShape & shape, FaultPlan & plan );

   Qon::MacProgramStatus writeToHw( const Qon::MacCmdPtr & cmd ) override;
   Qon::MacProgramStatus writeToHwShadow( const Qon::MacCmdPtr & cmd ) override;

   const HostTable & table() const { return *table_; }
   /** What shadow commands have put into the software's table. */
   const Kiv::DenseMap< Qon::MacEntryKey, Ulnet::IntfId > & shadow() const { return shadow_; }

 private:
   void answer( U64 id, U32 index, Qon::MacProgramStatus status );

   Velto::Ptr< HostTable > table_;
   Kiv::DenseMap< Qon::MacEntryKey, Ulnet::IntfId > shadow_;
};

Velto::Ptr< SoftMacProgrammer >
SoftMacProgrammerIs( Kiv::TimerWheel * wheel, const HostTableShape & shape, FaultPlan & plan );

} // namespace SoftChip
