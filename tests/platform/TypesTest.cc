#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "Qon/include/framework/QonAsyncTypes.h"
#include "Qon/include/mac/QonMacTypes.h"
#include "platform/types/Bridging.h"
#include "platform/types/Ulnet.h"

namespace {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Ulnet::EthAddr;
using Ulnet::IntfId;
using Ulnet::IpGenAddr;
using Ulnet::IpGenPrefix;

template< class T >
Velto::String
refusal( const Velto::String & text ) {
   try {
      T value( text );
   } catch ( const Velto::RangeError & e ) {
      return e.what();
   }
   return "accepted";
}

TEST( IntfId, NamesGoBothWays ) {
   for ( const char * name : { "",
                               "Ethernet3",
                               "Ethernet0",
                               "Ethernet3/1",
                               "Ethernet3/1/2",
                               "Ethernet3.100",
                               "Ethernet3/1.100",
                               "Ethernet1048575/1023/127.262143",
                               "Port-Channel10",
                               "Port-Channel10.5",
                               "Port-Channel1/2",
                               "Vlan10",
                               "Vlan4094",
                               "Tunnel1",
                               "Cpu",
                               "Recirc-Channel1",
                               "Loopback0",
                               "Management1",
                               "Management1/1",
                               "InternalRecirc1",
                               "Vxlan1",
                               "Internal7" } ) {
      EXPECT_EQ( IntfId( name ).stringValue(), name );
   }
}

TEST( IntfId, RefusesWhatNamesNoInterface ) {
   for ( const char * name : { "ethernet3",
                               "Ethernet",
                               "Ethernet03",
                               "Ethernet3/",
                               "Ethernet/3",
                               "Ethernet3/1/2/3",
                               "Ethernet3.0",
                               "Ethernet3.",
                               "Ethernet3.1.2",
                               "Ethernet3.01",
                               "Ethernet3 ",
                               "Ethernet3x",
                               "Ethernet1048576",
                               "Ethernet1/1024",
                               "Ethernet1/1/128",
                               "Ethernet1.262144",
                               "Ethernet99999999999999999999",
                               "Vlan0",
                               "Vlan4095",
                               "Vlan10.1",
                               "Cpu1",
                               "Cpu.1",
                               "3",
                               "Switch1",
                               "Port-Channel",
                               "Tunnel1/1",
                               "-" } ) {
      EXPECT_EQ( refusal< IntfId >( name ),
                 "expected an interface name such as Ethernet3/1 or Port-Channel10, found '" +
                       Velto::String( name ) + "'" );
   }
   EXPECT_THROW( Ulnet::EthIntfId::intfId( 1 << 20 ), Velto::RangeError );
   EXPECT_THROW( Ulnet::SubIntfId::intfId( IntfId( "Vlan10" ), 1 ), Velto::RangeError );
}

TEST( IntfId, OrdersByTypeAndThenNumerically ) {
   const char * ascending[] = { "",
                                "Ethernet9",
                                "Ethernet10",
                                "Ethernet10.1",
                                "Ethernet10.20",

                                "Ethernet10/1",
                                "Ethernet10/1.3",
                                "Ethernet10/1/1",
                                "Ethernet11",
                                "Port-Channel2",
                                "Port-Channel10",
                                "Recirc-Channel1",
                                "Vlan5",
                                "Internal1" };
   for ( U32 i = 1; i < std::size( ascending ); ++i ) {
      EXPECT_LT( IntfId( ascending[i - 1] ), IntfId( ascending[i] ) ) << ascending[i];
      EXPECT_NE( IntfId( ascending[i - 1] ).hash(), IntfId( ascending[i] ).hash() );
   }
   EXPECT_EQ( IntfId( "Ethernet3/1" ).hash(), IntfId( "Ethernet3/1" ).hash() );
   EXPECT_EQ( sizeof( IntfId ), 8u );
}

TEST( IntfId, KindsExcludeEachOther ) {
   struct {
      const char * name;
      bool eth, portChannel, recirc, sub, vlan, tunnel, internalRecirc;
   } const table[] = {
         { "", false, false, false, false, false, false, false },
         { "Ethernet3/1", true, false, false, false, false, false, false },
         { "Ethernet3.1", false, false, false, true, false, false, false },
         { "Port-Channel1", false, true, false, false, false, false, false },
         { "Port-Channel1.1", false, false, false, true, false, false, false },
         { "Recirc-Channel1", false, true, true, false, false, false, false },
         { "Vlan10", false, false, false, false, true, false, false },
         { "Tunnel1", false, false, false, false, false, true, false },
         { "InternalRecirc1", false, false, false, false, false, false, true },
         { "Cpu", false, false, false, false, false, false, false },
   };
   for ( const auto & row : table ) {
      IntfId id( row.name );
      EXPECT_EQ( Ulnet::EthIntfId::isEthIntfId( id ), row.eth ) << row.name;
      EXPECT_EQ( Ulnet::PortChannelIntfId::isPortChannelIntfId( id ), row.portChannel ) << row.name;
      EXPECT_EQ( Ulnet::PortChannelIntfId::isRecirc( id ), row.recirc ) << row.name;
      EXPECT_EQ( Ulnet::SubIntfId::isSubIntfId( id ), row.sub ) << row.name;
      EXPECT_EQ( Ulnet::VlanIntfId::isVlanIntfId( id ), row.vlan ) << row.name;
      EXPECT_EQ( Ulnet::TunnelIntfId::isTunnelIntfId( id ), row.tunnel ) << row.name;
      EXPECT_EQ( Ulnet::InternalRecircIntfId::isInternalRecircIntfId( id ), row.internalRecirc )
            << row.name;
   }
   EXPECT_EQ( Ulnet::GenericIntfId::typeId( IntfId( "Internal1" ) ), 109u );
}

TEST( IntfId, PartsAreItsNumbers ) {
   IntfId id( "Ethernet3/7.100" );
   EXPECT_EQ( Ulnet::GenericIntfId::parts( id ), 3u );
   EXPECT_EQ( Ulnet::GenericIntfId::part( id, 0 ), 3u );
   EXPECT_EQ( Ulnet::GenericIntfId::part( id, 1 ), 7u );
   EXPECT_EQ( Ulnet::GenericIntfId::part( id, 2 ), 100u );
   EXPECT_EQ( Ulnet::GenericIntfId::part( id, 3 ), 0u );
   EXPECT_EQ( Ulnet::GenericIntfId::parts( IntfId( "Cpu" ) ), 0u );
   EXPECT_EQ( Ulnet::GenericIntfId::parts( IntfId( "Port-Channel10" ) ), 1u );
   EXPECT_EQ( Ulnet::SubIntfId::parent( id ), IntfId( "Ethernet3/7" ) );
   EXPECT_EQ( Ulnet::SubIntfId::intfId( IntfId( "Ethernet3/7" ), 100 ), id );
   EXPECT_EQ( Ulnet::SubIntfId::parent( IntfId() ), IntfId() );
   EXPECT_EQ( Ulnet::PortChannelIntfId::intfId( 10 ), IntfId( "Port-Channel10" ) );
   EXPECT_EQ( Ulnet::CpuIntfId::intfId(), IntfId( "Cpu" ) );
}

TEST( EthAddr, ReadsTheUsualFormsAndPrintsOne ) {
   for ( const char * text :
         { "01:00:5e:00:0a:Fb", "01-00-5E-00-0A-FB", "0100.5e00.0afb", "01:00:5E:00:0A:FB" } ) {
      EXPECT_EQ( EthAddr( text ).stringValue(), "01:00:5e:00:0a:fb" );
   }
   EXPECT_EQ( EthAddr( "01:00:5e:00:0a:fb" ).value(), 0x01005e000afbu );
   for ( const char * text : { "", "01:00:5e:00:0a", "01:00:5e:00:0a:fb:", "01:00:5e:00:0a:fb:01",
                               "1:0:5e:0:a:fb", "01005e000afb", "01:00:5e:00:0a:fg",
                               "01:00-5e:00:0a:fb", "0100:5e00:0afb", "01:00:5e:00:0a:f" } ) {
      EXPECT_EQ( refusal< EthAddr >( text ),
                 "expected a MAC address such as 01:00:5e:00:00:01, found '" +
                       Velto::String( text ) + "'" );
   }
}

TEST( EthAddr, OrdersAsNumbersAndKnowsGroups ) {
   EXPECT_LT( EthAddr( "00:00:00:00:ff:ff" ), EthAddr( "00:00:00:01:00:00" ) );
   EXPECT_LT( EthAddr( "00:ff:ff:ff:ff:ff" ), EthAddr( "01:00:00:00:00:00" ) );
   EXPECT_TRUE( EthAddr( "01:00:5e:00:00:01" ).isMulticast() );
   EXPECT_FALSE( EthAddr( "02:01:01:01:01:01" ).isMulticast() );
   EXPECT_TRUE( EthAddr( "ff:ff:ff:ff:ff:ff" ).isBroadcast() );
   EXPECT_TRUE( EthAddr().isZero() );
   EXPECT_EQ( Ulnet::EthAddrWithMask().stringValue(),
              "Value('Ulnet::EthAddrWithMask', ** "
              "{'addr': 00:00:00:00:00:00, 'mask': ff:ff:ff:ff:ff:ff})" );
}

TEST( IpAddr, PrintsTheShortestForm ) {
   struct {
      const char *read, *printed;
   } const table[] = {
         { "10.0.0.1", "10.0.0.1" },
         { "2001:DB8:0:0:0:0:0:1", "2001:db8::1" },
         { "2001:db8:0:1:1:1:1:1", "2001:db8:0:1:1:1:1:1" },
         { "2001:0:0:1:0:0:0:1", "2001:0:0:1::1" },
         { "2001:db8:0:0:1:0:0:1", "2001:db8::1:0:0:1" },
         { "0:0:0:0:0:0:0:0", "::" },
         { "fe80::00aB", "fe80::ab" },
         { "", "" },
   };
   for ( const auto & row : table ) {
      EXPECT_EQ( IpGenAddr( row.read ).stringValue(), row.printed );
      EXPECT_EQ( IpGenAddr( row.printed ), IpGenAddr( row.read ) );
   }
   for ( const char * text : { "10.0.0", "10.0.0.256", "010.0.0.1", "1.2.3.4.5",
                               ":::", "12345::", "fe80::1%eth0", " ::1", "host" } ) {
      EXPECT_NE( refusal< IpGenAddr >( text ), "accepted" ) << text;
   }
   EXPECT_LT( IpGenAddr( "9.255.255.255" ), IpGenAddr( "10.0.0.0" ) );
   EXPECT_LT( IpGenAddr( "255.0.0.0" ), IpGenAddr( "::" ) );
   EXPECT_NE( IpGenAddr( "0.0.0.0" ), IpGenAddr( "::" ) );
   EXPECT_EQ( IpGenAddr::ipv4( 0x0a000001 ), IpGenAddr( "10.0.0.1" ) );
}

TEST( IpPrefix, ClearsHostBitsAndMatches ) {
   EXPECT_EQ( IpGenPrefix( "10.1.2.3/20" ).stringValue(), "10.1.0.0/20" );
   EXPECT_EQ( IpGenPrefix( "2001:db8:ffff::1/33" ).stringValue(), "2001:db8:8000::/33" );
   EXPECT_EQ( IpGenPrefix( "10.1.2.3" ).stringValue(), "10.1.2.3/32" );
   EXPECT_EQ( IpGenPrefix( "::/0" ).stringValue(), "::/0" );
   EXPECT_EQ( IpGenPrefix( "" ), IpGenPrefix() );
   EXPECT_EQ( IpGenPrefix( "10.1.0.0/20" ).mask(), IpGenAddr( "255.255.240.0" ) );
   IpGenPrefix block( "10.1.0.0/20" );
   EXPECT_TRUE( block.contains( IpGenAddr( "10.1.15.255" ) ) );
   EXPECT_FALSE( block.contains( IpGenAddr( "10.1.16.0" ) ) );
   EXPECT_FALSE( IpGenPrefix( "0.0.0.0/0" ).contains( IpGenAddr( "::1" ) ) );
   EXPECT_FALSE( IpGenPrefix().contains( IpGenAddr( "10.0.0.1" ) ) );
   EXPECT_LT( IpGenPrefix( "10.0.0.0/8" ), IpGenPrefix( "10.0.0.0/9" ) );
   for ( const char * text :
         { "10.0.0.0/33", "::/129", "10.0.0.0/", "/8", "10.0.0.0/-1", "x/8" } ) {
      EXPECT_EQ( refusal< IpGenPrefix >( text ),
                 "expected a prefix such as 10.0.0.0/8 or 2001:db8::/32, found '" +
                       Velto::String( text ) + "'" );
   }
}

TEST( VlanId, StaysInItsRange ) {
   const char * outside = "Bridging::VlanId::value < 1 or > 4094 not allowed";
   for ( const char * text : { "0", "4095", "65537", "4294967295" } ) {
      EXPECT_EQ( refusal< VlanId >( text ), outside );
   }
   EXPECT_THROW( VlanId( 0 ), Velto::RangeError );
   EXPECT_THROW( VlanId( 65536 + 7 ), Velto::RangeError );
   EXPECT_EQ( VlanId( 4094 ).stringValue(), "4094" );
   EXPECT_TRUE( VlanIdOrNone().isNone() );
   EXPECT_EQ( VlanIdOrNone( "None" ), VlanIdOrNone( "0" ) );
   EXPECT_EQ( VlanIdOrNone( VlanId( 7 ) ), VlanId( 7 ) );
   EXPECT_EQ( VlanId( 7 ) + 1, 8 );
   EXPECT_EQ( refusal< VlanIdOrNone >( "4095" ),
              "Bridging::VlanIdOrNone::value > 4094 not allowed" );
}

TEST( MacTypes, KeysOrderByAddressVlanAndTable ) {
   auto key = []( const char * mac, U32 vlan, Qon::MacHwType type ) {
      return Qon::MacEntryKey( { EthAddr( mac ), VlanId( vlan ) }, type );
   };
   auto bridge = Qon::MacHwType::macHwKeyBridge;
   auto vfi = Qon::MacHwType::macHwKeyVfi;
   Qon::MacEntryKey ascending[] = {
         key( "00:00:00:00:00:01", 9, vfi ), key( "00:00:00:00:00:02", 8, vfi ),
         key( "00:00:00:00:00:02", 10, bridge ), key( "00:00:00:00:00:02", 10, vfi ) };
   for ( U32 i = 1; i < std::size( ascending ); ++i ) {
      EXPECT_LT( ascending[i - 1], ascending[i] );
   }
   EXPECT_EQ( ascending[0].stringValue(),
              "Value('Qon::MacEntryKey', ** {'key': Value('Bridging::MacVlanPair', ** "
              "{'mac': 00:00:00:00:00:01, 'vlan': 9}), 'macHwType': macHwKeyVfi})" );
   EXPECT_EQ( Qon::MacEntryKey( ascending[0].stringValue() ), ascending[0] );
   EXPECT_EQ( sizeof( Bridging::MacVlanPair ), 8u );
}

TEST( MacTypes, HashSpreadsNeighbouringKeys ) {
   std::set< U64 > low;
   for ( U32 mac = 0; mac < 64; ++mac ) {
      for ( U32 vlan = 1; vlan <= 64; ++vlan ) {
         low.insert( Bridging::MacVlanPair( EthAddr( mac ), VlanId( vlan ) ).hash() & 0xfffff );
      }
   }
   EXPECT_GT( low.size(), 4000u ); // of 4096 keys in a million places
}

TEST( MacTypes, NumbersAreWhatTheChipsReport ) {
   EXPECT_EQ( Kiv::fromText< Qon::IndirectAccessMacCmdType >( "2" ),
              Qon::IndirectAccessMacCmdType::addMcastHost );
   EXPECT_EQ( Kiv::fromText< Qon::IndirectAccessMacCmdType >( "10" ),
              Qon::IndirectAccessMacCmdType::flushVlanPortType );
   EXPECT_EQ( Kiv::toText( Qon::MacProgramStatus( 5 ) ), "macProgramInProgress" );
   EXPECT_EQ( Kiv::toText( Bridging::Topology::PortState( 3 ) ), "forwarding" );
   EXPECT_EQ( Kiv::toText( Qon::HwOperationalMode( 2 ) ), "tapAgg" );
   EXPECT_EQ( Kiv::toText( QonTypes::TableAddStatus( 2 ) ), "full" );
}

TEST( PortLists, KeepTheOrderOfArrival ) {
   IntfId e1( "Ethernet1" ), e2( "Ethernet2" ), e10( "Ethernet10" );
   Qon::QonLagPortList lag;
   lag.portIs( e10, { true, true } );
   lag.portIs( e2, { false, false } );
   lag.portIs( e10, { true, false } );
   lag.portDel( e1 );
   EXPECT_EQ( lag.stringValue(),
              "{Ethernet10: Value('Qon::QonLagPort', ** {'collecting': True, 'distributing': "
              "False}), Ethernet2: Value('Qon::QonLagPort', ** {'collecting': False, "
              "'distributing': False})}" );
   EXPECT_TRUE( lag.port( e10 ).collecting() );
   EXPECT_EQ( lag.port( e1 ), Qon::QonLagPort() );
   lag.portDel( e10 );
   EXPECT_FALSE( lag.portHas( e10 ) );
   EXPECT_EQ( lag.ports(), 1u );
   Qon::QonPortList ports;
   for ( IntfId intf : { e10, e2, e10, e1 } ) {
      ports.portIs( intf );
   }
   ports.portDel( e2 );
   EXPECT_EQ( ports.stringValue(), "{Ethernet10, Ethernet1}" );
}

TEST( PortLists, EqualityIgnoresOrder ) {
   IntfId e1( "Ethernet1" ), e2( "Ethernet2" );
   Qon::QonLagPortList some, others;
   some.portIs( e1, { true, false } );
   some.portIs( e2, { true, true } );
   others.portIs( e2, { true, true } );
   EXPECT_NE( some, others );
   others.portIs( e1, { true, false } );
   EXPECT_EQ( some, others );
   EXPECT_EQ( some.hash(), others.hash() );
   others.portIs( e1, { true, true } );
   EXPECT_NE( some, others );
}

TEST( PortLists, CannotBeMadeFromText ) {
   EXPECT_EQ( refusal< Qon::QonLagPortList >( "{}" ),
              "No String constructor for QonLagPortList - has collection" );
   EXPECT_EQ( refusal< Qon::QonPortList >( "" ),
              "No String constructor for QonPortList - has collection" );
}

TEST( Versions, CompareByNumberBeforeFlag ) {
   using Routing::Fib::FecVersionId;
   EXPECT_LT( FecVersionId( 5, false ), FecVersionId( 5, true ) );
   EXPECT_LT( FecVersionId( 5, true ), FecVersionId( 6, false ) );
   FecVersionId flagged( 5, true );
   EXPECT_EQ( flagged.stringValue(), "9223372036854775813" );
   EXPECT_EQ( FecVersionId( flagged.stringValue() ), flagged );
   EXPECT_NE( FecVersionId( 5, false ), flagged );
   EXPECT_EQ( FecVersionId( ~U64( 0 ), false ).value(), ~U64( 0 ) >> 1 );
}

TEST( AsyncTypes, AResultIsTrueUnlessItIsFreshAndEmpty ) {
   class StoppedTime : public Kiv::TimeSource {
    public:
      Kiv::Seconds now() override { return at; }
      Kiv::Seconds at = 10;
   } time;
   Kiv::TimeSource * before = Kiv::timeSourceIs( &time );
   Qon::AsyncOperationResult result;
   EXPECT_FALSE( result );
   EXPECT_TRUE( Qon::AsyncOperationResult( "no room", 10 ) );
   time.at = 11;
   EXPECT_TRUE( result ) << "an old empty result";
   EXPECT_EQ( result, Qon::AsyncOperationResult( "", 10 ) );
   EXPECT_EQ( Qon::AsyncOperationResult( Velto::String( "{error: busy}" ) ).timestamp(), 11 );
   Kiv::timeSourceIs( before );
}

TEST( AsyncTypes, EventsPrintEveryField ) {
   Qon::QonEvent event;
   event.eventTypeIs( Qon::QonEvent::QonEventType::eventTypeMacAddressAged );
   event.portTypeIs( Qon::QonEvent::PortType::vxlanPort );
   event.portIs( IntfId( "Vxlan1" ) );
   event.tunnelIdIs( 7 );
   event.hostIs( { EthAddr( "02:11:22:00:00:01" ), VlanId( 10 ) } );
   EXPECT_EQ( event.stringValue(),
              "Value('Qon::QonEvent', ** {'eventType': eventTypeMacAddressAged, 'portType': "
              "vxlanPort, 'port': Vxlan1, 'tunnelId': 7, 'linkStatus': linkUnknown, 'faultType': "
              "noFault, 'host': Value('Bridging::MacVlanPair', ** {'mac': 02:11:22:00:00:01, "
              "'vlan': 10}), 'advert': 0})" );
   EXPECT_EQ( Qon::QonEvent( event.stringValue() ), event );
   EXPECT_EQ( Qon::QonEvent( Qon::QonEvent().stringValue() ), Qon::QonEvent() );
}

TEST( AsyncTypes, AcknowledgementsOrderByFieldWithTheGenerationLast ) {
   using Route = Qon::Ack::VersionIdPassedToPdRoute;
   using Routing::Fib::RouteVersionId;
   Route base( Qon::QonPdVersionId( 1 ), RouteVersionId( 5, true ), IpGenPrefix( "10.0.0.0/8" ),
               false, false, 9 );
   Route newer = base, moved = base, removed = base, again = base;
   newer.piVersionIdIs( RouteVersionId( 6, false ) );
   moved.prefixIs( IpGenPrefix( "10.0.0.0/9" ) );
   removed.removeIs( true );
   removed.genIdIs( 0 );
   again.genIdIs( 10 );
   EXPECT_TRUE( base < again && again < removed && removed < moved && moved < newer );
   EXPECT_EQ( Route( base.stringValue() ), base );
   EXPECT_NE( base.hash(), again.hash() );
   EXPECT_EQ( Qon::Ack::DeleteFecIdFromFecStatus( Quarn::Fib::FecId( 3 ), 255 ).stringValue(),
              "Value('Qon::Ack::DeleteFecIdFromFecStatus', ** {'fecId': 3, 'genId': 255})" );
}

TEST( QonTypes, LevelsStartAtTheirDefaults ) {
   EXPECT_EQ( Qon::FlintlogLevels().stringValue(),
              "Value('Qon::FlintlogLevels', ** {'qonRoutingStatusSm': 1, 'qonArpSm': 2, "
              "'qonIp6NeighborSm': 2, 'qonSubIntfSm': 8, 'qonBfdStatusCacheSm': 6, "
              "'qonL2AdjHelper': 0, 'qonL2AdjFlatteningHelper': 7, 'qonL2AdjExpansionSm': 5})" );
}

} // namespace
