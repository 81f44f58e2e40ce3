#pragma once
// What the console prints on standard output. Raises Velto::RangeError when that takes no more.

#include <nlohmann/json.hpp>

#include "agent/base/Json.h"
#include "agent/ctl/Table.h"

namespace QonAgent {

using Velto::String;

/** Raises Velto::RangeError with the reason unless `written`. */
void checkOutput( bool written );
void print( const String & text );
String jsonText( const Json & json, int indent = -1 );
void printJson( const Json & json, int indent = 2 );

/** How wide a table may be: as the terminal is, or as it gets. */
U32 tableWidth();
/** A column of a table that the console makes itself. */
Json column( const char * field, const char * heading );

/** Entries of a JSON array or object, a line each, as they come. */
class JsonList {
 public:
   explicit JsonList( const char * brackets ) : brackets_( brackets ) {}
   void entry( const String & text );
   void end();

 private:
   const char * const brackets_;
   bool begun_ = false;
};

/** Rows as a table, or as JSON. */
class Printer {
 public:
   Printer( bool json, const Json & columns )
       : json_( json ), table_( columns, tableWidth(), print ) {}
   void row( const Json & row ) { json_ ? list_.entry( jsonText( row ) ) : table_.row( row ); }
   void end() { json_ ? list_.end() : table_.end(); }

 private:
   const bool json_;
   JsonList list_{ "[]" };
   Table table_;
};

} // namespace QonAgent
