#pragma once
// A switch with aggregates: what its other agents publish, LagSm with its hardware programming,
// and a watcher of what must hold at every moment.

#include <optional>
#include <set>

#include "Qon/include/lag/QonLagSm.h"
#include "platform/Kiv/Listener.h"
#include "platform/Kiv/Restart.h"
#include "tests/harness/World.h"

namespace LagTests {

using Tests::intf;
using Ulnet::IntfId;
using Velto::Ptr;
using Velto::String;
using Ports = std::set< IntfId >;

inline IntfId
po( U32 n ) {
   return Ulnet::PortChannelIntfId::intfId( n );
}
inline IntfId
eth( U32 n ) {
   return Ulnet::EthIntfId::intfId( n );
}

/** Checks at every published change of the maps and of the hardware configuration. */
class Guard {
 public:
   Guard( const Qon::QonCommonSmData * acsd, const Hardware::Lag::Config * config )
       : acsd_( acsd ), config_( config ) {
      portToLag_.attach( acsd, [this]( const IntfId & port ) { handlePortToLag( port ); } );
      lags_.attach( config, [this]( const IntfId & lag ) { handleLag( lag ); } );
      for ( auto && [lag, group] : config->lagIteratorConst() ) {
         handleLag( lag );
      }
   }
   void handlePortToLag( const IntfId & port ) {
      ++changes;
      IntfId lag = acsd_->portToLag( port );
      for ( auto && [other, list] : acsd_->lagToPortIteratorConst() ) {
         EXPECT_EQ( list.portHas( port ), other == lag )
               << port.stringValue() << " and " << other.stringValue();
         for ( auto & [member, flags] : list ) {
            EXPECT_EQ( acsd_->portToLag( member ), other ) << member.stringValue();
         }
      }
   }
   void handleLag( const IntfId & lag ) {
      auto group = config_->lag( lag );
      if ( group ) {
         members_[lag].attach( group, [this]( const IntfId & port ) { handleMember( port ); } );
      } else {
         members_.erase( lag );
      }
   }
   void handleMember( const IntfId & port ) {
      U32 owners = 0;
      for ( auto && [lag, group] : config_->lagIteratorConst() ) {
         owners += group->memberHas( port ) && !group->member( port ).shared();
      }
      EXPECT_LE( owners, 1u ) << port.stringValue() << " is in two hardware groups";
      ++hardwareChanges;
   }
   U32 changes = 0;
   U32 hardwareChanges = 0;

 private:
   const Qon::QonCommonSmData * acsd_;
   const Hardware::Lag::Config * config_;
   std::map< IntfId, Kiv::Listener< Hardware::Lag::LagConfig::memberAttr > > members_;
   Kiv::Listener< Qon::QonCommonSmData::portToLagAttr > portToLag_;
   Kiv::Listener< Hardware::Lag::Config::lagAttr > lags_;
};

class LagWorld : public Tests::World {
 public:
   void start() {
      prog = Qon::LagProgSmIs( config, status, fapIdPorts );
      lagSm = Qon::LagSmIs( acsd, dir, deviceNames, mlag, acsd->verifyData(), prog );
      const auto progSm = prog; // LagSm may have ended meanwhile
      lagSm->initializedIs( true );
      progSm->inputsReadIs( inputsRead );
   }
   /** Ends LagSm and its programming; what they published stays. */
   void stop() {
      lagSm = nullptr;
      prog = nullptr;
   }

   Ptr< Interface::EthLagIntfStatus > lag( U32 n ) { return dir->intfStatusIs( po( n ) ); }
   void join( U32 n, U32 port, bool collecting = true, bool distributing = true ) {
      lag( n )->intfIs( eth( port ), Interface::LagMember( collecting, distributing ) );
   }
   void leave( U32 n, U32 port ) { lag( n )->intfDel( eth( port ) ); }
   void hardwarePorts( U32 from, U32 to ) {
      for ( U32 n = from; n <= to; ++n ) {
         fapIdPorts->fapIdPortIs( eth( n ), Qon::FapIdPort( n / 32, n % 32 ) );
      }
   }
   /** MLAG established over `peerLink`, with redirection. */
   void mlagUp( IntfId peerLink ) {
      mlag->peerLinkIntfIs( peerLink );
      mlag->fastMacRedirectionIs( true );
      mlag->mlagStateIs( Mlag::MlagState::primary );
   }

   Ports members( U32 n ) const { // by lagToPort
      Ports ports;
      for ( auto & [port, flags] : acsd->lagToPort( po( n ) ) ) {
         ports.insert( port );
      }
      return ports;
   }
   Ports hardware( U32 n, bool shared = false ) const {
      Ports ports;
      if ( auto group = config->lag( po( n ) ) ) {
         for ( auto && [port, member] : group->memberIteratorConst() ) {
            if ( member.shared() == shared ) {
               ports.insert( port );
            }
         }
      }
      return ports;
   }
   void checkAll() const { EXPECT_EQ( lagSm->checkInvariants(), "" ); }

   Ptr< Interface::EthLagIntfStatusDir > dir =
         Velto::make< Interface::EthLagIntfStatusDir >( "status" );
   Ptr< Lag::Input::IntfDeviceNameDir > deviceNames =
         Velto::make< Lag::Input::IntfDeviceNameDir >( "names" );
   Ptr< Mlag::Status > mlag = Velto::make< Mlag::Status >( "mlag" );
   Ptr< Hardware::FapIdPortDir > fapIdPorts = Velto::make< Hardware::FapIdPortDir >( "ports" );
   Ptr< Hardware::Lag::Config > config = Velto::make< Hardware::Lag::Config >( "config" );
   Ptr< Hardware::Lag::Status > status = Velto::make< Hardware::Lag::Status >( "hwstatus" );
   bool inputsRead = true; // what LagProgSm is told at the start
   Ptr< Qon::LagProgSm > prog;
   Ptr< Qon::LagSm > lagSm;
   std::optional< Guard > guard{ std::in_place, acsd.ptr(), config.ptr() };
};

} // namespace LagTests
