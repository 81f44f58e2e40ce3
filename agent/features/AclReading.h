#pragma once
// What a ConfigDB file says of access lists, while it is being read.

#include <set>

#include "agent/features/AclFeature.h"

namespace QonAgent {

struct AclFeature::Reading {
   std::map< String, AclType > types; ///< of ACL_TABLE_TYPE
   std::map< String, List > lists;
   std::map< Place, String > intfs;
   Configured< Ulnet::IntfId, U16 >::Said subIntfs;
   std::set< std::pair< AclType, AclDirection > > directions; ///< that the file asks for
};

/** The same but for upper and lower case. */
bool sameWord( const String & text, const char * word );

/** The rule that a row describes; of a list of that type. RowError for what no rule can say. */
Acl::Rule aclRuleOf( const ConfigRow & row, Acl::AclType type );

/** "default", or "VLAN 20" */
String shownKey( const Qon::AclKey & key );

} // namespace QonAgent
