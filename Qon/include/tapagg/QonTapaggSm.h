#pragma once
// Tap aggregation in hardware: frames of tap ports go to the tool ports of their groups.
//
//    TapAggConfig ------> TapAggSm --1:n--> TapAggTapSm, TapAggToolSm       (TapAggIntfSm.h)
//    PolicyMapConfig --->  |  |  ^ --1:n--> TapAggPolicyMapSm, ...          (TapAggPolicyMapSm.h)
//    acsd: mode, LAGs -->  |  |  `- questions: one at a time
//                          |  `-> groups: names -> ids, or pending          (TapAggRecords.h)
//                          |          one clock a second after the last change, one five seconds
//                          v          after the last port
//                    TapAggHelper: the chip       PmapGroupStatus, HostFlush::RequestDir
//
// Whatever changes becomes a question ("what shall be of tap port Ethernet3?"). Questions are answered
// one after the other: what is wanted now is compared with what the chip was told, hooks are called.
//
// Invariants
// 1. Outside of tap-aggregation mode nobody uses a group and no port is set up, whatever is
//    configured. A member of a port-channel uses none.
// 2. A name has one group of the hardware at most. It is pending, or has one, never both.
// 3. A group is freed by the clean-up that a second without changes brings, if nobody uses it by
//    then; and only when no port is in it. Until then it keeps its id, whoever comes back to it.
// 4. Who is pending is tried again, by name, after a clean-up that freed something, and when the mode
//    is entered.
// 5. The hardware is cleaned up when the mode has been left and no port was set up for five seconds.
//    hwInit is not called twice without a clean-up in between.
// 6. A change costs as much, whatever the number of other groups, ports and policy maps.
// 7. While initialized() is false nothing is asked; the start after that asks everything. A step that
//    was begun is finished.
// 8. doCleanup() takes everything out of hardware; destruction calls no hook.
//
// Reads of the shared data: operationalMode, portToLag, lagToPort. Writes: none.
// Ownership: counts its inputs and outputs; owns the machines of ports and policy maps.

#include "Qon/include/framework/LagView.h"
#include "Qon/include/framework/SmCollection.h"
#include "Qon/include/framework/WorkQueue.h"
#include "Qon/include/tapagg/TapAggIntfSm.h"
#include "Qon/include/tapagg/TapAggPolicyMapSm.h"
#include "platform/Kiv/Clock.h"

namespace Qon {

class TapAggSm : public QonBaseSm, public Checked {
   KIV_BODY( TapAggSm, QonBaseSm )
   KIV_ENTITIES( U32, AllocatedGroupInfo, allocatedGroupInfo )
   KIV_ENTITIES( Ulnet::IntfId, AllocatedPortInfo, allocatedPortInfo )
   KIV_ORDERED_MAP( String, bool, pendingAggGroup )
   KIV_ATTR( U16, initedTapPortCount, 0 )
   KIV_ATTR( U16, initedToolPortCount, 0 )
   KIV_MAP( Ulnet::IntfId, Ulnet::IntfId, portToLag ) // as it was heard last
 public:
   using IntfId = Ulnet::IntfId;
   using FlushKey = Bridging::HostFlush::FlushKey;

   /** What it works with. All must be there but verifyData. */
   struct Inputs {
      Velto::Ptr< QonCommonSmData > acsd;
      Velto::Ptr< const Bridging::Input::TapAggConfig > tapAggConfig;
      Velto::Ptr< TapAggHelper > helper;
      Velto::Ptr< const TapAgg::Status > status;
      Velto::Ptr< const TapAgg::ToolPortStatus > toolPortStatus;
      Velto::Ptr< const TapAgg::PmapGroupConfig > pmapGroupConfig;
      Velto::Ptr< TapAgg::PmapGroupStatus > pmapGroupStatus;
      Velto::Ptr< const TapAgg::PolicyMapConfig > policyMapConfig;
      Velto::Ptr< Bridging::HostFlush::RequestDir > flushRequests;
      Velto::Ptr< const Bridging::HostFlush::ReplyDir > flushReplies;
      Velto::Ptr< VerifyData > verifyData;
      Kiv::TimerWheel * wheel = Kiv::TimerWheel::current();
   };
   explicit TapAggSm( Inputs inputs );
   ~TapAggSm() override;

   void handleInitialized() override;
   void kivDoZombieReactors() override;
   /** Whether the hardware may be cleaned up: no port is set up. */
   virtual bool readyForHwCleanup();
   /** @name For whoever keeps a history
       Called after the fact; they change nothing. */
   /** @{ */
   /** The name has got a group, or lost it, or is pending, or is so no more. */
   virtual void groupStateChanged( const String & name ) { (void)name; }
   /** The port has been set up, or taken back. */
   virtual void portStateChanged( const TapAggIntfSm & sm ) { (void)sm; }
   /** @} */

   /** Takes all ports and groups out of hardware, and cleans it up at once; `initialized` is false
       afterwards, and going to true begins anew. */
   void doCleanup();

   const Inputs & inputs() const { return in_; }
   const Bridging::Input::TapAggConfig * tapAggConfig() const { return in_.tapAggConfig.ptr(); }
   /** In tap-aggregation mode, as far as it has been acted upon. */
   bool active() const { return active_; }
   /** hwInit was called, and hwCleanup not since. */
   bool hwInited() const { return hwInited_; }
   /** No frame is longer for the chip; 0: no bound. */
   U32 maxFrameSize() const { return maxFrameSize_; }
   /** Of a configured port, or null. */
   TapAggTapSm * tapSm( IntfId intf ) const { return taps_.sm( intf ); }
   TapAggToolSm * toolSm( IntfId intf ) const { return tools_.sm( intf ); }
   TapAggPolicyMapSm * policyMapSm( const String & name ) const { return policyMaps_.sm( name ); }
   TapAggServicePolicySm * servicePolicySm( IntfId intf ) const {
      return servicePolicies_.sm( intf );
   }
   LagView lagView() const { return LagView( in_.acsd.ptr() ); }

   /** @name Groups */
   /** @{ */
   /** Asks the chip for a group: its id, or 0 (then the name is pending). Who wants the one that there
       may be already, asks groupIdOf() first. */
   U32 createTapAggGroup( const String & name );
   /** Frees the group, which is `owner`'s and has no interfaces; nothing for an id of 0, or one that
       is not allocated. */
   void releaseTapAggGroup( const String & owner, U32 id );
   /** The group has its id: whoever uses the name takes it up. */
   void updateTapAggGroup( const String & name, U32 id, const AllocatedGroupInfo::Ptr & info );
   /** The same for the owner of a group that is allocated. */
   void updateTapAggGroupInternal( U32 id );
   /** Whether some tap port, tool port or policy map uses the group of that name. */
   bool groupInUse( const String & name ) const { return users_.has( name ); }
   /** The id of the name's group; 0 is none. */
   U32 groupIdOf( const String & name ) const;
   const TapAggUsers & users() const { return users_; }
   /** How often a name that is pending was asked for again. */
   U64 retries() const { return retries_; }
   /** Winds up the clock of the clean-up, for a second from now. */
   void scheduleGroupCleanup();
   Kiv::Seconds groupCleanupTime() const { return groupCleanupClock_->time(); }
   /** @} */

   /** @name The hardware's clean-up */
   /** @{ */
   /** Winds up its clock, or stops it, as the mode and the ports are now. */
   void doMaybeScheduleHwCleanup();
   Kiv::Seconds hwCleanupTime() const { return hwCleanupClock_->time(); }
   void initedTapPortCountInc( S32 change );
   void initedToolPortCountInc( S32 change );
   /** @} */

   /** @name What is heard */
   /** @{ */
   void handleMode();
   void handleTapPort( const IntfId & intf );
   void handleToolPort( const IntfId & intf );
   void handleTapRawIntf( const IntfId & intf );
   void handleToolGroupMembership( const IntfId & intf );
   void handleActiveToolPortChange( const IntfId & intf );
   void handlePmapGroupConfig( const String & name );
   void handlePolicyMap( const String & name );
   void handleServicePolicy( const IntfId & intf );
   void handleTrafficSteeringMacAclMatchIp();
   void handleTcamProfile();
   void handlePortToLag( IntfId port, IntfId from, IntfId to );
   void handleLagToPort( IntfId lag, IntfId port );
   void handleFlushReply( const FlushKey & key );
   void handleGroupCleanupTime();
   void handleHwCleanupTime();
   /** @} */

   /** The port joined the port-channel, or left it. */
   void addOrRemoveLagPort( IntfId lag, IntfId port, bool add );
   /** Asks for a flush of the addresses behind a port-channel, if it is a tap or tool port. */
   void flushLag( IntfId lag );

   String checkInvariants() const override;
   /** Asks the chip whether it holds what it was told, a finding for each that it does not. */
   void handleVerify();
   void verifyNoTapPort( const TapAggTapSm & sm );
   void verifyNoToolPort( const TapAggToolSm & sm );

 private:
   friend class TapAggIntfSm;
   friend class TapAggTapSm;
   friend class TapAggToolSm;
   friend class TapAggClassMapSm;
   friend class TapAggPolicyMapSm;

   enum class What : U8 {
      start,         // everything, as at the start
      mode,          // is the mode another one?
      left,          // the mode was left: what remains to be done
      tcamProfile,   // does the chip know the profile?
      pmapGroup,     // has the group of the policy maps an id?
      tapPort,       // what shall be of the port?
      toolPort,      // likewise
      policyMap,     // is there such a map?
      servicePolicy, // likewise
      classMap,      // what does the class use?
      pending,       // can those that are pending have a group?
      groupCleanup,  // which groups does nobody use?
      hwCleanup,     // may the hardware be cleaned up?
      stop,          // everything goes
      stopped,       // ... and has gone
   };
   struct Question {
      What what;
      IntfId intf = {};
      String name = {};
      String classMap = {};
   };
   void later( What what, IntfId intf = {}, String name = "", String classMap = "" ) {
      questions_.add( { what, intf, std::move( name ), std::move( classMap ) } );
   }
   /** later(), then settle(). */
   void ask( const Question & question );
   void settle();
   void drain();
   void take( const Question & question );
   void answer( const Question & question );
   void askPort( TapAggRole role, IntfId intf );

   // Start, mode, end
   void start();
   bool reviewMode();
   void enter();
   void askAll();
   void restAll();
   template< class Config, class Collection >
   void askKeys( What what, Config && configured, const Collection & held );
   void left();
   void stop();
   void stopped();
   void reviewTcamProfile();
   void askMaxFrameSize();
   void cleanUpHardware();
   void forgetHardware();

   // Ports
   Velto::Ptr< TapAggTapSm >
   makeTap( const IntfId & intf,
            const Velto::Ptr< const Bridging::Input::TapPortConfig > & config );
   Velto::Ptr< TapAggToolSm >
   makeTool( const IntfId & intf,
             const Velto::Ptr< const Bridging::Input::ToolPortConfig > & config );
   void cleanUpTap( const IntfId &, TapAggTapSm * sm ) { cleanUpPort( *sm ); }
   void cleanUpTool( const IntfId &, TapAggToolSm * sm ) { cleanUpPort( *sm ); }
   void cleanUpPort( TapAggIntfSm & sm );
   void reviewTapPort( IntfId intf );
   void reviewToolPort( IntfId intf );
   /** A truncation that the chip can do. */
   U32 bounded( U32 size ) const {
      return maxFrameSize_ && size > maxFrameSize_ ? maxFrameSize_ : size;
   }
   /** Whether the port shall be set up. */
   bool serves( const TapAggIntfSm & sm ) const;
   /** Of what an operation on port-channels is called for. */
   bool isNoMember( IntfId lag ) const;
   void initedCountInc( const TapAggIntfSm & sm, S32 change );
   template< class Collection >
   static std::vector< const TapAggHwPort * > hwPorts( const Collection & ports );

   // Groups
   /** The id of the name's group, which is asked for unless it is pending; 0 is none. */
   U32 groupFor( const String & name );
   void groupIs( const String & name, U32 id );
   void groupIsPending( const String & name );
   void useIs( const String & name, const TapAggIntfSm & sm, bool use );
   void useIs( const String & name, const TapAggClassKey & key, bool use );
   void pmapUseIs( const String & name, bool use );
   template< class Act >
   void changeUse( const String & name, Act && act );
   void askUsers( const String & name );
   void reviewPmapGroup( const String & name );
   void noteGroup( U32 id, IntfId intf );
   void ownerIs( const AllocatedGroupInfo::Ptr & info, const String & name );
   void portGroupDel( IntfId intf, const String & name );
   bool inGroup( IntfId intf, U32 id ) const;
   void retryPending();
   void dropUnusedPending();
   void cleanUpGroups();
   void cleanUpGroup( const AllocatedGroupInfo::Ptr & info );
   void prune( const AllocatedGroupInfo::Ptr & info );
   void raiseHwResourceFull();
   String brokenGroup( U32 id, const AllocatedGroupInfo & info ) const;
   String brokenGroups() const;
   String brokenPorts() const;
   void verifyGroups();

   // Policy maps
   Velto::Ptr< TapAggPolicyMapSm >
   makePolicyMap( const String & name, const Velto::Ptr< const TapAgg::PolicyMap > & config );
   void cleanUpPolicyMap( const String &, TapAggPolicyMapSm * sm ) { sm->removeAll(); }
   Velto::Ptr< TapAggServicePolicySm >
   makeServicePolicy( const IntfId & intf,
                      const Velto::Ptr< const TapAgg::ServicePolicy > & config );
   void cleanUpServicePolicy( const IntfId &, TapAggServicePolicySm * ) {}

   const Inputs in_;
   WorkQueue< Question > questions_;
   bool active_ = false;
   bool hwInited_ = false;
   bool stopping_ = false;
   U32 maxFrameSize_ = 0;
   bool maxFrameSizeStale_ = false; // another profile came since it was asked
   String tcamProfile_;             // as the chip was told last
   Kiv::DenseMap< String, U32 > groupIds_;
   TapAggUsers users_;
   bool released_ = false; // a group was freed, and those that are pending were not asked since
   bool cleaning_ = false;
   bool retrying_ = false;
   bool saidFull_ = false; // in this retry
   U64 retries_ = 0;
   VerifyCheck check_;
   SmCollection< IntfId, Velto::Ptr< const Bridging::Input::TapPortConfig >, TapAggTapSm, TapAggSm,
                 &TapAggSm::makeTap, &TapAggSm::cleanUpTap >
         taps_{ this };
   SmCollection< IntfId, Velto::Ptr< const Bridging::Input::ToolPortConfig >, TapAggToolSm,
                 TapAggSm, &TapAggSm::makeTool, &TapAggSm::cleanUpTool >
         tools_{ this };
   SmCollection< String, Velto::Ptr< const TapAgg::PolicyMap >, TapAggPolicyMapSm, TapAggSm,
                 &TapAggSm::makePolicyMap, &TapAggSm::cleanUpPolicyMap >
         policyMaps_{ this };
   SmCollection< IntfId, Velto::Ptr< const TapAgg::ServicePolicy >, TapAggServicePolicySm, TapAggSm,
                 &TapAggSm::makeServicePolicy, &TapAggSm::cleanUpServicePolicy >
         servicePolicies_{ this };
   Kiv::ClockReactor< TapAggSm, &TapAggSm::handleGroupCleanupTime > groupCleanupClock_;
   Kiv::ClockReactor< TapAggSm, &TapAggSm::handleHwCleanupTime > hwCleanupClock_;

   template< class Attr, typename Kiv::HandlerOf< Attr, TapAggSm >::Type handler >
   using On = Kiv::Watch< Attr, TapAggSm, handler >;
   using Config = Bridging::Input::TapAggConfig;
   On< QonCommonSmData::operationalModeAttr, &TapAggSm::handleMode > modeWatch_;
   On< Config::tapPortAttr, &TapAggSm::handleTapPort > tapPortWatch_;
   On< Config::toolPortAttr, &TapAggSm::handleToolPort > toolPortWatch_;
   On< Config::tapRawIntfAttr, &TapAggSm::handleTapRawIntf > tapRawIntfWatch_;
   On< Config::tcamProfileAttr, &TapAggSm::handleTcamProfile > tcamProfileWatch_;
   On< Config::trafficSteeringMacAclMatchIpAttr, &TapAggSm::handleTrafficSteeringMacAclMatchIp >
         matchIpWatch_;
   On< TapAgg::ToolPortStatus::activeAttr, &TapAggSm::handleActiveToolPortChange > activeWatch_;
   On< TapAgg::PmapGroupConfig::groupAttr, &TapAggSm::handlePmapGroupConfig > pmapGroupWatch_;
   On< TapAgg::PolicyMapConfig::policyMapAttr, &TapAggSm::handlePolicyMap > policyMapWatch_;
   On< TapAgg::PolicyMapConfig::servicePolicyAttr, &TapAggSm::handleServicePolicy >
         servicePolicyWatch_;
   On< Bridging::HostFlush::ReplyDir::replyAttr, &TapAggSm::handleFlushReply > flushReplyWatch_;
   LagFollower< TapAggSm, &TapAggSm::handlePortToLag, &TapAggSm::handleLagToPort > lags_;
};

Velto::Ptr< TapAggSm > TapAggSmIs( TapAggSm::Inputs inputs );

} // namespace Qon
