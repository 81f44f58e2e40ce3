#pragma once
// Tap aggregation: frames that enter tap ports are steered to tool ports.
//
//    operator -> Bridging::Input::TapAggConfig: tap ports -> groups <- tool ports
//             -> TapAgg::PmapGroupConfig, PolicyMapConfig: groups of policy maps
//             -> forwarding agent -> hardware
//    TapAgg::PmapGroupStatus, Bridging::HostFlush::RequestDir <- forwarding agent
//    TapAgg::ToolPortStatus, Bridging::HostFlush::ReplyDir <- others -> forwarding agent
//
// 1. A tap port's groups, and those of a class, are one value and change as one. Several of them lead
//    where each of them leads: hardware has one group for them, with their names joined by ",".
// 2. So a name of a group has no "," in it.
// 3. What was configured stays, whatever the mode of the switch is.

#include <vector>

#include "platform/Kiv/Attr.h"
#include "platform/Kiv/Text.h"
#include "platform/types/Bridging.h"
#include "platform/types/IpAddr.h"
#include "platform/types/Ulnet.h"

namespace Bridging {

/** The VLAN tags that tell tools by which tap port a frame came; 0: no such tag. */
class IdentityTuple {
   U16 outer_ = 0;
   U16 inner_ = 0;
   KIV_VALUE( Bridging, IdentityTuple, outer, inner )
};

} // namespace Bridging

namespace Bridging::Input {

using Velto::String;

/** Which of its identity tags a frame has where it leaves for a tool. */
enum class ToolIdentityMode : U8 { none, dot1q, qinq };
KIV_ENUM( ToolIdentityMode, none, dot1q, qinq )

/** A set of groups, ordered by name. Its text is the names, joined by ",". */
class TapGroups {
 public:
   TapGroups() = default;
   explicit TapGroups( const String & text );
   TapGroups( std::initializer_list< String > names ) {
      for ( const String & name : names ) {
         nameIs( name );
      }
   }

   void nameIs( const String & name );
   bool empty() const { return names_.empty(); }
   U32 names() const { return U32( names_.size() ); }
   std::vector< String >::const_iterator begin() const { return names_.begin(); }
   std::vector< String >::const_iterator end() const { return names_.end(); }

   bool operator==( const TapGroups & ) const = default;
   auto operator<=>( const TapGroups & ) const = default;
   U64 hash() const;
   String stringValue() const;

 private:
   std::vector< String > names_;
};

class TapPortConfig : public Kiv::Entity {
   KIV_BODY( TapPortConfig, Kiv::Entity )
   KIV_ATTR( TapGroups, groups )          // by default its frames go there
   KIV_ATTR( U32, truncationSize, 0 )     // bytes; 0: whole frames
   KIV_ATTR( IdentityTuple, identity )    // what is added
   KIV_ATTR( Ulnet::EthAddr, macAddress ) // becomes the destination; zero: it stays
   KIV_ATTR( U32, headerRemove, 0 )       // bytes off the front
   KIV_ATTR( bool, greStrip, false )
   KIV_MAP( Ulnet::IpGenAddr, bool, greStripForEp ) // of tunnels to that end
   KIV_ATTR( bool, vxlanStrip, false )
   KIV_ATTR( bool, mplsPop, false )
 public:
   explicit TapPortConfig( const Ulnet::IntfId & intf ) : intf_( intf ) {}
   Ulnet::IntfId intf() const { return intf_; }

 private:
   const Ulnet::IntfId intf_;
};

class ToolPortConfig : public Kiv::Entity {
   KIV_BODY( ToolPortConfig, Kiv::Entity )
   KIV_SET( String, group )
   KIV_ATTR( U32, truncationSize, 0 )
   KIV_ATTR( ToolIdentityMode, identityTagging, ToolIdentityMode::none )
   KIV_ATTR( U8, dot1qRemove, 0 ) // so many VLAN tags off the front
   KIV_ATTR( bool, brStrip, false )
   KIV_ATTR( bool, vnStrip, false )
   KIV_ATTR( bool, mplsPop, false )
 public:
   explicit ToolPortConfig( const Ulnet::IntfId & intf ) : intf_( intf ) {}
   Ulnet::IntfId intf() const { return intf_; }

 private:
   const Ulnet::IntfId intf_;
};

class TapAggConfig : public Kiv::Entity {
   KIV_BODY( TapAggConfig, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, TapPortConfig, tapPort )
   KIV_ENTITIES( Ulnet::IntfId, ToolPortConfig, toolPort )
   KIV_SET( Ulnet::IntfId, tapRawIntf ) // frames of these tap ports pass as they are
   KIV_ATTR( String, tcamProfile, "" )
   KIV_ATTR( bool, trafficSteeringMacAclMatchIp, false )
 public:
   explicit TapAggConfig( const String & name ) : Kiv::Entity( name ) {}
};

} // namespace Bridging::Input

namespace Bridging::HostFlush {

/** What shall be flushed: the addresses behind an interface, of one VLAN or of all (none). */
class FlushKey {
   VlanIdOrNone vlan_;
   Ulnet::IntfId intf_;
   KIV_VALUE( Bridging::HostFlush, FlushKey, vlan, intf )
};

/** What waits to be flushed. */
class RequestDir : public Kiv::Entity {
   KIV_BODY( RequestDir, Kiv::Entity )
   KIV_SET( FlushKey, request )
 public:
   explicit RequestDir( const Velto::String & name ) : Kiv::Entity( name ) {}
};

/** What was flushed; whoever flushed it takes the reply away when the request is gone. */
class ReplyDir : public Kiv::Entity {
   KIV_BODY( ReplyDir, Kiv::Entity )
   KIV_SET( FlushKey, reply )
 public:
   explicit ReplyDir( const Velto::String & name ) : Kiv::Entity( name ) {}
};

} // namespace Bridging::HostFlush

namespace TapAgg {

using Velto::String;

/** What others decide about tap aggregation as a whole. */
class Status : public Kiv::Entity {
   KIV_BODY( Status, Kiv::Entity )
   KIV_ATTR( bool, logHwResourceFull, true ) // whether lack of groups is logged
 public:
   explicit Status( const String & name ) : Kiv::Entity( name ) {}
};

/** Which tool ports can take frames; those without an entry can. Of a port-channel its own entry
    counts. */
class ToolPortStatus : public Kiv::Entity {
   KIV_BODY( ToolPortStatus, Kiv::Entity )
   KIV_MAP( Ulnet::IntfId, bool, active )
 public:
   explicit ToolPortStatus( const String & name ) : Kiv::Entity( name ) {}
};

/** The groups that policy maps need. */
class PmapGroupConfig : public Kiv::Entity {
   KIV_BODY( PmapGroupConfig, Kiv::Entity )
   KIV_SET( String, group )
 public:
   explicit PmapGroupConfig( const String & name ) : Kiv::Entity( name ) {}
};

/** The hardware's ids of those that have one. */
class PmapGroupStatus : public Kiv::Entity {
   KIV_BODY( PmapGroupStatus, Kiv::Entity )
   KIV_MAP( String, U32, groupNameToId )
 public:
   explicit PmapGroupStatus( const String & name ) : Kiv::Entity( name ) {}
};

/** A class of a policy map, and where its frames go. */
class ClassMapConfig : public Kiv::Entity {
   KIV_BODY( ClassMapConfig, Kiv::Entity )
   KIV_ATTR( Bridging::Input::TapGroups, groups )
 public:
   explicit ClassMapConfig( const String & name ) : Kiv::Entity( name ) {}
};

class PolicyMap : public Kiv::Entity {
   KIV_BODY( PolicyMap, Kiv::Entity )
   KIV_ENTITIES( String, ClassMapConfig, classMap )
 public:
   explicit PolicyMap( const String & name ) : Kiv::Entity( name ) {}
};

/** The policy map of a tap port. */
class ServicePolicy : public Kiv::Entity {
   KIV_BODY( ServicePolicy, Kiv::Entity )
   KIV_ATTR( String, policyMap, "" )
 public:
   explicit ServicePolicy( const Ulnet::IntfId & intf ) : intf_( intf ) {}
   Ulnet::IntfId intf() const { return intf_; }

 private:
   const Ulnet::IntfId intf_;
};

class PolicyMapConfig : public Kiv::Entity {
   KIV_BODY( PolicyMapConfig, Kiv::Entity )
   KIV_ENTITIES( String, PolicyMap, policyMap )
   KIV_ENTITIES( Ulnet::IntfId, ServicePolicy, servicePolicy )
 public:
   explicit PolicyMapConfig( const String & name ) : Kiv::Entity( name ) {}
};

} // namespace TapAgg
