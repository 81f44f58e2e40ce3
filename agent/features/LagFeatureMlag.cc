// MLAG's tables and the events of link aggregation.

#include "agent/ConfigReader.h"
#include "agent/features/Arguments.h"
#include "agent/features/LagFeature.h"

namespace QonAgent {

void
LagFeature::domain( ConfigReader & reader, const ConfigRow & row, Reading & reading ) const {
   const String name = row.part( 0, 1 );
   const String peerLink = row.text( "peer_link", "" );
   Ulnet::IntfId link;
   if ( !peerLink.empty() ) {
      link = reader.portOrChannel( "peer_link", peerLink );
   }
   if ( !reading.domains.empty() ) {
      throw RowError( "", "there is a domain already, '" + reading.domains[0].first + "'" );
   }
   reading.domains.emplace_back( name, link );
}

void
LagFeature::mlagInterface( ConfigReader & reader, const ConfigRow & row, Reading & reading ) const {
   if ( reading.domains.empty() || row.part( 0, 2 ) != reading.domains[0].first ) {
      throw RowError( "", "there is no domain '" + row.part( 0, 2 ) + "'" );
   }
   reading.sharers.emplace_back( reader.portChannel( "", row.part( 1, 2 ) ), Kiv::Nothing() );
}

/** The switch is taken to have its peer: MLAG is established as soon as the domain is known. */
void
LagFeature::mlagBecomes( const Reading & reading ) {
   domain_.become(
         reading.domains,
         [this]( const String &, Ulnet::IntfId ) {
            mlagConfig_->domainIs( "" );
            mlag_->mlagStateIs( Mlag::MlagState::disabled );
            mlag_->fastMacRedirectionIs( false );
            mlag_->peerLinkIntfIs( Ulnet::IntfId() );
         },
         [this]( const String & name, Ulnet::IntfId link, const Ulnet::IntfId * former ) {
            mlagConfig_->domainIs( name );
            mlag_->peerLinkIntfIs( link );
            if ( !former ) {
               mlag_->fastMacRedirectionIs( true );
               mlag_->mlagStateIs( Mlag::MlagState::primary );
            }
         } );
   sharers_.become(
         reading.sharers,
         [this]( Ulnet::IntfId lag, auto & ) { mlagConfig_->peerLinkSharerDel( lag ); },
         [this]( Ulnet::IntfId lag, auto &, auto ) { mlagConfig_->peerLinkSharerIs( lag ); } );
}

/** A member as LACP would report it: it comes, changes what it may do, or goes. */
std::function< void() >
LagFeature::memberEvent( const Json & line ) {
   const Ulnet::IntfId lag = agent_.names().typed( fieldOf< String >( line, "portChannel" ) );
   const Ulnet::IntfId port = agent_.names().typed( fieldOf< String >( line, "port" ) );
   auto flag = [&]( const char * field ) {
      return !hasField( line, field ) || fieldOf< bool >( line, field );
   };
   const bool member = flag( "member" );
   const Interface::LagMember flags( flag( "collecting" ), flag( "distributing" ) );
   return [=, this] {
      mustBeThere( agent_, port );
      auto status = status_->intfStatus( lag );
      if ( !status ) {
         throw Velto::RangeError( "there is no port-channel '" + agent_.names().spelling( lag ) +
                                  "'" );
      }
      if ( member ) {
         memberStatus_->memberStatusIs( port, flags );
         status->intfIs( port, flags );
      } else if ( !status->intfHas( port ) ) {
         throw Velto::RangeError( agent_.names().spelling( port ) + " is no member of " +
                                  agent_.names().spelling( lag ) );
      } else {
         memberStatus_->memberStatusDel( port );
         status->intfDel( port );
      }
   };
}

std::function< void() >
LagFeature::mlagEvent( const Json & line ) {
   const auto state = Kiv::fromText< Mlag::MlagState >( fieldOf< String >( line, "state" ) );
   const bool redirects =
         !hasField( line, "redirection" ) || fieldOf< bool >( line, "redirection" );
   return [=, this] {
      mlag_->fastMacRedirectionIs( redirects );
      mlag_->mlagStateIs( state );
   };
}

std::vector< EventKind >
LagFeature::eventKinds() {
   return { { "lagMember",
              R"({"time": 3, "event": "lagMember", "portChannel": "PortChannel2", )"
              R"("port": "Ethernet4", "collecting": true, "distributing": false})",
              [this]( const Json & line ) { return memberEvent( line ); } },
            { "mlag", R"({"time": 4, "event": "mlag", "state": "inactive"})",
              [this]( const Json & line ) { return mlagEvent( line ); } } };
}

} // namespace QonAgent
