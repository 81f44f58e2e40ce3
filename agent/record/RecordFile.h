#pragma once
// The format of recordings: lines of text, a record a line. docs/recording.md describes it.
//
//    qon-recording 1 #1f0b5c2e
//    i start {"options":{}} #c3a1d000
//    c 40c3880000000000 #...
//    h createLag( Port-Channel1, 1 ) #...
//    e 3 #...
//
// Every line ends with the check of its text and of all lines before it, and a line end: a line
// that is not whole, missing or changed is told from a good one.

#include <cstdio>
#include <memory>

#include "platform/Velto/Assert.h"

namespace QonAgent {

using Velto::String;

/** What one line says. */
struct Record {
   enum class Kind : char {
      input = 'i',  ///< something came from outside: "KIND TEXT"
      turn = 't',   ///< a turn of the scheduler
      clock = 'c',  ///< readings of the time
      hook = 'h',   ///< a call to the chip
      answer = 'a', ///< what the chip answered: "NAME TEXT"
      end = 'e',    ///< the last record: how many were before it
   };
   Kind kind = Kind::end;
   String text;

   /** "h createLag( Port-Channel1, 1 )" */
   String shown() const {
      return text.empty() ? String( 1, char( kind ) ) : char( kind ) + ( " " + text );
   }
   bool operator==( const Record & ) const = default;
};

constexpr U32 recordingVersion = 1;

class RecordWriter {
 public:
   /** Makes the file and writes its first line. Where there is one of that name already, the next name
       that is free is taken: "run.qon", "run.qon.1", ... Raises Velto::RangeError. */
   explicit RecordWriter( const String & file );
   /** The name that was taken. */
   const String & file() const { return name_; }

   void write( const Record & record );
   /** Gives what was written to the system; false if something could not be written. */
   bool flush();
   U64 records() const { return records_; }

 private:
   struct Close {
      void operator()( std::FILE * file ) const { std::fclose( file ); }
   };
   void line( const String & text );

   String name_;
   std::unique_ptr< std::FILE, Close > file_;
   U32 check_ = 0;
   U64 records_ = 0;
};

class RecordReader {
 public:
   /** Reads the first line of `text`, which is the content of the file `name`. Raises
       Velto::RangeError if it is no recording of the version that this program reads. */
   RecordReader( const String & name, String text );

   /** How a recording ends. */
   enum class Ending {
      none,    ///< it has not ended yet
      whole,   ///< by the record that closes it
      cut,     ///< in the middle of a record
      between, ///< behind a whole record, without the one that closes it
   };

   /** The next record, which stays until take(); null at the end. A record that is damaged raises
       Velto::RangeError. */
   const Record * peek();
   void take();
   /** The number of the record that peek() shows or would show, from 1. */
   U64 number() const { return number_; }
   Ending ending() const { return ending_; }

 private:
   void first();
   /** The next line without its check; false at the end. */
   bool nextLine( String & line );
   bool parse( const String & line );
   [[noreturn]] void refuse( const String & what ) const;

   String name_;
   String text_;
   std::size_t at_ = 0;
   U32 check_ = 0;
   U64 number_ = 0;
   bool held_ = false;
   Record record_;
   Ending ending_ = Ending::none;
};

/** Whatever text on one line, and back. */
String escaped( const String & text );
String unescaped( const String & text );

} // namespace QonAgent
