#include "platform/Kiv/Time.h"

#include <chrono>
#include <limits>
#include <utility>

namespace Kiv {

const Seconds never = std::numeric_limits< Seconds >::infinity();

namespace {
TimeSource * installed = nullptr;
U64 reads = 0;
} // namespace

Seconds
now() {
   ++reads;
   if ( installed ) {
      return installed->now();
   }
   auto sinceBoot = std::chrono::steady_clock::now().time_since_epoch();
   return std::chrono::duration< Seconds >( sinceBoot ).count();
}

TimeSource *
timeSourceIs( TimeSource * source ) {
   return std::exchange( installed, source );
}

U64
timeReads() {
   return reads;
}

} // namespace Kiv
