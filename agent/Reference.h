#pragma once
// What an agent understands, as a page: the tables of a configuration, the events, the faults of its
// chip, and what can be shown. Made of what the features say of themselves.

#include "agent/Agent.h"

namespace QonAgent {

/** Markdown. */
String referenceOf( Agent & agent, const std::vector< ShowCommand > & shows );

} // namespace QonAgent
