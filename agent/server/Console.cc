#include "agent/server/Console.h"

#include <cmath>
#include <cstdio>

#include "agent/Changes.h"
#include "agent/StateFile.h"
#include "agent/features/Arguments.h"
#include "agent/server/PathWatch.h"

namespace QonAgent {

using Velto::RangeError;

namespace {

const char verificationPrefix[] = "VTS#";
constexpr Kiv::Seconds maxAdvance = 1e9;

Json
ok() {
   return { { "ok", true } };
}

Json
failure( const String & why ) {
   return { { "ok", false }, { "error", why } };
}

/** One line. Texts that are not UTF-8 are shown with replacement characters. */
String
lineOf( const Json & json ) {
   return json.dump( -1, ' ', false, Json::error_handler_t::replace ) + "\n";
}

String
path( const Json & request ) {
   return fieldOf< String >( request, "path" );
}

std::vector< String >
wordsOf( const String & name ) {
   std::vector< String > words( 1 );
   for ( char c : name ) {
      if ( c == ' ' ) {
         words.emplace_back();
      } else {
         words.back() += c;
      }
   }
   return words;
}

} // namespace

Console::Console( Agent & agent ) : agent_( agent ), shows_( agent.showCommands() ) {
   for ( auto & command : ownShows() ) {
      shows_.push_back( command );
   }
}

const std::map< String, Console::Action > &
Console::actions() {
   static const std::map< String, Action > all = {
         { "help", &Console::help }, { "show", &Console::show },     { "get", &Console::get },
         { "set", &Console::set },   { "insert", &Console::insert }, { "delete", &Console::del },
         { "dump", &Console::dump }, { "raise", &Console::raise },   { "run", &Console::run },
   };
   return all;
}

void
Console::line( Connection & connection, const String & line ) {
   if ( line.compare( 0, sizeof( verificationPrefix ) - 1, verificationPrefix ) == 0 ) {
      verification( connection, line );
      return;
   }
   Json reply;
   try {
      Json request = parseJson( line );
      if ( request.is_object() && request.value( "do", Json() ) == "watch" ) {
         watch( connection, request );
         return;
      }
      reply = answer( request );
   } catch ( const RangeError & e ) {
      reply = failure( e.what() );
   }
   connection.send( lineOf( reply ) );
}

Json
Console::answer( const Json & request ) {
   try {
      if ( !request.is_object() ) {
         throw RangeError( "expected an object such as {\"do\": \"help\"}, found " +
                           String( request.type_name() ) );
      }
      auto wanted = fieldOf< String >( request, "do" );
      auto action = actions().find( wanted );
      if ( action == actions().end() ) {
         throw RangeError( "cannot do '" + wanted + "'" );
      }
      return ( this->*action->second )( request );
   } catch ( const RangeError & e ) {
      return failure( e.what() );
   }
}

String
Console::change( const String & kind, const String & text ) {
   String answer = change_ ? change_( kind, text ) : applyChange( agent_, kind, text );
   if ( advance_ ) {
      advance_( 0 );
   }
   return answer;
}

Json
Console::help( const Json & ) {
   Json all = Json::array();
   for ( auto & command : shows_ ) {
      all.push_back( { { "show", command.name },
                       { "arguments", command.arguments },
                       { "help", command.help } } );
   }
   Json reply = ok();
   reply["verification"] = agent_.verification().name;
   reply["shows"] = all;
   return reply;
}

Json
Console::show( const Json & request ) {
   auto words = fieldOf< std::vector< String > >( request, "words" );
   const ShowCommand * best = nullptr;
   std::size_t length = 0;
   for ( auto & command : shows_ ) {
      auto name = wordsOf( command.name );
      if ( name.size() > length && name.size() <= words.size() &&
           std::equal( name.begin(), name.end(), words.begin() ) ) {
         best = &command;
         length = name.size();
      }
   }
   if ( !best ) {
      throw RangeError( words.empty() ? "show what?"
                                      : "there is nothing to show as '" + words[0] + "'" );
   }
   std::vector< String > arguments( words.begin() + long( length ), words.end() );
   if ( best->arguments.empty() && !arguments.empty() ) {
      throw RangeError( "'show " + best->name + "' takes no argument" );
   }
   Json columns = Json::array();
   for ( auto & column : best->columns ) {
      columns.push_back( { { "field", column.field },
                           { "heading", column.heading },
                           { "numeric", column.numeric } } );
   }
   Json reply = ok();
   reply["columns"] = columns;
   reply["rows"] = best->rows( arguments );
   return reply;
}

Json
Console::get( const Json & request ) {
   Json reply = ok();
   reply["value"] = agent_.entities().get( path( request ) );
   return reply;
}

Json
Console::set( const Json & request ) {
   change( "set", path( request ) + "\n" + textOfJson( fieldOf< Json >( request, "value" ) ) );
   return ok();
}

Json
Console::insert( const Json & request ) {
   change( "insert", path( request ) );
   return ok();
}

Json
Console::del( const Json & request ) {
   change( "delete", path( request ) );
   return ok();
}

Json
Console::dump( const Json & request ) {
   Json reply = ok();
   reply["state"] = takeState( agent_.entities(), path( request ) );
   return reply;
}

Json
Console::raise( const Json & request ) {
   String text = fieldOf< String >( request, "message" );
   for ( auto & argument : fieldOf< std::vector< String > >( request, "arguments" ) ) {
      text += "\n" + argument;
   }
   Json reply = ok();
   reply["emitted"] = Kiv::fromText< bool >( change( "raise", text ) );
   return reply;
}

Json
Console::run( const Json & request ) {
   auto seconds = fieldOf< double >( request, "seconds" );
   if ( !advance_ ) {
      throw RangeError( "this agent runs on real time; --virtual-time makes it wait for 'run'" );
   }
   if ( !( seconds >= 0 && seconds <= maxAdvance ) ) {
      throw RangeError( "seconds: expected 0 to 1000000000, found " + Kiv::toText( seconds ) );
   }
   advance_( seconds );
   Json reply = ok();
   reply["uptime"] = agent_.uptime();
   return reply;
}

Json
Console::logRows() const {
   Json rows = Json::array();
   for ( auto & record : agent_.log().records() ) {
      char time[32];
      std::snprintf( time, sizeof( time ), "%.3f", record.time - agent_.began() );
      rows.push_back( { { "time", time },
                        { "severity", record.severity },
                        { "message", record.name },
                        { "text", record.text } } );
   }
   return rows;
}

Json
Console::messageRows() const {
   Json rows = Json::array();
   for ( auto handle : Kiv::logHandles() ) {
      auto & descriptor = handle->descriptor();
      rows.push_back( { { "message", descriptor.name },
                        { "severity", descriptor.severity },
                        { "module", handle->module() },
                        { "format", descriptor.format } } );
   }
   return rows;
}

Json
Console::entityRows( const std::vector< String > & arguments ) const {
   if ( arguments.size() != 1 ) {
      throw RangeError( "expected one path" );
   }
   Json rows = Json::array();
   struct Context {
      Json & rows;
      std::size_t prefix;
   } context = { rows, arguments[0].size() + 1 };
   agent_.entities().dump(
         arguments[0], &context, []( void * c, const Kiv::GenericIf::Line & line ) {
            auto & [rows, prefix] = *static_cast< Context * >( c );
            String below = line.path.size() > prefix ? line.path.substr( prefix ) : line.path;
            rows.push_back(
                  { { "path", below }, { "value", line.isEntity ? Json() : Json( line.value ) } } );
         } );
   return rows;
}

std::vector< ShowCommand >
Console::ownShows() {
   using Arguments = std::vector< String >;
   return {
         { "log",
           "the last messages",
           "",
           { { "time", "Seconds", true }, { "message", "Message" }, { "text", "Text" } },
           [this]( const Arguments & ) { return logRows(); } },
         { "messages",
           "what 'raise' can raise",
           "",
           { { "message", "Message" }, { "format", "Format" } },
           [this]( const Arguments & ) { return messageRows(); } },
         { "entity",
           "all that is below a path",
           "PATH",
           { { "path", "Path" }, { "value", "Value" } },
           [this]( const Arguments & arguments ) { return entityRows( arguments ); } },
         { "mounts",
           "where paths begin",
           "",
           { { "path", "Path" }, { "type", "Type" } },
           [this]( const Arguments & ) {
              Json rows = Json::array();
              for ( auto & mount : agent_.entities().mounts() ) {
                 auto type = mount.entity->typeData();
                 rows.push_back( { { "path", mount.path }, { "type", type ? type->name : "" } } );
              }
              return rows;
           } },
   };
}

void
Console::watch( Connection & connection, const Json & request ) {
   auto push = [&connection]( const PathWatch::Change & change ) {
      Json line = { { "path", change.path } };
      if ( change.isEntity ) {
         line["entity"] = change.value.has_value();
      } else {
         line["value"] = change.value ? Json( *change.value ) : Json();
      }
      connection.push( lineOf( line ) );
   };
   auto watch = PathWatch::follow( agent_.entities(), path( request ), push );
   connection.send( lineOf( ok() ) );
   connection.keep( watch );
}

void
Console::verification( Connection & connection, const String & command ) {
   try {
      connection.send( change( "verify", command ) );
   } catch ( const RangeError & e ) {
      connection.send( lineOf( failure( e.what() ) ) );
   }
}

} // namespace QonAgent
