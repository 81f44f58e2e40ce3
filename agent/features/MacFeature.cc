#include "agent/features/MacFeature.h"

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

/** What of the entries is asked for. */
struct MacFeature::Filter {
   explicit Filter( const Arguments & arguments )
       : vlan( arguments.vlan( 0 ) ), intf( arguments.intf( 1 ) ) {}
   bool takes( const MacEntryKey & key, Ulnet::IntfId where ) const {
      return ( vlan.isNone() || key.key().vlan() == vlan ) && ( intf.isNull() || where == intf );
   }
   bool takes( const Qon::IndirectAccessMacCmd & cmd ) const {
      return takes( cmd.key(), cmd.intf() );
   }

   const Bridging::VlanIdOrNone vlan;
   const Ulnet::IntfId intf;
};

/** Follows the newest command of a key until the chip has answered it. */
class MacFeature::Handed : public Velto::Node {
 public:
   Handed( MacFeature & feature, const MacCmdPtr & cmd ) : feature_( feature ), cmd_( cmd.ptr() ) {
      hasNotificationActiveIs( true );
      watch_.attach( this, cmd_ );
   }
   void handleStatus() { feature_.handleAnswer( cmd_->key(), *cmd_ ); }

 private:
   MacFeature & feature_;
   const Qon::IndirectAccessMacCmd * const cmd_;
   Kiv::Watch< Qon::IndirectAccessMacCmd::statusAttr, Handed, &Handed::handleStatus > watch_;
};

MacFeature::MacFeature( Agent & agent )
    : agent_( agent ), part_( agent.chip().part< QonChip::MacPart >() ),
      programmer_( part_ ? part_->makeProgrammer() : nullptr ) {
   if ( programmer_ ) {
      programmer_->hasNotificationActiveIs( true );
      programmer_->initializedIs( true );
   }
}

std::function< void() >
MacFeature::parse( const Json & line ) {
   const Operation & op = operationOf( fieldOf< String >( line, "op" ) );
   Ulnet::EthAddr mac;
   Bridging::VlanIdOrNone vlan;
   Ulnet::IntfId intf;
   if ( op.mac ) {
      mac = Ulnet::EthAddr( fieldOf< String >( line, "mac" ) );
   }
   if ( op.vlan ) {
      vlan = vlanField( line );
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
      mustBeThere( agent_, intf );
      hand( Qon::indirectAccessMacCmdFactory( type, key, intf, entryType ) );
   };
}

MacFeature::~MacFeature() = default;

void
MacFeature::hand( const MacCmdPtr & cmd ) {
   if ( !cmd->addrOp() ) {
      withdraw( *cmd );
      programmer_->handleFlushOp( cmd );
      return;
   }
   refused_.erase( cmd->key() );
   handed_.erase( cmd->key() );
   handed_.emplace( cmd->key(), Velto::make< Handed >( *this, cmd ) );
   programmer_->handleAddrOp( cmd );
}

/** Of what the chip could not do now it is asked again; the rest is over. */
void
MacFeature::handleAnswer( const MacEntryKey & key, const Qon::IndirectAccessMacCmd & cmd ) {
   using Status = Qon::MacProgramStatus;
   if ( cmd.status() == Status::macProgramFailed && cmd.valid() ) {
      *refused_.emplace( key ).first = { &cmd, Kiv::now() };
   }
   if ( cmd.status() == Status::macProgramFailed || cmd.status() == Status::macProgramSuccess ) {
      const auto done = handed_.take( key );
   }
}

/** What is flushed is not wanted any more, whatever the chip said of it. */
void
MacFeature::withdraw( const Qon::IndirectAccessMacCmd & flush ) {
   const auto vlan = flush.key().key().vlan();
   for ( auto && [key, refused] : refused_ ) {
      if ( ( vlan.isNone() || key.key().vlan() == vlan ) &&
           ( flush.intf().isNull() || refused.cmd->intf() == flush.intf() ) ) {
         refused_.erase( key );
      }
   }
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
MacFeature::requested( Arguments arguments ) const {
   if ( !programmer_ ) {
      notServed( agent_, "MAC addresses" );
   }
   const Filter filter( arguments );
   const Qon::QonMacProgrammer & programmer = *programmer_;
   for ( auto walk = programmer.pendingMacOp().begin(); walk != nullptr; ++walk ) {
      if ( const MacCmdPtr cmd = *walk; cmd->valid() && filter.takes( *cmd ) ) {
         co_yield row( *cmd, "pending" );
      } else {
         co_yield Pause();
      }
   }
   for ( auto walk = programmer.inProgMacOpIteratorConst(); walk; ++walk ) {
      if ( const MacCmdPtr cmd = walk.value(); cmd->valid() && filter.takes( *cmd ) ) {
         co_yield row( *cmd, "in flight" );
      } else {
         co_yield Pause();
      }
   }
   for ( auto walk = programmer.overflowAddrOp().begin(); walk; ++walk ) {
      if ( const MacCmdPtr cmd = walk.value(); filter.takes( *cmd ) ) {
         Row waits = row( *cmd, "overflow" );
         waits.set( "reason", "no room in the chip's table" );
         waits.set( "nextRetry", programmer_->updateOverflowAddressClock()->time() - Kiv::now() );
         co_yield waits;
      } else {
         co_yield Pause();
      }
   }
   for ( auto walk = refused_.begin(); walk; ++walk ) {
      const auto cmd = walk.value().cmd;
      if ( filter.takes( *cmd ) ) {
         Row refused = row( *cmd, "refused" );
         refused.set( "reason", "refused by the chip" );
         refused.set( "since", Kiv::now() - walk.value().since );
         co_yield refused;
      }
   }
   const auto chip = part_->readHosts();
   MacEntryKey key;
   for ( QonChip::HeldHost host; chip && chip->next( key, host ); ) {
      const bool onItsWay = programmer.pendingAddrOpHas( key ) ||
                            programmer.inProgAddrOpHas( key ) ||
                            programmer.overflowAddrOpHas( key );
      if ( !onItsWay && filter.takes( key, host.intf ) ) {
         Row held = row( key, host );
         held.set( "state", "programmed" );
         co_yield held;
      } else {
         co_yield Pause();
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
MacFeature::hardware( Arguments arguments ) const {
   const auto chip = part_ ? part_->readHosts() : nullptr;
   if ( !chip ) {
      notServed( agent_, "the reading of MAC addresses" );
   }
   const Filter filter( arguments );
   MacEntryKey key;
   for ( QonChip::HeldHost host; chip->next( key, host ); ) {
      if ( filter.takes( key, host.intf ) ) {
         Row held = row( key, host );
         held.set( "place", host.place );
         co_yield held;
      } else {
         co_yield Pause();
      }
   }
}

std::vector< Counter >
MacFeature::counters() const {
   if ( !programmer_ ) {
      return {};
   }
   return { { "commands not answered", handed_.size() },
            { "commands in flight", programmer_->inProgAddrOps() },
            { "commands in overflow", programmer_->overflowAddrOp().size() },
            { "commands refused", refused_.size() },
            { "retries", programmer_->retries() } };
}

std::vector< ShowCommand >
MacFeature::showCommands() {
   Column mac = { "mac", "MAC address" }, vlan = { "vlan", "VLAN", true },
          intf = { "interface", "Interface" }, type = { "type", "Type" };
   const std::vector< Argument > filters = {
         { Argument::Kind::vlan, "VLAN", "VLAN", false, nullptr, "vlan" },
         { Argument::Kind::intf, "INTERFACE", "interface", false, nullptr, "interface" } };
   return { { "mac",
              "MAC entries: what was asked for, and how far it is",
              filters,
              { mac,
                vlan,
                intf,
                type,
                { "operation", "Operation" },
                { "state", "State" },
                { "reason", "Reason" },
                { "since", "Since s", true },
                { "nextRetry", "Retry in s", true } },
              [this]( auto & arguments ) { return requested( arguments ); } },
            { "hw mac",
              "MAC entries that the chip holds",
              filters,
              { mac, vlan, intf, type, { "place", "Place" } },
              [this]( auto & arguments ) { return hardware( arguments ); } } };
}

std::vector< EventKind >
MacFeature::eventKinds() {
   return { { "mac",
              R"({"time": 1, "event": "mac", "op": "add", "mac": "02:11:22:00:00:01", "vlan": 10,)"
              R"( "intf": "Ethernet0"})",
              [this]( const Json & line ) { return parse( line ); } } };
}

FeatureKind
macFeature() {
   return feature< MacFeature >( "mac" );
}

} // namespace QonAgent
