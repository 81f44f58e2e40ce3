#pragma once
// Orvane: the state database. Directories of entities are mounted under paths; everything below
// is reached by path, in text.
//
//    "interface/status/eth/lag" -> Interface::EthLagIntfStatusDir
//    "interface/status/eth/lag/intfStatus[Port-Channel10]/lacpFallbackEnabled" -> an attribute
//
// Invariants
// 1. A path is mounted once, with one type; who mounts it again gets the same entity.
// 2. A path is resolved by the longest mount that it begins with.
//
// Ownership: the manager counts every mounted entity. Not for several threads.

#include <vector>

#include "platform/Kiv/Entity.h"
#include "platform/Kiv/Generic.h"

namespace Orvane {

using Velto::String;

class EntityManager {
 public:
   /** The entity mounted at `path`, a T; it is made, with its path as name, if there is none.
       A mount of another type raises Velto::RangeError. */
   template< class T >
   Velto::Ptr< T > mount( const String & path ) {
      if ( Kiv::Entity * held = mounted( path ) ) {
         if ( auto same = dynamic_cast< T * >( held ) ) {
            return same;
         }
         refuseType( path );
      }
      auto fresh = Velto::make< T >( path );
      mountIs( path, fresh );
      return fresh;
   }
   /** Mounts an entity that exists already. A path that is taken raises Velto::RangeError. */
   void mountIs( const String & path, Velto::Ptr< Kiv::Entity > entity );
   /** Forgets the mount; whoever counts the entity keeps it. */
   void mountDel( const String & path );
   /** What is mounted exactly there; null if nothing is. */
   Kiv::Entity * mounted( const String & path ) const;

   struct Mount {
      String path;
      Velto::Ptr< Kiv::Entity > entity;
   };
   /** In the order of mounting. */
   const std::vector< Mount > & mounts() const { return mounts_; }

   /** The mount that `path` lies in; `rest` becomes what follows it ("" for the mount itself).
       A path outside every mount raises Velto::RangeError. */
   const Mount & mountOf( const String & path, String & rest ) const;

   // The generic attribute interface by full path; errors as in Kiv::GenericIf.
   String get( const String & path ) const;
   void set( const String & path, const String & text );
   void check( const String & path, const String & text ) const;
   void insert( const String & path );
   void del( const String & path );
   const Kiv::AttrDesc & attribute( const String & path ) const;

 private:
   [[noreturn]] static void refuseType( const String & path );
   std::vector< Mount > mounts_;
};

/** Every line below a path, with full paths, one at a time; see Kiv::GenericIf::Dump. */
class Dump {
 public:
   /** `path` lies in a mount, or mounts lie below it, such as below "". Raises Velto::RangeError for
       one that leads to nothing. */
   Dump( const EntityManager & entities, const String & path );
   /** The next line; false behind the last one. */
   bool next( Kiv::GenericIf::Line & line );

 private:
   std::vector< EntityManager::Mount > left_; // the next one is the last
   std::optional< Kiv::GenericIf::Dump > current_;
};

} // namespace Orvane
