#include "agent/ctl/Capture.h"

#include <algorithm>

#include "agent/base/ReadFile.h"
#include "platform/Kiv/Text.h"
#include "platform/Velto/Assert.h"

namespace QonAgent {

namespace {

constexpr std::size_t headerSize = 24, recordSize = 16;
constexpr U32 microseconds = 0xa1b2c3d4, nanoseconds = 0xa1b23c4d, nextFormat = 0x0a0d0d0a;
constexpr U32 ethernet = 1;
constexpr U32 largestFrame = 262144;
constexpr U32 octetsKept = 2048; // more than the headers of any frame take

class CaptureReader {
 public:
   explicit CaptureReader( const String & file ) : file_( file ), content_( readFile( file ) ) {}
   std::vector< String > frames();

 private:
   void readHeader();
   String readFrame();
   /** So many octets are there. */
   void need( const String & what, std::size_t size ) const;
   [[noreturn]] void refuse( const String & why ) const {
      throw Velto::RangeError( file_ + ": " + why );
   }
   U32 number( std::size_t at ) const;

   const String file_;
   const String content_;
   std::size_t at_ = 0;
   std::size_t number_ = 0; // of the frame
   bool swapped_ = false;   // numbers begin with their highest octet
};

/** Four octets from `at` on. */
U32
CaptureReader::number( std::size_t at ) const {
   U32 value = 0;
   for ( U32 i = 0; i < 4; ++i ) {
      value = value << 8 | U8( content_[at_ + at + ( swapped_ ? i : 3 - i )] );
   }
   return value;
}

void
CaptureReader::need( const String & what, std::size_t size ) const {
   if ( content_.size() - at_ < size ) {
      refuse( what + ": expected " + Kiv::toText( size ) + " octets from " + Kiv::toText( at_ ) +
              " on, found " + Kiv::toText( content_.size() - at_ ) );
   }
}

void
CaptureReader::readHeader() {
   need( "header of the capture", headerSize );
   auto known = [&] { return number( 0 ) == microseconds || number( 0 ) == nanoseconds; };
   if ( number( 0 ) == nextFormat ) {
      refuse( "expected a capture in the classic format (pcap), found one in the next (pcapng)" );
   }
   swapped_ = !known();
   if ( !known() ) {
      refuse( "expected a capture, found something that does not begin as one" );
   }
   const U32 version = swapped_ ? number( 4 ) >> 16 : number( 4 ) & 0xffff;
   if ( version != 2 ) {
      refuse( "expected version 2 of the format, found " + Kiv::toText( version ) );
   }
   if ( const U32 link = number( 20 ) & 0xffff; link != ethernet ) {
      refuse( "expected frames of Ethernet (link type 1), found link type " + Kiv::toText( link ) );
   }
   at_ += headerSize;
}

String
CaptureReader::readFrame() {
   const String name = "frame " + Kiv::toText( ++number_ );
   need( name, recordSize );
   const U32 size = number( 8 ), whole = number( 12 );
   if ( size > largestFrame || size > whole ) {
      refuse( name + ": expected at most " + Kiv::toText( std::min( largestFrame, whole ) ) +
              " octets of it, found " + Kiv::toText( size ) );
   }
   at_ += recordSize;
   need( name, size );
   at_ += size;
   return content_.substr( at_ - size, std::min( size, octetsKept ) );
}

std::vector< String >
CaptureReader::frames() {
   readHeader();
   std::vector< String > all;
   while ( at_ < content_.size() ) {
      all.push_back( readFrame() );
   }
   if ( all.empty() ) {
      refuse( "expected a frame, found none" );
   }
   return all;
}

} // namespace

std::vector< String >
readCapture( const String & file ) {
   return CaptureReader( file ).frames();
}

String
hexOf( const String & octets ) {
   constexpr char digits[] = "0123456789abcdef";
   String text;
   for ( const char octet : octets ) {
      text += digits[U8( octet ) >> 4];
      text += digits[octet & 15];
   }
   return text;
}

} // namespace QonAgent
