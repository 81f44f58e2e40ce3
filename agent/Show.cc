#include "agent/Show.h"

#include <algorithm>

#include "agent/Agent.h"
#include "platform/Kiv/Text.h"

namespace QonAgent {

using Velto::RangeError;

namespace {

ArgumentValue
valueOf( const Agent & agent, const Argument & argument, const String & text ) {
   ArgumentValue value;
   value.text = text;
   switch ( argument.kind ) {
   case Argument::Kind::intf:
      value.intf = agent.names().typed( text );
      break;
   case Argument::Kind::vlan:
      value.vlan = Bridging::VlanId( text );
      break;
   case Argument::Kind::mac:
      value.mac = Ulnet::EthAddr( text );
      break;
   case Argument::Kind::text:
      break;
   }
   if ( argument.known && !argument.known( value ) ) {
      throw RangeError( "there is no " + argument.what + " '" + text + "'" );
   }
   return value;
}

Arguments
argumentsOf( const Agent & agent, const ShowCommand & command,
             const std::vector< String > & texts ) {
   const auto & wanted = command.arguments;
   const String name = "'show " + command.name + "'";
   if ( texts.size() > wanted.size() ) {
      throw RangeError( wanted.empty() ? name + " takes no argument"
                                       : name + " takes " + argumentHelp( command ) +
                                               ", and not '" + texts[wanted.size()] + "'" );
   }
   if ( texts.size() < wanted.size() && wanted[texts.size()].required ) {
      throw RangeError( name + " needs " + wanted[texts.size()].name );
   }
   std::vector< ArgumentValue > given;
   for ( std::size_t i = 0; i < texts.size(); ++i ) {
      given.push_back( valueOf( agent, wanted[i], texts[i] ) );
   }
   return Arguments( std::move( given ) );
}

} // namespace

void
Row::set( const char * field, Value value ) {
   fields_.emplace_back( field, std::move( value ) );
}

const ArgumentValue &
Arguments::at( std::size_t place ) const {
   static const ArgumentValue none;
   return has( place ) ? given_[place] : none;
}

String
argumentHelp( const ShowCommand & command ) {
   String help;
   for ( auto & argument : command.arguments ) {
      help += help.empty() ? "" : " ";
      help += argument.required ? argument.name : "[" + argument.name + "]";
   }
   return help;
}

const ShowCommand *
findShow( const std::vector< ShowCommand > & commands, const std::vector< String > & words ) {
   const ShowCommand * best = nullptr;
   std::size_t length = 0;
   for ( auto & command : commands ) {
      auto name = Kiv::split( command.name, ' ' );
      if ( name.size() > length && name.size() <= words.size() &&
           std::equal( name.begin(), name.end(), words.begin() ) ) {
         best = &command;
         length = name.size();
      }
   }
   return best;
}

void
runShow( const Agent & agent, const ShowCommand & command, const std::vector< String > & words,
         const RowSink & sink ) {
   const auto length = long( Kiv::split( command.name, ' ' ).size() );
   command.rows( argumentsOf( agent, command, { words.begin() + length, words.end() } ), sink );
}

} // namespace QonAgent
