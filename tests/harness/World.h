#pragma once
// What every flow of a feature stands on: virtual time, the shared agent data, recorded logs.

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>

#include "Qon/include/framework/QonCommonSmData.h"
#include "platform/Kiv/LogRecorder.h"
#include "platform/Kiv/TaskScheduler.h"

namespace Tests {

using Velto::String;

/** Sets environment variables until it goes; what was there before comes back. */
class Env {
 public:
   Env() = default;
   Env( const String & variable, const String & value ) { set( variable, value ); }
   Env( const Env & ) = delete;
   Env & operator=( const Env & ) = delete;
   ~Env() {
      for ( auto & [variable, value] : former_ ) {
         value.second ? setenv( variable.c_str(), value.first.c_str(), 1 )
                      : unsetenv( variable.c_str() );
      }
   }
   void set( const String & variable, const String & value ) {
      remember( variable );
      setenv( variable.c_str(), value.c_str(), 1 );
   }
   void unset( const String & variable ) {
      remember( variable );
      unsetenv( variable.c_str() );
   }

 private:
   void remember( const String & variable ) {
      const char * now = std::getenv( variable.c_str() );
      former_.try_emplace( variable, now ? now : "", now != nullptr );
   }
   std::map< String, std::pair< String, bool > > former_;
};

/** One agent's surroundings. Members that a feature's World adds die before these. */
class World {
 public:
   World() { acsd->initializedIs( true ); }

   Kiv::VirtualScheduler scheduler;
   Kiv::LogRecorder logs;
   Velto::Ptr< Qon::QonCommonSmData > acsd = Qon::qonCommonSmDataFactory( "acsd" );
};

inline Ulnet::IntfId
intf( const String & name ) {
   return Ulnet::IntfId( name );
}

} // namespace Tests
