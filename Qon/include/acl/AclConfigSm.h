#pragma once
// One named list: its rules as the hardware gets them, and which of its instances each interface
// that has the list belongs to.
//
//    AclDirectionTypeConfigSm -> intfActiveIs( pair, direction, active )
//       VLAN interface  -> vlanActiveIs    -> sharedVlanActiveIs | unsharedVlanActiveIs
//       sub-interface   -> subIntfActiveIs -> sharedPortActiveIs | unsharedVlanActiveIs
//       any other       -> portActiveIs    -> sharedPortActiveIs | unsharedPortActiveIs
//                                                   |
//                                             an AclKey -> AclDataSm
//
//    pairs that have one instance           VLAN      group
//    ports and sub-interfaces, shared       none      "default"
//    a port; the members of a port-channel  none      the name of the port or port-channel
//    a VLAN; a sub-interface's VLAN         the VLAN  "default"
//    VLAN interfaces, shared                none      "vlan"
//
// Invariants
// 1. A pair is in one instance of a direction at most. Activating what is active in the right
//    instance, and deactivating what is not active, change nothing; an instance that a mode or a VLAN
//    has changed is left before the other one is joined.
// 2. An instance exists from its first pair on, until it is out of hardware after its last.
// 3. ruleSet() is the same object while the rules are.
//
// Ownership: a child of AclTypeConfigSm; counts its configuration and its instances.

#include <optional>

#include "Qon/include/acl/AclDataSm.h"
#include "platform/Kiv/Clock.h"

namespace Qon {

class AclConfigSm : public QonBaseSm {
 public:
   AclConfigSm( AclSm * aclSm, Acl::AclType type, const String & name,
                Velto::Ptr< const Acl::AclConfig > config );

   void handleInitialized() override;
   void kivDoZombieReactors() override;
   /** Gives up every instance; who has the list stays recorded. */
   void doCleanup();

   /** Until its clean-up. */
   bool live() const { return live_; }

   Acl::AclType type() const { return type_; }
   const String & name() const { return name_; }
   const Acl::AclConfig * config() const { return config_.ptr(); }

   /** The pair has the list in that direction, or no longer. `otherOwner`: the interface is somebody
       else's; nothing is done. A port-channel stands for all its pairs, and can only be deactivated. */
   void intfActiveIs( const IntfPairKey & pair, Acl::AclDirection direction, bool active,
                      bool otherOwner );
   /** A host of the pair has the list, for what comes in from it, or no longer. */
   void hostActiveIs( const IntfPairKey & pair, const Ulnet::EthAddr & host, bool active );
   /** Whether a pass works on the instance that the pair of a port-channel would join. */
   bool busyFor( const IntfPairKey & pair, Acl::AclDirection direction ) const;

   /** @name Its instances */
   /** @{ */
   AclDataSm * aclDataSm( const AclKey & key ) const;
   AclData * aclData( const AclKey & key ) const;
   AclDataStatus * aclDataStatus( const AclKey & key ) const;
   AclDataStatusSm * aclDataStatusSm( const AclKey & key ) const;
   Kiv::Iterator< Kiv::DenseMap< AclKey, Velto::Ptr< AclDataSm > > >
   aclDataSmIteratorConst() const {
      return Kiv::Iterator( instances_ );
   }
   /** It is out of hardware, and nothing wants it. */
   void aclDataDel( const AclKey & key ) { instances_.erase( key ); }
   /** The instance that the pair is in. */
   std::optional< AclKey > keyOf( const IntfPairKey & pair, Acl::AclDirection direction ) const;
   /** Whether the pair's list waits for the sharing mode. */
   bool refused( const IntfPairKey & pair, Acl::AclDirection direction ) const {
      return refused_[U8( direction )].has( pair );
   }
   /** @} */

   /** @name Rules */
   /** @{ */
   Velto::Ptr< const AclRuleSet > ruleSet();
   /** Adds the rule that permits the further fragments of what `rule` permits, where one is needed
       and there is none yet. */
   void checkIpFragRule( const Acl::Rule & rule, std::vector< AclRule > & rules );
   /** Adds what stands behind all other rules. */
   void generateImplicitRules( std::vector< AclRule > & rules );
   /** By what they match: the number of the rule before it. */
   const Kiv::DenseMap< Acl::IpFilter, U32 > & fragMap() const { return fragMap_; }
   const Kiv::DenseMap< Acl::ImplicitRuleType, U32 > & implicitRuleId() const {
      return implicitRuleId_;
   }
   /** @} */

   void handleRule( const U32 & seq );
   void handleCounterRequest();
   void handleCounterClock();

 private:
   using Direction = Acl::AclDirection;
   using IntfId = Ulnet::IntfId;

   void lagActiveIs( const IntfPairKey & pair, Direction direction, bool active );
   void vlanActiveIs( const IntfPairKey & pair, Direction direction, bool active );
   void sharedVlanActiveIs( const IntfPairKey & pair, Direction direction, bool active );
   void unsharedVlanActiveIs( const IntfPairKey & pair, Direction direction, bool active );
   void subIntfActiveIs( const IntfPairKey & pair, Direction direction, bool active );
   void portActiveIs( const IntfPairKey & pair, Direction direction, bool active );
   void sharedPortActiveIs( const IntfPairKey & pair, Direction direction, bool active );
   void unsharedPortActiveIs( const IntfPairKey & pair, Direction direction, bool active );

   struct Words {
      const char * first;
      const char * last;
   };
   Velto::Ptr< AclDataSm > instanceIs( const AclKey & key );
   void hostsLeave( const AclKey & key );
   std::vector< IntfId > membersUnder( IntfId subIntf ) const;
   void join( const IntfPairKey & pair, const AclKey & key, const Words & words );
   void leave( const IntfPairKey & pair, Direction direction, const Words & words );
   bool unsupported( const IntfPairKey & pair, Direction direction );
   void refusedIs( const IntfPairKey & pair, Direction direction, bool refused );
   bool shared( Direction direction, Acl::SharingKind kind ) const;
   AclKey portKey( const IntfPairKey & pair, Direction direction ) const;
   std::vector< AclRule > resolvedRules();
   void rulesMayDiffer();

   AclSm * aclSm_;
   const Acl::AclType type_;
   const String name_;
   const Velto::Ptr< const Acl::AclConfig > config_;
   Kiv::DenseMap< AclKey, Velto::Ptr< AclDataSm > > instances_;
   Kiv::DenseMap< IntfPairKey, AclKey > keyOf_[2]; // by direction
   Kiv::DenseMap< AclIntfUse, AclKey > keyOfHost_;
   KeySet< IntfPairKey > refused_[2];
   Kiv::DenseMap< IntfPairKey, String > unsupported_[2]; // and the card that has no access lists
   Kiv::DenseMap< Acl::IpFilter, U32 > fragMap_;
   Kiv::DenseMap< Acl::ImplicitRuleType, U32 > implicitRuleId_;
   Velto::Ptr< const AclRuleSet > ruleSet_;
   bool live_ = true;
   bool rulesStale_ = true;
   U32 countersRead_ = 0; // the request that was heard last
   Kiv::Watch< Acl::AclConfig::ruleAttr, AclConfigSm, &AclConfigSm::handleRule > ruleWatch_;
   Kiv::Watch< Acl::AclConfig::counterRequestAttr, AclConfigSm, &AclConfigSm::handleCounterRequest >
         counterRequestWatch_;
   Kiv::ClockReactor< AclConfigSm, &AclConfigSm::handleCounterClock > counterClock_;
};

} // namespace Qon
