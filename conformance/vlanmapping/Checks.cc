// Checks of VLAN mapping: the library decides who owns a key, and calls the chip's hooks or writes
// its directories.

#include "chip/VlanMappingPart.h"
#include "conformance/Trial.h"
#include "conformance/vlanmapping/Contracts.h"

namespace QonConformance::Vlanmapping {

namespace {

using Direction = Bridging::VlanMappingDirection;
using Held = QonChip::HeldTranslations;
using Outcome = Qon::VlanMappingSm::Outcome;
using Source = Qon::QonVlanMappingSource;
using Ulnet::IntfId;

String
nameOf( const QonChip::HeldTranslationKey & name ) {
   auto & [d, key] = name;
   return Kiv::toText( d ) + " " + key.portId().stringValue() + " VLAN " +
          Kiv::toText( key.vlanId() ) + ( Qon::isNative( key.key() ) ? " native" : "" );
}

String
shown( const Held & held ) {
   return joined( held, []( auto & entry ) {
      return nameOf( entry.first ) + " -> " + Kiv::toText( entry.second.vlanId() );
   } );
}

class Stage {
 public:
   explicit Stage( Trial & trial )
       : t( trial ), part( trial.part< QonChip::VlanMappingPart >( "VlanMappingPart" ) ) {
      begin();
   }
   void begin() {
      sm = part.makeVlanMappingSm( { t.acsd, config, flow, dir[0], dir[1], sets, status[0],
                                     status[1], members, t.acsd->verifyData() },
                                   { status[0], status[1] } );
      sm->initializedIs( true );
   }
   /** `mapped` 0: not any more. */
   void wants( Source source, IntfId intf, Direction d, U32 vlan, U32 mapped ) {
      Ptr< Bridging::VlanXlateIntfConfig > c =
            source == Source::Steerline
                  ? flow->vlanXlateIntfConfigIs( intf )
                  : Ptr< Bridging::VlanXlateIntfConfig >( config->switchIntfConfigIs( intf ) );
      const Bridging::VlanXlateKey key( U16( vlan ), 0 );
      mapped ? c->vlanXlateIs( d, key, { U16( mapped ), 0 } ) : c->vlanXlateDel( d, key );
   }
   void cli( U32 port, Direction d, U32 vlan, U32 mapped ) {
      wants( Source::BriselCli, t.port( port ), d, vlan, mapped );
   }
   void member( U32 port, bool is ) {
      const IntfId lag = Ulnet::PortChannelIntfId::intfId( 1 ), intf = t.port( port );
      Qon::QonLagPortList list = t.acsd->lagToPort( lag );
      is ? list.portIs( intf, { true, true } ) : list.portDel( intf );
      t.acsd->lagToPortIs( lag, list );
      is ? t.acsd->portToLagIs( intf, lag ) : t.acsd->portToLagDel( intf );
   }

   /** What the owners have been told is programmed; `open`: something that is not answered yet. */
   Held wanted( String & open ) const {
      Held all;
      auto take = [&]( const Bridging::VlanXlateIntfConfig & c, Source source ) {
         for ( Direction d : Bridging::vlanMappingDirections ) {
            for ( auto && [key, mapping] : c.vlanXlateIteratorConst( d ) ) {
               const auto outcome = sm->outcome( c.intf(), d, key, source );
               if ( outcome == Outcome::handedOver || outcome == Outcome::waiting ) {
                  open = Kiv::toText( d ) + " " + c.intf().stringValue() + " VLAN " +
                         Kiv::toText( key.vlanId() );
               } else if ( outcome == Outcome::programmed ) {
                  Qon::LagView( t.acsd.ptr() )
                        .forEachTarget( c.intf(), Qon::EmptyAggregate::nothing, [&]( IntfId port ) {
                           all[{ d, Qon::PortVlanKey::of( port, key ) }] = mapping;
                        } );
               }
            }
         }
      };
      for ( auto && [intf, c] : config->switchIntfConfigIteratorConst() ) {
         take( *c, Source::BriselCli );
      }
      for ( auto && [intf, c] : flow->vlanXlateIntfConfigIteratorConst() ) {
         take( *c, Source::Steerline );
      }
      return all;
   }
   void judge( const Contract & contract ) {
      String open;
      const bool rests = t.await( [&] { return open.clear(), wanted( open ), open.empty(); } );
      if ( !rests ) {
         t.broken( answered, "an answer within " + Kiv::toText( t.answersWithin() ) + " s", open );
      }
      const auto found = t.readBack( part.translations(), "the chip's translations" );
      const Held expected = wanted( open );
      if ( found && *found != expected ) {
         const bool sameKeys =
               std::equal( found->begin(), found->end(), expected.begin(), expected.end(),
                           []( auto & one, auto & other ) { return one.first == other.first; } );
         t.broken( sameKeys ? latest : contract, shown( expected ), shown( *found ) );
      }
   }

   Trial & t;
   QonChip::VlanMappingPart & part;
   template< class T >
   static Ptr< T > entity( const char * name ) {
      return Velto::make< T >( name );
   }
   Ptr< Bridging::Config > config = entity< Bridging::Config >( "config" );
   Ptr< Qon::QonFlowVlanXlateConfigDir > flow = entity< Qon::QonFlowVlanXlateConfigDir >( "flow" );
   Ptr< Qon::QonVlanMappingConfigDir > dir[2] = {
         entity< Qon::QonVlanMappingConfigDir >( "ingress" ),
         entity< Qon::QonVlanMappingConfigDir >( "egress" ) };
   Ptr< Qon::QonVlanMappingIntfConfigDir > sets =
         entity< Qon::QonVlanMappingIntfConfigDir >( "sets" );
   Ptr< Qon::QonVlanMappingStatusDir > status[2] = {
         entity< Qon::QonVlanMappingStatusDir >( "ingress" ),
         entity< Qon::QonVlanMappingStatusDir >( "egress" ) };
   Ptr< Qon::QonVlanLagMemberStatusDir > members =
         entity< Qon::QonVlanLagMemberStatusDir >( "members" );
   Ptr< Qon::VlanMappingSm > sm;
};

constexpr Direction in = Direction::ingress, out = Direction::egress;

void
addFew( Stage & stage ) {
   for ( U32 port = 0; port < 4; ++port ) {
      stage.cli( port, in, 10, 110 + port );
      stage.cli( port, out, 110 + port, 10 );
      stage.cli( port, in, 20, 120 );
   }
   stage.t.did( "three translations on each of four ports" );
}

void
checkHeld( Trial & t ) {
   Stage stage( t );
   addFew( stage );
   stage.judge( held );
}

void
checkLatest( Trial & t ) {
   Stage stage( t );
   addFew( stage );
   stage.judge( held );
   for ( U32 round = 0; round < 5; ++round ) {
      stage.cli( 0, in, 10, 200 + round );
      stage.cli( 1, out, 111, 300 + round );
      t.did( "other mappings" );
      if ( round % 2 ) {
         stage.judge( latest );
      }
   }
   stage.judge( latest );
   stage.sm->kivConfig( t.port( 0 ) )->doApplyConfig();
   t.did( "the whole of a port again" );
   stage.judge( latest );
}

void
checkRemoved( Trial & t ) {
   Stage stage( t );
   addFew( stage );
   stage.cli( 0, in, 10, 0 );
   stage.cli( 1, out, 111, 0 );
   t.did( "two of them gone" );
   stage.judge( removed );
   stage.cli( 0, in, 10, 150 );
   t.did( "one of them back" );
   stage.judge( removed );
   stage.config->switchIntfConfigDelAll();
   stage.sm->doDelIngressVlanMapping( t.port( 0 ), false, { t.port( 0 ), 10, 0 } );
   t.did( "all gone, one of them twice" );
   stage.judge( removed );
}

void
checkFull( Trial & t ) {
   Stage stage( t );
   for ( U32 vlan = 1; vlan <= 4000; ++vlan ) {
      stage.cli( 0, in, vlan, vlan % 4000 + 1 );
   }
   t.did( "4000 translations on a port" );
   stage.judge( full );
   stage.config->switchIntfConfigDelAll();
   stage.cli( 0, in, 10, 110 );
   t.did( "all gone, and one again" );
   stage.judge( full );
   const Qon::VlanMappingSm & sm = *stage.sm;
   if ( sm.outcome( t.port( 0 ), in, { 10, 0 }, Source::BriselCli ) != Outcome::programmed ) {
      t.broken( full, "room for one in an empty table", "none" );
   }
}

void
checkDestructor( Trial & t ) {
   Stage stage( t );
   addFew( stage );
   stage.judge( held );
   t.judgeDestruction( destructor, [&] { stage.sm = nullptr; } );
}

void
checkSuccessor( Trial & t ) {
   Stage stage( t );
   addFew( stage );
   stage.judge( held );
   stage.sm = nullptr;
   t.judgeSuccessor( successor, [&] { stage.begin(); } );
   stage.judge( successor );
   stage.cli( 0, in, 10, 0 );
   stage.judge( successor );
}

void
checkRandom( Trial & t ) {
   Stage stage( t );
   const IntfId lag = Ulnet::PortChannelIntfId::intfId( 1 );
   for ( U32 step = 0; step < t.options.steps; ++step ) {
      const U32 what = t.random.below( 100 );
      const Direction d = t.random.oneIn( 2 ) ? in : out;
      const IntfId intf = t.random.oneIn( 4 ) ? lag : t.port( t.random.below( 4 ) );
      const U32 vlan = 10 + t.random.below( 4 );
      const String when = "step " + Kiv::toText( step ) + ": ";
      if ( what < 60 ) {
         const auto source = t.random.oneIn( 3 ) ? Source::Steerline : Source::BriselCli;
         const U32 mapped = t.random.oneIn( 3 ) ? 0 : 100 + t.random.below( 5 );
         stage.wants( source, intf, d, vlan, mapped );
         t.did( when + shownSource( source ) + ": " + Kiv::toText( d ) + " " + intf.stringValue() +
                " " + Kiv::toText( vlan ) + " -> " + Kiv::toText( mapped ) );
      } else if ( what < 75 ) {
         const U32 port = t.random.below( 4 );
         const bool is = t.acsd->portToLag( t.port( port ) ).isNull();
         stage.member( port, is );
         t.did( when + t.port( port ).stringValue() + ( is ? " joins" : " leaves" ) );
      } else if ( what < 95 ) {
         t.run( 0.001 * t.random.below( 50 ) );
      } else {
         stage.judge( random );
      }
   }
   stage.judge( random );
}

constexpr Check checks[] = { { held, checkHeld },           { latest, checkLatest },
                             { removed, checkRemoved },     { full, checkFull },
                             { answered, checkHeld },       { destructor, checkDestructor },
                             { successor, checkSuccessor }, { random, checkRandom } };

String
heldBy( const QonChip::Chip & chip ) {
   auto part = chip.part< QonChip::VlanMappingPart >();
   auto all = part ? part->translations() : std::nullopt;
   String text;
   for ( auto & [name, mapping] : all.value_or( Held() ) ) {
      text += nameOf( name ) + " -> " + Kiv::toText( mapping.vlanId() ) + "\n";
   }
   return text;
}

} // namespace

extern const Feature feature{ "vlanmapping", contracts, checks, {}, heldBy };

} // namespace QonConformance::Vlanmapping
