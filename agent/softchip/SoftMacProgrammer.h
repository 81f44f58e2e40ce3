#pragma once
// The MAC programmer of the chip in software: how a chip-specific agent overrides its hooks.
//
//    writeToHw( cmd ) -> HostTable::start -> ... later -> handleCmdResponse
//                          |  queue full: suspendPending         `-> half empty: on with it
//    writeToHwShadow( cmd ) -> the software's own table, at once
//
// suspendPending is this class's: it holds the drain while the chip's queue is full.
//
// Ownership: counts the table, which outlives it by the chip that owns it.

#include "Qon/include/mac/QonChipProgrammer.h"
#include "agent/softchip/HostTable.h"

namespace SoftChip {

class SoftMacProgrammer : public Qon::QonMacProgrammer, private HostTable::Hook {
 public:
   SoftMacProgrammer( Kiv::TimerWheel * wheel, Velto::Ptr< HostTable > table );
   ~SoftMacProgrammer() override;

   Qon::MacProgramStatus writeToHw( const Qon::MacCmdPtr & cmd ) override;
   Qon::MacProgramStatus writeToHwShadow( const Qon::MacCmdPtr & cmd ) override;

   const HostTable & table() const { return *table_; }
   /** What shadow commands have put into the software's table. */
   const Kiv::DenseMap< Qon::MacEntryKey, Ulnet::IntfId > & shadow() const { return shadow_; }

 private:
   void done( U64 id, U32 index, Qon::MacProgramStatus status ) override;
   void queueMoved() override;

   const Velto::Ptr< HostTable > table_;
   Kiv::DenseMap< Qon::MacEntryKey, Ulnet::IntfId > shadow_;
};

} // namespace SoftChip
