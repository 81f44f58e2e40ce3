#pragma once
// Descriptions of entity types: constant tables that the generic attribute interface walks.
//
//    KIV_ATTR line -> AttrDesc -> TypeData (one table a class, made by KIV_DEFINE)
//                                    `-> GenericIf: get, set, insert, delete, dump, load by name
//
// The tables hold plain function pointers; nothing that reads them is a template.

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
   /** Calls `visit` for each entry in order; the collection may change meanwhile. */
   void ( *each )( const Velto::Node &, void * context,
                   void ( *visit )( void * context, const void * key,
                                    const void * value ) ) = nullptr;
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
