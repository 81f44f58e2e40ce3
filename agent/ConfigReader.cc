#include "agent/ConfigReader.h"

#include <algorithm>

#include "agent/Agent.h"
#include "agent/base/Json.h"
#include "platform/Kiv/Text.h"

namespace QonAgent {

namespace {

/** The tables whose keys are the names of the file. */
const char * const namingTables[] = { "PORT", "PORTCHANNEL" };

} // namespace

ConfigReader::ConfigReader( Agent & agent, const ConfigDb & db ) : agent_( agent ), db_( db ) {
   report_.warnings = db.warnings();
}

ConfigReport
ConfigReader::load() {
   std::vector< String > names;
   for ( const char * table : namingTables ) {
      for ( auto & row : db_.rows( table ) ) {
         names.push_back( row.key() );
      }
   }
   agent_.names().define( names );
   for ( ConfigStage stage : { ConfigStage::ports, ConfigStage::aggregates, ConfigStage::vlans,
                               ConfigStage::others } ) {
      for ( auto & feature : agent_.features() ) {
         if ( feature->configStage() == stage ) {
            feature->configure( *this );
         }
      }
   }
   nameTables();
   for ( auto & change : changes_ ) {
      change();
   }
   changes_.clear();
   return std::move( report_ );
}

void
ConfigReader::nameTables() {
   std::vector< String > known;
   for ( auto & feature : agent_.features() ) {
      for ( auto & table : feature->tables() ) {
         known.push_back( table.name );
      }
   }
   for ( auto & table : db_.tables() ) {
      if ( std::find( known.begin(), known.end(), table.name ) == known.end() ) {
         auto rows = U32( table.rows.size() );
         report_.notes.push_back( db_.file() + ": " + table.name + ": table not known, " +
                                  Kiv::toText( rows ) + ( rows == 1 ? " row" : " rows" ) +
                                  " skipped" );
      }
   }
}

void
ConfigReader::eachRow( const String & table,
                       const std::function< void( const ConfigRow & ) > & check ) {
   for ( auto & row : db_.rows( table ) ) {
      report_.rows += this->check( row, [&] { check( row ); } ) ? 1 : 0;
   }
}

bool
ConfigReader::check( const ConfigRow & row, const std::function< void() > & use ) {
   try {
      use();
      return true;
   } catch ( const RowError & e ) {
      report( row.place( e.field() ), String( e.what() ) + "; row skipped" );
   } catch ( const Velto::RangeError & e ) {
      report( row.place(), String( e.what() ) + "; row skipped" );
   }
   return false;
}

void
ConfigReader::warn( const ConfigRow & row, const String & field, const String & what ) {
   report( row.place( field ), what );
}

void
ConfigReader::report( const String & place, const String & what ) {
   report_.warnings.push_back( db_.file() + ": " + place + ": " + what );
}

Ulnet::IntfId
ConfigReader::intf( const String & field, const String & name ) const {
   try {
      return agent_.names().intf( name );
   } catch ( const Velto::RangeError & e ) {
      throw RowError( field, e.what() );
   }
}

Bridging::VlanId
ConfigReader::vlan( const String & name ) const {
   Ulnet::IntfId id;
   try {
      id = intf( "", name );
   } catch ( const RowError & ) {
      if ( !name.starts_with( "Vlan" ) ) {
         throw;
      }
   }
   if ( !Ulnet::VlanIntfId::isVlanIntfId( id ) ) {
      throw RowError( "", "'" + name + "' is not the name of a VLAN, Vlan1 to Vlan4094" );
   }
   return Bridging::VlanId( Ulnet::VlanIntfId::vlanNum( id ) );
}

Ulnet::IntfId
ConfigReader::port( const String & field, const String & name ) const {
   Ulnet::IntfId id = intf( field, name );
   if ( !isPort( id ) ) {
      throw RowError( field, "'" + name + "' names no port of table PORT" );
   }
   return id;
}

Ulnet::IntfId
ConfigReader::portChannel( const String & field, const String & name ) const {
   Ulnet::IntfId id = intf( field, name );
   if ( !isPortChannel( id ) ) {
      throw RowError( field, "'" + name + "' names no port-channel of table PORTCHANNEL" );
   }
   return id;
}

Ulnet::IntfId
ConfigReader::portOrChannel( const String & field, const String & name ) const {
   Ulnet::IntfId id = intf( field, name );
   return Ulnet::PortChannelIntfId::isPortChannelIntfId( id ) ? portChannel( field, name )
                                                              : port( field, name );
}

} // namespace QonAgent
