#include "agent/configdb/IntfNames.h"

#include "platform/Kiv/Text.h"

namespace QonAgent {

namespace {

struct Prefix {
   const char * ours;
   const char * theirs;
   bool subs; ///< the short form that sub-interfaces use
};

constexpr Prefix prefixes[] = {
      { "Internal", "Ethernet-BP", false },
      { "InternalRecirc", "Ethernet-Rec", false },
      { "Ethernet", "Ethernet", false },
      { "Ethernet", "Eth", true },
      { "Port-Channel", "PortChannel", false },
      { "Port-Channel", "Po", true },
      { "Vlan", "Vlan", false },
      { "Loopback", "Loopback", false },
      { "Management", "eth", false },
};

constexpr U32 lastFormatNumber = 9999; // of a port-channel
constexpr U32 perDigit = 10000;

bool
isDigit( char c ) {
   return c >= '0' && c <= '9';
}

/** A name as the format has it. */
struct Name {
   const Prefix * prefix = nullptr;
   String digits; ///< the first number, zeros and all
   String rest;   ///< what follows it

   bool padded() const { return digits.size() > 1 && digits[0] == '0'; }
   /** Without leading zeros. */
   String number() const {
      auto first = digits.find_first_not_of( '0' );
      return first == String::npos ? "0" : digits.substr( first );
   }
   Ulnet::IntfId intf( const String & number ) const {
      return Ulnet::IntfId( prefix->ours + number + rest );
   }
};

[[noreturn]] void
refuse( const String & name ) {
   Kiv::textRefused( "an interface name such as Ethernet0 or PortChannel12", name );
}

Name
nameOf( const String & text ) {
   Name name;
   String::size_type at = 0;
   while ( at < text.size() && !isDigit( text[at] ) ) {
      ++at;
   }
   for ( auto & prefix : prefixes ) {
      bool sub = text.find( '.' ) != String::npos;
      if ( text.compare( 0, at, prefix.theirs ) == 0 && ( !prefix.subs || sub ) ) {
         name.prefix = &prefix;
      }
   }
   auto end = at;
   while ( end < text.size() && isDigit( text[end] ) ) {
      ++end;
   }
   if ( !name.prefix || end == at ) {
      refuse( text );
   }
   name.digits = text.substr( at, end - at );
   name.rest = text.substr( end );
   return name;
}

Ulnet::IntfId
parsed( const String & text ) {
   Name name = nameOf( text );
   try {
      return name.intf( name.number() );
   } catch ( const Velto::RangeError & ) {
      refuse( text );
   }
}

} // namespace

void
IntfNames::define( const std::vector< String > & names ) {
   for ( bool padded : { false, true } ) {
      for ( auto & name : names ) {
         try {
            if ( nameOf( name ).padded() == padded ) {
               defineOne( name );
            }
         } catch ( const Velto::RangeError & ) {
            // Whoever uses the name says that it is none.
         }
      }
   }
}

void
IntfNames::defineOne( const String & name ) {
   if ( byName_.count( name ) ) {
      return;
   }
   Ulnet::IntfId intf = parsed( name );
   Name parts = nameOf( name );
   if ( byIntf_.count( intf ) && parts.padded() ) {
      U32 number = Kiv::fromText< U32 >( parts.number() );
      if ( number > lastFormatNumber ) {
         return;
      }
      intf = parts.intf( Kiv::toText( number + perDigit * U32( parts.digits.size() ) ) );
   }
   if ( byIntf_.emplace( intf, name ).second ) {
      byName_[name] = intf;
   }
}

Ulnet::IntfId
IntfNames::intf( const String & name ) const {
   auto known = byName_.find( name );
   return known == byName_.end() ? parsed( name ) : known->second;
}

Ulnet::IntfId
IntfNames::typed( const String & name ) const {
   try {
      return intf( name );
   } catch ( const Velto::RangeError & ) {
      return Ulnet::IntfId( name );
   }
}

std::vector< String >
IntfNames::defined() const {
   std::vector< String > all;
   for ( auto & [name, intf] : byName_ ) {
      all.push_back( name );
   }
   return all;
}

String
IntfNames::spelling( Ulnet::IntfId intf ) const {
   auto known = byIntf_.find( intf );
   if ( known != byIntf_.end() ) {
      return known->second;
   }
   if ( intf.sub() ) {
      return spelling( Ulnet::SubIntfId::parent( intf ) ) + "." + Kiv::toText( intf.sub() );
   }
   String name = intf.stringValue();
   auto digit = name.find_first_of( "0123456789" );
   for ( auto & prefix : prefixes ) {
      if ( !prefix.subs && name.compare( 0, digit, prefix.ours ) == 0 ) {
         return prefix.theirs + name.substr( digit );
      }
   }
   return name;
}

} // namespace QonAgent
