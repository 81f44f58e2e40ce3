#pragma once
// Spanning-tree topologies: what the spanning-tree agent wants of each port, and what the
// hardware has taken.
//
//    spanning-tree agent -> Config -> forwarding agent -> hardware
//    spanning-tree agent <- Inst::Status <- forwarding agent <- completion
//
// A topology is known by its name in both; it is worked on while both give it the same id.

#include "platform/Kiv/Attr.h"
#include "platform/types/Bridging.h"
#include "platform/types/Ulnet.h"

namespace Bridging::Topology {

using Velto::String;

/** What is wanted of one port in one topology. */
class TopoPortConfig : public Kiv::Entity {
   KIV_BODY( TopoPortConfig, Kiv::Entity )
   KIV_ATTR( PortState, state, PortState::disabled )
   KIV_ATTR( TopoPortChangeInfo, changeInfo )
   KIV_ATTR( U32, fdbFlush, 0 ) // counts the requests to flush the port's MAC addresses
 public:
   explicit TopoPortConfig( const Ulnet::IntfId & intf, PortState state = PortState::disabled )
       : state_( state ), intf_( intf ) {}
   Ulnet::IntfId intf() const { return intf_; }

 private:
   const Ulnet::IntfId intf_;
};

class TopoConfig : public Kiv::Entity {
   KIV_BODY( TopoConfig, Kiv::Entity )
   KIV_ATTR( U32, topoId, 0 )
   KIV_ENTITIES( Ulnet::IntfId, TopoPortConfig, topoPortConfig )
 public:
   explicit TopoConfig( const String & name, U32 topoId = 0 )
       : Kiv::Entity( name ), topoId_( topoId ) {}
};

class Config : public Kiv::Entity {
   KIV_BODY( Config, Kiv::Entity )
   KIV_ENTITIES( String, TopoConfig, topoConfig )
   KIV_MAP( VlanId, String, vidToTopoMap )
   KIV_ATTR( bool, bpduTrapEnabled, false )
   KIV_ATTR( bool, pvstBpduTrapEnabled, false )
 public:
   explicit Config( const String & name ) : Kiv::Entity( name ) {}
};

/** What the hardware has taken for one port in one topology. */
class TopoPortStatus : public Kiv::Entity {
   KIV_BODY( TopoPortStatus, Kiv::Entity )
   KIV_ATTR( PortState, state, PortState::disabled )
   KIV_ATTR( TopoPortChangeInfo, changeInfo ) // that of the configuration which was taken
   KIV_ATTR( U32, fdbFlushReport, 0 )         // the last request that was carried out
 public:
   explicit TopoPortStatus( const Ulnet::IntfId & intf ) : intf_( intf ) {}
   Ulnet::IntfId intf() const { return intf_; }

 private:
   const Ulnet::IntfId intf_;
};

namespace Inst {

class TopoStatus : public Kiv::Entity {
   KIV_BODY( TopoStatus, Kiv::Entity )
   KIV_ATTR( U32, topoId, 0 )
   KIV_ENTITIES( Ulnet::IntfId, TopoPortStatus, topoPortStatus )
 public:
   explicit TopoStatus( const String & name, U32 topoId = 0 )
       : Kiv::Entity( name ), topoId_( topoId ) {}
};

/** The topologies of one instance of the spanning-tree agent. */
class Status : public Kiv::Entity {
   KIV_BODY( Status, Kiv::Entity )
   KIV_ENTITIES( String, TopoStatus, topoStatus )
 public:
   explicit Status( const String & name ) : Kiv::Entity( name ) {}
};

} // namespace Inst
} // namespace Bridging::Topology
