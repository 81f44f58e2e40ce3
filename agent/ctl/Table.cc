#include "agent/ctl/Table.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "platform/Kiv/Text.h"

namespace QonAgent {

using Velto::String;

namespace {

constexpr U32 gap = 2;
constexpr U32 narrowest = 12;

/** How many characters a text of UTF-8 shows. */
U32
shownWidth( const String & text ) {
   return U32(
         std::count_if( text.begin(), text.end(), []( char c ) { return ( c & 0xc0 ) != 0x80; } ) );
}

String
cellText( const Json & value ) {
   if ( value.is_null() ) {
      return "";
   }
   if ( value.is_string() ) {
      return value.get< String >();
   }
   if ( value.is_boolean() ) {
      return Kiv::yesNo( value.get< bool >() );
   }
   if ( !value.is_array() ) {
      return value.dump();
   }
   String text;
   for ( auto & item : value ) {
      text += ( text.empty() ? "" : ", " ) + cellText( item );
   }
   return text;
}

/** Cuts off `rest` what fits into `width` bytes, at a blank or behind a slash if it can. */
String
takeLine( String & rest, U32 width ) {
   if ( rest.size() <= width ) {
      return std::exchange( rest, "" );
   }
   auto cut = rest.rfind( ' ', width );
   if ( cut == String::npos || cut == 0 ) {
      auto slash = rest.rfind( '/', width - 1 );
      cut = slash == String::npos ? width : slash + 1;
      while ( cut > 1 && ( rest[cut] & 0xc0 ) == 0x80 ) {
         --cut; // not inside a character
      }
   }
   String line = rest.substr( 0, cut );
   rest.erase( 0, cut );
   rest.erase( 0, rest.find_first_not_of( ' ' ) );
   line.erase( line.find_last_not_of( ' ' ) + 1 );
   return line;
}

struct Layout {
   U32 width;
   bool numeric;
};

class Printer {
 public:
   Printer( const Json & columns, const Json & rows, U32 width );
   String print() const;

 private:
   using Cells = std::vector< String >;
   void narrow( U32 width );
   void printRow( Cells cells, String & out ) const;

   std::vector< Layout > layout_;
   Cells headings_;
   std::vector< Cells > rows_;
};

Printer::Printer( const Json & columns, const Json & rows, U32 width ) {
   for ( auto & column : columns ) {
      headings_.push_back( column.at( "heading" ).get< String >() );
      layout_.push_back( { shownWidth( headings_.back() ), column.at( "numeric" ).get< bool >() } );
   }
   for ( auto & row : rows ) {
      Cells cells;
      for ( std::size_t i = 0; i < columns.size(); ++i ) {
         String field = columns[i].at( "field" ).get< String >();
         cells.push_back( row.contains( field ) ? cellText( row.at( field ) ) : "" );
         layout_[i].width = std::max( layout_[i].width, shownWidth( cells.back() ) );
      }
      rows_.push_back( std::move( cells ) );
   }
   narrow( width );
}

void
Printer::narrow( U32 width ) {
   U32 total = 0;
   for ( auto & column : layout_ ) {
      total += column.width + gap;
   }
   while ( !layout_.empty() && total - gap > width ) {
      auto widest = std::max_element(
            layout_.begin(), layout_.end(),
            []( const Layout & a, const Layout & b ) { return a.width < b.width; } );
      if ( widest->width <= narrowest ) {
         return;
      }
      --widest->width;
      --total;
   }
}

void
Printer::printRow( Cells cells, String & out ) const {
   bool more = true;
   while ( more ) {
      more = false;
      String line;
      U32 column = 0; // where the next cell begins
      U32 at = 0;     // where the line ends
      for ( std::size_t i = 0; i < cells.size(); ++i ) {
         String text = takeLine( cells[i], layout_[i].width );
         U32 shown = shownWidth( text );
         U32 begin = column + ( layout_[i].numeric ? layout_[i].width - shown : 0 );
         if ( shown ) {
            line.append( begin - at, ' ' );
            line += text;
            at = begin + shown;
         }
         column += layout_[i].width + gap;
         more = more || !cells[i].empty();
      }
      out += line + "\n";
   }
}

String
Printer::print() const {
   String out;
   printRow( headings_, out );
   Cells rules;
   for ( auto & column : layout_ ) {
      rules.push_back( String( column.width, '-' ) );
   }
   printRow( rules, out );
   for ( auto & row : rows_ ) {
      printRow( row, out );
   }
   return out;
}

} // namespace

String
tableOf( const Json & columns, const Json & rows, U32 width ) {
   return Printer( columns, rows, width ).print();
}

} // namespace QonAgent
