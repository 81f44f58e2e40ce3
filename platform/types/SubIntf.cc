#include "platform/types/SubIntf.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Interface::SubIntfConfigDir )
