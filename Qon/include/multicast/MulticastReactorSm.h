#pragma once
// Tells the groups what the shared agent data says of ports, aggregates and parity errors.
//
//    acsd.lagToPort  -> addOrRemoveLag        acsd.intf        -> handleAcsdIntf
//    acsd.portToLag  -> addOrRemoveLagPort    acsd.parityEvent -> handleParityEvent
//    acsd.mlagIntfPort -> addOrRemoveMlagIntfPort
//
// Invariants
// 1. When it starts it tells of everything that there is, and of what the helper knows and has gone
//    meanwhile; of parity events only those that are other than it saw them last, and none from before
//    the helper wrote anything.
// 2. What a change concerns is reviewed once, however many attributes say it.
//
// Reads of the shared data: intf, lagToPort, portToLag, mlagIntfPort, parityEvent.
// Ownership: counts the helper, and by it the shared data.

#include "Qon/include/multicast/QonMulticastHelper.h"

namespace Qon {

class MulticastReactorSm : public QonBaseSm {
 public:
   explicit MulticastReactorSm( Velto::Ptr< MulticastHelper > helper );

   void handleInitialized() override;
   void handleLagToPort( const Ulnet::IntfId & lag );
   void handlePortToLag( const Ulnet::IntfId & port );
   void handleMlagIntfPort( const Ulnet::IntfId & port );
   void handleIntf( const Ulnet::IntfId & intf );
   void handleParityEvent( const ParityEvent::Key & key );

 private:
   using Intfs = KeySet< Ulnet::IntfId >;

   void catchUp( bool fresh );

   const Velto::Ptr< MulticastHelper > helper_;
   const Velto::Ptr< QonCommonSmData > acsd_;
   // As they were told last.
   Intfs mlagIntfs_;
   Kiv::DenseMap< ParityEvent::Key, ParityEvent > parityEvents_;
   Kiv::Watch< QonCommonSmData::lagToPortAttr, MulticastReactorSm,
               &MulticastReactorSm::handleLagToPort >
         lagWatch_;
   Kiv::Watch< QonCommonSmData::portToLagAttr, MulticastReactorSm,
               &MulticastReactorSm::handlePortToLag >
         portWatch_;
   Kiv::Watch< QonCommonSmData::mlagIntfPortAttr, MulticastReactorSm,
               &MulticastReactorSm::handleMlagIntfPort >
         mlagWatch_;
   Kiv::Watch< QonCommonSmData::intfAttr, MulticastReactorSm, &MulticastReactorSm::handleIntf >
         intfWatch_;
   Kiv::Watch< QonCommonSmData::parityEventAttr, MulticastReactorSm,
               &MulticastReactorSm::handleParityEvent >
         parityWatch_;
};

Velto::Ptr< MulticastReactorSm > MulticastReactorSmIs( Velto::Ptr< MulticastHelper > helper );

} // namespace Qon
