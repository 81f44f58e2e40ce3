#include "agent/fib/RouteFile.h"

#include <charconv>

namespace QonAgent {

using namespace Quarn::Fib;
using Velto::RangeError;
using Words = std::vector< std::string_view >;

namespace {

constexpr U32 mostVrf = 0xffffff;
constexpr U32 mostLabel = 0xfffff;
constexpr U32 mostHops = 65535;

[[noreturn]] void
refuse( const String & expected, std::string_view found ) {
   Kiv::textRefused( expected, String( found ) );
}

Words
wordsIn( std::string_view line ) {
   Words words;
   while ( true ) {
      const auto begin = line.find_first_not_of( " \t\r" );
      if ( begin == line.npos ) {
         return words;
      }
      line.remove_prefix( begin );
      const auto end = std::min( line.find_first_of( " \t\r" ), line.size() );
      words.push_back( line.substr( 0, end ) );
      line.remove_prefix( end );
   }
}

/** A number from `least` to `most`. */
U64
number( std::string_view text, const char * what, U64 least, U64 most ) {
   U64 value = 0;
   const auto end = text.data() + text.size();
   const auto read = std::from_chars( text.data(), end, value );
   if ( read.ec != std::errc() || read.ptr != end || value < least || value > most ) {
      refuse( String( what ) + " from " + Kiv::toText( least ) + " to " + Kiv::toText( most ),
              text );
   }
   return value;
}

/** Cuts off what stands behind the last `mark`; none if there is no mark. */
std::optional< std::string_view >
cut( std::string_view & text, char mark ) {
   const auto at = text.rfind( mark );
   if ( at == text.npos ) {
      return std::nullopt;
   }
   const auto behind = text.substr( at + 1 );
   text = text.substr( 0, at );
   return behind;
}

/** "192.0.2.1@Ethernet1+100+200*3" */
Via
viaOf( std::string_view word ) {
   std::string_view rest = word;
   Via via;
   if ( const auto weight = cut( rest, '*' ) ) {
      via.weight = U32( number( *weight, "a weight", 1, 0xffffffff ) );
   }
   const auto at = rest.find( '@' );
   if ( at == rest.npos ) {
      refuse( "ADDRESS@INTERFACE, @INTERFACE, drop, local, 'fec NUMBER' or -", word );
   }
   std::string_view intf = rest.substr( at + 1 );
   std::vector< U32 > labels;
   while ( const auto label = cut( intf, '+' ) ) {
      labels.insert( labels.begin(), U32( number( *label, "a label", 0, mostLabel ) ) );
   }
   if ( labels.size() > Via::mostLabels ) {
      refuse( "at most " + Kiv::toText( Via::mostLabels ) + " labels", word );
   }
   via.labels = U8( labels.size() );
   std::copy( labels.begin(), labels.end(), via.label );
   const Ulnet::IntfId id{ String( intf ) };
   if ( id.isNull() ) {
      refuse( "an interface behind the @", word );
   }
   via.intf = Intf( id );
   if ( at != 0 ) {
      const Ulnet::IpGenAddr address{ String( rest.substr( 0, at ) ) };
      via.nextHop = Address( address );
      via.family = address.family();
   }
   return via;
}

FibContent
contentOf( const Words & words, std::size_t from ) {
   FibContent content;
   if ( words.size() == from + 1 && ( words[from] == "drop" || words[from] == "local" ) ) {
      content.type = words[from] == "drop" ? FecType::drop : FecType::local;
      return content;
   }
   if ( words.size() - from > mostHops ) {
      refuse( "at most " + Kiv::toText( mostHops ) + " next hops",
              Kiv::toText( U64( words.size() - from ) ) );
   }
   for ( std::size_t i = from; i < words.size(); ++i ) {
      content.vias.push_back( viaOf( words[i] ) );
   }
   return content;
}

GlobalFecId
fecOf( std::string_view word ) {
   return GlobalFecId( number( word, "the number of a class", 1, mostNamedFec ) );
}

RouteKey
routeOf( std::string_view vrf, std::string_view text ) {
   const auto id = Qon::VrfId( U32( number( vrf, "a VRF", 0, mostVrf ) ) );
   const Ulnet::IpGenPrefix prefix{ String( text ) };
   const Ulnet::IpGenAddr written{ String( text.substr( 0, text.find( '/' ) ) ) };
   if ( prefix.address() != written ) {
      refuse( "a prefix without bits behind its length, " + prefix.stringValue(), text );
   }
   return RouteKey( id, prefix );
}

} // namespace

std::optional< FibLine >
parseFibLine( std::string_view text ) {
   const Words words = wordsIn( text.substr( 0, text.find( '#' ) ) );
   if ( words.empty() ) {
      return std::nullopt;
   }
   if ( words.size() < 3 ) {
      refuse( "VRF PREFIX NEXTHOP..., or fec NUMBER NEXTHOP...", text );
   }
   FibLine line;
   line.ofRoute = words[0] != "fec";
   if ( line.ofRoute ) {
      line.route = routeOf( words[0], words[1] );
   } else {
      line.fec = fecOf( words[1] );
   }
   if ( words[2] == "-" && words.size() == 3 ) {
      line.removed = true;
   } else if ( line.ofRoute && words[2] == "fec" && words.size() == 4 ) {
      line.fec = fecOf( words[3] );
   } else {
      line.content = contentOf( words, 2 );
   }
   return line;
}

void
eachFibLine( const String & file, std::string_view text,
             const std::function< void( FibLine && ) > & act ) {
   U32 at = 0;
   while ( !text.empty() ) {
      const auto end = std::min( text.find( '\n' ), text.size() );
      ++at;
      try {
         if ( auto line = parseFibLine( text.substr( 0, end ) ) ) {
            act( std::move( *line ) );
         }
      } catch ( const RangeError & e ) {
         throw RangeError( file + ":" + Kiv::toText( at ) + ": " + e.what() );
      }
      text.remove_prefix( std::min( end + 1, text.size() ) );
   }
}

} // namespace QonAgent
