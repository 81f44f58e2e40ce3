#pragma once
// Access lists as they are configured, and where they are applied.
//
//    operator -> Config       type -> name -> rules
//             -> IntfConfig   type -> direction -> interface -> name of a list
//             -> ParamConfig  what lists share in hardware, what traffic may do while they change
//
// 1. An interface may name a list that is not there; it applies from when it comes.
// 2. The entity of a direction stays when its last interface goes: with each new one of them a block
//    of numbers is used up for good, and there are five.

#include "platform/Kiv/Attr.h"
#include "platform/types/AclRule.h"

namespace Acl {

/** One access list. */
class AclConfig : public Kiv::Entity {
   KIV_BODY( AclConfig, Kiv::Entity )
   KIV_ORDERED_MAP( U32, Rule, rule ) // by number
   KIV_ATTR( U32, version, 0 )        // changes with every change of the rules
   KIV_ATTR( bool, countersEnabled, false )
   KIV_ATTR( U32, counterRequest, 0 ) // changes when somebody wants the counters read
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

/** Which list which interface has in one direction. */
class DirectionIntfConfig : public Kiv::Entity {
   KIV_BODY( DirectionIntfConfig, Kiv::Entity )
   KIV_MAP( Ulnet::IntfId, String, intf )
 public:
   explicit DirectionIntfConfig( const AclDirection & direction ) : direction_( direction ) {}
   AclDirection direction() const { return direction_; }

 private:
   const AclDirection direction_;
};

class TypeIntfConfig : public Kiv::Entity {
   KIV_BODY( TypeIntfConfig, Kiv::Entity )
   KIV_ENTITIES( AclDirection, DirectionIntfConfig, direction )
 public:
   explicit TypeIntfConfig( const AclType & type ) : type_( type ) {}
   AclType type() const { return type_; }

 private:
   const AclType type_;
};

class IntfConfig : public Kiv::Entity {
   KIV_BODY( IntfConfig, Kiv::Entity )
   KIV_ENTITIES( AclType, TypeIntfConfig, type )
 public:
   explicit IntfConfig( const String & name ) : Kiv::Entity( name ) {}
};

/** The kinds of interface whose lists are shared, or not, on their own. */
enum class SharingKind : U8 { port, vlan, subIntf };
KIV_ENUM( SharingKind, port, vlan, subIntf )

class SharingKey {
   AclType type_ = AclType::ip;
   AclDirection direction_ = AclDirection::in;
   SharingKind kind_ = SharingKind::port;
   KIV_VALUE( Acl, SharingKey, type, direction, kind )
};

class ParamConfig : public Kiv::Entity {
   KIV_BODY( ParamConfig, Kiv::Entity )
   // Whether interfaces with the same list have one instance of it in hardware. Absent: ports and
   // sub-interfaces do, VLAN interfaces do not.
   KIV_MAP( SharingKey, bool, sharedMode )
   // Whether traffic passes an interface while its list of that type is exchanged; absent: the default.
   KIV_MAP( AclType, bool, permitDuringAclUpdateConfig )
   KIV_ATTR( bool, defaultActionDuringAclUpdatePermit, false )
 public:
   explicit ParamConfig( const String & name ) : Kiv::Entity( name ) {}

   bool shared( AclType type, AclDirection direction, SharingKind kind ) const {
      const SharingKey key( type, direction, kind );
      return sharedModeHas( key ) ? sharedMode( key ) : kind != SharingKind::vlan;
   }
};

/** A host behind an interface. */
class HostKey {
   Ulnet::IntfId intf_;
   Ulnet::EthAddr host_;
   KIV_VALUE( Acl, HostKey, intf, host )
};

/** The list that is asked about what comes from a host. */
class HostAcl {
   AclType type_ = AclType::ip;
   String acl_;
   KIV_VALUE( Acl, HostAcl, type, acl )
};

/** Hosts that have lists of their own. */
class PerHostConfig : public Kiv::Entity {
   KIV_BODY( PerHostConfig, Kiv::Entity )
   KIV_MAP( HostKey, HostAcl, host )
 public:
   explicit PerHostConfig( const String & name ) : Kiv::Entity( name ) {}
};

/** Which card an interface is on. */
class IntfCardConfig : public Kiv::Entity {
   KIV_BODY( IntfCardConfig, Kiv::Entity )
   KIV_MAP( Ulnet::IntfId, String, card )
 public:
   explicit IntfCardConfig( const String & name ) : Kiv::Entity( name ) {}
};

/** Somebody wants to know when all that is configured is in hardware. */
class DpAclUpdateRequest : public Kiv::Entity {
   KIV_BODY( DpAclUpdateRequest, Kiv::Entity )
   KIV_ATTR( double, requestTime, 0 )
 public:
   explicit DpAclUpdateRequest( const String & name ) : Kiv::Entity( name ) {}
};

/** The answer: the request's time, when it is. */
class DpAclUpdateStatus : public Kiv::Entity {
   KIV_BODY( DpAclUpdateStatus, Kiv::Entity )
   KIV_ATTR( double, completedRequestTime, 0 )
 public:
   explicit DpAclUpdateStatus( const String & name ) : Kiv::Entity( name ) {}
};

} // namespace Acl
