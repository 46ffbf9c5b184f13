#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace hushmeadows {

// An X window id as hosts pass it: decimal, or hexadecimal with 0x. None for
// anything else, and for 0 (no window).
std::optional<std::uint64_t> parseWindowID(std::string_view text);

} // namespace hushmeadows
