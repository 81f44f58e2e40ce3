// What the console shows of mirror sessions.

#include "agent/features/Arguments.h"
#include "agent/features/MirrorFeature.h"
#include "agent/features/MirrorJournal.h"

namespace QonAgent {

using Ulnet::IntfId;

namespace {

const char *
text( Qon::MirrorReason reason ) {
   switch ( reason ) {
   case Qon::MirrorReason::none:
      return "";
   case Qon::MirrorReason::notWanted:
      return "nothing of it is mirrored";
   case Qon::MirrorReason::noDestination:
      return "the session is not in hardware";
   case Qon::MirrorReason::invalidIntf:
      return "the chip cannot use the interface";
   case Qon::MirrorReason::noAcl:
      return "its access list is not there";
   case Qon::MirrorReason::overLimit:
      return "over the limit of sources";
   case Qon::MirrorReason::overlap:
      return "both directions to one port in cut-through mode";
   case Qon::MirrorReason::refused:
      return "refused by the chip";
   case Qon::MirrorReason::aclResources:
      return "no room for its filter";
   case Qon::MirrorReason::lagMember:
      return "a member of a port-channel";
   }
   return "";
}

const char *
state( bool programmed, Qon::MirrorReason reason ) {
   switch ( programmed ? Qon::MirrorReason::none : reason ) {
   case Qon::MirrorReason::none:
      return "programmed";
   case Qon::MirrorReason::notWanted:
   case Qon::MirrorReason::noDestination:
   case Qon::MirrorReason::lagMember:
      return "waiting";
   case Qon::MirrorReason::overLimit:
   case Qon::MirrorReason::overlap:
      return "over limit";
   default:
      return "failed";
   }
}

} // namespace

void
MirrorFeature::served() const {
   if ( !sm_ ) {
      notServed( agent_, "mirror sessions" );
   }
}

/** Seconds ago; of the whole session if the part never changed. */
Value
MirrorFeature::since( const String & name, const String & what, IntfId port ) const {
   const Kiv::Seconds own = journal_->time( name, what, port );
   const Kiv::Seconds time = own ? own : journal_->time( name, "", {} );
   return Kiv::now() - time;
}

Rows
MirrorFeature::sessions( Arguments arguments ) const {
   served();
   sm_->updateCounters(); // whoever looks wants them as they are now
   for ( auto && [name, config] : config_->sessionIteratorConst() ) {
      if ( !arguments.has( 0 ) || arguments.text( 0 ) == name ) {
         for ( auto & row : sessionRows( name ) ) {
            co_yield row;
         }
      }
   }
}

/** The session, then its destinations and its sources. */
std::vector< Row >
MirrorFeature::sessionRows( const String & name ) const {
   auto session = sm_->session( name );
   if ( !session ) {
      return { { { "session", name },
                 { "state", "waiting" },
                 { "why", sm_->initialized() ? "the chip has no mirror sessions"
                                             : "the agent is starting" } } };
   }
   std::vector< Row > rows = { sessionRow( name, *session ) };
   if ( session->tunnel() ) {
      rows.push_back( tunnelRow( *session ) );
   }
   for ( IntfId port : session->targetPorts() ) {
      rows.push_back( targetRow( *session, port ) );
   }
   for ( IntfId port : session->sourcePorts() ) {
      rows.push_back( sourceRow( *session, port ) );
   }
   return rows;
}

Row
MirrorFeature::sessionRow( const String & name, const Session & session ) const {
   Row row = { { "session", name } };
   if ( session.hasGroup() ) {
      row.set( "group", U32( session.mirrorGroup() ) );
   } else {
      row.set( "queue", sm_->placeInQueue( name ) );
   }
   row.set( "state", session.createdInHw() ? "programmed" : "waiting" );
   if ( !session.hasGroup() ) {
      row.set( "why", "place " + std::to_string( sm_->placeInQueue( name ) ) +
                            " of those that wait for a group" );
   } else if ( !session.createdInHw() ) {
      row.set( "why", "no destination is in hardware" );
   }
   row.set( "since", since( name, session.hasGroup() ? "createdInHw" : "", {} ) );
   return row;
}

Row
MirrorFeature::tunnelRow( const Session & session ) const {
   const auto & tunnel = *session.tunnel();
   Row row = { { "session", session.name() },
               { "role", "tunnel" },
               { "interface", session.config()->tunnel().dst().stringValue() },
               { "state", tunnel.failed()       ? "failed"
                          : tunnel.programmed() ? "programmed"
                                                : "waiting" } };
   if ( tunnel.failed() ) {
      row.set( "why", "refused by the chip" );
   } else if ( !tunnel.programmed() ) {
      row.set( "why", !session.hasGroup()        ? "no group"
                      : !hwStatus_->reconciled() ? "the chip is not reconciled"
                                                 : "the far end is not resolved" );
   } else {
      row.set( "by", agent_.names().spelling( tunnel.resolution().intf() ) );
   }
   row.set( "since", since( session.name(), "createdInHw", {} ) );
   return row;
}

Row
MirrorFeature::targetRow( const Session & session, IntfId port ) const {
   const auto & local = *session.dstIntfLocal( port );
   const bool group = session.hasGroup(), beside = session.tunnel() != nullptr;
   return { { "session", session.name() },
            { "role", "destination" },
            { "interface", agent_.names().spelling( port ) },
            { "state", group ? state( local.programmed(), local.reason() ) : "waiting" },
            { "why", !group   ? "no group"
                     : beside ? "the session has a tunnel"
                              : text( local.reason() ) },
            { "since", since( session.name(), "destination", port ) } };
}

Row
MirrorFeature::sourceRow( const Session & session, IntfId port ) const {
   const auto & local = *session.srcIntfLocal( port );
   const IntfId by = session.sourceOf( port );
   Row row = { { "session", session.name() },
               { "role", "source" },
               { "interface", agent_.names().spelling( port ) },
               { "by", by == port ? String() : agent_.names().spelling( by ) },
               { "direction", Kiv::toText( local.wanted().direction ) },
               { "acl", local.wanted().aclName() },
               { "aclInHw", local.aclAppliedInHw() },
               { "state", state( local.programmed(), local.reason() ) },
               { "why", text( local.reason() ) } };
   row.set( "since", since( session.name(), "source", port ) );
   return row;
}

Rows
MirrorFeature::hardware() const {
   const auto held = part_ ? part_->mirrors() : std::nullopt;
   if ( !held ) {
      notServed( agent_, "the reading of mirror sessions" );
   }
   for ( auto & [name, mirror] : *held ) {
      const Row whole = { { "session", name }, { "group", U32( mirror.group ) } };
      if ( mirror.tunnelType != Mirroring::TunnelType::none ) {
         Row row = whole;
         row.set( "role", "tunnel" );
         row.set( "interface", Kiv::toText( mirror.tunnelType ) );
         co_yield row;
      }
      for ( IntfId port : mirror.targets ) {
         Row row = whole;
         row.set( "role", "destination" );
         row.set( "interface", agent_.names().spelling( port ) );
         co_yield row;
      }
      for ( auto & [port, direction] : mirror.sources ) {
         Row row = whole;
         row.set( "role", "source" );
         row.set( "interface", agent_.names().spelling( port ) );
         row.set( "direction", Kiv::toText( direction ) );
         co_yield row;
      }
   }
}

std::vector< Counter >
MirrorFeature::counters() const {
   U64 waiting = 0;
   for ( auto i = config_->sessionIteratorConst(); sm_ && i; ++i ) {
      const auto session = sm_->session( i.key() );
      waiting += !session || !session->createdInHw();
   }
   return { { "sessions", config_->sessions() }, { "sessions that wait", waiting } };
}

std::vector< ShowCommand >
MirrorFeature::showCommands() {
   const Column session = { "session", "Session" }, group = { "group", "Group", true },
                role = { "role", "Role" }, intf = { "interface", "Interface" },
                direction = { "direction", "Direction" };
   const Argument only = {
         Argument::Kind::text, "SESSION", "mirror session", false,
         [this]( const ArgumentValue & value ) { return config_->sessionHas( value.text ); } };
   return { { "mirror",
              "mirror sessions: group or place in the queue, destinations and sources",
              { only },
              { session,
                group,
                role,
                intf,
                { "by", "By" },
                direction,
                { "acl", "Filter" },
                { "state", "State" },
                { "since", "Since s", true },
                { "why", "Why not" } },
              [this]( auto & arguments ) { return sessions( arguments ); } },
            { "hw mirror",
              "mirror sessions that the chip holds",
              {},
              { session, group, role, intf, direction },
              [this]( auto & ) { return hardware(); } } };
}

} // namespace QonAgent
