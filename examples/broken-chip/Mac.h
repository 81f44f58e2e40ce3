#pragma once
// Hosts of the chip: a table, and the hook class that writes it a little later.

#include "Tables.h"

namespace Chip {

/** Hosts: answers every command by its transaction id. */
class ChipMac : public Qon::QonMacProgrammer {
 public:
   using Status = Qon::MacProgramStatus;
   using Type = Qon::IndirectAccessMacCmdType;

   ChipMac( Tables & tables, Faults faults, Kiv::TimerWheel * wheel )
       : QonMacProgrammer( wheel ), tables_( tables ), faults_( faults ), later_( wheel ) {}

   Status writeToHw( const Qon::MacCmdPtr & cmd ) override {
      later_.add( [this, cmd, id = cmd->transactionId()] {
         if ( faults_.lostAnswer && cmd->type() == Type::removeHost &&
              !tables_.hosts.contains( cmd->key() ) ) {
            return;
         }
         handleCmdResponse( id, 0, cmd->addrOp() ? host( *cmd ) : flush( *cmd ) );
      } );
      return Status::macProgramInProgress;
   }
   Status writeToHwShadow( const Qon::MacCmdPtr & cmd ) override { return writeToHw( cmd ); }

 private:
   Status host( const Qon::IndirectAccessMacCmd & cmd ) {
      auto & hosts = tables_.hosts;
      if ( cmd.type() == Type::removeHost ) {
         hosts.erase( cmd.key() );
      } else if ( hosts.contains( cmd.key() ) || hosts.size() < Tables::hostRoom ) {
         hosts[cmd.key()] = { cmd.intf(), cmd.entryType() };
      } else {
         VELTO_ASSERT( !faults_.fullAborts );
         return Status::macProgramFull;
      }
      return Status::macProgramSuccess;
   }
   Status flush( const Qon::IndirectAccessMacCmd & cmd ) {
      std::erase_if( tables_.hosts, [&]( auto & host ) {
         return QonChip::flushTakes( cmd, host.first, host.second );
      } );
      return Status::macProgramSuccess;
   }

   Tables & tables_;
   Faults faults_;
   Later later_;
};

} // namespace Chip
