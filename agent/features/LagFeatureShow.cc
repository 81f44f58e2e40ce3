// What the console shows of link aggregation.

#include "Qon/include/framework/LagView.h"
#include "agent/features/Arguments.h"
#include "agent/features/LagFeature.h"
#include "platform/types/Paths.h"

namespace QonAgent {

namespace {

const char *
text( Hardware::Lag::Result result ) {
   switch ( result ) {
   case Hardware::Lag::Result::pending:
      return "chip not done";
   case Hardware::Lag::Result::success:
      return "";
   case Hardware::Lag::Result::noLag:
      return "no room for a group";
   case Hardware::Lag::Result::noMember:
      return "no room for a member";
   case Hardware::Lag::Result::portTaken:
      return "port in another group";
   case Hardware::Lag::Result::failed:
      return "refused by the chip";
   }
   return "";
}

} // namespace

Hardware::Lag::MemberStatus
LagFeature::held( Ulnet::IntfId lag, Ulnet::IntfId port ) const {
   auto group = state_->lag( lag );
   return group ? group->member( port ) : Hardware::Lag::MemberStatus();
}

std::vector< Ulnet::IntfId >
LagFeature::portsOf( Ulnet::IntfId lag, const Interface::EthLagIntfStatus & status ) const {
   auto ports = Qon::keysOf< Ulnet::IntfId >( status.intfIteratorConst() );
   if ( auto group = hardware_->lag( lag ) ) {
      for ( auto && [port, member] : group->memberIteratorConst() ) {
         ports.emplace( port );
      }
   }
   std::vector< Ulnet::IntfId > sorted;
   for ( auto && entry : ports ) {
      sorted.push_back( entry.key );
   }
   std::sort( sorted.begin(), sorted.end() );
   return sorted;
}

bool
LagFeature::wanted( Ulnet::IntfId lag, Ulnet::IntfId port ) const {
   if ( progSm_ ) { // it knows of those too whose hardware port is not known
      const auto ports = progSm_->membersOf( lag );
      return std::find( ports.begin(), ports.end(), port ) != ports.end();
   }
   return agent_.acsd()->lagToPort( lag ).portHas( port );
}

String
LagFeature::why( Ulnet::IntfId lag, Ulnet::IntfId port ) const {
   if ( !wanted( lag, port ) ) {
      const Ulnet::IntfId other = agent_.acsd()->portToLag( port );
      return other ? "in " + agent_.names().spelling( other ) : "not managed";
   }
   if ( !part_ ) {
      return "no groups in the chip";
   }
   return fapIdPorts_->fapIdPortHas( port ) ? text( held( lag, port ).result() )
                                            : "no hardware port";
}

Row
LagFeature::memberRow( Ulnet::IntfId lag, const Interface::EthLagIntfStatus & status,
                       Ulnet::IntfId port ) const {
   auto & names = agent_.names();
   auto config = config_->intfConfig( port );
   const bool own = agent_.acsd()->lagToPort( lag ).portHas( port );
   const bool listed = status.intfHas( port );
   const auto flags = status.intf( port );
   const auto chip = held( lag, port );
   const String reason = why( lag, port );
   Row row = { { "portChannel", names.spelling( lag ) },
               { "port", names.spelling( port ) },
               { "configured", yesNo( config && config->lag() == lag ) },
               { "collecting", yesNo( listed ? flags.collecting() : chip.collecting() ) },
               { "distributing", yesNo( listed ? flags.distributing() : chip.distributing() ) },
               { "member", yesNo( own ) },
               { "programmed", yesNo( chip.result() == Hardware::Lag::Result::success ) },
               { "shared", yesNo( chip.shared() ) },
               { "reason", reason } };
   const auto since = times_.of( String( Paths::hardwareLagState ) + "/lag[" + lag.stringValue() +
                                 "]/member[" + port.stringValue() + "]" );
   if ( !reason.empty() && since ) {
      row.set( "since", Kiv::now() - *since );
   }
   return row;
}

Rows
LagFeature::members( Arguments arguments ) const {
   for ( auto & [lag, status] : inOrder( status_->intfStatusIteratorConst() ) ) {
      if ( arguments.has( 0 ) && lag != arguments.intf( 0 ) ) {
         continue;
      }
      for ( Ulnet::IntfId port : portsOf( lag, *status ) ) {
         co_yield memberRow( lag, *status, port );
      }
   }
}

Row
LagFeature::portChannelRow( Ulnet::IntfId lag, const Interface::EthLagIntfStatus & status ) const {
   auto & names = agent_.names();
   Value::List members, programmed, shared;
   bool up = false;
   const auto own = agent_.acsd()->lagToPort( lag );
   for ( Ulnet::IntfId port : portsOf( lag, status ) ) {
      const auto chip = held( lag, port );
      if ( own.portHas( port ) ) {
         members.push_back( names.spelling( port ) );
         up = up || own.port( port ).distributing();
      }
      if ( chip.result() == Hardware::Lag::Result::success ) {
         ( chip.shared() ? shared : programmed ).push_back( names.spelling( port ) );
      }
   }
   return { { "portChannel", names.spelling( lag ) },
            { "state", up ? "up" : "down" },
            { "members", members },
            { "programmed", programmed },
            { "shared", shared },
            { "fallback", U32( status.lacpFallbackEnabled() ) },
            { "intfId", lag.stringValue() } };
}

Rows
LagFeature::portChannels( Arguments arguments ) const {
   for ( auto & [lag, status] : inOrder( status_->intfStatusIteratorConst() ) ) {
      if ( !arguments.has( 0 ) || lag == arguments.intf( 0 ) ) {
         co_yield portChannelRow( lag, *status );
      }
   }
}

Rows
LagFeature::mlag() const {
   auto & names = agent_.names();
   Value::List sharing;
   for ( auto & [lag, status] : inOrder( status_->intfStatusIteratorConst() ) ) {
      if ( lagSm_->sharePeerLinkWithLag( lag ) ) {
         sharing.push_back( names.spelling( lag ) +
                            ( lagSm_->sharedPeerLink( lag ) ? "" : " (not now)" ) );
      }
   }
   const String domain = mlagConfig_->domain();
   if ( !domain.empty() || mlag_->mlagState() != Mlag::MlagState::disabled ) {
      const Row made = { { "domain", domain },
                         { "state", Kiv::toText( mlag_->mlagState() ) },
                         { "peerLink", names.spelling( mlag_->peerLinkIntf() ) },
                         { "redirection", yesNo( mlag_->fastMacRedirection() ) },
                         { "sharing", sharing } };
      co_yield made;
   }
}

/** A row a group that the chip holds. */
Rows
LagFeature::chip( Arguments arguments ) const {
   const auto groups = part_ ? part_->groups() : std::nullopt;
   if ( !groups ) {
      notServed( agent_, "the reading of groups" );
   }
   for ( auto & [lag, group] : *groups ) {
      if ( arguments.has( 0 ) && lag != arguments.intf( 0 ) ) {
         continue;
      }
      Value::List ports;
      for ( auto & [port, member] : group ) {
         ports.push_back( Kiv::toText( member.port().fapId() ) + "/" +
                          Kiv::toText( member.port().port() ) );
      }
      Row row = { { "portChannel", agent_.names().spelling( lag ) }, { "ports", ports } };
      if ( auto config = hardware_->lag( lag ) ) {
         row.set( "index", config->index() );
      }
      co_yield row;
   }
}

std::vector< Counter >
LagFeature::counters() const {
   U64 missing = 0;
   for ( auto && [lag, group] : state_->lagIteratorConst() ) {
      for ( auto && [port, member] : group->memberIteratorConst() ) {
         missing += member.result() != Hardware::Lag::Result::success;
      }
   }
   return { { "groups", hardware_->lags() }, { "members that the chip has not", missing } };
}

std::vector< ShowCommand >
LagFeature::showCommands() {
   const Argument only = intfArgument( "PORT-CHANNEL", "port-channel", [this]( Ulnet::IntfId lag ) {
      return status_->intfStatusHas( lag );
   } );
   return {
         { "port-channel",
           "aggregates, their members, and what the chip holds",
           { only },
           { { "portChannel", "Port-channel" },
             { "state", "State" },
             { "members", "Members" },
             { "programmed", "Programmed" },
             { "shared", "Shared" } },
           [this]( auto & arguments ) { return portChannels( arguments ); } },
         { "port-channel members",
           "what each member may do, and why it is not programmed",
           { only },
           { { "portChannel", "Port-channel" },
             { "port", "Port" },
             { "configured", "Conf" },
             { "collecting", "Coll" },
             { "distributing", "Dist" },
             { "programmed", "Prog" },
             { "shared", "Lent" },
             { "reason", "Reason" },
             { "since", "Since s", true } },
           [this]( auto & arguments ) { return members( arguments ); } },
         { "mlag",
           "MLAG: state, peer link, and the aggregates that share it",
           {},
           { { "domain", "Domain" },
             { "state", "State" },
             { "peerLink", "Peer link" },
             { "redirection", "Redirection" },
             { "sharing", "Sharing" } },
           [this]( auto & ) { return mlag(); } },
         { "hw lag",
           "groups that the chip holds",
           { only },
           { { "index", "Index", true }, { "portChannel", "Port-channel" }, { "ports", "Ports" } },
           [this]( auto & arguments ) { return chip( arguments ); } } };
}

} // namespace QonAgent
