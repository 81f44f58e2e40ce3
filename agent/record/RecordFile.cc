#include "agent/record/RecordFile.h"

#include <stdio_ext.h>

#include <cerrno>
#include <cstring>

#include "platform/Kiv/Text.h"

namespace QonAgent {

using Velto::RangeError;

namespace {

constexpr char title[] = "qon-recording ";
constexpr std::size_t checkSize = 10; // " #" and eight digits
constexpr U32 mostNames = 9999;
constexpr char kinds[] = "itchae";

/** FNV-1a, continued. */
U32
checkOf( U32 before, const String & text ) {
   U32 h = before ^ 2166136261u;
   for ( char c : text ) {
      h = ( h ^ U8( c ) ) * 16777619u;
   }
   return h;
}

String
checkText( U32 check ) {
   char text[checkSize + 1];
   std::snprintf( text, sizeof( text ), " #%08x", check );
   return text;
}

int
digitOf( char c ) {
   return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

} // namespace

String
escaped( const String & text ) {
   static const char digits[] = "0123456789abcdef";
   String all;
   for ( char c : text ) {
      if ( c == '\\' || c == '\n' ) {
         all += c == '\n' ? "\\n" : "\\\\";
      } else if ( U8( c ) < ' ' || c == 127 ) {
         all += { '\\', 'x', digits[U8( c ) >> 4], digits[U8( c ) & 15] };
      } else {
         all += c;
      }
   }
   return all;
}

String
unescaped( const String & text ) {
   String all;
   for ( std::size_t i = 0; i < text.size(); ++i ) {
      char kind = text[i] == '\\' && i + 1 < text.size() ? text[i + 1] : 0;
      if ( kind == 'n' || kind == '\\' ) {
         all += kind == 'n' ? '\n' : '\\';
         ++i;
      } else if ( kind == 'x' && i + 3 < text.size() ) {
         all += char( digitOf( text[i + 2] ) << 4 | digitOf( text[i + 3] ) );
         i += 3;
      } else {
         all += text[i];
      }
   }
   return all;
}

RecordWriter::RecordWriter( const String & file ) : name_( file ) {
   for ( U32 n = 1;; ++n ) {
      file_.reset( std::fopen( name_.c_str(), "wex" ) ); // x: never an existing one
      if ( file_ ) {
         break;
      }
      if ( errno != EEXIST || n > mostNames ) {
         throw RangeError( name_ + ": cannot be written: " + std::strerror( errno ) );
      }
      name_ = file + "." + Kiv::toText( n );
   }
   line( title + Kiv::toText( recordingVersion ) );
   if ( !flush() ) {
      throw RangeError( name_ + ": cannot be written: " + std::strerror( errno ) );
   }
}

void
RecordWriter::line( const String & text ) {
   check_ = checkOf( check_, text );
   String whole = text + checkText( check_ ) + "\n";
   std::fwrite( whole.data(), 1, whole.size(), file_.get() );
}

void
RecordWriter::write( const Record & record ) {
   line( record.kind == Record::Kind::end ? "e " + Kiv::toText( records_ )
                                          : Record{ record.kind, escaped( record.text ) }.shown() );
   ++records_;
}

bool
RecordWriter::flush() {
   const bool good = std::fflush( file_.get() ) == 0 && !std::ferror( file_.get() );
   if ( !good ) {
      const int why = errno;
      __fpurge( file_.get() ); // not written later, when there is room again
      errno = why;
   }
   return good;
}

RecordReader::RecordReader( const String & name, String text )
    : name_( name ), text_( std::move( text ) ) {
   first();
   number_ = 1;
}

void
RecordReader::refuse( const String & what ) const {
   throw RangeError( name_ + ": " + what );
}

void
RecordReader::first() {
   String beginning = text_.substr( 0, sizeof( title ) - 1 );
   if ( !String( title ).starts_with( beginning ) ) {
      refuse( "is no recording" );
   }
   auto end = text_.find( '\n' );
   if ( end == String::npos ) {
      refuse( text_.size() > 64 ? "is no recording" : "ends in the middle of its first line" );
   }
   String version = text_.substr( sizeof( title ) - 1, end - ( sizeof( title ) - 1 ) );
   version = version.substr( 0, version.find( ' ' ) );
   String own = Kiv::toText( recordingVersion );
   if ( version != own ) {
      refuse( "is a recording of version " + escaped( version ) + "; this program reads version " +
              own );
   }
   String line;
   nextLine( line );
}

bool
RecordReader::nextLine( String & line ) {
   auto end = text_.find( '\n', at_ );
   if ( end == String::npos ) {
      ending_ = at_ == text_.size() ? Ending::between : Ending::cut;
      return false;
   }
   line = text_.substr( at_, end - at_ );
   at_ = end + 1;
   String check = line.substr( line.size() > checkSize ? line.size() - checkSize : 0 );
   line.resize( line.size() - check.size() );
   check_ = checkOf( check_, line );
   if ( check != checkText( check_ ) ) {
      refuse( number_ ? "record " + Kiv::toText( number_ ) + " is damaged"
                      : String( "the first line is damaged" ) );
   }
   return true;
}

bool
RecordReader::parse( const String & line ) {
   bool known = !line.empty() && line[0] && std::strchr( kinds, line[0] ) &&
                ( line.size() == 1 || line[1] == ' ' );
   if ( !known ) {
      refuse( "record " + Kiv::toText( number_ ) + " is of no known kind: '" + line + "'" );
   }
   record_.kind = Record::Kind( line[0] );
   record_.text = line.size() > 2 ? unescaped( line.substr( 2 ) ) : String();
   if ( record_.kind != Record::Kind::end ) {
      return true;
   }
   if ( at_ != text_.size() || record_.text != Kiv::toText( number_ - 1 ) ) {
      refuse( "the closing record " + Kiv::toText( number_ ) + " does not belong there" );
   }
   ending_ = Ending::whole;
   return false;
}

const Record *
RecordReader::peek() {
   if ( !held_ && ending_ == Ending::none ) {
      String line;
      held_ = nextLine( line ) && parse( line );
   }
   return held_ ? &record_ : nullptr;
}

void
RecordReader::take() {
   held_ = false;
   ++number_;
}

} // namespace QonAgent
