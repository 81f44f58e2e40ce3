#include "platform/Orvane/EntityManager.h"

namespace Orvane {

void
EntityManager::refuseType( const String & path ) {
   throw Velto::RangeError( path + ": mounted already, with another type" );
}

Kiv::Entity *
EntityManager::mounted( const String & path ) const {
   for ( auto & m : mounts_ ) {
      if ( m.path == path ) {
         return m.entity.ptr();
      }
   }
   return nullptr;
}

void
EntityManager::mountIs( const String & path, Velto::Ptr< Kiv::Entity > entity ) {
   if ( mounted( path ) ) {
      refuseType( path );
   }
   mounts_.push_back( { path, std::move( entity ) } );
}

void
EntityManager::mountDel( const String & path ) {
   for ( auto i = mounts_.begin(); i != mounts_.end(); ++i ) {
      if ( i->path == path ) {
         auto gone = std::move( i->entity );
         mounts_.erase( i );
         return;
      }
   }
}

const EntityManager::Mount &
EntityManager::mountOf( const String & path, String & rest ) const {
   const Mount * best = nullptr;
   for ( auto & m : mounts_ ) {
      bool within = path.compare( 0, m.path.size(), m.path ) == 0 &&
                    ( path.size() == m.path.size() || path[m.path.size()] == '/' );
      if ( within && ( !best || m.path.size() > best->path.size() ) ) {
         best = &m;
      }
   }
   if ( !best ) {
      throw Velto::RangeError( ( path.empty() ? "an empty path" : path ) + ": lies in no mount" );
   }
   rest = path.size() == best->path.size() ? String() : path.substr( best->path.size() + 1 );
   return *best;
}

namespace {

/** Runs `use( node, rest )`, naming the full path in what it raises. */
template< class F >
void
at( const EntityManager & manager, const String & path, F && use ) {
   String rest;
   auto & mount = manager.mountOf( path, rest );
   try {
      use( *mount.entity, rest );
   } catch ( const Velto::RangeError & e ) {
      throw Velto::RangeError( mount.path + "/" + e.what() );
   }
}

} // namespace

String
EntityManager::get( const String & path ) const {
   String text;
   at( *this, path, [&]( Kiv::Entity & e, const String & rest ) {
      text = rest.empty() ? e.name() : Kiv::GenericIf::get( e, rest );
   } );
   return text;
}

void
EntityManager::set( const String & path, const String & text ) {
   at( *this, path,
       [&]( Kiv::Entity & e, const String & rest ) { Kiv::GenericIf::set( e, rest, text ); } );
}

void
EntityManager::check( const String & path, const String & text ) const {
   at( *this, path,
       [&]( Kiv::Entity & e, const String & rest ) { Kiv::GenericIf::check( e, rest, text ); } );
}

void
EntityManager::insert( const String & path ) {
   at( *this, path,
       [&]( Kiv::Entity & e, const String & rest ) { Kiv::GenericIf::insert( e, rest ); } );
}

void
EntityManager::del( const String & path ) {
   at( *this, path,
       [&]( Kiv::Entity & e, const String & rest ) { Kiv::GenericIf::del( e, rest ); } );
}

const Kiv::AttrDesc &
EntityManager::attribute( const String & path ) const {
   const Kiv::AttrDesc * found = nullptr;
   at( *this, path, [&]( Kiv::Entity & e, const String & rest ) {
      found = &Kiv::GenericIf::attribute( e, rest );
   } );
   return *found;
}

Dump::Dump( const EntityManager & entities, const String & path ) {
   const String below = path.empty() ? path : path + "/";
   for ( auto & m : entities.mounts() ) {
      if ( m.path.starts_with( below ) ) {
         left_.insert( left_.begin(), m );
      }
   }
   if ( left_.empty() || entities.mounted( path ) ) {
      at( entities, path, [&]( Kiv::Entity & e, const String & rest ) {
         current_.emplace( e, rest, path.substr( 0, path.size() - rest.size() - !rest.empty() ) );
      } );
   }
}

bool
Dump::next( Kiv::GenericIf::Line & line ) {
   while ( !current_ || !current_->next( line ) ) {
      if ( left_.empty() ) {
         return false;
      }
      current_.emplace( *left_.back().entity, "", left_.back().path );
      left_.pop_back();
   }
   return true;
}

} // namespace Orvane
