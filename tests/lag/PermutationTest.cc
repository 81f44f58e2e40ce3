// Whatever the order in which the inputs arrive and depart: the same maps and the same hardware,
// and at no moment a port in two groups. The guard of LagWorld watches every change.

#include <algorithm>

#include "Qon/include/lag/QonEthPhyLagConfigAggregatorSm.h"
#include "Qon/include/lag/QonLagConfigMapCreatorSm.h"
#include "Qon/include/lag/QonLagCreatorSm.h"
#include "platform/Kiv/Rng.h"
#include "tests/lag/LagWorld.h"

namespace {

using namespace LagTests;

class Driver : public Qon::LagPacketDriver {
 public:
   Driver() : LagPacketDriver( "driver" ) {}
   int getLagInfo( U32, char * buffer, U32 ) override {
      buffer[0] = 0;
      return 0;
   }
};

/** Every state machine that creates groups, each with a hardware configuration of its own. */
class AllWorld : public LagWorld {
 public:
   AllWorld() {
      start();
      creator = Qon::QonLagCreatorSmIs( { acsd, phy, fapIdPorts, Velto::make< Driver >() },
                                        creatorConfig );
      mapCreator = Qon::LagConfigMapCreatorSmIs(
            { acsd, aggregated, memberStatus, phy, fapIdPorts }, mapConfig );
      aggregator = Qon::LagConfigAggregatorSmIs( intfConfig, aggregated, &scheduler );
      creator->initializedIs( true );
      mapCreator->initializedIs( true );
      aggregator->initializedIs( true );
      scheduler.settle();
   }
   String hardwareText() const {
      return text( *config ) + "| " + text( *creatorConfig ) + "| " + text( *mapConfig );
   }
   static String text( const Hardware::Lag::Config & config ) {
      std::map< String, String > lines;
      for ( auto && [lag, group] : config.lagIteratorConst() ) {
         for ( auto && [port, member] : group->memberIteratorConst() ) {
            lines[lag.stringValue() + " " + port.stringValue()] = member.stringValue();
         }
      }
      String all;
      for ( auto & [what, member] : lines ) {
         all += what + " " + member + "\n";
      }
      return all;
   }
   void check() {
      checkAll();
      EXPECT_EQ( mapCreator->checkInvariants(), "" );
      EXPECT_EQ( aggregator->checkInvariants(), "" );
   }

   Ptr< Interface::EthPhyIntfStatusDir > phy =
         Velto::make< Interface::EthPhyIntfStatusDir >( "phy" );
   Ptr< Interface::EthLagIntfConfigDir > intfConfig =
         Velto::make< Interface::EthLagIntfConfigDir >( "intfConfig" );
   Ptr< Hardware::Lag::AggregatedLagConfigDir > aggregated =
         Velto::make< Hardware::Lag::AggregatedLagConfigDir >( "aggregated" );
   Ptr< Hardware::Lag::MemberStatusDir > memberStatus =
         Velto::make< Hardware::Lag::MemberStatusDir >( "memberStatus" );
   Ptr< Hardware::Lag::Config > creatorConfig = Velto::make< Hardware::Lag::Config >( "creator" );
   Ptr< Hardware::Lag::Config > mapConfig = Velto::make< Hardware::Lag::Config >( "map" );
   Guard creatorGuard{ acsd.ptr(), creatorConfig.ptr() };
   Guard mapGuard{ acsd.ptr(), mapConfig.ptr() };
   Ptr< Qon::QonLagCreatorSm > creator;
   Ptr< Qon::LagConfigMapCreatorSm > mapCreator;
   Ptr< Qon::LagConfigAggregatorSm > aggregator;
};

using Event = std::function< void( AllWorld & ) >;

/** Twelve arrivals; in whatever order, aggregates 1 and 2 end with a member each. */
std::vector< Event >
arrivals() {
   return {
         []( AllWorld & w ) { w.lag( 1 )->deviceNameIs( "po1" ); },
         []( AllWorld & w ) { w.join( 1, 1, true, false ); },
         []( AllWorld & w ) { w.join( 2, 2 ); },
         []( AllWorld & w ) { w.fapIdPorts->fapIdPortIs( eth( 1 ), Qon::FapIdPort( 0, 1 ) ); },
         []( AllWorld & w ) { w.fapIdPorts->fapIdPortIs( eth( 2 ), Qon::FapIdPort( 1, 2 ) ); },
         []( AllWorld & w ) { w.phy->intfStatusIs( eth( 1 ) ); },
         []( AllWorld & w ) { w.phy->intfStatusIs( eth( 2 ) ); },
         []( AllWorld & w ) { w.intfConfig->intfConfigIs( eth( 1 ) )->lagIs( po( 1 ) ); },
         []( AllWorld & w ) { w.intfConfig->intfConfigIs( eth( 2 ) )->lagIs( po( 2 ) ); },
         []( AllWorld & w ) {
            w.memberStatus->memberStatusIs( eth( 1 ), Interface::LagMember( true, false ) );
         },
         []( AllWorld & w ) { w.memberStatus->memberStatusIs( eth( 2 ), Interface::LagMember() ); },
         []( AllWorld & w ) { w.mlagUp( po( 2 ) ); },
   };
}

/** Departures and returns of any of the inputs, several in one burst. */
std::vector< Event >
disturbances() {
   return {
         []( AllWorld & w ) { w.dir->intfStatusDel( po( 1 ) ); },
         []( AllWorld & w ) { w.dir->intfStatusDel( po( 2 ) ); },
         []( AllWorld & w ) { w.leave( 1, 1 ); },
         []( AllWorld & w ) { w.join( 2, 1 ); }, // claimed twice, or moved
         []( AllWorld & w ) {
            w.dir->intfStatusDel( po( 1 ) ); // deleted and created in one burst
            w.join( 1, 2 );
         },
         []( AllWorld & w ) { w.fapIdPorts->fapIdPortDel( eth( 1 ) ); },
         []( AllWorld & w ) { w.fapIdPorts->fapIdPortIs( eth( 2 ), Qon::FapIdPort( 7, 7 ) ); },
         []( AllWorld & w ) { w.phy->intfStatusDel( eth( 2 ) ); },
         []( AllWorld & w ) { w.intfConfig->intfConfigDel( eth( 1 ) ); },
         []( AllWorld & w ) { w.intfConfig->intfConfigIs( eth( 1 ) )->lagIs( po( 2 ) ); },
         []( AllWorld & w ) { w.memberStatus->memberStatusDelAll(); },
         []( AllWorld & w ) { w.mlag->mlagStateIs( Mlag::MlagState::inactive ); },
   };
}

TEST( LagPermutations, TheSameHardwareAtTheEnd ) {
   Kiv::Rng random( 4711 );
   String expected;
   for ( U32 round = 0; round < 1000 && !::testing::Test::HasFailure(); ++round ) {
      AllWorld world;
      world.lagSm->sharePeerLinkWithLagIs( po( 1 ), true );
      auto events = round % 2 ? disturbances() : std::vector< Event >();
      for ( auto & event : arrivals() ) {
         events.push_back( event );
      }
      std::shuffle( events.begin(), events.end(), random );
      for ( auto & event : events ) {
         event( world );
         world.check();
      }
      if ( round % 2 ) { // what the disturbances left, back to what was wanted
         world.leave( 2, 1 );
         world.leave( 1, 2 );
         events = arrivals();
         std::shuffle( events.begin(), events.end(), random );
         for ( auto & event : events ) {
            event( world );
            world.check();
         }
      }
      expected = round ? expected : world.hardwareText();
      EXPECT_EQ( expected, world.hardwareText() ) << "round " << round;
   }
   EXPECT_EQ( std::count( expected.begin(), expected.end(), '\n' ), 7 ); // 2, 2, 2 and one lent
}

} // namespace
