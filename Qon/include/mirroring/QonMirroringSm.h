#pragma once
// Mirror sessions in hardware: each gets a mirror group from the agent's pool, its destinations,
// and its sources.
//
//    Mirroring::Config --> MirroringSm --1:n--> KivMirroringSession --1:n--> KivTargetIntf
//    HwCapability, HwStatus -->  |  ^                   |           --0:1--> KivGreTunnel, KivVxlanTunnel
//    acsd: the pool, LAGs     -->|  |                   |           --1:n--> KivSrcIntf, KivSrcVxlanIntf
//    ACLs, tunnels, ports     -->|  `--- questions ----/            (MirroringSession.h)
//                                v
//                     MirroringSmHelper: the chip       Mirroring::Status, acsd: groups by name
//
// Whatever changes becomes a question ("what shall be of Ethernet3 in this session?"). Questions are
// answered one after the other: what is wanted now is compared with what is in hardware, hooks are
// called, and the outcome is published.
//
// Invariants
// 1. A group is free in the pool, or one session's; never both, never two sessions'. While a session
//    waits for a group the pool is empty. Which one waits longest is the configuration's order.
// 2. A source is in hardware only while its session is, as the chip was told last.
// 3. The sources of a session that are in hardware fit (MirroringSmHelper::sourcesFit), and no
//    source that is kept out would fit beside them.
// 4. A message about a condition comes once on the way into it; all sessions together have one
//    message for the way out, when no source is kept out any more.
// 5. A change of one source costs as much, whatever the number of sessions and sources.
// 6. While initialized() is false nothing is asked; the start after that asks everything. A step that
//    was begun is finished.
// 7. doCleanup() takes everything out of hardware; destruction calls no hook.
//
// Reads of the shared data: portToLag, lagToPort. Writes: freeMirrorSession, mirrorSessionNameToId,
// mirrorSessionNameToEgressId.
// Ownership: counts its inputs; owns the sessions, which own what is nested in them and point back
// without counting.

#include <functional>

#include "Qon/include/framework/LagView.h"
#include "Qon/include/framework/SmCollection.h"
#include "Qon/include/framework/WorkQueue.h"
#include "Qon/include/mirroring/MirrorRecords.h"
#include "Qon/include/mirroring/MirroringSmHelper.h"
#include "platform/types/ForwardingMode.h"

namespace Qon {

class MirroringSm : public QonBaseSm, public Checked {
 public:
   using IntfId = Ulnet::IntfId;
   class KivMirroringSession;
   class KivIntfStatus;
   class KivAcl;
   class KivAclType;

   /** What it works with. Those of the second group may be null: there are no access lists then, no
       tunnel resolves, frames are stored and forwarded, ports have no status, and there is nothing to
       reconcile with. */
   struct Inputs {
      Velto::Ptr< QonCommonSmData > acsd;
      Velto::Ptr< const Mirroring::Config > config;
      Velto::Ptr< const Mirroring::HwCapability > capability;
      Velto::Ptr< Mirroring::Status > status;
      Velto::Ptr< MirroringSmHelper > helper;

      Velto::Ptr< Mirroring::HwStatus > hwStatus;
      Velto::Ptr< const Acl::Config > aclConfig;
      Velto::Ptr< const Tunnel::Status > tunnelStatus;
      Velto::Ptr< const Bridging::ForwardingModeConfig > forwardingMode;
      Velto::Ptr< const Interface::EthPhyIntfStatusDir > phyStatus;
      Velto::Ptr< VerifyData > verifyData;
   };
   explicit MirroringSm( Inputs inputs );
   ~MirroringSm() override;

   void handleInitialized() override;
   void kivDoZombieReactors() override;

   /** Takes all sessions out of hardware; the pool has every group again. Begins anew when
       `initialized` goes to true once more. While the agent restarts the hardware stays as it is. */
   void doCleanup();
   /** Lets the chip read its counters. */
   void updateCounters();

   /** Of a session that is configured; null while the hardware has no sessions at all. */
   KivMirroringSession * session( const String & name ) const { return sessions_.sm( name ); }
   U32 sessions() const { return sessions_.size(); }
   /** The place of a session among those that wait for a group, from 1; 0: it does not wait. */
   U32 placeInQueue( const String & name ) const;
   /** How many sessions the hardware has. */
   U32 maxSessions() const { return max_; }

   const Inputs & inputs() const { return in_; }
   String checkInvariants() const override;
   /** Asks the chip about every destination, a finding for each that it does not hold. */
   void handleVerify();

   void handleMaxSupportedSessions();
   void handleSession( const String & name );

 private:
   friend class KivMirroringSession;
   friend class KivIntfStatus;
   friend class KivAcl;
   friend class KivAclType;
   using SessionPtr = Velto::Ptr< KivMirroringSession >;

   enum class What : U8 {
      start,   // everything, as at the start
      pool,    // how many groups are there?
      session, // is there such a session?
      srcIntf, // is the interface configured as a source?
      srcVxlanIntf,
      targetIntf, // ... as a destination?
      settings,   // how is the source configured?
      member,     // does the aggregate lead to the port?
      intf,       // what shall be of the interface, wherever it is used?
      tunnel,     // ... of the session's tunnel?
      tunnels,    // ... of those to this end?
      attributes, // does the hardware have the session's attributes?
      acl,        // ... the list, wherever it is used?
      aclStatus,  // did the port's filter go in?
      hwSession,  // which entity tells of the session's filters?
      waiting,    // do sources fit that are kept out?
      judge,      // ... of all sessions, by other limits, or another forwarding mode?
      aclRoom,    // is there room for filters that had none?
      stop,       // everything goes
   };
   struct Work {
      static Work of( What what, const String & name ) { return { what, nullptr, {}, {}, name }; }

      What what;
      SessionPtr session = nullptr;
      IntfId intf = {};
      IntfId port = {};
      String name = {}; // of the session, the access list, or the tunnel's end
      Acl::AclType aclType = Acl::AclType::ip;
   };
   /** When what is asked already has its answer. */
   void later( Work work );
   /** Now, unless another question is just being answered. */
   void ask( const Work & work );
   void settle();
   void drain();
   /** For hooks that no question calls: what changes within them is looked at after them. */
   void during( const std::function< void() > & now );
   void answer( const Work & work );
   void answerIfHeard( const Work & work );
   void answerAll( What what );
   void judgeIfChanged();

   // The pool, and what an earlier life left
   /** A session that the hardware holds, and that is still configured; or was left there while the
       agent restarted. */
   struct Kept {
      S32 mirrorGroup;
      Mirroring::TunnelType tunnelType;
      std::vector< IntfId > targets;
      std::vector< std::pair< IntfId, Mirroring::Direction > > sources;
   };
   void reviewPool();
   void start();
   void readHardware( std::vector< std::pair< String, Kept > > & stale );
   void fillPool();
   void removeFromHardware( const String & name, const Kept & kept );
   bool keeps( U32 mirrorGroup ) const;
   void dropKept();
   void resize( U32 was );
   void poolIsWithout( const std::function< bool( U32 ) > & goes, Velto::FirstError & error );
   bool ownPool() const { return !agentFills_; }
   /** The group is nobody's any more: for whoever waits, or for the pool. */
   void groupFree( S32 mirrorGroup, const KivMirroringSession * of );
   KivMirroringSession * firstWaiting( const KivMirroringSession * except ) const;

   void verify( KivMirroringSession & session );

   // Sessions
   Velto::Ptr< KivMirroringSession >
   makeSession( const String & name, const Velto::Ptr< const Mirroring::SessionConfig > & config );
   void cleanUpSession( const String & name, KivMirroringSession * session );
   void reviewSession( const String & name );
   void reviewSessions();
   void clearStaleStatus();

   // What is used by whom
   /** An interface's users, mostly one session. */
   struct Users {
      struct Use {
         KivMirroringSession * session = nullptr;
         U32 times = 0;
      };
      Use first;
      std::vector< Use > others;
      Use & of( KivMirroringSession * session );
      void leave( KivMirroringSession * session );
   };
   void useIs( IntfId intf, KivMirroringSession * session );
   void useDel( IntfId intf, KivMirroringSession * session );
   std::vector< SessionPtr > usersOf( IntfId intf ) const;
   /** Calls `act( KivMirroringSession & )` for each user, whichever raises. */
   template< class Act >
   void forEachUser( IntfId intf, Act && act ) const {
      auto users = users_.find( intf );
      if ( users && users->others.empty() ) {
         const SessionPtr only = users->first.session;
         act( *only );
      } else if ( users ) {
         forEachOf( usersOf( intf ), act );
      }
   }
   std::vector< SessionPtr > allSessions() const;
   /** Calls `act( KivMirroringSession & )` for each, whichever raises. */
   template< class Act >
   static void forEachOf( const std::vector< SessionPtr > & sessions, Act && act ) {
      Velto::FirstError error;
      for ( const SessionPtr & session : sessions ) {
         error.run( [&] { act( *session ); } );
      }
      error.pass();
   }

   // Inputs
   void reviewInputs();
   void laterAcl( Acl::AclType type, const String & name );
   void aclChanged( Acl::AclType type, const String & name );
   bool isValid( IntfId intf, bool isDestination ) const;
   const Acl::AclConfig * acl( Acl::AclType type, const String & name ) const;
   bool reconciled() const { return !in_.hwStatus || in_.hwStatus->reconciled(); }
   bool cutThrough() const;
   void handleMember( IntfId lag, IntfId port );
   void handlePort( IntfId port, IntfId from, IntfId to );
   void handleIntfStatus( const IntfId & intf );
   void handleAclType( const Acl::AclType & type );
   void handleResolution( const Tunnel::Endpoint & endpoint );
   void handleForwardingMode();
   void handleSourceLimits();
   void handleReconciled();
   void handleHwSession( const String & name );
   Velto::Ptr< KivIntfStatus >
   makeIntfStatus( const IntfId & intf,
                   const Velto::Ptr< const Interface::EthPhyIntfStatus > & status );
   void cleanUpIntfStatus( const IntfId &, KivIntfStatus * ) {}
   Velto::Ptr< KivAclType > makeAclType( const Acl::AclType & type,
                                         const Velto::Ptr< const Acl::TypeConfig > & config );
   void cleanUpAclType( const Acl::AclType & type, KivAclType * sm );

   // Messages
   /** So many sources more, or fewer, are kept out. */
   void overflowsAre( S32 change ) { overflows_ += U32( change ); }
   /** Filters that had no room may have some now. */
   void askAclRoom();
   /** Says that all sources are in hardware, if one was kept out. */
   void reviewInvalidSources();

   const Inputs in_;
   WorkQueue< Work > work_;
   U32 max_ = 0;
   bool started_ = false;
   bool agentFills_ = false;
   bool stopped_ = false;
   bool aclRoomAsked_ = false;
   bool judgedCutThrough_ = false; // the mode, and the limits, by which sources were judged last
   U32 judgedLimits_ = 0;
   U32 overflows_ = 0; // of all sessions
   std::vector< std::pair< String, Kept > > kept_;
   Kiv::DenseMap< IntfId, Users > users_;
   VerifyCheck check_;
   SmCollection< IntfId, Velto::Ptr< const Interface::EthPhyIntfStatus >, KivIntfStatus,
                 MirroringSm, &MirroringSm::makeIntfStatus, &MirroringSm::cleanUpIntfStatus >
         intfStatus_;
   SmCollection< Acl::AclType, Velto::Ptr< const Acl::TypeConfig >, KivAclType, MirroringSm,
                 &MirroringSm::makeAclType, &MirroringSm::cleanUpAclType >
         aclTypes_;
   SmCollection< String, Velto::Ptr< const Mirroring::SessionConfig >, KivMirroringSession,
                 MirroringSm, &MirroringSm::makeSession, &MirroringSm::cleanUpSession >
         sessions_;
   Kiv::Watch< Mirroring::Config::sessionAttr, MirroringSm, &MirroringSm::handleSession >
         sessionWatch_;
   Kiv::Watch< Mirroring::HwCapability::maxSupportedSessionsAttr, MirroringSm,
               &MirroringSm::handleMaxSupportedSessions >
         maxWatch_;
   Kiv::Watch< Mirroring::HwCapability::sourceLimitsVersionAttr, MirroringSm,
               &MirroringSm::handleSourceLimits >
         limitsWatch_;
   Kiv::Watch< Mirroring::HwStatus::reconciledAttr, MirroringSm, &MirroringSm::handleReconciled >
         reconciledWatch_;
   Kiv::Watch< Mirroring::HwStatus::sessionAttr, MirroringSm, &MirroringSm::handleHwSession >
         hwSessionWatch_;
   Kiv::Watch< Acl::Config::typeAttr, MirroringSm, &MirroringSm::handleAclType > aclWatch_;
   Kiv::Watch< Tunnel::Status::resolutionAttr, MirroringSm, &MirroringSm::handleResolution >
         tunnelWatch_;
   Kiv::Watch< Bridging::ForwardingModeConfig::forwardingModeAttr, MirroringSm,
               &MirroringSm::handleForwardingMode >
         modeWatch_;
   Kiv::Watch< Interface::EthPhyIntfStatusDir::intfStatusAttr, MirroringSm,
               &MirroringSm::handleIntfStatus >
         phyWatch_;
   LagFollower< MirroringSm, &MirroringSm::handlePort, &MirroringSm::handleMember > lags_;
};

Velto::Ptr< MirroringSm > MirroringSmIs( MirroringSm::Inputs inputs );

} // namespace Qon
