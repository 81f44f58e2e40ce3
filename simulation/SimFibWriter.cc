// The writer of the forwarding table, with all that writers do wrong.

#include "simulation/SimFib.h"
#include "simulation/World.h"

namespace Sim {

using namespace Quarn::Fib;
using Ulnet::AddressFamily;

namespace {

constexpr U32 room = 36; // keys of a table: now and then there is none left

} // namespace

// --- What is written -----------------------------------------------------------------------------

/** Of each eight, three IPv4 prefixes and a default route, likewise for IPv6, but one that cannot be. */
SimFib::RouteKey
SimFib::routeKey( U32 route ) {
   static const Ulnet::IpGenPrefix prefixes[] = {
         Ulnet::IpGenPrefix( "0.0.0.0/0" ),      Ulnet::IpGenPrefix( "10.0.0.0/8" ),
         Ulnet::IpGenPrefix( "10.1.0.0/16" ),    Ulnet::IpGenPrefix( "10.1.2.3/32" ),
         Ulnet::IpGenPrefix( "::/0" ),           Ulnet::IpGenPrefix( "2001:db8::/32" ),
         Ulnet::IpGenPrefix( "2001:db8::1/128" ) };
   const Qon::VrfId vrf( route / 8 % 3 );
   if ( possible( route ) ) {
      return RouteKey( vrf, prefixes[route % 8] );
   }
   RouteKey key( vrf, prefixes[1] );
   key.length = U8( 33 + vrf.value() );
   return key;
}

void
SimFib::routeIs( const Event & event ) {
   Route route;
   route.fec = 1 + event[1] % fecCount;
   routes_.is( event[0] % routeCount, route );
   changed();
}

void
SimFib::routeDel( const Event & event ) {
   routes_.del( event[0] % routeCount );
   changed();
}

/** What a FEC says: few of them, so that several say the same. */
std::vector< Quarn::Fib::Via >
SimFib::hops( U32 content, Fec & fec ) {
   const U32 kind = content % 10;
   fec.type = kind == 0   ? FecType::drop
              : kind == 1 ? FecType::local
              : kind < 4  ? FecType::nextHopGroup
                          : FecType::forward;
   fec.version = ++version_;
   std::vector< Quarn::Fib::Via > all( kind < 2 ? 0 : 1 + content / 10 % mostVias );
   for ( U32 i = 0; i < all.size(); ++i ) {
      Quarn::Fib::Via & via = all[i];
      via.version = fec.version;
      via.intf = Intf( world_.intf( content / 4 + i * ( 1 + kind % 3 ) ) );
      via.weight = 1 + ( content + i ) % 2;
      if ( kind % 2 ) {
         via.family = content % 3 ? AddressFamily::ipv4 : AddressFamily::ipv6;
         via.nextHop.bytes[0] = U8( 1 + content % 3 );
      }
      if ( kind == 9 ) {
         via.labels = 1;
         via.label[0] = 16 + i;
      }
   }
   return all;
}

/** As far as `steps` writes go. */
void
SimFib::writeFec( U32 fec, U32 content, U32 steps ) {
   Fec record;
   const auto all = hops( content, record );
   record.vias = U32( all.size() );
   for ( U32 i = 0; i < all.size() && steps; ++i, --steps ) {
      vias_.is( fec * 8 + i, all[i] );
   }
   if ( steps-- ) {
      fecs_.is( fec, record );
   } else {
      return;
   }
   for ( U32 i = record.vias; i < mostVias && steps; ++i, --steps ) {
      vias_.del( fec * 8 + i );
   }
}

void
SimFib::fecIs( const Event & event ) {
   writeFec( 1 + event[0] % fecCount, event[1], 99 );
   changed();
}

/** The writer stops in the middle. */
void
SimFib::fecPart( const Event & event ) {
   writeFec( 1 + event[0] % fecCount, event[1], event[2] );
   changed();
}

/** A FEC that cannot be, or one of its vias. */
void
SimFib::fecGarbled( const Event & event ) {
   const U32 fec = 1 + event[0] % fecCount;
   Fec record;
   auto via = hops( 4, record ).front();
   record.vias = 1;
   switch ( event[1] ) {
   case 0:
      record.type = FecType( 12 );
      break;
   case 1:
      record.vias = 5000;
      break;
   case 2:
      record.type = FecType::drop;
      break;
   case 3:
      via.weight = 0;
      break;
   case 4:
      via.labels = 4;
      break;
   case 5:
      via.intf.type = Ulnet::IntfType( 77 );
      break;
   case 6:
      via.family = AddressFamily( 9 );
      break;
   default:
      record.vias = 0;
   }
   vias_.is( fec * 8, via );
   fecs_.is( fec, record );
   changed();
}

void
SimFib::fecDel( const Event & event ) {
   const U32 fec = 1 + event[0] % fecCount;
   fecs_.del( fec );
   for ( U32 i = 0; i < mostVias && event[1]; ++i ) {
      vias_.del( fec * 8 + i );
   }
   changed();
}

/** More changes than the reader can be behind. */
void
SimFib::flood( const Event & event ) {
   Route route;
   for ( U32 i = 0; i < 1100; ++i ) {
      route.fec = 1 + ( event[0] + i ) % fecCount;
      routes_.is( ( event[0] + i % 3 ) % routeCount, route );
   }
   walked();
   changed();
}

// --- Writers -------------------------------------------------------------------------------------

/** Before a table ends: its reader, whom nobody has let look, still sees whether it is complete. */
void
SimFib::lastLook() {
   if ( reader_ && unseen_ ) {
      look();
   }
}

void
SimFib::writerEnds( const Event & ) {
   lastLook();
   server_ = nullptr;
   routes_.close();
   fecs_.close();
   vias_.close();
   if ( reader_ ) {
      changed();
   }
}

void
SimFib::openTables() {
   if ( !server_ ) {
      server_ = std::make_unique< Quarn::Server >( &world_.sockets, socket_ );
   }
   if ( !routes_.isOpen() ) {
      routes_.open( *server_, room );
   }
   if ( !fecs_.isOpen() ) {
      fecs_.open( *server_, room );
   }
   if ( !vias_.isOpen() ) {
      vias_.open( *server_, room );
   }
}

/** Where there is none: with what the former one wrote, with a part of it, or with nothing. */
void
SimFib::writerBegins( const Event & event ) {
   if ( server_ ) {
      return;
   }
   openTables();
   const auto rewrite = [&]( auto & table ) {
      for ( auto & [number, value] : table.read() ) {
         if ( event[0] % 4 == 0 || number % 4 >= event[0] % 4 ) {
            table.is( number, value );
         }
      }
   };
   if ( event[0] < 6 ) {
      rewrite( vias_ );
      rewrite( fecs_ );
      rewrite( routes_ );
   }
   changed();
}

/** Of all tables mostly, or of some. */
void
SimFib::complete( const Event & event ) {
   const U32 which = event[0] < 4 ? 7 : event[0];
   if ( which & 1 ) {
      routes_.completeIs( true );
   }
   if ( which & 2 ) {
      fecs_.completeIs( true );
   }
   if ( which & 4 ) {
      vias_.completeIs( true );
   }
   changed();
}

/** One table vanishes, or all that lack are there again. */
void
SimFib::tableIs( const Event & event ) {
   if ( !server_ ) {
      return;
   }
   lastLook();
   if ( event[1] ) {
      openTables();
   } else if ( event[0] % 3 == 0 ) {
      routes_.close();
   } else {
      event[0] % 3 == 1 ? fecs_.close() : vias_.close();
   }
   changed();
}

} // namespace Sim
