#include "Qon/include/lag/QonLagConfigMapCreatorSm.h"

#include "Qon/include/framework/QonTraceHandles.h"
#include "Qon/include/lag/QonLagIndex.h"

namespace Qon {

using Ulnet::IntfId;

namespace {
Flintlog::Facility configMapFacility( "QonLagConfigMapCreatorSm" );
}

LagConfigMemberCreatorSm::LagConfigMemberCreatorSm( LagConfigMapCreatorSm * creator,
                                                    Velto::Ptr< const LagConfig > config )
    : creator_( creator ), config_( std::move( config ) ) {}

void
LagConfigMemberCreatorSm::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   const Velto::Hold creatorAlive( creator_ );
   memberWatch_.attach( this, config_.ptr() );
   creator_->handleLagToPort( lag() );
   auto ports = claims_; // of before a rest
   for ( auto && [port, mode] : config_->memberIteratorConst() ) {
      ports.emplace( port );
   }
   Velto::FirstError error;
   for ( auto && entry : ports ) {
      error.run( [&] { handleMember( entry.key ); } );
   }
   error.pass();
}

void
LagConfigMemberCreatorSm::handleMember( const IntfId & port ) {
   if ( config_->memberHas( port ) ) {
      claims_.emplace( port );
      creator_->claims_.claim( port, lag() );
   } else {
      claims_.erase( port );
      creator_->claims_.unclaim( port, lag() );
   }
   creator_->reviewPort( port );
}

void
LagConfigMemberCreatorSm::doCleanup() {
   memberWatch_.detach();
   const auto ports = std::exchange( claims_, {} );
   Velto::FirstError error;
   for ( auto && entry : ports ) {
      creator_->claims_.unclaim( entry.key, lag() );
      error.run( [&] { creator_->reviewPort( entry.key ); } );
   }
   error.pass();
}

LagConfigMapCreatorSm::LagConfigMapCreatorSm( Inputs inputs,
                                              Velto::Ptr< Hardware::Lag::Config > hwLagConfig )
    : in_( std::move( inputs ) ), writer_( std::move( hwLagConfig ) ) {}

void
LagConfigMapCreatorSm::handleInitialized() {
   if ( !initialized() ) {
      members_.rest();
      return;
   }
   lagConfigWatch_.attach( this, in_.aggregatedLagConfigDir.ptr() );
   lagToPortWatch_.attach( this, in_.acsd.ptr() );
   memberStatusWatch_.attach( this, in_.memberStatusDir.ptr() );
   intfStatusWatch_.attach( this, in_.ethPhyIntfStatusDir.ptr() );
   fapIdPortWatch_.attach( this, in_.fapIdPortDir.ptr() );
   writer_.findOwners();
   const auto & dir = in_.aggregatedLagConfigDir;
   Velto::FirstError error;
   resync_ = true;
   error.run( [&] {
      members_.reviewAll( dir->lagToPortIteratorConst(), [&]( IntfId lag ) {
         return Velto::Ptr< const Hardware::Lag::AggregatedLagConfig >( dir->lagToPort( lag ) );
      } );
   } );
   resync_ = false;
   error.run( [&] {
      writer_.removeUnless( [this]( IntfId lag, IntfId port ) {
         return claims_.owner( port ) == lag && wanted( lag, port );
      } );
   } );
   error.pass();
}

void
LagConfigMapCreatorSm::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   members_.kivDoZombieReactors();
}

Velto::Ptr< LagConfigMemberCreatorSm >
LagConfigMapCreatorSm::makeMemberSm(
      const IntfId &, const Velto::Ptr< const LagConfigMemberCreatorSm::LagConfig > & config ) {
   return smIs< LagConfigMemberCreatorSm >( this, config );
}

void
LagConfigMapCreatorSm::cleanUpMemberSm( const IntfId & lag, LagConfigMemberCreatorSm * sm ) {
   QON_TRACE( configMapFacility, 3, " Removing lag: ", lag ); // fixed text
   sm->doCleanup();
}

void
LagConfigMapCreatorSm::handleLagConfig( const IntfId & lag ) {
   members_.review( lag, in_.aggregatedLagConfigDir->lagToPort( lag ) );
}

/** A change of the list alone makes no difference to any member. */
void
LagConfigMapCreatorSm::handleLagToPort( const IntfId & lag ) {
   auto sm = members_.sm( lag );
   if ( !sm || in_.acsd->lagToPortHas( lag ) == sm->lagExists() ) {
      return;
   }
   const Velto::Hold alive( this );
   sm->lagExistsIs( in_.acsd->lagToPortHas( lag ) );
   Velto::FirstError error;
   for ( auto && entry : KeySet< IntfId >( sm->claims() ) ) {
      error.run( [&] { reviewPort( entry.key ); } );
   }
   error.pass();
}

/** The member as it shall be programmed; nothing while something that it takes is missing. */
std::optional< Hardware::Lag::Member >
LagConfigMapCreatorSm::wanted( IntfId lag, IntfId port ) const {
   const bool memberStatus = in_.memberStatusDir->memberStatusHas( port );
   const bool fapPort = in_.fapIdPortDir->fapIdPortHas( port );
   const bool interfaceStatusExists = in_.ethPhyIntfStatusDir->intfStatusHas( port );
   const bool lagExists = in_.acsd->lagToPortHas( lag ) && hasLagIndex( lag );
   // fixed text
   QON_TRACE( configMapFacility, 7, lag, " ", port, " memberStatus: ", memberStatus,
              " fapPort: ", fapPort, " interfaceStatusExists: ", interfaceStatusExists,
              " lagExists: ", lagExists, " resync: ", resync_ );
   if ( !memberStatus || !fapPort || !interfaceStatusExists || !lagExists ) {
      return std::nullopt;
   }
   const Interface::LagMember flags = in_.memberStatusDir->memberStatus( port );
   return Hardware::Lag::Member( in_.fapIdPortDir->fapIdPort( port ), flags.collecting(),
                                 flags.distributing(), false );
}

void
LagConfigMapCreatorSm::reviewPort( const IntfId & port ) {
   const Velto::Hold alive( this );
   const IntfId lag = claims_.owner( port ), former = writer_.owner( port );
   const auto want = lag ? wanted( lag, port ) : std::nullopt;
   Velto::FirstError error;
   if ( former && !resync_ && ( former != lag || !want ) ) {
      QON_TRACE( configMapFacility, 3, " Removing lag: ", former, " member: ", port ); // fixed text
      error.run( [&] { writer_.memberDel( former, port ); } );
   }
   if ( want && writer_.member( lag, port ) != want ) {
      QON_TRACE( configMapFacility, 5, " Adding lag: ", lag, " member: ", port ); // fixed text
      error.run( [&] { writer_.memberIs( lag, port, *want ); } );
   }
   error.pass();
}

String
LagConfigMapCreatorSm::checkInvariants() const {
   for ( IntfId lag : writer_.lags() ) {
      for ( IntfId port : writer_.members( lag ) ) {
         if ( claims_.owner( port ) != lag || writer_.member( lag, port ) != wanted( lag, port ) ) {
            return lag.stringValue() + ", member " + port.stringValue() +
                   " in hardware differs from what is configured";
         }
      }
   }
   for ( auto && [port, lags] : claims_.all() ) {
      const IntfId lag = claims_.owner( port );
      if ( wanted( lag, port ) && !writer_.has( lag, port ) ) {
         return lag.stringValue() + ", member " + port.stringValue() + " is missing in hardware";
      }
   }
   return "";
}

Velto::Ptr< LagConfigMapCreatorSm >
LagConfigMapCreatorSmIs( LagConfigMapCreatorSm::Inputs inputs,
                         Velto::Ptr< Hardware::Lag::Config > hwLagConfig ) {
   return smIs< LagConfigMapCreatorSm >( std::move( inputs ), std::move( hwLagConfig ) );
}

} // namespace Qon
