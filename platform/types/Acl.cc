#include "platform/types/Acl.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Acl::AclConfig )
KIV_DEFINE( Acl::TypeConfig )
KIV_DEFINE( Acl::Config )
KIV_DEFINE( Acl::DirectionIntfConfig )
KIV_DEFINE( Acl::TypeIntfConfig )
KIV_DEFINE( Acl::IntfConfig )
KIV_DEFINE( Acl::ParamConfig )
KIV_DEFINE( Acl::PerHostConfig )
KIV_DEFINE( Acl::IntfCardConfig )
KIV_DEFINE( Acl::DpAclUpdateRequest )
KIV_DEFINE( Acl::DpAclUpdateStatus )
