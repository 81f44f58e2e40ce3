#include "Qon/include/lag/QonLagProgSm.h"

#include "Qon/include/framework/Reconcile.h"
#include "Qon/include/lag/QonLagIndex.h"
#include "platform/Velto/Scope.h"

namespace Qon {

using Ulnet::IntfId;

LagProgSm::LagProgSm( Velto::Ptr< Hardware::Lag::Config > config,
                      Velto::Ptr< const Hardware::Lag::Status > status,
                      Velto::Ptr< const Hardware::FapIdPortDir > fapIdPortDir )
    : writer_( std::move( config ) ), inputsRead_( !fapIdPortDir ), status_( std::move( status ) ),
      fapIdPortDir_( std::move( fapIdPortDir ) ) {}

void
LagProgSm::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   fapIdPortWatch_.attach( this, fapIdPortDir_.ptr() );
   writer_.findOwners();
   reviewAll();
}

/** Everything that is wanted, and what is left of what is not. */
void
LagProgSm::reviewAll() {
   Velto::FirstError error;
   for ( auto && entry : keysOf< IntfId >( lagsOf_ ) ) {
      error.run( [&] { handleFapIdPort( entry.key ); } );
   }
   error.run( [&] { removeIfRead(); } );
   error.pass();
}

void
LagProgSm::inputsReadIs( bool v ) {
   if ( inputsRead_ != v ) {
      const Velto::Hold alive( this );
      inputsRead_ = v;
      reviewAll();
   }
}

void
LagProgSm::handleFapIdPort( const IntfId & port ) {
   auto lags = lagsOf_.find( port );
   if ( !lags ) {
      return;
   }
   const Velto::Hold alive( this );
   const QonPortList now = *lags;
   Velto::FirstError error;
   for ( IntfId lag : now ) {
      error.run( [&] { review( lag, port ); } );
   }
   error.pass();
}

void
LagProgSm::memberIs( IntfId lag, IntfId port, const QonLagPort & flags, bool shared ) {
   *wanted_.emplace( lag ).first->emplace( port ).first = Wanted{ flags, shared };
   lagsOf_.emplace( port ).first->portIs( lag );
   review( lag, port );
}

void
LagProgSm::memberDel( IntfId lag, IntfId port ) {
   auto ports = wanted_.find( lag );
   if ( !ports || !ports->erase( port ) ) {
      return;
   }
   if ( ports->empty() ) {
      wanted_.erase( lag );
   }
   auto lags = lagsOf_.find( port );
   lags->portDel( lag );
   if ( lags->ports() == 0 ) {
      lagsOf_.erase( port );
   }
   review( lag, port );
}

std::vector< IntfId >
LagProgSm::membersOf( IntfId lag ) const {
   std::vector< IntfId > members;
   if ( auto ports = wanted_.find( lag ) ) {
      for ( auto && [port, wanted] : *ports ) {
         members.push_back( port );
      }
   }
   return members;
}

const LagProgSm::Wanted *
LagProgSm::wanted( IntfId lag, IntfId port ) const {
   auto ports = wanted_.find( lag );
   return ports ? ports->find( port ) : nullptr;
}

bool
LagProgSm::portKnown( IntfId port ) const {
   return !fapIdPortDir_ || fapIdPortDir_->fapIdPortHas( port );
}

Hardware::Lag::Member
LagProgSm::memberOf( IntfId port, const Wanted & wanted ) const {
   const FapIdPort hardwarePort = fapIdPortDir_ ? fapIdPortDir_->fapIdPort( port ) : FapIdPort();
   return { hardwarePort, wanted.flags.collecting(), wanted.flags.distributing(), wanted.shared };
}

/** Whether the member is wanted and everything that it takes is known. */
bool
LagProgSm::holdable( IntfId lag, IntfId port ) const {
   return wanted( lag, port ) && portKnown( port ) && hasLagIndex( lag );
}

void
LagProgSm::review( IntfId lag, IntfId port ) {
   if ( !initialized() ) {
      return; // the start looks at all
   }
   if ( holdable( lag, port ) ) {
      writer_.memberIs( lag, port, memberOf( port, *wanted( lag, port ) ) );
   } else if ( inputsRead_ || !wanted( lag, port ) ) {
      writer_.memberDel( lag, port );
   }
}

void
LagProgSm::removeStale() {
   allWanted_ = true;
   removeIfRead();
}

void
LagProgSm::removeIfRead() {
   if ( initialized() && inputsRead_ && allWanted_ ) {
      const Velto::Hold alive( this );
      writer_.removeUnless( [this]( IntfId lag, IntfId port ) { return holdable( lag, port ); } );
   }
}

Hardware::Lag::MemberStatus
LagProgSm::programmed( IntfId lag, IntfId port ) const {
   auto group = status_ ? status_->lag( lag ) : nullptr;
   return group ? group->member( port ) : Hardware::Lag::MemberStatus();
}

String
LagProgSm::checkConfig( const Hardware::Lag::LagConfig & group,
                        Kiv::DenseMap< IntfId, IntfId > & owner ) const {
   const String name = group.lagId().stringValue();
   if ( group.members() == 0 ) {
      return name + " has a hardware group without members";
   }
   for ( auto && [port, member] : group.memberIteratorConst() ) {
      const Wanted * want = wanted( group.lagId(), port );
      const String what = name + ", member " + port.stringValue();
      const bool kept =
            !inputsRead_ && ( !want || !portKnown( port ) ); // of an earlier incarnation
      if ( !kept && ( !want || !( memberOf( port, *want ) == member ) ) ) {
         return what + " in hardware differs from what is wanted";
      }
      if ( !member.shared() && !owner.emplace( port, group.lagId() ).second ) {
         return what + " is in the hardware group of " + owner.find( port )->stringValue() + " too";
      }
   }
   return "";
}

String
LagProgSm::checkInvariants() const {
   Kiv::DenseMap< IntfId, IntfId > owner;
   for ( auto && [lag, group] : config().lagIteratorConst() ) {
      String broken = checkConfig( *group, owner );
      if ( !broken.empty() ) {
         return broken;
      }
   }
   for ( auto && [lag, ports] : wanted_ ) {
      for ( auto && [port, want] : ports ) {
         const bool written = writer_.has( lag, port );
         if ( written != holdable( lag, port ) && ( inputsRead_ || !written ) ) {
            return lag.stringValue() + ", member " + port.stringValue() +
                   ( written ? " is in hardware without a hardware port\n"
                             : " is missing in hardware\n" );
         }
      }
   }
   return "";
}

Velto::Ptr< LagProgSm >
LagProgSmIs( Velto::Ptr< Hardware::Lag::Config > config,
             Velto::Ptr< const Hardware::Lag::Status > status,
             Velto::Ptr< const Hardware::FapIdPortDir > fapIdPortDir ) {
   return smIs< LagProgSm >( std::move( config ), std::move( status ), std::move( fapIdPortDir ) );
}

} // namespace Qon
