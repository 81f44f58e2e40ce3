// Mirror sessions on the road of a frame: copies of what came in, and of what leaves. A frame is no
// IP packet: of filters only those of type mac take one.

#include "agent/softchip/Chip.h"
#include "agent/softchip/MirrorPart.h"
#include "agent/softchip/Stages.h"

namespace SoftChip {

namespace {

using Mirroring::TunnelType;

/** The copies of the frame that passes `port` in that direction; what they are, in words. */
String
mirrored( const Chip & chip, const Frame & frame, IntfId port, Mirroring::Direction direction,
          Bridging::VlanIdOrNone tag, std::vector< Copy > & copies ) {
   AclPacket packet;
   packet.ethSrc = frame.source;
   packet.ethDst = frame.destination;
   String what;
   for ( auto & [name, session] : chip.of< MirrorPart >().table().sessions() ) {
      auto source = session.sources.find( port );
      if ( source == session.sources.end() || session.attributes.portMirroringDisabled() ||
           !source->second.mirrors( packet ) ||
           !Mirroring::has( source->second.direction, direction ) ) {
         continue;
      }
      what += ( what.empty() ? "" : "; " ) + name + ":";
      for ( auto & [target, none] : session.targets ) {
         copies.push_back( { target, tag } );
         what += " by " + target.stringValue();
      }
      if ( session.tunnel.type() != TunnelType::none && session.resolution.intf() ) {
         copies.push_back( { session.resolution.intf(), session.resolution.vlan() } );
         what += " into the tunnel by " + session.resolution.intf().stringValue();
      }
   }
   return what;
}

} // namespace

Verdict
passMirror( const Chip & chip, Travel & travel ) {
   return { true, mirrored( chip, travel.frame, travel.frame.port, Mirroring::Direction::rx,
                            travel.frame.vlan, travel.mirrored ) };
}

Verdict
passMirrorOut( const Chip & chip, const Travel & travel, Way & way ) {
   return { true, mirrored( chip, travel.frame, way.copy.port, Mirroring::Direction::tx,
                            way.copy.tag, way.mirrored ) };
}

} // namespace SoftChip
