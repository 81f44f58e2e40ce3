// What becomes of instances in hardware: units that refuse, what is brought back, messages,
// interfaces out of service, mirror sessions, and who waits for all of it.

#include "tests/acl/AclWorld.h"
#include "tests/harness/Sabotage.h"

namespace {

using namespace AclTests;
using Acl::RuleAction;
using Qon::AclCreateError;

/** Answers as it is told; else as the chip in software does. */
struct PickyHelper : Helper {
   using Helper::Helper;
   bool aclLimitIsResourceFull() const override { return limitIsFull; }
   bool unitReportedByName( const String & unit ) const override { return unit != "Nameless"; }
   Qon::AclUnitResults prepareAcl( const Qon::AclOperation & acl ) override {
      Qon::AclUnitResults results = Helper::prepareAcl( acl );
      auto told = refuses.find( acl.aclName );
      if ( told != refuses.end() && acl.rules->rules().size() >= rules ) {
         results = told->second;
      }
      return results;
   }
   std::map< String, Qon::AclUnitResults > refuses;
   std::size_t rules = 0; ///< what has fewer is taken
   bool limitIsFull = false;
};

struct ProgramWorld : AclWorld {
   ProgramWorld() {
      helper = nullptr; // one at a time
      helper = picky = Velto::make< PickyHelper >( table );
      list( "a" );
      attach( "Ethernet1", "a" );
   }
   std::vector< String > logged() {
      std::vector< String > all;
      for ( auto & record : logs.records() ) {
         all.push_back( record.text );
      }
      logs.clear();
      return all;
   }
   /** As if the list's rules were others, so that it is tried again. */
   void edit( const String & name = "a" ) { rule( name, ++edits ); }
   void refuse( U8 error, const String & unit = "Chip1", const String & name = "a" ) {
      picky->refuses[name] = { { "Chip0", AclCreateError::success },
                               { unit, AclCreateError( error ) } };
      edit( name );
      settle();
   }
   void take( const String & name = "a" ) {
      picky->refuses.erase( name );
      edit( name );
      settle();
   }
   U32 edits = 100;
   Ptr< PickyHelper > picky;
};

const String full = "Hardware resources are insufficient to program all ACLs (Chip1)";
const String normal = "All ACLs are programmed in hardware (Chip1)";
const String failed = "Computing resources to program ACLs failed (Chip1).";
const String succeeded = "Computing resources to program ACLs succeeded (Chip1).";

TEST( AclUnits, MessagesOfShortages ) {
   ProgramWorld w;
   w.list( "b" );
   w.attach( "Ethernet2", "b" );
   w.start();
   w.settle();
   using Lines = std::vector< String >;
   w.refuse( 2 );
   EXPECT_EQ( w.logged(), Lines{ full } );
   w.refuse( 2 ); // again, and of another list: it is said already
   w.refuse( 2, "Chip1", "b" );
   EXPECT_EQ( w.logged(), Lines{} );
   w.take(); // one of two
   EXPECT_EQ( w.logged(), Lines{} );
   EXPECT_EQ( w.aclSm->unitError( "Chip1" ), AclCreateError::hwResourceFull );
   w.refuse( 15, "Chip1", "b" );
   EXPECT_EQ( w.logged(), Lines{ failed } );
   w.refuse( 3, "Chip1", "b" ); // of which there is no message; the shortage before is still out
   EXPECT_EQ( w.logged(), Lines{} );
   w.listDel( "b" );
   w.settle();
   EXPECT_EQ( w.logged(), Lines{ succeeded } );
   EXPECT_EQ( w.aclSm->unitError( "Chip1" ), AclCreateError::success );
   w.refuse( 2, "Nameless" );
   w.take();
   EXPECT_EQ( w.logged(),
              ( Lines{ "Hardware resources are insufficient to program all ACLs (all chips)",
                       "All ACLs are programmed in hardware (all chips)" } ) );
   w.refuse( 10 );
   w.take();
   EXPECT_EQ( w.logged(), Lines{} );
   w.picky->limitIsFull = true;
   w.refuse( 10 );
   w.picky->limitIsFull = false; // what was raised is taken back all the same
   w.take();
   EXPECT_EQ( w.logged(), ( Lines{ full, normal } ) );
}

TEST( AclUnits, AreInTroubleAsLongAsOneOfManyLists ) {
   ProgramWorld w;
   const std::vector< String > lists = { "a", "b", "c", "d" };
   for ( U32 n = 1; n < lists.size(); ++n ) {
      w.list( lists[n] );
      w.attach( "Ethernet" + Kiv::toText( n + 1 ), lists[n] );
   }
   w.start();
   w.settle();
   for ( auto & list : lists ) {
      w.refuse( 2, "Chip1", list );
   }
   EXPECT_EQ( w.logged(), std::vector{ full } );
   for ( auto & list : lists ) {
      EXPECT_EQ( w.aclSm->unitError( "Chip1" ), AclCreateError::hwResourceFull ) << list;
      w.take( list );
   }
   EXPECT_EQ( w.aclSm->unitError( "Chip1" ), AclCreateError::success );
   EXPECT_EQ( w.logged(), std::vector{ normal } );
}

/** Raises at one message. */
struct BrokenSink : Kiv::LogSink {
   void message( const Kiv::LogDescriptor & descriptor, const String & text ) override {
      if ( descriptor.name == breaksAt && times-- > 0 ) {
         throw Velto::RangeError( "sink" );
      }
      all.push_back( text );
   }
   String breaksAt;
   int times = 1;
   std::vector< String > all;
};

TEST( AclUnits, AMessageThatRaisesIsSaidLaterAndDelaysNoOther ) {
   const String fullAt = "Hardware resources are insufficient to program all ACLs (",
                normalAt = "All ACLs are programmed in hardware (";
   for ( int times : { 1, 3 } ) {
      ProgramWorld w;
      w.start();
      w.settle();
      BrokenSink sink;
      auto former = Kiv::logSinkIs( &sink );
      const Velto::AtEnd back( [&] { Kiv::logSinkIs( former ); } );
      auto expect = [&]( const String & message, const String & text ) {
         sink.breaksAt = message;
         sink.times = times;
         w.edit();
         EXPECT_THROW( w.scheduler.settle(), Velto::RangeError );
         EXPECT_EQ( sink.all.size(), times == 1 ? 1u : 0u ); // one of two was not heard
         if ( times == 3 ) { // nor the second time, with nothing else to say
            EXPECT_THROW( w.scheduler.settle(), Velto::RangeError );
            w.edit();
         }
         w.settle();
         std::sort( sink.all.begin(), sink.all.end() );
         EXPECT_EQ( sink.all, ( std::vector< String >{ text + "Chip0)", text + "Chip1)" } ) );
         sink.all.clear();
      };
      w.picky->refuses["a"] = { { "Chip0", AclCreateError::hwResourceFull },
                                { "Chip1", AclCreateError::hwResourceFull } };
      expect( "ACL_HW_RESOURCE_FULL", fullAt );
      w.picky->refuses.clear();
      expect( "ACL_HW_RESOURCE_NORMAL", normalAt );
      EXPECT_TRUE( w.aclSm->unitErrors().empty() );
   }
}

TEST( AclRevert, KeepsInterfacesBlockedThatListsOfBothDirectionsShare ) {
   ProgramWorld w;
   w.rule( "a", 1 );
   w.list( "o" );
   w.attach( "Ethernet1", "o", ip, out );
   w.list( "b" );
   w.attach( "Ethernet2", "b" );
   w.start();
   w.settle();
   w.picky->refuses["a"] = { { "Chip1", AclCreateError::unsupportedRule } };
   w.picky->rules = 3;
   w.edit();
   w.edit( "o" );
   std::set< String > open;
   auto decides = [&]( const char * name, AclDirection d ) {
      return !w.table.deciders( ip, d, { IntfPairKey( intf( name ), {} ), {} } ).empty();
   };
   w.helper->heard = [&]( const String & ) {
      for ( auto [name, d] :
            { std::pair( "Ethernet1", in ), { "Ethernet1", out }, { "Ethernet2", in } } ) {
         if ( !w.table.blocked( intf( name ) ) && !decides( name, d ) ) {
            open.insert( name );
         }
      }
   };
   w.settle();
   EXPECT_EQ( open, std::set< String >{} );
   EXPECT_TRUE( w.sm( "a" )->aclDataSm( portKey() )->failed() );
   w.attach( "Ethernet2", "a" ); // to a list that is tried again, and back
   w.settle();
   w.helper->heard = nullptr;
   EXPECT_EQ( open, std::set< String >{} );
   EXPECT_TRUE( decides( "Ethernet2", in ) );
   EXPECT_TRUE( w.table.held().blocked.empty() );
}

TEST( AclUnits, ARecordThatIsRewrittenLater ) {
   ProgramWorld w;
   w.start();
   w.settle();
   auto status = Ptr< Qon::AclDataStatus >( w.sm( "a" )->aclDataStatus( portKey() ) );
   EXPECT_EQ( status->aclDataState(), Qon::AclDataState::done );
   status->unitErrorIs( "Chip1", AclCreateError::hwResourceFull );
   EXPECT_EQ( w.logged(), std::vector< String >{ full } );
   status->unitErrorDel( "Chip1" ); // the linecard is gone
   EXPECT_EQ( w.logged(), std::vector< String >{ normal } );
   status->unitErrorIs( "Chip1", AclCreateError::unsupportedAction );
   EXPECT_TRUE( w.errdisable->intfStatusHas( intf( "Ethernet1" ) ) );
   w.detach( "Ethernet1" );
   w.settle();
   EXPECT_EQ( w.errdisable->intfStatuss(), 0u );
}

TEST( AclRevert, BringsBackWhatWasInForce ) {
   ProgramWorld w;
   w.rule( "a", 1 );
   w.start();
   w.settle();
   w.picky->rules = 3;
   w.helper->takeCalls();
   w.refuse( 6 );
   EXPECT_EQ( w.helper->takeCalls(),
              ( Calls{ "block Ethernet1", "uninstall a", "prepare a", "uninstall a", "prepare a",
                       "on a Ethernet1", "commit a", "unblock Ethernet1" } ) );
   auto sm = w.sm( "a" )->aclDataSm( portKey() );
   EXPECT_TRUE( sm->failed() );
   EXPECT_EQ( sm->committedRules()->rules().size(), 2u );
   EXPECT_EQ( sm->status()->unitError( "Chip1" ), AclCreateError::unsupportedRule );
   EXPECT_EQ( sm->status()->aclDataState(), Qon::AclDataState::failure );
   EXPECT_FALSE( sm->data()->dirty() );
   // Whatever else changes, it is left alone.
   w.list( "b" );
   w.attach( "Ethernet2", "b" );
   w.settle();
   EXPECT_EQ( w.helper->takeCalls(), ( Calls{ "prepare b", "on b Ethernet2", "commit b" } ) );
   // Its interfaces: tried again, and back.
   w.attach( "Ethernet3", "a" );
   w.settle();
   EXPECT_EQ( w.chip(), ( Chip{ "a( 0, in, default ): Ethernet1 Ethernet3",
                                "b( 0, in, default ): Ethernet2" } ) );
   EXPECT_TRUE( sm->failed() );
   EXPECT_TRUE( w.errdisable->intfStatusHas( intf( "Ethernet3" ) ) );
   w.take();
   EXPECT_FALSE( sm->failed() );
   EXPECT_EQ( sm->committedRules()->rules().size(), 4u );
   EXPECT_EQ( w.errdisable->intfStatuss(), 0u );
}

TEST( AclRevert, OrToNothing ) {
   ProgramWorld w;
   w.picky->refuses["a"] = { { "Chip1", AclCreateError::unsupportedRule } };
   w.start(); // nothing was in force before
   w.settle();
   EXPECT_EQ( w.chip(), Chip{} );
   w.take();
   EXPECT_EQ( w.chip(), Chip{ "a( 0, in, default ): Ethernet1" } );
   w.picky->refuses["a"] = { { "Chip1", AclCreateError::unsupportedRule } };
   w.edit(); // and now what was in force is refused, too
   w.settle();
   EXPECT_EQ( w.chip(), Chip{} );
   EXPECT_TRUE( w.sm( "a" )->aclDataSm( portKey() )->failed() );
   w.helper->takeCalls();
   w.scheduler.runUntil( Kiv::now() + 1000 );
   EXPECT_EQ( w.helper->takeCalls(), Calls{} );
   w.picky->refuses.clear();
   w.aclSm->doApplyAcls( true );
   w.settle();
   EXPECT_EQ( w.chip(), Chip{ "a( 0, in, default ): Ethernet1" } );
}

TEST( AclRevert, WhatFoundNoRoomIsTriedWhenOthersGo ) {
   ProgramWorld w;
   w.faults.limitIs( "aclEntries", 5 );
   w.rule( "a", 1 );
   w.rule( "a", 2 );
   w.list( "b" );
   for ( U32 n = 1; n <= 3; ++n ) {
      w.rule( "b", n );
   }
   w.start();
   w.settle();
   w.attach( "Ethernet2", "b" );
   w.settle();
   EXPECT_EQ( w.chip(), Chip{ "a( 0, in, default ): Ethernet1" } );
   EXPECT_EQ( w.errdisable->intfStatuss(), 0u ); // a shortage is no fault of the list
   EXPECT_EQ( w.aclSm->retries(), 0u );
   w.detach( "Ethernet1" );
   w.settle();
   EXPECT_EQ( w.chip(), Chip{ "b( 0, in, default ): Ethernet2" } );
   EXPECT_EQ( w.aclSm->retries(), 1u );
   EXPECT_EQ( w.logged().size(), 4u ); // both units, twice
}

TEST( AclErrdisable, WhileSomeListOfTheInterfaceFails ) {
   const U8 shortages[] = { 2, 4, 7, 10, 15 }, others[] = { 1, 3, 5, 6, 18, 200 };
   for ( U8 error : shortages ) {
      ProgramWorld w;
      w.start();
      w.refuse( error );
      EXPECT_EQ( w.errdisable->intfStatuss(), 0u ) << int( error );
   }
   for ( U8 error : others ) {
      ProgramWorld w;
      w.start();
      w.refuse( error );
      EXPECT_TRUE( w.errdisable->intfStatusHas( intf( "Ethernet1" ) ) ) << int( error );
   }
   ProgramWorld w;
   w.errdisable->intfStatusIs( intf( "Ethernet9" ), 1 ); // of an earlier life
   w.list( "m", mac );
   w.attach( "Ethernet1", "m", mac );
   w.start();
   w.refuse( 6 );
   EXPECT_FALSE( w.errdisable->intfStatusHas( intf( "Ethernet9" ) ) );
   w.picky->refuses["m"] = w.picky->refuses["a"];
   w.rule( "m", 1, RuleAction::permit, {}, mac );
   w.settle();
   w.take();
   EXPECT_TRUE( w.errdisable->intfStatusHas( intf( "Ethernet1" ) ) );
   w.listDel( "m", mac );
   w.settle();
   EXPECT_EQ( w.errdisable->intfStatuss(), 0u );
}

TEST( AclMirror, ExactlyTheListsThatNameTheSession ) {
   ProgramWorld w;
   w.list( "b" );
   w.attach( "Ethernet2", "b" );
   Acl::Rule rule;
   rule.seqIs( 5 );
   rule.mirrorSessionIs( "s" );
   w.list( "a" )->ruleIs( 5, rule );
   w.start();
   w.settle();
   auto held = [&] { return w.table.held().acls.front().rules->rules().front(); };
   EXPECT_EQ( held().rule.mirrorSession(), "" );
   auto changes = [&]( auto act ) {
      w.helper->takeCalls();
      act();
      w.settle();
      return w.helper->takeCalls().size();
   };
   const auto session = [&] { return w.sessions->sessionIs( "s" ); };
   EXPECT_EQ( changes( [&] { session(); } ), 0u ); // it has no group
   EXPECT_EQ( changes( [&] { session()->mirrorGroupIs( 3 ); } ), 6u );
   EXPECT_EQ( held().rule.mirrorSession(), "s" );
   EXPECT_EQ( held().mirrorGroup, 3 );
   EXPECT_EQ( changes( [&] { w.sessions->sessionIs( "t" )->mirrorGroupIs( 1 ); } ), 0u );
   changes( [&] { // while nothing wants the list, for a moment
      w.detach( "Ethernet1" );
      session()->mirrorGroupIs( 5 );
      w.attach( "Ethernet1", "a" );
   } );
   EXPECT_EQ( held().mirrorGroup, 5 );
   w.picky->refuses["a"] = { { "Chip1", AclCreateError::unsupportedRule } };
   w.picky->rules = 3;
   w.edit(); // what names the session is brought back, and is made anew with it
   w.list( "a" )->ruleDel( 5 );
   w.edit();
   w.settle();
   EXPECT_EQ( changes( [&] { session()->mirrorGroupIs( 4 ); } ), 6u );
   EXPECT_EQ( held().mirrorGroup, 4 );
   EXPECT_EQ( changes( [&] { w.sessions->sessionDel( "s" ); } ), 6u );
   EXPECT_EQ( held().rule.mirrorSession(), "" );
}

TEST( AclHardware, LoggingOfWhatLeavesAndDevicesWithoutLists ) {
   ProgramWorld w;
   Acl::Rule rule;
   rule.seqIs( 5 );
   rule.logIs( true );
   w.list( "a" )->ruleIs( 5, rule );
   w.start();
   w.settle();
   EXPECT_EQ( w.logged().size(), 0u ); // of what comes in it is there
   w.attach( "Ethernet2", "a", ip, out );
   w.settle();
   w.aclSm->doApplyAcls( true );
   w.settle();
   EXPECT_EQ( w.logged().size(), 1u );
   w.edit();
   w.settle();
   EXPECT_EQ( w.logged().size(), 1u );
   for ( auto & acl : w.table.held().acls ) {
      EXPECT_EQ( acl.rules->rules().front().rule.log(), acl.key.direction() == in );
   }
}

TEST( AclHardware, DevicesWithoutLists ) {
   Tests::Env env( "SIMULATION_VMID", "1" );
   env.set( "OLD_ACLS_TCAM_ENABLED", "0" );
   ProgramWorld w;
   w.epoch = Qon::qonEpochStatusFactory( "epoch" );
   w.epoch->initializedIs( true );
   w.attach( "Ethernet2", "a" );
   w.attach( "Ethernet3", "a" );
   w.cards->cardIs( intf( "Ethernet2" ), "Linecard3" );
   w.cards->cardIs( intf( "Ethernet3" ), "Linecard3" );
   w.start();
   w.settle();
   EXPECT_EQ( w.chip(), Chip{ "a( 0, in, default ): Ethernet1" } );
   EXPECT_EQ( w.logged(), std::vector< String >{ "ACL ( a ) cannot be applied on Linecard3." } );
   w.detach( "Ethernet2" );
   w.cards->cardDel( intf( "Ethernet3" ) );
   w.settle();
   EXPECT_EQ( w.chip(), Chip{ "a( 0, in, default ): Ethernet1 Ethernet3" } );
   w.cards->cardIs( intf( "Ethernet3" ), "Linecard3" );
   w.settle();
   EXPECT_EQ( w.chip(), Chip{ "a( 0, in, default ): Ethernet1" } );
   EXPECT_EQ( w.logged().size(), 1u );
}

TEST( AclRequest, IsAnsweredWhenAllIsInHardware ) {
   ProgramWorld w;
   auto limits = w.table.limits();
   limits.async = true;
   w.table.limitsAre( limits );
   w.table.completions().latencyIs( Kiv::never );
   w.start();
   w.settle();
   w.dpRequest->requestTimeIs( 7 );
   w.scheduler.runUntil( Kiv::now() + 5 );
   EXPECT_EQ( w.dpStatus->completedRequestTime(), 0 );
   w.dpRequest->requestTimeIs( 8 );
   w.table.completions().finishAll();
   w.scheduler.runUntil( Kiv::now() + 2 );
   EXPECT_EQ( w.dpStatus->completedRequestTime(), 8 );
}

TEST( AclSabotage, OfResults ) {
   Tests::sabotage( []( Tests::Saboteur & saboteur ) {
      ProgramWorld w;
      w.start();
      w.scheduler.settle();
      auto status = Ptr< Qon::AclDataStatus >( w.sm( "a" )->aclDataStatus( portKey() ) );
      saboteur.watches( { status.ptr(), w.errdisable.ptr(), w.dpStatus.ptr() } );
      saboteur.drops( w.aclSm );
      auto step = [&]( auto act ) {
         saboteur.does( act );
         saboteur.does( [&] { w.scheduler.settle(); } );
         w.scheduler.settle();
      };
      w.picky->refuses["a"] = { { "Chip0", AclCreateError::hwResourceFull },
                                { "Chip1", AclCreateError::unsupportedRule } };
      w.picky->rules = 2;
      step( [&] { w.edit(); } );
      step( [&] { w.dpRequest->requestTimeIs( 3 ); } );
      w.picky->refuses.clear();
      step( [&] { w.edit(); } );
      saboteur.ends( [&] {
         return w.aclSm->unitError( "Chip1" ) != AclCreateError::success
                      ? "the unit's error is left"
                : w.errdisable->intfStatuss() ? "an interface is out of service"
                                              : w.aclSm->checkInvariants();
      } );
   } );
}

} // namespace
