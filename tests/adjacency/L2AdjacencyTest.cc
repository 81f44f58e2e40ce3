// Adjacencies: their FECs, the table types of each, the outcome of installation.

#include <cstdio>
#include <fstream>
#include <map>
#include <set>

#include "Qon/include/adjacency/L2Adjacency.h"
#include "platform/Kiv/Generic.h"
#include "platform/Kiv/Listener.h"
#include "platform/Kiv/Rng.h"
#include "platform/Kiv/Toggle.h"
#include "tests/adjacency/Vias.h"
#include "tests/harness/Sabotage.h"

namespace {

using namespace Tests;
using Qon::AdjEntry;
using Qon::GlobalFecId;
using Qon::L2Adjacency;
using Qon::L2AdjHardwareState;
using Qon::L2AdjKey;
using Qon::ProxiedAdj;
using Qon::TableType;

const GlobalFecId one( 1 ), two( 2 ), three( 3 );

Velto::Ptr< L2Adjacency >
adjacency( U32 hops = 1 ) {
   NextHopCollection l;
   for ( U32 i = 0; i < hops; ++i ) {
      l.viaPush( hop( i ) );
   }
   return Velto::make< L2Adjacency >( L2AdjKey( 0, l, Qon::VrfId( 0 ) ) );
}

void
typeDel( L2Adjacency & adj, GlobalFecId fec, TableType type ) {
   adj.unsetTableTypeForAdj( *Velto::make< AdjEntry >( fec ), type );
}

// Hardware state and acknowledgements

TEST( HardwareState, OnlyWhatCanBe ) {
   const char * notFull = "QonL2AdjTypes:.*'!hwState\\(\\).ecmpGroupsFull\\(\\)' failed";
   const char * ready = "QonL2AdjTypes:.*'!hwState\\(\\).notReady\\(\\)' failed";
   const char * alone = "QonL2AdjTypes:.*'hwState\\(\\).installed\\(\\)' failed";
   // By the bits: installed 1, failed 2, not ready 4, full 8.
   const char * const refusals[16] = { nullptr, nullptr, nullptr, nullptr, alone,   nullptr,
                                       ready,   nullptr, nullptr, notFull, notFull, notFull,
                                       ready,   notFull, ready,   notFull };
   for ( U8 state = 0; state < 16; ++state ) {
      auto adj = adjacency();
      if ( refusals[state] ) {
         EXPECT_DEATH( adj->hwStateIs( L2AdjHardwareState( state ) ), refusals[state] ) << state;
      } else {
         adj->hwStateIs( L2AdjHardwareState( state ) );
         EXPECT_EQ( state, adj->hwState().value() );
      }
   }
}

TEST( HardwareState, IsPublishedOnceForEachChange ) {
   auto adj = adjacency();
   int heard = 0;
   Kiv::Listener< L2Adjacency::hwStateAttr > changes( adj.ptr(), [&] { ++heard; } );
   L2AdjHardwareState installed;
   installed.installedIs( true );
   adj->hwStateIs( installed );
   adj->hwStateIs( installed );
   EXPECT_EQ( 1, heard );
   adj->hwStateIs( L2AdjHardwareState() );
   EXPECT_EQ( 2, heard );
}

TEST( ForwardingState, TheLaterOnePrevails ) {
   using State = Qon::L2AdjForwardingState;
   const State states[] = { State::l2AdjFwdingUnset, State::l2AdjFwdingUnknown,
                            State::l2AdjFwdingOk, State::l2AdjFwdingDrop };
   for ( U32 i = 0; i < 4; ++i ) {
      for ( U32 j = 0; j < 4; ++j ) {
         EXPECT_EQ( states[std::max( i, j )],
                    Qon::combineExpectedL2AdjForwardingStates( states[i], states[j] ) );
      }
   }
}

TEST( Adjacency, DataTakesRoomOnlyWhenItIsWritten ) {
   auto adj = adjacency(), other = adjacency();
   EXPECT_EQ( &adj->l2AdjData(), &other->l2AdjData() );
   adj->lastAckedPdVersionIdIs( Qon::QonPdVersionId() ); // what it reads as
   EXPECT_FALSE( adj->hasL2AdjData() );
   auto entry = Velto::make< AdjEntry >( one );
   Qon::AdjEntryData data;
   data.fibFecIdIs( Quarn::Fib::FecId( 7 ) );
   data.lastReviewedPiVersionIdIs( Routing::Fib::FecVersionId( 9 ) );
   data.lastAckedPiVersionIdIs( Routing::Fib::FecVersionId( 8 ) );
   entry->adjEntryDataIs( data );
   adj->setL2AdjAckInfo( *entry );
   EXPECT_EQ( Qon::L2AdjAckInfo( Quarn::Fib::FecId( 7 ), Routing::Fib::FecVersionId( 9 ) ),
              adj->l2AdjData().ackInfo() );
   EXPECT_EQ( Qon::L2AdjacencyData(), other->l2AdjData() );
   EXPECT_EQ( 0xffffffffu, other->configRefCountDec( 1 ) );
   EXPECT_EQ( 1u, other->configRefCountInc( 2 ) );
}

TEST( Adjacency, WhatMayBeExpected ) {
   auto adj = adjacency( 1 );
   auto proxied = Velto::make< ProxiedAdj >( "proxied" );
   EXPECT_FALSE( adj->potentialEcmp() || adj->potentialHasBackup() ||
                 adj->potentialHierarchicalNextHop() );
   EXPECT_TRUE( adjacency( 2 )->potentialEcmp() );
   adj->proxiedAdjIs( proxied );
   EXPECT_FALSE( adj->potentialEcmp() );
   proxied->potentialEcmpIs( true );
   proxied->potentialHierarchicalNextHopIs( true );
   EXPECT_TRUE( adj->potentialEcmp() && adj->potentialHierarchicalNextHop() );
   adj->potentialEcmpIs( true ); // means nothing without the feature
   adj->proxiedAdjIs( nullptr );
   EXPECT_FALSE( adj->potentialEcmp() || adj->potentialHierarchicalNextHop() );
   adj->backupViaIs( hop( 5 ) );
   EXPECT_TRUE( adj->potentialHasBackup() );
}

TEST( Adjacency, StickinessIsReadAtTheFirstQuestionOnly ) {
   GTEST_FLAG_SET( death_test_style, "threadsafe" ); // a process in which nobody has asked yet
   const auto flow = [] {
      const String directory = testing::TempDir();
      Kiv::toggleDirectoryIs( directory );
      std::ofstream( directory + "/Qon.json" ) << "{\"QonLeanFaEcmpStickiness\": true}";
      auto adj = adjacency( 2 );
      const bool before = adj->potentialEcmp(); // several next hops mean nothing
      std::remove( ( directory + "/Qon.json" ).c_str() );
      adj->potentialEcmpIs( true );
      adj->potentialEcmpIs( false );
      std::_Exit( !before && adj->potentialEcmp() ? 7 : 1 );
   };
   EXPECT_EXIT( flow(), testing::ExitedWithCode( 7 ), "" );
}

// Table types

TEST( TableTypes, AreCountedOnceForEachFec ) {
   auto adj = adjacency();
   adj->setTableTypeForAdj( one, TableType::unicast );
   adj->setTableTypeForAdj( one, TableType::unicast );
   EXPECT_TRUE( adj->adjEntryHas( one ) );
   EXPECT_EQ( nullptr, adj->l2AdjTableType() );
   adj->setTableTypeForAdj( two, TableType::unicast );
   ASSERT_TRUE( adj->l2AdjTableType() );
   EXPECT_EQ( 2u, adj->l2AdjTableType()->adjTableType( TableType::unicast ) );
   typeDel( *adj, one, TableType::unicast );
   typeDel( *adj, one, TableType::unicast );
   EXPECT_EQ( 1u, adj->l2AdjTableType()->adjTableType( TableType::unicast ) );
   typeDel( *adj, two, TableType::unicast );
   EXPECT_EQ( 0u, adj->adjTableTypes() );
   EXPECT_DEATH( adj->setTableTypeForAdj( three, TableType::mpls ),
                 "QonL2AdjTypes:.*'adjEntryHas\\( fecId \\) \\|\\| \\( proxiedAdj\\(\\) && "
                 "proxiedAdj\\(\\)->proxiedAdjEntryHas\\( fecId \\) \\)' failed" );
}

TEST( TableTypes, StayWhileTheProxiedAdjacencyHoldsTheFec ) {
   auto adj = adjacency();
   auto proxied = Velto::make< ProxiedAdj >( "proxied" );
   adj->proxiedAdjIs( proxied );
   proxied->proxiedAdjEntryIs( one );
   adj->setTableTypeForAdj( one, TableType::vxlan );
   adj->adjEntryDel( one );
   EXPECT_TRUE( adj->isTableTypeSetForAdj( one, TableType::vxlan ) );
   adj->adjEntryIs( two );
   EXPECT_FALSE( adj->isTableTypeSetForAdj( two, TableType::vxlan ) );
   adj->adjEntryIs( one );
   EXPECT_TRUE( adj->isTableTypeSetForAdj( one, TableType::vxlan ) );
   adj->adjEntryDel( one );
   proxied->proxiedAdjEntryDel( one );
   EXPECT_FALSE( adj->adjTableTypeHas( TableType::vxlan ) );
}

/** FECs and types by the rules alone. */
class TypesHistory {
 public:
   explicit TypesHistory( U64 seed ) : rng( seed ) {
      for ( auto & p : proxies ) {
         p = Velto::make< ProxiedAdj >( "proxied" );
      }
   }
   void step() {
      const GlobalFecId fec( rng.below( 5 ) );
      const TableType type = TableType( rng.below( 7 ) );
      const U32 p = rng.below( 2 );
      switch ( rng.below( 40 ) ) {
      case 0:
         adj->l2AdjTableTypeIs();
         break;
      case 1:
         proxy = int( rng.below( 3 ) ) - 1;
         adj->proxiedAdjIs( proxy < 0 ? nullptr : proxies[proxy] );
         break;
      case 2:
         adj->adjEntryDelAll();
         members.clear();
         break;
      case 3:
         adj->handleAdjEntry( fec ); // again, and of strangers
         break;
      case 4:
         adj = adjacency();
         members.clear();
         types.clear();
         proxy = -1;
         break;
      case 5:
      case 6:
         proxies[p]->proxiedAdjEntryIs( fec );
         proxied[p].insert( fec );
         break;
      case 7:
      case 8:
         proxies[p]->proxiedAdjEntryDel( fec );
         proxied[p].erase( fec );
         break;
      default:
         change( fec, type );
      }
      std::erase_if( types, [&]( auto & entry ) { return !holds( entry.first ); } );
   }
   void check() {
      ASSERT_EQ( "", adj->checkInvariants() );
      std::set< TableType > all;
      for ( U32 f = 0; f < 5; ++f ) {
         const GlobalFecId fec( f );
         ASSERT_EQ( members.count( fec ) == 1, adj->adjEntryHas( fec ) );
         for ( U8 t = 0; t < 7; ++t ) {
            const bool has = types.count( fec ) && types[fec].count( TableType( t ) );
            ASSERT_EQ( has, adj->isTableTypeSetForAdj( fec, TableType( t ) ) ) << f << " " << +t;
            if ( has ) {
               all.insert( TableType( t ) );
            }
         }
      }
      ASSERT_EQ( all.size(), adj->adjTableTypes() );
      for ( U8 t = 0; t < 7; ++t ) {
         ASSERT_EQ( all.count( TableType( t ) ) == 1, adj->adjTableTypeHas( TableType( t ) ) );
      }
      std::set< GlobalFecId > walked;
      for ( auto && [fec, nothing] : adj->adjEntryIteratorConst() ) {
         ASSERT_TRUE( walked.insert( fec ).second );
      }
      ASSERT_EQ( members, walked );
      ASSERT_EQ( members.size(), adj->adjEntrys() );
   }

 private:
   bool holds( GlobalFecId fec ) {
      return members.count( fec ) || ( proxy >= 0 && proxied[proxy].count( fec ) );
   }
   void change( GlobalFecId fec, TableType type ) {
      switch ( rng.below( 4 ) ) {
      case 0:
         adj->adjEntryIs( fec );
         members.insert( fec );
         break;
      case 1:
         adj->adjEntryDel( fec );
         members.erase( fec );
         break;
      case 2:
         typeDel( *adj, fec, type );
         types[fec].erase( type );
         break;
      default:
         if ( !adj->l2AdjTableType() ) {
            members.insert( fec );
         }
         if ( holds( fec ) ) {
            adj->setTableTypeForAdj( fec, type );
            types[fec].insert( type );
         }
      }
   }

   Kiv::Rng rng;
   Velto::Ptr< L2Adjacency > adj = adjacency();
   Velto::Ptr< ProxiedAdj > proxies[2];
   int proxy = -1;
   std::set< GlobalFecId > members, proxied[2];
   std::map< GlobalFecId, std::set< TableType > > types;
};

TEST( TableTypes, FollowTheFecsThatAreHeld ) {
   for ( U32 seed = 0; seed < seeds( 300 ) && !testing::Test::HasFailure(); ++seed ) {
      SCOPED_TRACE( seed );
      TypesHistory history( seed );
      for ( U32 i = 0; i < 1000 && !testing::Test::HasFailure(); ++i ) {
         history.step();
         history.check();
      }
   }
}

TEST( TableTypes, SetsAndCountsAgreeWheneverOneIsHeardOf ) {
   auto adj = adjacency();
   const auto types = adj->l2AdjTableTypeIs();
   String heard;
   const auto ask = [&]( const char * what ) {
      heard += what;
      EXPECT_EQ( "", adj->checkInvariants() ) << heard;
   };
   Kiv::Listener< Qon::L2AdjTableType::adjEntryAndTableTypeAttr > sets(
         types.ptr(), [&]( const GlobalFecId & ) { ask( "set " ); } );
   Kiv::Listener< Qon::L2AdjTableType::adjTableTypeAttr > counts(
         types.ptr(), [&]( const TableType & ) { ask( "count " ); } );
   adj->adjEntryIs( one );
   adj->adjEntryIs( two );
   adj->setTableTypeForAdj( one, TableType::mpls );
   adj->setTableTypeForAdj( one, TableType::urpf );
   adj->setTableTypeForAdj( two, TableType::urpf );
   typeDel( *adj, one, TableType::urpf );
   EXPECT_EQ( "set count set count set count set count ", heard );
   heard.clear();
   adj->setTableTypeForAdj( two, TableType::mpls );
   adj->adjEntryDel( two );
   EXPECT_EQ( "set count set count count ", heard );
}

TEST( TableTypes, WhoComesBackWhileAllLeaveStartsAfresh ) {
   auto adj = adjacency();
   adj->adjEntryIs( one );
   adj->adjEntryIs( two );
   adj->setTableTypeForAdj( two, TableType::mpls );
   Kiv::Listener< L2Adjacency::adjEntryAttr > back( adj.ptr(), [&]( const GlobalFecId & fec ) {
      fec == one ? adj->adjEntryIs( two ) : void();
   } );
   adj->adjEntryDelAll();
   EXPECT_TRUE( adj->adjEntryHas( two ) );
   EXPECT_EQ( 0u, adj->adjTableTypes() );
}

TEST( TableTypes, WatchersMayUndoWhatTheyHear ) {
   auto adj = adjacency();
   adj->adjEntryIs( one );
   auto types = adj->l2AdjTableTypeIs();
   Kiv::Listener< Qon::L2AdjTableType::adjTableTypeAttr > undo( types.ptr(),
                                                                [&]( const TableType & type ) {
                                                                   typeDel( *adj, one, type );
                                                                   adj->adjEntryDel( one );
                                                                } );
   adj->setTableTypeForAdj( one, TableType::mpls );
   EXPECT_EQ( "", adj->checkInvariants() );
   EXPECT_EQ( 0u, adj->adjEntrys() );
   undo.detach();
   // Nor may a FEC that is gone again get types.
   auto other = adjacency();
   Kiv::Listener< L2Adjacency::adjEntryAttr > away(
         other.ptr(), [&]( const GlobalFecId & fec ) { other->adjEntryDel( fec ); } );
   other->setTableTypeForAdj( two, TableType::mpls );
   EXPECT_EQ( 0u, other->adjTableTypes() );
   EXPECT_EQ( "", other->checkInvariants() );
}

/** Who stays from when it was first there to the end of a walk is visited once. */
TEST( HybridSet, WalksSeeTheSetWhicheverFormItHas ) {
   for ( U32 seed = 0; seed < seeds( 5000 ) && !testing::Test::HasFailure(); ++seed ) {
      SCOPED_TRACE( seed );
      Kiv::Rng rng( seed );
      Kiv::HybridSet< U32 > set;
      std::map< U32, int > visits;
      const auto change = [&] {
         const U32 key = rng.below( 4 );
         const bool came = rng.percent( 60 );
         ASSERT_EQ( came != visits.count( key ), came ? set.insert( key ) : set.erase( key ) );
         came ? void( visits.emplace( key, 0 ) ) : void( visits.erase( key ) );
         ASSERT_EQ( visits.size(), set.size() );
      };
      for ( U32 n = rng.below( 6 ); n; --n ) {
         change();
      }
      U32 steps = 0;
      for ( Kiv::HybridSet< U32 >::Walk walk( set ); walk; ++walk, ++steps ) {
         ASSERT_TRUE( walk.alive() );
         ++visits[walk.key()];
         const U32 key = walk.key();
         for ( U32 n = steps < 20 ? rng.below( 4 ) : 0; n; --n ) {
            change();
         }
         ASSERT_TRUE( walk.alive() ? visits.count( key ) && visits[key] : true );
      }
      for ( auto [key, times] : visits ) {
         ASSERT_EQ( 1, times ) << key;
      }
   }
}

TEST( AdjacencySabotage, OfItsFecsAndTypes ) {
   sabotage( []( Saboteur & saboteur ) {
      auto adj = adjacency();
      auto proxied = Velto::make< ProxiedAdj >( "proxied" );
      adj->adjEntryIs( one );
      adj->setTableTypeForAdj( one, TableType::mpls );
      auto types = adj->l2AdjTableTypeIs();
      saboteur.watches( { adj.ptr(), types.ptr(), proxied.ptr() } );
      types = nullptr;
      saboteur.drops( adj );
      const auto step = [&]( auto act ) { saboteur.does( [&] { adj ? act() : void(); } ); };
      step( [&] { adj->proxiedAdjIs( proxied ); } );
      step( [&] { adj->adjEntryIs( two ); } );
      step( [&] { adj->setTableTypeForAdj( two, TableType::mpls ); } );
      step( [&] { adj->setTableTypeForAdj( two, TableType::urpf ); } );
      step( [&] { proxied->proxiedAdjEntryIs( one ); } );
      step( [&] { typeDel( *adj, two, TableType::mpls ); } );
      step( [&] { adj->adjEntryDel( one ); } );
      step( [&] { proxied->proxiedAdjEntryDel( one ); } );
      step( [&] { adj->configRefCountInc( 1 ); } );
      step( [&] { adj->hwStateIs( L2AdjHardwareState( 1 ) ); } );
      step( [&] { adj->adjEntryDelAll(); } );
      saboteur.ends( [&] { return adj->checkInvariants(); } );
   } );
}

TEST( Adjacency, IsReachedByName ) {
   auto adj = adjacency();
   adj->adjEntryIs( one );
   Kiv::GenericIf::insert( *adj, "adjEntry[7]" );
   EXPECT_TRUE( adj->adjEntryHas( GlobalFecId( 7 ) ) );
   Kiv::GenericIf::set( *adj, "hwState", "{installed: True, notReady: True}" );
   EXPECT_EQ( 5, adj->hwState().value() );
}

} // namespace
