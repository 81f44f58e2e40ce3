#pragma once
// The vocabulary of hardware operations that complete after the handler that started them.

#include "Qon/include/adjacency/L2AdjKey.h"
#include "Qon/include/framework/QonTypes.h"
#include "platform/Kiv/Text.h"
#include "platform/Kiv/Time.h"
#include "platform/types/Bridging.h"
#include "platform/types/IntfId.h"
#include "platform/types/IpAddr.h"
#include "platform/types/Link.h"
#include "platform/types/Routing.h"

namespace Qon {

/** Where an operation stands. */
enum class AsyncOperationState : U8 { asyncNone, asyncInCall, asyncWaiting, asyncCompleted };
KIV_ENUM( AsyncOperationState, asyncNone, asyncInCall, asyncWaiting, asyncCompleted )

/** What the hardware side reports about an operation. The error is empty on success. A default
    result is stamped with the time at which it is made. */
class AsyncOperationResult {
   Velto::String error_;
   Kiv::Seconds timestamp_ = Kiv::now();
   KIV_VALUE( Qon, AsyncOperationResult, error, timestamp )

   /** Whether this is anything but an empty result of this very moment. */
   explicit operator bool() const { return *this != AsyncOperationResult(); }
};

/** Something that happened at a port. */
class QonEvent {
 public:
   enum class QonEventType : U8 {
      eventTypePort,
      eventTypeAutonegSuccess,
      eventTypeAutonegFailed,
      eventTypeMacAddressLearned,
      eventTypeMacAddressAged,
      eventTypeMacAddressAgedLocal,
      eventTypeMacAddressAgedRemote,
      eventTypeMacAddressDeleted,
      eventTypeStaticMacAddress,
      eventTypeDropMacAddress,
      eventTypeAuthenticatedMac,
      eventTypeEvpnIntfDynamicMac,
      eventTypePeerMacAddressLearned,
      eventTypePeerStaticMacAddress,
      eventTypePeerAuthenticatedMac,
   };
   KIV_NESTED_ENUM( QonEventType, eventTypePort, eventTypeAutonegSuccess, eventTypeAutonegFailed,
                    eventTypeMacAddressLearned, eventTypeMacAddressAged,
                    eventTypeMacAddressAgedLocal, eventTypeMacAddressAgedRemote,
                    eventTypeMacAddressDeleted, eventTypeStaticMacAddress, eventTypeDropMacAddress,
                    eventTypeAuthenticatedMac, eventTypeEvpnIntfDynamicMac,
                    eventTypePeerMacAddressLearned, eventTypePeerStaticMacAddress,
                    eventTypePeerAuthenticatedMac )

   enum class PortType : U8 { fpPort, trunkPort, vxlanPort };
   KIV_NESTED_ENUM( PortType, fpPort, trunkPort, vxlanPort )

 private:
   QonEventType eventType_ = QonEventType::eventTypePort;
   PortType portType_ = PortType::fpPort;
   Ulnet::IntfId port_;
   U32 tunnelId_ = 0;
   Interface::LinkStatus linkStatus_ = Interface::LinkStatus::linkUnknown;
   Interface::FaultType faultType_ = Interface::FaultType::noFault;
   Bridging::MacVlanPair host_;
   Interface::Advert advert_;
   KIV_VALUE( Qon, QonEvent, eventType, portType, port, tunnelId, linkStatus, faultType, host,
              advert )
};

} // namespace Qon

// Acknowledgements tell which version of a route or forwarding equivalence class the
// platform-dependent layer has been handed. The generation number makes a record that is sent
// again, and is otherwise the same, a change.
namespace Qon::Ack {

class VersionIdPassedToPdFec {
   QonPdVersionId qonVersionId_;
   Routing::Fib::FecVersionId piVersionId_;
   Quarn::Fib::FecId fecId_;
   L2AdjKey l2AdjKey_;
   bool remove_ = false;
   bool nack_ = false;
   U8 genId_ = 0;
   KIV_VALUE( Qon::Ack, VersionIdPassedToPdFec, qonVersionId, piVersionId, fecId, l2AdjKey, remove,
              nack, genId )
};

class VersionIdPassedToPdTunnelFec {
   QonPdVersionId qonVersionId_;
   Routing::Fib::FecVersionId piVersionId_;
   Quarn::Fib::FecId fecId_;
   bool remove_ = false;
   bool nack_ = false;
   U8 genId_ = 0;
   KIV_VALUE( Qon::Ack, VersionIdPassedToPdTunnelFec, qonVersionId, piVersionId, fecId, remove,
              nack, genId )
};

class DedupedToLatestL2Adj {
   Routing::Fib::FecVersionId piVersionId_;
   Quarn::Fib::FecId fecId_;
   L2AdjKey l2AdjKey_;
   bool remove_ = false;
   U8 genId_ = 0;
   KIV_VALUE( Qon::Ack, DedupedToLatestL2Adj, piVersionId, fecId, l2AdjKey, remove, genId )
};

class DeleteFecIdFromFecStatus {
   Quarn::Fib::FecId fecId_;
   U8 genId_ = 0;
   KIV_VALUE( Qon::Ack, DeleteFecIdFromFecStatus, fecId, genId )
};

class VersionIdPassedToPdRoute {
   QonPdVersionId qonVersionId_;
   Routing::Fib::RouteVersionId piVersionId_;
   Ulnet::IpGenPrefix prefix_;
   bool remove_ = false;
   bool nack_ = false;
   U8 genId_ = 0;
   KIV_VALUE( Qon::Ack, VersionIdPassedToPdRoute, qonVersionId, piVersionId, prefix, remove, nack,
              genId )
};

} // namespace Qon::Ack
