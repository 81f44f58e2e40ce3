#include "simulation/SimMirror.h"

#include <algorithm>

#include "simulation/SimLag.h"
#include "simulation/World.h"

namespace Sim {

using Mirroring::Direction;
using Mirroring::TunnelType;
using Ulnet::IntfId;

/** The chip's hooks; tells the simulation of every call, and changes things within. */
class SimMirror::Helper : public SoftChip::SoftMirroringHelper {
 public:
   template< class... Args >
   explicit Helper( SimMirror * sim, Args &&... args )
       : SoftMirroringHelper( std::forward< Args >( args )... ), sim_( sim ) {}

   bool createMirror( const String & name, int group, int egressId, IntfId port,
                      bool update ) override {
      Told & told = sim_->told_[name];
      sim_->misuseIf( update != !told.targets.empty(), "update of " + name );
      sim_->misuseIf( told.tunnel, "destination beside the tunnel of " + name );
      const bool done = SoftMirroringHelper::createMirror( name, group, egressId, port, update );
      if ( done ) {
         told.group = group;
         told.creations += told.targets.empty();
         told.targets.insert( port );
         told.refusedTargets.erase( port );
         sim_->words_.refusalSaid.erase( { name, port } );
      } else {
         told.refusedTargets.insert( port );
         if ( mirroringSm()->session( name )->config()->internal() ) {
            sim_->words_.refused.insert( { name, port } );
         }
      }
      sim_->called();
      return done;
   }
   bool removeMirror( const String & name, int group, int egressId,
                      const Qon::QonPortList & ports ) override {
      Told & told = sim_->told_[name];
      for ( IntfId port : ports ) {
         sim_->misuseIf( !told.targets.erase( port ), "no destination " + port.stringValue() );
      }
      sim_->misuseIf( told.targets.empty() && !told.sources.empty(), "sources left of " + name );
      SoftMirroringHelper::removeMirror( name, group, egressId, ports );
      sim_->called();
      return true;
   }
   bool createGreTunnelMirror( const String & name, int group, int egressId,
                               const Mirroring::TunnelInfo & tunnel,
                               const Tunnel::Resolution & resolution ) override {
      Told & told = sim_->told_[name];
      sim_->misuseIf( !told.targets.empty(), "tunnel beside the destinations of " + name );
      const bool done =
            SoftMirroringHelper::createGreTunnelMirror( name, group, egressId, tunnel, resolution );
      told.refusedTunnel = !done;
      if ( done ) {
         told.group = group;
         told.creations += !told.tunnel || told.left != TunnelType::none;
         told.tunnel = true;
         told.left = TunnelType::none;
      }
      sim_->called();
      return done;
   }
   bool updateGreTunnelMirror( const String & name, int group, int egressId,
                               const Mirroring::TunnelInfo & tunnel,
                               const Tunnel::Resolution & resolution ) override {
      const Told & told = sim_->told_[name];
      sim_->misuseIf( !told.tunnel || told.left != TunnelType::none,
                      "update of no tunnel of " + name );
      return createGreTunnelMirror( name, group, egressId, tunnel, resolution );
   }
   bool removeGreTunnelMirror( const String & name, int group, int egressId ) override {
      Told & told = sim_->told_[name];
      sim_->misuseIf( !told.tunnel, "no tunnel of " + name );
      sim_->misuseIf( !told.sources.empty(), "sources left of " + name );
      told.tunnel = false;
      told.left = TunnelType::none;
      SoftMirroringHelper::removeGreTunnelMirror( name, group, egressId );
      sim_->called();
      return true;
   }
   bool addSourceToHardware( const String & name, int group, int egressId, IntfId port,
                             Direction direction ) override {
      Told & told = sim_->told_[name];
      sim_->misuseIf( told.targets.empty() && !told.tunnel, "source of no session " + name );
      sim_->misuseIf( told.left != TunnelType::none, "source of what is left of " + name );
      sim_->misuseIf( Mirroring::has( direction, Direction::tx ) && egressId != group,
                      "egress id of " + name );
      told.refusedSources.erase( port ); // the filter may be looked at within the call
      const bool done =
            SoftMirroringHelper::addSourceToHardware( name, group, egressId, port, direction );
      if ( done ) {
         const auto & wanted = mirroringSm()->session( name )->srcIntfLocal( port )->wanted();
         told.sources[port] = direction;
         told.filters[port] = { wanted.aclName(), wanted.filter().aclVersion };
      } else {
         told.refusedSources.insert( port );
      }
      sim_->called();
      return done;
   }
   bool removeSourceFromHardware( const String & name, int group, int egressId, IntfId port,
                                  Direction direction, bool going ) override {
      Told & told = sim_->told_[name];
      auto held = told.sources.find( port );
      sim_->misuseIf( held == told.sources.end() || held->second != direction,
                      "no source " + port.stringValue() + " of " + name );
      told.sources.erase( port );
      told.filters.erase( port );
      SoftMirroringHelper::removeSourceFromHardware( name, group, egressId, port, direction,
                                                     going );
      sim_->called();
      return true;
   }

 private:
   void filterDone( const String & name, IntfId port, bool applied ) override {
      auto & words = sim_->words_;
      auto known = words.aclKnown.find( { name, port } );
      const bool isKnown =
            known != words.aclKnown.end() && known->second == sim_->config_->session( name );
      if ( applied ) {
         words.aclKnown.erase( { name, port } );
         if ( words.aclRefused.contains( { name, port } ) ) {
            words.aclRefused[{ name, port }] = true;
         }
      } else {
         sim_->told_[name].refusedSources.insert( port );
         if ( !isKnown ) {
            words.aclRefused[{ name, port }] = false;
         }
         ++words.filtersRefused;
      }
      SoftMirroringHelper::filterDone( name, port, applied );
   }

   SimMirror * sim_;
};

std::span< const Operation >
SimMirror::operations() {
   static const Operation table[] = {
         { "session", 14, { Range::few }, &SimMirror::sessionIs },
         { "no-session", 6, { Range::few }, &SimMirror::sessionDel },
         { "recreate", 3, { Range::few, Range::intf }, &SimMirror::recreate },
         { "target", 20, { Range::few, Range::intf }, &SimMirror::targetIs },
         { "no-target", 8, { Range::few, Range::intf }, &SimMirror::targetDel },
         { "source", 50, { Range::few, Range::intf, Range::few }, &SimMirror::sourceIs },
         { "no-source", 18, { Range::few, Range::intf }, &SimMirror::sourceDel },
         { "filter", 14, { Range::few, Range::intf, Range::few }, &SimMirror::filterIs },
         { "vxlan", 3, { Range::few, Range::few }, &SimMirror::vxlanIs },
         { "tunnel", 8, { Range::few, Range::few, Range::few }, &SimMirror::tunnelIs },
         { "attribute", 5, { Range::few, Range::few }, &SimMirror::attributeIs },
         { "acl", 8, { Range::few, Range::few }, &SimMirror::aclIs },
         { "resolution", 8, { Range::few, Range::few }, &SimMirror::resolutionIs },
         { "member", 12, { Range::lag, Range::port, Range::flag }, &SimMirror::memberIs },
         { "active", 8, { Range::port, Range::few }, &SimMirror::activeIs },
         { "max", 3, { Range::few }, &SimMirror::maxIs },
         { "limits", 3, { Range::few, Range::few }, &SimMirror::limitsAre },
         { "mode", 2, { Range::flag }, &SimMirror::modeIs },
         { "latency", 2, { Range::few }, &SimMirror::latencyIs },
         { "finish", 10, { Range::few }, &SimMirror::finish },
         { "nested", 4, { Range::few, Range::hundred }, &SimMirror::nestedIs },
         { "pause", 2, { Range::flag }, &SimMirror::pause },
         { "restart", 1, { Range::few }, &SimMirror::restart },
   };
   return table;
}

SimMirror::SimMirror( World & world )
    : SimFeature( world ), table_( world.chip->of< SoftChip::MirrorPart >().table() ),
      config_( Velto::make< Mirroring::Config >( "config" ) ),
      capability_( Velto::make< Mirroring::HwCapability >( "capability" ) ),
      hwStatus_( Velto::make< Mirroring::HwStatus >( "hwStatus" ) ),
      status_( Velto::make< Mirroring::Status >( "status" ) ),
      acls_( Velto::make< Acl::Config >( "acls" ) ),
      tunnels_( Velto::make< Tunnel::Status >( "tunnels" ) ),
      mode_( Velto::make< Bridging::ForwardingModeConfig >( "mode" ) ),
      phy_( Velto::make< Interface::EthPhyIntfStatusDir >( "phy" ) ),
      queue_( [this]( const String & what ) { misuseIf( true, what ); } ) {
   capability_->agentFillsPoolIs( world.chance( 60 ).percent( 20 ) );
}

SimMirror::~SimMirror() = default;

void
SimMirror::shape( const World & world, SoftChip::Shape & shape ) {
   Rng rng = world.chance( 61 );
   shape.mirrors = { rng.between( 1, 5 ), U8( rng.between( 1, 4 ) ), U8( rng.between( 1, 6 ) ),
                     rng.between( 1, 8 ) };
}

void
SimMirror::start() {
   queue_.follow( world_.acsd.ptr() );
   if ( capability_->agentFillsPool() ) {
      world_.acsd->freeMirrorSessionDelAll();
      for ( U32 id = 0; id < table_.sessionsAtMost(); ++id ) {
         world_.acsd->freeMirrorSessionEnq( U8( 17 - id ) );
      }
   }
   helper_ = Velto::make< Helper >( this, table_, capability_, hwStatus_ );
   queue_.start( table_.sessionsAtMost(), capability_->agentFillsPool(), heldGroups( true ),
                 heldGroups( false ) );
   sm_ = Qon::MirroringSmIs( { world_.acsd, config_, capability_, status_, helper_, hwStatus_,
                               acls_, tunnels_, mode_, phy_, nullptr } );
   sm_->initializedIs( true );
}

void
SimMirror::stop() {
   sm_->doCleanup();
   sm_ = nullptr;
   helper_ = nullptr;
}

/** Down and up again over what the chip holds: with a clean-up, or without. */
void
SimMirror::restart( const Event & event ) {
   if ( event[0] % 2 ) {
      beginAnew();
      sm_->doCleanup();
      if ( !table_.sessions().empty() || status_->sessions() ) {
         world_.report( "mirror", "clean-up: a session is left" );
      }
      queue_.start( table_.sessionsAtMost(), capability_->agentFillsPool(), {}, {} );
      sm_->initializedIs( true );
      return;
   }
   kill( Ending::midway );
   start();
}

void
SimMirror::beginAnew() {
   paused_ = false;
   nested_ = 0;
   words_ = {};
   words_.disturbed = true;
}

void
SimMirror::kill( Ending ending ) {
   if ( ending == Ending::planned ) {
      sm_->doCleanup(); // which leaves everything as it is
   }
   beginAnew();
   sm_ = nullptr;
   helper_ = nullptr;
   if ( table_.sessionsAtMost() == 0 ) { // a chip without sessions starts with none
      for ( auto & [name, session] : SoftChip::MirrorTable::Sessions( table_.sessions() ) ) {
         for ( auto & [port, none] : session.targets ) {
            table_.targetDel( name, port );
         }
         if ( session.tunnel.type() != TunnelType::none ) {
            table_.tunnelDel( name );
         }
         told_.erase( name );
      }
   }
   for ( auto & [name, session] : table_.sessions() ) {
      told_[name].left = session.tunnel.type();
   }
}

bool
SimMirror::ready() {
   return true;
}

void
SimMirror::misuseIf( bool wrong, const String & what ) {
   if ( wrong ) {
      world_.report( "mirror", "misuse: " + what );
   }
}

/** Within a call: one more change, now and then. */
void
SimMirror::called() {
   if ( nested_ && !inHook_ ) {
      words_.disturbed = inHook_ = true;
      change( U32( ++serial_ ) * 7 + nested_-- );
      inHook_ = false;
   }
}

void
SimMirror::change( U32 what ) {
   Event event;
   event.args = { what / 5, what / 3, what, 0, 0 };
   switch ( what % 7 ) {
   case 0:
      sessionDel( event );
      return;
   case 1:
      recreate( event );
      return;
   case 2:
      sourceDel( event );
      return;
   case 3:
      targetDel( event );
      return;
   case 4:
      memberIs( event );
      return;
   case 5:
      sessionIs( event );
      return;
   default:
      sourceIs( event );
      return;
   }
}

// --- Configuration -------------------------------------------------------------------------------

Velto::Ptr< Mirroring::SessionConfig >
SimMirror::session( const Event & event ) const {
   return config_->session( name( event[0] ) );
}

void
SimMirror::sessionIs( const Event & event ) {
   config_->sessionIs( name( event[0] ) );
}

void
SimMirror::sessionDel( const Event & event ) {
   config_->sessionDel( name( event[0] ) );
}

void
SimMirror::recreate( const Event & event ) {
   sessionDel( event );
   config_->sessionIs( name( event[0] ) )->targetIntfIs( world_.intf( event[1] ) );
}

void
SimMirror::targetIs( const Event & event ) {
   if ( auto config = session( event ) ) {
      config->targetIntfIs( world_.intf( event[1] ) );
   }
}

void
SimMirror::targetDel( const Event & event ) {
   if ( auto config = session( event ) ) {
      config->targetIntfDel( world_.intf( event[1] ) );
   }
}

void
SimMirror::sourceIs( const Event & event ) {
   if ( auto config = session( event ) ) {
      const Direction direction = Direction( event[2] % 4 );
      config->srcIntfIs( world_.intf( event[1] ), direction )->directionIs( direction );
   }
}

void
SimMirror::sourceDel( const Event & event ) {
   if ( auto config = session( event ) ) {
      config->srcIntfDel( world_.intf( event[1] ) );
   }
}

void
SimMirror::filterIs( const Event & event ) {
   auto config = session( event );
   const Velto::Ptr< Mirroring::SrcIntfConfig > source =
         config ? config->srcIntf( world_.intf( event[1] ) ) : nullptr;
   if ( source ) {
      words_.disturbed = true; // not what was, and not yet what shall be
      source->aclTypeIs( Acl::AclType( event[2] / 2 % 2 ) );
      source->aclNameIs( event[2] == 7 ? "" : "acl" + std::to_string( event[2] % 2 ) );
      source->aclPriorityIs( event[2] / 4 );
   }
}

void
SimMirror::vxlanIs( const Event & event ) {
   if ( auto config = session( event ) ) {
      const IntfId vxlan( "Vxlan1" );
      if ( event[1] == 7 ) {
         config->srcVxlanIntfDel( vxlan );
      } else if ( event[1] % 2 ) {
         config->srcVxlanIntfIs( vxlan )->vniIs( event[1] );
      } else {
         config->srcVxlanIntfIs( vxlan )->vniDel( event[1] + 1 );
      }
   }
}

Ulnet::IpGenAddr
SimMirror::farEnd( U32 i ) const {
   return Ulnet::IpGenAddr::ipv4( 0x0a000000 + i % 3 );
}

void
SimMirror::tunnelIs( const Event & event ) {
   if ( auto config = session( event ) ) {
      Mirroring::TunnelInfo info;
      info.typeIs( TunnelType( event[1] % 3 ) );
      if ( info.type() != TunnelType::none ) {
         info.dstIs( farEnd( event[2] ) );
         info.ttlIs( U8( event[1] ) );
         info.forwardDropIs( event[2] == 7 );
      }
      config->tunnelIs( info );
   }
}

void
SimMirror::attributeIs( const Event & event ) {
   if ( auto config = session( event ) ) {
      config->internalIs( event[1] / 2 % 2 );
      config->truncateIs( event[1] % 2 );
      config->rateLimitIs( event[1] );
   }
}

void
SimMirror::aclIs( const Event & event ) {
   const String acl = "acl" + std::to_string( event[0] % 2 );
   const auto type = Acl::AclType( event[0] / 2 % 2 );
   if ( event[1] == 0 ) {
      acls_->typeDel( type );
   } else if ( event[1] == 1 ) {
      acls_->typeIs( type )->aclDel( acl );
   } else {
      acls_->typeIs( type )->aclIs( acl )->versionIs( event[1] );
   }
}

void
SimMirror::resolutionIs( const Event & event ) {
   const Tunnel::Endpoint end( farEnd( event[0] ), "" );
   if ( event[1] < 2 ) {
      tunnels_->resolutionDel( end );
   } else {
      tunnels_->resolutionIs( end, { world_.port( event[1] ), {}, {} } );
   }
}

/** Where no aggregates are simulated; else they come from there. */
void
SimMirror::memberIs( const Event & event ) {
   if ( world_.feature< SimLag >() ) {
      return;
   }
   words_.disturbed = true;
   const IntfId lag = world_.lag( event[0] ), port = world_.port( event[1] );
   auto & acsd = *world_.acsd;
   auto list = [&]( IntfId of, bool there ) {
      auto members = acsd.lagToPort( of );
      there ? members.portIs( port, Qon::QonLagPort( true, true ) ) : members.portDel( port );
      acsd.lagToPortIs( of, members );
   };
   if ( const IntfId now = acsd.portToLag( port ) ) {
      list( now, false );
      acsd.portToLagDel( port );
   }
   if ( event[2] % 2 ) {
      list( lag, true );
      acsd.portToLagIs( port, lag );
   }
}

void
SimMirror::activeIs( const Event & event ) {
   const IntfId port = world_.port( event[0] );
   words_.disturbed = true;
   if ( event[1] == 0 ) {
      phy_->intfStatusDel( port );
   } else {
      auto status = phy_->intfStatusIs( port );
      status->activeIs( event[1] > 2 );
      status->speedIs( Interface::EthSpeed( event[1] ) );
   }
}

// --- The chip ------------------------------------------------------------------------------------

void
SimMirror::maxIs( const Event & event ) {
   auto limits = table_.limits();
   limits.sessions = event[0];
   table_.limitsAre( limits );
   if ( !paused_ ) {
      queue_.resize( table_.sessionsAtMost() );
   }
   helper_->limitsChanged();
}

void
SimMirror::limitsAre( const Event & event ) {
   auto limits = table_.limits();
   limits.biDirSources = U8( event[0] );
   limits.uniDirSources = U8( event[1] );
   table_.limitsAre( limits );
   helper_->limitsChanged();
}

void
SimMirror::modeIs( const Event & event ) {
   mode_->forwardingModeIs( event[0] % 2 ? Bridging::ForwardingMode::cutThrough
                                         : Bridging::ForwardingMode::storeAndForward );
}

void
SimMirror::latencyIs( const Event & event ) {
   world_.chip->of< SoftChip::MirrorPart >().latencyIs( event[0] < 4 ? 0
                                                        : event[0] < 6
                                                              ? 0.01
                                                              : Kiv::Seconds( Kiv::never ) );
   if ( event[0] < 6 ) {
      table_.completions().finishAll();
   }
}

void
SimMirror::finish( const Event & event ) {
   if ( const U32 waiting = table_.completions().waiting() ) {
      table_.completions().finish( event[0] % waiting );
   }
}

void
SimMirror::nestedIs( const Event & event ) {
   nested_ = event[0] % 3;
   serial_ = event[1];
}

/** Nothing is heard meanwhile. */
void
SimMirror::pause( const Event & event ) {
   paused_ = event[0] % 2;
   if ( !paused_ ) {
      words_.disturbed = true;
      queue_.resize( capability_->maxSupportedSessions() );
   }
   sm_->initializedIs( !paused_ );
}

void
SimMirror::faultsIs( bool on ) {
   if ( !on ) {
      world_.chip->of< SoftChip::MirrorPart >().latencyIs( 0 );
      table_.completions().finishAll();
      nested_ = 0;
   }
}

void
SimMirror::tearDown() {
   nested_ = 0;
   paused_ = false;
   words_.disturbed = true;
   queue_.resize( capability_->maxSupportedSessions() );
   sm_->initializedIs( true );
   config_->sessionDelAll();
   table_.completions().finishAll();
   if ( !world_.feature< SimLag >() ) {
      world_.acsd->portToLagDelAll();
      world_.acsd->lagToPortDelAll();
   }
}

String
SimMirror::checkTornDown() const {
   auto & acsd = *world_.acsd;
   return !table_.sessions().empty() || status_->sessions() || acsd.mirrorSessionNameToIds() ||
                      acsd.mirrorSessionNameToEgressIds() || sm_->sessions()
                ? "left over: a session, without configuration"
                : "";
}

void
SimMirror::drawFaults( Rng & rng, std::vector< String > & lines ) const {
   for ( const char * hook :
         { "createMirror", "createMirrorTunnel", "addMirrorSource", "mirrorFilter" } ) {
      lines.push_back( hook + String( " fail 0 0 " ) + often( rng, 150 ) );
   }
}

FeatureKind
simMirror() {
   return featureKindOf< SimMirror >( "mirror" );
}

} // namespace Sim
