#include "agent/softchip/SoftMulticast.h"

namespace SoftChip {

using QonTypes::Bitmap;

SoftMulticastFactory::SoftMulticastFactory( MulticastTable & table ) : table_( table ) {
   table_.clear();
}

Velto::Ptr< Qon::HardwareL2MulticastEntry >
SoftMulticastFactory::getHardwareL2MulticastEntry( Qon::MulticastHelper * helper, S64 vGroup ) {
   return Velto::make< SoftMulticastEntry >( table_, helper, vGroup );
}

Velto::Ptr< Qon::HardwareL2MulticastBitmap >
SoftMulticastFactory::getHardwareL2MulticastBitmap( Qon::MulticastHelper * helper,
                                                    const Bitmap & ports,
                                                    const Qon::BitmapInfoType & info ) {
   return Velto::make< SoftMulticastBitmap >( table_, helper, ports, info );
}

} // namespace SoftChip
