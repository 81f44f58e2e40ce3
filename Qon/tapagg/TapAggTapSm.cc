// Tap ports: their settings, and the one group that their frames go to.

#include "Qon/tapagg/TapAggTrace.h"

namespace Qon {

TapAggTapSm::TapAggTapSm( TapAggSm * root, Velto::Ptr< const Config > config )
    : TapAggIntfSm( root, config->intf(), TapAggRole::tap ), config_( std::move( config ) ) {}

void
TapAggTapSm::attach() {
   configWatch_.attach( this, config_.ptr(), heard, this );
}

void
TapAggTapSm::heard( void * self, const Kiv::Entity &, int attribute, const void * key ) {
   auto sm = static_cast< TapAggTapSm * >( self );
   switch ( attribute ) {
   case Config::groupsAttr::index:
      return sm->handleGroups();
   case Config::greStripForEpAttr::index:
      return sm->handleTapGreStripForEp( *static_cast< const Ulnet::IpGenAddr * >( key ) );
#define HEARD( Type, name, Handler, Configured, hook )                                             \
   case Config::name##Attr::index:                                                                 \
      return sm->handle##Handler();
      QON_TAP_SETTINGS( HEARD )
#undef HEARD
   }
}

// --- How the chip is told ------------------------------------------------------------------------

void
TapAggTapSm::configureTapPort( bool enable ) {
   QON_HOOK( TapAggHelper, helper(), tapPortIs, intf(), enable, hw_.isLag() );
}

void
TapAggTapSm::configureTruncationSize( U32 size ) {
   QON_HOOK( TapAggHelper, helper(), tapTruncationSizeIs, intf(), size );
}

void
TapAggTapSm::configureTapIdentity( const Bridging::IdentityTuple & identity ) {
   QON_HOOK( TapAggHelper, helper(), identityTagIs, intf(), identity );
}

void
TapAggTapSm::configureTapMacAddress( Ulnet::EthAddr address ) {
   QON_HOOK( TapAggHelper, helper(), tapMacAddressIs, intf(), address );
}

void
TapAggTapSm::configureTapHeaderRemove( U32 size ) {
   QON_HOOK( TapAggHelper, helper(), tapHeaderRemoveIs, intf(), size );
}

void
TapAggTapSm::configureTapGreStrip( bool strip ) {
   QON_HOOK( TapAggHelper, helper(), tapGreStripIs, intf(), strip );
}

void
TapAggTapSm::configureTapGreStripForEp( const Ulnet::IpGenAddr & endpoint, bool strip ) {
   QON_HOOK( TapAggHelper, helper(), tapGreStripForEpIs, intf(), endpoint, strip );
}

void
TapAggTapSm::configureTapVxlanStrip( bool strip ) {
   QON_HOOK( TapAggHelper, helper(), tapVxlanStripIs, intf(), strip );
}

void
TapAggTapSm::configureTapMplsPop( bool pop ) {
   QON_HOOK( TapAggHelper, helper(), tapMplsPopIs, intf(), pop );
}

// --- Settings ------------------------------------------------------------------------------------

TapAggTapSm::Settings
TapAggTapSm::wantedSettings() const {
   Settings want;
   if ( root_->tapAggConfig()->tapRawIntf( intf() ) ) {
      return want;
   }
#define WANT( Type, name, Handler, Configured, hook ) want.name = config_->name();
   QON_TAP_SETTINGS( WANT )
#undef WANT
   want.truncationSize = root_->bounded( want.truncationSize );
   for ( auto && [endpoint, strip] : config_->greStripForEpIteratorConst() ) {
      if ( strip ) {
         want.greStripForEp.emplace( endpoint );
      }
   }
   return want;
}

#define APPLY( Type, name, Handler, Configured, hook )                                             \
   void TapAggTapSm::apply##Handler( const Settings & want ) {                                     \
      if ( !( applied_.name == want.name ) ) {                                                     \
         configure##Configured( want.name );                                                       \
         applied_.name = want.name;                                                                \
      }                                                                                            \
   }
QON_TAP_SETTINGS( APPLY )
#undef APPLY

void
TapAggTapSm::applyTapGreStripForEp( const Settings & want ) {
   reconcile< Ulnet::IpGenAddr >(
         applied_.greStripForEp, want.greStripForEp,
         [&]( const Ulnet::IpGenAddr & endpoint ) {
            configureTapGreStripForEp( endpoint, false );
            applied_.greStripForEp.erase( endpoint );
         },
         [&]( const Ulnet::IpGenAddr & endpoint ) {
            configureTapGreStripForEp( endpoint, true );
            applied_.greStripForEp.emplace( endpoint );
         } );
}

void
TapAggTapSm::reviewSettings( bool wanted ) {
#define APPLIER( Type, name, Handler, Configured, hook ) &TapAggTapSm::apply##Handler,
   static constexpr Apply appliers[] = { QON_TAP_SETTINGS( APPLIER ) &
                                         TapAggTapSm::applyTapGreStripForEp };
#undef APPLIER
   applySettings( *this, appliers, wanted ? wantedSettings() : Settings(), !wanted );
}

// --- Its group -----------------------------------------------------------------------------------

TapAggNames
TapAggTapSm::wantedNames() const {
   return config_->groups().empty() ? TapAggNames()
                                    : TapAggNames{ config_->groups().stringValue() };
}

/** Another group comes over the one before. */
void
TapAggTapSm::reviewGroups( const TapAggNames & wanted ) {
   const U32 id = wanted.empty() ? 0 : root_->groupFor( wanted.front() );
   if ( id == 0 ) {
      removeGroups();
      return;
   }
   if ( id != hw_.group() ) {
      const bool had = hw_.group() != 0;
      QON_HOOK( TapAggHelper, helper(), addTapPortAssociation, intf(), id );
      hw_.groups_ = { id };
      if ( had ) {
         leftGroup();
      }
   }
   noteGroup( id );
}

void
TapAggTapSm::removeGroups() {
   if ( hw_.group() ) {
      QON_HOOK( TapAggHelper, helper(), removeTapPortAssociation, intf() );
      hw_.groups_.clear();
      leftGroup();
   }
}

// --- Verification --------------------------------------------------------------------------------

bool
TapAggTapSm::verifyPort( bool enabled ) const {
   return QON_HOOK( TapAggHelper, helper(), verifyTapPort, intf(), enabled, hw_.isLag() );
}

bool
TapAggTapSm::verifyGroup( U32 group ) const {
   return QON_HOOK( TapAggHelper, helper(), verifyTapPortAssociation, intf(), group );
}

void
TapAggTapSm::verifySettings() const {
   expect( QON_HOOK( TapAggHelper, helper(), verifyTapTruncationSize, intf(),
                     applied_.truncationSize ),
           "its truncation is not " + Kiv::toText( applied_.truncationSize ) );
   expect( QON_HOOK( TapAggHelper, helper(), verifyIdentityTag, intf(), applied_.identity ),
           "its identity is not " + Kiv::toText( applied_.identity ) );
}

} // namespace Qon
