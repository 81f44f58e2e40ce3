// Lines of a file of routes, and what the writer makes of them.

#include "platform/Kiv/Rng.h"
#include "tests/agent/FibWorld.h"

namespace Tests {
namespace {

using namespace Quarn::Fib;
using QonAgent::FibLine;
using QonAgent::parseFibLine;

TEST( FibFile, ALineSaysARouteOrAClass ) {
   const FibLine line = *parseFibLine(
         "  16777215 2001:DB8::/32\t2001:db8::1@Ethernet3/1.5+1+2+1048575*4294967295 # x\r" );
   EXPECT_TRUE( line.ofRoute );
   EXPECT_EQ( line.route,
              RouteKey( Qon::VrfId( 0xffffff ), Ulnet::IpGenPrefix( "2001:db8::/32" ) ) );
   ASSERT_EQ( line.content.vias.size(), 1u );
   const auto & via = line.content.vias[0];
   EXPECT_EQ( via.nextHopAddr(), Ulnet::IpGenAddr( "2001:db8::1" ) );
   EXPECT_EQ( via.intf.intfId(), intf( "Ethernet3/1.5" ) );
   EXPECT_EQ( via.weight, 0xffffffffu );
   EXPECT_EQ( ( std::vector< U32 >( via.label, via.label + via.labels ) ),
              ( std::vector< U32 >{ 1, 2, 1048575 } ) );
   EXPECT_EQ( parseFibLine( "0 10.0.0.0/8 fec 5" )->fec, GlobalFecId( 5 ) );
   EXPECT_TRUE( parseFibLine( "fec 5 -" )->removed );
   EXPECT_EQ( parseFibLine( "fec 5 local" )->content.type, FecType::local );
   EXPECT_EQ( parseFibLine( "  # remark" ), std::nullopt );
}

TEST( FibFile, WhatIsWrongIsOneLineThatSaysWhere ) {
   const std::pair< const char *, const char * > wrong[] = {
         { "0 10.0.0.0/8",
           "expected VRF PREFIX NEXTHOP..., or fec NUMBER NEXTHOP..., found '0 10.0.0.0/8'" },
         { "16777216 ::/0 drop", "expected a VRF from 0 to 16777215, found '16777216'" },
         { "-1 ::/0 drop", "expected a VRF from 0 to 16777215, found '-1'" },
         { "0 10.0.0.1/8 drop",
           "expected a prefix without bits behind its length, 10.0.0.0/8, found '10.0.0.1/8'" },
         { "0 ::/0 x",
           "expected ADDRESS@INTERFACE, @INTERFACE, drop, local, 'fec NUMBER' or -, found 'x'" },
         { "0 ::/0 @", "expected an interface behind the @, found '@'" },
         { "0 ::/0 @Vlan1*0", "expected a weight from 1 to 4294967295, found '0'" },
         { "0 ::/0 @Vlan1*4294967296",
           "expected a weight from 1 to 4294967295, found '4294967296'" },
         { "0 ::/0 @Vlan1+1048576", "expected a label from 0 to 1048575, found '1048576'" },
         { "0 ::/0 @Vlan1+1+2+3+4", "expected at most 3 labels, found '@Vlan1+1+2+3+4'" },
         { "0 ::/0 drop local",
           "expected ADDRESS@INTERFACE, @INTERFACE, drop, local, 'fec NUMBER' or -, found 'drop'" },
         { "0 ::/0 fec 0", "expected the number of a class from 1 to 4294967295, found '0'" },
         { "fec 1 fec 2", "expected ADDRESS@INTERFACE, @INTERFACE, drop, local, 'fec NUMBER' or -, "
                          "found 'fec'" } };
   for ( auto & [line, what] : wrong ) {
      try {
         QonAgent::eachFibLine( "routes", String( "0 ::/0 drop\n\n" ) + line + "\n",
                                []( auto && ) {} );
         FAIL() << line;
      } catch ( const Velto::RangeError & e ) {
         EXPECT_EQ( e.what(), "routes:3: " + String( what ) );
      }
   }
   for ( const char * line :
         { "0 10.0.0.0/33 drop", "0 nothing drop", "0 ::/0 1.2.3@Vlan1", "0 ::/0 @Nothing7" } ) {
      EXPECT_THROW( parseFibLine( line ), Velto::RangeError ) << line;
   }
}

class FibWriting : public testing::Test, public FibWorld {
 protected:
   String refused( FibFile & file, const String & text ) {
      try {
         file.lines( text );
         return "";
      } catch ( const Velto::RangeError & e ) {
         return e.what();
      }
   }
};

TEST_F( FibWriting, RoutesShareClassesWhichGoWithTheLast ) {
   FibFile file( loop, path );
   file.lines( "0 10.0.0.0/8 drop\n0 11.0.0.0/8 drop\n0 12.0.0.0/8 local\nfec 3 drop\n0 13.0.0.0/8 "
               "fec 3" );
   EXPECT_EQ( file.writer.fecs(), 3u );
   file.lines( "0 10.0.0.0/8 drop\n0 11.0.0.0/8 -\n0 13.0.0.0/8 drop\n0 12.0.0.0/8 drop" );
   EXPECT_EQ( file.writer.fecs(), 2u ); // one of its own, and the one with a number
   file.lines( "0 10.0.0.0/8 -\n0 12.0.0.0/8 -\n0 13.0.0.0/8 -\n0 14.0.0.0/8 -" );
   EXPECT_EQ( file.writer.fecs(), 1u );
   EXPECT_EQ( file.writer.routes(), 0u );
}

TEST_F( FibWriting, WhatHasNoRoomChangesNothing ) {
   FibFile file( loop, path, { 2, 2, 3 } );
   file.lines( "fec 1 @Ethernet1 @Ethernet2\n0 10.0.0.0/8 fec 1\n0 11.0.0.0/8 @Ethernet3" );
   EXPECT_EQ( refused( file, "fec 1 @Ethernet4 @Ethernet5 @Ethernet6" ),
              "f:1: the table of vias has no room" );
   EXPECT_EQ( refused( file, "fec 2 drop" ), "f:1: the table of classes has no room" );
   EXPECT_EQ( refused( file, "0 12.0.0.0/8 @Ethernet3" ), "f:1: the table of routes has no room" );
   file.writer.completeIs( true );
   attach();
   rest();
   EXPECT_EQ( shown( "route", { "prefix", "nextHops", "state" } ),
              "10.0.0.0/8 | Ethernet1 attached, Ethernet2 attached | programmed\n"
              "11.0.0.0/8 | Ethernet3 attached | programmed" );
   file.lines( "0 11.0.0.0/8 -" ); // and nothing is left of what was refused
   EXPECT_EQ( file.writer.fecs(), 1u );
   EXPECT_EQ( refused( file, "fec 1 @Ethernet4 @Ethernet5 @Ethernet6" ), "" );
}

/** Any lines in any order come to what the last ones say, whoever follows from when on. */
TEST_F( FibWriting, AnyHistoryIsFollowedToTheEnd ) {
   for ( U64 seed = 1; seed <= 15 && !HasFailure(); ++seed ) {
      Kiv::Rng rng( seed );
      FibFile file( loop, path );
      std::map< String, String > model; // prefix -> what its line says
      std::map< U32, String > fecs;
      const auto hops = [&] {
         String text;
         for ( U32 n = rng.between( 1, 3 ), port = 0; n; --n ) {
            port += rng.between( 1, 2 ); // in order and distinct, as they are shown
            text += " @Ethernet" + Kiv::toText( port );
         }
         return text;
      };
      file.writer.completeIs( true );
      attach();
      for ( U32 step = 0; step < 400; ++step ) {
         const String prefix = "10." + Kiv::toText( rng.below( 40 ) ) + ".0.0/16";
         const U32 number = rng.between( 1, 5 );
         const String fec = "fec " + Kiv::toText( number );
         switch ( rng.below( 6 ) ) {
         case 0:
            file.lines( "0 " + prefix + " -" );
            model.erase( prefix );
            break;
         case 1:
            fecs[number] = hops();
            file.lines( fec + fecs[number] );
            break;
         case 2:
            fecs.erase( number );
            file.lines( fec + " -" );
            break;
         case 3:
            file.lines( "0 " + prefix + " " + ( model[prefix] = fec ) );
            break;
         case 4:
            file.lines( "0 " + prefix + ( model[prefix] = hops() ) );
            break;
         default:
            loop.runOnce( 0 );
            ASSERT_EQ( reader().checkInvariants(), "" ) << "seed " << seed;
         }
      }
      rest();
      // Routes that a FEC has left keep its last next hops; a fresh reader has never seen any.
      attach();
      rest();
      std::map< String, String > held;
      for ( auto & line : Kiv::split( shown( "route", { "prefix", "nextHops" } ), '\n' ) ) {
         held[line.substr( 0, line.find( ' ' ) )] = line;
      }
      U32 compared = 0;
      for ( auto & [prefix, said] : model ) {
         const String of = said[0] == ' ' ? said : fecs[U32( said[4] - '0' )];
         String expected = prefix + ( of.empty() ? " | " : " |" );
         for ( auto & word : Kiv::split( of.empty() ? of : of.substr( 1 ), ' ' ) ) {
            expected += word.empty() ? ""
                                     : ( expected.back() == '|' ? " " : ", " ) + word.substr( 1 ) +
                                             " attached";
         }
         ASSERT_EQ( held[prefix], expected ) << "seed " << seed;
         ++compared;
      }
      EXPECT_EQ( compared, held.size() );
   }
}

} // namespace
} // namespace Tests
