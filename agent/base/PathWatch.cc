#include "agent/base/PathWatch.h"

#include "platform/Kiv/Entity.h"
#include "platform/Kiv/TypeData.h"

namespace QonAgent {

namespace {

/** Whether `inner` is `outer` or lies below it. */
bool
within( const String & inner, const String & outer ) {
   return inner.compare( 0, outer.size(), outer ) == 0 &&
          ( inner.size() == outer.size() || outer.empty() || inner[outer.size()] == '/' ||
            inner[outer.size()] == '[' );
}

bool
ownsEntities( const Kiv::AttrDesc & attr ) {
   return attr.kind == Kiv::AttrKind::entities || attr.kind == Kiv::AttrKind::ownedEntity;
}

} // namespace

Velto::Ptr< PathWatch >
PathWatch::follow( const Orvane::EntityManager & entities, const String & path, Report report ) {
   Velto::Ptr< PathWatch > watch( new PathWatch( path, std::move( report ) ) );
   watch->hasNotificationActiveIs( true );
   for ( auto & mount : entities.mounts() ) {
      if ( watch->matters( mount.path ) ) {
         watch->add( *mount.entity, mount.path );
      }
   }
   if ( watch->watched_.empty() ) {
      throw Velto::RangeError( path + ": lies in no mount" );
   }
   return watch;
}

bool
PathWatch::matters( const String & path ) const {
   return within( path, path_ ) || within( path_, path );
}

void
PathWatch::add( const Kiv::Entity & entity, const String & path ) {
   auto & held = watched_[path];
   held = std::make_unique< Watched >();
   held->owner = this;
   held->path = path;
   held->watch.attach(
         this, &entity,
         []( void * context, const Kiv::Entity & e, int attribute, const void * key ) {
            auto & watched = *static_cast< Watched * >( context );
            watched.owner->handleChange( watched, e, attribute, key );
         },
         held.get() );
   addChildren( entity, path );
}

void
PathWatch::child( const Velto::Node * node, const String & path ) {
   auto entity = dynamic_cast< const Kiv::Entity * >( node );
   if ( entity && matters( path ) ) {
      add( *entity, path );
   }
}

void
PathWatch::addChildren( const Kiv::Entity & entity, const String & path ) {
   for ( auto type = entity.typeData(); type; type = type->base ) {
      for ( int i = 0; i < type->count; ++i ) {
         auto & attr = type->attrs[i];
         String where = path + "/" + attr.name;
         if ( attr.kind == Kiv::AttrKind::ownedEntity ) {
            child( static_cast< const Velto::Node * >( attr.at( entity, nullptr ) ), where );
         } else if ( attr.kind == Kiv::AttrKind::entities && matters( where ) ) {
            attr.each( entity, [&]( const void * key, const void * value ) {
               child( static_cast< const Velto::Node * >( value ),
                      where + "[" + attr.key->toText( key ) + "]" );
            } );
         }
      }
   }
}

void
PathWatch::handleChange( const Watched & watched, const Kiv::Entity & entity, int attribute,
                         const void * key ) {
   auto attr = entity.typeData()->at( attribute );
   if ( !attr ) {
      return;
   }
   String path = watched.path + "/" + attr->name;
   path += key && attr->key ? "[" + attr->key->toText( key ) + "]" : String();
   if ( !matters( path ) ) {
      return;
   }
   const void * value = attr->at ? attr->at( entity, key ) : nullptr;
   if ( ownsEntities( *attr ) ) {
      handleEntity( static_cast< const Velto::Node * >( value ), path );
   } else if ( within( path, path_ ) ) {
      bool gone = attr->key && !value;
      report_( { path,
                 gone ? std::nullopt : std::optional( Kiv::GenericIf::text( entity, *attr, key ) ),
                 false } );
   }
}

void
PathWatch::handleEntity( const Velto::Node * node, const String & path ) {
   auto held = watched_.lower_bound( path );
   while ( held != watched_.end() && held->first.compare( 0, path.size(), path ) == 0 ) {
      held = within( held->first, path ) ? watched_.erase( held ) : std::next( held );
   }
   child( node, path );
   if ( !node ) {
      if ( within( path, path_ ) ) {
         report_( { path, std::nullopt, true } );
      }
      return;
   }
   if ( within( path, path_ ) ) {
      report_( { path, "", true } );
   }
   Kiv::GenericIf::Dump dump( *node, "", path );
   for ( Kiv::GenericIf::Line line; dump.next( line ); ) {
      if ( within( line.path, path_ ) ) {
         report_( { line.path, line.value, line.isEntity } );
      }
   }
}

} // namespace QonAgent
