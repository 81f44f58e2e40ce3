#pragma once
// When each value below a path of the state database last changed.
//
//    ChangeTimes times( entities, "hardware/lag/state" );
//    times.of( "hardware/lag/state/lag[Port-Channel1]/member[Ethernet0]" )
//
// What is gone has no time any more. For parts of the database that are small.
//
// Ownership: the database outlives it.

#include "agent/base/PathWatch.h"
#include "platform/Kiv/Time.h"

namespace QonAgent {

class ChangeTimes {
 public:
   ChangeTimes( const Orvane::EntityManager & entities, const String & path );
   ChangeTimes( const ChangeTimes & ) = delete;
   ChangeTimes & operator=( const ChangeTimes & ) = delete;

   /** None if it has not changed since this was made. */
   std::optional< Kiv::Seconds > of( const String & path ) const;

 private:
   void handleChange( const PathWatch::Change & change );

   std::map< String, Kiv::Seconds > times_;
   Velto::Ptr< PathWatch > watch_;
};

} // namespace QonAgent
