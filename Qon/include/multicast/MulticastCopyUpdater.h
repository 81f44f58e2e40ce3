#pragma once
// Which multicast packets the CPU gets, because other agents ask for them.
//
//    CopyRequestConfig: names of who asks -> MulticastCopyUpdater -> updateCopyRequest( any?, what )
//
// Invariants
// 1. What the chip was told last is whether anybody asks. Nobody who leaves takes it from those who stay.
// 2. At the start the chip is told of both kinds.
// 3. One hook is called at a time, whatever it changes. One that raises is called once more.
//
// Ownership: counts the configuration.

#include "Qon/include/framework/QonBaseSm.h"
#include "Qon/include/framework/WorkQueue.h"
#include "platform/types/Multicast.h"

namespace Qon {

/** What is copied. */
enum class PacketType : U8 { igmpPacket = 0, linkLocalPacket = 1 };
KIV_ENUM( PacketType, igmpPacket, linkLocalPacket )

class MulticastCopyUpdater : public QonBaseSm {
 public:
   using Config = Bridging::Multicast::CopyRequestConfig;

   explicit MulticastCopyUpdater( Velto::Ptr< const Config > config );

   void handleInitialized() override;

   /** Packets of the type are copied to the CPU, and forwarded all the same, or not copied any more. Done
       on return; a later call replaces it. */
   virtual void updateCopyRequest( bool enabled, PacketType pktType );
   /** Packets of the type go to the CPU and nowhere else, or are forwarded like others again. */
   virtual void updateCopyAndDropRequest( bool enabled, PacketType pktType );

   /** Tells the chip what is wanted now. Link-local packets only. */
   void copyRequest( PacketType pktType );
   /** The same; IGMP packets only. */
   void copyAndDropRequest( PacketType pktType );
   void handleLinkLocalCopyRequest( const String & name );
   void handleIgmpCopyAndDropRequest( const String & name );

 private:
   void tell( PacketType pktType );

   const Velto::Ptr< const Config > config_;
   WorkQueue< PacketType > work_;
   Kiv::Watch< Config::linkLocalCopyRequestAttr, MulticastCopyUpdater,
               &MulticastCopyUpdater::handleLinkLocalCopyRequest >
         linkLocalWatch_;
   Kiv::Watch< Config::igmpCopyAndDropRequestAttr, MulticastCopyUpdater,
               &MulticastCopyUpdater::handleIgmpCopyAndDropRequest >
         igmpWatch_;
};

} // namespace Qon
