#include "conformance/mac/Stage.h"

#include <algorithm>

namespace QonConformance::Mac {

namespace {

void
performed( const Qon::IndirectAccessMacCmd & cmd, HeldHosts & table ) {
   if ( cmd.type() == Type::removeHost ) {
      table.erase( cmd.key() );
   } else if ( cmd.addrOp() ) {
      table[cmd.key()] = { cmd.intf(), cmd.entryType() };
   } else {
      std::erase_if( table, [&]( auto & host ) {
         return QonChip::flushTakes( cmd, host.first, host.second );
      } );
   }
}

} // namespace

String
shown( const MacEntryKey & host, Ulnet::IntfId intf ) {
   auto & pair = host.key();
   return pair.mac().stringValue() + " in VLAN " + pair.vlan().stringValue() + " at " +
          intf.stringValue();
}

void
UnaskedAnswers::trace( const char *, U8 level, const String & text ) {
   if ( level == 0 && text.find( "Can't find in progress command" ) != String::npos ) {
      last = text.substr( text.rfind( ' ' ) + 1 );
   }
}

MacStage::MacStage( Trial & trial )
    : t( trial ), part( trial.part< QonChip::MacPart >( "MacPart" ) ) {
   mac = part.makeProgrammer();
   mac->hasNotificationActiveIs( true );
   mac->initializedIs( true );
}

MacEntryKey
MacStage::key( U32 host ) {
   const U32 address = host < twins ? host : twins + host / vlans;
   return { { Ulnet::EthAddr( 0x021122000000ull + address ), vlanOf( host ) },
            Qon::MacHwType::macHwKeyBridge };
}

MacCmdPtr
MacStage::addAt( U32 host, Ulnet::IntfId intf, EntryType type ) {
   wished[host] = intf;
   return address( Type::addHost, host, intf, type );
}

MacCmdPtr
MacStage::remove( U32 host ) {
   auto held = wished.find( host );
   auto intf = held == wished.end() ? t.port( 0 ) : held->second;
   wished.erase( host );
   return address( Type::removeHost, host, intf, EntryType::learnedDynamic );
}

MacCmdPtr
MacStage::address( Type type, U32 host, Ulnet::IntfId intf, EntryType entryType ) {
   auto cmd = follow( Qon::indirectAccessMacCmdFactory( type, key( host ), intf, entryType ) );
   mac->handleAddrOp( cmd );
   return cmd;
}

MacCmdPtr
MacStage::flush( Type type, Ulnet::IntfId intf, U32 vlan, EntryType entryType ) {
   MacEntryKey which{ { {}, Bridging::VlanIdOrNone( vlan ) }, Qon::MacHwType::macHwKeyBridge };
   auto cmd = follow( Qon::indirectAccessMacCmdFactory( type, which, intf, entryType ) );
   mac->handleFlushOp( cmd );
   return cmd;
}

/** An attempt has a transaction of its own: what is written again counts as written then. */
const MacCmdPtr &
MacStage::follow( const MacCmdPtr & cmd ) {
   wishes_.push_back( std::make_unique< Wish >( Wish{ cmd } ) );
   Wish & wish = *wishes_.back();
   wish.listener.attach( cmd.ptr(), [this, &wish] {
      wish.written = wish.cmd->transactionId() ? ++writes_ : wish.written;
   } );
   return wish.cmd;
}

HeldHosts
MacStage::expected() const {
   std::vector< const Wish * > written;
   for ( auto & wish : wishes_ ) {
      if ( wish->written ) {
         written.push_back( wish.get() );
      }
   }
   std::sort( written.begin(), written.end(),
              []( auto a, auto b ) { return a->written < b->written; } );
   HeldHosts table = settled_;
   for ( auto wish : written ) {
      performed( *wish->cmd, table );
   }
   std::erase_if( table, [&]( auto & host ) { return mac->overflowAddrOpHas( host.first ); } );
   return table;
}

void
MacStage::rest( const Contract & contract ) {
   auto idle = [&] { return !mac->pendingMacOps() && !mac->inProgMacOps(); };
   t.await( idle );
   t.run( 10 * Trial::step );
   bool rests = t.await( idle );
   if ( !answers.last.empty() ) {
      t.broken( unasked, "one answer for each write",
                "an answer for transaction " + answers.last + ", which is not in flight" );
   }
   if ( !rests ) {
      auto walk = mac->inProgMacOpIteratorConst();
      t.broken( contract, "an answer within " + Kiv::toText( t.answersWithin() ) + " s",
                Kiv::toText( mac->inProgMacOps() ) + " without one" +
                      ( walk ? ", the oldest " + walk.value()->stringValue() : String() ) );
   }
}

void
MacStage::judge( const Contract & contract ) {
   auto held = hosts();
   if ( !held ) {
      return;
   }
   settled_ = expected();
   std::erase_if( wishes_, [&]( auto & wish ) {
      wish->written = 0; // it counts again if it is written again
      return !mac->overflowAddrOpHas( wish->cmd->key() );
   } );
   contains( contract, *held, settled_ );
   for ( auto & [host, there] : *held ) {
      if ( !settled_.contains( host ) ) {
         t.broken( contract, "no host " + shown( host, there.intf ), "it is in the chip" );
      }
   }
}

void
MacStage::contains( const Contract & contract, const HeldHosts & held,
                    const HeldHosts & wanted ) const {
   for ( auto & [host, there] : wanted ) {
      auto found = held.find( host );
      if ( found == held.end() || found->second.intf != there.intf ) {
         t.broken( contract, shown( host, there.intf ),
                   found == held.end() ? "no such host in the chip"
                                       : shown( host, found->second.intf ) );
      }
   }
}

void
MacStage::succeeded( const Contract & contract, const MacCmdPtr & cmd ) {
   if ( cmd->status() != Qon::MacProgramStatus::macProgramSuccess ) {
      t.broken( contract, "an answer of macProgramSuccess", Kiv::toText( cmd->status() ) );
   }
}

void
MacStage::fill( const Contract & contract ) {
   constexpr U32 batch = 64, enough = 8;
   const U32 room = part.hostsToFill();
   if ( room == 0 ) {
      Trial::skip( "the chip says that its table cannot be filled" );
   }
   U32 hosts = 0;
   while ( mac->overflowAddrOps() < enough && hosts < room ) {
      for ( U32 n = 0; n < batch; ++n ) {
         add( hosts, hosts );
         ++hosts;
      }
      t.did( "added hosts up to number " + Kiv::toText( hosts ) );
      rest();
   }
   if ( !mac->overflowAddrOps() ) {
      t.broken( contract, "an answer of macProgramFull",
                "none for " + Kiv::toText( hosts ) + " hosts (is hostsToFill right?)" );
   }
}

void
addFew( MacStage & stage ) {
   for ( U32 host = 0; host < few; ++host ) {
      stage.add( host, host );
   }
   stage.t.did( "added 16 hosts" );
   stage.rest();
}

} // namespace QonConformance::Mac
