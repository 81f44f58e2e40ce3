// The sources of a session: what each port shall be, and whether it fits.

#include <algorithm>
#include <optional>

#include "Qon/mirroring/MirroringTrace.h"

namespace Qon {

using KivMirroringSession = MirroringSm::KivMirroringSession;
using Mirroring::Direction;
using Ulnet::IntfId;

const MirrorFilter &
MirrorSource::all() {
   static const MirrorFilter none;
   return none;
}

void
KivMirroringSession::Counts::change( Direction direction, S32 by ) {
   U32 & count = direction == Direction::both ? both : direction == Direction::rx ? rxOnly : txOnly;
   count += U32( by );
}

/** What the port shall be, in `local.wanted_`, and why it shall not be in hardware. */
MirrorReason
KivMirroringSession::sourceWanted( IntfId port, SourcePort & source ) {
   auto & local = source.local;
   local.wanted_ = source.claims.empty() ? MirrorSource() : source.claims.front()->wanted();
   const MirrorSource & wanted = local.wanted_;
   if ( wanted.direction == Direction::none ) {
      return MirrorReason::notWanted;
   }
   if ( !createdInHw_ || leaving_ ) {
      return MirrorReason::noDestination;
   }
   const IntfId intf = source.claims.front()->intf();
   if ( !root_->isValid( intf, false ) || ( intf != port && !root_->isValid( port, false ) ) ) {
      return MirrorReason::invalidIntf;
   }
   if ( wanted.filtered() && !root_->acl( wanted.filter().aclType, wanted.aclName() ) ) {
      // fixed text
      QON_TRACE( mirroringFacility, 2, port, ": acl ", wanted.aclName(),
                 " not found in acl config for session ", name_ );
      return MirrorReason::noAcl;
   }
   return local.aclFull_ ? MirrorReason::aclResources : MirrorReason::none;
}

/** Compares what is in hardware of the port with what shall be; the local record, the messages and
    the status follow. */
void
KivMirroringSession::reviewSource( IntfId port ) {
   if ( auto source = sources_.find( port ) ) {
      reviewSource( port, *source );
   }
}

/** `source` ends here if it is nobody's any more. */
void
KivMirroringSession::reviewSource( IntfId port, SourcePort & source ) {
   if ( starting_ ) {
      return;
   }
   auto & local = source.local;
   Velto::FirstError error;
   if ( live_ ) {
      const bool others = !overflowed_.empty() || local.inHw_.filtered(); // may wait for it
      std::optional< MirrorSource > before;
      if ( others && local.programmed() ) {
         before = local.inHw_;
      }
      MirrorOverflow overflow = MirrorOverflow::normal;
      local.reason_ = reasonOf( port, source, error );
      removeChanged( port, local, error );
      if ( local.reason_ == MirrorReason::none && !local.programmed() ) {
         overflow = addIfItFits( port, local, error );
      }
      error.run( [&] { overflowStateIs( port, local, overflow ); } );
      error.run( [&] { publishSource( port, local ); } );
      if ( before && !( local.inHw_ == *before ) ) {
         askOthers( *before, local );
      }
   }
   if ( source.claims.empty() && !local.programmed() && local.left_ == Direction::none ) {
      sources_.erase( port );
   }
   error.pass();
}

/** Why the port shall not be in hardware now. A filter that had no room has another chance when it
    is another filter. */
MirrorReason
KivMirroringSession::reasonOf( IntfId port, SourcePort & source, Velto::FirstError & error ) {
   auto & local = source.local;
   const bool full = local.aclFull_ || local.aclFullLogged_;
   const MirrorSource before = full ? local.wanted_ : MirrorSource();
   MirrorReason reason = MirrorReason::refused;
   error.run( [&] {
      reason = sourceWanted( port, source );
      if ( full && !( local.wanted_ == before ) ) {
         local.aclFull_ = local.aclFullLogged_ = false;
         reason = sourceWanted( port, source );
      }
   } );
   return reason;
}

/** What is in hardware and shall not be so: as it was added, or as an earlier life left it. */
void
KivMirroringSession::removeChanged( IntfId port, MirrorSrcIntfLocal & local,
                                    Velto::FirstError & error ) {
   const bool add = local.reason_ == MirrorReason::none;
   if ( local.programmed() && ( !add || !( local.inHw_ == local.wanted_ ) ) ) {
      if ( add ) {
         // fixed text
         QON_TRACE( mirroringFacility, 3, port, " of session ", name_,
                    " has changed, removing and readding" );
      }
      removeSource( port, local, local.direction(), false, error );
   }
   const bool untouched = tunnel_ && tunnel_->left() && !leaving_; // until it is made anew
   if ( local.left_ != Direction::none && !untouched &&
        ( !add || local.left_ != local.wanted_.direction ) ) {
      removeSource( port, local, local.left_, false, error );
   }
}

/** What keeps it out, if it is that which does; the record says why it is out, if it is. */
MirrorOverflow
KivMirroringSession::addIfItFits( IntfId port, MirrorSrcIntfLocal & local,
                                  Velto::FirstError & error ) {
   MirrorOverflow overflow = MirrorOverflow::normal;
   const bool judged = error.run( [&] { overflow = checkSrcOverflow( local.wanted_.direction ); } );
   if ( judged && overflow == MirrorOverflow::normal ) {
      addSource( port, local, error );
   }
   if ( !local.programmed() ) {
      local.reason_ = overflow == MirrorOverflow::overlap     ? MirrorReason::overlap
                      : overflow == MirrorOverflow::overLimit ? MirrorReason::overLimit
                                                              : MirrorReason::refused;
      if ( local.left_ != Direction::none ) {
         removeSource( port, local, local.left_, false, error );
      }
   }
   return overflow;
}

/** Those that wait for what a source had: its place, or the room of its filter. */
void
KivMirroringSession::askOthers( const MirrorSource & before, const MirrorSrcIntfLocal & local ) {
   if ( !overflowed_.empty() && !leaving_ ) {
      root_->later( { What::waiting, this } );
   }
   if ( before.filtered() && before.aclName() != local.inHw_.aclName() && !local.aclFull_ ) {
      root_->askAclRoom();
   }
}

void
KivMirroringSession::reviewSources() {
   Velto::FirstError error;
   for ( IntfId port : sourcePorts() ) {
      error.run( [&] { reviewSource( port ); } );
   }
   error.run( [&] { root_->reviewInvalidSources(); } );
   error.pass();
}

void
KivMirroringSession::addSource( IntfId port, MirrorSrcIntfLocal & local,
                                Velto::FirstError & error ) {
   const MirrorSource & wanted = local.wanted_;
   auto helper = root_->in_.helper.ptr();
   bool done = false;
   const bool ready = error.run( [&] {
      if ( !wanted.filtered() ) {
         return;
      }
      const Acl::AclType aclType = wanted.filter().aclType;
      if ( !tcamProfiles_.has( aclType ) ) {
         QON_HOOK( MirroringSmHelper, helper, setTcamProfileFeature, name_,
                   Kiv::toText( aclType ) );
         tcamProfiles_.emplace( aclType );
      }
      if ( auto hw = root_->in_.hwStatus ? root_->in_.hwStatus->session( name_ ) : nullptr ) {
         hw->aclStatusDel( port ); // so that its failing again is heard
      }
   } );
   Counts with = counts_;
   with.change( wanted.direction, 1 );
   const int egressId = with.tx() ? mirrorGroup_ : -1;
   local.aclAsked_ = ready && wanted.filtered();
   if ( ready ) {
      error.run( [&] {
         done = QON_HOOK( MirroringSmHelper, helper, addSourceToHardware, name_, mirrorGroup_,
                          egressId, port, wanted.direction );
      } );
   }
   if ( done ) {
      local.left_ = Direction::none;
      local.inHw_ = wanted;
      counts_ = with;
   } else {
      QON_TRACE( mirroringFacility, 1, "Failed to add source ", port, " to session ", name_ );
   }
}

/** Whatever the chip says, it counts as removed. */
void
KivMirroringSession::removeSource( IntfId port, MirrorSrcIntfLocal & local, Direction direction,
                                   bool going, Velto::FirstError & error ) {
   bool done = false;
   error.run( [&] {
      done = QON_HOOK( MirroringSmHelper, root_->in_.helper, removeSourceFromHardware, name_,
                       mirrorGroup_, egressId(), port, direction, going );
   } );
   if ( !done ) {
      QON_TRACE( mirroringFacility, 1, "Failed to remove source ", port, " from session ", name_ );
   }
   if ( local.programmed() ) {
      counts_.change( local.direction(), -1 );
      if ( going && local.inHw_.filtered() ) {
         root_->askAclRoom();
      }
   }
   local.inHw_ = MirrorSource();
   local.left_ = Direction::none;
   local.aclAsked_ = false;
}

// --- What fits -----------------------------------------------------------------------------------

MirrorOverflow
KivMirroringSession::overflowOf( const Counts & counts ) const {
   auto helper = root_->in_.helper.ptr();
   if ( !tunnelWanted() && root_->cutThrough() &&
        helper->sourcesOverlap( name_, counts.rx(), counts.tx() ) ) {
      return MirrorOverflow::overlap;
   }
   return helper->sourcesFit( name_, counts.both, counts.uni() ) ? MirrorOverflow::normal
                                                                 : MirrorOverflow::overLimit;
}

MirrorOverflow
KivMirroringSession::checkSrcOverflow( Direction direction ) const {
   Counts with = counts_;
   with.change( direction, 1 );
   return overflowOf( with );
}

/** The new state is counted before the old one is not: between them nothing looks well. */
void
KivMirroringSession::overflowStateIs( IntfId port, MirrorSrcIntfLocal & local,
                                      MirrorOverflow state ) {
   const MirrorOverflow before = local.overflowState_;
   if ( state == before ) {
      return;
   }
   local.overflowState_ = state;
   if ( state == MirrorOverflow::normal ) {
      overflowed_.erase( port );
   } else {
      overflowed_.emplace( port );
   }
   Velto::FirstError error;
   if ( state == MirrorOverflow::overLimit ) {
      overflowLoggedIs( overflowLogged_ + 1 );
      resourceMessageLogged_ = true;
      error.run( [&] {
         auto helper = root_->in_.helper.ptr();
         mirrorLog( mirrorSourceResourcesFull, port, name_, U32( helper->maxBiDirSources() ),
                    U32( helper->maxUniDirSources() ) );
      } );
   } else if ( state == MirrorOverflow::overlap ) {
      // fixed text
      QON_TRACE( mirroringFacility, 1, port, " of session ", name_,
                 ": Invalid Overlapping mtp Detected" );
      invalidOverlapLoggedIs( invalidOverlapLogged_ + 1 );
      resourceMessageLogged_ = true;
      error.run( [&] { mirrorLog( mirrorInvalidSessionInCutThrough, port, name_ ); } );
   }
   error.run( [&] {
      if ( before == MirrorOverflow::overLimit ) {
         overflowLoggedIs( overflowLogged_ - 1 );
      } else if ( before == MirrorOverflow::overlap ) {
         invalidOverlapLoggedIs( invalidOverlapLogged_ - 1 );
      }
   } );
   error.pass();
}

void
KivMirroringSession::overflowLoggedIs( U32 overflows ) {
   root_->overflowsAre( S32( overflows - overflowLogged_ ) );
   overflowLogged_ = overflows;
   root_->reviewInvalidSources();
}

void
KivMirroringSession::invalidOverlapLoggedIs( U32 overlaps ) {
   root_->overflowsAre( S32( overlaps - invalidOverlapLogged_ ) );
   invalidOverlapLogged_ = overlaps;
   root_->reviewInvalidSources();
}

/** In the order of the interfaces. */
void
KivMirroringSession::reviewWaiting() {
   std::vector< IntfId > ports;
   for ( auto && [port, none] : overflowed_ ) {
      ports.push_back( port );
   }
   Velto::FirstError error;
   reviewEach( ports, error );
   error.pass();
}

/** Who raises is looked at once more on its own: what made this one due may be over by then. */
void
KivMirroringSession::reviewEach( const std::vector< IntfId > & ports, Velto::FirstError & error ) {
   for ( IntfId port : ports ) {
      if ( !error.run( [&] { reviewSource( port ); } ) ) {
         root_->later( { What::intf, nullptr, port } );
      }
   }
}

/** As if the sources were added one by one, in the order of the interfaces; those in hardware before
    the others, if it is said so. Who does not fit then goes, and who does comes. */
void
KivMirroringSession::judgeSources( bool programmedFirst ) {
   std::vector< IntfId > ports;
   for ( auto && [port, source] : sources_ ) {
      if ( source.local.programmed() || source.local.overflowState_ != MirrorOverflow::normal ) {
         ports.push_back( port );
      }
   }
   auto programmed = [&]( IntfId port ) { return sources_.find( port )->local.programmed(); };
   std::sort( ports.begin(), ports.end(), [&]( IntfId a, IntfId b ) {
      const bool first = programmed( a ), second = programmed( b );
      return programmedFirst && first != second ? first : a < b;
   } );
   const auto gone = thoseThatGo( ports );
   Velto::FirstError error;
   for ( auto & [port, before, why] : gone ) {
      auto & local = sources_.find( port )->local;
      removeSource( port, local, local.direction(), false, error );
      error.run( [&, overflow = why] { overflowStateIs( port, local, overflow ); } );
   }
   std::erase_if( ports, programmed );
   reviewEach( ports, error ); // who waited before comes where its turn is
   for ( auto & [port, before, why] : gone ) {
      if ( auto source = sources_.find( port ) ) {
         askOthers( before, source->local );
      }
   }
   error.pass();
}

/** Those in hardware that do not fit behind the ones before them. */
std::vector< KivMirroringSession::Gone >
KivMirroringSession::thoseThatGo( const std::vector< IntfId > & ports ) const {
   Counts counts;
   std::vector< Gone > gone;
   for ( IntfId port : ports ) {
      const auto & local = sources_.find( port )->local;
      Counts with = counts;
      with.change( local.wanted_.direction, 1 );
      const MirrorOverflow why = overflowOf( with );
      if ( why == MirrorOverflow::normal ) {
         counts = with;
      } else if ( local.programmed() ) {
         gone.push_back( { port, local.inHw_, why } );
      }
   }
   return gone;
}

// --- Filters -------------------------------------------------------------------------------------

/** No room for the filter: the source goes, until there may be room. What was said of an earlier
    attempt, perhaps of an earlier life, is no answer. */
void
KivMirroringSession::reviewAclStatus( IntfId port ) {
   using QonTypes::TableAddStatus;
   auto source = sources_.find( port );
   auto hw = root_->in_.hwStatus ? root_->in_.hwStatus->session( name_ ) : nullptr;
   if ( !source || !hw || !hw->aclStatusHas( port ) || !source->local.aclAsked_ ) {
      return;
   }
   auto & local = source->local;
   const TableAddStatus outcome = hw->aclStatus( port );
   if ( outcome == TableAddStatus::success ) {
      local.aclFullLogged_ = false;
   }
   if ( outcome != TableAddStatus::full && outcome != TableAddStatus::failed ) {
      return;
   }
   local.aclFull_ = true;
   Velto::FirstError error;
   if ( outcome == TableAddStatus::full && !std::exchange( local.aclFullLogged_, true ) ) {
      error.run( [] { mirrorLog( mirrorAclHwResourceFull ); } );
   }
   error.run( [&] { reviewSource( port ); } );
   error.pass();
}

void
KivMirroringSession::reviewHwSession() {
   auto hw = root_->in_.hwStatus ? root_->in_.hwStatus->session( name_ ) : nullptr;
   aclStatusWatch_.attach( this, hw );
   if ( !hw ) {
      return;
   }
   std::vector< IntfId > ports;
   for ( auto && [port, outcome] : hw->aclStatusIteratorConst() ) {
      ports.push_back( port );
   }
   Velto::FirstError error;
   for ( IntfId port : ports ) {
      error.run( [&] { reviewAclStatus( port ); } );
   }
   error.pass();
}

/** Another filter went. */
void
KivMirroringSession::reviewAclRoom() {
   std::vector< IntfId > ports;
   for ( auto && [port, source] : sources_ ) {
      if ( std::exchange( source.local.aclFull_, false ) ) {
         ports.push_back( port );
      }
   }
   std::sort( ports.begin(), ports.end() );
   Velto::FirstError error;
   reviewEach( ports, error );
   error.pass();
}

// --- Publishing ----------------------------------------------------------------------------------

void
KivMirroringSession::publishSource( IntfId port, const MirrorSrcIntfLocal & local ) {
   publishEgress();
   auto published = status();
   if ( !published ) {
      return;
   }
   const bool failed = !local.programmed() && local.reason() != MirrorReason::notWanted &&
                       local.reason() != MirrorReason::noDestination;
   if ( local.programmed() ) {
      published->programmedSrcIs( port, local.direction() );
   } else {
      published->programmedSrcDel( port );
   }
   failed ? published->failedSrcIs( port ) : published->failedSrcDel( port );
}

void
KivMirroringSession::publishEgress() {
   auto & acsd = *root_->in_.acsd;
   if ( createdInHw_ && counts_.tx() ) {
      acsd.mirrorSessionNameToEgressIdIs( name_, U8( mirrorGroup_ ) );
   } else if ( acsd.mirrorSessionNameToEgressIds() ) {
      acsd.mirrorSessionNameToEgressIdDel( name_ );
   }
}

} // namespace Qon
