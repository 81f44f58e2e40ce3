// What there is to show of access lists in the chip, and what the chip does with a packet.

#include "agent/features/AclReading.h"
#include "agent/features/Arguments.h"
#include "agent/features/PacketFields.h"

namespace QonAgent {

using Acl::AclDirection;
using Ulnet::IntfId;

namespace {

const char *
shownVerdict( QonChip::AclVerdict verdict ) {
   switch ( verdict ) {
   case QonChip::AclVerdict::permit:
      return "permit";
   case QonChip::AclVerdict::deny:
      return "deny";
   case QonChip::AclVerdict::blocked:
      return "blocked";
   default:
      return "no list";
   }
}

Row
decisionRow( const QonChip::AclDecision & decision ) {
   Row r = { { "verdict", shownVerdict( decision.verdict ) } };
   if ( !decision.acl.aclName.empty() ) {
      r.set( "acl", decision.acl.aclName );
      r.set( "type", Kiv::toText( decision.acl.type ) );
      r.set( "instance", shownKey( decision.acl.key ) );
      r.set( "number", decision.acl.aclNumber );
      r.set( "rule", decision.rule.origin == Qon::AclRule::Origin::implicit
                           ? "implicit"
                           : Kiv::toText( decision.rule.id ) );
      r.set( "mirror", decision.rule.rule.mirrorSession() );
   }
   return r;
}

String
shownError( Qon::AclCreateError error, const String & unit, const String & list ) {
   const String text = Qon::aclErrorText( error, unit, list );
   return text.empty() ? "error " + Kiv::toText( U32( error ) ) : text;
}

} // namespace

String
shownKey( const Qon::AclKey & key ) {
   return key.vlan().isNone() ? key.group() : "VLAN " + key.vlan().stringValue();
}

/** One instance in the chip. */
Row
AclFeature::hardwareRow( const QonChip::HeldAcl & acl ) const {
   String intfs;
   for ( auto & use : acl.uses ) {
      intfs += ( intfs.empty() ? "" : " " ) + agent_.names().spelling( use.pair().intfId() );
      intfs += use.lagMember() ? "/" + agent_.names().spelling( use.lagMember() ) : "";
      intfs += use.host().isZero() ? "" : "/" + use.host().stringValue();
   }
   return { { "number", acl.number },
            { "type", Kiv::toText( acl.type ) },
            { "direction", Kiv::toText( acl.key.direction() ) },
            { "acl", acl.name },
            { "instance", shownKey( acl.key ) },
            { "rules", U32( acl.rules->rules().size() ) },
            { "state", acl.stale       ? "stale"
                       : acl.committed ? "in force"
                                       : "prepared" },
            { "interfaces", intfs } };
}

Rows
AclFeature::hardware( Arguments ) const {
   const auto held = part_ ? part_->acls() : std::nullopt;
   if ( !held ) {
      notServed( agent_, "the reading of access lists" );
   }
   for ( auto & acl : held->acls ) {
      co_yield hardwareRow( acl );
   }
}

/** Which rule of which instance decides on a packet. */
Rows
AclFeature::lookup( Arguments arguments ) const {
   const IntfId intf = arguments.intf( 0 );
   const auto direction = Kiv::fromText< AclDirection >( arguments.text( 1 ) );
   const auto packet = packetOf( arguments.has( 2 ) ? arguments.text( 2 ) : "" );
   const auto decision = part_ ? part_->lookup( intf, IntfId(), direction, packet ) : std::nullopt;
   if ( !decision ) {
      notServed( agent_, "questions about packets" );
   }
   co_yield decisionRow( *decision );
}

/** The lists that fail on a unit. */
String
AclFeature::failingOn( const String & unit ) const {
   String lists;
   for ( AclType type : Acl::aclTypes ) {
      auto typeSm = aclSm_->aclTypeConfigSm( type );
      if ( !typeSm ) {
         continue;
      }
      typeSm->forEachAcl( [&]( Qon::AclConfigSm & sm ) {
         bool fails = false;
         for ( auto && [key, instance] : sm.aclDataSmIteratorConst() ) {
            const bool here = instance->status()->unitErrorHas( unit ) && instance->failing();
            fails = fails || ( here && instance->status()->unitError( unit ) !=
                                             Qon::AclCreateError::success );
         }
         lists += fails ? ( lists.empty() ? "" : " " ) + sm.name() : "";
      } );
   }
   return lists;
}

/** The units of the chip, and those that lists fail on. */
Rows
AclFeature::resources( Arguments ) const {
   if ( !aclSm_ ) {
      notServed( agent_, "access lists" );
   }
   std::map< String, Row > rows;
   const auto units = part_->units();
   for ( auto & unit : units ) {
      rows.emplace( unit.name, Row{ { "unit", unit.name },
                                    { "used", unit.used },
                                    { "size", unit.size },
                                    { "state", unit.there ? "" : "not there" } } );
   }
   const auto errors = aclSm_->unitErrors();
   for ( auto & [unit, error] : errors ) {
      const Row fresh = { { "unit", unit.empty() ? "all chips" : unit } };
      Row & row = rows.emplace( unit, fresh ).first->second;
      row.set( "error", shownError( error, unit, "" ) );
      row.set( "code", U32( error ) );
      row.set( "since", Kiv::now() - aclSm_->unitErrorSince( unit ) );
      row.set( "lists", failingOn( unit ) );
   }
   for ( auto & [unit, row] : rows ) {
      co_yield row;
   }
}

std::vector< ShowCommand >
AclFeature::hardwareCommands() const {
   const Column type = { "type", "Type" }, direction = { "direction", "Direction" },
                acl = { "acl", "List" }, number = { "number", "Number", true },
                instance = { "instance", "Instance" };
   Argument intf = intfArgument( "INTF", "interface", []( IntfId ) { return true; } );
   intf.required = true;
   Argument way;
   way.name = "in|out";
   way.what = "direction";
   way.required = true;
   way.known = []( const ArgumentValue & v ) { return v.text == "in" || v.text == "out"; };
   Argument packet;
   packet.name = "FIELD=VALUE,...";
   packet.what = "packet";
   return {
         { "hw acl",
           "the instances of access lists in the chip",
           {},
           { number,
             type,
             direction,
             acl,
             instance,
             { "rules", "Rules", true },
             { "state", "State" },
             { "interfaces", "Interfaces" } },
           [this]( auto & arguments ) { return hardware( arguments ); } },
         { "hw acl lookup",
           "which rule of which instance decides on a packet, for example " + String( packetForm ),
           { intf, way, packet },
           { { "verdict", "Verdict" },
             acl,
             type,
             instance,
             number,
             { "rule", "Rule" },
             { "mirror", "Mirrored to" } },
           [this]( auto & arguments ) { return lookup( arguments ); } },
         { "resources acl",
           "the units: their room for rules, and which of them fail to program access lists",
           {},
           { { "unit", "Unit" },
             { "used", "Used", true },
             { "size", "Size", true },
             { "state", "State" },
             { "error", "Error" },
             { "code", "Code", true },
             { "since", "Since s", true },
             { "lists", "Lists" } },
           [this]( auto & arguments ) { return resources( arguments ); } } };
}

} // namespace QonAgent
