#pragma once
// What the state machines of access lists and their hooks speak of.
//
//    a named list, e.g. "edge" of type ip
//       AclKey{ none, in, "default" }  -> an instance: all ports that share it     number 0
//       AclKey{ 20, in, "default" }    -> another: VLAN interface 20               number 1
//          AclIntfUse: an interface (or a member of a port-channel) that it is applied to
//
// Invariants
// 1. An instance is what the hardware holds under one number. Its rules are a snapshot that never
//    changes: other rules are another AclRuleSet.
// 2. An IntfPairKey is checked wherever it is used: check() is fatal for one that names nothing.

#include <vector>

#include "Qon/include/framework/QonTypes.h"
#include "Qon/include/framework/Reconcile.h"
#include "platform/types/Acl.h"
#include "platform/types/Bridging.h"
#include "platform/types/Mirroring.h"

namespace Qon {

using Velto::String;

/** A VLAN number, or 0 where there is none. */
class AclVlanIdOrNone {
 public:
   constexpr AclVlanIdOrNone() = default;
   AclVlanIdOrNone( Bridging::VlanId vlan ) : value_( vlan ) {}
   /** Raises Velto::RangeError above 4094. */
   explicit AclVlanIdOrNone( U32 value );
   explicit AclVlanIdOrNone( const String & text );

   constexpr U16 value() const { return value_; }
   constexpr bool isNone() const { return value_ == 0; }
   /** Raises Velto::RangeError for none. */
   Bridging::VlanId vlanId() const { return Bridging::VlanId( value_ ); }
   bool operator==( const AclVlanIdOrNone & ) const = default;
   auto operator<=>( const AclVlanIdOrNone & ) const = default;
   U64 hash() const { return value_; }
   String stringValue() const { return Kiv::toText( value_ ); }

 private:
   static constexpr U16 max_ = 4094;
   U16 value_ = 0;
};

/** The group of an instance that is nobody's own. */
inline const String aclGroupDefault = "default";
/** The group of the instance that VLAN interfaces share. */
inline const String aclGroupVlan = "vlan";

/** An instance of a named list; ordered by VLAN, direction and group. */
class AclKey {
   AclVlanIdOrNone vlan_;
   Acl::AclDirection direction_ = Acl::AclDirection::in;
   String group_ = aclGroupDefault;
   KIV_VALUE( Qon, AclKey, vlan, direction, group )
};

/** Where a list is applied: an interface, and the port-channel by which it came to be if it is a
    member of one. Without an interface: all members of that port-channel. */
class IntfPairKey {
   Ulnet::IntfId intfId_;
   Ulnet::IntfId lagIntf_;
   KIV_VALUE( Qon, IntfPairKey, intfId, lagIntf )

   /** Fatal for a pair that names nothing. */
   void check() const;
   /** The interface at which the list was configured. */
   Ulnet::IntfId attachedTo() const { return lagIntf_ ? lagIntf_ : intfId_; }
};

/** One place in hardware at which an instance is applied. */
class AclIntfUse {
   IntfPairKey pair_;
   Ulnet::IntfId lagMember_; // of the port-channel that carries the sub-interface of the pair
   Ulnet::EthAddr host_;     // zero: the interface as a whole
   KIV_VALUE( Qon, AclIntfUse, pair, lagMember, host )

   AclIntfUse( const IntfPairKey & pair, Ulnet::IntfId lagMember )
       : pair_( pair ), lagMember_( lagMember ) {}
   /** The pair as such: not a host of it, nor a member that carries it. */
   bool whole() const { return !lagMember_ && host_.isZero(); }
};

/** What became of an instance on one unit; higher values than the last are unknown errors. */
enum class AclCreateError : U8 {
   success = 0,
   hwResourceFull = 2,
   unsupportedTcamFeature = 3,
   l4PortRanges = 4,
   unsupportedAction = 5,
   unsupportedRule = 6,
   udfResources = 7,
   aclLimit = 10,
   computationFailed = 15,
   pending = 18,
};
KIV_ENUM( AclCreateError, success, hwResourceFull, unsupportedTcamFeature, l4PortRanges,
          unsupportedAction, unsupportedRule, udfResources, aclLimit, computationFailed, pending )

/** Whether the error says that hardware is too small, and not that the list is wrong. */
bool insufficientResources( AclCreateError error );
/** What a trace says of the error. */
String aclErrorText( AclCreateError error, const String & unit, const String & aclName );

struct AclUnitResult {
   String unit;
   AclCreateError error;
};
/** What an operation came to, a unit each; empty: success on all. */
using AclUnitResults = std::vector< AclUnitResult >;

/** How far one instance has come. */
enum class AclDataState : U8 { init = 0, inProgress = 1, done = 2, failure = 3 };
KIV_ENUM( AclDataState, init, inProgress, done, failure )

/** How far a pass has come that brings changed instances into hardware. */
enum class AclApplyPhase : U8 { done = 0, uninstall = 1, prepare = 2, commit = 3, unblock = 4 };
KIV_ENUM( AclApplyPhase, done, uninstall, prepare, commit, unblock )

/** One rule as the hardware gets it. */
struct AclRule {
   enum class Origin : U8 { configured, fragment, implicit };
   Origin origin = Origin::configured;
   U32 id = 0;     ///< the rule's own number; of a fragment rule that of the rule before it
   Acl::Rule rule; ///< without a session that is not there, and without logging where there is none
   S32 mirrorGroup = Mirroring::mirrorGroupInvalid(); ///< of the rule's session
   bool operator==( const AclRule & ) const = default;
};
/** Ids of implicit rules begin here, above the numbers that configured rules have. */
constexpr U32 firstImplicitRuleId = 1u << 31;

/** All rules of a list, in the order in which they are asked. Never changes. */
class AclRuleSet : public Velto::Node {
 public:
   explicit AclRuleSet( std::vector< AclRule > rules );
   const std::vector< AclRule > & rules() const { return rules_; }
   /** The mirror sessions that rules name. */
   const KeySet< String > & mirrorSessions() const { return mirrorSessions_; }
   /** Whether some rule logs. */
   bool logs() const { return logs_; }

 private:
   const std::vector< AclRule > rules_;
   KeySet< String > mirrorSessions_;
   bool logs_ = false;
};

/** An instance that something is to be done with; what hooks get. */
struct AclOperation {
   Acl::AclType type = Acl::AclType::ip;
   String aclName;
   AclKey key;
   U32 aclNumber = 0;
   U64 operation = 0; ///< the number of this operation; later ones have larger numbers
   Velto::Ptr< const AclRuleSet > rules;

   String stringValue() const;
};

constexpr U32 aclNumberNone = 0xffffffff;
constexpr U32 aclNumbersPerDirection = 12576;

/** The numbers of one direction. */
class AclNumbers : public Velto::Node {
 public:
   /** Of numbers `start` and up; the first to be taken is `start`. */
   explicit AclNumbers( U32 start );
   U32 start() const { return start_; }
   bool empty() const { return free_.empty(); }
   U32 free() const { return U32( free_.size() ); }
   /** The one that was given back last. */
   U32 take();
   void push( U32 number );

 private:
   const U32 start_;
   std::vector< U32 > free_;
};

/** One instance, as the configuration wants it. */
class AclData : public Kiv::Entity {
   KIV_BODY( AclData, Kiv::Entity )
   KIV_ATTR( U32, aclNumber, aclNumberNone )
   KIV_ATTR( U32, activeIntfs, 0 ) // interface pairs that it is to be applied to
   // Members of the port-channels that carry its sub-interfaces.
   KIV_SET( Ulnet::IntfId, activeLagSubIntfMembers )
   KIV_ATTR( bool, dirty, true ) // to be programmed anew
   KIV_ATTR( String, aclGroup, aclGroupDefault )
   KIV_PTR( const Acl::AclConfig, perHostAcl ) // its list, while single hosts have it
 public:
   explicit AclData( const AclKey & key ) : aclGroup_( key.group() ) {}
};

/** What became of one instance, as the hardware tells. */
class AclDataStatus : public Kiv::Entity {
   KIV_BODY( AclDataStatus, Kiv::Entity )
   KIV_MAP( String, AclCreateError, unitError ) // by unit; empty name: all units
   KIV_ATTR( AclDataState, aclDataState, AclDataState::init )
 public:
   explicit AclDataStatus( const AclKey & ) {}
};

} // namespace Qon
