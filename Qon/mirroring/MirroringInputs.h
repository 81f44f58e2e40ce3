#pragma once
// What follows single ports and access lists for MirroringSm, and asks it what they mean.

#include "Qon/include/mirroring/MirroringSession.h"

namespace Qon {

/** The status of one port. */
class MirroringSm::KivIntfStatus : public QonBaseSm {
 public:
   using Status = Interface::EthPhyIntfStatus;
   KivIntfStatus( MirroringSm * root, Velto::Ptr< const Status > status )
       : root_( root ), status_( std::move( status ) ) {}

   void handleInitialized() override {
      if ( initialized() ) {
         activeWatch_.attach( this, status_.ptr() );
         linkUpWatch_.attach( this, status_.ptr() );
         speedWatch_.attach( this, status_.ptr() );
      }
   }
   void handleStatus() { root_->ask( { What::intf, nullptr, status_->intfId() } ); }

 private:
   MirroringSm * const root_;
   const Velto::Ptr< const Status > status_;
   Kiv::Watch< Status::activeAttr, KivIntfStatus, &KivIntfStatus::handleStatus > activeWatch_;
   Kiv::Watch< Status::linkUpAttr, KivIntfStatus, &KivIntfStatus::handleStatus > linkUpWatch_;
   Kiv::Watch< Status::speedAttr, KivIntfStatus, &KivIntfStatus::handleStatus > speedWatch_;
};

/** The rules of one access list. */
class MirroringSm::KivAcl : public QonBaseSm {
 public:
   KivAcl( MirroringSm * root, Acl::AclType type, const String & name,
           Velto::Ptr< const Acl::AclConfig > config )
       : root_( root ), type_( type ), name_( name ), config_( std::move( config ) ) {}

   void handleInitialized() override {
      if ( initialized() ) {
         versionWatch_.attach( this, config_.ptr() );
      }
   }
   void handleVersion() { root_->aclChanged( type_, name_ ); }

 private:
   MirroringSm * const root_;
   const Acl::AclType type_;
   const String name_;
   const Velto::Ptr< const Acl::AclConfig > config_;
   Kiv::Watch< Acl::AclConfig::versionAttr, KivAcl, &KivAcl::handleVersion > versionWatch_;
};

/** The access lists of one type. Whether one is there is asked of the configuration; the machines
    only hear of changes. */
class MirroringSm::KivAclType : public QonBaseSm {
 public:
   KivAclType( MirroringSm * root, Velto::Ptr< const Acl::TypeConfig > config )
       : root_( root ), config_( std::move( config ) ), acls_( this ) {}

   void handleInitialized() override {
      if ( !initialized() ) {
         acls_.rest();
         return;
      }
      aclWatch_.attach( this, config_.ptr() );
      acls_.reviewAll( config_->aclIteratorConst(),
                       [&]( const String & name ) { return config_->acl( name ); } );
      for ( auto && [name, acl] : config_->aclIteratorConst() ) {
         root_->laterAcl( type(), name );
      }
      root_->settle();
   }
   void kivDoZombieReactors() override {
      acls_.kivDoZombieReactors();
      QonBaseSm::kivDoZombieReactors();
   }
   void handleAcl( const String & name ) {
      acls_.review( name, config_->acl( name ) );
      root_->aclChanged( type(), name );
   }
   Acl::AclType type() const { return config_->type(); }
   std::vector< String > names() const { return acls_.heldKeys(); }

 private:
   Velto::Ptr< KivAcl > makeAcl( const String & name,
                                 const Velto::Ptr< const Acl::AclConfig > & config ) {
      return smIs< KivAcl >( root_, type(), name, config );
   }
   void cleanUpAcl( const String &, KivAcl * ) {}

   MirroringSm * const root_;
   const Velto::Ptr< const Acl::TypeConfig > config_;
   SmCollection< String, Velto::Ptr< const Acl::AclConfig >, KivAcl, KivAclType,
                 &KivAclType::makeAcl, &KivAclType::cleanUpAcl >
         acls_;
   Kiv::Watch< Acl::TypeConfig::aclAttr, KivAclType, &KivAclType::handleAcl > aclWatch_;
};

} // namespace Qon
