#pragma once
// The number by which the hardware knows an aggregate.

#include "platform/types/Ulnet.h"

namespace Qon {

/** Whether the hardware can hold the aggregate: a port-channel, no recirculation channel, with
    exactly one number in its name. */
bool hasLagIndex( Ulnet::IntfId lagName );

/** The port-channel number. An interface that has no index is a fatal assertion. */
U32 getLagIndex( Ulnet::IntfId lagName );

} // namespace Qon
