#pragma once
// Merges what the slices of the hardware hold of each aggregate into one state.
//
//    Hardware::Lag::Status of each slice -> LagStateAggregatorSm, by key
//        -> LagMemberStateAggregatorSm per aggregate -> merged Hardware::Lag::Status
//
// Invariants
// 1. An aggregate, or a member of it, is in the merged state exactly while a slice has it.
// 2. A member may collect (distribute) when it may on every slice that has it. Its result, as that
//    of the aggregate, is success when it is on every slice that has it, else that of the first
//    slice where it is not.
// 3. A change costs as much as there are slices, whatever the number of aggregates.
//
// Ownership: counts inputs and outputs; the merged state is written by this class alone.

#include <memory>

#include "Qon/include/framework/QonBaseSm.h"
#include "Qon/include/framework/SmCollection.h"
#include "platform/types/HardwareLag.h"

namespace Qon {

class LagStateAggregatorSm;

/** One aggregate: its own state and that of its members. */
class LagMemberStateAggregatorSm : public QonBaseSm {
 public:
   using LagStatus = Hardware::Lag::LagStatus;
   LagMemberStateAggregatorSm( LagStateAggregatorSm * aggregator, Ulnet::IntfId lag );

   void handleInitialized() override;
   /** A slice got or lost the aggregate: follows those that have it now. */
   void handleSlices();
   void handleMember( const Ulnet::IntfId & member );
   void handleState();
   /** Removes the aggregate from the merged state, member by member. */
   void doCleanup();

   Ulnet::IntfId lag() const { return lag_; }

 private:
   /** The watches on one slice's state of the aggregate. */
   struct Slice {
      Kiv::Watch< LagStatus::memberAttr, LagMemberStateAggregatorSm,
                  &LagMemberStateAggregatorSm::handleMember >
            member;
      Kiv::Watch< LagStatus::resultAttr, LagMemberStateAggregatorSm,
                  &LagMemberStateAggregatorSm::handleState >
            result;
      Kiv::Watch< LagStatus::indexAttr, LagMemberStateAggregatorSm,
                  &LagMemberStateAggregatorSm::handleState >
            index;
   };
   KeySet< Ulnet::IntfId > knownMembers() const;

   LagStateAggregatorSm * aggregator_;
   const Ulnet::IntfId lag_;
   std::vector< std::unique_ptr< Slice > > slices_; // one for each of the aggregator's
};

class LagStateAggregatorSm : public QonBaseSm {
 public:
   using Slices = std::vector< Velto::Ptr< const Hardware::Lag::Status > >;
   LagStateAggregatorSm( Slices slices, Velto::Ptr< Hardware::Lag::Status > merged );

   void handleInitialized() override;
   void kivDoZombieReactors() override;

   void handleHwLagStatus( const Ulnet::IntfId & lag );

   const Slices & slices() const { return slices_; }
   Hardware::Lag::Status * merged() const { return merged_.ptr(); }
   LagMemberStateAggregatorSm * lagSm( Ulnet::IntfId lag ) const { return lags_.sm( lag ); }
   /** Whether a slice has the aggregate. */
   bool lagExists( Ulnet::IntfId lag ) const;

 private:
   Velto::Ptr< LagMemberStateAggregatorSm > makeLagSm( const Ulnet::IntfId & lag, const bool & );
   void cleanUpLagSm( const Ulnet::IntfId & lag, LagMemberStateAggregatorSm * sm );

   using LagWatch = Kiv::Watch< Hardware::Lag::Status::lagAttr, LagStateAggregatorSm,
                                &LagStateAggregatorSm::handleHwLagStatus >;

   const Slices slices_;
   const Velto::Ptr< Hardware::Lag::Status > merged_;
   SmCollection< Ulnet::IntfId, bool, LagMemberStateAggregatorSm, LagStateAggregatorSm,
                 &LagStateAggregatorSm::makeLagSm, &LagStateAggregatorSm::cleanUpLagSm >
         lags_{ this };
   std::vector< std::unique_ptr< LagWatch > > watches_;
};

Velto::Ptr< LagStateAggregatorSm >
LagStateAggregatorSmIs( LagStateAggregatorSm::Slices slices,
                        Velto::Ptr< Hardware::Lag::Status > merged );

} // namespace Qon
