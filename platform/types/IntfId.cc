#include "platform/types/IntfId.h"

#include <cstring>

#include "platform/Kiv/Text.h"

namespace Ulnet {

namespace {

struct Kind {
   IntfType type;
   const char * name;
   U32 minCount;
   U32 maxCount;
   bool subs;
   U32 maxFirst;
};

constexpr U32 maxNumber[] = { ( 1u << 20 ) - 1, 1023, 127 };
constexpr U32 maxSub = ( 1u << 18 ) - 1;

constexpr Kind kinds[] = {
      { IntfType::ethernet, "Ethernet", 1, 3, true, maxNumber[0] },
      { IntfType::portChannel, "Port-Channel", 1, 2, true, maxNumber[0] },
      { IntfType::recircChannel, "Recirc-Channel", 1, 1, false, maxNumber[0] },
      { IntfType::vlan, "Vlan", 1, 1, false, 4094 },
      { IntfType::tunnel, "Tunnel", 1, 1, false, maxNumber[0] },
      { IntfType::loopback, "Loopback", 1, 1, false, maxNumber[0] },
      { IntfType::management, "Management", 1, 2, false, maxNumber[0] },
      { IntfType::cpu, "Cpu", 0, 0, false, 0 },
      { IntfType::internalRecirc, "InternalRecirc", 1, 1, false, maxNumber[0] },
      { IntfType::vxlan, "Vxlan", 1, 1, false, maxNumber[0] },
      { IntfType::internal, "Internal", 1, 1, false, maxNumber[0] },
};

const Kind *
kindOf( IntfType type ) {
   for ( const Kind & kind : kinds ) {
      if ( kind.type == type ) {
         return &kind;
      }
   }
   return nullptr;
}

const Kind *
kindNamed( const Velto::String & name ) {
   for ( const Kind & kind : kinds ) {
      if ( name == kind.name ) {
         return &kind;
      }
   }
   return nullptr;
}

bool
digitAt( const Velto::String & text, U32 at ) {
   return at < text.size() && text[at] >= '0' && text[at] <= '9';
}

/** Reads the number at `at` and moves behind it. */
bool
readNumber( const Velto::String & text, U32 & at, U32 & number ) {
   U32 begin = at;
   U64 value = 0;
   for ( ; digitAt( text, at ) && value <= maxNumber[0]; ++at ) {
      value = value * 10 + U32( text[at] - '0' );
   }
   number = U32( value );
   bool leadingZero = at > begin + 1 && text[begin] == '0';
   return at > begin && !leadingZero && !digitAt( text, at );
}

bool
fits( const Kind & kind, U32 count, const U32 * numbers, U32 sub ) {
   bool good = count >= kind.minCount && count <= kind.maxCount && sub <= maxSub &&
               ( kind.subs || sub == 0 ) && ( count == 0 || numbers[0] <= kind.maxFirst );
   good = good && ( kind.type != IntfType::vlan || numbers[0] > 0 );
   for ( U32 i = 0; i < 3; ++i ) {
      good = good && numbers[i] <= ( i < count ? maxNumber[i] : 0 );
   }
   return good;
}

U64
packed( IntfType type, U32 count, const U32 * numbers, U32 sub ) {
   return U64( type ) << 57 | U64( numbers[0] ) << 37 | U64( numbers[1] ) << 27 |
          U64( numbers[2] ) << 20 | U64( sub ) << 2 | count;
}

/** The bits that `name` stands for; 0 when it names no interface. */
U64
bitsOf( const Velto::String & name ) {
   U32 at = 0;
   while ( at < name.size() && !digitAt( name, at ) ) {
      ++at;
   }
   const Kind * kind = kindNamed( name.substr( 0, at ) );
   if ( !kind ) {
      return 0;
   }
   U32 numbers[3] = {};
   U32 count = 0;
   U32 sub = 0;
   while ( at < name.size() && count < 3 && readNumber( name, at, numbers[count] ) ) {
      ++count;
      if ( at == name.size() || name[at] != '/' ) {
         break;
      }
      ++at;
      if ( at == name.size() || count == 3 ) {
         return 0; // nothing, or a fourth number, behind the slash
      }
   }
   if ( at < name.size() && name[at] == '.' && count > 0 ) {
      ++at;
      if ( !readNumber( name, at, sub ) || sub == 0 ) {
         return 0;
      }
   }
   bool good = at == name.size() && fits( *kind, count, numbers, sub );
   return good ? packed( kind->type, count, numbers, sub ) : 0;
}

} // namespace

IntfId::IntfId( const Velto::String & name ) {
   bits_ = bitsOf( name );
   if ( bits_ == 0 && !name.empty() ) {
      Kiv::textRefused( "an interface name such as Ethernet3/1 or Port-Channel10", name );
   }
}

IntfId::IntfId( IntfType type, U32 count, U32 first, U32 second, U32 third, U32 sub ) {
   U32 numbers[] = { first, second, third };
   const Kind * kind = kindOf( type );
   if ( !kind || !fits( *kind, count, numbers, sub ) ) {
      throw Velto::RangeError( "numbers out of range for an interface of type " +
                               Velto::String( kind ? kind->name : "none" ) );
   }
   bits_ = packed( type, count, numbers, sub );
}

U32
IntfId::number( U32 i ) const {
   switch ( i ) {
   case 0:
      return U32( bits_ >> 37 ) & maxNumber[0];
   case 1:
      return U32( bits_ >> 27 ) & maxNumber[1];
   case 2:
      return U32( bits_ >> 20 ) & maxNumber[2];
   default:
      return 0;
   }
}

Velto::String
IntfId::stringValue() const {
   const Kind * kind = kindOf( type() );
   if ( !kind ) {
      return "";
   }
   Velto::String name = kind->name;
   for ( U32 i = 0; i < count(); ++i ) {
      name += i ? "/" : "";
      name += Kiv::toText( number( i ) );
   }
   if ( sub() ) {
      name += ".";
      name += Kiv::toText( sub() );
   }
   return name;
}

U32
GenericIntfId::part( IntfId id, U32 i ) {
   return i == id.count() ? id.sub() : id.number( i );
}

IntfId
SubIntfId::intfId( IntfId parent, U32 sub ) {
   return IntfId( parent.type(), parent.count(), parent.number( 0 ), parent.number( 1 ),
                  parent.number( 2 ), sub );
}

} // namespace Ulnet
