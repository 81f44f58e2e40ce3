// What the console shows of link aggregation.

#include "Qon/include/framework/LagView.h"
#include "agent/features/Arguments.h"
#include "agent/features/LagFeature.h"

namespace QonAgent {

namespace {

const char *
yes( bool v ) {
   return v ? "yes" : "no";
}

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
LagFeature::portsOf( Ulnet::IntfId lag ) const {
   auto ports = Qon::keysOf< Ulnet::IntfId >( status_->intfStatus( lag )->intfIteratorConst() );
   for ( Ulnet::IntfId port : progSm_->membersOf( lag ) ) {
      ports.emplace( port );
   }
   std::vector< Ulnet::IntfId > sorted;
   for ( auto && entry : ports ) {
      sorted.push_back( entry.key );
   }
   std::sort( sorted.begin(), sorted.end() );
   return sorted;
}

String
LagFeature::why( Ulnet::IntfId lag, Ulnet::IntfId port ) const {
   const auto ports = progSm_->membersOf( lag );
   if ( std::find( ports.begin(), ports.end(), port ) == ports.end() ) {
      const Ulnet::IntfId other = agent_->acsd()->portToLag( port );
      return other ? "in " + agent_->names().spelling( other ) : "not managed";
   }
   return fapIdPorts_->fapIdPortHas( port ) ? text( held( lag, port ).result() )
                                            : "no hardware port";
}

Json
LagFeature::memberRow( Ulnet::IntfId lag, Ulnet::IntfId port ) const {
   auto & names = agent_->names();
   auto config = config_->intfConfig( port );
   const bool own = agent_->acsd()->lagToPort( lag ).portHas( port );
   const bool listed = status_->intfStatus( lag )->intfHas( port );
   const auto flags = status_->intfStatus( lag )->intf( port );
   const auto chip = held( lag, port );
   return { { "portChannel", names.spelling( lag ) },
            { "port", names.spelling( port ) },
            { "configured", yes( config && config->lag() == lag ) },
            { "collecting", yes( listed ? flags.collecting() : chip.collecting() ) },
            { "distributing", yes( listed ? flags.distributing() : chip.distributing() ) },
            { "member", yes( own ) },
            { "programmed", yes( chip.result() == Hardware::Lag::Result::success ) },
            { "shared", yes( chip.shared() ) },
            { "reason", why( lag, port ) } };
}

Json
LagFeature::members( const std::vector< String > & arguments ) const {
   auto only = argumentIntf( *agent_, arguments );
   Json rows = Json::array();
   for ( auto & [lag, status] : inOrder( status_->intfStatusIteratorConst() ) ) {
      if ( only && lag != *only ) {
         continue;
      }
      for ( Ulnet::IntfId port : portsOf( lag ) ) {
         rows.push_back( memberRow( lag, port ) );
      }
   }
   return rows;
}

Json
LagFeature::portChannels( const std::vector< String > & arguments ) const {
   auto only = argumentIntf( *agent_, arguments );
   auto & names = agent_->names();
   Json rows = Json::array();
   for ( auto & [lag, status] : inOrder( status_->intfStatusIteratorConst() ) ) {
      if ( only && lag != *only ) {
         continue;
      }
      Json members = Json::array(), programmed = Json::array(), shared = Json::array();
      bool up = false;
      const auto own = agent_->acsd()->lagToPort( lag );
      for ( Ulnet::IntfId port : portsOf( lag ) ) {
         const auto chip = held( lag, port );
         if ( own.portHas( port ) ) {
            members.push_back( names.spelling( port ) );
            up = up || own.port( port ).distributing();
         }
         if ( chip.result() == Hardware::Lag::Result::success ) {
            ( chip.shared() ? shared : programmed ).push_back( names.spelling( port ) );
         }
      }
      rows.push_back( { { "portChannel", names.spelling( lag ) },
                        { "state", up ? "up" : "down" },
                        { "members", members },
                        { "programmed", programmed },
                        { "shared", shared },
                        { "fallback", status->lacpFallbackEnabled() },
                        { "intfId", lag.stringValue() } } );
   }
   return checkedRows( std::move( rows ), arguments, "port-channel" );
}

Json
LagFeature::mlag( const std::vector< String > & ) const {
   auto & names = agent_->names();
   Json sharing = Json::array();
   for ( auto & [lag, status] : inOrder( status_->intfStatusIteratorConst() ) ) {
      if ( lagSm_->sharePeerLinkWithLag( lag ) ) {
         sharing.push_back( names.spelling( lag ) +
                            ( lagSm_->sharedPeerLink( lag ) ? "" : " (not now)" ) );
      }
   }
   Json rows = Json::array();
   if ( !domain_.empty() || mlag_->mlagState() != Mlag::MlagState::disabled ) {
      rows.push_back( { { "domain", domain_ },
                        { "state", Kiv::toText( mlag_->mlagState() ) },
                        { "peerLink", names.spelling( mlag_->peerLinkIntf() ) },
                        { "redirection", yes( mlag_->fastMacRedirection() ) },
                        { "sharing", sharing } } );
   }
   return rows;
}

/** A row a group of the chip's table. */
Json
LagFeature::chip( const std::vector< String > & arguments ) const {
   auto only = argumentIntf( *agent_, arguments );
   auto & names = agent_->names();
   Json rows = Json::array();
   for ( auto & [lag, group] : inOrder( hardware_->lagIteratorConst() ) ) {
      if ( chip_->members( lag ) == 0 || ( only && lag != *only ) ) {
         continue;
      }
      Json ports = Json::array();
      for ( auto && [port, wanted] : group->memberIteratorConst() ) {
         if ( auto member = chip_->member( lag, port ) ) {
            ports.push_back( Kiv::toText( member->port().fapId() ) + "/" +
                             Kiv::toText( member->port().port() ) );
         }
      }
      rows.push_back( { { "index", group->index() },
                        { "portChannel", names.spelling( lag ) },
                        { "ports", ports } } );
   }
   return rows;
}

std::vector< ShowCommand >
LagFeature::showCommands() {
   return {
         { "port-channel",
           "aggregates, their members, and what the chip holds",
           "[PORT-CHANNEL]",
           { { "portChannel", "Port-channel" },
             { "state", "State" },
             { "members", "Members" },
             { "programmed", "Programmed" },
             { "shared", "Shared" } },
           [this]( const auto & arguments ) { return portChannels( arguments ); } },
         { "port-channel members",
           "what each member may do, and why it is not programmed",
           "[PORT-CHANNEL]",
           { { "portChannel", "Port-channel" },
             { "port", "Port" },
             { "configured", "Conf" },
             { "collecting", "Coll" },
             { "distributing", "Dist" },
             { "programmed", "Prog" },
             { "shared", "Lent" },
             { "reason", "Reason" } },
           [this]( const auto & arguments ) { return members( arguments ); } },
         { "mlag",
           "MLAG: state, peer link, and the aggregates that share it",
           "",
           { { "domain", "Domain" },
             { "state", "State" },
             { "peerLink", "Peer link" },
             { "redirection", "Redirection" },
             { "sharing", "Sharing" } },
           [this]( const auto & arguments ) { return mlag( arguments ); } },
         { "hw lag",
           "groups that the chip holds",
           "[PORT-CHANNEL]",
           { { "index", "Index", true }, { "portChannel", "Port-channel" }, { "ports", "Ports" } },
           [this]( const auto & arguments ) { return chip( arguments ); } } };
}

} // namespace QonAgent
