// Who owns a key: the command line and the flow source against each other, in both directions.

#include "tests/vlanmapping/VlanMappingWorld.h"

namespace {

using namespace VlanMappingTests;

/** A direction, the source that comes first, and the other. */
struct Case {
   Direction d;
   Source first, second;
   const char * direction() const { return d == in ? "ingress" : "egress"; }
   const char * firstName() const { return Qon::shownSource( first ); }
   const char * secondName() const { return Qon::shownSource( second ); }
};

class Owners : public testing::TestWithParam< Case >, protected VlanMappingWorld {
 protected:
   Owners() { start(); }
   void first( U32 mapped, U32 vlan = 10 ) { wants( c.first, eth( 1 ), c.d, vlan, mapped ); }
   void second( U32 mapped, U32 vlan = 10 ) { wants( c.second, eth( 1 ), c.d, vlan, mapped ); }
   String name( U32 vlan = 10 ) const {
      return nameOf( c.d, PortVlanKey( eth( 1 ), U16( vlan ), 0 ) );
   }
   const Case c = GetParam();
   const std::vector< String > none;
};

INSTANTIATE_TEST_SUITE_P( Sources, Owners,
                          testing::Values( Case{ in, cli, flow }, Case{ in, flow, cli },
                                           Case{ out, cli, flow }, Case{ out, flow, cli } ) );

TEST_P( Owners, WhoHoldsTheKeyKeepsItAndTheOtherIsToldOnce ) {
   first( 110 );
   second( 210 );
   EXPECT_EQ( chip.held, ( Held{ { name(), 110 } } ) );
   EXPECT_EQ( owner( c.d, eth( 1 ), 10 ), c.first );
   EXPECT_EQ( outcome( c.second, eth( 1 ), c.d, 10 ), Outcome::conflict );
   const auto conflict =
         conflictLog( 10, 210, "Ethernet1", c.direction(), c.secondName(), c.firstName() );
   EXPECT_EQ( takeLogs(), std::vector{ conflict } );
   first( 111 ); // the owner changes: no new conflict
   EXPECT_EQ( takeLogs(), none );
   EXPECT_EQ( chip.takeCalls().back(), "update " + name() + " -> 111" );
   second( 211 ); // what is wanted in vain changes: another one
   EXPECT_EQ( takeLogs().size(), 1u );
   second( 0 ); // a loser that goes takes nothing with it
   EXPECT_EQ( chip.held, ( Held{ { name(), 111 } } ) );
   EXPECT_EQ( chip.takeCalls(), none );
   second( 211 );
   EXPECT_EQ( takeLogs().size(), 1u );
   checkAll();
}

TEST_P( Owners, TheOtherGetsWhatTheOwnerGivesBack ) {
   first( 110 );
   second( 210 );
   takeLogs();
   chip.takeCalls();
   first( 0 );
   EXPECT_EQ( chip.takeCalls(), ( std::vector{ "del " + name(), "add " + name() + " -> 210" } ) );
   EXPECT_EQ( takeLogs(),
              std::vector{ programmedLog( 10, 210, "Ethernet1", c.direction(), c.secondName() ) } );
   first( 112 ); // and now it is the other way round
   EXPECT_EQ( takeLogs(), std::vector{ conflictLog( 10, 112, "Ethernet1", c.direction(),
                                                    c.firstName(), c.secondName() ) } );
   // The whole configuration of the owner goes.
   c.second == cli ? config->switchIntfConfigDel( eth( 1 ) )
                   : flowConfig->vlanXlateIntfConfigDel( eth( 1 ) );
   EXPECT_EQ( chip.held, ( Held{ { name(), 112 } } ) );
   EXPECT_EQ( takeLogs().size(), 1u );
   checkAll();
}

TEST_P( Owners, AnOwnerThatFindsNoRoomGivesWay ) {
   chip.answer = Status::full;
   first( 110 );
   EXPECT_EQ( takeLogs(), std::vector{ fullLog( 10, 110, "Ethernet1", c.direction() ) } );
   EXPECT_EQ( chip.takeCalls(), ( std::vector{ "add " + name() + " -> 110", "del " + name() } ) );
   EXPECT_EQ( outcome( c.first, eth( 1 ), c.d, 10 ), Outcome::givenUp );
   EXPECT_EQ( owner( c.d, eth( 1 ), 10 ), Source::None );
   chip.answer = Status::success;
   second( 210 ); // no conflict: nobody owns it
   EXPECT_EQ( takeLogs(), none );
   EXPECT_EQ( chip.held, ( Held{ { name(), 210 } } ) );
   second( 0 ); // promotion passes over what was given up
   EXPECT_EQ( chip.held, Held() );
   scheduler.runFor( 60 );
   EXPECT_EQ( chip.held, Held() );
   first( 111 ); // its own change brings it back
   EXPECT_EQ( chip.held, ( Held{ { name(), 111 } } ) );
   // An update that finds no room: the waiting source is next, at once.
   second( 210 );
   takeLogs();
   chip.answers[name()] = Status::full;
   first( 112 );
   EXPECT_EQ( chip.held, Held() ); // the other found no room either
   EXPECT_EQ( takeLogs(), ( std::vector{ fullLog( 10, 112, "Ethernet1", c.direction() ),
                                         fullLog( 10, 210, "Ethernet1", c.direction() ) } ) );
   checkAll();
}

TEST_P( Owners, ARefusalIsSilentAndMakesRoomForTheOther ) {
   first( 110 );
   second( 210 );
   takeLogs();
   chip.answers[name()] = Status::failed;
   // The refusal is of the update alone.
   chip.duringAdd = [&] {
      wants( c.second, eth( 2 ), c.d, 10, 0 ); // what is asked inside a hook waits
   };
   first( 113 );
   EXPECT_EQ( takeLogs(), none );
   EXPECT_EQ( outcome( c.first, eth( 1 ), c.d, 10 ), Outcome::givenUp );
   EXPECT_EQ( outcome( c.second, eth( 1 ), c.d, 10 ), Outcome::givenUp );
   chip.answers.clear();
   second( 211 );
   EXPECT_EQ( chip.held, ( Held{ { name(), 211 } } ) );
   checkAll();
}

TEST_P( Owners, AnInnerVlanIsPartOfTheKey ) {
   wantsInner( c.first, eth( 1 ), c.d, { 10, 20 }, { 110, 120 } );
   second( 210 ); // the same VLAN with any inner one, or none
   wantsInner( c.second, eth( 1 ), c.d, { 10, 30 }, { 210, 0 } );
   EXPECT_EQ( takeLogs(), none );
   EXPECT_EQ( chip.held, ( Held{ { name() + " inner 20", 110 },
                                 { name(), 210 },
                                 { name() + " inner 30", 210 } } ) );
   wantsInner( c.second, eth( 1 ), c.d, { 10, 20 }, { 210, 0 } );
   EXPECT_EQ( takeLogs(), std::vector{ conflictLog( 10, 210, "Ethernet1", c.direction(),
                                                    c.secondName(), c.firstName() ) } );
   chip.takeCalls();
   wantsInner( c.first, eth( 1 ), c.d, { 10, 20 }, { 110, 121 } ); // the inner one alone changes
   EXPECT_EQ( chip.takeCalls(), std::vector{ "update " + name() + " inner 20 -> 110" } );
   for ( U16 bad : { 4095, 5000 } ) {
      EXPECT_THROW( wantsInner( c.first, eth( 1 ), c.d, { 11, bad }, { 110, 0 } ),
                    Velto::RangeError );
      EXPECT_THROW( wantsInner( c.first, eth( 1 ), c.d, { 12, 20 }, { 110, bad } ),
                    Velto::RangeError );
   }
   EXPECT_EQ( chip.held.size(), 3u );
   checkAll();
}

TEST_P( Owners, AnInterfaceThatComesAnewInsideAHookBeginsAfresh ) {
   auto anew = [&] {
      c.first == cli ? config->switchIntfConfigDel( eth( 1 ) )
                     : flowConfig->vlanXlateIntfConfigDel( eth( 1 ) );
      first( 130, 30 );
   };
   first( 120, 20 );
   second( 210 );
   takeLogs();
   chip.duringAdd = anew;
   first( 140, 40 );
   EXPECT_EQ( chip.held, ( Held{ { name(), 210 }, { name( 30 ), 130 } } ) );
   // In one burst, with nothing between: what was refused may be had now.
   chip.answers[name( 30 )] = Status::failed;
   first( 131, 30 );
   chip.answers.clear();
   anew();
   EXPECT_EQ( chip.held.at( name( 30 ) ), 130u );
   chip.answer = Status::notNow;
   chip.duringAdd = anew; // its place on the retry list goes with it
   first( 150, 50 );
   chip.answer = Status::success;
   scheduler.runFor( 20 );
   EXPECT_EQ( chip.held, ( Held{ { name(), 210 }, { name( 30 ), 130 } } ) );
   EXPECT_TRUE( sm->clock()->idle() );
   checkAll();
}

TEST_P( Owners, ARefusalIsForgottenWithTheWishThatWentInAPause ) {
   auto paused = [&]( const std::function< void() > & change ) {
      sm->initializedIs( false );
      change();
      sm->initializedIs( true );
   };
   chip.answers[name()] = Status::full;
   first( 110 );
   paused( [&] { second( 210, 20 ); } );
   EXPECT_EQ( outcome( c.first, eth( 1 ), c.d, 10 ), Outcome::givenUp ); // it did not change
   EXPECT_EQ( takeLogs().size(), 1u );
   chip.answers.clear();
   paused( [&] { first( 0 ); } ); // and no entry is left of it
   paused( [&] { first( 110 ); } );
   EXPECT_EQ( chip.held.at( name() ), 110u );
   chip.answers[name()] = Status::full;
   first( 111 );
   chip.answers.clear();
   paused( [&] { first( 112 ); } );
   paused( [&] { first( 111 ); } );
   EXPECT_EQ( chip.held.at( name() ), 111u );
   // What waits to be tried again goes on waiting, though its configuration is another one.
   chip.answer = Status::notNow;
   first( 113 );
   paused( [&] {
      c.first == cli ? config->switchIntfConfigDel( eth( 1 ) )
                     : flowConfig->vlanXlateIntfConfigDel( eth( 1 ) );
      first( 113 );
   } );
   chip.answer = Status::success;
   scheduler.runFor( 20 );
   EXPECT_EQ( chip.held.at( name() ), 113u );
   checkAll();
}

TEST_P( Owners, WhatIsOutOfRangeIsNobodysWish ) {
   for ( U32 vlan : { 0u, 4095u, 5000u } ) {
      EXPECT_THROW( wants( c.first, eth( 1 ), c.d, vlan, 110 ), Velto::RangeError );
      EXPECT_EQ( owner( c.d, eth( 1 ), vlan ), Source::None );
   }
   try {
      first( 4095 );
      FAIL() << "nothing raised";
   } catch ( const Velto::RangeError & error ) {
      EXPECT_STREQ( error.what(), "Bridging::VlanId::value < 1 or > 4094 not allowed" );
   }
   EXPECT_THROW( sm->addIngressVlanTranslation( eth( 1 ), { 10, 4095 }, { 20, 0 }, false, cli ),
                 Velto::RangeError );
   EXPECT_EQ( chip.takeCalls(), none );
   second( 210 ); // takes a key that nobody can want
   EXPECT_EQ( chip.held, ( Held{ { name(), 210 } } ) );
   second( 0 );
   first( 110 );
   EXPECT_THROW( first( 0xffff ), Velto::RangeError );
   EXPECT_EQ( chip.held, Held() );
   checkAll();
}

TEST_P( Owners, ChangesWhileItIsNotInitializedAreMadeGood ) {
   first( 110 );
   first( 120, 20 );
   sm->initializedIs( false );
   first( 0 );
   second( 210 );
   first( 121, 20 );
   first( 130, 30 );
   EXPECT_EQ( chip.held.size(), 2u );
   takeLogs();
   sm->initializedIs( true );
   EXPECT_EQ( chip.held, ( Held{ { name(), 210 }, { name( 20 ), 121 }, { name( 30 ), 130 } } ) );
   EXPECT_EQ( takeLogs(), none ); // nobody is announced at a start
   checkAll();
}

} // namespace
