#pragma once

// A world whose chip answers late, when the test says so.

#include "tests/acl/AclWorld.h"

namespace AclTests {

struct LateWorld : AclWorld {
   explicit LateWorld( bool config = true ) {
      auto limits = table.limits();
      limits.async = config;
      limits.asyncBlock = true;
      table.limitsAre( limits );
      latencyIs( Kiv::never );
      list( "a" );
      attach( "Ethernet1", "a" );
   }
   void latencyIs( Kiv::Seconds latency ) {
      table.completions().latencyIs( latency );
      table.blockCompletions().latencyIs( latency );
   }
   void answer() {
      table.completions().finishAll();
      table.blockCompletions().finishAll();
      settle();
   }
   void answerAll() {
      for ( U32 n = 0; n < 20; ++n ) {
         settle();
         answer();
      }
      EXPECT_EQ( aclSm->phase(), Qon::AclApplyPhase::done );
      EXPECT_EQ( table.held().blocked, std::set< IntfId >() );
   }
};

} // namespace AclTests
