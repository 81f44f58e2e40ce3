// Checks of the MAC programmer that look at the chip's table closely: when, where, and in which order.

#include "conformance/mac/Stage.h"

namespace QonConformance::Mac {

namespace {

/** What is in flight and answered with success must be in the chip. */
void
lookEarly( MacStage & stage ) {
   std::optional< HeldHosts > held;
   for ( auto walk = stage.mac->inProgMacOpIteratorConst(); walk; ++walk ) {
      auto & cmd = *walk.value();
      if ( cmd.status() != Qon::MacProgramStatus::macProgramSuccess || cmd.invalid() ||
           !cmd.addrOp() ) {
         continue;
      }
      held = held ? held : stage.hosts();
      if ( !held ) {
         return;
      }
      auto found = held->find( cmd.key() );
      bool there = found != held->end() && found->second.intf == cmd.intf();
      if ( cmd.type() == Type::removeHost ? found != held->end() : !there ) {
         stage.t.broken( early,
                         ( cmd.type() == Type::removeHost ? "no " : "" ) +
                               shown( cmd.key(), cmd.intf() ) + ", as it was answered",
                         found == held->end() ? "no such host in the chip yet"
                                              : shown( cmd.key(), found->second.intf ) );
      }
   }
}

/** Looks often, until all is answered. */
void
restEarly( MacStage & stage ) {
   constexpr Kiv::Seconds often = 0.0005;
   constexpr U32 looks = 600;
   stage.hosts();
   for ( U32 n = 0; n < looks; ++n ) {
      stage.t.run( often );
      lookEarly( stage );
   }
   stage.rest();
}

} // namespace

void
checkEarly( Trial & t ) {
   MacStage stage( t );
   for ( U32 host = 0; host < few; ++host ) {
      stage.add( host, host );
   }
   t.did( "added 16 hosts" );
   restEarly( stage );
   for ( U32 host = 0; host < few; ++host ) {
      host % 2 ? void( stage.remove( host ) ) : void( stage.add( host, host + 1 ) );
   }
   t.did( "removed every second one, and moved the others" );
   restEarly( stage );
   stage.judge( held );
}

void
checkVlans( Trial & t ) {
   MacStage stage( t );
   constexpr U32 all = MacStage::twins + few;
   auto each = [&]( U32 vlan, auto && act ) {
      for ( U32 host = MacStage::twins + vlan; host < all; host += MacStage::vlans ) {
         act( host );
      }
      stage.rest();
      stage.judge( vlans );
   };
   for ( U32 vlan = 0; vlan < MacStage::vlans; ++vlan ) {
      t.did( "added four addresses in VLAN " + Kiv::toText( vlan + MacStage::firstVlan ) );
      each( vlan, [&]( U32 host ) { stage.add( host, vlan ); } );
   }
   t.did( "moved those in VLAN 11" );
   each( 1, [&]( U32 host ) { stage.add( host, 9 ); } );
   t.did( "removed those in VLAN 12" );
   each( 2, [&]( U32 host ) { stage.remove( host ); } );
}

void
checkMove( Trial & t ) {
   MacStage stage( t );
   stage.fill( full );
   std::vector< U32 > inTable;
   for ( auto & [host, intf] : stage.wished ) {
      if ( !stage.mac->overflowAddrOpHas( MacStage::key( host ) ) ) {
         inTable.push_back( host );
      }
   }
   inTable.resize( std::min< std::size_t >( inTable.size(), 4 * few ) );
   for ( U32 host : inTable ) {
      stage.add( host, host + 1 );
   }
   t.did( "added " + Kiv::toText( inTable.size() ) + " of them again, at other ports" );
   stage.rest();
   for ( U32 host : inTable ) {
      if ( stage.mac->overflowAddrOpHas( MacStage::key( host ) ) ) {
         t.broken( move, "success for a host that is in the table",
                   "macProgramFull for " + stage.name( host ) );
      }
   }
   stage.judge( move );
}

void
checkFlush( Trial & t ) {
   MacStage stage( t );
   constexpr U32 hosts = 48, vlan = 11;
   const auto port = t.port( 1 ), lag = Ulnet::PortChannelIntfId::intfId( 1 );
   const Ulnet::IntfId places[] = { t.port( 0 ), port, lag };
   const std::pair< Type, Ulnet::IntfId > flushes[] = {
         { Type::flushPort, port },        { Type::flushLag, lag },
         { Type::flushVlan, {} },          { Type::flushVlanPort, port },
         { Type::flushVlanLag, lag },      { Type::flushPortType, port },
         { Type::flushPortType, lag },     { Type::flushVlanPortType, port },
         { Type::flushVlanPortType, lag }, { Type::flushAll, {} } };
   for ( auto & [type, intf] : flushes ) {
      for ( U32 host = 0; host < hosts; ++host ) {
         stage.addAt( host, places[host % 3],
                      host / 12 % 2 ? EntryType::configuredStatic : EntryType::learnedDynamic );
      }
      t.did( "added 48 hosts, learned and static ones, in four VLANs at two ports and an "
             "aggregate" );
      stage.rest();
      stage.flush( type, intf, vlan );
      t.did( Kiv::toText( type ) + " of " + ( intf ? intf.stringValue() : "no interface" ) +
             ", VLAN 11, learned hosts" );
      stage.rest();
      stage.judge( Mac::flush );
   }
   stage.flush( Type::flushPortType, port, vlan, EntryType::configuredStatic );
   t.did( "flushPortType of " + port.stringValue() + ", static hosts" );
   stage.rest();
   stage.judge( Mac::flush );
}

void
checkOrder( Trial & t ) {
   MacStage stage( t );
   const Type types[] = { Type::flushAll, Type::flushPort, Type::flushVlan, Type::flushVlanPort };
   for ( U32 round = 0; round < 12; ++round ) {
      const Type type = types[round % 4];
      for ( U32 host = 0; host < 2 * few; ++host ) {
         stage.add( host, host % 3 );
      }
      t.run( 0.001 * t.random.below( 20 ) ); // some are in flight, or none
      stage.flush( type, t.port( 1 ), 11 );
      for ( U32 host = few; host < 3 * few; ++host ) {
         stage.add( host, 1 );
      }
      stage.flush( Type::flushVlan, {}, 12 );
      stage.add( 2, 1 );
      t.did(
            "added 32 hosts, " + Kiv::toText( type ) + " of " + t.port( 1 ).stringValue() +
            ", VLAN 11, 32 hosts at that port, flushVlan of VLAN 12, and a host there, in one go" );
      stage.rest();
      stage.judge( order );
   }
}

} // namespace QonConformance::Mac
