#pragma once
// Policy maps of tap aggregation, as far as they need groups of the hardware.
//
//    TapAgg::PolicyMapConfig -> TapAggSm --1:n--> TapAggPolicyMapSm --1:n--> TapAggClassMapSm
//                                        --1:n--> TapAggServicePolicySm
//
// Invariants
// 1. While a class exists and the mode is on, it uses the group of its names, joined.
// 2. What a policy map does to frames is the business of whoever programs it; it finds the ids here.
//
// Ownership: TapAggSm owns the maps and the service policies, a map owns its classes; they point back
// without counting.

#include "Qon/include/framework/QonBaseSm.h"
#include "Qon/include/framework/SmCollection.h"
#include "Qon/include/tapagg/TapAggRecords.h"

namespace Qon {

class TapAggSm;
class TapAggPolicyMapSm;

class TapAggClassMapSm : public QonBaseSm {
 public:
   using Config = TapAgg::ClassMapConfig;
   TapAggClassMapSm( TapAggSm * root, TapAggClassKey key, Velto::Ptr< const Config > config );

   const TapAggClassKey & key() const { return key_; }
   const Config * config() const { return config_.ptr(); }
   /** The group that it uses; empty: none. */
   const String & groupName() const { return groupName_; }
   /** Its id; 0: there is none. */
   U32 groupId() const { return groupId_; }

   void handleInitialized() override;
   void handleGroups();

 private:
   friend class TapAggPolicyMapSm;
   /** Uses what is wanted now; nothing if the class, or the mode, is not there. */
   void review( bool wanted );

   TapAggSm * const root_;
   const TapAggClassKey key_;
   const Velto::Ptr< const Config > config_;
   String groupName_;
   U32 groupId_ = 0;
   Kiv::Watch< Config::groupsAttr, TapAggClassMapSm, &TapAggClassMapSm::handleGroups > groupsWatch_;
};

class TapAggPolicyMapSm : public QonBaseSm {
 public:
   using Config = TapAgg::PolicyMap;
   TapAggPolicyMapSm( TapAggSm * root, String name, Velto::Ptr< const Config > config );

   const String & name() const { return name_; }
   const Config * config() const { return config_.ptr(); }
   /** Null if there is none. */
   TapAggClassMapSm * classMapSm( const String & name ) const { return classMaps_.sm( name ); }
   std::vector< String > classMaps() const { return classMaps_.heldKeys(); }

   void handleInitialized() override;
   void kivDoZombieReactors() override;
   void handleClassMap( const String & name );

 private:
   friend class TapAggSm;
   void reviewClass( const String & name );
   void removeAll() { classMaps_.removeAll(); }
   void reviewAll();

   Velto::Ptr< TapAggClassMapSm >
   makeClassMap( const String & name, const Velto::Ptr< const TapAgg::ClassMapConfig > & config );
   void cleanUpClassMap( const String & name, TapAggClassMapSm * sm );

   TapAggSm * const root_;
   const String name_;
   const Velto::Ptr< const Config > config_;
   SmCollection< String, Velto::Ptr< const TapAgg::ClassMapConfig >, TapAggClassMapSm,
                 TapAggPolicyMapSm, &TapAggPolicyMapSm::makeClassMap,
                 &TapAggPolicyMapSm::cleanUpClassMap >
         classMaps_;
   Kiv::Watch< Config::classMapAttr, TapAggPolicyMapSm, &TapAggPolicyMapSm::handleClassMap >
         classMapWatch_;
};

/** The policy map of one tap port. */
class TapAggServicePolicySm : public QonBaseSm {
 public:
   using Config = TapAgg::ServicePolicy;
   TapAggServicePolicySm( TapAggSm * root, Velto::Ptr< const Config > config );

   Ulnet::IntfId intf() const { return config_->intf(); }
   /** What is attached to the port; null: nothing, or what is not there. */
   TapAggPolicyMapSm * policyMapSm() const;

 private:
   TapAggSm * const root_;
   const Velto::Ptr< const Config > config_;
};

} // namespace Qon
