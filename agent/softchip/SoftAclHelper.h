#pragma once
// The hooks of access lists over the table of the chip in software. The table outlives it.

#include "agent/softchip/AclTable.h"

namespace SoftChip {

using Qon::AclOperation;
using Qon::AclUnitResults;

class SoftAclHelper : public QonHelper::AclHelper, private AclTable::Hook {
 public:
   explicit SoftAclHelper( AclTable & table ) : AclHelper( "softAcl" ), table_( table ) {
      table_.hook.is( this );
      table_.begin();
   }
   ~SoftAclHelper() override { table_.hook.is( nullptr ); }

   bool asyncAclConfig() const override { return table_.limits().async; }
   bool asyncBlockIntf() const override {
      return table_.limits().async || table_.limits().asyncBlock;
   }
   bool perHostAclSupported() const override { return table_.limits().perHost; }
   bool deferredOperationsSupported() const override { return table_.limits().deferred; }
   bool shouldInstallIcmpv6Rules() const override { return table_.limits().icmpv6Rules; }
   bool egressLoggingSupported() const override { return table_.limits().egressLogging; }
   bool unitReportedByName( const String & ) const override { return true; }
   bool raclSharingSupported( Acl::AclType, Acl::AclDirection ) const override {
      return table_.limits().raclSharing;
   }

   void uninstallAcl( const AclOperation & acl ) override { table_.uninstall( acl ); }
   AclUnitResults prepareAcl( const AclOperation & acl ) override { return table_.prepare( acl ); }
   AclUnitResults commitAcl( const AclOperation & acl ) override { return table_.commit( acl ); }
   void aclIntfIs( const AclOperation & acl, const Qon::AclIntfUse & use, bool active ) override {
      table_.use( acl, use, active );
   }
   void perHostAclIs( const AclOperation & acl, Ulnet::IntfId intf, const Ulnet::EthAddr & host,
                      bool active ) override {
      table_.use( acl, { Qon::IntfPairKey( intf, {} ), {}, host }, active );
   }
   void blockIntf( Ulnet::IntfId intf, bool block ) override { table_.block( intf, block ); }
   void readAclCounters( Acl::AclType, const String & ) override { table_.readCounters(); }
   void staleAclsDel() override { table_.sweep(); }

 private:
   void answered( const AclOperation & acl, const AclUnitResults & results ) override {
      aclStatusUpdateCallback( acl.type, acl.aclName, acl.key, acl.operation, results );
   }
   void blockAnswered( Ulnet::IntfId intf, bool blocked ) override {
      intfBlockedCallback( intf, blocked );
   }

   AclTable & table_;
};

} // namespace SoftChip
