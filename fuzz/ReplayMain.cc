// replay-inputs NAME FOLDER...: gives every file of the folders to a fuzzer, as a test.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "fuzz/Fuzz.h"

namespace {

/** A folder that is not there has no files. */
std::set< std::filesystem::path >
filesOf( const char * folder ) {
   std::set< std::filesystem::path > files;
   if ( std::filesystem::exists( folder ) ) {
      for ( auto & entry : std::filesystem::directory_iterator( folder ) ) {
         files.insert( entry.path() );
      }
   }
   return files;
}

} // namespace

int
main( int argc, char ** argv ) {
   const auto found = argc > 2 ? Fuzz::all().find( argv[1] ) : Fuzz::all().end();
   if ( found == Fuzz::all().end() ) {
      std::fprintf( stderr, "usage: replay-inputs NAME FOLDER...; names:" );
      for ( auto & [name, one] : Fuzz::all() ) {
         std::fprintf( stderr, " %s", name.c_str() );
      }
      std::fprintf( stderr, "\n" );
      return 2;
   }
   unsigned count = 0;
   for ( int i = 2; i < argc; ++i ) {
      for ( auto & file : filesOf( argv[i] ) ) {
         std::printf( "%s\n", file.c_str() ); // the last line before a crash names the file
         std::fflush( stdout );
         std::ostringstream text;
         text << std::ifstream( file, std::ios::binary ).rdbuf();
         const std::string bytes = text.str();
         found->second(
               { reinterpret_cast< const unsigned char * >( bytes.data() ), bytes.size() } );
         ++count;
      }
   }
   std::printf( "%u inputs\n", count );
   return count ? 0 : 1;
}
