#include "platform/types/Lag.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Lag::Input::IntfDeviceNameDir )
