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

/** Expects that the flow traces nothing with one of the words in it. */
inline void
expectNoTrace( const std::function< void() > & flow, const std::vector< Velto::String > & words ) {
   Flintlog::TraceRecorder recorder;
   flow();
   for ( auto & record : recorder.records() ) {
      for ( auto & word : words ) {
         EXPECT_EQ( record.text.find( word ), Velto::String::npos ) << record.text;
      }
   }
}

} // namespace Tests
