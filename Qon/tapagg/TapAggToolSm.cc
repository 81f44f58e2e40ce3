// Tool ports: their settings, their groups, and the members of port-channels in them.

#include <algorithm>

#include "Qon/tapagg/TapAggTrace.h"

namespace Qon {

using Bridging::Input::ToolIdentityMode;
using Ulnet::IntfId;

TapAggToolSm::TapAggToolSm( TapAggSm * root, Velto::Ptr< const Config > config )
    : TapAggIntfSm( root, config->intf(), TapAggRole::tool ), config_( std::move( config ) ) {}

void
TapAggToolSm::attach() {
   configWatch_.attach( this, config_.ptr(), heard, this );
}

void
TapAggToolSm::heard( void * self, const Kiv::Entity &, int attribute, const void * key ) {
   auto sm = static_cast< TapAggToolSm * >( self );
   switch ( attribute ) {
   case Config::groupAttr::index:
      return sm->handleToolGroupMembership( *static_cast< const String * >( key ) );
#define HEARD( Type, name, Handler, Configured, hook )                                             \
   case Config::name##Attr::index:                                                                 \
      return sm->handle##Handler();
      QON_TOOL_SETTINGS( HEARD )
#undef HEARD
   }
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
   const Settings want = wanted ? wantedSettings() : Settings();
   if ( !( want == applied_ ) ) {
      applySettings( *this, appliers, want, !wanted );
   }
}

// --- Its groups ----------------------------------------------------------------------------------

bool
TapAggToolSm::active() const {
   auto & status = *root_->in_.toolPortStatus;
   return !status.activeHas( intf() ) || status.active( intf() );
}

TapAggNames
TapAggToolSm::wantedNames() const {
   TapAggNames names;
   names.reserve( config_->groups() );
   for ( auto && [group, none] : config_->groupIteratorConst() ) {
      names.push_back( group );
   }
   std::sort( names.begin(), names.end() );
   return names;
}

/** Those of its names, and those that join one of them, as far as they have an id. A tool port that
    is not active keeps its groups, and is in none. */
std::vector< U32 >
TapAggToolSm::wantedGroups( const TapAggNames & names ) const {
   std::vector< U32 > ids;
   const bool takes = !names.empty() && active();
   for ( const String & name : names ) {
      if ( const U32 id = root_->groupFor( name ); id && takes ) {
         ids.push_back( id );
      }
      for ( const String & join : root_->users().joinsOf( name ) ) {
         if ( const U32 id = root_->groupIdOf( join ); id && takes ) {
            ids.push_back( id );
         }
      }
   }
   std::sort( ids.begin(), ids.end() );
   ids.erase( std::unique( ids.begin(), ids.end() ), ids.end() );
   return ids;
}

/** Frames go on coming: it enters a group before it leaves another. */
void
TapAggToolSm::reviewGroups( const TapAggNames & names ) {
   const std::vector< U32 > wanted = wantedGroups( names );
   for ( U32 id : wanted ) {
      if ( !hw_.isIn( id ) ) {
         QON_HOOK( TapAggHelper, helper(), addToolPortAssociation, intf(), id );
         hw_.groups_.insert( std::upper_bound( hw_.groups_.begin(), hw_.groups_.end(), id ), id );
      }
      reviewMembers( id, true );
      noteGroup( id );
   }
   if ( hw_.groups_ == wanted ) {
      return;
   }
   for ( U32 id : TapAggHwPort::Groups( hw_.groups_ ) ) {
      if ( !std::binary_search( wanted.begin(), wanted.end(), id ) ) {
         removeGroup( id );
      }
   }
}

void
TapAggToolSm::reviewMembers( U32 group, bool wanted ) {
   if ( !hw_.isLag() ) {
      return;
   }
   std::vector< IntfId > members;
   if ( wanted ) {
      members = root_->lagView().membersOf( intf() );
   }
   auto tell = [&]( IntfId member, bool add ) {
      QON_HOOK( TapAggHelper, helper(), updateToolInterfaceLagMembership, intf(), member, group,
                add );
      auto & told = *hw_.members_.emplace( group ).first;
      add ? void( told.emplace( member ) ) : void( told.erase( member ) );
   };
   reconcile< IntfId >(
         *hw_.members_.emplace( group ).first, members,
         [&]( IntfId member ) { tell( member, false ); },
         [&]( IntfId member ) { tell( member, true ); } );
}

void
TapAggToolSm::removeGroup( U32 group ) {
   reviewMembers( group, false );
   QON_HOOK( TapAggHelper, helper(), removeToolPortAssociation, intf(), group );
   std::erase( hw_.groups_, group );
   hw_.members_.erase( group );
   leftGroup();
}

void
TapAggToolSm::removeGroups() {
   while ( !hw_.groups_.empty() ) {
      removeGroup( hw_.groups_.front() );
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
