#include "simulation/SimTapAgg.h"

#include "Qon/include/framework/QonLog.h"
#include "simulation/SimLag.h"
#include "simulation/SimMode.h"
#include "simulation/SimTopology.h"
#include "simulation/World.h"

namespace Sim {

using Bridging::Input::TapGroups;
using Bridging::Input::ToolIdentityMode;
using Ulnet::IntfId;

/** The chip's hooks; looks at groups that come and go, and changes things within. */
class SimTapAgg::Helper : public SoftChip::SoftTapAggHelper {
 public:
   Helper( SimTapAgg * sim, SoftChip::TapAggTable & table )
       : SoftTapAggHelper( table ), sim_( sim ) {}

   void hwInit() override {
      const bool twice = sim_->table_.held().inited && !sim_->stale_;
      complainIf( twice, "the chip is set up twice" );
      sim_->stale_ = false;
      SoftTapAggHelper::hwInit();
      sim_->hookHeard();
   }
   void hwCleanup() override {
      SoftTapAggHelper::hwCleanup();
      sim_->hookHeard();
   }
   U32 allocateAggGroup( const String & name ) override {
      const U32 id = SoftTapAggHelper::allocateAggGroup( name );
      if ( id && sim_->sm_->pendingAggGroupHas( name ) ) {
         for ( auto && [other, pending] : sim_->sm_->pendingAggGroupIteratorConst() ) {
            complainIf( other < name && sim_->sm_->groupInUse( other ),
                        name + " gets a group before " + other );
         }
      }
      sim_->hookHeard();
      return id;
   }
   void deallocateAggGroup( U32 group ) override {
      auto held = sim_->table_.held().groups.find( group );
      const String name = held == sim_->table_.held().groups.end() ? "" : held->second;
      auto used = sim_->lastUse_.find( name );
      complainIf( !sim_->stopping_ && used != sim_->lastUse_.end() &&
                        Kiv::now() - used->second < 0.999999,
                  "group of " + name + " is freed too soon" );
      SoftTapAggHelper::deallocateAggGroup( group );
      sim_->hookHeard();
   }
   U32 getMaxExternalFrameSizeTapAgg() override {
      sim_->left_ = true; // the mode is entered, and may be left before anybody looks
      return SoftTapAggHelper::getMaxExternalFrameSizeTapAgg();
   }
   void tapPortIs( IntfId intf, bool enable, bool isLag ) override {
      complainIf( isLag != Ulnet::PortChannelIntfId::isPortChannelIntfId( intf ), "a tap's kind" );
      SoftTapAggHelper::tapPortIs( intf, enable, isLag );
      sim_->hookHeard();
   }
   void toolPortIs( IntfId intf, bool enable, bool isLag ) override {
      complainIf( isLag != Ulnet::PortChannelIntfId::isPortChannelIntfId( intf ), "a tool's kind" );
      SoftTapAggHelper::toolPortIs( intf, enable, isLag );
      sim_->hookHeard();
   }
   void addTapPortAssociation( IntfId intf, U32 group ) override {
      SoftTapAggHelper::addTapPortAssociation( intf, group );
      sim_->hookHeard();
   }
   void removeToolPortAssociation( IntfId intf, U32 group ) override {
      SoftTapAggHelper::removeToolPortAssociation( intf, group );
      sim_->hookHeard();
   }
   void tapTruncationSizeIs( IntfId intf, U32 size ) override {
      SoftTapAggHelper::tapTruncationSizeIs( intf, size );
      sim_->hookHeard();
   }

 private:
   void complainIf( bool wrong, const String & what ) {
      if ( wrong ) {
         sim_->world_.report( "tapagg", "at a call: " + what );
      }
   }

   SimTapAgg * sim_;
};

FeatureKind
simTapAgg() {
   return featureKindOf< SimTapAgg >( "tapagg" );
}

std::span< const Operation >
SimTapAgg::operations() {
   static const Operation table[] = {
         { "tap", 30, { Range::intf, Range::hundred }, &SimTapAgg::tapIs },
         { "no-tap", 10, { Range::intf }, &SimTapAgg::tapDel },
         { "tool", 40, { Range::intf, Range::few, Range::few }, &SimTapAgg::toolIs },
         { "no-tool", 8, { Range::intf }, &SimTapAgg::toolDel },
         { "recreate", 4, { Range::intf, Range::hundred }, &SimTapAgg::recreate },
         { "tap-setting", 10, { Range::intf, Range::few, Range::few }, &SimTapAgg::tapSetting },
         { "tool-setting", 10, { Range::intf, Range::few, Range::few }, &SimTapAgg::toolSetting },
         { "raw", 3, { Range::intf, Range::flag }, &SimTapAgg::rawIs },
         { "active", 12, { Range::intf, Range::few }, &SimTapAgg::activeIs },
         { "pmap-group", 10, { Range::few, Range::flag }, &SimTapAgg::pmapGroupIs },
         { "class", 12, { Range::few, Range::few, Range::hundred }, &SimTapAgg::classIs },
         { "no-policy-map", 3, { Range::few }, &SimTapAgg::policyMapDel },
         { "service", 3, { Range::intf, Range::few }, &SimTapAgg::serviceIs },
         { "profile", 2, { Range::few }, &SimTapAgg::profileIs },
         { "log", 1, { Range::flag }, &SimTapAgg::logIs },
         { "member", 16, { Range::lag, Range::port, Range::few }, &SimTapAgg::memberIs },
         { "reply", 4, { Range::lag }, &SimTapAgg::reply },
         { "mode", 6, { Range::few }, &SimTapAgg::modeIs },
         { "nested", 4, { Range::few, Range::hundred }, &SimTapAgg::nestedIs },
         { "pause", 2, { Range::flag }, &SimTapAgg::pause },
         { "restart", 1, { Range::few }, &SimTapAgg::restart },
   };
   return table;
}

SimTapAgg::SimTapAgg( World & world )
    : SimFeature( world ), table_( world.chip->of< SoftChip::TapAggPart >().table() ),
      config_( Velto::make< Bridging::Input::TapAggConfig >( "config" ) ),
      status_( Velto::make< TapAgg::Status >( "status" ) ),
      tools_( Velto::make< TapAgg::ToolPortStatus >( "tools" ) ),
      pmapGroups_( Velto::make< TapAgg::PmapGroupConfig >( "pmapGroups" ) ),
      pmapStatus_( Velto::make< TapAgg::PmapGroupStatus >( "pmapStatus" ) ),
      policyMaps_( Velto::make< TapAgg::PolicyMapConfig >( "policyMaps" ) ),
      requests_( Velto::make< Bridging::HostFlush::RequestDir >( "requests" ) ),
      replies_( Velto::make< Bridging::HostFlush::ReplyDir >( "replies" ) ) {}

SimTapAgg::~SimTapAgg() = default;

void
SimTapAgg::shape( const World & world, SoftChip::Shape & shape ) {
   Rng rng = world.chance( 80 );
   shape.tapAgg.groups = rng.percent( 40 ) ? 64 : rng.between( 1, 8 );
   shape.tapAgg.maxFrameSize = rng.percent( 30 ) ? 0 : 300;
}

void
SimTapAgg::start() {
   stale_ = table_.held().inited;
   left_ = true;
   helper_ = Velto::make< Helper >( this, table_ );
   sm_ = Qon::TapAggSmIs( { world_.acsd, config_, helper_, status_, tools_, pmapGroups_,
                            pmapStatus_, policyMaps_, requests_, replies_, nullptr,
                            world_.scheduler.timerWheel() } );
   sm_->initializedIs( true );
}

void
SimTapAgg::stop() {
   stopping_ = true;
   sm_->doCleanup();
   sm_ = nullptr;
   helper_ = nullptr;
}

/** A group that is used at this moment may be freed a second from now, not sooner. */
bool
SimTapAgg::ready() {
   for ( const String & used : namesInUse() ) {
      lastUse_[used] = Kiv::now();
   }
   return true;
}

/** Within a call: one more change, now and then. */
void
SimTapAgg::hookHeard() {
   if ( nested_ && !inHook_ ) {
      inHook_ = true;
      change( ++serial_ * 7 + nested_-- );
      inHook_ = false;
   }
}

void
SimTapAgg::change( U32 what ) {
   Event event;
   event.args = { what / 5, what / 3, what, 0, 0 };
   constexpr void ( SimTapAgg::*changes[] )( const Event & ) = {
         &SimTapAgg::tapIs,    &SimTapAgg::toolIs,   &SimTapAgg::tapDel,
         &SimTapAgg::toolDel,  &SimTapAgg::memberIs, &SimTapAgg::modeIs,
         &SimTapAgg::recreate, &SimTapAgg::classIs,  &SimTapAgg::pmapGroupIs };
   ( this->*changes[what % std::size( changes )] )( event );
}

// --- What happens --------------------------------------------------------------------------------

/** One name mostly, several now and then, or none. */
TapGroups
SimTapAgg::groups( U32 bits ) const {
   TapGroups names;
   if ( bits % 10 ) {
      names.nameIs( name( bits ) );
   }
   if ( bits % 4 == 0 ) {
      names.nameIs( name( bits / 7 ) );
   }
   return names;
}

void
SimTapAgg::tapIs( const Event & event ) {
   config_->tapPortIs( world_.intf( event[0] ) )->groupsIs( groups( event[1] ) );
}

void
SimTapAgg::tapDel( const Event & event ) {
   config_->tapPortDel( world_.intf( event[0] ) );
}

void
SimTapAgg::toolIs( const Event & event ) {
   auto tool = config_->toolPortIs( world_.intf( event[0] ) );
   event[2] % 3 ? tool->groupIs( name( event[1] ) ) : tool->groupDel( name( event[1] ) );
}

void
SimTapAgg::toolDel( const Event & event ) {
   config_->toolPortDel( world_.intf( event[0] ) );
}

/** Gone and back before anything else happens. */
void
SimTapAgg::recreate( const Event & event ) {
   const IntfId intf = world_.intf( event[0] );
   if ( config_->tapPortHas( intf ) ) {
      config_->tapPortDel( intf );
      config_->tapPortIs( intf )->groupsIs( groups( event[1] ) );
   }
   if ( config_->toolPortHas( intf ) ) {
      config_->toolPortDel( intf );
      config_->toolPortIs( intf )->groupIs( name( event[1] ) );
   }
}

void
SimTapAgg::tapSetting( const Event & event ) {
   const Velto::Ptr< Bridging::Input::TapPortConfig > tap =
         config_->tapPort( world_.intf( event[0] ) );
   if ( !tap ) {
      return;
   }
   const U32 value = event[2];
   Bridging::IdentityTuple identity;
   identity.outerIs( U16( value ) );
   identity.innerIs( U16( value / 2 ) );
   switch ( event[1] ) {
   case 0:
      return tap->truncationSizeIs( 100 * value );
   case 1:
      return tap->identityIs( identity );
   case 2:
      return tap->macAddressIs( Ulnet::EthAddr( value ) );
   case 3:
      return tap->headerRemoveIs( value );
   case 4:
      return tap->greStripIs( value % 2 );
   case 5:
      return tap->greStripForEpIs( Ulnet::IpGenAddr::ipv4( value / 2 ), value % 2 );
   case 6:
      return tap->vxlanStripIs( value % 2 );
   default:
      return tap->mplsPopIs( value % 2 );
   }
}

void
SimTapAgg::toolSetting( const Event & event ) {
   const Velto::Ptr< Bridging::Input::ToolPortConfig > tool =
         config_->toolPort( world_.intf( event[0] ) );
   if ( !tool ) {
      return;
   }
   const U32 value = event[2];
   switch ( event[1] ) {
   case 0:
   case 1:
      return tool->truncationSizeIs( 100 * value );
   case 2:
   case 3:
      return tool->identityTaggingIs( ToolIdentityMode( value % 3 ) );
   case 4:
      return tool->dot1qRemoveIs( U8( value % 3 ) );
   case 5:
      return tool->brStripIs( value % 2 );
   case 6:
      return tool->vnStripIs( value % 2 );
   default:
      return tool->mplsPopIs( value % 2 );
   }
}

void
SimTapAgg::rawIs( const Event & event ) {
   const IntfId intf = world_.intf( event[0] );
   event[1] ? config_->tapRawIntfIs( intf ) : config_->tapRawIntfDel( intf );
}

void
SimTapAgg::activeIs( const Event & event ) {
   const IntfId intf = world_.intf( event[0] );
   event[1] < 2 ? tools_->activeDel( intf ) : tools_->activeIs( intf, event[1] % 2 );
}

void
SimTapAgg::pmapGroupIs( const Event & event ) {
   event[1] % 2 ? pmapGroups_->groupIs( name( event[0] ) )
                : pmapGroups_->groupDel( name( event[0] ) );
}

void
SimTapAgg::classIs( const Event & event ) {
   auto map = policyMaps_->policyMapIs( "p" + std::to_string( event[0] % 3 ) );
   const String className = "c" + std::to_string( event[1] % 3 );
   event[2] % 4 ? map->classMapIs( className )->groupsIs( groups( event[2] ) )
                : map->classMapDel( className );
}

void
SimTapAgg::policyMapDel( const Event & event ) {
   policyMaps_->policyMapDel( "p" + std::to_string( event[0] % 3 ) );
}

void
SimTapAgg::serviceIs( const Event & event ) {
   const IntfId intf = world_.intf( event[0] );
   event[1]
         ? policyMaps_->servicePolicyIs( intf )->policyMapIs( "p" + std::to_string( event[1] % 3 ) )
         : policyMaps_->servicePolicyDel( intf );
}

void
SimTapAgg::profileIs( const Event & event ) {
   config_->tcamProfileIs( event[0] % 3 ? "profile" + std::to_string( event[0] ) : "" );
   config_->trafficSteeringMacAclMatchIpIs( event[0] % 2 );
}

void
SimTapAgg::logIs( const Event & event ) {
   status_->logHwResourceFullIs( event[0] );
}

/** Where nobody else says who is a member. */
void
SimTapAgg::memberIs( const Event & event ) {
   if ( world_.feature< SimLag >() ) {
      return;
   }
   auto & acsd = *world_.acsd;
   const IntfId port = world_.port( event[1] ), from = acsd.portToLag( port ),
                to = event[2] % 8 < 3 ? IntfId() : world_.lag( event[0] );
   for ( IntfId lag : { from, to } ) {
      if ( lag ) {
         Qon::QonLagPortList list = acsd.lagToPort( lag );
         lag == to ? list.portIs( port, Qon::QonLagPort( true, true ) ) : list.portDel( port );
         acsd.lagToPortIs( lag, list );
      }
   }
   to ? acsd.portToLagIs( port, to ) : acsd.portToLagDel( port );
}

void
SimTapAgg::reply( const Event & event ) {
   Bridging::HostFlush::FlushKey key;
   key.intfIs( world_.lag( event[0] ) );
   replies_->replyDel( key );
   replies_->replyIs( key );
   if ( !paused_ && requests_->requestHas( key ) ) {
      world_.report( "tapagg", "a flush that was answered waits still" );
   }
}

void
SimTapAgg::modeIs( const Event & event ) {
   auto mode = world_.feature< SimMode >();
   if ( !mode && world_.feature< SimTopology >() ) {
      return; // which does without the mode
   }
   // Other features want to see other modes, too.
   const auto wanted = event[0] % ( mode ? 2 : 4 ) ? Qon::HwOperationalMode::tapAgg
                                                   : Qon::HwOperationalMode( event[0] / 4 % 2 );
   mode ? mode->switchTo( wanted ) : world_.acsd->operationalModeIs( wanted );
}

void
SimTapAgg::nestedIs( const Event & event ) {
   nested_ = event[0];
   serial_ = event[1];
}

void
SimTapAgg::pause( const Event & event ) {
   if ( paused_ != bool( event[0] ) ) {
      left_ = true;
      paused_ = event[0];
      sm_->initializedIs( !paused_ );
   }
}

/** With a clean-up, or over what the chip holds. */
void
SimTapAgg::restart( const Event & event ) {
   if ( event[0] % 2 ) {
      paused_ = false;
      nested_ = 0;
      stopping_ = true;
      sm_->doCleanup();
      stopping_ = false;
      auto & held = table_.held();
      if ( !stale_ && ( held.inited || !held.groups.empty() || !held.taps.empty() ) ) {
         world_.report( "tapagg", "clean-up: something is left" );
      }
      left_ = true;
      sm_->initializedIs( true );
      return;
   }
   kill( Ending::midway );
   start();
}

void
SimTapAgg::kill( Ending ) {
   paused_ = false;
   nested_ = 0;
   sm_ = nullptr;
   helper_ = nullptr;
   table_.tcamProfileIs( "" ); // which a new life does not know of
}

void
SimTapAgg::heard( const Kiv::LogDescriptor & descriptor, const String & ) {
   if ( &descriptor != &Qon::QonLog::TAPAGG_HW_RESOURCE_FULL ) {
      return;
   }
   if ( !status_->logHwResourceFull() || table_.held().groups.size() < table_.groupsAtMost() ) {
      world_.report( "tapagg", "lack of groups is logged, and should not be" );
   }
}

void
SimTapAgg::faultsIs( bool on ) {
   if ( !on && sm_ && paused_ ) {
      paused_ = false;
      left_ = true;
      sm_->initializedIs( true );
   }
}

} // namespace Sim
