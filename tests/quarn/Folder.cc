#include <cstdlib>
#include <filesystem>

#include "tests/quarn/Tables.h"

namespace QuarnTest {

Folder::Folder() {
   char name[] = "/tmp/quarn-test-XXXXXX";
   VELTO_ASSERT( mkdtemp( name ) );
   path_ = name;
}

Folder::~Folder() {
   std::error_code ignored;
   std::filesystem::remove_all( path_, ignored );
}

} // namespace QuarnTest
