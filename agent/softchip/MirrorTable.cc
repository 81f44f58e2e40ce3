#include "agent/softchip/MirrorTable.h"

namespace SoftChip {

using Mirroring::TunnelType;

/** The session, made if there is room for it. */
MirrorTable::Session *
MirrorTable::room( const String & name, S32 group ) {
   auto held = sessions_.find( name );
   if ( held != sessions_.end() ) {
      return held->second.group == group ? &held->second : nullptr;
   }
   if ( group < 0 || sessions_.size() >= sessionsAtMost() ) {
      return nullptr;
   }
   for ( auto & [other, session] : sessions_ ) {
      if ( session.group == group ) {
         return nullptr;
      }
   }
   auto & made = sessions_[name];
   made.group = group;
   return &made;
}

bool
MirrorTable::targetIs( const String & name, S32 group, IntfId port,
                       const Mirroring::SessionAttributes & attributes ) {
   if ( plan_.next( "createMirror" ) ) {
      return false;
   }
   auto session = room( name, group );
   if ( session ) {
      session->targets.try_emplace( port );
      session->attributes = attributes;
   }
   return session != nullptr;
}

void
MirrorTable::targetDel( const String & name, IntfId port ) {
   if ( auto held = sessions_.find( name ); held != sessions_.end() ) {
      held->second.targets.erase( port );
      goneIfEmpty( name );
   }
}

bool
MirrorTable::tunnelIs( const String & name, S32 group, const Mirroring::TunnelInfo & tunnel,
                       const Tunnel::Resolution & resolution,
                       const Mirroring::SessionAttributes & attributes ) {
   if ( plan_.next( "createMirrorTunnel" ) ) {
      return false;
   }
   auto session = room( name, group );
   if ( session ) {
      session->tunnel = tunnel;
      session->resolution = resolution;
      session->attributes = attributes;
   }
   return session != nullptr;
}

void
MirrorTable::tunnelDel( const String & name ) {
   if ( auto held = sessions_.find( name ); held != sessions_.end() ) {
      held->second.tunnel = {};
      goneIfEmpty( name );
   }
}

void
MirrorTable::goneIfEmpty( const String & name ) {
   auto & session = sessions_.at( name );
   if ( session.targets.empty() && session.tunnel.type() == TunnelType::none ) {
      sessions_.erase( name );
   }
}

bool
MirrorFilter::takes( const AclPacket & packet ) const {
   for ( auto & rule : concerns( type, packet ) ? rules : std::vector< Acl::Rule >() ) {
      if ( matches( type, rule, packet ) ) {
         return rule.action() == Acl::RuleAction::permit;
      }
   }
   return false;
}

bool
MirrorTable::sourceIs( const String & name, IntfId port, Direction direction,
                       std::optional< MirrorFilter > filter ) {
   const bool filtered = filter.has_value();
   auto held = sessions_.find( name );
   if ( plan_.next( "addMirrorSource" ) || held == sessions_.end() ) {
      return false;
   }
   using Filter = Source::Filter;
   held->second.sources[port] = { direction, filtered ? Filter::onItsWay : Filter::none, ++serial_,
                                  std::move( filter ) };
   if ( filtered ) {
      completions_.add( [=, this, serial = serial_] { lookAtFilter( name, port, serial ); } );
   }
   return true;
}

void
MirrorTable::sourceDel( const String & name, IntfId port ) {
   if ( auto held = sessions_.find( name ); held != sessions_.end() ) {
      held->second.sources.erase( port );
   }
}

U32
MirrorTable::filtersApplied() const {
   U32 applied = 0;
   for ( auto & [name, session] : sessions_ ) {
      for ( auto & [port, source] : session.sources ) {
         applied += source.filter == Source::Filter::applied;
      }
   }
   return applied;
}

void
MirrorTable::lookAtFilter( const String & name, IntfId port, U64 serial ) {
   auto session = sessions_.find( name );
   if ( session == sessions_.end() ) {
      return;
   }
   auto source = session->second.sources.find( port );
   if ( source == session->second.sources.end() || source->second.serial != serial ) {
      return;
   }
   const bool fits = !plan_.next( "mirrorFilter" ) &&
                     filtersApplied() < plan_.limit( "mirrorFilters", limits_.filters );
   source->second.filter = fits ? Source::Filter::applied : Source::Filter::full;
   if ( auto hearer = hook.now() ) {
      hearer->filterDone( name, port, fits );
   }
}

} // namespace SoftChip
