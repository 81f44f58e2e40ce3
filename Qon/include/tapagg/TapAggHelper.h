#pragma once
// The hardware side of tap aggregation: what a chip-specific agent overrides.
//
//    TapAggSm, TapAggIntfSm -> hooks of TapAggHelper -> chip
//
// Invariants
// 1. Everything stands between hwInit and hwCleanup. A port is a tap or a tool port (tapPortIs,
//    toolPortIs) before anything else is said of it in that role, and until everything else is taken
//    back. One port can be both; what is said of one role touches nothing of the other.
// 2. A group is allocated before it is used, and freed when no port is in it.
// 3. An interface is a port or a port-channel; who its members are, the chip knows or is told by
//    updateToolInterfaceLagMembership. Members of a port-channel have no settings of their own.
// 4. Every hook is done on return. One that raises is called once more; what was done stays done.
// 5. One call at a time: what a hook changes is taken up when the step that called it is done.
//
// Ownership: the state machine counts the helper.

#include "Qon/include/framework/QonBaseSm.h"
#include "platform/types/TapAggConfig.h"

namespace Qon {

class TapAggHelper : public QonBaseHelper {
 public:
   using IntfId = Ulnet::IntfId;
   using IdentityTuple = Bridging::IdentityTuple;
   using ToolIdentityMode = Bridging::Input::ToolIdentityMode;

   explicit TapAggHelper( const String & name = "tapAggHelper" ) : QonBaseHelper( name ) {}

   /** @name The chip */
   /** @{ */
   /** Makes the chip ready, with no tap port, tool port or group: what an earlier life of the agent
       left goes. When the mode is entered, unless it was left for less than the clean-up's delay. */
   virtual void hwInit();
   /** Takes all of tap aggregation out; no port and no group is left by then. */
   virtual void hwCleanup();
   /** @} */

   /** @name Groups */
   /** @{ */
   /** The id of a group for `name`, the same as long as it has one; 0: none is free. The chip is asked
       again when a group was freed. */
   virtual U32 allocateAggGroup( const String & name );
   virtual void deallocateAggGroup( U32 group );
   /** @} */

   /** @name Ports */
   /** @{ */
   virtual void tapPortIs( IntfId intf, bool enable, bool isLag );
   virtual void toolPortIs( IntfId intf, bool enable, bool isLag );
   /** Frames of the tap port go to `group`, in place of the one before. */
   virtual void addTapPortAssociation( IntfId intf, U32 group );
   /** They go nowhere. */
   virtual void removeTapPortAssociation( IntfId intf );
   /** The tool port takes the frames of `group`, too. */
   virtual void addToolPortAssociation( IntfId intf, U32 group );
   virtual void removeToolPortAssociation( IntfId intf, U32 group );
   /** `member` carries frames of `group` for the port-channel, or does not. Between add- and
       removeToolPortAssociation of the port-channel; none is left at the latter. */
   virtual void updateToolInterfaceLagMembership( IntfId lag, IntfId member, U32 group, bool add );
   /** @} */

   /** @name Settings
       Neutral (0, no tag, none) until said otherwise, and again when the port ceases to be one. */
   /** @{ */
   /** In bytes; 0 is whole frames. At most getMaxExternalFrameSizeTapAgg(). */
   virtual void tapTruncationSizeIs( IntfId intf, U32 size );
   virtual void toolTruncationSizeIs( IntfId intf, U32 size );
   virtual void identityTagIs( IntfId intf, const IdentityTuple & identity );
   virtual void taggingOnEgressIs( IntfId intf, ToolIdentityMode mode );
   /** @} */

   /** Another profile is configured than before, or none (empty), with which a life of the agent begins;
       whatever the mode is. */
   virtual void handleTcamProfile( const String & profile );
   /** No frame is longer for the chip, in bytes; 0: no bound. Asked when the mode is entered and when
       the profile has changed. */
   virtual U32 getMaxExternalFrameSizeTapAgg();

   /** @name Verification
       Whether the chip holds what the setter of that name said last. */
   /** @{ */
   virtual bool verifyHwState();
   virtual bool verifyAggGroup( const String & name, U32 group );
   virtual bool verifyTapPort( IntfId intf, bool enabled, bool isLag );
   virtual bool verifyToolPort( IntfId intf, bool enabled, bool isLag );
   virtual bool verifyTapPortAssociation( IntfId intf, U32 group );
   virtual bool verifyToolPortAssociation( IntfId intf, U32 group );
   virtual bool verifyTapTruncationSize( IntfId intf, U32 size );
   virtual bool verifyToolTruncationSize( IntfId intf, U32 size );
   virtual bool verifyIdentityTag( IntfId intf, const IdentityTuple & identity );
   virtual bool verifyTaggingOnEgress( IntfId intf, ToolIdentityMode mode );
   /** @} */

   /** @name Further settings of tool ports, and their verification */
   /** @{ */
   virtual void toolBrStripIs( IntfId intf, bool strip );
   virtual void toolMplsPopIs( IntfId intf, bool pop );
   virtual void toolVnStripIs( IntfId intf, bool strip );
   virtual bool verifyToolBrStrip( IntfId intf, bool strip );
   virtual bool verifyToolMplsPop( IntfId intf, bool pop );
   virtual bool verifyToolVnStrip( IntfId intf, bool strip );
   /** @} */

   /** @name Settings that a chip need not have
       By default nothing happens. */
   /** @{ */
   virtual void tapMacAddressIs( IntfId, Ulnet::EthAddr ) {}
   virtual void tapHeaderRemoveIs( IntfId, U32 ) {}
   virtual void tapGreStripIs( IntfId, bool ) {}
   virtual void tapGreStripForEpIs( IntfId, const Ulnet::IpGenAddr &, bool ) {}
   virtual void tapVxlanStripIs( IntfId, bool ) {}
   virtual void tapMplsPopIs( IntfId, bool ) {}
   virtual void toolDot1qRemoveIs( IntfId, U8 ) {}
   /** @} */

 private:
   void missing( const char * hook ) const;
   void missingToolHook( const char * hook ) const;
};

} // namespace Qon
