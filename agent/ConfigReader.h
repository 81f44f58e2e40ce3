#pragma once
// Loads a ConfigDB file into an agent: every feature checks, then everything is applied.
//
//    ConfigReader( agent, db ).load() -> feature->configure( reader ) ... -> queued functions run
//
//    void XFeature::configure( ConfigReader & reader ) {
//       reader.eachRow( "X_TABLE", [&]( const ConfigRow & row ) {
//          auto port = reader.port( "", row.part( 0, 2 ) );
//          U32 rate = U32( row.number( "rate", 1, 1000, 100 ) );
//          reader.apply( [=, this] { entity_->rateIs( port, rate ); } );
//       } );
//    }
//
// Invariants
// 1. Nothing is applied before every row of every table has been checked.
// 2. A row that is wrong costs one warning and that row; the function that checks it must queue
//    last.
// 3. A table that no feature knows is named once.

#include <functional>
#include <map>
#include <set>

#include "agent/configdb/ConfigDb.h"
#include "agent/configdb/IntfNames.h"
#include "platform/types/Bridging.h"

namespace QonAgent {

class Agent;

/** What the loading of a file had to say, in order; each the whole of a line. */
struct ConfigReport {
   std::vector< String > warnings; ///< "FILE: PLACE: what; row skipped"
   std::vector< String > notes;    ///< "FILE: TABLE: table not known, N rows skipped"
   U32 rows = 0;                   ///< of known tables, those that were used
};

class ConfigReader {
 public:
   ConfigReader( Agent & agent, const ConfigDb & db );

   /** Checks, then applies. */
   ConfigReport load();

   // For configure().
   const ConfigDb & db() const { return db_; }
   /** Calls `check` with every row of the table. A RowError (or another Velto::RangeError) that it
       raises becomes a warning, and the row is skipped. */
   void eachRow( const String & table, const std::function< void( const ConfigRow & ) > & check );
   /** Calls `use`; what it raises becomes a warning about the row. */
   bool check( const ConfigRow & row, const std::function< void() > & use );
   /** What to do once everything has been checked, in the order of the calls. */
   void apply( std::function< void() > change ) { changes_.push_back( std::move( change ) ); }
   /** A warning about a row that is used all the same. */
   void warn( const ConfigRow & row, const String & field, const String & what );

   /** The interface that `name` means; `field` is where the row has it, "" its key. RowError if it
       cannot be parsed. */
   Ulnet::IntfId intf( const String & field, const String & name ) const;
   /** "Vlan10", which is a row's key or a part of it. */
   Bridging::VlanId vlan( const String & name ) const;
   /** The same, of a port, a port-channel, or either, that the file defines. */
   Ulnet::IntfId port( const String & field, const String & name ) const;
   Ulnet::IntfId portChannel( const String & field, const String & name ) const;
   Ulnet::IntfId portOrChannel( const String & field, const String & name ) const;

   // What the features before have found in the file, for those behind them.
   void portIs( Ulnet::IntfId intf ) { ports_.insert( intf ); }
   bool isPort( Ulnet::IntfId intf ) const { return ports_.count( intf ) != 0; }
   void portChannelIs( Ulnet::IntfId intf ) { channels_.insert( intf ); }
   bool isPortChannel( Ulnet::IntfId intf ) const { return channels_.count( intf ) != 0; }
   void memberIs( Ulnet::IntfId port, Ulnet::IntfId channel ) { memberOf_[port] = channel; }
   /** The port-channel of which a port is a member; null if it is of none. */
   Ulnet::IntfId memberOf( Ulnet::IntfId port ) const {
      auto known = memberOf_.find( port );
      return known == memberOf_.end() ? Ulnet::IntfId() : known->second;
   }

 private:
   void nameTables();
   void report( const String & place, const String & what );

   Agent & agent_;
   const ConfigDb & db_;
   ConfigReport report_;
   std::set< Ulnet::IntfId > ports_;
   std::set< Ulnet::IntfId > channels_;
   std::map< Ulnet::IntfId, Ulnet::IntfId > memberOf_;
   std::vector< std::function< void() > > changes_;
};

} // namespace QonAgent
