#pragma once
// What shall become of a frame, at rest: from what the features want of the chip straight to the copies
// that leave. Which member of an aggregate takes a copy is the chip's choice, and where nobody says what
// the chip holds, a copy may leave or not.
//
//    configuration -> what each feature wants of the chip -.
//                                     a frame -> of() ------+--> copies that must leave, or may
//
// Where too little is known of a frame's road, nothing is said of it.

#include <optional>

#include "agent/softchip/Road.h"
#include "simulation/SimAcl.h"
#include "simulation/SimHostTable.h"
#include "simulation/SimLag.h"
#include "simulation/SimMirror.h"
#include "simulation/SimMulticast.h"
#include "simulation/SimStorm.h"
#include "simulation/SimTapAgg.h"
#include "simulation/SimTopology.h"
#include "simulation/SimVlanMapping.h"

namespace Sim {

/** A copy that leaves, as far as the model looks at it. */
struct Leaving {
   Ulnet::IntfId port;
   SoftChip::Tags tags;
   String session; ///< the mirror session that made it; empty: none did
   bool operator==( const Leaving & ) const = default;
   String text() const;
};
using Leavings = std::vector< Leaving >;

/** One of several things may become of a copy of the frame. */
using Choice = std::vector< Leavings >;

class FrameModel {
 public:
   using IntfId = Ulnet::IntfId;
   using VlanId = Bridging::VlanId;
   /** The memberships of VLANs that the chip shall hold; nothing where nobody says so. */
   using Members = std::map< std::pair< VlanId, IntfId >, std::optional< Qon::VlanMembership > >;

   /** Looks at what the features want now. */
   FrameModel( const World & world, Members members );

   struct Expected {
      std::vector< Choice > copies;
      std::set< String > loose; ///< mirror sessions whose copies are not foreseen
      bool mirrorKnown = true;  ///< false: those of all sessions
      bool isLoose( const Leaving & copy ) const {
         return !copy.session.empty() && ( !mirrorKnown || loose.contains( copy.session ) );
      }
   };
   /** None: nothing can be said. */
   std::optional< Expected > of( const SoftChip::Frame & frame ) const;
   /** Whether frames of the VLAN that arrive at the port get as far as the lists. */
   bool open( VlanId vlan, IntfId port ) const;

 private:
   using Direction = Mirroring::Direction;
   using MappingDirection = Bridging::VlanMappingDirection;
   using Tags = SoftChip::Tags;

   /** The frame in its VLAN. */
   struct Trip {
      const SoftChip::Frame & frame;
      IntfId intf; ///< where it came in: the port or its aggregate
      Tags tags;
      bool flooded = false;
      VlanId vlan() const { return VlanId( U32( tags.outer.value() ) ); }
   };
   enum class Answer : U8 { no, yes, unknown };

   static Answer answerOf( const std::optional< bool > & known );
   Answer goesIn( Trip & trip, Expected & expected ) const;
   Answer comesIntoVlan( Trip & trip ) const;
   Answer stormStops( const Trip & trip ) const;
   Answer listsPermit( const Trip & trip, IntfId port, Acl::AclDirection direction,
                       Expected & expected ) const;
   /** Where it is to leave by, and whether that is sure. */
   std::optional< std::map< IntfId, bool > > targets( Trip & trip ) const;
   Choice leave( const Trip & trip, IntfId target, bool sure, Expected & expected ) const;
   Choice leaveBy( const Trip & trip, IntfId port, Expected & expected ) const;
   void addMirrored( IntfId port, Direction direction, const Tags & tags,
                     std::vector< Choice > & choices, Expected & expected ) const;
   Choice sessionCopy( const SimMirror::Copies & session, IntfId target, const Tags & tags ) const;

   IntfId lagOf( IntfId port ) const;
   IntfId targetOf( IntfId port ) const;
   std::vector< IntfId > takers( const Trip * trip, IntfId target ) const;
   std::optional< Qon::VlanMembership > membership( VlanId vlan, IntfId port ) const;
   Answer passes( VlanId vlan, IntfId port ) const;
   SimHostTable::Place host( const Trip & trip ) const;
   SimMulticast::Way group( const Trip & trip ) const;
   void map( MappingDirection direction, IntfId port, Tags & tags ) const;

   const World & world_;
   const Members members_;
   const SimTopology * topology_ = nullptr; ///< null on a chip without tables
   const SimStorm * storm_;
   const SimAcl * acl_;
   const SimTapAgg * tapAgg_;
   const SimHostTable * hosts_;
   const SimMulticast * multicast_;
   SoftChip::BpduTrapping trapping_;
   std::map< IntfId, SimLag::Group > groups_;
   std::map< IntfId, IntfId > lagOf_; ///< of own members
   std::map< VlanMappingModel::Port, VlanMappingModel::Mapping > mappings_;
   std::map< std::pair< MappingDirection, IntfId >, U16 > natives_;
   std::vector< SimMirror::Copies > sessions_;
   bool mirrorKnown_ = true;
   SimAcl::Deciders deciders_;
};

} // namespace Sim
