#include "simulation/SimMulticast.h"

#include "simulation/SimLag.h"
#include "simulation/World.h"

namespace Sim {

using Bridging::VlanId;
using Ulnet::EthAddr;
using Ulnet::IntfId;

namespace {

constexpr U64 firstAddress = 0x01005e010100;

class Bitmap : public SoftChip::SoftMulticastBitmap {
 public:
   template< class... Args >
   explicit Bitmap( SimMulticast & sim, Args &&... args )
       : SoftMulticastBitmap( std::forward< Args >( args )... ), sim_( sim ) {}
   S64 createL2MulticastEntry() override {
      sim_.hookCalled();
      return SoftMulticastBitmap::createL2MulticastEntry();
   }
   void writeGroupsToHardware( const QonTypes::Bitmap & ports ) override {
      SoftMulticastBitmap::writeGroupsToHardware( ports );
      sim_.hookCalled();
   }

 private:
   SimMulticast & sim_;
};

class Entry : public SoftChip::SoftMulticastEntry {
 public:
   template< class... Args >
   explicit Entry( SimMulticast & sim, Args &&... args )
       : SoftMulticastEntry( std::forward< Args >( args )... ), sim_( sim ) {}
   TableAddStatus updateMacTableEntry() override {
      const TableAddStatus status = SoftMulticastEntry::updateMacTableEntry();
      sim_.hookCalled();
      return status;
   }
   void deleteMacTableEntry() override {
      SoftMulticastEntry::deleteMacTableEntry();
      sim_.hookCalled();
   }

 private:
   SimMulticast & sim_;
};

class Factory : public SoftChip::SoftMulticastFactory {
 public:
   Factory( SimMulticast & sim, SoftChip::MulticastTable & table )
       : SoftMulticastFactory( table ), sim_( sim ), table_( table ) {}
   Velto::Ptr< Qon::HardwareL2MulticastEntry >
   getHardwareL2MulticastEntry( Qon::MulticastHelper * helper, S64 vGroup ) override {
      sim_.hookCalled();
      return Velto::make< Entry >( sim_, table_, helper, vGroup );
   }
   Velto::Ptr< Qon::HardwareL2MulticastBitmap >
   getHardwareL2MulticastBitmap( Qon::MulticastHelper * helper, const QonTypes::Bitmap & ports,
                                 const Qon::BitmapInfoType & info ) override {
      sim_.hookCalled();
      return Velto::make< Bitmap >( sim_, table_, helper, ports, info );
   }

 private:
   SimMulticast & sim_;
   SoftChip::MulticastTable & table_;
};

} // namespace

std::span< const Operation >
SimMulticast::operations() {
   static const Operation table[] = {
         { "join", 60, { Range::few, Range::vlan, Range::intf }, &SimMulticast::join },
         { "leave", 40, { Range::few, Range::vlan, Range::intf }, &SimMulticast::leave },
         { "no-group", 10, { Range::few, Range::vlan }, &SimMulticast::groupDel },
         { "recreate", 6, { Range::few, Range::vlan, Range::intf }, &SimMulticast::recreate },
         { "valid", 5, { Range::few, Range::vlan, Range::flag }, &SimMulticast::validIs },
         { "router", 8, { Range::vlan, Range::intf, Range::flag }, &SimMulticast::routerIs },
         { "no-vlan", 2, { Range::vlan }, &SimMulticast::vlanDel },
         { "static", 10, { Range::few, Range::vlan, Range::intf }, &SimMulticast::staticIs },
         { "no-static", 6, { Range::few, Range::vlan }, &SimMulticast::staticDel },
         { "member", 12, { Range::lag, Range::port, Range::few }, &SimMulticast::memberIs },
         { "port", 6, { Range::port, Range::few }, &SimMulticast::portIs },
         { "mlag", 3, { Range::intf, Range::flag }, &SimMulticast::mlagIs },
         { "parity", 3, { Range::flag, Range::few }, &SimMulticast::parity },
         { "number", 1, { Range::flag }, &SimMulticast::numberIs },
         { "nested", 4, { Range::few, Range::hundred }, &SimMulticast::nestedIs },
         { "pause", 2, { Range::flag }, &SimMulticast::pauseIs },
         { "restart", 1, { Range::few }, &SimMulticast::restart },
   };
   return table;
}

SimMulticast::SimMulticast( World & world )
    : SimFeature( world ), table_( world.chip->of< SoftChip::MulticastPart >().table() ),
      status_( Velto::make< Bridging::IgmpSnooping::Status >( "status" ) ),
      static_( Velto::make< Bridging::Multicast::StaticConfig >( "static" ) ) {
   if ( !world_.feature< SimLag >() ) {
      for ( U32 i = 0; i < world_.size( Range::port ); ++i ) {
         world_.acsd->intfIs( world_.port( i ), true );
      }
   }
}

void
SimMulticast::shape( const World & world, SoftChip::Shape & shape ) {
   Rng rng = world.chance( 80 );
   shape.multicast.groups = rng.between( 0, 12 );
}

void
SimMulticast::drawFaults( Rng & rng, std::vector< String > & lines ) const {
   lines.push_back( "multicastGroup full 0 0 " + often( rng, 150 ) );
   lines.push_back( "multicastMac full 0 0 " + often( rng, 150 ) );
   lines.push_back( "multicastMac busy 0 0 " + often( rng, 150 ) );
}

void
SimMulticast::start() {
   helper_ = Qon::MulticastHelperIs( "multicast",
                                     { world_.acsd, Velto::make< Factory >( *this, table_ ),
                                       nullptr, world_.scheduler.timerWheel() } );
   sm_ = Qon::IgmpSnoopingSmIs( { helper_, status_, static_ } );
   sm_->initializedIs( true );
}

void
SimMulticast::stop() {
   sm_->doCleanup();
   sm_ = nullptr;
   helper_ = nullptr;
}

// --- Operations ------------------------------------------------------------------------------------

EthAddr
SimMulticast::address( U32 i ) const {
   return EthAddr( firstAddress + i % 8 );
}

SimMulticast::Key
SimMulticast::key( U32 group, U32 vlan ) const {
   return Key( address( group ), world_.vlan( vlan ) );
}

Velto::Ptr< SimMulticast::Group >
SimMulticast::group( const Event & event ) const {
   auto vlan = status_->vlanStatus( world_.vlan( event[1] ) );
   return vlan ? vlan->ethGroup( address( event[0] ) ) : nullptr;
}

void
SimMulticast::join( const Event & event ) {
   const auto vlan = status_->vlanStatusIs( world_.vlan( event[1] ) );
   vlan->ethGroupIs( address( event[0] ) )->intfIs( world_.intf( event[2] ) );
}

void
SimMulticast::leave( const Event & event ) {
   if ( auto held = group( event ) ) {
      held->intfDel( world_.intf( event[2] ) );
   }
}

/** What was said of a group goes with it, in silence. */
void
SimMulticast::groupDel( const Event & event ) {
   if ( const auto vlan = Velto::Ptr( status_->vlanStatus( world_.vlan( event[1] ) ) ) ) {
      vlan->ethGroupDel( address( event[0] ) );
   }
}

void
SimMulticast::recreate( const Event & event ) {
   if ( group( event ) ) {
      groupDel( event );
      join( event );
   }
}

void
SimMulticast::validIs( const Event & event ) {
   if ( auto held = group( event ) ) {
      held->indexValidIs( event[2] );
   }
}

void
SimMulticast::routerIs( const Event & event ) {
   const auto vlan = status_->vlanStatusIs( world_.vlan( event[0] ) );
   const IntfId intf = world_.intf( event[1] );
   event[2] ? vlan->routerIntfIs( intf ) : vlan->routerIntfDel( intf );
}

void
SimMulticast::vlanDel( const Event & event ) {
   status_->vlanStatusDel( world_.vlan( event[0] ) );
}

void
SimMulticast::staticIs( const Event & event ) {
   const Qon::McastAddr addr( address( event[0] ), world_.vlan( event[1] ) );
   const auto held = static_->groupIs( addr );
   const IntfId intf = world_.intf( event[2] );
   held->intfHas( intf ) ? held->intfDel( intf ) : held->intfIs( intf );
}

void
SimMulticast::staticDel( const Event & event ) {
   static_->groupDel( Qon::McastAddr( address( event[0] ), world_.vlan( event[1] ) ) );
}

/** Where nobody else says who is a member. */
void
SimMulticast::memberIs( const Event & event ) {
   if ( world_.feature< SimLag >() ) {
      return;
   }
   auto & acsd = *world_.acsd;
   const IntfId port = world_.port( event[1] ), from = acsd.portToLag( port ),
                to = event[2] < 3 ? IntfId() : world_.lag( event[0] );
   for ( IntfId lag : { from, to } ) {
      if ( lag ) {
         Qon::QonLagPortList list = acsd.lagToPort( lag );
         lag == to ? list.portIs( port, Qon::QonLagPort( true, true ) ) : list.portDel( port );
         event[2] == 7 && lag != to ? acsd.lagToPortDel( lag ) : acsd.lagToPortIs( lag, list );
      }
   }
   to ? acsd.portToLagIs( port, to ) : acsd.portToLagDel( port );
}

void
SimMulticast::portIs( const Event & event ) {
   if ( !world_.feature< SimLag >() ) {
      const IntfId port = world_.port( event[0] );
      event[1] < 3 ? world_.acsd->intfDel( port ) : world_.acsd->intfIs( port, true );
   }
}

void
SimMulticast::mlagIs( const Event & event ) {
   const IntfId intf = world_.intf( event[0] );
   event[1] ? world_.acsd->mlagIntfPortIs( intf, true ) : world_.acsd->mlagIntfPortDel( intf );
}

void
SimMulticast::parity( const Event & event ) {
   table_.damage( event[0] );
   const Qon::ParityEvent::Key where( event[0] ? "mac" : "multicast", event[1] );
   world_.acsd->parityEventIs( where, Qon::ParityEvent( where, ++serial_, false ) );
}

/** Near the end of the numbers, or back where they are in use. */
void
SimMulticast::numberIs( const Event & event ) {
   helper_->vGroupIs( event[0] ? 0 : S64( ~U64( 0 ) >> 1 ) - 2 );
}

void
SimMulticast::nestedIs( const Event & event ) {
   nested_ = event[0];
   serial_ += event[1];
}

void
SimMulticast::hookCalled() {
   if ( nested_ && !inHook_ ) {
      inHook_ = true;
      change( U32( ++serial_ ) * 7 + nested_-- );
      inHook_ = false;
   }
}

void
SimMulticast::change( U32 what ) {
   Event event;
   event.args = { what / 5, what / 3, what, 0, 0 };
   switch ( what % 8 ) {
   case 0:
      groupDel( event );
      return;
   case 1:
      recreate( event );
      return;
   case 2:
      leave( event );
      return;
   case 3:
      staticIs( event );
      return;
   case 4:
      event.args[2] %= 8;
      memberIs( event );
      return;
   case 5:
      event.args = { what / 7, what % 8 };
      portIs( event );
      return;
   case 6:
      event.args = { what / 8 % 2, what % 3 };
      parity( event );
      return;
   default:
      join( event );
      return;
   }
}

void
SimMulticast::pauseIs( const Event & event ) {
   paused_ = event[0];
   sm_->initializedIs( !paused_ );
}

void
SimMulticast::kill( Ending ) {
   paused_ = false;
   nested_ = 0;
   saidToFlood_.clear();
   sm_ = nullptr;
   helper_ = nullptr;
}

/** By a clean-up, over the same helper without a word, or as another agent over what the chip holds. */
void
SimMulticast::restart( const Event & event ) {
   paused_ = false;
   nested_ = 0;
   if ( event[0] % 3 == 0 ) {
      sm_->doCleanup();
      if ( !table_.groups().empty() || !table_.macEntries().empty() ) {
         world_.report( "multicast", "clean-up: groups are left in the chip" );
      }
      saidToFlood_.clear();
      sm_->initializedIs( true );
      return;
   }
   if ( event[0] % 3 == 2 ) {
      kill( Ending::midway );
      start();
      return;
   }
   sm_ = nullptr;
   sm_ = Qon::IgmpSnoopingSmIs( { helper_, status_, static_ } );
   sm_->initializedIs( true );
}

void
SimMulticast::faultsIs( bool on ) {
   if ( !on ) {
      nested_ = 0;
      if ( paused_ ) {
         pauseIs( Event() );
      }
   }
}

void
SimMulticast::tearDown() {
   nested_ = 0; // the ports go next, and the set that floods is written for each
   status_->vlanStatusDelAll();
   static_->groupDelAll();
}

FeatureKind
simMulticast() {
   return featureKindOf< SimMulticast >( "multicast" );
}

} // namespace Sim
