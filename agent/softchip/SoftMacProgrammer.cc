#include "agent/softchip/SoftMacProgrammer.h"

namespace SoftChip {

using Qon::MacProgramStatus;

SoftMacProgrammer::SoftMacProgrammer( Kiv::TimerWheel * wheel, const HostTableShape & shape,
                                      FaultPlan & plan )
    : QonMacProgrammer( wheel ),
      table_( Velto::make< HostTable >( wheel, shape, plan,
                                        [this]( U64 id, U32 index, MacProgramStatus status ) {
                                           answer( id, index, status );
                                        } ) ) {}

MacProgramStatus
SoftMacProgrammer::writeToHw( const Qon::MacCmdPtr & cmd ) {
   table_->start(
         { cmd->transactionId(), cmd->type(), cmd->key(), cmd->intf(), cmd->entryType() } );
   suspendPendingIs( table_->queued() >= table_->shape().depth );
   return MacProgramStatus::macProgramInProgress;
}

void
SoftMacProgrammer::answer( U64 id, U32 index, MacProgramStatus status ) {
   handleCmdResponse( id, index, status );
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

Velto::Ptr< SoftMacProgrammer >
SoftMacProgrammerIs( Kiv::TimerWheel * wheel, const HostTableShape & shape, FaultPlan & plan ) {
   return Qon::smIs< SoftMacProgrammer >( wheel, shape, plan );
}

} // namespace SoftChip
