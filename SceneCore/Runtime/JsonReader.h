#pragma once

#include "SceneCore/Runtime/DecodingError.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hushmeadows {

using Json = nlohmann::json;

// Arrays and objects nested deeper than this are refused as malformed.
inline constexpr std::size_t maximumJsonDepth = 64;

// Parses JSON text; malformed text (or invalid UTF-8, a NUL byte, nesting
// beyond maximumJsonDepth) is a dataCorrupted error with an empty coding path.
Json parseJson(std::string_view text);

// Reads one JSON object by key with strict or tolerant rules, keeping the
// coding path for error reports. Strict reads throw DecodingError; tolerant
// reads turn any failure into "absent".
class JsonReader {
public:
    // Fails with typeMismatch when the value is not an object.
    JsonReader(const Json& value, std::vector<std::string> path);

    const Json& value() const { return value_; }
    const std::vector<std::string>& path() const { return path_; }
    bool has(std::string_view key) const;

    // A required key: missing → keyNotFound, null → valueNotFound.
    template <typename T, typename Decode>
    T required(std::string_view key, Decode decode) const
    {
        auto childPath = pathWith(key);
        auto it = value_.find(std::string(key));
        if (it == value_.end())
            throw DecodingError(DecodingError::Kind::keyNotFound, childPath, "No value associated with key " + std::string(key));
        if (it->is_null())
            throw DecodingError(DecodingError::Kind::valueNotFound, childPath, "Expected a value but found null");
        return decode(*it, childPath);
    }

    // A plain optional key: missing or null → absent; anything malformed fails.
    template <typename T, typename Decode>
    std::optional<T> optional(std::string_view key, Decode decode) const
    {
        auto it = value_.find(std::string(key));
        if (it == value_.end() || it->is_null())
            return std::nullopt;
        return decode(*it, pathWith(key));
    }

    // A tolerant key: any failure counts as absent.
    template <typename T, typename Decode>
    std::optional<T> tolerant(std::string_view key, Decode decode) const
    {
        try {
            return optional<T>(key, decode);
        } catch (const DecodingError&) {
            return std::nullopt;
        }
    }

    std::vector<std::string> pathWith(std::string_view key) const;

private:
    const Json& value_;
    std::vector<std::string> path_;
};

// Value decoders with the strict rules of the system's JSON decoder: numbers
// are not booleans, an integer must be a whole number that fits, and so on.
namespace json {
[[noreturn]] void typeMismatch(const std::vector<std::string>& path, std::string_view expected);
[[noreturn]] void corrupted(const std::vector<std::string>& path, std::string description);

std::string string(const Json& value, const std::vector<std::string>& path);
bool boolean(const Json& value, const std::vector<std::string>& path);
double number(const Json& value, const std::vector<std::string>& path);
std::int64_t integer(const Json& value, const std::vector<std::string>& path);
std::vector<std::string> stringArray(const Json& value, const std::vector<std::string>& path);
std::map<std::string, std::string> stringMap(const Json& value, const std::vector<std::string>& path);

// A decoder of text that must name one case of an enumeration, given that
// enumeration's parser (text to optional case). Every enumeration read from
// JSON goes through here.
template <typename Parse>
auto enumeration(Parse parse)
{
    return [parse](const Json& value, const std::vector<std::string>& path) {
        auto text = string(value, path);
        auto decoded = parse(text);
        if (!decoded)
            corrupted(path, "Cannot initialize from invalid String value " + text);
        return *decoded;
    };
}

// An array whose elements are decoded by `element`, with "Index N" in the path.
template <typename T, typename Decode>
std::vector<T> array(const Json& value, const std::vector<std::string>& path, Decode element)
{
    if (!value.is_array())
        typeMismatch(path, "array");
    std::vector<T> result;
    result.reserve(value.size());
    for (std::size_t i = 0; i < value.size(); ++i) {
        auto childPath = path;
        childPath.push_back("Index " + std::to_string(i));
        if (value[i].is_null())
            throw DecodingError(DecodingError::Kind::valueNotFound, childPath, "Expected a value but found null");
        result.push_back(element(value[i], childPath));
    }
    return result;
}

// An object read as a map from its keys to values decoded by `element`.
template <typename T, typename Decode>
std::map<std::string, T> object(const Json& value, const std::vector<std::string>& path, Decode element)
{
    if (!value.is_object())
        typeMismatch(path, "dictionary");
    std::map<std::string, T> result;
    for (auto it = value.begin(); it != value.end(); ++it) {
        auto childPath = path;
        childPath.push_back(it.key());
        if (it.value().is_null())
            throw DecodingError(DecodingError::Kind::valueNotFound, childPath, "Expected a value but found null");
        result.emplace(it.key(), element(it.value(), childPath));
    }
    return result;
}
} // namespace json

} // namespace hushmeadows
