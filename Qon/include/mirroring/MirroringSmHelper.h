#pragma once
// The hardware side of mirror sessions: what a chip-specific agent overrides.
//
//    MirroringSm -> hooks of MirroringSmHelper -> chip
//    chip agent -> Mirroring::HwCapability, Mirroring::HwStatus -> MirroringSm
//
// The two numbers behind a session's name are its mirror group, and its egress id: the group once
// more while the session mirrors what leaves, else -1. What else a hook wants to know of a session,
// it asks mirroringSm()->session( name ): its configuration, and the record of a source, which says
// what filter the source that is just being added shall have.
//
// Invariants
// 1. A session is made by its first destination (createMirror or createGreTunnelMirror), before its
//    sources; its sources go before its last destination does.
// 2. One call at a time: what a hook changes is taken up when the step that called it is done.
// 3. What is removed is described as it was added, whatever is configured by now.
//
// Ownership: the state machine counts the helper; the helper points back without counting.

#include "Qon/include/framework/QonBaseSm.h"
#include "Qon/include/framework/QonPortLists.h"
#include "platform/types/Interface.h"
#include "platform/types/Mirroring.h"
#include "platform/types/Tunnel.h"

namespace Qon {

class MirroringSm;

class MirroringSmHelper : public QonBaseHelper {
 public:
   using IntfId = Ulnet::IntfId;
   using Direction = Mirroring::Direction;

   explicit MirroringSmHelper( const String & name = "mirroringSmHelper" )
       : QonBaseHelper( name ) {}

   /** @name Destinations
       Done on return. False: not done; the destination counts as failed, and is tried again when the
       interface, the tunnel or the configuration changes. False from a removal is noted, no more. */
   /** @{ */
   /** Sends the session's copies to `destination` too. `update`: the session exists in hardware; the
       destination may be one of its own, whose session attributes have changed then. */
   virtual bool createMirror( const String & name, int mirrorGroup, int egressId,
                              IntfId destination, bool update );
   /** These destinations go; the session with them when they are the last. */
   virtual bool removeMirror( const String & name, int mirrorGroup, int egressId,
                              const QonPortList & destinations );
   /** Makes the session, with a tunnel of either type. `resolution` is empty of a session that drops
       everything. An earlier life of the agent may have left it in hardware. */
   virtual bool createGreTunnelMirror( const String & name, int mirrorGroup, int egressId,
                                       const Mirroring::TunnelInfo & tunnel,
                                       const Tunnel::Resolution & resolution );
   /** The tunnel, the way to its end, or the session's attributes have changed. False: they are in
       hardware as before. */
   virtual bool updateGreTunnelMirror( const String & name, int mirrorGroup, int egressId,
                                       const Mirroring::TunnelInfo & tunnel,
                                       const Tunnel::Resolution & resolution );
   virtual bool removeGreTunnelMirror( const String & name, int mirrorGroup, int egressId );
   /** @} */

   /** @name Sources
       Done on return; whether there was room for the filter may be told later, in
       Mirroring::SessionHwStatus::aclStatus. */
   /** @{ */
   /** Mirrors `intf`: a port, a member of an aggregate, or a VXLAN interface. Of a source that an
       earlier life left in hardware with that direction it is called once more. */
   virtual bool addSourceToHardware( const String & name, int mirrorGroup, int egressId,
                                     IntfId intf, Direction direction );
   /** `sessionGoes`: the session is being deleted. */
   virtual bool removeSourceFromHardware( const String & name, int mirrorGroup, int egressId,
                                          IntfId intf, Direction direction, bool sessionGoes );
   /** @} */

   /** Whether the hardware holds that destination of the session; part of a verification run. */
   virtual bool verifySinglePort( const String & name, int mirrorGroup, int egressId,
                                  IntfId destination );
   virtual bool verifyGreTunnelMirror( const String & name, int mirrorGroup, int egressId,
                                       const Mirroring::TunnelInfo & tunnel );

   /** Called when the state machine starts, once the number of sessions is known and not zero, before
       all other hooks. */
   virtual void hwInit();
   /** So many sources can a session have that mirror both directions, if all do; a change is told by
       Mirroring::HwCapability::sourceLimitsVersion. */
   virtual U8 maxBiDirSources();
   /** The same of one direction. */
   virtual U8 maxUniDirSources();
   /** Reads the counters of all sessions; called on request only. */
   virtual void updateCounters();
   /** Whether the interface can be a source, or a destination. `status` is null for what is no port,
       or has no status. Asked of an aggregate and of each of its members, and again when the status
       changes. */
   virtual bool isValidIntf( const Interface::EthPhyIntfStatus * status, IntfId intf,
                             bool isDestination );
   /** Makes the hardware ready for filters of that type ("ip", "mac", "ipv6"); before the session's
       first source with one. */
   virtual void setTcamProfileFeature( const String & session, const String & feature );

   /** @name Rules that a chip may replace */
   /** @{ */
   /** Whether a session can have so many sources of both and of one direction at once. By default
       they share: half of one limit leaves half of the other. More sources never fit better. */
   virtual bool sourcesFit( const String & session, U32 biDir, U32 uniDir );
   /** Whether sources of which so many mirror what comes in, and so many what leaves, cannot be sent
       to the same port while frames are cut through. By default: if there are both. */
   virtual bool sourcesOverlap( const String & session, U32 rx, U32 tx );
   /** @} */

   /** The state machine that uses this helper; null before its start and after its death. */
   MirroringSm * mirroringSm() const { return mirroringSm_; }
   void mirroringSmIs( MirroringSm * sm ) { mirroringSm_ = sm; }

 private:
   void missing( const char * hook ) const;

   MirroringSm * mirroringSm_ = nullptr;
};

} // namespace Qon
