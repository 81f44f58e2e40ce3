#pragma once
// When each part of a mirror session last changed: the status of the sessions, as it is published.
//
//    Mirroring::Status -> Journal: (session, attribute, port) -> time -> show mirror

#include <map>
#include <memory>
#include <tuple>

#include "agent/features/MirrorFeature.h"

namespace QonAgent {

class MirrorFeature::Journal : public Velto::Node {
 public:
   explicit Journal( const Mirroring::Status * status ) : status_( status ) {
      hasNotificationActiveIs( true );
      sessionWatch_.attach( this, status );
   }

   /** A session came or went. */
   void handleSession( const String & name ) {
      watches_.erase( name );
      times_.erase( times_.lower_bound( { name, "", {} } ),
                    times_.lower_bound( { name + '\0', "", {} } ) );
      if ( auto session = status_->session( name ) ) {
         times_[{ name, "", {} }] = Kiv::now();
         auto & watch = watches_[name] = std::make_unique< Kiv::EntityWatch >();
         watch->attach( this, session, heard, this );
      }
   }
   /** 0 if it did not change since the session came. */
   Kiv::Seconds time( const String & name, const String & what, Ulnet::IntfId port ) const {
      auto found = times_.find( { name, what, port } );
      return found == times_.end() ? 0 : found->second;
   }

 private:
   using Key = std::tuple< String, String, Ulnet::IntfId >;

   static void heard( void * context, const Kiv::Entity & session, int attribute,
                      const void * key ) {
      auto self = static_cast< Journal * >( context );
      const auto port = key ? *static_cast< const Ulnet::IntfId * >( key ) : Ulnet::IntfId();
      // Of a port there is one time: it is in, out, or failed.
      const String name = session.typeData()->at( attribute )->name;
      const String what = name.ends_with( "Src" )   ? "source"
                          : name.ends_with( "Dst" ) ? "destination"
                                                    : name;
      self->times_[{ session.name(), what, port }] = Kiv::now();
   }

   const Mirroring::Status * const status_;
   std::map< Key, Kiv::Seconds > times_;
   std::map< String, std::unique_ptr< Kiv::EntityWatch > > watches_;
   Kiv::Watch< Mirroring::Status::sessionAttr, Journal, &Journal::handleSession > sessionWatch_;
};

} // namespace QonAgent
