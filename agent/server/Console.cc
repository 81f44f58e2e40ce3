#include "agent/server/Console.h"

#include <cmath>
#include <cstdio>

#include "agent/Changes.h"
#include "agent/base/Fields.h"
#include "agent/base/StateFile.h"
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

/** A value as JSON. */
struct ToJson {
   Json operator()( std::monostate ) const { return Json(); }
   template< class Held >
   Json operator()( const Held & held ) const {
      return held;
   }
};

} // namespace

Json
jsonOf( const Row & row ) {
   Json json = Json::object();
   for ( auto & [field, value] : row.fields() ) {
      json[field] = std::visit( ToJson(), value.held() );
   }
   return json;
}

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
                       { "arguments", argumentHelp( command ) },
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
   const ShowCommand * command = findShow( shows_, words );
   if ( !command ) {
      throw RangeError( words.empty() ? "show what?"
                                      : "there is nothing to show as '" + words[0] + "'" );
   }
   Json columns = Json::array();
   for ( auto & column : command->columns ) {
      columns.push_back( { { "field", column.field },
                           { "heading", column.heading },
                           { "numeric", column.numeric } } );
   }
   Json rows = Json::array();
   runShow( agent_, *command, words, [&]( const Row & row ) { rows.push_back( jsonOf( row ) ); } );
   Json reply = ok();
   reply["columns"] = std::move( columns );
   reply["rows"] = std::move( rows );
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

void
Console::logRows( const RowSink & sink ) const {
   for ( auto & record : agent_.log().records() ) {
      char time[32];
      std::snprintf( time, sizeof( time ), "%.3f", record.time - agent_.began() );
      sink( { { "time", time },
              { "severity", record.severity },
              { "message", record.name },
              { "text", record.text } } );
   }
}

void
Console::messageRows( const RowSink & sink ) const {
   for ( auto handle : Kiv::logHandles() ) {
      auto & descriptor = handle->descriptor();
      sink( { { "message", descriptor.name },
              { "severity", U32( descriptor.severity ) },
              { "module", handle->module() },
              { "format", descriptor.format } } );
   }
}

void
Console::entityRows( const String & path, const RowSink & sink ) const {
   struct Context {
      const RowSink & sink;
      std::size_t prefix;
   } context = { sink, path.size() + 1 };
   agent_.entities().dump( path, &context, []( void * c, const Kiv::GenericIf::Line & line ) {
      auto & [sink, prefix] = *static_cast< Context * >( c );
      String below = line.path.size() > prefix ? line.path.substr( prefix ) : line.path;
      sink( { { "path", below }, { "value", line.isEntity ? Value() : Value( line.value ) } } );
   } );
}

void
Console::mountRows( const RowSink & sink ) const {
   for ( auto & mount : agent_.entities().mounts() ) {
      auto type = mount.entity->typeData();
      sink( { { "path", mount.path }, { "type", type ? type->name : "" } } );
   }
}

std::vector< ShowCommand >
Console::ownShows() {
   const Argument path = { Argument::Kind::text, "PATH", "path", true, nullptr };
   return {
         { "log",
           "the last messages",
           {},
           { { "time", "Seconds", true }, { "message", "Message" }, { "text", "Text" } },
           [this]( auto &, auto & sink ) { logRows( sink ); } },
         { "messages",
           "what 'raise' can raise",
           {},
           { { "message", "Message" }, { "format", "Format" } },
           [this]( auto &, auto & sink ) { messageRows( sink ); } },
         { "entity",
           "all that is below a path",
           { path },
           { { "path", "Path" }, { "value", "Value" } },
           [this]( auto & arguments, auto & sink ) { entityRows( arguments.text( 0 ), sink ); } },
         { "mounts",
           "where paths begin",
           {},
           { { "path", "Path" }, { "type", "Type" } },
           [this]( auto &, auto & sink ) { mountRows( sink ); } },
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
