#include "agent/Reference.h"

#include "agent/Events.h"

namespace QonAgent {

namespace {

/** A text in a cell of a table. */
String
cell( const String & text ) {
   String out;
   for ( char c : text ) {
      out += c == '|' ? "\\|" : String( 1, c );
   }
   return out;
}

String
tablesOf( const Agent & agent ) {
   String rows, lines;
   for ( auto & feature : agent.features() ) {
      for ( auto & table : feature->tables() ) {
         String fields;
         for ( auto & [name, what] : table.fields ) {
            fields += ( fields.empty() ? "`" : "<br>`" ) + name + "` " + what;
         }
         rows += "| `" + table.name + "` | " + cell( table.key ) + " | " + cell( fields ) + " |\n";
         String examples;
         for ( auto & example : table.examples ) {
            examples += ( examples.empty() ? "" : ",\n    " ) + example;
         }
         lines += ( lines.empty() ? "  \"" : ",\n  \"" ) + table.name + "\": {\n    " + examples +
                  " }";
      }
   }
   return "### Tables\n\n"
          "What a field is without a word stands behind the semicolon.\n\n"
          "| table | key | fields that are read |\n|---|---|---|\n" +
          rows + "\n```json\n{\n" + lines + "\n}\n```\n";
}

String
eventsOf( const Events & events ) {
   String lines;
   for ( auto & [name, kind] : events.kinds() ) {
      lines += kind.help + "\n";
      for ( auto & example : kind.examples ) {
         lines += example + "\n";
      }
   }
   return "### Kinds of events\n\n```\n" + lines + "```\n";
}

String
showsOf( const std::vector< ShowCommand > & shows ) {
   String rows;
   for ( auto & command : shows ) {
      const String arguments = argumentHelp( command );
      rows += "| `" + command.name + ( arguments.empty() ? "" : " " + arguments ) + "` | " +
              cell( command.help ) + " |\n";
   }
   return "### What can be shown\n\n| `qonctl show ...` | |\n|---|---|\n" + rows;
}

} // namespace

String
referenceOf( Agent & agent, const std::vector< ShowCommand > & shows ) {
   return tablesOf( agent ) + "\n" + eventsOf( Events( agent ) ) + "\n" + showsOf( shows );
}

} // namespace QonAgent
