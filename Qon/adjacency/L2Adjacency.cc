#include "Qon/include/adjacency/L2Adjacency.h"

#include <bit>

#include "Qon/include/adjacency/L2AdjAssert.h"
#include "platform/Kiv/Describe.h"
#include "platform/Kiv/Toggle.h"

namespace Qon {

namespace {

/** Calls act( type ) for each of the set. */
template< class Act >
void
forEachType( TableTypeBoolSet types, Act && act ) {
   for ( U32 rest = types.value(); rest; rest &= rest - 1 ) {
      act( TableType( std::countr_zero( rest ) ) );
   }
}

} // namespace

U32
TableTypeBoolSet::size() const {
   return U32( std::popcount( value() ) );
}

L2AdjForwardingState
combineExpectedL2AdjForwardingStates( L2AdjForwardingState a, L2AdjForwardingState b ) {
   return std::max( a, b );
}

// The types by FEC

void
L2AdjTableType::setTableTypeForAdj( const GlobalFecId & fec, TableType type ) {
   const GlobalFecId fecId( fec );
   auto & types = *adjEntryAndTableType_.emplace( fecId ).first;
   if ( types.has( type ) ) {
      return;
   }
   types = types | TableTypeBoolSet( type );
   ++*adjTableType_.emplace( type, 0u ).first;
   publish( fecId, TableTypeBoolSet( type ) );
}

void
L2AdjTableType::unsetTableTypeForAdj( const GlobalFecId & fecId, TableType type ) {
   release( fecId, TableTypeBoolSet( type ) );
}

void
L2AdjTableType::handleAdjEntry( const GlobalFecId & fecId, bool holds ) {
   if ( !holds ) {
      release( fecId, ~TableTypeBoolSet() );
   }
}

/** Takes those of `types` from the FEC that it has. */
void
L2AdjTableType::release( const GlobalFecId & fec, TableTypeBoolSet types ) {
   const GlobalFecId fecId( fec );
   auto * held = adjEntryAndTableType_.find( fecId );
   const auto gone = held ? *held & types : TableTypeBoolSet();
   if ( !gone ) {
      return;
   }
   *held = *held & ~gone;
   if ( !*held ) {
      adjEntryAndTableType_.erase( fecId );
   }
   forEachType( gone, [&]( TableType type ) { decrementTableTypeInternal( type ); } );
   publish( fecId, gone );
}

void
L2AdjTableType::decrementTableTypeInternal( TableType type ) {
   auto * count = adjTableType_.find( type );
   if ( count && *count > 1 ) {
      --*count;
   } else {
      adjTableType_.erase( type );
   }
}

/** Both maps hold already what is told: who hears it may change it again. */
void
L2AdjTableType::publish( const GlobalFecId & fecId, TableTypeBoolSet changed ) {
   const Velto::Hold alive( this );
   Velto::FirstError error;
   error.run( [&] { kivPublish( adjEntryAndTableTypeAttr::index, fecId ); } );
   forEachType( changed, [&]( TableType type ) {
      error.run( [&] { kivPublish( adjTableTypeAttr::index, type ); } );
   } );
   error.pass();
}

TableTypeBoolSet
L2AdjTableType::adjTableTypeBoolSet() const {
   TableTypeBoolSet all;
   for ( auto && [type, count] : adjTableTypeIteratorConst() ) {
      all = all | TableTypeBoolSet( type );
   }
   return all;
}

// The adjacency

struct L2Adjacency::Data {
   L2AdjacencyData value;
   Kiv::Watch< ProxiedAdj::proxiedAdjEntryAttr, L2Adjacency, &L2Adjacency::handleProxiedAdjEntry >
         proxiedWatch;
};

L2Adjacency::L2Adjacency( const L2AdjKey & l2AdjKey ) : l2AdjKey_( l2AdjKey ) {
   hasNotificationActiveIs( true ); // it follows the adjacency that it is a proxy of
}

L2Adjacency::~L2Adjacency() = default;

const L2AdjacencyData &
L2Adjacency::l2AdjData() const {
   return data_ ? data_->value : Kiv::absent< L2AdjacencyData >();
}

L2AdjacencyData &
L2Adjacency::dataMut() {
   if ( !data_ ) {
      data_ = std::make_unique< Data >();
   }
   return data_->value;
}

void
L2Adjacency::ackInfoIs( const L2AdjAckInfo & v ) {
   if ( v != l2AdjData().ackInfo() ) {
      dataMut().ackInfoIs( v );
   }
}

void
L2Adjacency::setL2AdjAckInfo( const AdjEntry & adjEntry ) {
   ackInfoIs( L2AdjAckInfo( adjEntry.fibFecId(), adjEntry.lastReviewedPiVersionId() ) );
}

void
L2Adjacency::backupViaIs( const std::optional< NextHop > & v ) {
   if ( v != l2AdjData().backupVia() ) {
      dataMut().backupViaIs( v );
   }
}

void
L2Adjacency::lastAckedPdVersionIdIs( QonPdVersionId v ) {
   if ( v != l2AdjData().lastAckedPdVersionId() ) {
      dataMut().lastAckedPdVersionIdIs( v );
   }
}

void
L2Adjacency::proxiedAdjIs( const Velto::Ptr< ProxiedAdj > & v ) {
   if ( v == proxiedAdj() ) {
      return;
   }
   const Velto::Hold alive( this );
   dataMut().proxiedAdjIs( v );
   data_->proxiedWatch.attach( this, v.ptr() );
   releaseStrangers();
}

// Table types

bool
L2Adjacency::holds( const GlobalFecId & fecId ) const {
   return adjEntryHas( fecId ) || ( proxiedAdj() && proxiedAdj()->proxiedAdjEntryHas( fecId ) );
}

/** From the types in the object, which are those of `owner` or else of the only member, to a
    L2AdjTableType. */
Velto::Ptr< L2AdjTableType >
L2Adjacency::promote( const GlobalFecId * owner ) {
   auto types = Velto::make< L2AdjTableType >( "l2AdjTableType" );
   if ( inlineTypes_ ) {
      const GlobalFecId fecId = owner ? *owner : adjEntryIteratorConst().key();
      forEachType( inlineTypes_,
                   [&]( TableType type ) { types->setTableTypeForAdj( fecId, type ); } );
   }
   inlineTypes_ = {};
   dataMut().l2AdjTableTypeIs( types );
   return types;
}

Velto::Ptr< L2AdjTableType >
L2Adjacency::l2AdjTableTypeIs() {
   return l2AdjTableType() ? Velto::Ptr< L2AdjTableType >( l2AdjTableType() ) : promote( nullptr );
}

void
L2Adjacency::setTableTypeForAdj( const GlobalFecId & fec, TableType type ) {
   const GlobalFecId fecId( fec );
   const Velto::Hold alive( this );
   if ( !l2AdjTableType() ) {
      adjEntryIs( fecId );
      if ( !holds( fecId ) ) {
         return; // who heard of it took it out again
      }
      if ( !l2AdjTableType() && adjEntrys() == 1 && adjEntryHas( fecId ) ) {
         inlineTypes_ = inlineTypes_ | TableTypeBoolSet( type );
         return;
      }
   }
   const auto types = l2AdjTableTypeIs();
   // fixed text
   QON_L2ADJ_ASSERT( adjEntryHas( fecId ) ||
                     ( proxiedAdj() && proxiedAdj()->proxiedAdjEntryHas( fecId ) ) );
   types->setTableTypeForAdj( fecId, type );
}

void
L2Adjacency::unsetTableTypeForAdj( const AdjEntry & adjEntry, TableType type ) {
   const GlobalFecId fecId = adjEntry.globalFecId();
   if ( const Velto::Ptr< L2AdjTableType > types( l2AdjTableType() ); types ) {
      types->unsetTableTypeForAdj( fecId, type );
   } else if ( adjEntryHas( fecId ) ) {
      inlineTypes_ = inlineTypes_ & ~TableTypeBoolSet( type );
   }
}

bool
L2Adjacency::isTableTypeSetForAdj( const GlobalFecId & fecId, TableType type ) const {
   if ( const auto types = l2AdjTableType() ) {
      return types->adjEntryAndTableType( fecId ).has( type );
   }
   return adjEntryHas( fecId ) && inlineTypes_.has( type );
}

U32
L2Adjacency::adjTableTypes() const {
   const auto types = l2AdjTableType();
   return types ? types->adjTableTypes() : inlineTypes_.size();
}

TableTypeBoolSet
L2Adjacency::adjTableTypeBoolSet() const {
   const auto types = l2AdjTableType();
   return types ? types->adjTableTypeBoolSet() : inlineTypes_;
}

void
L2Adjacency::handleAdjEntry( const GlobalFecId & fecId ) {
   if ( const Velto::Ptr< L2AdjTableType > types( l2AdjTableType() ); types ) {
      types->handleAdjEntry( fecId, holds( fecId ) );
   } else if ( inlineTypes_ && adjEntrys() > 1 ) {
      auto owner = adjEntryIteratorConst(); // the first of them was here before
      promote( &owner.key() );
   } else if ( inlineTypes_ && adjEntrys() == 0 ) {
      if ( holds( fecId ) ) {
         promote( &fecId );
      } else {
         inlineTypes_ = {};
      }
   }
}

void
L2Adjacency::handleProxiedAdjEntry( const GlobalFecId & fecId ) {
   if ( const Velto::Ptr< L2AdjTableType > types( l2AdjTableType() ); types ) {
      types->handleAdjEntry( fecId, holds( fecId ) );
   }
}

/** Takes the types from those whom nobody holds any more. */
void
L2Adjacency::releaseStrangers() {
   const Velto::Ptr< L2AdjTableType > types( l2AdjTableType() );
   if ( !types ) {
      return;
   }
   Velto::FirstError error;
   for ( auto && [fecId, set] : types->adjEntryAndTableTypeIteratorConst() ) {
      error.run( [&, &fecId = fecId] { types->handleAdjEntry( fecId, holds( fecId ) ); } );
   }
   error.pass();
}

// Installation

void
L2Adjacency::validateHwState( L2AdjHardwareState state ) const {
   const auto hwState = [state] { return state; }; // the one that is to be, in the texts below
   // fixed texts
   if ( hwState().installed() ) {
      QON_L2ADJ_ASSERT( !hwState().ecmpGroupsFull() );
   } else if ( hwState().installFailed() ) {
      QON_L2ADJ_ASSERT( !hwState().notReady() );
      QON_L2ADJ_ASSERT( !hwState().ecmpGroupsFull() );
   } else if ( hwState().ecmpGroupsFull() ) {
      QON_L2ADJ_ASSERT( !hwState().notReady() );
   } else if ( hwState().notReady() ) {
      QON_L2ADJ_ASSERT( hwState().installed() );
   }
}

void
L2Adjacency::hwStateIs( L2AdjHardwareState state ) {
   validateHwState( state );
   if ( hwState_ != state ) {
      hwState_ = state;
      kivPublish( hwStateAttr::index );
   }
}

U32
L2Adjacency::configRefCountInc( U32 n ) {
   const U32 count = configRefCount() + n;
   configRefCountIs( count );
   return count;
}

U32
L2Adjacency::configRefCountDec( U32 n ) {
   return configRefCountInc( 0 - n );
}

// What may be expected

namespace {

/** Read at its first use, for the life of the process. */
bool
leanFaEcmpStickiness() {
   static const bool on = Kiv::toggle( "Qon.json", "QonLeanFaEcmpStickiness" );
   return on;
}

} // namespace

bool
L2Adjacency::potentialEcmp() const {
   if ( leanFaEcmpStickiness() ) {
      return potentialEcmp_;
   }
   return l2AdjKey_.nextHopCollection().viaAndWeights() > 1 ||
          ( proxiedAdj() && proxiedAdj()->potentialEcmp() );
}

bool
L2Adjacency::potentialHasBackup() const {
   return potentialHasBackup_ || l2AdjData().backupVia().value_or( NextHop() ) ||
          ( proxiedAdj() && proxiedAdj()->potentialHasBackup() );
}

bool
L2Adjacency::potentialHierarchicalNextHop() const {
   return potentialHierarchicalNextHop_ ||
          ( proxiedAdj() && proxiedAdj()->potentialHierarchicalNextHop() );
}

Velto::String
L2Adjacency::checkInvariants() const {
   const auto types = l2AdjTableType();
   if ( !types ) {
      return inlineTypes_ && adjEntrys() != 1 ? "types are kept in the object, of no single member"
                                              : "";
   }
   if ( inlineTypes_ ) {
      return "types are kept in the object as well";
   }
   Kiv::DenseMap< TableType, U32 > counts;
   for ( auto && [fecId, set] : types->adjEntryAndTableTypeIteratorConst() ) {
      if ( !set || !holds( fecId ) ) {
         return "FEC " + fecId.stringValue() +
                ( set ? " has types, but is not held" : " has an empty set of types" );
      }
      forEachType( set, [&]( TableType type ) { ++*counts.emplace( type, 0u ).first; } );
   }
   for ( auto && [type, count] : types->adjTableTypeIteratorConst() ) {
      if ( auto held = counts.find( type ); !held || *held != count ) {
         return "the count of " + Kiv::toText( type ) + " is not that of its FECs";
      }
   }
   return counts.size() == types->adjTableTypes() ? "" : "a type has no count";
}

} // namespace Qon

KIV_DEFINE( Qon::AdjVxlanTunnelInfo )
KIV_DEFINE( Qon::AdjTunnelIntfInfo )
KIV_DEFINE( Qon::AdjEntry )
KIV_DEFINE( Qon::ProxiedAdj )
KIV_DEFINE( Qon::L2AdjTableType )
KIV_DEFINE( Qon::L2Adjacency )
