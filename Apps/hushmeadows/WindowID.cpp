#include "Apps/hushmeadows/WindowID.h"

#include <charconv>

namespace hushmeadows {

std::optional<std::uint64_t> parseWindowID(std::string_view text)
{
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
        base = 16;
    }
    std::uint64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (text.empty() || error != std::errc{} || end != text.data() + text.size() || value == 0)
        return std::nullopt;
    return value;
}

} // namespace hushmeadows
