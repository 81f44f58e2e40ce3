#include "simulation/SimVlanMapping.h"

#include <sstream>

#include "simulation/World.h"

namespace Sim {

using Bridging::vlanMappingDirections;
using Qon::PortVlanKey;
using SoftChip::VlanMappingForm;

namespace {

/** Tells of what the hooks are called with and what they answer. */
class ToldSm : public SoftChip::SoftVlanMappingSm {
 public:
   ToldSm( Inputs inputs, const Statuses & statuses, SoftChip::VlanMappingTable & table,
           SimVlanMapping & sim )
       : SoftVlanMappingSm( std::move( inputs ), statuses, table ), sim_( sim ) {}

   Status doAddIngressVlanMapping( IntfId intf, bool lag, const PortVlanKey & key,
                                   const Mapping & mapping ) override {
      sim_.asked( Direction::ingress, key, intf, mapping );
      return told( Direction::ingress, key,
                   SoftVlanMappingSm::doAddIngressVlanMapping( intf, lag, key, mapping ) );
   }
   Status doAddEgressVlanMapping( IntfId intf, bool lag, const PortVlanKey & key,
                                  const Mapping & mapping ) override {
      sim_.asked( Direction::egress, key, intf, mapping );
      return told( Direction::egress, key,
                   SoftVlanMappingSm::doAddEgressVlanMapping( intf, lag, key, mapping ) );
   }
   Status doUpdateIngressVlanMapping( IntfId intf, bool lag, const PortVlanKey & key,
                                      const Mapping & mapping ) override {
      sim_.asked( Direction::ingress, key, intf, mapping );
      return told( Direction::ingress, key,
                   SoftVlanMappingSm::doUpdateIngressVlanMapping( intf, lag, key, mapping ) );
   }
   Status doUpdateEgressVlanMapping( IntfId intf, bool lag, const PortVlanKey & key,
                                     const Mapping & mapping ) override {
      sim_.asked( Direction::egress, key, intf, mapping );
      return told( Direction::egress, key,
                   SoftVlanMappingSm::doUpdateEgressVlanMapping( intf, lag, key, mapping ) );
   }
   void doDelIngressVlanMapping( IntfId intf, bool lag, const PortVlanKey & key ) override {
      sim_.removalHeard( Direction::ingress, key );
      SoftVlanMappingSm::doDelIngressVlanMapping( intf, lag, key );
   }
   void doDelEgressVlanMapping( IntfId intf, bool lag, const PortVlanKey & key ) override {
      sim_.removalHeard( Direction::egress, key );
      SoftVlanMappingSm::doDelEgressVlanMapping( intf, lag, key );
   }

 private:
   Status told( Direction d, const PortVlanKey & key, Status status ) {
      sim_.answerHeard( d, key, status );
      return status;
   }
   SimVlanMapping & sim_;
};

Bridging::VlanMappingDirection
direction( U32 flag ) {
   return flag ? Bridging::VlanMappingDirection::egress : Bridging::VlanMappingDirection::ingress;
}

} // namespace

std::span< const Operation >
SimVlanMapping::operations() {
   using R = Range;
   static const Operation table[] = {
         { "xlate", 30, { R::intf, R::flag, R::vlan, R::few, R::flag }, &SimVlanMapping::xlate },
         { "native", 6, { R::intf, R::flag, R::vlan, R::few }, &SimVlanMapping::native },
         { "intfDel", 2, { R::intf, R::flag }, &SimVlanMapping::intfDel },
         { "mode", 3, { R::intf, R::few }, &SimVlanMapping::modeIs },
         { "member", 6, { R::port, R::lag, R::few }, &SimVlanMapping::member },
         { "finish", 10, { R::few }, &SimVlanMapping::finish },
         { "latency", 2, { R::few }, &SimVlanMapping::latencyIs },
         { "pause", 1, { R::flag }, &SimVlanMapping::pause },
         { "delay", 1, { R::few }, &SimVlanMapping::delayIs },
         { "restart", 1, {}, &SimVlanMapping::restart },
   };
   return table;
}

void
SimVlanMapping::shape( const World & world, SoftChip::Shape & shape ) {
   Rng rng = world.chance( 70 );
   shape.vlanMapping.form = VlanMappingForm( rng.below( 3 ) );
   shape.vlanMapping.entries = rng.percent( 30 ) ? rng.between( 1, 10 ) : 1000;
}

SimVlanMapping::SimVlanMapping( World & world )
    : SimFeature( world ), rng_( world.chance( 71 ) ), second_( rng_.percent( 40 ) ),
      form_( world.chip->shape().vlanMapping.form ),
      table_( world.chip->of< SoftChip::VlanMappingPart >().table() ), model_( second_ ),
      formerSink_( Kiv::logSinkIs( static_cast< Kiv::LogSink * >( this ) ) ) {}

SimVlanMapping::~SimVlanMapping() {
   Kiv::logSinkIs( formerSink_ );
}

// --- What is heard -------------------------------------------------------------------------------

void
SimVlanMapping::listen() {
   portToLagHeard_.attach( world_.acsd.ptr(),
                           [this]( const IntfId & port ) { portToLagHeard( port ); } );
   for ( Direction d : vlanMappingDirections ) {
      configHeard_[U8( d )].attach(
            directory_[U8( d )].ptr(),
            [this, d]( const PortVlanKey & key ) { configHeard( d, key ); } );
      statusHeard_[U8( d )].attach( status_[U8( d )].ptr(), [this, d]( const PortVlanKey & key ) {
         statusHeard( d, key );
      } );
   }
   for ( U32 i = 0; i < world_.size( Range::port ); ++i ) {
      portToLagHeard( world_.port( i ) );
   }
}

void
SimVlanMapping::portToLagHeard( IntfId port ) {
   const IntfId lag = world_.acsd->portToLag( port );
   model_.lagIs( port, lag );
   lag ? portToLag_->portToLagIs( port, lag ) : portToLag_->portToLagDel( port );
}

void
SimVlanMapping::asked( Direction d, const PortVlanKey & key, IntfId intf, Model::Mapping mapping ) {
   asked_[{ d, key }] = { intf, mapping };
   model_.asked( keyOf( d, key ), key.portId() );
}

SimVlanMapping::Key
SimVlanMapping::keyOf( Direction d, const PortVlanKey & key ) {
   return { asked_[{ d, key }].first, d, key.vlanId(), Qon::isNative( key.key() ) };
}

void
SimVlanMapping::answerHeard( Direction d, const PortVlanKey & key, Status status ) {
   if ( status == Status::full || status == Status::failed ) {
      model_.refused( keyOf( d, key ), key.portId(), asked_[{ d, key }].second );
   }
}

void
SimVlanMapping::removalHeard( Direction d, const PortVlanKey & key ) {
   model_.removed( keyOf( d, key ), key.portId() );
}

void
SimVlanMapping::configHeard( Direction d, const PortVlanKey & key ) {
   if ( directory_[U8( d )]->vlanMappingConfigHas( key ) ) {
      const auto config = directory_[U8( d )]->vlanMappingConfig( key );
      asked( d, key, config.lag() ? config.lag() : key.portId(), config.mapping() );
   } else {
      removalHeard( d, key );
   }
}

void
SimVlanMapping::statusHeard( Direction d, const PortVlanKey & key ) {
   if ( status_[U8( d )]->vlanMappingStatusHas( key ) ) {
      answerHeard( d, key, status_[U8( d )]->vlanMappingStatus( key ).result() );
   }
}

void
SimVlanMapping::message( const Kiv::LogDescriptor & descriptor, const String & text ) {
   if ( formerSink_ ) {
      formerSink_->message( descriptor, text );
   }
   const String name = descriptor.name;
   if ( name.rfind( "ETH_VLAN_", 0 ) != 0 ) {
      return;
   }
   std::vector< String > words;
   std::istringstream in( text );
   for ( String word; in >> word; ) {
      words.push_back( word );
   }
   auto key = [&]( U32 intf, U32 dir, U32 vlan, bool native ) {
      return Key{ IntfId( words.at( intf ) ), Kiv::fromText< Direction >( words.at( dir ) ),
                  U16( Kiv::fromText< U32 >( words.at( vlan ) ) ), native };
   };
   String wrong;
   if ( name == "ETH_VLAN_MAPPING_CONFLICT" ) {
      // "VLAN mapping 10 to 20 for interface I on D required by R is already in use by O"
      const bool nativeAsks = words[12] == "native";
      wrong = model_.conflictHeard( key( 7, 9, 2, false ), nativeAsks ? "native VLAN" : words[12],
                                    words.back() == "VLAN" ? "native VLAN" : words.back() );
   } else if ( name == "ETH_VLAN_MAPPING_PROGRAMMED" ) {
      const Key k = key( 7, 9, 2, false );
      wrong = model_.programmedHeard( k, words[12] == "native" ? "native VLAN" : words[12] );
   }
   if ( !wrong.empty() ) {
      world_.report( "vlanMapping", wrong );
   }
}

// --- Operations ----------------------------------------------------------------------------------

void
SimVlanMapping::xlate( const Event & event ) {
   const IntfId intf = world_.intf( event[0] );
   const U32 source = event[4];
   const U16 vlan = world_.vlan( event[2] );
   const Direction d = direction( event[1] );
   // 0 and 1: none; 7: one that cannot be
   const U16 mapped = event[3] < 2 ? 0 : event[3] == 7 ? 4095 : U16( 100 + event[3] );
   Velto::Ptr< Bridging::VlanXlateIntfConfig > config =
         source
               ? flow_->vlanXlateIntfConfigIs( intf )
               : Velto::Ptr< Bridging::VlanXlateIntfConfig >( config_->switchIntfConfigIs( intf ) );
   if ( !source ) {
      model_.modeIs( intf, config_->switchIntfConfig( intf )->switchportMode() );
   }
   model_.wishIs( { intf, d, vlan, false }, source,
                  mapped && mapped < 4095 ? std::optional( Model::Mapping( mapped, 0 ) )
                                          : std::nullopt );
   try {
      const Bridging::VlanXlateKey key( vlan, 0 );
      mapped ? config->vlanXlateIs( d, key, { mapped, 0 } ) : config->vlanXlateDel( d, key );
   } catch ( const Velto::RangeError & ) {
      if ( mapped != 4095 ) {
         throw;
      }
   }
}

void
SimVlanMapping::nativeIs( IntfId intf, Direction d, U16 vlan ) {
   auto & held = natives_[{ intf, d }];
   const U16 before = std::exchange( held, vlan );
   const U32 source = second_ ? 2 : 0;
   if ( vlan && vlan != before ) {
      model_.wishIs( { intf, d, vlan, !second_ }, source, Model::Mapping( vlan, 0 ) );
   }
   if ( before && before != vlan ) {
      model_.wishIs( { intf, d, before, !second_ }, source, {} );
   }
}

void
SimVlanMapping::native( const Event & event ) {
   const IntfId intf = world_.intf( event[0] );
   const Direction d = direction( event[1] );
   const U16 vlan = event[3] < 3 ? U16( 0 ) : world_.vlan( event[2] ).value();
   const auto config = config_->switchIntfConfigIs( intf );
   model_.modeIs( intf, config->switchportMode() );
   nativeIs( intf, d, vlan );
   config->nativeVlanIs( d, Bridging::VlanIdOrNone( vlan ) );
}

void
SimVlanMapping::intfDel( const Event & event ) {
   const IntfId intf = world_.intf( event[0] );
   const U32 source = event[1];
   if ( source ) {
      model_.wishesDel( intf, 1 );
      flow_->vlanXlateIntfConfigDel( intf );
      return;
   }
   for ( Direction d : vlanMappingDirections ) {
      nativeIs( intf, d, 0 );
   }
   model_.wishesDel( intf, 0 );
   model_.modeIs( intf, {} );
   config_->switchIntfConfigDel( intf );
}

void
SimVlanMapping::modeIs( const Event & event ) {
   const IntfId intf = world_.intf( event[0] );
   const Model::Mode mode = event[1] < 4   ? Model::Mode::flow
                            : event[1] < 7 ? Model::Mode::trunk
                                           : Model::Mode::routed;
   const auto config = config_->switchIntfConfigIs( intf );
   model_.modeIs( intf, mode );
   config->switchportModeIs( mode );
}

/** Only where nobody else says which ports are members. */
void
SimVlanMapping::member( const Event & event ) {
   if ( world_.has( featureKind( "lag" ) ) ) {
      return;
   }
   const IntfId port = world_.port( event[0] ), lag = world_.lag( event[1] );
   const IntfId before = world_.acsd->portToLag( port );
   auto change = [&]( IntfId group, bool is ) {
      Qon::QonLagPortList list = world_.acsd->lagToPort( group );
      is ? list.portIs( port, { true, true } ) : list.portDel( port );
      world_.acsd->lagToPortIs( group, list );
   };
   if ( event[2] < 3 ) {
      if ( before ) {
         change( before, false );
         world_.acsd->portToLagDel( port );
      }
   } else if ( before != lag ) {
      if ( before ) {
         change( before, false );
      }
      change( lag, true );
      world_.acsd->portToLagIs( port, lag );
   }
}

void
SimVlanMapping::finish( const Event & event ) {
   if ( table_.completions().waiting() ) {
      table_.completions().finish( event[0] % table_.completions().waiting() );
   }
}

void
SimVlanMapping::latencyIs( const Event & event ) {
   const U32 mode = event[0];
   table_.completions().latencyIs( mode < 2   ? 0
                                   : mode < 6 ? rng_.between( 1, 1u << 4 * ( mode - 2 ) ) * 1e-6
                                              : Kiv::never );
}

void
SimVlanMapping::pause( const Event & event ) {
   const bool paused = event[0] != 0;
   if ( paused == paused_ ) {
      return;
   }
   paused_ = paused;
   model_.pausedIs( paused );
   model_.startingIs( !paused );
   second_ ? sm2_->initializedIs( !paused ) : first_->initializedIs( !paused );
   model_.startingIs( false );
   if ( second_ ) {
      world_.scheduler.settle( 10000 );
   }
}

void
SimVlanMapping::delayIs( const Event & event ) {
   if ( !second_ ) {
      first_->timeDelayIs( event[0] < 5 ? 0 : 0.01 * event[0] );
   }
}

/** Whether a port still has the key in the directories, for the interface that rules it now. */
bool
SimVlanMapping::wasHandedOver( const Key & key ) const {
   const PortVlanKey name =
         PortVlanKey::of( {}, { key.vlan, key.native ? Qon::nativeInnerVlan : U16( 0 ) } );
   auto directory = directory_[U8( key.direction )];
   for ( U32 i = 0; i < world_.size( Range::port ); ++i ) {
      const IntfId port = world_.port( i );
      const PortVlanKey ofPort = PortVlanKey::of( port, name.key() );
      if ( model_.rulerOf( port ) == key.intf && directory->vlanMappingConfigHas( ofPort ) &&
           directory->vlanMappingConfig( ofPort ).lag() ==
                 ( key.intf == port ? IntfId() : key.intf ) ) {
         return true;
      }
   }
   return false;
}

void
SimVlanMapping::restart( const Event & ) {
   if ( !paused_ ) {
      kill( Ending::midway );
      goOn();
   }
}

void
SimVlanMapping::kill( Ending ) {
   pause( Event() );
   stop();
   killed_ = true;
   platformStatus_->readyIs( false );
}

/** Another agent over what there is. */
void
SimVlanMapping::goOn() {
   killed_ = false;
   model_.restart( [&]( const Key & key ) {
      return second_ || ( form_ == VlanMappingForm::directories && wasHandedOver( key ) );
   } );
   startMachines();
}

// --- Start and end -------------------------------------------------------------------------------

void
SimVlanMapping::start() {
   listen();
   killed_ ? goOn() : startMachines();
}

void
SimVlanMapping::startMachines() {
   if ( !second_ ) {
      first_ = Qon::smIs< ToldSm >(
            Qon::VlanMappingSm::Inputs{ world_.acsd, config_, flow_, directory_[0], directory_[1],
                                        keySets_, status_[0], status_[1], members_,
                                        world_.acsd->verifyData() },
            SoftChip::SoftVlanMappingSm::Statuses{ status_[0], status_[1] }, table_, *this );
      model_.startingIs( true );
      first_->initializedIs( true );
      model_.startingIs( false );
      retries_.lookAt( world_.scheduler.time(), first_->clock()->time() );
      return;
   }
   sm2_ = Qon::VlanMapping::VlanMappingSm2Is( { world_.acsd, config_, flow_, portToLag_,
                                                platformStatus_, sources_, sourceStatus_, merged_,
                                                platform_, interlock_, output_[0], output_[1],
                                                output_[2], &world_.scheduler } );
   sm2_->initializedIs( true );
   world_.scheduler.settle( 10000 );
   follower_ = world_.chip->of< SoftChip::VlanMappingPart >().makePlatformFollower(
         platform_, platformStatus_ );
}

void
SimVlanMapping::held( Holdings & held ) const {
   if ( !second_ && form_ != VlanMappingForm::directories ) {
      return; // the chip begins anew
   }
   for ( Direction d : vlanMappingDirections ) {
      for ( auto && [key, mapping] : table_.entries( d ) ) {
         held[Kiv::toText( d ) + " mapping " + key.stringValue()] = mapping.stringValue();
      }
   }
}

void
SimVlanMapping::stop() {
   first_ = nullptr;
   sm2_ = nullptr;
   follower_ = nullptr;
}

void
SimVlanMapping::faultsIs( bool on ) {
   if ( on ) {
      return;
   }
   if ( paused_ ) {
      pause( Event() );
   }
   table_.completions().latencyIs( 1e-4 );
   while ( table_.completions().waiting() ) {
      table_.completions().finish( 0 );
   }
}

void
SimVlanMapping::tearDown() {
   for ( U32 i = 0; i < world_.size( Range::intf ); ++i ) {
      Event event;
      event.args = { i, 0 };
      intfDel( event );
      event.args = { i, 1 };
      intfDel( event );
   }
}

// --- Checks --------------------------------------------------------------------------------------

void
SimVlanMapping::drawFaults( Rng & rng, std::vector< String > & lines ) const {
   for ( const char * trouble : { "busy", "full", "fail" } ) {
      if ( rng.percent( 60 ) ) {
         lines.push_back( String( "vlanMapping " ) + trouble + " 0 0 " + often( rng, 150 ) );
      }
   }
}

FeatureKind
simVlanMapping() {
   return featureKindOf< SimVlanMapping >( "vlanMapping" );
}

} // namespace Sim
