// The model of tap aggregation: what is wanted by the configuration alone, and what must hold.

#include <algorithm>

#include "simulation/SimLag.h"
#include "simulation/SimTapAgg.h"
#include "simulation/World.h"

namespace Sim {

using Bridging::Input::TapGroups;
using Bridging::Input::ToolIdentityMode;
using Bridging::Input::ToolPortConfig;
using QonChip::HeldTapPort;
using QonChip::HeldToolPort;
using Ulnet::IntfId;

// --- What is wanted ------------------------------------------------------------------------------

bool
SimTapAgg::tapMode() const {
   return world_.acsd->operationalMode() == Qon::HwOperationalMode::tapAgg;
}

bool
SimTapAgg::serves( IntfId intf ) const {
   return tapMode() && !world_.acsd->portToLagHas( intf );
}

std::set< String >
SimTapAgg::namesInUse() const {
   std::set< String > names;
   if ( !tapMode() ) {
      return names;
   }
   for ( auto && [intf, tap] : config_->tapPortIteratorConst() ) {
      if ( serves( intf ) ) {
         names.insert( tap->groups().stringValue() );
      }
   }
   for ( auto && [intf, tool] : config_->toolPortIteratorConst() ) {
      for ( auto && [group, none] : tool->groupIteratorConst() ) {
         if ( serves( intf ) ) {
            names.insert( group );
         }
      }
   }
   for ( auto && [group, none] : pmapGroups_->groupIteratorConst() ) {
      names.insert( group );
   }
   for ( auto && [map, config] : policyMaps_->policyMapIteratorConst() ) {
      for ( auto && [className, classMap] : config->classMapIteratorConst() ) {
         names.insert( classMap->groups().stringValue() );
      }
   }
   names.erase( "" );
   return names;
}

/** Whether the tool port shall get frames of the groups. */
bool
SimTapAgg::takes( IntfId intf, const ToolPortConfig & tool, const TapGroups & groups ) const {
   return std::any_of( groups.begin(), groups.end(),
                       [&]( const String & group ) { return tool.groupHas( group ); } ) &&
          serves( intf ) && ( !tools_->activeHas( intf ) || tools_->active( intf ) );
}

/** Those that shall get frames of the groups. */
std::set< IntfId >
SimTapAgg::toolsOf( const TapGroups & groups ) const {
   std::set< IntfId > tools;
   for ( auto && [intf, tool] : config_->toolPortIteratorConst() ) {
      if ( takes( intf, *tool, groups ) ) {
         tools.insert( intf );
      }
   }
   return tools;
}

U32
SimTapAgg::idOf( const String & name ) const {
   for ( auto & [id, owner] : table_.held().groups ) {
      if ( owner == name ) {
         return id;
      }
   }
   return 0;
}

HeldTapPort
SimTapAgg::wantedTap( IntfId intf ) const {
   auto config = config_->tapPort( intf );
   const U32 bound = table_.limits().maxFrameSize;
   HeldTapPort tap;
   tap.group = idOf( config->groups().stringValue() );
   if ( config_->tapRawIntfHas( intf ) ) {
      return tap;
   }
   tap.truncationSize =
         bound ? std::min( bound, config->truncationSize() ) : config->truncationSize();
   tap.identity = config->identity();
   tap.macAddress = config->macAddress();
   tap.headerRemove = config->headerRemove();
   tap.greStrip = config->greStrip();
   tap.vxlanStrip = config->vxlanStrip();
   tap.mplsPop = config->mplsPop();
   for ( auto && [endpoint, strip] : config->greStripForEpIteratorConst() ) {
      if ( strip ) {
         tap.greStripForEp.insert( endpoint );
      }
   }
   return tap;
}

/** It is in every group of the chip of which one of its names is a part. */
HeldToolPort
SimTapAgg::wantedTool( IntfId intf, const std::set< String > & names ) const {
   auto config = config_->toolPort( intf );
   const U32 bound = table_.limits().maxFrameSize;
   HeldToolPort tool;
   tool.truncationSize =
         bound ? std::min( bound, config->truncationSize() ) : config->truncationSize();
   tool.identityTagging = config->identityTagging();
   tool.dot1qRemove = config->dot1qRemove();
   tool.brStrip = config->brStrip();
   tool.vnStrip = config->vnStrip();
   tool.mplsPop = config->mplsPop();
   for ( const String & name : names ) {
      if ( const U32 id = idOf( name ); id && takes( intf, *config, TapGroups( name ) ) ) {
         auto & members = tool.groups[id];
         for ( auto & [port, flags] : world_.acsd->lagToPort( intf ) ) {
            members.insert( port );
         }
      }
   }
   return tool;
}

/** The tool takes some off, and then puts on who sent the frame: outside its VLAN, and outside of that
    the outer one. Numbers that are no VLANs are no tags. */
SoftChip::Tags
SimTapAgg::tagsBehind( IntfId tap, IntfId tool, const SoftChip::Tags & tags ) const {
   std::vector< Bridging::VlanIdOrNone > all;
   const auto how = config_->toolPort( tool )->identityTagging();
   const auto identity = config_->tapRawIntfHas( tap ) ? Bridging::IdentityTuple()
                                                       : config_->tapPort( tap )->identity();
   auto add = [&]( U16 tag ) {
      if ( tag != 0 && tag != 4095 ) {
         all.push_back( Bridging::VlanIdOrNone( U32( tag ) ) );
      }
   };
   if ( how != ToolIdentityMode::none ) {
      add( identity.outer() );
   }
   if ( how == ToolIdentityMode::qinq ) {
      add( identity.inner() );
   }
   const U32 removed = config_->toolPort( tool )->dot1qRemove();
   const Bridging::VlanIdOrNone own[] = { tags.outer, tags.inner };
   for ( U32 i = removed; i < 2; ++i ) {
      all.push_back( own[i] );
   }
   all.resize( 2 );
   return { all[0], all[1] };
}

SimTapAgg::Road
SimTapAgg::road( IntfId intf, const SoftChip::Tags & tags ) const {
   Road road;
   road.known = !stale_;
   road.tap = config_->tapPortHas( intf ) && serves( intf );
   road.tool = config_->toolPortHas( intf ) && serves( intf );
   const TapGroups groups = road.tap ? config_->tapPort( intf )->groups() : TapGroups();
   if ( idOf( groups.stringValue() ) == 0 ) { // with as many as there are, some wait for one
      return road;
   }
   for ( IntfId tool : toolsOf( groups ) ) {
      Road::Way way{ { tool }, tagsBehind( intf, tool, tags ) };
      if ( Ulnet::PortChannelIntfId::isPortChannelIntfId( tool ) ) {
         way.ports.clear();
         for ( auto & [port, flags] : world_.acsd->lagToPort( tool ) ) {
            way.ports.insert( port );
         }
      }
      if ( tool != intf && !way.ports.empty() ) {
         road.ways.push_back( way );
      }
   }
   return road;
}

// --- What must hold ------------------------------------------------------------------------------

String
SimTapAgg::checkGroups( const std::set< String > & names ) const {
   for ( const String & name : names ) {
      if ( !idOf( name ) && table_.held().groups.size() < table_.groupsAtMost() ) {
         return "group: " + name + " has none, and the chip is not full";
      }
      if ( !idOf( name ) != sm_->pendingAggGroupHas( name ) ) {
         return "group: " + name + " is pending with a group, or without being so";
      }
   }
   for ( auto && [name, id] : pmapStatus_->groupNameToIdIteratorConst() ) {
      if ( !tapMode() || !pmapGroups_->groupHas( name ) || id != idOf( name ) ) {
         return "policy maps: id of " + name;
      }
   }
   for ( auto && [name, none] : pmapGroups_->groupIteratorConst() ) {
      if ( tapMode() && idOf( name ) && !pmapStatus_->groupNameToIdHas( name ) ) {
         return "policy maps: no id of " + name;
      }
   }
   return {};
}

String
SimTapAgg::checkPort( IntfId intf, const std::set< String > & names ) const {
   auto & held = table_.held();
   const bool tap = config_->tapPortHas( intf ) && serves( intf ),
              tool = config_->toolPortHas( intf ) && serves( intf );
   if ( held.taps.contains( intf ) != tap || held.tools.contains( intf ) != tool ) {
      return "port: " + intf.stringValue() + " is one, and should not be, or the other way round";
   }
   if ( tap && !( held.taps.at( intf ) == wantedTap( intf ) ) ) {
      return "tap port: " + intf.stringValue();
   }
   if ( tool && !( held.tools.at( intf ) == wantedTool( intf, names ) ) ) {
      return "tool port: " + intf.stringValue();
   }
   return tap ? checkWays( intf ) : String();
}

String
SimTapAgg::checkWays( IntfId intf ) const {
   const TapGroups groups = config_->tapPort( intf )->groups();
   std::set< IntfId > wanted, reached;
   if ( idOf( groups.stringValue() ) ) {
      wanted = toolsOf( groups );
      wanted.erase( intf );
   }
   for ( auto & way : table_.ways( intf ) ) {
      reached.insert( way.tool );
   }
   return wanted == reached ? "" : "ways: of " + intf.stringValue();
}

String
SimTapAgg::checkStep() const {
   if ( table_.refused() ) {
      return "refused: " + table_.takeRefused().front();
   }
   if ( tapMode() || left_ ) {
      leftAt_ = Kiv::now(); // by now it may be left, and what follows was done
   }
   left_ = tapMode();
   return {};
}

String
SimTapAgg::checkInvariants() const {
   if ( paused_ ) {
      return {};
   }
   String wrong = sm_->checkInvariants();
   if ( !wrong.empty() ) {
      return "own invariant: " + wrong;
   }
   if ( !tapMode() && requests_->requests() ) {
      return "flush: requests outside of the mode";
   }
   if ( stale_ ) {
      return {};
   }
   const bool waits = sm_->hwCleanupTime() <= leftAt_ + 5;
   if ( tapMode() != table_.held().inited && ( tapMode() || !waits ) ) {
      return "mode: the chip is set up, and should not be, or the other way round";
   }
   const auto names = namesInUse();
   if ( wrong = checkGroups( names ); !wrong.empty() ) {
      return wrong;
   }
   for ( U32 i = 0; i < world_.size( Range::intf ); ++i ) {
      if ( wrong = checkPort( world_.intf( i ), names ); !wrong.empty() ) {
         return wrong;
      }
   }
   return {};
}

String
SimTapAgg::checkAtRest() const {
   const auto used = namesInUse();
   for ( auto & [id, name] : table_.held().groups ) {
      if ( !stale_ && !used.contains( name ) ) {
         return "group: " + name + " is nobody's";
      }
   }
   if ( sm_->pendingAggGroups() + sm_->allocatedGroupInfos() != used.size() ) {
      return "group: one is remembered";
   }
   if ( !tapMode() && !stale_ && !( table_.held() == QonChip::HeldTapAgg() ) ) {
      return "mode: something is left in the chip";
   }
   if ( !( table_.tcamProfile() == config_->tcamProfile() ) ) {
      return "profile";
   }
   return {};
}

// --- The end -------------------------------------------------------------------------------------

void
SimTapAgg::tearDown() {
   nested_ = 0;
   config_->tapPortDelAll();
   config_->toolPortDelAll();
   pmapGroups_->groupDelAll();
   policyMaps_->policyMapDelAll();
   policyMaps_->servicePolicyDelAll();
   world_.acsd->operationalModeIs( Qon::HwOperationalMode::switching );
   if ( !world_.feature< SimLag >() ) {
      world_.acsd->portToLagDelAll();
      world_.acsd->lagToPortDelAll();
   }
}

String
SimTapAgg::checkTornDown() const {
   const bool empty = stale_ || table_.held() == QonChip::HeldTapAgg();
   return empty && !sm_->allocatedGroupInfos() && !sm_->allocatedPortInfos() &&
                      !sm_->pendingAggGroups() && !requests_->requests() &&
                      !pmapStatus_->groupNameToIds()
                ? ""
                : "left over: groups or ports without configuration";
}

} // namespace Sim
