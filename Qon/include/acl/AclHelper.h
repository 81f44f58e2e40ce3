#pragma once
// The hooks of access lists: what a chip-specific agent overrides.
//
//    AclSm's pass:  blockIntf( on ) -> aclIntfIs( off ), uninstallAcl -> prepareAcl
//                   -> aclIntfIs( on ), commitAcl -> blockIntf( off )
//
// All uninstalls of a pass come before any prepareAcl, all of those before any commitAcl. An
// instance is known by its number while it is in hardware; a number is given to another instance
// only when the uninstall of the former one is done.
//
// Capability queries are asked when they are needed, have safe defaults and no effects. Hooks that
// program report when nobody overrides them. A synchronous helper is done when a hook returns. With
// asyncAclConfig(), uninstallAcl and prepareAcl are done when aclStatusUpdateCallback() has been
// called with the operation's number; with asyncBlockIntf(), blockIntf is done when
// intfBlockedCallback() has been called.
//
// Hooks may change the configuration and the state machines: that is taken up in the next pass.

#include "Qon/include/acl/AclTypes.h"
#include "Qon/include/framework/QonBaseSm.h"

namespace Qon {
class AclSm;
} // namespace Qon

namespace QonHelper {

using Qon::AclOperation;
using Qon::AclUnitResults;
using Velto::String;

class AclHelper : public Qon::QonBaseHelper {
 public:
   explicit AclHelper( const String & name ) : QonBaseHelper( name ) {}

   /** @name What the chip can do */
   /** @{ */
   /** Uninstalling and preparing are answered later; needs asyncBlockIntf(). */
   virtual bool asyncAclConfig() const { return false; }
   /** Blocking is answered later. */
   virtual bool asyncBlockIntf() const { return false; }
   /** Single hosts of an interface can have lists of their own. Asked when the state machine starts. */
   virtual bool perHostAclSupported() const { return false; }
   /** Interfaces join and leave an instance that stays with the next pass, and not at once. */
   virtual bool deferredOperationsSupported() const { return false; }
   /** Traffic passes while lists of the type are exchanged. The base says what is configured. */
   virtual bool getPermitDuringAclUpdate( Acl::AclType type ) const;
   /** The chip blocks all the same. */
   virtual bool permitDuringAclUpdateOverride( Acl::AclType ) const { return false; }
   /** Running out of numbers is reported as a shortage of resources. */
   virtual bool aclLimitIsResourceFull() const { return false; }
   /** Messages name the unit. */
   virtual bool unitReportedByName( const String & ) const { return false; }
   virtual bool egressLoggingSupported() const { return false; }
   /** IPv6 lists get implicit rules for neighbour discovery. */
   virtual bool shouldInstallIcmpv6Rules() const { return false; }
   /** Routed ports can share an instance. */
   virtual bool raclSharingSupported( Acl::AclType, Acl::AclDirection ) const { return false; }
   /** @} */

   /** @name Programming */
   /** @{ */
   /** Takes the instance, its rules and all its interfaces out of hardware. Called for every
       instance that is or may be in hardware before it is prepared anew or given up; harmless for
       one that is not there. */
   virtual void uninstallAcl( const AclOperation & acl );
   /** Makes room for the instance and its rules, which decide on nothing yet. The same instance was
       uninstalled before. What it came to, a unit each; whatever asyncAclConfig() helpers return is
       not looked at. */
   virtual AclUnitResults prepareAcl( const AclOperation & acl );
   /** The instance decides from now on, on the interfaces that aclIntfIs() named. Only after a
       prepareAcl() without errors, and done on return. */
   virtual AclUnitResults commitAcl( const AclOperation & acl );
   /** The instance is applied to the interface from now on, or no longer: after prepareAcl() and
       before commitAcl() as it is made, later as interfaces come and go. `use.lagMember()` is set for
       a sub-interface of a port-channel, whose members are told one by one. Done on return. */
   virtual void aclIntfIs( const AclOperation & acl, const Qon::AclIntfUse & use, bool active );
   /** No traffic passes the interface from now on, in neither direction; or it does again. */
   virtual void blockIntf( Ulnet::IntfId intf, bool block );
   /** As aclIntfIs(), for what comes from one host by the interface. */
   virtual void perHostAclIs( const AclOperation & acl, Ulnet::IntfId intf,
                              const Ulnet::EthAddr & host, bool active );
   /** The counters of the list's rules are wanted; nothing is waited for. */
   virtual void readAclCounters( Acl::AclType type, const String & aclName );
   /** The first pass of a state machine is done, and nothing waits for another one but instances that had
       no room, whose interfaces are blocked, as are those that would join a list meanwhile: instances and
       blocks that a former helper left in hardware can go. What it had asked for and is not done yet is
       not to come into force. */
   virtual void staleAclsDel() {}
   /** @} */

   /** @name What the chip reports; nothing happens once the state machine has ended */
   /** @{ */
   /** An operation of an asynchronous helper is done. Dropped unless it is the one under way. */
   void aclStatusUpdateCallback( Acl::AclType type, const String & aclName, const Qon::AclKey & key,
                                 U64 operation, const AclUnitResults & results ) const;
   /** The answer to one blockIntf() of an asynchronous helper; one each, in their order. */
   void intfBlockedCallback( Ulnet::IntfId intf, bool blocked ) const;
   /** @} */

   /** Whom it works for; null: nobody. Set by AclSm. */
   Qon::AclSm * aclSm() const { return aclSm_; }
   void aclSmIs( Qon::AclSm * aclSm ) { aclSm_ = aclSm; }
   /** What getPermitDuringAclUpdate() reads; set by AclSm before it starts. */
   const Acl::ParamConfig * paramConfig() const { return paramConfig_.ptr(); }
   void paramConfigIs( Velto::Ptr< const Acl::ParamConfig > config ) {
      paramConfig_ = std::move( config );
   }

 private:
   Velto::Ptr< const Acl::ParamConfig > paramConfig_;
   Qon::AclSm * aclSm_ = nullptr;
};

} // namespace QonHelper
