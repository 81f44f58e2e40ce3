#include "Qon/include/lag/QonEthPhyLagConfigAggregatorSm.h"

#include "Qon/include/framework/QonTraceHandles.h"

namespace Qon {

using Ulnet::IntfId;

namespace {
Flintlog::Facility configAggregatorFacility( "QonEthPhyLagConfigAggregatorSm" );
}

EthPhyLagConfigSm::EthPhyLagConfigSm( LagConfigAggregatorSm * aggregator,
                                      Velto::Ptr< const Interface::EthLagIntfConfig > config )
    : aggregator_( aggregator ), config_( std::move( config ) ) {}

void
EthPhyLagConfigSm::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   lagWatch_.attach( this, config_.ptr() );
   modeWatch_.attach( this, config_.ptr() );
}

void
EthPhyLagConfigSm::handleLag() {
   aggregator_->handleEvent( config_->intfId() );
}

LagConfigAggregatorSm::LagConfigAggregatorSm(
      Velto::Ptr< const Interface::EthLagIntfConfigDir > ethLagIntfConfigDir,
      Velto::Ptr< Hardware::Lag::AggregatedLagConfigDir > aggregatedLagConfigDir,
      Kiv::TaskScheduler * scheduler )
    : ethLagIntfConfigDir_( std::move( ethLagIntfConfigDir ) ),
      aggregatedLagConfigDir_( std::move( aggregatedLagConfigDir ) ), scan_( scheduler, this ) {}

void
LagConfigAggregatorSm::handleInitialized() {
   if ( !initialized() ) {
      intfs_.rest();
      phase_ = Phase::idle;
      return;
   }
   intfConfigWatch_.attach( this, ethLagIntfConfigDir_.ptr() );
   todo_ = intfs_.heldKeys(); // of before a rest
   for ( auto && [phyIntf, config] : ethLagIntfConfigDir_->intfConfigIteratorConst() ) {
      if ( !intfs_.has( phyIntf ) ) {
         todo_.push_back( phyIntf );
      }
   }
   next_ = 0;
   tidied_ = false;
   phase_ = Phase::scan;
   scan_.wake();
}

void
LagConfigAggregatorSm::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   intfs_.kivDoZombieReactors();
}

bool
LagConfigAggregatorSm::Scan::run() {
   const Velto::Hold alive( sm_ );
   for ( U32 n = 0; n < batch; ++n ) {
      if ( !sm_->scanOne() ) {
         return false;
      }
      if ( shouldYield() ) {
         return true;
      }
   }
   return true;
}

bool
LagConfigAggregatorSm::scanOne() {
   if ( phase_ == Phase::idle ) {
      return false; // rests
   }
   if ( next_ == todo_.size() ) {
      nextPhase();
      return phase_ != Phase::done;
   }
   const IntfId key = todo_[next_++];
   if ( phase_ == Phase::stale ) {
      removeStale( key );
   } else {
      intfs_.review( key, ethLagIntfConfigDir_->intfConfig( key ) );
      reviewIntf( key );
   }
   return true;
}

/** Stale entries are looked for once; what changes meanwhile is replayed until nothing is left. */
void
LagConfigAggregatorSm::nextPhase() {
   todo_.clear();
   next_ = 0;
   tidied_ = tidied_ || phase_ == Phase::stale;
   for ( auto && entry : dirty_ ) {
      todo_.push_back( entry.key );
   }
   dirty_.clear();
   if ( !todo_.empty() ) {
      phase_ = Phase::replay;
   } else if ( !tidied_ ) {
      phase_ = Phase::stale;
      for ( auto && [lagId, lag] : aggregatedLagConfigDir_->lagToPortIteratorConst() ) {
         todo_.push_back( lagId );
      }
   } else {
      phase_ = Phase::done;
      // fixed text
      QON_TRACE( configAggregatorFacility, 1,
                 "Initial scan done for child SMs. Now scanning with events triggered." );
   }
}

/** Removes what no interface is configured for. */
void
LagConfigAggregatorSm::removeStale( IntfId lagId ) {
   auto lag = aggregatedLagConfigDir_->lagToPort( lagId );
   if ( !lag ) {
      return;
   }
   auto members = keysOf< IntfId >( lag->memberIteratorConst() );
   Velto::FirstError error;
   for ( auto && entry : members ) {
      if ( wantedLag( entry.key ) != lagId ) {
         error.run( [&] { memberDel( lagId, entry.key ); } );
      }
   }
   error.pass();
   if ( members.empty() ) {
      aggregatedLagConfigDir_->lagToPortDel( lagId );
   }
}

Velto::Ptr< EthPhyLagConfigSm >
LagConfigAggregatorSm::makeIntfSm(
      const IntfId &, const Velto::Ptr< const Interface::EthLagIntfConfig > & config ) {
   return smIs< EthPhyLagConfigSm >( this, config );
}

/** What is written of the interface goes when it is reviewed next. */
void
LagConfigAggregatorSm::cleanUpIntfSm( const IntfId &, EthPhyLagConfigSm * ) {}

void
LagConfigAggregatorSm::handleIntfConfig( const IntfId & phyIntf ) {
   handleEvent( phyIntf );
}

void
LagConfigAggregatorSm::handleEvent( IntfId phyIntf ) {
   if ( phase_ != Phase::done ) {
      dirty_.emplace( phyIntf );
      return;
   }
   const Velto::Hold alive( this );
   intfs_.review( phyIntf, ethLagIntfConfigDir_->intfConfig( phyIntf ) );
   reviewIntf( phyIntf );
}

IntfId
LagConfigAggregatorSm::wantedLag( IntfId phyIntf ) const {
   auto config = ethLagIntfConfigDir_->intfConfig( phyIntf );
   return config ? config->lag() : IntfId();
}

void
LagConfigAggregatorSm::reviewIntf( IntfId phyIntf ) {
   const IntfId lagId = wantedLag( phyIntf );
   auto placed = placed_.find( phyIntf );
   const IntfId former = placed ? *placed : IntfId();
   Velto::FirstError error;
   if ( former && former != lagId ) {
      placed_.erase( phyIntf );
      error.run( [&] { memberDel( former, phyIntf ); } );
   }
   if ( lagId && wantedLag( phyIntf ) == lagId ) {
      if ( former != lagId ) {
         // fixed text
         QON_TRACE( configAggregatorFacility, 7, phyIntf,
                    " into( aggregatedLagConfigDir.lagToPort[ lagId ].member[ phyIntf ] ) of ",
                    lagId );
      }
      *placed_.emplace( phyIntf ).first = lagId;
      error.run( [&] { aggregatedLagConfigDir_->lagToPortIs( lagId ); } );
      error.run( [&] {
         if ( wantedLag( phyIntf ) == lagId ) {
            aggregatedLagConfigDir_->lagToPortIs( lagId )->memberIs(
                  phyIntf, ethLagIntfConfigDir_->intfConfig( phyIntf )->mode() );
         }
      } );
   }
   error.pass();
}

void
LagConfigAggregatorSm::memberDel( IntfId lagId, IntfId phyIntf ) {
   Velto::Ptr< Hardware::Lag::AggregatedLagConfig > lag =
         aggregatedLagConfigDir_->lagToPort( lagId );
   if ( !lag ) {
      return;
   }
   const auto dir = aggregatedLagConfigDir_;
   Velto::FirstError error;
   error.run( [&] { lag->memberDel( phyIntf ); } );
   if ( lag->members() == 0 && dir->lagToPort( lagId ) == lag.ptr() ) {
      error.run( [&] { dir->lagToPortDel( lagId ); } );
   }
   error.pass();
}

String
LagConfigAggregatorSm::checkInvariants() const {
   if ( !scanDone() ) {
      return "";
   }
   for ( auto && [lagId, lag] : aggregatedLagConfigDir_->lagToPortIteratorConst() ) {
      for ( auto && [phyIntf, mode] : lag->memberIteratorConst() ) {
         if ( wantedLag( phyIntf ) != lagId ) {
            return phyIntf.stringValue() + " is not configured for " + lagId.stringValue() + "";
         }
      }
   }
   for ( auto && [phyIntf, config] : ethLagIntfConfigDir_->intfConfigIteratorConst() ) {
      auto lag = aggregatedLagConfigDir_->lagToPort( config->lag() );
      if ( config->lag() && ( !lag || !lag->memberHas( phyIntf ) ) ) {
         return phyIntf.stringValue() + " is missing in " + config->lag().stringValue() + "";
      }
   }
   return "";
}

Velto::Ptr< LagConfigAggregatorSm >
LagConfigAggregatorSmIs( Velto::Ptr< const Interface::EthLagIntfConfigDir > ethLagIntfConfigDir,
                         Velto::Ptr< Hardware::Lag::AggregatedLagConfigDir > aggregatedLagConfigDir,
                         Kiv::TaskScheduler * scheduler ) {
   return smIs< LagConfigAggregatorSm >( std::move( ethLagIntfConfigDir ),
                                         std::move( aggregatedLagConfigDir ), scheduler );
}

} // namespace Qon
