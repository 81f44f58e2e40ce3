#pragma once
// The generic attribute interface: any entity, by name and path, in text.
//
//    path      := segment { "/" segment }
//    segment   := attribute [ "[" key "]" ]
//    "topoConfig[Mst0]/topoPortConfig[Ethernet3/1]/state"
//
// Keys stand between brackets in their text form and may hold slashes and balanced brackets.
// Everything that a path, a name or a value can have wrong raises Velto::RangeError with one
// line that says where and what was expected; nothing has been changed then.

#include "platform/Kiv/TypeData.h"

namespace Kiv {

class GenericIf {
 public:
   /** The value at `path` below `root`: the text of a value; "True" or "False" for a set's key;
       the name or type of an entity; "None" where a map or collection has no such key. */
   static String get( const Velto::Node & root, const String & path );
   /** Sets a scalar or a map's entry, adds a set's key, appends to a queue. */
   static void set( Velto::Node & root, const String & path, const String & text );
   /** Creates the entity (or the set's key) at `path` if it is not there. */
   static void insert( Velto::Node & root, const String & path );
   /** Removes the entry at `path`; without a key everything that the attribute holds. */
   static void del( Velto::Node & root, const String & path );

   /** One line of a dump: where, and the text of the value. `isEntity` marks the line that only
       says that the entity at `path` is there. */
   struct Line {
      String path;
      String value;
      bool isEntity = false;
   };
   using Take = void ( * )( void * context, const Line & line );
   /** Hands out every attribute below `root`, depth first, in order of declaration. Pointers to
       entities that live elsewhere are not followed. */
   static void dump( const Velto::Node & root, void * context, Take take );
   /** The dump as text, a line each: "path = value", or "path" for an entity. */
   static String dump( const Velto::Node & root );
   /** Applies what dump() wrote. Every line is checked for its path before the first is applied;
       an error names the line. */
   static void load( Velto::Node & root, const String & text );

   /** The entity at `path`; "" is `root` itself. Null if a key on the way is absent. */
   static Velto::Node * find( Velto::Node & root, const String & path );

   /** Splits a path into segments at slashes outside brackets. */
   struct Segment {
      String attribute;
      String key;
      bool hasKey = false;
   };
   static Segment takeSegment( const String & path, String & rest );

   // The two doors through which every change by name enters; their names stay on the stack.
   static void apply( Velto::Node & node, const AttrDesc & attr, const void * key,
                      const void * value );
   static void erase( Velto::Node & node, const AttrDesc & attr, const void * key );

   /** The text of attribute `attr` (under `key`) of an entity, as get() gives it. */
   static String text( const Velto::Node & node, const AttrDesc & attr, const void * key );
};

} // namespace Kiv
