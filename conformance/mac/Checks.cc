// Checks of the MAC programmer: its own queues, clocks and retries drive the chip's writeToHw().

#include "chip/MacPart.h"
#include "conformance/Trial.h"
#include "conformance/mac/Contracts.h"
#include "platform/Flintlog/Trace.h"

namespace QonConformance::Mac {

namespace {

using Qon::MacCmdPtr;
using Qon::MacEntryKey;
using Type = Qon::IndirectAccessMacCmdType;
using Hosts = std::map< MacEntryKey, Ulnet::IntfId >;

String
shown( const MacEntryKey & host, Ulnet::IntfId intf ) {
   auto & pair = host.key();
   return pair.mac().stringValue() + " in VLAN " + pair.vlan().stringValue() + " at " +
          intf.stringValue();
}

/** Hears the programmer's trace of answers that nobody waits for. */
class UnaskedAnswers : public Flintlog::Sink {
 public:
   UnaskedAnswers() : former_( Flintlog::sinkIs( this ) ) {}
   ~UnaskedAnswers() override { Flintlog::sinkIs( former_ ); }
   void trace( const char *, U8 level, const String & text ) override {
      if ( level == 0 && text.find( "Can't find in progress command" ) != String::npos ) {
         last = text.substr( text.rfind( ' ' ) + 1 );
      }
   }
   String last; ///< the transaction id of the last one

 private:
   Flintlog::Sink * former_;
};

class MacStage {
 public:
   explicit MacStage( Trial & trial )
       : t( trial ), part( trial.part< QonChip::MacPart >( "MacPart" ) ) {
      mac = part.makeProgrammer();
      mac->hasNotificationActiveIs( true );
      mac->initializedIs( true );
   }

   static MacEntryKey key( U32 host ) {
      return { { Ulnet::EthAddr( 0x021122000000ull + host ), vlanOf( host ) },
               Qon::MacHwType::macHwKeyBridge };
   }
   static Bridging::VlanIdOrNone vlanOf( U32 host ) {
      return Bridging::VlanIdOrNone( 10 + host % 4 );
   }
   String name( U32 host ) const { return shown( key( host ), wished.at( host ) ); }

   MacCmdPtr add( U32 host, U32 port ) {
      wished[host] = t.port( port );
      return address( Type::addHost, host, t.port( port ) );
   }
   MacCmdPtr remove( U32 host ) {
      auto held = wished.find( host );
      auto intf = held == wished.end() ? t.port( 0 ) : held->second;
      wished.erase( host );
      return address( Type::removeHost, host, intf );
   }
   /** Flushes what the type names: `port`, `vlan`, both, or all; at rest only. Returns whether it
       is known what that is. */
   bool flush( Type type, U32 port = 0, U32 vlan = 0 ) {
      MacEntryKey which{ { {}, Bridging::VlanIdOrNone( vlan ) }, Qon::MacHwType::macHwKeyBridge };
      auto cmd = Qon::indirectAccessMacCmdFactory( type, which, t.port( port ),
                                                   Bridging::EntryType::learnedDynamic );
      bool byPort = type == Type::flushPort || type == Type::flushVlanPort;
      bool byVlan = type == Type::flushVlan || type == Type::flushVlanPort;
      bool known = byPort || byVlan || type == Type::flushAll;
      if ( known ) {
         std::erase_if( wished, [&]( auto & host ) {
            return !mac->overflowAddrOpHas( key( host.first ) ) &&
                   ( !byPort || host.second == t.port( port ) ) &&
                   ( !byVlan || vlanOf( host.first ) == vlan );
         } );
      }
      mac->handleFlushOp( cmd );
      return known;
   }

   /** Lets everything be answered, and answers that nobody asked for come. */
   void rest() {
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
         t.broken( answer, "an answer within " + Kiv::toText( t.answersWithin() ) + " s",
                   Kiv::toText( mac->inProgMacOps() ) + " without one" +
                         ( walk ? ", the oldest " + walk.value()->stringValue() : String() ) );
      }
   }

   /** At rest the chip holds the wishes, but for those that wait in overflow. */
   void judge( const Contract & contract ) {
      auto held = hosts();
      if ( !held ) {
         return;
      }
      Hosts wanted;
      for ( auto & [host, intf] : wished ) {
         if ( !mac->overflowAddrOpHas( key( host ) ) ) {
            wanted[key( host )] = intf;
         }
      }
      contains( contract, *held, wanted );
      for ( auto & [host, there] : *held ) {
         if ( !wanted.contains( host ) ) {
            t.broken( contract, "no host " + shown( host, there.intf ), "it is in the chip" );
         }
      }
   }
   void contains( const Contract & contract, const QonChip::HeldHosts & held,
                  const Hosts & wanted ) const {
      for ( auto & [host, intf] : wanted ) {
         auto found = held.find( host );
         if ( found == held.end() || found->second.intf != intf ) {
            t.broken( contract, shown( host, intf ),
                      found == held.end() ? "no such host in the chip"
                                          : shown( host, found->second.intf ) );
         }
      }
   }
   std::optional< QonChip::HeldHosts > hosts() {
      return t.readBack( part.hosts(), "the chip's hosts" );
   }
   /** A command that was answered, with success. */
   void succeeded( const Contract & contract, const MacCmdPtr & cmd ) {
      if ( cmd->status() != Qon::MacProgramStatus::macProgramSuccess ) {
         t.broken( contract, "an answer of macProgramSuccess", Kiv::toText( cmd->status() ) );
      }
   }

   Trial & t;
   QonChip::MacPart & part;
   UnaskedAnswers answers;
   Ptr< Qon::QonMacProgrammer > mac;
   std::map< U32, Ulnet::IntfId > wished; ///< by host

 private:
   MacCmdPtr address( Type type, U32 host, Ulnet::IntfId intf ) {
      auto cmd = Qon::indirectAccessMacCmdFactory( type, key( host ), intf,
                                                   Bridging::EntryType::learnedDynamic );
      mac->handleAddrOp( cmd );
      return cmd;
   }
};

constexpr U32 few = 16;

void
addFew( MacStage & stage ) {
   for ( U32 host = 0; host < few; ++host ) {
      stage.add( host, host );
   }
   stage.t.did( "added 16 hosts" );
   stage.rest();
}

void
checkAnswer( Trial & t ) {
   MacStage stage( t );
   addFew( stage );
   for ( U32 host = few; host < 20 * few; ++host ) {
      stage.add( host, host );
      stage.remove( host - few );
   }
   t.did( "added 304 more and removed the first 304" );
   stage.rest();
}

void
checkHeld( Trial & t ) {
   MacStage stage( t );
   std::vector< MacCmdPtr > cmds;
   for ( U32 host = 0; host < few; ++host ) {
      cmds.push_back( stage.add( host, host ) );
   }
   t.did( "added 16 hosts" );
   stage.rest();
   for ( auto & cmd : cmds ) {
      if ( !stage.mac->overflowAddrOpHas( cmd->key() ) ) {
         stage.succeeded( held, cmd );
      }
   }
   stage.judge( held );
}

void
checkNewest( Trial & t ) {
   MacStage stage( t );
   for ( U32 host = 0; host < few; ++host ) {
      stage.add( host, 1 );
      stage.add( host, 2 );
   }
   t.did( "added 16 hosts at one port, then at another" );
   t.run( Trial::step ); // some are in flight
   for ( U32 host = 0; host < few; ++host ) {
      stage.remove( host );
      if ( host % 2 ) {
         stage.add( host, 3 );
      }
   }
   t.did( "removed them in the middle of that, and added every second one at a third port" );
   stage.rest();
   stage.judge( newest );
}

void
checkReadd( Trial & t ) {
   MacStage stage( t );
   addFew( stage );
   std::vector< MacCmdPtr > again;
   for ( U32 host = 0; host < few; ++host ) {
      again.push_back( stage.add( host, host ) );
   }
   t.did( "added them again" );
   stage.rest();
   for ( auto & cmd : again ) {
      if ( !stage.mac->overflowAddrOpHas( cmd->key() ) ) {
         stage.succeeded( readd, cmd );
      }
   }
   stage.judge( readd );
   for ( U32 host = 0; host < few; ++host ) {
      stage.remove( host );
   }
   t.did( "removed each once" );
   stage.rest();
   stage.judge( readd );
}

void
checkAbsent( Trial & t ) {
   MacStage stage( t );
   addFew( stage );
   for ( U32 host = few; host < 2 * few; ++host ) {
      stage.remove( host );
   }
   t.did( "removed 16 others, which were never added" );
   stage.rest();
   stage.judge( absent );
}

void
checkFull( Trial & t ) {
   MacStage stage( t );
   constexpr U32 batch = 64, enough = 8;
   const U32 room = stage.part.hostsToFill();
   if ( room == 0 ) {
      Trial::skip( "the chip says that its table cannot be filled" );
   }
   U32 hosts = 0;
   while ( stage.mac->overflowAddrOps() < enough && hosts < room ) {
      for ( U32 n = 0; n < batch; ++n ) {
         stage.add( hosts, hosts );
         ++hosts;
      }
      t.did( "added hosts up to number " + Kiv::toText( hosts ) );
      stage.rest();
   }
   if ( !stage.mac->overflowAddrOps() ) {
      t.broken( full, "an answer of macProgramFull",
                "none for " + Kiv::toText( hosts ) + " hosts (is hostsToFill right?)" );
   }
   stage.judge( full );
   auto wished = stage.wished;
   for ( auto & [host, intf] : wished ) {
      if ( !stage.mac->overflowAddrOpHas( stage.key( host ) ) ) {
         stage.remove( host );
      }
   }
   t.did( "removed all hosts that the table held" );
   stage.rest();
   constexpr Kiv::Seconds retries = 120;
   bool all = t.await( t.answersWithin() + retries, [&] {
      return !stage.mac->overflowAddrOps() && !stage.mac->pendingMacOps() &&
             !stage.mac->inProgMacOps();
   } );
   if ( !all ) {
      t.broken( full, "room for the hosts that did not fit before",
                Kiv::toText( stage.mac->overflowAddrOps() ) + " of them still do not" );
   }
   stage.judge( full );
}

void
checkFlush( Trial & t ) {
   MacStage stage( t );
   for ( Type type :
         { Type::flushPort, Type::flushVlan, Type::flushVlanPort, Type::flushAll, Type::flushLag,
           Type::flushPortType, Type::flushVlanLag, Type::flushVlanPortType } ) {
      for ( U32 host = 0; host < 2 * few; ++host ) {
         stage.add( host, host % 3 );
      }
      t.did( "added 32 hosts in four VLANs at three ports" );
      stage.rest();
      bool judged = stage.flush( type, 1, 11 );
      t.did( Kiv::toText( type ) + " of port " + t.port( 1 ).stringValue() + ", VLAN 11" );
      stage.rest();
      if ( judged ) {
         stage.judge( flush );
      }
      stage.flush( Type::flushAll );
      t.did( "flushAll" );
      stage.rest();
   }
}

void
checkShadow( Trial & t ) {
   MacStage stage( t );
   for ( Type type : { Type::addHost, Type::removeHost } ) {
      for ( U32 host = 0; host < few; ++host ) {
         auto cmd = Qon::indirectAccessMacCmdFactory( type, stage.key( host ), t.port( host ),
                                                      Bridging::EntryType::learnedDynamic );
         cmd->shadowIs( 1 );
         stage.mac->handleAddrOp( cmd );
      }
      t.did( Kiv::toText( type ) + " of 16 hosts in the shadow" );
      stage.rest();
   }
}

void
checkCleanup( Trial & t ) {
   MacStage stage( t );
   addFew( stage );
   for ( U32 host = 0; host < few; ++host ) {
      stage.remove( host );
   }
   t.did( "removed all of them" );
   stage.rest();
   stage.judge( cleanup );
}

void
checkDestructor( Trial & t ) {
   MacStage stage( t );
   addFew( stage );
   for ( U32 host = few; host < 2 * few; ++host ) {
      stage.add( host, host );
   }
   t.scheduler.settle(); // written, some not answered yet
   t.did( "added 16 more" );
   stage.hosts();
   t.judgeDestruction( destructor, [&] { stage.mac = nullptr; } );
   if ( !stage.answers.last.empty() ) {
      t.broken( destructor, "no call of the library from a destructor",
                "an answer for transaction " + stage.answers.last );
   }
}

/** In the middle of the first one's work; what the second is told are answers to its own. */
void
checkSuccessor( Trial & t ) {
   std::optional< MacStage > first( std::in_place, t ), second;
   addFew( *first );
   Hosts settled;
   for ( auto & [host, intf] : first->wished ) {
      if ( !first->mac->overflowAddrOpHas( MacStage::key( host ) ) ) {
         settled[MacStage::key( host )] = intf;
      }
   }
   for ( U32 host = few; host < 2 * few; ++host ) {
      first->add( host, host );
   }
   t.scheduler.settle();
   t.did( "added 16 more, and destroyed the programmer in the middle of that" );
   first.reset();
   t.judgeSuccessor( successor, [&] { second.emplace( t ); } );
   for ( U32 host = 100; host < 100 + 3 * few; ++host ) {
      second->add( host, host ); // some get the numbers of what the first has on its way
      t.run( 0.0005 );
   }
   t.did( "added 48 others, one by one" );
   t.run( t.answersWithin() );
   if ( !second->answers.last.empty() ) {
      t.broken( successor, "answers to the second programmer's commands only",
                "an answer for transaction " + second->answers.last );
   }
   second->rest();
   if ( auto held = second->hosts() ) {
      for ( auto & [host, intf] : second->wished ) {
         if ( !second->mac->overflowAddrOpHas( MacStage::key( host ) ) ) {
            settled[MacStage::key( host )] = intf;
         }
      }
      second->contains( successor, *held, settled );
   }
}

void
checkRandom( Trial & t ) {
   MacStage stage( t );
   constexpr U32 hosts = 48;
   for ( U32 step = 0; step < t.options.steps; ++step ) {
      U32 host = t.random.below( hosts ), what = t.random.below( 100 );
      String when = "step " + Kiv::toText( step ) + ": ";
      if ( what < 50 ) {
         stage.add( host, t.random.below( 5 ) );
         t.did( when + "added " + stage.name( host ) );
      } else if ( what < 75 ) {
         stage.remove( host );
         t.did( when + "removed host " + Kiv::toText( host ) );
      } else if ( what < 78 ) {
         static const Type types[] = { Type::flushPort, Type::flushVlan, Type::flushVlanPort };
         Type type = types[t.random.below( 3 )];
         stage.rest();
         stage.flush( type, t.random.below( 5 ), 10 + t.random.below( 4 ) );
         t.did( when + Kiv::toText( type ) );
      } else if ( what < 95 ) {
         t.run( 0.001 * t.random.below( 200 ) );
      } else {
         stage.rest();
         stage.judge( random );
      }
   }
   stage.rest();
   stage.judge( random );
}

constexpr Check checks[] = {
      { answer, checkAnswer },         { held, checkHeld },           { newest, checkNewest },
      { readd, checkReadd },           { absent, checkAbsent },       { full, checkFull },
      { flush, checkFlush },           { shadow, checkShadow },       { cleanup, checkCleanup },
      { destructor, checkDestructor }, { successor, checkSuccessor }, { random, checkRandom } };
constexpr LastWords lastWords[] = { { "unexpected mac program status", status } };

String
heldBy( const QonChip::Chip & chip ) {
   auto part = chip.part< QonChip::MacPart >();
   auto hosts = part ? part->hosts() : std::nullopt;
   String text;
   for ( auto & [host, there] : hosts.value_or( QonChip::HeldHosts() ) ) {
      text += shown( host, there.intf ) + "\n";
   }
   return text;
}

} // namespace

extern const Feature feature{ "mac", contracts, checks, lastWords, heldBy };

} // namespace QonConformance::Mac
