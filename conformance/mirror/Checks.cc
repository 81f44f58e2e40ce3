// Checks of mirror sessions: the library's state machine drives the chip's helper.

#include "Qon/include/mirroring/MirroringSession.h"
#include "chip/MirrorPart.h"
#include "conformance/Trial.h"
#include "conformance/mirror/Contracts.h"

namespace QonConformance::Mirror {

namespace {

using Mirroring::Direction;
using Mirroring::TunnelType;
using QonChip::HeldMirror;
using QonChip::HeldMirrors;
using Ulnet::IntfId;

String
shown( const HeldMirror & mirror ) {
   return "group " + Kiv::toText( mirror.group ) + ", " +
          ( mirror.tunnelType == TunnelType::none
                  ? "to " + joined( mirror.targets, []( IntfId i ) { return i.stringValue(); } )
                  : "to a tunnel " + Kiv::toText( mirror.tunnelType ) ) +
          ", from " + joined( mirror.sources, []( auto & source ) {
             return source.first.stringValue() + " " + Kiv::toText( source.second );
          } );
}

String
shown( const HeldMirrors & mirrors ) {
   return joined( mirrors, []( auto & m ) { return m.first + ": " + shown( m.second ); } );
}

class MirrorStage {
 public:
   explicit MirrorStage( Trial & trial )
       : t( trial ), part( trial.part< QonChip::MirrorPart >( "MirrorPart" ) ) {
      t.publishes( hwStatus );
      begin();
   }
   ~MirrorStage() { end(); }

   /** A hook object, and a state machine that uses it. */
   void begin() {
      helper = part.makeMirroringHelper( capability, hwStatus );
      use();
   }
   void use() {
      sm = Qon::MirroringSmIs( { t.acsd, config, capability, status, helper, hwStatus, nullptr,
                                 tunnels, nullptr, nullptr, nullptr } );
      sm->initializedIs( true );
   }
   void end() {
      sm = nullptr;
      helper = nullptr;
   }

   static String name( U32 n ) { return "session" + Kiv::toText( n ); }
   Mirroring::SessionConfig * session( U32 n ) { return config->sessionIs( name( n ) ).ptr(); }
   void target( U32 n, U32 port ) { session( n )->targetIntfIs( t.port( port ) ); }
   void source( U32 n, U32 port, Direction direction ) {
      session( n )->srcIntfIs( t.port( port ), direction )->directionIs( direction );
   }
   void tunnel( U32 n, U8 ttl ) {
      Mirroring::TunnelInfo info;
      info.typeIs( TunnelType::gre );
      info.srcIs( Ulnet::IpGenAddr( "10.0.0.1" ) );
      info.dstIs( Ulnet::IpGenAddr( "10.0.0.2" ) );
      info.ttlIs( ttl );
      session( n )->tunnelIs( info );
   }
   void resolve( U32 port ) {
      tunnels->resolutionIs( { Ulnet::IpGenAddr( "10.0.0.2" ), "" }, { t.port( port ), {}, {} } );
   }
   void awaitReconciled() {
      if ( !t.await( [&] { return hwStatus->reconciled(); } ) ) {
         t.broken( reconciled, "reconciled within " + Kiv::toText( t.answersWithin() ) + " s",
                   "it is not" );
      }
   }

   /** What the hooks accepted, as the library published it. */
   HeldMirrors wanted() const {
      HeldMirrors all;
      for ( auto && [name, session] : status->sessionIteratorConst() ) {
         if ( !session->createdInHw() ) {
            continue;
         }
         HeldMirror & mirror = all[name];
         mirror.group = session->mirrorGroup();
         auto tunneled = sm->session( name )->tunnel();
         mirror.tunnelType =
               tunneled && tunneled->programmed() ? tunneled->type() : TunnelType::none;
         for ( auto && [port, none] : session->programmedDstIteratorConst() ) {
            mirror.targets.insert( port );
         }
         for ( auto && [port, what] : session->programmedSrcIteratorConst() ) {
            mirror.sources[port] = what;
         }
      }
      return all;
   }
   HeldMirrors published() const {
      HeldMirrors all;
      for ( auto && [name, session] : hwStatus->sessionIteratorConst() ) {
         HeldMirror & mirror = all[name];
         mirror.group = session->mirrorGroup();
         mirror.tunnelType = session->tunnelType();
         for ( auto && [port, none] : session->targetIntfIteratorConst() ) {
            mirror.targets.insert( port );
         }
         for ( auto && [port, what] : session->srcIntfIteratorConst() ) {
            mirror.sources[port] = what;
         }
      }
      return all;
   }
   void rest() { t.run( Trial::step ); }
   void judge( const Contract & contract ) {
      rest();
      const HeldMirrors want = wanted();
      if ( auto found = t.readBack( part.mirrors(), "the chip's mirror sessions" ) ) {
         for ( auto & [name, mirror] : *found ) {
            auto session = want.find( name );
            for ( IntfId port : mirror.targets ) {
               if ( session == want.end() || !session->second.targets.contains( port ) ) {
                  t.broken( last, name + " not to " + port.stringValue(), shown( mirror ) );
               }
            }
         }
         judgeSame( contract, want, *found );
      }
      judgeSame( Mirror::status, want, published() );
   }
   void judgeSame( const Contract & contract, const HeldMirrors & want,
                   const HeldMirrors & found ) const {
      if ( !( want == found ) ) {
         t.broken( contract, shown( want ), shown( found ) );
      }
   }
   /** So many sessions, each to a port of its own. */
   void fill( U32 sessions ) {
      for ( U32 n = 0; n < sessions; ++n ) {
         target( n, n );
         source( n, n + 10, Direction( 1 + n % 3 ) );
      }
   }

   Trial & t;
   QonChip::MirrorPart & part;
   Ptr< Mirroring::Config > config = Velto::make< Mirroring::Config >( "config" );
   Ptr< Mirroring::HwCapability > capability =
         Velto::make< Mirroring::HwCapability >( "capability" );
   Ptr< Mirroring::HwStatus > hwStatus = Velto::make< Mirroring::HwStatus >( "hwStatus" );
   Ptr< Mirroring::Status > status = Velto::make< Mirroring::Status >( "status" );
   Ptr< Tunnel::Status > tunnels = Velto::make< Tunnel::Status >( "tunnels" );
   Ptr< Qon::MirroringSmHelper > helper;
   Ptr< Qon::MirroringSm > sm;
};

void
checkSaid( Trial & t ) {
   MirrorStage stage( t );
   if ( stage.capability->maxSupportedSessions() == 0 ) {
      t.broken( said, "at least one session", "maxSupportedSessions is 0" );
   }
   stage.judge( said );
}

void
checkHeld( Trial & t ) {
   MirrorStage stage( t );
   stage.target( 0, 0 );
   stage.source( 0, 1, Direction::rx );
   t.did( "a session to one port, from another" );
   stage.judge( held );
   stage.target( 0, 2 );
   stage.source( 0, 3, Direction::both );
   t.did( "one more of each" );
   stage.judge( held );
   if ( !stage.status->session( MirrorStage::name( 0 ) )->programmedDstHas( t.port( 2 ) ) ) {
      Trial::skip( "the chip takes one destination a session" );
   }
   stage.session( 0 )->srcIntfDel( t.port( 1 ) );
   stage.session( 0 )->targetIntfDel( t.port( 0 ) );
   t.did( "the first of each removed" );
   stage.judge( held );
}

void
checkDirection( Trial & t ) {
   MirrorStage stage( t );
   stage.target( 0, 0 );
   for ( Direction what : { Direction::rx, Direction::both, Direction::tx, Direction::rx } ) {
      stage.source( 0, 1, what );
      t.did( "direction " + Kiv::toText( what ) );
      stage.judge( direction );
   }
}

void
checkLast( Trial & t ) {
   MirrorStage stage( t );
   for ( U32 port : { 0, 1, 2 } ) {
      stage.target( 0, port );
   }
   stage.source( 0, 3, Direction::rx );
   stage.judge( held );
   stage.config->sessionDel( MirrorStage::name( 0 ) );
   t.did( "a session of several destinations deleted" );
   stage.judge( last );
   stage.target( 1, 4 ); // in the same group
   t.did( "another session" );
   stage.judge( last );
}

void
checkFull( Trial & t ) {
   MirrorStage stage( t );
   const U32 most = stage.capability->maxSupportedSessions();
   if ( most > 64 || t.ports() < most + 12 ) {
      Trial::skip( "the chip has more sessions than can be filled" );
   }
   stage.fill( most + 2 );
   t.did( Kiv::toText( most + 2 ) + " sessions" );
   stage.judge( full );
   stage.config->sessionDel( MirrorStage::name( 0 ) );
   t.did( "the first of them deleted" );
   stage.judge( full );
   if ( !stage.status->session( MirrorStage::name( most ) )->createdInHw() ) {
      t.broken( full, MirrorStage::name( most ) + " accepted in the group that is free",
                "it is refused" );
   }
}

void
checkTunnel( Trial & t ) {
   MirrorStage stage( t );
   stage.awaitReconciled();
   stage.resolve( 5 );
   stage.tunnel( 0, 10 );
   stage.source( 0, 1, Direction::rx );
   t.did( "a session with a tunnel" );
   if ( stage.status->session( MirrorStage::name( 0 ) )->tunnelFailed() ) {
      Trial::skip( "the chip has no tunnels" );
   }
   stage.judge( tunnel );
   stage.tunnel( 0, 20 );
   stage.resolve( 6 );
   t.did( "another ttl, another way" );
   stage.judge( tunnel );
   stage.tunnels->resolutionDelAll();
   t.did( "no way" );
   stage.judge( tunnel );
}

void
checkReconciled( Trial & t ) {
   MirrorStage stage( t );
   stage.awaitReconciled();
   stage.target( 0, 0 );
   stage.end();
   stage.begin();
   t.did( "a second hook object" );
   stage.awaitReconciled();
}

void
checkCleanup( Trial & t ) {
   MirrorStage stage( t );
   stage.fill( 3 );
   stage.target( 0, 8 );
   stage.rest();
   stage.sm->doCleanup();
   t.did( "three sessions, and a clean-up" );
   stage.judge( cleanup );
}

void
checkDestructor( Trial & t ) {
   MirrorStage stage( t );
   stage.fill( 2 );
   stage.judge( held );
   t.judgeDestruction( destructor, [&] { stage.end(); } );
}

void
checkSuccessor( Trial & t ) {
   MirrorStage stage( t );
   stage.fill( 2 );
   stage.judge( held );
   const HeldMirrors before = stage.wanted();
   stage.end();
   stage.hwStatus = Velto::make< Mirroring::HwStatus >( "hwStatus" ); // it is told anew
   t.judgeSuccessor( successor, [&] {
      stage.helper = stage.part.makeMirroringHelper( stage.capability, stage.hwStatus );
   } );
   stage.judgeSame( successor, before, stage.published() );
   stage.use();
   stage.judge( successor );
}

void
checkRandom( Trial & t ) {
   MirrorStage stage( t );
   for ( U32 step = 0; step < t.options.steps; ++step ) {
      const U32 n = t.random.below( 6 ), port = t.random.below( 12 ), what = t.random.below( 100 );
      const String when = "step " + Kiv::toText( step ) + ": " + MirrorStage::name( n ) + ": ";
      if ( what < 25 ) {
         stage.target( n, port );
         t.did( when + "to " + t.port( port ).stringValue() );
      } else if ( what < 40 ) {
         stage.session( n )->targetIntfDel( t.port( port ) );
         t.did( when + "not to " + t.port( port ).stringValue() );
      } else if ( what < 70 ) {
         stage.source( n, port, Direction( t.random.below( 4 ) ) );
         t.did( when + "from " + t.port( port ).stringValue() );
      } else if ( what < 85 ) {
         stage.session( n )->srcIntfDel( t.port( port ) );
         t.did( when + "not from " + t.port( port ).stringValue() );
      } else if ( what < 92 ) {
         stage.config->sessionDel( MirrorStage::name( n ) );
         t.did( when + "deleted" );
      } else {
         stage.judge( random );
      }
   }
   stage.judge( random );
   stage.config->sessionDelAll();
   stage.judge( cleanup );
}

constexpr Check checks[] = { { said, checkSaid },
                             { held, checkHeld },
                             { direction, checkDirection },
                             { last, checkLast },
                             { full, checkFull },
                             { tunnel, checkTunnel },
                             { reconciled, checkReconciled },
                             { cleanup, checkCleanup },
                             { destructor, checkDestructor },
                             { successor, checkSuccessor },
                             { random, checkRandom } };

String
heldBy( const QonChip::Chip & chip ) {
   auto part = chip.part< QonChip::MirrorPart >();
   auto mirrors = part ? part->mirrors() : std::nullopt;
   String text;
   for ( auto & [name, mirror] : mirrors.value_or( HeldMirrors() ) ) {
      text += name + ": " + shown( mirror ) + "\n";
   }
   return text;
}

} // namespace

extern const Feature feature{ "mirror", contracts, checks, {}, heldBy };

} // namespace QonConformance::Mirror
