// What may be a key or a value, and what is refused when it is compiled.

#include <gtest/gtest.h>

#include "platform/types/Fib.h"

namespace {

struct Good {
   U64 id = 0;
   U32 port = 0;
   S16 shift = 0;
   U8 tag[2] = {};
};
QUARN_LAYOUT( Good, id, port, shift, tag )

struct Renamed {
   U64 id = 0;
   U32 card = 0;
   S16 shift = 0;
   U8 tag[2] = {};
};
QUARN_LAYOUT( Renamed, id, card, shift, tag )

struct Padded { // 4 bytes that nobody names
   U32 a = 0;
   U64 b = 0;
};
QUARN_LAYOUT( Padded, a, b )

struct Odd {
   U64 a = 0;
   U32 b = 0;
   U32 forgotten = 0;
};
QUARN_LAYOUT( Odd, a, b )

struct Swapped {
   U32 a = 0;
   U32 b = 0;
};
QUARN_LAYOUT( Swapped, b, a )

struct Short {
   U32 a = 0;
};
QUARN_LAYOUT( Short, a )

struct Flag {
   bool up = false;
   U8 spare[7] = {};
};
QUARN_LAYOUT( Flag, up, spare )

struct Pointer {
   const char * text = nullptr;
   char spare[16 - sizeof( void * )] = {};
};
QUARN_LAYOUT( Pointer, text, spare )

enum Loose { loose0, loose1 };
enum Tight : U32 { tight0 };
enum class Scoped : U32 { zero };
struct LooseEnum {
   Loose a = loose0;
   U32 b = 0;
};
QUARN_LAYOUT( LooseEnum, a, b )

struct Nested {
   Good good;
   std::array< Short, 2 > both = {};
   Tight tight = tight0;
   Scoped scoped = Scoped::zero;
   U64 grid[2][3] = {};
};
QUARN_LAYOUT( Nested, good, both, tight, scoped, grid )

struct __attribute__( ( packed ) ) Crooked {
   U32 a;
   U64 b;
   U32 c;
};
QUARN_LAYOUT( Crooked, a, b, c )

struct Counted {
   Counted( const Counted & ) {}
   U64 a = 0;
};
QUARN_LAYOUT( Counted, a )

struct Unknown {
   U64 a = 0;
};

using Quarn::Fault;
static_assert( Quarn::Plain< Good > && Quarn::Plain< Nested > );
static_assert( Quarn::faultOf< Padded >() ==
               ( offsetof( Padded, b ) == 8 ? Fault::order : Fault::alignment ) );
static_assert( Quarn::faultOf< Odd >() == Fault::missing );
static_assert( Quarn::faultOf< Swapped >() == Fault::order );
static_assert( Quarn::faultOf< Short >() == Fault::size );
static_assert( Quarn::faultOf< Flag >() == Fault::kind );
static_assert( Quarn::faultOf< Pointer >() == Fault::kind );
static_assert( Quarn::faultOf< LooseEnum >() == Fault::kind );
static_assert( Quarn::faultOf< Crooked >() == Fault::alignment );
static_assert( Quarn::faultOf< Counted >() == Fault::notPlain );
static_assert( !Quarn::Plain< Unknown > && !Quarn::Plain< U64 > );

// The same on 32 and 64 bit: the number of the routes' table changes only with its type.
TEST( Layout, FingerprintsDependOnNamesPlacesAndKindsOnly ) {
   constexpr U64 one = Quarn::fingerprint< Good, Nested >();
   constexpr U64 renamed = Quarn::fingerprint< Renamed, Nested >();
   constexpr U64 exchanged = Quarn::fingerprint< Nested, Good >();
   EXPECT_NE( one, renamed );
   EXPECT_NE( one, exchanged );
   constexpr U64 routes = Quarn::fingerprint< Quarn::Fib::RouteKey, Quarn::Fib::Route >();
   EXPECT_EQ( routes, 13320016676447857511u );
}

TEST( Layout, TheForwardingTableKeepsPrefixesAndInterfaces ) {
   using namespace Quarn::Fib;
   for ( const char * text : { "10.1.0.0/16", "0.0.0.0/0", "2001:db8::/32", "::/0" } ) {
      const Ulnet::IpGenPrefix prefix{ Velto::String( text ) };
      const RouteKey key( Qon::VrfId( 7 ), prefix );
      EXPECT_EQ( key.prefix(), prefix );
      EXPECT_EQ( key.vrfId(), Qon::VrfId( 7 ) );
   }
   EXPECT_NE( RouteKey( Qon::VrfId( 0 ), Ulnet::IpGenPrefix( "0.0.0.0/0" ) ),
              RouteKey( Qon::VrfId( 0 ), Ulnet::IpGenPrefix( "::/0" ) ) );
   for ( const char * text : { "Ethernet3/1/2", "Port-Channel10.5", "Vlan10", "Cpu", "" } ) {
      const Ulnet::IntfId intf{ Velto::String( text ) };
      EXPECT_EQ( Intf( intf ).intfId(), intf ) << text;
   }
   RouteKey broken( Qon::VrfId( 0 ), Ulnet::IpGenPrefix( "10.0.0.0/8" ) );
   broken.length = 33;
   EXPECT_THROW( broken.prefix(), Velto::RangeError );
}

} // namespace
