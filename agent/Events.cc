#include "agent/Events.h"

#include <nlohmann/json.hpp>

#include "agent/Agent.h"
#include "agent/base/Fields.h"
#include "agent/base/StateFile.h"

namespace QonAgent {

using Velto::RangeError;

namespace {

/** The changes that need no feature: by path, through the generic attribute interface. */
std::vector< EventKind >
pathKinds( Orvane::EntityManager & entities ) {
   auto kind = [&]( const char * name, auto use ) {
      String help = String( R"({"time": 1, "event": ")" ) + name + R"(", "path": "..."})";
      return EventKind{ name, help, [=]( const Json & line ) -> std::function< void() > {
                          auto path = fieldOf< String >( line, "path" );
                          return [=] { use( path ); };
                       } };
   };
   std::vector< EventKind > kinds;
   kinds.push_back( kind( "insert", [&]( const String & path ) { entities.insert( path ); } ) );
   kinds.push_back( kind( "delete", [&]( const String & path ) { entities.del( path ); } ) );
   kinds.push_back( { "set", R"({"time": 1, "event": "set", "path": "...", "value": "..."})",
                      [&]( const Json & line ) -> std::function< void() > {
                         auto path = fieldOf< String >( line, "path" );
                         String value = textOfJson( fieldOf< Json >( line, "value" ) );
                         return [=, &entities] { entities.set( path, value ); };
                      } } );
   return kinds;
}

/** What to say of a field that the event does not know, most likely a misspelled one. */
String
unknownField( const Json & line, const FieldsAsked & asked ) {
   String known;
   for ( auto & name : asked.names() ) {
      known += ( known.empty() ? "" : ", " ) + name;
   }
   for ( auto & [field, value] : line.items() ) {
      if ( field != "time" && field != "event" && !asked.names().contains( field ) ) {
         return "field '" + field + "' is not known here; there are: " + known;
      }
   }
   return "";
}

} // namespace

Events::Events( Agent & agent ) {
   for ( auto & kind : pathKinds( agent.entities() ) ) {
      kinds_[kind.name] = kind;
   }
   for ( auto & kind : agent.eventKinds() ) {
      kinds_[kind.name] = kind;
   }
}

std::function< void() >
Events::parse( const Json & line, String * unknown ) const {
   String name = fieldOf< String >( line, "event" );
   auto kind = kinds_.find( name );
   if ( kind == kinds_.end() ) {
      String known;
      for ( auto & [other, ignored] : kinds_ ) {
         known += ( known.empty() ? "" : ", " ) + other;
      }
      throw RangeError( "no event '" + name + "'; there are: " + known );
   }
   if ( !unknown ) {
      return kind->second.parse( line );
   }
   const FieldsAsked asked;
   auto happens = kind->second.parse( line );
   *unknown = unknownField( line, asked );
   return happens;
}

} // namespace QonAgent
