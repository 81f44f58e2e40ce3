// What must hold of VLAN mapping at every step, and at rest.

#include "simulation/SimVlanMapping.h"
#include "simulation/World.h"

namespace Sim {

using Bridging::vlanMappingDirections;
using Qon::PortVlanKey;

String
SimVlanMapping::checkStep() const {
   return paused_ || second_ ? "" : checkRetry();
}

String
SimVlanMapping::checkInvariants() const {
   if ( paused_ ) {
      return {};
   }
   const String wrong = second_ ? sm2_->checkInvariants() : first_->checkInvariants();
   return wrong.empty() ? "" : "invariant: " + wrong;
}

/** That it is armed while something waits is an invariant of the state machine. */
String
SimVlanMapping::checkRetry() const {
   const String wrong =
         retries_.check( world_.scheduler.time(), first_->clock()->time(), 5.0, true );
   return wrong.empty() ? "" : "clock of what waits: " + wrong;
}

/** What could not be had stays away in the second generation; its status says so. */
bool
SimVlanMapping::isInChip( const Model::Port & port ) const {
   auto & [d, intf, vlan, native] = port;
   auto statuses = platformStatus_->intfVlanMappingStatus( intf );
   const Qon::QonVlanMappingKey key( d, vlan, 0 );
   if ( !second_ || !statuses || !statuses->vlanMappingStatusHas( key ) ) {
      return true;
   }
   const auto result = statuses->vlanMappingStatus( key ).result();
   return result != Status::full && result != Status::failed;
}

std::map< VlanMappingModel::Port, VlanMappingModel::Mapping >
SimVlanMapping::wantedInChip() const {
   auto wanted = model_.ports();
   std::erase_if( wanted, [&]( auto & entry ) { return !isInChip( entry.first ); } );
   return wanted;
}

String
SimVlanMapping::checkChip() const {
   const auto wanted = model_.ports();
   auto name = []( const Model::Port & port ) {
      auto & [d, intf, vlan, native] = port;
      return Key{ intf, d, vlan, native }.text();
   };
   for ( auto & [port, mapping] : wanted ) {
      auto & [d, intf, vlan, native] = port;
      const auto held =
            table_.mapping( d, { intf, vlan, native ? Qon::nativeInnerVlan : U16( 0 ) } );
      if ( bool( held ) != isInChip( port ) ) {
         return ( held ? "refused and in the chip: " : "missing in the chip: " ) + name( port );
      }
      if ( held && !( *held == mapping ) ) {
         return "another mapping in the chip: " + name( port );
      }
   }
   for ( Direction d : vlanMappingDirections ) {
      for ( auto && [key, mapping] : table_.entries( d ) ) {
         const Model::Port port( d, key.portId(), key.vlanId(), Qon::isNative( key.key() ) );
         if ( !wanted.count( port ) ) {
            return "in the chip and nobody's: " + name( port );
         }
      }
   }
   return {};
}

String
SimVlanMapping::checkOwners() const {
   for ( auto & [key, owner] : model_.owners() ) {
      const PortVlanKey name( key.intf, key.vlan, key.native ? Qon::nativeInnerVlan : U16( 0 ) );
      if ( model_.rulerOf( key.intf ) != key.intf ) {
         continue;
      }
      const auto source = key.direction == Direction::ingress
                                ? first_->ingVlanXlateSourceMap( name )
                                : first_->egrVlanXlateSourceMap( name );
      if ( U32( source ) != owner.first ) {
         return "another owner: " + key.text() + " is " + Kiv::toText( source ) + "'s";
      }
   }
   return {};
}

String
SimVlanMapping::checkMerged() const {
   U32 count = 0;
   for ( auto & [key, owner] : model_.owners() ) {
      auto held = merged_->intfVlanMappingConfig( key.intf );
      const Qon::MergedVlanMappingData data( Qon::VlanMappingConfigSource( owner.first ),
                                             owner.second );
      if ( !held || !( held->vlanMappingConfig( { key.direction, key.vlan, 0 } ) == data ) ) {
         return "another winner: " + key.text();
      }
      ++count;
   }
   for ( auto && [intf, held] : merged_->intfVlanMappingConfigIteratorConst() ) {
      count -= held->vlanMappingConfigs();
      const bool lag = Ulnet::PortChannelIntfId::isPortChannelIntfId( intf );
      const bool carries = lag && held->vlanMappingConfigs() && world_.acsd->lagToPortHas( intf );
      if ( interlock_->portChannelHas( intf ) != carries ) {
         return "interlock does not go with the port-channel: " + intf.stringValue();
      }
   }
   return count ? "merged and nobody's: " + Kiv::toText( count ) : String();
}

String
SimVlanMapping::checkEncap() const {
   std::map< IntfId, U16 > wanted;
   const auto ports = model_.ports();
   for ( auto & [key, owner] : model_.owners() ) {
      if ( key.direction == Direction::egress && ( key.native || owner.first == 2 ) ) {
         bool led = second_;
         for ( auto & [port, mapping] : ports ) {
            auto & [d, intf, vlan, native] = port;
            led |= d == key.direction && native && vlan == key.vlan &&
                   model_.rulerOf( intf ) == key.intf;
         }
         if ( led ) {
            wanted[key.intf] = key.vlan;
         }
      }
   }
   for ( U32 i = 0; i < world_.size( Range::intf ); ++i ) {
      const IntfId intf = world_.intf( i );
      if ( world_.acsd->encapVlan( intf ).value() != wanted[intf] ) {
         return "encapVlan differs: " + intf.stringValue();
      }
   }
   return {};
}

String
SimVlanMapping::checkMembers() const {
   U32 wanted = 0, told = 0;
   for ( auto & [port, mapping] : model_.ports() ) {
      auto & [d, intf, vlan, native] = port;
      const IntfId lag = model_.rulerOf( intf );
      if ( lag == intf ) {
         continue;
      }
      ++wanted;
      auto ofLag = members_->lagStatus( lag );
      auto member = ofLag ? ofLag->memberStatus( intf ) : nullptr;
      const Bridging::VlanXlateKey key( vlan, native ? Qon::nativeInnerVlan : U16( 0 ) );
      if ( !member || !( d == Direction::ingress ? member->ingressKeyHas( key )
                                                 : member->egressKeyHas( key ) ) ) {
         return "member's status lacks a key: " + intf.stringValue();
      }
   }
   for ( auto && [lag, ofLag] : members_->lagStatusIteratorConst() ) {
      for ( auto && [port, member] : ofLag->memberStatusIteratorConst() ) {
         told += member->ingressKeys() + member->egressKeys();
      }
   }
   return wanted == told ? "" : "member's status has more than there is";
}

String
SimVlanMapping::checkAtRest() const {
   String wrong = model_.unsaid();
   for ( auto check : { &SimVlanMapping::checkChip, &SimVlanMapping::checkEncap,
                        second_ ? &SimVlanMapping::checkMerged : &SimVlanMapping::checkOwners } ) {
      wrong = wrong.empty() ? ( this->*check )() : wrong;
   }
   return wrong.empty() && !second_ ? checkMembers() : wrong;
}

String
SimVlanMapping::checkTornDown() const {
   if ( table_.entries( Direction::ingress ).size() + table_.entries( Direction::egress ).size() ) {
      return "translations left in the chip";
   }
   if ( directory_[0]->vlanMappingConfigs() + directory_[1]->vlanMappingConfigs() +
        keySets_->vlanMappingIntfConfigs() + members_->lagStatuss() ) {
      return "entries left in the directories";
   }
   if ( merged_->intfVlanMappingConfigs() + platform_->intfVlanMappingConfigs() +
        interlock_->portChannels() + world_.acsd->encapVlans() ) {
      return "entries left in the pipeline";
   }
   return {};
}

} // namespace Sim
