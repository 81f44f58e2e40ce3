// What there is to show of access lists.

#include "Qon/include/framework/LagView.h"
#include "agent/features/AclReading.h"
#include "agent/features/Arguments.h"

namespace QonAgent {

using Acl::AclDirection;
using Acl::AclType;
using Ulnet::IntfId;

namespace {

String
shown( const Acl::IpFilter & filter ) {
   String text;
   auto add = [&]( const String & part ) { text += ( text.empty() ? "" : ", " ) + part; };
   auto range = [&]( const char * what, const Acl::PortRange & ports ) {
      if ( !ports.any() ) {
         add( what + ( " " + Kiv::toText( ports.first() ) ) +
              ( ports.first() == ports.last() ? "" : "-" + Kiv::toText( ports.last() ) ) );
      }
   };
   if ( filter.protocol() ) {
      add( "protocol " + Kiv::toText( *filter.protocol() ) );
   }
   if ( !filter.src().isNull() ) {
      add( "from " + filter.src().stringValue() );
   }
   if ( !filter.dst().isNull() ) {
      add( "to " + filter.dst().stringValue() );
   }
   range( "from port", filter.srcPort() );
   range( "to port", filter.dstPort() );
   if ( filter.tcpFlagsMask() ) {
      add( "TCP flags " + Kiv::toText( filter.tcpFlags() ) + "/" +
           Kiv::toText( filter.tcpFlagsMask() ) );
   }
   if ( filter.icmpType() ) {
      add( "ICMP type " + Kiv::toText( *filter.icmpType() ) );
   }
   if ( filter.icmpCode() ) {
      add( "ICMP code " + Kiv::toText( *filter.icmpCode() ) );
   }
   if ( filter.fragments() ) {
      add( "fragments" );
   }
   return text.empty() ? "anything" : text;
}

String
shown( const Acl::MacFilter & filter ) {
   String text;
   auto add = [&]( const char * what, const Ulnet::EthAddrWithMask & mac ) {
      if ( !mac.mask().isZero() ) {
         text += ( text.empty() ? "" : ", " ) + ( what + mac.addr().stringValue() );
         text += mac.mask().isBroadcast() ? "" : "/" + mac.mask().stringValue();
      }
   };
   add( "from ", filter.src() );
   add( "to ", filter.dst() );
   if ( filter.etherType() ) {
      text += ( text.empty() ? "" : ", " ) + ( "type " + Kiv::toText( *filter.etherType() ) );
   }
   return text.empty() ? "anything" : text;
}

} // namespace

/** Why the interface's list is not in force; empty if it is. */
String
AclFeature::waitsFor( AclType type, AclDirection direction, IntfId intf,
                      const String & name ) const {
   auto sm = aclSm_->aclConfigSm( type, name );
   const Qon::LagView lags( agent_.acsd() );
   const bool sub = Ulnet::SubIntfId::isSubIntfId( intf );
   if ( !sm ) {
      return "the list";
   }
   if ( const IntfId lag = lags.lagOf( sub ? Ulnet::SubIntfId::parent( intf ) : intf ) ) {
      return "the end of its membership in " + agent_.names().spelling( lag );
   }
   if ( sm->refused( { intf, IntfId() }, direction ) ) {
      return "the sharing mode";
   }
   if ( sub && !aclSm_->shared( type, direction, Acl::SharingKind::subIntf ) &&
        aclSm_->subIntfVlan( intf ).isNone() ) {
      return "a VLAN";
   }
   if ( Ulnet::PortChannelIntfId::isPortChannelIntfId( intf ) && lags.membersOf( intf ).empty() ) {
      return "a member";
   }
   return aclSm_->managed( intf ) ? "" : "the port to be managed";
}

/** What the pass that works on the instance waits for. */
String
AclFeature::passWaitsFor( const Qon::AclDataSm & instance ) const {
   String intfs;
   for ( auto && entry : instance.intfs() ) {
      auto sm = aclSm_->aclIntfSm( entry.key );
      if ( sm && !sm->answered() ) {
         intfs += ( intfs.empty() ? "" : " " ) + agent_.names().spelling( entry.key );
      }
   }
   const U32 operations = aclSm_->outstandingOperations();
   return aclSm_->phase() == Qon::AclApplyPhase::uninstall && !intfs.empty()
                ? "the block of " + intfs
          : operations ? "the chip: " + Kiv::toText( aclSm_->phase() ) + ", " +
                               Kiv::toText( operations ) + " answers"
                       : "the chip: " + Kiv::toText( aclSm_->phase() );
}

/** What is in force of an instance, and which units refuse what since when. */
String
AclFeature::programmed( const Qon::AclDataSm & instance ) const {
   String text = !instance.failed()          ? ( instance.committedRules() ? "yes" : "no" )
                 : instance.committedRules() ? "former rules"
                                             : "no";
   for ( auto && [unit, error] : instance.status()->unitErrorIteratorConst() ) {
      if ( error != Qon::AclCreateError::success ) {
         const String why = Qon::aclErrorText( error, unit, instance.aclName() );
         text += "; " + ( unit.empty() ? "all chips" : unit ) + ": " +
                 ( why.empty() ? "error " + Kiv::toText( U32( error ) ) : why ) + ", for " +
                 Kiv::toText( U64( Kiv::now() - instance.statusSm()->since( unit ) ) ) + " s";
      }
   }
   return text;
}

/** An interface that has a list, and what became of that. */
Row
AclFeature::row( AclType type, AclDirection direction, IntfId intf, const String & name ) const {
   Row r = { { "type", Kiv::toText( type ) },
             { "direction", Kiv::toText( direction ) },
             { "interface", agent_.names().spelling( intf ) },
             { "acl", name } };
   String waits = waitsFor( type, direction, intf, name ), active;
   auto sm = aclSm_->aclConfigSm( type, name );
   const Qon::AclDataSm * instance = nullptr;
   auto look = [&]( const Qon::IntfPairKey & pair ) {
      if ( auto key = sm->keyOf( pair, direction ) ) {
         instance = sm->aclDataSm( *key );
         active += ( active.empty() ? "" : " " ) + agent_.names().spelling( pair.intfId() );
      }
   };
   if ( sm && Ulnet::PortChannelIntfId::isPortChannelIntfId( intf ) ) {
      for ( IntfId member : Qon::LagView( agent_.acsd() ).membersOf( intf ) ) {
         look( { member, intf } );
      }
   } else if ( sm ) {
      look( { intf, IntfId() } );
   }
   r.set( "active", active );
   if ( instance ) {
      r.set( "instance", shownKey( instance->key() ) );
      if ( instance->data()->aclNumber() != Qon::aclNumberNone ) {
         r.set( "number", instance->data()->aclNumber() );
      }
      waits = !waits.empty()               ? waits
              : instance->waitsForNumber() ? "a free number"
              : instance->failed()         ? "other rules, interfaces or room"
              : instance->busy()           ? passWaitsFor( *instance )
              : instance->committedRules() ? ""
                                           : "the chip";
   }
   if ( instance ) {
      r.set( "programmed", programmed( *instance ) );
   }
   if ( instance && instance->failed() ) {
      r.set( "since", Kiv::now() - instance->failedSince() );
   }
   r.set( "out", aclSm_->blocked( intf ) ? "blocked" : aclSm_->errdisabled( intf ) ? "error" : "" );
   r.set( "waits", waits );
   return r;
}

Rows
AclFeature::lists( Arguments arguments ) const {
   if ( !aclSm_ ) {
      notServed( agent_, "access lists" );
   }
   for ( AclType type : Acl::aclTypes ) {
      for ( AclDirection direction : Acl::aclDirections ) {
         const auto byType = intfConfig_->type( type );
         const Velto::Ptr< const Acl::DirectionIntfConfig > intfs =
               byType ? byType->direction( direction ) : nullptr;
         if ( !intfs ) {
            continue;
         }
         for ( auto && [intf, name] : intfs->intfIteratorConst() ) {
            if ( !arguments.has( 0 ) || arguments.text( 0 ) == name ) {
               co_yield row( type, direction, intf, name );
            }
         }
      }
   }
}

/** One rule of a list, with the name that the configuration gives it. */
Row
AclFeature::ruleRow( AclType type, const String & list, const Qon::AclRule & rule ) const {
   const bool own = rule.origin == Qon::AclRule::Origin::configured;
   const bool fragment = rule.origin == Qon::AclRule::Origin::fragment;
   Row r = {
         { "type", Kiv::toText( type ) },
         { "origin", own        ? "configured"
                     : fragment ? "fragment"
                                : "implicit" },
         { "action", Kiv::toText( rule.rule.action() ) },
         { "matches", type == AclType::mac ? shown( rule.rule.mac() ) : shown( rule.rule.ip() ) },
         { "mirror", rule.rule.mirrorSession() } };
   auto names = ruleNames_.find( { type, list } );
   if ( own ) {
      r.set( "seq", rule.id );
   }
   if ( own && names != ruleNames_.end() && names->second.contains( rule.id ) ) {
      r.set( "rule", names->second.at( rule.id ) );
   }
   return r;
}

Rows
AclFeature::rules( Arguments arguments ) const {
   if ( !aclSm_ ) {
      notServed( agent_, "access lists" );
   }
   for ( AclType type : Acl::aclTypes ) {
      if ( auto sm = aclSm_->aclConfigSm( type, arguments.text( 0 ) ) ) {
         const auto rules = sm->ruleSet();
         for ( auto & rule : rules->rules() ) {
            co_yield ruleRow( type, arguments.text( 0 ), rule );
         }
      }
   }
}

std::vector< Counter >
AclFeature::counters() const {
   if ( !aclSm_ ) {
      return {};
   }
   U64 failing = 0;
   for ( auto & [unit, error] : aclSm_->unitErrors() ) {
      failing += error != Qon::AclCreateError::success;
   }
   return { { "operations not answered", aclSm_->outstandingOperations() },
            { "units that refuse something", failing },
            { "retries", aclSm_->retries() } };
}

std::vector< ShowCommand >
AclFeature::showCommands() {
   const Column type = { "type", "Type" }, direction = { "direction", "Direction" },
                acl = { "acl", "List" }, number = { "number", "Number", true },
                instance = { "instance", "Instance" };
   auto known = [this]( const ArgumentValue & value ) {
      for ( AclType t : Acl::aclTypes ) {
         if ( config_->type( t ) && config_->type( t )->aclHas( value.text ) ) {
            return true;
         }
      }
      return false;
   };
   Argument list;
   list.name = "LIST";
   list.what = "access list";
   list.known = known;
   Argument one = list;
   one.required = true;
   std::vector< ShowCommand > commands = {
         { "acl",
           "access lists: wanted on which interfaces, active on which, and what they wait for",
           { list },
           { type,
             direction,
             { "interface", "Wanted on" },
             acl,
             { "active", "Active on" },
             instance,
             number,
             { "programmed", "Programmed" },
             { "out", "Out of service" },
             { "waits", "Waits for" },
             { "since", "Since s", true } },
           [this]( auto & arguments ) { return lists( arguments ); } },
         { "acl rules",
           "the rules of an access list in the order in which they are asked",
           { one },
           { type,
             { "seq", "Seq", true },
             { "rule", "Rule" },
             { "origin", "Origin" },
             { "action", "Action" },
             { "matches", "Matches" },
             { "mirror", "Mirrored to" } },
           [this]( auto & arguments ) { return rules( arguments ); } } };
   for ( auto & command : hardwareCommands() ) {
      commands.push_back( command );
   }
   return commands;
}

} // namespace QonAgent
