// What the console shows of tap aggregation.

#include <set>

#include "agent/features/Arguments.h"
#include "agent/features/TapAggJournal.h"
#include "agent/softchip/TapAggPart.h"

namespace QonAgent {

using Ulnet::IntfId;

namespace {

const char *
text( Qon::TapAggReason reason ) {
   switch ( reason ) {
   case Qon::TapAggReason::none:
      return "";
   case Qon::TapAggReason::mode:
      return "the switch is not in tap-aggregation mode";
   case Qon::TapAggReason::lagMember:
      return "a member of a port-channel";
   case Qon::TapAggReason::noGroups:
      return "it has no group";
   case Qon::TapAggReason::pending:
      return "the chip has no group for it";
   case Qon::TapAggReason::inactive:
      return "the port cannot take frames";
   }
   return "";
}

} // namespace

void
TapAggFeature::served() const {
   if ( !sm_ ) {
      notServed( agent_, "tap aggregation" );
   }
}

/** Groups by name, then tap ports, then tool ports. */
Rows
TapAggFeature::all() const {
   served();
   std::set< String > names;
   for ( auto && [id, info] : sm_->allocatedGroupInfoIteratorConst() ) {
      names.insert( info->groupOwner() );
   }
   for ( auto && [name, pending] : sm_->pendingAggGroupIteratorConst() ) {
      names.insert( name );
   }
   for ( const String & name : names ) {
      if ( sm_->groupIdOf( name ) || sm_->pendingAggGroupHas( name ) ) {
         co_yield groupRow( name );
      }
   }
   for ( auto & [intf, config] : inOrder( config_->tapPortIteratorConst() ) ) {
      if ( auto sm = sm_->tapSm( intf ) ) {
         co_yield portRow( *sm );
      }
   }
   for ( auto & [intf, config] : inOrder( config_->toolPortIteratorConst() ) ) {
      if ( auto sm = sm_->toolSm( intf ) ) {
         co_yield portRow( *sm );
      }
   }
}

Value::List
TapAggFeature::wantedBy( const String & name ) const {
   Value::List by;
   auto users = sm_->users().users( name );
   if ( !users ) {
      return by;
   }
   for ( auto && tap : users->taps ) {
      by.push_back( "tap " + agent_.names().spelling( tap.key ) );
   }
   for ( auto && tool : users->tools ) {
      by.push_back( "tool " + agent_.names().spelling( tool.key ) );
   }
   for ( auto && entry : users->classes ) {
      by.push_back( "class " + entry.key.policyMap() + "|" + entry.key.classMap() );
   }
   if ( users->pmapGroup ) {
      by.push_back( "policy maps" );
   }
   return by;
}

Row
TapAggFeature::groupRow( const String & name ) const {
   const U32 id = sm_->groupIdOf( name );
   Row row = { { "what", "group" }, { "name", name } };
   if ( id ) {
      row.set( "id", id );
   }
   row.set( "wanted", wantedBy( name ) );
   row.set( "state", !id ? "pending" : sm_->groupInUse( name ) ? "programmed" : "unused" );
   row.set( "since", Kiv::now() - sm_->time( name ) );
   row.set( "why", id ? "" : "the chip has no group for it" );
   return row;
}

Row
TapAggFeature::portRow( const Qon::TapAggIntfSm & sm ) const {
   Row row = { { "what", Kiv::toText( sm.role() ) },
               { "name", agent_.names().spelling( sm.intf() ) } };
   if ( sm.hw().group() && sm.role() == Qon::TapAggRole::tap ) {
      row.set( "id", sm.hw().group() );
   }
   Value::List wanted;
   if ( auto tap = config_->tapPort( sm.intf() ); tap && sm.role() == Qon::TapAggRole::tap ) {
      wanted.assign( tap->groups().begin(), tap->groups().end() );
   }
   if ( auto tool = config_->toolPort( sm.intf() ); tool && sm.role() == Qon::TapAggRole::tool ) {
      for ( auto && [group, none] : tool->groupIteratorConst() ) {
         wanted.push_back( group );
      }
   }
   row.set( "wanted", wanted );
   row.set( "state", sm.hw().initialized() ? "programmed" : "waiting" );
   const Kiv::Seconds time = sm_->time( sm );
   row.set( "since", time ? Kiv::now() - time : 0.0 );
   row.set( "why", text( sm.reason() ) );
   return row;
}

// --- What the chip holds -------------------------------------------------------------------------

Rows
TapAggFeature::hardware() const {
   served();
   const auto held = part_->tapAgg();
   if ( !held ) {
      throw Velto::RangeError( "the chip cannot be read back" );
   }
   for ( auto & [id, name] : held->groups ) {
      const Row made = {
            { "what", "group" }, { "name", name }, { "groups", Value::List{ Kiv::toText( id ) } } };
      co_yield made;
   }
   for ( auto & [intf, tap] : held->taps ) {
      Value::List groups;
      if ( tap.group ) {
         groups.push_back( Kiv::toText( tap.group ) );
      }
      const Row made = {
            { "what", "tap" }, { "name", agent_.names().spelling( intf ) }, { "groups", groups } };
      co_yield made;
   }
   for ( auto & [intf, tool] : held->tools ) {
      Value::List groups, members;
      for ( auto & [id, ports] : tool.groups ) {
         groups.push_back( Kiv::toText( id ) );
         for ( IntfId port : ports ) {
            members.push_back( Kiv::toText( id ) + ":" + agent_.names().spelling( port ) );
         }
      }
      const Row made = { { "what", "tool" },
                         { "name", agent_.names().spelling( intf ) },
                         { "groups", groups },
                         { "members", members } };
      co_yield made;
   }
}

/** Where a frame would leave that enters the tap port. */
Rows
TapAggFeature::ways( Arguments arguments ) const {
   served();
   auto soft = dynamic_cast< SoftChip::TapAggPart * >( part_ );
   if ( !soft ) {
      throw Velto::RangeError( "the chip cannot say how frames go" );
   }
   for ( auto & way : soft->table().ways( arguments.intf( 0 ) ) ) {
      Value::List ports;
      for ( IntfId port : way.ports ) {
         ports.push_back( agent_.names().spelling( port ) );
      }
      const Row made = { { "tool", agent_.names().spelling( way.tool ) },
                         { "ports", ports },
                         { "changes", way.changes } };
      co_yield made;
   }
}

std::vector< ShowCommand >
TapAggFeature::showCommands() {
   const Column what = { "what", "What" }, name = { "name", "Name" };
   Argument port = intfArgument( "PORT", "tap port",
                                 [this]( IntfId intf ) { return config_->tapPortHas( intf ); } );
   port.required = true;
   return { { "tap-agg",
              "tap aggregation: groups and who wants them, tap ports, tool ports",
              {},
              { what,
                name,
                { "id", "Group", true },
                { "wanted", "Wanted" },
                { "state", "State" },
                { "since", "Since s", true },
                { "why", "Why not" } },
              [this]( auto & ) { return all(); } },
            { "hw tap-agg",
              "groups, tap ports and tool ports that the chip holds",
              {},
              { what, name, { "groups", "Groups" }, { "members", "Members" } },
              [this]( auto & ) { return hardware(); } },
            { "hw tap-agg path",
              "where frames of a tap port leave, and how they are changed",
              { port },
              { { "tool", "Tool" }, { "ports", "By" }, { "changes", "Changes" } },
              [this]( auto & arguments ) { return ways( arguments ); } } };
}

} // namespace QonAgent
