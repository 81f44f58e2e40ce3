#include "simulation/SimVlan.h"

#include "simulation/SimTopology.h"
#include "simulation/World.h"

namespace Sim {

std::span< const Operation >
SimVlan::operations() {
   static const Operation table[] = {
         { "override", 30, { Range::intf, Range::vlan, Range::few }, &SimVlan::replace },
         { "expand", 10, { Range::intf, Range::vlan, Range::few }, &SimVlan::expand },
         { "gone", 2, { Range::vlan }, &SimVlan::remove },
         { "feature", 2, { Range::intf, Range::flag }, &SimVlan::recirculate },
         { "finish", 20, { Range::few }, &SimVlan::finish },
         { "mode", 3, { Range::few }, &SimVlan::modeIs },
   };
   return table;
}

SimVlan::SimVlan( World & world )
    : SimFeature( world ), rng_( world.chance( 50 ) ),
      table_( world.chip->of< SoftChip::VlanPart >().table() ) {}

SimVlan::~SimVlan() {
   world_.acsd->vlanHelperIs( nullptr );
}

void
SimVlan::start() {
   if ( world_.perVlan() ) {
      helper_ = Velto::make< SoftChip::SoftVlanHelper >( "vlanHelper", world_.acsd.ptr(), table_ );
      helper_->hasNotificationActiveIs( true );
      helper_->verifyDataIs( world_.acsd->verifyData() );
      world_.acsd->vlanHelperIs( helper_ );
      for ( auto & [place, how] : wanted_ ) {
         helper_->requestPortVlanMembershipChange( Qon::PortVlanMembershipChangeKind::setOverride,
                                                   place.second, VlanId( place.first ), how.tagged,
                                                   how.ingress, how.egress );
      }
   }
}

void
SimVlan::kill( Ending ) {
   stop();
   table_.reset();
   retries_ = {};
}

void
SimVlan::stop() {
   world_.acsd->vlanHelperIs( nullptr );
   helper_ = nullptr;
}

bool
SimVlan::ready() {
   return bool( helper_ );
}

void
SimVlan::replace( const Event & event ) {
   request( world_.intf( event[0] ), world_.vlan( event[1] ), event[2], false );
}

void
SimVlan::expand( const Event & event ) {
   request( world_.intf( event[0] ), world_.vlan( event[1] ), event[2], true );
}

void
SimVlan::remove( const Event & event ) {
   VlanId vlan = world_.vlan( event[0] );
   for ( auto & [place, how] : wanted_ ) {
      how = place.first == vlan ? Qon::VlanMembership() : how;
   }
   gone_.insert( vlan );
   helper_->vlanDel( vlan );
}

void
SimVlan::recirculate( const Event & event ) {
   IntfId intf = world_.intf( event[0] );
   recirc_ = true;
   if ( event[1] ) {
      world_.acsd->lagToFeatureSetIs( intf, Lag::Recirc::RecircFeatureSet( 1 ) );
   } else {
      world_.acsd->lagToFeatureSetDel( intf );
   }
}

void
SimVlan::finish( const Event & event ) {
   if ( table_.completions().waiting() ) {
      table_.completions().finish( event[0] % table_.completions().waiting() );
   }
}

void
SimVlan::modeIs( const Event & event ) {
   mode_ = event[0];
   table_.completions().latencyIs( mode_ < 2   ? 0
                                   : mode_ < 6 ? rng_.between( 1, 1u << 4 * ( mode_ - 2 ) ) * 1e-6
                                               : Kiv::never );
}

void
SimVlan::request( IntfId intf, VlanId vlan, U32 flags, bool expand ) {
   bool tagged = flags & 4, ingress = flags & 1, egress = flags & 2;
   auto & wanted = wanted_[{ vlan, intf }];
   if ( expand && wanted ) {
      wanted.ingress |= ingress;
      wanted.egress |= egress;
   } else {
      wanted = { tagged, ingress, egress };
   }
   if ( !wanted ) {
      takenOut_.insert( { vlan, intf } );
   }
   using Kind = Qon::PortVlanMembershipChangeKind;
   helper_->requestPortVlanMembershipChange( expand ? Kind::expand : Kind::setOverride, intf, vlan,
                                             tagged, ingress, egress );
}

void
SimVlan::faultsIs( bool on ) {
   if ( helper_ && !on ) {
      table_.completions().latencyIs( 1e-4 );
      while ( table_.completions().waiting() ) {
         table_.completions().finish( 0 );
      }
   }
}

bool
SimVlan::inRecirc( IntfId port ) const {
   return world_.acsd->lagToFeatureSetHas( port ) ||
          world_.acsd->lagToFeatureSetHas( world_.acsd->portToLag( port ) );
}

String
SimVlan::checkStep() const {
   return helper_ ? checkRetry() : "";
}

String
SimVlan::checkInvariants() const {
   // It looks at every VLAN there can be.
   return helper_ && ++sinceCheck_ % 4 == 0 ? helper_->checkInvariants() : "";
}

/** What failed is tried again in time. */
String
SimVlan::checkRetry() const {
   const String wrong = retries_.check( world_.scheduler.time(), helper_->retryTime(), 5.0 );
   if ( !wrong.empty() ) {
      return "clock of failed VLANs: " + wrong;
   }
   for ( U32 i = 0; helper_->retryTime() == Kiv::never && i < world_.size( Range::vlan ); ++i ) {
      if ( helper_->updateState( world_.vlan( i ) ).failed ) {
         return "a failed VLAN is not tried again: " + world_.vlan( i ).stringValue();
      }
   }
   return {};
}

std::optional< Qon::VlanMembership >
SimVlan::wantedInChip( VlanId vlan, IntfId port ) const {
   auto topology = world_.feature< SimTopology >();
   auto forwards = topology ? topology->forwards( vlan, port ) : std::optional( true );
   if ( !forwards || inRecirc( port ) ) {
      return std::nullopt;
   }
   auto entry = wanted_.find( { vlan, port } );
   const bool member = *forwards && entry != wanted_.end() && entry->second;
   return member ? entry->second : Qon::VlanMembership();
}

String
SimVlan::checkVlan( VlanId vlan ) const {
   for ( U32 i = 0; i < world_.size( Range::port ); ++i ) {
      IntfId port = world_.port( i );
      const auto wanted = wantedInChip( vlan, port );
      String name = vlan.stringValue() + ", " + port.stringValue();
      if ( !wanted ) {
         continue;
      }
      if ( inChip( vlan, port ) != bool( *wanted ) ) {
         return ( *wanted ? "member missing in the chip: VLAN "
                          : "port in the chip that should not be there: VLAN " ) +
                name;
      }
      if ( *wanted && !( table_.membership( vlan, port ) == *wanted ) ) {
         return "membership in the chip differs: VLAN " + name;
      }
   }
   return {};
}

String
SimVlan::checkAtRest() const {
   gone_.clear();
   takenOut_.clear();
   recirc_ = world_.acsd->lagToFeatureSets() != 0;
   for ( U32 i = 0; helper_ && i < world_.size( Range::vlan ); ++i ) {
      VlanId vlan = world_.vlan( i );
      auto state = helper_->updateState( vlan );
      if ( state.inProgress || state.failed || state.requested != state.completed ) {
         return "VLAN update not done: " + vlan.stringValue();
      }
      if ( String wrong = checkVlan( vlan ); !wrong.empty() ) {
         return wrong;
      }
   }
   return {};
}

void
SimVlan::tearDown() {
   world_.acsd->lagToFeatureSetDelAll();
   for ( U32 i = 0; helper_ && i < world_.size( Range::vlan ); ++i ) {
      helper_->vlanDel( world_.vlan( i ) );
   }
   wanted_.clear();
}

String
SimVlan::checkTornDown() const {
   for ( U32 i = 0; helper_ && i < world_.size( Range::vlan ); ++i ) {
      if ( !table_.ports( world_.vlan( i ) ).empty() ) {
         return "ports left in the chip: VLAN " + world_.vlan( i ).stringValue();
      }
   }
   return {};
}

void
SimVlan::drawFaults( Rng & rng, std::vector< String > & lines ) const {
   lines.push_back( "doUpdateVlan fail 0 0 " + often( rng, 300 ) );
}

FeatureKind
simVlan() {
   return featureKindOf< SimVlan >( "vlan" );
}

} // namespace Sim
