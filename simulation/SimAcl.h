#pragma once
// Access lists: lists come, go and come back with other rules, interfaces of every kind get and lose
// them, ports join and leave port-channels, sub-interfaces swap VLANs, sharing modes and switchport
// modes change, directions are made anew, the chip answers late and in any order.
//
// Checked after every event: the state machine's own invariants; and that the chip was asked for
// nothing impossible (a number for two instances, a commit of what is not prepared, ...); and that an
// interface that had a list at rest and shall have one ever since is blocked, or what decides there are
// the rules of that rest or rules that it should have had since, unless updates let traffic pass; or
// its list was refused and is shown so. Messages of shortages come once on entering and once on
// leaving.
// At rest: the chip holds exactly the instances, interfaces and rules that the configuration wants,
// and blocks nothing; what a unit has refused is absent, or has rules that were configured before.
// Interfaces are out of service while a list of theirs fails for another reason than a shortage.

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
   void meanwhile() override;
   String checkStep() const override;
   String checkInvariants() const override;
   void heard( const Kiv::LogDescriptor & message, const String & text ) override;
   void drawFaults( Rng & rng, std::vector< String > & lines ) const override;
   void faultsIs( bool on ) override;
   String checkAtRest() const override;
   void tearDown() override;
   String checkTornDown() const override;
   void stop() override;
   void kill( Ending ending ) override;
   void held( Holdings & held ) const override;

   using IntfId = Ulnet::IntfId;
   using AclType = Acl::AclType;
   using AclDirection = Acl::AclDirection;
   /** A list that shall decide on what passes an interface. */
   struct Decider {
      AclType type;
      String name;
      Ulnet::EthAddr host; ///< of what this one sends; of all, if it is zero
      bool known;          ///< false: it failed, as it is said
   };
   using Deciders = std::map< std::pair< IntfId, AclDirection >, std::vector< Decider > >;
   Deciders deciders() const;
   /** What lists say of a packet. */
   struct Decision {
      bool known = true;
      bool permits = true;
      std::set< S32 > mirrorGroups; ///< of rules that it meets
   };
   void ask( const std::vector< Decider > & deciders, const QonChip::AclPacket & packet,
             Decision & decision ) const;

 private:
   using Place = std::tuple< AclType, String, Qon::AclKey >;
   using Uses = std::set< Qon::AclIntfUse >;
   using Wanted = std::map< Place, Uses >;
   /** Where a list decides. */
   using Guard = std::tuple< AclType, AclDirection, Qon::AclIntfUse >;
   using Texts = std::vector< String >;
   /** What may decide there: what did at the last rest, or what the lists say since. */
   struct Admitted {
      std::set< std::pair< String, Texts > > old; ///< by the list's name
      std::set< String > lists;                   ///< that it should have had since
      Place place;                                ///< where the state machine has it
   };

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
   void sessionIs( const Event & event );
   void dpRequest( const Event & event );
   void hostIs( const Event & event );
   void force( const Event & event );
   void pause( const Event & event );
   void finish( const Event & event );
   void latencyIs( const Event & event );
   void unitIs( const Event & event );
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
   void addWantedHosts( Wanted & wanted ) const;
   void addWanted( Wanted & wanted, AclType type, AclDirection direction, IntfId intf,
                   const String & name ) const;
   Texts wantedRules( AclType type, const String & name, bool groups ) const;
   String checkHeld( const QonChip::HeldAcl & held, const Wanted & wanted ) const;
   String checkRules( const QonChip::HeldAcl & held, bool failed ) const;
   const Qon::AclDataSm * instance( const Place & place ) const;
   String checkErrdisabled( const Wanted & wanted ) const;
   /** Remembers the rules of a list, to know them when they are brought back. */
   void remember( AclType type, const String & name );
   std::map< Guard, Place > wantedUses() const;
   void takeGuards() const;
   void dropGuards( const std::map< Guard, Place > & now ) const;
   String checkGuards() const;
   /** The chip changed, in the middle of whatever happens: something must decide all the same, unless
       the list turns out to have been refused. */
   void checkMoment();
   String checkOpenMoments( const std::map< Guard, Place > & now ) const;
   String checkGuard( const Guard & guard, const Admitted & admitted ) const;
   bool refusedAt( const Guard & guard, const Place & place ) const;
   const Texts & textsOf( const Velto::Ptr< const Qon::AclRuleSet > & rules ) const;
   bool permits( AclType type ) const;
   /** @} */

   Velto::Ptr< Acl::Config > config_ = Velto::make< Acl::Config >( "acl" );
   Velto::Ptr< Acl::IntfConfig > intfConfig_ = Velto::make< Acl::IntfConfig >( "intf" );
   Velto::Ptr< Acl::ParamConfig > params_ = Velto::make< Acl::ParamConfig >( "param" );
   Velto::Ptr< Bridging::Config > bridging_ = Velto::make< Bridging::Config >( "bridging" );
   Velto::Ptr< Interface::SubIntfConfigDir > subIntfs_ =
         Velto::make< Interface::SubIntfConfigDir >( "subIntf" );
   mutable std::map< Guard, Place > openMoments_; ///< since the last check
   String wrongMoment_;
   std::map< IntfId, U16 > internal_; ///< the last one that is a VLAN
   Velto::Ptr< Mirroring::Status > sessions_ = Velto::make< Mirroring::Status >( "mirroring" );
   Velto::Ptr< Errdisable::CauseStatus > errdisable_ =
         Velto::make< Errdisable::CauseStatus >( "acl" );
   Velto::Ptr< Acl::PerHostConfig > hosts_ = Velto::make< Acl::PerHostConfig >( "hosts" );
   Velto::Ptr< Acl::DpAclUpdateRequest > dpRequest_ =
         Velto::make< Acl::DpAclUpdateRequest >( "request" );
   Velto::Ptr< Acl::DpAclUpdateStatus > dpStatus_ =
         Velto::make< Acl::DpAclUpdateStatus >( "status" );
   std::map< std::pair< AclType, String >, std::set< Texts > > versions_;
   /** Those that have been configured at some time since the last rest. */
   mutable std::map< std::pair< AclType, String >, std::set< Texts > > recent_;
   /** What rule sets say, while the check may meet them again. */
   mutable std::map< const Qon::AclRuleSet *,
                     std::pair< Velto::Ptr< const Qon::AclRuleSet >, Texts > >
         texts_;
   std::map< String, String > raised_; ///< unit -> the message that is out
   String wrongMessage_;
   mutable std::map< Guard, Admitted > guards_; ///< where a list has decided since the last rest
   U32 directionsMade_ = 0;                     ///< of the state machine that there is
   U32 latency_ = 0;
   SoftChip::AclPart & chip_;
   Velto::Ptr< QonHelper::AclHelper > helper_;
   Velto::Ptr< Qon::AclSm > sm_;
};

} // namespace Sim
