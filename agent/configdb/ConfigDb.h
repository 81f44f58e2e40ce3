#pragma once
// A switch configuration in the ConfigDB JSON format, read but not yet understood.
//
//    { "PORT": { "Ethernet0": { "speed": "40000", "lanes": "25,26,27,28" } },
//      "VLAN_MEMBER": { "Vlan10|Ethernet0": { "tagging_mode": "untagged" } } }
//      table            key (parts)           field             value
//
// Invariants
// 1. Tables, rows and fields keep the order of the file; of a repeated one the last counts.
// 2. A value is a text or a list of texts. Numbers and truth values are read as the texts that the
//    database would hold ("9100", "true").
// 3. What is wrong with a value comes to light when a feature asks for it.

#include <deque>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Velto/Assert.h"
#include "platform/Velto/Types.h"

namespace QonAgent {

using Velto::String;

/** A file of which nothing can be used; what() is the whole line. */
class ConfigError : public Velto::RangeError {
 public:
   using Velto::RangeError::RangeError;
};

/** What is wrong with a row, and where in it. Raised by the accessors of ConfigRow. */
class RowError : public Velto::RangeError {
 public:
   RowError( const String & field, const String & what ) : RangeError( what ), field_( field ) {}
   /** Empty: the row as a whole. */
   const String & field() const { return field_; }

 private:
   String field_;
};

struct ConfigValue {
   enum class Kind : U8 { text, list, other };
   Kind kind = Kind::text;
   String text;                ///< of `other`: what it is, "an object"
   std::vector< String > list; ///< of `list`

   bool operator==( const ConfigValue & ) const = default;
};

/** One row. Accessors raise RowError. Fields are found whatever their case. */
class ConfigRow {
 public:
   /** `table` outlives the row. */
   ConfigRow( const String & table, const String & key ) : table_( &table ), key_( key ) {}

   const String & table() const { return *table_; }
   const String & key() const { return key_; }
   /** How many pieces the key has between "|". */
   U32 parts() const;
   /** Piece `i`; raises RowError if the key has not exactly `of` pieces. */
   String part( U32 i, U32 of ) const;
   /** "TABLE|key" or "TABLE|key|field". */
   String place( const String & field = "" ) const;

   bool has( const String & field ) const { return find( field ) != nullptr; }
   String text( const String & field, const String & absent = "" ) const;
   U64 number( const String & field, U64 min, U64 max, U64 absent ) const;
   /** "true" or "false", in any case, with yes, on, enable, enabled, 1 and their opposites. */
   bool flag( const String & field, bool absent ) const;
   /** The index of one of `words`, in any case. */
   U32 word( const String & field, const std::vector< String > & words, U32 absent ) const;
   /** An array, or a text with commas, or the same under "field@"; empty where there is none. */
   std::vector< String > list( const String & field ) const;

   /** All fields, in the order of the file. */
   using Fields = std::vector< std::pair< String, ConfigValue > >;
   const Fields & fields() const {
      static const Fields none;
      return fields_ ? *fields_ : none;
   }

 private:
   friend class ConfigParser;
   const ConfigValue * find( const String & field ) const;

   const String * table_;
   String key_;
   std::shared_ptr< const Fields > fields_; // null for none; rows that are alike share them
};

class ConfigDb {
 public:
   struct Table {
      String name;
      std::deque< ConfigRow > rows; // not to be copied as they become more
   };

   ConfigDb() = default;
   ConfigDb( ConfigDb && ) = default;
   ConfigDb( const ConfigDb & ) = delete;

   /** Reads a file. Raises ConfigError for one that cannot be read or is no ConfigDB file. */
   static ConfigDb read( const String & file );
   /** The same of a text; `file` is what messages call it. */
   static ConfigDb parse( const String & file, std::string_view text );

   const String & file() const { return file_; }
   const std::deque< Table > & tables() const { return tables_; }
   /** The rows of a table; none where the file has no such table. */
   const std::deque< ConfigRow > & rows( const String & table ) const;
   /** What was odd while reading: "PLACE: what". */
   const std::vector< String > & warnings() const { return warnings_; }

 private:
   friend class ConfigParser;
   String file_;
   std::deque< Table > tables_;
   std::vector< String > warnings_;
};

} // namespace QonAgent
