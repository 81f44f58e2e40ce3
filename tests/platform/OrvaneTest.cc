// Mounts by path, and values that are held once.

#include <gtest/gtest.h>

#include "platform/KivStash/DedupHandle.h"
#include "platform/Orvane/EntityManager.h"
#include "platform/types/Interface.h"
#include "platform/types/Mlag.h"

namespace {

using Velto::String;

String
errorOf( const std::function< void() > & use ) {
   try {
      use();
   } catch ( const Velto::RangeError & e ) {
      return e.what();
   }
   return "accepted";
}

TEST( Orvane, TheLongestMountServesAPath ) {
   Orvane::EntityManager manager;
   auto lag = manager.mount< Interface::EthLagIntfStatusDir >( "interface/status/eth/lag" );
   auto mlag = manager.mount< Mlag::Status >( "interface/status" );
   EXPECT_EQ( lag, manager.mount< Interface::EthLagIntfStatusDir >( "interface/status/eth/lag" ) );
   manager.insert( "interface/status/eth/lag/intfStatus[Port-Channel10]" );
   manager.set( "interface/status/eth/lag/intfStatus[Port-Channel10]/intf[Ethernet3/1]",
                "{collecting: False}" );
   manager.set( "interface/status/mlagState", "primary" );
   auto status = lag->intfStatus( Ulnet::IntfId( "Port-Channel10" ) );
   ASSERT_TRUE( status );
   EXPECT_FALSE( status->intf( Ulnet::IntfId( "Ethernet3/1" ) ).collecting() );
   EXPECT_TRUE( status->intf( Ulnet::IntfId( "Ethernet3/1" ) ).distributing() );
   EXPECT_EQ( Mlag::MlagState::primary, mlag->mlagState() );
   EXPECT_EQ( "primary", manager.get( "interface/status/mlagState" ) );
   std::vector< String > lines;
   manager.dump( "interface/status/eth/lag/intfStatus[Port-Channel10]", &lines,
                 []( void * c, const Kiv::GenericIf::Line & l ) {
                    static_cast< std::vector< String > * >( c )->push_back( l.path );
                 } );
   ASSERT_EQ( 3u, lines.size() );
   EXPECT_EQ( "interface/status/eth/lag/intfStatus[Port-Channel10]/intf[Ethernet3/1]", lines[0] );
   manager.del( "interface/status/eth/lag/intfStatus[Port-Channel10]" );
   EXPECT_EQ( 0u, lag->intfStatuss() );
}

TEST( Orvane, WhatIsWrongIsSaidWithTheFullPath ) {
   Orvane::EntityManager manager;
   manager.mount< Mlag::Status >( "mlag/status" );
   EXPECT_EQ( "mlag/statuses/x: lies in no mount",
              errorOf( [&] { manager.get( "mlag/statuses/x" ); } ) );
   EXPECT_EQ( "mlag/status/colour: Mlag::Status has no attribute 'colour'",
              errorOf( [&] { manager.get( "mlag/status/colour" ); } ) );
   EXPECT_NE( "accepted", errorOf( [&] { manager.set( "mlag/status/mlagState", "sleepy" ); } ) );
   EXPECT_NE( "accepted", errorOf( [&] {
                 manager.mount< Interface::EthLagIntfStatusDir >( "mlag/status" );
              } ) );
}

TEST( Dedup, EqualValuesAreOneUntilChanged ) {
   KivStash::DedupTable< String > table;
   auto a = table.handle( "one" );
   auto b = table.handle( "one" );
   EXPECT_EQ( a, b );
   EXPECT_EQ( &*a, &*b );
   EXPECT_EQ( 2u, a.useCount() );
   b = table.changed( b, []( String & s ) { s = "two"; } );
   EXPECT_EQ( "one", *a );
   EXPECT_EQ( 2u, table.size() );
   b = table.changed( b, []( String & s ) { s = "one"; } );
   EXPECT_EQ( a, b );
   EXPECT_EQ( 1u, table.size() );
   KivStash::DedupHandle< String > survivor;
   {
      KivStash::DedupTable< String > gone;
      survivor = gone.handle( "kept" );
   }
   EXPECT_EQ( "kept", *survivor );
}

} // namespace
