#pragma once
// The lists of one type, and the interfaces that have lists of that type.
//
//    Acl::TypeConfig      -> AclConfigSm by name
//    Acl::TypeIntfConfig  -> AclDirectionTypeConfigSm by direction, each with its numbers
//
// Invariants
// 1. It exists while one of the two is there; each may come, go and come again on its own.
// 2. blockedIntf holds the interfaces that this type blocks; hardware blocks an interface while some
//    type does.
//
// Ownership: a child of AclSm; owns its children.

#include "Qon/include/acl/AclConfigSm.h"
#include "Qon/include/acl/AclDirectionTypeConfigSm.h"

namespace Qon {

class AclTypeConfigSm : public QonBaseSm {
 public:
   AclTypeConfigSm( AclSm * aclSm, Acl::AclType type );

   void handleInitialized() override;
   void kivDoZombieReactors() override;
   void doCleanup();
   /** One of its two entities came, went, or is another one. */
   void reviewInputs();

   Acl::AclType type() const { return type_; }
   AclSm * aclSm() const { return aclSm_; }
   AclConfigSm * aclConfigSm( const String & name ) const { return lists_.sm( name ); }
   AclDirectionTypeConfigSm * aclDirectionTypeConfigSm( Acl::AclDirection direction ) const {
      return directions_.sm( direction );
   }
   template< class Act >
   void forEachDirection( Act && act ) const {
      directions_.forEach( [&]( Acl::AclDirection, AclDirectionTypeConfigSm & sm ) { act( sm ); } );
   }
   template< class Act >
   void forEachAcl( Act && act ) const {
      lists_.forEach( [&]( const String &, AclConfigSm & sm ) { act( sm ); } );
   }

   /** Blocks the traffic of an interface, or lets it pass, for this type; for helpers that do so at
       once. */
   void blockedIntfIs( Ulnet::IntfId intf, bool block );
   const KeySet< Ulnet::IntfId > & blockedIntf() const { return blockedIntf_; }
   /** Whether traffic passes while lists of this type are exchanged. */
   bool permitDuringUpdate() const;

   void handleAcl( const String & name );
   void handleDirection( const Acl::AclDirection & direction );

 private:
   Velto::Ptr< AclConfigSm > makeAcl( const String & name,
                                      const Velto::Ptr< const Acl::AclConfig > & config );
   void cleanUpAcl( const String &, AclConfigSm * sm ) { sm->doCleanup(); }
   Velto::Ptr< AclDirectionTypeConfigSm >
   makeDirection( const Acl::AclDirection & direction,
                  const Velto::Ptr< const Acl::DirectionIntfConfig > & config );
   void cleanUpDirection( const Acl::AclDirection &, AclDirectionTypeConfigSm * sm ) {
      sm->doCleanup();
   }
   void reviewAcls();
   void reviewDirections();

   AclSm * aclSm_;
   const Acl::AclType type_;
   bool cleanedUp_ = false;
   Velto::Ptr< const Acl::TypeConfig > config_;
   Velto::Ptr< const Acl::TypeIntfConfig > intfConfig_;
   KeySet< Ulnet::IntfId > blockedIntf_;
   SmCollection< String, Velto::Ptr< const Acl::AclConfig >, AclConfigSm, AclTypeConfigSm,
                 &AclTypeConfigSm::makeAcl, &AclTypeConfigSm::cleanUpAcl >
         lists_{ this };
   SmCollection< Acl::AclDirection, Velto::Ptr< const Acl::DirectionIntfConfig >,
                 AclDirectionTypeConfigSm, AclTypeConfigSm, &AclTypeConfigSm::makeDirection,
                 &AclTypeConfigSm::cleanUpDirection >
         directions_{ this };
   Kiv::Watch< Acl::TypeConfig::aclAttr, AclTypeConfigSm, &AclTypeConfigSm::handleAcl > aclWatch_;
   Kiv::Watch< Acl::TypeIntfConfig::directionAttr, AclTypeConfigSm,
               &AclTypeConfigSm::handleDirection >
         directionWatch_;
};

} // namespace Qon
