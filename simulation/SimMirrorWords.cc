// What is said to the operator of mirror sessions, by what was seen of them before and after.

#include <algorithm>

#include "simulation/SimLag.h"
#include "simulation/SimMirror.h"
#include "simulation/World.h"

namespace Sim {

using Mirroring::Direction;
using Mirroring::TunnelType;
using Ulnet::IntfId;

namespace {

/** The word of `text` behind `words`, without a full stop. */
String
wordBehind( const String & text, const String & words ) {
   const auto begin = text.find( words );
   if ( begin == String::npos ) {
      return "";
   }
   String word = text.substr( begin + words.size() );
   word = word.substr( 0, word.find( ' ' ) );
   if ( word.ends_with( '.' ) ) {
      word.pop_back();
   }
   return word;
}

} // namespace

void
SimMirror::heard( const Kiv::LogDescriptor & message, const String & text ) {
   const String name = message.name;
   auto session = [&] { return wordBehind( text, " session " ); };
   auto source = [&]( Kept kept, const char * before ) {
      words_.now.push_back( { kept, { session(), IntfId( wordBehind( text, before ) ) } } );
      words_.flagged[session()] = config_->session( session() );
   };
   if ( name == "DATAPLANE_MIRROR_SESSION_RESOURCES_FULL" ) {
      words_.waits.push_back( session() );
   } else if ( name == "DATAPLANE_MIRROR_SOURCE_RESOURCES_FULL" ) {
      const auto & limits = table_.limits();
      misuseIf( wordBehind( text, "maximum of " ) != std::to_string( limits.biDirSources ) ||
                      wordBehind( text, " or " ) != std::to_string( limits.uniDirSources ),
                "limits in: " + text );
      source( Kept::overLimit, "add interface " );
   } else if ( name == "DATAPLANE_MIRROR_INVALID_SESSION_IN_CUT_THROUGH" ) {
      source( Kept::overlap, "mirror source " );
   } else if ( name == "DATAPLANE_MIRROR_SOURCE_RESOURCES_NORMAL" ) {
      misuseIf( words_.flagged.empty(), "all is well, and was" );
      words_.flagged.clear();
      words_.now.push_back( { Kept::in, {} } );
   } else if ( name == "DATAPLANE_MIRROR_INTERNAL_SESSION_RESOURCES_UNAVAILABLE" ) {
      const Where where = { wordBehind( text, "internal session " ),
                            IntfId( wordBehind( text, "destination interface " ) ) };
      misuseIf( !words_.refused.contains( where ), "nothing was refused: " + text );
      const SessionConfigPtr config = config_->session( where.name );
      auto & said = words_.refusalSaid[where];
      misuseIf( !words_.disturbed && !world_.feature< SimLag >() && config && said == config,
                "said again: " + text );
      said = config;
   } else if ( name == "MIRRORING_ACL_HW_RESOURCE_FULL" ) {
      ++words_.aclFull;
   }
}

const SimMirror::Told &
SimMirror::toldOf( const String & name ) const {
   static const Told nothing;
   auto told = told_.find( name );
   return told == told_.end() ? nothing : told->second;
}

bool
SimMirror::inHardware( const String & name ) const {
   const Told & told = toldOf( name );
   return told.left == TunnelType::none && ( told.tunnel || !told.targets.empty() );
}

/** What keeps a source out that is wanted, valid, and not refused. */
SimMirror::Kept
SimMirror::keptOut( const String & name, IntfId port, Direction direction ) const {
   const Told & told = toldOf( name );
   if ( fits( told.sources, port, direction, told.tunnel ) ) {
      return Kept::in;
   }
   bool rx = Mirroring::has( direction, Direction::rx ),
        tx = Mirroring::has( direction, Direction::tx );
   for ( auto & [other, what] : told.sources ) {
      rx = rx || Mirroring::has( what, Direction::rx );
      tx = tx || Mirroring::has( what, Direction::tx );
   }
   const bool cutThrough = mode_->forwardingMode() == Bridging::ForwardingMode::cutThrough;
   return cutThrough && !told.tunnel && rx && tx ? Kept::overlap : Kept::overLimit;
}

std::map< SimMirror::Where, SimMirror::Seen >
SimMirror::look() const {
   std::map< Where, Seen > sources;
   for ( auto && [name, config] : config_->sessionIteratorConst() ) {
      auto session = sm_->session( name );
      for ( IntfId port : session ? session->sourcePorts() : std::vector< IntfId >() ) {
         Seen & seen = sources[{ name, port }];
         seen.kept = Kept( session->srcIntfLocal( port )->overflowState() );
         seen.creations = toldOf( name ).creations;
         seen.by.push_back( config );
         for ( auto && [intf, source] : config->srcIntfIteratorConst() ) {
            if ( intf == port || world_.acsd->lagToPort( intf ).portHas( port ) ) {
               seen.by.push_back( source );
            }
         }
      }
   }
   return sources;
}

/** What was said since the last look is what has changed since. */
String
SimMirror::checkWords() const {
   auto sources = look();
   String wrong = checkWaiting();
   for ( auto check : { &SimMirror::checkKeptOut, &SimMirror::checkWell } ) {
      wrong = wrong.empty() ? ( this->*check )( sources ) : wrong;
   }
   wrong = wrong.empty() ? checkRefusals() : wrong;
   words_.sources = std::move( sources );
   words_.now.clear();
   words_.waits.clear();
   words_.aclRefused.clear();
   words_.refused.clear();
   words_.aclFull = words_.filtersRefused = 0;
   words_.disturbed = false;
   return wrong;
}

String
SimMirror::checkWaiting() const {
   auto & waiting = words_.waiting;
   for ( const String & name : words_.waits ) {
      const SessionConfigPtr config = config_->session( name );
      if ( config && waiting[name] == config && !words_.disturbed ) {
         return "said again: " + name + " waits for a group";
      }
      waiting[name] = config;
   }
   for ( auto && [name, config] : config_->sessionIteratorConst() ) {
      if ( world_.acsd->mirrorSessionNameToIdHas( name ) ||
           capability_->maxSupportedSessions() == 0 ) {
         waiting.erase( name );
      } else if ( waiting[name] != config ) {
         return "not said: " + name + " waits for a group";
      }
   }
   std::erase_if( waiting, [&]( auto & entry ) { return !config_->sessionHas( entry.first ); } );
   return "";
}

String
SimMirror::checkKeptOut( const std::map< Where, Seen > & sources ) const {
   const bool strict = !words_.disturbed && !world_.feature< SimLag >();
   static const Seen unseen;
   std::map< IntfId, Wanted > wanted; // of the session that is looked at
   const String * of = nullptr;
   for ( auto & [where, seen] : sources ) {
      auto what = [&where = where] { return where.name + ", source " + where.port.stringValue(); };
      if ( !of || *of != where.name ) {
         of = &where.name;
         wanted = inHardware( where.name ) ? wantedSources( *config_->session( where.name ) )
                                           : std::map< IntfId, Wanted >();
      }
      auto former = words_.sources.find( where );
      const Seen & before = former == words_.sources.end() ? unseen : former->second;
      U32 said = 0, last = 0;
      for ( auto & word : words_.now ) {
         if ( word.kept != Kept::in && word.where == where ) {
            ++said;
            last = U32( word.kept );
         }
      }
      const bool changes = seen.kept != before.kept;
      if ( seen.kept != Kept::in && changes && last != U32( seen.kept ) ) {
         return "not said: " + what() + " is kept out";
      }
      if ( strict && said > U32( changes ) && seen.kept != Kept::in && seen.by == before.by &&
           seen.creations == before.creations ) {
         return "said again: " + what() + " is kept out";
      }
      const Told & told = toldOf( where.name );
      auto source = wanted.find( where.port );
      const Kept expected = source == wanted.end() || told.sources.contains( where.port )
                                  ? Kept::in
                                  : keptOut( where.name, where.port, source->second.direction );
      if ( !told.refusedSources.contains( where.port ) && seen.kept != expected ) {
         return "kept out: " + what() + " is in state " + std::to_string( U32( seen.kept ) );
      }
   }
   return "";
}

/** That all is well is said when no source is kept out any more, for whom it was said. */
String
SimMirror::checkWell( const std::map< Where, Seen > & sources ) const {
   std::erase_if( words_.flagged, [&]( auto & entry ) {
      auto session = sm_->session( entry.first );
      // What was said of a session of the same name that has just gone is none of this one's.
      return !entry.second || config_->session( entry.first ) != entry.second || !session ||
             ( words_.disturbed && !session->resourceMessageLogged() );
   } );
   const bool well = std::all_of( sources.begin(), sources.end(),
                                  []( auto & entry ) { return entry.second.kept == Kept::in; } );
   for ( auto & [name, config] : words_.flagged ) {
      if ( well && inHardware( name ) ) {
         return "not said: all sources are in hardware, those of " + name + " too";
      }
   }
   const bool saidLast = !words_.now.empty() && words_.now.back().kept == Kept::in;
   return saidLast && !well && !words_.disturbed ? "well: too soon" : "";
}

/** What was refused for want of room: destinations of internal sessions, and filters. */
String
SimMirror::checkRefusals() const {
   for ( auto & where : words_.refused ) {
      const SessionConfigPtr config = config_->session( where.name );
      if ( config && config->internal() &&
           toldOf( where.name ).refusedTargets.contains( where.port ) &&
           words_.refusalSaid[where] != config && !words_.disturbed ) {
         return "not said: " + where.name + " has no room for " + where.port.stringValue();
      }
   }
   std::erase_if( words_.refusalSaid, [&]( auto & entry ) {
      auto config = config_->session( entry.first.name );
      return !config || config != entry.second ||
             !world_.acsd->mirrorSessionNameToIdHas( entry.first.name ) ||
             !wantedTargets( *config ).contains( entry.first.port );
   } );
   U32 fresh = 0;
   for ( auto & [where, taken] : words_.aclRefused ) {
      const SessionConfigPtr config = config_->session( where.name );
      auto session = sm_->session( where.name );
      auto local = session ? session->srcIntfLocal( where.port ) : nullptr;
      // Not spoken of: one that has gone for another reason when the chip's answer is heard.
      const bool stands = local && local->reason() == Qon::MirrorReason::aclResources;
      fresh += config && stands && !taken;
      if ( !taken ) {
         words_.aclKnown[where] = config;
      }
   }
   std::erase_if( words_.aclKnown, [&]( auto & entry ) {
      auto session = sm_->session( entry.first.name );
      auto local = session ? session->srcIntfLocal( entry.first.port ) : nullptr;
      return !local || local->wanted().aclName().empty() ||
             config_->session( entry.first.name ) != entry.second;
   } );
   if ( words_.disturbed ) {
      return "";
   }
   return words_.aclFull < fresh                   ? "not said: a filter has no room"
          : words_.aclFull > words_.filtersRefused ? "said again: a filter has no room"
                                                   : "";
}

/** The groups of the chip's sessions, of those that are configured, or of the others. */
std::map< String, U32 >
SimMirror::heldGroups( bool configured ) const {
   std::map< String, U32 > held;
   for ( auto & [name, session] : table_.sessions() ) {
      if ( config_->sessionHas( name ) == configured ) {
         held[name] = U32( session.group );
      }
   }
   return held;
}

} // namespace Sim
