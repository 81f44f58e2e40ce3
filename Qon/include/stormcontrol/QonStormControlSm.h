#pragma once
// Storm control, first generation: a chip that takes each level at once.
//
//    configuration, membership, speed, activity -> StormControlBaseSm -> program( port )
//         -> updateBcastSkipRule, then setHwRate and setCpuHwRate of each level that changed
//         -> IntfStatus of the port
//
// Invariants (beside those of StormControlBaseSm)
// 1. The hooks of the start come first, in this order: hwInit(), installRules(), the capability
//    queries; then statuses that nobody wants go, then burst time, traffic classes, interfaces.
// 2. On an inactive port, and on one that has lost its configuration, every level is the default.
// 3. Every machine has an IntfStatus, and it says what was handed over last.

#include "Qon/include/framework/VerifyData.h"
#include "Qon/include/stormcontrol/StormControlBaseSm.h"
#include "Qon/include/stormcontrol/StormControlSmHelper.h"

namespace Qon {

class StormControlSm : public StormControlBaseSm {
 public:
   /** `helper` must be there. */
   StormControlSm( Inputs inputs, Velto::Ptr< StormControlSmHelper > helper,
                   Velto::Ptr< VerifyData > verifyData );

   /** Programs one level of a port, if it is not what the chip was told last, and says so in the
       port's status, if there is one. */
   void updateLevel( StormControlIntfSm & machine, const LevelKind & kind, const Given & wanted,
                     StormControl::IntfStatus * status );
   /** Calls the verifying hooks for everything that is programmed. */
   void handleVerify();
   String checkInvariants() const override;

   StormControlSmHelper * helper() const { return helper_.ptr(); }
   VerifyData * verifyData() const { return verifyData_.ptr(); }

 private:
   void begin() override;
   void machineBegins( StormControlIntfSm & machine ) override;
   void program( StormControlIntfSm & machine, const Want & want ) override;
   void clear( StormControlIntfSm & machine, const Want & want ) override;
   void machineEnds( StormControlIntfSm & machine ) override;
   void programTrafficClass(
         U8 trafficClass,
         const Velto::Ptr< const StormControl::AggregateTcConfig > & config ) override;
   void tellBcastSkip( IntfId intf, bool skip ) override;
   void tellLagConfig( IntfId intf ) override;
   void reviewBurst() override;
   void verifyIntf( IntfId intf );
   bool has( const LevelKind & kind ) const final {
      return uucast_ || kind.type != LevelType::levelTypeUUcast;
   }
   std::vector< U8 > programmedClasses() const override;

   const Velto::Ptr< StormControlSmHelper > helper_;
   const Velto::Ptr< VerifyData > verifyData_;
   bool uucast_ = false; // what the chip said at the start
   bool burst_ = false;
   bool burstTold_ = false;
   StormControl::BurstConfig burstGiven_;
   Kiv::DenseMap< U8, std::optional< Threshold > > classes_; // as they were handed over
   VerifyCheck check_;
};

/** `dropStatus` and `verifyData` may be null: counters stay zero, nothing is verified. */
Velto::Ptr< StormControlSm > StormControlSmIs( StormControlBaseSm::Inputs inputs,
                                               Velto::Ptr< StormControlSmHelper > helper,
                                               Velto::Ptr< VerifyData > verifyData = nullptr );

} // namespace Qon
