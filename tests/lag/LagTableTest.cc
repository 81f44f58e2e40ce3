// The chip in software: finite, immediate or slow, and never two groups for one hardware port.

#include "agent/softchip/SoftLagProgrammer.h"
#include "tests/lag/LagWorld.h"

namespace {

using namespace LagTests;
using Hardware::Lag::Result;

class LagTableFlow : public ::testing::Test, public LagWorld {
 protected:
   LagTableFlow() {
      hardwarePorts( 1, 32 );
      start();
      chip = SoftChip::SoftLagProgrammerIs( config, status, table ); // groups, members
      chip->initializedIs( true );
   }
   void TearDown() override {
      scheduler.settle();
      chip->finishAll();
      EXPECT_EQ( chip->checkInvariants(), "" );
      checkAll();
   }
   Result result( U32 lag, U32 port ) const {
      return prog->programmed( po( lag ), eth( port ) ).result();
   }
   SoftChip::FaultPlan faults;
   SoftChip::LagTable table{ faults, { 2, 2 } };
   Ptr< SoftChip::SoftLagProgrammer > chip;
};

TEST_F( LagTableFlow, WhatDoesNotFitIsRefusedAndTriedAgainWhenThereIsRoom ) {
   join( 1, 1 );
   join( 1, 2, true, false );
   join( 1, 3 );
   join( 2, 4 );
   join( 3, 5 );
   EXPECT_EQ( table.text(), "1: Port-Channel1 Ethernet1(0/1 CD) Ethernet2(0/2 C)\n"
                            "2: Port-Channel2 Ethernet4(0/4 CD)\n" );
   EXPECT_EQ( result( 1, 3 ), Result::noMember );
   EXPECT_EQ( result( 3, 5 ), Result::noLag );
   EXPECT_EQ( status->lag( po( 3 ) )->result(), Result::noLag );
   EXPECT_EQ( chip->checkInvariants(), "" );
   leave( 1, 1 );
   EXPECT_EQ( result( 1, 3 ), Result::success );
   dir->intfStatusDel( po( 2 ) );
   EXPECT_EQ( result( 3, 5 ), Result::success );
   EXPECT_FALSE( status->lagHas( po( 2 ) ) );
   join( 4, 6 );
   table.limitsIs( { 3, 2 } );
   chip->finishAll();
   EXPECT_EQ( result( 4, 6 ), Result::success );
}

TEST_F( LagTableFlow, TwoInterfacesOfOneHardwarePort ) {
   fapIdPorts->fapIdPortIs( eth( 2 ), fapIdPorts->fapIdPort( eth( 1 ) ) );
   join( 1, 1 );
   join( 2, 2 );
   EXPECT_EQ( result( 2, 2 ), Result::portTaken );
   leave( 1, 1 );
   EXPECT_EQ( result( 2, 2 ), Result::success );
}

TEST_F( LagTableFlow, CompletionMayTakeAWhile ) {
   chip->latencyIs( 0.5 );
   join( 1, 1 );
   EXPECT_EQ( result( 1, 1 ), Result::pending );
   EXPECT_EQ( table.lags(), 0u );
   scheduler.runFor( 1.0 );
   EXPECT_EQ( result( 1, 1 ), Result::success );
   join( 2, 1 ); // moves, and back, before the chip is done
   leave( 2, 1 );
   dir->intfStatusDel( po( 1 ) );
   join( 1, 1, false, false );
   scheduler.runFor( 1.0 );
   EXPECT_EQ( table.text(), "1: Port-Channel1 Ethernet1(0/1 )\n" );
   EXPECT_FALSE( status->lagHas( po( 2 ) ) );
}

TEST_F( LagTableFlow, TroubleOfTheChip ) {
   faults.add( { "lagMember", SoftChip::Trouble::fail } );
   faults.add( { "lagMember", SoftChip::Trouble::busy } );
   join( 1, 1 );
   EXPECT_EQ( result( 1, 1 ), Result::failed );
   EXPECT_EQ( chip->checkInvariants(), "" );
   join( 1, 2 );
   EXPECT_EQ( result( 1, 2 ), Result::pending );
   scheduler.runFor( 1.5 );
   EXPECT_EQ( result( 1, 2 ), Result::success );
   EXPECT_EQ( result( 1, 1 ), Result::success ); // asked again with the other
}

TEST_F( LagTableFlow, LentMembersStayWhereTheyAre ) {
   join( 10, 20 );
   join( 1, 1 );
   lagSm->sharePeerLinkWithLagIs( po( 1 ), true );
   mlagUp( po( 10 ) );
   EXPECT_EQ( table.text(), "10: Port-Channel10 Ethernet20(0/20 CD)\n"
                            "1: Port-Channel1 Ethernet1(0/1 CD) Ethernet20(0/20 CDs)\n" );
   mlag->mlagStateIs( Mlag::MlagState::inactive );
   EXPECT_EQ( table.members( po( 1 ) ), 1u );
}

TEST_F( LagTableFlow, TheTableOutlivesItsProgrammer ) {
   join( 1, 1 );
   join( 2, 2 );
   chip->latencyIs( 0.5 );
   leave( 2, 2 );
   join( 1, 3 );
   chip = nullptr; // what waits is done at its time, and the status hears nothing
   EXPECT_EQ( table.members( po( 1 ) ), 1u );
   scheduler.runFor( 0.6 );
   EXPECT_EQ( table.text(), "1: Port-Channel1 Ethernet1(0/1 CD) Ethernet3(0/3 CD)\n" );
   EXPECT_EQ( result( 1, 3 ), Result::pending );
   faults.add( { "lagMember", SoftChip::Trouble::fail } );
   dir->intfStatusDel( po( 1 ) );
   join( 4, 1 );
   chip = SoftChip::SoftLagProgrammerIs( config, status, table );
   chip->initializedIs( true );
   EXPECT_EQ( result( 4, 1 ), Result::failed ); // its group is new to the chip
   chip->finishAll();
   EXPECT_EQ( table.text(), "4: Port-Channel4 Ethernet1(0/1 CD)\n" );
}

} // namespace
