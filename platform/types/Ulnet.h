#pragma once
// The identifiers and addresses of namespace Ulnet, together.

#include "platform/types/EthAddr.h"
#include "platform/types/IntfId.h"
#include "platform/types/IpAddr.h"
