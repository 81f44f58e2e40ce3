// Tool ports: their settings, their groups, and the members of port-channels in them.

#include "Qon/tapagg/TapAggTrace.h"

namespace Qon {

using Bridging::Input::ToolIdentityMode;
using Ulnet::IntfId;

TapAggToolSm::TapAggToolSm( TapAggSm * root, Velto::Ptr< const Config > config )
    : TapAggIntfSm( root, config->intf(), TapAggRole::tool ), config_( std::move( config ) ) {}

void
TapAggToolSm::attach() {
   groupWatch_.attach( this, config_.ptr() );
#define ATTACH( Type, name, Handler, Configured, hook ) name##Watch_.attach( this, config_.ptr() );
   QON_TOOL_SETTINGS( ATTACH )
#undef ATTACH
}

void
TapAggToolSm::handleToolGroupMembership( const String & ) {
   if ( counts() ) {
      root_->handleToolGroupMembership( intf() );
   }
}

// --- How the chip is told ------------------------------------------------------------------------

void
TapAggToolSm::configureToolPort( bool enable ) {
   QON_HOOK( TapAggHelper, helper(), toolPortIs, intf(), enable, hw_.isLag() );
}

void
TapAggToolSm::configureTruncationSize( U32 size ) {
   QON_HOOK( TapAggHelper, helper(), toolTruncationSizeIs, intf(), size );
}

void
TapAggToolSm::configureToolIdentityTagging( ToolIdentityMode mode ) {
   QON_HOOK( TapAggHelper, helper(), taggingOnEgressIs, intf(), mode );
}

void
TapAggToolSm::configureToolDot1qRemove( U8 tags ) {
   QON_HOOK( TapAggHelper, helper(), toolDot1qRemoveIs, intf(), tags );
}

void
TapAggToolSm::configureToolBrStrip( bool strip ) {
   QON_HOOK( TapAggHelper, helper(), toolBrStripIs, intf(), strip );
}

void
TapAggToolSm::configureToolVnStrip( bool strip ) {
   QON_HOOK( TapAggHelper, helper(), toolVnStripIs, intf(), strip );
}

void
TapAggToolSm::configureToolMplsPop( bool pop ) {
   QON_HOOK( TapAggHelper, helper(), toolMplsPopIs, intf(), pop );
}

// --- Settings ------------------------------------------------------------------------------------

TapAggToolSm::Settings
TapAggToolSm::wantedSettings() const {
   Settings want;
#define WANT( Type, name, Handler, Configured, hook ) want.name = config_->name();
   QON_TOOL_SETTINGS( WANT )
#undef WANT
   want.truncationSize = root_->bounded( want.truncationSize );
   return want;
}

#define APPLY( Type, name, Handler, Configured, hook )                                             \
   void TapAggToolSm::apply##Handler( const Settings & want ) {                                    \
      if ( !( applied_.name == want.name ) ) {                                                     \
         configure##Configured( want.name );                                                       \
         applied_.name = want.name;                                                                \
      }                                                                                            \
   }
QON_TOOL_SETTINGS( APPLY )
#undef APPLY

void
TapAggToolSm::reviewSettings( bool wanted ) {
#define APPLIER( Type, name, Handler, Configured, hook ) &TapAggToolSm::apply##Handler,
   static constexpr Apply appliers[] = { QON_TOOL_SETTINGS( APPLIER ) };
#undef APPLIER
   if ( wanted ) {
      const Settings want = wantedSettings();
      for ( auto apply = std::begin( appliers ); apply != std::end( appliers ); ++apply ) {
         ( this->**apply )( want );
      }
   } else {
      for ( auto apply = std::rbegin( appliers ); apply != std::rend( appliers ); ++apply ) {
         ( this->**apply )( Settings() );
      }
   }
}

// --- Its groups ----------------------------------------------------------------------------------

bool
TapAggToolSm::active() const {
   auto & status = *root_->in_.toolPortStatus;
   return !status.activeHas( intf() ) || status.active( intf() );
}

KeySet< String >
TapAggToolSm::wantedNames() const {
   return keysOf< String >( config_->groupIteratorConst() );
}

/** Those of its names, and those that join one of them, as far as they have an id. A tool port that
    is not active keeps its groups, and is in none. */
KeySet< U32 >
TapAggToolSm::wantedGroups() const {
   KeySet< U32 > ids;
   for ( auto && entry : wantedNames() ) {
      if ( const U32 id = root_->groupFor( entry.key ); id && active() ) {
         ids.emplace( id );
      }
      for ( const String & join : root_->users().joinsOf( entry.key ) ) {
         if ( const U32 id = root_->groupIdOf( join ); id && active() ) {
            ids.emplace( id );
         }
      }
   }
   return ids;
}

/** Frames go on coming: it enters a group before it leaves another. */
void
TapAggToolSm::reviewGroups() {
   const KeySet< U32 > wanted = wantedGroups();
   for ( auto && entry : wanted ) {
      if ( !hw_.groups_.has( entry.key ) ) {
         QON_HOOK( TapAggHelper, helper(), addToolPortAssociation, intf(), entry.key );
         hw_.groups_.emplace( entry.key );
      }
      reviewMembers( entry.key, true );
      noteGroup( entry.key );
   }
   for ( U32 gone : differenceOf< U32 >( hw_.groups_, wanted ).gone ) {
      removeGroup( gone );
   }
}

void
TapAggToolSm::reviewMembers( U32 group, bool wanted ) {
   std::vector< IntfId > members;
   if ( wanted && hw_.isLag() ) {
      members = root_->lagView().membersOf( intf() );
   }
   auto tell = [&]( IntfId member, bool add ) {
      QON_HOOK( TapAggHelper, helper(), updateToolInterfaceLagMembership, intf(), member, group,
                add );
      auto told = hw_.groups_.find( group );
      add ? void( told->emplace( member ) ) : void( told->erase( member ) );
   };
   reconcile< IntfId >(
         *hw_.groups_.find( group ), members, [&]( IntfId member ) { tell( member, false ); },
         [&]( IntfId member ) { tell( member, true ); } );
}

void
TapAggToolSm::removeGroup( U32 group ) {
   reviewMembers( group, false );
   QON_HOOK( TapAggHelper, helper(), removeToolPortAssociation, intf(), group );
   hw_.groups_.erase( group );
   leftGroup();
}

void
TapAggToolSm::removeGroups() {
   for ( auto && entry : keysOf< U32 >( hw_.groups_ ) ) {
      removeGroup( entry.key );
   }
}

// --- Verification --------------------------------------------------------------------------------

bool
TapAggToolSm::verifyPort( bool enabled ) const {
   return QON_HOOK( TapAggHelper, helper(), verifyToolPort, intf(), enabled, hw_.isLag() );
}

bool
TapAggToolSm::verifyGroup( U32 group ) const {
   return QON_HOOK( TapAggHelper, helper(), verifyToolPortAssociation, intf(), group );
}

void
TapAggToolSm::verifySettings() const {
   auto & is = applied_;
   expect( QON_HOOK( TapAggHelper, helper(), verifyToolTruncationSize, intf(), is.truncationSize ),
           "its truncation is not " + Kiv::toText( is.truncationSize ) );
   expect( QON_HOOK( TapAggHelper, helper(), verifyTaggingOnEgress, intf(), is.identityTagging ),
           "its tagging is not " + Kiv::toText( is.identityTagging ) );
   expect( QON_HOOK( TapAggHelper, helper(), verifyToolBrStrip, intf(), is.brStrip ),
           "its stripping of bridge extension tags" );
   expect( QON_HOOK( TapAggHelper, helper(), verifyToolVnStrip, intf(), is.vnStrip ),
           "its stripping of network interface tags" );
   expect( QON_HOOK( TapAggHelper, helper(), verifyToolMplsPop, intf(), is.mplsPop ),
           "its popping of labels" );
}

} // namespace Qon
