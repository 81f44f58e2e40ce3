// Trace facilities, their sinks and files, and the environment's say in them.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>

#include <unistd.h>

#include "Qon/include/framework/QonTraceHandles.h"
#include "platform/Flintlog/TraceRecorder.h"

namespace {

using Flintlog::Facility;
using Record = Flintlog::TraceRecorder::Record;

struct TracedIntf {
   Velto::String stringValue() const { return "Vlan10"; }
};

TEST( Trace, UnheardPiecesAreNotEvaluated ) {
   Facility facility( "Quiet" );
   U32 evaluated = 0;
   auto piece = [&] { return ++evaluated; };
   QON_TRACE( facility, 0, "never ", piece() );
   EXPECT_EQ( evaluated, 0u );
   Flintlog::levelIs( "Quiet", 5 );
   Flintlog::TraceRecorder recorder;
   QON_TRACE( facility, 6, "too fine ", piece() );
   EXPECT_EQ( evaluated, 0u );
   QON_TRACE( facility, 5, "heard ", piece() );
   EXPECT_EQ( recorder.records(), ( std::vector< Record >{ { "Quiet", 5, "heard 1" } } ) );
}

TEST( Trace, OrderAndFiltersAcrossFacilities ) {
   Flintlog::levelIs( "B", 3 );
   Facility a( "A" ), b( "B" ); // the filter of B was set before B existed
   Flintlog::TraceRecorder recorder;
   QON_TRACE( a, 9, "one" );
   QON_TRACE( b, 3, "two" );
   QON_TRACE( b, 4, "unheard" );
   Flintlog::levelIs( "B", 9 );
   QON_TRACE( b, 4, "three" );
   QON_TRACE( a, 0, "four" );
   EXPECT_EQ(
         recorder.records(),
         ( std::vector< Record >{
               { "A", 9, "one" }, { "B", 3, "two" }, { "B", 4, "three" }, { "A", 0, "four" } } ) );
}

TEST( Trace, AFacilityCanHaveItsOwnSink ) {
   struct Counter : Flintlog::Sink {
      void trace( const char *, U8, const Velto::String & ) override { ++count; }
      U32 count = 0;
   } own;
   Facility facility( "Own" );
   facility.sinkIs( &own );
   QON_TRACE( facility, 1, "own" );
   {
      Flintlog::TraceRecorder recorder;
      QON_TRACE( facility, 1, "still own" );
      facility.sinkIs( nullptr );
      QON_TRACE( facility, 1, "the process's" );
      EXPECT_EQ( recorder.records().size(), 1u );
   }
   EXPECT_EQ( own.count, 2u );
   EXPECT_FALSE( facility.hears( 0 ) );
}

TEST( Trace, Pieces ) {
   enum class Phase : U8 { commit = 2 };
   TracedIntf intf;
   const TracedIntf * none = nullptr;
   Velto::String name = "topo1";
   EXPECT_EQ( Flintlog::joined( "  ", name, ' ', Phase::commit, ' ', &intf, ' ', none, ' ', intf ),
              "  topo1 2 Vlan10 None Vlan10" );
   EXPECT_EQ( Flintlog::joined( U8( 7 ), ' ', S32( -7 ), ' ', ~U64( 0 ), ' ', true, ' ', 0.25, ' ',
                                std::numeric_limits< double >::infinity() ),
              "7 -7 18446744073709551615 True 0.25 inf" );
}

class HandleTest : public testing::Test {
 protected:
   HandleTest() {
      directory = testing::TempDir() + "traceXXXXXX";
      EXPECT_TRUE( mkdtemp( directory.data() ) );
      Flintlog::Handle::directoryIs( directory );
      unsetenv( "FLINTLOG_DISABLE" );
      unsetenv( "AGENT_PROCESS_NAME" );
   }
   ~HandleTest() override {
      unsetenv( "FLINTLOG_DISABLE" );
      unsetenv( "AGENT_PROCESS_NAME" );
      Flintlog::Handle::directoryIs( "" );
      std::filesystem::remove_all( directory );
   }

   Velto::String file( const Velto::String & name ) const { return directory + "/" + name; }
   std::size_t files() const {
      using Walk = std::filesystem::directory_iterator;
      return std::size_t( std::distance( Walk( directory ), Walk() ) );
   }
   static Velto::String content( const Velto::String & path ) {
      std::ostringstream all;
      all << std::ifstream( path ).rdbuf();
      return all.str();
   }

   Velto::String directory;
   Flintlog::HandlePtr handle;
};

TEST_F( HandleTest, WritesToItsFileAndContinuesIt ) {
   Facility facility( "QonArpSm" );
   for ( U32 run = 0; run < 2; ++run ) {
      Flintlog::HandlePtr own;
      Qon::initializeQonL3QtHandle( own, "QonArpSm", 2 );
      facility.sinkIs( own.get() );
      QON_TRACE( facility, 2, "added ", TracedIntf() );
      QON_TRACE( facility, 3, "too fine for the handle" );
      EXPECT_NE( content( file( "QonArpSm.qt" ) ), "" ); // nothing waits in a buffer
      facility.sinkIs( nullptr );
   }
   EXPECT_EQ( content( file( "QonArpSm.qt" ) ),
              "1 QonArpSm 2 added Vlan10\n1 QonArpSm 2 added Vlan10\n" );
}

TEST_F( HandleTest, CreatedOnceAndNeverWhenDisabled ) {
   setenv( "FLINTLOG_DISABLE", "", 1 ); // present is set, even if empty
   Qon::initializeQonL3QtHandle( handle, "first" );
   Qon::initializeQonL3QtHandleUniqueName( handle, "first" );
   EXPECT_EQ( handle, nullptr );
   EXPECT_EQ( files(), 0u );
   unsetenv( "FLINTLOG_DISABLE" ); // and it is read at each use
   Qon::initializeQonL3QtHandle( handle, "first" );
   Qon::initializeQonL3QtHandle( handle, "second" );
   EXPECT_EQ( handle->path(), file( "first.qt" ) );
   EXPECT_EQ( files(), 1u );
}

TEST_F( HandleTest, UniqueNames ) {
   Qon::initializeQonL3QtHandleUniqueName( handle, "Qon/adjacency/QonL2AdjSm.cc" );
   EXPECT_EQ( handle->path(), file( "QonL2AdjSm.qt" ) );
   Velto::String pid = std::to_string( getpid() );
   for ( Velto::String process : { "Forwarding", "Linecard3" } ) {
      handle = nullptr;
      setenv( "AGENT_PROCESS_NAME", process.c_str(), 1 );
      Qon::initializeQonL3QtHandleUniqueName( handle );
      EXPECT_EQ( handle->path(), file( process + "-" + pid + ".qt" ) );
   }
   handle = nullptr;
   Qon::initializeQonL3QtHandle( handle, "plain" ); // the plain form does not look at it
   EXPECT_EQ( handle->path(), file( "plain.qt" ) );
}

TEST_F( HandleTest, AFileThatCannotBeWrittenChangesNothing ) {
   Flintlog::Handle::directoryIs( file( "missing" ) );
   Qon::initializeQonL3QtHandle( handle, "lost" );
   ASSERT_NE( handle, nullptr );
   EXPECT_FALSE( handle->open() );
   handle->trace( "QonArpSm", 1, "dropped" );
   EXPECT_EQ( files(), 0u );
}

} // namespace
