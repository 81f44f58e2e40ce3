#include "Qon/include/multicast/MulticastCopyUpdater.h"

#include "Qon/multicast/MulticastTrace.h"

namespace Qon {

namespace {

constexpr PacketType igmpPacket_ = PacketType::igmpPacket;
constexpr PacketType linkLocalPacket_ = PacketType::linkLocalPacket;

} // namespace

MulticastCopyUpdater::MulticastCopyUpdater( Velto::Ptr< const Config > config )
    : config_( std::move( config ) ) {}

void
MulticastCopyUpdater::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   const Velto::Hold alive( this );
   linkLocalWatch_.attach( this, config_.ptr() );
   igmpWatch_.attach( this, config_.ptr() );
   Velto::FirstError error;
   error.run( [&] { copyRequest( linkLocalPacket_ ); } );
   error.run( [&] { copyAndDropRequest( igmpPacket_ ); } );
   error.pass();
}

void
MulticastCopyUpdater::updateCopyRequest( bool, PacketType ) {
   qonAssert( unimplementedFunction( "MulticastCopyUpdater::updateCopyRequest" ) );
}

void
MulticastCopyUpdater::updateCopyAndDropRequest( bool, PacketType ) {
   qonAssert( unimplementedFunction( "MulticastCopyUpdater::updateCopyAndDropRequest" ) );
}

void
MulticastCopyUpdater::copyRequest( PacketType pktType ) {
   VELTO_ASSERT( pktType == linkLocalPacket_ );
   work_.ask( this, pktType, [this]( PacketType what ) { tell( what ); } );
}

void
MulticastCopyUpdater::copyAndDropRequest( PacketType pktType ) {
   VELTO_ASSERT( pktType == igmpPacket_ );
   work_.ask( this, pktType, [this]( PacketType what ) { tell( what ); } );
}

void
MulticastCopyUpdater::tell( PacketType pktType ) {
   if ( pktType == linkLocalPacket_ ) {
      const bool enabled = config_->linkLocalCopyRequests() != 0;
      QON_HOOK( MulticastCopyUpdater, this, updateCopyRequest, enabled, pktType );
   } else {
      const bool enabled = config_->igmpCopyAndDropRequests() != 0;
      QON_HOOK( MulticastCopyUpdater, this, updateCopyAndDropRequest, enabled, pktType );
   }
}

void
MulticastCopyUpdater::handleLinkLocalCopyRequest( const String & name ) {
   QON_TRACE( multicastFacility, 5, "Updating multicast trapping behaviour requested by ", name );
   copyRequest( linkLocalPacket_ );
}

void
MulticastCopyUpdater::handleIgmpCopyAndDropRequest( const String & name ) {
   QON_TRACE( multicastFacility, 5, "Updating igmp packet copy&drop behaviour requested by ",
              name );
   copyAndDropRequest( igmpPacket_ );
}

} // namespace Qon
