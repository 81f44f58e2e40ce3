#pragma once
// Fixed-width numbers and the string type that every layer uses.

#include <cstdint>
#include <string>

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
using S8 = std::int8_t;
using S16 = std::int16_t;
using S32 = std::int32_t;
using S64 = std::int64_t;

namespace Velto {
using String = std::string;
}
