#pragma once
// An agent over its chip, and what the chip does with frames.

#include <nlohmann/json.hpp>
#include <set>

#include "agent/Events.h"
#include "agent/features/FrameFields.h"
#include "tests/agent/AgentWorld.h"

namespace Tests {

class RoadWorld {
 public:
   using Ports = std::set< String >;

   explicit RoadWorld( const SoftChip::Shape & shape = {},
                       const QonAgent::Features & features = QonAgent::agentFeatures() )
       : chip( scheduler, shape ), agent( scheduler, chip, features ) {}

   QonAgent::ConfigReport load( const String & text ) {
      auto db = QonAgent::ConfigDb::parse( "x.json", text );
      auto report = QonAgent::ConfigReader( agent, db ).load();
      agent.inputsRead();
      scheduler.runFor( 20 );
      return report;
   }
   /** An event, and nothing but what follows from it at once. */
   void eventNow( const String & fields ) {
      QonAgent::Events( agent ).parse( QonAgent::Json::parse( "{" + fields + "}" ) )();
   }
   void event( const String & fields ) {
      eventNow( fields );
      scheduler.runFor( 20 );
   }
   SoftChip::Passage ask( const String & port, const String & fields ) {
      return chip.forward( QonAgent::frameOf( intf( port ), fields ) );
   }
   /** "Ethernet0 Ethernet4/10 Ethernet8/10.20": by which ports copies leave, and their tags. */
   static String leaves( const SoftChip::Passage & passage ) {
      std::multiset< String > all;
      for ( auto & copy : passage.copies ) {
         all.insert( copy.port.stringValue() +
                     ( copy.tags.outer.isNone() ? "" : "/" + copy.tags.outer.stringValue() ) +
                     ( copy.tags.inner.isNone() ? "" : "." + copy.tags.inner.stringValue() ) );
      }
      String text;
      for ( auto & one : all ) {
         text += ( text.empty() ? "" : " " ) + one;
      }
      return text;
   }
   String out( const String & port, const String & fields ) {
      return leaves( ask( port, fields ) );
   }
   /** What such frames of many sources leave by. */
   Ports spread( const String & port, const String & fields, U32 sources = 300 ) {
      Ports all;
      for ( U32 source = 0; source < sources; ++source ) {
         char smac[40];
         std::snprintf( smac, sizeof smac, ",smac=02:11:22:00:%02x:%02x", source / 256,
                        source % 256 );
         all.insert( out( port, fields + smac ) );
      }
      return all;
   }
   /** What the last stage said that was passed. */
   String last( const String & port, const String & fields ) {
      return ask( port, fields ).steps.back().what;
   }

   Kiv::VirtualScheduler scheduler;
   Kiv::LogRecorder logs;
   SoftChip::Chip chip;
   QonAgent::Agent agent;
};

} // namespace Tests
