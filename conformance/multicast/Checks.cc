// Checks of the hooks of multicast groups: the library's state machines call them, the kit reads the groups
// back.

#include <algorithm>

#include "Qon/include/multicast/IgmpSnoopingSm.h"
#include "chip/MulticastPart.h"
#include "conformance/Trial.h"
#include "conformance/multicast/Contracts.h"

namespace QonConformance::Multicast {

namespace {

using Key = Bridging::MacVlanPair;
using Ports = std::set< Ulnet::IntfId >;

constexpr U32 portsUsed = 6;
constexpr U64 firstAddress = 0x01005e010100;
constexpr U32 vlan = 10;

String
groupShown( const Ports & ports ) {
   return joined( ports, []( Ulnet::IntfId port ) { return port.stringValue(); } );
}

/** The library over the chip. */
class GroupStage {
 public:
   explicit GroupStage( Trial & trial )
       : t( trial ), part( trial.part< QonChip::MulticastPart >( "MulticastPart" ) ) {
      for ( U32 n = 0; n < portsUsed; ++n ) {
         t.acsd->intfIs( t.port( n ), true );
      }
      helper = Qon::MulticastHelperIs( "multicast", { t.acsd, part.makeMulticastDataFactory(),
                                                      nullptr, t.scheduler.timerWheel() } );
      sm = Qon::IgmpSnoopingSmIs( { helper, status, fixed } );
      sm->initializedIs( true );
   }

   Ulnet::EthAddr address( U32 n ) const { return Ulnet::EthAddr( firstAddress + n ); }
   Key key( U32 n ) const { return Key( address( n ), Bridging::VlanId( vlan ) ); }
   /** The ports of group `n`, a bit each. */
   void members( U32 n, U32 bits ) {
      auto group = status->vlanStatusIs( Bridging::VlanId( vlan ) )->ethGroupIs( address( n ) );
      for ( U32 port = 0; port < portsUsed; ++port ) {
         bits >> port & 1 ? group->intfIs( t.port( port ) ) : group->intfDel( t.port( port ) );
      }
   }
   void noGroup( U32 n ) {
      status->vlanStatusIs( Bridging::VlanId( vlan ) )->ethGroupDel( address( n ) );
   }
   void settle() {
      constexpr Kiv::Seconds retry = 6; // of whoever had no room
      t.run( t.answersWithin() + retry );
   }

   /** What the library has handed over is what the chip says. */
   void judge( const Contract & contract ) {
      settle();
      auto held = t.readBack( part.multicast(), "the chip's multicast groups" );
      if ( !held ) {
         return;
      }
      const Contract & left = &contract == &init ? init : deletion;
      U32 led = 0;
      helper->forEachEntry( [&]( const Qon::HardwareL2MulticastEntry & entry ) {
         auto found = held->macEntries.find( entry.macVlan() );
         led += entry.macTableEntryCreated();
         if ( ( found != held->macEntries.end() ) != entry.macTableEntryCreated() ) {
            t.broken( contract, entry.macAddr().stringValue() + " as it was answered",
                      entry.macTableEntryCreated() ? "no MAC entry" : "a MAC entry" );
         }
         if ( found != held->macEntries.end() ) {
            const auto want = helper->portsOf( entry.hwL2MulticastBitmap()->ports() );
            judgePorts( contract, Ports( want.begin(), want.end() ), held->groups[found->second] );
         }
      } );
      if ( held->macEntries.size() != led ) {
         t.broken( left, Kiv::toText( led ) + " MAC entries",
                   Kiv::toText( U32( held->macEntries.size() ) ) );
      }
      auto flood = helper->overflow()->floodBitmap();
      const U32 groups = helper->bitmapList().size() + ( flood && flood->groupIndex() >= 0 );
      if ( held->groups.size() != groups ) {
         t.broken( left, Kiv::toText( groups ) + " groups",
                   Kiv::toText( U32( held->groups.size() ) ) );
      }
   }
   void judgePorts( const Contract & contract, const Ports & want, const Ports & held ) const {
      if ( want != held ) {
         t.broken( contract, groupShown( want ), groupShown( held ) );
      }
   }

   Trial & t;
   QonChip::MulticastPart & part;
   Ptr< Bridging::IgmpSnooping::Status > status =
         Velto::make< Bridging::IgmpSnooping::Status >( "status" );
   Ptr< Bridging::Multicast::StaticConfig > fixed =
         Velto::make< Bridging::Multicast::StaticConfig >( "static" );
   Ptr< Qon::MulticastHelper > helper;
   Ptr< Qon::IgmpSnoopingSm > sm;
};

void
checkPorts( Trial & t ) {
   GroupStage stage( t );
   for ( U32 n = 0; n < 4; ++n ) {
      stage.members( n, 3 << n );
   }
   stage.members( 4, 3 ); // as group 0
   t.did( "five groups, two of them with the same ports" );
   stage.judge( ports );
   stage.members( 4, 5 );
   stage.members( 1, 0 );
   t.did( "other ports for one, none for another" );
   stage.judge( ports );
}

void
checkFull( Trial & t ) {
   GroupStage stage( t );
   const U32 fill = stage.part.multicastGroupsToFill();
   if ( fill == 0 || fill > ( 1u << portsUsed ) - 2 ) {
      t.skip( "the chip's groups cannot be used up by sets of " + Kiv::toText( portsUsed ) +
              " ports" );
   }
   for ( U32 n = 0; n <= fill; ++n ) {
      stage.members( n, n + 1 );
   }
   t.did( "more sets of ports than the chip has groups" );
   stage.judge( full );
   for ( U32 n = 0; n < 3; ++n ) {
      stage.noGroup( n );
   }
   t.did( "three of them go" );
   stage.judge( full );
   if ( stage.helper->overflow()->mcastEntryNeedingHwEntrys() ) {
      t.broken( full, "room for those that waited", "none" );
   }
}

void
checkDeletion( Trial & t ) {
   GroupStage stage( t );
   for ( U32 round = 0; round < 3; ++round ) {
      for ( U32 n = 0; n < 4; ++n ) {
         stage.members( n, n + 1 );
      }
      stage.settle();
      for ( U32 n = 0; n < 4; ++n ) {
         stage.noGroup( n );
      }
      stage.members( 0, 8 );
      t.did( "four groups, which go; one comes again at once" );
      stage.judge( deletion );
   }
   stage.sm->doCleanup();
   t.did( "a clean-up" );
   auto held = t.readBack( stage.part.multicast(), "the chip's multicast groups" );
   if ( held && !( held->groups.empty() && held->macEntries.empty() ) ) {
      t.broken( deletion, "no groups", Kiv::toText( U32( held->groups.size() ) ) );
   }
}

void
checkInit( Trial & t ) {
   {
      GroupStage first( t );
      first.members( 0, 3 );
      first.judge( ports );
   }
   t.did( "a group, and a new agent that wants none" );
   GroupStage second( t );
   second.judge( init );
}

void
checkCopy( Trial & t ) {
   auto & part = t.part< QonChip::MulticastPart >( "MulticastPart" );
   auto config = Velto::make< Bridging::Multicast::CopyRequestConfig >( "copies" );
   auto updater = part.makeMulticastCopyUpdater( config );
   updater->initializedIs( true );
   for ( U32 round = 0; round < 4; ++round ) {
      round & 1 ? config->linkLocalCopyRequestIs( "kit" )
                : config->linkLocalCopyRequestDel( "kit" );
      round & 2 ? config->igmpCopyAndDropRequestIs( "kit" )
                : config->igmpCopyAndDropRequestDel( "kit" );
      t.did( "copies " + Kiv::toText( round ) );
      t.run( t.answersWithin() );
      auto held = t.readBack( part.multicast(), "the chip's multicast groups" );
      if ( held && ( held->linkLocalCopied != bool( round & 1 ) ||
                     held->igmpTaken != bool( round & 2 ) ) ) {
         t.broken( copy, "copies " + Kiv::toText( round ), "others" );
      }
   }
}

void
checkDestructor( Trial & t ) {
   GroupStage stage( t );
   stage.members( 0, 3 );
   stage.members( 1, 12 );
   stage.judge( ports );
   t.judgeDestruction( destructor, [&] {
      stage.sm = nullptr;
      stage.helper = nullptr;
   } );
}

void
checkRandom( Trial & t ) {
   GroupStage stage( t );
   const auto lag = Ulnet::PortChannelIntfId::intfId( 1 );
   for ( U32 step = 0; step < t.options.steps; ++step ) {
      const U32 n = t.random.below( 8 ), what = t.random.below( 100 );
      const String when = "step " + Kiv::toText( step ) + ": group " + Kiv::toText( n );
      if ( what < 60 ) {
         stage.members( n, t.random.below( 1u << portsUsed ) );
         t.did( when + " members" );
      } else if ( what < 70 ) {
         stage.noGroup( n );
         t.did( when + " goes" );
      } else if ( what < 80 ) {
         stage.status->vlanStatusIs( Bridging::VlanId( vlan ) )
               ->ethGroupIs( stage.address( n ) )
               ->intfIs( lag );
         t.did( when + " has the port-channel" );
      } else if ( what < 90 ) {
         Qon::QonLagPortList list;
         list.portIs( t.port( n ), Qon::QonLagPort( true, true ) );
         t.acsd->lagToPortIs( lag, list );
         t.did( "step " + Kiv::toText( step ) + ": another member of the port-channel" );
      } else if ( what < 98 ) {
         t.run( 0.001 * t.random.below( 30 ) );
      } else {
         stage.judge( random );
      }
   }
   stage.judge( random );
   t.acsd->lagToPortDelAll();
}

constexpr Check checks[] = { { ports, checkPorts },       { full, checkFull },
                             { deletion, checkDeletion }, { init, checkInit },
                             { copy, checkCopy },         { destructor, checkDestructor },
                             { random, checkRandom } };

String
heldBy( const QonChip::Chip & chip ) {
   auto part = chip.part< QonChip::MulticastPart >();
   const auto held = part ? part->multicast() : std::nullopt;
   String text;
   if ( held ) {
      for ( auto & [index, group] : held->groups ) {
         text += "multicast group " + std::to_string( index ) + ": " + groupShown( group ) + "\n";
      }
      for ( auto & [key, index] : held->macEntries ) {
         text += "group " + key.mac().stringValue() + " vlan " + key.vlan().stringValue() + ": " +
                 std::to_string( index ) + "\n";
      }
   }
   return text;
}

} // namespace

extern const Feature feature{ "multicast", contracts, checks, {}, heldBy };

} // namespace QonConformance::Multicast
