#include "simulation/SimLag.h"

#include <algorithm>

#include "simulation/World.h"

namespace Sim {

using Ulnet::IntfId;

namespace {

String
shown( IntfId a, IntfId b ) {
   return a.stringValue() + ", " + b.stringValue();
}

} // namespace

std::span< const Operation >
SimLag::operations() {
   static const Operation table[] = {
         { "up", 12, { Range::lag }, &SimLag::up },
         { "down", 5, { Range::lag }, &SimLag::down },
         { "recreate", 3, { Range::lag }, &SimLag::recreate },
         { "join", 40, { Range::lag, Range::port, Range::few }, &SimLag::join },
         { "leave", 25, { Range::lag, Range::port }, &SimLag::leave },
         { "flags", 6, { Range::lag, Range::port, Range::few }, &SimLag::flagsAre },
         { "fallback", 4, { Range::lag, Range::few }, &SimLag::fallbackIs },
         { "device", 3, { Range::lag, Range::few }, &SimLag::deviceIs },
         { "managed", 4, { Range::intf, Range::flag }, &SimLag::managedIs },
         { "port", 8, { Range::port, Range::few }, &SimLag::hardwarePortIs },
         { "nested", 2, { Range::few }, &SimLag::nestedIs },
         { "latency", 1, { Range::few }, &SimLag::latencyIs },
         { "finish", 4, {}, &SimLag::finish },
         { "restart", 1, { Range::few }, &SimLag::restart },
   };
   return table;
}

SimLag::SimLag( World & world )
    : SimFeature( world ), statuses_( Velto::make< Interface::EthLagIntfStatusDir >( "status" ) ),
      names_( Velto::make< Lag::Input::IntfDeviceNameDir >( "names" ) ),
      mlag_( Velto::make< Mlag::Status >( "mlag" ) ),
      hardwarePorts_( Velto::make< Hardware::FapIdPortDir >( "ports" ) ),
      hardware_( Velto::make< Hardware::Lag::Config >( "config" ) ),
      hardwareStatus_( Velto::make< Hardware::Lag::Status >( "status" ) ),
      chip_( world.chip->of< SoftChip::LagPart >() ) {
   U32 known = world.chance( 20 ).percent( 50 ) ? world.size( Range::port ) : 0;
   for ( U32 i = 0; i < known; ++i ) {
      hardwarePorts_->fapIdPortIs( world.port( i ), Qon::FapIdPort( 1, i ) );
   }
}

void
SimLag::start() {
   if ( !programmer_ ) {
      programmer_ = chip_.makeProgrammer( hardware_, hardwareStatus_ );
      groups_.attach( hardware_.ptr(), [this]( const IntfId & lag ) { groupHeard( lag ); } );
      ports_.attach( world_.acsd.ptr(), [this]( const IntfId & port ) { portToLagHeard( port ); } );
   }
   progSm_ = Qon::LagProgSmIs( hardware_, hardwareStatus_, hardwarePorts_ );
   sm_ = Qon::LagSmIs( world_.acsd, statuses_, names_, mlag_, world_.acsd->verifyData(), progSm_ );
   for ( auto & [lag, share] : share_ ) {
      sm_->sharePeerLinkWithLagIs( lag, share );
   }
   sm_->initializedIs( true );
   progSm_->inputsReadIs( true );
}

void
SimLag::stop() {
   sm_ = nullptr;
   progSm_ = nullptr;
}

void
SimLag::kill( Ending ) {
   stop();
   ports_.detach();
   programmer_ = nullptr;
   rebuildClaims();
   nested_ = 0;
   dirty_ = true;
}

/** Of what the chip is told: it may be so late that it misses what was wrong for a moment. */
void
SimLag::held( Holdings & held ) const {
   for ( auto && [lag, group] : hardware_->lagIteratorConst() ) {
      for ( auto && [port, member] : group->memberIteratorConst() ) {
         held["group " + std::to_string( group->index() ) + " of " + shown( lag, port )] =
               Kiv::toText( member );
      }
   }
}

void
SimLag::chipLatencyIs( U32 latency ) {
   chip_.latencyIs( latency < 3   ? 0
                    : latency < 7 ? ( 1u << 4 * ( latency - 3 ) ) * 1e-6
                                  : Kiv::never );
}

void
SimLag::faultsIs( bool on ) {
   chipLatencyIs( on ? latency_ : 3 );
   chip_.programmer()->finishAll();
   nested_ = on ? nested_ : 0;
}

bool
SimLag::ready() {
   dirty_ = true;
   return true;
}

void
SimLag::up( const Event & event ) {
   lagIs( world_.lag( event[0] ), true );
}

void
SimLag::down( const Event & event ) {
   lagIs( world_.lag( event[0] ), false );
}

void
SimLag::join( const Event & event ) {
   memberIs( world_.lag( event[0] ), world_.port( event[1] ), event[2] );
}

void
SimLag::leave( const Event & event ) {
   memberDel( world_.lag( event[0] ), world_.port( event[1] ) );
}

void
SimLag::flagsAre( const Event & event ) {
   auto status = statuses_->intfStatus( world_.lag( event[0] ) );
   if ( status && status->intfHas( world_.port( event[1] ) ) ) {
      join( event );
   }
}

void
SimLag::fallbackIs( const Event & event ) {
   if ( auto status = statuses_->intfStatus( world_.lag( event[0] ) ) ) {
      status->lacpFallbackEnabledIs( U8( event[1] % 3 ) );
   }
}

void
SimLag::deviceIs( const Event & event ) {
   if ( auto status = statuses_->intfStatus( world_.lag( event[0] ) ) ) {
      status->deviceNameIs( "po" + std::to_string( event[1] ) );
   }
}

void
SimLag::managedIs( const Event & event ) {
   if ( event[1] ) {
      world_.acsd->intfIs( world_.intf( event[0] ), true );
   } else {
      world_.acsd->intfDel( world_.intf( event[0] ) );
   }
}

void
SimLag::hardwarePortIs( const Event & event ) {
   if ( event[1] < 6 ) {
      hardwarePorts_->fapIdPortIs( world_.port( event[0] ),
                                   Qon::FapIdPort( event[1] / 3, event[0] ) );
   } else {
      hardwarePorts_->fapIdPortDel( world_.port( event[0] ) );
   }
}

void
SimLag::nestedIs( const Event & event ) {
   nested_ = event[0];
}

void
SimLag::latencyIs( const Event & event ) {
   chipLatencyIs( latency_ = event[0] );
}

void
SimLag::finish( const Event & ) {
   chip_.programmer()->finishAll();
}

void
SimLag::claim( IntfId port, IntfId lag ) {
   auto & lags = claims_[port];
   if ( std::find( lags.begin(), lags.end(), lag ) == lags.end() ) {
      lags.push_back( lag );
   }
}

void
SimLag::unclaim( IntfId port, IntfId lag ) {
   std::erase( claims_[port], lag );
}

void
SimLag::lagIs( IntfId lag, bool there ) {
   if ( there ) {
      statuses_->intfStatusIs( lag );
   } else if ( statuses_->intfStatusHas( lag ) ) {
      for ( auto & [port, lags] : claims_ ) {
         std::erase( lags, lag );
      }
      statuses_->intfStatusDel( lag );
   }
}

/** Gone and back, with the same members, before anything else happens. */
void
SimLag::recreate( const Event & event ) {
   IntfId lag = world_.lag( event[0] );
   auto status = statuses_->intfStatus( lag );
   if ( !status ) {
      return;
   }
   std::vector< std::pair< IntfId, Interface::LagMember > > members;
   for ( auto && [port, member] : status->intfIteratorConst() ) {
      members.push_back( { port, member } );
   }
   lagIs( lag, false );
   lagIs( lag, true );
   for ( auto & [port, member] : members ) {
      claim( port, lag );
      statuses_->intfStatus( lag )->intfIs( port, member );
   }
}

void
SimLag::memberIs( IntfId lag, IntfId port, U32 flags ) {
   if ( auto status = statuses_->intfStatus( lag ) ) {
      claim( port, lag );
      status->intfIs( port, Interface::LagMember( flags % 4 != 1, flags % 4 != 2 ) );
   }
}

void
SimLag::memberDel( IntfId lag, IntfId port ) {
   if ( auto status = statuses_->intfStatus( lag ) ) {
      unclaim( port, lag );
      status->intfDel( port );
   }
}

void
SimLag::shareIs( IntfId lag, bool share ) {
   share_[lag] = share;
   sm_->sharePeerLinkWithLagIs( lag, share );
}

/** The agent comes up again on what it left, or on something worse. */
void
SimLag::restart( const Event & event ) {
   U32 how = event[0];
   stop();
   if ( how >= 4 ) {
      leaveStale( how );
   }
   rebuildClaims();
   nested_ = 0; // what is listed during the start has no order
   start();
}

void
SimLag::leaveStale( U32 how ) {
   auto & acsd = *world_.acsd;
   IntfId port = world_.port( how ), lag = world_.lag( how );
   if ( how == 4 ) {
      acsd.portToLagDel( port );
   } else if ( how == 5 ) {
      acsd.lagToPortDel( lag );
   } else if ( how == 6 ) {
      names_->intfDeviceNameIs( lag, "stale" );
      acsd.lagInLacpFallbackIndividualModeIs( lag, true );
   } else {
      statuses_->intfStatusDel( lag ); // while nobody looks
   }
}

/** A new incarnation reads the listings in the order of the directory. */
void
SimLag::rebuildClaims() {
   claims_.clear();
   for ( auto && [lag, status] : statuses_->intfStatusIteratorConst() ) {
      for ( auto && [port, member] : status->intfIteratorConst() ) {
         claim( port, lag );
      }
   }
}

// What must hold at every moment

void
SimLag::portToLagHeard( IntfId port ) {
   dirty_ = true;
   auto & acsd = *world_.acsd;
   IntfId lag = acsd.portToLag( port );
   world_.transcript.add( "portToLag", port, lag );
   if ( !sm_ ) {
      return;
   }
   for ( auto && [other, list] : acsd.lagToPortIteratorConst() ) {
      if ( list.portHas( port ) != ( other == lag ) ) {
         world_.report( "lag", "portToLag published before lagToPort: " + shown( port, other ) );
      }
   }
   if ( nested_ ) {
      --nested_;
      world_.meanwhile();
      IntfId next = world_.lag( nested_ );
      nested_ % 3 ? memberIs( next, port, nested_ ) : memberDel( lag, port );
   }
}

void
SimLag::groupHeard( IntfId lag ) {
   auto group = hardware_->lag( lag );
   world_.transcript.add( "group", lag, group ? group->index() + 1 : 0 );
   if ( !group ) {
      members_.erase( lag );
      return;
   }
   members_[lag].attach( group, [this, lag]( const IntfId & port ) { memberHeard( lag, port ); } );
}

void
SimLag::memberHeard( IntfId lag, IntfId port ) {
   U32 owners = 0;
   for ( auto && [other, config] : hardware_->lagIteratorConst() ) {
      owners += config->memberHas( port ) && !config->member( port ).shared();
   }
   if ( owners > 1 ) {
      world_.report( "lag", "port in two hardware groups: " + shown( port, lag ) );
   }
}

// What is wanted

bool
SimLag::managed( IntfId port ) const {
   return world_.acsd->intfs() == 0 || world_.acsd->intfHas( port );
}

IntfId
SimLag::wantedLag( IntfId port ) const {
   auto lags = claims_.find( port );
   return lags == claims_.end() || lags->second.empty() || !managed( port ) ? IntfId()
                                                                            : lags->second.back();
}

IntfId
SimLag::wantedPeerLink( IntfId lag ) const {
   auto share = share_.find( lag );
   bool established = mlag_->mlagState() == Mlag::MlagState::primary ||
                      mlag_->mlagState() == Mlag::MlagState::secondary;
   bool shares = share != share_.end() && share->second && established &&
                 mlag_->fastMacRedirection() && mlag_->peerLinkIntf() != lag;
   return shares ? mlag_->peerLinkIntf() : IntfId();
}

SimLag::Group
SimLag::wantedGroup( IntfId lag ) const {
   Group group;
   auto add = [&]( IntfId port, bool collecting, bool distributing, bool shared ) {
      if ( hardwarePorts_->fapIdPortHas( port ) && !group.contains( port ) ) {
         group[port] =
               Member( hardwarePorts_->fapIdPort( port ), collecting, distributing, shared );
      }
   };
   auto addMembersOf = [&]( IntfId from, bool shared ) {
      if ( auto status = statuses_->intfStatus( from ) ) {
         for ( auto && [port, member] : status->intfIteratorConst() ) {
            if ( wantedLag( port ) == from ) {
               add( port, member.collecting(), member.distributing(), shared );
            }
         }
      }
   };
   if ( !statuses_->intfStatusHas( lag ) ) {
      return group;
   }
   addMembersOf( lag, false );
   IntfId peerLink = wantedPeerLink( lag );
   if ( Ulnet::PortChannelIntfId::isPortChannelIntfId( peerLink ) ) {
      addMembersOf( peerLink, true );
   } else if ( peerLink && managed( peerLink ) ) {
      add( peerLink, true, true, true );
   }
   return group;
}

SimLag::Group
SimLag::wantedInChip( IntfId lag ) const {
   Group group = wantedGroup( lag );
   std::erase_if( group, [&]( auto & entry ) {
      return progSm_->programmed( lag, entry.first ).result() >= Hardware::Lag::Result::noLag;
   } );
   return group;
}

String
SimLag::checkInvariants() const {
   if ( !dirty_ && ++sinceCheck_ < 4 ) {
      return {};
   }
   dirty_ = false;
   sinceCheck_ = 0;
   String wrong = sm_->checkInvariants();
   return wrong.empty() ? checkMaps() : "own invariant: " + wrong;
}

String
SimLag::checkMaps() const {
   U32 members = 0;
   for ( U32 i = 0; i < world_.size( Range::port ); ++i ) {
      IntfId port = world_.port( i ), wanted = wantedLag( port );
      members += bool( wanted );
      if ( world_.acsd->portToLag( port ) != wanted ) {
         return "portToLag: " + shown( port, wanted ) + " wanted";
      }
   }
   if ( world_.acsd->portToLags() != members ) {
      return "portToLag: an entry too many";
   }
   for ( U32 i = 0; i < world_.size( Range::lag ); ++i ) {
      for ( auto check : { &SimLag::checkLagToPort, &SimLag::checkNames, &SimLag::checkGroup } ) {
         if ( String wrong = ( this->*check )( world_.lag( i ) ); !wrong.empty() ) {
            return wrong;
         }
      }
   }
   return {};
}

String
SimLag::checkLagToPort( IntfId lag ) const {
   auto status = statuses_->intfStatus( lag );
   if ( world_.acsd->lagToPortHas( lag ) != bool( status ) ) {
      return "lagToPort: entry of " + lag.stringValue();
   }
   const Qon::QonLagPortList & list = world_.acsd->lagToPort( lag );
   U32 members = 0;
   for ( U32 i = 0; status && i < world_.size( Range::port ); ++i ) {
      IntfId port = world_.port( i );
      bool wanted = wantedLag( port ) == lag;
      members += wanted;
      auto flags = list.port( port );
      auto member = status->intf( port );
      if ( wanted && ( !list.portHas( port ) || flags.collecting() != member.collecting() ||
                       flags.distributing() != member.distributing() ) ) {
         return "lagToPort: " + shown( lag, port );
      }
   }
   return list.ports() == members ? "" : "lagToPort: a member too many in " + lag.stringValue();
}

String
SimLag::checkNames( IntfId lag ) const {
   auto status = statuses_->intfStatus( lag );
   if ( names_->intfDeviceNameHas( lag ) != bool( status ) ||
        ( status && names_->intfDeviceName( lag ) != status->deviceName() ) ) {
      return "device name: " + lag.stringValue();
   }
   bool individual = status && status->lacpFallbackEnabled() == 2;
   if ( world_.acsd->lagInLacpFallbackIndividualMode( lag ) != individual ||
        world_.acsd->lagInLacpFallbackIndividualModeHas( lag ) != individual ) {
      return "fallback: " + lag.stringValue();
   }
   return {};
}

String
SimLag::checkGroup( IntfId lag ) const {
   Group wanted = wantedGroup( lag );
   auto group = hardware_->lag( lag );
   if ( bool( group ) != !wanted.empty() ) {
      return "hardware group: " + lag.stringValue();
   }
   if ( group && group->members() != wanted.size() ) {
      return "hardware group: number of members of " + lag.stringValue();
   }
   for ( auto & [port, member] : wanted ) {
      if ( !group->memberHas( port ) || !( group->member( port ) == member ) ) {
         return "hardware group: member " + shown( lag, port );
      }
   }
   return {};
}

/** What does not fit is refused for a reason; all else is as configured. */
String
SimLag::checkChip( IntfId lag ) const {
   U32 held = 0;
   for ( auto & [port, member] : wantedGroup( lag ) ) {
      if ( auto there = chip_.table().member( lag, port ) ) {
         ++held;
         if ( !( *there == member ) ) {
            return "member differs in the chip: " + shown( lag, port );
         }
      } else {
         auto result = progSm_->programmed( lag, port ).result();
         if ( result < Hardware::Lag::Result::noLag ) {
            return "member missing in the chip: " + shown( lag, port );
         }
      }
   }
   return chip_.table().members( lag ) == held
                ? ""
                : "member too many in the chip: " + lag.stringValue();
}

String
SimLag::checkAtRest() const {
   for ( U32 i = 0; i < world_.size( Range::lag ); ++i ) {
      if ( String wrong = checkChip( world_.lag( i ) ); !wrong.empty() ) {
         return wrong;
      }
   }
   String wrong = chip_.programmer()->checkInvariants();
   return wrong.empty() ? checkMaps() : "chip: " + wrong;
}

void
SimLag::tearDown() {
   nested_ = 0;
   for ( U32 i = 0; i < world_.size( Range::lag ); ++i ) {
      lagIs( world_.lag( i ), false );
   }
   world_.acsd->intfDelAll();
}

String
SimLag::checkTornDown() const {
   auto & acsd = *world_.acsd;
   return acsd.lagToPorts() || acsd.portToLags() || hardware_->lags() || chip_.table().lags() ||
                      names_->intfDeviceNames()
                ? "left over: a map is not empty without aggregates"
                : "";
}

void
SimLag::drawFaults( Rng & rng, std::vector< String > & lines ) const {
   lines.push_back( "lagMember fail 0 0 " + often( rng, 300 ) );
   if ( rng.percent( 20 ) ) {
      lines.push_back( "limit lagTable 2" );
      lines.push_back( "limit lagMembers 3" );
   }
}

FeatureKind
simLag() {
   return featureKindOf< SimLag >( "lag" );
}

} // namespace Sim
