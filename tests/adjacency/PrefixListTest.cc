// Prefixes by forwarding class: what is counted, what is told and when, and what handlers may do
// meanwhile. Both families behave alike.

#include <functional>
#include <map>
#include <set>

#include "Qon/include/adjacency/AdjGlobalPrefixList.h"
#include "Qon/include/adjacency/AdjReviewRequest.h"
#include "platform/Kiv/Rng.h"
#include "platform/Velto/Assert.h"
#include "tests/adjacency/Vias.h"

namespace {

using namespace Tests;
using Qon::AdjGlobalPrefixList;
using Qon::AdjGlobalPrefixListWrapper;
using Qon::AdjPrefixListBaseKey;
using Qon::GlobalFecId;
using Qon::VrfId;
using Ulnet::AddressFamily;
using Ulnet::Ip6Prefix;
using Ulnet::Prefix;

const GlobalFecId fecA( 1 ), fecB( 2 );
const VrfId red( 7 ), blue( 0xffffff );

/** Calls `act` at each notification. */
struct Told : Qon::AdjPrefixCountStatus {
   void notify( const AdjGlobalPrefixList::PtrConst & list, AddressFamily family ) override {
      ++calls;
      last = family;
      act( *list );
   }
   U32 calls = 0;
   AddressFamily last = AddressFamily::none;
   std::function< void( const AdjGlobalPrefixList & ) > act = []( auto & ) {};
};

/** The names of one family. */
struct V4 {
   using P = Prefix;
   static constexpr const char * counts[] = { "v4PrefixCount()", "defaultV4PrefixCount()" };
   static P prefix( U32 i ) { return P( { 10, U8( i >> 8 ), U8( i ), 0 }, 24 ); }
   static P shorter() { return P( String( "0.0.0.0/8" ) ); }
   static U32 total( const AdjGlobalPrefixList & l ) { return l.v4PrefixCount(); }
   static U32 defaults( const AdjGlobalPrefixList & l ) { return l.defaultV4PrefixCount(); }
   static void totalIs( AdjGlobalPrefixList & l, U32 v ) { l.v4PrefixCountIs( v ); }
   static void defaultsAre( AdjGlobalPrefixList & l, U16 v ) { l.defaultV4PrefixCountIs( v ); }
   static void otherIs( AdjGlobalPrefixList & l, U32 v ) { l.v6PrefixCountIs( v ); }
};
struct V6 {
   using P = Ip6Prefix;
   static constexpr const char * counts[] = { "v6PrefixCount()", "defaultV6PrefixCount()" };
   static P prefix( U32 i ) { return P( { 0x20, 1, U8( i >> 8 ), U8( i ) }, 48 ); }
   static P shorter() { return P( String( "::ffff:0:0/96" ) ); }
   static U32 total( const AdjGlobalPrefixList & l ) { return l.v6PrefixCount(); }
   static U32 defaults( const AdjGlobalPrefixList & l ) { return l.defaultV6PrefixCount(); }
   static void totalIs( AdjGlobalPrefixList & l, U32 v ) { l.v6PrefixCountIs( v ); }
   static void defaultsAre( AdjGlobalPrefixList & l, U16 v ) { l.defaultV6PrefixCountIs( v ); }
   static void otherIs( AdjGlobalPrefixList & l, U32 v ) { l.v4PrefixCountIs( v ); }
};

/** What is printed when `expression` does not hold, as a pattern. */
String
failure( const String & expression ) {
   String pattern = "AdjGlobalPrefixList:.*Assertion '";
   for ( char c : expression ) {
      pattern += ispunct( U8( c ) ) ? String( "[" ) + c + "]" : String( 1, c );
   }
   return pattern + "' failed";
}

template< class F >
class PrefixLists : public testing::Test {
 protected:
   using P = typename F::P;
   using List = Qon::VrfPrefixListOf< P >;

   void add( GlobalFecId fec, VrfId vrf, const P & p ) {
      if constexpr ( P::family == AddressFamily::ipv4 ) {
         lists->adjVrfPrefixIs( fec, vrf, p, told.ptr() );
      } else {
         lists->adjVrfPrefix6Is( fec, vrf, p, told.ptr() );
      }
   }
   void del( GlobalFecId fec, VrfId vrf, const P & p ) {
      if constexpr ( P::family == AddressFamily::ipv4 ) {
         lists->adjVrfPrefixDel( fec, vrf, p, told.ptr() );
      } else {
         lists->adjVrfPrefix6Del( fec, vrf, p, told.ptr() );
      }
   }
   const AdjGlobalPrefixList & of( GlobalFecId fec ) { return *lists->adjGlobalPrefixList( fec ); }
   bool has( GlobalFecId fec, VrfId vrf, const P & p ) {
      auto * list = lists->adjGlobalPrefixList( fec );
      auto * inVrf = list ? list->listOf< List >( vrf ) : nullptr;
      return inVrf && inVrf->prefixHas( p );
   }
   Velto::Ptr< AdjGlobalPrefixListWrapper > lists = Velto::make< AdjGlobalPrefixListWrapper >();
   Velto::Ptr< Told > told = Velto::make< Told >();
   const P p = F::prefix( 1 ), q = F::prefix( 2 ), anything = P();
};
using Families = testing::Types< V4, V6 >;
TYPED_TEST_SUITE( PrefixLists, Families );

TYPED_TEST( PrefixLists, CountAPrefixOnceInEachVrf ) {
   this->add( fecA, red, this->p );
   this->add( fecA, red, this->p );
   EXPECT_EQ( 1u, TypeParam::total( this->of( fecA ) ) );
   EXPECT_EQ( 1u, this->told->calls );
   EXPECT_EQ( TypeParam::P::family, this->told->last );
   this->add( fecA, blue, this->p );
   this->add( fecB, red, this->p );
   EXPECT_EQ( 2u, TypeParam::total( this->of( fecA ) ) );
   this->del( fecA, red, this->p );
   EXPECT_EQ( 1u, TypeParam::total( this->of( fecA ) ) );
   EXPECT_TRUE( this->has( fecA, blue, this->p ) && this->has( fecB, red, this->p ) );
   EXPECT_EQ( 4u, this->told->calls );
   // The last one takes the list with it, for whoever has no copy.
   const AdjGlobalPrefixList::PtrConst kept( &this->of( fecA ) );
   this->del( fecA, blue, this->p );
   EXPECT_FALSE( this->lists->adjGlobalPrefixListHas( fecA ) );
   this->add( fecA, blue, this->q );
   EXPECT_NE( kept.ptr(), &this->of( fecA ) );
   EXPECT_EQ( 1u, TypeParam::total( this->of( fecA ) ) );
   EXPECT_EQ( "", this->lists->checkInvariants() );
}

TYPED_TEST( PrefixLists, CountDefaultRoutesApart ) {
   this->add( fecA, red, TypeParam::shorter() );
   EXPECT_EQ( 0u, TypeParam::defaults( this->of( fecA ) ) );
   this->add( fecA, red, this->anything );
   this->add( fecA, blue, this->anything );
   EXPECT_EQ( 3u, TypeParam::total( this->of( fecA ) ) );
   EXPECT_EQ( 2u, TypeParam::defaults( this->of( fecA ) ) );
   EXPECT_EQ( 3u, this->told->calls );
   this->del( fecA, red, this->anything );
   EXPECT_EQ( 1u, TypeParam::defaults( this->of( fecA ) ) );
   this->del( fecA, red, TypeParam::shorter() );
   EXPECT_EQ( "", this->lists->checkInvariants() );
}

TYPED_TEST( PrefixLists, TellInTheMiddleOfEachChange ) {
   this->told->act = [&]( const AdjGlobalPrefixList & list ) {
      EXPECT_EQ( 1u, TypeParam::total( list ) );
      EXPECT_FALSE( this->has( fecA, red, this->p ) );
   };
   this->add( fecA, red, this->p );
   EXPECT_TRUE( this->has( fecA, red, this->p ) );
   this->told->act = [&]( const AdjGlobalPrefixList & list ) {
      EXPECT_EQ( 0u, TypeParam::total( list ) );
      EXPECT_FALSE( this->has( fecA, red, this->p ) );
      EXPECT_EQ( &list, this->lists->adjGlobalPrefixList( fecA ) );
      EXPECT_EQ( 1u, list.prefixLists() );
   };
   this->del( fecA, red, this->p );
   EXPECT_EQ( 2u, this->told->calls );
   EXPECT_FALSE( this->lists->adjGlobalPrefixListHas( fecA ) );
}

TYPED_TEST( PrefixLists, RemoveNothingThatIsNotThere ) {
   this->del( fecA, red, this->p );
   EXPECT_EQ( 0u, this->lists->adjGlobalPrefixLists() );
   const auto empty = this->lists->adjGlobalPrefixListIs( fecA );
   this->del( fecA, red, this->p );
   EXPECT_EQ( empty.ptr(), &this->of( fecA ) );
   this->add( fecA, red, this->p );
   this->del( fecA, red, this->q );
   this->del( fecA, blue, this->p );
   this->del( fecA, VrfId( 0x1000000 + red.value() ), this->p );
   EXPECT_EQ( 1u, this->of( fecA ).prefixLists() );
   EXPECT_EQ( 1u, this->told->calls );
   this->lists->adjGlobalPrefixListDel( fecA );
   this->lists->adjGlobalPrefixListDel( fecA );
   EXPECT_EQ( 1u, this->told->calls );
   EXPECT_EQ( 1u, TypeParam::total( *empty ) ); // who holds it still reads it
   EXPECT_DEATH( this->add( fecA, VrfId( 0x1000000 ), this->p ), failure( "vrfId <= 0xffffff" ) );
}

TYPED_TEST( PrefixLists, RefuseCountsThatCannotBe ) {
   using F = TypeParam;
   this->add( fecA, red, this->p );
   this->add( fecA, red, this->anything );
   AdjGlobalPrefixList & list = *this->lists->adjGlobalPrefixList( fecA );
   const auto put = [&]( U32 total, U16 defaults ) {
      F::totalIs( list, total );
      F::defaultsAre( list, defaults );
   };
   const String total = String( "adjPfxLists->" ) + F::counts[0];
   const String defaults = String( "adjPfxLists->" ) + F::counts[1];
   put( ~0u, 0xffff );
   EXPECT_DEATH( this->add( fecA, red, this->q ),
                 failure( total + " < std::numeric_limits< U32 >::max()" ) );
   put( 0, 0xffff );
   EXPECT_DEATH( this->add( fecA, blue, this->anything ),
                 failure( defaults + " < std::numeric_limits< U16 >::max()" ) );
   EXPECT_DEATH( this->del( fecA, red, this->p ), failure( total + " != 0" ) );
   put( 1, 0 );
   EXPECT_DEATH( this->del( fecA, red, this->anything ), failure( defaults + " != 0" ) );
   put( 0xfffffffe, 0xfffe );
   this->add( fecA, blue, this->anything );
   EXPECT_EQ( ~0u, F::total( list ) );
   EXPECT_EQ( 0xffffu, F::defaults( list ) );
   put( 3, 2 );
   F::otherIs( list, 1 );
   this->del( fecA, red, this->p );
   this->del( fecA, red, this->anything );
   EXPECT_DEATH(
         this->del( fecA, blue, this->anything ),
         failure( "adjPfxLists->v4PrefixCount() == 0 && adjPfxLists->v6PrefixCount() == 0" ) );
}

TYPED_TEST( PrefixLists, MayBeChangedWhileOneIsToldOf ) {
   // Whoever hears of the first class moves prefixes of others, which are told of in between.
   this->add( fecB, red, this->p );
   this->told->act = [&]( const AdjGlobalPrefixList & list ) {
      if ( list.fecId() == fecA ) {
         this->del( fecB, red, this->p );
         for ( U32 i = 0; i < 100; ++i ) {
            this->add( GlobalFecId( 10 + i ), red, this->p );
         }
         this->add( fecA, blue, this->q ); // is there already
         this->lists->adjGlobalPrefixListDel( GlobalFecId( 50 ) );
      }
   };
   this->lists->adjVrfPrefixIs( fecA, blue, Prefix(), nullptr );
   this->lists->prefixIs( fecA, blue, this->q, nullptr );
   this->add( fecA, red, this->p );
   EXPECT_TRUE( this->has( fecA, red, this->p ) );
   EXPECT_FALSE( this->lists->adjGlobalPrefixListHas( fecB ) );
   EXPECT_EQ( 100u, this->lists->adjGlobalPrefixLists() );
   EXPECT_EQ( "", this->lists->checkInvariants() );
   // But not that class itself, however deep inside.
   this->told->act = [&]( const AdjGlobalPrefixList & list ) {
      list.fecId() == fecA ? this->del( GlobalFecId( 10 ), red, this->p )
                           : this->del( fecA, red, this->p );
   };
   EXPECT_DEATH( this->add( fecA, red, this->q ), failure( "!notifying()" ) );
   // Nor when what was told of in between is over.
   this->told->act = [&]( const AdjGlobalPrefixList & list ) {
      if ( list.fecId() == fecA ) {
         this->del( GlobalFecId( 10 ), red, this->p );
         this->del( fecA, red, this->p );
      }
   };
   EXPECT_DEATH( this->add( fecA, red, this->q ), failure( "!notifying()" ) );
}

TYPED_TEST( PrefixLists, MakeTheChangeThoughAHandlerRaises ) {
   this->told->act = []( auto & ) { throw Velto::RangeError( "no" ); };
   EXPECT_THROW( this->add( fecA, red, this->p ), Velto::RangeError );
   EXPECT_TRUE( this->has( fecA, red, this->p ) );
   EXPECT_EQ( "", this->lists->checkInvariants() );
   EXPECT_THROW( this->del( fecA, red, this->p ), Velto::RangeError );
   EXPECT_FALSE( this->lists->adjGlobalPrefixListHas( fecA ) );
   // Nor is a class taken for one that is still told of.
   this->told->act = []( auto & ) {};
   this->add( fecA, red, this->p );
   EXPECT_EQ( 1u, TypeParam::total( this->of( fecA ) ) );
}

TYPED_TEST( PrefixLists, MayEndWhileOneIsToldOf ) {
   for ( bool removal : { false, true } ) {
      this->lists = Velto::make< AdjGlobalPrefixListWrapper >();
      this->lists->prefixIs( fecA, red, this->p, nullptr );
      this->told->act = [&]( auto & ) { this->lists = nullptr; };
      removal ? this->del( fecA, red, this->p ) : this->add( fecA, red, this->q );
      EXPECT_EQ( nullptr, this->lists.ptr() );
   }
}

TYPED_TEST( PrefixLists, AreTheSameSetHoweverManyThereAre ) {
   using P = typename TestFixture::P;
   for ( U32 seed = 0; seed < seeds( 40 ) && !testing::Test::HasFailure(); ++seed ) {
      SCOPED_TRACE( seed );
      Kiv::Rng rng( seed );
      typename TestFixture::List list( red );
      std::vector< P > model;                                 // in order of insertion
      const U32 most = seed % 4 ? 1 + rng.below( 60 ) : 1000; // beyond what one block holds
      for ( U32 i = 0, rising = 80; i < most * 8; ++i ) {
         const P p = TypeParam::prefix( rng.below( most + most / 4 ) );
         const auto at = std::find( model.begin(), model.end(), p );
         ASSERT_EQ( at != model.end(), list.prefixHas( p ) );
         rising = i % ( most * 2 ) == 0 ? 100 - rising : rising;
         if ( rng.percent( rising ) ) {
            ASSERT_EQ( at == model.end(), list.prefixIs( p ) );
            at == model.end() ? model.push_back( p ) : void();
         } else {
            ASSERT_EQ( at != model.end(), list.prefixDel( p ) );
            at != model.end() ? void( model.erase( at ) ) : void();
         }
         ASSERT_EQ( model.size(), list.prefixs() );
         if ( i % 37 == 0 ) {
            list = typename TestFixture::List( std::move( list ) );
            auto expected = model.begin();
            for ( auto walk = list.prefixIteratorConst(); walk; ++walk ) {
               ASSERT_EQ( *expected++, walk.key() );
            }
            ASSERT_EQ( model.end(), expected );
         }
      }
   }
}

TYPED_TEST( PrefixLists, WalksSurviveChanges ) {
   using List = typename TestFixture::List;
   for ( U32 n : { 0, 1, 20, 1000 } ) {
      std::optional< List > list( red );
      for ( U32 i = 0; i < n; ++i ) {
         list->prefixIs( TypeParam::prefix( i ) );
      }
      U32 walked = 0;
      auto ending = list->prefixIteratorConst();
      for ( auto i = list->prefixIteratorConst(); i; ++i ) {
         const auto p = i.key();
         EXPECT_EQ( TypeParam::prefix( walked++ ), p );
         EXPECT_TRUE( list->prefixDel( p ) );
      }
      EXPECT_EQ( n, walked );
      list.reset();
      for ( U32 steps = 0; ending; ++ending ) {
         ASSERT_LE( ++steps, n );
      }
   }
}

// Both families at once

/** Lists and counts by the rules alone. */
class PrefixHistory {
 public:
   explicit PrefixHistory( U64 seed ) : rng( seed ) {
      told->act = [this]( const AdjGlobalPrefixList & list ) { heard( list ); };
   }
   void step() {
      if ( rng.percent( 1 ) ) {
         const GlobalFecId fec( rng.below( 4 ) );
         lists->adjGlobalPrefixListDel( fec );
         std::erase_if( model, [&]( auto & m ) { return m.fec == fec; } );
      } else {
         rng.percent( 50 )
               ? change( Prefix( { U8( rng.below( 20 ) ), 0, 0, 0 }, rng.below( 3 ) * 8 ) )
               : change( Ip6Prefix( { U8( rng.below( 20 ) ) }, rng.below( 3 ) * 64 ) );
      }
   }
   void check() {
      ASSERT_EQ( "", lists->checkInvariants() );
      std::map< GlobalFecId, std::set< U32 > > keys;
      U32 prefixes = 0;
      for ( const Member & m : model ) {
         keys[m.fec].insert( ( m.prefix.address().isIpv4() ? 0x1000000 : 0x2000000 ) + m.vrf );
         ASSERT_TRUE( holds( m ) ) << m.prefix.stringValue();
      }
      ASSERT_EQ( keys.size(), lists->adjGlobalPrefixLists() );
      for ( auto && [fec, list] : lists->adjGlobalPrefixListIteratorConst() ) {
         std::set< U32 > walked;
         for ( auto i = list->prefixListIteratorConst(); i; ++i ) {
            ASSERT_TRUE( i.alive() && walked.insert( i.value().key().value() ).second );
         }
         ASSERT_EQ( keys[fec], walked );
         prefixes += list->v4PrefixCount() + list->v6PrefixCount();
      }
      ASSERT_EQ( model.size(), prefixes );
   }

 private:
   struct Member {
      GlobalFecId fec;
      U32 vrf;
      Ulnet::IpGenPrefix prefix;
      auto operator<=>( const Member & ) const = default;
   };

   template< class P >
   void change( const P & p ) {
      const Member m{ GlobalFecId( rng.below( 4 ) ), rng.below( 3 ), p.genPrefix() };
      const bool comes = rng.percent( rising ? 60 : 40 );
      rising ^= rng.percent( 1 );
      const bool changes = comes ? model.insert( m ).second : model.erase( m ) == 1;
      const U32 before = told->calls;
      expected.push_back( m.fec );
      comes ? lists->prefixIs( m.fec, VrfId( m.vrf ), p, told.ptr() )
            : lists->prefixDel( m.fec, VrfId( m.vrf ), p, told.ptr() );
      expected.pop_back();
      ASSERT_EQ( changes, told->calls != before );
   }
   /** Sometimes changes another fecA, sometimes deeper still. */
   void heard( const AdjGlobalPrefixList & list ) {
      ASSERT_EQ( expected.back(), list.fecId() );
      const GlobalFecId other( 4 + expected.size() );
      if ( expected.size() < 4 && rng.percent( 30 ) ) {
         expected.push_back( other );
         const Prefix p( { U8( rng.below( 3 ) ), 0, 0, 0 }, 8 );
         const bool comes = rng.percent( 50 );
         const Member m{ other, 1, p.genPrefix() };
         comes ? void( model.insert( m ) ) : void( model.erase( m ) );
         comes ? lists->adjVrfPrefixIs( other, VrfId( 1 ), p, told.ptr() )
               : lists->adjVrfPrefixDel( other, VrfId( 1 ), p, told.ptr() );
         expected.pop_back();
      }
   }
   bool holds( const Member & m ) {
      auto * list = lists->adjGlobalPrefixList( m.fec );
      if ( m.prefix.address().isIpv4() ) {
         auto * l = list ? list->vrfPrefixList( VrfId( m.vrf ) ) : nullptr;
         return l && l->prefixHas( Prefix( m.prefix ) );
      }
      auto * l = list ? list->vrfPrefix6List( VrfId( m.vrf ) ) : nullptr;
      return l && l->prefixHas( Ip6Prefix( m.prefix ) );
   }

   Kiv::Rng rng;
   Velto::Ptr< AdjGlobalPrefixListWrapper > lists = Velto::make< AdjGlobalPrefixListWrapper >();
   Velto::Ptr< Told > told = Velto::make< Told >();
   std::set< Member > model;
   std::vector< GlobalFecId > expected; // who is told of, the innermost last
   bool rising = true;
};

TEST( PrefixListHistory, IsThatOfTheModel ) {
   for ( U32 seed = 0; seed < seeds( 100 ) && !testing::Test::HasFailure(); ++seed ) {
      SCOPED_TRACE( seed );
      PrefixHistory history( seed );
      for ( U32 i = 0; i < 600 && !testing::Test::HasFailure(); ++i ) {
         history.step();
         history.check();
      }
   }
}

TEST( PrefixListKey, HasTheFamilyAboveTheVrf ) {
   EXPECT_EQ( 0x1ffffffu, AdjPrefixListBaseKey( blue, AddressFamily::ipv4 ).value() );
   EXPECT_EQ( 0x2000007u, AdjPrefixListBaseKey( red, AddressFamily::ipv6 ).value() );
   EXPECT_EQ( blue, AdjPrefixListBaseKey( blue, AddressFamily::ipv4 ).vrfId() );
}

TEST( PrefixBlocks, ClearWhatIsBehindTheLength ) {
   EXPECT_EQ( Prefix( String( "10.1.128.0/17" ) ), Prefix( { 10, 1, 255, 255 }, 17 ) );
   EXPECT_EQ( Prefix(), Prefix( { 1, 2, 3, 4 }, 0 ) );
   EXPECT_EQ( "2001:8000::/17", Ip6Prefix( { 0x20, 1, 0xff, 0xff }, 17 ).stringValue() );
   EXPECT_EQ( "1.2.3.4/32", Prefix( { 1, 2, 3, 4 }, 32 ).stringValue() );
   EXPECT_THROW( Prefix( { 1, 2, 3, 4 }, 33 ), Velto::RangeError );
   EXPECT_THROW( Prefix( String( "::/0" ) ), Velto::RangeError );
   EXPECT_THROW( Ip6Prefix( String( "0.0.0.0/0" ) ), Velto::RangeError );
}

TEST( ReviewRequest, VersionsWrap ) {
   using Request = Qon::AdjReviewRequest;
   EXPECT_TRUE( Request::versionBefore( 1, 2 ) && Request::versionBefore( 0xfffffffe, 3 ) );
   EXPECT_FALSE( Request::versionBefore( 2, 2 ) || Request::versionBefore( 3, 0xfffffffe ) );
   EXPECT_FALSE( Request::versionBefore( 0, 0x80000000 ) ||
                 Request::versionBefore( 0x80000000, 0 ) );
   Request old;
   old.versionIs( 0xffffffff );
   EXPECT_TRUE( old.isOlderThan( Request() ) );
}

} // namespace
