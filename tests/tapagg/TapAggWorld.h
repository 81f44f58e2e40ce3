#pragma once
// Tap aggregation over the chip in software, which refuses what cannot be; every call is noted.

#include "Qon/include/framework/HookTap.h"
#include "Qon/include/tapagg/QonTapaggSm.h"
#include "agent/softchip/SoftTapAggHelper.h"
#include "tests/harness/World.h"

namespace TapAggTests {

using Bridging::Input::TapGroups;
using Qon::HwOperationalMode;
using Tests::intf;
using Tests::String;
using Ulnet::IntfId;
using Velto::Ptr;
using Calls = std::vector< String >;

inline IntfId
eth( U32 n ) {
   return Ulnet::EthIntfId::intfId( n );
}
inline IntfId
po( U32 n ) {
   return Ulnet::PortChannelIntfId::intfId( n );
}

/** Every call to the chip as a text: "tapPortIs Ethernet1, True, False". */
class CallLog : private Qon::HookListener {
 public:
   Calls calls;
   std::function< void( const String & call ) > during;
   Calls take() { return std::exchange( calls, {} ); }
   /** How many of them were of that hook. */
   U32 count( const String & hook ) const {
      return U32( std::count_if( calls.begin(), calls.end(),
                                 [&]( auto & call ) { return call.starts_with( hook ); } ) );
   }

 private:
   void hookCalled( const char * hook, const String & arguments ) override {
      const String call = String( hook ).substr( String( "TapAggHelper::" ).size() ) +
                          ( arguments.empty() ? "" : " " + arguments );
      calls.push_back( call );
      if ( during ) {
         during( call );
      }
   }
};

class TapAggWorld : public Tests::World {
 public:
   explicit TapAggWorld( U32 groups = 64 ) : table( { groups, 1000 }, plan ) {}
   ~TapAggWorld() { EXPECT_EQ( table.takeRefused(), Calls() ); }

   Qon::TapAggSm::Inputs inputs() {
      return {
            acsd,       config,     helper,   status,  toolPorts,          pmapGroups,
            pmapStatus, policyMaps, requests, replies, acsd->verifyData(), scheduler.timerWheel() };
   }
   template< class Sm = Qon::TapAggSm >
   void start() {
      sm = Qon::smIs< Sm >( inputs() );
      sm->initializedIs( true );
   }
   /** Started, in the mode, with nothing noted. */
   void startInMode() {
      mode();
      start();
      log.take();
   }
   void mode( HwOperationalMode m = HwOperationalMode::tapAgg ) { acsd->operationalModeIs( m ); }
   void otherMode() { mode( HwOperationalMode::switching ); }
   void wait( Kiv::Seconds seconds ) { scheduler.runFor( seconds ); }

   Ptr< Bridging::Input::TapPortConfig > tap( IntfId i, const String & groups ) {
      auto made = config->tapPortIs( i );
      made->groupsIs( TapGroups( groups ) );
      return made;
   }
   Ptr< Bridging::Input::ToolPortConfig > tool( IntfId i, const String & groups ) {
      auto made = config->toolPortIs( i );
      for ( const String & group : TapGroups( groups ) ) {
         made->groupIs( group );
      }
      return made;
   }
   Ptr< TapAgg::ClassMapConfig > classMap( const String & map, const String & name,
                                           const String & groups ) {
      auto made = policyMaps->policyMapIs( map )->classMapIs( name );
      made->groupsIs( TapGroups( groups ) );
      return made;
   }
   void join( U32 lag, U32 port ) {
      auto list = acsd->lagToPort( po( lag ) );
      list.portIs( eth( port ), Qon::QonLagPort( true, true ) );
      acsd->lagToPortIs( po( lag ), list );
      acsd->portToLagIs( eth( port ), po( lag ) );
   }
   void leave( U32 lag, U32 port ) {
      auto list = acsd->lagToPort( po( lag ) );
      list.portDel( eth( port ) );
      acsd->lagToPortIs( po( lag ), list );
      acsd->portToLagDel( eth( port ) );
   }

   U32 id( const String & name ) const { return sm->groupIdOf( name ); }
   /** The tool ports that frames of a tap port reach: "Ethernet11 Port-Channel1(Ethernet5)". */
   String reached( IntfId from ) const {
      String text;
      for ( auto & way : table.ways( from ) ) {
         text += ( text.empty() ? "" : " " ) + way.tool.stringValue();
         if ( way.ports != std::vector< IntfId >{ way.tool } ) {
            String ports;
            for ( IntfId port : way.ports ) {
               ports += ( ports.empty() ? "" : "," ) + port.stringValue();
            }
            text += "(" + ports + ")";
         }
      }
      return text;
   }
   U32 messages() const { return U32( logs.records().size() ); }
   bool empty() const { return table.held() == QonChip::HeldTapAgg(); }
   String broken() { return sm->checkInvariants(); }

   SoftChip::FaultPlan plan;
   SoftChip::TapAggTable table;
   CallLog log;
   Ptr< Bridging::Input::TapAggConfig > config =
         Velto::make< Bridging::Input::TapAggConfig >( "config" );
   Ptr< TapAgg::Status > status = Velto::make< TapAgg::Status >( "status" );
   Ptr< TapAgg::ToolPortStatus > toolPorts = Velto::make< TapAgg::ToolPortStatus >( "toolPorts" );
   Ptr< TapAgg::PmapGroupConfig > pmapGroups =
         Velto::make< TapAgg::PmapGroupConfig >( "pmapGroups" );
   Ptr< TapAgg::PmapGroupStatus > pmapStatus =
         Velto::make< TapAgg::PmapGroupStatus >( "pmapStatus" );
   Ptr< TapAgg::PolicyMapConfig > policyMaps =
         Velto::make< TapAgg::PolicyMapConfig >( "policyMaps" );
   Ptr< Bridging::HostFlush::RequestDir > requests =
         Velto::make< Bridging::HostFlush::RequestDir >( "requests" );
   Ptr< Bridging::HostFlush::ReplyDir > replies =
         Velto::make< Bridging::HostFlush::ReplyDir >( "replies" );
   Ptr< Qon::TapAggHelper > helper = Velto::make< SoftChip::SoftTapAggHelper >( table );
   Ptr< Qon::TapAggSm > sm;
};

} // namespace TapAggTests
