// Mounts by path, and values that are held once.

#include <gtest/gtest.h>

#include "platform/KivStash/DedupHandle.h"
#include "platform/Orvane/EntityManager.h"
#include "platform/types/Interface.h"
#include "platform/types/Mlag.h"

namespace {

using Velto::String;
using Lines = std::vector< String >;

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
   auto dump = [&]( const String & path ) {
      Lines lines;
      Orvane::Dump dump( manager, path );
      for ( Kiv::GenericIf::Line line; dump.next( line ); ) {
         lines.push_back( line.path + ( line.isEntity ? "" : " = " + line.value ) );
      }
      return lines;
   };
   const String channel = "interface/status/eth/lag/intfStatus[Port-Channel10]";
   const Lines inside = { channel + "/intf[Ethernet3/1] = Value('Interface::LagMember', ** "
                                    "{'collecting': False, 'distributing': True})",
                          channel + "/lacpFallbackEnabled = 0", channel + "/deviceName = " };
   EXPECT_EQ( dump( channel ), inside );
   // A collection alone, a value alone, and all mounts that there are below a place.
   EXPECT_EQ( dump( channel + "/intf" ), Lines{ inside[0] } );
   EXPECT_EQ( dump( channel + "/deviceName" ), Lines{ inside[2] } );
   const Lines whole = dump( "" );
   EXPECT_EQ( whole, dump( "interface" ) );
   EXPECT_GT( whole.size(), dump( "interface/status/eth/lag" ).size() );
   EXPECT_EQ( whole.front(), channel );
   EXPECT_NE( "accepted", errorOf( [&] { dump( channel + "/intf[Ethernet4]" ); } ) );
   EXPECT_NE( "accepted", errorOf( [&] { dump( "interf" ); } ) );
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
