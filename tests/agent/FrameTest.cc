// Frames as octets, and files of them.

#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "agent/ctl/Capture.h"
#include "agent/features/FrameFields.h"
#include "tests/harness/World.h"

namespace {

using namespace Tests;
using QonAgent::readCapture;

/** "0800 45" -> the two octets and the third. */
std::vector< U8 >
octets( const String & text ) {
   std::vector< U8 > all;
   String digits;
   for ( char c : text ) {
      digits += c == ' ' ? "" : String( 1, c );
      if ( digits.size() == 2 ) {
         all.push_back( U8( std::stoul( digits, nullptr, 16 ) ) );
         digits.clear();
      }
   }
   return all;
}

const String addresses = "021122000001 021122000002 ";
const String ipv4 = "45000028 00000000 4006 0000 0a000001 0a000002 ";
const String ipv6 = "60000000 0020 2b40 20010db8000000000000000000000001 "
                    "20010db8000000000000000000000002 ";
const String tcpHeader = "04000050 00000000 00000000 5002";

SoftChip::Frame
wire( const String & text ) {
   return QonAgent::wireFrame( intf( "Ethernet0" ), octets( text ) );
}

TEST( WireFrame, HeadersAreReadUpToWhatListsLookAt ) {
   auto plain = wire( addresses + "0800 " + ipv4 + tcpHeader );
   EXPECT_EQ( plain.packet.ethDst, Ulnet::EthAddr( "02:11:22:00:00:01" ) );
   EXPECT_EQ( plain.packet.ethSrc, Ulnet::EthAddr( "02:11:22:00:00:02" ) );
   EXPECT_EQ( plain.packet.src, Ulnet::IpGenAddr( "10.0.0.1" ) );
   EXPECT_EQ( plain.packet.dst, Ulnet::IpGenAddr( "10.0.0.2" ) );
   EXPECT_EQ( plain.packet.protocol, 6 );
   EXPECT_EQ( plain.packet.srcPort, U16( 1024 ) );
   EXPECT_EQ( plain.packet.dstPort, U16( 80 ) );
   EXPECT_EQ( plain.packet.tcpFlags, 2 );
   EXPECT_TRUE( plain.tags.outer.isNone() );

   auto tagged = wire( addresses + "88a8 600a 8100 0014 0800 46" + ipv4.substr( 2 ) + "01010101 " +
                       tcpHeader );
   EXPECT_EQ( tagged.tags.outer.value(), 10 );
   EXPECT_EQ( tagged.tags.inner.value(), 20 );
   EXPECT_EQ( tagged.priority, 3 );
   EXPECT_EQ( tagged.packet.dstPort, U16( 80 ) ); // behind an option

   auto priority = wire( addresses + "8100 a000 0806" );
   EXPECT_TRUE( priority.tags.outer.isNone() );
   EXPECT_EQ( priority.priority, 5 );
   EXPECT_EQ( priority.packet.etherType, 0x806 );

   // A routing header of 16 octets, destination options, then ICMP.
   auto icmp = wire( addresses + "86dd " + ipv6 +
                     "3c010000 00000000 00000000 00000000 "
                     "3a000000 00000000 8701" );
   EXPECT_EQ( icmp.packet.protocol, 58 );
   EXPECT_EQ( icmp.packet.icmpType, U8( 0x87 ) );
   EXPECT_EQ( icmp.packet.icmpCode, U8( 1 ) );
   EXPECT_EQ( icmp.packet.src.stringValue(), "2001:db8::1" );

   // Further fragments have no ports.
   EXPECT_TRUE( wire( addresses + "0800 4500002800000001" + ipv4.substr( 18 ) ).packet.fragment );
   auto further =
         wire( addresses + "86dd 60000000 00102c40 " + ipv6.substr( 19 ) + "06000008 00000000" );
   EXPECT_TRUE( further.packet.fragment );
   EXPECT_FALSE( further.packet.dstPort );
}

TEST( WireFrame, EveryFrameThatEndsTooEarlySaysWhere ) {
   auto whole = octets( addresses + "8100 000a 86dd " + ipv6 + "06000000 00000000 " + tcpHeader );
   EXPECT_EQ( QonAgent::wireFrame( {}, whole ).packet.dstPort, U16( 80 ) );
   std::set< String > places;
   while ( !whole.empty() ) {
      whole.pop_back();
      try {
         QonAgent::wireFrame( {}, whole );
         ADD_FAILURE() << whole.size() << " octets";
      } catch ( const Velto::RangeError & e ) {
         const String what = e.what();
         places.insert( what.substr( 0, what.find( ':', 8 ) ) );
      }
   }
   EXPECT_EQ( places,
              ( std::set< String >{ "frame: ends in the Ethernet header",
                                    "frame: ends in the VLAN tag", "frame: ends in the IPv6 header",
                                    "frame: ends in the IPv6 extension header",
                                    "frame: ends in the ports" } ) );
   EXPECT_THROW( wire( addresses + "0800 44" + ipv4.substr( 2 ) + tcpHeader ), Velto::RangeError );
   EXPECT_THROW( wire( addresses + "8100 0fff 0806" ), Velto::RangeError );
}

/** A file that is there for a test. */
class CaptureTest : public testing::Test {
 protected:
   ~CaptureTest() override { unlink( file.c_str() ); }
   void write( const String & text ) {
      const auto all = octets( text );
      std::ofstream( file, std::ios::binary )
            .write( reinterpret_cast< const char * >( all.data() ), std::streamsize( all.size() ) );
   }
   String refusal( const String & text ) {
      write( text );
      try {
         readCapture( file );
      } catch ( const Velto::RangeError & e ) {
         const String what = e.what();
         EXPECT_EQ( what.find( file + ": " ), 0u ) << what;
         return what.substr( file.size() + 2 );
      }
      return "";
   }

   const String file = "/tmp/qon-capture." + std::to_string( getpid() );
};

const String header = "d4c3b2a1 0200 0400 00000000 00000000 00000400 01000000 ";
const String record = "00000000 00000000 ";

TEST_F( CaptureTest, FramesOfEitherByteOrderAreRead ) {
   write( header + record + "02000000 02000000 0102" + record + "01000000 09000000 ff" );
   EXPECT_EQ( readCapture( file ), ( std::vector< String >{ "\x01\x02", "\xff" } ) );
   EXPECT_EQ( QonAgent::hexOf( readCapture( file )[1] ), "ff" );
   write( "a1b23c4d 0002 0004 00000000 00000000 00040000 00000001 " + record +
          "00000003 00000003 0a0b0c" );
   EXPECT_EQ( readCapture( file ), ( std::vector< String >{ "\x0a\x0b\x0c" } ) );
}

TEST_F( CaptureTest, WhatIsNoWholeCaptureGetsOneError ) {
   const std::pair< String, String > cases[] = {
         { "", "header of the capture: expected 24 octets from 0 on, found 0" },
         { header.substr( 0, 20 ), "header of the capture: expected 24 octets from 0 on, found 8" },
         { "0a0d0d0a" + header.substr( 8 ),
           "expected a capture in the classic format (pcap), found one in the next (pcapng)" },
         { "7b226162" + header.substr( 8 ),
           "expected a capture, found something that does not begin as one" },
         { "d4c3b2a1 0300" + header.substr( 13 ), "expected version 2 of the format, found 3" },
         { header.substr( 0, header.size() - 9 ) + "71000000",
           "expected frames of Ethernet (link type 1), found link type 113" },
         { header, "expected a frame, found none" },
         { header + "00000000", "frame 1: expected 16 octets from 24 on, found 4" },
         { header + record + "02000000 02000000 01",
           "frame 1: expected 2 octets from 40 on, found 1" },
         { header + record + "01000000 01000000 01" + record + "03000000 02000000 010203",
           "frame 2: expected at most 2 octets of it, found 3" },
         { header + record + "ffffffff ffffffff 01",
           "frame 1: expected at most 262144 octets of it, found 4294967295" },
   };
   for ( auto & [text, error] : cases ) {
      EXPECT_EQ( refusal( text ), error );
   }
}

} // namespace
