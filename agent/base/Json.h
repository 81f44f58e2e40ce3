#pragma once
// The JSON type of the agent: objects keep the order in which their fields were written.

#include <nlohmann/json_fwd.hpp>

namespace QonAgent {

using Json = nlohmann::ordered_json;

} // namespace QonAgent
