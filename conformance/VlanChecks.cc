// Checks of the VLAN helper: the library keeps membership, forwarding and generations, and calls
// the chip's doCreateHwVlan() and doUpdateVlan().

#include "conformance/Trial.h"

namespace QonConformance {

namespace {

using Bridging::VlanId;
using Kind = Qon::PortVlanMembershipChangeKind;
using Ports = ChipAdapter::Ports;

/** Sees that completed generations rise. */
class Generations : public Velto::Node {
 public:
   explicit Generations( const Qon::VlanHelper * helper ) : helper_( helper ) {
      hasNotificationActiveIs( true );
      watch_.attach( this, helper );
   }
   void handleCompleted( const VlanId & vlan ) {
      U64 now = helper_->completedVlanUpdateStatus( vlan );
      if ( helper_->completedVlanUpdateStatusHas( vlan ) && now < last_[vlan] ) {
         wentBack = "VLAN " + vlan.stringValue() + " from " + Kiv::toText( last_[vlan] ) + " to " +
                    Kiv::toText( now );
      }
      last_[vlan] = now;
   }
   String wentBack;

 private:
   const Qon::VlanHelper * helper_;
   std::map< VlanId, U64 > last_;
   Kiv::Watch< Qon::VlanHelper::completedVlanUpdateStatusAttr, Generations,
               &Generations::handleCompleted >
         watch_;
};

class VlanStage {
 public:
   explicit VlanStage( Trial & trial ) : t( trial ) {
      if ( !t.chip.makeVlanHelper ) {
         Trial::skip( "the adapter has no makeVlanHelper" );
      }
      helper = t.chip.makeVlanHelper();
      t.acsd->vlanHelperIs( helper );
      generations = Velto::make< Generations >( helper.ptr() );
   }

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
   void rest() {
      bool rests = t.await( [&] { return waiting().empty(); } );
      if ( !generations->wentBack.empty() ) {
         t.broken( "vlan.generation", "generations that rise", generations->wentBack );
      }
      if ( !rests ) {
         t.broken( "vlan.done",
                   "updateVlanDone() with success within " + Kiv::toText( t.chip.answersWithin ) +
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
   void judge( const char * contract ) {
      if ( !t.chip.vlans ) {
         return;
      }
      auto held = t.chip.vlans();
      for ( U16 vlan : vlans ) {
         auto ports = wanted( vlan );
         if ( held[vlan] != ports ) {
            t.broken( contract, "VLAN " + Kiv::toText( vlan ) + ": " + shown( ports ),
                      shown( held[vlan] ) );
         }
      }
   }

   Trial & t;
   Ptr< Qon::VlanHelper > helper;
   Ptr< Generations > generations;
   std::set< U16 > vlans; ///< that were touched
};

void
addFew( VlanStage & stage ) {
   for ( U32 port = 0; port < 8; ++port ) {
      stage.member( 10 + port % 4, port, port % 2 );
      stage.member( 20, port, true );
   }
   stage.t.did( "eight members in five VLANs" );
   stage.rest();
}

void
done( Trial & t ) {
   VlanStage stage( t );
   addFew( stage );
   stage.judge( "vlan.newest" );
   for ( U32 vlan = 100; vlan < 400; ++vlan ) {
      stage.member( vlan, vlan, true );
   }
   t.did( "one member in each of 300 VLANs" );
   stage.rest();
   stage.judge( "vlan.newest" );
}

void
newest( Trial & t ) {
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
         stage.judge( "vlan.newest" );
      }
   }
}

void
readd( Trial & t ) {
   VlanStage stage( t );
   for ( U32 round = 0; round < 5; ++round ) {
      addFew( stage );
      stage.helper->vlanDel( VlanId( 20 ) );
      t.did( "VLAN 20 goes" );
      if ( round % 2 ) {
         stage.rest();
      }
   }
   addFew( stage );
   stage.judge( "vlan.readd" );
}

void
verify( Trial & t ) {
   VlanStage stage( t );
   addFew( stage );
   t.judgeVerify( "vlan.verify", [&] { stage.helper->verify(); } );
}

void
cleanup( Trial & t ) {
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
   t.await( [&] { return !t.chip.vlans || t.chip.vlans().empty(); } );
   if ( t.chip.vlans && !t.chip.vlans().empty() ) {
      auto held = *t.chip.vlans().begin();
      t.broken( "vlan.cleanup", "no members",
                "VLAN " + Kiv::toText( held.first ) + ": " + shown( held.second ) );
   }
}

void
destructor( Trial & t ) {
   VlanStage stage( t );
   addFew( stage );
   stage.member( 30, 1, true );
   t.scheduler.settle();
   t.did( "a member in VLAN 30, not done yet" );
   t.acsd->vlanHelperIs( nullptr );
   t.judgeDestruction( "vlan.destructor", [&] {
      stage.generations = nullptr;
      stage.helper = nullptr;
   } );
}

void
random( Trial & t ) {
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
         t.run( t.chip.answersWithin );
         stage.judge( "vlan.random" );
      }
   }
   stage.rest();
   t.run( t.chip.answersWithin );
   stage.judge( "vlan.random" );
}

} // namespace

const std::vector< Check > &
vlanChecks() {
   static const std::vector< Check > all = {
         { "vlan.done", done },     { "vlan.newest", newest },   { "vlan.readd", readd },
         { "vlan.verify", verify }, { "vlan.cleanup", cleanup }, { "vlan.destructor", destructor },
         { "vlan.random", random },
   };
   return all;
}

} // namespace QonConformance
