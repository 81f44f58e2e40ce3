#include "platform/types/Multicast.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Bridging::IgmpSnooping::EthGroupStatus )
KIV_DEFINE( Bridging::IgmpSnooping::VlanStatus )
KIV_DEFINE( Bridging::IgmpSnooping::Status )
KIV_DEFINE( Bridging::Multicast::StaticGroup )
KIV_DEFINE( Bridging::Multicast::StaticConfig )
KIV_DEFINE( Bridging::Multicast::CopyRequestConfig )
