#include "agent/Show.h"

#include <algorithm>

#include "agent/Agent.h"
#include "platform/Kiv/Text.h"

namespace QonAgent {

using Velto::RangeError;

namespace {

/** The place of the argument behind a keyword; behind the last one for none. */
std::size_t
placeOf( const std::vector< Argument > & wanted, const String & keyword ) {
   std::size_t place = 0;
   while ( place < wanted.size() &&
           ( wanted[place].keyword.empty() || wanted[place].keyword != keyword ) ) {
      ++place;
   }
   return place;
}

Arguments
argumentsOf( const Agent & agent, const ShowCommand & command,
             const std::vector< String > & texts ) {
   const auto & wanted = command.arguments;
   const String name = "'show " + command.name + "'";
   std::vector< ArgumentValue > given( wanted.size() );
   std::size_t next = 0; // of those without a keyword
   for ( std::size_t i = 0; i < texts.size(); ++i ) {
      std::size_t place = placeOf( wanted, texts[i] );
      const bool named = place < wanted.size();
      if ( named && ++i == texts.size() ) {
         throw RangeError( name + ": " + wanted[place].name + " is missing behind '" +
                           wanted[place].keyword + "'" );
      }
      place = named ? place : next++;
      if ( place >= wanted.size() || ( !named && !wanted[place].keyword.empty() ) ) {
         throw RangeError( wanted.empty() ? name + " takes no argument"
                                          : name + " takes " + argumentHelp( command ) +
                                                  ", and not '" + texts[i] + "'" );
      }
      if ( given[place].given ) {
         throw RangeError( name + " takes one " + wanted[place].name + ", and not '" + texts[i] +
                           "' too" );
      }
      given[place] = argumentValue( agent, wanted[place], texts[i] );
   }
   for ( std::size_t place = 0; place < wanted.size(); ++place ) {
      if ( wanted[place].required && !given[place].given ) {
         throw RangeError( name + " needs " + wanted[place].name );
      }
   }
   return Arguments( std::move( given ) );
}

} // namespace

ArgumentValue
argumentValue( const Agent & agent, const Argument & argument, const String & text ) {
   ArgumentValue value;
   value.given = true;
   value.text = text;
   switch ( argument.kind ) {
   case Argument::Kind::intf:
      value.intf = agent.names().typed( text );
      break;
   case Argument::Kind::vlan:
      try {
         value.vlan = Bridging::VlanId( text );
      } catch ( const RangeError & ) {
         Kiv::textRefused( "a VLAN from 1 to 4094", text );
      }
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

void
Row::set( const char * field, Value value ) {
   fields_.emplace_back( field, std::move( value ) );
}

const ArgumentValue &
Arguments::at( std::size_t place ) const {
   static const ArgumentValue none;
   return place < given_.size() ? given_[place] : none;
}

String
argumentHelp( const ShowCommand & command ) {
   String help;
   for ( auto & argument : command.arguments ) {
      help += help.empty() ? "" : " ";
      const String words =
            ( argument.keyword.empty() ? "" : argument.keyword + " " ) + argument.name;
      help += argument.required ? words : "[" + words + "]";
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

Rows
runShow( const Agent & agent, const ShowCommand & command, const std::vector< String > & words ) {
   const auto length = long( Kiv::split( command.name, ' ' ).size() );
   return command.rows( argumentsOf( agent, command, { words.begin() + length, words.end() } ) );
}

} // namespace QonAgent
