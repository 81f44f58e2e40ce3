// Names and ids: allocation, lack of groups, delayed release, names that join others.

#include "tests/tapagg/TapAggWorld.h"

namespace {

using namespace TapAggTests;

TEST( TapAggGroup, LackOfGroupsIsSaidAndTheNameIsPending ) {
   TapAggWorld w( 1 );
   w.tap( eth( 1 ), "a" );
   w.startInMode();
   EXPECT_EQ( w.sm->createTapAggGroup( "b" ), 0u );
   EXPECT_TRUE( w.sm->pendingAggGroup( "b" ) );
   ASSERT_EQ( w.messages(), 1u );
   EXPECT_EQ( w.logs.records()[0].name, "TAPAGG_HW_RESOURCE_FULL" );
   EXPECT_EQ( w.logs.records()[0].text,
              "Hardware resources are insufficient to program all Tap Ports/TapAgg Policy-Maps" );
   EXPECT_NE( w.sm->groupCleanupTime(), Kiv::never );
   w.wait( 1.1 );
   EXPECT_FALSE( w.sm->pendingAggGroupHas( "b" ) ); // nobody uses it
   // Who uses a name that is pending does not ask again.
   w.tap( eth( 2 ), "c" );
   w.log.take();
   w.tap( eth( 3 ), "c" );
   w.tool( eth( 11 ), "c" );
   EXPECT_EQ( w.log.count( "allocateAggGroup" ), 0u );
   EXPECT_EQ( w.messages(), 2u );
   EXPECT_EQ( w.sm->tapSm( eth( 3 ) )->reason(), Qon::TapAggReason::pending );
   w.status->logHwResourceFullIs( false );
   w.pmapGroups->groupIs( "d" );
   EXPECT_EQ( w.messages(), 2u );
   EXPECT_TRUE( w.sm->pendingAggGroupHas( "d" ) );
   w.wait( 100 ); // and nobody polls
   EXPECT_EQ( w.log.count( "allocateAggGroup" ), 1u );
   EXPECT_EQ( w.sm->groupCleanupTime(), Kiv::never );
}

TEST( TapAggGroup, WhoIsPendingGetsGroupsInOrder ) {
   TapAggWorld w( 2 );
   w.tap( eth( 1 ), "x" );
   w.tap( eth( 2 ), "y" );
   w.startInMode();
   w.tap( eth( 3 ), "c" );
   w.tool( eth( 13 ), "c" );
   w.pmapGroups->groupIs( "b" );
   w.classMap( "map", "class", "a" );
   w.tap( eth( 4 ), "unused" );
   w.config->tapPortDel( eth( 4 ) );
   EXPECT_EQ( w.messages(), 4u );
   w.tap( eth( 1 ), "c" );
   EXPECT_EQ( w.reached( eth( 1 ) ), "" ); // and does not go on to reach x
   w.log.take();
   w.wait( 1.1 );
   EXPECT_EQ( w.log.take(), Calls( { "deallocateAggGroup 1", "allocateAggGroup a",
                                     "allocateAggGroup b", "allocateAggGroup c" } ) );
   EXPECT_EQ( w.sm->retries(), 3u );
   EXPECT_EQ( w.messages(), 5u ); // once a retry
   EXPECT_EQ( w.sm->policyMapSm( "map" )->classMapSm( "class" )->groupId(), w.id( "a" ) );
   w.config->tapPortDel( eth( 2 ) );
   w.policyMaps->policyMapDel( "map" );
   w.wait( 1.1 );
   EXPECT_EQ( w.pmapStatus->groupNameToId( "b" ), w.id( "b" ) );
   EXPECT_EQ( w.reached( eth( 1 ) ), "Ethernet13" );
   EXPECT_EQ( w.reached( eth( 3 ) ), "Ethernet13" );
   EXPECT_EQ( w.sm->pendingAggGroups(), 0u );
   EXPECT_EQ( w.broken(), "" );
}

TEST( TapAggGroup, ABurstGivesOneCleanUp ) {
   TapAggWorld w;
   for ( U32 n = 1; n <= 5; ++n ) {
      w.tap( eth( n ), "g" + std::to_string( n ) );
      w.tool( eth( 10 + n ), "g" + std::to_string( n ) );
   }
   w.startInMode();
   for ( U32 n = 1; n <= 5; ++n ) {
      w.wait( 0.4 ); // each one puts it off
      w.config->tapPortDel( eth( n ) );
      w.config->toolPortDel( eth( 10 + n ) );
      EXPECT_EQ( w.sm->groupCleanupTime(), Kiv::now() + 1.0 );
   }
   EXPECT_EQ( w.log.count( "deallocateAggGroup" ), 0u );
   EXPECT_TRUE( w.sm->allocatedGroupInfo( 1 )->intfListHas( eth( 1 ) ) );
   w.log.take();
   w.wait( 0.9 );
   EXPECT_EQ( w.log.take(), Calls() );
   w.wait( 0.2 );
   EXPECT_EQ( w.log.take(),
              Calls( { "deallocateAggGroup 1", "deallocateAggGroup 2", "deallocateAggGroup 3",
                       "deallocateAggGroup 4", "deallocateAggGroup 5" } ) );
   EXPECT_EQ( w.sm->allocatedPortInfos(), 0u );
   EXPECT_EQ( w.sm->groupCleanupTime(), Kiv::never );
}

TEST( TapAggGroup, WhatIsUsedAgainInTimeKeepsItsId ) {
   TapAggWorld w;
   w.tap( eth( 1 ), "a" );
   w.pmapGroups->groupIs( "p" );
   w.startInMode();
   const U32 a = w.id( "a" ), p = w.pmapStatus->groupNameToId( "p" );
   w.tap( eth( 1 ), "b" );
   w.pmapGroups->groupDel( "p" );
   EXPECT_FALSE( w.pmapStatus->groupNameToIdHas( "p" ) );
   w.wait( 0.9 );
   w.tap( eth( 2 ), "a" );
   w.pmapGroups->groupIs( "p" );
   EXPECT_EQ( w.pmapStatus->groupNameToId( "p" ), p );
   w.wait( 5 );
   EXPECT_EQ( w.id( "a" ), a );
   EXPECT_EQ( w.log.count( "deallocateAggGroup" ), 0u );
   EXPECT_FALSE( w.sm->allocatedGroupInfo( a )->intfListHas( eth( 1 ) ) );
   EXPECT_TRUE( w.sm->allocatedPortInfo( eth( 2 ) )->group( "a" ) );
   EXPECT_FALSE( w.sm->allocatedPortInfo( eth( 1 ) )->group( "a" ) );
}

TEST( TapAggGroup, SeveralGroupsOfATapAreOneOfTheHardware ) {
   TapAggWorld w;
   w.tap( eth( 1 ), "b,a" );
   w.tap( eth( 2 ), "a" );
   w.tool( eth( 11 ), "a" );
   w.tool( eth( 12 ), "b" );
   w.tool( po( 1 ), "c" );
   w.join( 1, 5 );
   w.startInMode();
   EXPECT_EQ( w.reached( eth( 1 ) ), "Ethernet11 Ethernet12" );
   EXPECT_EQ( w.reached( eth( 2 ) ), "Ethernet11" );
   w.tool( po( 1 ), "b" );
   EXPECT_EQ( w.reached( eth( 1 ) ), "Ethernet11 Ethernet12 Port-Channel1(Ethernet5)" );
   w.config->toolPort( eth( 11 ) )->groupDel( "a" );
   EXPECT_EQ( w.reached( eth( 1 ) ), "Ethernet12 Port-Channel1(Ethernet5)" );
   // The parts alone are not used by the tap; the tools are no users of the whole.
   w.tap( eth( 2 ), "" );
   w.wait( 1.1 );
   EXPECT_EQ( w.id( "a" ), 0u );
   EXPECT_NE( w.id( "a,b" ), 0u );
   w.tap( eth( 1 ), "b" );
   EXPECT_EQ( w.reached( eth( 1 ) ), "Ethernet12 Port-Channel1(Ethernet5)" );
   w.wait( 1.1 );
   EXPECT_EQ( w.id( "a,b" ), 0u );
   EXPECT_EQ( w.table.held().tools.at( eth( 12 ) ).groups.size(), 1u );
   EXPECT_EQ( w.broken(), "" );
}

/** A tap moves over the group before; a tool enters the new group first. */
TEST( TapAggGroup, AnotherGroupComesWithoutAGap ) {
   TapAggWorld w;
   w.tap( eth( 1 ), "a" );
   w.tool( eth( 11 ), "a" );
   w.startInMode();
   w.tap( eth( 1 ), "b" );
   EXPECT_EQ( w.log.take(),
              Calls( { "allocateAggGroup b", "addTapPortAssociation Ethernet1, 2" } ) );
   w.tool( eth( 11 ), "b" );
   w.config->toolPort( eth( 11 ) )->groupDel( "a" );
   EXPECT_EQ( w.log.take(), Calls( { "addToolPortAssociation Ethernet11, 2",
                                     "removeToolPortAssociation Ethernet11, 1" } ) );
}

TEST( TapAggGroup, ReleasesThatAreAskedFor ) {
   TapAggWorld w( 2 );
   w.tap( eth( 1 ), "a" );
   w.pmapGroups->groupIs( "p" );
   w.startInMode();
   w.tap( eth( 2 ), "waits" );
   w.sm->releaseTapAggGroup( "a", 0 );
   w.sm->releaseTapAggGroup( "a", 77 );
   EXPECT_EQ( w.log.count( "deallocateAggGroup" ), 0u );
   EXPECT_DEATH( w.sm->releaseTapAggGroup( "b", w.id( "a" ) ),
                 "Assertion 'groupInfo->groupOwner\\(\\) == owner' failed" );
   EXPECT_DEATH( w.sm->releaseTapAggGroup( "a", w.id( "a" ) ),
                 "Assertion 'groupInfo->intfLists\\(\\) == 0' failed" );
   // One that is used all the same: its user asks anew, and who was pending is asked within a second.
   w.sm->releaseTapAggGroup( "p", w.id( "p" ) );
   EXPECT_NE( w.id( "p" ), 0u );
   EXPECT_EQ( w.pmapStatus->groupNameToId( "p" ), w.id( "p" ) );
   w.pmapGroups->groupDel( "p" );
   w.sm->releaseTapAggGroup( "p", w.id( "p" ) );
   w.wait( 1.1 );
   EXPECT_NE( w.id( "waits" ), 0u );
   EXPECT_EQ( w.broken(), "" );
}

/** Gives "b" a group that is another one's. */
class SharingHelper : public SoftChip::SoftTapAggHelper {
 public:
   using SoftTapAggHelper::SoftTapAggHelper;
   U32 allocateAggGroup( const String & name ) override {
      return name == "b" ? 1 : SoftTapAggHelper::allocateAggGroup( name );
   }
};

TEST( TapAggGroup, AnIdThatIsGivenToAnotherNameIsThatOnes ) {
   TapAggWorld w;
   w.helper = Velto::make< SharingHelper >( w.table );
   w.tap( eth( 1 ), "a" );
   w.startInMode();
   w.pmapGroups->groupIs( "b" );
   EXPECT_EQ( w.pmapStatus->groupNameToId( "b" ), 1u );
   EXPECT_EQ( w.sm->allocatedGroupInfo( 1 )->groupOwner(), "b" );
   EXPECT_TRUE( w.sm->pendingAggGroup( "a" ) );
   EXPECT_EQ( w.table.held().taps.at( eth( 1 ) ).group, 0u );
   EXPECT_EQ( w.broken(), "" );
   w.pmapGroups->groupDel( "b" );
   w.wait( 1.1 );
   EXPECT_EQ( w.table.held().taps.at( eth( 1 ) ).group, 1u );
   EXPECT_TRUE( w.sm->allocatedPortInfo( eth( 1 ) )->group( "a" ) );
   EXPECT_FALSE( w.sm->allocatedPortInfo( eth( 1 ) )->group( "b" ) );
   EXPECT_EQ( w.broken(), "" );
}

TEST( TapAggGroup, ClassesOfPolicyMapsAreUsers ) {
   TapAggWorld w;
   w.tool( eth( 11 ), "a" );
   auto classMap = w.classMap( "map", "one", "a,b" );
   w.policyMaps->servicePolicyIs( eth( 1 ) )->policyMapIs( "map" );
   w.startInMode();
   auto one = [&] { return w.sm->policyMapSm( "map" )->classMapSm( "one" ); };
   EXPECT_EQ( w.sm->servicePolicySm( eth( 1 ) )->policyMapSm(), w.sm->policyMapSm( "map" ) );
   EXPECT_EQ( one()->groupId(), w.id( "a,b" ) );
   EXPECT_TRUE( w.table.held().tools.at( eth( 11 ) ).groups.contains( w.id( "a,b" ) ) );
   classMap->groupsIs( TapGroups( "c" ) );
   EXPECT_EQ( one()->groupId(), w.id( "c" ) );
   w.wait( 1.1 );
   EXPECT_EQ( w.id( "a,b" ), 0u );
   w.config->trafficSteeringMacAclMatchIpIs( true );
   EXPECT_EQ( one()->groupId(), w.id( "c" ) );
   // Gone and back, with another group.
   w.policyMaps->policyMapDel( "map" );
   EXPECT_EQ( w.sm->servicePolicySm( eth( 1 ) )->policyMapSm(), nullptr );
   w.classMap( "map", "one", "d" );
   EXPECT_EQ( one()->groupId(), w.id( "d" ) );
   w.wait( 1.1 );
   EXPECT_EQ( w.id( "c" ), 0u );
   w.policyMaps->policyMap( "map" )->classMapDel( "one" );
   w.policyMaps->servicePolicyDel( eth( 1 ) );
   w.wait( 1.1 );
   EXPECT_EQ( w.id( "d" ), 0u );
   EXPECT_EQ( w.sm->servicePolicySm( eth( 1 ) ), nullptr );
}

} // namespace
