#pragma once
// Storm control, second generation: a chip that is given whole versions, and says which one it
// holds.
//
//    change -> PlatformConfig.platformIntfConfig[port], a new versionId
//           -> handlePortRulesHelper() of each level that changed
//           ... the chip: PlatformStatus.platformIntfStatus[port], results, then that versionId
//           -> PlatformIntfStatusSm -> IntfStatus
//
// There are no CPU levels: a configured one is ignored, and raises no version.
//
// Invariants (beside those of StormControlBaseSm)
// 1. Versions rise over the life of the state machine and start above whatever is found, so that a
//    late answer to a former life of an interface matches nothing.
// 2. An IntfStatus says what the chip reported of the version of the moment; what it reports of an
//    older one is not written, and the status stays as it is meanwhile.
// 3. A port has a platformIntfConfig while a configuration holds on it and it is active.
// 4. The status of a port begins with the first version that the chip reports; that of a
//    port-channel with its configuration.

#include "Qon/include/stormcontrol/StormControlBaseSm.h"
#include "Qon/include/stormcontrol/StormControlSmHelper.h"

namespace Qon {

class QonStormControlSmV2;

/** Follows what the chip says of one port. */
class PlatformIntfStatusSm : public QonBaseSm {
 public:
   using Status = StormControl::PlatformIntfStatus;
   PlatformIntfStatusSm( QonStormControlSmV2 * owner, Velto::Ptr< const Status > status );

   void handleInitialized() override;
   void handleVersionId();
   void handleResult( const LevelType & levelType );
   /** Whether the chip holds the version of the moment. */
   bool current() const;
   /** Writes the interface's status; the versions are equal. */
   void writeIntfStatus();

   Ulnet::IntfId intf() const { return platformIntfStatus()->intfId(); }
   const Status * platformIntfStatus() const { return status_.ptr(); }
   QonStormControlSmV2 * qonStormControlSmV2() const { return owner_; }

 private:
   QonStormControlSmV2 * owner_;
   const Velto::Ptr< const Status > status_;
   Kiv::Watch< Status::versionIdAttr, PlatformIntfStatusSm, &PlatformIntfStatusSm::handleVersionId >
         versionWatch_;
   Kiv::Watch< Status::resultAttr, PlatformIntfStatusSm, &PlatformIntfStatusSm::handleResult >
         resultWatch_;
};

/** Follows what the chip says of one traffic class. */
class AggregateTcStatusSm : public QonBaseSm {
 public:
   using Status = StormControl::PlatformAggregateTcStatus;
   AggregateTcStatusSm( QonStormControlSmV2 * owner, Velto::Ptr< const Status > status );

   void handleInitialized() override;
   void handleVersionId();
   void handleResult() { handleVersionId(); }
   bool current() const;
   void writeAggregateTcStatus();

   U8 trafficClass() const { return platformAggregateTcStatus()->trafficClass(); }
   const Status * platformAggregateTcStatus() const { return status_.ptr(); }
   QonStormControlSmV2 * qonStormControlSmV2() const { return owner_; }

 private:
   QonStormControlSmV2 * owner_;
   const Velto::Ptr< const Status > status_;
   Kiv::Watch< Status::versionIdAttr, AggregateTcStatusSm, &AggregateTcStatusSm::handleVersionId >
         versionWatch_;
   Kiv::Watch< Status::resultAttr, AggregateTcStatusSm, &AggregateTcStatusSm::handleResult >
         resultWatch_;
};

class QonStormControlSmV2 : public StormControlBaseSm {
 public:
   using PlatformConfig = StormControl::PlatformConfig;
   using PlatformStatus = StormControl::PlatformStatus;

   /** All of them must be there. */
   QonStormControlSmV2( Inputs inputs, Velto::Ptr< QonStormControlSmHelperV2 > helper,
                        Velto::Ptr< PlatformConfig > platformConfig,
                        Velto::Ptr< const PlatformStatus > platformStatus );

   void kivDoZombieReactors() override;
   void handleInitialized() override;

   /** A chip reported something of the port, or of the traffic class. */
   void handlePlatformIntfStatus( const IntfId & intf );
   void handlePlatformAggregateTcStatus( const U8 & trafficClass );
   void reported( IntfId intf );
   void tcReported( U8 trafficClass );
   String checkInvariants() const override;

   QonStormControlSmHelperV2 * helper() const { return helper_.ptr(); }
   PlatformConfig * platformConfig() const { return platformConfig_.ptr(); }
   const PlatformStatus * platformStatus() const { return platformStatus_.ptr(); }
   /** The version that was given last. */
   U32 versionId() const { return version_; }

 private:
   friend class PlatformIntfStatusSm;
   friend class AggregateTcStatusSm;

   void begin() override;
   void machineBegins( StormControlIntfSm & machine ) override;
   void program( StormControlIntfSm & machine, const Want & want ) override;
   void clear( StormControlIntfSm & machine, const Want & want ) override;
   void machineEnds( StormControlIntfSm & machine ) override;
   void programTrafficClass(
         U8 trafficClass,
         const Velto::Ptr< const StormControl::AggregateTcConfig > & config ) override;
   void reviewReport( IntfId intf ) override;
   void reviewTcReport( U8 trafficClass ) override;
   void tellBcastSkip( IntfId intf, bool skip ) override;
   bool has( const LevelKind & kind ) const final { return !kind.cpu; }
   std::optional< StormControl::AllDrops >
   dropsOf( const StormControlIntfSm & machine ) const override;
   std::vector< U8 > programmedClasses() const override;

   using AllGiven = std::array< Given, StormControl::levels >;
   void publish( const StormControlIntfSm & machine, const AllGiven & wanted,
                 Velto::Ptr< StormControl::PlatformIntfConfig > platform );
   void reset( IntfId intf );
   void findVersions();

   Velto::Ptr< PlatformIntfStatusSm >
   makeIntfStatusSm( const IntfId & intf,
                     const Velto::Ptr< const StormControl::PlatformIntfStatus > & status );
   void cleanUpIntfStatusSm( const IntfId &, PlatformIntfStatusSm * ) {}
   Velto::Ptr< AggregateTcStatusSm >
   makeTcStatusSm( const U8 & trafficClass,
                   const Velto::Ptr< const StormControl::PlatformAggregateTcStatus > & status );
   void cleanUpTcStatusSm( const U8 &, AggregateTcStatusSm * ) {}

   const Velto::Ptr< QonStormControlSmHelperV2 > helper_;
   const Velto::Ptr< PlatformConfig > platformConfig_;
   const Velto::Ptr< const PlatformStatus > platformStatus_;
   U32 version_ = 0;
   Kiv::DenseMap< U8, Threshold > classes_; // as they were handed over
   SmCollection< IntfId, Velto::Ptr< const StormControl::PlatformIntfStatus >, PlatformIntfStatusSm,
                 QonStormControlSmV2, &QonStormControlSmV2::makeIntfStatusSm,
                 &QonStormControlSmV2::cleanUpIntfStatusSm >
         intfStatusSms_{ this };
   SmCollection< U8, Velto::Ptr< const StormControl::PlatformAggregateTcStatus >,
                 AggregateTcStatusSm, QonStormControlSmV2, &QonStormControlSmV2::makeTcStatusSm,
                 &QonStormControlSmV2::cleanUpTcStatusSm >
         tcStatusSms_{ this };
   Kiv::Watch< PlatformStatus::platformIntfStatusAttr, QonStormControlSmV2,
               &QonStormControlSmV2::handlePlatformIntfStatus >
         intfStatusWatch_;
   Kiv::Watch< PlatformStatus::platformAggregateTcStatusAttr, QonStormControlSmV2,
               &QonStormControlSmV2::handlePlatformAggregateTcStatus >
         tcStatusWatch_;
};

/** `dropStatus` may be null: counters stay zero. */
Velto::Ptr< QonStormControlSmV2 >
QonStormControlSmV2Is( StormControlBaseSm::Inputs inputs,
                       Velto::Ptr< QonStormControlSmHelperV2 > helper,
                       Velto::Ptr< StormControl::PlatformConfig > platformConfig,
                       Velto::Ptr< const StormControl::PlatformStatus > platformStatus );

} // namespace Qon
