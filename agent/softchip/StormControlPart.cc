#include "agent/softchip/StormControlPart.h"

#include "agent/softchip/Chip.h"

namespace SoftChip {

StormControlPart::StormControlPart( const Board & board )
    : shape_( board.shape.storm ), table_( board.faults, shape_.limiters ),
      meter_( table_, board.faults, shape_.slices ) {}

Velto::Ptr< Qon::StormControlSmHelper >
StormControlPart::makeStormControlHelper( const Velto::Ptr< Qon::QonCommonSmData > & acsd ) {
   return Velto::make< SoftStormHelper >( *this, acsd->verifyData() );
}

Velto::Ptr< Qon::QonStormControlSmHelperV2 >
StormControlPart::makeStormControlHelperV2(
      const Velto::Ptr< const Qon::StormControl::PlatformConfig > & config,
      const Velto::Ptr< Qon::StormControl::PlatformStatus > & status ) {
   return Velto::make< SoftStormHelperV2 >( *this, config, status );
}

Velto::Ptr< Velto::Node >
StormControlPart::makeDropCounter( const Velto::Ptr< Qon::StormControl::DropSliceDir > & slices ) {
   return Velto::make< SoftStormCounter >( *this, slices );
}

std::optional< QonChip::HeldStormControl >
StormControlPart::stormControl() const {
   QonChip::HeldStormControl all;
   for ( auto & [key, limit] : table_.held() ) {
      all.ports[key.first][key.second] = limit;
   }
   all.classes = table_.classes();
   return all;
}

void
StormControlPart::trafficIs( IntfId port, Qon::LevelType kind, bool cpu, const StormRate & rate ) {
   meter_.trafficIs( port, kind, cpu, rate );
   changed();
}

void
StormControlPart::changed() {
   if ( counter_ ) {
      counter_->touch();
   }
}

void
addStormControlPart( Chip & chip ) {
   chip.addPart< StormControlPart >();
}

} // namespace SoftChip
