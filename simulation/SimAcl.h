#pragma once
// Access lists: lists come, go and come back with other rules, interfaces of every kind get and lose
// them, ports join and leave port-channels, sub-interfaces swap VLANs, sharing modes and switchport
// modes change, directions are made anew, the chip answers late and in any order.
//
// Checked after every event: the state machine's own invariants; and that the chip was asked for
// nothing impossible (a number for two instances, a commit of what is not prepared, ...).
// At rest: the chip holds exactly the instances, interfaces and rules that the configuration wants,
// and blocks nothing.

#include <map>

#include "Qon/include/acl/QonAclSm.h"
#include "agent/softchip/AclPart.h"
#include "agent/softchip/Chip.h"
#include "simulation/SimFeature.h"

namespace Sim {

class SimAcl : public SimFeature {
 public:
   explicit SimAcl( World & world );

   static std::span< const Operation > operations();
   static void shape( const World & world, SoftChip::Shape & shape );

   void start() override;
   bool ready() override;
   String checkInvariants() const override;
   void faultsIs( bool on ) override;
   String checkAtRest() const override;
   void tearDown() override;
   String checkTornDown() const override;
   void stop() override;

 private:
   using IntfId = Ulnet::IntfId;
   using AclType = Acl::AclType;
   using AclDirection = Acl::AclDirection;
   using Place = std::tuple< AclType, String, Qon::AclKey >;
   using Uses = std::set< Qon::AclIntfUse >;
   using Wanted = std::map< Place, Uses >;

   /** @name Operations */
   /** @{ */
   void attach( const Event & event );
   void detach( const Event & event );
   void listIs( const Event & event );
   void listDel( const Event & event );
   void listAgain( const Event & event );
   void ruleIs( const Event & event );
   void ruleDel( const Event & event );
   void typeAgain( const Event & event );
   void directionAgain( const Event & event );
   void sharingIs( const Event & event );
   void permitIs( const Event & event );
   void modeIs( const Event & event );
   void vlanIs( const Event & event );
   void internalVlanIs( const Event & event );
   void swap( const Event & event );
   void join( const Event & event );
   void leave( const Event & event );
   void managedIs( const Event & event );
   void count( const Event & event );
   void force( const Event & event );
   void pause( const Event & event );
   void finish( const Event & event );
   void latencyIs( const Event & event );
   void restart( const Event & event );
   /** @} */

   void make();
   void chipLatencyIs( U32 latency );
   void readInternalVlans();
   bool lagsAreOurs() const;
   void memberIs( IntfId lag, IntfId port, bool member );
   IntfId target( U32 n ) const;
   IntfId subIntf( U32 n ) const;
   Acl::DirectionIntfConfig * direction( U32 n ) const;
   Acl::AclConfig * list( U32 type, U32 name ) const;
   void vlanOfIs( IntfId subIntf, Bridging::VlanIdOrNone vlan );

   /** @name What the configuration wants; see SimAclModel.cc */
   /** @{ */
   bool managed( IntfId intf ) const;
   U16 vlanOf( IntfId intf ) const;
   std::vector< IntfId > membersOf( IntfId lag ) const;
   Wanted wanted() const;
   void addWanted( Wanted & wanted, AclType type, AclDirection direction, IntfId intf,
                   const String & name ) const;
   std::vector< String > wantedRules( AclType type, const String & name ) const;
   String checkHeld( const QonChip::HeldAcl & held, const Wanted & wanted ) const;
   /** @} */

   Velto::Ptr< Acl::Config > config_ = Velto::make< Acl::Config >( "acl" );
   Velto::Ptr< Acl::IntfConfig > intfConfig_ = Velto::make< Acl::IntfConfig >( "intf" );
   Velto::Ptr< Acl::ParamConfig > params_ = Velto::make< Acl::ParamConfig >( "param" );
   Velto::Ptr< Bridging::Config > bridging_ = Velto::make< Bridging::Config >( "bridging" );
   Velto::Ptr< Interface::SubIntfConfigDir > subIntfs_ =
         Velto::make< Interface::SubIntfConfigDir >( "subIntf" );
   std::map< IntfId, U16 > internal_; ///< the last one that is a VLAN
   U32 directionsMade_ = 0;           ///< of the state machine that there is
   U32 latency_ = 0;
   SoftChip::AclPart & chip_;
   Velto::Ptr< QonHelper::AclHelper > helper_;
   Velto::Ptr< Qon::AclSm > sm_;
};

} // namespace Sim
