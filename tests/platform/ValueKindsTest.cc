// Lists, maps and entities inside values; and toggles.

#include "platform/Kiv/ValueKinds.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "platform/Kiv/Entity.h"
#include "platform/Kiv/Toggle.h"

namespace Test {

using Velto::String;

class Peer : public Kiv::Entity {
 public:
   explicit Peer( const String & name ) : Kiv::Entity( name ) {}
};

class Route {
   Kiv::ValueList< String > hops_;
   Kiv::ValueMap< U32, Kiv::ValueList< U32 > > backups_;
   Kiv::Ref< Peer > peer_;
   Kiv::Uncompared< U32 > hint_;
   KIV_VALUE( Test, Route, hops, backups, peer, hint )
};

TEST( ValueKinds, CollectionsInsideValuesGoBothWays ) {
   Route route;
   route.hopsIs( { "a, b", "", "it's", "{x: [1]}" } );
   Kiv::ValueMap< U32, Kiv::ValueList< U32 > > backups;
   backups.entryIs( 9, { 3, 1 } );
   backups.entryIs( 2, {} );
   route.backupsIs( backups );
   EXPECT_EQ( "Value('Test::Route', ** {'hops': {'a, b', , 'it\\'s', '{x: [1]}'}, "
              "'backups': {2: {}, 9: {3, 1}}, 'peer': None, 'hint': 0})",
              route.stringValue() );
   route.hopsIs( { "a, b", "it's" } );
   EXPECT_EQ( route, Route( route.stringValue() ) );
   for ( const char * text : { "", "{", "{1", "1, 2", "{1} 2", "{1, x}" } ) {
      EXPECT_THROW( Kiv::ValueList< U32 >{ String( text ) }, Velto::RangeError ) << text;
   }
}

TEST( ValueKinds, MapsAreEqualInWhateverOrderTheyWereMade ) {
   Kiv::ValueMap< U32, U32 > one, other;
   EXPECT_EQ( sizeof( void * ), sizeof( one ) );
   one.entryIs( 1, 5 );
   one.entryIs( 2, 6 );
   other.entryIs( 2, 7 );
   other.entryIs( 1, 5 );
   EXPECT_LT( one, other );
   other.entryIs( 2, 6 );
   EXPECT_EQ( one, other );
   EXPECT_EQ( one.hash(), other.hash() );
   const auto kept = other;
   other.entryDel( 1 );
   other.entryDel( 1 );
   other.entryDel( 2 );
   EXPECT_EQ( ( Kiv::ValueMap< U32, U32 >() ), other );
   EXPECT_EQ( 5u, *kept.find( 1 ) );
}

TEST( ValueKinds, EntitiesAreThemselvesAndSomePartsDoNotCount ) {
   auto peer = Velto::make< Peer >( "north" ), namesake = Velto::make< Peer >( "north" );
   Route route, other;
   route.peerIs( peer );
   other.peerIs( namesake );
   EXPECT_NE( route, other );
   other.peerIs( peer );
   other.hintIs( 7u );
   EXPECT_EQ( route, other );
   EXPECT_EQ( route.hash(), other.hash() );
   EXPECT_NE( String::npos, other.stringValue().find( "'peer': north, 'hint': 7" ) );
   EXPECT_THROW( Route( other.stringValue() ), Velto::RangeError );
}

TEST( Toggle, IsOnlyOnWhereTheFileSaysSo ) {
   const String directory = testing::TempDir();
   Kiv::toggleDirectoryIs( directory );
   EXPECT_FALSE( Kiv::toggle( "NoSuchFile.json", "On" ) );
   struct {
      const char * text;
      bool on;
   } const table[] = {
         { "{\"On\": true}", true },
         { " { \"Off\" : [1, {\"On\": false}, \"}\\\"\"] ,\n\"On\":true, \"n\": -1.5e3 } ", true },
         { "{\"On\": false}", false },
         { "{\"On\": \"true\"}", false },
         { "{\"On\": 1}", false },
         { "{\"Inner\": {\"On\": true}}", false },
         { "{\"On\": true, \"On\": null}", false },
         { "{}", false },
         { "", false },
         { "[\"On\", true]", false },
         { "{\"On\": true", false },
         { "{\"On\": true}}", false },
         { "{\"On\": true,}", false },
         { "{\"On\": truest}", false },
         { "{\"On\" true}", false },
   };
   for ( const auto & row : table ) {
      std::ofstream( directory + "/Toggles.json" ) << row.text;
      EXPECT_EQ( row.on, Kiv::toggle( "Toggles.json", "On" ) ) << row.text;
   }
   std::ofstream( directory + "/Toggles.json" ) << String( 100000, '[' ); // no end of the stack
   EXPECT_FALSE( Kiv::toggle( "Toggles.json", "On" ) );
   std::remove( ( directory + "/Toggles.json" ).c_str() );
}

} // namespace Test
