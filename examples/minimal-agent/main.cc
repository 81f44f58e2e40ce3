// A whole agent over a chip of one's own, which so far takes MAC entries and nothing else.
//
//    minimal-agent --config leaf.json &      then: qonctl show mac

#include "agent/AgentProgram.h"
#include "chip/MacPart.h"

namespace {

/** Takes every entry at once. The entries are the chip's: they stay when the programmer goes. */
class MyMacProgrammer : public Qon::QonMacProgrammer {
 public:
   MyMacProgrammer( Kiv::TimerWheel * wheel, QonChip::HeldHosts & hosts )
       : QonMacProgrammer( wheel ), hosts_( hosts ) {}

   Qon::MacProgramStatus writeToHw( const Qon::MacCmdPtr & cmd ) override {
      if ( cmd->type() == Qon::IndirectAccessMacCmdType::removeHost ) {
         hosts_.erase( cmd->key() );
      } else if ( cmd->addrOp() ) {
         hosts_[cmd->key()] = { cmd->intf(), cmd->entryType() };
      }
      handleCmdResponse( cmd->transactionId(), 0, Qon::MacProgramStatus::macProgramSuccess );
      return Qon::MacProgramStatus::macProgramInProgress;
   }

 private:
   QonChip::HeldHosts & hosts_;
};

class MyChip : public QonChip::Chip, private QonChip::MacPart {
 public:
   explicit MyChip( Kiv::TaskScheduler & scheduler ) : wheel_( scheduler.timerWheel() ) {
      add< QonChip::MacPart >( *this );
   }
   QonChip::String name() const override { return "minimal"; }

 private:
   QonChip::Ptr< Qon::QonMacProgrammer > makeProgrammer() override {
      return Qon::smIs< MyMacProgrammer >( wheel_, hosts_ );
   }
   std::optional< QonChip::HeldHosts > hosts() const override { return hosts_; }

   Kiv::TimerWheel * const wheel_;
   QonChip::HeldHosts hosts_;
};

} // namespace

int
main( int argc, char ** argv ) {
   return QonAgent::agentMain( argc, argv, []( Kiv::TaskScheduler & scheduler ) {
      return std::make_unique< MyChip >( scheduler );
   } );
}
