#pragma once
// One instance of a named list: the interfaces that it shall be applied to, what of that is in
// hardware, and the steps of a pass that bring the one to the other.
//
//    AclConfigSm -> pairIs( pair ), pairDel( pair ), dirtyIs()      what is wanted
//                         |
//                  AclSm::changed( this ) -> a pass:
//       doBlockTraffic, removeUses, uninstallAcl -> prepareAcl -> commitAcl, addUses -> doUnblockTraffic
//       a unit fails: a pass of its own brings back the rules that were in force before, or nothing
//
// Invariants
// 1. data()->activeIntfs() is the number of pairs, of those with hosts alone, too.
// 2. It holds a number from the first prepareAcl() that got one until the uninstall that follows its
//    end is done; never longer.
// 3. At most one operation of it is under way.
// 4. What comes while a pass works on it is left to the next pass.
// 5. What has failed is tried again when its rules, its interfaces or its mirror sessions change, when
//    hardware has more room, and when somebody forces it; not otherwise. status() says of the rules
//    that are configured, and not of those that were brought back in their place.
//
// Ownership: counted by AclConfigSm while the list is there, by AclSm while something is to be done.
// Counts its numbers, so that they outlive the direction.

#include <vector>

#include "Qon/include/acl/AclHelper.h"
#include "Qon/include/framework/Reconcile.h"
#include "platform/Kiv/Time.h"

namespace Qon {

class AclSm;
class AclDataSm;

/** Follows what the hardware tells of one instance. */
class AclDataStatusSm : public QonBaseSm {
 public:
   AclDataStatusSm( AclDataSm * dataSm, Velto::Ptr< AclDataStatus > status );
   void handleInitialized() override;
   void handleUnitError( const String & unit );
   /** Says what became of the instance on a unit. */
   void doSetHwStatus( const String & unit, AclCreateError error ) const;
   /** When the unit, which fails, has answered last, in the order of all answers. */
   U64 resultAt( const String & unit ) const;
   /** Since when it fails with the error that it has now. */
   Kiv::Seconds since( const String & unit ) const;
   void answered( const String & unit, AclCreateError error );

 private:
   struct Failure {
      AclCreateError error = AclCreateError::success;
      U64 at = 0;
      Kiv::Seconds since = 0;
   };

   AclDataSm * dataSm_;
   const Velto::Ptr< AclDataStatus > status_;
   Kiv::Watch< AclDataStatus::unitErrorAttr, AclDataStatusSm, &AclDataStatusSm::handleUnitError >
         unitErrorWatch_;
   Kiv::DenseMap< String, Failure > failures_;
};

class AclDataSm : public QonBaseSm {
 public:
   AclDataSm( AclSm * aclSm, Acl::AclType type, const String & aclName, const AclKey & key,
              Velto::Ptr< AclNumbers > numbers );
   ~AclDataSm() override;
   void kivDoZombieReactors() override;

   Acl::AclType type() const { return acl_.type; }
   const String & aclName() const { return acl_.aclName; }
   const AclKey & key() const { return acl_.key; }
   AclData * data() const { return data_.ptr(); }
   AclDataStatus * status() const { return status_.ptr(); }
   AclDataStatusSm * statusSm() const { return statusSm_.ptr(); }
   const Velto::Ptr< AclNumbers > & numbers() const { return numbers_; }
   AclSm * aclSm() const { return aclSm_; }

   /** @name What is wanted */
   /** @{ */
   /** The instance is applied to the pair; `members` are those of the port-channel that carries the
       sub-interface of the pair, else empty. True if the pair is new. */
   bool pairIs( const IntfPairKey & pair, const std::vector< Ulnet::IntfId > & members );
   /** False if it was not. */
   bool pairDel( const IntfPairKey & pair );
   bool pairHas( const IntfPairKey & pair ) const;
   /** A single host of a port has the list, or no longer; once for the port and once for its
       port-channel. */
   void hostIs( Ulnet::IntfId port, const Ulnet::EthAddr & host, bool active );
   /** The rules may have changed. */
   void rulesChanged();
   /** A mirror session has changed. True if rules of the instance name it. */
   bool mirrorSessionChanged( const String & session );
   /** Its list is gone: nothing is wanted of it any more. */
   void retire();
   /** @} */

   /** @name What is in hardware */
   /** @{ */
   /** The rules that decide now; null if it decides on nothing. */
   const AclRuleSet * committedRules() const { return committed_ ? acl_.rules.ptr() : nullptr; }
   /** The rules that are configured were refused: others are in force, or none. */
   bool failed() const { return failed_; }
   /** When that began. */
   Kiv::Seconds failedSince() const { return failedSince_; }
   /** The interfaces that are wanted, and not there yet. */
   template< class Act >
   void forEachJoining( Act && act ) const {
      for ( auto && [use, state] : uses_ ) {
         if ( state.wanted && !state.applied ) {
            act( use.pair().intfId() );
         }
      }
   }
   /** Some unit says that it fails, and somebody wants it. */
   bool failing() const { return hasErrors() && !unwanted(); }
   bool hasErrors() const;
   /** The interfaces that it is to be applied to. */
   KeySet< Ulnet::IntfId > intfs() const;
   bool inHardware() const { return inHardware_; }
   bool applied( const AclIntfUse & use ) const {
      const Use * state = uses_.find( use );
      return state && state->applied;
   }
   /** A pass works on it. */
   bool busy() const { return busy_; }
   /** It waits until a number of its direction is given back. */
   bool waitsForNumber() const { return waitsForNumber_; }
   U64 operation() const { return acl_.operation; }
   /** @} */

   /** @name The steps of a pass, in this order. Those that an instance does not need do nothing. */
   /** @{ */
   /** Takes up what has changed. True if it is to be made anew, or given up. */
   bool begin();
   void doBlockTraffic();
   /** Off the interfaces that it leaves, if it stays as it is otherwise. */
   void removeUses();
   void uninstallAcl();
   void prepareAcl();
   void commitAcl();
   /** On the interfaces that it joins. */
   void addUses();
   void doUnblockTraffic();
   void end();
   /** The chip's answers. */
   void uninstallDone();
   void prepareDone( const AclUnitResults & results );
   /** What has become of it since: what the units say of rules that are configured. */
   void unitsReport( const AclUnitResults & results );
   /** @} */

   /** Nothing wants it: it goes when it is out of hardware. */
   bool unwanted() const {
      return retired_ || ( plain_ == 0 && carried_.empty() && hosts_.empty() );
   }
   bool isUninstalling() const { return uninstalling_; }
   /** Whether this pass makes it anew. */
   bool remade() const { return remake_ && !unwanted() && !( reverting_ && !revertTo_ ); }
   /** Whether this pass makes it anew, or gives it up. */
   bool changedWhole() const { return remake_; }
   /** Whether the next pass looks at it; told by AclSm. */
   bool noted() const { return noted_; }
   void notedIs( bool noted ) { noted_ = noted; }
   /** Made anew in the next pass, whatever has changed. */
   void forceIs() { force_ = true; }
   /** The next pass takes it to interfaces, or off them, and leaves it as it is otherwise. */
   bool onlyIntfsChange() const;
   /** onlyIntfsChange(), and no interface needs a block meanwhile: it takes no pass. */
   bool needsNoPass() const;
   /** Takes it to the interfaces at once, and off them. */
   void applyTouched();
   /** Tried again in the next pass: there is more room. */
   void retryIs();
   /** Whether the next pass is to bring back what was in force before. */
   bool revertWanted() const { return revert_; }
   /** Whether this pass has found that so. */
   bool willRevert() const;
   bool waitsForBlock( const class AclDirectionTypeConfigSm & direction ) const;
   bool blocks() const { return !blocks_.empty(); }
   /** A hook raised: what is in hardware is not known, and it is made anew. True the first time. */
   bool raised();
   /** Its pairs that are not in hardware, though wanted. */
   std::vector< IntfPairKey > pairsToAdd() const;
   /** Out of hardware, without waiting for an answer. */
   void uninstallNow();
   /** The root is gone. */
   void orphan() { aclSm_ = nullptr; }
   String checkInvariants() const;

   /** "edge( 0, in, default )" */
   String shown() const;

 private:
   /** One place in hardware: whether it is wanted there, and whether it is. */
   struct Use {
      bool wanted = false, applied = false;
      bool touched = false; // to be looked at in the next pass
      bool again = false;   // applied, left, and perhaps joined again
      bool leaving = false; // as the pass found it when it began: who leaves later was not blocked
      bool needed() const { return wanted || applied || touched; }
      bool leaves() const { return applied && leaving; }
      bool joins() const { return wanted && !applied; }
   };

   bool useIs( const AclIntfUse & use, bool active );
   void useDone( const AclIntfUse & use, const Use & state );
   void takeRound();
   void nothingApplied();
   KeySet< IntfPairKey > pairs() const;
   U32 pairCount() const;
   void hostsChanged( const AclIntfUse & use, bool active );
   void countMember( Ulnet::IntfId member, bool joins );
   void block( const IntfPairKey & pair );
   void tellUse( const AclOperation & acl, const AclIntfUse & use, Use & state, bool active );
   void record( const AclUnitResults & results );
   void resultsAre( const AclUnitResults & results );
   void resultKnown( bool willRevert );
   bool handsOver( Ulnet::IntfId intf );
   class AclConfigSm * configured() const;
   bool takeNumber();
   Velto::Ptr< const AclRuleSet > hardwareRules( const Velto::Ptr< const AclRuleSet > & source );

   AclSm * aclSm_;
   AclOperation acl_; // the last one; with the rules that were prepared last, as hardware got them
   const Velto::Ptr< AclNumbers > numbers_;
   const Velto::Ptr< AclData > data_;
   const Velto::Ptr< AclDataStatus > status_;
   Velto::Ptr< AclDataStatusSm > statusSm_;

   U32 plain_ = 0; // pairs that are wanted as such
   // Sub-interfaces that a port-channel carries, wanted at its members.
   Kiv::DenseMap< IntfPairKey, std::vector< Ulnet::IntfId > > carried_;
   Kiv::DenseMap< Ulnet::IntfId, U32 > members_; // how many sub-interfaces each carries
   Kiv::DenseMap< AclIntfUse, U32 > hosts_;      // how many times
   Kiv::DenseMap< AclIntfUse, Use > uses_;       // in the order in which they came to be wanted
   std::vector< AclIntfUse > touched_, round_;   // for the next pass, and of this one
   std::vector< Ulnet::IntfId > blocks_;

   Velto::Ptr< const AclRuleSet > source_;   // what the rules that were prepared last were made of
   Velto::Ptr< const AclRuleSet > good_;     // that were configured when it was in force last
   Velto::Ptr< const AclRuleSet > revertTo_; // null: nothing is brought back
   Velto::Ptr< const AclRuleSet > tried_;    // that have failed
   Velto::Ptr< const AclRuleSet > logWarned_;
   bool retired_ = false;
   bool busy_ = false;
   bool noted_ = false;
   bool remake_ = false; // in this pass
   bool inHardware_ = false;
   bool prepared_ = false;
   bool committed_ = false;
   bool uninstalling_ = false;
   bool waitsForNumber_ = false;
   bool force_ = false, retry_ = false, sessions_ = false;
   bool failed_ = false;
   Kiv::Seconds failedSince_ = 0;
   bool revert_ = false;                     // with the next pass
   bool reverting_ = false;                  // in this pass
   bool makesRoom_ = false;                  // in this pass, for others
   bool raised_ = false, raisedNow_ = false; // in the pass before, and since
};

} // namespace Qon
