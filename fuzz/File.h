#pragma once
// A file in memory that an input becomes, for what is read by its name.

#include <fstream>
#include <unistd.h>

#include "platform/Kiv/Text.h"

namespace Fuzz {

using Velto::String;

class File {
 public:
   /** There is none of that name yet. */
   File() : name( "/dev/shm/qon-fuzz." + Kiv::toText( U32( getpid() ) ) ) {
      unlink( name.c_str() );
   }
   explicit File( const String & content ) : File() {
      std::ofstream( name, std::ios::binary ) << content;
   }
   ~File() { unlink( name.c_str() ); }
   File( const File & ) = delete;
   File & operator=( const File & ) = delete;

   const String name;
};

} // namespace Fuzz
