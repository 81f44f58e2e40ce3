#include "Qon/include/acl/AclDataSm.h"

#include "Qon/acl/AclTrace.h"
#include "Qon/include/acl/QonAclSm.h"
#include "Qon/include/framework/HookTap.h"

namespace Qon {

using Ulnet::IntfId;

namespace {

bool
hasHost( const AclIntfUse & use ) {
   return !use.host().isZero();
}

} // namespace

AclDataSm::AclDataSm( AclSm * aclSm, Acl::AclType type, const String & aclName, const AclKey & key,
                      Velto::Ptr< AclNumbers > numbers )
    : aclSm_( aclSm ), acl_{ type, aclName, key, aclNumberNone, 0, nullptr },
      numbers_( std::move( numbers ) ), data_( Velto::make< AclData >( key ) ),
      status_( Velto::make< AclDataStatus >( key ) ),
      statusSm_( smIs< AclDataStatusSm >( this, status_ ) ) {
   statusSm_->initializedIs( true );
   aclSm_->instanceIs( this, true );
}

AclDataSm::~AclDataSm() {
   if ( aclSm_ ) {
      aclSm_->instanceIs( this, false );
   }
}

void
AclDataSm::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   statusSm_->kivDoZombieReactors();
}

// The steps of a pass

/** What was touched since the last pass. */
void
AclDataSm::takeRound() {
   round_.swap( touched_ );
   touched_.clear();
   for ( auto & use : round_ ) {
      Use & state = *uses_.find( use );
      state.touched = false;
      state.leaving = std::exchange( state.again, false ) || !state.wanted;
      useDone( use, state );
   }
}

/** Forgets a place that is of no interest any more. */
void
AclDataSm::useDone( const AclIntfUse & use, const Use & state ) {
   if ( !state.needed() ) {
      uses_.erase( use );
   }
}

void
AclDataSm::nothingApplied() {
   for ( auto && [use, state] : uses_ ) {
      state.applied = false;
      useDone( use, state );
   }
}

bool
AclDataSm::begin() {
   busy_ = true;
   takeRound();
   const bool revert = std::exchange( revert_, false ), retry = std::exchange( retry_, false );
   const bool force = std::exchange( force_, false ), sessions = std::exchange( sessions_, false );
   reverting_ = false;
   makesRoom_ = true;
   raised_ = std::exchange( raisedNow_, false );
   if ( unwanted() ) {
      remake_ = true;
      return true;
   }
   if ( failed_ ) {
      const bool anew =
            force || retry || sessions || configured()->ruleSet() != tried_ || !round_.empty();
      reverting_ = !anew && revert;
      remake_ = anew || reverting_;
      makesRoom_ = remake_ && !reverting_ && !retry;
   } else {
      remake_ = force || sessions || !committed_ ||
                ( data_->dirty() && configured()->ruleSet() != source_ );
   }
   if ( !remake_ ) {
      data_->dirtyIs( false ); // the rules are what they were
   }
   return remake_;
}

/** Its list, which is there as long as something is wanted of the instance. */
AclConfigSm *
AclDataSm::configured() const {
   AclTypeConfigSm * typeSm = aclSm_->aclTypeConfigSm( type() );
   VELTO_ASSERT( typeSm != NULL );
   AclConfigSm * configSm = typeSm->aclConfigSm( aclName() );
   VELTO_ASSERT( configSm != NULL );
   AclData * data = configSm->aclData( key() );
   VELTO_ASSERT( data != NULL ); // fixed texts
   return configSm;
}

/** Blocks the interface of the pair, if some list applies to it afterwards too. */
void
AclDataSm::block( const IntfPairKey & pair ) {
   const AclIntfSm * sm = aclSm_->aclIntfSm( pair.intfId() );
   auto direction = aclSm_->directionSm( type(), key().direction() );
   if ( !direction || !sm || !sm->active( type(), key().direction() ) ||
        sm->wantsToBlock( this ) ) {
      return;
   }
   blocks_.push_back( pair.intfId() );
   if ( aclSm_->blockIs( this, pair.intfId(), true ) ) {
      direction->intfRemovalWaitForBlockedIs( pair );
   }
}

/** Also those that join while what decides for them is left of a former life, and goes. */
void
AclDataSm::doBlockTraffic() {
   std::vector< IntfPairKey > pairs;
   const bool staleGoes = aclSm_->staleGoes();
   if ( remake_ ) {
      for ( auto && [use, state] : uses_ ) {
         if ( state.applied || ( state.wanted && staleGoes ) ) {
            pairs.push_back( use.pair() );
         }
      }
   } else {
      for ( auto & use : round_ ) {
         const Use * state = uses_.find( use );
         const bool listless =
               hasHost( use ) && !aclSm_->hostBound( type(), use.pair().intfId(), use.host() );
         const bool loses = state && ( state->leaves() || ( state->joins() && staleGoes ) );
         if ( loses && !listless ) {
            pairs.push_back( use.pair() );
         }
      }
   }
   for ( auto & pair : pairs ) {
      block( pair );
   }
}

/** Remembers, then tells. */
void
AclDataSm::tellUse( const AclOperation & acl, const AclIntfUse & use, Use & state, bool active ) {
   state.applied = active;
   useDone( use, state );
   if ( hasHost( use ) ) {
      const IntfId intf = use.pair().intfId();
      QON_HOOK( AclHelper, aclSm_->aclHelper(), perHostAclIs, acl, intf, use.host(), active );
   } else {
      QON_HOOK( AclHelper, aclSm_->aclHelper(), aclIntfIs, acl, use, active );
   }
}

void
AclDataSm::removeUses() {
   if ( remake_ ) {
      return;
   }
   Velto::FirstError error;
   for ( auto & use : round_ ) {
      Use * state = uses_.find( use );
      if ( state && state->leaves() ) {
         error.run( [&] { tellUse( acl_, use, *state, false ); } );
      }
   }
   error.pass();
}

void
AclDataSm::uninstallAcl() {
   if ( !remake_ ) {
      return;
   }
   committed_ = prepared_ = false;
   if ( !inHardware_ ) {
      uninstallDone();
      return;
   }
   acl_.operation = aclSm_->nextOperation();
   const U64 operation = acl_.operation;
   uninstalling_ = true;
   const bool async = aclSm_->aclHelper()->asyncAclConfig();
   if ( async ) {
      aclSm_->outstandingIs( this, operation );
   }
   try {
      const AclOperation acl = acl_;
      QON_HOOK( AclHelper, aclSm_->aclHelper(), uninstallAcl, acl );
   } catch ( ... ) {
      aclSm_->outstandingDel( operation );
      uninstalling_ = false;
      throw;
   }
   if ( !async && uninstalling_ ) {
      uninstallDone();
   }
}

void
AclDataSm::uninstallDone() {
   uninstalling_ = false;
   if ( std::exchange( inHardware_, false ) && makesRoom_ ) {
      aclSm_->roomMade();
   }
   nothingApplied();
   if ( !unwanted() ) {
      return;
   }
   waitsForNumber_ = false;
   if ( data_->aclNumber() != aclNumberNone ) {
      numbers_->push( data_->aclNumber() );
      aclSm_->numberFreed();
      acl_.aclNumber = aclNumberNone;
      data_->aclNumberIs( aclNumberNone );
   }
}

bool
AclDataSm::takeNumber() {
   auto direction = aclSm_->directionSm( type(), key().direction() );
   VELTO_ASSERT( direction && direction->numbers() == numbers_ );
   const AclCreateError result = direction->allocateAclNumber( aclName(), data() );
   waitsForNumber_ = result != AclCreateError::success;
   if ( waitsForNumber_ ) {
      record( { { "", result } } );
      data_->dirtyIs( false );
   }
   acl_.aclNumber = data_->aclNumber();
   return !waitsForNumber_;
}

void
AclDataSm::prepareAcl() {
   if ( !remake_ || unwanted() || inHardware_ || !takeNumber() ) {
      return;
   }
   source_ = reverting_ ? revertTo_ : configured()->ruleSet();
   acl_.rules = hardwareRules( source_ );
   if ( !reverting_ ) {
      status_->aclDataStateIs( AclDataState::inProgress );
   }
   acl_.operation = aclSm_->nextOperation();
   const U64 operation = acl_.operation;
   inHardware_ = true;
   const bool async = aclSm_->aclHelper()->asyncAclConfig();
   if ( async ) {
      aclSm_->outstandingIs( this, operation );
   }
   AclUnitResults results;
   try {
      const AclOperation acl = acl_;
      results = QON_HOOK( AclHelper, aclSm_->aclHelper(), prepareAcl, acl );
   } catch ( ... ) {
      aclSm_->outstandingDel( operation );
      throw;
   }
   if ( !async && operation == acl_.operation ) {
      prepareDone( results );
   }
}

void
AclDataSm::prepareDone( const AclUnitResults & results ) {
   prepared_ = true;
   for ( auto & result : results ) {
      prepared_ = prepared_ && result.error == AclCreateError::success;
   }
   resultsAre( results );
}

void
AclDataSm::commitAcl() {
   if ( !remake_ || !prepared_ || unwanted() || !inHardware_ ) {
      return;
   }
   Velto::FirstError error;
   std::vector< AclIntfUse > wanted;
   wanted.reserve( uses_.size() );
   for ( auto && [use, state] : uses_ ) {
      if ( state.wanted ) {
         wanted.push_back( use );
      }
   }
   const AclOperation acl = acl_;
   for ( auto & use : wanted ) {
      error.run( [&] { tellUse( acl, use, *uses_.emplace( use, Use() ).first, true ); } );
   }
   AclUnitResults results;
   error.run( [&] {
      results = QON_HOOK( AclHelper, aclSm_->aclHelper(), commitAcl, acl );
      committed_ = inHardware_ && !unwanted();
      for ( auto & result : results ) {
         committed_ = committed_ && result.error == AclCreateError::success;
      }
   } );
   if ( !results.empty() ) {
      error.run( [&] { resultsAre( results ); } );
   }
   error.pass();
}

void
AclDataSm::addUses() {
   if ( remake_ || !committed_ ) {
      return;
   }
   Velto::FirstError error;
   for ( auto & use : round_ ) {
      Use * state = uses_.find( use );
      if ( state && state->wanted && !state->applied ) {
         error.run( [&] { tellUse( acl_, use, *state, true ); } );
      }
   }
   error.pass();
}

/** An interface that the next pass gives to some instance stays blocked until then. */
bool
AclDataSm::handsOver( IntfId intf ) {
   if ( !aclSm_->joinsNext( *this, intf ) ) {
      return false;
   }
   aclSm_->nextIs( this );
   return true;
}

/** Whether its former rules are to be brought back. */
bool
AclDataSm::willRevert() const {
   return remake_ && !reverting_ && !committed_ && !waitsForNumber_ && failing() && good_ &&
          !( good_->rules() == source_->rules() );
}

/** Whoever leaves a port-channel may have a list of its own in a moment, and a host another one: that
    is looked at in a pass, which blocks them meanwhile. */
bool
AclDataSm::onlyIntfsChange() const {
   if ( !committed_ || failed_ || unwanted() || busy_ || force_ || retry_ || sessions_ || revert_ ||
        !blocks_.empty() || data_->dirty() ) {
      return false;
   }
   for ( auto & use : touched_ ) {
      const bool plain = !use.pair().lagIntf() && use.whole();
      const Use * state = plain ? nullptr : uses_.find( use );
      if ( state && state->applied && ( !state->wanted || state->again ) ) {
         return false;
      }
   }
   return true;
}

bool
AclDataSm::needsNoPass() const {
   for ( auto & use : touched_ ) {
      const Use & state = *uses_.find( use );
      if ( state.applied && ( state.wanted || aclSm_->intfActive( type(), key().direction(),
                                                                  use.pair().intfId() ) ) ) {
         return false;
      }
   }
   return true;
}

/** Off those that it leaves, before those that it joins. */
void
AclDataSm::applyTouched() {
   raised_ = std::exchange( raisedNow_, false );
   round_.swap( touched_ );
   touched_.clear();
   Velto::FirstError error;
   bool joins = false;
   for ( auto & use : round_ ) {
      if ( Use * state = uses_.find( use ) ) {
         state->touched = state->again = false;
         joins = joins || state->joins();
         if ( state->applied && !state->wanted ) {
            error.run( [&] { tellUse( acl_, use, *state, false ); } );
         } else {
            useDone( use, *state );
         }
      }
   }
   if ( joins ) {
      error.run( [&] { addUses(); } );
   }
   error.pass();
}

void
AclDataSm::doUnblockTraffic() {
   Velto::FirstError error;
   for ( IntfId intf : std::exchange( blocks_, {} ) ) {
      if ( handsOver( intf ) || !error.run( [&] { aclSm_->blockIs( this, intf, false ); } ) ) {
         blocks_.push_back( intf );
      }
   }
   error.pass();
}

void
AclDataSm::end() {
   const Velto::Hold alive( this );
   busy_ = false;
   round_.clear();
   const bool revert = willRevert();
   if ( std::exchange( remake_, false ) && !unwanted() && !raisedNow_ && !waitsForNumber_ ) {
      resultKnown( revert );
   }
   if ( !aclSm_ || !unwanted() || inHardware_ || data_->aclNumber() != aclNumberNone ) {
      return;
   }
   auto configSm = aclSm_->aclConfigSm( type(), aclName() );
   if ( configSm && configSm->aclDataSm( key() ) == this ) {
      configSm->aclDataDel( key() );
   }
}

bool
AclDataSm::raised() {
   committed_ = prepared_ = failed_ = false;
   raisedNow_ = true;
   return !raised_;
}

std::vector< IntfPairKey >
AclDataSm::pairsToAdd() const {
   std::vector< IntfPairKey > pairs;
   auto add = [&]( const AclIntfUse & use, const Use * state ) {
      if ( state && state->wanted && !state->applied ) {
         pairs.push_back( use.pair() );
      }
   };
   if ( remake_ ) {
      for ( auto && [use, state] : uses_ ) {
         add( use, &state );
      }
   } else {
      for ( auto & use : round_ ) {
         add( use, uses_.find( use ) );
      }
   }
   return pairs;
}

bool
AclDataSm::waitsForBlock( const AclDirectionTypeConfigSm & direction ) const {
   for ( auto && [use, state] : uses_ ) {
      if ( ( state.applied || state.wanted ) && direction.blockPending( use.pair() ) ) {
         return true;
      }
   }
   return false;
}

void
AclDataSm::uninstallNow() {
   committed_ = prepared_ = uninstalling_ = false;
   nothingApplied();
   blocks_ = {};
   if ( std::exchange( inHardware_, false ) ) {
      acl_.operation = aclSm_->nextOperation();
      const AclOperation acl = acl_;
      QON_HOOK( AclHelper, aclSm_->aclHelper(), uninstallAcl, acl );
   }
}

String
AclDataSm::shown() const {
   return aclName() + "( " + key().vlan().stringValue() + ", " + Kiv::toText( key().direction() ) +
          ", " + key().group() + " )";
}

String
AclDataSm::checkInvariants() const {
   if ( data_->activeIntfs() != pairCount() || plain_ + carried_.size() != pairs().size() ) {
      return "active interfaces of " + shown() + " are miscounted";
   }
   if ( data_->activeLagSubIntfMemberss() != members_.size() ) {
      return "members under sub-interfaces of " + shown() + " are miscounted";
   }
   if ( inHardware_ && data_->aclNumber() == aclNumberNone ) {
      return shown() + " is in hardware without a number";
   }
   if ( inHardware_ && acl_.aclNumber != data_->aclNumber() ) {
      return shown() + " is told to hooks by another number than its own";
   }
   const bool left = !blocks_.empty() && !revert_ && !noted_;
   if ( aclSm_->phase() == AclApplyPhase::done && ( busy_ || left ) ) {
      return shown() + " is left in the middle of a pass";
   }
   return {};
}

} // namespace Qon
