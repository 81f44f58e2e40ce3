#include "agent/features/MacFeature.h"

#include <cmath>

#include "agent/features/Arguments.h"

namespace QonAgent {

using Qon::MacCmdPtr;
using Qon::MacEntryKey;
using Type = Qon::IndirectAccessMacCmdType;

namespace {

struct Operation {
   const char * name;
   Type type;
   bool mac, vlan, intf; // fields it needs
};

constexpr Operation operations[] = {
      { "add", Type::addHost, true, true, true },
      { "remove", Type::removeHost, true, true, false },
      { "addMcast", Type::addMcastHost, true, true, true },
      { "flushAll", Type::flushAll, false, false, false },
      { "flushLag", Type::flushLag, false, false, true },
      { "flushPort", Type::flushPort, false, false, true },
      { "flushPortType", Type::flushPortType, false, false, true },
      { "flushVlan", Type::flushVlan, false, true, false },
      { "flushVlanLag", Type::flushVlanLag, false, true, true },
      { "flushVlanPort", Type::flushVlanPort, false, true, true },
      { "flushVlanPortType", Type::flushVlanPortType, false, true, true },
};

const Operation &
operationOf( const String & name ) {
   String known;
   for ( auto & op : operations ) {
      if ( name == op.name ) {
         return op;
      }
      known += ( known.empty() ? "" : ", " ) + String( op.name );
   }
   throw Velto::RangeError( "no operation '" + name + "'; there are: " + known );
}

template< class E >
E
enumOr( const Json & line, const char * field, E otherwise ) {
   return hasField( line, field ) ? Kiv::fromText< E >( fieldOf< String >( line, field ) )
                                  : otherwise;
}

Row
keyFields( const MacEntryKey & key ) {
   return { { "mac", key.key().mac().stringValue() },
            { "vlan", U32( key.key().vlan().value() ) },
            { "table", Kiv::toText( key.macHwType() ) } };
}

} // namespace

MacFeature::MacFeature( Agent & agent )
    : agent_( agent ), part_( agent.chip().part< QonChip::MacPart >() ),
      programmer_( part_ ? part_->makeProgrammer() : nullptr ) {
   if ( programmer_ ) {
      programmer_->initializedIs( true );
   }
}

std::function< void() >
MacFeature::parse( const Json & line ) const {
   const Operation & op = operationOf( fieldOf< String >( line, "op" ) );
   Ulnet::EthAddr mac;
   Bridging::VlanIdOrNone vlan;
   Ulnet::IntfId intf;
   if ( op.mac ) {
      mac = Ulnet::EthAddr( fieldOf< String >( line, "mac" ) );
   }
   if ( op.vlan ) {
      vlan = Bridging::VlanId( fieldOf< U32 >( line, "vlan" ) );
   }
   if ( op.intf ) {
      intf = agent_.names().typed( fieldOf< String >( line, "intf" ) );
   }
   auto entryType = enumOr( line, "type", Bridging::EntryType::learnedDynamic );
   auto table = enumOr( line, "table", Qon::MacHwType::macHwKeyBridge );
   const auto key = MacEntryKey( { mac, vlan }, table );
   return [this, type = op.type, key, intf, entryType] {
      if ( !programmer_ ) {
         notServed( agent_, "MAC addresses" );
      }
      hand( *programmer_, Qon::indirectAccessMacCmdFactory( type, key, intf, entryType ) );
   };
}

void
MacFeature::hand( Qon::QonMacProgrammer & programmer, const MacCmdPtr & cmd ) {
   cmd->addrOp() ? programmer.handleAddrOp( cmd ) : programmer.handleFlushOp( cmd );
}

/** A command on its way. */
Row
MacFeature::row( const Qon::IndirectAccessMacCmd & cmd, const char * state ) const {
   Row row = cmd.addrOp() ? keyFields( cmd.key() ) : Row( {} );
   if ( !cmd.addrOp() && !cmd.key().key().vlan().isNone() ) {
      row.set( "vlan", U32( cmd.key().key().vlan().value() ) );
   }
   row.set( "interface", agent_.names().spelling( cmd.intf() ) );
   row.set( "type", Kiv::toText( cmd.entryType() ) );
   row.set( "operation", Kiv::toText( cmd.type() ) );
   row.set( "state", state );
   row.set( "transactionId", cmd.transactionId() );
   return row;
}

/** What is on its way, stage by stage, and what the chip holds without a change on its way. */
Rows
MacFeature::requested() const {
   if ( !programmer_ ) {
      notServed( agent_, "MAC addresses" );
   }
   const Qon::QonMacProgrammer & programmer = *programmer_;
   for ( auto & cmd : programmer.pendingMacOp() ) {
      if ( cmd->valid() ) {
         co_yield row( *cmd, "pending" );
      }
   }
   for ( auto walk = programmer.inProgMacOpIteratorConst(); walk; ++walk ) {
      if ( walk.value()->valid() ) {
         co_yield row( *walk.value(), "in flight" );
      }
   }
   for ( auto && [key, cmd] : programmer.overflowAddrOp() ) {
      Row waits = row( *cmd, "overflow" );
      const Kiv::Seconds left = programmer_->updateOverflowAddressClock()->time() - Kiv::now();
      waits.set( "nextRetry", std::round( left * 1000 ) / 1000 );
      co_yield waits;
   }
   const auto hosts = part_->hosts().value_or( QonChip::HeldHosts() );
   for ( auto & [key, host] : hosts ) {
      const bool onItsWay = programmer.pendingAddrOpHas( key ) ||
                            programmer.inProgAddrOpHas( key ) ||
                            programmer.overflowAddrOpHas( key );
      if ( !onItsWay ) {
         Row held = row( key, host );
         held.set( "state", "programmed" );
         co_yield held;
      }
   }
}

/** An entry that the chip holds. */
Row
MacFeature::row( const MacEntryKey & key, const QonChip::HeldHost & host ) const {
   Row row = keyFields( key );
   row.set( "interface", agent_.names().spelling( host.intf ) );
   row.set( "type", Kiv::toText( host.entryType ) );
   return row;
}

Rows
MacFeature::hardware() const {
   const auto hosts = part_ ? part_->hosts() : std::nullopt;
   if ( !hosts ) {
      notServed( agent_, "the reading of MAC addresses" );
   }
   for ( auto & [key, host] : *hosts ) {
      Row held = row( key, host );
      held.set( "place", host.place );
      co_yield held;
   }
}

std::vector< ShowCommand >
MacFeature::showCommands() {
   Column mac = { "mac", "MAC address" }, vlan = { "vlan", "VLAN", true },
          intf = { "interface", "Interface" }, type = { "type", "Type" };
   return { { "mac",
              "MAC entries: what was asked for, and how far it is",
              {},
              { mac,
                vlan,
                intf,
                type,
                { "operation", "Operation" },
                { "state", "State" },
                { "nextRetry", "Retry in s", true } },
              [this]( auto & ) { return requested(); } },
            { "hw mac",
              "MAC entries that the chip holds",
              {},
              { mac, vlan, intf, type, { "place", "Place" } },
              [this]( auto & ) { return hardware(); } } };
}

std::vector< EventKind >
MacFeature::eventKinds() {
   return { { "mac",
              R"({"time": 1, "event": "mac", "op": "add", "mac": "00:1c:73:00:00:01", "vlan": 10,)"
              R"( "intf": "Ethernet0"})",
              [this]( const Json & line ) { return parse( line ); } } };
}

FeatureKind
macFeature() {
   return feature< MacFeature >( "mac" );
}

} // namespace QonAgent
