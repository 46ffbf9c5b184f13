#include "SceneCore/Worlds/WorldTheme.h"

#include "SceneCore/Runtime/JsonReader.h"

namespace hushmeadows {

namespace {
constexpr EnumNames<WorldTheme::Style, 3> styleNames{{{
    {WorldTheme::Style::cabin, "cabin"},
    {WorldTheme::Style::greenhouse, "greenhouse"},
    {WorldTheme::Style::city, "city"},
}}};
constexpr EnumNames<WorldTheme::Appearance, 2> appearanceNames{{{
    {WorldTheme::Appearance::dark, "dark"},
    {WorldTheme::Appearance::light, "light"},
}}};

} // namespace

template <>
std::optional<WorldTheme::Style> fromRawValue<WorldTheme::Style>(std::string_view text)
{
    return styleNames.value(text);
}

template <>
std::optional<WorldTheme::Appearance> fromRawValue<WorldTheme::Appearance>(std::string_view text)
{
    return appearanceNames.value(text);
}

std::string_view rawValue(WorldTheme::Style style) { return styleNames.name(style); }
std::string_view rawValue(WorldTheme::Appearance appearance) { return appearanceNames.name(appearance); }

const std::array<std::string_view, 19> WorldTheme::roles{
    "ink", "background", "shade", "frameHighlight", "frameLight", "frameMid", "frameDark",
    "frameDeep", "accentGlow", "accentLight", "accentMid", "accentDark", "accentEdge",
    "accentText", "text", "textDim", "textFaint", "title", "titleLight",
};

const std::array<std::string_view, 8> WorldTheme::optionalRoles{
    "primary", "primaryLight", "primaryDark", "detail", "detailLight", "mutedFill", "mutedFillLow", "mutedIcon",
};

std::optional<WorldTheme::Material> WorldTheme::knownMaterial() const
{
    if (material && *material == "villa")
        return Material::villa;
    return std::nullopt;
}

std::optional<std::uint32_t> parseHexUInt32(std::string_view digits)
{
    bool negative = false;
    if (!digits.empty() && (digits.front() == '+' || digits.front() == '-')) {
        negative = digits.front() == '-';
        digits.remove_prefix(1);
    }
    if (digits.empty())
        return std::nullopt;
    std::uint64_t value = 0;
    for (char c : digits) {
        int digit;
        if (c >= '0' && c <= '9')
            digit = c - '0';
        else if (c >= 'a' && c <= 'f')
            digit = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F')
            digit = c - 'A' + 10;
        else
            return std::nullopt;
        value = value * 16 + static_cast<std::uint64_t>(digit);
        if (value > 0xFFFFFFFFull)
            return std::nullopt;
    }
    if (negative && value != 0)
        return std::nullopt;
    return static_cast<std::uint32_t>(value);
}

std::optional<std::uint32_t> WorldTheme::hex(std::string_view text)
{
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
        text.remove_suffix(1);
    if (!text.empty() && text.front() == '#')
        text.remove_prefix(1);
    if (text.size() != 6)
        return std::nullopt;
    return parseHexUInt32(text);
}

WorldTheme WorldTheme::fromJson(const Json& value, const std::vector<std::string>& codingPath)
{
    JsonReader reader(value, codingPath);
    WorldTheme theme;
    theme.style = reader.required<Style>("style", json::enumeration(fromRawValue<Style>));
    theme.appearance = reader.required<Appearance>("appearance", json::enumeration(fromRawValue<Appearance>));
    theme.colors = reader.required<std::map<std::string, std::string>>("colors", json::stringMap);
    theme.icons = reader.optional<std::map<std::string, std::string>>("icons", json::stringMap);
    theme.material = reader.optional<std::string>("material", json::string);
    return theme;
}

Json WorldTheme::toJson() const
{
    Json out = Json::object();
    out["style"] = std::string(rawValue(style));
    out["appearance"] = std::string(rawValue(appearance));
    out["colors"] = colors;
    if (icons)
        out["icons"] = *icons;
    if (material)
        out["material"] = *material;
    return out;
}

} // namespace hushmeadows
