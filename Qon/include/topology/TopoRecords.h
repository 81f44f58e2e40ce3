#pragma once
// The records that the state machines of topologies keep, as others see them.
//
//    StpSm.topoToVlanMap[ name ]       -> MappedVlan           which VLANs are in the topology
//    StpSm.pendingStpStateTopo[ name ] -> PendingStpStateTopo  what its ports wait for
//    StpSm.tapAggIntf                  -> IntfSet              interfaces in tap or tool mode
//
// Written by the state machines alone.

#include "Qon/include/framework/QonBaseSm.h"
#include "platform/types/Topology.h"

namespace Qon {

/** The VLANs of one topology. */
class MappedVlan : public Kiv::Entity {
   KIV_BODY( MappedVlan, Kiv::Entity )
   KIV_MAP( Bridging::VlanId, bool, vlan )
 public:
   explicit MappedVlan( const String & topoName ) : Kiv::Entity( topoName ) {}
};

/** A state that was handed to the hardware. */
class TopoPortState {
   Bridging::Topology::PortState state_ = Bridging::Topology::PortState::disabled;
   U64 request_ = 0; // tells a later request for the same port from this one
   KIV_VALUE( Qon, TopoPortState, state, request )
};

/** What one topology's ports wait for. */
class PendingStpStateTopo : public Kiv::Entity {
   KIV_BODY( PendingStpStateTopo, Kiv::Entity )
   KIV_MAP( Ulnet::IntfId, TopoPortState, pendingIntfState )
 public:
   explicit PendingStpStateTopo( const String & topoName ) : Kiv::Entity( topoName ) {}
};

/** The interfaces in tap or tool mode; empty outside tap-aggregation mode. */
class IntfSet : public Kiv::Entity {
 public:
   class IntfInfo : public Kiv::Entity {
      KIV_BODY( IntfInfo, Kiv::Entity )
      KIV_ATTR( bool, isLag, false )
    public:
      explicit IntfInfo( const Ulnet::IntfId & intfId, bool isLag = false )
          : isLag_( isLag ), intfId_( intfId ) {}
      Ulnet::IntfId intfId() const { return intfId_; }

    private:
      const Ulnet::IntfId intfId_;
   };

   KIV_BODY( IntfSet, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, IntfInfo, intfInfo )
 public:
   explicit IntfSet( const String & name ) : Kiv::Entity( name ) {}
};

} // namespace Qon
