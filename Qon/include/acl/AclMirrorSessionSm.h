#pragma once
// Follows the group of one mirror session: lists whose rules name the session are applied anew when it
// gets another one.
//
// Ownership: a child of AclSm, while the session is there; counts its status.

#include "Qon/include/framework/QonBaseSm.h"
#include "platform/types/Mirroring.h"

namespace Qon {

class AclSm;

class AclMirrorSessionSm : public QonBaseSm {
 public:
   AclMirrorSessionSm( AclSm * aclSm, const Velto::String & name,
                       Velto::Ptr< const Mirroring::SessionStatus > status );
   void handleInitialized() override;
   void handleMirrorGroup();
   /** The group that was heard last. */
   S32 group() const { return group_; }

 private:
   AclSm * aclSm_;
   const Velto::String name_;
   const Velto::Ptr< const Mirroring::SessionStatus > status_;
   S32 group_;
   Kiv::Watch< Mirroring::SessionStatus::mirrorGroupAttr, AclMirrorSessionSm,
               &AclMirrorSessionSm::handleMirrorGroup >
         groupWatch_;
};

} // namespace Qon
