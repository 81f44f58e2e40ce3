// Texts of the bases: reports of failures and of missing hooks, and of calls from the wrong place.

#include "platform/Kiv/Describe.h"
#include "platform/Kiv/Generic.h"
#include "tests/harness/World.h"

namespace {

using namespace Tests;

/** An entity whose setter is for test scripts. */
class Guarded : public Kiv::Entity {
   KIV_BODY( Guarded, Kiv::Entity )
 public:
   explicit Guarded( const String & name ) : Kiv::Entity( name ) {}
   U32 knob() const { return knob_; }
   void knobIs( U32 v ) {
      Qon::assertCallerIsBreadthTestScript();
      knob_ = v;
   }
   KIV_DECLARE( knob, void, U32,
                template scalar< KivT, U32, &KivT::knob_, &KivT::knobIs >( "knob" ) )

 private:
   U32 knob_ = 0;
};

} // namespace

KIV_DEFINE( Guarded )

namespace {

class Helper : public Qon::QonBaseHelper {
 public:
   Helper() : QonBaseHelper( "helper" ) {}
   virtual bool hook() const {
      qonAssert( Qon::unimplementedFunction( "Helper::hook" ) );
      return true;
   }
};

/** A class with the rule of those that compare hardware state. */
class Comparer {
 public:
   QON_ASSERT_FAMILY( Comparer, "QonComparer", Qon::Silence::simulation )
};

/** What a call writes to standard error when it does not die. */
template< class F >
String
errorsOf( F && call ) {
   ::testing::internal::CaptureStderr();
   call();
   return ::testing::internal::GetCapturedStderr();
}

struct Family {
   const char * text; // what the report consists of, as a regular expression
   const char * silencedBy;
   std::function< void() > fail;
};

TEST( QonAssert, EachFamilyHasItsReportAndItsSilence ) {
   auto sm = Qon::QonBaseSmIs();
   Helper helper;
   Comparer comparer;
   auto vlans = Velto::make< Qon::VlanHelperBase >( "vlans" );
   const Family families[] = {
         { "^lost\nQonBaseSm:12: void Qon::QonBaseSm::qonAssert\\(const String&\\) const: "
           "Assertion '0' failed\\.\n$",
           "QON_NOOP_AGENT", [&] { sm->qonAssert( "lost" ); } },
         { "^Call to unimplemented function Helper::hook\nQonBaseHelper:12: void "
           "Qon::QonBaseHelper::qonAssert\\(const String&\\) const: Assertion '0' failed\\.\n$",
           "QON_NOOP_AGENT", [&] { EXPECT_TRUE( helper.hook() ); } },
         { "^lost\nQonComparer:12: void Qon::Comparer::qonAssert\\(const String&\\) const: "
           "Assertion '0' failed\\.\n$",
           "SIMULATION_VMID", [&] { comparer.qonAssert( "lost" ); } },
         { "^Call to unimplemented function VlanHelperBase::verify\nQonVlanHelperBase:12: void "
           "Qon::VlanHelperBase::qonAssert\\(const String&\\) const: Assertion '0' failed\\.\n$",
           "", [&] { vlans->verify(); } },
   };
   for ( const char * variable : { "QON_NOOP_AGENT", "SIMULATION_VMID" } ) {
      Env env;
      env.unset( "QON_NOOP_AGENT" );
      env.unset( "SIMULATION_VMID" );
      env.set( variable, "" ); // the value does not matter
      for ( auto & family : families ) {
         if ( String( variable ) == family.silencedBy ) {
            EXPECT_EQ( "", errorsOf( family.fail ) ) << family.text;
         } else {
            EXPECT_DEATH( family.fail(), family.text ) << variable;
         }
      }
   }
}

/** A stack of `n` frames, with the generic attribute interface at one of them. */
std::vector< const char * >
stackWith( int n, int at ) {
   std::vector< const char * > symbols( n, "lib(f+1)" );
   if ( at >= 0 ) {
      symbols[at] = "lib(_ZN3Kiv9GenericIf5applyE+2)";
   }
   return symbols;
}

TEST( BreadthTest, TheInterfaceCountsAmongTheFirstSevenFrames ) {
   auto passes = []( int frames, int at ) {
      return Qon::breadthTestPasses( stackWith( frames, at ).data(), frames );
   };
   EXPECT_TRUE( passes( 11, 0 ) );
   EXPECT_TRUE( passes( 11, 6 ) );
   EXPECT_FALSE( passes( 11, 7 ) );
   EXPECT_TRUE( passes( 3, 2 ) );
   EXPECT_FALSE( passes( 3, -1 ) );
   EXPECT_FALSE( passes( 0, -1 ) );
}

TEST( BreadthTest, TheListingMarksWhereTheSearchEnds ) {
   const String mark = " <Frames below are not searched, as they are too far from the callsite, "
                       "and may result in incorrect interpretation>\n";
   EXPECT_EQ( "[0] lib(f+1)\n[1] lib(f+1)\n" + mark,
              Qon::breadthTestListing( stackWith( 2, -1 ).data(), 2 ) );
   String listing = Qon::breadthTestListing( stackWith( 11, 9 ).data(), 11 );
   EXPECT_NE( String::npos, listing.find( "[6] lib(f+1)\n" + mark + "[7] lib(f+1)\n" ) );
   EXPECT_NE( String::npos, listing.find( "[10] " ) );
   EXPECT_EQ( "", Qon::breadthTestListing( nullptr, 0 ) );
}

TEST( BreadthTest, AGuardedSetterIsForTheGenericInterface ) {
   auto guarded = Velto::make< Guarded >( "guarded" );
   Kiv::GenericIf::set( *guarded, "knob", "3" );
   EXPECT_EQ( 3u, guarded->knob() );
   Env env;
   env.unset( "QON_ASSERTCALLERISBREADTHTESTSCRIPT_ALLOW" );
   EXPECT_DEATH( guarded->knobIs( 4 ),
                 "Assertion 'assertCallerIsBreadthTestScript: Did not find GenerifIf in stack "
                 "\\(set env var QON_ASSERTCALLERISBREADTHTESTSCRIPT_ALLOW to permit\\):\n"
                 "\\[0\\] .*assertCallerIsBreadthTestScript" );
   env.set( "QON_NOOP_AGENT", "1" ); // has no say here
   EXPECT_DEATH( guarded->knobIs( 4 ), "GenerifIf" );
   env.set( "QON_ASSERTCALLERISBREADTHTESTSCRIPT_ALLOW", "" );
   guarded->knobIs( 4 );
   EXPECT_EQ( 4u, guarded->knob() );
}

} // namespace
