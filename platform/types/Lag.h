#pragma once
// Link aggregation: recirculation features of port-channels, and the device names of aggregates.

#include "platform/Kiv/Attr.h"
#include "platform/types/Ulnet.h"

namespace Lag {

namespace Recirc {

/** The features that send packets through a recirculation channel; a bit each. */
class RecircFeatureSet {
 public:
   bool isEmpty() const { return features_ == 0; }

 private:
   U32 features_ = 0;
   KIV_VALUE( Lag::Recirc, RecircFeatureSet, features )
};

} // namespace Recirc

namespace Input {

/** The kernel's device name of each aggregate. */
class IntfDeviceNameDir : public Kiv::Entity {
   KIV_BODY( IntfDeviceNameDir, Kiv::Entity )
   KIV_MAP( Ulnet::IntfId, Velto::String, intfDeviceName )
 public:
   explicit IntfDeviceNameDir( const Velto::String & name ) : Kiv::Entity( name ) {}
};

} // namespace Input
} // namespace Lag
