#pragma once
// What a flow traces.

#include <functional>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "platform/Flintlog/TraceRecorder.h"

namespace Tests {

/** Expects that the flow traces each of the texts, in any order; other traces are of no account. */
inline void
expectTraced( const std::function< void() > & flow, const std::vector< Velto::String > & texts ) {
   Flintlog::TraceRecorder recorder;
   flow();
   std::set< Velto::String > traced;
   Velto::String all;
   for ( auto & record : recorder.records() ) {
      all += traced.insert( record.text ).second ? "\"" + record.text + "\"\n" : "";
   }
   for ( auto & text : texts ) {
      EXPECT_TRUE( traced.contains( text ) ) << '"' << text << "\"; there are:\n" << all;
   }
}

} // namespace Tests
