// The values of adjacencies go by their names into texts that tools read: each field, in its order.

#include "Qon/include/adjacency/AdjGlobalPrefixList.h"
#include "Qon/include/adjacency/AdjReviewRequest.h"
#include "Qon/include/adjacency/QonL2AdjTypes.h"
#include "tests/adjacency/Vias.h"

namespace {

using namespace Tests;

/** The names in the text of an empty T, whose type is called `type`. */
template< class T >
String
fields( const char * type ) {
   const String text = T().stringValue();
   EXPECT_EQ( 0u, text.find( "Value('" + String( type ) + "', ** {'" ) ) << text;
   EXPECT_EQ( T(), T( text ) );
   EXPECT_TRUE( T().isEq( T() ) && T().hash() == T( text ).hash() );
   static_assert( std::three_way_comparable< T > );
   String names;
   for ( Kiv::ValueReader r( type, text ); r.next(); ) {
      names += ( names.empty() ? "" : " " ) + r.name();
   }
   return names;
}

TEST( Values, ListTheirFields ) {
   EXPECT_EQ( "type ipGenAddr macAddr l2Intf l3Intf arpVrfId label",
              fields< Qon::NextHopEntry >( "Qon::NextHopEntry" ) );
   EXPECT_EQ( "nextHopType l2Intf ethAddr tunnelDstIpAddr arpVrfId swTunnelGroupId",
              fields< Qon::NextHopInfo >( "Qon::NextHopInfo" ) );
   EXPECT_EQ( "type macAddr l2Intf l3Intf",
              fields< Qon::NextHopInfoKey >( "Qon::NextHopInfoKey" ) );
   EXPECT_EQ( "nextHop weight", fields< Qon::NextHopAndWeight >( "Qon::NextHopAndWeight" ) );
   EXPECT_EQ( "position nextLevelPosition nexthop",
              fields< Qon::NexthopAndPosition >( "Qon::NexthopAndPosition" ) );
   EXPECT_EQ( "aggregatedWeights foundDuplicateEntries",
              fields< NextHopCollection::AggWeightsResult >(
                    "Qon::NextHopCollection::AggWeightsResult" ) );
   EXPECT_EQ( "l3Intf encapInfo routeCacheInfo unionData sourceIpOpt nextHop tableId rawValue",
              fields< Qon::ViaGen >( "Qon::ViaGen" ) );
   EXPECT_EQ( "ackInfo proxiedAdj backupVia l2AdjTableType lastAckedPdVersionId",
              fields< Qon::L2AdjacencyData >( "Qon::L2AdjacencyData" ) );
   EXPECT_EQ( "fibFecId fibVersionId", fields< Qon::L2AdjAckInfo >( "Qon::L2AdjAckInfo" ) );
   EXPECT_EQ( "insertTime lastUpdateTime numUpdates",
              fields< Qon::L2AdjStats >( "Qon::L2AdjStats" ) );
   EXPECT_EQ( "insertTime lastUpdateTime numUpdates", fields< Qon::AdjStats >( "Qon::AdjStats" ) );
   EXPECT_EQ( "l2AdjHelper l2AdjInstaller", fields< Qon::L2AdjRefUser >( "Qon::L2AdjRefUser" ) );
   EXPECT_EQ( "platformConfig l3Reference",
              fields< Qon::L2AdjInstallRefSummary >( "Qon::L2AdjInstallRefSummary" ) );
   EXPECT_EQ( "l2AdjKey add",
              fields< Qon::L2AdjExportRequestKey >( "Qon::L2AdjExportRequestKey" ) );
   EXPECT_EQ( "fibFecId lastReviewedPiVersionId lastAckedPiVersionId adjVxlanTunnelInfo "
              "adjTunnelIntfInfo adjToBfdIntfCount adjToSbfdSession",
              fields< Qon::AdjEntryData >( "Qon::AdjEntryData" ) );
   EXPECT_EQ( "key syncHash nextLevelAdjId",
              fields< Qon::AdjSyncHashEntry >( "Qon::AdjSyncHashEntry" ) );
   EXPECT_EQ( "nexthopGroupEntryCounterType nextHopGroupType dlbEcmpEnable nextHopGroupAutoSized "
              "configuredVersion nextHopGroupSize ttl tos greKeyType sbfdSessionTunnelId",
              fields< Qon::AdjViaNextHopGroupInfo >( "Qon::AdjViaNextHopGroupInfo" ) );
   EXPECT_EQ( "key prefixWalk version",
              fields< Qon::AdjReviewRequest >( "Qon::AdjReviewRequest" ) );
   EXPECT_EQ( "adjPrefixList addressFamily", fields< Qon::AdjPrefixCountStatus::Notification >(
                                                   "Qon::AdjPrefixCountStatus::Notification" ) );
   EXPECT_EQ( "adjType nextHopCollection vrfId", fields< Qon::L2AdjKey >( "Qon::L2AdjKey" ) );
   EXPECT_EQ( "nhgId nhgEntryIndex",
              fields< Qon::NextHopGroupEntryKey >( "Qon::NextHopGroupEntryKey" ) );
}

TEST( Values, NestIntoEachOthersTexts ) {
   Qon::ViaGen gen;
   gen.encapInfoIs( Qon::EncapInfo( "{vxlanEncap: {vni: 7}}" ) );
   gen.unionDataIs( ~U64( 0 ) );
   gen.sourceIpOptIs( Ulnet::IpGenAddr::ipv4( 0x01020304 ) );
   Qon::PlatformApi::Via full;
   full.viaGenIs( gen );
   full.allocationIdIs( 9 );
   NextHopCollection l;
   l.viaPush( NextHop::alone( full ) );
   l.viaAndWeightPush( { {}, 4000000000u } );
   l.ttlIs( 64 );
   Qon::NextHopGroupNhCollMetadata metadata;
   Kiv::ValueMap< Qon::NextHopGroupEntryKey, U32 > positions;
   positions.entryIs( { 3, 1 }, 5 );
   metadata.nhgEntryKeyToPositionIs( positions );
   l.nhgMetadataIs( metadata );
   const Qon::L2AdjKey key( 3, l, Qon::VrfId( 2 ) );
   EXPECT_EQ( key, Qon::L2AdjKey( key.stringValue() ) );
   EXPECT_NE( String::npos, key.stringValue().find( "'unionData': 18446744073709551615" ) );
   EXPECT_EQ( "Value('Qon::NextHopAndWeight', ** {'nextHop': None, 'weight': 4000000000})",
              Qon::NextHopAndWeight( {}, 4000000000u ).stringValue() );
   for ( const char * text :
         { "{nextHopCollection: {viaListWrapper: {viaList: {viaAndWeight: {{weight: 0}}}}}}",
           "{adjType: 256}", "{nextHopCollection: {flags: {flagsValue2: 1}}}",
           "{nextHopCollection: {viaListWrapper: {viaList: {vias: {}}}}}" } ) {
      EXPECT_THROW( Qon::L2AdjKey{ String( text ) }, Velto::RangeError ) << text;
   }
}

TEST( Values, CompareByTheirFieldsInOrder ) {
   NextHopCollection small, large;
   small.viaPush( hop( 1 ) );
   large.viaPush( hop( 2 ) );
   EXPECT_LT( small, large );
   EXPECT_LT( Qon::L2AdjKey( 1, large, Qon::VrfId( 9 ) ),
              Qon::L2AdjKey( 2, small, Qon::VrfId( 0 ) ) );
   EXPECT_LT( Qon::L2AdjKey( 1, small, Qon::VrfId( 9 ) ),
              Qon::L2AdjKey( 1, large, Qon::VrfId( 0 ) ) );
   EXPECT_LT( Qon::L2AdjKey( 1, small, Qon::VrfId( 0 ) ),
              Qon::L2AdjKey( 1, small, Qon::VrfId( 9 ) ) );
   EXPECT_LT( NextHop(), hop( 1 ) );
}

} // namespace
