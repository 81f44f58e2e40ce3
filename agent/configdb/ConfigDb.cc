#include "agent/configdb/ConfigDb.h"

#include <algorithm>

#include "agent/base/JsonText.h"
#include "agent/base/ReadFile.h"
#include "platform/Kiv/Text.h"

namespace QonAgent {

/** Takes the parser's events: tables, rows, fields, lists; what lies deeper is only skipped. */
class ConfigParser {
 public:
   using number_integer_t = nlohmann::json::number_integer_t;
   using number_unsigned_t = nlohmann::json::number_unsigned_t;
   using number_float_t = nlohmann::json::number_float_t;

   ConfigParser( ConfigDb & db, std::string_view text ) : db_( db ), text_( text ) {}

   // The interface that the parser of JSON expects.
   bool null() { return scalar( "", nothing ); }
   bool boolean( bool v ) { return scalar( v ? "true" : "false", "a truth value" ); }
   bool number_integer( number_integer_t v ) { return scalar( Kiv::toText( S64( v ) ), number ); }
   bool number_unsigned( number_unsigned_t v ) { return scalar( Kiv::toText( U64( v ) ), number ); }
   bool number_float( number_float_t, const String & text ) { return scalar( text, number ); }
   bool string( String & text ) { return scalar( text, "a text" ); }
   bool binary( nlohmann::json::binary_t & ) { return false; }
   bool start_object( std::size_t ) { return open( "an object", true ); }
   bool start_array( std::size_t ) { return open( "an array", false ); }
   bool end_object() { return close(); }
   bool end_array() { return close(); }
   bool key( String & name );
   [[noreturn]] bool parse_error( std::size_t position, const String &,
                                  const nlohmann::json::exception & e );

 private:
   static constexpr const char number[] = "a number";
   static constexpr const char nothing[] = "nothing";
   static constexpr const char twice[] = "stands twice in the file, the last one counts";
   // Where the parser stands: how many brackets are open.
   static constexpr U32 inFile = 1;
   static constexpr U32 inTable = 2;
   static constexpr U32 inRow = 3;
   static constexpr U32 inList = 4;

   ConfigRow & row() { return table_->rows[row_]; }
   ConfigValue & value() { return fields_[field_].second; }
   void newTable();
   void newRow();
   void endRow();
   void newField( ConfigValue value );
   bool scalar( const String & text, const char * what );
   bool open( const char * what, bool object );
   bool close();
   void skip( const char * expected, const char * found );
   void warn( const String & place, const String & what ) {
      db_.warnings_.push_back( db_.file_ + ": " + place + ": " + what );
   }

   ConfigDb & db_;
   const std::string_view text_;
   U32 depth_ = 0;
   U32 ignored_ = 0;         ///< brackets open of something that is skipped
   String names_[inRow + 1]; ///< by depth: the key whose value comes next
   ConfigDb::Table * table_ = nullptr;
   std::size_t row_ = 0;
   ConfigRow::Fields fields_; ///< of the row
   std::size_t field_ = 0;
   std::shared_ptr< const ConfigRow::Fields > former_; ///< of the row before

   U32 & slotOf( const String & key );
   void moreSlots();

   // The rows of the present table by their keys, which stand in the rows: numbers from 1 in an open
   // hash table of a power of two, 0 for none.
   std::vector< U32 > slots_;
};

bool
ConfigParser::parse_error( std::size_t position, const String &,
                           const nlohmann::json::exception & e ) {
   throw ConfigError( db_.file_ + ":" + jsonComplaint( text_, position, e ) );
}

bool
ConfigParser::key( String & name ) {
   if ( !ignored_ ) {
      names_[depth_] = name;
   }
   return true;
}

void
ConfigParser::newTable() {
   const String & name = names_[inFile];
   slots_.clear();
   for ( auto & table : db_.tables_ ) {
      if ( table.name == name ) {
         warn( name, twice );
         table.rows.clear();
         table_ = &table;
         return;
      }
   }
   table_ = &db_.tables_.emplace_back();
   table_->name = name;
}

void
ConfigParser::newRow() {
   if ( slots_.size() < 2 * ( table_->rows.size() + 1 ) ) {
      moreSlots();
   }
   U32 & slot = slotOf( names_[inTable] );
   if ( slot == 0 ) {
      table_->rows.emplace_back( table_->name, names_[inTable] );
      slot = U32( table_->rows.size() );
      row_ = slot - 1;
   } else {
      row_ = slot - 1;
      warn( row().place(), twice );
      row().fields_ = nullptr;
   }
   fields_.clear();
}

/** Where the row of that key is noted, or shall be. */
U32 &
ConfigParser::slotOf( const String & key ) {
   const std::size_t mask = slots_.size() - 1;
   std::size_t at = std::hash< String >()( key ) & mask;
   while ( slots_[at] && table_->rows[slots_[at] - 1].key() != key ) {
      at = ( at + 1 ) & mask;
   }
   return slots_[at];
}

void
ConfigParser::moreSlots() {
   slots_.assign( std::max< std::size_t >( 64, 2 * slots_.size() ), 0 );
   for ( U32 i = 0; i < table_->rows.size(); ++i ) {
      slotOf( table_->rows[i].key() ) = i + 1;
   }
}

/** Tables of a hundred thousand rows have the same fields in most of them. */
void
ConfigParser::endRow() {
   if ( !former_ || *former_ != fields_ ) {
      former_ = std::make_shared< const ConfigRow::Fields >( fields_ );
   }
   row().fields_ = former_;
}

void
ConfigParser::newField( ConfigValue value ) {
   const String & name = names_[inRow];
   for ( field_ = 0; field_ < fields_.size(); ++field_ ) {
      if ( fields_[field_].first == name ) {
         warn( row().place( name ), twice );
         fields_[field_].second = std::move( value );
         return;
      }
   }
   fields_.emplace_back( name, std::move( value ) );
}

void
ConfigParser::skip( const char * expected, const char * found ) {
   if ( depth_ == 0 ) {
      throw ConfigError( db_.file_ + ": expected an object of tables, found " + found );
   }
   String place = depth_ == inFile ? names_[inFile] : table_->name + "|" + names_[inTable];
   warn( place, String( "expected " ) + expected + ", found " + found + "; " +
                      ( depth_ == inFile ? "table" : "row" ) + " skipped" );
}

bool
ConfigParser::scalar( const String & text, const char * what ) {
   bool isNull = what == nothing;
   if ( ignored_ ) {
      return true;
   }
   if ( depth_ == inList ) {
      value().list.push_back( text );
   } else if ( depth_ == inRow ) {
      // A row without fields is stored with one of this name.
      if ( !isNull && names_[inRow] != "NULL" ) {
         newField( { ConfigValue::Kind::text, text, {} } );
      }
   } else if ( depth_ == inTable && isNull ) {
      newRow();
   } else {
      skip( depth_ == inFile ? "an object of rows" : "an object of fields", what );
   }
   return true;
}

bool
ConfigParser::open( const char * what, bool object ) {
   if ( ignored_ ) {
      ++ignored_;
      return true;
   }
   if ( depth_ < inRow && !object ) {
      skip( depth_ == inFile ? "an object of rows" : "an object of fields", what );
      ignored_ = 1;
      return true;
   }
   if ( depth_ == inFile ) {
      newTable();
   } else if ( depth_ == inTable ) {
      newRow();
   } else if ( depth_ == inRow && !object ) {
      newField( { ConfigValue::Kind::list, "", {} } );
   } else if ( depth_ == inRow ) {
      newField( { ConfigValue::Kind::other, what, {} } );
      ignored_ = 1;
      return true;
   } else if ( depth_ == inList ) {
      value() = { ConfigValue::Kind::other, String( "a list with " ) + what + " in it", {} };
      ignored_ = 1;
      return true;
   }
   ++depth_;
   return true;
}

bool
ConfigParser::close() {
   if ( !ignored_ && depth_ == inRow ) {
      endRow();
   }
   --( ignored_ ? ignored_ : depth_ );
   return true;
}

ConfigDb
ConfigDb::read( const String & file ) {
   String text;
   try {
      text = readFile( file );
   } catch ( const Velto::RangeError & e ) {
      throw ConfigError( e.what() );
   }
   return parse( file, text );
}

ConfigDb
ConfigDb::parse( const String & file, std::string_view text ) {
   if ( text.find_first_not_of( " \t\r\n" ) == std::string_view::npos ) {
      throw ConfigError( file + ": is empty, an object of tables was expected" );
   }
   ConfigDb db;
   db.file_ = file;
   ConfigParser parser( db, text );
   nlohmann::json::sax_parse( text, &parser );
   return db;
}

const std::deque< ConfigRow > &
ConfigDb::rows( const String & table ) const {
   static const std::deque< ConfigRow > none;
   for ( auto & t : tables_ ) {
      if ( t.name == table ) {
         return t.rows;
      }
   }
   return none;
}

} // namespace QonAgent
