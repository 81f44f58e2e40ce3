#include <utility>
#include <vector>

#include "platform/Kiv/Generic.h"
#include "platform/Kiv/Text.h"
#include "platform/Velto/Assert.h"

namespace Kiv {

namespace {

using Velto::Node;

/** Values may hold line ends; they stand escaped in a dump's text. */
String
escaped( const String & text ) {
   String out;
   for ( char c : text ) {
      out += c == '\\' ? "\\\\" : c == '\n' ? "\\n" : String( 1, c );
   }
   return out;
}

String
unescaped( const String & text ) {
   String out;
   for ( size_t i = 0; i < text.size(); ++i ) {
      bool special = text[i] == '\\' && i + 1 < text.size();
      out += special ? ( text[i + 1] == 'n' ? '\n' : text[i + 1] ) : text[i];
      i += special;
   }
   return out;
}

/** Where the path ends and " = " begins, outside brackets; npos for an entity's line. */
size_t
valueAt( const String & line ) {
   int depth = 0;
   for ( size_t i = 0; i < line.size(); ++i ) {
      depth += line[i] == '[' ? 1 : line[i] == ']' && depth ? -1 : 0;
      if ( !depth && line.compare( i, 3, " = " ) == 0 ) {
         return i;
      }
   }
   return String::npos;
}

std::vector< GenericIf::Line >
linesOf( const String & text ) {
   std::vector< GenericIf::Line > lines;
   for ( auto & line : split( text, '\n' ) ) {
      if ( line.empty() ) {
         continue;
      }
      auto at = valueAt( line );
      bool isEntity = at == String::npos;
      lines.push_back( { unescaped( line.substr( 0, at ) ),
                         isEntity ? String() : unescaped( line.substr( at + 3 ) ), isEntity } );
   }
   return lines;
}

} // namespace

void
GenericIf::Dump::enter( const Node & node, const String & prefix ) {
   auto type = node.typeData();
   frames_.push_back( { &node, prefix, 0, type ? type->first + type->count : 0 } );
}

/** Makes the line of an entry, or of a scalar, whose path it has; stands in the entity then. */
void
GenericIf::Dump::show( const AttrDesc & attr, const void * value, Line & line ) {
   const bool owned = attr.kind == AttrKind::entities || attr.kind == AttrKind::ownedEntity;
   line.isEntity = owned;
   line.value = owned                        ? String()
                : attr.kind == AttrKind::set ? String( "True" )
                                             : attr.value->toText( value );
   if ( owned ) {
      enter( *static_cast< const Node * >( value ), line.path + "/" );
   }
}

/** Comes to an attribute of the frame's entity. False: there is no line of it yet. */
bool
GenericIf::Dump::begin( Frame & frame, const AttrDesc & attr, Line & line ) {
   frame.attr = &attr;
   if ( attr.walk ) {
      frame.walk = attr.walk( *frame.node );
      return false;
   }
   const void * value = attr.kind == AttrKind::pointer ? nullptr : attr.at( *frame.node, nullptr );
   if ( value ) {
      line.path = frame.prefix + attr.name;
      show( attr, value, line );
   }
   return value;
}

bool
GenericIf::Dump::next( Line & line ) {
   if ( single_ ) {
      line = *std::exchange( single_, std::nullopt );
      return true;
   }
   const void * key;
   const void * value;
   while ( !frames_.empty() ) {
      Frame & frame = frames_.back();
      if ( frame.walk && frame.walk->next( key, value ) ) {
         const AttrDesc & attr = *frame.attr;
         line.path = frame.prefix + attr.name + ( key ? "[" + attr.key->toText( key ) + "]" : "" );
         show( attr, value, line );
         return true;
      }
      frame.walk.reset();
      if ( frame.at == frame.end ) {
         frames_.pop_back();
      } else if ( begin( frame, *frame.node->typeData()->at( frame.at++ ), line ) ) {
         return true;
      }
   }
   return false;
}

String
GenericIf::dump( const Node & root ) {
   String all;
   Dump dump( root );
   for ( Line line; dump.next( line ); ) {
      all += escaped( line.path ) + ( line.isEntity ? "" : " = " + escaped( line.value ) ) + "\n";
   }
   return all;
}

void
GenericIf::load( Node & root, const String & text ) {
   auto lines = linesOf( text );
   for ( auto & line : lines ) {
      String rest = line.path;
      while ( !rest.empty() ) {
         String before = rest;
         takeSegment( before, rest );
      }
   }
   U32 number = 0;
   for ( auto & line : lines ) {
      ++number;
      try {
         if ( line.isEntity ) {
            insert( root, line.path );
         } else {
            set( root, line.path, line.value );
         }
      } catch ( const Velto::RangeError & e ) {
         throw Velto::RangeError( "line " + std::to_string( number ) + ": " + e.what() );
      }
   }
}

} // namespace Kiv
