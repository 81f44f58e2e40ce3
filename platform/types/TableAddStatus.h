#pragma once
// The outcome of adding to a hardware table, as status entities carry it.

#include "platform/Kiv/Text.h"

namespace QonTypes {

enum class TableAddStatus : U8 {
   success = 0,
   notNow = 1,     ///< cannot be done yet, try again later
   full = 2,       ///< no room; nothing was written
   failed = 3,     ///< refused for good
   handedOver = 4, ///< accepted; the outcome is reported later
};
KIV_ENUM( TableAddStatus, success, notNow, full, failed, handedOver )

} // namespace QonTypes
