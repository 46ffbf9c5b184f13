#pragma once

#include "SceneCore/Runtime/EnumNames.h"

#include <nlohmann/json_fwd.hpp>

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hushmeadows {

// The colour theme a world offers to interface drawn around it. The saver
// only decodes, compares and carries it.
struct WorldTheme {
    enum class Style { cabin, greenhouse, city };
    enum class Appearance { dark, light };
    enum class Material { villa };

    Style style = Style::cabin;
    Appearance appearance = Appearance::dark;
    std::map<std::string, std::string> colors;
    std::optional<std::map<std::string, std::string>> icons;
    std::optional<std::string> material; // free text, so unknown materials survive

    bool operator==(const WorldTheme&) const = default;

    std::optional<Material> knownMaterial() const;

    // "#1A2B3C", "1A2B3C" or " #1a2b3c " → 0x1A2B3C; anything else → nothing.
    static std::optional<std::uint32_t> hex(std::string_view text);

    static const std::array<std::string_view, 19> roles;
    static const std::array<std::string_view, 8> optionalRoles;

    // Strict: a missing or malformed style, appearance or colors fails.
    static WorldTheme fromJson(const nlohmann::json& value, const std::vector<std::string>& codingPath);
    nlohmann::json toJson() const;
};

template <>
std::optional<WorldTheme::Style> fromRawValue<WorldTheme::Style>(std::string_view text);
template <>
std::optional<WorldTheme::Appearance> fromRawValue<WorldTheme::Appearance>(std::string_view text);
std::string_view rawValue(WorldTheme::Style style);
std::string_view rawValue(WorldTheme::Appearance appearance);

// A 1 to 8 digit base-16 number that fits in 32 bits, as the platform's
// integer parser reads it (an optional leading sign included).
std::optional<std::uint32_t> parseHexUInt32(std::string_view digits);

} // namespace hushmeadows
