#include "agent/server/Answers.h"

#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>

#include "agent/Show.h"
#include "agent/base/PlainWords.h"

namespace QonAgent {

namespace {

/** Whether a text needs nothing but quotes around it. */
bool
plain( const String & text ) {
   for ( char c : text ) {
      if ( c < ' ' || c == '"' || c == '\\' || c == 0x7f ) { // and all that is not ASCII
         return false;
      }
   }
   return true;
}

String
jsonText( const Json & json ) {
   return json.dump( -1, ' ', false, Json::error_handler_t::replace );
}

/** Appends values as JSON. Written out, since a tree of every row takes ten times as long. */
struct Writer {
   String & out;

   void operator()( std::monostate ) const { out += "null"; }
   void operator()( const String & text ) const {
      if ( plain( text ) ) {
         out += '"';
         out += text;
         out += '"';
      } else {
         out += jsonText( text );
      }
   }
   void operator()( U64 number ) const { out += std::to_string( number ); }
   void operator()( double seconds ) const {
      out += jsonText( std::round( seconds * 1000 ) / 1000 );
   }
   void operator()( const Value::List & list ) const {
      char before = '[';
      for ( auto & text : list ) {
         out += std::exchange( before, ',' );
         ( *this )( text );
      }
      out += list.empty() ? "[]" : "]";
   }
   void operator()( const Row & row ) const {
      char before = '{';
      for ( auto & [field, value] : row.fields() ) {
         out += std::exchange( before, ',' );
         ( *this )( String( field ) );
         out += ':';
         std::visit( *this, value.held() );
      }
      out += row.fields().empty() ? "{}" : "}";
   }
};

/** Rows, and the step that was taken to know that there are any. */
struct Begun {
   explicit Begun( Rows from ) : rows( std::move( from ) ), first( rows.step() ) {}
   Rows::Step step() { return first ? *std::exchange( first, std::nullopt ) : rows.step(); }

   Rows rows;
   std::optional< Rows::Step > first;
};

} // namespace

Connection::More
LongAnswer::pieces() const {
   return [step = step]( String & out ) {
      const std::size_t begin = out.size();
      std::size_t whole = begin;
      try {
         for ( U32 steps = 0; steps < mostSteps && whole - begin < mostBytes; ++steps ) {
            if ( !step( out ) ) {
               out += lineOf( okAnswer() );
               return false;
            }
            whole = out.size();
         }
         return true;
      } catch ( const std::exception & e ) {
         out.resize( whole );
         out += lineOf( failureAnswer( e.what() ) );
         return false;
      }
   };
}

LongAnswer
answerOf( const ShowCommand & command, Rows rows ) {
   Json head = okAnswer();
   Json & columns = head["columns"] = Json::array();
   for ( auto & column : command.columns ) {
      columns.push_back( { { "field", column.field },
                           { "heading", column.heading },
                           { "numeric", column.numeric } } );
   }
   auto begun = std::make_shared< Begun >( std::move( rows ) );
   return { lineOf( head ), [begun]( String & out ) {
              const auto at = begun->step();
              if ( at == Rows::Step::row ) {
                 out += "{\"row\":";
                 Writer{ out }( begun->rows.row() );
                 out += "}\n";
              }
              return at != Rows::Step::end;
           } };
}

LongAnswer
answerOf( Orvane::Dump dump ) {
   auto held = std::make_shared< Orvane::Dump >( std::move( dump ) );
   return { lineOf( okAnswer() ), [held, line = Kiv::GenericIf::Line()]( String & out ) mutable {
              const bool any = held->next( line );
              if ( any ) {
                 out += lineOf( line.path, &line.value, line.isEntity );
              }
              return any;
           } };
}

Json
okAnswer() {
   return { { "ok", true } };
}

Json
failureAnswer( const String & why ) {
   return { { "ok", false }, { "error", plainWords( why ) } };
}

String
lineOf( const Json & json ) {
   return jsonText( json ) + "\n";
}

String
lineOf( const String & path, const String * value, bool isEntity ) {
   String line = "{\"path\":";
   const Writer writer{ line };
   writer( path );
   if ( isEntity ) {
      line += value ? ",\"entity\":true" : ",\"entity\":false";
   } else {
      line += ",\"value\":";
      value ? writer( *value ) : writer( std::monostate() );
   }
   return line + "}\n";
}

} // namespace QonAgent
