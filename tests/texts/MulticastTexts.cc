// Texts of multicast that operators and tools search for: reports, failed assertions, traces.

#include <cstring>

#include "tests/multicast/McastWorld.h"
#include "tests/texts/Traced.h"

// In their namespace: other files here have other ports called eth().
namespace McastTests {
namespace {

TEST( MulticastTexts, EveryMissingHookIsReported ) {
   Qon::MulticastDataFactory factory;
   auto acsd = Qon::qonCommonSmDataFactory( "acsd" );
   Qon::HardwareL2MulticastBitmap bitmap( nullptr, Bitmap{ 1 }, {} );
   Qon::HardwareL2MulticastEntry entry( nullptr, 1 );
   Qon::MulticastCopyUpdater updater(
         Velto::make< Bridging::Multicast::CopyRequestConfig >( "c" ) );
   const auto igmp = Qon::PacketType::igmpPacket;
   const std::map< String, std::function< void() > > hooks = {
         { "MulticastDataFactory::getHardwareL2MulticastEntry",
           [&] { EXPECT_TRUE( factory.getHardwareL2MulticastEntry( nullptr, 1 ) ); } },
         { "MulticastDataFactory::getHardwareL2MulticastBitmap",
           [&] {
              EXPECT_TRUE( factory.getHardwareL2MulticastBitmap( nullptr, Bitmap{ 1 }, {} ) );
           } },
         { "MulticastDataFactory::getMaxL2MulticastGroups",
           [&] { factory.getMaxL2MulticastGroups(); } },
         { "MulticastDataFactory::getBitmapInfoType", [&] { factory.getBitmapInfoType(); } },
         { "HardwareL2MulticastEntry::deleteMacTableEntry", [&] { entry.deleteMacTableEntry(); } },
         { "HardwareL2MulticastBitmap::createL2MulticastEntry",
           [&] { EXPECT_GE( bitmap.createL2MulticastEntry(), 0 ); } },
         { "HardwareL2MulticastBitmap::writeGroupsToHardware",
           [&] { bitmap.modifyGroupsInHardware( Bitmap{ 1 } ); } },
         { "MulticastCopyUpdater::updateCopyRequest",
           [&] { updater.updateCopyRequest( true, igmp ); } },
         { "MulticastCopyUpdater::updateCopyAndDropRequest",
           [&] { updater.updateCopyAndDropRequest( true, igmp ); } } };
   for ( auto & [name, call] : hooks ) {
      EXPECT_DEATH( call(), "Call to unimplemented function " + name );
   }
   EXPECT_EQ( entry.updateMacTableEntry(), TableAddStatus::success );
   entry.deleteHwShadowedMacTableEntry();
   Tests::Env noop( "QON_NOOP_AGENT", "" );
   for ( auto & [name, call] : hooks ) {
      call();
   }
}

TEST( MulticastTexts, WithoutAChipNothingOverflows ) {
   Tests::Env noop( "QON_NOOP_AGENT", "" );
   McastWorld w;
   w.helper =
         Qon::MulticastHelperIs( "helper", { w.acsd, Velto::make< Qon::MulticastDataFactory >(),
                                             nullptr, w.scheduler.timerWheel() } );
   w.restart();
   for ( U32 n = 1; n <= 8; ++n ) {
      w.join( n, eth( n ) );
   }
   w.run();
   w.noGroup( 1 );
   w.run();
   EXPECT_TRUE( w.entry( 2 )->macTableEntryCreated() );
   EXPECT_EQ( w.messages(), std::vector< String >() );
}

TEST( MulticastTexts, HooksHaveTheirPlaces ) {
   // Two destructors, typeData and kivDoZombieReactors stand before them; in state machines
   // handleInitialized too.
   auto slot = []( auto member ) {
      std::ptrdiff_t place;
      std::memcpy( &place, &member, sizeof place );
      return ( place - 1 ) / std::ptrdiff_t( sizeof( void * ) );
   };
   using Factory = Qon::MulticastDataFactory;
   EXPECT_EQ( slot( &Factory::getHardwareL2MulticastEntry ), 4 );
   EXPECT_EQ( slot( &Factory::getHardwareL2MulticastBitmap ), 5 );
   EXPECT_EQ( slot( &Factory::getMaxL2MulticastGroups ), 6 );
   EXPECT_EQ( slot( &Factory::getBitmapInfoType ), 7 );
   using Entry = Qon::HardwareL2MulticastEntry;
   EXPECT_EQ( slot( &Entry::syncWithHardware ), 4 );
   EXPECT_EQ( slot( &Entry::updateMacTableEntry ), 5 );
   EXPECT_EQ( slot( &Entry::deleteMacTableEntry ), 6 );
   EXPECT_EQ( slot( &Entry::deleteHwShadowedMacTableEntry ), 7 );
   EXPECT_EQ( slot( &HardwareL2MulticastBitmap::createL2MulticastEntry ), 4 );
   EXPECT_EQ( slot( &HardwareL2MulticastBitmap::writeGroupsToHardware ), 5 );
   EXPECT_EQ( slot( &HardwareL2MulticastBitmap::modifyGroupsInHardware ), 6 );
   EXPECT_EQ( slot( &Qon::MulticastCopyUpdater::updateCopyRequest ), 5 );
   EXPECT_EQ( slot( &Qon::MulticastCopyUpdater::updateCopyAndDropRequest ), 6 );
   using Base = Qon::MulticastSmBase;
   EXPECT_EQ( slot( &Base::createMulticastGroup ), 5 );
   EXPECT_EQ( slot( &Base::handleIntf ), 6 );
   EXPECT_EQ( slot( &Base::handleIndexValid ), 7 );
   EXPECT_EQ( slot( &Base::handleVerify ), 8 );
   EXPECT_EQ( slot( &Base::logTableFull ), 9 );
   EXPECT_EQ( slot( &Base::prepareToDie ), 10 );
}

TEST( MulticastTexts, PacketsOfTheWrongTypeAreFatal ) {
   Qon::MulticastCopyUpdater updater(
         Velto::make< Bridging::Multicast::CopyRequestConfig >( "c" ) );
   EXPECT_DEATH( updater.copyRequest( Qon::PacketType::igmpPacket ),
                 "Assertion 'pktType == linkLocalPacket_' failed" );
   EXPECT_DEATH( updater.copyAndDropRequest( Qon::PacketType::linkLocalPacket ),
                 "Assertion 'pktType == igmpPacket_' failed" );
}

TEST( MulticastTexts, FindingsOfAVerificationRun ) {
   McastWorld w;
   w.start();
   w.join( 1, eth( 1 ) );
   w.run();
   const auto sm = w.sm->vlan( VlanId( 10 ) )->group( mac( 1 ) );
   auto found = [&]( MulticastHelper & helper ) {
      EXPECT_FALSE( helper.handleVerify( sm ) );
      return w.acsd->verifyData()->verifyOutput().description();
   };
   // A helper that knows nothing of the group.
   auto other = Qon::MulticastHelperIs( "other", { w.acsd, Velto::make< TestFactory >( w.chip ),
                                                   w.config, w.scheduler.timerWheel() } );
   EXPECT_NE( found( *other ).find( "There is no entry in entryList for vGroup 0" ), String::npos );
   w.helper->vGroupIs( -1 );
   w.group( 2 );
   EXPECT_NE( found( *w.helper ).find( "Umm -1 has found its way into entryList" ), String::npos );
}

TEST( MulticastTexts, Traces ) {
   Tests::expectTraced(
         [] {
            McastWorld w;
            w.chip->groups = 2;
            w.lag( 1, { 1, 2 } );
            w.start();
            w.group( 9 )->indexValidIs( false );
            w.join( 9, eth( 1 ) );
            w.join( 1, po( 1 ) );
            w.run();
            w.join( 2, eth( 3 ) );
            w.acsd->verifyData()->runChecks();
            w.run( 2 );
            w.acsd->lagToPortDel( po( 1 ) );
            w.lag( 1, { 1, 2 } ); // the same set again before it is reviewed
            w.run();
            w.acsd->mlagIntfPortIs( eth( 1 ), true );
            w.run();
            w.join( 1, eth( 4 ) );
            w.run();
            w.router( eth( 4 ), true );
            w.leave( 1, eth( 4 ) );
            w.router( eth( 4 ), false );
            w.config->reviewTimeIs( 0 );
            w.join( 1, eth( 5 ) );
            w.join( 2, eth( 5 ) );
            w.run();
            const S64 id = w.entry( 1 )->vGroup();
            w.noGroup( 1 );
            w.helper->addIntf( eth( 1 ), id );
            w.helper->removeIntf( eth( 1 ), id );
            w.run();
         },
         { "Multicast group is invalide, not adding intf Ethernet1",
           "01:00:5e:00:00:02 vlan 10 This entry has overflowed, it'll point to all ports",
           "group review going on, deferring hardware check",
           "Verify didn't go through, scheduling again",
           "Found bitmap with the correct bits but it has to be reprogrammed",
           "Bitmaps in software and hardware are the same, nothing to do",
           "Ethernet4 but is a router intf so not removing from hardware ",
           "Ethernet4 Not a port channel, removing single port", "Yielding",
           "Queuing group 0 for deletion",
           "Ethernet1 intf appeared while the group is already pending for deletion",
           "Ethernet1 intf went away while the group is already pending for deletion",
           "Group has been destroyed, removing lag Port-Channel1",
           "Port-Channel1 has left the last group, removing from lagGroupMembership" } );
}

} // namespace
} // namespace McastTests
