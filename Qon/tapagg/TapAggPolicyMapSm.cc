// Policy maps, their classes, and the ports that they are attached to.

#include "Qon/tapagg/TapAggTrace.h"

namespace Qon {

using Ulnet::IntfId;

// --- Classes -------------------------------------------------------------------------------------

TapAggClassMapSm::TapAggClassMapSm( TapAggSm * root, TapAggClassKey key,
                                    Velto::Ptr< const Config > config )
    : root_( root ), key_( std::move( key ) ), config_( std::move( config ) ) {}

void
TapAggClassMapSm::handleInitialized() {
   if ( initialized() ) {
      groupsWatch_.attach( this, config_.ptr() );
   }
}

void
TapAggClassMapSm::handleGroups() {
   root_->later( TapAggSm::What::classMap, {}, key_.policyMap(), key_.classMap() );
   root_->settle();
}

void
TapAggClassMapSm::review( bool wanted ) {
   const String name = wanted ? config_->groups().stringValue() : String();
   if ( name != groupName_ ) {
      if ( !name.empty() ) {
         root_->useIs( name, key_, true );
      }
      if ( const String former = std::exchange( groupName_, name ); !former.empty() ) {
         root_->useIs( former, key_, false );
      }
   }
   groupId_ = name.empty() ? 0 : root_->groupFor( name );
}

// --- Policy maps ---------------------------------------------------------------------------------

TapAggPolicyMapSm::TapAggPolicyMapSm( TapAggSm * root, String name,
                                      Velto::Ptr< const Config > config )
    : root_( root ), name_( std::move( name ) ), config_( std::move( config ) ),
      classMaps_( this ) {}

void
TapAggPolicyMapSm::handleInitialized() {
   if ( !initialized() ) {
      classMaps_.rest();
      return;
   }
   classMapWatch_.attach( this, config_.ptr() );
}

void
TapAggPolicyMapSm::kivDoZombieReactors() {
   classMaps_.kivDoZombieReactors();
   QonBaseSm::kivDoZombieReactors();
}

void
TapAggPolicyMapSm::handleClassMap( const String & name ) {
   root_->later( TapAggSm::What::classMap, {}, name_, name );
   root_->settle();
}

void
TapAggPolicyMapSm::reviewAll() {
   auto names = keysOf< String >( config_->classMapIteratorConst() );
   for ( const String & held : classMaps_.heldKeys() ) {
      names.emplace( held );
   }
   Velto::FirstError error;
   for ( auto && entry : names ) {
      error.run( [&] { reviewClass( entry.key ); } );
   }
   error.pass();
}

void
TapAggPolicyMapSm::reviewClass( const String & name ) {
   classMaps_.review( name, config_->classMap( name ) );
   if ( auto sm = classMapSm( name ) ) {
      sm->review( root_->active() );
   }
}

Velto::Ptr< TapAggClassMapSm >
TapAggPolicyMapSm::makeClassMap( const String & name,
                                 const Velto::Ptr< const TapAgg::ClassMapConfig > & config ) {
   TapAggClassKey key;
   key.policyMapIs( name_ );
   key.classMapIs( name );
   return smIs< TapAggClassMapSm >( root_, key, config );
}

void
TapAggPolicyMapSm::cleanUpClassMap( const String &, TapAggClassMapSm * sm ) {
   sm->review( false );
}

// --- Where they are attached ---------------------------------------------------------------------

TapAggServicePolicySm::TapAggServicePolicySm( TapAggSm * root, Velto::Ptr< const Config > config )
    : root_( root ), config_( std::move( config ) ) {}

TapAggPolicyMapSm *
TapAggServicePolicySm::policyMapSm() const {
   return root_->policyMapSm( config_->policyMap() );
}

Velto::Ptr< TapAggPolicyMapSm >
TapAggSm::makePolicyMap( const String & name,
                         const Velto::Ptr< const TapAgg::PolicyMap > & config ) {
   return smIs< TapAggPolicyMapSm >( this, name, config );
}

Velto::Ptr< TapAggServicePolicySm >
TapAggSm::makeServicePolicy( const IntfId &,
                             const Velto::Ptr< const TapAgg::ServicePolicy > & config ) {
   return smIs< TapAggServicePolicySm >( this, config );
}

} // namespace Qon
