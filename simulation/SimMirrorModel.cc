// What the chip shall hold of mirror sessions, from the configuration alone.

#include <algorithm>
#include <array>

#include "simulation/SimMirror.h"
#include "simulation/World.h"

namespace Sim {

using Mirroring::Direction;
using Mirroring::TunnelType;
using Ulnet::IntfId;

bool
SimMirror::valid( IntfId intf ) const {
   auto status = phy_->intfStatus( intf );
   return !status || status->active();
}

bool
SimMirror::isAggregate( IntfId intf ) const {
   return Ulnet::PortChannelIntfId::isPortChannelIntfId( intf );
}

std::vector< IntfId >
SimMirror::membersOf( IntfId lag ) const {
   std::vector< IntfId > members;
   for ( auto & [port, flags] : world_.acsd->lagToPort( lag ) ) {
      members.push_back( port );
   }
   return members;
}

std::set< IntfId >
SimMirror::wantedTargets( const Mirroring::SessionConfig & config ) const {
   std::set< IntfId > wanted;
   if ( config.tunnel().type() != TunnelType::none ) {
      return wanted;
   }
   for ( auto && [intf, none] : config.targetIntfIteratorConst() ) {
      if ( !isAggregate( intf ) && valid( intf ) && !world_.acsd->portToLagHas( intf ) ) {
         wanted.insert( intf );
      }
      for ( IntfId port : isAggregate( intf ) ? membersOf( intf ) : std::vector< IntfId >() ) {
         if ( valid( port ) ) {
            wanted.insert( port );
         }
      }
   }
   return wanted;
}

std::map< IntfId, SimMirror::Wanted >
SimMirror::wantedSources( const Mirroring::SessionConfig & config ) const {
   std::map< IntfId, Wanted > wanted;
   for ( bool aggregates : { false, true } ) { // these overrule what the members say
      for ( auto && [intf, source] : config.srcIntfIteratorConst() ) {
         if ( isAggregate( intf ) != aggregates ) {
            continue;
         }
         for ( IntfId port : aggregates ? membersOf( intf ) : std::vector< IntfId >{ intf } ) {
            wanted[port] = { source->direction(), source->aclName(), source->aclType(),
                             valid( port ) };
         }
      }
   }
   for ( auto && [intf, source] : config.srcVxlanIntfIteratorConst() ) {
      wanted[intf] = { source->vnis() ? Direction::rx : Direction::none, "", {}, true };
   }
   std::erase_if( wanted, [&]( auto & entry ) {
      const Wanted & source = entry.second;
      return source.direction == Direction::none || !source.valid ||
             ( !source.acl.empty() && !acl( source.aclType, source.acl ) );
   } );
   return wanted;
}

const Acl::AclConfig *
SimMirror::acl( Acl::AclType type, const String & acl ) const {
   auto lists = acls_->type( type );
   return lists ? lists->acl( acl ) : nullptr;
}

bool
SimMirror::tunnelReady( const Mirroring::SessionConfig & config ) const {
   const auto & info = config.tunnel();
   const bool drops = info.type() == TunnelType::gre && info.forwardDrop();
   return info.type() != TunnelType::none && hwStatus_->reconciled() &&
          ( drops || tunnels_->resolutionHas( { info.dst(), info.vrf() } ) );
}

/** Whether the sources, with one more, keep the limits of a session. */
bool
SimMirror::fits( const std::map< IntfId, Direction > & sources, IntfId port, Direction direction,
                 bool tunnel ) const {
   auto all = sources;
   if ( direction != Direction::none ) {
      all[port] = direction;
   }
   double both = 0, one = 0;
   bool rx = false, tx = false;
   for ( auto & [intf, what] : all ) {
      ( what == Direction::both ? both : one ) += 1;
      rx = rx || Mirroring::has( what, Direction::rx );
      tx = tx || Mirroring::has( what, Direction::tx );
   }
   const double mostBoth = table_.limits().biDirSources, mostOne = table_.limits().uniDirSources;
   const bool cutThrough = mode_->forwardingMode() == Bridging::ForwardingMode::cutThrough;
   return !( cutThrough && !tunnel && rx && tx ) && both <= mostBoth && one <= mostOne &&
          ( both == 0 || one == 0 || both / mostBoth + one / mostOne <= 1 + 1e-9 );
}

/** Lists here have no rules: a source that has one mirrors nothing. */
std::optional< std::vector< SimMirror::Copies > >
SimMirror::wantedInChip() const {
   if ( paused_ ) {
      return std::nullopt;
   }
   std::vector< Copies > all;
   for ( auto && [name, config] : config_->sessionIteratorConst() ) {
      if ( !world_.acsd->mirrorSessionNameToIdHas( name ) ) {
         continue;
      }
      const Told & told = toldOf( name );
      Copies copies;
      copies.name = name;
      copies.group = world_.acsd->mirrorSessionNameToId( name );
      copies.known = told.left == TunnelType::none && !told.refusedTunnel;
      copies.targets = wantedTargets( *config );
      std::erase_if( copies.targets, [&]( IntfId port ) { // a refused change leaves it there
         return told.refusedTargets.contains( port ) && !told.targets.contains( port );
      } );
      const auto & info = config->tunnel();
      const bool drops = info.type() == TunnelType::gre && info.forwardDrop();
      if ( tunnelReady( *config ) && !drops ) {
         const auto way = tunnels_->resolution( { info.dst(), info.vrf() } );
         copies.tunnel = way.intf();
         copies.tunnelVlan = way.vlan();
      }
      for ( auto & [port, source] : wantedSources( *config ) ) {
         if ( source.acl.empty() && told.sources.contains( port ) ) {
            copies.sources[port] = source.direction;
         }
      }
      all.push_back( copies );
   }
   return all;
}

// --- Checks --------------------------------------------------------------------------------------

String
SimMirror::checkStep() const {
   if ( paused_ ) {
      return {};
   }
   const String wrong = queue_.check();
   return wrong.empty() ? checkWords() : wrong;
}

String
SimMirror::checkInvariants() const {
   if ( paused_ ) {
      return {};
   }
   if ( String wrong = sm_->checkInvariants(); !wrong.empty() ) {
      return "own invariant: " + wrong;
   }
   if ( String wrong = checkGroups(); !wrong.empty() ) {
      return wrong;
   }
   for ( auto && [name, config] : config_->sessionIteratorConst() ) {
      if ( String wrong = checkSession( name ); !wrong.empty() ) {
         return wrong;
      }
   }
   return {};
}

/** Each group is free once, or one session's. */
String
SimMirror::checkGroups() const {
   auto & acsd = *world_.acsd;
   const U32 most = table_.sessionsAtMost();
   std::array< U32, 256 > uses{};
   bool waits = false;
   U32 free = 0;
   for ( U32 n = 0; n < uses.size() && free < acsd.freeMirrorSessions(); ++n ) {
      uses[n] = acsd.freeMirrorSessionHas( U8( n ) );
      free += uses[n];
   }
   for ( auto && [name, config] : config_->sessionIteratorConst() ) {
      if ( acsd.mirrorSessionNameToIdHas( name ) ) {
         ++uses[acsd.mirrorSessionNameToId( name )];
      } else {
         waits = waits || most > 0;
      }
   }
   for ( auto & [name, told] : told_ ) {
      if ( !config_->sessionHas( name ) && ( !told.targets.empty() || told.tunnel ) ) {
         return "stale session: " + name;
      }
   }
   for ( U32 group = 0; group < uses.size(); ++group ) {
      const U32 count = uses[group];
      const bool owned = capability_->agentFillsPool() ? count == 1 : count == ( group < most );
      if ( count > 1 || ( group < most && !owned && !capability_->agentFillsPool() ) ) {
         return "group: " + std::to_string( group ) + " is used " + std::to_string( count ) +
                " times";
      }
   }
   if ( free != acsd.freeMirrorSessions() ) {
      return "group: free twice";
   }
   return waits && free ? "group: free while a session waits" : "";
}

String
SimMirror::checkSession( const String & name ) const {
   const Told & told = toldOf( name );
   for ( auto check :
         { &SimMirror::checkDestinations, &SimMirror::checkSources, &SimMirror::checkStatus } ) {
      if ( String wrong = ( this->*check )( name, told ); !wrong.empty() ) {
         return wrong;
      }
   }
   return {};
}

String
SimMirror::checkDestinations( const String & name, const Told & told ) const {
   const auto & config = *config_->session( name );
   const bool hasGroup = world_.acsd->mirrorSessionNameToIdHas( name );
   const auto wanted = hasGroup ? wantedTargets( config ) : std::set< IntfId >();
   for ( IntfId port : told.targets ) {
      if ( !wanted.contains( port ) ) {
         return "destination: " + name + " still has " + port.stringValue();
      }
   }
   for ( IntfId port : wanted ) {
      if ( !told.targets.contains( port ) && !told.refusedTargets.contains( port ) ) {
         return "destination: " + name + " is without " + port.stringValue();
      }
   }
   const bool tunnel = hasGroup && tunnelReady( config );
   // Until the chip has reconciled, what is left stays, if it is still of the wanted kind.
   const bool untouched = hasGroup && !hwStatus_->reconciled() && told.left != TunnelType::none &&
                          told.left == config.tunnel().type();
   if ( told.tunnel && !tunnel && !untouched ) {
      return "tunnel: of " + name + " is still there";
   }
   if ( tunnel && !told.tunnel && !told.refusedTunnel ) {
      return "tunnel: of " + name + " is not there";
   }
   if ( ( told.tunnel || !told.targets.empty() ) &&
        told.group != S32( world_.acsd->mirrorSessionNameToId( name ) ) ) {
      return "group: of " + name + " is another one in the chip";
   }
   return {};
}

String
SimMirror::checkSources( const String & name, const Told & told ) const {
   if ( told.left != TunnelType::none ) {
      return {}; // they stay as they are, too
   }
   const bool there = told.tunnel || !told.targets.empty();
   const auto wanted =
         there ? wantedSources( *config_->session( name ) ) : std::map< IntfId, Wanted >();
   for ( auto & [port, direction] : told.sources ) {
      auto source = wanted.find( port );
      if ( source == wanted.end() || source->second.direction != direction ) {
         return "source: " + name + " still has " + port.stringValue() + " " +
                Kiv::toText( direction );
      }
      auto list = acl( source->second.aclType, source->second.acl );
      const auto & filter = told.filters.at( port );
      if ( filter.first != source->second.acl || filter.second != ( list ? list->version() : 0 ) ) {
         return "filter: " + name + " has an old one at " + port.stringValue();
      }
   }
   if ( !fits( told.sources, {}, Direction::none, told.tunnel ) ) {
      return "limit: " + name + " has too many sources";
   }
   for ( auto & [port, source] : wanted ) {
      if ( !told.sources.contains( port ) && !told.refusedSources.contains( port ) &&
           fits( told.sources, port, source.direction, told.tunnel ) ) {
         return "source: " + name + " is without " + port.stringValue();
      }
   }
   return {};
}

String
SimMirror::checkStatus( const String & name, const Told & told ) const {
   const auto & acsd = *world_.acsd;
   auto status = status_->session( name );
   if ( bool( status ) != ( table_.sessionsAtMost() > 0 ) ) {
      return "status: of " + name;
   }
   const bool left = told.left != TunnelType::none; // nothing is said of it
   const auto sources = left ? std::map< IntfId, Direction >() : told.sources;
   bool tx = false;
   for ( auto & [port, direction] : sources ) {
      tx = tx || Mirroring::has( direction, Direction::tx );
      if ( !status->programmedSrcHas( port ) || status->failedSrc( port ) ) {
         return "status: " + name + ", source " + port.stringValue();
      }
   }
   if ( acsd.mirrorSessionNameToEgressIdHas( name ) != tx ) {
      return "egress id: of " + name;
   }
   if ( status &&
        ( status->programmedSrcs() != sources.size() ||
          status->programmedDsts() != told.targets.size() ||
          status->createdInHw() != ( ( told.tunnel && !left ) || !told.targets.empty() ) ||
          acsd.mirrorSessionNameToIdHas( name ) != ( status->mirrorGroup() >= 0 ) ) ) {
      return "status: " + name + " differs";
   }
   return {};
}

/** The chip holds what it was told, and every filter that it keeps is applied; that one has no room
    is not heard in a pause, and of a tunnel that is left nothing is touched. */
String
SimMirror::checkAtRest() const {
   for ( auto & [name, session] : table_.sessions() ) {
      auto told = told_.find( name );
      if ( told == told_.end() || session.targets.size() != told->second.targets.size() ||
           session.sources.size() != told->second.sources.size() ) {
         return "chip: " + name + " differs";
      }
      for ( auto & [port, source] : session.sources ) {
         const bool unheard = ( paused_ || told->second.left != TunnelType::none ) &&
                              source.filter == SoftChip::MirrorTable::Source::Filter::full;
         if ( !source.mirrors() && !unheard ) {
            return "chip: the source " + port.stringValue() + " of " + name +
                   " waits for its filter";
         }
      }
   }
   return checkInvariants();
}

void
SimMirror::held( Holdings & held ) const {
   for ( auto & [name, session] : table_.sessions() ) {
      if ( paused_ ) {
         return; // it is not what is wanted
      }
      const String what = "mirror session " + name;
      held[what] = std::to_string( session.group );
      held[what + ", tunnel"] = session.tunnel.stringValue();
      for ( auto & [port, none] : session.targets ) {
         held[what + ", target " + port.stringValue()] = "there";
      }
      for ( auto & [port, source] : session.sources ) {
         held[what + ", source " + port.stringValue()] =
               std::to_string( U32( source.direction ) ) + ( source.mirrors() ? "" : " waits" );
      }
   }
}

} // namespace Sim
