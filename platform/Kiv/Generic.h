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

#include <optional>
#include <vector>

#include "platform/Kiv/TypeData.h"

namespace Kiv {

class GenericIf {
 public:
   /** The value at `path` below `root`: the text of a value; "True" or "False" for a set's key;
       the name or type of an entity; "None" where a map or collection has no such key. */
   static String get( const Velto::Node & root, const String & path );
   /** Sets a scalar or a map's entry, adds a set's key, appends to a queue. */
   static void set( Velto::Node & root, const String & path, const String & text );
   /** Raises what set() would, and changes nothing. */
   static void check( Velto::Node & root, const String & path, const String & text );
   /** Creates the entity (or the set's key) at `path` if it is not there. */
   static void insert( Velto::Node & root, const String & path );
   /** Removes the entry at `path`, which must be there; without a key everything that the attribute
       holds. */
   static void del( Velto::Node & root, const String & path );

   /** One line of a dump: where, and the text of the value. `isEntity` marks the line that only
       says that the entity at `path` is there. */
   struct Line {
      String path;
      String value;
      bool isEntity = false;
   };
   /** Everything below a place, depth first, in order of declaration, a line at a time. Pointers to
       entities that live elsewhere are not followed. Between two lines anything may change: each
       line tells what is when it is asked for. Counts the entities that it stands in. */
   class Dump {
    public:
      /** Of what is at `path` below `root`: an entity ("" is the root), all that a collection
          holds, or one value. Paths of lines begin with `before`, a slash between. Raises
          Velto::RangeError for a path that leads to nothing. */
      explicit Dump( const Velto::Node & root, const String & path = "",
                     const String & before = "" );
      /** The next line; false behind the last one. */
      bool next( Line & line );

    private:
      struct Frame {
         Velto::Ptr< const Velto::Node > node;
         String prefix;                   // of its attributes' paths
         int at;                          // the index of the attribute that is next,
         int end;                         // and of the one behind the last
         const AttrDesc * attr = nullptr; // whose entries are walked
         std::unique_ptr< EntryWalk > walk = nullptr;
      };
      void enter( const Velto::Node & node, const String & prefix );
      bool begin( Frame & frame, const AttrDesc & attr, Line & line );
      void show( const AttrDesc & attr, const void * value, Line & line );

      std::vector< Frame > frames_;
      std::optional< Line > single_;
   };
   /** The dump as text, a line each: "path = value", or "path" for an entity. */
   static String dump( const Velto::Node & root );
   /** Applies what dump() wrote. Every line is checked for its path before the first is applied;
       an error names the line. */
   static void load( Velto::Node & root, const String & text );

   /** The entity at `path`; "" is `root` itself. Null if a key on the way is absent. */
   static Velto::Node * find( Velto::Node & root, const String & path );

   /** The attribute that a path leads to; what lies on the way to it must be there. */
   static const AttrDesc & attribute( const Velto::Node & root, const String & path );

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

 private:
   static void setOrCheck( Velto::Node & root, const String & path, const String & text,
                           bool sets );
};

} // namespace Kiv
