#pragma once
// What is wrong with a text that should be JSON, in words for one line.

#include <nlohmann/json.hpp>
#include <string_view>

#include "platform/Velto/Types.h"

namespace QonAgent {

/** "LINE:COLUMN: not valid JSON: why". `position`: how far the parser came. */
Velto::String jsonComplaint( std::string_view text, std::size_t position,
                             const nlohmann::json::exception & e );

} // namespace QonAgent
