#pragma once
// Prints rows as a table, while they come.
//
//    Port-channel  Members
//    ------------  --------------------
//    PortChannel1  Ethernet0, Ethernet4
//
// 1. Columns are two blanks apart and as wide as their widest cell among the first `lookAhead` rows;
//    numbers stand to the right. A cell that comes later and is wider pushes the rest of its line.
// 2. Where that is too wide for a terminal, the columns of lists are narrowed, and lists continue in
//    further lines. No value is ever broken; one that is too long runs over.
// 3. No line ends in a blank. What a terminal would act on stands escaped.

#include <functional>
#include <vector>

#include "agent/base/Json.h"
#include "platform/Velto/Types.h"

namespace QonAgent {

class Table {
 public:
   static constexpr U32 lookAhead = 300;
   using Print = std::function< void( const Velto::String & text ) >;

   /** `columns` as the agent answers them; a `width` of 0 is as wide as it gets. */
   Table( const Json & columns, U32 width, Print print );

   void row( const Json & row );
   /** There are no more rows. */
   void end();

 private:
   using Cell = std::vector< Velto::String >; // the values of a list
   using Cells = std::vector< Cell >;
   struct Column {
      Velto::String field;
      Velto::String heading;
      bool numeric;
      U32 width; // in characters
      U32 least; // the widest of its values
   };

   void narrow();
   void layOut();
   void printCells( const Cells & cells );

   std::vector< Column > columns_;
   const U32 width_;
   const Print print_;
   bool laidOut_ = false;
   std::vector< Cells > first_; // until it is laid out
};

/** All of `rows` at once. */
Velto::String tableOf( const Json & columns, const Json & rows, U32 width = 0 );

} // namespace QonAgent
