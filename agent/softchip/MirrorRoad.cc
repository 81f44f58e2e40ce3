// Mirror sessions on the road of a frame: copies of what came in, of what leaves, and of what rules of
// access lists pick.

#include "agent/softchip/Chip.h"
#include "agent/softchip/MirrorPart.h"
#include "agent/softchip/Stages.h"

namespace SoftChip {

namespace {

using Mirroring::TunnelType;
using Session = MirrorTable::Session;

/** How copies of the session differ from the frame. */
std::vector< String >
changesOf( const String & name, const Session & session ) {
   std::vector< String > changes = { "mirrored by " + name };
   const auto & how = session.attributes;
   if ( how.rxSampleRate() > 1 ) {
      changes.push_back( "one of " + Kiv::toText( how.rxSampleRate() ) );
   }
   if ( how.truncate() ) {
      changes.push_back( "cut to " + Kiv::toText( how.truncationSize() ) );
   }
   return changes;
}

/** One copy by each destination: of an aggregate's members by one of them. */
String
copiesOf( const Chip & chip, const Travel & travel, const String & name, const Session & session,
          const Tags & tags, std::vector< Copy > & copies ) {
   String what = name + ":";
   std::vector< IntfId > targets;
   for ( auto & [port, none] : session.targets ) {
      addTarget( chip, port, targets );
   }
   for ( IntfId target : targets ) {
      if ( const IntfId port = portTo( chip, travel, target, false ) ) {
         copies.push_back( { port, tags, changesOf( name, session ) } );
         what += " by " + port.stringValue();
      }
   }
   const IntfId way = session.resolution.intf();
   const IntfId port = session.tunnel.type() != TunnelType::none && way
                             ? portTo( chip, travel, way, false )
                             : IntfId();
   if ( port ) {
      Copy copy = { port, { session.resolution.vlan(), {} }, changesOf( name, session ) };
      copy.changes.push_back( "in a tunnel to " + session.tunnel.dst().stringValue() );
      copies.push_back( std::move( copy ) );
      what += " into the tunnel by " + port.stringValue();
   }
   return what;
}

/** The copies of the frame that passes `port` in that direction; what they are, in words. */
String
mirrored( const Chip & chip, const Travel & travel, IntfId port, Mirroring::Direction direction,
          const Tags & tags, std::vector< Copy > & copies ) {
   String what;
   for ( auto & [name, session] : chip.of< MirrorPart >().table().sessions() ) {
      auto source = session.sources.find( port );
      if ( source == session.sources.end() || session.attributes.portMirroringDisabled() ||
           !source->second.mirrors( travel.frame.packet ) ||
           !Mirroring::has( source->second.direction, direction ) ) {
         continue;
      }
      what += ( what.empty() ? "" : "; " ) + copiesOf( chip, travel, name, session, tags, copies );
   }
   return what;
}

} // namespace

String
mirrorBy( const Chip & chip, const Travel & travel, S32 group, const Tags & tags,
          std::vector< Copy > & copies ) {
   for ( auto & [name, session] : chip.of< MirrorPart >().table().sessions() ) {
      if ( session.group == group ) {
         return copiesOf( chip, travel, name, session, tags, copies );
      }
   }
   return "by no session: its group is not used";
}

Verdict
passMirror( const Chip & chip, Travel & travel ) {
   return { true, mirrored( chip, travel, travel.frame.port, Mirroring::Direction::rx,
                            travel.frame.tags, travel.aside ) };
}

Verdict
passMirrorOut( const Chip & chip, const Travel & travel, Way & way ) {
   return { true, mirrored( chip, travel, way.copy.port, Mirroring::Direction::tx, way.copy.tags,
                            way.aside ) };
}

} // namespace SoftChip
