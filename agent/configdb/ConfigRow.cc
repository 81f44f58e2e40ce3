#include <strings.h>

#include <algorithm>
#include <charconv>

#include "agent/base/Fields.h"
#include "agent/configdb/ConfigDb.h"
#include "platform/Kiv/Text.h"

namespace QonAgent {

namespace {

bool
sameWord( const String & a, const String & b ) {
   return a.size() == b.size() && strcasecmp( a.c_str(), b.c_str() ) == 0;
}

String
shown( const ConfigValue & value ) {
   constexpr U32 most = 40;
   switch ( value.kind ) {
   case ConfigValue::Kind::text:
      return value.text.size() <= most ? "'" + value.text + "'"
                                       : "'" + value.text.substr( 0, most ) + "...'";
   case ConfigValue::Kind::list:
      return "a list";
   case ConfigValue::Kind::other:
      break;
   }
   return value.text;
}

[[noreturn]] void
refuse( const String & field, const String & expected, const ConfigValue & found ) {
   throw RowError( field, "expected " + expected + ", found " + shown( found ) );
}

/** The pieces of a text with commas; blanks around them do not count, nor do empty ones. */
std::vector< String >
pieces( const String & text ) {
   std::vector< String > all;
   for ( String::size_type begin = 0; begin <= text.size(); ) {
      auto end = std::min( text.find( ',', begin ), text.size() );
      auto first = text.find_first_not_of( " \t", begin );
      if ( first < end ) {
         auto last = text.find_last_not_of( " \t", end - 1 );
         all.push_back( text.substr( first, last - first + 1 ) );
      }
      begin = end + 1;
   }
   return all;
}

} // namespace

U32
ConfigRow::parts() const {
   return U32( std::count( key_.begin(), key_.end(), '|' ) ) + 1;
}

String
ConfigRow::part( U32 i, U32 of ) const {
   if ( parts() != of ) {
      throw RowError( "", "expected a key of " + Kiv::toText( of ) +
                                ( of == 1 ? " part" : " parts with '|' between" ) + ", found " +
                                Kiv::toText( parts() ) );
   }
   String::size_type begin = 0;
   for ( ; i > 0; --i ) {
      begin = key_.find( '|', begin ) + 1;
   }
   return key_.substr( begin, key_.find( '|', begin ) - begin );
}

String
ConfigRow::place( const String & field ) const {
   return table() + "|" + key_ + ( field.empty() ? "" : "|" + field );
}

const ConfigValue *
ConfigRow::find( const String & field ) const {
   if ( FieldsAsked::noting() ) {
      FieldsAsked::note( table() + "|" + field );
   }
   const ConfigValue * other = nullptr;
   for ( auto & [name, value] : fields() ) {
      if ( name == field ) {
         return &value;
      }
      if ( !other && sameWord( name, field ) ) {
         other = &value;
      }
   }
   return other;
}

String
ConfigRow::text( const String & field, const String & absent ) const {
   auto value = find( field );
   if ( value && value->kind != ConfigValue::Kind::text ) {
      refuse( field, "a text", *value );
   }
   return value ? value->text : absent;
}

U64
ConfigRow::number( const String & field, U64 min, U64 max, U64 absent ) const {
   auto value = find( field );
   if ( !value ) {
      return absent;
   }
   U64 number = 0;
   const char * end = value->text.data() + value->text.size();
   auto [stop, error] = std::from_chars( value->text.data(), end, number );
   if ( value->kind != ConfigValue::Kind::text || error != std::errc() || stop != end ||
        number < min || number > max ) {
      refuse( field, "a number from " + Kiv::toText( min ) + " to " + Kiv::toText( max ), *value );
   }
   return number;
}

bool
ConfigRow::flag( const String & field, bool absent ) const {
   static const char * const yes[] = { "true", "yes", "on", "enable", "enabled", "1" };
   static const char * const no[] = { "false", "no", "off", "disable", "disabled", "0" };
   auto value = find( field );
   if ( !value ) {
      return absent;
   }
   auto is = [&]( const char * word ) { return sameWord( value->text, word ); };
   bool text = value->kind == ConfigValue::Kind::text;
   if ( text && std::any_of( std::begin( yes ), std::end( yes ), is ) ) {
      return true;
   }
   if ( text && std::any_of( std::begin( no ), std::end( no ), is ) ) {
      return false;
   }
   refuse( field, "true or false", *value );
}

U32
ConfigRow::word( const String & field, const std::vector< String > & words, U32 absent ) const {
   auto value = find( field );
   if ( !value ) {
      return absent;
   }
   String expected;
   for ( U32 i = 0; i < words.size(); ++i ) {
      if ( value->kind == ConfigValue::Kind::text && sameWord( value->text, words[i] ) ) {
         return i;
      }
      expected += ( i == 0 ? "" : i + 1 == words.size() ? " or " : ", " ) + words[i];
   }
   refuse( field, expected, *value );
}

std::vector< String >
ConfigRow::list( const String & field ) const {
   auto value = find( field );
   value = value ? value : find( field + "@" );
   if ( value && value->kind == ConfigValue::Kind::other ) {
      refuse( field, "a list", *value );
   }
   bool text = value && value->kind == ConfigValue::Kind::text;
   return text ? pieces( value->text ) : value ? value->list : std::vector< String >();
}

} // namespace QonAgent
