#pragma once
// Access lists of the chip: instances by their numbers, and the hook class that writes them. Everything
// is done when a hook returns.

#include "Tables.h"

namespace Chip {

class ChipAcl : public QonHelper::AclHelper {
 public:
   using Operation = Qon::AclOperation;
   using Results = Qon::AclUnitResults;

   ChipAcl( Tables & tables, Faults faults )
       : AclHelper( "chipAcl" ), tables_( tables ), faults_( faults ) {
      for ( auto & acl : tables_.acls.acls ) {
         acl.stale = true;
      }
   }

   Results prepareAcl( const Operation & acl ) override {
      std::size_t rules = acl.rules->rules().size();
      for ( auto & held : tables_.acls.acls ) {
         rules += held.rules->rules().size();
      }
      if ( rules > Tables::ruleRoom ) {
         return { { "", Qon::AclCreateError::hwResourceFull } };
      }
      tables_.acls.acls.push_back(
            { acl.type, acl.aclName, acl.key, acl.aclNumber, false, false, acl.rules, {} } );
      return {};
   }
   Results commitAcl( const Operation & acl ) override {
      if ( auto held = find( acl ) ) {
         held->committed = true;
      }
      return {};
   }
   void uninstallAcl( const Operation & acl ) override {
      std::erase_if( tables_.acls.acls,
                     [&]( auto & held ) { return !held.stale && held.number == acl.aclNumber; } );
   }
   void aclIntfIs( const Operation & acl, const Qon::AclIntfUse & use, bool active ) override {
      auto held = find( acl );
      if ( held && active ) {
         held->uses.insert( use );
      } else if ( held && !faults_.keptPort ) {
         held->uses.erase( use );
      }
   }
   void blockIntf( IntfId intf, bool block ) override {
      block ? void( tables_.acls.blocked.insert( intf ) )
            : void( tables_.acls.blocked.erase( intf ) );
   }
   void staleAclsDel() override {
      std::erase_if( tables_.acls.acls, []( auto & held ) { return held.stale; } );
   }
   void readAclCounters( Acl::AclType, const String & ) override {} // it counts nothing

 private:
   QonChip::HeldAcl * find( const Operation & acl ) {
      for ( auto & held : tables_.acls.acls ) {
         if ( !held.stale && held.number == acl.aclNumber ) {
            return &held;
         }
      }
      return nullptr;
   }

   Tables & tables_;
   Faults faults_;
};

} // namespace Chip
