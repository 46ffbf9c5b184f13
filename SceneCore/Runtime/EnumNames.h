#pragma once

#include <array>
#include <optional>
#include <string_view>
#include <utility>

namespace hushmeadows {

// Every enumeration that travels as text has its names in one table, so that
// decoding, encoding and logging agree.
template <typename E, std::size_t N>
struct EnumNames {
    std::array<std::pair<E, std::string_view>, N> entries;

    constexpr std::string_view name(E value) const
    {
        for (const auto& [candidate, text] : entries)
            if (candidate == value)
                return text;
        return {};
    }

    constexpr std::optional<E> value(std::string_view text) const
    {
        for (const auto& [candidate, name] : entries)
            if (name == text)
                return candidate;
        return std::nullopt;
    }
};

// Specialised next to each enumeration: fromRawValue<Framing>("fill").
template <typename E>
std::optional<E> fromRawValue(std::string_view text);

} // namespace hushmeadows
