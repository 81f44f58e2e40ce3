// The two bases: start, silence after death, and what a hook's base makes of a request.

#include <cstring>

#include "platform/Kiv/Describe.h"
#include "platform/Kiv/Generic.h"
#include "tests/harness/World.h"

namespace {

using namespace Tests;

class Input : public Kiv::Entity {
   KIV_BODY( Input, Kiv::Entity )
   KIV_ATTR( U32, level, 0 )
 public:
   explicit Input( const String & name ) : Kiv::Entity( name ) {}
};

} // namespace

KIV_DEFINE( Input )

namespace {

/** A feature in miniature. */
class Sm : public Qon::QonBaseSm {
 public:
   explicit Sm( Velto::Ptr< Input > input, std::vector< String > * heard )
       : input_( input ), heard_( heard ) {}
   ~Sm() override { input_->levelIs( input_->level() + 1 ); }
   void handleInitialized() override {
      heard_->push_back( initialized() ? "start" : "stop" );
      levelWatch_.attach( this, input_.ptr() );
   }
   void handleLevel() { heard_->push_back( "level" ); }

 private:
   Velto::Ptr< Input > input_;
   std::vector< String > * heard_;
   Kiv::Watch< Input::levelAttr, Sm, &Sm::handleLevel > levelWatch_;
};

class BaseSm : public ::testing::Test {
 protected:
   using Heard = std::vector< String >;
   Heard heard;
   Velto::Ptr< Input > input = Velto::make< Input >( "input" );
};

TEST_F( BaseSm, InitializedCallsItsHandlerOnEachChange ) {
   auto sm = Qon::smIs< Sm >( input, &heard );
   sm->initializedIs( false );
   sm->initializedIs( true );
   sm->initializedIs( true );
   sm->initializedIs( false );
   EXPECT_EQ( heard, ( Heard{ "start", "stop" } ) );
   Qon::QonBaseSmIs()->initializedIs( true ); // empty in the base
}

TEST_F( BaseSm, OnlyAFactorysProductHearsChanges ) {
   auto made = Qon::smIs< Sm >( input, &heard );
   made->initializedIs( true );
   input->levelIs( 1 );
   EXPECT_EQ( heard, ( Heard{ "start", "level" } ) );
   heard.clear();
   made = nullptr;
   auto direct = Velto::make< Sm >( input, &heard );
   direct->initializedIs( true );
   input->levelIs( 9 );
   EXPECT_EQ( heard, Heard{ "start" } );
}

TEST_F( BaseSm, TheLastReleaseSilencesBeforeAnythingIsTornDown ) {
   auto sm = Qon::smIs< Sm >( input, &heard );
   sm->initializedIs( true );
   sm = nullptr; // its destructor changes what it watches
   EXPECT_EQ( 1u, input->level() );
   EXPECT_EQ( heard, Heard{ "start" } );
}

TEST( Slots, HandleInitializedIsTheFirstOfTheLibrary ) {
   auto slot = []( auto member ) {
      std::ptrdiff_t word;
      std::memcpy( &word, &member, sizeof( word ) );
      return ( word - 1 ) / std::ptrdiff_t( sizeof( void * ) );
   };
   EXPECT_EQ( 2, slot( &Qon::QonBaseSm::typeData ) );
   EXPECT_EQ( 3, slot( &Qon::QonBaseSm::kivDoZombieReactors ) );
   EXPECT_EQ( 4, slot( &Qon::QonBaseSm::handleInitialized ) );
   EXPECT_EQ( 4, slot( &Qon::VlanHelperBase::verify ) );
   EXPECT_EQ( 9, slot( &Qon::VlanHelperBase::doUpdateVlanFid ) );
}

/** Writes down what a chip is asked for. */
class Chip : public Qon::VlanHelperBase {
 public:
   Chip() : VlanHelperBase( "chip" ) {}
   void doAddPortToVlan( Ulnet::IntfId port, Bridging::VlanId vlan, bool tagged, bool ingress,
                         bool egress ) override {
      calls.push_back( "add " + port.stringValue() + " " + vlan.stringValue() +
                       ( tagged ? " tagged" : "" ) + ( ingress ? " in" : "" ) +
                       ( egress ? " out" : "" ) );
   }
   void doRemovePortFromVlan( Ulnet::IntfId port, Bridging::VlanId vlan ) override {
      calls.push_back( "remove " + port.stringValue() + " " + vlan.stringValue() );
   }
   std::vector< String > calls;
};

TEST( VlanHelperBase, MembershipIsSetByTheTwoHooks ) {
   using Kind = Qon::PortVlanMembershipChangeKind;
   auto chip = Velto::make< Chip >();
   auto request = [&]( Kind kind, bool ingress, bool egress ) {
      return chip->requestPortVlanMembershipChange( kind, intf( "Ethernet1" ),
                                                    Bridging::VlanId( 5 ), true, ingress, egress );
   };
   EXPECT_EQ( 0u, request( Kind::setOverride, true, false ) );
   EXPECT_EQ( 0u, request( Kind::setOverride, false, true ) );
   EXPECT_EQ( 0u, request( Kind::setOverride, false, false ) );
   EXPECT_EQ( chip->calls,
              ( std::vector< String >{ "add Ethernet1 5 tagged in", "add Ethernet1 5 tagged out",
                                       "remove Ethernet1 5" } ) );
}

} // namespace
