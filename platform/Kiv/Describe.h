#pragma once
// KIV_DEFINE( T ): the description of T's attributes. For source files only: one per class.

#include <array>
#include <utility>

#include "platform/Kiv/Attr.h"
#include "platform/Kiv/Text.h"
#include "platform/Kiv/TypeData.h"

namespace Kiv {

template< class T >
struct ValueTypeOf {
   static String toText( const void * value ) {
      return Kiv::toText( *static_cast< const T * >( value ) );
   }
   static void withText( const String & text, void ( *take )( void *, const void * ),
                         void * context ) {
      const T value = Kiv::fromText< T >( text );
      take( context, &value );
   }
   static constexpr ValueType type = { toText, withText };
};

/** The walk of a collection. */
template< class Collection >
class EntryWalkOf : public EntryWalk {
 public:
   explicit EntryWalkOf( const Collection & of ) : walk_( const_cast< Collection & >( of ) ) {}
   bool next( const void *& key, const void *& value ) override {
      if ( const bool onward = std::exchange( begun_, true );
           walk_ && ( onward || !walk_.alive() ) ) {
         ++walk_;
      }
      if ( walk_ ) {
         show( walk_, key, value );
      }
      return bool( walk_ );
   }

 private:
   template< class Walk >
   static void show( const Walk & walk, const void *& key, const void *& value ) {
      if constexpr ( requires { walk.key(); } ) {
         key = &walk.key();
         value = shown( walk.value() );
      } else {
         key = nullptr;
         value = &*walk;
      }
   }
   static const void * shown( const Nothing & ) { return nullptr; }
   template< class T >
   static const void * shown( const Velto::Ptr< T > & entity ) {
      return static_cast< const Velto::Node * >( entity.ptr() );
   }
   template< class V >
   static const void * shown( const V & value ) {
      return &value;
   }

   typename Collection::Walk walk_;
   bool begun_ = false;
};

/** The walk of what an entity finds by key: those that were there at its begin, and still are. */
template< class E, class K, auto get >
class KeyWalk : public EntryWalk {
 public:
   KeyWalk( const E & of, std::vector< K > keys ) : of_( &of ), keys_( std::move( keys ) ) {}
   bool next( const void *& key, const void *& value ) override {
      for ( value = nullptr; !value && at_ < keys_.size(); ++at_ ) {
         key = &keys_[at_];
         value = static_cast< const Velto::Node * >( ( of_.ptr()->*get )( keys_[at_] ) );
      }
      return value;
   }

 private:
   const Velto::Ptr< const E > of_;
   const std::vector< K > keys_;
   std::size_t at_ = 0;
};

/** Makes an AttrDesc of what an attribute's line knows. */
struct Describe {
   using Node = Velto::Node;

   template< class E >
   static E & self( Node & node ) {
      return static_cast< E & >( node );
   }
   template< class E >
   static const E & self( const Node & node ) {
      return static_cast< const E & >( node );
   }
   template< class T >
   static const T & as( const void * p ) {
      return *static_cast< const T * >( p );
   }

   template< class Collection >
   static std::unique_ptr< EntryWalk > entries( const Collection & of ) {
      return of.empty() ? nullptr : std::make_unique< EntryWalkOf< Collection > >( of );
   }

   template< class E, class T, T E::*field, void ( E::*set )( Read< T > ) >
   static constexpr AttrDesc scalar( const char * name ) {
      AttrDesc d;
      d.name = name;
      d.kind = AttrKind::scalar;
      d.value = &ValueTypeOf< T >::type;
      d.at = []( const Node & n, const void * ) -> const void * {
         return &( self< E >( n ).*field );
      };
      d.set = []( Node & n, const void *, const void * v ) {
         ( self< E >( n ).*set )( as< T >( v ) );
      };
      return d;
   }

   template< class E, class T, T * ( E::*get )() const >
   static constexpr AttrDesc pointer( const char * name ) {
      AttrDesc d;
      d.name = name;
      d.kind = AttrKind::pointer;
      d.at = []( const Node & n, const void * ) -> const void * {
         return static_cast< const Node * >( ( self< E >( n ).*get )() );
      };
      return d;
   }

   template< class E, class T, T * ( E::*get )() const,
             Velto::Ptr< T > ( E::*create )( const String & ), void ( E::*erase )() >
   static constexpr AttrDesc owned( const char * name ) {
      AttrDesc d;
      d.name = name;
      d.kind = AttrKind::ownedEntity;
      d.at = []( const Node & n, const void * ) -> const void * {
         return static_cast< const Node * >( ( self< E >( n ).*get )() );
      };
      d.set = []( Node & n, const void *, const void * v ) {
         ( self< E >( n ).*create )( as< String >( v ) );
      };
      d.del = []( Node & n, const void * ) { ( self< E >( n ).*erase )(); };
      return d;
   }

   template< class E, class K, auto erase, auto eraseAll >
   static constexpr AttrDesc keyed( const char * name, AttrKind kind ) {
      AttrDesc d;
      d.name = name;
      d.kind = kind;
      d.key = &ValueTypeOf< K >::type;
      d.del = []( Node & n, const void * k ) {
         if ( k ) {
            ( self< E >( n ).*erase )( as< K >( k ) );
         } else {
            ( self< E >( n ).*eraseAll )();
         }
      };
      return d;
   }

   template< class E, class K, auto field, auto insert, auto erase, auto eraseAll >
   static constexpr AttrDesc set( const char * name ) {
      AttrDesc d = keyed< E, K, erase, eraseAll >( name, AttrKind::set );
      d.at = []( const Node & n, const void * k ) -> const void * {
         return ( self< E >( n ).*field ).find( as< K >( k ) );
      };
      d.set = []( Node & n, const void * k, const void * ) {
         ( self< E >( n ).*insert )( as< K >( k ) );
      };
      d.walk = []( const Node & n ) { return entries( self< E >( n ).*field ); };
      return d;
   }

   template< class E, AttrKind kind, class K, class V, auto field, auto insert, auto erase,
             auto eraseAll >
   static constexpr AttrDesc map( const char * name ) {
      AttrDesc d = keyed< E, K, erase, eraseAll >( name, kind );
      d.value = &ValueTypeOf< V >::type;
      d.at = []( const Node & n, const void * k ) -> const void * {
         return ( self< E >( n ).*field ).find( as< K >( k ) );
      };
      d.set = []( Node & n, const void * k, const void * v ) {
         ( self< E >( n ).*insert )( as< K >( k ), as< V >( v ) );
      };
      d.walk = []( const Node & n ) { return entries( self< E >( n ).*field ); };
      return d;
   }

   template< class E, class K, class T, T * ( E::*get )( const K & ) const,
             Velto::Ptr< T > ( E::*create )( const K & ), auto erase, auto eraseAll, auto field >
   static constexpr AttrDesc entities( const char * name ) {
      AttrDesc d = keyed< E, K, erase, eraseAll >( name, AttrKind::entities );
      d.at = []( const Node & n, const void * k ) -> const void * {
         return static_cast< const Node * >( ( self< E >( n ).*get )( as< K >( k ) ) );
      };
      d.set = []( Node & n, const void * k, const void * ) {
         ( self< E >( n ).*create )( as< K >( k ) );
      };
      d.walk = []( const Node & n ) { return entries( self< E >( n ).*field ); };
      return d;
   }

   /** What an entity keeps by key and makes itself, such as its state machines: it can be read only.
       `T * ( E::*get )( K ) const`, `std::vector< K > ( E::*keys )() const`. */
   template< class E, class K, auto get, auto keys >
   static constexpr AttrDesc children( const char * name ) {
      AttrDesc d;
      d.name = name;
      d.kind = AttrKind::entities;
      d.key = &ValueTypeOf< K >::type;
      d.at = []( const Node & n, const void * k ) -> const void * {
         return static_cast< const Node * >( ( self< E >( n ).*get )( as< K >( k ) ) );
      };
      d.walk = []( const Node & n ) -> std::unique_ptr< EntryWalk > {
         return std::make_unique< KeyWalk< E, K, get > >( self< E >( n ),
                                                          ( self< E >( n ).*keys )() );
      };
      return d;
   }

   /** A map of another entity, to which `get` leads, under a name of this one's: it can be read
       only. `Attr` is that map's tag. */
   template< class E, auto get, class Attr >
   static constexpr AttrDesc mapOf( const char * name ) {
      AttrDesc d;
      d.name = name;
      d.kind = AttrKind::map;
      d.key = &ValueTypeOf< typename Attr::Key >::type;
      d.value = &ValueTypeOf< typename Attr::Value >::type;
      d.at = []( const Node & n, const void * k ) -> const void * {
         const Node & other = *( self< E >( n ).*get )();
         return other.typeData()->at( Attr::index )->at( other, k );
      };
      d.walk = []( const Node & n ) {
         const Node & other = *( self< E >( n ).*get )();
         return other.typeData()->at( Attr::index )->walk( other );
      };
      return d;
   }

   template< class E, class T, auto field, auto enq, auto deq, auto eraseAll >
   static constexpr AttrDesc queue( const char * name ) {
      AttrDesc d;
      d.name = name;
      d.kind = AttrKind::queue;
      d.value = &ValueTypeOf< T >::type;
      d.set = []( Node & n, const void *, const void * v ) {
         ( self< E >( n ).*enq )( as< T >( v ) );
      };
      d.del = []( Node & n, const void * k ) { ( self< E >( n ).*( k ? deq : eraseAll ) )(); };
      d.walk = []( const Node & n ) { return entries( self< E >( n ).*field ); };
      return d;
   }
};

template< class T >
struct AttrTable {
   static constexpr int first = T::kivFirst;
   static constexpr int count = decltype( T::kivCount( Rank< maxAttributes >() ) )::value - first;

   template< int... i >
   static constexpr std::array< AttrDesc, count > make( std::integer_sequence< int, i... > ) {
      return { T::template kivDesc( static_cast< Describe * >( nullptr ),
                                    static_cast< T * >( nullptr ), Index< first + i >() )... };
   }
   static constexpr auto table = make( std::make_integer_sequence< int, count >() );

   static constexpr TypeData describe( const char * name ) {
      return { name, &T::KivBase::kivTypeData, table.data(), first, count };
   }
};

} // namespace Kiv

/** Defines T's description; T is written with its namespaces. */
#define KIV_DEFINE( T )                                                                            \
   constinit const ::Kiv::TypeData T::kivTypeData = ::Kiv::AttrTable< T >::describe( #T );
