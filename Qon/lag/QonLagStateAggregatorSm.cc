#include "Qon/include/lag/QonLagStateAggregatorSm.h"

#include "Qon/include/framework/QonTraceHandles.h"

namespace Qon {

using Hardware::Lag::MemberStatus;
using Hardware::Lag::Result;
using Ulnet::IntfId;

namespace {

Flintlog::Facility stateAggregatorFacility( "QonLagStateAggregatorSm" );

/** The result of both: the first that is no success. */
Result
joined( Result one, Result other ) {
   return one == Result::success ? other : one;
}

} // namespace

LagMemberStateAggregatorSm::LagMemberStateAggregatorSm( LagStateAggregatorSm * aggregator,
                                                        IntfId lag )
    : aggregator_( aggregator ), lag_( lag ) {
   for ( U32 n = 0; n < aggregator->slices().size(); ++n ) {
      slices_.push_back( std::make_unique< Slice >() );
   }
}

void
LagMemberStateAggregatorSm::handleInitialized() {
   if ( initialized() ) {
      handleSlices();
   }
}

void
LagMemberStateAggregatorSm::handleSlices() {
   const Velto::Hold alive( this ), aggregatorAlive( aggregator_ );
   for ( U32 n = 0; n < slices_.size(); ++n ) {
      const LagStatus * now = aggregator_->slices()[n]->lag( lag_ );
      if ( slices_[n]->member.entity() != now ) {
         slices_[n]->member.attach( this, now );
         slices_[n]->result.attach( this, now );
         slices_[n]->index.attach( this, now );
      }
   }
   Velto::FirstError error;
   error.run( [&] { handleState(); } );
   for ( auto && entry : knownMembers() ) {
      error.run( [&] { handleMember( entry.key ); } );
   }
   error.pass();
}

/** The members in any slice and in the merged state. */
KeySet< IntfId >
LagMemberStateAggregatorSm::knownMembers() const {
   KeySet< IntfId > members;
   auto add = [&]( const LagStatus * state ) {
      if ( state ) {
         for ( auto && [member, status] : state->memberIteratorConst() ) {
            members.emplace( member );
         }
      }
   };
   add( aggregator_->merged()->lag( lag_ ) );
   for ( auto & slice : aggregator_->slices() ) {
      add( slice->lag( lag_ ) );
   }
   return members;
}

void
LagMemberStateAggregatorSm::handleState() {
   Result result = Result::success;
   U32 index = 0;
   for ( auto & slice : aggregator_->slices() ) {
      if ( auto state = slice->lag( lag_ ) ) {
         result = joined( result, state->result() );
         index = state->index();
      }
   }
   if ( aggregator_->lagExists( lag_ ) ) {
      const Velto::Ptr< Hardware::Lag::Status > all( aggregator_->merged() );
      Velto::FirstError error;
      error.run( [&] { all->lagIs( lag_ ); } );
      auto merged = all->lagIs( lag_ );
      error.run( [&] { merged->indexIs( index ); } );
      error.run( [&] { merged->resultIs( result ); } );
      error.pass();
   }
}

void
LagMemberStateAggregatorSm::handleMember( const IntfId & member ) {
   bool exists = false, collecting = true, distributing = true, shared = false;
   Result result = Result::success;
   for ( auto & slice : aggregator_->slices() ) {
      auto state = slice->lag( lag_ );
      if ( state && state->memberHas( member ) ) {
         const MemberStatus status = state->member( member );
         exists = true;
         collecting = collecting && status.collecting();
         distributing = distributing && status.distributing();
         shared = shared || status.shared();
         result = joined( result, status.result() );
      }
   }
   auto merged = aggregator_->merged()->lag( lag_ );
   if ( exists && merged ) {
      merged->memberIs( member, MemberStatus( result, collecting, distributing, shared ) );
   } else if ( merged && merged->memberHas( member ) ) {
      QON_TRACE( stateAggregatorFacility, 3, lag_, " Cleaning up member: ", member ); // fixed text
      merged->memberDel( member );
   }
}

void
LagMemberStateAggregatorSm::doCleanup() {
   const Velto::Ptr< Hardware::Lag::Status > all( aggregator_->merged() );
   if ( Velto::Ptr< LagStatus > merged = all->lag( lag_ ) ) {
      Velto::FirstError error;
      for ( auto && entry : keysOf< IntfId >( merged->memberIteratorConst() ) ) {
         QON_TRACE( stateAggregatorFacility, 3, lag_,
                    " Cleaning up member: ", entry.key ); // fixed text
         error.run( [&] { merged->memberDel( entry.key ); } );
      }
      error.run( [&] { all->lagDel( lag_ ); } );
      error.pass();
   }
}

LagStateAggregatorSm::LagStateAggregatorSm( Slices slices,
                                            Velto::Ptr< Hardware::Lag::Status > merged )
    : slices_( std::move( slices ) ), merged_( std::move( merged ) ) {}

void
LagStateAggregatorSm::handleInitialized() {
   if ( !initialized() ) {
      lags_.rest();
      return;
   }
   watches_.clear();
   auto lags = keysOf< IntfId >( merged_->lagIteratorConst() );
   for ( auto & slice : slices_ ) {
      watches_.push_back( std::make_unique< LagWatch >() );
      watches_.back()->attach( this, slice.ptr() );
      for ( auto && [lag, status] : slice->lagIteratorConst() ) {
         lags.emplace( lag );
      }
   }
   Velto::FirstError error;
   for ( auto && entry : lags ) {
      error.run( [&] { handleHwLagStatus( entry.key ); } );
   }
   error.pass();
}

void
LagStateAggregatorSm::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   lags_.kivDoZombieReactors();
}

bool
LagStateAggregatorSm::lagExists( IntfId lag ) const {
   for ( auto & slice : slices_ ) {
      if ( slice->lagHas( lag ) ) {
         return true;
      }
   }
   return false;
}

void
LagStateAggregatorSm::handleHwLagStatus( const IntfId & lag ) {
   const Velto::Hold alive( this );
   const bool followed = lags_.has( lag );
   lags_.review( lag, lagExists( lag ) );
   if ( auto sm = lags_.sm( lag ) ) {
      if ( followed ) {
         sm->handleSlices();
      }
   } else if ( merged_->lagHas( lag ) ) {
      QON_TRACE( stateAggregatorFacility, 3, " Cleaning up lag: ", lag ); // fixed text
      merged_->lagDel( lag ); // what an earlier incarnation left
   }
}

Velto::Ptr< LagMemberStateAggregatorSm >
LagStateAggregatorSm::makeLagSm( const IntfId & lag, const bool & ) {
   QON_TRACE( stateAggregatorFacility, 3, " Adding lag: ", lag ); // fixed text
   return smIs< LagMemberStateAggregatorSm >( this, lag );
}

void
LagStateAggregatorSm::cleanUpLagSm( const IntfId & lag, LagMemberStateAggregatorSm * sm ) {
   QON_TRACE( stateAggregatorFacility, 3, " Cleaning up lag: ", lag ); // fixed text
   sm->doCleanup();
}

Velto::Ptr< LagStateAggregatorSm >
LagStateAggregatorSmIs( LagStateAggregatorSm::Slices slices,
                        Velto::Ptr< Hardware::Lag::Status > merged ) {
   return smIs< LagStateAggregatorSm >( std::move( slices ), std::move( merged ) );
}

} // namespace Qon
