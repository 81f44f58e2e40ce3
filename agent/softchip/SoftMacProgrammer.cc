#include "agent/softchip/SoftMacProgrammer.h"

namespace SoftChip {

using Qon::MacProgramStatus;

SoftMacProgrammer::SoftMacProgrammer( Kiv::TimerWheel * wheel, Velto::Ptr< HostTable > table )
    : QonMacProgrammer( wheel ), table_( std::move( table ) ) {
   table_->hook.is( this );
}

SoftMacProgrammer::~SoftMacProgrammer() {
   table_->hook.is( nullptr );
}

MacProgramStatus
SoftMacProgrammer::writeToHw( const Qon::MacCmdPtr & cmd ) {
   table_->start(
         { cmd->transactionId(), cmd->type(), cmd->key(), cmd->intf(), cmd->entryType() } );
   suspendPendingIs( table_->queued() >= table_->shape().depth );
   return MacProgramStatus::macProgramInProgress;
}

void
SoftMacProgrammer::done( U64 id, U32 index, MacProgramStatus status ) {
   const Velto::Ptr< SoftMacProgrammer > alive( this );
   handleCmdResponse( id, index, status );
   queueMoved();
}

void
SoftMacProgrammer::queueMoved() {
   if ( suspendPending() && table_->queued() <= table_->shape().depth / 2 ) {
      suspendPendingIs( false );
      Qon::wakeUp( updatePendingAddressClock(), Kiv::now() );
   }
}

MacProgramStatus
SoftMacProgrammer::writeToHwShadow( const Qon::MacCmdPtr & cmd ) {
   if ( !cmd->addrOp() ) {
      shadow_.clear();
   } else if ( cmd->type() == Qon::IndirectAccessMacCmdType::removeHost ) {
      shadow_.erase( cmd->key() );
   } else {
      *shadow_.emplace( cmd->key(), cmd->intf() ).first = cmd->intf();
   }
   handleCmdResponse( cmd->transactionId(), 0, MacProgramStatus::macProgramSuccess );
   return MacProgramStatus::macProgramSuccess;
}

} // namespace SoftChip
