// Checks of the hooks of adjacencies: the kit hands them over, hears the answers, and reads the chip
// back.

#include <set>

#include "chip/AdjacencyPart.h"
#include "conformance/Trial.h"
#include "conformance/adjacency/Contracts.h"

namespace QonConformance::Adjacency {

namespace {

using Qon::GlobalFecId;
using Qon::L2AdjKey;
using QonChip::HeldAdjacencies;
using Answer = QonChip::AdjacencyAnswer;

constexpr U32 mostFilled = 100'000;
constexpr U32 filledAtOnce = 256; // without a look at the answers

/** Next hops on ports, each with a weight. */
using Hops = std::vector< std::pair< Ulnet::IntfId, U32 > >;

L2AdjKey
keyOf( const Hops & hops ) {
   static Qon::NextHopDedupTable nextHops;
   Qon::NextHopCollection all;
   all.nextHopCollTypeIs( Qon::NextHopCollType::nhCollFec );
   for ( auto & [port, weight] : hops ) {
      Qon::ViaGen gen;
      gen.l3IntfIs( port );
      gen.nextHopIs( Ulnet::IpGenAddr( "192.0.2.1" ) );
      Qon::NextHopInfo info;
      info.nextHopTypeIs( Qon::NextHopType::arpRequired );
      Qon::PlatformApi::Via via;
      via.viaGenIs( gen );
      via.nextHopInfoIs( info );
      all.viaAndWeightEmplaceBack( nextHops.handle( via ), weight );
   }
   return L2AdjKey( 1, all, Qon::VrfId( 0 ) );
}

String
shown( const L2AdjKey & key ) {
   String text;
   for ( auto i = key.nextHopCollection().viaAndWeightIteratorConst(); i; ++i ) {
      text += ( text.empty() ? "" : ", " ) + i->via()->viaGen().l3Intf().stringValue() +
              ( i->weight() == 1 ? "" : "*" + Kiv::toText( i->weight() ) );
   }
   return text;
}

/** The kit as the chip's user. */
class AdjacencyStage : QonChip::AdjacencyHelper::User {
 public:
   explicit AdjacencyStage( Trial & trial )
       : t( trial ), part( trial.part< QonChip::AdjacencyPart >( "AdjacencyPart" ) ) {
      begin();
   }
   ~AdjacencyStage() {
      if ( helper ) {
         helper->userIs( nullptr );
      }
   }
   void begin() {
      helper = part.makeAdjacencyHelper();
      helper->userIs( this );
   }
   /** What there is belongs to a former helper from now on. */
   void end() {
      helper = nullptr;
      given.clear();
      leads.clear();
   }
   void beginAnew() {
      end();
      begin();
   }

   /** `n` ports from the `first` on; the weight of the last makes it another adjacency. */
   Hops hops( U32 first, U32 n, U32 weight = 1 ) const {
      Hops all;
      for ( U32 i = 0; i < n; ++i ) {
         all.push_back( { t.port( first + i ), i + 1 == n ? weight : 1 } );
      }
      return all;
   }
   void give( U32 number, const Hops & to ) {
      const U32 version = ++versions_;
      given[number] = { version, keyOf( to ) };
      helper->adjacencyIs( number, version, given[number].key );
   }
   void again( U32 number ) {
      Given & one = given.at( number );
      one = { ++versions_, one.key };
      helper->adjacencyIs( number, one.version, one.key );
   }
   void remove( U32 number ) {
      given.erase( number );
      helper->adjacencyDel( number );
   }
   void lead( U32 id, U32 number ) {
      leads[GlobalFecId( id )] = number;
      helper->fecIs( GlobalFecId( id ), number );
   }
   void drop( U32 id ) {
      leads.erase( GlobalFecId( id ) );
      helper->fecDel( GlobalFecId( id ) );
   }
   bool programmed( U32 number ) const {
      auto one = given.find( number );
      return one != given.end() && one->second.answer == Answer::programmed;
   }
   bool inUse( U32 number ) const {
      for ( auto & [id, to] : leads ) {
         if ( to == number ) {
            return true;
         }
      }
      return false;
   }

   void awaitAnswers() {
      U32 open = 0;
      t.await( [&] {
         open = 0;
         for ( auto & [number, one] : given ) {
            open += !one.answer;
         }
         return open == 0;
      } );
      if ( open ) {
         t.broken( answer, "an answer to each version", Kiv::toText( open ) + " are not answered" );
      }
      judgeHeard();
   }
   void judgeHeard() const {
      if ( !wrong_.empty() ) {
         t.broken( answer, "one answer to a version, when the chip has it", wrong_ );
      }
   }
   /** Everything is answered and done, and the chip holds what was programmed. */
   void judge( const Contract & contract ) {
      awaitAnswers();
      t.run( t.answersWithin() );
      judgeHeard();
      judgeNow( contract );
   }
   void judgeNow( const Contract & contract ) {
      const auto read = t.readBack( part.adjacencies(), "the chip's adjacencies" );
      if ( !read ) {
         return;
      }
      std::map< U32, const QonChip::HeldAdjacency * > byNumber;
      std::set< U32 > groups;
      U32 ofOthers = 0;
      for ( auto & [place, one] : read->adjacencies ) {
         if ( one.stale ) {
            ++ofOthers;
         } else if ( !byNumber.emplace( one.number, &one ).second ) {
            t.broken( contract, "one adjacency " + Kiv::toText( one.number ), "several" );
         }
         if ( one.group && !groups.insert( *one.group ).second ) {
            t.broken( held, "a group of its own", "group " + Kiv::toText( *one.group ) + " twice" );
         }
      }
      U32 wanted = 0;
      for ( auto & [number, one] : given ) {
         if ( one.answer == Answer::programmed ) {
            ++wanted;
            judgeOne( contract, number, one.key, byNumber );
         }
      }
      if ( byNumber.size() != wanted ) {
         t.broken( contract, Kiv::toText( wanted ) + " adjacencies",
                   Kiv::toText( U32( byNumber.size() ) ) );
      }
      judgeFecs( contract, *read );
      if ( ofOthers != stale ) {
         t.broken( contract, Kiv::toText( stale ) + " adjacencies of a former helper",
                   Kiv::toText( ofOthers ) );
      }
   }
   void judgeOne( const Contract & contract, U32 number, const L2AdjKey & key,
                  const std::map< U32, const QonChip::HeldAdjacency * > & byNumber ) const {
      const auto one = byNumber.find( number );
      if ( one == byNumber.end() ) {
         t.broken( contract, "adjacency " + Kiv::toText( number ), "none" );
      }
      if ( one->second->key != key ) {
         t.broken( contract, shown( key ), shown( one->second->key ) );
      }
      const bool several = key.nextHopCollection().viaAndWeights() > 1;
      if ( one->second->group.has_value() != several ) {
         t.broken( contract, several ? "a group" : "no group", several ? "none" : "a group" );
      }
   }
   void judgeFecs( const Contract & contract, const HeldAdjacencies & read ) const {
      const auto text = []( U32 fecs ) { return Kiv::toText( fecs ) + " FECs"; };
      if ( read.fecs.size() != leads.size() + staleLeads.size() ) {
         t.broken( contract, text( U32( leads.size() + staleLeads.size() ) ),
                   text( U32( read.fecs.size() ) ) );
      }
      const auto hopsOf = [&]( GlobalFecId id ) {
         const auto place = read.fecs.find( id );
         const auto one = place == read.fecs.end() ? read.adjacencies.end()
                                                   : read.adjacencies.find( place->second );
         return one == read.adjacencies.end() ? "nowhere" : shown( one->second.key );
      };
      for ( auto & [id, number] : leads ) {
         if ( const String want = shown( given.at( number ).key ); hopsOf( id ) != want ) {
            t.broken( contract, "FEC " + id.stringValue() + " to " + want, hopsOf( id ) );
         }
      }
      for ( auto & [id, want] : staleLeads ) {
         if ( hopsOf( id ) != want ) {
            t.broken( contract, "FEC " + id.stringValue() + " to " + want, hopsOf( id ) );
         }
      }
   }

   struct Given {
      U32 version = 0;
      L2AdjKey key;
      std::optional< Answer > answer = {};
   };
   Trial & t;
   QonChip::AdjacencyPart & part;
   Ptr< QonChip::AdjacencyHelper > helper;
   std::map< U32, Given > given; ///< by number
   std::map< GlobalFecId, U32 > leads;
   U32 rooms = 0;                              ///< how often the chip said that there is room
   U32 stale = 0;                              ///< adjacencies of a former helper
   std::map< GlobalFecId, String > staleLeads; ///< next hops
   bool looks = false;                         ///< in the chip, at each answer

 private:
   void adjacencyAnswered( U32 number, U32 version, Answer now ) override {
      const auto one = given.find( number );
      if ( one == given.end() || one->second.version != version || one->second.answer ) {
         wrong_ = "version " + Kiv::toText( version ) + " of adjacency " + Kiv::toText( number ) +
                  " is answered, which nobody waits for";
         return;
      }
      one->second.answer = now;
      const auto read = looks && now == Answer::programmed ? part.adjacencies() : std::nullopt;
      bool there = !read;
      for ( U32 place = 0; read && !there && place <= read->adjacencies.rbegin()->first; ++place ) {
         const auto at = read->adjacencies.find( place );
         there = at != read->adjacencies.end() && at->second.number == number && !at->second.stale;
      }
      wrong_ = there ? wrong_
                     : "adjacency " + Kiv::toText( number ) + " is programmed, and not in the chip";
   }
   void adjacencyRoom() override { ++rooms; }

   U32 versions_ = 0;
   String wrong_;
};

void
checkAnswer( Trial & t ) {
   AdjacencyStage stage( t );
   stage.looks = true;
   for ( U32 number = 1; number <= 5; ++number ) {
      stage.give( number, stage.hops( number, number ) );
   }
   t.did( "handed five adjacencies over" );
   stage.judge( answer );
   for ( auto & [number, one] : stage.given ) {
      if ( one.answer != Answer::programmed ) {
         t.broken( answer, "room for five adjacencies", Kiv::toText( *one.answer ) );
      }
   }
}

void
checkHeld( Trial & t ) {
   AdjacencyStage stage( t );
   stage.give( 1, stage.hops( 0, 1 ) );
   stage.give( 2, stage.hops( 0, 2 ) );
   stage.give( 3, stage.hops( 0, 2, 7 ) );
   stage.give( 900, stage.hops( 1, 4, 100 ) );
   t.did( "handed over one next hop, two, two with weights, and four" );
   stage.judge( held );
}

void
checkFec( Trial & t ) {
   AdjacencyStage stage( t );
   stage.give( 1, stage.hops( 0, 1 ) );
   stage.give( 2, stage.hops( 1, 2 ) );
   stage.judge( held );
   stage.lead( 1, 1 );
   stage.lead( 2, 1 );
   t.did( "two FECs lead to an adjacency" );
   stage.judgeNow( fec );
   stage.lead( 1, 2 );
   t.did( "one goes over to another adjacency" );
   stage.judgeNow( fec );
   stage.lead( 2, 2 );
   stage.remove( 1 );
   t.did( "the other one as well; the former adjacency is deleted" );
   stage.judge( fec );
   stage.drop( 1 );
   t.did( "a FEC leads nowhere" );
   stage.judgeNow( fec );
}

/** Adjacencies of two next hops, numbered from 1, until some find no room: how many came before the
    first of those. */
U32
fill( AdjacencyStage & stage ) {
   Trial & t = stage.t;
   for ( U32 number = 0; number < mostFilled; ) {
      const U32 before = number;
      while ( number < before + filledAtOnce ) {
         ++number;
         stage.give( number, stage.hops( number, 2, 1 + number ) );
      }
      stage.awaitAnswers();
      U32 there = before;
      while ( stage.programmed( there + 1 ) ) {
         ++there;
      }
      if ( there < number ) {
         t.did( "handed over " + Kiv::toText( number ) + " adjacencies of two next hops" );
         return there;
      }
   }
   t.skip( "the chip has room for " + Kiv::toText( mostFilled ) + " adjacencies" );
}

void
checkFull( Trial & t ) {
   AdjacencyStage stage( t );
   const U32 there = fill( stage );
   const Answer refused = *stage.given.at( there + 1 ).answer;
   if ( there == 0 || refused == Answer::failed ) {
      t.broken( full, "some room, and then the answer that there is none", Kiv::toText( refused ) );
   }
   stage.judge( full );
   stage.give( mostFilled, stage.hops( 0, 1 ) );
   stage.awaitAnswers();
   t.did( "and one of a single next hop" );
   const Answer single = *stage.given.at( mostFilled ).answer;
   if ( single == Answer::ecmpGroupsFull || single == Answer::failed ) {
      t.broken( full, "it is programmed, or the chip is full", Kiv::toText( single ) );
   }
   stage.judge( full );
}

void
checkRoom( Trial & t ) {
   AdjacencyStage stage( t );
   const U32 there = fill( stage );
   stage.judge( full );
   const U32 before = stage.rooms;
   stage.remove( there );
   t.did( "deleted one" );
   if ( !t.await( [&] { return stage.rooms > before; } ) ) {
      t.broken( room, "word of the room", "none" );
   }
   stage.again( there + 1 );
   stage.awaitAnswers();
   t.did( "handed over one that was refused" );
   if ( !stage.programmed( there + 1 ) ) {
      t.broken( room, "room for it", Kiv::toText( *stage.given.at( there + 1 ).answer ) );
   }
   stage.judge( room );
}

void
checkDeletion( Trial & t ) {
   AdjacencyStage stage( t );
   for ( U32 round = 0; round < 3; ++round ) {
      stage.give( 1, stage.hops( 0, 2 ) );
      stage.give( 2, stage.hops( 1, 2 ) );
      stage.judge( deletion );
      stage.lead( 1, 1 );
      stage.drop( 1 );
      stage.remove( 1 );
      stage.give( 3, stage.hops( 2, 2 ) );
      stage.remove( 3 );
      stage.give( 3, stage.hops( 3, 3 ) );
      stage.remove( 2 );
      stage.give( 2, stage.hops( 4, 3 ) );
      t.did( "deleted one, one that may not be answered yet, and gave the numbers of two anew" );
      stage.judge( deletion );
      stage.remove( 2 );
      stage.remove( 3 );
      t.did( "deleted all" );
      stage.judge( deletion );
   }
}

/** Two adjacencies and three FECs of a former helper. */
void
leaveSome( AdjacencyStage & stage ) {
   stage.give( 1, stage.hops( 0, 2 ) );
   stage.give( 2, stage.hops( 1, 1 ) );
   stage.judge( held );
   stage.lead( 1, 1 );
   stage.lead( 2, 1 );
   stage.lead( 3, 2 );
   stage.judge( fec );
   for ( auto & [id, number] : stage.leads ) {
      stage.staleLeads[id] = shown( stage.given.at( number ).key );
   }
   stage.stale = 2;
}

void
checkStale( Trial & t ) {
   AdjacencyStage stage( t );
   leaveSome( stage );
   stage.beginAnew();
   t.did( "began anew over two adjacencies and three FECs" );
   stage.judgeNow( stale );
   stage.give( 2, stage.hops( 3, 3 ) ); // a number that the former helper gave
   stage.awaitAnswers();
   stage.staleLeads.erase( GlobalFecId( 1 ) );
   stage.lead( 1, 2 );
   stage.lead( 4, 2 );
   t.did( "an adjacency, one of those FECs, and another one" );
   stage.judge( stale );
   stage.helper->staleDel();
   stage.stale = 0;
   stage.staleLeads.clear();
   t.did( "took the rest away" );
   stage.judge( stale );
}

void
checkDestructor( Trial & t ) {
   AdjacencyStage stage( t );
   leaveSome( stage );
   t.judgeDestruction( destructor, [&] { stage.end(); } );
}

void
checkSuccessor( Trial & t ) {
   AdjacencyStage stage( t );
   leaveSome( stage );
   stage.end();
   t.judgeSuccessor( successor, [&] { stage.begin(); } );
   stage.judge( successor );
}

void
checkRandom( Trial & t ) {
   constexpr U32 numbers = 12, fecs = 10;
   AdjacencyStage stage( t );
   for ( U32 step = 0; step < t.options.steps; ++step ) {
      const U32 number = 1 + t.random.below( numbers ), id = 1 + t.random.below( fecs );
      const U32 what = t.random.below( 100 );
      const String when = "step " + Kiv::toText( step ) + ": ";
      if ( what < 30 && !stage.given.contains( number ) ) {
         stage.give( number, stage.hops( t.random.below( 6 ), 1 + t.random.below( 4 ),
                                         1 + t.random.below( 3 ) ) );
         t.did( when + "adjacency " + Kiv::toText( number ) );
      } else if ( what < 50 && stage.given.contains( number ) && !stage.inUse( number ) ) {
         stage.remove( number );
         t.did( when + "adjacency " + Kiv::toText( number ) + " goes" );
      } else if ( what < 80 && stage.programmed( number ) ) {
         stage.lead( id, number );
         t.did( when + "FEC " + Kiv::toText( id ) + " to adjacency " + Kiv::toText( number ) );
      } else if ( what < 88 && stage.leads.contains( GlobalFecId( id ) ) ) {
         stage.drop( id );
         t.did( when + "FEC " + Kiv::toText( id ) + " goes" );
      } else if ( what < 98 ) {
         t.run( 0.001 * t.random.below( 30 ) );
      } else {
         stage.judge( random );
      }
   }
   stage.judge( random );
}

constexpr Check checks[] = { { answer, checkAnswer },
                             { held, checkHeld },
                             { fec, checkFec },
                             { full, checkFull },
                             { room, checkRoom },
                             { deletion, checkDeletion },
                             { stale, checkStale },
                             { destructor, checkDestructor },
                             { successor, checkSuccessor },
                             { random, checkRandom } };

String
heldBy( const QonChip::Chip & chip ) {
   auto part = chip.part< QonChip::AdjacencyPart >();
   const auto read = part ? part->adjacencies() : std::nullopt;
   String text;
   if ( read ) {
      for ( auto & [place, one] : read->adjacencies ) {
         text += "adjacency at " + Kiv::toText( place ) + ": " + shown( one.key ) + "\n";
      }
      for ( auto & [id, place] : read->fecs ) {
         text += "FEC " + id.stringValue() + ": " + Kiv::toText( place ) + "\n";
      }
   }
   return text;
}

} // namespace

extern const Feature feature{ "adjacency", contracts, checks, {}, heldBy };

} // namespace QonConformance::Adjacency
