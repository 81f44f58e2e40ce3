#pragma once
// One mirror session, and the state machines nested in it.
//
//    KivTargetIntf, KivSrcIntf ----claim----> port ----review----> hooks, SessionStatus
//        a configured interface               of the session: one that several claim is
//        claims itself, or its members        programmed once, as an aggregate says
//
// A port's source belongs to the aggregate that claims it first, then to its own configuration. A
// destination that is a member of an aggregate is one by the aggregate alone.
//
// Life: claims are made -> a group, from the pool or from a session that goes -> destinations, of
// which the first makes the session in hardware (createdInHw) -> sources -> ... -> prepareToDie():
// sources, tunnel, destinations, and the group for whoever waits.
//
// Ownership: owned by MirroringSm, whom it points back to; alive after that only as long as a
// question about it waits, and nothing then.

#include "Qon/include/mirroring/QonMirroringSm.h"

namespace Qon {

class MirroringSm::KivMirroringSession : public QonBaseSm {
 public:
   class KivIntf;
   class KivSource;
   class KivSrcIntf;
   class KivSrcVxlanIntf;
   class KivTargetIntf;
   class KivTunnel;
   class KivGreTunnel;
   class KivVxlanTunnel;
   using Config = Mirroring::SessionConfig;
   using Direction = Mirroring::Direction;
   using TunnelType = Mirroring::TunnelType;

   KivMirroringSession( MirroringSm * mirroringSm, const String & name,
                        Velto::Ptr< const Config > config );
   ~KivMirroringSession() override;

   void handleInitialized() override;
   void kivDoZombieReactors() override;
   /** The session goes: out of hardware, and its group to whoever waits for one. */
   void prepareToDie();

   const String & name() const { return name_; }
   const Config * config() const { return config_.ptr(); }
   S32 mirrorGroup() const { return mirrorGroup_; }
   /** Once, with a group. */
   void mirrorGroupIs( S32 mg );
   bool hasGroup() const { return mirrorGroup_ != Mirroring::mirrorGroupInvalid(); }
   bool createdInHw() const { return createdInHw_; }
   /** What hooks are given as the egress id. */
   int egressId() const { return counts_.tx() ? mirrorGroup_ : -1; }

   /** How many sources are over the limit. */
   U32 overflowLogged() const { return overflowLogged_; }
   /** How many are kept out by cut-through mode. */
   U32 invalidOverlapLogged() const { return invalidOverlapLogged_; }
   /** Whether one of them was said, and not yet that all is well. */
   bool resourceMessageLogged() const { return resourceMessageLogged_; }

   /** The record of a source port, or null. */
   const MirrorSrcIntfLocal * srcIntfLocal( IntfId port ) const;
   /** The record of a destination port, or null. */
   const MirrorDstIntfLocal * dstIntfLocal( IntfId port ) const;
   std::vector< IntfId > sourcePorts() const;
   std::vector< IntfId > targetPorts() const;
   /** The configured interface that the port is a source by; null if it is none. */
   IntfId sourceOf( IntfId port ) const;
   /** The tunnel's state machine; null if none is configured. */
   const KivTunnel * tunnel() const { return tunnel_.ptr(); }

   void handleTruncation();
   void handleHeaderRemoval();
   void handleRxSampleRate();
   void handleGrePayloadType();
   void handleGreTimestamping();
   void handleTxGreMetadata();
   void handleRateLimit();
   void handlePortMirroringDisabled();

   String brokenInvariant() const;

 private:
   friend class MirroringSm;

   /** The sources in hardware. */
   struct Counts {
      U32 rxOnly = 0, txOnly = 0, both = 0;
      U32 rx() const { return rxOnly + both; }
      U32 tx() const { return txOnly + both; }
      U32 uni() const { return rxOnly + txOnly; }
      void change( Direction direction, S32 by );
   };
   /** Who claims a source port, whose it is first: the aggregates, then its own configuration. Mostly
       one, which takes no room of its own. */
   class Claims {
    public:
      bool empty() const { return first_ == nullptr; }
      KivSource * front() const { return first_; }
      void add( KivSource * by );
      void remove( KivSource * by );

    private:
      KivSource * first_ = nullptr;
      std::vector< KivSource * > others_;
   };
   struct SourcePort {
      Claims claims;
      MirrorSrcIntfLocal local;
   };
   struct Gone {
      IntfId port;
      MirrorSource before;
      MirrorOverflow why;
   };
   struct TargetPort {
      std::vector< KivTargetIntf * > claims;
      MirrorDstIntfLocal local;
   };

   Velto::Ptr< KivSrcIntf >
   makeSrcIntf( const IntfId & intf, const Velto::Ptr< const Mirroring::SrcIntfConfig > & config );
   void cleanUpSrcIntf( const IntfId & intf, KivSrcIntf * sm );
   Velto::Ptr< KivSrcVxlanIntf >
   makeSrcVxlanIntf( const IntfId & intf,
                     const Velto::Ptr< const Mirroring::SrcVxlanIntfConfig > & config );
   void cleanUpSrcVxlanIntf( const IntfId & intf, KivSrcVxlanIntf * sm );
   Velto::Ptr< KivTargetIntf > makeTargetIntf( const IntfId & intf, const bool & wanted );
   void cleanUpTargetIntf( const IntfId & intf, KivTargetIntf * sm );

   // What is heard: a question each
   void ask( What what, IntfId intf = {} );
   void handleSrcIntf( const IntfId & intf ) { ask( What::srcIntf, intf ); }
   void handleSrcVxlanIntf( const IntfId & intf ) { ask( What::srcVxlanIntf, intf ); }
   void handleTargetIntf( const IntfId & intf ) { ask( What::targetIntf, intf ); }
   void handleTunnel() { ask( What::tunnel ); }
   void handleRateLimitSet( const String & set );
   void handleAclStatus( const IntfId & port ) { ask( What::aclStatus, port ); }
   void handleAttribute( const char * handler );

   // Answers
   void reviewConfigured();
   void reviewSrcIntf( IntfId intf );
   void reviewSrcVxlanIntf( IntfId intf );
   void reviewTargetIntf( IntfId intf );
   void reviewMember( IntfId lag, IntfId port );
   /** The ports of a configured interface, if it is one, that are others than itself. */
   template< class Act >
   static void forEachOther( const KivIntf * configured, Act && act );
   /** The interface, or what is known of it, has changed. */
   void revaluate( IntfId intf );
   void reviewSettings( IntfId intf );
   void reviewAcl( Acl::AclType type, const String & name );
   void reviewAclStatus( IntfId port );
   void reviewHwSession();
   void reviewAclRoom();
   void reviewAttributes();

   /** Brings the session into hardware as far as it can be: group, destinations, sources. */
   void program();
   bool unfinished() const { return unfinished_; }
   bool takeGroup( Velto::FirstError & error );
   void takeKept( const Kept & kept );
   /** What it leaves in hardware, if it leaves all. */
   Kept left() const;
   /** Runs `act`, and then the sources if it made the session in hardware. */
   template< class Act >
   void thenSources( Act && act ) {
      const U32 before = creations_;
      Velto::FirstError error;
      error.run( act );
      if ( createdInHw_ && creations_ != before ) {
         error.run( [&] { reviewSources(); } );
      }
      error.pass();
   }

   // Destinations
   bool tunnelWanted() const { return config_->tunnel().type() != TunnelType::none; }
   void reviewDestinations();
   void reviewTarget( IntfId port );
   MirrorReason targetWanted( IntfId port, const TargetPort & target ) const;
   void addTarget( IntfId port, TargetPort & target, Velto::FirstError & error );
   void removeTargets( const std::vector< IntfId > & ports, Velto::FirstError & error );
   std::vector< IntfId > programmedTargets() const;
   void publishTarget( IntfId port );
   void createdInHwIs( bool v );
   void changedInHw();
   void makeTunnel( TunnelType type );
   void reviewTunnel();
   void removeTunnel( Velto::FirstError & error );
   void claimTarget( IntfId port, KivTargetIntf * by );
   void unclaimTarget( IntfId port, KivTargetIntf * by );

   // Sources
   void reviewSource( IntfId port );
   void reviewSource( IntfId port, SourcePort & source );
   void reviewSources();
   MirrorReason sourceWanted( IntfId port, SourcePort & source );
   MirrorReason reasonOf( IntfId port, SourcePort & source, Velto::FirstError & error );
   void removeChanged( IntfId port, MirrorSrcIntfLocal & local, Velto::FirstError & error );
   MirrorOverflow addIfItFits( IntfId port, MirrorSrcIntfLocal & local, Velto::FirstError & error );
   void askOthers( const MirrorSource & before, const MirrorSrcIntfLocal & local );
   void addSource( IntfId port, MirrorSrcIntfLocal & local, Velto::FirstError & error );
   void removeSource( IntfId port, MirrorSrcIntfLocal & local, Direction direction, bool going,
                      Velto::FirstError & error );
   /** What keeps a source of that direction out. */
   MirrorOverflow checkSrcOverflow( Direction direction ) const;
   MirrorOverflow overflowOf( const Counts & counts ) const;
   void overflowStateIs( IntfId port, MirrorSrcIntfLocal & local, MirrorOverflow state );
   void overflowLoggedIs( U32 overflows );
   void invalidOverlapLoggedIs( U32 overlaps );
   void reviewWaiting();
   void reviewEach( const std::vector< IntfId > & ports, Velto::FirstError & error );
   void judgeSources( bool programmedFirst );
   std::vector< Gone > thoseThatGo( const std::vector< IntfId > & ports ) const;
   void publishSource( IntfId port, const MirrorSrcIntfLocal & local );
   void publishEgress();
   void claimSource( IntfId port, KivSource * by );
   void unclaimSource( IntfId port, KivSource * by );

   Mirroring::SessionStatus * status() const;
   String trace() const { return "session " + name_; }

   MirroringSm * const root_;
   const String name_;
   const Velto::Ptr< const Config > config_;
   Velto::Ptr< Mirroring::SessionStatus > status_; // from the first step of program() on
   S32 mirrorGroup_ = Mirroring::mirrorGroupInvalid();
   bool live_ = false;       // between its start and its end
   bool unfinished_ = false; // program() raised
   bool starting_ = false;   // claims are only noted
   bool createdInHw_ = false;
   U32 creations_ = 0;    // how often it came to be there
   bool leaving_ = false; // the last destination goes, and sources before it
   bool waitLogged_ = false;
   bool resourceMessageLogged_ = false;
   U32 overflowLogged_ = 0;
   U32 invalidOverlapLogged_ = 0;
   U32 targetsInHw_ = 0;
   Counts counts_;
   Kiv::DenseMap< Acl::AclType, Kiv::Nothing > tcamProfiles_; // asked for
   Kiv::OrderedMap< IntfId, Kiv::Nothing > overflowed_;
   Kiv::DenseMap< IntfId, SourcePort > sources_;
   Kiv::DenseMap< IntfId, TargetPort > targets_;
   Velto::Ptr< KivTunnel > tunnel_;
   SmCollection< IntfId, Velto::Ptr< const Mirroring::SrcIntfConfig >, KivSrcIntf,
                 KivMirroringSession, &KivMirroringSession::makeSrcIntf,
                 &KivMirroringSession::cleanUpSrcIntf >
         srcIntf_;
   SmCollection< IntfId, Velto::Ptr< const Mirroring::SrcVxlanIntfConfig >, KivSrcVxlanIntf,
                 KivMirroringSession, &KivMirroringSession::makeSrcVxlanIntf,
                 &KivMirroringSession::cleanUpSrcVxlanIntf >
         srcVxlanIntf_;
   SmCollection< IntfId, bool, KivTargetIntf, KivMirroringSession,
                 &KivMirroringSession::makeTargetIntf, &KivMirroringSession::cleanUpTargetIntf >
         targetIntf_;

   template< class Attr, typename Kiv::HandlerOf< Attr, KivMirroringSession >::Type handler >
   using On = Kiv::Watch< Attr, KivMirroringSession, handler >;
   using Self = KivMirroringSession;
   On< Config::srcIntfAttr, &Self::handleSrcIntf > srcIntfWatch_;
   On< Config::srcVxlanIntfAttr, &Self::handleSrcVxlanIntf > srcVxlanIntfWatch_;
   On< Config::targetIntfAttr, &Self::handleTargetIntf > targetIntfWatch_;
   On< Config::tunnelAttr, &Self::handleTunnel > tunnelWatch_;
   On< Config::truncateAttr, &Self::handleTruncation > truncateWatch_;
   On< Config::truncationSizeAttr, &Self::handleTruncation > truncationSizeWatch_;
   On< Config::headerRemovalSizeAttr, &Self::handleHeaderRemoval > headerRemovalWatch_;
   On< Config::rxSampleRateAttr, &Self::handleRxSampleRate > rxSampleRateWatch_;
   On< Config::grePayloadTypeAttr, &Self::handleGrePayloadType > grePayloadTypeWatch_;
   On< Config::greTimestampingAttr, &Self::handleGreTimestamping > greTimestampingWatch_;
   On< Config::txGreMetadataAttr, &Self::handleTxGreMetadata > txGreMetadataWatch_;
   On< Config::rateLimitAttr, &Self::handleRateLimit > rateLimitWatch_;
   On< Config::portMirroringDisabledAttr, &Self::handlePortMirroringDisabled > disabledWatch_;
   On< Config::mirrorSessRateLimitSetAttr, &Self::handleRateLimitSet > rateLimitSetWatch_;
   On< Mirroring::SessionHwStatus::aclStatusAttr, &Self::handleAclStatus > aclStatusWatch_;
};

/** A configured interface, and the ports that it leads to: itself, or the members of an aggregate. */
class MirroringSm::KivMirroringSession::KivIntf : public QonBaseSm {
 public:
   KivIntf( KivMirroringSession * session, IntfId intf ) : session_( session ), intf_( intf ) {}

   IntfId intf() const { return intf_; }
   /** Whether it leads to other ports than itself. */
   virtual bool aggregate() const;
   /** Claims the port, or not, as the aggregate's list has it now. */
   void reviewMember( IntfId port );
   std::vector< IntfId > ports() const;

 protected:
   enum class First : U8 { gone, missing };
   /** Claims every port that it leads to, or none; `first` says what of a difference comes first. */
   void claimAll( bool claim, First first, Velto::FirstError & error );
   /** The session is to take the port for this interface, or to leave it. */
   virtual void claimIs( IntfId port, bool claim ) = 0;

   KivMirroringSession * const session_;

 private:
   void claimMembers( bool members, bool itself, First first, Velto::FirstError & error );
   bool holds( IntfId port ) const { return port == intf_ ? itself_ : members_.portHas( port ); }
   void hold( IntfId port, bool claim );

   const IntfId intf_;
   bool itself_ = false; // is claimed
   QonPortList members_;
   bool used_ = false;
};

/** An interface that is configured as a source: claims the ports that it leads to. */
class MirroringSm::KivMirroringSession::KivSource : public KivIntf {
 public:
   using KivIntf::KivIntf;

   /** What each of its ports shall be. */
   virtual MirrorSource wanted() const = 0;
   /** Claims every port that it leads to, or none. */
   void addOrRemoveSource( bool add );

 protected:
   void settingsChanged() { session_->ask( What::settings, intf() ); }

 private:
   void claimIs( IntfId port, bool claim ) override;
};

class MirroringSm::KivMirroringSession::KivSrcIntf : public KivSource {
 public:
   using Config = Mirroring::SrcIntfConfig;
   KivSrcIntf( KivMirroringSession * session, Velto::Ptr< const Config > config );

   void handleInitialized() override;
   MirrorSource wanted() const override;

 private:
   /** Whatever changes of the configuration matters alike. */
   static void handleSettings( void * self, const Kiv::Entity &, int, const void * ) {
      static_cast< KivSrcIntf * >( self )->settingsChanged();
   }

   const Velto::Ptr< const Config > config_;
   Kiv::EntityWatch configWatch_;
};

/** A VXLAN interface as a source: one port, received frames of its networks. */
class MirroringSm::KivMirroringSession::KivSrcVxlanIntf : public KivSource {
 public:
   using Config = Mirroring::SrcVxlanIntfConfig;
   KivSrcVxlanIntf( KivMirroringSession * session, Velto::Ptr< const Config > config );

   void handleInitialized() override;
   MirrorSource wanted() const override;
   bool aggregate() const override { return false; }

 private:
   void handleDirection() { settingsChanged(); }
   void handleVni( const U32 & ) { settingsChanged(); }

   const Velto::Ptr< const Config > config_;
   Kiv::Watch< Config::directionAttr, KivSrcVxlanIntf, &KivSrcVxlanIntf::handleDirection >
         directionWatch_;
   Kiv::Watch< Config::vniAttr, KivSrcVxlanIntf, &KivSrcVxlanIntf::handleVni > vniWatch_;
};

/** An interface that is configured as a destination: claims the ports that it leads to. */
class MirroringSm::KivMirroringSession::KivTargetIntf : public KivIntf {
 public:
   using KivIntf::KivIntf;

   void handleInitialized() override;
   void addOrRemoveTarget( bool add );
   /** Says once of a destination of an internal session that the chip has no room for it. */
   void checkOverflow( IntfId port, bool failed );

 private:
   void claimIs( IntfId port, bool claim ) override;
};

/** The tunnel of a session: idle, or in hardware.
    idle --(group, reconciled, resolved)--> create --(changes)--> update --(unresolved, gone)--> remove */
class MirroringSm::KivMirroringSession::KivTunnel : public QonBaseSm {
 public:
   explicit KivTunnel( KivMirroringSession * session ) : session_( session ) {}

   virtual TunnelType type() const = 0;
   bool programmed() const { return programmed_; }
   bool failed() const { return failed_; }
   /** As it is in hardware. */
   const Mirroring::TunnelInfo & info() const { return info_; }
   const Tunnel::Resolution & resolution() const { return resolution_; }
   /** Whether it can be in hardware now. */
   bool ready() const;
   void review();
   /** Takes it out of hardware. */
   void remove( Velto::FirstError & error );
   /** An earlier life left it in hardware; it is made anew in its place. */
   void leftIs() { left_ = true; }
   bool left() const { return left_; }
   bool held() const { return programmed_ || left_; }

 private:
   Tunnel::Resolution wantedResolution() const;
   void create();
   void update();

   KivMirroringSession * const session_;
   bool programmed_ = false;
   bool left_ = false;
   bool failed_ = false;
   Mirroring::TunnelInfo info_;
   Tunnel::Resolution resolution_;
   Mirroring::SessionAttributes attributes_;
};

class MirroringSm::KivMirroringSession::KivGreTunnel : public KivTunnel {
 public:
   using KivTunnel::KivTunnel;
   TunnelType type() const override { return TunnelType::gre; }
};

class MirroringSm::KivMirroringSession::KivVxlanTunnel : public KivTunnel {
 public:
   using KivTunnel::KivTunnel;
   TunnelType type() const override { return TunnelType::vxlan; }
};

} // namespace Qon
