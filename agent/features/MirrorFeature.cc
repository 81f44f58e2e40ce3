#include "agent/features/MirrorFeature.h"

#include "Qon/include/framework/Reconcile.h"
#include "agent/ConfigReader.h"
#include "agent/features/Arguments.h"
#include "agent/features/MirrorJournal.h"
#include "platform/types/Paths.h"

namespace QonAgent {

using Mirroring::Direction;
using Mirroring::TunnelType;
using Ulnet::IntfId;

MirrorFeature::MirrorFeature( Agent & agent )
    : agent_( agent ), part_( agent.chip().part< QonChip::MirrorPart >() ),
      config_( agent.entities().mount< Mirroring::Config >( Paths::mirroringConfig ) ),
      status_( agent.entities().mount< Mirroring::Status >( Paths::mirroringStatus ) ),
      capability_(
            agent.entities().mount< Mirroring::HwCapability >( Paths::mirroringHwCapability ) ),
      hwStatus_( agent.entities().mount< Mirroring::HwStatus >( Paths::hardwareMirroringStatus ) ),
      acls_( agent.entities().mount< Acl::Config >( Paths::aclConfig ) ),
      tunnels_( agent.entities().mount< Tunnel::Status >( Paths::tunnelStatus ) ),
      mode_( agent.entities().mount< Bridging::ForwardingModeConfig >( Paths::forwardingMode ) ),
      journal_( Velto::make< Journal >( status_.ptr() ) ) {
   if ( !part_ ) {
      return;
   }
   sm_ = Qon::MirroringSmIs(
         { agent.acsd(), config_, capability_, status_,
           part_->makeMirroringHelper( capability_, hwStatus_ ), hwStatus_, acls_, tunnels_, mode_,
           agent.entities().mount< Interface::EthPhyIntfStatusDir >( Paths::ethPhyIntfStatus ),
           agent.acsd()->verifyData() } );
}

void
MirrorFeature::inputsRead() {
   if ( !sm_ ) {
      return;
   }
   // A snapshot may tell of sessions that this chip does not hold.
   if ( const auto held = part_->mirrors() ) {
      for ( auto && [name, session] : hwStatus_->sessionIteratorConst() ) {
         if ( !held->contains( name ) ) {
            hwStatus_->sessionDel( name );
         }
      }
   }
   sm_->initializedIs( true );
}

MirrorFeature::~MirrorFeature() = default;

// --- Configuration -------------------------------------------------------------------------------

std::vector< ConfigTable >
MirrorFeature::tables() const {
   return {
         { "MIRROR_SESSION",
           "session",
           { { "type", "SPAN or ERSPAN; ERSPAN with a dst_ip, else SPAN" },
             { "dst_port", "of SPAN: ports and port-channels, a list" },
             { "src_port", "ports and port-channels, a list" },
             { "direction", "RX, TX or BOTH; BOTH" },
             { "sample_rate", "one of how many frames, 0 to 16777216; 0: each" },
             { "truncate_size", "bytes, 0 to 9216; 0: whole frames" },
             { "src_ip", "of ERSPAN: an address" },
             { "dst_ip", "of ERSPAN: an address of the same family" },
             { "gre_type", "of ERSPAN: the protocol, up to 0xffff; 0x88be" },
             { "ttl", "of ERSPAN: 0 to 255; 64" },
             { "dscp", "of ERSPAN: 0 to 63; 0" },
             { "vrf", "of ERSPAN: a name" } },
           { R"("span": {"dst_port": "Ethernet8", "src_port": "Ethernet12", "direction": "RX"})",
             R"("far": {"src_ip": "10.0.0.1", "dst_ip": "10.0.0.2", "src_port": "Ethernet12"})" } } };
}

void
MirrorFeature::configure( ConfigReader & reader ) {
   auto said = std::make_shared< Configured< String, Wanted >::Said >();
   reader.eachRow( "MIRROR_SESSION", [&]( const ConfigRow & row ) {
      said->emplace_back( row.part( 0, 1 ), wantedOf( reader, row ) );
   } );
   reader.apply( [=, this] {
      configured_.become(
            *said, [this]( const String & name, auto & ) { config_->sessionDel( name ); },
            [this]( const String & name, const Wanted & wanted, const Wanted * former ) {
               sessionIs( name, wanted, former );
            } );
   } );
}

/** A session with `dst_ip` has a tunnel, any other one ports. */
MirrorFeature::Wanted
MirrorFeature::wantedOf( ConfigReader & reader, const ConfigRow & row ) const {
   const String type = row.text( "type", row.has( "dst_ip" ) ? "ERSPAN" : "SPAN" );
   const bool tunneled = row.word( "type", { "SPAN", "ERSPAN" }, row.has( "dst_ip" ) ? 1 : 0 ) == 1;
   Wanted wanted;
   if ( tunneled ) {
      wanted.tunnel = tunnel( row );
   } else if ( !row.has( "dst_port" ) ) {
      throw RowError( "dst_port", "a session of type " + type + " needs a destination" );
   }
   for ( const String & port : tunneled ? std::vector< String >() : row.list( "dst_port" ) ) {
      wanted.targets.insert( reader.portOrChannel( "dst_port", port ) );
   }
   for ( const String & port : row.list( "src_port" ) ) {
      wanted.sources.insert( reader.portOrChannel( "src_port", port ) );
   }
   const Direction directions[] = { Direction::rx, Direction::tx, Direction::both };
   wanted.direction = directions[row.word( "direction", { "RX", "TX", "BOTH" }, 2 )];
   wanted.sampling = U32( row.number( "sample_rate", 0, 16777216, 0 ) );
   wanted.truncation = U16( row.number( "truncate_size", 0, 9216, 0 ) );
   return wanted;
}

void
MirrorFeature::sessionIs( const String & name, const Wanted & wanted, const Wanted * former ) {
   auto session = config_->sessionIs( name );
   session->truncateIs( wanted.truncation != 0 );
   session->truncationSizeIs( wanted.truncation );
   session->rxSampleRateIs( wanted.sampling );
   session->tunnelIs( wanted.tunnel );
   const Wanted before = former ? *former : Wanted();
   Qon::reconcile< IntfId >(
         before.targets, wanted.targets, [&]( IntfId port ) { session->targetIntfDel( port ); },
         []( IntfId ) {} );
   for ( IntfId port : wanted.targets ) {
      session->targetIntfIs( port );
   }
   Qon::reconcile< IntfId >(
         before.sources, wanted.sources, [&]( IntfId port ) { session->srcIntfDel( port ); },
         []( IntfId ) {} );
   for ( IntfId port : wanted.sources ) {
      session->srcIntfIs( port, wanted.direction )->directionIs( wanted.direction );
   }
}

namespace {

Ulnet::IpGenAddr
address( const ConfigRow & row, const char * field ) {
   const String text = row.text( field );
   if ( text.empty() ) {
      throw RowError( field, "a tunnel needs this address" );
   }
   try {
      return Ulnet::IpGenAddr( text );
   } catch ( const Velto::RangeError & ) {
      throw RowError( field, "'" + text + "' is not an IP address" );
   }
}

/** Decimal, or hexadecimal behind 0x. */
U16
protocol( const ConfigRow & row ) {
   const String text = row.text( "gre_type", "0x88be" );
   std::size_t used = 0;
   unsigned long value = ~0ul;
   try {
      value = std::stoul( text, &used, 0 );
   } catch ( const std::logic_error & ) {
   }
   if ( used != text.size() || value > 0xffff || text[0] == '-' ) {
      throw RowError( "gre_type", "'" + text + "' is not a protocol from 0 to 0xffff" );
   }
   return U16( value );
}

} // namespace

Mirroring::TunnelInfo
MirrorFeature::tunnel( const ConfigRow & row ) const {
   Mirroring::TunnelInfo info;
   info.typeIs( TunnelType::gre );
   info.srcIs( address( row, "src_ip" ) );
   info.dstIs( address( row, "dst_ip" ) );
   if ( info.src().family() != info.dst().family() ) {
      throw RowError( "dst_ip", "source and destination are of different families" );
   }
   info.ttlIs( U8( row.number( "ttl", 0, 255, 64 ) ) );
   info.dscpIs( U8( row.number( "dscp", 0, 63, 0 ) ) );
   info.greProtocolIs( protocol( row ) );
   info.vrfIs( row.text( "vrf" ) );
   return info;
}

// --- Events --------------------------------------------------------------------------------------

std::function< void() >
MirrorFeature::parseTunnel( const Json & line ) {
   const Tunnel::Endpoint end( Ulnet::IpGenAddr( fieldOf< String >( line, "dst" ) ),
                               hasField( line, "vrf" ) ? fieldOf< String >( line, "vrf" ) : "" );
   if ( !hasField( line, "intf" ) ) {
      return [=, this] { tunnels_->resolutionDel( end ); };
   }
   Tunnel::Resolution way;
   way.intfIs( agent_.names().typed( fieldOf< String >( line, "intf" ) ) );
   if ( hasField( line, "nextHop" ) ) {
      way.nextHopIs( Ulnet::EthAddr( fieldOf< String >( line, "nextHop" ) ) );
   }
   return [=, this] { tunnels_->resolutionIs( end, way ); };
}

std::function< void() >
MirrorFeature::parseMode( const Json & line ) {
   const auto mode = Kiv::fromText< Bridging::ForwardingMode >( fieldOf< String >( line, "mode" ) );
   return [=, this] { mode_->forwardingModeIs( mode ); };
}

namespace {

/** One of those that there are: numbers of others are no names. */
Acl::AclType
aclType( const String & name ) {
   for ( Acl::AclType type : Acl::aclTypes ) {
      if ( Kiv::toText( type ) == name ) {
         return type;
      }
   }
   throw Velto::RangeError( "'" + name + "' is no type of access list: ip, mac or ipv6" );
}

} // namespace

std::function< void() >
MirrorFeature::parseAcl( const Json & line ) {
   const String session = fieldOf< String >( line, "session" );
   const IntfId intf = agent_.names().typed( fieldOf< String >( line, "intf" ) );
   const String acl = fieldOf< String >( line, "acl" );
   const auto type = aclType( hasField( line, "type" ) ? fieldOf< String >( line, "type" ) : "ip" );
   return [=, this] {
      auto config = config_->session( session );
      auto source = config ? config->srcIntf( intf ) : nullptr;
      if ( !source ) {
         throw Velto::RangeError( "there is no source '" + agent_.names().spelling( intf ) +
                                  "' in mirror session '" + session + "'" );
      }
      source->aclTypeIs( type );
      source->aclNameIs( acl );
   };
}

std::vector< EventKind >
MirrorFeature::eventKinds() {
   auto kind = [this]( const char * name, const char * fields,
                       std::function< void() > ( MirrorFeature::*parse )( const Json & ) ) {
      return EventKind{ name, R"({"time": 1, "event": ")" + String( name ) + "\", " + fields + "}",
                        [=, this]( const Json & line ) { return ( this->*parse )( line ); } };
   };
   return { kind( "tunnel",
                  R"("dst": "10.0.0.2", "intf": "Ethernet0", )"
                  R"("nextHop": "02:11:22:00:00:01")",
                  &MirrorFeature::parseTunnel ),
            kind( "forwardingMode", R"("mode": "cutThrough")", &MirrorFeature::parseMode ),
            kind( "mirrorFilter",
                  R"("session": "s1", "intf": "Ethernet0", "acl": "list1", "type": "ip")",
                  &MirrorFeature::parseAcl ) };
}

FeatureKind
mirrorFeature() {
   return feature< MirrorFeature >( "mirror" );
}

} // namespace QonAgent
