#include "Qon/include/topology/QonVlanHelper.h"

#include "Qon/include/framework/HookTap.h"
#include "Qon/include/framework/QonLog.h"
#include "Qon/include/framework/QonTraceHandles.h"
#include "Qon/include/framework/TimeSlice.h"
#include "platform/Kiv/Describe.h"

KIV_DEFINE( Qon::VlanHelper )

namespace Qon {

namespace {

Flintlog::Facility facility( "QonVlanHelper" );
QonLogHandle handles[] = {
      { "QonVlanHelper", QonLog::INTF_MAX_MTU_EXCEEDED },
      { "QonVlanHelper", QonLog::LINEPROTO_UPDOWN },
};

void
assign( U64 & bits, U64 bit, bool v ) {
   bits = v ? bits | bit : bits & ~bit;
}

} // namespace

VlanHelper::VlanHelper( const String & name, const QonCommonSmData * acsd )
    : VlanHelperBase( name ), acsd_( acsd ), vlan_( 4095 ) {
   hasNotificationActiveIs( true );
   pacingClock_.attach( this, Velto::make< Kiv::Clock >() );
   retryClock_.attach( this, Velto::make< Kiv::Clock >() );
   featureWatch_.attach( this, acsd );
   portToLagWatch_.attach( this, acsd );
}

VlanHelper::~VlanHelper() = default;

// --- Ports ---------------------------------------------------------------------------------------

U32
VlanHelper::portNumber( IntfId intf ) {
   // The hooks of one port come in a row.
   if ( lastPort_ < port_.size() && port_[lastPort_] == intf ) {
      return lastPort_;
   }
   auto [number, fresh] = portNumber_.emplace( intf, U32( port_.size() ) );
   if ( fresh ) {
      port_.push_back( intf );
   }
   return lastPort_ = *number;
}

void
VlanHelper::grow( Vlan & v, U32 port ) {
   Block block;
   block.forwarding = v.othersForward ? ~U64( 0 ) : 0;
   v.blocks.resize( port / 64 + 1, block );
}

const VlanHelper::Block *
VlanHelper::blockOf( IntfId port, VlanId vlan, U64 & bit ) const {
   auto number = portNumber_.find( port );
   const Vlan & v = vlan_[vlan];
   if ( !number || *number / 64 >= v.blocks.size() ) {
      return nullptr;
   }
   bit = bitOf( *number );
   return &v.blocks[*number / 64];
}

VlanMembership
VlanHelper::membership( IntfId port, VlanId vlan ) const {
   U64 bit;
   auto block = blockOf( port, vlan, bit );
   return block ? wantedOf( *block, bit ) : VlanMembership();
}

VlanMembership
VlanHelper::hwMembership( IntfId port, VlanId vlan ) const {
   U64 bit;
   auto block = blockOf( port, vlan, bit );
   return block ? hwOf( *block, bit ) : VlanMembership();
}

bool
VlanHelper::forwards( IntfId port, VlanId vlan ) const {
   U64 bit;
   auto block = blockOf( port, vlan, bit );
   return block ? ( block->forwarding & bit ) != 0 : vlan_[vlan].othersForward;
}

// --- Membership ----------------------------------------------------------------------------------

U64
VlanHelper::requestPortVlanMembershipChange( PortVlanMembershipChangeKind kind, IntfId port,
                                             VlanId vlan, bool tagged, bool ingress, bool egress ) {
   using Kind = PortVlanMembershipChangeKind;
   VELTO_ASSERT( kind == Kind::setOverride || kind == Kind::expand );
   VELTO_ASSERT( !Ulnet::SubIntfId::isSubIntfId( port ) ); // fixed text
   Vlan & v = vlan_[vlan];
   const U32 number = portNumber( port );
   const U64 bit = bitOf( number );
   Block & block = blockOf( v, number );
   const VlanMembership held = wantedOf( block, bit );
   VlanMembership wanted{ tagged, ingress, egress };
   QON_TRACE( facility, 5, port, " vlan ", vlan, " ",
              kind == Kind::setOverride ? "overriding" : "expanding",
              // fixed text
              held ? "" : " no existing port membership, ",
              held ? "" : "just going to set it to the provided parameters" );
   if ( kind == Kind::expand && held ) {
      wanted = { held.tagged, held.ingress || ingress, held.egress || egress };
   }
   if ( !wanted ) {
      wanted.tagged = false;
   }
   if ( wanted == held ) {
      return v.failed ? request( v, vlan ) : 0;
   }
   assign( block.tagged, bit, wanted.tagged );
   assign( block.ingress, bit, wanted.ingress );
   assign( block.egress, bit, wanted.egress );
   return applyMembership( v, vlan, number ) ? request( v, vlan ) : 0;
}

/** Adds the port to the hardware's membership or takes it out, as it is wanted now; true if that
    changed anything. */
bool
VlanHelper::applyMembership( Vlan & v, VlanId vlan, U32 port ) {
   const U64 bit = bitOf( port );
   const Block before = v.blocks[port / 64];
   const IntfId intf = port_[port];
   lastPort_ = port;
   if ( const VlanMembership wanted = wantedOf( before, bit );
        wanted && ( ( before.forwarding & bit ) || !hwOf( before, bit ) ) ) {
      QON_HOOK( VlanHelper, this, doAddPortToVlan, intf, vlan, wanted.tagged, wanted.ingress,
                wanted.egress );
   } else {
      QON_HOOK( VlanHelper, this, doRemovePortFromVlan, intf, vlan );
   }
   return hwOf( v.blocks[port / 64], bit ) != hwOf( before, bit );
}

void
VlanHelper::doAddPortToVlan( IntfId port, VlanId vlan, bool tagged, bool ingress, bool egress ) {
   VELTO_ASSERT( !Ulnet::SubIntfId::isSubIntfId( port ) ); // fixed text
   const U32 number = portNumber( port );
   const U64 bit = bitOf( number );
   Block & block = blockOf( vlan_[vlan], number );
   if ( !( block.forwarding & bit ) ) {
      // fixed text
      QON_TRACE( facility, 5, port, " vlan ", vlan, " Not Adding because of port state" );
      return;
   }
   assign( block.hwTagged, bit, tagged );
   assign( block.hwIngress, bit, ingress );
   assign( block.hwEgress, bit, egress );
}

void
VlanHelper::doRemovePortFromVlan( IntfId port, VlanId vlan ) {
   if ( inRecirc( port ) ) {
      // fixed text
      QON_TRACE( facility, 5, port, " configured for recirc feature. Skipping remove." );
      return;
   }
   const U32 number = portNumber( port );
   const U64 bit = bitOf( number );
   Block & block = blockOf( vlan_[vlan], number );
   block.hwTagged &= ~bit;
   block.hwIngress &= ~bit;
   block.hwEgress &= ~bit;
}

bool
VlanHelper::inRecirc( IntfId port ) const {
   if ( acsd_->lagToFeatureSets() == 0 ) {
      return false;
   }
   return !acsd_->lagToFeatureSet( port ).isEmpty() ||
          !acsd_->lagToFeatureSet( acsd_->portToLag( port ) ).isEmpty();
}

/** What stayed for the sake of the recirculation feature may have to leave now. */
void
VlanHelper::handleFeatureSet( const IntfId & ) {
   for ( U32 vlan = 1; vlan < vlan_.size(); ++vlan ) {
      Vlan & v = vlan_[vlan];
      bool changed = false;
      for ( U32 i = 0; i < v.blocks.size(); ++i ) {
         const Block & b = v.blocks[i];
         for ( U64 rest = b.hwMembers() & ~( b.members() & b.forwarding ); rest;
               rest &= rest - 1 ) {
            changed |=
                  applyMembership( v, VlanId( vlan ), i * 64 + U32( __builtin_ctzll( rest ) ) );
         }
      }
      if ( changed ) {
         request( v, VlanId( vlan ) );
      }
   }
}

/** A port that left an aggregate has its features no more. */
void
VlanHelper::handlePortToLag( const IntfId & port ) {
   if ( acsd_->lagToFeatureSets() ) {
      handleFeatureSet( port );
   }
}

// --- Port states ---------------------------------------------------------------------------------

U64
VlanHelper::doHandlePortState( IntfId intf, VlanId vlan, bool forwarding ) {
   Vlan & v = vlan_[vlan];
   const U32 port = portNumber( intf );
   Block & block = blockOf( v, port );
   const U64 bit = bitOf( port );
   if ( ( ( block.forwarding & bit ) != 0 ) == forwarding ) {
      return 0;
   }
   block.forwarding ^= bit;
   const bool changed = ( block.members() & bit ) && applyMembership( v, vlan, port );
   return changed ? request( v, vlan ) : 0;
}

U64
VlanHelper::setPortsBlocked( VlanId vlan ) {
   Vlan & v = vlan_[vlan];
   v.othersForward = false;
   bool changed = false;
   for ( U32 i = 0; i < v.blocks.size(); ++i ) {
      v.blocks[i].forwarding = 0;
      for ( U64 rest = v.blocks[i].hwMembers(); rest; rest &= rest - 1 ) {
         changed |= applyMembership( v, vlan, i * 64 + U32( __builtin_ctzll( rest ) ) );
      }
   }
   return changed ? request( v, vlan ) : 0;
}

// --- Generations ---------------------------------------------------------------------------------

U64
VlanHelper::request( Vlan & v, VlanId vlan ) {
   if ( v.requested == v.completed ) {
      v.since = Kiv::now();
   }
   v.requested = ++generation_;
   v.failed = false;
   if ( !v.inProgress ) {
      enqueue( v, vlan );
   }
   return v.requested;
}

void
VlanHelper::enqueue( Vlan & v, VlanId vlan ) {
   if ( v.queued ) {
      return;
   }
   v.queued = true;
   queue_.enq( vlan );
   if ( pacingClock_->idle() ) {
      pacingClock_->timeIs( Kiv::now() );
   }
}

void
VlanHelper::handlePacing() {
   TimeSlice slice( pacingBudget, 8 );
   while ( !queue_.empty() ) {
      const VlanId vlan = queue_.front();
      queue_.deq();
      vlan_[vlan].queued = false;
      if ( !vlan_[vlan].inProgress ) {
         start( vlan );
      }
      if ( slice.usedUp() ) {
         break;
      }
   }
   if ( !queue_.empty() ) {
      wakeUp( pacingClock_.clock(), slice.now() );
   }
}

void
VlanHelper::start( VlanId vlan ) {
   Vlan & v = vlan_[vlan];
   v.inProgress = true;
   if ( !v.created ) {
      v.created = true;
      QON_HOOK( VlanHelper, this, doCreateHwVlan, vlan );
   }
   v.programming = v.requested;
   QON_TELL_HOOK( VlanHelper, doUpdateVlan, vlan, hwPortsText( vlan ) );
   doUpdateVlan( vlan );
}

/** "{Ethernet1 tie, Ethernet2 i}": tagged, ingress, egress. */
String
VlanHelper::hwPortsText( VlanId vlan ) const {
   String text;
   forEachHwPort( vlan, [&]( IntfId port, VlanMembership how ) {
      text += ( text.empty() ? "" : ", " ) + port.stringValue() + " " + ( how.tagged ? "t" : "" ) +
              ( how.ingress ? "i" : "" ) + ( how.egress ? "e" : "" );
   } );
   return "{" + text + "}";
}

void
VlanHelper::updateVlanDone( VlanId vlan, VlanProgrammingStatus programmingStatus ) {
   Vlan & v = vlan_[vlan];
   if ( !v.inProgress ) {
      return;
   }
   v.inProgress = false;
   const bool failed = programmingStatus != VlanProgrammingStatus::success;
   if ( failed ) {
      QON_TRACE( facility, 3, vlan, " failed to program in hardware" );
   }
   if ( v.programming != v.requested ) {
      QON_TRACE( facility, 5, "Redo vlan update for vlan ", vlan,
                 " . State changed while were were programming" ); // fixed text
      start( vlan );
   } else if ( failed ) {
      v.failed = true;
      failed_.push_back( vlan );
      retryClock_->timeMin( Kiv::now() + retryInterval );
   } else {
      v.completed = v.programming;
      completedVlanUpdateStatusIs( vlan, v.completed );
   }
}

void
VlanHelper::handleRetry() {
   for ( VlanId vlan : std::exchange( failed_, {} ) ) {
      Vlan & v = vlan_[vlan];
      if ( v.failed ) {
         v.failed = false;
         ++retries_;
         enqueue( v, vlan );
      }
   }
}

U64
VlanHelper::vlanIs( VlanId vlan ) {
   Vlan & v = vlan_[vlan];
   return v.created || v.queued ? 0 : request( v, vlan );
}

void
VlanHelper::vlanDel( VlanId vlan ) {
   Vlan & v = vlan_[vlan];
   bool changed = v.failed;
   for ( U32 i = 0; i < v.blocks.size(); ++i ) {
      Block & b = v.blocks[i];
      b.tagged = b.ingress = b.egress = 0;
      for ( U64 rest = b.hwMembers(); rest; rest &= rest - 1 ) {
         changed |= applyMembership( v, vlan, i * 64 + U32( __builtin_ctzll( rest ) ) );
      }
   }
   if ( changed ) {
      request( v, vlan );
   }
   if ( v.requested != v.completed ) {
      v.completed = v.requested;
      completedVlanUpdateStatusIs( vlan, v.completed );
   }
}

VlanHelper::UpdateState
VlanHelper::updateState( VlanId vlan ) const {
   const Vlan & v = vlan_[vlan];
   return { v.requested, v.completed, v.inProgress, v.failed, v.since };
}

String
VlanHelper::vlanFault( const Vlan & v ) const {
   if ( v.completed > v.requested || v.requested > generation_ ) {
      return "a generation that was not requested is completed";
   }
   if ( v.requested != v.completed && !v.queued && !v.inProgress && !v.failed ) {
      return "a change waits and nothing is under way";
   }
   for ( U32 i = 0; i < v.blocks.size(); ++i ) {
      const Block & b = v.blocks[i];
      const U64 wanted = b.members() & b.forwarding;
      if ( wanted & ~b.hwMembers() ) {
         return "a member that forwards is not in the hardware's membership";
      }
      for ( U64 rest = b.hwMembers() & ~wanted; rest; rest &= rest - 1 ) {
         const IntfId port = port_[i * 64 + U32( __builtin_ctzll( rest ) )];
         if ( !inRecirc( port ) ) {
            return port.stringValue() + " should not be in the hardware's membership";
         }
      }
   }
   return "";
}

String
VlanHelper::checkInvariants() const {
   for ( U32 vlan = 1; vlan < vlan_.size(); ++vlan ) {
      if ( String fault = vlanFault( vlan_[vlan] ); !fault.empty() ) {
         return "VLAN " + std::to_string( vlan ) + ": " + fault;
      }
   }
   return "";
}

} // namespace Qon
