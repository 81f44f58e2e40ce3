#include "platform/types/VerifyAgent.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( VerifyAgent::Config )
KIV_DEFINE( VerifyAgent::Status )
KIV_DEFINE( VerifyAgent::Request )
KIV_DEFINE( VerifyAgent::RequestDir )
