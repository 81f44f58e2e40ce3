#include "platform/Kiv/Text.h"

#include <gtest/gtest.h>

#include <limits>
#include <optional>

namespace Test {

enum class Mode : U8 { off = 0, slow = 3, fast = 7 };
KIV_ENUM( Mode, off, slow, fast )

class Limits {
 public:
   enum class Scope { card, chassis };
   KIV_NESTED_ENUM( Scope, card, chassis )

 private:
   U16 low_ = 1;
   S64 high_ = -1;
   Scope scope_ = Scope::chassis;
   KIV_VALUE( Test, Limits, low, high, scope )
};

class Session {
   Velto::String name_;
   Limits limits_;
   std::optional< U32 > group_;
   double rate_ = 0.2;
   Mode mode_ = Mode::off;
   KIV_VALUE( Test, Session, name, limits, group, rate, mode )
};

class Label {
   Velto::String text_;
   KIV_VALUE( Test, Label, text )
};

template< class T >
Velto::String
refusal( const Velto::String & text ) {
   try {
      Kiv::fromText< T >( text );
   } catch ( const Velto::RangeError & e ) {
      return e.what();
   }
   return "accepted";
}

template< class T >
void
expectRoundTrip( const T & value, const char * text ) {
   EXPECT_EQ( Kiv::toText( value ), text );
   EXPECT_EQ( Kiv::fromText< T >( text ), value );
}

TEST( Text, NumbersAndTruthGoBothWays ) {
   expectRoundTrip( true, "True" );
   expectRoundTrip( false, "False" );
   EXPECT_TRUE( Kiv::fromText< bool >( "1" ) && Kiv::fromText< bool >( "true" ) );
   EXPECT_FALSE( Kiv::fromText< bool >( "0" ) || Kiv::fromText< bool >( "false" ) );
   expectRoundTrip< U8 >( 255, "255" );
   expectRoundTrip< S8 >( -128, "-128" );
   expectRoundTrip< U64 >( ~U64( 0 ), "18446744073709551615" );
   expectRoundTrip( std::numeric_limits< S64 >::min(), "-9223372036854775808" );
   expectRoundTrip( 0.1, "0.1" );
   expectRoundTrip( 60.0, "60" );
   expectRoundTrip( 1.0 / 3, "0.3333333333333333" );
   expectRoundTrip( std::numeric_limits< double >::infinity(), "inf" );
   expectRoundTrip( Velto::String( " any, {text}" ), " any, {text}" );
}

TEST( Text, RefusalsSayWhatWasExpectedAndFound ) {
   EXPECT_EQ( refusal< U8 >( "256" ), "expected a whole number from 0 to 255, found '256'" );
   EXPECT_EQ( refusal< U32 >( "-1" ), "expected a whole number from 0 to 4294967295, found '-1'" );
   EXPECT_EQ( refusal< S8 >( "128" ), "expected a whole number from -128 to 127, found '128'" );
   EXPECT_EQ( refusal< bool >( "yes" ), "expected True or False, found 'yes'" );
   EXPECT_EQ( refusal< double >( "fast" ), "expected a number, found 'fast'" );
   EXPECT_EQ( refusal< Mode >( "medium" ), "expected Mode (off, slow, fast), found 'medium'" );
   for ( const char * text : { "", " 1", "1 ", "+1", "1.0", "0x10", "18446744073709551616" } ) {
      EXPECT_NE( refusal< U64 >( text ), "accepted" ) << text;
   }
}

TEST( Text, EnumeratorsGoByNameAndUnknownOnesByNumber ) {
   expectRoundTrip( Mode::slow, "slow" );
   expectRoundTrip( Mode( 5 ), "5" );
   EXPECT_EQ( Kiv::fromText< Mode >( "7" ), Mode::fast );
   EXPECT_NE( refusal< Mode >( "256" ), "accepted" );
   expectRoundTrip( Limits::Scope::card, "card" );
}

TEST( Text, RecordsPrintTheirFieldsInOrder ) {
   Session session( "s1", Limits( 2, -5, Limits::Scope::card ), 9, 1.5, Mode::fast );
   expectRoundTrip( session, "Value('Test::Session', ** {'name': s1, 'limits': "
                             "Value('Test::Limits', ** {'low': 2, 'high': -5, 'scope': card}), "
                             "'group': 9, 'rate': 1.5, 'mode': fast})" );
   expectRoundTrip( Session(), "Value('Test::Session', ** {'name': , 'limits': "
                               "Value('Test::Limits', ** {'low': 1, 'high': -1, "
                               "'scope': chassis}), 'group': None, 'rate': 0.2, 'mode': off})" );
}

TEST( Text, RecordsReadTheShortFormAndKeepDefaults ) {
   Session session( Velto::String( "{ mode: slow, limits: {high: 4} ,'name': \"a b\" }" ) );
   EXPECT_EQ( session,
              Session( "a b", Limits( 1, 4, Limits::Scope::chassis ), {}, 0.2, Mode::slow ) );
   EXPECT_EQ( Session( Velto::String( "{}" ) ), Session() );
}

TEST( Text, AwkwardStringsSurviveInsideRecords ) {
   for ( const char * name : { "a, b", "it's", "back\\slash", " edge ", "}{", "\"", "k: v", "",
                               "Value('Test::Label', ** {'text': 'x'})" } ) {
      Session session( name, {}, {}, 1, Mode::off );
      EXPECT_EQ( Session( session.stringValue() ).name(), name );
   }
   expectRoundTrip( Label( Velto::String( "{text: plain words}" ) ),
                    "Value('Test::Label', ** {'text': plain words})" );
}

TEST( Text, RecordsNameTheFieldTheyRefuse ) {
   EXPECT_EQ( refusal< Session >( "{speed: 3}" ), "Test::Session has no field 'speed'" );
   EXPECT_EQ( refusal< Session >( "{limits: {low: 65536}}" ),
              "Test::Session, field 'limits': Test::Limits, field 'low': "
              "expected a whole number from 0 to 65535, found '65536'" );
   for ( const char * text :
         { "", "{", "{low: 1", "{low 1}", "{low: 1} more", "{low: 'x}", "{low: {1}",
           "Value('Test::Limits', ** {low: 1}", "Value('Test::Other', ** {low: 1})" } ) {
      EXPECT_EQ( refusal< Limits >( text ),
                 "expected Value('Test::Limits', ** {field: value, ...}), found '" +
                       Velto::String( text ) + "'" );
   }
}

TEST( Text, RecordsCompareFieldByField ) {
   Limits base( 5, 5, Limits::Scope::chassis );
   EXPECT_LT( base, Limits( 6, 0, Limits::Scope::card ) );
   EXPECT_GT( base, Limits( 5, 4, Limits::Scope::chassis ) );
   EXPECT_LT( Limits( 5, 5, Limits::Scope::card ), base );
   Limits changed = base;
   changed.highIs( 6 );
   EXPECT_FALSE( changed.isEq( base ) );
   EXPECT_NE( changed.hash(), base.hash() );
   changed.highIs( 5 );
   EXPECT_EQ( changed.hash(), base.hash() );
}

TEST( Text, HashesTellNeighboursApartAndEqualsNot ) {
   EXPECT_NE( Limits( 1, 2, {} ).hash(), Limits( 2, 1, {} ).hash() );
   EXPECT_EQ( Kiv::hashOf( 0.0 ), Kiv::hashOf( -0.0 ) );
   EXPECT_EQ( Kiv::hashOf( U32( 77 ) ), 77u );
   EXPECT_NE( Kiv::hashOf( Velto::String( "ab" ) ), Kiv::hashOf( Velto::String( "ba" ) ) );
   // The same on every platform.
   EXPECT_EQ( Limits( 5, 5, Limits::Scope::chassis ).hash(), 8016376101106740819u );
}

TEST( Text, PartsAndQuotes ) {
   using Parts = std::vector< Velto::String >;
   EXPECT_EQ( Kiv::split( "a b  c ", ' ' ), ( Parts{ "a", "b", "", "c", "" } ) );
   EXPECT_EQ( Kiv::split( "", ' ' ), Parts{ "" } );
   EXPECT_EQ( Kiv::jsonQuoted( "a\"b\\c\n\x1f\xc3\xa9" ), "\"a\\\"b\\\\c\\u000a\\u001f\xc3\xa9\"" );
}

} // namespace Test
