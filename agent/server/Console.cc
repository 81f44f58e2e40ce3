#include "agent/server/Console.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <sstream>

#include "agent/Changes.h"
#include "agent/base/Fields.h"
#include "agent/base/PathWatch.h"
#include "agent/base/StateFile.h"
#include "agent/server/Completions.h"
#include "platform/Kiv/Printable.h"

namespace QonAgent {

using Velto::RangeError;

namespace {

const char verificationPrefix[] = "VTS#";
constexpr Kiv::Seconds maxAdvance = 1e9;

String
path( const Json & request ) {
   return fieldOf< String >( request, "path" );
}

/** What a request asks for. */
String
wantedOf( const Json & request ) {
   if ( !request.is_object() ) {
      throw RangeError( "expected an object such as {\"do\": \"help\"}, found " +
                        String( request.type_name() ) );
   }
   return fieldOf< String >( request, "do" );
}

/** Everything behind the head of a long answer, in one piece. */
Json
drained( const LongAnswer & answer ) {
   Json whole = Json::parse( answer.head );
   whole[whole.contains( "columns" ) ? "rows" : "state"] =
         whole.contains( "columns" ) ? Json::array() : Json::object();
   String text;
   for ( auto more = answer.pieces(); more( text ); ) {
   }
   std::istringstream lines( text );
   for ( String line; std::getline( lines, line ); ) {
      Json part = Json::parse( line );
      if ( part.contains( "row" ) ) {
         whole["rows"].push_back( std::move( part["row"] ) );
      } else if ( part.contains( "path" ) ) {
         whole["state"][part["path"].get< String >()] = part.value( "value", Json() );
      } else if ( !part["ok"].get< bool >() ) {
         return part;
      }
   }
   return whole;
}

} // namespace

void
TraceLines::trace( const char * facility, U8 level, const String & text ) {
   std::fprintf( stderr, "%s %u %s\n", facility, unsigned( level ),
                 Kiv::printable( text ).c_str() );
}

Console::Console( Agent & agent ) : agent_( agent ), own_( agent ), shows_( agent.showCommands() ) {
   for ( auto & command : own_.commands() ) {
      shows_.push_back( command );
   }
}

const std::map< String, Console::Action > &
Console::actions() {
   static const std::map< String, Action > all = {
         { "help", &Console::help },         { "get", &Console::get },
         { "set", &Console::set },           { "insert", &Console::insert },
         { "delete", &Console::del },        { "event", &Console::event },
         { "raise", &Console::raise },       { "run", &Console::run },
         { "logLevel", &Console::logLevel }, { "trace", &Console::trace },
         { "complete", &Console::complete },
   };
   return all;
}

const std::map< String, Console::LongAction > &
Console::longActions() {
   static const std::map< String, LongAction > all = { { "show", &Console::show },
                                                       { "dump", &Console::dump } };
   return all;
}

void
Console::line( Connection & connection, const String & line ) {
   if ( line.compare( 0, sizeof( verificationPrefix ) - 1, verificationPrefix ) == 0 ) {
      verification( connection, line );
      return;
   }
   try {
      const Json request = parseJson( line );
      const String wanted = wantedOf( request );
      if ( wanted == "watch" ) {
         watch( connection, request );
      } else if ( auto action = longActions().find( wanted ); action != longActions().end() ) {
         const LongAnswer answer = ( this->*action->second )( request );
         connection.send( answer.head );
         connection.stream( answer.pieces() );
      } else {
         connection.send( lineOf( shortAnswer( wanted, request ) ) );
      }
   } catch ( const RangeError & e ) {
      connection.send( lineOf( failureAnswer( e.what() ) ) );
   }
}

Json
Console::answer( const Json & request ) {
   try {
      const String wanted = wantedOf( request );
      auto action = longActions().find( wanted );
      return action == longActions().end() ? shortAnswer( wanted, request )
                                           : drained( ( this->*action->second )( request ) );
   } catch ( const RangeError & e ) {
      return failureAnswer( e.what() );
   }
}

Json
Console::shortAnswer( const String & wanted, const Json & request ) {
   auto action = actions().find( wanted );
   if ( action == actions().end() ) {
      throw RangeError( "cannot do '" + wanted + "'" );
   }
   return ( this->*action->second )( request );
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
   Json reply = okAnswer();
   reply["verification"] = agent_.verification().name;
   reply["shows"] = all;
   return reply;
}

/** As many of the words as it takes to see that no table is called so. */
String
Console::unknownOf( const std::vector< String > & words ) const {
   const bool begins = std::any_of( shows_.begin(), shows_.end(), [&]( auto & command ) {
      return command.name.starts_with( words[0] + " " );
   } );
   return begins && words.size() > 1 ? words[0] + " " + words[1] : words[0];
}

LongAnswer
Console::show( const Json & request ) {
   auto words = fieldOf< std::vector< String > >( request, "words" );
   const ShowCommand * command = findShow( shows_, words );
   if ( !command ) {
      throw RangeError( words.empty() ? "show what?"
                                      : "there is nothing to show as '" + unknownOf( words ) +
                                              "'; 'show' alone lists what there is" );
   }
   return answerOf( *command, runShow( agent_, *command, words ) );
}

LongAnswer
Console::dump( const Json & request ) {
   return answerOf(
         Orvane::Dump( agent_.entities(), hasField( request, "path" ) ? path( request ) : "" ) );
}

Json
Console::get( const Json & request ) {
   Json reply = okAnswer();
   reply["value"] = agent_.entities().get( path( request ) );
   return reply;
}

Json
Console::set( const Json & request ) {
   if ( hasField( request, "values" ) ) {
      change( "together", fieldOf< Json >( request, "values" ).dump() );
      return okAnswer();
   }
   change( "set", path( request ) + "\n" + textOfJson( fieldOf< Json >( request, "value" ) ) );
   return okAnswer();
}

Json
Console::insert( const Json & request ) {
   change( "insert", path( request ) );
   return okAnswer();
}

Json
Console::del( const Json & request ) {
   change( "delete", path( request ) );
   return okAnswer();
}

Json
Console::event( const Json & request ) {
   change( "event", fieldOf< Json >( request, "line" ).dump() );
   return okAnswer();
}

Json
Console::logLevel( const Json & request ) {
   agent_.log().levelIs( fieldOf< U32 >( request, "level" ) );
   return okAnswer();
}

/** Traces of a facility, up to a level of detail, to standard error; of none without a level. */
Json
Console::trace( const Json & request ) {
   const bool heard = hasField( request, "level" );
   Flintlog::listen(
         fieldOf< String >( request, "facility" ), heard ? &traces_ : nullptr,
         heard ? U8( std::min( fieldOf< U32 >( request, "level" ), U32( Flintlog::finestLevel ) ) )
               : U8( 0 ) );
   return okAnswer();
}

Json
Console::complete( const Json & request ) {
   Json reply = okAnswer();
   reply["words"] =
         completions( agent_, shows_, fieldOf< std::vector< String > >( request, "words" ) );
   return reply;
}

Json
Console::raise( const Json & request ) {
   String text = fieldOf< String >( request, "message" );
   for ( auto & argument : fieldOf< std::vector< String > >( request, "arguments" ) ) {
      text += "\n" + argument;
   }
   Json reply = okAnswer();
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
   Json reply = okAnswer();
   reply["uptime"] = agent_.uptime();
   return reply;
}

void
Console::watch( Connection & connection, const Json & request ) {
   auto push = [&connection]( const PathWatch::Change & change ) {
      connection.push(
            lineOf( change.path, change.value ? &*change.value : nullptr, change.isEntity ) );
   };
   auto watch = PathWatch::follow( agent_.entities(), path( request ), push );
   connection.keep( watch );
   // What is there by now; a change that comes meanwhile is told at once.
   std::optional< Orvane::Dump > present;
   try {
      present.emplace( agent_.entities(), path( request ) );
   } catch ( const RangeError & ) {
      // Nothing yet.
   }
   connection.send( lineOf( okAnswer() ) );
   if ( present ) {
      connection.stream( answerOf( std::move( *present ) ).pieces() );
   } else {
      connection.send( lineOf( okAnswer() ) );
   }
}

void
Console::verification( Connection & connection, const String & command ) {
   try {
      connection.send( change( "verify", command ) );
   } catch ( const RangeError & e ) {
      connection.send( lineOf( failureAnswer( e.what() ) ) );
   }
}

} // namespace QonAgent
