// What a collection says of its next hops, what it refuses, and its texts.

#include "tests/adjacency/Vias.h"

namespace {

using namespace Tests;
using Qon::NextHopSetTransient;
using Qon::PlatformApi::NextHopGroupInfo;
using Qon::PlatformApi::ViaAndWeight;
using Indexes = NextHopCollection::Indexes;

/** "A1 B2 -3": next hops by letter, with their weights. */
String
shown( const NextHopCollection & c ) {
   String text;
   for ( auto i = c.viaAndWeightIteratorConst(); i; ++i ) {
      const auto number = i->via() ? i->via()->viaGen().l3Intf().number( 0 ) - 1 : 0;
      text += ( text.empty() ? "" : " " ) + String( 1, i->via() ? char( 'A' + number ) : '-' ) +
              Kiv::toText( i->weight() );
   }
   return text;
}

const NextHop a = hop( 0 ), b = hop( 1 ), c = hop( 2 );

/** In which a next hop may stand twice. */
NextHopCollection
list( std::initializer_list< ViaAndWeight > entries ) {
   NextHopCollection l;
   l.duplicatesAllowedIs( true );
   for ( const auto & entry : entries ) {
      l.viaAndWeightPush( entry );
   }
   return l;
}

TEST( Collection, CompressMergesNeighboursOnly ) {
   auto l = list( { { a, 1 }, { a, 2 }, { b, 1 }, { a, 4 } } );
   l.compressAdjacentVias();
   EXPECT_EQ( "A3 B1 A4", shown( l ) );
   EXPECT_EQ( 8u, l.totalWeight() );
   auto end = list( { { a, 1 }, { {}, 2 }, { {}, 3 }, { b, 1 }, { b, 1 }, { b, 5 } } );
   end.compressAdjacentVias();
   EXPECT_EQ( "A1 -5 B7", shown( end ) );
   auto full = list( { { a, 0xfffffffe }, { a, 1 }, { a, 1 }, { a, 2 } } );
   full.compressAdjacentVias();
   EXPECT_EQ( "A4294967295 A3", shown( full ) );
   full.isNextHopGroupIs( true );
   full.viaAndWeightPush( { a, 2 } );
   full.compressAdjacentVias();
   EXPECT_EQ( 3u, full.viaAndWeights() );
}

TEST( Collection, ReplacingMergesWhereDuplicatesCannotBe ) {
   NextHopCollection l;
   l.viaAndWeightPush( { a, 1 } );
   l.viaAndWeightPush( { b, 2 } );
   l.viaAndWeightPush( { c, 4 } );
   auto twice = l;
   twice.duplicatesAllowedIs( true );
   l.replaceNextHops( { b, c }, a );
   EXPECT_EQ( "A7", shown( l ) );
   twice.replaceNextHopsAtIndexes( { 0, 2 }, twice.viaAndWeight( 1 ).via() );
   EXPECT_EQ( "B1 B2 B4", shown( twice ) );
   twice.duplicatesAllowedIs( false ); // now they cannot be any more
   EXPECT_EQ( "B7", shown( twice ) );
}

TEST( Collection, DeletionByIndexes ) {
   auto l = list( { { a, 1 }, { b, 2 }, { c, 3 }, { a, 4 } } );
   l.delNextHopsAtIndexes( { 0, 0, 2 } );
   EXPECT_EQ( "B2 A4", shown( l ) );
   EXPECT_DEATH( l.delNextHopsAtIndexes( { 1, 0 } ),
                 "QonL2AdjTypes:.*Assertion 'std::is_sorted\\( idxsToDel.begin\\(\\), "
                 "idxsToDel.end\\(\\) \\)' failed" );
   EXPECT_DEATH( l.replaceNextHopsAtIndexes( { 1, 0 }, a ), "std::is_sorted" );
   EXPECT_DEATH( l.delNextHopsAtIndexes( { 0, 2 } ),
                 "index < viaListWrapper_.viaList\\(\\)->viaAndWeights\\(\\)" );
}

TEST( Collection, NextHopsAreDistinctAndInOrderOfTheirFirstEntry ) {
   auto l = list( { { {}, 9 }, { b, 1 }, { a, 2 }, { b, 4 }, { {}, 1 } } );
   EXPECT_EQ( 5u, l.viaAndWeights() );
   EXPECT_EQ( 17u, l.totalWeight() );
   EXPECT_EQ( 2u, l.nextHops() );
   EXPECT_EQ( 5u, l.nextHop( b ) );
   EXPECT_EQ( 0u, l.nextHop( c ) );
   EXPECT_EQ( 0u, l.nextHop( NextHop() ) );
   auto hops = l.nextHopIteratorConst();
   EXPECT_EQ( b, *hops );
   EXPECT_EQ( a, *++hops );
   EXPECT_FALSE( ++hops );
   const auto sums = l.aggregateNextHopWeights();
   EXPECT_TRUE( sums.foundDuplicateEntries() );
   EXPECT_EQ( 5u, sums.aggregatedWeights().weight( b ) );
   auto weights = l.nextHopAggregateWeightIteratorConst();
   EXPECT_EQ( 5u, weights->weight );
   EXPECT_EQ( 2u, ( ++weights )->weight );
   EXPECT_EQ( "{1, 3}", l.nextHopBitmapExtern( b ).stringValue() );
   EXPECT_EQ( "{}", l.nextHopBitmapExtern( NextHop() ).stringValue() );
   auto bitmaps = l.nextHopBitmapExternIteratorConst();
   ++bitmaps;
   EXPECT_EQ( "{2}", bitmaps->bitmap.stringValue() );
   const auto view = l.viaAndWeightMapView();
   EXPECT_EQ( 2u, view.vias() );
   EXPECT_EQ( 5u, view.iteratorConst()->weight );
   l.duplicatesAllowedIs( false );
   EXPECT_FALSE( l.aggregateNextHopWeights().foundDuplicateEntries() );
   EXPECT_EQ( "-9 B5 A2 -1", shown( l ) );
}

template< class Iterator >
void
expectEnd( Iterator i, const String & text ) {
   for ( int again = 0; again < 2; ++again ) {
      ASSERT_FALSE( i.valid() );
      EXPECT_THROW( *i, Velto::RangeError );
      try {
         ++i;
         ADD_FAILURE() << text;
      } catch ( const Velto::RangeError & error ) {
         EXPECT_EQ( text, error.what() );
      }
   }
}

TEST( Collection, IteratorsRefuseToGoPastTheEnd ) {
   const NextHopCollection l;
   expectEnd( l.viaAndWeightIteratorConst(), "ViaAndWeightIteratorConst is invalid" );
   expectEnd( l.nextHopIteratorConst(), "NextHopIteratorConst is invalid" );
   expectEnd( l.nextHopAggregateWeightIteratorConst(),
              "NextHopAggregateWeightIteratorConst is invalid" );
   expectEnd( l.nextHopBitmapExternIteratorConst(), "NextHopBitmapExternIteratorConst is invalid" );
   expectEnd( l.viaAndWeightMapView().iteratorConst(),
              "ViaAndWeightMapViewIteratorConst is invalid" );
}

TEST( Collection, NextHopIsKeepsTheIndexAndKnowsWhereItCannot ) {
   NextHopCollection l;
   l.nextHopIs( a, 1 );
   l.nextHopIs( b, 2 );
   l.nextHopIs( hop( 0 ), 5 ); // another handle of an equal value
   EXPECT_EQ( "A5 B2", shown( l ) );
   l.isNextHopGroupIs( true );
   l.nextHopIs( c, 1 );
   EXPECT_EQ( "A5 B2 C1", shown( l ) );
   EXPECT_DEATH( l.nextHopIs( a, 1 ),
                 "'0 && \"nexthopIs with NextHops in multiple vector indices is invalid\"'" );
}

TEST( Collection, NoWeightIsZero ) {
   NextHopCollection l;
   l.viaPush( a );
   const char * text = "QonL2AdjTypes:.*Assertion 'viaAndWeightIn.weight\\(\\) != 0' failed";
   EXPECT_DEATH( l.viaAndWeightPush( { b, 0 } ), text );
   EXPECT_DEATH( l.viaAndWeightIs( 0, { b, 0 } ), text );
   EXPECT_DEATH( l.viaAndWeightEmplace( 0, b, 0u ), text );
   EXPECT_DEATH( l.viaAndWeightEmplaceBack( b, 0u ), text );
   EXPECT_DEATH( l.nextHopIs( b, 0 ), text );
}

TEST( Collection, VerifyFindsWhatMayNotStandTwice ) {
   auto l = list( { { a, 1 }, { {}, 2 }, { b, 1 }, { {}, 3 }, { a, 2 } } );
   l.verify();
   NextHopCollection other;
   other.viaPush( a );
   other.viaPush( hop( 0 ) );
   EXPECT_DEATH( other.verify(), "QonL2AdjTypes:.*'!duplicates \\|\\| "
                                 "mayContainDuplicateNextHops\\(\\)' failed" );
   // A list that somebody else made.
   other.replaceViaListWrapper( l.viaListWrapper() );
   EXPECT_EQ( 9u, other.totalWeight() );
   EXPECT_DEATH( other.verify(), "duplicates" );
   EXPECT_EQ( 9u, NextHopCollection( l.viaListWrapper(), l.flags(), {}, 7 ).totalWeight() );
}

TEST( Collection, HasNoMoreThan65535Entries ) {
   NextHopCollection l;
   l.duplicatesAllowedIs( true );
   l.viaAndWeightsReserve( 65535 );
   EXPECT_DEATH( l.viaAndWeightsReserve( 65536 ), "size is too large: 65536" );
   l.viaAndWeightsShrinkToFit(); // so that it has to grow by itself
   for ( U32 i = 0; i < 65535; ++i ) {
      l.viaAndWeightPush( { a, 0xffffffff } );
   }
   EXPECT_EQ( 65535u * U64( 0xffffffff ), l.totalWeight() );
   EXPECT_DEATH( l.viaPush( b ), "size is too large: 65536" );
   EXPECT_EQ( 65535u, l.nextHopBitmapExtern( a ).bits() );
   l.shimAttrsIs( Qon::NextHopCollectionShimBuiltAttrs( 0xffff ) );
   l.compressAdjacentVias(); // no two of them fit into one
   EXPECT_EQ( 65535u, l.viaAndWeights() );
   EXPECT_EQ( 0xffff, l.shimAttrs().value() );
   EXPECT_DEATH( l.viaAndWeight( 65535 ),
                 "index < viaListWrapper_.viaList\\(\\)->viaAndWeights\\(\\)" );
   EXPECT_DEATH( NextHopCollection().viaFront(), "index < viaListWrapper_" );
   EXPECT_DEATH( QonTypes::ViaBitmap().bitIs( 65536 ),
                 "QonL2AdjTypes:.*'index < ViaBitmapIndex::max\\(\\)'" );
}

TEST( Collection, ConsolidationNeedsATableAndOutlivesIt ) {
   NextHopCollection l, other;
   EXPECT_DEATH( l.consolidate( nullptr ), "'viaListDedupTable'" );
   {
      Qon::PlatformApi::ViaListDedupTable table;
      l.viaPush( a );
      other.viaPush( a );
      l.consolidate( &table );
      other.consolidate( &table );
      EXPECT_EQ( l.viaListWrapper().viaList(), other.viaListWrapper().viaList() );
      NextHopCollection empty;
      empty.consolidate( &table ); // not the list that all fresh ones share
      EXPECT_NE( NextHopCollection().viaListWrapper().viaList(), empty.viaListWrapper().viaList() );
      EXPECT_EQ( NextHopCollection(), empty );
   }
   other.viaPush( b );
   EXPECT_EQ( "A1", shown( l ) );
   l.viaPush( c );
   EXPECT_EQ( "A1 C1", shown( l ) );
}

TEST( Collection, GroupInformationIsCopiedBeforeItIsWritten ) {
   NextHopCollection l, other;
   EXPECT_EQ( 0u, l.ttl() );
   NextHopGroupInfo::Content content;
   content.tosIs( 7 );
   auto info = Velto::make< NextHopGroupInfo >( content );
   const auto sole = info.ptr();
   l.nhgInfoIsOrCopyFrom( std::move( info ) );
   EXPECT_EQ( sole, l.nhgInfo() );
   other = l;
   other.viaPush( a ); // a list of its own, with the same information
   EXPECT_EQ( l.nhgInfo(), other.nhgInfo() );
   Qon::PlatformApi::NextHopGroupEntryResolution resolution;
   resolution.nextHopIs( { a } );
   other.nextHopGroupEntryResolutionIs( 3, resolution );
   EXPECT_EQ( resolution, other.nextHopGroupEntryResolution( 3 ) );
   EXPECT_TRUE( l.nextHopGroupEntryResolution( 3 ).nextHop().empty() );
   other.tosIs( 8 );
   EXPECT_EQ( std::pair( 7, 8 ), std::pair( int( l.tos() ), int( other.tos() ) ) );
   other.nhgInfoIsOrCopyFrom( NextHopGroupInfo::Ptr( l.nhgInfo() ) );
   EXPECT_NE( l.nhgInfo(), other.nhgInfo() );
   EXPECT_EQ( 7, other.tos() );
}

TEST( Collection, TypesOfNextHops ) {
   struct {
      std::vector< NextHopType > types;
      bool allDrop, allArp, resolved, vrf;
   } const table[] = {
         { {}, false, false, false, false },
         { { NextHopType::drop, NextHopType::drop }, true, false, false, false },
         { { NextHopType::drop, NextHopType::arpRequired }, false, false, false, false },
         { { NextHopType::arpRequired }, false, true, false, false },
         { { NextHopType::cpu, NextHopType::resolved }, false, false, true, false },
         { { NextHopType::arpRequired, NextHopType::tunnel }, false, false, true, false },
         { { NextHopType::vrfAction, NextHopType::drop }, false, false, false, true },
   };
   for ( const auto & row : table ) {
      NextHopCollection l;
      l.viaPush( {} );
      for ( U32 i = 0; i < row.types.size(); ++i ) {
         l.viaPush( hop( i, row.types[i] ) );
      }
      EXPECT_EQ( row.allDrop, l.allDrop() ) << l.stringValue();
      EXPECT_EQ( row.allArp, l.allArpRequired() ) << l.stringValue();
      EXPECT_EQ( row.resolved, l.hasResolvedNextHops() ) << l.stringValue();
      EXPECT_EQ( row.vrf, l.isForwardingVrfAction() ) << l.stringValue();
      EXPECT_EQ( row.types.empty() ? NextHopType::unset : row.types[0], l.nextHopType() );
   }
}

TEST( Collection, PositionsOfAGroupAreThoseOfItsEntries ) {
   NextHopCollection l;
   l.viaPush( a );
   l.viaPush( b );
   Qon::NextHopGroupNhCollMetadata metadata;
   Kiv::ValueMap< Qon::NextHopGroupEntryKey, U32 > positions;
   positions.entryIs( { 1, 9 }, 4 );
   positions.entryIs( { 1, 2 }, 6 );
   metadata.nhgEntryKeyToPositionIs( positions );
   l.nhgMetadataIs( metadata );
   EXPECT_EQ( ( Indexes{ 0, 1 } ), l.getLogicalPositionIndexes() );
   l.isNextHopGroupIs( true );
   EXPECT_EQ( ( Indexes{ 6, 4 } ), l.getLogicalPositionIndexes() );
   EXPECT_TRUE( l.specifiesNextHopOrder() );
}

TEST( Collection, FlagsThatDoNotCountAreKeptAndShown ) {
   NextHopCollection l, other;
   l.flagsValueEqExcludedIs( 5 );
   l.nextHopCollTypeIs( Qon::NextHopCollType::nhCollTunnel );
   other.nextHopCollTypeIs( Qon::NextHopCollType::nhCollTunnel );
   EXPECT_EQ( l, other );
   EXPECT_EQ( l.hash(), other.hash() );
   EXPECT_EQ( 5u, U32( l.flags().flagsValueEqExcluded() ) );
   EXPECT_EQ( "Value('Qon::NextHopCollection', ** {'viaListWrapper': "
              "Value('Qon::ViaListWrapper', ** {'viaList': Value('Qon::PlatformApi::ViaList', ** "
              "{'viaAndWeight': {}, 'flags': Value('Qon::PlatformApi::ViaListFlags', ** "
              "{'dlbEcmpEnable': False, 'labelType': labelUnset, 'mplsPayloadType': payloadUnset, "
              "'mplsTtlMode': ttlUnset, 'mayContainDuplicateNextHops': False, "
              "'specifiesNextHopOrder': False}), 'nhgInfo': None, 'tunnelType': none}), "
              "'consolidated': False}), 'flags': Value('Qon::NextHopCollectionFlags', ** "
              "{'flagsValue1': 768, 'flagsValueEqExcluded': 5}), 'nhgMetadata': "
              "Value('Qon::NextHopGroupNhCollMetadata', ** {'nextHopGroupUnordered': False, "
              "'nextHopGroupAutoSized': False, 'nexthopGroupEntryCounterType': counterNone, "
              "'nhgEntryKeyToPosition': {}}), 'totalWeightAndShimAttrs': 0})",
              l.stringValue() );
}

TEST( Collection, MovedFromIsAnEmptyOne ) {
   auto l = list( { { a, 1 }, { a, 2 } } );
   auto taken = std::move( l );
   EXPECT_EQ( NextHopCollection(), l ); // NOLINT: that is the question
   l.viaPush( b );
   l.verify();
   l = std::move( taken );
   EXPECT_EQ( "A1 A2", shown( l ) );
   EXPECT_EQ( NextHopCollection(), taken ); // NOLINT
}

} // namespace
