#include "agent/ctl/Table.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

#include "platform/Kiv/Printable.h"
#include "platform/Kiv/Text.h"

namespace QonAgent {

using Velto::String;

namespace {

constexpr U32 gap = 2;
constexpr char comma[] = ", ";

/** How many characters a text of UTF-8 shows. */
U32
shownWidth( const String & text ) {
   return U32(
         std::count_if( text.begin(), text.end(), []( char c ) { return ( c & 0xc0 ) != 0x80; } ) );
}

String
valueText( const Json & value ) {
   if ( value.is_null() ) {
      return "";
   }
   if ( value.is_string() ) {
      return Kiv::printable( value.get< String >() );
   }
   if ( value.is_boolean() ) {
      return Kiv::yesNo( value.get< bool >() );
   }
   if ( value.is_number_float() ) { // seconds
      char text[32];
      std::snprintf( text, sizeof( text ), "%.3f", value.get< double >() );
      return text;
   }
   return value.dump();
}

/** The values of a cell; all but the last with their comma. */
std::vector< String >
cellOf( const Json & value ) {
   if ( !value.is_array() ) {
      return { valueText( value ) };
   }
   std::vector< String > cell;
   for ( auto & item : value ) {
      if ( !cell.empty() ) {
         cell.back() += comma;
      }
      cell.push_back( valueText( item ) );
   }
   return cell;
}

String
withoutBlanks( String text ) {
   text.erase( text.find_last_not_of( ' ' ) + 1 );
   return text;
}

/** How wide a cell is, and its widest value. */
std::pair< U32, U32 >
widthsOf( const std::vector< String > & cell ) {
   String all;
   U32 widest = 0;
   for ( auto & value : cell ) {
      all += value;
      widest = std::max( widest, shownWidth( withoutBlanks( value ) ) );
   }
   return { shownWidth( all ), widest };
}

/** What of a cell, from value `at` on, fits into one line: one value at least. */
String
takeLine( const std::vector< String > & cell, std::size_t & at, U32 width ) {
   String line;
   while ( at < cell.size() &&
           ( line.empty() || shownWidth( withoutBlanks( line + cell[at] ) ) <= width ) ) {
      line += cell[at++];
   }
   return withoutBlanks( line );
}

} // namespace

Table::Table( const Json & columns, U32 width, Print print )
    : width_( width ), print_( std::move( print ) ) {
   for ( auto & column : columns ) {
      const String heading = column.at( "heading" );
      const U32 wide = shownWidth( heading );
      columns_.push_back( { column.at( "field" ), heading, column.at( "numeric" ), wide, wide } );
   }
}

void
Table::row( const Json & row ) {
   Cells cells;
   for ( auto & column : columns_ ) {
      auto value = row.find( column.field );
      cells.push_back( value == row.end() ? Cell() : cellOf( *value ) );
   }
   if ( laidOut_ ) {
      printCells( cells );
      return;
   }
   first_.push_back( std::move( cells ) );
   if ( first_.size() == lookAhead ) {
      layOut();
   }
}

void
Table::end() {
   if ( !laidOut_ ) {
      layOut();
   }
}

void
Table::layOut() {
   laidOut_ = true;
   for ( auto & cells : first_ ) {
      for ( std::size_t i = 0; i < cells.size(); ++i ) {
         const auto [wide, widest] = widthsOf( cells[i] );
         columns_[i].width = std::max( columns_[i].width, wide );
         columns_[i].least = std::max( columns_[i].least, widest );
      }
   }
   narrow();
   Cells headings, rules;
   for ( auto & column : columns_ ) {
      headings.push_back( { column.heading } );
      rules.push_back( { String( column.width, '-' ) } );
   }
   printCells( headings );
   printCells( rules );
   for ( auto & cells : std::exchange( first_, {} ) ) {
      printCells( cells );
   }
}

/** Takes from the widest of the columns that have something to give, one by one. */
void
Table::narrow() {
   U32 total = 0;
   for ( auto & column : columns_ ) {
      total += column.width + gap;
   }
   while ( width_ && total > width_ + gap ) {
      Column * widest = nullptr;
      for ( auto & column : columns_ ) {
         if ( column.width > column.least && ( !widest || column.width > widest->width ) ) {
            widest = &column;
         }
      }
      if ( !widest ) {
         return;
      }
      --widest->width;
      --total;
   }
}

void
Table::printCells( const Cells & cells ) {
   std::vector< std::size_t > at( cells.size() );
   String out;
   bool more = true;
   while ( more ) {
      more = false;
      U32 column = 0; // where the next cell begins
      U32 end = 0;    // where the line ends
      for ( std::size_t i = 0; i < cells.size(); ++i ) {
         const U32 width = columns_[i].width;
         const String text = takeLine( cells[i], at[i], width );
         const U32 shown = shownWidth( text );
         U32 begin = column + ( columns_[i].numeric && shown < width ? width - shown : 0 );
         begin = end ? std::max( begin, end + gap ) : begin;
         if ( shown ) {
            out.append( begin - end, ' ' );
            out += text;
            end = begin + shown;
         }
         column += width + gap;
         more = more || at[i] < cells[i].size();
      }
      out += "\n";
   }
   print_( out );
}

String
tableOf( const Json & columns, const Json & rows, U32 width ) {
   String all;
   Table table( columns, width, [&]( const String & text ) { all += text; } );
   for ( auto & row : rows ) {
      table.row( row );
   }
   table.end();
   return all;
}

} // namespace QonAgent
