#pragma once
// How often each hook of the chip's agent was called, while this lives.

#include <map>
#include <unordered_map>

#include "Qon/include/framework/HookTap.h"

namespace QonAgent {

class HookCounts : private Qon::HookListener {
 public:
   HookCounts() : HookListener( false ) {}
   /** By name, "Class::hook". */
   std::map< Velto::String, U64 > byName() const {
      std::map< Velto::String, U64 > all;
      for ( auto & [hook, calls] : calls_ ) {
         all[hook] += calls;
      }
      return all;
   }

 private:
   void hookCalled( const char * hook, const Velto::String & ) override { ++calls_[hook]; }

   std::unordered_map< const char *, U64 > calls_; // several names may be the same text
};

} // namespace QonAgent
