#include "simulation/SimFrames.h"

#include <algorithm>

#include "agent/softchip/VlanPart.h"
#include "simulation/World.h"

namespace Sim {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using SoftChip::Frame;
using Ulnet::IntfId;

namespace {

constexpr U32 framesAtRest = 400;
// So many ways to match copies are looked at; more only where hardly anything is known.
constexpr U32 mostTries = 20000;

/** As far as the model looks at it. */
Leaving
leavingOf( const SoftChip::Copy & copy ) {
   const String mirrored = "mirrored by ";
   Leaving leaving = { copy.port, copy.tags, "" };
   if ( !copy.changes.empty() && copy.changes.front().starts_with( mirrored ) ) {
      leaving.session = copy.changes.front().substr( mirrored.size() );
   }
   return leaving;
}

/** Whether exactly these copies can come of the choices. */
class Match {
 public:
   Match( std::vector< Choice > choices, const Leavings & copies )
       : choices_( std::move( choices ) ), copies_( copies ), used_( copies.size() ) {
      std::stable_sort( choices_.begin(), choices_.end(),
                        []( auto & a, auto & b ) { return a.size() < b.size(); } );
   }
   bool possible() { return from( 0 ) || tries_ > mostTries; }

 private:
   bool from( std::size_t n ) {
      if ( n == choices_.size() ) {
         return std::count( used_.begin(), used_.end(), false ) == 0;
      }
      for ( auto & option : choices_[n] ) {
         const auto before = used_;
         if ( ++tries_ <= mostTries && take( option ) && from( n + 1 ) ) {
            return true;
         }
         used_ = before;
      }
      return false;
   }
   bool take( const Leavings & option ) {
      for ( auto & wanted : option ) {
         std::size_t i = 0;
         while ( i < copies_.size() && ( used_[i] || !( copies_[i] == wanted ) ) ) {
            ++i;
         }
         if ( i == copies_.size() ) {
            return false;
         }
         used_[i] = true;
      }
      return true;
   }

   std::vector< Choice > choices_;
   const Leavings & copies_;
   std::vector< bool > used_;
   U32 tries_ = 0;
};

String
shown( const Leavings & copies ) {
   String text;
   for ( auto & copy : copies ) {
      text += ( text.empty() ? "" : "+" ) + copy.text();
   }
   return text.empty() ? "nothing" : text;
}

String
shown( const std::vector< Choice > & choices ) {
   String text;
   for ( auto & choice : choices ) {
      String options;
      for ( auto & option : choice ) {
         options += ( options.empty() ? "" : "|" ) + shown( option );
      }
      text += " " + options;
   }
   return text.empty() ? " nothing" : text;
}

String
shown( const Frame & frame ) {
   const auto & packet = frame.packet;
   return "at " + frame.port.stringValue() + " from " + packet.ethSrc.stringValue() + " to " +
          packet.ethDst.stringValue() + " " + SoftChip::shown( frame.tags ) + ", class " +
          std::to_string( frame.priority ) +
          ( packet.src.isNull() ? "" : ", protocol " + std::to_string( packet.protocol ) );
}

} // namespace

SimFrames::SimFrames( World & world )
    : SimFeature( world ), rng_( world.chance( 90 ) ),
      table_( world.chip->of< SoftChip::VlanPart >().table() ) {}

void
SimFrames::start() {
   if ( !world_.perVlan() ) {
      helper_ = Velto::make< SoftChip::SoftVlanHelper >( "frameVlans", world_.acsd.ptr(), table_ );
      helper_->hasNotificationActiveIs( true );
      for ( auto & [place, how] : wanted_ ) {
         ask( place );
      }
      drawMembers( wanted_.empty() ? 100 : 0 );
   }
}

void
SimFrames::kill( Ending ) {
   if ( helper_ ) {
      stop();
      table_.reset();
   }
}

void
SimFrames::ask( const Place & place ) {
   const auto & how = wanted_[place];
   helper_->requestPortVlanMembershipChange( Qon::PortVlanMembershipChangeKind::setOverride,
                                             place.second, place.first, how.tagged, how.ingress,
                                             how.egress );
}

void
SimFrames::stop() {
   helper_ = nullptr;
}

/** Some ports are in other VLANs from now on. Most are in most, and in one of them without tags. */
void
SimFrames::drawMembers( U32 percent ) {
   for ( U32 i = 0; helper_ && i < world_.size( Range::port ); ++i ) {
      const IntfId port = world_.port( i );
      if ( !rng_.percent( percent ) ) {
         continue;
      }
      const VlanId native = world_.vlan( rng_.below( world_.size( Range::vlan ) ) );
      for ( U32 n = 0; n < world_.size( Range::vlan ); ++n ) {
         const VlanId vlan = world_.vlan( n );
         const bool in = rng_.percent( 80 ), out = in != rng_.percent( 5 );
         wanted_[{ vlan, port }] = { vlan != native && ( in || out ), in, out };
         ask( { vlan, port } );
      }
   }
}

void
SimFrames::faultsIs( bool on ) {
   if ( ended_ ) {
      return;
   }
   on ? drawMembers( 10 ) : openRoads();
}

/** Of what is configured at random hardly any frame gets through. So before a rest some VLANs are made to
    forward, by what the others can do. */
void
SimFrames::openRoads() {
   const auto number = []( U32 n ) { return " " + std::to_string( n ); };
   if ( rng_.percent( 70 ) ) {
      apply( "mode mode 0" );
   }
   for ( U32 n = rng_.below( 4 ); n > 0; --n ) {
      const String vlan = number( rng_.below( world_.size( Range::vlan ) ) ),
                   topo = number( rng_.below( world_.size( Range::topo ) ) ),
                   id = number( rng_.below( 8 ) );
      apply( "topology config" + topo + id );
      apply( "topology status" + topo + id );
      apply( "topology map" + vlan + topo );
      apply( "topology burst" + topo + " 6" );
      for ( U32 i = 0; i < world_.size( Range::port ); ++i ) {
         const U32 tagged = rng_.oneIn( 8 ) ? 0 : 4, both = rng_.oneIn( 8 ) ? 1 : 3;
         apply( "vlan override" + number( i ) + vlan + number( tagged + both ) );
      }
   }
}

void
SimFrames::apply( const String & event ) {
   world_.transcript.add( "frames", event );
   world_.apply( Event::parsed( event ) );
}

FrameModel::Members
SimFrames::members() const {
   auto vlans = world_.feature< SimVlan >();
   FrameModel::Members members;
   for ( U32 n = 0; n < world_.size( Range::vlan ); ++n ) {
      for ( U32 i = 0; i < world_.size( Range::port ); ++i ) {
         const VlanId vlan = world_.vlan( n );
         const IntfId port = world_.port( i );
         auto own = wanted_.find( { vlan, port } );
         members[{ vlan, port }] = own != wanted_.end()        ? own->second
                                   : world_.perVlan() && vlans ? vlans->wantedInChip( vlan, port )
                                                               : Qon::VlanMembership();
      }
   }
   return members;
}

// --- Frames --------------------------------------------------------------------------------------

/** Mostly of hosts and groups of the VLAN. */
Ulnet::EthAddr
SimFrames::destination( VlanId vlan ) const {
   auto hosts = world_.feature< SimHostTable >();
   auto multicast = world_.feature< SimMulticast >();
   const U32 kind = rng_.below( 10 ), which = rng_.below( 64 );
   if ( kind < 5 && hosts ) {
      const U32 vlans = world_.size( Range::vlan ), first = ( vlan.value() - 10 ) / 10;
      return hosts->host( first + which * vlans ).mac();
   }
   if ( kind < 7 && multicast ) {
      return multicast->groupKey( which, 0 ).mac();
   }
   constexpr U64 others[] = { 0xffffffffffff, 0x0180c2000000, 0x01000ccccccd, 0x020000009999 };
   return Ulnet::EthAddr( others[which % std::size( others )] );
}

/** Where frames get in, in the VLANs that the model knows of. */
std::vector< SimFrames::Place >
SimFrames::openPlaces( const FrameModel & model ) const {
   std::vector< Place > places;
   for ( U32 n = 0; n < world_.size( Range::vlan ); ++n ) {
      for ( U32 i = 0; i < world_.size( Range::port ); ++i ) {
         if ( model.open( world_.vlan( n ), world_.port( i ) ) ) {
            places.push_back( { world_.vlan( n ), world_.port( i ) } );
         }
      }
   }
   return places;
}

SimFrames::Place
SimFrames::anyPlace() const {
   return { world_.vlan( rng_.below( world_.size( Range::vlan ) ) ),
            world_.port( rng_.below( world_.size( Range::port ) ) ) };
}

SoftChip::Tags
SimFrames::drawTags( VlanId vlan ) const {
   const U32 tag = rng_.below( 10 );
   SoftChip::Tags tags;
   tags.outer = tag < 7 ? VlanIdOrNone( vlan )
                : tag < 9
                      ? VlanIdOrNone()
                      : VlanIdOrNone( U32( 100 + rng_.below( 8 ) ) ); // as translations make them
   if ( tag % 5 == 0 ) {
      tags.inner = VlanIdOrNone( U32( 300 + rng_.below( 2 ) ) );
   }
   return tags;
}

/** Such as the rules of access lists look for. */
void
SimFrames::drawPacket( QonChip::AclPacket & packet ) const {
   constexpr U8 protocols[] = { 6, 17, 1 };
   const bool six = rng_.oneIn( 3 );
   packet.etherType = six ? 0x86dd : 0x0800;
   packet.src = Ulnet::IpGenAddr( six ? "2001:db8::1" : rng_.oneIn( 2 ) ? "10.1.1.1" : "11.1.1.1" );
   packet.dst = Ulnet::IpGenAddr( six ? "2001:db8::2" : "10.2.2.2" );
   packet.protocol = protocols[rng_.below( 3 )];
   packet.fragment = rng_.oneIn( 5 );
   if ( packet.protocol != 1 && !packet.fragment ) {
      packet.srcPort = U16( 1024 );
      packet.dstPort = U16( 79 + rng_.below( 6 ) );
   }
}

Frame
SimFrames::frame( const Place & at ) const {
   Frame frame;
   frame.port = at.second;
   frame.tags = drawTags( at.first );
   frame.priority = U8( rng_.below( 8 ) );
   frame.packet.ethDst = destination( at.first );
   const U64 source = rng_.oneIn( 4 ) ? 2 : 0x021122000000; // of a host with lists, or not
   frame.packet.ethSrc = Ulnet::EthAddr( source + rng_.below( 3 ) );
   frame.packet.etherType = 0x88b5;
   if ( rng_.oneIn( 3 ) ) {
      drawPacket( frame.packet );
   }
   return frame;
}

// --- Checks --------------------------------------------------------------------------------------

String
SimFrames::checkInvariants() const {
   return helper_ && ++sinceCheck_ % 4 == 0 ? helper_->checkInvariants() : "";
}

String
SimFrames::check( const FrameModel & model, const Frame & frame ) const {
   auto expected = model.of( frame );
   if ( !expected ) {
      return {};
   }
   const auto isLoose = [&]( auto & copy ) { return expected->isLoose( copy ); };
   Leavings leavings;
   for ( auto & copy : world_.chip->forward( frame ).copies ) {
      leavings.push_back( leavingOf( copy ) );
   }
   std::erase_if( leavings, isLoose );
   for ( auto & choice : expected->copies ) {
      for ( auto & option : choice ) {
         std::erase_if( option, isLoose );
      }
   }
   return Match( expected->copies, leavings ).possible()
                ? ""
                : "frame: " + shown( frame ) + " leaves by " + shown( leavings ) + ", wanted is" +
                        shown( expected->copies );
}

String
SimFrames::checkAtRest() const {
   const FrameModel model( world_, members() );
   const auto open = openPlaces( model );
   for ( U32 i = 0; i < framesAtRest; ++i ) {
      const bool anywhere = open.empty() || rng_.oneIn( 4 );
      const Place at = anywhere ? anyPlace() : open[rng_.below( U32( open.size() ) )];
      if ( String wrong = check( model, frame( at ) ); !wrong.empty() ) {
         return wrong;
      }
   }
   return {};
}

void
SimFrames::tearDown() {
   for ( U32 i = 0; helper_ && i < world_.size( Range::vlan ); ++i ) {
      helper_->vlanDel( world_.vlan( i ) );
   }
   wanted_.clear();
   ended_ = true;
}

String
SimFrames::checkTornDown() const {
   for ( U32 i = 0; helper_ && i < world_.size( Range::vlan ); ++i ) {
      if ( !table_.ports( world_.vlan( i ) ).empty() ) {
         return "ports left in the chip: VLAN " + world_.vlan( i ).stringValue();
      }
   }
   return {};
}

FeatureKind
simFrames() {
   return featureKindOf< SimFrames >( "frames" );
}

} // namespace Sim
