#pragma once
// Interfaces that drop are taken out of service, where the cause "storm-control" is enabled.
//
//    IntfStatus: a drop counter rises -> is the cause enabled, and does a configuration hold?
//                                     -> Errdisable::CauseStatus.intfStatus[intf] = now
//
// Invariants
// 1. Only a rise of one of the four packet counters counts, and only against values that can be
//    compared: not the first ones, nor those of other slices.
// 2. An entry is set once. Who recovers the interface deletes it; the next rise sets it again.
// 3. Nothing is deleted here, and what happened while the cause was disabled is not made up for.
//
// Ownership: counts its inputs and outputs; owns a machine for each IntfStatus.

#include <array>

#include "Qon/include/framework/SmCollection.h"
#include "Qon/include/stormcontrol/StormControlTypes.h"
#include "platform/types/Errdisable.h"

namespace Qon {

class StormControlErrdisableSm;

/** Follows the counters of one interface. */
class StormControlErrdisableIntfSm : public QonBaseSm {
 public:
   using Status = StormControl::IntfStatus;
   StormControlErrdisableIntfSm( StormControlErrdisableSm * owner,
                                 Velto::Ptr< const Status > status );

   void handleInitialized() override;
   void handleUucastDrop() { look( 0, status_->uucastDrop() ); }
   void handleBroadcastDrop() { look( 1, status_->broadcastDrop() ); }
   void handleMulticastDrop() { look( 2, status_->multicastDrop() ); }
   void handleAllDrop() { look( 3, status_->allDrop() ); }
   void handleDropsComparable();

 private:
   void look( U32 counter, U64 now );
   void remember();

   StormControlErrdisableSm * owner_;
   const Velto::Ptr< const Status > status_;
   std::array< U64, 4 > last_{};
   Kiv::Watch< Status::uucastDropAttr, StormControlErrdisableIntfSm,
               &StormControlErrdisableIntfSm::handleUucastDrop >
         uucastWatch_;
   Kiv::Watch< Status::broadcastDropAttr, StormControlErrdisableIntfSm,
               &StormControlErrdisableIntfSm::handleBroadcastDrop >
         broadcastWatch_;
   Kiv::Watch< Status::multicastDropAttr, StormControlErrdisableIntfSm,
               &StormControlErrdisableIntfSm::handleMulticastDrop >
         multicastWatch_;
   Kiv::Watch< Status::allDropAttr, StormControlErrdisableIntfSm,
               &StormControlErrdisableIntfSm::handleAllDrop >
         allWatch_;
   Kiv::Watch< Status::dropsComparableAttr, StormControlErrdisableIntfSm,
               &StormControlErrdisableIntfSm::handleDropsComparable >
         comparableWatch_;
};

class StormControlErrdisableSm : public QonBaseSm {
 public:
   using IntfId = Ulnet::IntfId;

   /** All must be there. */
   struct Inputs {
      Velto::Ptr< const StormControl::Config > config;
      Velto::Ptr< const StormControl::Status > status;
      Velto::Ptr< const Errdisable::CauseConfig > causeConfig;
      Velto::Ptr< Errdisable::CauseStatus > causeStatus; // of the cause below
      Velto::Ptr< const QonCommonSmData > acsd;
   };
   static constexpr char cause[] = "storm-control";

   explicit StormControlErrdisableSm( Inputs inputs ) : in_( std::move( inputs ) ) {}

   void handleInitialized() override;
   void kivDoZombieReactors() override;
   void handleIntfStatus( const IntfId & intf );
   /** Whether the interface is to be disabled when it drops. */
   bool applies( IntfId intf ) const;
   /** It has dropped. */
   void errdisable( IntfId intf );

 private:
   Velto::Ptr< StormControlErrdisableIntfSm >
   makeIntfSm( const IntfId & intf, const Velto::Ptr< const StormControl::IntfStatus > & status );
   void cleanUpIntfSm( const IntfId &, StormControlErrdisableIntfSm * ) {}

   const Inputs in_;
   SmCollection< IntfId, Velto::Ptr< const StormControl::IntfStatus >, StormControlErrdisableIntfSm,
                 StormControlErrdisableSm, &StormControlErrdisableSm::makeIntfSm,
                 &StormControlErrdisableSm::cleanUpIntfSm >
         intfs_{ this };
   Kiv::Watch< StormControl::Status::intfStatusAttr, StormControlErrdisableSm,
               &StormControlErrdisableSm::handleIntfStatus >
         statusWatch_;
};

Velto::Ptr< StormControlErrdisableSm >
StormControlErrdisableSmIs( StormControlErrdisableSm::Inputs inputs );

} // namespace Qon
