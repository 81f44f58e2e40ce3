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
   return line.contains( field ) ? Kiv::fromText< E >( fieldOf< String >( line, field ) )
                                 : otherwise;
}

Json
keyFields( const MacEntryKey & key ) {
   return { { "mac", key.key().mac().stringValue() },
            { "vlan", key.key().vlan().value() },
            { "table", Kiv::toText( key.macHwType() ) } };
}

} // namespace

void
MacFeature::create( Agent & agent ) {
   agent_ = &agent;
   programmer_ = SoftChip::SoftMacProgrammerIs( agent.timerWheel(), shape_, agent.faults() );
   programmer_->initializedIs( true );
}

void
MacFeature::destroy() {
   programmer_ = nullptr;
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
      intf = agent_->names().typed( fieldOf< String >( line, "intf" ) );
   }
   auto entryType = enumOr( line, "type", Bridging::EntryType::learnedDynamic );
   auto table = enumOr( line, "table", Qon::MacHwType::macHwKeyBridge );
   return [=, type = op.type, self = const_cast< MacFeature * >( this )] {
      self->hand( Qon::indirectAccessMacCmdFactory( type, MacEntryKey( { mac, vlan }, table ), intf,
                                                    entryType ) );
   };
}

void
MacFeature::hand( const MacCmdPtr & cmd ) {
   cmd->addrOp() ? programmer_->handleAddrOp( cmd ) : programmer_->handleFlushOp( cmd );
}

/** A command on its way. */
Json
MacFeature::row( const Qon::IndirectAccessMacCmd & cmd, const char * state ) const {
   Json row = cmd.addrOp() ? keyFields( cmd.key() ) : Json::object();
   if ( !cmd.addrOp() && !cmd.key().key().vlan().isNone() ) {
      row["vlan"] = cmd.key().key().vlan().value();
   }
   row["interface"] = agent_->names().spelling( cmd.intf() );
   row["type"] = Kiv::toText( cmd.entryType() );
   row["operation"] = Kiv::toText( cmd.type() );
   row["state"] = state;
   row["transactionId"] = cmd.transactionId();
   return row;
}

/** What is on its way, stage by stage, and what the chip holds without a change on its way. */
Json
MacFeature::requested() const {
   Json rows = Json::array();
   for ( auto & cmd : programmer_->pendingMacOp() ) {
      if ( cmd->valid() ) {
         rows.push_back( row( *cmd, "pending" ) );
      }
   }
   for ( auto walk = programmer_->inProgMacOpIteratorConst(); walk; ++walk ) {
      if ( walk.value()->valid() ) {
         rows.push_back( row( *walk.value(), "in flight" ) );
      }
   }
   for ( auto && [key, cmd] : programmer_->overflowAddrOp() ) {
      rows.push_back( row( *cmd, "overflow" ) );
      Kiv::Seconds left = programmer_->updateOverflowAddressClock()->time() - Kiv::now();
      rows.back()["nextRetry"] = std::round( left * 1000 ) / 1000;
   }
   for ( auto && [key, entry] : programmer_->table().entries() ) {
      bool onItsWay = programmer_->pendingAddrOpHas( key ) || programmer_->inProgAddrOpHas( key ) ||
                      programmer_->overflowAddrOpHas( key );
      if ( !onItsWay ) {
         rows.push_back( hardwareRow( key, entry ) );
         rows.back()["state"] = "programmed";
      }
   }
   return rows;
}

Json
MacFeature::hardwareRow( const MacEntryKey & key, const SoftChip::HostEntry & entry ) const {
   Json row = keyFields( key );
   row["interface"] = agent_->names().spelling( entry.intf );
   row["type"] = Kiv::toText( entry.entryType );
   row["operation"] = Kiv::toText( entry.multicast ? Type::addMcastHost : Type::addHost );
   row["bucket"] = programmer_->table().bucketOf( key );
   row["index"] = entry.index;
   return row;
}

Json
MacFeature::hardware() const {
   Json rows = Json::array();
   for ( auto && [key, entry] : programmer_->table().entries() ) {
      rows.push_back( hardwareRow( key, entry ) );
   }
   return rows;
}

std::vector< ShowCommand >
MacFeature::showCommands() {
   auto none = []( const std::vector< String > & arguments ) {
      if ( !arguments.empty() ) {
         throw Velto::RangeError( "no arguments, not '" + arguments[0] + "'" );
      }
   };
   Column mac = { "mac", "MAC address" }, vlan = { "vlan", "VLAN", true },
          intf = { "interface", "Interface" }, type = { "type", "Type" };
   return { { "mac",
              "MAC entries: what was asked for, and how far it is",
              "",
              { mac,
                vlan,
                intf,
                type,
                { "operation", "Operation" },
                { "state", "State" },
                { "nextRetry", "Retry in s", true } },
              [=, this]( const auto & arguments ) {
                 none( arguments );
                 return requested();
              } },
            { "hw mac",
              "MAC entries that the chip holds",
              "",
              { mac, vlan, intf, type, { "bucket", "Bucket", true }, { "index", "Index", true } },
              [=, this]( const auto & arguments ) {
                 none( arguments );
                 return hardware();
              } } };
}

std::vector< EventKind >
MacFeature::eventKinds() {
   return { { "mac",
              R"({"time": 1, "event": "mac", "op": "add", "mac": "00:1c:73:00:00:01", "vlan": 10,)"
              R"( "intf": "Ethernet0"})",
              [this]( const Json & line ) { return parse( line ); } } };
}

} // namespace QonAgent
