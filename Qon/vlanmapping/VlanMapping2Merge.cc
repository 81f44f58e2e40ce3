// The second stage: which source has each key.

#include "Qon/include/vlanmapping/QonVlanMappingSm2.h"
#include "Qon/vlanmapping/VlanMapping2Trace.h"

namespace Qon::VlanMapping {

// --- One interface -------------------------------------------------------------------------------

IntfConfigMergeSm::IntfConfigMergeSm( ConfigMergeSm * merge, IntfId intf )
    : merge_( merge ), intf_( intf ) {}

void
IntfConfigMergeSm::handleInitialized() {
   if ( initialized() ) {
      handleSwitchIntfConfig();
   }
}

void
IntfConfigMergeSm::handleSwitchIntfConfig() {
   modeWatch_.attach( this, merge_->inputs().bridgingConfig->switchIntfConfig( intf_ ) );
}

void
IntfConfigMergeSm::handleSwitchportMode() {
   merge_->askIntf( intf_ );
}

bool
IntfConfigMergeSm::active( ConfigSource source ) const {
   auto config = merge_->inputs().bridgingConfig->switchIntfConfig( intf_ );
   return config &&
          config->switchportMode() == vlanMappingConfigSourceActiveSwitchportMode( source );
}

bool
IntfConfigMergeSm::holds( ConfigSource source, const Key & key ) const {
   auto config = merge_->sourceConfig( source, intf_ );
   return config && config->vlanMappingConfigHas( key );
}

VlanXlateMapping
IntfConfigMergeSm::mapping( ConfigSource source, const Key & key ) const {
   auto config = merge_->sourceConfig( source, intf_ );
   return config ? config->vlanMappingConfig( key ) : VlanXlateMapping();
}

MergedIntfVlanMappingConfig *
IntfConfigMergeSm::mergedIntfConfig() const {
   return merge_->inputs().mergedConfig->intfVlanMappingConfig( intf_ );
}

void
IntfConfigMergeSm::reviewKey( const Key & key, bool silent ) {
   auto merged = mergedIntfConfig();
   const bool has = merged && merged->vlanMappingConfigHas( key );
   const auto data = has ? merged->vlanMappingConfig( key ) : MergedVlanMappingData();
   const bool kept = has && holds( data.source(), key );
   if ( kept && active( data.source() ) ) {
      const Velto::Ptr< MergedIntfVlanMappingConfig > held( merged );
      held->vlanMappingConfigIs( key, { data.source(), mapping( data.source(), key ) } );
   } else if ( has ) {
      if ( kept ) {
         // fixed text
         QON_TRACE( facility, 4, key, " because it does not come from an active source" );
      } else {
         // fixed text
         QON_TRACE( facility, 4, key, " because it no longer exists in its source" );
      }
      Velto::FirstError error;
      for ( ConfigSource next : vlanMappingConfigSources ) {
         if ( !kept && !silent && active( next ) && holds( next, key ) ) {
            error.run( [&] {
               messages.programmed( { intf_, key.direction(), key.key(), mapping( next, key ) },
                                    shownSource( next ) );
            } );
            break;
         }
      }
      error.run( [&] { reevaluateVlanMappingKey( key ); } );
      error.pass();
   } else {
      reevaluateVlanMappingKey( key );
   }
   reportConflicts( key );
   if ( key.direction() == Direction::egress ) {
      reviewEncap();
   }
}

void
IntfConfigMergeSm::reevaluateVlanMappingKey( const Key & key ) {
   for ( ConfigSource source : vlanMappingConfigSources ) {
      if ( active( source ) && holds( source, key ) ) {
         // fixed text
         QON_TRACE( facility, 4, " picking ", Kiv::toText( source ), " as the new winner for key ",
                    key );
         const Velto::Ptr< MergedIntfVlanMappingConfig > merged(
               merge_->inputs().mergedConfig->intfVlanMappingConfigIs( intf_ ) );
         merged->vlanMappingConfigIs( key, { source, mapping( source, key ) } );
         return;
      }
   }
   if ( const Velto::Ptr< MergedIntfVlanMappingConfig > merged{ mergedIntfConfig() } ) {
      merged->vlanMappingConfigDel( key );
      VELTO_ASSERT( !mergedIntfConfig()->vlanMappingConfigHas( key ) ); // fixed text
   }
}

/** A message for each active source that holds the key in vain, and did not do so before. */
void
IntfConfigMergeSm::reportConflicts( const Key & key ) {
   auto merged = mergedIntfConfig();
   const bool has = merged && merged->vlanMappingConfigHas( key );
   const auto data = has ? merged->vlanMappingConfig( key ) : MergedVlanMappingData();
   for ( ConfigSource source : vlanMappingConfigSources ) {
      const Waiting waiting( key, source );
      if ( !has || data.source() == source || !active( source ) || !holds( source, key ) ) {
         reported_.erase( waiting );
         continue;
      }
      const Report report = { data.source(), mapping( source, key ) };
      auto [known, fresh] = reported_.emplace( waiting );
      if ( fresh || !( *known == report ) ) {
         *known = report;
         messages.conflict( { intf_, key.direction(), key.key(), report.wanted },
                            shownSource( source ), shownSource( data.source() ) );
      }
   }
}

/** The VLAN that the native source has won for frames that would leave without a tag. */
void
IntfConfigMergeSm::reviewEncap() {
   auto acsd = merge_->inputs().acsd.ptr();
   auto native = merge_->sourceConfig( ConfigSource::nativeVlan, intf_ );
   auto merged = mergedIntfConfig();
   if ( native && merged ) {
      for ( auto && [key, mapping] : native->vlanMappingConfigIteratorConst() ) {
         if ( key.direction() == Direction::egress && merged->vlanMappingConfigHas( key ) &&
              merged->vlanMappingConfig( key ).source() == ConfigSource::nativeVlan ) {
            acsd->encapVlanIs( intf_, Bridging::VlanId( key.vlanId() ) );
            return;
         }
      }
   }
   acsd->encapVlanDel( intf_ );
}

std::vector< Key >
IntfConfigMergeSm::keys() const {
   KeySet< Key > all;
   for ( ConfigSource source : vlanMappingConfigSources ) {
      if ( auto config = merge_->sourceConfig( source, intf_ ) ) {
         for ( auto && [key, mapping] : config->vlanMappingConfigIteratorConst() ) {
            all.emplace( key );
         }
      }
   }
   if ( auto merged = mergedIntfConfig() ) {
      for ( auto && [key, data] : merged->vlanMappingConfigIteratorConst() ) {
         all.emplace( key );
      }
   }
   std::vector< Key > keys;
   keys.reserve( all.size() );
   for ( auto && entry : all ) {
      keys.push_back( entry.key );
   }
   return keys;
}

bool
IntfConfigMergeSm::idle() const {
   for ( ConfigSource source : vlanMappingConfigSources ) {
      if ( merge_->sourceConfig( source, intf_ ) ) {
         return false;
      }
   }
   auto merged = mergedIntfConfig();
   return !merged || !merged->vlanMappingConfigs();
}

String
IntfConfigMergeSm::checkInvariants() const {
   String broken;
   auto check = [&]( const Key & key ) {
      if ( const char * what = brokenKey( key ); broken.empty() && *what ) {
         broken = intf_.stringValue() + " " + key.stringValue() + what;
      }
   };
   for ( ConfigSource source : vlanMappingConfigSources ) {
      if ( auto config = merge_->sourceConfig( source, intf_ ) ) {
         for ( auto && [key, mapping] : config->vlanMappingConfigIteratorConst() ) {
            check( key );
         }
      }
   }
   if ( auto merged = mergedIntfConfig() ) {
      for ( auto && [key, data] : merged->vlanMappingConfigIteratorConst() ) {
         check( key );
      }
   }
   return broken;
}

const char *
IntfConfigMergeSm::brokenKey( const Key & key ) const {
   bool wanted = false;
   for ( ConfigSource source : vlanMappingConfigSources ) {
      wanted |= active( source ) && holds( source, key );
   }
   auto merged = mergedIntfConfig();
   if ( wanted != ( merged && merged->vlanMappingConfigHas( key ) ) ) {
      return wanted ? " is wanted and not merged" : " is merged and not wanted";
   }
   if ( !wanted ) {
      return "";
   }
   const auto data = merged->vlanMappingConfig( key );
   const bool owned = active( data.source() ) && holds( data.source(), key ) &&
                      data.mapping() == mapping( data.source(), key );
   return owned ? "" : " is not merged as its owner wants it";
}

// --- All interfaces ------------------------------------------------------------------------------

ConfigMergeSm::ConfigMergeSm( Inputs inputs )
    : in_( std::move( inputs ) ),
      sync_( this, in_.scheduler, "VlanMappingMerge", 1, [this] { return syncStep(); } ) {}

void
ConfigMergeSm::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   intfs_.kivDoZombieReactors();
}

const SourceIntfVlanMappingConfig *
ConfigMergeSm::sourceConfig( ConfigSource source, IntfId intf ) const {
   auto config = in_.sourceConfigDir->sourceVlanMappingConfig( source );
   return config ? config->intfVlanMappingConfig( intf ) : nullptr;
}

void
ConfigMergeSm::handleInitialized() {
   if ( !initialized() ) {
      intfs_.rest();
      return;
   }
   state_ = State::waiting;
   configWatch_.attach( this, in_.bridgingConfig.ptr() );
   const Velto::Hold alive( this );
   Velto::FirstError error;
   for ( ConfigSource source : vlanMappingConfigSources ) {
      readyWatch_[U8( source )].attach( this, in_.outputState[U8( source )].ptr() );
      error.run( [&] { in_.sourceConfigDir->sourceVlanMappingConfigIs( source ); } );
      sources_[U8( source )].attach( this, in_.sourceConfigDir->sourceVlanMappingConfig( source ) );
   }
   error.run( [&] { handleReady(); } );
   error.pass();
}

void
ConfigMergeSm::handleReady() {
   if ( state_ != State::waiting ) {
      return; // who was ready once has said what there was
   }
   U32 missing = 0;
   for ( auto & output : in_.outputState ) {
      missing += !output->ready();
   }
   if ( missing ) {
      QON_TRACE( facility, 2, missing, " sources are not ready" ); // fixed text
      return;
   }
   QON_TRACE( facility, 2, " All sources are ready. Begin initial sync" ); // fixed text
   beginSync();
}

void
ConfigMergeSm::handleSwitchIntfConfig( const IntfId & intf ) {
   if ( auto sm = intfConfigMergeSm( intf ) ) {
      sm->handleSwitchIntfConfig();
   }
   askIntf( intf );
}

void
ConfigMergeSm::ask( IntfId intf, std::optional< Key > key ) {
   if ( state_ == State::waiting ) {
      return; // the initial sync looks at everything
   }
   work_.add( { intf, key, false } );
   work_.drain( this, [this]( const Question & question ) { answer( question ); } );
}

bool
ConfigMergeSm::wantedIntf( IntfId intf ) const {
   for ( ConfigSource source : vlanMappingConfigSources ) {
      if ( sourceConfig( source, intf ) ) {
         return true;
      }
   }
   return in_.mergedConfig->intfVlanMappingConfigHas( intf );
}

void
ConfigMergeSm::answer( const Question & question ) {
   const IntfId intf = question.intf;
   intfs_.review( intf, wantedIntf( intf ) );
   auto sm = intfConfigMergeSm( intf );
   if ( !sm ) {
      in_.acsd->encapVlanDel( intf );
      return;
   }
   const Velto::Ptr< IntfConfigMergeSm > held( sm );
   Velto::FirstError error;
   for ( const Key & key : question.key ? std::vector{ *question.key } : held->keys() ) {
      error.run( [&] { held->reviewKey( key, question.silent ); } );
      if ( listener_ ) {
         listener_->outcomeHeard( intf, key.direction(), key.key() );
      }
   }
   if ( held->idle() ) {
      error.run( [&] { endIntf( intf ); } );
   }
   error.pass();
}

void
ConfigMergeSm::endIntf( IntfId intf ) {
   if ( in_.mergedConfig->intfVlanMappingConfigHas( intf ) ) {
      QON_TRACE( facility, 4, " delete stale intf ", intf ); // fixed text
   }
   in_.mergedConfig->intfVlanMappingConfigDel( intf );
   in_.acsd->encapVlanDel( intf );
   intfs_.review( intf, false );
}

/** What there is and what a former run merged; a key at a time. */
void
ConfigMergeSm::beginSync() {
   state_ = State::syncing;
   KeySet< IntfId > intfs;
   for ( ConfigSource source : vlanMappingConfigSources ) {
      auto all = in_.sourceConfigDir->sourceVlanMappingConfig( source );
      for ( auto && [intf, config] : all->intfVlanMappingConfigIteratorConst() ) {
         intfs.emplace( intf );
      }
   }
   for ( auto && [intf, config] : in_.mergedConfig->intfVlanMappingConfigIteratorConst() ) {
      intfs.emplace( intf );
   }
   for ( auto && [intf, vlan] : in_.acsd->encapVlanIteratorConst() ) {
      intfs.emplace( intf );
   }
   for ( IntfId intf : intfs_.heldKeys() ) {
      intfs.emplace( intf ); // what went during a pause
   }
   toSync_.clear();
   keysToSync_.clear();
   for ( auto && entry : intfs ) {
      toSync_.push_back( entry.key );
   }
   sync_.begin();
}

bool
ConfigMergeSm::syncStep() {
   if ( !initialized() || state_ != State::syncing ) {
      return false;
   }
   if ( toSync_.empty() ) {
      state_ = State::synced;
      return false;
   }
   const IntfId intf = toSync_.back();
   if ( keysToSync_.empty() ) {
      intfs_.review( intf, wantedIntf( intf ) );
      auto sm = intfConfigMergeSm( intf );
      keysToSync_ = sm ? sm->keys() : std::vector< Key >();
   }
   std::optional< Key > key;
   if ( !keysToSync_.empty() ) {
      key = keysToSync_.back();
      keysToSync_.pop_back();
   }
   if ( keysToSync_.empty() ) {
      toSync_.pop_back();
   }
   work_.add( { intf, key, true } );
   work_.drain( this, [this]( const Question & question ) { answer( question ); } );
   return true;
}

Velto::Ptr< IntfConfigMergeSm >
ConfigMergeSm::make( const IntfId & intf, const bool & ) {
   return smIs< IntfConfigMergeSm >( this, intf );
}

void
ConfigMergeSm::cleanUp( const IntfId &, IntfConfigMergeSm * ) {}

String
ConfigMergeSm::checkInvariants() const {
   String wrong;
   if ( synced() ) {
      intfs_.forEach( [&]( IntfId, const IntfConfigMergeSm & sm ) {
         wrong = wrong.empty() ? sm.checkInvariants() : wrong;
      } );
   }
   return wrong;
}

} // namespace Qon::VlanMapping
