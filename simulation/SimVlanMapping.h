#pragma once
// VLAN mapping of either generation, on a chip of any form: sources that want the same keys, answers
// of all five kinds at once, late and by directories, ports that change their port-channels in the
// middle of it, pauses and restarts.
//
// Checked in the log: no conflict, no winner and no full table that the model does not know of, and
// none twice.
// Checked at rest against VlanMappingModel: each owner; the chip's tables hold exactly what the
// owners want of each port; encapVlan and the status of members go with that.

#include "agent/softchip/Chip.h"
#include "agent/softchip/VlanMappingPart.h"
#include "platform/Kiv/Listener.h"
#include "platform/Kiv/Log.h"
#include "simulation/ClockLaw.h"
#include "simulation/SimFeature.h"
#include "simulation/VlanMappingModel.h"

namespace Sim {

class SimVlanMapping : public SimFeature, private Kiv::LogSink {
 public:
   using Model = VlanMappingModel;
   using IntfId = Ulnet::IntfId;
   using Direction = Bridging::VlanMappingDirection;
   using Key = Model::Key;
   using Status = QonTypes::TableAddStatus;

   explicit SimVlanMapping( World & world );
   ~SimVlanMapping() override;

   static std::span< const Operation > operations();
   static void shape( const World & world, SoftChip::Shape & shape );

   void drawFaults( Rng & rng, std::vector< String > & lines ) const override;
   void start() override;
   String checkStep() const override;
   String checkInvariants() const override;
   void faultsIs( bool on ) override;
   String checkAtRest() const override;
   void tearDown() override;
   String checkTornDown() const override;
   void stop() override;
   void kill( Ending ending ) override;
   void held( Holdings & held ) const override;

   /** What every port shall have in the chip, save what could not be had, as it is said. */
   std::map< Model::Port, Model::Mapping > wantedInChip() const;

   /** From the hooks, before they are done and after. */
   void asked( Direction d, const Qon::PortVlanKey & key, IntfId intf, Model::Mapping mapping );
   void answerHeard( Direction d, const Qon::PortVlanKey & key, Status status );
   void removalHeard( Direction d, const Qon::PortVlanKey & key );

 private:
   /** @name Operations */
   /** @{ */
   void xlate( const Event & event );
   void native( const Event & event );
   void intfDel( const Event & event );
   void modeIs( const Event & event );
   void member( const Event & event );
   void finish( const Event & event );
   void latencyIs( const Event & event );
   void pause( const Event & event );
   void delayIs( const Event & event );
   void restart( const Event & event );
   /** @} */

   void message( const Kiv::LogDescriptor & descriptor, const String & text ) override;
   void listen();
   void portToLagHeard( IntfId port );
   void configHeard( Direction d, const Qon::PortVlanKey & key );
   void statusHeard( Direction d, const Qon::PortVlanKey & key );
   void startMachines();
   void goOn();
   void nativeIs( IntfId intf, Direction d, U16 vlan );
   Key keyOf( Direction d, const Qon::PortVlanKey & key );
   bool wasHandedOver( const Key & key ) const;
   bool isInChip( const Model::Port & port ) const;

   String checkRetry() const;
   String checkChip() const;
   String checkOwners() const;
   String checkMerged() const;
   String checkEncap() const;
   String checkMembers() const;

   Rng rng_;
   const bool second_;
   const SoftChip::VlanMappingForm form_;
   SoftChip::VlanMappingTable & table_;
   Model model_;
   std::map< std::pair< IntfId, Direction >, U16 > natives_;
   /** For which interface each key of a port was asked for last, and what. */
   std::map< std::pair< Direction, Qon::PortVlanKey >, std::pair< IntfId, Model::Mapping > > asked_;
   bool paused_ = false;
   bool killed_ = false; ///< and what comes up goes on with what is there
   mutable ClockLaw retries_;
   Kiv::LogSink * formerSink_;

   template< class T >
   static Velto::Ptr< T > entity( const char * name ) {
      return Velto::make< T >( name );
   }
   Velto::Ptr< Bridging::Config > config_ = entity< Bridging::Config >( "config" );
   Velto::Ptr< Qon::QonFlowVlanXlateConfigDir > flow_ =
         entity< Qon::QonFlowVlanXlateConfigDir >( "flow" );
   Velto::Ptr< Qon::QonVlanMappingConfigDir > directory_[2] = {
         entity< Qon::QonVlanMappingConfigDir >( "ingress" ),
         entity< Qon::QonVlanMappingConfigDir >( "egress" ) };
   Velto::Ptr< Qon::QonVlanMappingStatusDir > status_[2] = {
         entity< Qon::QonVlanMappingStatusDir >( "ingressStatus" ),
         entity< Qon::QonVlanMappingStatusDir >( "egressStatus" ) };
   Velto::Ptr< Qon::QonVlanMappingIntfConfigDir > keySets_ =
         entity< Qon::QonVlanMappingIntfConfigDir >( "keySets" );
   Velto::Ptr< Qon::QonVlanLagMemberStatusDir > members_ =
         entity< Qon::QonVlanLagMemberStatusDir >( "members" );
   Velto::Ptr< Qon::VlanMappingSm > first_;

   Velto::Ptr< Qon::ProgrammedPortToLag > portToLag_ =
         entity< Qon::ProgrammedPortToLag >( "portToLag" );
   Velto::Ptr< Qon::PlatformVlanMappingStatus > platformStatus_ =
         entity< Qon::PlatformVlanMappingStatus >( "platformStatus" );
   Velto::Ptr< Qon::SourceVlanMappingConfigDir > sources_ =
         entity< Qon::SourceVlanMappingConfigDir >( "sources" );
   Velto::Ptr< Qon::SourceVlanMappingStatusDir > sourceStatus_ =
         entity< Qon::SourceVlanMappingStatusDir >( "sourceStatus" );
   Velto::Ptr< Qon::MergedVlanMappingConfig > merged_ =
         entity< Qon::MergedVlanMappingConfig >( "merged" );
   Velto::Ptr< Qon::PlatformVlanMappingConfig > platform_ =
         entity< Qon::PlatformVlanMappingConfig >( "platform" );
   Velto::Ptr< Qon::PortChannelInterlockDir > interlock_ =
         entity< Qon::PortChannelInterlockDir >( "interlock" );
   Velto::Ptr< Qon::VlanMappingOutputState > output_[3] = {
         entity< Qon::VlanMappingOutputState >( "bridging" ),
         entity< Qon::VlanMappingOutputState >( "flow" ),
         entity< Qon::VlanMappingOutputState >( "native" ) };
   Velto::Ptr< Qon::VlanMapping::VlanMappingSm2 > sm2_;
   Velto::Ptr< Velto::Node > follower_;

   Kiv::Listener< Qon::QonCommonSmData::portToLagAttr > portToLagHeard_;
   Kiv::Listener< Qon::QonVlanMappingConfigDir::vlanMappingConfigAttr > configHeard_[2];
   Kiv::Listener< Qon::QonVlanMappingStatusDir::vlanMappingStatusAttr > statusHeard_[2];
};

} // namespace Sim
