#include <vector>

#include "platform/Kiv/Generic.h"
#include "platform/Kiv/Text.h"
#include "platform/Velto/Assert.h"

namespace Kiv {

namespace {

using Velto::Node;

void dumpNode( const Node & node, const String & prefix, void * context, GenericIf::Take take );

struct Dumper {
   const AttrDesc & attr;
   const String & path; // of the attribute
   void * context;
   GenericIf::Take take;

   void visit( const void * key, const void * value ) const {
      String where = key ? path + "[" + attr.key->toText( key ) + "]" : path;
      if ( attr.kind == AttrKind::entities ) {
         entity( where, static_cast< const Node * >( value ) );
      } else if ( attr.kind == AttrKind::set ) {
         take( context, { where, "True", false } );
      } else {
         take( context, { where, attr.value->toText( value ), false } );
      }
   }
   void entity( const String & where, const Node * node ) const {
      take( context, { where, "", true } );
      dumpNode( *node, where + "/", context, take );
   }
};

void
dumpAttr( const Node & node, const AttrDesc & attr, const String & path, void * context,
          GenericIf::Take take ) {
   Dumper dumper = { attr, path, context, take };
   if ( attr.each ) {
      attr.each( node, &dumper, []( void * d, const void * key, const void * value ) {
         static_cast< Dumper * >( d )->visit( key, value );
      } );
      return;
   }
   const void * value = attr.at( node, nullptr );
   if ( attr.kind == AttrKind::scalar ) {
      dumper.visit( nullptr, value );
   } else if ( attr.kind == AttrKind::ownedEntity && value ) {
      dumper.entity( path, static_cast< const Node * >( value ) );
   }
}

void
dumpType( const Node & node, const TypeData * type, const String & prefix, void * context,
          GenericIf::Take take ) {
   if ( !type ) {
      return;
   }
   dumpType( node, type->base, prefix, context, take );
   for ( int i = 0; i < type->count; ++i ) {
      dumpAttr( node, type->attrs[i], prefix + type->attrs[i].name, context, take );
   }
}

void
dumpNode( const Node & node, const String & prefix, void * context, GenericIf::Take take ) {
   dumpType( node, node.typeData(), prefix, context, take );
}

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
GenericIf::dump( const Node & root, void * context, Take take ) {
   dumpNode( root, "", context, take );
}

String
GenericIf::dump( const Node & root ) {
   String all;
   dump( root, &all, []( void * c, const Line & line ) {
      auto & all = *static_cast< String * >( c );
      all += escaped( line.path ) + ( line.isEntity ? "" : " = " + escaped( line.value ) ) + "\n";
   } );
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
