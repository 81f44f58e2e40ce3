#include "conformance/Report.h"

#include <algorithm>

#include "platform/Kiv/Text.h"

namespace QonConformance {

namespace {

using Result = Outcome::Result;

/** {"id": "mac.full", "result": "ok"} */
String
jsonObject( std::initializer_list< std::pair< const char *, String > > fields ) {
   String text;
   for ( auto & [name, value] : fields ) {
      text += ( text.empty() ? "{" : ", " ) + Kiv::jsonQuoted( name ) + ": " +
              Kiv::jsonQuoted( value );
   }
   return text + "}";
}

/** The objects, a line each. */
template< class T, class Show >
String
jsonArray( const T & items, Show && show ) {
   String text = "[";
   for ( auto & item : items ) {
      text += ( text.size() > 1 ? ",\n  " : "\n  " ) + show( item );
   }
   return text + "\n ]";
}

/** For attributes and text. What XML has no place for is a question mark. */
String
xmlQuoted( const String & text ) {
   String quoted;
   for ( const char c : text ) {
      switch ( c ) {
      case '&':
         quoted += "&amp;";
         break;
      case '<':
         quoted += "&lt;";
         break;
      case '>':
         quoted += "&gt;";
         break;
      case '"':
         quoted += "&quot;";
         break;
      default:
         quoted += ( c >= 0 && c < ' ' ) || c == 0x7f ? '?' : c;
      }
   }
   return quoted;
}

String
xmlAttribute( const char * name, const String & value ) {
   return String( " " ) + name + "=\"" + xmlQuoted( value ) + "\"";
}

/** What stands inside of a test case. */
String
junitVerdict( const Outcome & outcome ) {
   if ( outcome.result == Result::skipped || outcome.result == Result::notLooked ) {
      const String result = nameOf( outcome.result );
      return "   <skipped" + xmlAttribute( "message", result + ": " + outcome.why ) + "/>\n";
   }
   String text;
   for ( auto & finding : outcome.findings ) {
      text += "   <failure" + xmlAttribute( "type", finding.id ) +
              xmlAttribute( "message", finding.promise ) + ">done: " + xmlQuoted( finding.did ) +
              "\nexpected: " + xmlQuoted( finding.expected ) +
              "\nfound: " + xmlQuoted( finding.found ) + "</failure>\n";
   }
   return text;
}

} // namespace

const char *
nameOf( Result result ) {
   switch ( result ) {
   case Result::ok:
      return "ok";
   case Result::broken:
      return "broken";
   case Result::skipped:
      return "skipped";
   case Result::notLooked:
      return "not looked at";
   }
   return "";
}

U32
count( const std::vector< Outcome > & outcomes, Result result ) {
   return U32( std::count_if( outcomes.begin(), outcomes.end(),
                              [&]( auto & outcome ) { return outcome.result == result; } ) );
}

String
asJson( const std::vector< Outcome > & outcomes ) {
   return "{\n \"format\": 1,\n \"checks\": " +
          jsonArray( outcomes,
                     []( auto & outcome ) {
                        return jsonObject( { { "id", outcome.check },
                                             { "result", nameOf( outcome.result ) },
                                             { "why", outcome.why } } );
                     } ) +
          ",\n \"findings\": " +
          jsonArray( findingsOf( outcomes ),
                     []( auto & f ) {
                        return jsonObject( { { "id", f.id },
                                             { "promise", f.promise },
                                             { "done", f.did },
                                             { "expected", f.expected },
                                             { "found", f.found } } );
                     } ) +
          "\n}\n";
}

String
asJunit( const std::vector< Outcome > & outcomes ) {
   const U32 skipped = count( outcomes, Result::skipped ) + count( outcomes, Result::notLooked );
   String text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n <testsuite";
   text += xmlAttribute( "name", "conformance" ) +
           xmlAttribute( "tests", std::to_string( outcomes.size() ) ) +
           xmlAttribute( "failures", std::to_string( count( outcomes, Result::broken ) ) ) +
           xmlAttribute( "errors", "0" ) + xmlAttribute( "skipped", std::to_string( skipped ) ) +
           ">\n";
   for ( auto & outcome : outcomes ) {
      const String verdict = junitVerdict( outcome );
      text += "  <testcase" +
              xmlAttribute( "classname", outcome.check.substr( 0, outcome.check.find( '.' ) ) ) +
              xmlAttribute( "name", outcome.check ) +
              ( verdict.empty() ? "/>\n" : ">\n" + verdict + "  </testcase>\n" );
   }
   return text + " </testsuite>\n</testsuites>\n";
}

} // namespace QonConformance
