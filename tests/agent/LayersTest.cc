// tools/check-layers finds an include that runs up the layers, in a copy of the tree.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "platform/Velto/Types.h"

namespace {

using Velto::String;

class Layers : public ::testing::Test {
 protected:
   Layers() {
      run( "rm -rf " + copy + " && mkdir " + copy +
           " && cp -r platform Qon chip conformance agent " + copy + " && git init -q " + copy );
   }
   ~Layers() override { run( "rm -rf " + copy ); }

   static int run( const String & command ) { return std::system( command.c_str() ); }
   /** What the check says of the copy; "" if nothing is wrong. */
   String check() {
      const String answer = copy + "/answer";
      run( "root=$PWD; cd " + copy + " && $root/tools/check-layers > answer" );
      std::ifstream file( answer );
      return { std::istreambuf_iterator< char >( file ), {} };
   }
   /** The same with one more include in a file. */
   String with( const String & file, const String & included ) {
      std::ifstream in( file );
      const String text( std::istreambuf_iterator< char >( in ), {} );
      std::ofstream( copy + "/" + file ) << "#include \"" << included << "\"\n" << text;
      const String said = check();
      std::ofstream( copy + "/" + file ) << text;
      return said;
   }

   const String copy = ::testing::TempDir() + "layers." + std::to_string( getpid() );
};

TEST_F( Layers, EveryIncludeThatRunsUpIsFound ) {
   ASSERT_EQ( check(), "" );
   const struct {
      const char * file;
      const char * included;
      const char * what;
   } cases[] = {
         { "Qon/lag/QonLagSm.cc", "Qon/include/topology/QonStpSm.h",
           "the feature lag includes the feature topology" },
         { "Qon/framework/QonBaseSm.cc", "Qon/include/mac/QonMacTypes.h",
           "framework includes mac, which stands above it" },
         { "Qon/include/mac/QonMacTypes.h", "Qon/include/lag/QonLagSm.h",
           "the feature mac includes the feature lag" },
         { "agent/softchip/LagTable.cc", "agent/features/LagFeature.h",
           "agent/softchip includes agent/features, which stands above it" },
         { "agent/features/LagFeature.cc", "agent/server/Console.h",
           "agent/features includes agent/server, which stands above it" },
         { "agent/features/MacFeature.cc", "agent/player/EventPlayer.h",
           "agent/features includes agent/player, which stands above it" },
         { "agent/Agent.cc", "agent/features/MacFeature.h",
           "agent includes agent/features, which stands above it" },
         { "chip/Chip.h", "agent/softchip/Chip.h", "chip includes agent/softchip" },
   };
   for ( auto & c : cases ) {
      const String said = with( c.file, c.included );
      EXPECT_NE( said.find( String( c.file ) + ":1: " + c.what ), String::npos )
            << c.file << ", " << c.included << ": " << said;
   }
}

} // namespace
