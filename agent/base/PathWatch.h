#pragma once
// Follows everything below a path of the state database.
//
//    entity's attribute changes -> EntityWatch -> report( path, value )
//    ... and it is a collection of entities -> watches of the new entity and all below it
//
// Invariants
// 1. What lies on the way to the path is watched too, so that the path may come, go and come back.
// 2. A change is reported once, with its full path: its text, or nothing if it is gone. An entity
//    that appears is reported with all that it holds.
// 3. Paths outside every mount are refused; mounts that come later are not followed.

#include <functional>
#include <map>
#include <memory>
#include <optional>

#include "platform/Orvane/EntityManager.h"

namespace QonAgent {

using Velto::String;

class PathWatch : public Velto::Node {
 public:
   struct Change {
      String path;
      std::optional< String > value; ///< none: gone
      bool isEntity = false;
   };
   using Report = std::function< void( const Change & change ) >;

   /** Raises Velto::RangeError for a path in no mount. `entities` outlives the watch. */
   static Velto::Ptr< PathWatch > follow( const Orvane::EntityManager & entities,
                                          const String & path, Report report );

 private:
   struct Watched {
      PathWatch * owner;
      String path;
      Kiv::EntityWatch watch;
   };

   PathWatch( const String & path, Report report )
       : path_( path ), report_( std::move( report ) ) {}
   void add( const Kiv::Entity & entity, const String & path );
   void addChildren( const Kiv::Entity & entity, const String & path );
   void child( const Velto::Node * node, const String & path );
   void handleChange( const Watched & watched, const Kiv::Entity & entity, int attribute,
                      const void * key );
   void handleEntity( const Velto::Node * node, const String & path );
   /** Whether something at `path` can be, or can lead to, what is followed. */
   bool matters( const String & path ) const;

   String path_;
   Report report_;
   std::map< String, std::unique_ptr< Watched > > watched_; // by path
};

} // namespace QonAgent
