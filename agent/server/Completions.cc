#include "agent/server/Completions.h"

#include <nlohmann/json.hpp>
#include <set>

#include "agent/Events.h"
#include "agent/features/FrameFields.h"
#include "platform/Flintlog/Listen.h"
#include "platform/Kiv/Log.h"
#include "platform/types/Paths.h"
#include "platform/types/Vlan.h"

namespace QonAgent {

namespace {

using Words = std::vector< String >;

/** Texts that begin as what was typed, in order. */
class Choice {
 public:
   explicit Choice( const String & typed ) : typed_( typed ) {}
   void add( const String & text ) {
      if ( found_.size() < mostCompletions && text.starts_with( typed_ ) ) {
         found_.insert( text );
      }
   }
   Words all() const { return { found_.begin(), found_.end() }; }
   const String & typed() const { return typed_; }

 private:
   const String typed_;
   std::set< String > found_;
};

bool
isKnown( const Agent & agent, const Argument & argument, const String & text ) {
   try {
      argumentValue( agent, argument, text );
      return true;
   } catch ( const Velto::RangeError & ) {
      return false;
   }
}

/** The VLANs that are configured. */
std::vector< String >
vlanNumbers( Agent & agent ) {
   std::vector< String > all;
   auto config =
         dynamic_cast< Bridging::Vlan::Config * >( agent.entities().mounted( Paths::vlanConfig ) );
   for ( auto i = config->vlanConfigIteratorConst(); i; ++i ) {
      all.push_back( i.key().stringValue() );
   }
   return all;
}

/** What an argument can be, as far as that can be told. */
void
addArgument( Agent & agent, const Argument & argument, Choice & choice ) {
   auto offer = [&]( const String & text ) {
      if ( text.starts_with( choice.typed() ) && isKnown( agent, argument, text ) ) {
         choice.add( text );
      }
   };
   switch ( argument.kind ) {
   case Argument::Kind::intf:
      for ( auto & name : agent.names().defined() ) {
         offer( name );
      }
      break;
   case Argument::Kind::vlan:
      for ( auto & number : vlanNumbers( agent ) ) {
         offer( number );
      }
      break;
   case Argument::Kind::mac:
   case Argument::Kind::text:
      break;
   }
}

/** Where a path's last piece begins: behind the last slash outside brackets. */
std::size_t
lastPiece( const String & path ) {
   std::size_t begin = 0;
   int depth = 0;
   for ( std::size_t i = 0; i < path.size(); ++i ) {
      depth += path[i] == '[' ? 1 : path[i] == ']' && depth ? -1 : 0;
      begin = !depth && path[i] == '/' ? i + 1 : begin;
   }
   return begin;
}

/** The attributes of an entity, or the keys of the one whose bracket is open. */
void
addAttributes( const Velto::Node & node, const String & before, Choice & choice ) {
   const String piece = choice.typed().substr( before.size() );
   const String open = piece.substr( 0, piece.find( '[' ) );
   for ( auto type = node.typeData(); type; type = type->base ) {
      for ( int i = 0; i < type->count; ++i ) {
         const Kiv::AttrDesc & attr = type->attrs[i];
         const bool leadsOn =
               attr.kind == Kiv::AttrKind::entities || attr.kind == Kiv::AttrKind::ownedEntity;
         const String name = before + attr.name;
         if ( open.size() == piece.size() || !attr.key ) {
            choice.add( name + ( attr.key ? "[" : leadsOn ? "/" : "" ) );
         } else if ( open == attr.name ) {
            attr.each( node, [&]( const void * key, const void * ) {
               choice.add( name + "[" + attr.key->toText( key ) + ( leadsOn ? "]/" : "]" ) );
            } );
         }
      }
   }
}

void
addPaths( Agent & agent, Choice & choice ) {
   const String & typed = choice.typed();
   for ( auto & mount : agent.entities().mounts() ) {
      if ( mount.path.size() >= typed.size() ) {
         choice.add( mount.path.substr( 0, mount.path.find( '/', typed.size() ) ) + "/" );
      }
   }
   const String before = typed.substr( 0, lastPiece( typed ) );
   try {
      String rest;
      auto & mount = agent.entities().mountOf( before.substr( 0, before.size() - 1 ), rest );
      if ( auto node = Kiv::GenericIf::find( *mount.entity, rest ) ) {
         addAttributes( *node, before, choice );
      }
   } catch ( const Velto::RangeError & ) {
      // Not yet in a mount, or wrong before its end.
   }
}

void
addShow( Agent & agent, const std::vector< ShowCommand > & shows, const Words & before,
         Choice & choice ) {
   for ( auto & command : shows ) {
      const auto name = Kiv::split( command.name, ' ' );
      if ( name.size() > before.size() &&
           std::equal( before.begin(), before.end(), name.begin() ) ) {
         choice.add( name[before.size()] );
      }
   }
   auto command = findShow( shows, before );
   if ( !command ) {
      return;
   }
   const std::size_t length = Kiv::split( command->name, ' ' ).size();
   for ( auto & argument : command->arguments ) {
      const bool named = !argument.keyword.empty();
      if ( named && before.size() > length && before.back() == argument.keyword ) {
         addArgument( agent, argument, choice );
         return;
      }
   }
   std::size_t place = before.size() - length;
   for ( auto & argument : command->arguments ) {
      if ( !argument.keyword.empty() ) {
         choice.add( argument.keyword );
      } else if ( place-- == 0 ) {
         argument.name == "PATH" ? addPaths( agent, choice )
                                 : addArgument( agent, argument, choice );
      }
   }
}

/** The kinds of events, then the fields of the one that was chosen. */
void
addEvent( Agent & agent, const Words & before, Choice & choice ) {
   const Events events( agent );
   if ( before.empty() ) {
      for ( auto & [name, kind] : events.kinds() ) {
         choice.add( name );
      }
      return;
   }
   auto kind = events.kinds().find( before[0] );
   const Json example = kind == events.kinds().end()
                              ? Json::object()
                              : Json::parse( kind->second.help, nullptr, false );
   for ( auto & [field, value] : example.items() ) {
      if ( field != "time" && field != "event" ) {
         choice.add( field + "=" );
      }
   }
}

/** A port, then fields of a frame. */
void
addFrame( Agent & agent, const Words & before, Choice & choice ) {
   if ( before.empty() ) {
      addArgument( agent, { Argument::Kind::intf, "PORT", "port", true, nullptr }, choice );
      return;
   }
   for ( auto & name : frameFieldNames() ) {
      choice.add( name + "=" );
   }
}

} // namespace

std::vector< String >
completions( Agent & agent, const std::vector< ShowCommand > & shows, const Words & words ) {
   if ( words.size() < 2 ) {
      return {};
   }
   Choice choice( words.back() );
   const String & command = words[0];
   const Words before( words.begin() + 1, words.end() - 1 );
   static const std::set< String > paths = { "get",   "insert", "delete",
                                             "watch", "dump",   "wait-until" };
   if ( command == "show" ) {
      addShow( agent, shows, before, choice );
   } else if ( command == "event" ) {
      addEvent( agent, before, choice );
   } else if ( command == "frame" ) {
      addFrame( agent, before, choice );
   } else if ( ( paths.contains( command ) && before.empty() ) ||
               ( command == "set" && before.size() % 2 == 0 ) ) {
      addPaths( agent, choice );
   } else if ( command == "raise" && before.empty() ) {
      for ( auto handle : Kiv::logHandles() ) {
         choice.add( handle->descriptor().name );
      }
   } else if ( command == "trace" && before.empty() ) {
      for ( auto & facility : Flintlog::facilities() ) {
         choice.add( facility );
      }
   }
   return choice.all();
}

} // namespace QonAgent
