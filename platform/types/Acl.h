#pragma once
// Access lists as they are configured: a type, then a name.

#include "platform/Kiv/Attr.h"
#include "platform/Kiv/Text.h"
#include "platform/Velto/Types.h"

namespace Acl {

using Velto::String;

enum class AclType : U8 { ip = 0, mac = 1, ipv6 = 2 };
KIV_ENUM( AclType, ip, mac, ipv6 )

constexpr AclType
ip() {
   return AclType::ip;
}
constexpr AclType
mac() {
   return AclType::mac;
}
constexpr AclType
ipv6() {
   return AclType::ipv6;
}

/** One access list. */
class AclConfig : public Kiv::Entity {
   KIV_BODY( AclConfig, Kiv::Entity )
   KIV_ATTR( U32, version, 0 ) // changes with every change of the rules
 public:
   explicit AclConfig( const String & name ) : Kiv::Entity( name ) {}
};

/** The access lists of one type. */
class TypeConfig : public Kiv::Entity {
   KIV_BODY( TypeConfig, Kiv::Entity )
   KIV_ENTITIES( String, AclConfig, acl )
 public:
   explicit TypeConfig( const AclType & type )
       : Kiv::Entity( Kiv::toText( type ) ), type_( type ) {}
   AclType type() const { return type_; }

 private:
   const AclType type_;
};

class Config : public Kiv::Entity {
   KIV_BODY( Config, Kiv::Entity )
   KIV_ENTITIES( AclType, TypeConfig, type )
 public:
   explicit Config( const String & name ) : Kiv::Entity( name ) {}
};

} // namespace Acl
