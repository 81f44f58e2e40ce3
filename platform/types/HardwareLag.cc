#include "platform/types/HardwareLag.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Hardware::FapIdPortDir )
KIV_DEFINE( Hardware::Lag::LagConfig )
KIV_DEFINE( Hardware::Lag::Config )
KIV_DEFINE( Hardware::Lag::LagStatus )
KIV_DEFINE( Hardware::Lag::Status )
KIV_DEFINE( Hardware::Lag::AggregatedLagConfig )
KIV_DEFINE( Hardware::Lag::AggregatedLagConfigDir )
KIV_DEFINE( Hardware::Lag::MemberStatusDir )

namespace Hardware::Lag {

LagConfig::LagConfig( const Ulnet::IntfId & lag, U32 index ) : lagId_( lag ), index_( index ) {}
LagStatus::LagStatus( const Ulnet::IntfId & lag ) : lagId_( lag ) {}
AggregatedLagConfig::AggregatedLagConfig( const Ulnet::IntfId & lag ) : lagId_( lag ) {}

} // namespace Hardware::Lag
