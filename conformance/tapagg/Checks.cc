// Checks of tap aggregation: the library's state machine drives the chip's helper, the kit reads back
// what the chip holds.

#include "Qon/include/tapagg/QonTapaggSm.h"
#include "chip/TapAggPart.h"
#include "conformance/Trial.h"
#include "conformance/tapagg/Contracts.h"

namespace QonConformance::Tapagg {

namespace {

using Bridging::Input::TapGroups;
using Bridging::Input::ToolIdentityMode;
using QonChip::HeldTapAgg;
using QonChip::HeldTapPort;
using QonChip::HeldToolPort;
using Ulnet::IntfId;

constexpr U32 portsUsed = 6;
constexpr U32 manyGroups = 100'000;

/** In one line: what the kit tells of a chip that is wrong. */
String
shown( const HeldTapAgg & held ) {
   String text = joined( held.groups, []( auto & group ) {
      return group.second + " is " + Kiv::toText( group.first );
   } );
   for ( auto & [intf, tap] : held.taps ) {
      text += "; tap " + intf.stringValue() + " to " + Kiv::toText( tap.group ) + ", cut to " +
              Kiv::toText( tap.truncationSize ) + ", identity " +
              Kiv::toText( tap.identity.outer() ) + "/" + Kiv::toText( tap.identity.inner() );
   }
   for ( auto & [intf, tool] : held.tools ) {
      text += "; tool " + intf.stringValue() + " in " + joined( tool.groups, []( auto & group ) {
                 return Kiv::toText( group.first ) + "(" +
                        joined( group.second, []( IntfId port ) { return port.stringValue(); } ) +
                        ")";
              } );
      text += ", cut to " + Kiv::toText( tool.truncationSize ) + ", " +
              Kiv::toText( tool.identityTagging ) + ( tool.brStrip ? " br" : "" ) +
              ( tool.vnStrip ? " vn" : "" ) + ( tool.mplsPop ? " mpls" : "" );
   }
   return text;
}

/** What a chip need not have is not compared. */
HeldTapPort
plain( const HeldTapPort & tap ) {
   HeldTapPort is;
   is.group = tap.group;
   is.truncationSize = tap.truncationSize;
   is.identity = tap.identity;
   return is;
}

HeldToolPort
plain( HeldToolPort tool ) {
   tool.dot1qRemove = 0;
   return tool;
}

class TapAggStage {
 public:
   explicit TapAggStage( Trial & trial )
       : t( trial ), part( trial.part< QonChip::TapAggPart >( "TapAggPart" ) ) {
      begin();
      mode( true );
   }
   ~TapAggStage() {
      end();
      t.acsd->portToLagDelAll();
      t.acsd->lagToPortDelAll();
      mode( false );
   }

   void begin() {
      helper = part.makeTapAggHelper();
      use();
   }
   void use() {
      sm = Qon::TapAggSmIs( { t.acsd, config, helper, status, toolPorts, pmapGroups, pmapStatus,
                              policyMaps, requests, replies, t.acsd->verifyData(),
                              t.scheduler.timerWheel() } );
      sm->initializedIs( true );
   }
   void end() {
      sm = nullptr;
      helper = nullptr;
   }
   void mode( bool on ) {
      t.acsd->operationalModeIs( on ? Qon::HwOperationalMode::tapAgg
                                    : Qon::HwOperationalMode::switching );
   }

   Ptr< Bridging::Input::TapPortConfig > tap( U32 port, const String & groups ) {
      auto made = config->tapPortIs( t.port( port ) );
      made->groupsIs( TapGroups( groups ) );
      return made;
   }
   Ptr< Bridging::Input::ToolPortConfig > tool( IntfId intf, const String & groups ) {
      auto made = config->toolPortIs( intf );
      made->groupDelAll();
      for ( const String & group : TapGroups( groups ) ) {
         made->groupIs( group );
      }
      return made;
   }
   void member( U32 port, bool joins ) {
      auto list = t.acsd->lagToPort( lag );
      joins ? list.portIs( t.port( port ), Qon::QonLagPort( true, true ) )
            : list.portDel( t.port( port ) );
      t.acsd->lagToPortIs( lag, list );
      joins ? t.acsd->portToLagIs( t.port( port ), lag ) : t.acsd->portToLagDel( t.port( port ) );
   }

   /** With the ids that the chip gave. */
   HeldTapAgg wanted() const {
      HeldTapAgg all;
      all.inited = sm->hwInited();
      for ( auto && [id, info] : sm->allocatedGroupInfoIteratorConst() ) {
         all.groups[id] = info->groupOwner();
      }
      auto served = [&]( IntfId intf ) { return sm->active() && !t.acsd->portToLagHas( intf ); };
      for ( auto && [intf, tap] : config->tapPortIteratorConst() ) {
         if ( served( intf ) ) {
            auto & port = all.taps[intf];
            port.group = sm->groupIdOf( tap->groups().stringValue() );
            port.truncationSize = bounded( tap->truncationSize() );
            port.identity = tap->identity();
         }
      }
      for ( auto && [intf, tool] : config->toolPortIteratorConst() ) {
         if ( served( intf ) ) {
            all.tools[intf] = wantedTool( intf, *tool, all.groups );
         }
      }
      return all;
   }
   HeldToolPort wantedTool( IntfId intf, const Bridging::Input::ToolPortConfig & tool,
                            const std::map< U32, String > & groups ) const {
      HeldToolPort port;
      port.truncationSize = bounded( tool.truncationSize() );
      port.identityTagging = tool.identityTagging();
      port.brStrip = tool.brStrip();
      port.vnStrip = tool.vnStrip();
      port.mplsPop = tool.mplsPop();
      if ( toolPorts->activeHas( intf ) && !toolPorts->active( intf ) ) {
         return port;
      }
      for ( auto & [id, name] : groups ) {
         for ( const String & group : TapGroups( name ) ) {
            if ( tool.groupHas( group ) && sm->groupInUse( name ) ) {
               for ( auto & [member, flags] : t.acsd->lagToPort( intf ) ) {
                  port.groups[id].insert( member );
               }
               port.groups[id];
            }
         }
      }
      return port;
   }
   U32 bounded( U32 size ) const {
      return sm->maxFrameSize() ? std::min( size, sm->maxFrameSize() ) : size;
   }

   void judge( const Contract & contract ) {
      auto held = t.readBack( part.tapAgg(), "the chip's tap aggregation" );
      if ( !held ) {
         return;
      }
      for ( auto & [intf, tap] : held->taps ) {
         tap = plain( tap );
      }
      for ( auto & [intf, tool] : held->tools ) {
         tool = plain( tool );
      }
      if ( const HeldTapAgg want = wanted(); !( *held == want ) ) {
         t.broken( contract, shown( want ), shown( *held ) );
      }
   }

   Trial & t;
   QonChip::TapAggPart & part;
   const IntfId lag = Ulnet::PortChannelIntfId::intfId( 1 );
   Ptr< Bridging::Input::TapAggConfig > config =
         Velto::make< Bridging::Input::TapAggConfig >( "config" );
   Ptr< TapAgg::Status > status = Velto::make< TapAgg::Status >( "status" );
   Ptr< TapAgg::ToolPortStatus > toolPorts = Velto::make< TapAgg::ToolPortStatus >( "toolPorts" );
   Ptr< TapAgg::PmapGroupConfig > pmapGroups =
         Velto::make< TapAgg::PmapGroupConfig >( "pmapGroups" );
   Ptr< TapAgg::PmapGroupStatus > pmapStatus =
         Velto::make< TapAgg::PmapGroupStatus >( "pmapStatus" );
   Ptr< TapAgg::PolicyMapConfig > policyMaps =
         Velto::make< TapAgg::PolicyMapConfig >( "policyMaps" );
   Ptr< Bridging::HostFlush::RequestDir > requests =
         Velto::make< Bridging::HostFlush::RequestDir >( "requests" );
   Ptr< Bridging::HostFlush::ReplyDir > replies =
         Velto::make< Bridging::HostFlush::ReplyDir >( "replies" );
   Ptr< Qon::TapAggHelper > helper;
   Ptr< Qon::TapAggSm > sm;
};

String
name( U32 n ) {
   return "group" + Kiv::toText( n );
}

void
checkGroup( Trial & t ) {
   TapAggStage stage( t );
   std::map< U32, String > ids;
   for ( U32 n = 0; n < 4; ++n ) {
      const U32 id = stage.helper->allocateAggGroup( name( n ) );
      t.did( "allocated a group for " + name( n ) );
      if ( id == 0 || ids.contains( id ) ) {
         t.broken( group, "an id of its own", Kiv::toText( id ) );
      }
      ids[id] = name( n );
   }
   for ( auto & [id, owner] : ids ) {
      const U32 again = stage.helper->allocateAggGroup( owner );
      t.did( "asked for it again" );
      if ( again != id ) {
         t.broken( group, Kiv::toText( id ) + ", as before", Kiv::toText( again ) );
      }
      stage.helper->deallocateAggGroup( id );
   }
}

/** As many names as there is room for, and one more. */
void
checkFull( Trial & t ) {
   TapAggStage stage( t );
   std::set< U32 > ids;
   U32 id = 1;
   while ( id && ids.size() < manyGroups ) {
      id = stage.helper->allocateAggGroup( name( U32( ids.size() ) ) );
      if ( id && !ids.insert( id ).second ) {
         t.broken( full, "an id of its own, or 0", Kiv::toText( id ) );
      }
   }
   const U32 given = U32( ids.size() );
   t.did( "allocated " + Kiv::toText( given ) + " groups" );
   if ( given == 0 ) {
      t.broken( full, "a group", "none" );
   }
   if ( given == manyGroups ) {
      t.skip( "the chip has room for " + Kiv::toText( manyGroups ) + " groups" );
   }
   if ( auto held = t.readBack( stage.part.tapAgg(), "the chip's tap aggregation" );
        held && held->groups.size() != given ) {
      t.broken( full, Kiv::toText( given ) + " groups", Kiv::toText( U32( held->groups.size() ) ) );
   }
   stage.helper->deallocateAggGroup( *ids.begin() );
   t.did( "freed one" );
   if ( !stage.helper->allocateAggGroup( name( given ) ) ) {
      t.broken( full, "room for one more", "none" );
   }
}

void
checkPorts( Trial & t ) {
   TapAggStage stage( t );
   auto tap = stage.tap( 0, "a" );
   auto tool = stage.tool( t.port( 1 ), "a" );
   stage.tool( t.port( 2 ), "a,b" );
   t.did( "a tap port, two tool ports" );
   stage.judge( ports );
   tap->truncationSizeIs( 100 );
   tap->identityIs( Bridging::IdentityTuple( 10, 20 ) );
   tool->truncationSizeIs( 200 );
   tool->identityTaggingIs( ToolIdentityMode::qinq );
   tool->brStripIs( true );
   tool->vnStripIs( true );
   tool->mplsPopIs( true );
   t.did( "all settings" );
   stage.judge( ports );
   tap->identityIs( {} );
   tool->identityTaggingIs( ToolIdentityMode::none );
   tool->vnStripIs( false );
   t.did( "some of them neutral again" );
   stage.judge( ports );
   stage.tap( 0, "b" );
   t.did( "the tap port goes to another group" );
   stage.judge( ports );
   stage.tool( t.port( 2 ), "b" );
   stage.toolPorts->activeIs( t.port( 1 ), false );
   t.did( "tool ports leave groups" );
   stage.judge( ports );
   stage.config->tapPortDel( t.port( 0 ) );
   stage.config->toolPortDel( t.port( 1 ) );
   t.did( "ports that are none any more" );
   stage.judge( ports );
   t.run( 2 );
   stage.judge( ports );
}

void
checkRoles( Trial & t ) {
   TapAggStage stage( t );
   stage.tap( 0, "a" )->truncationSizeIs( 100 );
   stage.tool( t.port( 0 ), "b" )->truncationSizeIs( 200 );
   t.did( "a port that is both" );
   stage.judge( roles );
   stage.config->tapPortDel( t.port( 0 ) );
   t.did( "no tap port any more" );
   stage.judge( roles );
   stage.tap( 0, "b" );
   stage.config->toolPortDel( t.port( 0 ) );
   t.did( "a tap port again, and no tool port" );
   stage.judge( roles );
}

void
checkMembers( Trial & t ) {
   TapAggStage stage( t );
   stage.tap( 0, "a" );
   stage.tool( stage.lag, "a,b" );
   stage.member( 1, true );
   stage.member( 2, true );
   t.did( "a port-channel of two members in two groups" );
   stage.judge( members );
   stage.member( 1, false );
   t.did( "a member goes" );
   stage.judge( members );
   stage.tool( stage.lag, "b" );
   t.did( "a group goes" );
   stage.judge( members );
   stage.config->toolPortDel( stage.lag );
   t.did( "no tool port any more" );
   stage.judge( members );
}

void
checkInit( Trial & t ) {
   TapAggStage stage( t );
   stage.tap( 0, "a" )->truncationSizeIs( 64 );
   stage.tool( t.port( 1 ), "a" );
   stage.end();
   stage.config->tapPortDel( t.port( 0 ) );
   stage.config->toolPortDel( t.port( 1 ) );
   stage.tool( t.port( 2 ), "c" );
   stage.begin();
   t.did( "began anew over a tap port and a tool port" );
   stage.judge( init );
}

void
checkCleanup( Trial & t ) {
   TapAggStage stage( t );
   stage.tap( 0, "a" )->truncationSizeIs( 64 );
   stage.tool( t.port( 1 ), "a" )->mplsPopIs( true );
   stage.mode( false );
   t.run( 6 );
   t.did( "left the mode" );
   stage.judge( cleanup );
   stage.mode( true );
   t.did( "entered it again" );
   stage.judge( cleanup );
}

void
checkVerify( Trial & t ) {
   TapAggStage stage( t );
   stage.tap( 0, "a" )->identityIs( Bridging::IdentityTuple( 1, 2 ) );
   stage.tool( t.port( 1 ), "a" )->vnStripIs( true );
   stage.tap( 2, "a" );
   stage.member( 2, true );
   t.judgeVerify( verify, [&] { stage.sm->handleVerify(); } );
   stage.mode( false );
   t.run( 6 );
   t.judgeVerify( verify, [&] { stage.sm->handleVerify(); } );
}

void
checkDestructor( Trial & t ) {
   TapAggStage stage( t );
   stage.tap( 0, "a" );
   stage.tool( t.port( 1 ), "a" );
   stage.judge( destructor );
   t.judgeDestruction( destructor, [&] { stage.end(); } );
}

void
checkSuccessor( Trial & t ) {
   TapAggStage stage( t );
   stage.tap( 0, "a" );
   stage.tool( t.port( 1 ), "a" );
   stage.end();
   t.judgeSuccessor( successor, [&] { stage.helper = stage.part.makeTapAggHelper(); } );
   stage.use();
   stage.judge( successor );
}

void
checkRandom( Trial & t ) {
   TapAggStage stage( t );
   for ( U32 step = 0; step < t.options.steps; ++step ) {
      const U32 port = t.random.below( portsUsed ), what = t.random.below( 100 );
      const String groups = name( t.random.below( 5 ) ) + ( t.random.oneIn( 4 ) ? ",group9" : "" );
      const String when = "step " + Kiv::toText( step ) + ": " + t.port( port ).stringValue();
      if ( what < 30 ) {
         stage.tap( port, groups )->truncationSizeIs( t.random.below( 3 ) * 100 );
         t.did( when + " taps " + groups );
      } else if ( what < 60 ) {
         stage.tool( what < 35 ? stage.lag : t.port( port ), groups )
               ->brStripIs( t.random.oneIn( 2 ) );
         t.did( when + " (or a port-channel) is a tool of " + groups );
      } else if ( what < 75 ) {
         stage.config->tapPortDel( t.port( port ) );
         stage.config->toolPortDel( t.port( t.random.below( portsUsed ) ) );
         t.did( when + " taps nothing" );
      } else if ( what < 85 ) {
         stage.member( port, t.random.oneIn( 2 ) );
         t.did( when + " joins or leaves" );
      } else if ( what < 90 ) {
         stage.mode( what < 88 );
         t.did( "step " + Kiv::toText( step ) + ": the mode" );
      } else {
         t.run( 0.1 * t.random.below( 20 ) );
      }
      if ( what % 20 == 0 ) {
         stage.judge( random );
      }
   }
   stage.judge( random );
}

constexpr Check checks[] = {
      { group, checkGroup },         { full, checkFull },       { ports, checkPorts },
      { roles, checkRoles },         { members, checkMembers }, { init, checkInit },
      { cleanup, checkCleanup },     { verify, checkVerify },   { destructor, checkDestructor },
      { successor, checkSuccessor }, { random, checkRandom } };

String
heldBy( const QonChip::Chip & chip ) {
   auto part = chip.part< QonChip::TapAggPart >();
   auto held = part ? part->tapAgg() : std::nullopt;
   return held && held->inited ? "tap aggregation: " + shown( *held ) + "\n" : String();
}

} // namespace

extern const Feature feature{ "tapagg", contracts, checks, {}, heldBy };

} // namespace QonConformance::Tapagg
