#include "agent/base/StateFile.h"

#include <nlohmann/json.hpp>

#include "agent/base/JsonText.h"
#include "agent/base/ReadFile.h"

namespace QonAgent {

using Velto::RangeError;

Json
takeState( const Orvane::EntityManager & entities, const String & path ) {
   Json state = Json::object();
   // Paths are unique; looking for each would take a time that grows with the square.
   auto & all = static_cast< Json::object_t::Container & >( state.get_ref< Json::object_t & >() );
   Orvane::Dump dump( entities, path );
   for ( Kiv::GenericIf::Line line; dump.next( line ); ) {
      all.emplace_back( line.path, line.isEntity ? Json() : Json( line.value ) );
   }
   return state;
}

String
textOfJson( const Json & value ) {
   if ( value.is_string() ) {
      return value.get< String >();
   }
   if ( value.is_boolean() ) {
      return value.get< bool >() ? "True" : "False";
   }
   if ( value.is_number() ) {
      return value.dump();
   }
   throw RangeError( "expected a text, a number or a truth value, found " +
                     String( value.type_name() ) );
}

namespace {

bool
isQueue( const Orvane::EntityManager & entities, const String & path ) {
   return !path.empty() && path.back() != ']' &&
          entities.attribute( path ).kind == Kiv::AttrKind::queue;
}

} // namespace

void
applyState( Orvane::EntityManager & entities, const State & state ) {
   String queue; // whose elements are being entered
   for ( auto & [path, value] : state ) {
      if ( path != queue && isQueue( entities, path ) ) {
         queue = path;
         entities.del( path ); // a snapshot has all that is in it
      }
      if ( value.is_null() ) {
         entities.insert( path );
      } else if ( value.is_structured() ) {
         throw RangeError( path + ": expected a value, found " + value.type_name() );
      } else {
         entities.set( path, textOfJson( value ) );
      }
   }
}

State
parseState( const String & text ) {
   State state;
   String path;
   auto take = [&]( int depth, Json::parse_event_t event, Json & parsed ) {
      using Event = Json::parse_event_t;
      if ( depth == 1 && event == Event::key ) {
         path = parsed.get< String >();
      } else if ( depth == 1 && ( event == Event::value || event == Event::object_end ||
                                  event == Event::array_end ) ) {
         state.emplace_back( path, parsed );
         return false; // it need not be kept there too
      }
      return true;
   };
   Json whole;
   try {
      whole = Json::parse( text, take );
   } catch ( const Json::parse_error & e ) {
      throw RangeError( jsonComplaint( text, e.byte, e ) );
   }
   if ( !whole.is_object() ) {
      throw RangeError( "expected an object of paths and values, found " +
                        String( whole.type_name() ) );
   }
   return state;
}

Json
parseJson( const String & text ) {
   try {
      return Json::parse( text );
   } catch ( const Json::parse_error & e ) {
      throw RangeError( jsonComplaint( text, e.byte, e ) );
   }
}

void
applyStateFile( Orvane::EntityManager & entities, const String & file ) {
   applyStateText( entities, file, readFile( file ) );
}

void
applyStateText( Orvane::EntityManager & entities, const String & file, const String & text ) {
   State state;
   try {
      state = parseState( text );
   } catch ( const RangeError & e ) {
      throw RangeError( file + ":" + e.what() );
   }
   try {
      applyState( entities, state );
   } catch ( const RangeError & e ) {
      throw RangeError( file + ": " + e.what() );
   }
}

} // namespace QonAgent
