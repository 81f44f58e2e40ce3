// What verification says of maps that do not agree with the status directory.

#include "tests/lag/LagWorld.h"

namespace {

using namespace LagTests;

class LagVerifyFlow : public ::testing::Test, public LagWorld {
 protected:
   LagVerifyFlow() {
      join( 1, 1 );
      lag( 1 )->deviceNameIs( "po1" );
      acsd->intfIs( eth( 1 ), true );
      acsd->intfIs( eth( 2 ), true );
      start();
   }
   /** Runs the checks; the findings, in their order. */
   std::vector< String > findings() {
      acsd->verifyData()->resetVerifyData();
      acsd->verifyData()->runChecks();
      return stored();
   }
   std::vector< String > stored() {
      std::vector< String > lines;
      for ( auto && [key, text] : acsd->verifyData()->cliVerifyOutputIteratorConst() ) {
         lines.push_back( text.ends_with( "\n" ) ? text : text + "\n" );
      }
      return lines;
   }
   Qon::QonLagPortList list( std::initializer_list< U32 > ports ) {
      Qon::QonLagPortList l;
      for ( U32 port : ports ) {
         l.portIs( eth( port ), Qon::QonLagPort( true, true ) );
      }
      return l;
   }
};

TEST_F( LagVerifyFlow, EachInconsistencyHasItsLine ) {
   using Break = std::function< void() >;
   struct Row {
      Break spoil, mend;
      String line;
   };
   const Row rows[] = {
         { [&] { acsd->portToLagIs( eth( 2 ), po( 7 ) ); }, [&] { acsd->portToLagDel( eth( 2 ) ); },
           "Lag Port-Channel7, member Ethernet2 should not be in Port-Channel7, in portToLag "
           "collection\n" },
         { [&] { // a port that the agent leaves to others
             join( 1, 3 );
             acsd->portToLagIs( eth( 3 ), po( 1 ) );
          },
           [&] {
              acsd->portToLagDel( eth( 3 ) );
              leave( 1, 3 );
           },
           "Lag Port-Channel1, member Ethernet3 should not be in Port-Channel1, in portToLag "
           "collection\n" },
         { [&] { acsd->lagToPortIs( po( 7 ), list( {} ) ); },
           [&] { acsd->lagToPortDel( po( 7 ) ); },
           "Lag Port-Channel7 is in lagToPort but missing in ethLagIntfStatusDir collection\n" },
         { [&] { deviceNames->intfDeviceNameDel( po( 1 ) ); },
           [&] { deviceNames->intfDeviceNameIs( po( 1 ), "po1" ); },
           "Lag Port-Channel1 is in ethLagIntfStatusDir but missing in lagInputIntfDeviceNameDir "
           "collection\n" },
         { [&] { deviceNames->intfDeviceNameIs( po( 7 ), "po7" ); },
           [&] { deviceNames->intfDeviceNameDel( po( 7 ) ); },
           "Lag Port-Channel7 is in lagInputIntfDeviceNameDir but missing in ethLagIntfStatusDir "
           "collection\n" },
         { [&] { deviceNames->intfDeviceNameIs( po( 1 ), "x" ); },
           [&] { deviceNames->intfDeviceNameIs( po( 1 ), "po1" ); },
           "Lag Port-Channel1, device name x in lagInputIntfDeviceNameDir differs to the one in "
           "ethLagIntfStatusDir: po1\n" },
         { [&] {
             acsd->lagToPortIs( po( 1 ), list( { 1, 2 } ) );
          },
           [&] { acsd->lagToPortIs( po( 1 ), list( { 1 } ) ); },
           "Lag Port-Channel1, member Ethernet2 is in lagToPort but missing in portToLag "
           "collection\n" },
         { [&] { acsd->lagToPortIs( po( 1 ), list( {} ) ); },
           [&] { acsd->lagToPortIs( po( 1 ), list( { 1 } ) ); },
           "Lag Port-Channel1, member Ethernet1 is missing in lagToPort collection\n" },
   };
   guard.reset(); // the maps are broken on purpose
   EXPECT_EQ( findings(), std::vector< String >() );
   EXPECT_FALSE( acsd->verifyData()->retryVerify() );
   for ( auto & row : rows ) {
      row.spoil();
      EXPECT_EQ( findings(), std::vector< String >{ row.line } );
      EXPECT_TRUE( acsd->verifyData()->retryVerify() );
      row.mend();
      acsd->verifyData()->retryVerifyIs( false );
      EXPECT_EQ( findings(), std::vector< String >() ) << row.line;
   }
}

TEST_F( LagVerifyFlow, LinesThatComeTogether ) {
   guard.reset();
   acsd->portToLagIs( eth( 1 ), po( 2 ) );
   EXPECT_EQ( findings(),
              ( std::vector< String >{
                    "Lag Port-Channel1, Lag value for member Ethernet1 is wrong: Port-Channel2\n",
                    "Lag Port-Channel2, member Ethernet1 should not be in Port-Channel2, in "
                    "portToLag collection\n" } ) );
   acsd->portToLagIs( eth( 1 ), po( 1 ) );
   acsd->portToLagDel( eth( 1 ) );
   acsd->lagToPortDel( po( 1 ) );
   EXPECT_EQ(
         findings(),
         ( std::vector< String >{
               "Lag Port-Channel1 is in ethLagIntfStatusDir but missing in lagToPort collection\n",
               "Lag Port-Channel1, member Ethernet1 is missing in lagToPort collection\n" } ) );
   acsd->lagToPortIs( po( 1 ), list( { 1 } ) );
   acsd->portToLagIs( eth( 1 ), po( 1 ) );
}

TEST_F( LagVerifyFlow, AMemberThatTwoListMayBeInEither ) {
   join( 2, 1 );
   EXPECT_EQ( findings(), std::vector< String >() );
}

TEST_F( LagVerifyFlow, ARetryRepeatsTheCheckWithoutAskingAgain ) {
   guard.reset();
   auto data = acsd->verifyData();
   acsd->lagToPortIs( po( 7 ), list( {} ) );
   findings();
   data->retryVerifyIs( false );
   data->resetVerifyData();
   data->reverifyIs( data->reverify() + 1 );
   EXPECT_EQ( stored().size(), 1u );
   EXPECT_FALSE( data->retryVerify() );
   acsd->lagToPortDel( po( 7 ) );
}

/** An agent that leaves some aggregates to others. */
class PickySm : public Qon::LagSm {
 public:
   using LagSm::LagSm;
   bool isIntfManaged( IntfId intf ) const override { return intf != po( 2 ); }
};

TEST_F( LagVerifyFlow, UnmanagedAggregates ) {
   guard.reset();
   stop();
   join( 2, 2 );
   lagSm = Qon::smIs< PickySm >(
         Qon::LagSm::Inputs{ acsd, dir, deviceNames, mlag, acsd->verifyData(), nullptr } );
   lagSm->initializedIs( true );
   EXPECT_FALSE( acsd->lagToPortHas( po( 2 ) ) );
   EXPECT_EQ( findings(), std::vector< String >() );
   acsd->lagToPortIs( po( 2 ), list( {} ) );
   EXPECT_EQ( findings(),
              std::vector< String >{ "unmanaged LAG Port-Channel2 should not be in lagToPort "
                                     "collection.\n" } );
   acsd->lagToPortDel( po( 2 ) );
}

TEST( LagVerify, AChangeAsksForOneRunABurst ) {
   Tests::Env env( "ENABLE_VERIFY", "1" );
   env.unset( "USE_BCMSIM" );
   LagWorld world;
   world.start();
   auto data = world.acsd->verifyData();
   world.scheduler.settle();
   data->verifyDoneIs( false );
   U32 before = data->verifyRequired()->verifyRequired();
   world.join( 1, 1 );
   world.join( 1, 2 );
   EXPECT_GT( data->verifyRequired()->verifyRequired(), before );
   before = data->verifyRequired()->verifyRequired();
   world.join( 1, 2, true, false ); // only what a member may do
   EXPECT_GT( data->verifyRequired()->verifyRequired(), before );
   world.scheduler.settle();
   EXPECT_TRUE( data->verifyDone() );
   EXPECT_EQ( data->verifyInc(), 0u );
}

} // namespace
