#include "platform/types/Mlag.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Mlag::Config )
KIV_DEFINE( Mlag::Status )
