#pragma once
// The second generation with a chip agent that follows the platform configuration, and answers.

#include "Qon/include/vlanmapping/QonVlanMappingSm2.h"
#include "platform/Kiv/Listener.h"
#include "tests/vlanmapping/VlanMappingWorld.h"

namespace VlanMappingTests {

using Qon::QonVlanMappingKey;
using ConfigSource = Qon::VlanMappingConfigSource;
using Mode = Bridging::SwitchportMode;

inline QonVlanMappingKey
key( Direction d, U32 vlan ) {
   return { d, U16( vlan ), 0 };
}

class PipelineWorld : public VlanMappingWorld {
 public:
   using Sm = Qon::VlanMapping::VlanMappingSm2;
   void startPipeline( bool slices = false ) {
      sm2 = Qon::VlanMapping::VlanMappingSm2Is(
            { acsd, config, flowConfig, portToLag, status, sources, sourceStatus, merged, platform,
              interlock, ready[0], ready[1], ready[2], slices ? &scheduler : nullptr } );
      const Ptr< Sm > held = sm2;
      held->initializedIs( true );
   }
   void mode( IntfId intf, Mode mode ) {
      config->switchIntfConfigIs( intf )->switchportModeIs( mode );
   }
   void native( IntfId intf, Direction d, U32 vlan ) {
      config->switchIntfConfigIs( intf )->nativeVlanIs( d, Bridging::VlanIdOrNone( vlan ) );
   }
   void joins( U32 lag, U32 port ) {
      member( lag, port );
      portToLag->portToLagIs( eth( port ), po( lag ) );
   }
   void leaves( U32 lag, U32 port ) {
      member( lag, port, false );
      portToLag->portToLagDel( eth( port ) );
   }
   /** "Ethernet1 ingress 10" -> "CLI 110", of what is merged and what is on ports. */
   using Shown = std::map< String, String >;
   template< class Dir >
   static Shown shown( const Dir & dir ) {
      Shown all;
      for ( auto && [intf, held] : dir->intfVlanMappingConfigIteratorConst() ) {
         for ( auto && [k, data] : held->vlanMappingConfigIteratorConst() ) {
            all[intf.stringValue() + " " + Kiv::toText( k.direction() ) + " " +
                Kiv::toText( k.vlanId() )] = text( data );
         }
      }
      return all;
   }
   static String text( const Qon::MergedVlanMappingData & data ) {
      return shownSource( data.source() ) + ( " " + Kiv::toText( data.mapping().vlanId() ) );
   }
   static String text( const Qon::PlatformVlanMappingData & data ) { return text( data.merged() ); }

   /** What the chip says of a port's key. */
   void answers( IntfId port, const QonVlanMappingKey & k, Status result ) {
      const U32 version = platform->intfVlanMappingConfig( port )->vlanMappingConfig( k ).version();
      status->intfVlanMappingStatusIs( port )->vlanMappingStatusIs( k, { result, version } );
   }
   std::optional< Status > result( ConfigSource source, IntfId intf,
                                   const QonVlanMappingKey & k ) const {
      auto all = sourceStatus->sourceVlanMappingStatus( source );
      auto held = all ? all->intfVlanMappingStatus( intf ) : nullptr;
      return held && held->vlanMappingStatusHas( k ) ? std::optional( held->vlanMappingStatus( k ) )
                                                     : std::nullopt;
   }
   void checkPipeline() const { EXPECT_EQ( sm2->checkInvariants(), "" ); }

   Ptr< Qon::ProgrammedPortToLag > portToLag = entity< Qon::ProgrammedPortToLag >( "portToLag" );
   Ptr< Qon::PlatformVlanMappingStatus > status =
         entity< Qon::PlatformVlanMappingStatus >( "status" );
   Ptr< Qon::SourceVlanMappingConfigDir > sources =
         entity< Qon::SourceVlanMappingConfigDir >( "sources" );
   Ptr< Qon::SourceVlanMappingStatusDir > sourceStatus =
         entity< Qon::SourceVlanMappingStatusDir >( "sourceStatus" );
   Ptr< Qon::MergedVlanMappingConfig > merged = entity< Qon::MergedVlanMappingConfig >( "merged" );
   Ptr< Qon::PlatformVlanMappingConfig > platform =
         entity< Qon::PlatformVlanMappingConfig >( "platform" );
   Ptr< Qon::PortChannelInterlockDir > interlock =
         entity< Qon::PortChannelInterlockDir >( "interlock" );
   Ptr< Qon::VlanMappingOutputState > ready[3] = {
         entity< Qon::VlanMappingOutputState >( "bridging" ),
         entity< Qon::VlanMappingOutputState >( "flow" ),
         entity< Qon::VlanMappingOutputState >( "native" ) };
   Ptr< Sm > sm2;
};

} // namespace VlanMappingTests
