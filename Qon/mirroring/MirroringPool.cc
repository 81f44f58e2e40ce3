// Mirror groups: the pool, what an earlier life left in hardware, and who waits for one.

#include <algorithm>

#include "Qon/mirroring/MirroringTrace.h"
#include "platform/Kiv/Restart.h"

namespace Qon {

using KivMirroringSession = MirroringSm::KivMirroringSession;
using Mirroring::TunnelType;

namespace {

constexpr U32 mostGroups = 256; // that the pool can name

bool
nameable( S32 mirrorGroup ) {
   return mirrorGroup >= 0 && U32( mirrorGroup ) < mostGroups;
}

} // namespace

void
MirroringSm::handleMaxSupportedSessions() {
   ask( { What::pool } );
}

/** Makes the pool as large as the hardware's number of sessions. */
void
MirroringSm::reviewPool() {
   const U32 was = max_;
   max_ = std::min( in_.capability->maxSupportedSessions(), mostGroups );
   Velto::FirstError error;
   if ( max_ == 0 ) {
      // fixed text
      QON_TRACE( mirroringFacility, 2, "Mirroring is not supported (maxSupportedSessions=0)." );
      started_ = false;
   } else if ( !started_ ) {
      started_ = true;
      error.run( [&] { start(); } );
   } else if ( max_ != was && ownPool() ) {
      error.run( [&] { resize( was ); } );
   }
   error.run( [&] { reviewSessions(); } );
   error.run( [&] { dropKept(); } );
   if ( max_ == 0 ) {
      error.run( [&] { clearStaleStatus(); } ); // which no start will do
      if ( !in_.capability->agentFillsPool() ) {
         error.run( [&] { in_.acsd->freeMirrorSessionDelAll(); } );
      }
   }
   error.pass();
}

// --- Start ---------------------------------------------------------------------------------------

void
MirroringSm::start() {
   agentFills_ = in_.capability->agentFillsPool();
   judgedCutThrough_ = cutThrough(); // sources are judged by these as they are added
   judgedLimits_ = in_.capability->sourceLimitsVersion();
   std::vector< std::pair< String, Kept > > stale;
   readHardware( stale );
   Velto::FirstError error;
   error.run( [&] { clearStaleStatus(); } );
   error.run( [&] { fillPool(); } );
   // fixed text
   QON_TRACE( mirroringFacility, 2, "Number of free Mirror groups is ",
              in_.acsd->freeMirrorSessions() );
   error.run( [&] { QON_HOOK( MirroringSmHelper, in_.helper, hwInit ); } );
   for ( auto & [name, kept] : stale ) {
      error.run( [&, &key = name, &entry = kept] { removeFromHardware( key, entry ); } );
      if ( agentFills_ && !in_.acsd->freeMirrorSessionHas( U8( kept.mirrorGroup ) ) ) {
         error.run(
               [&, &entry = kept] { in_.acsd->freeMirrorSessionEnq( U8( entry.mirrorGroup ) ); } );
      }
   }
   error.pass();
}

/** What is still configured is kept; of two with the same group the first. */
void
MirroringSm::readHardware( std::vector< std::pair< String, Kept > > & stale ) {
   kept_.clear();
   if ( !in_.hwStatus ) {
      return;
   }
   Kiv::DenseMap< S32, Kiv::Nothing > groups;
   for ( bool configured : { true, false } ) {
      for ( auto && [name, hw] : in_.hwStatus->sessionIteratorConst() ) {
         if ( in_.config->sessionHas( name ) != configured || !nameable( hw->mirrorGroup() ) ||
              !groups.emplace( hw->mirrorGroup() ).second ) {
            continue;
         }
         Kept kept = { hw->mirrorGroup(), hw->tunnelType(), {}, {} };
         for ( auto && [port, none] : hw->targetIntfIteratorConst() ) {
            kept.targets.push_back( port );
         }
         for ( auto && [port, direction] : hw->srcIntfIteratorConst() ) {
            kept.sources.emplace_back( port, direction );
         }
         ( configured ? kept_ : stale ).emplace_back( name, std::move( kept ) );
      }
   }
}

/** Every group that no session holds, in ascending order; or what the hosting agent filled in, less
    those that are held. */
void
MirroringSm::fillPool() {
   auto & pool = *in_.acsd;
   Velto::FirstError error;
   if ( !agentFills_ ) {
      error.run( [&] { pool.freeMirrorSessionDelAll(); } );
      for ( U32 id = 0; id < max_; ++id ) {
         if ( !keeps( id ) ) {
            error.run( [&] { pool.freeMirrorSessionEnq( U8( id ) ); } );
         }
      }
   } else {
      poolIsWithout( [this]( U32 id ) { return keeps( id ); }, error );
   }
   error.pass();
}

bool
MirroringSm::keeps( U32 mirrorGroup ) const {
   return std::any_of( kept_.begin(), kept_.end(), [&]( auto & entry ) {
      return entry.second.mirrorGroup == S32( mirrorGroup );
   } );
}

/** Once around: those that go are not put back. */
void
MirroringSm::poolIsWithout( const std::function< bool( U32 ) > & goes, Velto::FirstError & error ) {
   auto & pool = *in_.acsd;
   for ( U32 left = pool.freeMirrorSessions(); left; --left ) {
      const U8 id = pool.freeMirrorSessionFront();
      error.run( [&] { pool.freeMirrorSessionDeq(); } );
      if ( !goes( id ) ) {
         error.run( [&] { pool.freeMirrorSessionEnq( id ); } );
      }
   }
}

/** Names and status of an earlier life. */
void
MirroringSm::clearStaleStatus() {
   std::vector< String > names;
   for ( auto && [name, group] : in_.acsd->mirrorSessionNameToIdIteratorConst() ) {
      names.push_back( name );
   }
   for ( auto && [name, group] : in_.acsd->mirrorSessionNameToEgressIdIteratorConst() ) {
      names.push_back( name );
   }
   for ( auto && [name, published] : in_.status->sessionIteratorConst() ) {
      names.push_back( name );
   }
   Velto::FirstError error;
   for ( const String & name : names ) {
      const bool kept = std::any_of( kept_.begin(), kept_.end(),
                                     [&]( auto & entry ) { return entry.first == name; } );
      if ( !kept ) {
         error.run( [&] { in_.acsd->mirrorSessionNameToEgressIdDel( name ); } );
         error.run( [&] { in_.acsd->mirrorSessionNameToIdDel( name ); } );
      }
      error.run( [&] { in_.status->sessionDel( name ); } );
   }
   error.pass();
}

void
MirroringSm::removeFromHardware( const String & name, const Kept & kept ) {
   auto helper = in_.helper.ptr();
   const int group = kept.mirrorGroup;
   bool tx = false;
   for ( auto & [port, direction] : kept.sources ) {
      tx = tx || Mirroring::has( direction, Mirroring::Direction::tx );
   }
   const int egressId = tx ? group : -1;
   Velto::FirstError error;
   for ( auto & [port, direction] : kept.sources ) {
      error.run( [&, intf = port, dir = direction] {
         QON_HOOK( MirroringSmHelper, helper, removeSourceFromHardware, name, group, egressId, intf,
                   dir, true );
      } );
   }
   error.run( [&] {
      if ( kept.tunnelType != TunnelType::none ) {
         QON_HOOK( MirroringSmHelper, helper, removeGreTunnelMirror, name, group, -1 );
      } else if ( !kept.targets.empty() ) {
         QonPortList ports;
         for ( IntfId port : kept.targets ) {
            ports.portIs( port );
         }
         QON_HOOK( MirroringSmHelper, helper, removeMirror, name, group, -1, ports );
      }
   } );
   error.pass();
}

/** Configured when the hardware was read, and not any more when its turn came; or not again since
    the agent restarted. */
void
MirroringSm::dropKept() {
   if ( Kiv::agentRestarting() ) {
      return; // all of it stays
   }
   Velto::FirstError error;
   for ( auto & [name, kept] : std::exchange( kept_, {} ) ) {
      error.run( [&, &key = name, &entry = kept] { removeFromHardware( key, entry ); } );
      error.run( [&, &key = name] { in_.acsd->mirrorSessionNameToEgressIdDel( key ); } );
      error.run( [&, &key = name] { in_.acsd->mirrorSessionNameToIdDel( key ); } );
      error.run( [&, &key = name] { in_.status->sessionDel( key ); } );
      error.run( [&, group = kept.mirrorGroup] { groupFree( group, nullptr ); } );
   }
   error.pass();
}

// --- Later ---------------------------------------------------------------------------------------

/** Groups beyond the new number go, as far as they are free; new ones are first for who waits. */
void
MirroringSm::resize( U32 was ) {
   Velto::FirstError error;
   if ( max_ < was ) {
      poolIsWithout( [&]( U32 id ) { return id >= max_; }, error );
      error.pass();
      return;
   }
   for ( U32 id = was; id < max_; ++id ) {
      bool held = keeps( id );
      sessions_.forEach( [&]( const String &, KivMirroringSession & session ) {
         held = held || session.mirrorGroup() == S32( id );
      } );
      if ( !held ) {
         error.run( [&] { groupFree( S32( id ), nullptr ); } );
      }
   }
   error.pass();
}

void
MirroringSm::groupFree( S32 mirrorGroup, const KivMirroringSession * of ) {
   if ( ownPool() && U32( mirrorGroup ) >= max_ ) {
      return; // the hardware has it no more
   }
   if ( const SessionPtr next = firstWaiting( of ) ) {
      // fixed text
      QON_TRACE( mirroringFacility, 2, "Found outstanding mirror session ", next->name(),
                 " to reassign mirror group ", mirrorGroup );
      next->mirrorGroupIs( mirrorGroup );
      Velto::FirstError error;
      if ( !error.run( [&] { next->program(); } ) ) {
         later( Work::of( What::session, next->name() ) ); // once more, for itself
      }
      error.pass();
      return;
   }
   // fixed text
   QON_TRACE( mirroringFacility, 2, "Adding mirror group ", mirrorGroup, " to free list" );
   in_.acsd->freeMirrorSessionEnq( U8( mirrorGroup ) );
}

/** In the order of the configuration, without those that go. */
KivMirroringSession *
MirroringSm::firstWaiting( const KivMirroringSession * except ) const {
   if ( stopped_ || max_ == 0 ) {
      return nullptr;
   }
   for ( auto && [name, config] : in_.config->sessionIteratorConst() ) {
      auto sm = session( name );
      if ( sm && sm != except && sm->live_ && sm->config() == config.ptr() && !sm->hasGroup() ) {
         return sm;
      }
   }
   return nullptr;
}

} // namespace Qon
