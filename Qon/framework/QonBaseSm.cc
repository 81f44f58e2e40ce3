#include "Qon/include/framework/QonBaseSm.h"

#include "platform/Kiv/TypeData.h"

namespace Qon {

const Kiv::TypeData QonBaseSm::kivTypeData = { "Qon::QonBaseSm", nullptr, nullptr, 0, 0 };

Velto::Ptr< QonBaseSm >
QonBaseSmIs() {
   return smIs< QonBaseSm >();
}

} // namespace Qon
