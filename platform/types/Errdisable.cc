#include "platform/types/Errdisable.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Errdisable::CauseConfig )
KIV_DEFINE( Errdisable::CauseStatus )
