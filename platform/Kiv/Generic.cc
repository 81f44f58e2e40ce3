#include "platform/Kiv/Generic.h"

#include "platform/Kiv/Entity.h"
#include "platform/Velto/Assert.h"

namespace Kiv {

const TypeData Entity::kivTypeData = { "Kiv::Entity", nullptr, nullptr, 0, 0 };

const AttrDesc *
TypeData::find( const String & wanted ) const {
   for ( const TypeData * t = this; t; t = t->base ) {
      for ( int i = 0; i < t->count; ++i ) {
         if ( wanted == t->attrs[i].name ) {
            return &t->attrs[i];
         }
      }
   }
   return nullptr;
}

const AttrDesc *
TypeData::at( int index ) const {
   for ( const TypeData * t = this; t; t = t->base ) {
      if ( index >= t->first && index < t->first + t->count ) {
         return &t->attrs[index - t->first];
      }
   }
   return nullptr;
}

namespace {

using Velto::Node;

[[noreturn]] void
refuse( const String & where, const String & what ) {
   throw Velto::RangeError( where + ": " + what );
}

String
typeName( const Node & node ) {
   auto type = node.typeData();
   return type ? type->name : "an object without attributes";
}

const AttrDesc &
attrOf( const Node & node, const String & name, const String & where ) {
   auto type = node.typeData();
   auto attr = type ? type->find( name ) : nullptr;
   if ( !attr ) {
      refuse( where, typeName( node ) + " has no attribute '" + name + "'" );
   }
   return *attr;
}

bool
leadsOn( const AttrDesc & attr ) {
   return attr.kind == AttrKind::entities || attr.kind == AttrKind::ownedEntity ||
          attr.kind == AttrKind::pointer;
}

/** A segment must have a key exactly where the attribute is keyed. */
void
checkKey( const AttrDesc & attr, const GenericIf::Segment & s, const String & where ) {
   if ( attr.key && !s.hasKey ) {
      refuse( where, "'" + s.attribute + "' is keyed: expected '" + s.attribute + "[KEY]'" );
   }
   if ( !attr.key && s.hasKey ) {
      refuse( where, "'" + s.attribute + "' has no keys" );
   }
}

void
checkChangeable( const AttrDesc & attr, const GenericIf::Segment & s, const String & where ) {
   if ( !attr.set ) {
      refuse( where,
              "'" + s.attribute +
                    ( attr.kind == AttrKind::pointer ? "' is a pointer and cannot be set by text"
                                                     : "' can be read only" ) );
   }
}

template< class F >
void
withKey( const AttrDesc & attr, const GenericIf::Segment & s, const String & where, F && use ) {
   if ( !attr.key || !s.hasKey ) {
      use( static_cast< const void * >( nullptr ) );
      return;
   }
   bool parsed = false;
   struct Context {
      F & use;
      bool & parsed;
   } context = { use, parsed };
   try {
      attr.key->withText(
            s.key,
            []( void * c, const void * key ) {
               auto & context = *static_cast< Context * >( c );
               context.parsed = true;
               context.use( key );
            },
            &context );
   } catch ( const Velto::RangeError & e ) {
      if ( parsed ) {
         throw;
      }
      refuse( where, e.what() );
   }
}

/** Where a path ends: the entity, the attribute, and the last segment. */
struct Place {
   Node * node = nullptr;
   const AttrDesc * attr = nullptr;
   GenericIf::Segment last;
};

Node *
step( Node & node, const AttrDesc & attr, const GenericIf::Segment & s, const String & where ) {
   const void * next = nullptr;
   withKey( attr, s, where, [&]( const void * key ) { next = attr.at( node, key ); } );
   return const_cast< Node * >( static_cast< const Node * >( next ) );
}

/** Follows all but the last segment. An absent entity on the way is an error. */
Place
placeOf( Node & root, const String & path ) {
   Place p;
   p.node = &root;
   String rest = path;
   for ( ;; ) {
      String before = rest;
      p.last = GenericIf::takeSegment( before, rest );
      p.attr = &attrOf( *p.node, p.last.attribute, path );
      if ( rest.empty() ) {
         return p;
      }
      if ( !leadsOn( *p.attr ) ) {
         refuse( path, "'" + p.last.attribute + "' is a value, nothing lies below it" );
      }
      checkKey( *p.attr, p.last, path );
      Node * next = step( *p.node, *p.attr, p.last, path );
      if ( !next ) {
         refuse( path, "there is no " + p.last.attribute +
                             ( p.last.hasKey ? "[" + p.last.key + "]" : String() ) );
      }
      p.node = next;
   }
}

String
entityText( const Node * node ) {
   if ( !node ) {
      return "None";
   }
   auto entity = dynamic_cast< const Entity * >( node );
   return entity && !entity->name().empty() ? entity->name() : typeName( *node );
}

} // namespace

GenericIf::Segment
GenericIf::takeSegment( const String & path, String & rest ) {
   Segment s;
   size_t i = 0;
   int depth = 0;
   for ( ; i < path.size() && ( depth || path[i] != '/' ); ++i ) {
      depth += path[i] == '[' ? 1 : path[i] == ']' && depth ? -1 : 0;
   }
   if ( depth ) {
      refuse( path, "a bracket is not closed" );
   }
   String segment = path.substr( 0, i );
   String remaining = i < path.size() ? path.substr( i + 1 ) : String();
   auto open = segment.find( '[' );
   s.attribute = segment.substr( 0, open );
   if ( open != String::npos ) {
      if ( segment.back() != ']' ) {
         refuse( path, "text behind the bracket of '" + s.attribute + "'" );
      }
      s.hasKey = true;
      s.key = segment.substr( open + 1, segment.size() - open - 2 );
   }
   if ( s.attribute.empty() ) {
      refuse( path, "an attribute's name was expected" );
   }
   rest = remaining;
   return s;
}

String
GenericIf::text( const Node & node, const AttrDesc & attr, const void * key ) {
   if ( attr.kind == AttrKind::queue || ( attr.key && !key ) ) {
      String all;
      attr.each( node, [&]( const void * k, const void * v ) {
         all += all.empty() ? "" : ", ";
         all += k ? attr.key->toText( k ) : String();
         all += k && v && attr.value ? ": " : "";
         all += v && attr.value ? attr.value->toText( v ) : String();
      } );
      return attr.kind == AttrKind::queue ? "[" + all + "]" : "{" + all + "}";
   }
   const void * value = attr.at( node, key );
   if ( attr.kind == AttrKind::set ) {
      return value ? "True" : "False";
   }
   if ( leadsOn( attr ) ) {
      return entityText( static_cast< const Node * >( value ) );
   }
   return value ? attr.value->toText( value ) : "None";
}

// The barrier behind the call keeps it from becoming a jump, which would take this frame off the
// stack that the guard of test-only operations looks at.
__attribute__( ( noinline ) ) void
GenericIf::apply( Node & node, const AttrDesc & attr, const void * key, const void * value ) {
   attr.set( node, key, value );
   asm volatile( "" );
}

__attribute__( ( noinline ) ) void
GenericIf::erase( Node & node, const AttrDesc & attr, const void * key ) {
   attr.del( node, key );
   asm volatile( "" );
}

String
GenericIf::get( const Node & root, const String & path ) {
   Place p = placeOf( const_cast< Node & >( root ), path );
   if ( p.last.hasKey ) {
      checkKey( *p.attr, p.last, path );
   }
   String result;
   withKey( *p.attr, p.last, path,
            [&]( const void * key ) { result = text( *p.node, *p.attr, key ); } );
   return result;
}

void
GenericIf::set( Node & root, const String & path, const String & value ) {
   setOrCheck( root, path, value, true );
}

void
GenericIf::check( Node & root, const String & path, const String & value ) {
   setOrCheck( root, path, value, false );
}

void
GenericIf::setOrCheck( Node & root, const String & path, const String & value, bool sets ) {
   Place p = placeOf( root, path );
   checkKey( *p.attr, p.last, path );
   checkChangeable( *p.attr, p.last, path );
   if ( p.attr->kind == AttrKind::entities || p.attr->kind == AttrKind::ownedEntity ) {
      refuse( path, "'" + p.last.attribute + "' holds entities: insert, or name an attribute" );
   }
   withKey( *p.attr, p.last, path, [&]( const void * key ) {
      if ( p.attr->kind == AttrKind::set ) {
         if ( value != "True" && value != "true" && value != "1" ) {
            refuse( path, "expected True for a set's key, not '" + value + "' (or delete it)" );
         }
         if ( sets ) {
            GenericIf::apply( *p.node, *p.attr, key, nullptr );
         }
         return;
      }
      struct Context {
         Place & p;
         const void * key;
         bool sets;
         bool parsed;
      } context = { p, key, sets, false };
      try {
         p.attr->value->withText(
               value,
               []( void * c, const void * v ) {
                  auto & context = *static_cast< Context * >( c );
                  context.parsed = true;
                  if ( context.sets ) {
                     GenericIf::apply( *context.p.node, *context.p.attr, context.key, v );
                  }
               },
               &context );
      } catch ( const Velto::RangeError & e ) {
         if ( context.parsed ) {
            throw;
         }
         refuse( path, e.what() );
      }
   } );
}

void
GenericIf::insert( Node & root, const String & path ) {
   Place p = placeOf( root, path );
   checkKey( *p.attr, p.last, path );
   if ( p.attr->kind == AttrKind::ownedEntity ) {
      GenericIf::apply( *p.node, *p.attr, nullptr, &p.last.attribute );
      return;
   }
   if ( p.attr->kind != AttrKind::entities && p.attr->kind != AttrKind::set ) {
      refuse( path, "'" + p.last.attribute + "' holds values: set it" );
   }
   checkChangeable( *p.attr, p.last, path );
   withKey( *p.attr, p.last, path,
            [&]( const void * key ) { GenericIf::apply( *p.node, *p.attr, key, nullptr ); } );
}

void
GenericIf::del( Node & root, const String & path ) {
   Place p = placeOf( root, path );
   if ( !p.attr->del ) {
      refuse( path, "'" + p.last.attribute + "' cannot be deleted" );
   }
   if ( p.last.hasKey && !p.attr->key ) {
      refuse( path, "'" + p.last.attribute + "' has no keys" );
   }
   withKey( *p.attr, p.last, path, [&]( const void * key ) {
      if ( key && p.attr->at && !p.attr->at( *p.node, key ) ) {
         refuse( path, "there is no " + p.last.attribute + "[" + p.last.key + "]" );
      }
      erase( *p.node, *p.attr, key );
   } );
}

/** What lies at the path, of which the entities are entered. */
GenericIf::Dump::Dump( const Node & root, const String & path, const String & before ) {
   const String full = before + ( before.empty() || path.empty() ? "" : "/" ) + path;
   if ( path.empty() ) {
      enter( root, full.empty() ? full : full + "/" );
      return;
   }
   const Place p = placeOf( const_cast< Node & >( root ), path );
   const AttrDesc & attr = *p.attr;
   if ( attr.walk && !p.last.hasKey ) { // all that it holds
      frames_.push_back( { p.node, full.substr( 0, full.size() - p.last.attribute.size() ), 0, 0,
                           &attr, attr.walk( *p.node ) } );
      return;
   }
   checkKey( attr, p.last, path );
   withKey( attr, p.last, path, [&]( const void * key ) {
      const void * value = attr.at( *p.node, key );
      if ( !value ) {
         refuse( path, "there is no " + path );
      }
      if ( leadsOn( attr ) ) {
         enter( *static_cast< const Node * >( value ), full + "/" );
      } else {
         single_ = { full, text( *p.node, attr, key ), false };
      }
   } );
}

const AttrDesc &
GenericIf::attribute( const Node & root, const String & path ) {
   return *placeOf( const_cast< Node & >( root ), path ).attr;
}

Node *
GenericIf::find( Node & root, const String & path ) {
   Node * node = &root;
   String rest = path;
   while ( node && !rest.empty() ) {
      String before = rest;
      Segment s = takeSegment( before, rest );
      const AttrDesc & attr = attrOf( *node, s.attribute, path );
      if ( !leadsOn( attr ) ) {
         refuse( path, "'" + s.attribute + "' is not an entity" );
      }
      checkKey( attr, s, path );
      node = step( *node, attr, s, path );
   }
   return node;
}

} // namespace Kiv
