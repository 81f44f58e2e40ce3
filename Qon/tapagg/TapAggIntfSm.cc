// What tap ports and tool ports have in common.

#include <algorithm>

#include "Qon/tapagg/TapAggTrace.h"

namespace Qon {

bool
TapAggHwPort::isIn( U32 group ) const {
   return std::binary_search( groups_.begin(), groups_.end(), group );
}

TapAggHelper *
TapAggIntfSm::helper() const {
   return root_->in_.helper.ptr();
}

void
TapAggIntfSm::handleInitialized() {
   if ( initialized() ) {
      attach();
   }
}

bool
TapAggIntfSm::counts() const {
   if ( root_->lagView().lagOf( intf_ ) ) {
      QON_TRACE( tapAggFacility, 3, intf_, " Intf part of lag - return" ); // fixed text
      return false;
   }
   return true;
}

void
TapAggIntfSm::changed() {
   if ( counts() ) {
      root_->askPort( role_, intf_ );
   }
}

TapAggReason
TapAggIntfSm::reason() const {
   if ( !root_->active() ) {
      return TapAggReason::mode;
   }
   if ( root_->lagView().lagOf( intf_ ) ) {
      return TapAggReason::lagMember;
   }
   if ( names_.empty() ) {
      return TapAggReason::noGroups;
   }
   for ( const String & name : names_ ) {
      if ( root_->groupIdOf( name ) == 0 ) {
         return TapAggReason::pending;
      }
   }
   return active() ? TapAggReason::none : TapAggReason::inactive;
}

// --- Set-up and the way back ---------------------------------------------------------------------

void
TapAggIntfSm::review() {
   if ( !root_->serves( *this ) ) {
      takeBack();
      return;
   }
   const TapAggNames wanted = wantedNames();
   useNames( wanted );
   if ( !hw_.told_ ) {
      hw_.isLag_ = root_->lagView().role( intf_ ) == LagRole::aggregate;
      configurePort( true );
      hw_.told_ = true;
   }
   reviewSettings( true );
   reviewGroups( wanted );
   if ( names_.size() != wanted.size() ) { // all that are wanted are among them
      leaveNames( wanted );
   }
   if ( !hw_.initialized_ ) {
      hw_.initialized_ = true;
      root_->initedCountInc( *this, 1 );
   }
}

void
TapAggIntfSm::takeBack() {
   removeGroups();
   if ( hw_.told_ ) {
      reviewSettings( false );
      configurePort( false );
      hw_.told_ = false;
   }
   forget();
}

void
TapAggIntfSm::forget() {
   leaveNames( {} );
   hw_.told_ = false;
   hw_.groups_.clear();
   hw_.members_.clear();
   forgetSettings();
   if ( std::exchange( hw_.initialized_, false ) ) {
      root_->initedCountInc( *this, -1 );
   }
}

// --- Groups --------------------------------------------------------------------------------------

/** Those that are new come to those that there are. */
void
TapAggIntfSm::useNames( const TapAggNames & wanted ) {
   for ( const String & name : wanted ) {
      auto at = std::lower_bound( names_.begin(), names_.end(), name );
      if ( at == names_.end() || *at != name ) {
         names_.insert( at, name );
         root_->useIs( name, *this, true );
      }
   }
}

void
TapAggIntfSm::leaveNames( const TapAggNames & wanted ) {
   std::erase_if( names_, [&]( const String & name ) {
      const bool gone = !std::binary_search( wanted.begin(), wanted.end(), name );
      if ( gone ) {
         root_->useIs( name, *this, false );
      }
      return gone;
   } );
}

void
TapAggIntfSm::noteGroup( U32 group ) const {
   root_->noteGroup( group, intf_ );
}

void
TapAggIntfSm::leftGroup() const {
   root_->scheduleGroupCleanup();
}

// --- Verification --------------------------------------------------------------------------------

void
TapAggIntfSm::expect( bool holds, const String & what ) const {
   if ( !holds ) {
      QON_FINDING( root_->in_.verifyData, "Tap aggregation, " + Kiv::toText( role_ ) + " port " +
                                                intf_.stringValue() + ": " + what + "\n" );
   }
}

void
TapAggIntfSm::verifyAbsent() const {
   expect( verifyPort( false ), "the chip has it, and should not" );
}

void
TapAggIntfSm::verify() const {
   expect( verifyPort( true ), "the chip has it not" );
   verifySettings();
   for ( U32 group : hw_.groups_ ) {
      expect( verifyGroup( group ), "it is not in group " + Kiv::toText( group ) );
   }
}

} // namespace Qon
