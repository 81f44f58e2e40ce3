#include "agent/base/JsonText.h"

#include "platform/Kiv/Text.h"

namespace QonAgent {

using Velto::String;

namespace {

/** Line and column of the character before `position`, counted from 1. */
String
lineAndColumn( std::string_view text, std::size_t position ) {
   U32 line = 1;
   U32 column = 0;
   for ( std::size_t i = 0; i < position && i < text.size(); ++i ) {
      bool newLine = i > 0 && text[i - 1] == '\n';
      line += newLine ? 1 : 0;
      column = newLine ? 1 : column + 1;
   }
   return Kiv::toText( line ) + ":" + Kiv::toText( column ? column : 1 );
}

String
reason( const String & what ) {
   constexpr U32 most = 160;
   if ( what.find( "unexpected end of input" ) != String::npos ||
        what.find( "missing closing quote" ) != String::npos ) {
      return "it ends too early";
   }
   auto at = what.find( "syntax error" );
   String text = at == String::npos ? what : what.substr( at );
   if ( text.size() > most ) {
      text.resize( most );
      text += "...";
   }
   return text;
}

} // namespace

String
jsonComplaint( std::string_view text, std::size_t position, const nlohmann::json::exception & e ) {
   return lineAndColumn( text, position ) + ": not valid JSON: " + reason( e.what() );
}

} // namespace QonAgent
