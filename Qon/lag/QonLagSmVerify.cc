// Verification: the maps against the status directory, one line for each difference.
// fixed text, all of the lines.

#include "Qon/include/lag/QonLagSm.h"

namespace Qon {

using Ulnet::IntfId;

namespace {

String
lagText( IntfId lag ) {
   return "Lag " + lag.stringValue();
}

String
memberText( IntfId lag, IntfId member ) {
   return lagText( lag ) + ", member " + member.stringValue();
}

} // namespace

void
LagSm::handleVerify() {
   if ( runVerify() ) {
      verifyData()->retryVerifyIs( true );
   }
}

void
LagSm::handleRetryVerify() {
   runVerify();
}

/** Whether there were findings. */
bool
LagSm::runVerify() const {
   if ( !initialized() || !verifyData() ) {
      return false;
   }
   const U32 before = verifyData()->verifyInc();
   verifyLagToPort();
   verifyStatus();
   verifyDeviceNames();
   verifyPortToLag();
   return verifyData()->verifyInc() != before;
}

void
LagSm::verifyLagToPort() const {
   for ( auto && [lag, list] : acsd()->lagToPortIteratorConst() ) {
      if ( !isIntfManaged( lag ) ) {
         QON_FINDING( verifyData(), "unmanaged LAG " + lag.stringValue() +
                                          " should not be in lagToPort collection.\n" );
      }
      if ( !in_.ethLagIntfStatusDir->intfStatusHas( lag ) ) {
         QON_FINDING( verifyData(), lagText( lag ) +
                                          " is in lagToPort but missing in ethLagIntfStatusDir "
                                          "collection\n" );
      }
      for ( auto & [member, flags] : list ) {
         const IntfId value = acsd()->portToLag( member );
         if ( !acsd()->portToLagHas( member ) ) {
            QON_FINDING( verifyData(),
                         memberText( lag, member ) +
                               " is in lagToPort but missing in portToLag collection\n" );
         } else if ( value != lag ) {
            QON_FINDING( verifyData(), lagText( lag ) + ", Lag value for member " +
                                             member.stringValue() +
                                             " is wrong: " + value.stringValue() + "\n" );
         }
      }
   }
}

void
LagSm::verifyStatus() const {
   const auto & names = in_.lagInputIntfDeviceNameDir;
   for ( auto && [lag, status] : in_.ethLagIntfStatusDir->intfStatusIteratorConst() ) {
      if ( isIntfManaged( lag ) ) {
         if ( !acsd()->lagToPortHas( lag ) ) {
            QON_FINDING( verifyData(), lagText( lag ) + " is in ethLagIntfStatusDir but missing "
                                                        "in lagToPort collection\n" );
         }
         verifyStatusMembers( *status );
      }
      if ( names && !names->intfDeviceNameHas( lag ) ) {
         QON_FINDING( verifyData(), lagText( lag ) + " is in ethLagIntfStatusDir but missing in "
                                                     "lagInputIntfDeviceNameDir collection\n" );
      }
   }
}

/** A port that another aggregate lists too may be there instead. */
void
LagSm::verifyStatusMembers( const Interface::EthLagIntfStatus & status ) const {
   const IntfId lag = status.intfId();
   for ( auto && [member, flags] : status.intfIteratorConst() ) {
      if ( !isIntfManaged( member ) || acsd()->lagToPort( lag ).portHas( member ) ) {
         continue;
      }
      const IntfId value = acsd()->portToLag( member );
      auto other = in_.ethLagIntfStatusDir->intfStatus( value );
      if ( value == lag || !other || !other->intfHas( member ) ) {
         QON_FINDING( verifyData(),
                      memberText( lag, member ) + " is missing in lagToPort collection\n" );
      }
   }
}

void
LagSm::verifyDeviceNames() const {
   if ( !in_.lagInputIntfDeviceNameDir ) {
      return;
   }
   for ( auto && [lag, name] : in_.lagInputIntfDeviceNameDir->intfDeviceNameIteratorConst() ) {
      auto status = in_.ethLagIntfStatusDir->intfStatus( lag );
      if ( !status ) {
         QON_FINDING( verifyData(), lagText( lag ) + " is in lagInputIntfDeviceNameDir but missing "
                                                     "in ethLagIntfStatusDir collection\n" );
      } else if ( status->deviceName() != name ) {
         QON_FINDING( verifyData(), lagText( lag ) + ", device name " + name +
                                          " in lagInputIntfDeviceNameDir differs to the one in "
                                          "ethLagIntfStatusDir: " +
                                          status->deviceName() + "\n" );
      }
   }
}

void
LagSm::verifyPortToLag() const {
   for ( auto && [member, lag] : acsd()->portToLagIteratorConst() ) {
      auto status = in_.ethLagIntfStatusDir->intfStatus( lag );
      if ( !status || !status->intfHas( member ) || !isIntfManaged( member ) ) {
         QON_FINDING( verifyData(), memberText( lag, member ) + " should not be in " +
                                          lag.stringValue() + ", in portToLag collection\n" );
      }
   }
}

String
LagSm::checkInvariants() const {
   for ( auto && [lag, list] : acsd()->lagToPortIteratorConst() ) {
      if ( !wanted( lag ) ) {
         return lag.stringValue() + " is in lagToPort without a status";
      }
      for ( auto & [member, flags] : list ) {
         if ( acsd()->portToLag( member ) != lag ) {
            return memberText( lag, member ) + " is in lagToPort but portToLag says otherwise";
         }
      }
   }
   for ( auto && [member, lag] : acsd()->portToLagIteratorConst() ) {
      if ( !acsd()->lagToPort( lag ).portHas( member ) || ownerOf( member ) != lag ) {
         return memberText( lag, member ) + " is in portToLag but is no member";
      }
   }
   for ( auto && [port, lags] : claims_.all() ) {
      if ( acsd()->portToLag( port ) != ownerOf( port ) ) {
         return port.stringValue() + " is not in its aggregate";
      }
   }
   for ( auto && [lag, status] : in_.ethLagIntfStatusDir->intfStatusIteratorConst() ) {
      if ( isIntfManaged( lag ) && !acsd()->lagToPortHas( lag ) ) {
         return lag.stringValue() + " has a status but no entry in lagToPort";
      }
   }
   for ( IntfId lag : status_.heldKeys() ) {
      if ( wantedPeerLink( lag ) != sharedPeerLink( lag ) ) {
         return lag.stringValue() + " shares the wrong peer link";
      }
   }
   return lagProgSm() ? lagProgSm()->checkInvariants() : "";
}

} // namespace Qon
