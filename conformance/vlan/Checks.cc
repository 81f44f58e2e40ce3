// Checks of the VLAN helper: the library keeps membership, forwarding and generations, and calls
// the chip's doCreateHwVlan() and doUpdateVlan().

#include <set>

#include "chip/VlanPart.h"
#include "conformance/Trial.h"
#include "conformance/vlan/Contracts.h"
#include "platform/Kiv/Listener.h"

namespace QonConformance::Vlan {

namespace {

using Bridging::VlanId;
using Kind = Qon::PortVlanMembershipChangeKind;
using Ports = QonChip::HeldVlan;

String
shown( const Ports & ports ) {
   return joined( ports, []( auto & port ) {
      auto & [intf, member] = port;
      return intf.stringValue() + ( member.tagged ? " tagged" : " untagged" ) +
             ( member.ingress ? " in" : "" ) + ( member.egress ? " out" : "" );
   } );
}

class VlanStage {
 public:
   explicit VlanStage( Trial & trial )
       : t( trial ), part( trial.part< QonChip::VlanPart >( "VlanPart" ) ) {
      helper = part.makeVlanHelper( t.acsd );
      t.acsd->vlanHelperIs( helper );
      completed.attach( helper.ptr(), [this]( const VlanId & vlan ) { completedHeard( vlan ); } );
   }
   ~VlanStage() { t.acsd->vlanHelperIs( nullptr ); }

   void member( U32 vlan, U32 port, bool tagged, bool ingress = true, bool egress = true ) {
      vlans.insert( U16( vlan ) );
      helper->requestPortVlanMembershipChange( Kind::setOverride, t.port( port ), VlanId( vlan ),
                                               tagged, ingress, egress );
   }
   void noMember( U32 vlan, U32 port ) { member( vlan, port, false, false, false ); }
   void forwards( U32 vlan, U32 port, bool v ) {
      vlans.insert( U16( vlan ) );
      helper->doHandlePortState( t.port( port ), VlanId( vlan ), v );
   }
   String name( U32 vlan, U32 port ) const {
      return t.port( port ).stringValue() + " in VLAN " + Kiv::toText( vlan );
   }

   /** A VLAN that waits; empty if none does. */
   String waiting() const {
      for ( U16 vlan : vlans ) {
         auto state = helper->updateState( VlanId( vlan ) );
         if ( state.requested != state.completed ) {
            return "VLAN " + Kiv::toText( vlan ) + " waits for generation " +
                   Kiv::toText( state.requested ) + " since " +
                   Kiv::toText( t.scheduler.time() - state.since ) + " s" +
                   ( state.failed ? ", after it was reported failed" : "" );
         }
      }
      return "";
   }
   void rest( const Contract & contract = newest ) {
      bool rests = t.await( [&] { return waiting().empty(); } );
      if ( !wentBack.empty() ) {
         t.broken( generation, "generations that rise", wentBack );
      }
      if ( !early.empty() ) {
         t.broken( contract, "VLANs that hold what is wanted when they are reported done", early );
      }
      if ( !rests ) {
         t.broken( done,
                   "updateVlanDone() with success within " + Kiv::toText( t.answersWithin() ) +
                         " s",
                   waiting() );
      }
   }
   Ports wanted( U16 vlan ) const {
      Ports ports;
      helper->forEachHwPort( VlanId( vlan ), [&]( Ulnet::IntfId intf, Qon::VlanMembership member ) {
         ports[intf] = member;
      } );
      return ports;
   }
   void judge( const Contract & contract ) {
      auto held = readBack();
      for ( U16 vlan : held ? vlans : std::set< U16 >() ) {
         auto ports = wanted( vlan );
         if ( ( *held )[vlan] != ports ) {
            t.broken( contract, "VLAN " + Kiv::toText( vlan ) + ": " + shown( ports ),
                      shown( ( *held )[vlan] ) );
         }
      }
   }
   std::optional< QonChip::HeldVlans > readBack() {
      return t.readBack( part.vlans(), "the chip's VLANs" );
   }

   Trial & t;
   QonChip::VlanPart & part;
   Ptr< Qon::VlanHelper > helper;
   std::set< U16 > vlans;  ///< that were touched
   String wentBack, early; ///< what was published and should not have been

 private:
   void completedHeard( VlanId vlan ) {
      U64 now = helper->completedVlanUpdateStatus( vlan );
      String name = "VLAN " + vlan.stringValue();
      if ( helper->completedVlanUpdateStatusHas( vlan ) && now < last[vlan] ) {
         wentBack = name + " from " + Kiv::toText( last[vlan] ) + " to " + Kiv::toText( now );
      }
      last[vlan] = now;
      // A VLAN that goes is reported at once; the chip may still be at it.
      auto ports = wanted( vlan );
      auto held = ports.empty() ? std::nullopt : part.vlans();
      if ( held && ( *held )[vlan] != ports ) {
         early = name + ": " + shown( ( *held )[vlan] ) + ", not " + shown( ports );
      }
   }

   std::map< VlanId, U64 > last;
   Kiv::Listener< Qon::VlanHelper::completedVlanUpdateStatusAttr > completed;
};

void
addFew( VlanStage & stage, const Contract & contract = newest ) {
   for ( U32 port = 0; port < 8; ++port ) {
      stage.member( 10 + port % 4, port, port % 2 );
      stage.member( 20, port, true );
   }
   stage.t.did( "eight members in five VLANs" );
   stage.rest( contract );
}

void
checkDone( Trial & t ) {
   VlanStage stage( t );
   addFew( stage );
   stage.judge( newest );
   for ( U32 vlan = 100; vlan < 400; ++vlan ) {
      stage.member( vlan, vlan, true );
   }
   t.did( "one member in each of 300 VLANs" );
   stage.rest();
   stage.judge( newest );
}

void
checkNewest( Trial & t ) {
   VlanStage stage( t );
   addFew( stage );
   for ( U32 round = 0; round < 20; ++round ) {
      stage.member( 20, round, round % 3 == 0 );
      t.run( 0.001 * t.random.below( 40 ) ); // in the middle of an update, or not
      stage.noMember( 20, round + 1 );
      stage.forwards( 20, round + 2, round % 2 );
      t.did( "changed VLAN 20 while it was being programmed" );
      if ( round % 4 == 3 ) {
         stage.rest();
         stage.judge( newest );
      }
   }
}

void
checkReadd( Trial & t ) {
   VlanStage stage( t );
   for ( U32 round = 0; round < 5; ++round ) {
      addFew( stage, round ? readd : newest );
      stage.helper->vlanDel( VlanId( 20 ) );
      t.did( "VLAN 20 goes" );
      if ( round % 2 ) {
         stage.rest();
      }
   }
   addFew( stage, readd );
   stage.judge( readd );
}

void
checkFid( Trial & t ) {
   VlanStage stage( t );
   if ( !stage.part.fids() ) {
      Trial::skip( "the chip tells of no filtering databases" );
   }
   addFew( stage );
   std::map< U16, U32 > wanted;
   for ( U32 round = 0; round < 3; ++round ) {
      for ( U16 vlan : stage.vlans ) {
         wanted[vlan] = vlan == 20 ? 7 : 100 * round + vlan;
         stage.helper->doUpdateVlanFid( VlanId( vlan ), wanted[vlan] );
         stage.member( vlan, 9 + round, true );
      }
      t.did( "doUpdateVlanFid() of five VLANs, and another member in each" );
      stage.rest();
      auto held = *stage.part.fids();
      for ( auto [vlan, number] : wanted ) {
         if ( auto found = held.find( vlan ); found == held.end() || found->second != number ) {
            t.broken( fid, "VLAN " + Kiv::toText( vlan ) + " with " + Kiv::toText( number ),
                      found == held.end() ? "none" : Kiv::toText( found->second ) );
         }
      }
      stage.judge( fid );
   }
}

void
checkVerify( Trial & t ) {
   VlanStage stage( t );
   addFew( stage );
   t.judgeVerify( verify, [&] { stage.helper->verify(); } );
}

void
checkCleanup( Trial & t ) {
   VlanStage stage( t );
   addFew( stage );
   for ( U16 vlan : stage.vlans ) {
      for ( U32 port = 0; port < 8; ++port ) {
         stage.noMember( vlan, port );
      }
   }
   t.did( "all members left" );
   stage.rest();
   // A VLAN is reported gone at once; the chip may still be at it.
   auto left = stage.readBack();
   t.await( [&] {
      left = stage.part.vlans();
      return !left || left->empty();
   } );
   if ( left && !left->empty() ) {
      t.broken( cleanup, "no members",
                "VLAN " + Kiv::toText( left->begin()->first ) + ": " +
                      shown( left->begin()->second ) );
   }
}

void
checkDestructor( Trial & t ) {
   VlanStage stage( t );
   addFew( stage );
   stage.member( 30, 1, true );
   t.scheduler.settle();
   t.did( "a member in VLAN 30, not done yet" );
   t.acsd->vlanHelperIs( nullptr );
   stage.readBack();
   t.judgeDestruction( destructor, [&] { stage.helper = nullptr; } );
}

/** The second wants something else of the VLAN that the first had in hand. */
void
checkSuccessor( Trial & t ) {
   std::optional< VlanStage > first( std::in_place, t ), second;
   addFew( *first );
   first->member( 30, 1, true );
   t.scheduler.settle();
   t.did( "a member in VLAN 30, and destroyed the helper in the middle of that" );
   first.reset();
   t.judgeSuccessor( successor, [&] { second.emplace( t ); } );
   second->member( 30, 2, false );
   t.did( "another member in VLAN 30" );
   second->rest( successor );
   second->judge( successor );
   t.run( t.answersWithin() );
   second->judge( successor );
   auto before = second->helper->completedVlanUpdateStatuss();
   if ( before != 1 ) {
      t.broken( successor, "VLAN 30 reported done", Kiv::toText( before ) + " VLANs are" );
   }
}

void
checkRandom( Trial & t ) {
   VlanStage stage( t );
   for ( U32 step = 0; step < t.options.steps; ++step ) {
      U32 vlan = 10 + t.random.below( 6 ), port = t.random.below( 10 ),
          what = t.random.below( 100 );
      String when = "step " + Kiv::toText( step ) + ": ";
      if ( what < 35 ) {
         stage.member( vlan, port, t.random.oneIn( 2 ), !t.random.oneIn( 5 ), true );
         t.did( when + stage.name( vlan, port ) );
      } else if ( what < 55 ) {
         stage.noMember( vlan, port );
         t.did( when + "no " + stage.name( vlan, port ) );
      } else if ( what < 70 ) {
         stage.forwards( vlan, port, t.random.oneIn( 2 ) );
         t.did( when + "port state of " + stage.name( vlan, port ) );
      } else if ( what < 73 ) {
         stage.helper->setPortsBlocked( VlanId( vlan ) );
         t.did( when + "all ports blocked in VLAN " + Kiv::toText( vlan ) );
      } else if ( what < 75 ) {
         stage.helper->vlanDel( VlanId( vlan ) );
         t.did( when + "VLAN " + Kiv::toText( vlan ) + " goes" );
      } else if ( what < 95 ) {
         t.run( 0.001 * t.random.below( 50 ) );
      } else {
         stage.rest();
         t.run( t.answersWithin() );
         stage.judge( random );
      }
   }
   stage.rest();
   t.run( t.answersWithin() );
   stage.judge( random );
}

constexpr Check checks[] = { { done, checkDone },
                             { newest, checkNewest },
                             { readd, checkReadd },
                             { fid, checkFid },
                             { verify, checkVerify },
                             { cleanup, checkCleanup },
                             { destructor, checkDestructor },
                             { successor, checkSuccessor },
                             { random, checkRandom } };

String
heldBy( const QonChip::Chip & chip ) {
   auto part = chip.part< QonChip::VlanPart >();
   auto vlans = part ? part->vlans() : std::nullopt;
   String text;
   for ( auto & [vlan, ports] : vlans.value_or( QonChip::HeldVlans() ) ) {
      text += "VLAN " + Kiv::toText( vlan ) + ": " + shown( ports ) + "\n";
   }
   return text;
}

} // namespace

extern const Feature feature{ "vlan", contracts, checks, {}, heldBy };

} // namespace QonConformance::Vlan
