// What must hold between two events, and what the hardware must hold.

#include "Qon/mirroring/MirroringTrace.h"

namespace Qon {

using KivMirroringSession = MirroringSm::KivMirroringSession;
using Ulnet::IntfId;

String
MirroringSm::checkInvariants() const {
   KeySet< S32 > groups;
   String broken;
   U32 overflows = 0;
   const U32 freeGroups = in_.acsd->freeMirrorSessions();
   sessions_.forEach( [&]( const String & name, KivMirroringSession & session ) {
      const S32 group = session.mirrorGroup();
      overflows += session.overflowLogged() + session.invalidOverlapLogged();
      if ( !broken.empty() ) {
         return;
      }
      if ( !session.hasGroup() && freeGroups ) {
         broken = name + " waits for a group, and " + Kiv::toText( freeGroups ) + " are free";
      } else if ( session.hasGroup() && ( !groups.emplace( group ).second ||
                                          in_.acsd->freeMirrorSessionHas( U8( group ) ) ) ) {
         broken = "group " + Kiv::toText( group ) + " of " + name + " is somebody else's, too";
      } else if ( in_.acsd->mirrorSessionNameToIdHas( name ) != session.hasGroup() ||
                  ( session.hasGroup() &&
                    in_.acsd->mirrorSessionNameToId( name ) != U32( group ) ) ) {
         broken = name + " is not published with its group " + Kiv::toText( group );
      } else {
         broken = session.brokenInvariant();
      }
   } );
   if ( broken.empty() && overflows != overflows_ ) {
      broken = Kiv::toText( overflows_ ) + " sources are counted as kept out, of " +
               Kiv::toText( overflows );
   }
   return broken;
}

String
KivMirroringSession::brokenInvariant() const {
   Counts counts;
   U32 overLimit = 0, overlaps = 0, targets = 0;
   for ( auto && [port, source] : sources_ ) {
      const auto & local = source.local;
      const String where = name_ + ", source " + port.stringValue();
      if ( local.programmed() ) {
         counts.change( local.direction(), 1 );
         if ( !createdInHw_ || local.overflowState() != MirrorOverflow::normal ) {
            return where + ": in hardware, and should not be";
         }
      }
      overLimit += local.overflowState() == MirrorOverflow::overLimit;
      overlaps += local.overflowState() == MirrorOverflow::overlap;
      if ( ( local.overflowState() != MirrorOverflow::normal ) != overflowed_.has( port ) ) {
         return where + ": waits for others to go, or does not";
      }
      if ( source.claims.empty() && !local.programmed() && local.left_ == Direction::none ) {
         return where + ": nobody's, and remembered";
      }
   }
   for ( auto && [port, target] : targets_ ) {
      targets += target.local.programmed();
   }
   if ( counts.rxOnly != counts_.rxOnly || counts.txOnly != counts_.txOnly ||
        counts.both != counts_.both || overLimit != overflowLogged_ ||
        overlaps != invalidOverlapLogged_ || targets != targetsInHw_ ) {
      return name_ + ": counts are wrong";
   }
   if ( createdInHw_ != ( targets != 0 || ( tunnel_ && tunnel_->programmed() ) ) ) {
      return name_ + ": in hardware without a destination, or the other way round";
   }
   const bool egress = root_->in_.acsd->mirrorSessionNameToEgressIdHas( name_ );
   if ( egress != ( createdInHw_ && counts.tx() != 0 ) ) {
      return name_ + ": its egress id";
   }
   return "";
}

// --- Verification --------------------------------------------------------------------------------

void
MirroringSm::handleVerify() {
   if ( !initialized() || !in_.verifyData ) {
      return;
   }
   during( [this] {
      forEachOf( allSessions(), [this]( KivMirroringSession & session ) { verify( session ); } );
   } );
}

void
MirroringSm::verify( KivMirroringSession & session ) {
   const String & name = session.name();
   const int group = session.mirrorGroup(), egressId = session.egressId();
   for ( IntfId port : session.programmedTargets() ) {
      if ( !QON_HOOK( MirroringSmHelper, in_.helper, verifySinglePort, name, group, egressId,
                      port ) ) {
         QON_FINDING( in_.verifyData, "Mirror session " + name + ", destination " +
                                            port.stringValue() + " is not in hardware\n" );
      }
   }
   auto tunnel = session.tunnel();
   if ( tunnel && tunnel->programmed() &&
        !QON_HOOK( MirroringSmHelper, in_.helper, verifyGreTunnelMirror, name, group, egressId,
                   tunnel->info() ) ) {
      QON_FINDING( in_.verifyData, "Mirror session " + name + ", tunnel is not in hardware\n" );
   }
}

} // namespace Qon
