#include "simulation/SimAcl.h"

#include "simulation/SimLag.h"
#include "simulation/World.h"

namespace Sim {

using Acl::AclDirection;
using Acl::AclType;
using Bridging::VlanIdOrNone;
using Ulnet::IntfId;

namespace {

constexpr U32 mostDirections = 5; // numbers for more there are not

AclType
typeOf( U32 n ) {
   return Acl::aclTypes[n % 3];
}

String
nameOf( U32 n ) {
   return "list" + std::to_string( n % 3 );
}

} // namespace

std::span< const Operation >
SimAcl::operations() {
   static const Operation table[] = {
         { "attach", 40, { Range::few, Range::hundred, Range::few }, &SimAcl::attach },
         { "detach", 15, { Range::few, Range::hundred }, &SimAcl::detach },
         { "list", 15, { Range::few, Range::few }, &SimAcl::listIs },
         { "no-list", 4, { Range::few, Range::few }, &SimAcl::listDel },
         { "list-again", 4, { Range::few, Range::few, Range::hundred }, &SimAcl::listAgain },
         { "rule", 15, { Range::few, Range::few, Range::few, Range::hundred }, &SimAcl::ruleIs },
         { "no-rule", 5, { Range::few, Range::few, Range::few }, &SimAcl::ruleDel },
         { "type-again", 1, { Range::few, Range::flag }, &SimAcl::typeAgain },
         { "direction-again", 1, { Range::few, Range::flag }, &SimAcl::directionAgain },
         { "sharing", 6, { Range::few, Range::few, Range::few }, &SimAcl::sharingIs },
         { "permit", 2, { Range::few, Range::few }, &SimAcl::permitIs },
         { "mode", 5, { Range::intf, Range::few }, &SimAcl::modeIs },
         { "vlan", 10, { Range::hundred, Range::vlan, Range::few }, &SimAcl::vlanIs },
         { "internal", 8, { Range::hundred, Range::vlan, Range::few }, &SimAcl::internalVlanIs },
         { "swap", 4, { Range::hundred, Range::hundred }, &SimAcl::swap },
         { "join", 12, { Range::lag, Range::port }, &SimAcl::join },
         { "leave", 8, { Range::lag, Range::port }, &SimAcl::leave },
         { "managed", 4, { Range::port, Range::flag }, &SimAcl::managedIs },
         { "count", 1, { Range::few, Range::few }, &SimAcl::count },
         { "session", 6, { Range::flag, Range::few }, &SimAcl::sessionIs },
         { "dp-request", 2, {}, &SimAcl::dpRequest },
         { "host", 10, { Range::hundred, Range::few, Range::few }, &SimAcl::hostIs },
         { "force", 1, {}, &SimAcl::force },
         { "pause", 2, {}, &SimAcl::pause },
         { "finish", 25, { Range::hundred, Range::few }, &SimAcl::finish },
         { "latency", 2, { Range::few }, &SimAcl::latencyIs },
         { "unit", 2, { Range::flag, Range::flag }, &SimAcl::unitIs },
         { "restart", 1, { Range::few }, &SimAcl::restart },
   };
   return table;
}

void
SimAcl::shape( const World & world, SoftChip::Shape & shape ) {
   Rng rng = world.chance( 40 );
   shape.acls.async = rng.percent( 40 );
   shape.acls.asyncBlock = rng.percent( 40 );
   shape.acls.raclSharing = rng.percent( 50 );
   shape.acls.icmpv6Rules = rng.percent( 50 );
   shape.acls.perHost = rng.percent( 80 );
   shape.acls.deferred = rng.percent( 50 );
}

SimAcl::SimAcl( World & world )
    : SimFeature( world ), chip_( world.chip->of< SoftChip::AclPart >() ) {
   chip_.table().changeHeardBy( [this] { checkMoment(); } );
   Rng rng = world.chance( 41 );
   for ( U32 n = 0; n < 4; ++n ) {
      const U32 choice = rng.below( 6 );
      intfConfig_->typeIs( typeOf( choice ) )->directionIs( AclDirection( choice / 3 ) );
   }
}

void
SimAcl::start() {
   helper_ = chip_.makeAclHelper();
   make();
}

void
SimAcl::make() {
   directionsMade_ = 0;
   for ( auto && [type, config] : intfConfig_->typeIteratorConst() ) {
      directionsMade_ += config->directions();
   }
   readInternalVlans();
   sm_ = Qon::AclSmIs( { world_.acsd, config_, intfConfig_, params_, bridging_, subIntfs_, helper_,
                         sessions_, errdisable_, nullptr, nullptr, dpRequest_, dpStatus_,
                         hosts_ } );
   raised_.clear();
   sm_->initializedIs( true );
}

void
SimAcl::kill( Ending ending ) {
   if ( ending == Ending::planned ) {
      setenv( "HITLESS_RESTART_TEST", "", 1 ); // else a clean-up is one
      sm_->doCleanup();
      unsetenv( "HITLESS_RESTART_TEST" );
   }
   stop();
}

void
SimAcl::stop() {
   sm_ = nullptr;
   helper_ = nullptr;
}

bool
SimAcl::ready() {
   return bool( sm_ );
}

bool
SimAcl::lagsAreOurs() const {
   return !world_.feature< SimLag >();
}

IntfId
SimAcl::subIntf( U32 n ) const {
   return Ulnet::SubIntfId::intfId( world_.intf( n / 2 ), n % 2 + 1 );
}

/** An interface of each kind that can have a list. */
IntfId
SimAcl::target( U32 n ) const {
   const U32 kind = n % 10, which = n / 10;
   return kind < 3   ? world_.port( which )
          : kind < 5 ? world_.lag( which )
          : kind < 8 ? subIntf( which * 3 + kind )
          : kind < 9 ? Ulnet::VlanIntfId::intfId( world_.vlan( which ).value() )
                     : Ulnet::TunnelIntfId::intfId( which % 2 + 1 );
}

Acl::DirectionIntfConfig *
SimAcl::direction( U32 n ) const {
   auto config = intfConfig_->type( typeOf( n ) );
   return config ? config->direction( AclDirection( n / 3 % 2 ) ) : nullptr;
}

Acl::AclConfig *
SimAcl::list( U32 type, U32 name ) const {
   auto config = config_->type( typeOf( type ) );
   return config ? config->acl( nameOf( name ) ) : nullptr;
}

// Lists and interfaces

void
SimAcl::attach( const Event & event ) {
   if ( auto config = direction( event[0] ) ) {
      config->intfIs( target( event[1] ), nameOf( event[2] ) );
   }
}

void
SimAcl::detach( const Event & event ) {
   if ( auto config = direction( event[0] ) ) {
      config->intfDel( target( event[1] ) );
   }
}

void
SimAcl::listIs( const Event & event ) {
   config_->typeIs( typeOf( event[0] ) )->aclIs( nameOf( event[1] ) );
   remember( typeOf( event[0] ), nameOf( event[1] ) );
}

void
SimAcl::listDel( const Event & event ) {
   if ( auto config = config_->type( typeOf( event[0] ) ) ) {
      config->aclDel( nameOf( event[1] ) );
   }
}

// What is beside the lists

void
SimAcl::sessionIs( const Event & event ) {
   const String name = "session" + std::to_string( event[0] % 2 );
   if ( event[1] < 2 ) {
      sessions_->sessionDel( name );
   } else {
      sessions_->sessionIs( name )->mirrorGroupIs( event[1] < 4 ? Mirroring::mirrorGroupInvalid()
                                                                : S32( event[1] ) );
   }
}

void
SimAcl::dpRequest( const Event & ) {
   dpRequest_->requestTimeIs( dpRequest_->requestTime() + 1 );
}

void
SimAcl::hostIs( const Event & event ) {
   const U32 where = event[0];
   const Acl::HostKey host( where % 3 ? world_.port( where / 3 ) : world_.lag( where / 3 ),
                            Ulnet::EthAddr( 2 + event[1] % 3 ) );
   if ( event[2] > 5 ) {
      hosts_->hostDel( host );
   } else {
      hosts_->hostIs( host, Acl::HostAcl( typeOf( event[2] ), nameOf( event[1] ) ) );
   }
}

void
SimAcl::listAgain( const Event & event ) {
   listDel( event );
   listIs( event );
   ruleIs( event );
}

void
SimAcl::ruleIs( const Event & event ) {
   auto config = list( event[0], event[1] );
   if ( !config ) {
      return;
   }
   const U32 kind = event[3];
   Acl::Rule rule;
   rule.seqIs( event[2] + 1 );
   rule.actionIs( kind % 4 ? Acl::RuleAction::permit : Acl::RuleAction::deny );
   Acl::IpFilter filter;
   if ( kind % 3 ) {
      filter.protocolIs( kind % 3 == 1 ? Acl::Protocol::tcp : Acl::Protocol::udp );
   }
   if ( kind % 5 > 1 ) {
      filter.dstPortIs( Acl::PortRange( 80, U16( 80 + kind % 5 ) ) );
   }
   if ( kind % 2 ) {
      filter.srcIs( Ulnet::IpGenPrefix( "10.0.0.0/8" ) );
   }
   filter.fragmentsIs( kind > 95 );
   rule.ipIs( filter );
   rule.mirrorSessionIs( kind % 7 < 2 ? "session" + std::to_string( kind % 7 ) : "" );
   rule.logIs( kind % 11 == 0 );
   config->ruleIs( rule.seq(), rule );
   config->versionIs( config->version() + 1 );
   remember( typeOf( event[0] ), nameOf( event[1] ) );
}

void
SimAcl::ruleDel( const Event & event ) {
   if ( auto config = list( event[0], event[1] ) ) {
      config->ruleDel( event[2] + 1 );
      config->versionIs( config->version() + 1 );
      remember( typeOf( event[0] ), nameOf( event[1] ) );
   }
}

void
SimAcl::typeAgain( const Event & event ) {
   std::erase_if( guards_, [&]( auto & guard ) {
      return std::get< 0 >( guard.first ) == typeOf( event[0] );
   } );
   config_->typeDel( typeOf( event[0] ) );
   if ( event[1] ) {
      config_->typeIs( typeOf( event[0] ) )->aclIs( nameOf( event[0] ) );
      remember( typeOf( event[0] ), nameOf( event[0] ) );
   }
}

/** Another entity is another direction, with numbers of its own. */
void
SimAcl::directionAgain( const Event & event ) {
   auto config = intfConfig_->type( typeOf( event[0] ) );
   const auto which = AclDirection( event[0] / 3 % 2 );
   if ( !config || !config->directionHas( which ) ) {
      return;
   }
   std::map< IntfId, String > held;
   for ( auto && [intf, name] : config->direction( which )->intfIteratorConst() ) {
      held[intf] = name;
   }
   if ( directionsMade_ == mostDirections || !sm_->initialized() ) {
      return;
   }
   ++directionsMade_;
   // Without it no interface has a list, if only for a moment.
   std::erase_if( guards_, [&]( auto & guard ) {
      return std::get< 0 >( guard.first ) == typeOf( event[0] ) &&
             std::get< 1 >( guard.first ) == which;
   } );
   config->directionDel( which );
   auto again = config->directionIs( which );
   for ( auto & [intf, name] : event[1] ? held : std::map< IntfId, String >() ) {
      again->intfIs( intf, name );
   }
}

void
SimAcl::sharingIs( const Event & event ) {
   const Acl::SharingKey key( typeOf( event[0] ), AclDirection( event[0] / 3 % 2 ),
                              Acl::SharingKind( event[1] % 3 ) );
   if ( event[2] < 3 ) {
      params_->sharedModeIs( key, true );
   } else if ( event[2] < 6 ) {
      params_->sharedModeIs( key, false );
   } else {
      params_->sharedModeDel( key );
   }
}

void
SimAcl::permitIs( const Event & event ) {
   if ( event[1] < 3 ) {
      params_->permitDuringAclUpdateConfigIs( typeOf( event[0] ), event[1] == 0 );
   } else {
      params_->permitDuringAclUpdateConfigDel( typeOf( event[0] ) );
      params_->defaultActionDuringAclUpdatePermitIs( event[1] == 3 );
   }
}

void
SimAcl::modeIs( const Event & event ) {
   const IntfId intf = world_.intf( event[0] );
   if ( event[1] < 2 ) {
      bridging_->switchIntfConfigDel( intf );
   } else {
      bridging_->switchIntfConfigIs( intf )->switchportModeIs(
            event[1] < 5 ? Bridging::SwitchportMode::routed : Bridging::SwitchportMode::trunk );
   }
}

void
SimAcl::count( const Event & event ) {
   if ( auto config = list( event[0], event[1] ) ) {
      config->counterRequestIs( config->counterRequest() + 1 );
   }
}

// VLANs of sub-interfaces

void
SimAcl::vlanOfIs( IntfId intf, VlanIdOrNone vlan ) {
   if ( vlan.isNone() ) {
      subIntfs_->vlanDel( intf );
   } else {
      subIntfs_->vlanIs( intf, vlan );
   }
}

void
SimAcl::vlanIs( const Event & event ) {
   vlanOfIs( subIntf( event[0] ),
             event[2] ? VlanIdOrNone( world_.vlan( event[1] ) ) : VlanIdOrNone() );
}

void
SimAcl::internalVlanIs( const Event & event ) {
   const IntfId intf = subIntf( event[0] );
   // What is wanted is looked at while hooks are called: it is written down first.
   if ( event[2] < 2 ) {
      internal_.erase( intf );
      world_.acsd->internalVlanDel( intf );
   } else if ( event[2] < 3 && sm_->initialized() ) {
      world_.acsd->internalVlanIs( intf, event[1] % 2 ? 0 : 4095 ); // as if nothing had been said
   } else {
      internal_[intf] = world_.vlan( event[1] );
      world_.acsd->internalVlanIs( intf, world_.vlan( event[1] ).value() );
   }
}

void
SimAcl::readInternalVlans() {
   internal_.clear();
   for ( auto && [intf, vlan] : world_.acsd->internalVlanIteratorConst() ) {
      if ( vlan >= 1 && vlan <= 4094 ) {
         internal_[intf] = U16( vlan );
      }
   }
}

void
SimAcl::swap( const Event & event ) {
   const IntfId a = subIntf( event[0] ), b = subIntf( event[1] );
   const VlanIdOrNone ofA = subIntfs_->vlan( a ), ofB = subIntfs_->vlan( b );
   vlanOfIs( a, ofB );
   vlanOfIs( b, ofA );
}

// Port-channels, when nobody else makes them

void
SimAcl::memberIs( IntfId lag, IntfId port, bool member ) {
   auto & acsd = *world_.acsd;
   Qon::QonLagPortList list = acsd.lagToPort( lag );
   if ( member ) {
      list.portIs( port, Qon::QonLagPort( true, true ) );
      acsd.lagToPortIs( lag, list );
      acsd.portToLagIs( port, lag );
   } else {
      list.portDel( port );
      acsd.lagToPortIs( lag, list );
      acsd.portToLagDel( port );
   }
}

void
SimAcl::join( const Event & event ) {
   const IntfId lag = world_.lag( event[0] ), port = world_.port( event[1] );
   if ( !lagsAreOurs() ) {
      return;
   }
   if ( const IntfId former = world_.acsd->portToLag( port ) ) {
      memberIs( former, port, false );
   }
   memberIs( lag, port, true );
}

void
SimAcl::leave( const Event & event ) {
   const IntfId lag = world_.lag( event[0] ), port = world_.port( event[1] );
   if ( lagsAreOurs() && world_.acsd->portToLag( port ) == lag ) {
      memberIs( lag, port, false );
   }
}

void
SimAcl::managedIs( const Event & event ) {
   if ( !lagsAreOurs() ) {
      return;
   }
   if ( event[1] ) {
      world_.acsd->intfIs( world_.port( event[0] ), true );
   } else {
      world_.acsd->intfDel( world_.port( event[0] ) );
   }
}

// The state machine and the chip

void
SimAcl::force( const Event & ) {
   if ( sm_->initialized() ) {
      sm_->doApplyAcls( true );
   }
}

void
SimAcl::pause( const Event & ) {
   sm_->initializedIs( !sm_->initialized() );
}

void
SimAcl::finish( const Event & event ) {
   auto & table = chip_.table();
   if ( event[1] < 3 && table.blockCompletions().waiting() ) {
      table.blockCompletions().finish( 0 );
   } else if ( table.completions().waiting() ) {
      table.completions().finish( event[0] % table.completions().waiting() );
   }
}

void
SimAcl::chipLatencyIs( U32 latency ) {
   chip_.latencyIs( latency < 2   ? 0
                    : latency < 6 ? ( 1u << 4 * ( latency - 2 ) ) * 1e-6
                                  : Kiv::never );
}

void
SimAcl::latencyIs( const Event & event ) {
   latency_ = event[0];
   chipLatencyIs( latency_ );
}

void
SimAcl::unitIs( const Event & event ) {
   world_.chip->faults().unitLostIs( "Chip" + std::to_string( event[0] ), event[1] );
}

/** With a clean-up, or as after a crash: what is in the chip then is stale, and decides until the
    first pass is done. */
void
SimAcl::restart( const Event & event ) {
   if ( event[0] < 4 ) {
      guards_.clear();
      sm_->doCleanup();
   }
   kill( Ending::midway );
   start();
}

void
SimAcl::drawFaults( Rng & rng, std::vector< String > & lines ) const {
   for ( auto trouble : { "fail", "busy", "full", "parity" } ) {
      lines.push_back( "prepareAcl " + String( trouble ) + " 0 0 " + often( rng, 60 ) );
   }
   lines.push_back( "commitAcl fail 0 0 " + often( rng, 40 ) );
   if ( rng.percent( 30 ) ) {
      lines.push_back( "limit aclEntries " + often( rng, 60 ) );
   }
}

/** A shortage is said once when it begins, and once when it ends or becomes another one. */
void
SimAcl::heard( const Kiv::LogDescriptor & message, const String & text ) {
   const String name = message.name;
   const bool full = name == "ACL_HW_RESOURCE_FULL", failed = name == "ACL_COMPUTATION_FAILED";
   const bool normal = name == "ACL_HW_RESOURCE_NORMAL",
              success = name == "ACL_COMPUTATION_SUCCESS";
   if ( !full && !failed && !normal && !success ) {
      return;
   }
   const auto from = text.rfind( '(' );
   String & out = raised_[text.substr( from + 1, text.rfind( ')' ) - from - 1 )];
   const char * const before = normal ? "ACL_HW_RESOURCE_FULL" : "ACL_COMPUTATION_FAILED";
   if ( full || failed ? out == name : out != before ) {
      wrongMessage_ = name + " after '" + out + "'";
   }
   out = full || failed ? name : "";
}

void
SimAcl::faultsIs( bool on ) {
   chipLatencyIs( on ? latency_ : 3 );
   chip_.table().completions().finishAll();
   chip_.table().blockCompletions().finishAll();
   if ( !on && sm_ ) {
      sm_->initializedIs( true );
   }
}

String
SimAcl::checkStep() const {
   if ( !chip_.table().misuse().empty() ) {
      return "misuse of the chip: " + chip_.table().misuse();
   }
   if ( !wrongMessage_.empty() ) {
      return "message: " + wrongMessage_;
   }
   return checkGuards();
}

String
SimAcl::checkInvariants() const {
   const String wrong = sm_ ? sm_->checkInvariants() : "";
   return wrong.empty() ? "" : "own invariant: " + wrong;
}

void
SimAcl::tearDown() {
   for ( AclType type : Acl::aclTypes ) {
      if ( auto config = intfConfig_->type( type ) ) {
         for ( auto && [which, held] : config->directionIteratorConst() ) {
            held->intfDelAll();
         }
      }
   }
   config_->typeDelAll();
   hosts_->hostDelAll();
   sessions_->sessionDelAll();
   world_.acsd->internalVlanDelAll();
   if ( lagsAreOurs() ) {
      world_.acsd->portToLagDelAll();
      world_.acsd->lagToPortDelAll();
      world_.acsd->intfDelAll();
   }
}

String
SimAcl::checkTornDown() const {
   const auto held = chip_.table().held();
   for ( auto & [unit, message] : raised_ ) {
      if ( !message.empty() ) {
         return "left over: " + message + " of " + unit;
      }
   }
   if ( errdisable_->intfStatuss() ) {
      return "left over: an interface is out of service";
   }
   return held.acls.empty() && held.blocked.empty() ? "" : "left over: the chip is not empty";
}

FeatureKind
simAcl() {
   return featureKindOf< SimAcl >( "acl" );
}

} // namespace Sim
