#include "platform/Kiv/Toggle.h"

#include <cctype>
#include <cstring>
#include <fstream>
#include <sstream>

namespace Kiv {

namespace {

Velto::String &
directory() {
   static Velto::String path = "/etc/toggles";
   return path;
}

/** Goes through a JSON text once; remembers nothing but what one name of the outermost object is. */
class ToggleReader {
 public:
   explicit ToggleReader( const Velto::String & text ) : at_( text.c_str() ) {}

   /** Whether the whole text is an object; `on` is whether `wanted` is true in it. */
   bool read( const Velto::String & wanted, bool & on ) {
      blanks();
      if ( *at_ != '{' || !members( &wanted, &on, 0 ) ) {
         return false;
      }
      blanks();
      return *at_ == 0;
   }

 private:
   static constexpr int deepest = 64;

   void blanks() {
      while ( *at_ && std::strchr( " \t\r\n", *at_ ) ) {
         ++at_;
      }
   }
   bool accept( const char * token ) {
      const std::size_t length = std::strlen( token );
      if ( std::strncmp( at_, token, length ) != 0 ) {
         return false;
      }
      at_ += length;
      return true;
   }
   bool next( const char * token ) {
      blanks();
      return accept( token );
   }
   /** Escapes stay as they are written: no toggle's name has any. */
   bool string( Velto::String & text ) {
      if ( !next( "\"" ) ) {
         return false;
      }
      const char * begin = at_;
      while ( *at_ && *at_ != '"' ) {
         at_ += *at_ == '\\' && at_[1] ? 2 : 1;
      }
      text.assign( begin, at_ );
      return accept( "\"" );
   }
   bool number() {
      const char * begin = at_;
      while ( *at_ && std::strchr( "+-.0123456789eE", *at_ ) ) {
         ++at_;
      }
      return at_ > begin && std::isdigit( static_cast< unsigned char >( at_[-1] ) );
   }
   bool elements( int depth ) {
      if ( next( "]" ) ) {
         return true;
      }
      do {
         if ( !value( depth ) ) {
            return false;
         }
      } while ( next( "," ) );
      return next( "]" );
   }
   bool members( const Velto::String * wanted, bool * on, int depth ) {
      accept( "{" );
      if ( next( "}" ) ) {
         return true;
      }
      do {
         Velto::String name;
         if ( !string( name ) || !next( ":" ) ) {
            return false;
         }
         blanks();
         const bool isTrue = std::strncmp( at_, "true", 4 ) == 0;
         if ( !value( depth ) ) {
            return false;
         }
         if ( wanted && name == *wanted ) {
            *on = isTrue;
         }
      } while ( next( "," ) );
      return next( "}" );
   }
   bool value( int depth ) {
      blanks();
      Velto::String text;
      if ( depth == deepest ) {
         return false;
      }
      switch ( *at_ ) {
      case '{':
         return members( nullptr, nullptr, depth + 1 );
      case '[':
         return accept( "[" ) && elements( depth + 1 );
      case '"':
         return string( text );
      default:
         return accept( "true" ) || accept( "false" ) || accept( "null" ) || number();
      }
   }

   const char * at_;
};

} // namespace

void
toggleDirectoryIs( const Velto::String & path ) {
   directory() = path;
}

bool
toggle( const Velto::String & file, const Velto::String & name ) {
   std::ifstream in( directory() + "/" + file );
   std::ostringstream text;
   text << in.rdbuf();
   bool on = false;
   return in && ToggleReader( text.str() ).read( name, on ) && on;
}

} // namespace Kiv
