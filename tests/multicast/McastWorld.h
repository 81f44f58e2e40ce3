#pragma once
// Multicast groups over a chip with a few groups and MAC entries, which says what a frame would leave by
// and fails the test when it is told nonsense.

#include <set>

#include "Qon/include/multicast/IgmpSnoopingSm.h"
#include "Qon/include/multicast/MulticastCopyUpdater.h"
#include "tests/harness/World.h"

namespace McastTests {

using Bridging::MacVlanPair;
using Bridging::VlanId;
using Qon::HardwareL2MulticastBitmap;
using Qon::HardwareL2MulticastEntry;
using Qon::MulticastHelper;
using QonTypes::Bitmap;
using QonTypes::TableAddStatus;
using Tests::intf;
using Ulnet::EthAddr;
using Ulnet::IntfId;
using Velto::Ptr;
using Velto::String;
using Ports = std::set< IntfId >;

inline IntfId
eth( U32 n ) {
   return Ulnet::EthIntfId::intfId( n );
}
inline IntfId
po( U32 n ) {
   return Ulnet::PortChannelIntfId::intfId( n );
}
inline EthAddr
mac( U32 n ) {
   return EthAddr( 0x01005e000000 + n );
}
inline MacVlanPair
key( U32 n, U32 vlan = 10 ) {
   return MacVlanPair( mac( n ), VlanId( vlan ) );
}

/** What the chip holds. */
struct Chip {
   U32 groups = 8; // the one that floods included
   U32 macRoom = 100'000;
   U32 limit = 8;
   std::map< S64, Bitmap > group;     // those that are taken
   std::map< MacVlanPair, S64 > macs; // the group that they lead to
   std::map< MacVlanPair, TableAddStatus > refuse;
   U32 calls = 0, writes = 0, modifies = 0, creates = 0, forgotten = 0;
   std::vector< MacVlanPair > updates;
   std::function< void( U32 call ) > during;

   void call() {
      ++calls;
      if ( during ) {
         during( calls );
      }
   }
   S64 take() {
      for ( S64 i = 0; i < S64( groups ); ++i ) {
         if ( group.try_emplace( i ).second ) {
            return i;
         }
      }
      return -1;
   }
   void giveBack( S64 index ) {
      for ( auto & [k, leads] : macs ) {
         EXPECT_NE( leads, index ) << "a MAC entry leads to a group that is given back";
      }
      EXPECT_TRUE( group[index].empty() ) << "a group is given back with ports";
      group.erase( index );
   }
};

struct TestBitmap : HardwareL2MulticastBitmap {
   TestBitmap( std::shared_ptr< Chip > c, MulticastHelper * helper, const Bitmap & ports,
               const Qon::BitmapInfoType & info )
       : HardwareL2MulticastBitmap( helper, ports, info ), chip( std::move( c ) ) {}
   ~TestBitmap() override {
      if ( groupIndex() >= 0 && freed() ) {
         chip->giveBack( groupIndex() );
      }
   }
   S64 createL2MulticastEntry() override {
      chip->call();
      ++chip->creates;
      return chip->take();
   }
   void writeGroupsToHardware( const Bitmap & ports ) override {
      chip->call();
      ++chip->writes;
      EXPECT_TRUE( chip->group.contains( groupIndex() ) );
      chip->group[groupIndex()] = ports;
   }
   void modifyGroupsInHardware( const Bitmap & ports ) override {
      ++chip->modifies;
      writeGroupsToHardware( ports );
   }
   const std::shared_ptr< Chip > chip;
};

struct TestEntry : HardwareL2MulticastEntry {
   TestEntry( std::shared_ptr< Chip > c, MulticastHelper * helper, S64 vGroup )
       : HardwareL2MulticastEntry( helper, vGroup ), chip( std::move( c ) ) {}
   TableAddStatus updateMacTableEntry() override {
      chip->call();
      chip->updates.push_back( macVlan() );
      if ( auto refused = chip->refuse.find( macVlan() ); refused != chip->refuse.end() ) {
         return refused->second;
      }
      if ( !chip->macs.contains( macVlan() ) && chip->macs.size() >= chip->macRoom ) {
         return TableAddStatus::full;
      }
      EXPECT_TRUE( chip->group.contains( hwL2MulticastBitmap()->groupIndex() ) );
      chip->macs[macVlan()] = hwL2MulticastBitmap()->groupIndex();
      return TableAddStatus::success;
   }
   void deleteMacTableEntry() override {
      chip->call();
      chip->macs.erase( macVlan() );
   }
   void deleteHwShadowedMacTableEntry() override {
      chip->call();
      ++chip->forgotten;
   }
   const std::shared_ptr< Chip > chip;
};

struct TestFactory : Qon::MulticastDataFactory {
   explicit TestFactory( std::shared_ptr< Chip > c ) : chip( std::move( c ) ) {}
   Ptr< HardwareL2MulticastEntry > getHardwareL2MulticastEntry( MulticastHelper * helper,
                                                                S64 vGroup ) override {
      chip->call();
      return Velto::make< TestEntry >( chip, helper, vGroup );
   }
   Ptr< HardwareL2MulticastBitmap >
   getHardwareL2MulticastBitmap( MulticastHelper * helper, const Bitmap & ports,
                                 const Qon::BitmapInfoType & info ) override {
      chip->call();
      return Velto::make< TestBitmap >( chip, helper, ports, info );
   }
   U32 getMaxL2MulticastGroups() override {
      chip->call();
      return chip->limit;
   }
   Qon::BitmapInfoType getBitmapInfoType() override {
      chip->call();
      return Qon::BitmapInfoType( 64, 0 );
   }
   const std::shared_ptr< Chip > chip;
};

class McastWorld : public Tests::World {
 public:
   using Group = Bridging::IgmpSnooping::EthGroupStatus;

   /** `ports` ports that the agent has; nothing is started. */
   explicit McastWorld( U32 ports = 8 ) {
      for ( U32 n = 1; n <= ports; ++n ) {
         acsd->intfIs( eth( n ), true );
      }
   }
   void start() {
      helper =
            Qon::MulticastHelperIs( "multicastHelper", { acsd, Velto::make< TestFactory >( chip ),
                                                         config, scheduler.timerWheel() } );
      restart();
   }
   /** Other state machines over the same helper. */
   void restart() {
      sm = Qon::IgmpSnoopingSmIs( { helper, status, staticConfig } );
      sm->initializedIs( true );
   }
   /** Long enough for all that is pending, not for what waits for room. */
   void run( double seconds = 1 ) {
      scheduler.runFor( seconds );
      EXPECT_EQ( sm ? sm->checkInvariants() : helper->checkInvariants(), "" );
   }

   Ptr< Group > group( U32 n, U32 vlan = 10 ) {
      return status->vlanStatusIs( VlanId( vlan ) )->ethGroupIs( mac( n ) );
   }
   void join( U32 n, IntfId port, U32 vlan = 10 ) { group( n, vlan )->intfIs( port ); }
   void leave( U32 n, IntfId port, U32 vlan = 10 ) { group( n, vlan )->intfDel( port ); }
   void noGroup( U32 n, U32 vlan = 10 ) {
      status->vlanStatusIs( VlanId( vlan ) )->ethGroupDel( mac( n ) );
   }
   void router( IntfId port, bool yes, U32 vlan = 10 ) {
      auto v = status->vlanStatusIs( VlanId( vlan ) );
      yes ? v->routerIntfIs( port ) : v->routerIntfDel( port );
   }
   Ptr< Bridging::Multicast::StaticGroup > fixed( U32 n, U32 vlan = 10 ) {
      return staticConfig->groupIs( Qon::McastAddr( mac( n ), vlan ) );
   }
   /** The list of an aggregate, and the members' own entries, as LagSm writes them. */
   void lag( U32 n, std::initializer_list< U32 > members ) {
      Qon::QonLagPortList list;
      for ( U32 member : members ) {
         list.portIs( eth( member ), Qon::QonLagPort( true, true ) );
      }
      acsd->lagToPortIs( po( n ), list );
      for ( U32 member : members ) {
         acsd->portToLagIs( eth( member ), po( n ) );
      }
   }
   HardwareL2MulticastEntry * entry( U32 n, U32 vlan = 10 ) {
      return helper->entryOf( key( n, vlan ) );
   }
   HardwareL2MulticastBitmap * bitmap( U32 n, U32 vlan = 10 ) {
      return entry( n, vlan )->hwL2MulticastBitmap();
   }
   /** Where the chip sends a frame to the group; nothing without a MAC entry. */
   std::optional< Ports > out( U32 n, U32 vlan = 10 ) {
      auto found = chip->macs.find( key( n, vlan ) );
      if ( found == chip->macs.end() ) {
         return std::nullopt;
      }
      auto ports = helper->portsOf( chip->group.at( found->second ) );
      return Ports( ports.begin(), ports.end() );
   }
   bool floods( U32 n, U32 vlan = 10 ) {
      Ports all;
      for ( auto i = acsd->intfIteratorConst(); i; ++i ) {
         all.insert( i.key() );
      }
      return entry( n, vlan )->overflowLogged() && out( n, vlan ) == all;
   }
   /** Messages since the last call: "NOMULTICASTGROUPS 3" for group 3. */
   std::vector< String > messages() {
      std::vector< String > all;
      for ( auto & record : logs.records() ) {
         const auto at = record.text.find( "01:00:5e:00:00:" );
         all.push_back(
               record.name.substr( 10 ) + " " +
               std::to_string( std::stoul( record.text.substr( at + 15, 2 ), nullptr, 16 ) ) );
      }
      logs.clear();
      return all;
   }

   std::shared_ptr< Chip > chip = std::make_shared< Chip >();
   Ptr< Qon::EthGroupReviewConfig > config = Velto::make< Qon::EthGroupReviewConfig >( "review" );
   Ptr< Bridging::IgmpSnooping::Status > status =
         Velto::make< Bridging::IgmpSnooping::Status >( "status" );
   Ptr< Bridging::Multicast::StaticConfig > staticConfig =
         Velto::make< Bridging::Multicast::StaticConfig >( "static" );
   Ptr< MulticastHelper > helper;
   Ptr< Qon::IgmpSnoopingSm > sm;
};

} // namespace McastTests
