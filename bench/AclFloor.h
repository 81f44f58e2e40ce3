#pragma once
// The floor of the benchmarks of access lists: the same outcome written straight down, over dense maps.
//
// It keeps the same configuration in the same entities, and writes the same rows of every instance
// (number, interfaces, state, errors of units), which commands show. It makes the same hook calls in
// the same order, blocks included, and an interface joins and leaves an instance in hardware at once.
// It has no queues, no phases that can wait, and nothing of it may be called while it works.

#include <algorithm>
#include <memory>

#include "Qon/include/acl/AclHelper.h"
#include "Qon/include/framework/LagView.h"

namespace Bench {

using Ulnet::IntfId;
using Velto::Ptr;
using Velto::String;

/** Lists of one type in one direction, on ports. */
class AclByHand {
   struct Instance {
      explicit Instance( const Qon::AclKey & key )
          : data( Velto::make< Qon::AclData >( key ) ),
            status( Velto::make< Qon::AclDataStatus >( key ) ) {}
      Ptr< Qon::AclData > data;
      Ptr< Qon::AclDataStatus > status;
      Qon::AclOperation acl; // with the rules that are in hardware
      Qon::KeySet< IntfId > intfs;
      bool inHardware = false, works = false;
   };
   struct List {
      Ptr< Acl::AclConfig > config;
      Qon::KeySet< IntfId > naming;
      Kiv::DenseMap< Qon::AclKey, std::unique_ptr< Instance > > instances;
   };
   struct Placed {
      List * list = nullptr;
      Instance * instance = nullptr;
   };

 public:
   explicit AclByHand( Ptr< QonHelper::AclHelper > helper ) : helper_( std::move( helper ) ) {
      for ( U32 n = Qon::aclNumbersPerDirection; n > 0; --n ) {
         free_.push_back( n - 1 );
      }
   }
   void ruleIs( const String & name, const Acl::Rule & rule ) {
      List & list = listOf( name );
      if ( !list.config ) {
         list.config = lists_->aclIs( name );
      }
      list.config->ruleIs( rule.seq(), rule );
      for ( auto && [key, instance] : list.instances ) {
         instance->data->dirtyIs( true );
         changed_.emplace( instance.get() );
      }
   }
   void attach( IntfId intf, const String & name ) {
      direction_->intfIs( intf, name );
      List & list = listOf( name );
      Placed & placed = *placed_.emplace( intf ).first;
      if ( placed.list ) {
         placed.list->naming.erase( intf );
         leave( intf, placed.instance );
      }
      placed.list = &list;
      list.naming.emplace( intf );
      if ( list.config && !Qon::LagView( acsd_.ptr() ).lagOf( intf ) && managed( intf ) ) {
         join( intf, name, list );
      }
   }
   void detach( IntfId intf ) {
      direction_->intfDel( intf );
      if ( auto placed = placed_.take( intf ) ) {
         placed->list->naming.erase( intf );
         leave( intf, placed->instance );
      }
   }
   /** Every instance is made anew. */
   void force() {
      for ( auto && [name, list] : list_ ) {
         for ( auto && [key, instance] : list->instances ) {
            changed_.emplace( instance.get() );
         }
      }
      settle();
   }
   void settle() {
      std::vector< Instance * > pass;
      for ( auto && entry : std::exchange( changed_, {} ) ) {
         pass.push_back( entry.key );
      }
      std::sort( pass.begin(), pass.end(), []( auto * a, auto * b ) {
         return a->acl.aclName != b->acl.aclName ? a->acl.aclName < b->acl.aclName
                                                 : a->acl.key < b->acl.key;
      } );
      for ( Instance * instance : pass ) {
         for ( auto && entry : instance->intfs ) {
            if ( instance->works && blocked_.emplace( entry.key ).second ) {
               helper_->blockIntf( entry.key, true );
            }
         }
      }
      for ( Instance * instance : pass ) {
         uninstall( *instance );
      }
      for ( Instance * instance : pass ) {
         if ( !instance->intfs.empty() ) {
            prepare( *instance );
         }
      }
      for ( Instance * instance : pass ) {
         if ( !instance->intfs.empty() && instance->works ) {
            commit( *instance );
         }
      }
      for ( auto && entry : std::exchange( blocked_, {} ) ) {
         helper_->blockIntf( entry.key, false );
      }
      for ( Instance * instance : pass ) {
         if ( instance->intfs.empty() ) {
            const String name = instance->acl.aclName;
            ( *list_.find( name ) )->instances.erase( Qon::AclKey( instance->acl.key ) );
         } else {
            using State = Qon::AclDataState;
            instance->status->aclDataStateIs( instance->works ? State::done : State::failure );
            instance->data->dirtyIs( false );
         }
      }
   }

 private:
   List & listOf( const String & name ) {
      auto & list = *list_.emplace( name ).first;
      if ( !list ) {
         list = std::make_unique< List >();
      }
      return *list;
   }
   bool managed( IntfId intf ) const { return acsd_->intfs() == 0 || acsd_->intfHas( intf ); }
   Qon::AclKey keyOf( IntfId intf ) const {
      using Acl::AclDirection;
      const bool shared =
            params_->shared( Acl::AclType::ip, AclDirection::in, Acl::SharingKind::port );
      return Qon::AclKey( {}, AclDirection::in,
                          shared ? Qon::aclGroupDefault : intf.stringValue() );
   }
   void join( IntfId intf, const String & name, List & list ) {
      const Qon::AclKey key = keyOf( intf );
      auto & instance = *list.instances.emplace( key ).first;
      if ( !instance ) {
         instance = std::make_unique< Instance >( key );
         instance->acl = { Acl::AclType::ip, name, key, 0, 0, nullptr };
      }
      placed_.find( intf )->instance = instance.get();
      instance->intfs.emplace( intf );
      instance->data->activeIntfsIs( instance->intfs.size() );
      if ( instance->works && !instance->data->dirty() ) {
         helper_->aclIntfIs( instance->acl, { Qon::IntfPairKey( intf, {} ), {} }, true );
      } else {
         changed_.emplace( instance.get() );
      }
   }
   void leave( IntfId intf, Instance * instance ) {
      if ( !instance ) {
         return;
      }
      instance->intfs.erase( intf );
      instance->data->activeIntfsIs( instance->intfs.size() );
      if ( instance->works && !instance->data->dirty() && !instance->intfs.empty() ) {
         helper_->aclIntfIs( instance->acl, { Qon::IntfPairKey( intf, {} ), {} }, false );
      } else {
         changed_.emplace( instance );
      }
   }
   void uninstall( Instance & instance ) {
      if ( std::exchange( instance.inHardware, false ) ) {
         instance.works = false;
         instance.acl.operation = ++operations_;
         helper_->uninstallAcl( instance.acl );
         if ( instance.intfs.empty() ) {
            free_.push_back( instance.acl.aclNumber );
            instance.data->aclNumberIs( Qon::aclNumberNone );
         }
      }
   }
   void prepare( Instance & instance ) {
      if ( instance.data->aclNumber() == Qon::aclNumberNone ) {
         instance.acl.aclNumber = free_.back();
         free_.pop_back();
         instance.data->aclNumberIs( instance.acl.aclNumber );
      }
      if ( !instance.acl.rules || instance.data->dirty() ) {
         instance.acl.rules = resolve( *( *list_.find( instance.acl.aclName ) )->config );
      }
      instance.status->aclDataStateIs( Qon::AclDataState::inProgress );
      instance.inHardware = true;
      instance.acl.operation = ++operations_;
      record( instance, helper_->prepareAcl( instance.acl ) );
   }
   void commit( Instance & instance ) {
      for ( auto && entry : instance.intfs ) {
         helper_->aclIntfIs( instance.acl, { Qon::IntfPairKey( entry.key, {} ), {} }, true );
      }
      record( instance, helper_->commitAcl( instance.acl ) );
   }
   void record( Instance & instance, const Qon::AclUnitResults & results ) {
      instance.works = true;
      for ( auto & result : results ) {
         instance.works = instance.works && result.error == Qon::AclCreateError::success;
         instance.status->unitErrorIs( result.unit, result.error );
      }
   }
   static Ptr< const Qon::AclRuleSet > resolve( const Acl::AclConfig & config ) {
      std::vector< Qon::AclRule > rules;
      rules.reserve( 2 * config.rules() + 1 );
      Kiv::DenseMap< Acl::IpFilter, Kiv::Nothing > fragments;
      for ( auto && [seq, rule] : config.ruleIteratorConst() ) {
         rules.push_back( { Qon::AclRule::Origin::configured, seq, rule } );
         const Acl::IpFilter filter( rule.ip().protocol(), rule.ip().src(), rule.ip().dst(), {}, {},
                                     0, 0, {}, {}, true );
         if ( fragments.emplace( filter ).second ) {
            Acl::Rule fragment;
            fragment.seqIs( seq );
            fragment.ipIs( filter );
            rules.push_back( { Qon::AclRule::Origin::fragment, seq, fragment } );
         }
      }
      Acl::Rule denyAll;
      denyAll.actionIs( Acl::RuleAction::deny );
      rules.push_back( { Qon::AclRule::Origin::implicit, Qon::firstImplicitRuleId, denyAll } );
      return Velto::make< Qon::AclRuleSet >( std::move( rules ) );
   }

   const Ptr< QonHelper::AclHelper > helper_;
   Ptr< Qon::QonCommonSmData > acsd_ = Qon::qonCommonSmDataFactory( "acsd" );
   Ptr< Acl::Config > config_ = Velto::make< Acl::Config >( "config" );
   Ptr< Acl::IntfConfig > intfs_ = Velto::make< Acl::IntfConfig >( "intfs" );
   Ptr< Acl::ParamConfig > params_ = Velto::make< Acl::ParamConfig >( "params" );
   Ptr< Acl::TypeConfig > lists_ = config_->typeIs( Acl::AclType::ip );
   Ptr< Acl::DirectionIntfConfig > direction_ =
         intfs_->typeIs( Acl::AclType::ip )->directionIs( Acl::AclDirection::in );
   Kiv::DenseMap< String, std::unique_ptr< List > > list_;
   Kiv::DenseMap< IntfId, Placed > placed_;
   Qon::KeySet< IntfId > blocked_;
   Qon::KeySet< Instance * > changed_;
   std::vector< U32 > free_;
   U64 operations_ = 0;
};

} // namespace Bench
