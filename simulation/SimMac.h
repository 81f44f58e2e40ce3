#pragma once
// MAC commands: a chip with small buckets that takes commands in order, and answers at once, late,
// out of order, twice, with busy and errors, or to what nobody asked.
//
//    add, remove, flush -> Programmer -> writeToHw -> carryOut(), in the order of writing
//    alarm, or the event "answer" -> handleCmdResponse
//
// Checked beyond the programmer's own invariants, from what was handed in and what was written:
// 1. No command is written that is not the newest wish for its key, nor while it is in flight.
// 2. First attempts are made in the order in which commands were handed in.
// 3. At rest the last word about every key is its newest wish: written and done, or in overflow
//    with a full bucket; every flush was written and finished; the clocks are idle.
// 4. While reading the time costs nothing, the clocks fire when MacModel says, and a full table is
//    reported when it says.

#include <map>
#include <vector>

#include "Qon/include/mac/QonChipProgrammer.h"
#include "platform/Kiv/Alarm.h"
#include "platform/Kiv/Listener.h"
#include "simulation/MacModel.h"
#include "simulation/SimFeature.h"

namespace Sim {

class SimMac : public SimFeature {
 public:
   explicit SimMac( World & world );

   static std::span< const Operation > operations();

   void start() override;
   void heard( const Kiv::LogDescriptor & message, const String & text ) override;
   String checkStep() const override;
   String checkInvariants() const override;
   void faultsIs( bool on ) override;
   String checkAtRest() const override;
   bool mayStayArmed() const override;
   bool working() const override;
   void tearDown() override;
   String checkTornDown() const override;
   void stop() override;
   void kill( Ending ending ) override;

 private:
   using Status = Qon::MacProgramStatus;
   using Cmd = Qon::IndirectAccessMacCmd;

   class Programmer : public Qon::QonMacProgrammer {
    public:
      Programmer( SimMac * sim, Kiv::TimerWheel * wheel )
          : QonMacProgrammer( wheel ), sim_( sim ) {}
      Status writeToHw( const Qon::MacCmdPtr & cmd ) override { return sim_->write( *cmd, false ); }
      Status writeToHwShadow( const Qon::MacCmdPtr & cmd ) override {
         return sim_->write( *cmd, true );
      }

    private:
      SimMac * sim_;
   };

   /** What the simulation knows of one key. */
   struct Key {
      Qon::MacCmdPtr wish;                          ///< the newest; null if there never was one
      bool attempted = false;                       ///< the wish was written
      Status answer = Status::macProgramInProgress; ///< the chip's to its last write
      bool held = false;                            ///< in the chip's table
      Ulnet::IntfId heldIntf;
   };
   struct Flush {
      bool attempted = false;
      bool done = false;
   };
   struct Answer {
      U64 transaction;
      Status status;
      S64 serial; ///< of the command
      U32 key;    ///< ~0 for a flush
   };
   static constexpr U32 noKey = ~U32( 0 );

   /** @name Operations */
   /** @{ */
   void add( const Event & event );
   void remove( const Event & event );
   void burst( const Event & event );
   void flush( const Event & event );
   void answerOne( const Event & event );
   void answerUnknown( const Event & event );
   void answerAgain( const Event & event );
   void modeIs( const Event & event );
   void suspend( const Event & event );
   void nestedIs( const Event & event );
   void quantumIs( const Event & event );
   void runNow( const Event & event );
   void restartAll( const Event & event );
   /** @} */

   void follow( Kiv::Listener< Kiv::Clock::firedAttr > & ear, Kiv::Clock * clock,
                MacModel::Run run );
   Qon::MacEntryKey keyOf( U32 i ) const;
   U32 indexOf( const Qon::MacEntryKey & key ) const;
   void handIn( U32 i, Qon::IndirectAccessMacCmdType type, U32 port, bool shadow );

   Status write( const Cmd & cmd, bool shadow );
   void checkWrite( const Cmd & cmd, U32 i );
   void checkOrder( S64 serial, bool & attempted );
   Status carryOut( const Cmd & cmd, U32 i );
   Status place( U32 i, Ulnet::IntfId intf );
   void carryOutFlush( const Cmd & cmd );
   U32 bucketOf( U32 i ) const { return i / 4; }
   U32 inBucket( U32 bucket ) const;
   void deliver( const Answer & answer );
   void answer( U32 place );
   String checkKey( U32 i ) const;

   Rng rng_;
   U32 busy_, parity_, failed_, bucketWidth_; ///< per cent, and entries
   bool faults_ = false;
   U32 mode_ = 0;   ///< how the chip answers: inside the hook, late, when an event says so
   U32 nested_ = 0; ///< further commands to hand in from inside the hook
   S64 serial_ = 0; ///< of the last command handed in
   S64 lastFirst_ = 0;
   std::vector< Key > keys_;
   std::map< S64, Flush > flushes_;
   std::vector< Answer > unanswered_;
   Answer lastAnswer_{};
   Velto::Ptr< Programmer > programmer_;
   bool direct_ = false; ///< a run that no clock fired is under way
   mutable MacModel model_;
   Kiv::Listener< Kiv::Clock::firedAttr > drains_, polls_, retries_;
   Kiv::Alarm alarm_{ [this] { answer( rng_.below( 4 ) ); } };
};

} // namespace Sim
