#include "platform/Kiv/Text.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "platform/Kiv/ValueKinds.h"

namespace Kiv {

void
textRefused( const Velto::String & expected, const Velto::String & found ) {
   throw Velto::RangeError( "expected " + expected + ", found '" + found + "'" );
}

namespace Detail {

namespace {
/** The whole text as a number, or false. */
template< class N >
bool
parsed( const Velto::String & text, N & number ) {
   const char * end = text.data() + text.size();
   auto result = std::from_chars( text.data(), end, number );
   return result.ec == std::errc() && result.ptr == end;
}

template< class N >
Velto::String
printed( N number ) {
   char buffer[40];
   auto result = std::to_chars( buffer, buffer + sizeof( buffer ), number );
   return Velto::String( buffer, result.ptr );
}
} // namespace

Velto::String
textOf( U64 value ) {
   return printed( value );
}

Velto::String
textOf( S64 value ) {
   return printed( value );
}

Velto::String
textOf( double value ) {
   return printed( value );
}

Velto::String
textOf( const EnumNames & names, S64 value ) {
   for ( U32 i = 0; i < names.count; ++i ) {
      if ( names.names[i].value == value ) {
         return names.names[i].name;
      }
   }
   return printed( value );
}

U64
unsignedOf( const Velto::String & text, U64 max ) {
   U64 number = 0;
   if ( !parsed( text, number ) || number > max ) {
      textRefused( "a whole number from 0 to " + printed( max ), text );
   }
   return number;
}

S64
signedOf( const Velto::String & text, S64 min, S64 max ) {
   S64 number = 0;
   if ( !parsed( text, number ) || number < min || number > max ) {
      textRefused( "a whole number from " + printed( min ) + " to " + printed( max ), text );
   }
   return number;
}

double
doubleOf( const Velto::String & text ) {
   double number = 0;
   if ( !parsed( text, number ) ) {
      textRefused( "a number", text );
   }
   return number;
}

bool
boolOf( const Velto::String & text ) {
   bool yes = text == "True" || text == "true" || text == "1";
   if ( !yes && text != "False" && text != "false" && text != "0" ) {
      textRefused( "True or False", text );
   }
   return yes;
}

S64
enumOf( const EnumNames & names, const Velto::String & text, S64 min, S64 max ) {
   Velto::String all;
   for ( U32 i = 0; i < names.count; ++i ) {
      if ( text == names.names[i].name ) {
         return names.names[i].value;
      }
      all += ( i ? ", " : "" ) + Velto::String( names.names[i].name );
   }
   S64 number = 0;
   if ( !parsed( text, number ) || number < min || number > max ) {
      textRefused( Velto::String( names.type ) + " (" + all + ")", text );
   }
   return number;
}

} // namespace Detail

// For people and tools

std::vector< Velto::String >
split( const Velto::String & text, char separator ) {
   std::vector< Velto::String > parts( 1 );
   for ( char c : text ) {
      if ( c == separator ) {
         parts.emplace_back();
      } else {
         parts.back() += c;
      }
   }
   return parts;
}

Velto::String
jsonQuoted( const Velto::String & text ) {
   Velto::String all = "\"";
   for ( char c : text ) {
      if ( U8( c ) < ' ' ) {
         char code[8];
         std::snprintf( code, sizeof( code ), "\\u%04x", U32( U8( c ) ) );
         all += code;
      } else {
         all += c == '"' || c == '\\' ? Velto::String( "\\" ) + c : Velto::String( 1, c );
      }
   }
   return all + "\"";
}

// Writing

ValueWriter::ValueWriter( const char * type ) : type_( type ) {}

void
ValueWriter::separate() {
   if ( !body_.empty() ) {
      body_ += ", ";
   }
}

Velto::String
ValueWriter::text() const {
   Velto::String braced = "{" + body_ + "}";
   return type_ ? "Value('" + Velto::String( type_ ) + "', ** " + braced + ")" : braced;
}

Velto::String
ValueWriter::quotedIfNeeded( const Velto::String & text ) {
   bool edges = !text.empty() && ( text.front() == ' ' || text.back() == ' ' );
   if ( !edges && text.find_first_of( ",:'\"\\{}()[]\n" ) == Velto::String::npos ) {
      return text;
   }
   Velto::String quoted = "'";
   for ( char c : text ) {
      if ( c == '\'' || c == '\\' ) {
         quoted += '\\';
      }
      quoted += c;
   }
   return quoted + "'";
}

// Reading

namespace {

using Fields = std::vector< std::pair< Velto::String, Velto::String > >;

/** Cuts a text at top-level separators; the place only moves forward. */
class Cutter {
 public:
   Cutter( const Velto::String & text, const Velto::String & expected )
       : text_( text ), expected_( expected ) {}

   void skipBlanks() {
      while ( at_ < text_.size() && ( text_[at_] == ' ' || text_[at_] == '\n' ) ) {
         ++at_;
      }
   }
   bool accept( const char * token ) {
      skipBlanks();
      U32 length = U32( std::strlen( token ) );
      if ( text_.compare( at_, length, token ) != 0 ) {
         return false;
      }
      at_ += length;
      return true;
   }
   void expect( const char * token ) {
      if ( !accept( token ) ) {
         refuse();
      }
   }
   bool atEnd() {
      skipBlanks();
      return at_ == text_.size();
   }
   [[noreturn]] void refuse() const { textRefused( expected_, text_ ); }

   /** Everything up to one of `stops` outside quotes and brackets; the stop stays. */
   Velto::String part( const char * stops );

 private:
   void quoted( char quote, Velto::String & out, bool keep );

   const Velto::String & text_;
   const Velto::String expected_;
   U32 at_ = 0;
};

void
Cutter::quoted( char quote, Velto::String & out, bool keep ) {
   U32 begin = at_++;
   for ( ; at_ < text_.size() && text_[at_] != quote; ++at_ ) {
      if ( text_[at_] == '\\' && at_ + 1 < text_.size() ) {
         ++at_;
      }
      if ( !keep ) {
         out += text_[at_];
      }
   }
   if ( at_ == text_.size() ) {
      refuse();
   }
   ++at_;
   if ( keep ) {
      out.append( text_, begin, at_ - begin );
   }
}

Velto::String
Cutter::part( const char * stops ) {
   skipBlanks();
   Velto::String out;
   if ( at_ < text_.size() && ( text_[at_] == '\'' || text_[at_] == '"' ) ) {
      quoted( text_[at_], out, false );
      skipBlanks();
      if ( at_ == text_.size() || !std::strchr( stops, text_[at_] ) ) {
         refuse();
      }
      return out;
   }
   int depth = 0;
   while ( at_ < text_.size() && ( depth > 0 || !std::strchr( stops, text_[at_] ) ) ) {
      char c = text_[at_];
      if ( c == '\'' || c == '"' ) {
         quoted( c, out, true );
         continue;
      }
      depth += std::strchr( "{([", c ) ? 1 : 0;
      depth -= std::strchr( "})]", c ) ? 1 : 0;
      out += c;
      ++at_;
   }
   if ( at_ == text_.size() ) {
      refuse();
   }
   while ( !out.empty() && out.back() == ' ' ) {
      out.pop_back();
   }
   return out;
}

} // namespace

std::vector< Velto::String >
elementsOf( const Velto::String & text ) {
   Cutter cut( text, "a list {element, ...}" );
   std::vector< Velto::String > elements;
   cut.expect( "{" );
   while ( !cut.accept( "}" ) ) {
      elements.push_back( cut.part( ",}" ) );
      cut.accept( "," );
   }
   if ( !cut.atEnd() ) {
      cut.refuse();
   }
   return elements;
}

ValueReader::ValueReader( const char * type, const Velto::String & text ) : type_( type ) {
   Cutter cut( text, "Value('" + Velto::String( type ) + "', ** {field: value, ...})" );
   bool longForm = cut.accept( "Value(" );
   if ( longForm ) {
      if ( cut.part( "," ) != type ) {
         cut.refuse();
      }
      cut.expect( "," );
      cut.expect( "**" );
   }
   cut.expect( "{" );
   while ( !cut.accept( "}" ) ) {
      Velto::String name = cut.part( ":}" );
      cut.expect( ":" );
      Velto::String value = cut.part( ",}" );
      fields_.emplace_back( name, value );
      cut.accept( "," );
   }
   if ( longForm ) {
      cut.expect( ")" );
   }
   if ( !cut.atEnd() ) {
      cut.refuse();
   }
}

bool
ValueReader::next() {
   at_ += started_ ? 1 : 0;
   started_ = true;
   return at_ < fields_.size();
}

void
ValueReader::refuseField() const {
   throw Velto::RangeError( Velto::String( type_ ) + " has no field '" + name() + "'" );
}

void
ValueReader::refuseValue( const Velto::RangeError & why ) const {
   throw Velto::RangeError( Velto::String( type_ ) + ", field '" + name() + "': " + why.what() );
}

} // namespace Kiv
