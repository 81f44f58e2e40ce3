// Encapsulations: kinds that cannot be mistaken, wrappers that are shared and never written by
// somebody else, and the sets of reasons beside them.

#include <optional>
#include <set>

#include "platform/Kiv/Rng.h"
#include "tests/adjacency/Vias.h"

namespace {

using Qon::AdjErrorStates;
using Qon::EncapInfo;
using Type = EncapInfo::Type;
using Velto::String;

/** Each kind: its factory, its type, a write of a payload made of a number, and its reading. */
struct Kind {
   Velto::Ptr< Qon::EncapWrapper > ( *factory )();
   Type type;
   void ( *write )( EncapInfo &, U32 );
   U32 ( *read )( const EncapInfo & );
};

Ulnet::IpGenAddr
address( U32 n ) {
   return Ulnet::IpGenAddr::ipv4( n );
}

U32
numberOf( const Ulnet::IpGenAddr & a ) {
   return U32( a.bytes()[2] ) << 8 | a.bytes()[3];
}

const Kind kinds[] = {
      { EncapInfo::mplsWrapperFactory, Type::mplsEncap,
        []( EncapInfo & e, U32 n ) {
           e.labelsIs( { Ulnet::MplsOp::mplsPush, { Ulnet::MplsLabel( n ) } } );
        },
        []( const EncapInfo & e ) {
           return e.labels().labelStack().empty() ? 0 : e.labels().labelStack()[0].value();
        } },
      { EncapInfo::greWrapperFactory, Type::greEncap,
        []( EncapInfo & e, U32 n ) {
           e.greEncapIs( { {}, {}, 0, 0, n } );
        },
        []( const EncapInfo & e ) { return e.greEncap().key(); } },
      { EncapInfo::ipSecWrapperFactory, Type::ipSecEncap,
        []( EncapInfo & e, U32 n ) {
           e.ipsecEncapIs( { {}, {}, n } );
        },
        []( const EncapInfo & e ) { return e.ipsecEncap().spi(); } },
      { EncapInfo::vxlanWrapperFactory, Type::vxlanEncap,
        []( EncapInfo & e, U32 n ) {
           e.vxlanEncapIs( { n, {}, {}, {} } );
        },
        []( const EncapInfo & e ) { return e.vxlanEncap().vni(); } },
      { EncapInfo::ipInIpWrapperFactory, Type::ipInIpEncap,
        []( EncapInfo & e, U32 n ) {
           e.ipInIpEncapIs( { address( n ), {}, 0, 0 } );
        },
        []( const EncapInfo & e ) { return numberOf( e.ipInIpEncap().src() ); } },
      { EncapInfo::srv6TunnelWrapperFactory, Type::srv6TunnelEncap,
        []( EncapInfo & e, U32 n ) {
           e.srv6TunnelEncapIs( { address( n ), {} } );
        },
        []( const EncapInfo & e ) { return numberOf( e.srv6TunnelEncap().src() ); } },
      { EncapInfo::srv6SidWrapperFactory, Type::srv6SidEncap,
        []( EncapInfo & e, U32 n ) { e.srv6SidEncapIs( Srv6::GenSid( address( n ) ) ); },
        []( const EncapInfo & e ) { return numberOf( e.srv6SidEncap().sid() ); } },
      { EncapInfo::gueTunnelWrapperFactory, Type::gueEncap,
        []( EncapInfo & e, U32 n ) {
           e.gueTunnelEncapIs( { {}, {}, U16( n ) } );
        },
        []( const EncapInfo & e ) { return U32( e.gueTunnelEncap().dstPort() ); } },
      { EncapInfo::dsfTunnelWrapperFactory, Type::dsfEncap,
        []( EncapInfo & e, U32 n ) { e.dsfTunnelEncapIs( Tunnel::DsfTunnelInfo( n ) ); },
        []( const EncapInfo & e ) { return e.dsfTunnelEncap().dstSystemPort(); } },
};

TEST( Encap, OfOneKindIsOfNoOther ) {
   EXPECT_EQ( Type::none, EncapInfo().encapType() );
   EXPECT_EQ( EncapInfo(), EncapInfo() );
   for ( const auto & kind : kinds ) {
      EncapInfo e( kind.factory() );
      EXPECT_EQ( kind.type, e.encapType() );
      EXPECT_NE( EncapInfo(), e );
      kind.write( e, 77 );
      EXPECT_EQ( 77u, kind.read( e ) );
      EXPECT_EQ( e, EncapInfo( e.stringValue() ) );
      const auto & other = kinds[kind.type == Type::mplsEncap];
      const String text = "QonAdjTypesCommon:.*EncapInfo type is " + Kiv::toText( kind.type );
      EXPECT_DEATH( other.read( e ), text );
      EXPECT_DEATH( other.write( e, 1 ), text );
   }
   EXPECT_THROW( EncapInfo( "{greEncap: {key: 1}, gueEncap: {dstPort: 1}}" ), Velto::RangeError );
   EncapInfo none;
   EXPECT_DEATH( none.greEncapIs( {} ), "EncapInfo type is none" );
}

TEST( Encap, TheTextShowsAllKinds ) {
   EncapInfo e( EncapInfo::dsfTunnelWrapperFactory() );
   e.dsfTunnelEncapIs( Tunnel::DsfTunnelInfo( 9 ) );
   EXPECT_EQ(
         "Value('Qon::EncapInfo', ** {"
         "'labels': Value('Ulnet::MplsLabelOperation', ** {'op': mplsNoOp, 'labelStack': {}}), "
         "'greEncap': Value('Tunnel::GreTunnelInfo', ** "
         "{'src': , 'dst': , 'tos': 0, 'ttl': 0, 'key': 0}), "
         "'ipsecEncap': Value('Qon::IpsecTunnelInfo', ** {'src': , 'dst': , 'spi': 0}), "
         "'vxlanEncap': Value('Qon::VxlanEncapInfo', ** "
         "{'vni': 0, 'vtepAddr': , 'srcVtep': , 'bridgeMac': 00:00:00:00:00:00}), "
         "'ipInIpEncap': Value('Qon::IpInIpEncapInfo', ** "
         "{'src': , 'dst': , 'tos': 0, 'ttl': 0}), "
         "'srv6TunnelEncap': Value('Qon::Srv6TunnelEncapInfo', ** "
         "{'src': , 'segments': {}}), "
         "'srv6SidEncap': Value('Srv6::GenSid', ** {'sid': }), "
         "'dsfEncap': Value('Tunnel::DsfTunnelInfo', ** {'dstSystemPort': 9}), "
         "'gueEncap': Value('Tunnel::GueTunnelInfo', ** "
         "{'src': , 'dst': , 'dstPort': 0})})",
         e.stringValue() );
}

TEST( Encap, NoWriteIsSeenThroughAnother ) {
   constexpr U32 count = 4;
   for ( U32 seed = 0; seed < Tests::seeds( 1000 ) && !testing::Test::HasFailure(); ++seed ) {
      Kiv::Rng rng( seed );
      std::optional< Qon::EncapDedupTable > table( std::in_place );
      EncapInfo reals[count];
      std::pair< int, U32 > models[count]; // kind and number
      for ( U32 i = 0; i < count; ++i ) {
         models[i] = { -1, 0 };
      }
      for ( U32 step = 0; step < 2000; ++step ) {
         const U32 at = rng.below( count ), other = rng.below( count ), n = rng.below( 3 );
         auto & [kind, number] = models[at];
         switch ( rng.below( 5 ) ) {
         case 0:
            kind = int( ( seed + rng.below( 3 ) ) % std::size( kinds ) );
            number = 0;
            reals[at] = EncapInfo( kinds[kind].factory() );
            break;
         case 1:
            reals[at] = reals[other];
            models[at] = models[other];
            break;
         case 2:
            if ( rng.percent( 2 ) ) {
               table.emplace(); // what stood in the former one is in none
            }
            reals[at].dedup( *table );
            break;
         default:
            if ( kind >= 0 && n ) {
               kinds[kind].write( reals[at], number = n );
            }
         }
         std::set< const Qon::EncapWrapper * > held;
         for ( U32 i = 0; i < count; ++i ) {
            const auto [k, wanted] = models[i];
            ASSERT_EQ( k < 0 ? Type::none : kinds[k].type, reals[i].encapType() );
            ASSERT_EQ( wanted, k < 0 ? 0 : kinds[k].read( reals[i] ) );
            for ( U32 j = 0; j < i; ++j ) {
               ASSERT_EQ( models[i] == models[j], reals[i] == reals[j] );
            }
            if ( reals[i].wrapper() && reals[i].wrapper()->interned() ) {
               held.insert( reals[i].wrapper() );
            }
         }
         ASSERT_EQ( held.size(), table->size() );
      }
   }
}

TEST( ErrorStates, PermanentOnesAreNotTransient ) {
   EXPECT_TRUE( isAdjErrorStateTransient( AdjErrorStates() ) );
   for ( U32 bits = 1; bits < 0x400; ++bits ) {
      EXPECT_EQ( ( bits & 0x30a ) == 0, isAdjErrorStateTransient( AdjErrorStates( U16( bits ) ) ) );
   }
}

/** The flag names of a set's text, in order, are `names`; each is its bit. */
template< class Bits >
void
expectFlags( const std::vector< String > & names ) {
   for ( U32 set = 0; set < names.size(); ++set ) {
      const Bits bits( decltype( Bits::allBits )( U64( 1 ) << set ) );
      const String text = bits.stringValue();
      std::size_t at = 0;
      for ( U32 i = 0; i < names.size(); ++i ) {
         const String field = "'" + names[i] + "': " + ( i == set ? "True" : "False" );
         const auto found = text.find( field, at );
         ASSERT_NE( String::npos, found ) << field << " in " << text;
         at = found;
      }
      EXPECT_EQ( bits, Bits( text ) );
      EXPECT_EQ( Bits(), bits & ~bits );
      EXPECT_EQ( ~Bits(), bits | ~bits );
   }
   EXPECT_EQ( ( U64( 1 ) << names.size() ) - 1, U64( ( ~Bits() ).value() ) );
}

TEST( Flags, EachBitHasItsName ) {
   expectFlags< AdjErrorStates >( { "uninitialized", "invalidRouteType", "fecMissingFromFib",
                                    "fecHierarchyContainsCycle", "nextLevelFecInvalid",
                                    "vxlanTunnelsNotReconciled", "sourceFecInvalid",
                                    "nextLevelInfoMissing", "expandedL2AdjHasFailedChildren",
                                    "lowerLevelL2AdjInstallFailed" } );
   expectFlags< Qon::AdjUpdateType >(
         { "linkDownFullAdjUpdate", "highPriorityPrevLevelAdjUpdate", "contentChangeAdjUpdate",
           "forcedAdjUpdate", "regularAdjUpdate", "refChangeAdjUpdate", "l3IntfAdjUpdate",
           "tableTypeChangeAdjUpdate", "ecmpGroupsFullAdjUpdate", "linkUpAdjUpdate",
           "forcePrefixWalkAdjUpdate", "prevLevelAdjWalkAdjUpdate", "preSyncAdjUpdate",
           "syncReconstructionAdjUpdate", "syncCompletionAdjUpdate", "lowPriorityAdjUpdate" } );
   expectFlags< Qon::AdjWalkType >( { "prefixWalk", "adjDeferralOnlyPrefixWalk",
                                      "prevLevelL2AdjReEvalWalk", "prevLevelL2AdjReInstallWalk" } );
   AdjErrorStates states;
   states.fecMissingFromFibIs( true );
   EXPECT_EQ( 4, states.value() );
   EXPECT_EQ( "Value('Qon::AdjWalkType', ** {'prefixWalk': False, 'adjDeferralOnlyPrefixWalk': "
              "True, 'prevLevelL2AdjReEvalWalk': False, 'prevLevelL2AdjReInstallWalk': False})",
              Qon::AdjWalkType( 2 ).stringValue() );
}

} // namespace
