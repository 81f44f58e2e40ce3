// What the chip answers: not now, no room, never, later; on ports and on port-channels whose members
// come and go in the middle of it.

#include "platform/Kiv/Listener.h"
#include "tests/vlanmapping/VlanMappingWorld.h"

namespace {

using namespace VlanMappingTests;

class Programming : public testing::TestWithParam< Direction >, protected VlanMappingWorld {
 protected:
   const Direction d = GetParam();
   const String dir = Kiv::toText( d );
   String name( const char * intf, U32 vlan = 10 ) const {
      return dir + " " + intf + " " + Kiv::toText( vlan );
   }
   Ptr< Qon::QonVlanMappingConfigDir > directory() { return d == in ? ingConfig : egrConfig; }
   void says( IntfId port, U32 vlan, Status result, U32 version = 0 ) {
      auto & statuses = d == in ? ingStatus : egrStatus;
      statuses->vlanMappingStatusDel( PortVlanKey( port, U16( vlan ), 0 ) );
      statuses->vlanMappingStatusIs( PortVlanKey( port, U16( vlan ), 0 ), { result, version } );
   }
   const std::vector< String > none;
};

INSTANTIATE_TEST_SUITE_P( Directions, Programming, testing::Values( in, out ) );

TEST_P( Programming, WhatCannotBeProgrammedNowIsAppliedAgainAsAWhole ) {
   start();
   wants( cli, eth( 1 ), d, 5, 105 );
   chip.answer = Status::notNow;
   wants( cli, eth( 1 ), d, 10, 110 );
   scheduler.runFor( 1 );
   wants( cli, eth( 1 ), d, 20, 120 );
   wants( flow, eth( 1 ), d, 30, 130 );
   EXPECT_EQ( sm->unprogrammedIntfLists(), 2u ); // a source of an interface once
   const double due = sm->clock()->time();
   EXPECT_DOUBLE_EQ( due, scheduler.time() + 4 ); // of the first failure
   chip.takeCalls();
   wants( flow, eth( 1 ), d, 10, 210 ); // a conflict: what is kept is claimed
   EXPECT_EQ( takeLogs().size(), 1u );
   EXPECT_EQ( chip.takeCalls(), none );
   scheduler.runUntil( due );
   EXPECT_EQ( chip.takeCalls(), ( std::vector{ "add " + name( "Ethernet1", 5 ) + " -> 105",
                                               "add " + name( "Ethernet1" ) + " -> 110",
                                               "add " + name( "Ethernet1", 20 ) + " -> 120",
                                               "add " + name( "Ethernet1", 30 ) + " -> 130" } ) );
   EXPECT_FALSE( sm->clock()->idle() ); // again, and no message is told again
   EXPECT_EQ( takeLogs(), none );
   wants( cli, eth( 1 ), d, 20, 121 ); // added, not updated: it is not there
   EXPECT_EQ( chip.takeCalls(), std::vector{ "add " + name( "Ethernet1", 20 ) + " -> 121" } );
   chip.answer = Status::success;
   scheduler.runFor( 5 );
   EXPECT_EQ( chip.held.size(), 4u );
   EXPECT_TRUE( sm->clock()->idle() );
   scheduler.runFor( 100 );
   checkAll();
}

TEST_P( Programming, AFullTableIsToldOnceAndNotTriedAgain ) {
   start();
   chip.answers[name( "Ethernet1" )] = Status::full;
   chip.answers[name( "Ethernet1", 20 )] = Status::notNow;
   wants( cli, eth( 1 ), d, 10, 110 );
   wants( cli, eth( 1 ), d, 20, 120 );
   EXPECT_EQ( takeLogs(), std::vector{ fullLog( 10, 110, "Ethernet1", dir.c_str() ) } );
   chip.takeCalls();
   scheduler.runFor( 5 ); // the interface is applied again, the key is not
   EXPECT_EQ( chip.takeCalls(), std::vector{ "add " + name( "Ethernet1", 20 ) + " -> 120" } );
   wants( flow, eth( 2 ), d, 10, 210 );
   scheduler.runFor( 5 );
   EXPECT_EQ( takeLogs(), none );
   chip.answers.clear();
   // The whole interface goes: its place on the list too, and it comes back afresh.
   config->switchIntfConfigDel( eth( 1 ) );
   EXPECT_TRUE( sm->clock()->idle() );
   wants( cli, eth( 1 ), d, 10, 110 );
   EXPECT_EQ( chip.held.count( name( "Ethernet1" ) ), 1u );
   // In the middle of the programming of a first key, what it is about goes and comes back.
   chip.answers[name( "Ethernet1" )] = Status::full;
   chip.duringAdd = [&] {
      wants( cli, eth( 1 ), d, 10, 0 );
      chip.answers.clear();
      wants( cli, eth( 1 ), d, 10, 110 );
   };
   chip.answer = Status::full;
   wants( cli, eth( 1 ), d, 40, 140 );
   EXPECT_EQ( chip.held.count( name( "Ethernet1" ) ), 1u );
   checkAll();
}

TEST_P( Programming, APortChannelProgramsItsMembersAndAMemberRests ) {
   start();
   wants( cli, eth( 1 ), d, 20, 120 );
   wants( cli, po( 1 ), d, 10, 110 );
   wants( cli, po( 1 ), d, 20, 220 );
   EXPECT_EQ( chip.takeCalls().size(), 1u ); // it has no members
   EXPECT_EQ( owner( d, po( 1 ), 10 ), cli );
   EXPECT_EQ( outcome( cli, po( 1 ), d, 10 ), Outcome::resting );
   member( 1, 1 );
   EXPECT_EQ( chip.takeCalls(), ( std::vector{ "del " + name( "Ethernet1", 20 ),
                                               "add " + name( "Ethernet1", 10 ) + " -> 110",
                                               "add " + name( "Ethernet1", 20 ) + " -> 220" } ) );
   EXPECT_EQ( outcome( cli, eth( 1 ), d, 20 ), Outcome::resting );
   wants( cli, eth( 1 ), d, 20, 121 );
   wants( flow, eth( 1 ), d, 10, 310 ); // rests, and is no conflict with the port-channel
   EXPECT_EQ( chip.takeCalls(), none );
   EXPECT_EQ( owner( d, eth( 1 ), 10 ), cli );
   member( 1, 2 );
   wants( flow, po( 1 ), d, 10, 210 ); // one conflict, in its name
   EXPECT_EQ( takeLogs(), std::vector{ conflictLog( 10, 210, "Port-Channel1", dir.c_str(),
                                                    "Steerline", "CLI" ) } );
   auto members = lagMemberStatus->lagStatus( po( 1 ) );
   ASSERT_TRUE( members && members->memberStatus( eth( 2 ) ) );
   EXPECT_EQ( d == in ? members->memberStatus( eth( 2 ) )->ingressKeys()
                      : members->memberStatus( eth( 2 ) )->egressKeys(),
              2u );
   chip.takeCalls();
   wants( cli, po( 2 ), d, 10, 410 );
   moves( 1, 2, 1 );
   EXPECT_EQ( chip.held, ( Held{ { name( "Ethernet1" ), 410 },
                                 { name( "Ethernet2" ), 110 },
                                 { name( "Ethernet2", 20 ), 220 } } ) );
   member( 2, 1, false );
   EXPECT_EQ( chip.held, ( Held{ { name( "Ethernet1" ), 310 },
                                 { name( "Ethernet1", 20 ), 121 },
                                 { name( "Ethernet2" ), 110 },
                                 { name( "Ethernet2", 20 ), 220 } } ) );
   config->switchIntfConfigDel( po( 1 ) ); // the other one's turn, on all members
   EXPECT_EQ( chip.held.at( name( "Ethernet2" ) ), 210u );
   EXPECT_EQ( takeLogs(),
              std::vector{ programmedLog( 10, 210, "Port-Channel1", dir.c_str(), "Steerline" ) } );
   member( 1, 2, false );
   EXPECT_FALSE( lagMemberStatus->lagStatusHas( po( 1 ) ) );
   checkAll();
}

TEST_P( Programming, AMemberThatIsFullTakesItFromAll ) {
   start();
   for ( U32 n : { 1, 2, 3 } ) {
      member( 1, n );
   }
   chip.answers[name( "Ethernet2" )] = Status::full;
   wants( cli, po( 1 ), d, 10, 110 );
   EXPECT_EQ( chip.held, Held() );
   EXPECT_EQ( takeLogs(), std::vector{ fullLog( 10, 110, "Port-Channel1", dir.c_str() ) } );
   member( 1, 2, false ); // without that one there may be room
   EXPECT_EQ( chip.held.size(), 2u );
   chip.answers[name( "Ethernet4" )] = Status::failed;
   member( 1, 4 ); // refused: it is taken from all, silently
   EXPECT_EQ( chip.held, Held() );
   EXPECT_EQ( takeLogs(), none );
   // Refused by one, and full on another: full is what is told.
   chip.answers[name( "Ethernet1" )] = Status::failed;
   chip.answers[name( "Ethernet3" )] = Status::full;
   wants( cli, po( 1 ), d, 10, 111 );
   EXPECT_EQ( takeLogs(), std::vector{ fullLog( 10, 111, "Port-Channel1", dir.c_str() ) } );
   // A member leaves in the middle of it, and one that cannot do it now joins.
   chip.answers = { { name( "Ethernet5" ), Status::notNow } };
   chip.duringAdd = [&] {
      member( 1, 3, false );
      member( 1, 5 );
   };
   wants( cli, po( 1 ), d, 10, 112 );
   EXPECT_EQ( chip.held, ( Held{ { name( "Ethernet1" ), 112 }, { name( "Ethernet4" ), 112 } } ) );
   EXPECT_TRUE( sm->unprogrammedIntfListHas( { po( 1 ), cli } ) );
   chip.answers.clear();
   scheduler.runFor( 5 );
   EXPECT_EQ( chip.held.count( name( "Ethernet5" ) ), 1u );
   checkAll();
}

TEST_P( Programming, AWinnerIsAnnouncedWhenTheHardwareHasIt ) {
   start();
   wants( cli, eth( 1 ), d, 10, 110 );
   wants( flow, eth( 1 ), d, 10, 210 );
   takeLogs();
   chip.answer = Status::notNow;
   wants( cli, eth( 1 ), d, 10, 0 );
   EXPECT_EQ( takeLogs(), none );
   chip.answer = Status::handedOver;
   scheduler.runFor( 5 );
   EXPECT_EQ( takeLogs(), none );
   says( eth( 1 ), 10, Status::success );
   const auto programmed = programmedLog( 10, 210, "Ethernet1", dir.c_str(), "Steerline" );
   EXPECT_EQ( takeLogs(), std::vector{ programmed } );
   EXPECT_TRUE( intfSets->vlanMappingIntfConfig( eth( 1 ) )->dfVlanXlateKeySetHas( { 10, 0 } ) );
   says( eth( 1 ), 10, Status::full ); // found out later that there is no room
   EXPECT_EQ( takeLogs(), std::vector{ fullLog( 10, 210, "Ethernet1", dir.c_str() ) } );
   EXPECT_EQ( intfSets->vlanMappingIntfConfigs(), 0u );
   EXPECT_EQ( chip.held, Held() );
   checkAll();
}

TEST_P( Programming, NativeVlansAreEncapsulated ) {
   start();
   auto native = [&]( IntfId intf, U32 vlan ) {
      config->switchIntfConfigIs( intf )->nativeVlanIs( d, Bridging::VlanIdOrNone( vlan ) );
   };
   auto encap = [&]( IntfId intf ) { return acsd->encapVlan( intf ).value(); };
   native( eth( 1 ), 7 );
   wants( flow, eth( 1 ), d, 7, 107 ); // another key: no conflict
   EXPECT_EQ( chip.held, ( Held{ { name( "Ethernet1", 7 ) + " native", 7 },
                                 { name( "Ethernet1", 7 ), 107 } } ) );
   EXPECT_EQ( encap( eth( 1 ) ), d == out ? 7 : 0 );
   native( eth( 1 ), 8 );
   EXPECT_EQ( encap( eth( 1 ) ), d == out ? 8 : 0 );
   chip.answers[name( "Ethernet1", 9 ) + " native"] = Status::full;
   native( eth( 1 ), 9 );
   EXPECT_EQ( takeLogs(), std::vector{ encapFullLog( dir.c_str(), "Ethernet1", 9 ) } );
   EXPECT_FALSE( acsd->encapVlanHas( eth( 1 ) ) );
   native( po( 1 ), 7 );
   EXPECT_FALSE( acsd->encapVlanHas( po( 1 ) ) ); // on no port yet
   member( 1, 2 );
   EXPECT_EQ( encap( po( 1 ) ), d == out ? 7 : 0 );
   config->switchIntfConfigDel( po( 1 ) );
   EXPECT_FALSE( acsd->encapVlanHas( po( 1 ) ) );
   EXPECT_EQ( chip.held.size(), 1u );
   checkAll();
}

TEST_P( Programming, NativeVlansThatAChipAgentAddsAreEncapsulated ) {
   start();
   auto add = [&]( U32 vlan ) {
      return d == in ? sm->addIngressNativeVlanTranslation( eth( 1 ), Bridging::VlanId( vlan ),
                                                            false )
                     : sm->addEgressNativeVlanTranslation( eth( 1 ), Bridging::VlanId( vlan ),
                                                           false );
   };
   auto del = [&]( U32 vlan ) {
      d == in ? sm->delIngressNativeVlanTranslation( eth( 1 ), Bridging::VlanId( vlan ), false )
              : sm->delEgressNativeVlanTranslation( eth( 1 ), Bridging::VlanId( vlan ), false );
   };
   auto encap = [&] { return acsd->encapVlan( eth( 1 ) ).value(); };
   for ( U32 vlan : { 7, 8 } ) {
      EXPECT_EQ( add( vlan ), Status::success );
      EXPECT_EQ( encap(), d == out ? vlan : 0 );
      del( vlan );
      EXPECT_FALSE( acsd->encapVlanHas( eth( 1 ) ) );
   }
   config->switchIntfConfigIs( eth( 1 ) )->nativeVlanIs( d, Bridging::VlanIdOrNone( 9 ) );
   chip.answers[name( "Ethernet1", 10 ) + " native"] = Status::full;
   EXPECT_EQ( add( 10 ), Status::full );
   EXPECT_EQ( takeLogs(), std::vector{ encapFullLog( dir.c_str(), "Ethernet1", 10 ) } );
   EXPECT_EQ( encap(), d == out ? 9 : 0 ); // what the configuration says stays
   checkAll();
}

TEST_P( Programming, AdditionsAreGatheredForAWhile ) {
   start();
   sm->timeDelayIs( 0.5 );
   wants( cli, eth( 1 ), d, 10, 110 );
   wants( cli, eth( 1 ), d, 20, 120 );
   wants( cli, eth( 1 ), d, 20, 0 );
   EXPECT_EQ( chip.takeCalls(), none );
   checkAll();
   scheduler.runFor( 0.5 );
   EXPECT_EQ( chip.takeCalls(), std::vector{ "add " + name( "Ethernet1" ) + " -> 110" } );
   wants( cli, eth( 1 ), d, 10, 111 ); // no addition
   EXPECT_EQ( chip.takeCalls().size(), 1u );
   EXPECT_TRUE( sm->codefClockIngress()->idle() && sm->codefClockEgress()->idle() );
}

// --- Directories ---------------------------------------------------------------------------------

TEST_P( Programming, TranslationsAreHandedOverInTheDirectories ) {
   chip.graceful = true;
   start();
   auto entry = [&]( IntfId port, U32 vlan ) {
      return directory()->vlanMappingConfig( PortVlanKey( port, U16( vlan ), 0 ) );
   };
   wants( cli, po( 1 ), d, 10, 110 );
   wants( flow, eth( 3 ), d, 10, 210 );
   member( 1, 1 );
   EXPECT_EQ( chip.takeCalls(), none ); // no hook
   EXPECT_EQ( entry( eth( 1 ), 10 ).mapping().vlanId(), 110 );
   EXPECT_EQ( entry( eth( 1 ), 10 ).lag(), po( 1 ) );
   EXPECT_TRUE( intfSets->vlanMappingIntfConfig( eth( 1 ) )->vlanXlateKeySetHas( { 10, 0 } ) );
   EXPECT_TRUE( intfSets->vlanMappingIntfConfig( eth( 3 ) )->dfVlanXlateKeySetHas( { 10, 0 } ) );
   EXPECT_EQ( outcome( cli, po( 1 ), d, 10 ), Outcome::handedOver );
   const U32 first = entry( eth( 1 ), 10 ).version();
   says( eth( 1 ), 10, Status::notNow, first );
   EXPECT_TRUE( sm->unprogrammedIntfListHas( { po( 1 ), cli } ) );
   scheduler.runFor( 5 );
   const U32 second = entry( eth( 1 ), 10 ).version();
   EXPECT_NE( second, first );                // handed over again
   says( eth( 1 ), 10, Status::full, first ); // too late: of the one before
   EXPECT_EQ( outcome( cli, po( 1 ), d, 10 ), Outcome::handedOver );
   says( eth( 1 ), 10, Status::success, second );
   EXPECT_EQ( outcome( cli, po( 1 ), d, 10 ), Outcome::programmed );
   EXPECT_TRUE( lagMemberStatus->lagStatusHas( po( 1 ) ) );
   says( eth( 3 ), 10, Status::failed );
   EXPECT_FALSE( directory()->vlanMappingConfigHas( PortVlanKey( eth( 3 ), 10, 0 ) ) );
   EXPECT_FALSE( intfSets->vlanMappingIntfConfigHas( eth( 3 ) ) );
   wants( cli, eth( 3 ), d, 10, 119 );
   says( eth( 3 ), 10, Status::full );
   EXPECT_EQ( takeLogs(), std::vector{ fullLog( 10, 119, "Ethernet3", dir.c_str() ) } );
   EXPECT_EQ( directory()->vlanMappingConfigs(), 1u );
   checkAll();
   acsd->verifyData()->verifyIncIs( 0 );
   sm->handleVerify();
   EXPECT_EQ( acsd->verifyData()->verifyInc(), 0u );
   directory()->vlanMappingConfigIs( PortVlanKey( eth( 9 ), 10, 0 ), {} );
   directory()->vlanMappingConfigDel( PortVlanKey( eth( 1 ), 10, 0 ) );
   sm->handleVerify();
   EXPECT_EQ( acsd->verifyData()->verifyInc(), 2u );
}

TEST_P( Programming, ARestartGoesOnWithWhatTheDirectoriesHold ) {
   chip.graceful = true;
   start();
   wants( flow, po( 1 ), d, 10, 210 );
   wants( cli, po( 1 ), d, 10, 110 );
   wants( cli, po( 1 ), d, 20, 120 );
   wants( cli, po( 1 ), d, 30, 130 );
   member( 1, 1 );
   says( eth( 1 ), 10, Status::success );
   takeLogs();
   sm = nullptr;
   wants( cli, po( 1 ), d, 20, 121 );
   wants( cli, po( 1 ), d, 30, 0 );
   std::vector< U32 > changed;
   Kiv::Listener< Qon::QonVlanMappingConfigDir::vlanMappingConfigAttr > watch(
         directory().ptr(), [&]( const PortVlanKey & key ) { changed.push_back( key.vlanId() ); } );
   says( eth( 1 ), 20, Status::success );
   start();
   EXPECT_EQ( changed, ( std::vector< U32 >{ 20, 30 } ) ); // what holds is not touched
   EXPECT_EQ( owner( d, po( 1 ), 10 ), flow );             // by the key sets
   EXPECT_EQ( outcome( flow, po( 1 ), d, 10 ), Outcome::programmed );
   EXPECT_EQ( outcome( cli, po( 1 ), d, 10 ), Outcome::conflict );
   EXPECT_EQ( directory()->vlanMappingConfigs(), 2u );
   EXPECT_EQ( takeLogs().size(), 1u ); // the conflict, once more
   checkAll();
}

TEST_P( Programming, APortThatMovedDuringARestartIsHandedOverForItsPortChannel ) {
   chip.graceful = true;
   start();
   wants( cli, po( 1 ), d, 10, 110 );
   wants( cli, po( 2 ), d, 10, 110 ); // the same
   member( 1, 1 );
   const PortVlanKey key( eth( 1 ), 10, 0 );
   const auto before = directory()->vlanMappingConfig( key );
   sm = nullptr;
   moves( 1, 2, 1 );
   start();
   EXPECT_EQ( directory()->vlanMappingConfig( key ).lag(), po( 2 ) );
   EXPECT_GT( directory()->vlanMappingConfig( key ).version(), before.version() );
   checkAll();
}

TEST_P( Programming, WhatAMovedPortHeldIsNobodysClaimOnItsNewPortChannel ) {
   chip.graceful = true;
   start();
   wants( flow, po( 1 ), d, 10, 210 );
   wants( flow, po( 1 ), d, 20, 220 );
   wants( cli, po( 2 ), d, 10, 110 );
   wants( flow, po( 2 ), d, 10, 310 );
   wants( flow, po( 2 ), d, 30, 330 );
   member( 1, 1 );
   member( 1, 2 );
   member( 2, 3 );
   sm = nullptr;
   moves( 1, 2, 1 );
   member( 1, 2, false );
   member( 2, 3, false );
   start();
   EXPECT_EQ( owner( d, po( 2 ), 10 ), cli ); // and not he who had it elsewhere
   const auto config = directory()->vlanMappingConfig( PortVlanKey( eth( 1 ), 10, 0 ) );
   EXPECT_EQ( config.mapping().vlanId(), 110 );
   EXPECT_EQ( config.lag(), po( 2 ) );
   EXPECT_FALSE( directory()->vlanMappingConfigHas( PortVlanKey( eth( 1 ), 20, 0 ) ) );
   EXPECT_EQ( directory()->vlanMappingConfigs(), 2u ); // nothing of ports that left
   checkAll();
}

TEST_P( Programming, WhatAnEarlierLifeSaidOfMembersIsPutRight ) {
   chip.answer = Status::handedOver;
   start();
   wants( cli, po( 1 ), d, 10, 110 );
   member( 1, 1 );
   member( 1, 2 );
   says( eth( 1 ), 10, Status::success );
   says( eth( 2 ), 10, Status::success );
   sm = nullptr;
   member( 1, 1, false );
   wants( cli, po( 1 ), d, 10, 0 );
   wants( cli, po( 1 ), d, 20, 120 );
   start();
   says( eth( 2 ), 20, Status::success );
   ASSERT_TRUE( lagMemberStatus->lagStatus( po( 1 ) ) );
   auto & ofLag = *lagMemberStatus->lagStatus( po( 1 ) );
   EXPECT_FALSE( ofLag.memberStatusHas( eth( 1 ) ) );
   ASSERT_TRUE( ofLag.memberStatusHas( eth( 2 ) ) );
   auto & member = *ofLag.memberStatus( eth( 2 ) );
   EXPECT_EQ( member.ingressKeys() + member.egressKeys(), 1u );
   EXPECT_FALSE( intfSets->vlanMappingIntfConfigHas( eth( 1 ) ) );
   EXPECT_EQ( intfSets->vlanMappingIntfConfig( eth( 2 ) )->vlanXlateKeySets(), 1u );
   checkAll();
}

TEST_P( Programming, AStepFromWithoutTellsWhatAReviewTells ) {
   chip.graceful = true;
   start();
   auto add = [&]( Source source, U16 mapped ) {
      return d == in ? sm->addIngressVlanTranslation( eth( 1 ), { 10, 0 }, { mapped, 0 }, false,
                                                      source )
                     : sm->addEgressVlanTranslation( eth( 1 ), { 10, 0 }, { mapped, 0 }, false,
                                                     source );
   };
   EXPECT_EQ( add( flow, 210 ), Status::handedOver );
   EXPECT_TRUE( intfSets->vlanMappingIntfConfig( eth( 1 ) )->dfVlanXlateKeySetHas( { 10, 0 } ) );
   EXPECT_EQ( takeLogs(), none );
   EXPECT_EQ( add( cli, 110 ), Status::failed );
   EXPECT_EQ( takeLogs(),
              std::vector{ conflictLog( 10, 110, "Ethernet1", dir.c_str(), "CLI", "Steerline" ) } );
   d == in ? sm->delIngressVlanTranslation( eth( 1 ), { 10, 0 }, false, flow )
           : sm->delEgressVlanTranslation( eth( 1 ), { 10, 0 }, false, flow );
   EXPECT_EQ( intfSets->vlanMappingIntfConfigs() + directory()->vlanMappingConfigs(), 0u );
}

} // namespace
