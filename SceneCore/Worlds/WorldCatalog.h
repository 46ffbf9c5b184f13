#pragma once

#include <nlohmann/json_fwd.hpp>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hushmeadows {

// catalog.json, kept in a worlds folder beside the packages: worlds grouped
// into collections for the companion application's library, each entry
// either available or coming soon.
//
//   { "formatVersion": 1,
//     "collections": [
//       { "id": "meadows", "name": "Meadows", "subtitle": "…",
//         "worlds": [ { "id": "meadow", "status": "available" },
//                     { "id": "winter-meadow", "status": "comingSoon", "name": "Winter Meadow" } ] } ] }
//
// Decoding is tolerant, like every later addition to a record: a collection
// or entry without a text id is dropped, other malformed keys count as absent,
// unknown keys are ignored. An entry without a status is available; one with a
// status this version does not know is shown as coming soon, so nothing is
// offered that may not be there.
struct WorldCatalog {
    static constexpr std::string_view fileName = "catalog.json";
    static constexpr std::uintmax_t maximumFileSize = 1'048'576;

    enum class Status { available, comingSoon };

    struct Entry {
        std::string id;
        Status status = Status::available;
        std::optional<std::string> name;
        bool operator==(const Entry&) const = default;
    };

    struct Collection {
        std::string id;
        std::string name;
        std::optional<std::string> subtitle;
        std::vector<Entry> worlds;
        bool operator==(const Collection&) const = default;
    };

    std::int64_t formatVersion = 1;
    std::vector<Collection> collections;

    bool operator==(const WorldCatalog&) const = default;

    // Throws DecodingError only when the text is not JSON or not an object.
    static WorldCatalog decode(std::string_view data);
    static WorldCatalog fromJson(const nlohmann::json& value);
    nlohmann::json toJson() const;

    // The catalogue of a worlds folder; nothing when there is none. A file
    // too large or not decodable is logged and counts as none.
    static std::optional<WorldCatalog> load(const std::filesystem::path& worldsFolder);

    // The first entry for a world id across all collections.
    const Entry* entry(std::string_view worldID) const;
};

std::string_view rawValue(WorldCatalog::Status status);

} // namespace hushmeadows
