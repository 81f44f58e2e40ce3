#pragma once
// An interface's translations: the inputs of VLAN mapping, and a chip that answers what it is told
// to, key by key, and holds what it took.

#include <functional>
#include <set>

#include "Qon/include/vlanmapping/QonVlanMappingSm.h"
#include "tests/harness/World.h"

namespace VlanMappingTests {

using Bridging::VlanXlateKey;
using Bridging::VlanXlateMapping;
using Qon::PortVlanKey;
using Ulnet::IntfId;
using Velto::Ptr;
using Velto::String;
using Direction = Bridging::VlanMappingDirection;
using Source = Qon::QonVlanMappingSource;
using Status = QonTypes::TableAddStatus;
using Outcome = Qon::VlanMappingSm::Outcome;

constexpr Direction in = Direction::ingress, out = Direction::egress;
constexpr Source cli = Source::BriselCli, flow = Source::Steerline;

inline IntfId
eth( U32 n ) {
   return Ulnet::EthIntfId::intfId( n );
}
inline IntfId
po( U32 n ) {
   return Ulnet::PortChannelIntfId::intfId( n );
}

/** What a chip holds: "ingress Ethernet1 10" -> 110. */
using Held = std::map< String, U32 >;

inline String
nameOf( Direction d, const PortVlanKey & key ) {
   return Kiv::toText( d ) + " " + key.portId().stringValue() + " " + Kiv::toText( key.vlanId() ) +
          ( key.innerVlanId() == Qon::nativeInnerVlan ? " native"
            : key.innerVlanId()                       ? " inner " + Kiv::toText( key.innerVlanId() )
                                                      : "" );
}

struct Chip {
   Held held;
   std::vector< String > calls; ///< "add ingress Ethernet1 10 -> 110"
   std::map< String, Status > answers;
   Status answer = Status::success; ///< to what `answers` does not name
   bool graceful = false;
   std::function< void() > duringAdd;  ///< called once, inside the next add
   std::function< void() > duringCall; ///< called inside every hook

   Status take( const char * verb, Direction d, const PortVlanKey & key, VlanXlateMapping mapping );
   void remove( Direction d, const PortVlanKey & key );
   std::vector< String > takeCalls() { return std::exchange( calls, {} ); }
};

class ChipSm : public Qon::VlanMappingSm {
 public:
   ChipSm( Inputs inputs, Chip & chip ) : VlanMappingSm( std::move( inputs ) ), chip_( chip ) {}

   Status doAddIngressVlanMapping( IntfId, bool, const PortVlanKey & key,
                                   const Mapping & mapping ) override {
      return chip_.take( "add", in, key, mapping );
   }
   Status doAddEgressVlanMapping( IntfId, bool, const PortVlanKey & key,
                                  const Mapping & mapping ) override {
      return chip_.take( "add", out, key, mapping );
   }
   void doDelIngressVlanMapping( IntfId, bool, const PortVlanKey & key ) override {
      chip_.remove( in, key );
   }
   void doDelEgressVlanMapping( IntfId, bool, const PortVlanKey & key ) override {
      chip_.remove( out, key );
   }
   Status doUpdateIngressVlanMapping( IntfId, bool, const PortVlanKey & key,
                                      const Mapping & mapping ) override {
      return chip_.take( "update", in, key, mapping );
   }
   Status doUpdateEgressVlanMapping( IntfId, bool, const PortVlanKey & key,
                                     const Mapping & mapping ) override {
      return chip_.take( "update", out, key, mapping );
   }
   bool gracefulRestartSupported() override { return chip_.graceful; }

 private:
   Chip & chip_;
};

class VlanMappingWorld : public Tests::World {
 public:
   void start() {
      sm = Qon::smIs< ChipSm >( inputs(), chip );
      const Ptr< ChipSm > held = sm;
      held->initializedIs( true );
   }
   Qon::VlanMappingSm::Inputs inputs() {
      return { acsd,     config,    flowConfig, ingConfig,       egrConfig,
               intfSets, ingStatus, egrStatus,  lagMemberStatus, acsd->verifyData() };
   }

   /** 0 for `mapped` takes the translation away. */
   void wants( Source source, IntfId intf, Direction d, U32 vlan, U32 mapped ) {
      Ptr< Bridging::VlanXlateIntfConfig > c =
            source == cli
                  ? Ptr< Bridging::VlanXlateIntfConfig >( config->switchIntfConfigIs( intf ) )
                  : flowConfig->vlanXlateIntfConfigIs( intf );
      const VlanXlateKey key( U16( vlan ), 0 );
      mapped ? c->vlanXlateIs( d, key, { U16( mapped ), 0 } ) : c->vlanXlateDel( d, key );
   }
   void wantsInner( Source source, IntfId intf, Direction d, VlanXlateKey key,
                    VlanXlateMapping mapping ) {
      Ptr< Bridging::VlanXlateIntfConfig > c =
            source == cli
                  ? Ptr< Bridging::VlanXlateIntfConfig >( config->switchIntfConfigIs( intf ) )
                  : flowConfig->vlanXlateIntfConfigIs( intf );
      c->vlanXlateIs( d, key, mapping );
   }
   void member( U32 lag, U32 port, bool is = true ) {
      Qon::QonLagPortList list = acsd->lagToPort( po( lag ) );
      is ? list.portIs( eth( port ), { true, true } ) : list.portDel( eth( port ) );
      acsd->lagToPortIs( po( lag ), list );
      is ? acsd->portToLagIs( eth( port ), po( lag ) ) : acsd->portToLagDel( eth( port ) );
   }
   /** The port moves in one step. */
   void moves( U32 from, U32 to, U32 port ) {
      Qon::QonLagPortList list = acsd->lagToPort( po( from ) );
      list.portDel( eth( port ) );
      acsd->lagToPortIs( po( from ), list );
      member( to, port );
   }
   Outcome outcome( Source source, IntfId intf, Direction d, U32 vlan ) const {
      return sm->outcome( intf, d, { U16( vlan ), 0 }, source );
   }
   Source owner( Direction d, IntfId intf, U32 vlan ) const {
      const PortVlanKey key( intf, U16( vlan ), 0 );
      return d == in ? sm->ingVlanXlateSourceMap( key ) : sm->egrVlanXlateSourceMap( key );
   }
   /** The messages since the last time. */
   std::vector< String > takeLogs() {
      std::vector< String > texts;
      for ( auto & record : logs.records() ) {
         texts.push_back( record.name + ": " + record.text );
      }
      logs.clear();
      return texts;
   }
   void checkAll() const { EXPECT_EQ( sm->checkInvariants(), "" ); }

   template< class T >
   static Ptr< T > entity( const char * name ) {
      return Velto::make< T >( name );
   }
   Chip chip;
   Ptr< Bridging::Config > config = entity< Bridging::Config >( "config" );
   Ptr< Qon::QonFlowVlanXlateConfigDir > flowConfig =
         entity< Qon::QonFlowVlanXlateConfigDir >( "flow" );
   Ptr< Qon::QonVlanMappingConfigDir > ingConfig = entity< Qon::QonVlanMappingConfigDir >( "in" ),
                                       egrConfig = entity< Qon::QonVlanMappingConfigDir >( "out" );
   Ptr< Qon::QonVlanMappingIntfConfigDir > intfSets =
         entity< Qon::QonVlanMappingIntfConfigDir >( "sets" );
   Ptr< Qon::QonVlanMappingStatusDir > ingStatus = entity< Qon::QonVlanMappingStatusDir >( "is" ),
                                       egrStatus = entity< Qon::QonVlanMappingStatusDir >( "es" );
   Ptr< Qon::QonVlanLagMemberStatusDir > lagMemberStatus =
         entity< Qon::QonVlanLagMemberStatusDir >( "members" );
   Ptr< ChipSm > sm;
};

/** @name Messages */
/** @{ */
inline String
conflictLog( U32 vlan, U32 mapped, const char * intf, const char * d, const char * requester,
             const char * owner ) {
   return "ETH_VLAN_MAPPING_CONFLICT: VLAN mapping " + Kiv::toText( vlan ) + " to " +
          Kiv::toText( mapped ) + " for interface " + intf + " on " + d + " required by " +
          requester + " is already in use by " + owner;
}
inline String
fullLog( U32 vlan, U32 mapped, const char * intf, const char * d ) {
   return "ETH_VLAN_MAPPING_TABLE_FULL: Unable to map VLAN " + Kiv::toText( vlan ) + " to " +
          Kiv::toText( mapped ) + " for interface " + intf + " on " + d +
          " due to hardware resource exhaustion";
}
inline String
encapFullLog( const char * d, const char * intf, U32 vlan ) {
   return "ETH_VLAN_ENCAP_TABLE_FULL: Unable to encapsulate " + String( d ) +
          " packets on interface " + intf + " with VLAN " + Kiv::toText( vlan ) +
          " due to hardware resource exhaustion";
}
inline String
programmedLog( U32 vlan, U32 mapped, const char * intf, const char * d, const char * winner ) {
   return "ETH_VLAN_MAPPING_PROGRAMMED: VLAN mapping " + Kiv::toText( vlan ) + " to " +
          Kiv::toText( mapped ) + " for interface " + intf + " on " + d + " required by " + winner +
          " is now programmed";
}
/** @} */

inline Status
Chip::take( const char * verb, Direction d, const PortVlanKey & key, VlanXlateMapping mapping ) {
   const String name = nameOf( d, key );
   calls.push_back( String( verb ) + " " + name + " -> " + Kiv::toText( mapping.vlanId() ) );
   if ( duringCall ) {
      duringCall();
   }
   if ( auto during = std::exchange( duringAdd, nullptr ) ) {
      during();
   }
   const Status status = answers.count( name ) ? answers[name] : answer;
   if ( status == Status::success || status == Status::handedOver ) {
      held[name] = mapping.vlanId();
   }
   return status;
}

inline void
Chip::remove( Direction d, const PortVlanKey & key ) {
   calls.push_back( "del " + nameOf( d, key ) );
   if ( duringCall ) {
      duringCall();
   }
   held.erase( nameOf( d, key ) );
}

} // namespace VlanMappingTests
