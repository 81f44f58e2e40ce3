// What must hold between two events, and what the hardware must hold.

#include "Qon/tapagg/TapAggTrace.h"

namespace Qon {

using Ulnet::IntfId;

String
TapAggSm::checkInvariants() const {
   if ( !initialized() || questions_.draining() ) {
      return "";
   }
   String broken = brokenGroups();
   return broken.empty() ? brokenPorts() : broken;
}

String
TapAggSm::brokenGroup( U32 id, const AllocatedGroupInfo & info ) const {
   if ( id == 0 || pendingAggGroupHas( info.groupOwner() ) ) {
      return "is pending, too, or is none";
   }
   for ( auto && [intf, ports] : info.intfListIteratorConst() ) {
      auto port = allocatedPortInfo( intf );
      if ( !port || !port->group( info.groupOwner() ) ) {
         return intf.stringValue() + " does not know of it";
      }
   }
   return groupInUse( info.groupOwner() ) || !groupCleanupClock_->idle()
                ? ""
                : "is nobody's, and nobody cleans up";
}

String
TapAggSm::brokenGroups() const {
   for ( auto && [id, info] : allocatedGroupInfoIteratorConst() ) {
      if ( const String what = brokenGroup( id, *info ); !what.empty() ) {
         return "group " + Kiv::toText( id ) + " of " + info->groupOwner() + ": " + what;
      }
   }
   for ( auto && entry : groupIds_ ) {
      auto info = allocatedGroupInfo( entry.value );
      if ( !info || info->groupOwner() != entry.key ) {
         return "id of " + entry.key + " is not its own";
      }
   }
   for ( auto && [name, id] : in_.pmapGroupStatus->groupNameToIdIteratorConst() ) {
      if ( !active_ || id != groupIdOf( name ) || !in_.pmapGroupConfig->groupHas( name ) ) {
         return "published id of " + name;
      }
   }
   if ( hwCleanupClock_->idle() == ( !active_ && hwInited_ ) ) {
      return "clean-up of the hardware: it waits for nothing, or nothing waits for it";
   }
   return "";
}

String
TapAggSm::brokenPorts() const {
   String broken;
   U32 taps = 0, tools = 0;
   auto check = [&]( const TapAggIntfSm & sm, U32 & count ) {
      auto & hw = sm.hw();
      auto breaks = [&]( const String & what ) {
         broken = Kiv::toText( sm.role() ) + " port " + sm.intf().stringValue() + ": " + what;
      };
      count += hw.initialized();
      if ( hw.told() != serves( sm ) || hw.initialized() != hw.told() ) {
         breaks( "is set up, and should not be, or the other way round" );
      }
      for ( const String & name : sm.names() ) {
         auto users = users_.users( name );
         if ( !users ||
              !( sm.role() == TapAggRole::tap ? users->taps : users->tools ).has( sm.intf() ) ) {
            breaks( "is no user of " + name );
         }
      }
      for ( U32 group : hw.groups() ) {
         auto info = allocatedGroupInfo( group );
         if ( !info || !info->intfListHas( sm.intf() ) ) {
            breaks( "is not in the list of group " + Kiv::toText( group ) );
         }
      }
   };
   taps_.forEach( [&]( IntfId, TapAggTapSm & sm ) { check( sm, taps ); } );
   tools_.forEach( [&]( IntfId, TapAggToolSm & sm ) { check( sm, tools ); } );
   if ( broken.empty() && ( taps != initedTapPortCount() || tools != initedToolPortCount() ) ) {
      broken = "counts of ports that are set up";
   }
   return broken;
}

// --- Verification --------------------------------------------------------------------------------

void
TapAggSm::handleVerify() {
   if ( !initialized() || !in_.verifyData ) {
      return;
   }
   const Velto::Hold alive( this );
   const auto shared = keysOf< IntfId >( in_.acsd->portToLagIteratorConst() );
   bool equal = shared.size() == portToLags();
   for ( auto && [port, lag] : portToLagIteratorConst() ) {
      equal = equal && in_.acsd->portToLag( port ) == lag;
   }
   if ( !equal ) {
      qonAssert( "portToLags() doesn't equal acsd->portToLags()" ); // fixed text
   }
   if ( active_ && !QON_HOOK( TapAggHelper, in_.helper, verifyHwState ) ) {
      QON_FINDING( in_.verifyData, String( "Tap aggregation: the chip is not set up\n" ) );
   }
   verifyGroups();
   taps_.forEach( [&]( IntfId, TapAggTapSm & sm ) {
      sm.hw().told() ? sm.verify() : verifyNoTapPort( sm );
   } );
   tools_.forEach( [&]( IntfId, TapAggToolSm & sm ) {
      sm.hw().told() ? sm.verify() : verifyNoToolPort( sm );
   } );
}

void
TapAggSm::verifyGroups() {
   for ( auto && [id, info] : allocatedGroupInfoIteratorConst() ) {
      const AllocatedGroupInfo::Ptr held = info;
      if ( !QON_HOOK( TapAggHelper, in_.helper, verifyAggGroup, held->groupOwner(),
                      held->groupId() ) ) {
         QON_FINDING( in_.verifyData, "Tap aggregation, group " + held->groupOwner() + ", id " +
                                            Kiv::toText( held->groupId() ) +
                                            ": the chip has it not\n" );
      }
   }
}

void
TapAggSm::verifyNoTapPort( const TapAggTapSm & sm ) {
   sm.verifyAbsent();
}

void
TapAggSm::verifyNoToolPort( const TapAggToolSm & sm ) {
   sm.verifyAbsent();
}

} // namespace Qon
