// What the chip does with packets, against a first match over what is configured.

#include <array>

#include "platform/Kiv/Rng.h"
#include "tests/acl/AclWorld.h"

namespace {

using namespace AclTests;

/** A rule as somebody reads it who knows nothing of the library. */
struct PlainRule {
   bool permit = true;
   int protocol = -1; // any
   std::array< U32, 2 > address{}, length{};
   std::array< U32, 2 > first{ 0, 0 }, last{ 65535, 65535 };

   bool ports() const { return first[0] || first[1] || last[0] != 65535 || last[1] != 65535; }
   static U32 mask( U32 length ) { return length ? ~U32( 0 ) << ( 32 - length ) : 0; }
};

struct PlainPacket {
   int protocol = 0;
   std::array< U32, 2 > address{}, port{};
   bool fragment = false;
};

/** Further fragments show no ports: what is permitted by ports is permitted without. */
bool
plainMatch( const PlainRule & rule, const PlainPacket & packet ) {
   if ( rule.protocol >= 0 && rule.protocol != packet.protocol ) {
      return false;
   }
   for ( int side : { 0, 1 } ) {
      if ( ( packet.address[side] ^ rule.address[side] ) & PlainRule::mask( rule.length[side] ) ) {
         return false;
      }
   }
   const bool shown = !packet.fragment && ( packet.protocol == 6 || packet.protocol == 17 );
   if ( !shown ) {
      return !rule.ports() || ( packet.fragment && rule.permit );
   }
   return packet.port[0] >= rule.first[0] && packet.port[0] <= rule.last[0] &&
          packet.port[1] >= rule.first[1] && packet.port[1] <= rule.last[1];
}

class Probes {
 public:
   explicit Probes( AclWorld & world ) : w( world ) {}

   PlainRule draw() {
      PlainRule rule;
      rule.permit = random.percent( 60 );
      const int protocols[] = { 6, 6, 17, 17, 1, -1 };
      rule.protocol = protocols[random.below( 6 )];
      for ( int side : { 0, 1 } ) {
         rule.length[side] = random.percent( 10 ) ? 0 : 12 + random.below( 21 );
         rule.address[side] =
               ( 0x0a000000 + random.below( 1 << 22 ) ) & PlainRule::mask( rule.length[side] );
         if ( rule.protocol == 6 || rule.protocol == 17 ) {
            if ( random.percent( 50 ) ) {
               rule.first[side] = random.below( 65536 );
               rule.last[side] = std::min( 65535u, rule.first[side] + random.below( 2000 ) );
            }
         }
      }
      return rule;
   }
   void ruleIs( const String & list, U32 seq, const PlainRule & rule ) {
      lists[list][seq] = rule;
      Acl::IpFilter filter;
      if ( rule.protocol >= 0 ) {
         filter.protocolIs( U8( rule.protocol ) );
      }
      auto prefix = [&]( int side ) {
         return rule.length[side]
                      ? Ulnet::IpGenPrefix( Ulnet::IpGenAddr::ipv4( rule.address[side] ),
                                            U8( rule.length[side] ) )
                      : Ulnet::IpGenPrefix();
      };
      auto range = [&]( int side ) {
         return Acl::PortRange( U16( rule.first[side] ), U16( rule.last[side] ) );
      };
      filter.srcIs( prefix( 0 ) );
      filter.dstIs( prefix( 1 ) );
      filter.srcPortIs( range( 0 ) );
      filter.dstPortIs( range( 1 ) );
      w.rule( list, seq, rule.permit ? Acl::RuleAction::permit : Acl::RuleAction::deny, filter );
   }
   void ruleDel( const String & list, U32 seq ) {
      lists[list].erase( seq );
      w.list( list )->ruleDel( seq );
   }
   void listDel( const String & list ) {
      lists.erase( list );
      w.listDel( list );
   }

   /** At an edge of a rule in each field; mostly of one of the first, as traffic goes. */
   PlainPacket packet( const String & list ) {
      auto & rules = lists[list];
      const U32 most = U32( rules.size() );
      const PlainRule & rule =
            std::next( rules.begin(), random.below( 1 + random.below( most ) ) )->second;
      PlainPacket packet;
      const int protocols[] = { 6, 17, 1, 47 };
      packet.protocol = rule.protocol >= 0 && random.percent( 90 ) ? rule.protocol
                                                                   : protocols[random.below( 4 )];
      packet.fragment = random.percent( 15 );
      for ( int side : { 0, 1 } ) {
         const U32 end = rule.address[side] | ~PlainRule::mask( rule.length[side] );
         packet.address[side] = edge( rule.address[side], end );
         packet.port[side] = edge( rule.first[side], rule.last[side] ) & 0xffff;
      }
      return packet;
   }
   /** How many of `count` packets the chip treats otherwise than the configuration says. */
   U32 wrong( const String & list, const String & port, U32 count ) {
      U32 wrong = 0;
      for ( U32 n = 0; n < count; ++n ) {
         const PlainPacket p = packet( list );
         bool permit = false;
         for ( auto & [seq, rule] : lists[list] ) {
            if ( plainMatch( rule, p ) ) {
               permit = rule.permit;
               break;
            }
         }
         permits += permit;
         const auto verdict = w.table.lookup( intf( port ), {}, in, shown( p ) ).verdict;
         wrong += verdict != ( permit ? QonChip::AclVerdict::permit : QonChip::AclVerdict::deny );
      }
      return wrong;
   }

   U32 permits = 0;

 private:
   U32 edge( U32 first, U32 last ) {
      const U32 edges[] = { first, last, first - 1, last + 1, first + ( last - first ) / 2 };
      return edges[random.below( 5 )];
   }
   static QonChip::AclPacket shown( const PlainPacket & p ) {
      QonChip::AclPacket packet;
      packet.src = Ulnet::IpGenAddr::ipv4( p.address[0] );
      packet.dst = Ulnet::IpGenAddr::ipv4( p.address[1] );
      packet.protocol = U8( p.protocol );
      packet.fragment = p.fragment;
      if ( !p.fragment && ( p.protocol == 6 || p.protocol == 17 ) ) {
         packet.srcPort = U16( p.port[0] );
         packet.dstPort = U16( p.port[1] );
      }
      return packet;
   }

   AclWorld & w;
   Kiv::Rng random{ 17 };
   std::map< String, std::map< U32, PlainRule > > lists;
};

TEST( AclProbes, TheChipDecidesAsTheFirstRuleThatMatches ) {
   AclWorld w;
   Probes probes( w );
   for ( U32 seq = 1; seq <= 2400; ++seq ) {
      probes.ruleIs( "edge", seq * 10, probes.draw() );
   }
   for ( U32 seq = 1; seq <= 3000; ++seq ) {
      probes.ruleIs( "core", seq * 10, probes.draw() );
   }
   w.members( "Port-Channel1", { "Ethernet2", "Ethernet3" } );
   w.attach( "Ethernet1", "edge" );
   w.attach( "Port-Channel1", "edge" );
   w.attach( "Vlan10", "core" );
   w.start();
   w.settle();
   EXPECT_EQ( probes.wrong( "edge", "Ethernet1", 20000 ), 0u );
   EXPECT_EQ( probes.wrong( "edge", "Ethernet3", 10000 ), 0u );
   EXPECT_EQ( probes.wrong( "core", "Vlan10", 20000 ), 0u );
   for ( U32 n = 1; n <= 300; ++n ) { // others, between them and fewer
      probes.ruleIs( "edge", n * 70 % 24000, probes.draw() );
      probes.ruleIs( "edge", n * 70 % 24000 + 5, probes.draw() );
      probes.ruleDel( "core", n * 80 );
   }
   w.settle();
   EXPECT_EQ( probes.wrong( "edge", "Ethernet2", 20000 ), 0u );
   EXPECT_EQ( probes.wrong( "core", "Vlan10", 10000 ), 0u );
   probes.listDel( "edge" );
   for ( U32 seq = 1; seq <= 2400; ++seq ) {
      probes.ruleIs( "edge", seq, probes.draw() );
   }
   w.settle();
   EXPECT_EQ( probes.wrong( "edge", "Ethernet1", 20000 ), 0u );
   EXPECT_GT( probes.permits, 30000u ); // both answers are asked for
   EXPECT_LT( probes.permits, 70000u );
   probes.listDel( "edge" );
   probes.listDel( "core" );
   w.settle();
   EXPECT_EQ( w.chip(), Chip{} );
}

} // namespace
