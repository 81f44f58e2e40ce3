#pragma once
// What was dropped, summed over the slices, and the log of it.
//
//    DropSlice per slice -> StormControlDropSliceSm -> StormControlDropIntfSm per interface
//          -> DropStatus.allIntfStatus: the sums
//    a clock, every dropLoggingInterval -> handleDropLogging() -> ETH_STORMCONTROL_DISCARDS
//
// Invariants
// 1. allIntfStatus has an entry for each interface that a slice reports, and its counters are the sum
//    of what the slices report now, modulo 2^64. A slice that goes takes its part along.
// 2. The number `reporters` of an entry is another one, never used before, whenever other slices
//    report the interface than before.
// 3. Logged is an interface that says so in its configuration or in that of its port-channel; if the
//    configuration says so for all, every one that has an IntfStatus. In ascending order, every
//    interval while a sum is not zero.
// 4. The clock is armed while logging is enabled anywhere and the interval is not zero. A change of
//    the interval counts from the next firing on.
//
// Ownership: counts its inputs and outputs; owns the machines. DropStatus is written here alone.

#include "Qon/include/framework/SmCollection.h"
#include "Qon/include/stormcontrol/StormControlPlatform.h"
#include "platform/Kiv/Clock.h"

namespace Qon {

class StormControlDropSm;

/** One interface in one slice. */
class StormControlDropIntfSm : public QonBaseSm {
 public:
   using Status = StormControl::DropIntfStatus;
   StormControlDropIntfSm( StormControlDropSm * dropSm, Velto::Ptr< const Status > status );

   void handleInitialized() override;
   void handleDrops();
   /** The slice does not report the interface any more. */
   void doCleanup();

 private:
   StormControlDropSm * dropSm_;
   const Velto::Ptr< const Status > status_;
   bool counted_ = false;
   StormControl::Drops last_; // its part of the sum
   Kiv::Watch< Status::dropsAttr, StormControlDropIntfSm, &StormControlDropIntfSm::handleDrops >
         dropsWatch_;
};

/** One slice. */
class StormControlDropSliceSm : public QonBaseSm {
 public:
   using Slice = StormControl::DropSlice;
   StormControlDropSliceSm( StormControlDropSm * dropSm, Velto::Ptr< const Slice > slice );

   void handleInitialized() override;
   void kivDoZombieReactors() override;
   void handleIntfStatus( const Ulnet::IntfId & intf );
   /** The slice goes. */
   void doCleanup();

 private:
   using Status = StormControl::DropIntfStatus;
   Velto::Ptr< StormControlDropIntfSm > makeIntfSm( const Ulnet::IntfId & intf,
                                                    const Velto::Ptr< const Status > & status );
   void cleanUpIntfSm( const Ulnet::IntfId & intf, StormControlDropIntfSm * sm );

   StormControlDropSm * dropSm_;
   const Velto::Ptr< const Slice > slice_;
   SmCollection< Ulnet::IntfId, Velto::Ptr< const Status >, StormControlDropIntfSm,
                 StormControlDropSliceSm, &StormControlDropSliceSm::makeIntfSm,
                 &StormControlDropSliceSm::cleanUpIntfSm >
         intfs_{ this };
   Kiv::Watch< Slice::intfStatusAttr, StormControlDropSliceSm,
               &StormControlDropSliceSm::handleIntfStatus >
         intfWatch_;
};

class StormControlDropSm : public QonBaseSm, public Checked {
 public:
   using IntfId = Ulnet::IntfId;

   /** All must be there. */
   struct Inputs {
      Velto::Ptr< const StormControl::Config > config;
      Velto::Ptr< const StormControl::Status > status; // who has an entry has a machine
      Velto::Ptr< const StormControl::DropSliceDir > sliceDir;
      Velto::Ptr< StormControl::DropStatus > dropStatus;
      Velto::Ptr< const QonCommonSmData > acsd;
      Kiv::TimerWheel * wheel = Kiv::TimerWheel::current();
   };
   explicit StormControlDropSm( Inputs inputs );

   void handleInitialized() override;
   void kivDoZombieReactors() override;

   void handleSlice( const String & name );
   void handleConfigIntf( const IntfId & intf );
   /** Logs what was dropped on every interface with drop logging enabled. */
   void handleDropLogging();
   void handleSyslogClock();
   /** Arms the clock if it is idle and logging is enabled; else stops it. */
   void setSyslogTimer();
   /** When the next messages are due; never while logging is off. */
   Kiv::Seconds syslogTime() const { return syslogClock_ ? syslogClock_->time() : Kiv::never; }
   bool dropLoggingEnabled( IntfId intf ) const;
   String checkInvariants() const override;

   StormControl::DropStatus * dropStatus() const { return in_.dropStatus.ptr(); }

 private:
   friend class StormControlDropIntfSm;

   /** What a configuration of an interface says about logging. */
   class LoggingSm : public QonBaseSm {
    public:
      LoggingSm( StormControlDropSm * dropSm, Velto::Ptr< const StormControl::IntfConfig > config );
      void handleInitialized() override;
      void handleDropLogging();

    private:
      StormControlDropSm * dropSm_;
      const Velto::Ptr< const StormControl::IntfConfig > config_;
      Kiv::Watch< StormControl::IntfConfig::dropLoggingAttr, LoggingSm,
                  &LoggingSm::handleDropLogging >
            loggingWatch_;
   };

   /** A slice begins, or ceases, to report the interface. */
   void reporterIs( IntfId intf, bool reports );
   void add( IntfId intf, const StormControl::Drops & change );
   void clearStaleEntries();
   void loggingIs( IntfId intf, bool enabled );
   void log( IntfId intf ) const;

   Velto::Ptr< StormControlDropSliceSm >
   makeSliceSm( const String & name, const Velto::Ptr< const StormControl::DropSlice > & slice );
   void cleanUpSliceSm( const String & name, StormControlDropSliceSm * sm );
   Velto::Ptr< LoggingSm > makeLoggingSm( const IntfId & intf,
                                          const Velto::Ptr< const StormControl::IntfConfig > & c );
   void cleanUpLoggingSm( const IntfId & intf, LoggingSm * sm );

   const Inputs in_;
   Kiv::DenseMap< IntfId, U32 > reporters_; // how many slices report it
   KeySet< IntfId > logging_;               // configurations that ask for it
   SmCollection< String, Velto::Ptr< const StormControl::DropSlice >, StormControlDropSliceSm,
                 StormControlDropSm, &StormControlDropSm::makeSliceSm,
                 &StormControlDropSm::cleanUpSliceSm >
         slices_{ this };
   SmCollection< IntfId, Velto::Ptr< const StormControl::IntfConfig >, LoggingSm,
                 StormControlDropSm, &StormControlDropSm::makeLoggingSm,
                 &StormControlDropSm::cleanUpLoggingSm >
         configs_{ this };
   Kiv::ClockReactor< StormControlDropSm, &StormControlDropSm::handleSyslogClock > syslogClock_;
   Kiv::Watch< StormControl::DropSliceDir::sliceAttr, StormControlDropSm,
               &StormControlDropSm::handleSlice >
         sliceWatch_;
   Kiv::Watch< StormControl::Config::intfAttr, StormControlDropSm,
               &StormControlDropSm::handleConfigIntf >
         configWatch_;
   Kiv::Watch< StormControl::Config::dropLoggingAttr, StormControlDropSm,
               &StormControlDropSm::setSyslogTimer >
         loggingWatch_;
   Kiv::Watch< StormControl::Config::dropLoggingIntervalAttr, StormControlDropSm,
               &StormControlDropSm::setSyslogTimer >
         intervalWatch_;
};

Velto::Ptr< StormControlDropSm > StormControlDropSmIs( StormControlDropSm::Inputs inputs );

} // namespace Qon
