#include "platform/types/TapAgg.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( TapAgg::HwConfig )
