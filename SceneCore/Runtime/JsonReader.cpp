#include "SceneCore/Runtime/JsonReader.h"

namespace hushmeadows {

namespace {

// Whether arrays and objects nest deeper than the limit anywhere in the text,
// counted outside strings; malformed text is left for the parser to refuse.
bool nestsTooDeep(std::string_view text)
{
    std::size_t depth = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (inString) {
            if (c == '\\')
                ++i;
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > maximumJsonDepth)
                return true;
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return false;
}

} // namespace

Json parseJson(std::string_view text)
{
    // The parser takes a NUL byte for the end of the text: anything after one
    // would be ignored rather than refused. Deep nesting would exhaust the
    // stack in code that walks the value recursively.
    if (text.find('\0') != std::string_view::npos || nestsTooDeep(text))
        throw DecodingError(DecodingError::Kind::dataCorrupted, {}, "The given data was not valid JSON.");
    try {
        return Json::parse(text.begin(), text.end());
    } catch (const Json::exception& error) {
        throw DecodingError(DecodingError::Kind::dataCorrupted, {}, "The given data was not valid JSON.");
    }
}

JsonReader::JsonReader(const Json& value, std::vector<std::string> path)
    : value_(value)
    , path_(std::move(path))
{
    if (!value_.is_object())
        json::typeMismatch(path_, "dictionary");
}

bool JsonReader::has(std::string_view key) const
{
    return value_.contains(std::string(key));
}

std::vector<std::string> JsonReader::pathWith(std::string_view key) const
{
    auto path = path_;
    path.emplace_back(key);
    return path;
}

namespace json {

void typeMismatch(const std::vector<std::string>& path, std::string_view expected)
{
    throw DecodingError(DecodingError::Kind::typeMismatch, path, "Expected to decode " + std::string(expected));
}

void corrupted(const std::vector<std::string>& path, std::string description)
{
    throw DecodingError(DecodingError::Kind::dataCorrupted, path, std::move(description));
}

std::string string(const Json& value, const std::vector<std::string>& path)
{
    if (!value.is_string())
        typeMismatch(path, "String");
    return value.get<std::string>();
}

bool boolean(const Json& value, const std::vector<std::string>& path)
{
    if (!value.is_boolean())
        typeMismatch(path, "Bool");
    return value.get<bool>();
}

double number(const Json& value, const std::vector<std::string>& path)
{
    if (!value.is_number())
        typeMismatch(path, "Double");
    return value.get<double>();
}

std::int64_t integer(const Json& value, const std::vector<std::string>& path)
{
    if (value.is_number_integer())
        return value.get<std::int64_t>();
    if (value.is_number_unsigned()) {
        auto big = value.get<std::uint64_t>();
        if (big > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
            corrupted(path, "Number does not fit in Int");
        return static_cast<std::int64_t>(big);
    }
    if (value.is_number_float()) {
        double d = value.get<double>();
        // A whole number written with a fraction (1.0) is accepted; 1.5 is not.
        if (std::isfinite(d) && std::trunc(d) == d && d >= -9.2e18 && d <= 9.2e18)
            return static_cast<std::int64_t>(d);
        corrupted(path, "Number does not fit in Int");
    }
    typeMismatch(path, "Int");
}

std::vector<std::string> stringArray(const Json& value, const std::vector<std::string>& path)
{
    return array<std::string>(value, path, string);
}

std::map<std::string, std::string> stringMap(const Json& value, const std::vector<std::string>& path)
{
    return object<std::string>(value, path, string);
}

} // namespace json
} // namespace hushmeadows
