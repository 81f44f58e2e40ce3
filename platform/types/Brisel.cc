#include "platform/types/Brisel.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Brisel::IntfEncapServiceIntfColl )
