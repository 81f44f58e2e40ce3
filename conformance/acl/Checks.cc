// Checks of access lists: the library's state machine drives the chip's AclHelper.

#include "Qon/include/acl/QonAclSm.h"
#include "chip/AclPart.h"
#include "conformance/Trial.h"
#include "conformance/acl/Contracts.h"

namespace QonConformance::Acl {

namespace {

using ::Acl::AclDirection;
using ::Acl::AclType;
using QonChip::HeldAcl;

String
shown( const HeldAcl & acl ) {
   return acl.name + " " + acl.key.stringValue() + " on " +
          joined( acl.uses, []( auto & use ) { return use.pair().stringValue(); } );
}

class AclStage {
 public:
   explicit AclStage( Trial & trial )
       : t( trial ), part( trial.part< QonChip::AclPart >( "AclPart" ) ),
         helper( part.makeAclHelper() ) {
      aclSm = Qon::AclSmIs( { t.acsd, config, intfs_, params, nullptr, nullptr, helper, nullptr,
                              nullptr, nullptr, nullptr, nullptr, nullptr, hosts_ } );
      aclSm->initializedIs( true );
   }
   ~AclStage() { end(); }
   /** Destroys the hook object. */
   void end() {
      aclSm = nullptr;
      helper = nullptr;
   }

   static String name( U32 n ) { return "list" + Kiv::toText( n ); }
   void list( U32 n, U32 rules ) {
      auto acl = config->typeIs( AclType::ip )->aclIs( name( n ) );
      for ( U32 seq = 1; seq <= rules; ++seq ) {
         ::Acl::IpFilter filter;
         filter.protocolIs( U8( seq % 200 ) );
         ::Acl::Rule rule;
         rule.seqIs( seq );
         rule.ipIs( filter );
         acl->ruleIs( seq, rule );
      }
      while ( acl->rules() > rules ) {
         acl->ruleDel( acl->rules() );
      }
   }
   void listDel( U32 n ) { config->typeIs( AclType::ip )->aclDel( name( n ) ); }
   void attach( U32 port, U32 n ) { direction()->intfIs( t.port( port ), name( n ) ); }
   void host( U32 port, U64 address, U32 n ) {
      hosts_->hostIs( { t.port( port ), Ulnet::EthAddr( address ) }, { AclType::ip, name( n ) } );
   }
   void hostDel( U32 port, U64 address ) {
      hosts_->hostDel( { t.port( port ), Ulnet::EthAddr( address ) } );
   }
   void detach( U32 port ) { direction()->intfDel( t.port( port ) ); }
   Ptr< ::Acl::DirectionIntfConfig > direction() {
      return intfs_->typeIs( AclType::ip )->directionIs( AclDirection::in );
   }

   /** Lets the pass that is due come to its end. */
   void rest() {
      const bool rests = t.await( [&] {
         return aclSm->phase() == Qon::AclApplyPhase::done && aclSm->checkInvariants().empty();
      } );
      if ( !rests ) {
         t.broken( done, "an answer within " + Kiv::toText( t.answersWithin() ) + " s",
                   Kiv::toText( aclSm->outstandingOperations() ) + " operations wait in phase " +
                         Kiv::toText( aclSm->phase() ) );
      }
      t.run( Trial::step );
   }
   std::optional< QonChip::HeldAcls > readBack() {
      return t.readBack( part.acls(), "the chip's access lists" );
   }
   /** Whether the chip refused the instance of a list. */
   bool refused( U32 n ) const {
      auto sm = aclSm->aclConfigSm( AclType::ip, name( n ) );
      auto status = sm ? sm->aclDataStatus( Qon::AclKey() ) : nullptr;
      bool refused = false;
      if ( status ) {
         for ( auto && [unit, error] : status->unitErrorIteratorConst() ) {
            refused = refused || error != Qon::AclCreateError::success;
         }
      }
      return refused;
   }
   /** At rest the chip holds what is configured, but for what it refused. */
   void judge( const Contract & contract ) {
      auto held = readBack();
      if ( !held ) {
         return;
      }
      if ( !held->blocked.empty() ) {
         t.broken( blocks, "no interface is blocked", held->blocked.begin()->stringValue() );
      }
      std::map< String, std::set< Qon::AclIntfUse > > wanted;
      for ( auto && [intf, acl] : direction()->intfIteratorConst() ) {
         if ( config->typeIs( AclType::ip )->aclHas( acl ) ) {
            wanted[acl].insert( { Qon::IntfPairKey( intf, {} ), {} } );
         }
      }
      for ( auto && [host, acl] : hosts_->hostIteratorConst() ) {
         if ( config->typeIs( AclType::ip )->aclHas( acl.acl() ) ) {
            wanted[acl.acl()].insert( { Qon::IntfPairKey( host.intf(), {} ), {}, host.host() } );
         }
      }
      for ( auto & acl : held->acls ) {
         judgeAcl( acl, wanted );
         wanted.erase( acl.name );
      }
      for ( auto & [acl, uses] : wanted ) {
         if ( !refused( U32( acl.back() - '0' ) ) ) {
            t.broken( contract, acl + " in the chip", "it is not there" );
         }
      }
   }

   Trial & t;
   QonChip::AclPart & part;
   Ptr< QonHelper::AclHelper > helper;
   Ptr< ::Acl::Config > config = Velto::make< ::Acl::Config >( "acl" );
   Ptr< ::Acl::IntfConfig > intfs_ = Velto::make< ::Acl::IntfConfig >( "intf" );
   Ptr< ::Acl::ParamConfig > params = Velto::make< ::Acl::ParamConfig >( "param" );
   Ptr< ::Acl::PerHostConfig > hosts_ = Velto::make< ::Acl::PerHostConfig >( "hosts" );
   Ptr< Qon::AclSm > aclSm;

 private:
   static std::set< Qon::AclIntfUse > withoutHosts( std::set< Qon::AclIntfUse > uses ) {
      std::erase_if( uses, []( auto & use ) { return !( use.host() == Ulnet::EthAddr() ); } );
      return uses;
   }
   void judgeAcl( const HeldAcl & acl,
                  const std::map< String, std::set< Qon::AclIntfUse > > & wanted ) {
      auto found = wanted.find( acl.name );
      if ( acl.stale || found == wanted.end() ) {
         t.broken( acl.stale ? successor : removed,
                   "no " + acl.name + ( acl.stale ? " of the former helper" : "" ), shown( acl ) );
      }
      auto sm = aclSm->aclConfigSm( AclType::ip, acl.name );
      if ( refused( U32( acl.name.back() - '0' ) ) ) {
         return;
      }
      if ( !acl.committed || !acl.rules || !sm ||
           !( acl.rules->rules() == sm->ruleSet()->rules() ) ) {
         t.broken( force, acl.name + " in force with its rules", "it is not" );
      }
      if ( acl.uses != found->second ) {
         t.broken( withoutHosts( acl.uses ) == withoutHosts( found->second ) ? hosts : intfs,
                   joined( found->second, []( auto & use ) { return use.pair().stringValue(); } ),
                   shown( acl ) );
      }
   }
};

void
checkForce( Trial & t ) {
   AclStage stage( t );
   stage.list( 0, 3 );
   stage.attach( 0, 0 );
   t.did( "a list of three rules on a port" );
   stage.rest();
   stage.judge( force );
   stage.list( 0, 5 );
   t.did( "two rules more" );
   stage.rest();
   stage.judge( force );
}

void
checkIntfs( Trial & t ) {
   AclStage stage( t );
   stage.list( 0, 1 );
   stage.list( 1, 1 );
   for ( U32 port = 0; port < 4; ++port ) {
      stage.attach( port, port / 2 );
   }
   t.did( "two lists on two ports each" );
   stage.rest();
   stage.judge( intfs );
   stage.attach( 0, 1 );
   stage.detach( 3 );
   t.did( "one port from the first to the second list, and one off it" );
   stage.rest();
   stage.judge( intfs );
}

void
checkHosts( Trial & t ) {
   AclStage stage( t );
   if ( !stage.helper->perHostAclSupported() ) {
      t.skip( "the chip has no lists of single hosts" );
   }
   stage.list( 0, 2 );
   stage.list( 1, 2 );
   stage.direction();
   stage.attach( 0, 0 );
   stage.host( 0, 2, 0 );
   stage.host( 1, 2, 0 );
   stage.host( 1, 3, 1 );
   t.did( "a list on a port and two hosts, another on a third" );
   stage.rest();
   stage.judge( hosts );
   stage.list( 0, 4 );
   stage.host( 1, 3, 0 );
   stage.hostDel( 0, 2 );
   t.did( "two rules more, one host from the second to the first list, and one off it" );
   stage.rest();
   stage.judge( hosts );
   stage.listDel( 0 );
   t.did( "the list went" );
   stage.rest();
   stage.judge( removed );
}

void
checkRemoved( Trial & t ) {
   AclStage stage( t );
   for ( U32 round = 0; round < 3; ++round ) {
      stage.list( 0, 2 );
      stage.attach( 0, 0 );
      t.did( "a list on a port" );
      stage.rest();
      stage.judge( force );
      round % 2 ? stage.listDel( 0 ) : stage.detach( 0 );
      t.did( round % 2 ? "the list went" : "off the port" );
      stage.rest();
      stage.judge( removed );
   }
}

void
checkFull( Trial & t ) {
   AclStage stage( t );
   constexpr U32 lists = 8;
   bool refused = false;
   for ( U32 n = 0; n < lists; ++n ) {
      stage.list( n, 10000 );
      stage.attach( n, n );
   }
   t.did( "eight lists of 10,000 rules" );
   stage.rest();
   for ( U32 n = 0; n < lists; ++n ) {
      refused = refused || stage.refused( n );
   }
   stage.judge( full );
   for ( U32 n = 0; n + 1 < lists; ++n ) {
      stage.detach( n );
   }
   t.did( "all but the last one off" );
   stage.rest();
   stage.list( lists - 1, 10 );
   t.did( "which has ten rules now" );
   stage.rest();
   if ( stage.refused( lists - 1 ) ) {
      t.broken( full, "room for ten rules", "they are refused" );
   }
   stage.judge( full );
   if ( !refused ) {
      t.notLooked( "80,000 rules fit" );
   }
}

void
checkDestructor( Trial & t ) {
   AclStage stage( t );
   stage.list( 0, 2 );
   stage.attach( 0, 0 );
   stage.rest();
   stage.list( 0, 3 );
   t.did( "a list on a port, changed" );
   stage.rest();
   stage.judge( force );
   t.judgeDestruction( destructor, [&] { stage.end(); } );
}

void
checkSuccessor( Trial & t ) {
   std::optional< AclStage > first( std::in_place, t );
   first->list( 0, 2 );
   first->list( 1, 2 );
   first->attach( 0, 0 );
   first->attach( 1, 1 );
   first->rest();
   first->list( 1, 3 );
   t.scheduler.settle();
   t.did( "two lists, one of them changed, and destroyed the helper in the middle of that" );
   first.reset();
   AclStage second( t );
   second.list( 0, 2 );
   second.attach( 0, 0 );
   t.did( "a new one, with one of the lists" );
   second.rest();
   t.run( t.answersWithin() );
   second.judge( successor );
}

void
checkRandom( Trial & t ) {
   AclStage stage( t );
   for ( U32 step = 0; step < t.options.steps / 4; ++step ) {
      const U32 n = t.random.below( 4 ), port = t.random.below( 6 ), what = t.random.below( 100 );
      if ( what < 25 ) {
         stage.list( n, t.random.below( 6 ) );
      } else if ( what < 30 ) {
         stage.listDel( n );
      } else if ( what < 60 ) {
         stage.attach( port, n );
      } else if ( what < 75 ) {
         stage.detach( port );
      } else if ( what < 95 ) {
         t.run( 0.001 * t.random.below( 50 ) );
      } else {
         stage.rest();
         stage.judge( random );
      }
      t.did( "step " + Kiv::toText( step ) + ": " + Kiv::toText( what ) + " of " + stage.name( n ) +
             ", " + t.port( port ).stringValue() );
   }
   stage.rest();
   stage.judge( random );
}

constexpr Check checks[] = { { force, checkForce },         { intfs, checkIntfs },
                             { hosts, checkHosts },         { removed, checkRemoved },
                             { full, checkFull },           { destructor, checkDestructor },
                             { successor, checkSuccessor }, { random, checkRandom } };

String
heldBy( const QonChip::Chip & chip ) {
   auto part = chip.part< QonChip::AclPart >();
   auto held = part ? part->acls() : std::nullopt;
   String text;
   for ( auto & acl : held ? held->acls : std::vector< HeldAcl >() ) {
      text += Kiv::toText( acl.number ) + ": " + shown( acl ) + "\n";
   }
   return text;
}

} // namespace

extern const Feature feature{ "acl", contracts, checks, {}, heldBy };

} // namespace QonConformance::Acl
