// Watchers of counts and of adjacencies that raise, or end the reader and the installer, at each change
// that the forwarding table makes.

#include "agent/features/FibInstaller.h"
#include "agent/softchip/AdjacencyPart.h"
#include "tests/agent/FibWorld.h"
#include "tests/harness/Sabotage.h"

namespace Tests {
namespace {

using Qon::GlobalFecId;

class Flow : public QonChip::AdjacencyPart {
 public:
   explicit Flow( Saboteur & saboteur ) : saboteur_( saboteur ) {
      saboteur.drops( [this] { end(); } );
      reader = Velto::make< QonAgent::FibReader >( &loop, &scheduler, folder / "fib",
                                                   Velto::make< Counts >( saboteur ) );
      installer = Velto::make< QonAgent::FibInstaller >( reader, *this, &scheduler );
   }
   ~Flow() override { end(); }

   Velto::Ptr< QonChip::AdjacencyHelper > makeAdjacencyHelper() override {
      return Velto::make< Helper >( *this );
   }
   /** One step, with whatever follows from it. */
   void writes( const String & text ) {
      saboteur_.does( [&] {
         file.lines( text );
         file.writer.completeIs( true );
         settle();
      } );
   }
   void settle() {
      for ( U32 quiet = 0; quiet < 4; ++quiet ) {
         loop.runOnce( 0 );
         scheduler.settle();
      }
   }
   /** Ports that packets to FECs 1 to 3 leave by, and what does not hold. */
   String ends() {
      settle();
      scheduler.runFor( 20 );
      settle();
      String text = reader->checkInvariants() + installer->checkInvariants();
      for ( U64 id = 1; id <= 3; ++id ) {
         const auto * hops = table.hopsOf( GlobalFecId( id ) );
         for ( auto i = hops ? hops->nextHopCollection().viaAndWeightIteratorConst()
                             : Qon::NextHopCollection().viaAndWeightIteratorConst();
               i; ++i ) {
            text += " " + Kiv::toText( id ) + ":" + i->via()->viaGen().l3Intf().stringValue();
         }
      }
      const auto told = reader->adjacencies().size() == table.adjacencies().size();
      return text + ( told ? "" : " another number of adjacencies" );
   }

   SocketFolder folder;
   Kiv::EventLoop loop;
   FibFile file{ loop, folder / "fib" };
   Kiv::VirtualScheduler scheduler;
   SoftChip::Chip chip{ scheduler };
   SoftChip::AdjacencyTable & table = chip.of< SoftChip::AdjacencyPart >().table();
   Velto::Ptr< QonAgent::FibReader > reader;
   Velto::Ptr< QonAgent::FibInstaller > installer;

 private:
   struct Counts : Qon::AdjPrefixCountStatus {
      explicit Counts( Saboteur & s ) : saboteur( s ) {}
      void notify( const Qon::AdjGlobalPrefixList::PtrConst &, Ulnet::AddressFamily ) override {
         saboteur.change();
      }
      Saboteur & saboteur;
   };
   /** New adjacencies are watched from their first request on. */
   struct Helper : SoftChip::SoftAdjacencyHelper {
      explicit Helper( Flow & f ) : SoftAdjacencyHelper( f.table ), flow( f ) {}
      void adjacencyIs( U32 number, U32 version, const Qon::L2AdjKey & key ) override {
         flow.saboteur_.watches( { flow.reader->adjacencies().at( number ).ptr() } );
         SoftAdjacencyHelper::adjacencyIs( number, version, key );
      }
      Flow & flow;
   };

   void end() {
      if ( installer ) {
         installer->end();
      }
      installer = nullptr;
      reader = nullptr;
   }

   Saboteur & saboteur_;
};

TEST( FibSabotage, WatchersOfCountsAndAdjacencies ) {
   sabotage( []( Saboteur & saboteur ) {
      Flow flow( saboteur );
      flow.writes( "fec 1 @Ethernet1\nfec 2 @Ethernet1\n0 10.0.0.0/8 fec 1\n1 ::/0 fec 3" );
      flow.writes( "fec 2 @Ethernet2 @Ethernet3\n0 10.1.0.0/16 fec 1\n0 10.0.0.0/8 fec 2" );
      flow.writes( "fec 3 @Ethernet1\nfec 1 @Ethernet4" );
      flow.writes( "fec 2 -\n0 10.1.0.0/16 -\n1 ::/0 fec 1" );
      flow.writes( "0 10.0.0.0/8 fec 3\nfec 1 @Ethernet1" );
      saboteur.ends( [&] {
         const String is = flow.ends();
         return is == " 1:Ethernet1 3:Ethernet1" ? "" : is;
      } );
   } );
}

} // namespace
} // namespace Tests
