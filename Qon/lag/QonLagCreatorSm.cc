#include "Qon/include/lag/QonLagCreatorSm.h"

#include "Qon/include/framework/HookTap.h"
#include "Qon/include/framework/LagView.h"
#include "Qon/include/framework/QonTraceHandles.h"

namespace Qon {

using Ulnet::IntfId;

namespace {
Flintlog::Facility creatorFacility( "QonLagCreatorSm" );
}

int
LagPacketDriver::getLagInfo( U32, char *, U32 ) {
   qonAssert( unimplementedFunction( "LagPacketDriver::getLagInfo" ) ); // fixed text
   return 0;
}

LagMemberCreatorSm::LagMemberCreatorSm( QonLagCreatorSm * creator, IntfId lag )
    : creator_( creator ), lag_( lag ) {}

void
LagMemberCreatorSm::handleInitialized() {
   if ( initialized() ) {
      handleMemberList();
   }
}

void
LagMemberCreatorSm::handleMemberList() {
   const Velto::Hold alive( this ), creatorAlive( creator_ );
   auto ports = keysOf< IntfId >( creator_->writer_.members( lag_ ) );
   const QonLagPortList list = creator_->in_.acsd->lagToPort( lag_ );
   for ( auto & [port, flags] : list ) {
      ports.emplace( port );
   }
   Velto::FirstError error;
   for ( auto && entry : ports ) {
      error.run( [&] { maybeAddLagConfigMember( entry.key ); } );
   }
   error.pass();
}

/** The member as it shall be programmed; nothing while something that it takes is missing. */
std::optional< Hardware::Lag::Member >
LagMemberCreatorSm::wanted( IntfId member ) const {
   auto & in = creator_->in_;
   const LagView lags( in.acsd.ptr() );
   if ( !hasLagIndex( lag_ ) || lags.lagOf( member ) != lag_ || !lags.lists( lag_, member ) ||
        !in.ethPhyIntfStatusDir->intfStatusHas( member ) ||
        !in.fapIdPortDir->fapIdPortHas( member ) ) {
      return std::nullopt;
   }
   const QonLagPort flags = in.acsd->lagToPort( lag_ ).port( member );
   return Hardware::Lag::Member( in.fapIdPortDir->fapIdPort( member ), flags.collecting(),
                                 flags.distributing(), false );
}

void
LagMemberCreatorSm::maybeAddLagConfigMember( IntfId member ) {
   const Velto::Hold alive( this ), creatorAlive( creator_ );
   const auto want = wanted( member );
   if ( !want ) {
      removeLagConfigMember( member );
      return;
   }
   char buffer[LagPacketDriver::commandBufferSize];
   const U32 index = QonLagCreatorSm::getLagIndex( lag_ );
   QON_TELL_HOOK( LagPacketDriver, getLagInfo, index, U32( sizeof buffer ) );
   const int ret = creator_->in_.packetDriver->getLagInfo( index, buffer, sizeof buffer );
   VELTO_ASSERT( ret == 0 ); // fixed text
   if ( creator_->writer_.member( lag_, member ) == want ) {
      return;
   }
   QON_TRACE( creatorFacility, 3, " Adding lag: ", lag_, " member: ", member ); // fixed text
   creator_->writer_.memberIs( lag_, member, *want );
}

void
LagMemberCreatorSm::removeLagConfigMember( IntfId member ) {
   if ( creator_->writer_.has( lag_, member ) ) {
      QON_TRACE( creatorFacility, 3, " Removing lag: ", lag_, " member: ", member ); // fixed text
      creator_->writer_.memberDel( lag_, member );
   }
}

void
LagMemberCreatorSm::doCleanup() {
   Velto::FirstError error;
   for ( IntfId member : creator_->writer_.members( lag_ ) ) {
      error.run( [&] { removeLagConfigMember( member ); } );
   }
   error.pass();
}

QonLagCreatorSm::QonLagCreatorSm( Inputs inputs, Velto::Ptr< Hardware::Lag::Config > hwLagConfig )
    : in_( std::move( inputs ) ), writer_( std::move( hwLagConfig ) ) {}

void
QonLagCreatorSm::handleInitialized() {
   if ( !initialized() ) {
      members_.rest();
      return;
   }
   lagToPortWatch_.attach( this, in_.acsd.ptr() );
   portToLagWatch_.attach( this, in_.acsd.ptr() );
   intfStatusWatch_.attach( this, in_.ethPhyIntfStatusDir.ptr() );
   fapIdPortWatch_.attach( this, in_.fapIdPortDir.ptr() );
   writer_.findOwners();
   Velto::FirstError error;
   error.run( [&] {
      members_.reviewAll( in_.acsd->lagToPortIteratorConst(),
                          [this]( IntfId lag ) { return in_.acsd->lagToPortHas( lag ); } );
   } );
   for ( IntfId lag : writer_.lags() ) {
      if ( !members_.has( lag ) ) {
         QON_TRACE( creatorFacility, 3, " Cleaning up lag: ", lag ); // fixed text
         error.run( [&] { writer_.lagDel( lag ); } );
      }
   }
   error.pass();
}

void
QonLagCreatorSm::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   members_.kivDoZombieReactors();
}

Velto::Ptr< LagMemberCreatorSm >
QonLagCreatorSm::addLagMemberSm( const IntfId & lag, const bool & ) {
   return smIs< LagMemberCreatorSm >( this, lag );
}

void
QonLagCreatorSm::removeLagMemberSm( const IntfId & lag, LagMemberCreatorSm * sm ) {
   QON_TRACE( creatorFacility, 3, " Cleaning up lag: ", lag ); // fixed text
   sm->doCleanup();
}

void
QonLagCreatorSm::handleLagToPort( const IntfId & lag ) {
   const Velto::Hold alive( this );
   const bool followed = members_.has( lag );
   members_.review( lag, in_.acsd->lagToPortHas( lag ) );
   auto sm = members_.sm( lag );
   if ( sm && followed ) {
      sm->handleMemberList();
   }
}

/** Looks at the port in the group where it is programmed, and in the one where it belongs. */
void
QonLagCreatorSm::handlePort( const IntfId & port ) {
   const Velto::Hold alive( this );
   const IntfId former = writer_.owner( port ), now = in_.acsd->portToLag( port );
   Velto::FirstError error;
   if ( auto sm = members_.sm( former ) ) {
      error.run( [&] { sm->maybeAddLagConfigMember( port ); } );
   }
   auto sm = members_.sm( now );
   if ( sm && now != former ) {
      error.run( [&] { sm->maybeAddLagConfigMember( port ); } );
   }
   error.pass();
}

Velto::Ptr< QonLagCreatorSm >
QonLagCreatorSmIs( QonLagCreatorSm::Inputs inputs,
                   Velto::Ptr< Hardware::Lag::Config > hwLagConfig ) {
   return smIs< QonLagCreatorSm >( std::move( inputs ), std::move( hwLagConfig ) );
}

} // namespace Qon
