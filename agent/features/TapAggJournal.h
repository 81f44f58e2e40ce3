#pragma once
// The state machine of tap aggregation, with the times at which groups and ports changed.

#include <map>

#include "agent/features/TapAggFeature.h"

namespace QonAgent {

class TapAggFeature::Journal : public Qon::TapAggSm {
 public:
   using TapAggSm::TapAggSm;

   void groupStateChanged( const String & name ) override {
      const Group now = { groupIdOf( name ), pendingAggGroupHas( name ), Kiv::now() };
      auto [held, fresh] = groups_.try_emplace( name, now );
      if ( now.id == 0 && !now.pending ) {
         groups_.erase( held );
      } else if ( !fresh && ( now.id != held->second.id || now.pending != held->second.pending ) ) {
         held->second = now;
      }
   }
   void portStateChanged( const Qon::TapAggIntfSm & sm ) override {
      ports_[{ sm.role(), sm.intf() }] = Kiv::now();
   }

   /** When it came to be as it is; 0: not since the agent began. */
   Kiv::Seconds time( const String & group ) const {
      auto held = groups_.find( group );
      return held == groups_.end() ? 0 : held->second.since;
   }
   Kiv::Seconds time( const Qon::TapAggIntfSm & sm ) const {
      auto held = ports_.find( { sm.role(), sm.intf() } );
      return held == ports_.end() ? 0 : held->second;
   }

 private:
   struct Group {
      U32 id;
      bool pending;
      Kiv::Seconds since;
   };
   std::map< String, Group > groups_;
   std::map< std::pair< Qon::TapAggRole, Ulnet::IntfId >, Kiv::Seconds > ports_;
};

} // namespace QonAgent
