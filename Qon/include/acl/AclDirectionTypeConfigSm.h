#pragma once
// The interfaces that have lists of one type in one direction.
//
//    DirectionIntfConfig.intf, LAG maps, acsd.intf, switchport modes -> reviewIntf( intf )
//       -> the pairs that the interface stands for -> AclConfigSm::intfActiveIs()
//
//    interface            pairs
//    port                 itself, unless it is a member of a port-channel
//    port-channel         each member, with the port-channel
//    sub-interface        itself, unless its port is a member of a port-channel
//    any other            itself
//
// Invariants
// 1. An interface that names a list which is not there stays recorded, and has it when it comes.
// 2. reviewIntf() compares what is wanted with what was done, and does nothing twice.
// 3. The numbers of a direction are its own: `aclNumbersPerDirection` from a start that no other
//    direction has had. They are not returned.
//
// Ownership: a child of AclTypeConfigSm; counts its configuration, owns the switchport machines.

#include "Qon/include/acl/AclDataSm.h"
#include "Qon/include/framework/SmCollection.h"
#include "platform/types/VlanMapping.h"

namespace Qon {

class AclDirectionTypeConfigSm;

/** Follows the switchport mode of one interface that has a list. */
class AclSwitchportModeConfigSm : public QonBaseSm {
 public:
   AclSwitchportModeConfigSm( AclDirectionTypeConfigSm * directionSm,
                              Velto::Ptr< const Bridging::SwitchIntfConfig > config );
   void handleInitialized() override;
   void handleSwitchportMode();
   /** Compares the mode with the one under which the list was applied. */
   void review();
   /** The mode under which the list was applied last. */
   Bridging::SwitchportMode mode() const { return mode_; }

 private:
   AclDirectionTypeConfigSm * directionSm_;
   const Velto::Ptr< const Bridging::SwitchIntfConfig > config_;
   Bridging::SwitchportMode mode_;
   Kiv::Watch< Bridging::SwitchIntfConfig::switchportModeAttr, AclSwitchportModeConfigSm,
               &AclSwitchportModeConfigSm::handleSwitchportMode >
         modeWatch_;
};

class AclDirectionTypeConfigSm : public QonBaseSm {
 public:
   using IntfId = Ulnet::IntfId;

   AclDirectionTypeConfigSm( AclSm * aclSm, Acl::AclType type,
                             Velto::Ptr< const Acl::DirectionIntfConfig > config,
                             U16 aclNumberRangeStart );

   void handleInitialized() override;
   void kivDoZombieReactors() override;
   /** Takes the lists off all interfaces. */
   void doCleanup();

   Acl::AclType type() const { return type_; }
   Acl::AclDirection direction() const { return config_->direction(); }
   const Acl::DirectionIntfConfig * config() const { return config_.ptr(); }

   /** @name Numbers */
   /** @{ */
   /** Gives the instance a number unless it has one: success, or aclLimit. */
   AclCreateError allocateAclNumber( const String & aclName, AclData * data );
   void freeAclPush( U32 number ) { numbers_->push( number ); }
   const Velto::Ptr< AclNumbers > & numbers() const { return numbers_; }
   /** @} */

   /** @name Reviews; see AclSm::later() */
   /** @{ */
   void reviewIntf( IntfId intf );
   /** Calls `act( intf )` for the interfaces that name the list. */
   template< class Act >
   void forEachNaming( const String & name, Act && act ) const {
      if ( auto intfs = naming_.find( name ) ) {
         for ( auto && entry : *intfs ) {
            act( entry.key );
         }
      }
   }
   /** Calls `act( intf )` for every interface that has, or had, a list. */
   template< class Act >
   void forEachIntf( Act && act ) const {
      for ( auto && [intf, held] : held_ ) {
         act( intf );
      }
   }
   bool held( IntfId intf ) const { return held_.has( intf ); }
   /** A pair that the interface stands for, and whether somebody else drives it. */
   using Pairs = std::vector< std::pair< IntfPairKey, bool > >;
   Pairs wantedPairs( IntfId intf ) const;
   /** Until its clean-up. */
   bool live() const { return !cleanedUp_; }
   /** The list that the interface has been given; empty if none. */
   String aclNameOf( IntfId intf ) const;
   /** @} */

   /** @name Port-channel members that wait for the end of a pass */
   /** @{ */
   bool deferred( const IntfPairKey & pair ) const { return deferred_.has( pair ); }
   U32 deferredMembers() const { return deferred_.size(); }
   std::vector< IntfId > deferredPorts() const;
   void updateAclOnLagMember( IntfId member );
   /** The list is gone. */
   void deferredDelOf( const String & aclName );
   /** @} */

   /** @name Pairs that wait until the block of their interface has taken hold */
   /** @{ */
   const KeySet< IntfPairKey > & intfAddWaitForBlocked() const { return addWait_; }
   const KeySet< IntfPairKey > & intfRemovalWaitForBlocked() const { return removalWait_; }
   void intfAddWaitForBlockedIs( const IntfPairKey & pair ) { addWait_.emplace( pair ); }
   void intfRemovalWaitForBlockedIs( const IntfPairKey & pair ) { removalWait_.emplace( pair ); }
   /** The block is there, or does not matter any more. */
   void waitForBlockedDel( IntfId intf );
   bool blockPending( const IntfPairKey & pair ) const {
      return addWait_.has( pair ) || removalWait_.has( pair );
   }
   /** @} */

   AclSwitchportModeConfigSm * aclSwitchportModeConfigSm( IntfId intf ) const {
      return modes_.sm( intf );
   }
   void reviewMode( IntfId intf );
   /** The mode has changed from `before`. True if the lists were applied anew under it. */
   bool switchportModeChanged( IntfId intf, Bridging::SwitchportMode before,
                               Bridging::SwitchportMode now );

   void handleIntf( const IntfId & intf );

 private:
   struct Held {
      String name;
      Pairs pairs;
   };

   void namingIs( IntfId intf, const String & before, const String & now );
   void pairsDel( const Held & before, const String & name, const Pairs & wanted );
   void pairsAdd( const String & name, const Pairs & wanted );
   void applyAnew( IntfId intf );

   Velto::Ptr< AclSwitchportModeConfigSm >
   makeMode( const IntfId & intf, const Velto::Ptr< const Bridging::SwitchIntfConfig > & config );
   void cleanUpMode( const IntfId &, AclSwitchportModeConfigSm * ) {}

   AclSm * aclSm_;
   const Acl::AclType type_;
   const Velto::Ptr< const Acl::DirectionIntfConfig > config_;
   const Velto::Ptr< AclNumbers > numbers_;
   bool cleanedUp_ = false;
   Kiv::DenseMap< IntfId, Held > held_;
   Kiv::DenseMap< String, KeySet< IntfId > > naming_;
   KeySet< IntfPairKey > deferred_;
   KeySet< IntfPairKey > addWait_, removalWait_;
   SmCollection< IntfId, Velto::Ptr< const Bridging::SwitchIntfConfig >, AclSwitchportModeConfigSm,
                 AclDirectionTypeConfigSm, &AclDirectionTypeConfigSm::makeMode,
                 &AclDirectionTypeConfigSm::cleanUpMode >
         modes_{ this };
   Kiv::Watch< Acl::DirectionIntfConfig::intfAttr, AclDirectionTypeConfigSm,
               &AclDirectionTypeConfigSm::handleIntf >
         intfWatch_;
};

} // namespace Qon
