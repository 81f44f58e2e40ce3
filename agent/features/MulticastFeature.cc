#include "agent/features/MulticastFeature.h"

#include "Qon/include/framework/Reconcile.h"
#include "agent/ConfigReader.h"
#include "agent/features/Arguments.h"
#include "platform/types/Paths.h"

namespace QonAgent {

using Bridging::VlanId;
using Ulnet::EthAddr;
using Ulnet::IntfId;

MulticastFeature::MulticastFeature( Agent & agent )
    : agent_( agent ), part_( agent.chip().part< QonChip::MulticastPart >() ),
      status_(
            agent.entities().mount< Bridging::IgmpSnooping::Status >( Paths::igmpSnoopingStatus ) ),
      static_( agent.entities().mount< Bridging::Multicast::StaticConfig >(
            Paths::multicastStaticConfig ) ),
      copies_( agent.entities().mount< Bridging::Multicast::CopyRequestConfig >(
            Paths::multicastCopyRequestConfig ) ) {
   if ( !part_ ) {
      return;
   }
   helper_ = Qon::MulticastHelperIs(
         "multicastHelper",
         { agent.acsd(), part_->makeMulticastDataFactory(), nullptr, agent.timerWheel() } );
   sm_ = Qon::IgmpSnoopingSmIs( { helper_, status_, static_ } );
   sm_->initializedIs( true );
   updater_ = part_->makeMulticastCopyUpdater( copies_ );
   updater_->initializedIs( true );
}

// --- Configuration -------------------------------------------------------------------------------

std::vector< ConfigTable >
MulticastFeature::tables() const {
   return { { "MULTICAST_GROUP",
              "VLAN|group address",
              { { "members", "ports and port-channels, a list" } },
              { R"("Vlan10|01:00:5e:01:01:01": {"members": ["Ethernet8", "Ethernet12"]})" } },
            { "MULTICAST_COPY",
              "IGMP or LINK_LOCAL|who asks that the CPU gets these packets",
              {},
              { R"("IGMP|snooping": {})" } } };
}

void
MulticastFeature::configure( ConfigReader & reader ) {
   auto reading = std::make_shared< Reading >();
   reader.eachRow( "MULTICAST_GROUP",
                   [&]( const ConfigRow & row ) { group( reader, row, *reading ); } );
   reader.eachRow( "MULTICAST_COPY", [&]( const ConfigRow & row ) { copies( row, *reading ); } );
   reader.apply( [=, this] { become( *reading ); } );
}

/** "Vlan10|01:00:5e:01:01:01": { "members": [ "Ethernet0" ] } */
void
MulticastFeature::group( ConfigReader & reader, const ConfigRow & row, Reading & reading ) {
   const VlanId vlanId = reader.vlan( row.part( 0, 2 ) );
   EthAddr addr;
   try {
      addr = EthAddr( row.part( 1, 2 ) );
   } catch ( const Velto::RangeError & ) {
   }
   if ( !addr.isMulticast() || addr.isBroadcast() ) {
      throw RowError( "", "'" + row.part( 1, 2 ) + "' is no multicast address" );
   }
   Members members;
   for ( const String & member : row.list( "members" ) ) {
      members.insert( reader.portOrChannel( "members", member ) );
   }
   if ( members.empty() ) {
      throw RowError( "members", "a group needs members" );
   }
   reading.groups.emplace_back( Qon::McastAddr( addr, vlanId ), std::move( members ) );
}

/** "IGMP|snooping": {}, "LINK_LOCAL|lldp": {} */
void
MulticastFeature::copies( const ConfigRow & row, Reading & reading ) {
   const String packets = row.part( 0, 2 ), by = row.part( 1, 2 );
   if ( packets != "IGMP" && packets != "LINK_LOCAL" ) {
      throw RowError( "", "expected IGMP or LINK_LOCAL and who asks, found '" + row.key() + "'" );
   }
   reading.copies.emplace_back( Request( packets, by ), true );
}

void
MulticastFeature::become( const Reading & reading ) {
   groups_.become(
         reading.groups, [this]( const Qon::McastAddr & key, auto & ) { static_->groupDel( key ); },
         [this]( const Qon::McastAddr & key, const Members & members, const Members * former ) {
            membersAre( key, members, former ? *former : Members() );
         } );
   requests_.become(
         reading.copies,
         [this]( const Request & request, bool ) {
            copyIs( request.first, request.second, false );
         },
         [this]( const Request & request, bool, auto ) {
            copyIs( request.first, request.second, true );
         } );
}

void
MulticastFeature::membersAre( const Qon::McastAddr & key, const Members & members,
                              const Members & former ) {
   const auto group = static_->groupIs( key );
   Qon::reconcile< IntfId >(
         former, members, [&]( IntfId intf ) { group->intfDel( intf ); },
         [&]( IntfId intf ) { group->intfIs( intf ); } );
}

void
MulticastFeature::copyIs( const String & packets, const String & by, bool on ) {
   if ( packets == "IGMP" ) {
      on ? copies_->igmpCopyAndDropRequestIs( by ) : copies_->igmpCopyAndDropRequestDel( by );
   } else {
      on ? copies_->linkLocalCopyRequestIs( by ) : copies_->linkLocalCopyRequestDel( by );
   }
}

// --- Events --------------------------------------------------------------------------------------

std::function< void() >
MulticastFeature::parseIgmp( const Json & line ) {
   const String op = fieldOf< String >( line, "op" );
   const VlanId vlan = vlanField( line );
   const bool router = op == "router" || op == "noRouter";
   const bool member = op == "join" || op == "leave";
   if ( !router && !member && op != "delete" && op != "valid" && op != "invalid" ) {
      throw Velto::RangeError(
            "op is join, leave, router, noRouter, delete, valid or invalid, not '" + op + "'" );
   }
   const EthAddr group = router ? EthAddr() : EthAddr( fieldOf< String >( line, "group" ) );
   if ( !router && !group.isMulticast() ) {
      throw Velto::RangeError( "field 'group': " + group.stringValue() +
                               " is no multicast address" );
   }
   const IntfId port =
         router || member ? agent_.names().typed( fieldOf< String >( line, "port" ) ) : IntfId();
   return [=, this] {
      const auto held = status_->vlanStatusIs( vlan );
      if ( router ) {
         op == "router" ? held->routerIntfIs( port ) : held->routerIntfDel( port );
      } else if ( op == "delete" ) {
         held->ethGroupDel( group );
      } else if ( op == "leave" ) {
         if ( const Velto::Ptr of( held->ethGroup( group ) ); of ) {
            of->intfDel( port );
         }
      } else if ( op == "join" ) {
         held->ethGroupIs( group )->intfIs( port );
      } else {
         held->ethGroupIs( group )->indexValidIs( op == "valid" );
      }
   };
}

std::function< void() >
MulticastFeature::parseCopy( const Json & line ) {
   const String packets = fieldOf< String >( line, "packets" );
   const String by = fieldOf< String >( line, "by" );
   const bool on = fieldOf< bool >( line, "on" );
   if ( packets != "igmp" && packets != "linkLocal" ) {
      throw Velto::RangeError( "packets is igmp or linkLocal, not '" + packets + "'" );
   }
   return [=, this] { copyIs( packets == "igmp" ? "IGMP" : "LINK_LOCAL", by, on ); };
}

std::function< void() >
MulticastFeature::parseParity( const Json & line ) {
   const String table = fieldOf< String >( line, "table" );
   if ( table != Qon::MulticastHelper::macTable && table != Qon::MulticastHelper::multicastTable ) {
      throw Velto::RangeError( "table is mac or multicast, not '" + table + "'" );
   }
   return [=, this] {
      const Qon::ParityEvent::Key where( table, 0 );
      const U32 before = agent_.acsd()->parityEvent( where ).count();
      agent_.acsd()->parityEventIs( where, Qon::ParityEvent( where, before + 1, false ) );
   };
}

std::vector< EventKind >
MulticastFeature::eventKinds() {
   return { { "igmp",
              R"({"time": 1, "event": "igmp", "op": "join", "vlan": 10, )"
              R"("group": "01:00:5e:01:01:01", "port": "Ethernet0"})",
              [this]( const Json & line ) { return parseIgmp( line ); } },
            { "multicastCopy",
              R"({"time": 1, "event": "multicastCopy", "packets": "igmp", "by": "snooping", )"
              R"("on": true})",
              [this]( const Json & line ) { return parseCopy( line ); } },
            { "parityError", R"({"time": 1, "event": "parityError", "table": "multicast"})",
              [this]( const Json & line ) { return parseParity( line ); } } };
}

FeatureKind
multicastFeature() {
   return feature< MulticastFeature >( "multicast" );
}

} // namespace QonAgent
