#pragma once
// Verification runs: requests in bursts, switched on and off, runs for the console. The checks of
// the other features run too: an agent whose handlers have all returned has nothing to find.

#include "Qon/include/framework/VerifySm.h"
#include "simulation/ClockLaw.h"
#include "simulation/SimFeature.h"

namespace Sim {

class SimVerify : public SimFeature {
 public:
   explicit SimVerify( World & world );
   ~SimVerify() override;

   static std::span< const Operation > operations();

   void start() override;
   String checkStep() const override;
   String checkAtRest() const override;
   void kill( Ending ending ) override;
   void stop() override;

 private:
   /** @name Operations */
   /** @{ */
   void request( const Event & event );
   void runForConsole( const Event & event );
   void enabledIs( const Event & event );
   /** @} */

   /** A check that counts how often it runs. */
   class Counter : public Velto::Node {
    public:
      void check() {
         ++runs;
         request = data->verifyRequired()->verifyRequired();
      }
      Velto::Ptr< Qon::VerifyData > data;
      U32 runs = 0;
      U32 request = 0; ///< the last one that a run knows of
      Qon::VerifyCheck place;
   };

   Velto::Ptr< Qon::VerifyData > data_;
   Velto::Ptr< Counter > counter_;
   U32 consoleRuns_ = 0;
   U32 requests_ = 0;   ///< those that count: made while verification was on
   U32 runsAtLast_ = 0; ///< runs before the last one of them
   mutable ClockLaw runs_;
};

} // namespace Sim
