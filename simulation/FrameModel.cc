#include "simulation/FrameModel.h"

#include "simulation/World.h"

namespace Sim {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using SoftChip::Frame;
using SoftChip::Tags;
using Ulnet::IntfId;

namespace {

constexpr U64 bpduAddress = 0x0180c2000000;
constexpr U64 perVlanBpduAddress = 0x01000ccccccd;

/** Each of these with each of those. */
Choice
both( const Choice & these, const Choice & those ) {
   Choice all;
   for ( auto & one : these ) {
      for ( auto & other : those ) {
         all.push_back( one );
         all.back().insert( all.back().end(), other.begin(), other.end() );
      }
   }
   return all;
}

} // namespace

String
Leaving::text() const {
   String text = port.stringValue();
   text += tags.outer.isNone() ? "" : "/" + tags.outer.stringValue();
   text += tags.inner.isNone() ? "" : "." + tags.inner.stringValue();
   return session.empty() ? text : text + "(" + session + ")";
}

FrameModel::FrameModel( const World & world, Members members )
    : world_( world ), members_( std::move( members ) ), storm_( world.feature< SimStorm >() ),
      acl_( world.feature< SimAcl >() ), tapAgg_( world.feature< SimTapAgg >() ),
      hosts_( world.feature< SimHostTable >() ), multicast_( world.feature< SimMulticast >() ) {
   if ( auto topology = world.feature< SimTopology >() ) {
      topology_ = world.perVlan() ? nullptr : topology;
      trapping_ = topology->wantedTrapping();
   }
   auto lags = world.feature< SimLag >();
   for ( U32 i = 0; lags && i < world.size( Range::lag ); ++i ) {
      const IntfId lag = world.lag( i );
      groups_[lag] = lags->wantedInChip( lag );
      for ( auto & [port, member] : groups_[lag] ) {
         if ( !member.shared() ) {
            lagOf_[port] = lag;
         }
      }
   }
   if ( auto mapping = world.feature< SimVlanMapping >() ) {
      mappings_ = mapping->wantedInChip();
      for ( auto & [key, to] : mappings_ ) {
         auto & [direction, port, vlan, native] = key;
         if ( native ) {
            natives_[{ direction, port }] = to.vlanId();
         }
      }
   }
   if ( auto mirror = world.feature< SimMirror >() ) {
      const auto sessions = mirror->wantedInChip();
      mirrorKnown_ = bool( sessions );
      sessions_ = sessions.value_or( std::vector< SimMirror::Copies >() );
   }
   if ( acl_ ) {
      deciders_ = acl_->deciders();
   }
}

// --- What the features want ----------------------------------------------------------------------

FrameModel::Answer
FrameModel::answerOf( const std::optional< bool > & known ) {
   return !known ? Answer::unknown : *known ? Answer::yes : Answer::no;
}

IntfId
FrameModel::lagOf( IntfId port ) const {
   auto lag = lagOf_.find( port );
   return lag == lagOf_.end() ? IntfId() : lag->second;
}

/** Members of an aggregate share a copy. */
IntfId
FrameModel::targetOf( IntfId port ) const {
   const IntfId lag = lagOf( port );
   return lag ? lag : port;
}

std::optional< Qon::VlanMembership >
FrameModel::membership( VlanId vlan, IntfId port ) const {
   auto member = members_.find( { vlan, port } );
   return member == members_.end() ? Qon::VlanMembership() : member->second;
}

FrameModel::Answer
FrameModel::passes( VlanId vlan, IntfId port ) const {
   return topology_ ? answerOf( topology_->passes( vlan, port ) ) : Answer::yes;
}

SimHostTable::Place
FrameModel::host( const Trip & trip ) const {
   return hosts_ ? hosts_->wantedInChip( { trip.frame.packet.ethDst, trip.tags.outer } )
                 : SimHostTable::Place();
}

SimMulticast::Way
FrameModel::group( const Trip & trip ) const {
   return multicast_ ? multicast_->wantedInChip( { trip.frame.packet.ethDst, trip.tags.outer } )
                     : SimMulticast::Way();
}

/** Those of which one takes a copy; `trip` if members that the peer link lends may: not for what is
    flooded, nor back to the peer link. */
std::vector< IntfId >
FrameModel::takers( const Trip * trip, IntfId target ) const {
   if ( !Ulnet::PortChannelIntfId::isPortChannelIntfId( target ) ) {
      return { target };
   }
   std::vector< IntfId > own, lent;
   auto group = groups_.find( target );
   for ( auto & [port, member] : group == groups_.end() ? SimLag::Group() : group->second ) {
      if ( member.distributing() && !member.shared() ) {
         own.push_back( port );
      } else if ( member.distributing() && trip && !trip->flooded && port != trip->intf &&
                  targetOf( port ) != trip->intf ) {
         lent.push_back( port );
      }
   }
   return own.empty() ? lent : own;
}

/** Translations here are of outer tags alone. */
void
FrameModel::map( MappingDirection direction, IntfId port, Tags & tags ) const {
   if ( tags.outer.isNone() ) {
      auto native = natives_.find( { direction, port } );
      tags.outer = native == natives_.end() ? tags.outer : VlanIdOrNone( U32( native->second ) );
      return;
   }
   auto to = mappings_.find( { direction, port, tags.outer.value(), false } );
   tags.outer = to == mappings_.end() ? tags.outer : VlanIdOrNone( to->second.vlanId() );
}

// --- In ------------------------------------------------------------------------------------------

bool
FrameModel::open( VlanId vlan, IntfId port ) const {
   const auto how = membership( vlan, port );
   return how && how->ingress && passes( vlan, port ) == Answer::yes;
}

/** Brings it into its VLAN. */
FrameModel::Answer
FrameModel::comesIntoVlan( Trip & trip ) const {
   const IntfId port = trip.frame.port;
   map( MappingDirection::ingress, port, trip.tags );
   if ( !trip.tags.outer.isNone() ) {
      auto how = membership( trip.vlan(), port );
      return answerOf( how ? std::optional( how->ingress ) : std::nullopt );
   }
   U32 vlans = 0;
   bool known = true;
   for ( U32 i = 0; i < world_.size( Range::vlan ); ++i ) {
      const auto how = membership( world_.vlan( i ), port );
      known = known && how;
      if ( how && how->ingress && !how->tagged ) {
         ++vlans;
         trip.tags.outer = world_.vlan( i );
      }
   }
   return !known || vlans > 1 ? Answer::unknown : vlans ? Answer::yes : Answer::no;
}

FrameModel::Answer
FrameModel::stormStops( const Trip & trip ) const {
   using Bridging::StormControl::Level;
   const Ulnet::EthAddr to = trip.frame.packet.ethDst;
   const Level level = to.isBroadcast()   ? Level::broadcast
                       : to.isMulticast() ? Level::multicast
                                          : Level::uUcast;
   const auto at = host( trip );
   if ( !storm_ || ( level == Level::uUcast && at.known && at.intf ) ) {
      return Answer::no;
   }
   const auto stops = storm_->stops( trip.frame.port, level, trip.frame.priority );
   return at.known || ( stops && !*stops ) ? answerOf( stops ) : Answer::unknown;
}

/** Those of the port, and of its VLAN's interface. */
FrameModel::Answer
FrameModel::listsPermit( const Trip & trip, IntfId port, Acl::AclDirection direction,
                         Expected & expected ) const {
   SimAcl::Decision decision;
   for ( IntfId intf : { port, Ulnet::VlanIntfId::intfId( trip.vlan() ) } ) {
      auto lists = deciders_.find( { intf, direction } );
      if ( lists != deciders_.end() ) {
         acl_->ask( lists->second, trip.frame.packet, decision );
      }
   }
   for ( auto & session : sessions_ ) {
      if ( !decision.known || decision.mirrorGroups.contains( S32( session.group ) ) ) {
         expected.loose.insert( session.name );
      }
   }
   return !decision.known ? Answer::unknown : decision.permits ? Answer::yes : Answer::no;
}

/** Whether it goes on to its destination; with the copies that leave in any case. */
FrameModel::Answer
FrameModel::goesIn( Trip & trip, Expected & expected ) const {
   const Frame & frame = trip.frame;
   const U64 to = frame.packet.ethDst.value();
   const Leaving cpu = { Ulnet::CpuIntfId::intfId(), frame.tags, "" };
   if ( ( trapping_.bpdu && to == bpduAddress ) ||
        ( trapping_.perVlan && to == perVlanBpduAddress ) ) {
      expected.copies.push_back( { { cpu } } );
      return Answer::no;
   }
   if ( const Answer in = comesIntoVlan( trip ); in != Answer::yes ) {
      return in;
   }
   if ( const Answer pass = passes( trip.vlan(), frame.port ); pass != Answer::yes ) {
      return pass;
   }
   if ( const Answer stops = stormStops( trip ); stops != Answer::no ) {
      return stops == Answer::yes ? Answer::no : stops;
   }
   const Answer permit = listsPermit( trip, frame.port, Acl::AclDirection::in, expected );
   if ( permit == Answer::yes ) {
      addMirrored( frame.port, Direction::rx, frame.tags, expected.copies, expected );
   }
   return permit;
}

// --- Out -----------------------------------------------------------------------------------------

std::optional< std::map< IntfId, bool > >
FrameModel::targets( Trip & trip ) const {
   std::map< IntfId, bool > all;
   auto add = [&]( IntfId port, bool sure ) { all[targetOf( port )] |= sure; };
   const auto at = host( trip );
   const auto way = group( trip );
   if ( !at.known || ( way.there && !way.known ) ) {
      return std::nullopt;
   }
   if ( at.intf ) {
      all[at.intf] = true;
      return all;
   }
   if ( way.there ) {
      for ( IntfId port : way.allowed ) {
         add( port, way.ports.contains( port ) );
      }
      return all;
   }
   trip.flooded = true;
   for ( U32 i = 0; i < world_.size( Range::port ); ++i ) {
      const auto how = membership( trip.vlan(), world_.port( i ) );
      if ( !how || how->egress ) {
         add( world_.port( i ), bool( how ) );
      }
   }
   return all;
}

/** What leaves by a port that was chosen; nothing is one of the things that may. */
Choice
FrameModel::leaveBy( const Trip & trip, IntfId port, Expected & expected ) const {
   const VlanId vlan = trip.vlan();
   const Answer pass = passes( vlan, port );
   const auto how = membership( vlan, port );
   if ( pass == Answer::no || ( how && !how->egress ) ) {
      return { {} };
   }
   const Answer permit = listsPermit( trip, port, Acl::AclDirection::out, expected );
   Choice all;
   if ( pass == Answer::unknown || !how || permit != Answer::yes ) {
      all.push_back( {} );
   }
   for ( bool tagged : { false, true } ) {
      if ( permit == Answer::no || ( how && how->tagged != tagged ) ) {
         continue;
      }
      Tags tags = { tagged ? trip.tags.outer : VlanIdOrNone(), trip.tags.inner };
      map( MappingDirection::egress, port, tags );
      tags = tags.onTheWire();
      Choice one = { { { port, tags, "" } } };
      std::vector< Choice > mirrored;
      addMirrored( port, Direction::tx, tags, mirrored, expected );
      for ( auto & copy : mirrored ) {
         one = both( one, copy );
      }
      all.insert( all.end(), one.begin(), one.end() );
   }
   return all;
}

/** Nothing goes back to where it came from. */
Choice
FrameModel::leave( const Trip & trip, IntfId target, bool sure, Expected & expected ) const {
   Choice all;
   const auto ports = target == trip.intf ? std::vector< IntfId >() : takers( &trip, target );
   for ( IntfId port : ports ) {
      const Choice by = leaveBy( trip, port, expected );
      all.insert( all.end(), by.begin(), by.end() );
   }
   if ( ports.empty() || !sure ) {
      all.push_back( {} );
   }
   return all;
}

Choice
FrameModel::sessionCopy( const SimMirror::Copies & session, IntfId target,
                         const Tags & tags ) const {
   Choice all;
   for ( IntfId port : takers( nullptr, target ) ) {
      all.push_back( { { port, tags, session.name } } );
   }
   return all.empty() ? Choice{ {} } : all;
}

/** One copy by each destination, and one into the tunnel. */
void
FrameModel::addMirrored( IntfId port, Direction direction, const Tags & tags,
                         std::vector< Choice > & choices, Expected & expected ) const {
   for ( auto & session : sessions_ ) {
      if ( !session.known ) {
         expected.loose.insert( session.name );
      }
      auto source = session.sources.find( port );
      if ( source == session.sources.end() || !Mirroring::has( source->second, direction ) ) {
         continue;
      }
      std::set< IntfId > targets;
      for ( IntfId target : session.targets ) {
         targets.insert( targetOf( target ) );
      }
      for ( IntfId target : targets ) {
         choices.push_back( sessionCopy( session, target, tags ) );
      }
      if ( session.tunnel ) {
         choices.push_back( sessionCopy( session, session.tunnel, { session.tunnelVlan, {} } ) );
      }
   }
}

std::optional< FrameModel::Expected >
FrameModel::of( const Frame & frame ) const {
   Expected expected;
   expected.mirrorKnown = mirrorKnown_;
   const IntfId lag = lagOf( frame.port );
   Trip trip = { frame, lag ? lag : frame.port, frame.tags };
   if ( lag && !groups_.at( lag ).at( frame.port ).collecting() ) {
      return expected;
   }
   const auto road = tapAgg_ ? tapAgg_->road( trip.intf, frame.tags ) : SimTapAgg::Road();
   for ( auto & way : road.ways ) {
      Choice choice;
      for ( IntfId port : way.ports ) {
         choice.push_back( { { port, way.tags, "" } } );
      }
      expected.copies.push_back( choice );
   }
   if ( !road.known || road.tap || road.tool ) {
      return road.known ? std::optional( expected ) : std::nullopt;
   }
   const Answer in = goesIn( trip, expected );
   const auto to = in == Answer::yes ? targets( trip ) : std::nullopt;
   if ( in == Answer::unknown || ( in == Answer::yes && !to ) ) {
      return std::nullopt;
   }
   for ( auto & [target, sure] : to.value_or( std::map< IntfId, bool >() ) ) {
      expected.copies.push_back( leave( trip, target, sure, expected ) );
   }
   return expected;
}

} // namespace Sim
