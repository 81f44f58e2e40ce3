#pragma once
// Descriptions of entity types: constant tables that the generic attribute interface walks.
//
//    KIV_ATTR line -> AttrDesc -> TypeData (one table a class, made by KIV_DEFINE)
//                                    `-> GenericIf: get, set, insert, delete, dump, load by name
//
// The tables hold plain function pointers; nothing that reads them is a template.

#include <memory>

#include "platform/Velto/Node.h"
#include "platform/Velto/Types.h"

namespace Kiv {

using Velto::String;

/** Text forms of one value type, both ways. */
struct ValueType {
   String ( *toText )( const void * value );
   /** Parses `text` and hands the value to `take( context, value )`; a text that is none raises
       Velto::RangeError and calls nothing. */
   void ( *withText )( const String & text, void ( *take )( void * context, const void * value ),
                       void * context );
};

enum class AttrKind : U8 {
   scalar,
   pointer,     // to an entity that lives elsewhere
   ownedEntity, // created and deleted through the attribute
   set,
   map,
   orderedMap,
   entities, // owned, by key
   queue,
};

/** A walk over the entries of one attribute, in their order. It stays valid whatever happens to the
    attribute, and to the entity that has it: entries that come are visited, those that go before
    their turn are not, and it ends with the entity. */
class EntryWalk {
 public:
   EntryWalk() = default;
   EntryWalk( const EntryWalk & ) = delete;
   EntryWalk & operator=( const EntryWalk & ) = delete;
   virtual ~EntryWalk() = default;
   /** The next entry's key and value, which hold until that entry is erased; false behind the last
       one. What a kind has not is null. */
   virtual bool next( const void *& key, const void *& value ) = 0;
};

/** One attribute of one class. What a kind has not is null. Values of the kinds pointer,
    ownedEntity and entities are handed over as `const Velto::Node *`. */
struct AttrDesc {
   const char * name = nullptr;
   AttrKind kind = AttrKind::scalar;
   const ValueType * key = nullptr;
   const ValueType * value = nullptr;

   /** The value (under `key`), null where there is none. */
   const void * ( *at )( const Velto::Node &, const void * key ) = nullptr;
   /** Sets the value; creates the entity of ownedEntity (value: its name) and entities (value:
       not used); appends to a queue. */
   void ( *set )( Velto::Node &, const void * key, const void * value ) = nullptr;
   /** Removes the entry of `key`, of a queue its front; null empties the whole attribute. */
   void ( *del )( Velto::Node &, const void * key ) = nullptr;
   /** A walk from the first entry; null for an attribute that has none now. */
   std::unique_ptr< EntryWalk > ( *walk )( const Velto::Node & ) = nullptr;

   /** Calls `visit( key, value )` for each entry in order, none for a kind without a walk; the
       attribute may change meanwhile. */
   template< class Visit >
   void each( const Velto::Node & node, Visit && visit ) const {
      const void * key;
      const void * value;
      for ( auto w = walk ? walk( node ) : nullptr; w && w->next( key, value ); ) {
         visit( key, value );
      }
   }
};

struct TypeData {
   const char * name = nullptr;
   const TypeData * base = nullptr;
   const AttrDesc * attrs = nullptr; // its own, in the order of declaration
   int first = 0;                    // index of the first of them
   int count = 0;                    // how many

   /** The attribute of that name here or in a base; null if there is none. */
   const AttrDesc * find( const String & name ) const;
   /** The attribute of that index, counted from the outermost base. */
   const AttrDesc * at( int index ) const;
};

} // namespace Kiv
