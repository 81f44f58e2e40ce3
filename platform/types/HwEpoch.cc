#include "platform/types/HwEpoch.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( HwEpoch::RestrictionStatus )
KIV_DEFINE( HwEpoch::CardStatus )
KIV_DEFINE( HwEpoch::Status )
