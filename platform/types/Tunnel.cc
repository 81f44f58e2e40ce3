#include "platform/types/Tunnel.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Tunnel::Status )
