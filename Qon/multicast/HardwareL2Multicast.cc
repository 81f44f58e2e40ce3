#include "Qon/multicast/MulticastTrace.h"
#include "platform/Kiv/Describe.h"

KIV_DEFINE( Qon::HardwareL2MulticastBitmap )
KIV_DEFINE( Qon::HardwareL2MulticastEntry )
KIV_DEFINE( Qon::MulticastDataFactory )

namespace Qon {

using QonTypes::TableAddStatus;

Flintlog::Facility multicastFacility( "QonMulticastHelper" );

QonLogHandle multicastNoGroups( "QonMulticastSm", QonLog::DATAPLANE_NOMULTICASTGROUPS );
QonLogHandle multicastGroupClear( "QonMulticastSm", QonLog::DATAPLANE_MULTICASTGROUPCLEAR );
QonLogHandle multicastNoMacEntries( "QonMulticastSm", QonLog::DATAPLANE_NOMACTABLEENTRIES );
QonLogHandle multicastMacEntryClear( "QonMulticastSm", QonLog::DATAPLANE_MACTABLEENTRYCLEAR );

// --- The factory, and the hooks that nobody overrode -----------------------------------------------

Velto::Ptr< HardwareL2MulticastEntry >
MulticastDataFactory::getHardwareL2MulticastEntry( MulticastHelper * helper, S64 vGroup ) {
   qonAssert( unimplementedFunction( "MulticastDataFactory::getHardwareL2MulticastEntry" ) );
   return Velto::make< HardwareL2MulticastEntry >( helper, vGroup );
}

Velto::Ptr< HardwareL2MulticastBitmap >
MulticastDataFactory::getHardwareL2MulticastBitmap( MulticastHelper * helper,
                                                    const QonTypes::Bitmap & ports,
                                                    const BitmapInfoType & info ) {
   qonAssert( unimplementedFunction( "MulticastDataFactory::getHardwareL2MulticastBitmap" ) );
   return Velto::make< HardwareL2MulticastBitmap >( helper, ports, info );
}

U32
MulticastDataFactory::getMaxL2MulticastGroups() {
   qonAssert( unimplementedFunction( "MulticastDataFactory::getMaxL2MulticastGroups" ) );
   return 0;
}

BitmapInfoType
MulticastDataFactory::getBitmapInfoType() {
   qonAssert( unimplementedFunction( "MulticastDataFactory::getBitmapInfoType" ) );
   return {};
}

HardwareL2MulticastBitmap::HardwareL2MulticastBitmap( MulticastHelper * helper,
                                                      const QonTypes::Bitmap & ports,
                                                      const BitmapInfoType & info )
    : QonBaseHelper( String() ), helper_( helper ), ports_( ports ), info_( info ) {}

/** Without a chip every set has a group of its own. */
S64
HardwareL2MulticastBitmap::createL2MulticastEntry() {
   qonAssert( unimplementedFunction( "HardwareL2MulticastBitmap::createL2MulticastEntry" ) );
   return number_;
}

void
HardwareL2MulticastBitmap::writeGroupsToHardware( const QonTypes::Bitmap & ) {
   qonAssert( unimplementedFunction( "HardwareL2MulticastBitmap::writeGroupsToHardware" ) );
}

void
HardwareL2MulticastBitmap::modifyGroupsInHardware( const QonTypes::Bitmap & ports ) {
   writeGroupsToHardware( ports );
}

void
HardwareL2MulticastBitmap::lagsAdd( const QonPortList & lags ) {
   for ( IntfId lag : lags ) {
      lagList_.portIs( lag );
   }
}

HardwareL2MulticastEntry::HardwareL2MulticastEntry( MulticastHelper * helper, S64 vGroup )
    : QonBaseHelper( String() ), helper_( helper ), vGroup_( vGroup ) {}

TableAddStatus
HardwareL2MulticastEntry::updateMacTableEntry() {
   return TableAddStatus::success;
}

void
HardwareL2MulticastEntry::deleteMacTableEntry() {
   qonAssert( unimplementedFunction( "HardwareL2MulticastEntry::deleteMacTableEntry" ) );
}

void
HardwareL2MulticastEntry::deleteHwShadowedMacTableEntry() {}

bool
HardwareL2MulticastEntry::isSynced( IntfId intf ) const {
   auto since = physicalPorts_.find( intf );
   since = since ? since : lagPorts_.find( intf );
   return since && *since < syncs_;
}

// --- Synchronisation -------------------------------------------------------------------------------

TableAddStatus
HardwareL2MulticastEntry::syncWithHardware() {
   const Velto::Hold helperAlive( helper_ ), alive( this );
   helper_->computeDesired( *this );
   ++syncs_;
   if ( inSync() ) {
      bitmap_->lagsAdd( lag_ );
      QON_TRACE( multicastFacility, 8,
                 "Bitmaps in software and hardware are the same, nothing to do" );
      return TableAddStatus::success;
   }
   TableAddStatus bitmapStatus = TableAddStatus::failed, macStatus = TableAddStatus::failed;
   Velto::FirstError error;
   error.run( [&] {
      bitmapStatus = reviewBitmap();
      macStatus = reviewMacEntry();
   } );
   // The MAC entry leads elsewhere by now.
   error.run( [&] { helper_->freeUnused(); } );
   error.pass();
   return bitmapStatus == TableAddStatus::success ? macStatus : bitmapStatus;
}

/** The bitmap may be right, and the MAC entry still be missing or lead elsewhere. */
bool
HardwareL2MulticastEntry::inSync() const {
   return bitmap_ && !overflowLogged_ && bitmap_->ports() == desired_ && !bitmap_->stale() &&
          macTableEntryCreated() && macBitmap_ == bitmap_;
}

TableAddStatus
HardwareL2MulticastEntry::reviewBitmap() {
   if ( overflowLogged_ || !bitmap_ || bitmap_->ports() != desired_ ) {
      auto bitmap = helper_->bitmapFor( desired_ );
      if ( !bitmap ) {
         return overflow();
      }
      pointAt( std::move( bitmap ) );
      overflowLoggedIs( false );
   }
   bitmap_->lagsAdd( lag_ );
   if ( bitmap_->stale() ) {
      helper_->writeBitmap( *bitmap_ );
   }
   return TableAddStatus::success;
}

TableAddStatus
HardwareL2MulticastEntry::overflow() {
   auto overflow = helper_->overflow();
   Velto::FirstError error;
   error.run( [&] { overflowLoggedIs( true ); } );
   QON_TRACE( multicastFacility, 5, shownGroup( macVlan_ ),
              " This entry has overflowed, it'll point to all ports" );
   error.run( [&] { helper_->addFloodEntry(); } );
   const Velto::Ptr< HardwareL2MulticastBitmap > flood( overflow->floodBitmap() );
   if ( flood && bitmap_ != flood ) {
      ++flood->refCount_;
      pointAt( flood );
   }
   waitForBitmap();
   error.pass();
   return TableAddStatus::full;
}

/** Behind all others that wait, unless it does already. */
void
HardwareL2MulticastEntry::waitForBitmap() {
   auto overflow = helper_->overflow();
   if ( !overflow->vGroupNeedingHwEntryHas( vGroup_ ) ) {
      overflow->vGroupNeedingHwEntryIs( vGroup_ );
      retry_ = overflow->mcastEntryNeedingHwEntryEnq( this );
   }
}

/** The caller has counted it. */
void
HardwareL2MulticastEntry::pointAt( Velto::Ptr< HardwareL2MulticastBitmap > bitmap ) {
   std::swap( bitmap_, bitmap );
   if ( bitmap ) {
      helper_->countDel( *bitmap, bitmap->refCount_ );
   }
}

// --- The MAC entry ---------------------------------------------------------------------------------

TableAddStatus
HardwareL2MulticastEntry::reviewMacEntry() {
   if ( !bitmap_ || bitmap_->groupIndex() == HardwareL2MulticastBitmap::noGroup ) {
      dropMacEntry(); // the chip has not even a group that floods: it floods what it does not know
      return TableAddStatus::full;
   }
   if ( macTableEntryCreated() && macBitmap_ == bitmap_ ) {
      return TableAddStatus::success;
   }
   doubtMacEntry();
   QON_TELL_HOOK( HardwareL2MulticastEntry, updateMacTableEntry, macAddr(), vlanId(),
                  bitmap_->groupIndex() );
   const TableAddStatus status = updateMacTableEntry();
   if ( status != TableAddStatus::success && status != TableAddStatus::handedOver ) {
      macEntryRefused( status );
      return status;
   }
   macEntryIs( bitmap_ );
   macTableEntryCreated_ = true;
   if ( std::exchange( macTableOverflowLogged_, false ) ) {
      multicastLog( multicastMacEntryClear, macVlan_ );
   }
   return status;
}

bool
HardwareL2MulticastEntry::macTableEntryCreated() const {
   return macTableEntryCreated_ && macDoubts_ == helper_->macDoubts_;
}

/** Tells the chip's agent of parity errors of the MAC table since the entry was written. */
void
HardwareL2MulticastEntry::doubtMacEntry() {
   const U32 doubts = helper_->macDoubts_;
   if ( macBitmap_ && macDoubts_ != doubts ) {
      macTableEntryCreated_ = false; // until it is written, whatever raises before
      QON_TELL_HOOK( HardwareL2MulticastEntry, deleteHwShadowedMacTableEntry, macAddr(), vlanId() );
      deleteHwShadowedMacTableEntry();
   }
   macDoubts_ = doubts;
}

/** It must not lead to a group that is about to be freed. */
void
HardwareL2MulticastEntry::macEntryRefused( TableAddStatus status ) {
   Velto::FirstError error;
   error.run( [&] { dropMacEntry(); } );
   if ( status == TableAddStatus::failed ) {
      QON_TRACE( multicastFacility, 1, shownGroup( macVlan_ ), " MAC entry was refused" );
   }
   if ( status == TableAddStatus::full && !std::exchange( macTableOverflowLogged_, true ) ) {
      if ( const Velto::Ptr< MulticastSmBase > sm = sm_ ) {
         error.run( [&] { sm->logTableFull(); } );
      } else {
         multicastLog( multicastNoMacEntries, macVlan_ );
      }
   }
   error.pass();
}

/** Whatever is known of it: after a parity error there may be one that does not count as created. */
void
HardwareL2MulticastEntry::dropMacEntry() {
   macTableEntryCreated_ = false;
   if ( macBitmap_ ) {
      QON_TELL_HOOK( HardwareL2MulticastEntry, deleteMacTableEntry, macAddr(), vlanId() );
      deleteMacTableEntry();
      macEntryIs( nullptr );
   }
}

void
HardwareL2MulticastEntry::macEntryIs( Velto::Ptr< HardwareL2MulticastBitmap > bitmap ) {
   if ( bitmap ) {
      ++bitmap->macEntries_;
   }
   std::swap( macBitmap_, bitmap );
   if ( bitmap ) {
      helper_->countDel( *bitmap, bitmap->macEntries_ );
   }
}

// --- Overflow --------------------------------------------------------------------------------------

void
HardwareL2MulticastEntry::overflowLoggedIs( bool v ) {
   if ( std::exchange( overflowLogged_, v ) != v ) {
      overflowTime_ = v ? Kiv::now() : Kiv::never;
      handleOverflowLogged();
   }
}

void
HardwareL2MulticastEntry::handleOverflowLogged() {
   auto overflow = helper_->overflow();
   if ( overflowLogged_ ) {
      U32 limit = 0;
      Velto::FirstError error;
      auto ask = [&] {
         limit = QON_HOOK( MulticastDataFactory, helper_->factory(), getMaxL2MulticastGroups );
      };
      if ( !error.run( ask ) ) {
         error.run( ask );
      }
      multicastLog( multicastNoGroups, macVlan_, limit ); // whatever was raised: there is one only
      error.pass();
      return;
   }
   overflow->vGroupNeedingHwEntryDel( vGroup_ );
   overflow->mcastEntryNeedingHwEntryDel( std::exchange( retry_, 0 ) );
   multicastLog( multicastGroupClear, macVlan_ );
}

} // namespace Qon
