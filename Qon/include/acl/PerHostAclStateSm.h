#pragma once
// One host of an interface that has a list of its own: its traffic is asked about by that list, beside
// what the interface's own lists say.
//
//    Acl::PerHostConfig: interface, address -> type, list
//       -> review(): the pairs that the interface stands for, if the list is there
//          -> AclConfigSm::hostActiveIs() -> the instance of the port
//             -> QonHelper::AclHelper::perHostAclIs(), with the passes of the instance
//
// Invariants
// 1. It is bound while its list and the numbers of ports that lists are asked about come in are there,
//    to each pair that its interface stands for at the time. Only ports and port-channels have hosts.
// 2. Another list is another state machine.
//
// Ownership: a child of AclSm, while the host is configured and the chip has lists of single hosts.

#include "Qon/include/acl/AclTypes.h"
#include "Qon/include/framework/QonBaseSm.h"

namespace Qon {

class AclSm;
class AclConfigSm;

class PerHostAclStateSm : public QonBaseSm {
 public:
   PerHostAclStateSm( AclSm * aclSm, const Acl::HostKey & host, const Acl::HostAcl & acl );
   void handleInitialized() override;
   /** Unbinds; it is not bound again. */
   void doCleanup();

   const Acl::HostKey & host() const { return host_; }
   const Acl::HostAcl & acl() const { return acl_; }
   bool bound() const { return !bound_.empty(); }
   /** Binds and unbinds, as it shall be now. */
   void review();

 private:
   KeySet< IntfPairKey > wantedPairs() const;

   AclSm * aclSm_;
   const Acl::HostKey host_;
   const Acl::HostAcl acl_;
   bool cleanedUp_ = false;
   Velto::Ptr< AclConfigSm > configSm_; // that it is bound at
   KeySet< IntfPairKey > bound_;
};

} // namespace Qon
